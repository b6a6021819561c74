#include "plugin/target_session.h"

#include <chrono>
#include <exception>
#include <utility>
#include <variant>

#include "input/frame_clock.h"
#include "plugin/log_capture.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

/// The array of detections of the answer; null where it has none.
AlgoValue::Array* detectionsOf(std::vector<AlgoOutput>& outputs) {
  for (AlgoOutput& output : outputs) {
    auto* members = output.name == "detection.v1" ? std::get_if<AlgoValue::Object>(&output.value) : nullptr;
    if (members == nullptr) continue;
    for (auto& [key, value] : *members) {
      if (key == "detections") return std::get_if<AlgoValue::Array>(&value);
    }
  }
  return nullptr;
}

template <typename T>
std::optional<T> memberOf(const AlgoValue& object, const std::string& key) {
  const auto* members = std::get_if<AlgoValue::Object>(&object);
  if (members == nullptr) return std::nullopt;
  for (const auto& [name, value] : *members) {
    const T* found = name == key ? std::get_if<T>(&value) : nullptr;
    if (found != nullptr) return *found;
  }
  return std::nullopt;
}

std::optional<cv::Rect> boxOf(const AlgoValue& detection) {
  const auto side = [&detection](const char* key) { return memberOf<long>(detection, key); };
  const auto x = side("x");
  const auto y = side("y");
  const auto w = side("w");
  const auto h = side("h");
  if (!x || !y || !w || !h) return std::nullopt;
  return cv::Rect(static_cast<int>(*x), static_cast<int>(*y), static_cast<int>(*w), static_cast<int>(*h));
}

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

}  // namespace

TargetSession::TargetSession(std::shared_ptr<IAlgoPlugin> plugin, std::string name)
    : plugin_(std::move(plugin)), name_(std::move(name)) {
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
  StateReport report = stateOfInit(record.log, record.started);
  if (!thrown.empty()) report.reason = thrown;
  seen_.reset();
  judge_(record, report);
  return record;
}

CallRecord TargetSession::update(const Frame& frame, const FramePlace& place) {
  CallRecord record = begin_(place, false);
  bool processed = false;
  const std::string thrown = timedCall_(record, [&] { return plugin_->update({frame}, &processed); });
  const AlgoValue::Array* detections = detectionsOf(record.outputs);
  StateReport report = stateOfUpdate(record.log, detections != nullptr && !detections->empty());
  if (!thrown.empty()) {
    report = StateReport{};
    report.state = TrackState::Lost;
    report.reason = thrown;
  }
  judge_(record, report);
  return record;
}

CallRecord TargetSession::begin_(const FramePlace& place, bool isInit) const {
  CallRecord record;
  record.target = name_;
  record.frame = place.index;
  record.time_s = place.time_s;
  record.isInit = isInit;
  record.pace = host::name(pace_);
  return record;
}

void TargetSession::judge_(CallRecord& record, const StateReport& report) {
  record.state = report.state;
  record.reason = report.reason;
  AlgoValue::Array* detections = detectionsOf(record.outputs);
  if (detections != nullptr && report.hasWindow && !detections->empty()) {
    record.window = boxOf(detections->back());
    detections->pop_back();  // only there because the host asks for the log lines
  }
  if (detections != nullptr && !detections->empty()) {
    record.box = boxOf(detections->front());
    if (report.scoreIsOfThisFrame) record.score = memberOf<double>(detections->front(), "score");
  }
  record.boxFrom = record.box ? report.boxFrom : BoxFrom::None;
  if (report.seen) {
    seen_ = FramePlace{record.frame, record.time_s};
    callsSinceSeen_ = 0;
  } else {
    ++callsSinceSeen_;
  }
  if (seen_) {
    record.framesSinceSeen = callsSinceSeen_;
    record.secondsSinceSeen = record.time_s - seen_->time_s;
  }
}

}  // namespace host
