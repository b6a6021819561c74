#include "web/run_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>

namespace host::web {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kRateOver_s = 2.0;
constexpr std::array kStandings = {Standing::Idle,      Standing::Waiting, Standing::Tracked, Standing::Predicted,
                                   Standing::Searching, Standing::Lost,    Standing::NoSignal};

double rounded(double value, double unit) {
  return std::round(value * unit) / unit;
}

Json boxJson(const cv::Rect& box) {
  return Json::array({box.x, box.y, box.width, box.height});
}

std::optional<double> valueOf(const LiveFacts& live, const std::string& key) {
  const auto found = live.camera.find(key);
  return found == live.camera.end() ? std::nullopt : std::optional<double>(found->second);
}

std::string escaped(const std::string& label) {
  std::string text;
  for (const char c : label) {
    if (c == '\\' || c == '"') text += '\\';
    text += c == '\n' ? ' ' : c;
  }
  return text;
}

std::string drawnName() {
  std::random_device random;
  return fmt::format("{:08x}{:08x}", random(), random());
}

}  // namespace

void RunView::begin(const RunInfo& info) {
  const std::lock_guard<std::mutex> lock(mutex_);
  info_ = info;
  run_ = drawnName();
  size_ = info.frameSize;
}

void RunView::frame(const SourceFrame& frame, const std::vector<CallRecord>& records, double now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  index_ = frame.index;
  time_s_ = frame.time_s;
  size_ = frame.bgr.size();
  noSignal_ = false;
  lastFrameAt_ = now;
  ++judged_;
  moments_.push_back({now, frame.index});
  while (now - moments_.front().at > kRateOver_s) moments_.pop_front();
  age_ms_.reset();
  pan_deg_.reset();
  tilt_deg_.reset();
  if (frame.live) {
    dropped_ += frame.live->dropped;
    age_ms_ = std::max(0.0, 1000.0 * (now - frame.live->capturedAt));
    ageFromSender_ = frame.live->senderClock;
    pan_deg_ = valueOf(*frame.live, "pan_deg");
    tilt_deg_ = valueOf(*frame.live, "tilt_deg");
  }
  take_Locked_(records, now);
  note_Locked_(now);
}

void RunView::noSignal(const std::vector<CallRecord>& records, double now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  noSignal_ = true;
  take_Locked_(records, now);
  note_Locked_(now);
}

void RunView::started(const CallRecord& record, double now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  targets_[record.target].glance.stop();
  take_Locked_({record}, now);
}

void RunView::stopped(const std::string& target) {
  const std::lock_guard<std::mutex> lock(mutex_);
  targets_.erase(target);
}

void RunView::end() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ended_ = true;
}

void RunView::configured() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++configured_;
}

void RunView::take_Locked_(const std::vector<CallRecord>& records, double now) {
  for (const CallRecord& record : records) {
    Target& target = targets_[record.target];
    const Standing before = target.glance.standing();
    target.glance.take(record, now);
    if (target.glance.standing() == Standing::Lost && before != Standing::Lost) ++losses_[record.target];
    target.last = record;
    target.last.log.clear();
  }
}

void RunView::note_Locked_(double now) {
  TimelineRow row;
  row.at = now;
  if (!noSignal_) row.age_ms = age_ms_;
  row.pan_deg = pan_deg_;
  row.tilt_deg = tilt_deg_;
  for (const auto& [name, target] : targets_) {
    row.targets[name] = {noSignal_ ? Standing::NoSignal : target.glance.standing(), target.last.score};
  }
  timeline_.add(row);
}

double RunView::judgedRate_Locked_() const {
  if (moments_.size() < 2) return 0.0;
  const double seconds = moments_.back().at - moments_.front().at;
  return seconds > 0 ? static_cast<double>(moments_.size() - 1) / seconds : 0.0;
}

double RunView::sourceRate_Locked_() const {
  if (moments_.size() < 2) return 0.0;
  const double seconds = moments_.back().at - moments_.front().at;
  return seconds > 0 ? static_cast<double>(moments_.back().index - moments_.front().index) / seconds : 0.0;
}

Json RunView::targets_Locked_(double now) const {
  Json all = Json::array();
  for (const auto& [key, target] : targets_) {
    const CallRecord& record = target.last;
    Json json = {{"name", key},
                 {"standing", name(target.glance.standing())},
                 {"words", target.glance.words()},
                 {"since_s", rounded(target.glance.since(now), 10)},
                 {"state", host::name(record.state)},
                 {"frame", record.frame}};
    const std::optional<cv::Rect> box = record.isInit && record.started ? record.givenBox : record.box;
    const bool gone = target.glance.standing() == Standing::Lost;
    if (box && !gone) json["box"] = boxJson(*box);
    if (record.window && !gone) json["window"] = boxJson(*record.window);
    if (record.score) json["score"] = rounded(*record.score, 1000);
    if (record.secondsSinceSeen) json["unseen_s"] = rounded(*record.secondsSinceSeen, 100);
    json["update_ms"] = rounded(record.update_ms, 10);
    if (!target.glance.why().empty()) json["why"] = target.glance.why();
    if (record.guard) {
      const csrt_guard::Verdict& verdict = record.guard->verdict;
      json["guard"] = {{"state", csrt_guard::name(verdict.state)}, {"reason", verdict.reason}};
    }
    all.push_back(std::move(json));
  }
  return all;
}

Json RunView::targets(double now) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return targets_Locked_(now);
}

Json RunView::state(double now) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  Json json = {{"run", run_}, {"source", info_.source}, {"ended", ended_}, {"frame", index_}};
  json["time_s"] = rounded(time_s_, 1000);
  json["size"] = {size_.width, size_.height};
  if (age_ms_) {
    json["age_ms"] = rounded(*age_ms_, 10);
    json["age_from"] = ageFromSender_ ? "sender" : "arrival";
  }
  json["rate"] = rounded(judgedRate_Locked_(), 10);
  json["source_rate"] = rounded(sourceRate_Locked_(), 10);
  json["frames"] = judged_;
  json["dropped"] = dropped_;
  json["no_signal"] = noSignal_;
  if (noSignal_) json["silent_s"] = rounded(now - lastFrameAt_, 10);
  if (pan_deg_ && tilt_deg_) json["gimbal"] = {rounded(*pan_deg_, 100), rounded(*tilt_deg_, 100)};
  json["engine"] = info_.engine;
  json["configured"] = configured_;
  json["targets"] = targets_Locked_(now);
  return json;
}

Json RunView::timeline(double after, double now) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return timeline_.json(after, now);
}

std::string RunView::metrics(double now, long encoded, long viewers) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string text;
  const auto add = [&text](const char* metric, const char* type, const char* help, double value) {
    text += fmt::format("# HELP csrt_{0} {2}\n# TYPE csrt_{0} {1}\ncsrt_{0} {3}\n", metric, type, help, value);
  };
  add("up", "gauge", "1 while the run goes on", ended_ ? 0 : 1);
  add("frames_total", "counter", "Frames that were judged", static_cast<double>(judged_));
  add("dropped_frames_total", "counter", "Frames received that nobody worked on", static_cast<double>(dropped_));
  add("encoded_frames_total", "counter", "Frames that were encoded for viewers", static_cast<double>(encoded));
  add("viewers", "gauge", "Connections that wait for pictures or records", static_cast<double>(viewers));
  add("frame_rate", "gauge", "Frames judged a second", judgedRate_Locked_());
  add("source_rate", "gauge", "Frames a second that the source delivers", sourceRate_Locked_());
  add("no_signal", "gauge", "1 while no frame comes", noSignal_ ? 1 : 0);
  if (judged_ > 0) {
    add("seconds_since_frame", "gauge", "Seconds since the last frame", now - lastFrameAt_);
  }
  if (age_ms_) add("frame_age_seconds", "gauge", "Age of the newest frame when it was judged", *age_ms_ / 1000.0);
  text += "# HELP csrt_target_state 1 for the state that the target is in\n# TYPE csrt_target_state gauge\n";
  for (const auto& [key, target] : targets_) {
    for (const Standing standing : kStandings) {
      text += fmt::format("csrt_target_state{{target=\"{}\",state=\"{}\"}} {}\n", escaped(key), name(standing),
                          target.glance.standing() == standing ? 1 : 0);
    }
  }
  text += "# HELP csrt_target_score Score of the last frame that was measured\n# TYPE csrt_target_score gauge\n";
  for (const auto& [key, target] : targets_) {
    if (target.last.score)
      text += fmt::format("csrt_target_score{{target=\"{}\"}} {}\n", escaped(key), *target.last.score);
  }
  text += "# HELP csrt_target_losses_total How often it was lost\n# TYPE csrt_target_losses_total counter\n";
  for (const auto& [key, count] : losses_) {
    text += fmt::format("csrt_target_losses_total{{target=\"{}\"}} {}\n", escaped(key), count);
  }
  return text;
}

}  // namespace host::web
