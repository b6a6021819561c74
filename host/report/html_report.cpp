#include "report/html_report.h"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <optional>

#include "base/embedded.h"
#include "base/interrupt.h"
#include "base/statistics.h"
#include "picture/html_page.h"
#include "picture/picture_output.h"
#include "plugin/reason_words.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostStillBytes = 4U << 20U;  // of base64: with the rest of the page less than 5 MB
constexpr int kStillWidth = 1280;                   // pixels
constexpr int kJpegQuality = 60;

std::string base64(const std::vector<unsigned char>& bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string jpegOf(const cv::Mat& picture) {
  cv::Mat small = picture;
  if (picture.cols > kStillWidth) {
    const double scale = static_cast<double>(kStillWidth) / picture.cols;
    cv::resize(picture, small, cv::Size(), scale, scale, cv::INTER_AREA);
  }
  std::vector<unsigned char> bytes;
  cv::imencode(".jpg", small, bytes, {cv::IMWRITE_JPEG_QUALITY, kJpegQuality, cv::IMWRITE_JPEG_OPTIMIZE, 1});
  return base64(bytes);
}

std::string eventText(const CallRecord& record, const std::string& before) {
  if (record.isInit) return record.started ? "started" : "did not start: " + explained(record.reason);
  std::string what = before.empty() ? name(record.state) : before + " → " + name(record.state);
  if (!record.reason.empty()) what += ": " + explained(record.reason);
  return what;
}

/// What changed in the guard's mind, such as "guard: doubted → searching: nothing near looks enough like it". Empty:
/// nothing a person wants to know of.
std::string guardEventText(const GuardNote& note, const std::string& before, bool reasonIsTold) {
  const std::string now = csrt_guard::name(note.verdict.state);
  const bool asHoped = note.verdict.state == csrt_guard::State::Agreed;
  std::string what;
  if (before.empty()) {
    if (note.colourless) what = "guard: no colour in the picture, it judges by brightness";
    if (!asHoped) what += (what.empty() ? "guard: " : "; ") + now + ": " + note.verdict.reason;
  } else if (now != before) {
    what = "guard: " + before + " → " + now + (reasonIsTold ? "" : std::string(": ") + note.verdict.reason);
  }
  return what;
}

/// Of the settings; empty without a guard.
std::string guardLine(const GuardChoice& guard) {
  if (guard.kind == GuardKind::Off) return {};
  return fmt::format("guard: {}{}\n", name(guard.kind), guard.sha256.empty() ? "" : ", sha256 " + guard.sha256);
}

const TruthMark* markAt(const TruthTarget* truth, long frame) {
  if (truth == nullptr) return nullptr;
  const auto at = std::lower_bound(truth->marks.begin(), truth->marks.end(), frame,
                                   [](const TruthMark& mark, long wanted) { return mark.frame < wanted; });
  return at != truth->marks.end() && at->frame == frame ? &*at : nullptr;
}

template <std::size_t N>
Json stepsOf(double width) {
  Json steps = Json::array();
  for (std::size_t i = 0; i < N; ++i) steps.push_back(static_cast<double>(i) * width);
  return steps;
}

}  // namespace

HtmlReport::HtmlReport(const std::string& path, std::vector<TruthTarget> truth)
    : file_(path, "--report"), truth_(std::move(truth)) {}

void HtmlReport::begin(const RunInfo& info) {
  info_ = info;
  names_ = info.targets;
  for (const std::string& target : names_) {
    Target& fresh = targets_[target];
    if (truth_.size() == 1 && names_.size() == 1) fresh.truth = &truth_.front();
    for (const TruthTarget& truth : truth_) {
      if (truth.name == target) fresh.truth = &truth;
    }
  }
}

void HtmlReport::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  hasResult_ = hasResult_ || anyFollowed(records);
  std::string note;
  for (const CallRecord& record : records) {
    Target& target = targets_[record.target];
    noteEvent_(target, record, note);
    add_(target, record);
  }
  const cv::Mat picture = annotator_.draw(frame.bgr, records);
  if (!note.empty() || frames_ % stride_ == 0) keepStill_(picture, frame, note);
  ++frames_;
}

void HtmlReport::restarted(const CallRecord& record) {
  annotator_.forget(record.target);
  std::string note;
  noteEvent_(targets_[record.target], record, note);
}

bool HtmlReport::noteEvent_(Target& target, const CallRecord& record, std::string& note) {
  const std::string state = name(record.state);
  // After a start the first answer is no change of state, as long as it is the one that is hoped for.
  const bool asExpected = target.justStarted && record.state == TrackState::Tracked;
  std::string what;
  if (record.isInit || (state != target.lastState && !target.lastState.empty() && !asExpected)) {
    const std::string before = target.justStarted ? "start" : target.lastState;
    what = eventText(record, record.isInit ? "" : before);
  }
  if (record.isInit) target.lastGuard.clear();
  if (record.guard) {
    const bool reasonIsTold = !what.empty() && record.reason == record.guard->verdict.reason;
    const std::string guard = guardEventText(*record.guard, target.lastGuard, reasonIsTold);
    what += (what.empty() || guard.empty() ? "" : "; ") + guard;
    target.lastGuard = csrt_guard::name(record.guard->verdict.state);
  }
  const bool event = !what.empty();
  if (event) {
    target.events.push_back({{"frame", record.frame}, {"time_s", record.time_s}, {"what", what}});
    note += (note.empty() ? "" : "; ") + record.target + " " + what;
  }
  target.lastState = state;
  target.justStarted = record.isInit && record.state == TrackState::Reseeded;
  return event;
}

void HtmlReport::add_(Target& target, const CallRecord& record) {
  Json point = {{"frame", record.frame}, {"state", name(record.state)}, {"ms", record.update_ms}};
  if (record.isInit) point["start"] = true;
  if (record.score) point["score"] = *record.score;
  if (record.window) point["window"] = std::max(record.window->width, record.window->height);
  if (record.box) point["side"] = std::max(record.box->width, record.box->height);
  addGuard_(target, record, point);
  judge_(target, record, point);
  target.frames.push_back(std::move(point));
  if (record.isInit) return;
  ++target.states[name(record.state)];
  target.ms.push_back(record.update_ms);
}

void HtmlReport::addGuard_(Target& target, const CallRecord& record, Json& point) {
  if (!record.guard) return;
  const csrt_guard::Verdict& verdict = record.guard->verdict;
  target.guarded = true;
  target.guardMs.push_back(record.guard->judge_ms);
  point["guard_ms"] = record.guard->judge_ms;
  if (verdict.restart) ++target.foundByGuard;
  point["guard"] = csrt_guard::name(verdict.state);
  if (target.lastReason != verdict.reason) point["why"] = verdict.reason;  // the page carries it on
  target.lastReason = verdict.reason;
  const auto put = [&point](const char* key, const std::optional<double>& value) {
    if (value) point[key] = std::round(*value * 1000) / 1000;
  };
  put("likeness", verdict.likeness);
  put("usual", verdict.usual);
  put("around", verdict.around);
  put("belief", verdict.belief);
}

void HtmlReport::judge_(Target& target, const CallRecord& record, Json& point) {
  const TruthMark* mark = markAt(target.truth, record.frame);
  if (mark == nullptr || record.isInit) return;
  const std::optional<cv::Rect2d> truth = mark->absent ? std::nullopt : std::optional<cv::Rect2d>(mark->box);
  const std::optional<cv::Rect2d> box = record.box ? std::optional<cv::Rect2d>(*record.box) : std::nullopt;
  target.samples.judgements.push_back(judge(record.frame, record.time_s, truth, box, isSeen(record)));
  point["iou"] = target.samples.judgements.back().iou;
}

void HtmlReport::keepStill_(const cv::Mat& picture, const SourceFrame& frame, const std::string& note) {
  stills_.push_back({frame.index, frame.time_s, note, jpegOf(picture)});
  stillBytes_ += stills_.back().jpeg.size();
  while (stillBytes_ > kMostStillBytes && stills_.size() > 2) thinStills_();
}

// Every second picture that is no event goes, and only every second frame is kept from then on. Where nothing but
// events is left, every second of them goes: the list of events keeps them all.
void HtmlReport::thinStills_() {
  stride_ *= 2;
  const bool onlyEvents =
      std::none_of(stills_.begin() + 1, stills_.end(), [](const Still& still) { return still.note.empty(); });
  bool drop = false;
  const auto goes = [&drop, onlyEvents](const Still& still) {
    if (!still.note.empty() && !onlyEvents) return false;
    drop = !drop;
    return drop;
  };
  stills_.erase(std::remove_if(stills_.begin() + 1, stills_.end(), goes), stills_.end());
  stillBytes_ = 0;
  for (const Still& still : stills_) stillBytes_ += still.jpeg.size();
}

void HtmlReport::addTimes_(const Target& target, Json& figures) {
  const auto at = [](const std::vector<double>& ms, double share, int digits) {
    return fmt::format("{:.{}f}", quantile(ms, share), digits);
  };
  figures.push_back({target.guarded ? "ms of the plug-in, median" : "ms per frame, median", at(target.ms, 0.5, 1)});
  figures.push_back({target.guarded ? "ms of the plug-in, 95 of 100" : "ms, 95 of 100 frames", at(target.ms, 0.95, 1)});
  if (!target.guarded) return;
  figures.push_back({"ms of the guard, median", at(target.guardMs, 0.5, 2)});
  figures.push_back({"ms of the guard, 95 of 100", at(target.guardMs, 0.95, 2)});
}

Json HtmlReport::toJson_(const std::string& name, const Target& target) const {
  Json json = {{"name", name}, {"frames", target.frames}, {"events", target.events}};
  Json figures = Json::array();
  const auto updates = static_cast<double>(std::max<std::size_t>(target.ms.size(), 1));
  figures.push_back({"frames", std::to_string(target.ms.size())});
  for (const auto& [state, count] : target.states) {
    figures.push_back({state, fmt::format("{:.1f} %", 100.0 * static_cast<double>(count) / updates)});
  }
  if (target.guarded) figures.push_back({"found by the guard", std::to_string(target.foundByGuard)});
  addTimes_(target, figures);
  if (!target.samples.judgements.empty()) {
    const MetricSums sums = sumsOf(target.samples);
    const Metrics metrics = metricsOf(sums);
    const auto ofMarks = [&sums](double figure) { return sums.present > 0 ? fmt::format("{:.2f}", figure) : "-"; };
    figures.push_back({"mean overlap", ofMarks(metrics.meanIou)});
    figures.push_back({"success AUC", ofMarks(metrics.successAuc)});
    figures.push_back({"precision at 20 px", ofMarks(metrics.precision20)});
    json["curves"] = {{"success_steps", stepsOf<kSuccessSteps>(0.05)},
                      {"success", metrics.successCurve},
                      {"precision_steps", stepsOf<kPrecisionSteps>(1.0)},
                      {"precision", metrics.precisionCurve}};
  }
  json["figures"] = std::move(figures);
  return json;
}

void HtmlReport::end() {
  if (!hasResult_) return;
  Json data;
  data["about"] = fmt::format("{}, {} x {} pixels, {:.3g} frames per second, from frame {}, {} frames{}", info_.source,
                              info_.frameSize.width, info_.frameSize.height, info_.fps, info_.firstFrame, frames_,
                              interruptSignal() != 0 ? "; interrupted by " + interruptName() : "");
  data["settings"] = fmt::format("configuration: {}\nplug-in: {}\nengine: {}\n{}csrt-track {}, OpenCV {}",
                                 info_.configText.empty() ? "the plug-in's own" : info_.configText, info_.pluginPath,
                                 info_.engine, guardLine(info_.guard), CSRT_VERSION, cv::getVersionString());
  data["targets"] = Json::array();
  for (const std::string& target : names_) data["targets"].push_back(toJson_(target, targets_[target]));
  data["stills"] = Json::array();
  for (const Still& still : stills_)
    data["stills"].push_back(
        {{"frame", still.frame}, {"time_s", still.time_s}, {"note", still.note}, {"jpeg", still.jpeg}});

  file_.write(htmlPage(kReportPage, data));
}

}  // namespace host
