#include "live/played_source.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "live/capture.h"

namespace live {
namespace {

constexpr double kWaitS = 0.1;
constexpr double kLongestGapS = 10.0;  // a longer one between two time stamps is an error of the file

double now() {
  static const Clocks clocks = machineClocks();
  return clocks.steady();
}

}  // namespace

PlayedSource::PlayedSource(std::unique_ptr<host::FrameSource> inner, Playing playing, std::function<bool()> isOver,
                           std::function<void()> stop)
    : inner_(std::move(inner)), playing_(playing), isOver_(std::move(isOver)), stopInner_(std::move(stop)) {
  if (playing_ != Playing::EveryFrame) thread_ = std::thread([this] { run_(); });
}

PlayedSource::~PlayedSource() {
  stop_ = true;
  if (stopInner_) stopInner_();
  if (thread_.joinable()) thread_.join();
}

void PlayedSource::run_() {
  try {
    for (LiveFrame frame; !stop_ && take_(frame); frame = {}) {
      past_.add(frame);
      slot_.put(std::move(frame));
    }
  } catch (...) {
    const std::lock_guard<std::mutex> lock(mutex_);
    failed_ = std::current_exception();
  }
  slot_.close();
}

/// The next frame of the inner source, when it is due.
bool PlayedSource::take_(LiveFrame& frame) {
  host::SourceFrame got;
  if (!inner_->read(got)) return false;
  if (playing_ == Playing::AtItsRate) wait_(got.time_s);
  frame.index = got.index;
  frame.time_s = got.time_s;
  frame.bgr = got.bgr;
  frame.capturedAt = got.live ? got.live->capturedAt : now();
  frame.senderClock = got.live && got.live->senderClock;
  if (got.live) frame.camera = got.live->camera;
  return true;
}

void PlayedSource::wait_(double time_s) {
  if (!begin_) begin_ = now() - time_s;
  for (double wait = *begin_ + time_s - now(); wait > 0; wait = *begin_ + time_s - now()) {
    if (wait > kLongestGapS) begin_ = now() - time_s;
    if (stop_ || wait > kLongestGapS) return;
    std::this_thread::sleep_for(std::chrono::duration<double>(std::min(wait, kWaitS)));
  }
}

bool PlayedSource::read(host::SourceFrame& frame) {
  while (!isOver_()) {
    if (playing_ == Playing::EveryFrame) {
      LiveFrame next;
      if (!take_(next)) break;
      past_.add(next);
      deliver_(next, frame);
      return true;
    }
    const bool closed = slot_.closed();  // asked first: what came before the end is still taken
    if (const std::optional<LiveFrame> taken = slot_.take(std::chrono::duration<double>(kWaitS))) {
      deliver_(*taken, frame);
      return true;
    }
    if (closed) break;
    if (trySayLoss_(frame)) return true;
  }
  over_ = slot_.closed() || playing_ == Playing::EveryFrame;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (failed_) std::rethrow_exception(std::exchange(failed_, nullptr));
  return false;
}

host::SourceFrame PlayedSource::sourceFrameOf(const LiveFrame& taken) const {
  host::SourceFrame frame;
  frame.index = taken.index;
  frame.time_s = taken.time_s;
  frame.bgr = taken.bgr;
  frame.live.emplace();
  frame.live->capturedAt = taken.capturedAt;
  frame.live->senderClock = taken.senderClock;
  frame.live->camera = taken.camera;
  return frame;
}

void PlayedSource::deliver_(const LiveFrame& taken, host::SourceFrame& frame) {
  frame = sourceFrameOf(taken);
  frame.live->dropped = last_ ? std::max(0L, taken.index - last_->index - 1) : 0;
  loss_.frameCame(now());
  last_ = taken;
  last_->bgr.release();
}

bool PlayedSource::trySayLoss_(host::SourceFrame& frame) {
  if (!last_) return false;  // a pipe may still be without a writer
  const std::optional<double> without = loss_.due(now());
  if (!without) return false;
  frame = {};
  frame.index = last_->index;
  frame.time_s = last_->time_s + *without;
  frame.noSignal = true;
  return true;
}

}  // namespace live
