#include "commands/camera_table.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <system_error>

#include "base/host_error.h"
#include "base/json_text.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr const char* kUnitFolder = "csrt-track-";  // the unit's RuntimeDirectory begins so
constexpr const char* kSocketName = "control";

bool isSocket(const fs::path& path) {
  std::error_code failed;
  return fs::is_socket(path, failed);
}

bool startsWith(const std::string& text, const std::string& head) {
  return text.compare(0, head.size(), head) == 0;
}

std::string withoutHead(const std::string& text, const std::string& head) {
  return startsWith(text, head) && text.size() > head.size() ? text.substr(head.size()) : text;
}

/// Names in a folder, sorted; `failed` says why there are none.
std::vector<std::string> namesIn(const fs::path& folder, std::error_code& failed) {
  std::vector<std::string> names;
  fs::directory_iterator at(folder, failed);
  for (const fs::directory_iterator end; !failed && at != end; at.increment(failed)) {
    names.push_back(at->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<CameraPlace> sorted(const std::map<std::string, std::string>& sockets) {
  std::vector<CameraPlace> places;
  for (const auto& [name, socket] : sockets) places.push_back({name, socket});
  return places;
}

double numberOf(const Json& told, const char* key) {
  const auto found = told.find(key);
  return found != told.end() && found->is_number() ? found->get<double>() : -1.0;
}

/// "tracked", or how many are what.
std::string stateOf(const Json& targets) {
  std::vector<std::pair<std::string, int>> counts;
  for (const Json& target : targets) {
    const std::string state = target.is_object() && target.contains("state") && target["state"].is_string()
                                  ? target["state"]
                                  : Json("unknown");
    const auto same = std::find_if(counts.begin(), counts.end(), [&](const auto& c) { return c.first == state; });
    if (same == counts.end()) {
      counts.emplace_back(state, 1);
    } else {
      ++same->second;
    }
  }
  if (counts.empty()) return "waiting for a target";
  if (targets.size() == 1) return counts.front().first;
  std::string text;
  for (const auto& [state, count] : counts) text += (text.empty() ? "" : ", ") + fmt::format("{} {}", count, state);
  return text;
}

/// Shown on a terminal: a name must not move the cursor.
std::string printable(const std::string& text) {
  std::string shown;
  for (const char c : withBytesEscaped(text)) {
    const unsigned char byte = static_cast<unsigned char>(c);
    shown += byte < 0x20 || byte == 0x7F ? fmt::format("\\x{:02X}", byte) : std::string(1, c);
  }
  return shown;
}

std::string ageText(double ms) {
  if (ms < 0.0) return "-";
  return ms < 10000.0 ? fmt::format("{:.0f} ms", ms) : fmt::format("{:.0f} s", ms / 1000.0);
}

std::string wholeText(double value) {
  return value < 0.0 ? "-" : fmt::format("{:.0f}", value);
}

}  // namespace

std::vector<CameraPlace> camerasIn(const std::string& folder) {
  std::error_code failed;
  const std::vector<std::string> names = namesIn(folder, failed);
  if (failed) throw HostError(ExitCode::Usage, "--dir '" + folder + "' cannot be read: " + failed.message());
  std::map<std::string, std::string> sockets;
  for (const std::string& name : names) {
    const fs::path path = fs::path(folder) / name;
    if (isSocket(path)) {
      sockets[name] = path.string();
    } else if (isSocket(path / kSocketName)) {
      sockets[withoutHead(name, kUnitFolder)] = (path / kSocketName).string();
    }
  }
  return sorted(sockets);
}

std::vector<CameraPlace> camerasOfService(const std::string& root) {
  std::error_code failed;
  std::map<std::string, std::string> sockets;
  const std::string ending = ".env";
  for (const std::string& name : namesIn(root + "/etc/csrt-track", failed)) {
    const bool settings = name.size() > ending.size() && name.front() != '.' &&
                          name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
    if (settings) sockets[name.substr(0, name.size() - ending.size())] = "";
  }
  for (const std::string& name : namesIn(root + "/run", failed)) {
    const fs::path socket = fs::path(root + "/run") / name / kSocketName;
    if (startsWith(name, kUnitFolder) && isSocket(socket)) sockets[withoutHead(name, kUnitFolder)] = socket.string();
  }
  return sorted(sockets);
}

CameraStatus judgeCamera(const CameraPlace& place, const ControlReply& reply) {
  CameraStatus status;
  status.place = place;
  if (place.socket.empty()) {
    status.fault = "is not running: it has no control socket";
    return status;
  }
  if (reply.kind != ControlReply::Kind::Answered) {
    status.fault = (reply.kind == ControlReply::Kind::Stale ? "is not running: " : "does not answer: ") + reply.reason;
    return status;
  }
  Json told = tooDeepAt(reply.line) == std::string::npos ? Json::parse(reply.line, nullptr, false) : Json();
  const bool whole = told.is_object() && told.value("ok", Json(false)) == Json(true) && told.contains("targets") &&
                     told["targets"].is_array();
  if (!whole) {
    status.fault = "does not answer: what it says is no status of this program";
    return status;
  }
  status.running = true;
  status.fine = told.value("no_signal", Json(false)) != Json(true);
  status.state = status.fine ? stateOf(told["targets"]) : "no signal";
  status.told = std::move(told);
  return status;
}

std::string cameraTable(const std::vector<CameraStatus>& cameras) {
  std::size_t nameWidth = 6;
  std::size_t stateWidth = 9;
  for (const CameraStatus& camera : cameras) {
    nameWidth = std::max(nameWidth, printable(camera.place.name).size());
    stateWidth = std::max(stateWidth, printable(camera.state).size());
  }
  const auto line = [&](const std::string& name, const std::string& state, const std::string& age,
                        const std::string& rate, const std::string& dropped, const std::string& frame) {
    return fmt::format("{:<{}}  {:<{}}  {:>8}  {:>7}  {:>8}  {:>9}", name, nameWidth, state, stateWidth, age, rate,
                       dropped, frame);
  };
  std::string text = line("CAMERA", "STATE", "AGE", "RATE/S", "DROPPED", "FRAME");
  for (const CameraStatus& camera : cameras) {
    const std::string name = printable(camera.place.name);
    text += "\n";
    if (!camera.running) {
      text += fmt::format("{:<{}}  {}", name, nameWidth, printable(camera.fault));
      continue;
    }
    const double rate = numberOf(camera.told, "rate_fps");
    text += line(name, printable(camera.state), ageText(numberOf(camera.told, "age_ms")),
                 rate < 0.0 ? "-" : fmt::format("{:.1f}", rate), wholeText(numberOf(camera.told, "dropped")),
                 wholeText(numberOf(camera.told, "frame")));
  }
  return text;
}

Json camerasJson(const std::vector<CameraStatus>& cameras) {
  Json all = {{"schema", "csrt-track.status"}, {"version", 1}};
  all["fine"] = !cameras.empty() &&
                std::all_of(cameras.begin(), cameras.end(), [](const CameraStatus& camera) { return camera.fine; });
  all["cameras"] = Json::array();
  for (const CameraStatus& camera : cameras) {
    Json one = {{"camera", camera.place.name}, {"running", camera.running}, {"fine", camera.fine}};
    if (!camera.place.socket.empty()) one["socket"] = camera.place.socket;
    if (!camera.running) {
      one["fault"] = camera.fault;
    } else {
      one["state"] = camera.state;
      for (const char* key :
           {"age_ms", "rate_fps", "dropped", "frame", "frames", "running_s", "no_signal", "targets"}) {
        if (camera.told.contains(key)) one[key] = camera.told[key];
      }
    }
    all["cameras"].push_back(std::move(one));
  }
  return all;
}

}  // namespace host
