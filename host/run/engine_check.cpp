#include "run/engine_check.h"

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <system_error>
#include <vector>

#include "picture/street_scene.h"
#include "plugin/plugin_library.h"
#include "plugin/target_session.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Level = DoctorFinding::Level;

/// A record without what may differ: times, and which engine made it.
std::string lineOf(const CallRecord& record) {
  nlohmann::ordered_json json = toJson(record);
  json.erase("update_ms");
  json.erase("engine");
  return json.dump() + "\n";
}

/// One line per call. @throws what loading the plug-in throws
std::string answersOf(const std::string& path) {
  const StreetScene scene({640, 360}, kStreetSceneSeed);
  PluginLibrary library(path);
  TargetSession session(library.create(), "figure");
  session.keepPace(Pace::Video);
  const cv::Rect box = scene.truth(0);
  std::string lines;
  for (int i = 0; i < kEngineCheckFrames; ++i) {
    const auto picture = std::make_shared<ocula::OculaPicture>(scene.frame(i));
    const FramePlace place{i, i / 25.0};
    lines += lineOf(i == 0 ? session.init(picture, place, {box.x, box.y, box.width, box.height})
                           : session.update(picture, place));
  }
  return lines;
}

bool writeAll(int to, const std::string& text) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t n = write(to, text.data() + done, text.size() - done);
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

/// In a process of its own: two libraries that register one class cannot be loaded into one. Empty when it failed.
std::string answersApart(const std::string& path) {
  std::array<int, 2> channel{};
  if (pipe(channel.data()) != 0) return {};
  const pid_t child = fork();
  if (child < 0) return {};
  if (child == 0) {
    bool written = false;
    try {
      cv::setNumThreads(1);
      written = writeAll(channel[1], answersOf(path));
    } catch (const std::exception&) {
      written = false;  // the parent says so
    }
    _exit(written ? 0 : 1);
  }
  close(channel[1]);
  std::string answers;
  std::array<char, 4096> part{};
  for (ssize_t n = 0; (n = read(channel[0], part.data(), part.size())) > 0;)
    answers.append(part.data(), static_cast<std::size_t>(n));
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? answers : std::string();
}

/// The call, from 0, in which the texts first differ.
long firstDifferentLine(const std::string& a, const std::string& b) {
  const auto end = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
  return std::count(a.begin(), end, '\n');
}

}  // namespace

DoctorFinding checkEngines(const std::string& path) {
  const std::string engine = engineOfFile(path);
  if (engine == kUnknownEngine) {
    return {Level::Note, "engine", fmt::format("'{}' does not say which engine it has; nothing is compared", path)};
  }
  const char* otherEngine = engine == kFastEngine ? kOpenCvEngine : kFastEngine;
  const std::string other = (fs::path(path).parent_path() / pluginFileOf(otherEngine)).string();
  std::error_code ignored;
  if (!fs::is_regular_file(other, ignored)) {
    return {
        Level::Note, "engine",
        fmt::format("{}; '{}' with the engine {} is not there, so nothing is compared", engine, other, otherEngine)};
  }
  const std::string answers = answersApart(path);
  const std::string others = answersApart(other);
  if (answers.empty() || others.empty()) {
    return {Level::Problem, "engine",
            fmt::format("'{}' did not follow the drawn scene; install the package csrt-tracking-plugin anew",
                        answers.empty() ? path : other)};
  }
  if (answers == others) {
    return {Level::Ok, "engine",
            fmt::format("{}; opencv and fast give the same {} answers with OpenCV {}", engine, kEngineCheckFrames,
                        cv::getVersionString())};
  }
  return {Level::Problem, "engine",
          fmt::format("opencv and fast differ from frame {} on with OpenCV {}; use --engine opencv",
                      firstDifferentLine(answers, others), cv::getVersionString())};
}

}  // namespace host
