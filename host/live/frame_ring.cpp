#include "frame_ring.h"

#include <algorithm>
#include <utility>

namespace live {
namespace {

constexpr double kCatchUpS = 0.5;

std::size_t bytesOf(const LiveFrame& frame) {
  return frame.bgr.total() * frame.bgr.elemSize();
}

}  // namespace

void FrameRing::add(const LiveFrame& frame) {
  const std::lock_guard<std::mutex> lock(mutex_);
  frames_.push_back(frame);
  bytes_ += bytesOf(frame);
  while (frames_.size() > 1 && (bytes_ > kBytes || frame.time_s - frames_.front().time_s > kSeconds)) {
    bytes_ -= bytesOf(frames_.front());
    frames_.pop_front();
  }
}

std::optional<LiveFrame> FrameRing::find(long index) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const LiveFrame& frame : frames_) {
    if (frame.index == index) return frame;
  }
  return std::nullopt;
}

std::vector<LiveFrame> FrameRing::after(long index) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<LiveFrame> later;
  for (const LiveFrame& frame : frames_) {
    if (frame.index > index) later.push_back(frame);
  }
  return later;
}

std::pair<long, long> FrameRing::range() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (frames_.empty()) return {0, -1};
  return {frames_.front().index, frames_.back().index};
}

std::vector<std::size_t> framesToCatchUp(std::size_t count, double frameS) {
  if (count == 0) return {};
  const double fit = frameS > 0 ? kCatchUpS / frameS : static_cast<double>(count);
  const auto chosen = static_cast<std::size_t>(std::min(std::max(fit, 1.0), static_cast<double>(count)));
  std::vector<std::size_t> places;
  places.reserve(chosen);
  for (std::size_t i = 1; i <= chosen; ++i) places.push_back(i * count / chosen - 1);
  return places;
}

}  // namespace live
