#include "run/control_steering.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <sstream>

#include "picture/box_proposal.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kForms =
    "expected 'box X,Y,W,H [frame=N]', 'point X,Y [frame=N]', 'status' or 'stop', in pixels or percent";

Json refusal(const std::string& why) {
  return {{"ok", false}, {"error", why}};
}

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Json boxJson(const BBox& box) {
  return {{"x", box.x}, {"y", box.y}, {"w", box.width}, {"h", box.height}};
}

bool tryReadFrame(const std::string& word, std::optional<long>& frame) {
  const std::string head = "frame=";
  if (word.compare(0, head.size(), head) != 0) return false;
  long number = 0;
  const char* const end = word.data() + word.size();
  const auto [at, failed] = std::from_chars(word.data() + head.size(), end, number);
  if (failed != std::errc() || at != end || number < 0) return false;
  frame = number;
  return true;
}

}  // namespace

bool tryReadCommand(const std::string& line, ControlCommand& command, std::string& fault) {
  std::istringstream words(line);
  std::string verb;
  std::string place;
  std::string frame;
  std::string more;
  words >> verb >> place >> frame >> more;
  bool good = more.empty();
  command = {};
  if (verb == "status" || verb == "stop") {
    command.kind = verb == "stop" ? ControlCommand::Kind::Stop : ControlCommand::Kind::Status;
    good = good && place.empty();
  } else if (verb == "box") {
    command.kind = ControlCommand::Kind::Box;
    good = good && tryReadBox(place, command.box);
  } else if (verb == "point") {
    command.kind = ControlCommand::Kind::Point;
    good = good && tryReadPoint(place, command.point);
  } else {
    good = false;
  }
  good = good && (frame.empty() || tryReadFrame(frame, command.frame));
  if (!good) fault = "'" + line.substr(0, 80) + "' is no command; " + kForms;
  return good;
}

ControlSteering::ControlSteering(const std::string& place, KeptFrames kept, CatchUpRule catchUp, RunSteering* beneath)
    : channel_(place), kept_(std::move(kept)), catchUp_(catchUp), beneath_(beneath), begin_(now()) {}

std::optional<BBox> ControlSteering::firstBox(const cv::Mat& frame) {
  return beneath_ != nullptr ? beneath_->firstBox(frame) : std::nullopt;
}

Steering ControlSteering::after(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  Steering wish;
  if (beneath_ != nullptr) wish = beneath_->after(frame, records);
  if (!frame.noSignal) {
    records_ = records;
    size_ = frame.bgr.size();
    ++frames_;
    rate_.add(now());
    if (frame.live) {
      dropped_ += frame.live->dropped;
      capturedAt_ = frame.live->capturedAt;
    }
  }
  for (ControlLine& line : channel_.take()) waiting_.push_back(std::move(line));
  while (!waiting_.empty() && !wish.stop && !wish.restart) {
    const ControlLine line = std::move(waiting_.front());
    waiting_.pop_front();
    if (line.text.find_first_not_of(" \t\r") == std::string::npos) continue;
    ControlCommand command;
    std::string fault;
    if (!tryReadCommand(line.text, command, fault)) {
      line.answer(refusal(fault).dump());
    } else if (command.kind == ControlCommand::Kind::Status) {
      line.answer(status_(frame).dump());
    } else if (command.kind == ControlCommand::Kind::Stop) {
      line.answer(Json{{"ok", true}, {"command", "stop"}, {"frame", frame.index}}.dump());
      wish.stop = true;
    } else if (!tryStart_(command, line, frame, wish)) {
      continue;
    }
  }
  return wish;
}

/// False when the command was refused, and answered.
bool ControlSteering::tryStart_(const ControlCommand& command, const ControlLine& line, const SourceFrame& frame,
                                Steering& wish) {
  const long index = command.frame.value_or(frame.index);
  SourceFrame on = frame;
  if (index != frame.index || frame.bgr.empty()) {
    const std::optional<SourceFrame> found = kept_.find ? kept_.find(index) : std::nullopt;
    if (!found) {
      const std::string kept = kept_.range ? "; kept are " + std::to_string(kept_.range().first) + " to " +
                                                 std::to_string(kept_.range().second)
                                           : "";
      line.answer(refusal("frame " + std::to_string(index) + " is not kept" + kept).dump());
      return false;
    }
    on = *found;
    // The newest one in hand and those between: when one takes long, only some of them.
    std::vector<SourceFrame> later = kept_.after ? kept_.after(index) : std::vector<SourceFrame>{};
    later.erase(std::remove_if(later.begin(), later.end(), [&](const SourceFrame& f) { return f.index > frame.index; }),
                later.end());
    const double frameS = records_.empty() ? 0.02 : records_.front().update_ms / 1000.0;
    for (const std::size_t place : catchUp_(later.size(), frameS)) wish.catchUp.push_back(later[place]);
  }
  if (command.kind == ControlCommand::Kind::Box) {
    wish.restart = boxIn(command.box, on.bgr.size());
  } else {
    const cv::Rect box = proposeBox(on.bgr, pointIn(command.point, on.bgr.size())).box;
    wish.restart = BBox{box.x, box.y, box.width, box.height};
  }
  caughtUp_ = wish.catchUp.size();
  wish.on = std::move(on);
  starting_ = line;
  return true;
}

void ControlSteering::restarted(const CallRecord& record) {
  if (beneath_ != nullptr) beneath_->restarted(record);
  if (!starting_) return;
  const cv::Rect given = record.givenBox.value_or(cv::Rect());
  Json answer = {{"ok", record.started},      {"command", "box"},
                 {"frame", record.frame},     {"box", boxJson({given.x, given.y, given.width, given.height})},
                 {"started", record.started}, {"caught_up", caughtUp_}};
  if (!record.started) answer["error"] = record.reason.empty() ? "the plug-in refused the box" : record.reason;
  starting_->answer(answer.dump());
  starting_.reset();
}

ControlSteering::Json ControlSteering::status_(const SourceFrame& frame) {
  Json answer = {{"ok", true},
                 {"command", "status"},
                 {"frame", frame.index},
                 {"time_s", frame.time_s},
                 {"width", size_.width},
                 {"height", size_.height},
                 {"no_signal", frame.noSignal},
                 {"running_s", now() - begin_},
                 {"frames", frames_},
                 {"rate_fps", rate_.at(now())},
                 {"dropped", dropped_}};
  if (capturedAt_) answer["age_ms"] = std::max(0.0, (now() - *capturedAt_) * 1000.0);
  if (kept_.range) answer["frames_kept"] = {kept_.range().first, kept_.range().second};
  answer["targets"] = Json::array();
  for (const CallRecord& record : records_) {
    Json target = {{"target", record.target}, {"state", name(record.state)}};
    if (record.box) {
      target["box"] = boxJson({record.box->x, record.box->y, record.box->width, record.box->height});
    }
    if (record.ageMs) target["age_ms"] = *record.ageMs;
    answer["targets"].push_back(std::move(target));
  }
  return answer;
}

}  // namespace host
