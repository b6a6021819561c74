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

/// The frame's pixels for the guard; empty where there are none it could look at.
cv::Mat pictureOf(const TargetSession::Frame& frame) {
  try {
    return frame != nullptr ? frame->getBGR() : cv::Mat();
  } catch (const std::exception&) {
    return {};
  }
}

/// What the plug-in claimed is not vouched for; the box, where there is one, is a prediction.
void believeNothing(CallFacts& facts, TrackState state) {
  facts.state = state;
  facts.boxFrom = facts.box ? BoxFrom::Prediction : BoxFrom::None;
  facts.seen = false;
  facts.score.reset();
  facts.window.reset();
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
  configured_.erase(std::remove(configured_.begin(), configured_.end(), json), configured_.end());
  configured_.push_back(json);
  LogCapture capture;
  plugin_->setConfig(json);
  plugin_->enableDebug(true);  // the text may have switched it off, and the states are read from the lines
  return capture.lines();
}

CallRecord TargetSession::init(const Frame& frame, const FramePlace& place, const BBox& box) {
  CallRecord record = begin_(place, true);
  record.givenBox = cv::Rect(box.x, box.y, box.width, box.height);
  record.guardModelSha256 = guardModelSha256_;
  const std::string thrown = timedCall_(record, [&] { return plugin_->init({frame}, box, &record.started); });
  if (!thrown.empty()) record.started = false;
  seen_.reset();
  take_(record,
        thrown.empty() ? factsOfInit(record.log, record.started, record.outputs) : factsOfException(true, thrown));
  if (guard_ && record.started) guard_->start(pictureOf(frame), *record.givenBox);
  return record;
}

CallRecord TargetSession::update(const Frame& frame, const FramePlace& place) {
  CallRecord record = begin_(place, false);
  bool processed = false;
  const std::string thrown = timedCall_(record, [&] { return plugin_->update({frame}, &processed); });
  CallFacts facts = thrown.empty() ? factsOfUpdate(record.log, record.outputs) : factsOfException(false, thrown);
  if (guard_) watch_(record, facts, frame);
  take_(record, facts);
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

void TargetSession::guardWith(const GuardChoice& choice) {
  guard_ = makeGuard(choice, &guardModelSha256_);
}

/// Lets the guard judge what the plug-in answered; the facts become what is to be reported.
void TargetSession::watch_(CallRecord& record, CallFacts& facts, const Frame& frame) {
  if (facts.state == TrackState::Waiting || facts.state == TrackState::Reseeded) return;  // nothing to judge yet
  GuardNote note;
  note.trackerState = host::name(facts.state);
  note.trackerBox = facts.box;
  note.trackerSeen = facts.seen;
  note.colourless = guard_->colourless();
  const Clock::time_point begin = Clock::now();
  note.verdict = guard_->judge(pictureOf(frame), {facts.box, facts.seen && facts.box});
  note.judge_ms = millisecondsSince(begin);
  switch (note.verdict.state) {
    case csrt_guard::State::Unguarded:
    case csrt_guard::State::Agreed:
      break;
    case csrt_guard::State::Doubted:
      facts.box = note.verdict.box;
      if (facts.box) believeNothing(facts, TrackState::Predicted);
      break;
    case csrt_guard::State::Searching:
      facts.box = note.verdict.box;
      believeNothing(facts, facts.box ? TrackState::Predicted : TrackState::Inactive);
      break;
    case csrt_guard::State::Reacquired:
      facts.box = note.verdict.box;
      takeFind_(record, facts, frame, note.verdict);
      break;
  }
  facts.reason = facts.reason.empty() && note.verdict.framesLost > 0 ? note.verdict.reason : facts.reason;
  record.guard = note;
}

/// init() that does not point the camera first: the target is in this frame, whatever is configured.
std::vector<AlgoOutput> TargetSession::initWithoutPointing_(const Frame& frame, const BBox& box, bool& started) {
  if (!configured_.empty()) plugin_->setConfig(R"({"preposition":{"enabled":false}})");
  std::vector<AlgoOutput> outputs = plugin_->init({frame}, box, &started);
  for (const std::string& json : configured_) plugin_->setConfig(json);  // as it was
  plugin_->enableDebug(true);
  return outputs;
}

/// Starts the plug-in over on what was found in this frame, or follows what was found in an earlier one on trial.
void TargetSession::takeFind_(CallRecord& record, CallFacts& facts, const Frame& frame,
                              const csrt_guard::Verdict& verdict) {
  const BoxFrom from = verdict.restart ? BoxFrom::Guard : facts.boxFrom;
  if (verdict.restart && !startOver_(record, facts, frame)) return;
  believeNothing(facts, TrackState::Reacquired);
  facts.boxFrom = from;
  facts.seen = verdict.seen;
}

/// Starts the plug-in over on the facts' box. @return whether it took it; else the box is a prediction
bool TargetSession::startOver_(CallRecord& record, CallFacts& facts, const Frame& frame) {
  CallRecord start = begin_({record.frame, record.time_s}, true);
  const cv::Rect& box = *facts.box;
  const std::string thrown = timedCall_(start, [&] {
    return initWithoutPointing_(frame, BBox{box.x, box.y, box.width, box.height}, start.started);
  });
  record.update_ms += start.update_ms;
  record.log.insert(record.log.end(), start.log.begin(), start.log.end());
  believeNothing(facts, TrackState::Predicted);
  return start.started && thrown.empty();
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
    record.secondsSinceSeen = std::max(0.0, record.time_s - seen_->time_s);
  }
}

}  // namespace host
