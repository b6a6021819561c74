#include "plugin/target_session.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "input/frame_clock.h"
#include "plugin/log_capture.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

}  // namespace

TargetSession::TargetSession(std::shared_ptr<IAlgoPlugin> plugin, std::string name, std::string engine)
    : plugin_(std::move(plugin)), name_(std::move(name)), engine_(std::move(engine)) {
  installLogCapture();
  plugin_->enableDebug(true);
}

/// Runs one call of the plug-in with its log lines and its time recorded; the text of an exception, else empty.
template <typename Call>
std::string TargetSession::timedCall_(CallRecord& record, Call call) const {
  std::string thrown;
  LogCapture capture;
  const Clock::time_point begin = Clock::now();
  std::optional<FrameClock> frameClock;
  if (pace_ == Pace::Video) frameClock.emplace(record.time_s);
  try {
    record.outputs = call();
  } catch (const std::exception& e) {
    thrown = std::string("exception: ") + e.what();
  }
  frameClock.reset();
  record.update_ms = millisecondsSince(begin);
  record.log = capture.lines();
  return thrown;
}

std::vector<std::string> TargetSession::configure(const std::string& json) {
  if (json.empty()) return {};
  LogCapture capture;
  plugin_->setConfig(json);
  plugin_->enableDebug(true);  // the text may have switched it off, and the states are read from the lines
  return capture.lines();
}

CallRecord TargetSession::init(const Frame& frame, const FramePlace& place, const BBox& box) {
  CallRecord record = begin_(place, true);
  record.givenBox = cv::Rect(box.x, box.y, box.width, box.height);
  const std::string thrown = timedCall_(record, [&] { return plugin_->init({frame}, box, &record.started); });
  if (!thrown.empty()) record.started = false;
  seen_.reset();
  take_(record,
        thrown.empty() ? factsOfInit(record.log, record.started, record.outputs) : factsOfException(true, thrown));
  return record;
}

CallRecord TargetSession::update(const Frame& frame, const FramePlace& place) {
  CallRecord record = begin_(place, false);
  bool processed = false;
  const std::string thrown = timedCall_(record, [&] { return plugin_->update({frame}, &processed); });
  take_(record, thrown.empty() ? factsOfUpdate(record.log, record.outputs) : factsOfException(false, thrown));
  return record;
}

CallRecord TargetSession::silent(const FramePlace& place) const {
  CallRecord record = begin_(place, false);
  record.noSignal = true;
  record.state = lastBox_ ? TrackState::Predicted : lastState_;
  record.box = lastBox_;
  record.boxFrom = lastBox_ ? BoxFrom::Prediction : BoxFrom::None;
  if (seen_) {
    record.framesSinceSeen = std::max(1L, callsSinceSeen_);
    record.secondsSinceSeen = std::max(0.0, record.time_s - seen_->time_s);
  }
  return record;
}

CallRecord TargetSession::begin_(const FramePlace& place, bool isInit) const {
  CallRecord record;
  record.target = name_;
  record.frame = place.index;
  record.time_s = place.time_s;
  record.engine = engine_;
  record.isInit = isInit;
  record.pace = host::name(pace_);
  return record;
}

/// Puts the facts into the record, and how long ago the target was seen.
void TargetSession::take_(CallRecord& record, const CallFacts& facts) {
  static_cast<CallFacts&>(record) = facts;
  if (facts.seen) {
    seen_ = FramePlace{record.frame, record.time_s};
    callsSinceSeen_ = 0;
  } else {
    ++callsSinceSeen_;
  }
  lastState_ = record.state;
  lastBox_ = record.box;
  if (seen_) {
    record.framesSinceSeen = callsSinceSeen_;
    record.secondsSinceSeen = record.time_s - seen_->time_s;
  }
}

}  // namespace host
