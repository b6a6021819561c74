#include "run/saved_run.h"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>

#include "base/host_error.h"
#include "base/json_error.h"
#include "base/json_text.h"
#include "base/pending_file.h"
#include "input/picture_file.h"
#include "run/live_facts.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFormat = "csrt-track.run";
constexpr int kVersion = 1;

constexpr const char* kOption = "--save-run";

/// Makes the folder and takes it: of two processes that want the same one, only one can make the folder inside it.
/// @param made  whether the folder itself was not there before
std::string takenFolder(const std::string& folder, bool& made) {
  const auto refuse = [&folder](const std::string& what) {
    throw HostError(ExitCode::Usage, std::string(kOption) + " '" + folder + "' " + what);
  };
  std::error_code failed;
  made = !fs::exists(folder, failed);
  fs::create_directories(folder, failed);
  if (failed) refuse("cannot be made: " + failed.message());
  if (fs::exists(fs::path(folder) / "run.json", failed)) refuse("holds a run already; name another folder");
  const bool empty = fs::is_empty(folder, failed);
  if (failed) refuse("cannot be used: " + failed.message());
  if (!empty) refuse("is not empty; name another folder");
  if (!fs::create_directory(fs::path(folder) / "frames", failed)) {
    refuse(failed ? "cannot be used: " + failed.message() : "is being written by another process; name another folder");
  }
  return folder;
}

std::string frameFile(long index) {
  return fmt::format("frames/{:08d}.png", index);
}

nlohmann::ordered_json toJson(const ocula::OculaPicture::BaseMetadata& metadata) {
  nlohmann::ordered_json json = nlohmann::ordered_json::object();
  for (const auto& [key, value] : metadata) {
    std::visit([&json, &key = key](const auto& held) { json[key] = held; }, value);
  }
  return json;
}

[[noreturn]] void damaged(const std::string& path, const std::string& what) {
  throw HostError(ExitCode::Source, "'" + path + "' is not a run that --save-run wrote, or is damaged: " + what);
}

std::string readText(const fs::path& path) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) damaged(path.string(), "it cannot be read: " + reasonOfFailure(path.string(), errno));
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

nlohmann::json parse(const std::string& text, const std::string& path) {
  if (tooDeepAt(text) != std::string::npos) damaged(path, "it is nested too deeply");
  nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
  if (json.is_discarded()) damaged(path, "it is not JSON");
  return json;
}

std::vector<nlohmann::json> readLines(const fs::path& path) {
  std::vector<nlohmann::json> all;
  std::istringstream text(readText(path));
  for (std::string line; std::getline(text, line);) all.push_back(parse(line, path.string()));
  return all;
}

/// The frames of a saved run, at the places they had in their source.
class SavedFrames : public FrameSource {
 public:
  SavedFrames(std::string folder, std::vector<nlohmann::json> frames, double fps)
      : folder_(std::move(folder)), frames_(std::move(frames)), fps_(fps) {}

  bool read(SourceFrame& frame) override {
    if (next_ >= frames_.size()) return false;
    const nlohmann::json& place = frames_[next_++];
    frame.index = place.at("frame");
    frame.time_s = place.at("time_s");
    const std::string path = (fs::path(folder_) / frameFile(frame.index)).string();
    frame.bgr = readPicture(path);
    frame.file = place.value("file", "");
    frame.note = place.value("source_note", "");
    return true;
  }
  double fps() const override { return fps_; }
  long expected() const override { return static_cast<long>(frames_.size()); }

 private:
  std::string folder_;
  std::vector<nlohmann::json> frames_;
  double fps_;
  std::size_t next_ = 0;
};

nlohmann::ordered_json toJson(const GuardChoice& guard) {
  nlohmann::ordered_json json = {{"which", name(guard.kind)}};
  if (!guard.sha256.empty()) json["model_sha256"] = guard.sha256;
  return json;
}

bool isSha256(const std::string& text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// What `about` says of the guard.
SavedGuard guardOf(const nlohmann::json& about, const std::string& path) {
  SavedGuard guard;
  if (!about.contains("guard")) return guard;
  const nlohmann::json& saved = about.at("guard");
  guard.which = saved.at("which");
  const bool network = guard.which == name(GuardKind::Network);
  if (!network && guard.which != name(GuardKind::Colour) && guard.which != name(GuardKind::Off)) {
    throw HostError(ExitCode::Source,
                    "'" + path + "' names a guard that this csrt-track does not have: '" + guard.which + "'");
  }
  if (!network) return guard;
  guard.modelSha256 = saved.at("model_sha256");
  if (!isSha256(guard.modelSha256)) damaged(path, "the sum of the guard's network is none");
  return guard;
}

nlohmann::ordered_json aboutRun(const RunInfo& info, const TrackRun& run) {
  nlohmann::ordered_json about = {{"format", kFormat},          {"version", kVersion},
                                  {"source", info.source},      {"fps", info.fps},
                                  {"config", info.configText},  {"pace", name(run.pace)},
                                  {"plugin", info.pluginPath},  {"engine", info.engine},
                                  {"csrt_track", CSRT_VERSION}, {"opencv", cv::getVersionString()}};
  if (run.guard.kind != GuardKind::Off) about["guard"] = toJson(run.guard);
  about["targets"] = nlohmann::ordered_json::array();
  for (const TargetOption& target : run.targets) {
    about["targets"].push_back(
        {{"name", target.name}, {"box", {target.box.x, target.box.y, target.box.width, target.box.height}}});
  }
  return about;
}

std::string metadataText(const std::vector<nlohmann::json>& frames) {
  std::string text;
  for (const nlohmann::json& frame : frames) {
    nlohmann::json row = frame.value("metadata", nlohmann::json::object());
    if (row.empty()) continue;
    row["frame"] = frame.at("frame");
    text += jsonText(row) + "\n";
  }
  return text;
}

}  // namespace

RunSaver::RunSaver(const std::string& folder, const TrackRun& run) : folder_(takenFolder(folder, made_)), run_(run) {
  records_.emplace((fs::path(folder_) / "records.jsonl").string(), kOption);
  frames_.emplace((fs::path(folder_) / "frames.jsonl").string(), kOption);
}

RunSaver::~RunSaver() {
  if (hasResult_) return;
  records_.reset();
  frames_.reset();
  std::error_code ignored;
  for (const char* file : {"records.jsonl", "frames.jsonl", "run.json"}) fs::remove(fs::path(folder_) / file, ignored);
  fs::remove_all(fs::path(folder_) / "frames", ignored);
  if (made_) fs::remove(folder_, ignored);
}

void RunSaver::begin(const RunInfo& info) {
  WholeText((fs::path(folder_) / "run.json").string(), kOption).write(jsonText(aboutRun(info, run_), 2));
}

void RunSaver::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  hasResult_ = hasResult_ || anyFollowed(records);
  const std::string path = (fs::path(folder_) / frameFile(frame.index)).string();
  if (!cv::imwrite(path, frame.bgr))
    throw HostError(ExitCode::Output, "'" + path + "' could not be written; is the disk full?");
  nlohmann::ordered_json place = {{"frame", frame.index}, {"time_s", frame.time_s}};
  if (!frame.file.empty()) place["file"] = frame.file;
  if (!frame.note.empty()) place["source_note"] = frame.note;
  auto metadata = frame.metadata;
  if (frame.live) {
    for (auto& [key, value] : metadataOf(*frame.live)) metadata[key] = value;
  }
  if (!metadata.empty()) place["metadata"] = toJson(metadata);
  frames_->writeLine(jsonText(place));
  for (const CallRecord& record : records) records_->writeLine(jsonText(host::toJson(record)));
}

void RunSaver::restarted(const CallRecord& /*record*/) {
  throw HostError(ExitCode::Usage, "a run in which a target was started over by hand cannot be saved for a replay");
}

SavedRun readSavedRun(const std::string& folder) {
  const fs::path root(folder);
  const std::string aboutPath = (root / "run.json").string();
  SavedRun saved;
  saved.about = parse(readText(aboutPath), aboutPath);
  if (!saved.about.is_object() || saved.about.value("format", "") != kFormat)
    damaged(aboutPath, "the format is another");
  if (saved.about.value("version", 0) != kVersion) damaged(aboutPath, "it comes from another version of csrt-track");
  try {
    saved.run.sourceName = folder;
    saved.run.configText = saved.about.at("config");
    saved.run.pace = paceOf(saved.about.at("pace").get<std::string>());
    saved.guard = guardOf(saved.about, aboutPath);
    for (const nlohmann::json& target : saved.about.at("targets")) {
      const std::vector<int> box = target.at("box");
      saved.run.targets.push_back({target.at("name"), BBox{box.at(0), box.at(1), box.at(2), box.at(3)}});
    }
    const std::vector<nlohmann::json> frames = readLines(root / "frames.jsonl");
    const std::string metadata = metadataText(frames);
    if (!metadata.empty()) saved.run.metadata = MetadataTable::parse(metadata, (root / "frames.jsonl").string());
    saved.records = readLines(root / "records.jsonl");
    saved.frames = std::make_unique<SavedFrames>(folder, frames, saved.about.at("fps").get<double>());
  } catch (const nlohmann::json::exception& e) {
    damaged(aboutPath, plainError(e));
  } catch (const std::out_of_range&) {
    damaged(aboutPath, "a box has fewer than four numbers");
  }
  return saved;
}

std::string firstDifference(const nlohmann::json& saved, const nlohmann::json& now) {
  nlohmann::json a = saved;
  nlohmann::json b = now;
  a.erase("update_ms");
  b.erase("update_ms");
  a.erase("engine");
  b.erase("engine");
  const nlohmann::json changes = nlohmann::json::diff(a, b);
  if (changes.empty()) return {};
  const nlohmann::json::json_pointer place(changes.front().at("path").get<std::string>());
  const auto shown = [&place](const nlohmann::json& record) {
    return record.contains(place) ? jsonText(record.at(place)) : "nothing";
  };
  return fmt::format("{} was {}, is {}", place.to_string(), shown(a), shown(b));
}

}  // namespace host
