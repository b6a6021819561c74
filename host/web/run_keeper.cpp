#include "web/run_keeper.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>
#include <filesystem>
#include <utility>

#include "base/host_error.h"
#include "run/saved_run.h"
#include "run/track_run.h"

namespace host::web {
namespace {

namespace fs = std::filesystem;

/// A folder of that moment that is not there yet.
std::string newFolder(const std::string& parent) {
  const std::string name =
      (fs::path(parent) / fmt::format("run-{:%Y%m%d-%H%M%S}", fmt::localtime(std::time(nullptr)))).string();
  std::string path = name;
  for (int number = 2; fs::exists(path); ++number) path = name + "-" + std::to_string(number);
  return path;
}

/// The record without what only a live run knows: a replay says the rest again.
CallRecord repeatable(CallRecord record) {
  record.ageMs.reset();
  record.dropped.reset();
  record.gimbal.reset();
  record.anglesStaleMs.reset();
  record.ground.reset();
  record.log.clear();
  return record;
}

std::size_t bytesOf(const cv::Mat& picture) {
  return picture.total() * picture.elemSize();
}

}  // namespace

RunKeeper::RunKeeper(std::string folder, Pace pace) : folder_(std::move(folder)), pace_(pace) {}

RunKeeper::~RunKeeper() {
  finish("the program has ended");
  if (thread_.joinable()) thread_.join();
}

bool RunKeeper::tryArm() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (folder_.empty() || saving_ || writing_) return false;
  armed_ = true;
  said_.clear();
  return true;
}

void RunKeeper::finish(const std::string& why) {
  const std::lock_guard<std::mutex> lock(mutex_);
  armed_ = false;
  if (saving_) end_Locked_(why);
}

void RunKeeper::begin(const RunInfo& info) {
  const std::lock_guard<std::mutex> lock(mutex_);
  info_ = info;
}

void RunKeeper::configured(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  info_.configText = text;
  if (saving_) end_Locked_("the configuration was changed");
}

void RunKeeper::judged(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!armed_ && !saving_) return;
  for (const CallRecord& record : records) {
    if (record.noSignal) continue;
    if (saving_ && record.target == target_ && record.isInit) end_Locked_("the target was started over");
    if (armed_ && record.isInit && record.started && !writing_) start_Locked_(record);
    if (saving_ && record.target == target_) add_Locked_(frame, record);
  }
}

void RunKeeper::start_Locked_(const CallRecord& record) {
  if (thread_.joinable()) thread_.join();  // it has ended already
  armed_ = false;
  saving_ = writing_ = true;
  target_ = record.target;
  frames_ = 0;
  into_ = newFolder(folder_);
  thread_ = std::thread([this, folder = into_, info = info_, start = record] { write_(folder, info, start); });
}

void RunKeeper::end_Locked_(const std::string& why) {
  saving_ = false;
  said_ = why;
  changed_.notify_all();
}

void RunKeeper::add_Locked_(const SourceFrame& frame, const CallRecord& record) {
  if (bytes_ + bytesOf(frame.bgr) > kMostBytes) return end_Locked_("the disk is too slow for more frames");
  bytes_ += bytesOf(frame.bgr);
  waiting_.push_back({frame, repeatable(record)});
  if (++frames_ >= kMostFrames) end_Locked_("more frames are not saved of one run");
  changed_.notify_all();
}

bool RunKeeper::next_(std::optional<Step>& step) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !waiting_.empty() || !saving_; });
  if (waiting_.empty()) return false;
  step = std::move(waiting_.front());
  waiting_.pop_front();
  bytes_ -= bytesOf(step->frame.bgr);
  return true;
}

void RunKeeper::write_(const std::string& folder, const RunInfo& info, const CallRecord& start) {
  std::string fault;
  try {
    TrackRun run;
    run.sourceName = info.source;
    run.configText = info.configText;
    run.pace = pace_;
    run.guard = info.guard;
    const cv::Rect box = start.givenBox.value_or(cv::Rect());
    run.targets.push_back({start.target, BBox{box.x, box.y, box.width, box.height}});
    RunSaver saver(folder, run);
    saver.begin(info);
    for (std::optional<Step> step; next_(step);) saver.frame(step->frame, {step->record});
    saver.end();
  } catch (const std::exception& e) {
    fault = e.what();
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!fault.empty()) said_ = fault;
  saving_ = writing_ = false;
  waiting_.clear();
  bytes_ = 0;
}

nlohmann::ordered_json RunKeeper::json() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  const bool busy = saving_ || writing_;
  nlohmann::ordered_json json = {{"state", folder_.empty() ? "off"
                                           : busy          ? "saving"
                                           : armed_        ? "armed"
                                                           : "ready"},
                                 {"frames", frames_}};
  if (!into_.empty()) json["folder"] = into_;
  if (!said_.empty()) json["said"] = said_;
  return json;
}

}  // namespace host::web
