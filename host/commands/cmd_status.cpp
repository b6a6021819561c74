// csrt-track status: how all cameras of a machine are, asked through their control sockets.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/host_error.h"
#include "base/json_text.h"
#include "commands/camera_table.h"
#include "commands/commands.h"
#include "commands/help_footer.h"

namespace host {
namespace {

struct StatusOptions {
  std::vector<std::string> cameras;
  std::string folder;
  double limitS = 2.5;  // a run without pictures looks at its socket once a second
  bool json = false;
};

/// The cameras that were asked for, each whether it has a socket or not.
std::vector<CameraPlace> chosen(const std::vector<CameraPlace>& found, const std::vector<std::string>& names) {
  if (names.empty()) return found;
  std::vector<CameraPlace> places;
  for (const std::string& name : names) {
    const auto same = std::find_if(found.begin(), found.end(), [&](const CameraPlace& p) { return p.name == name; });
    places.push_back(same != found.end() ? *same : CameraPlace{name, ""});
  }
  return places;
}

std::vector<CameraStatus> ask(const std::vector<CameraPlace>& places, double limitS) {
  std::vector<std::string> sockets;
  for (const CameraPlace& place : places) {
    if (!place.socket.empty()) sockets.push_back(place.socket);
  }
  const std::vector<ControlReply> replies = askControls(sockets, "status", limitS);
  std::vector<CameraStatus> cameras;
  std::size_t next = 0;
  for (const CameraPlace& place : places) {
    cameras.push_back(judgeCamera(place, place.socket.empty() ? ControlReply() : replies[next++]));
  }
  return cameras;
}

int showStatus(const StatusOptions& options) {
  const std::vector<CameraPlace> found = options.folder.empty() ? camerasOfService() : camerasIn(options.folder);
  const std::vector<CameraStatus> cameras = ask(chosen(found, options.cameras), options.limitS);
  if (options.json) std::printf("%s\n", jsonText(camerasJson(cameras), 2).c_str());
  if (cameras.empty()) {
    std::fprintf(stderr, "csrt-track: no camera runs here: there is no control socket in %s\n",
                 options.folder.empty() ? "/run/csrt-track-NAME and no /etc/csrt-track/NAME.env"
                                        : ("'" + options.folder + "'").c_str());
    return static_cast<int>(ExitCode::Findings);
  }
  if (!options.json) std::printf("%s\n", cameraTable(cameras).c_str());
  const bool fine = std::all_of(cameras.begin(), cameras.end(), [](const CameraStatus& c) { return c.fine; });
  return static_cast<int>(fine ? ExitCode::Done : ExitCode::Findings);
}

}  // namespace

void addStatusCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<StatusOptions>();
  CLI::App& command =
      *app.add_subcommand("status", "Show how the cameras of this machine are: state, age, rate, drops");
  command
      .add_option("camera", options->cameras,
                  "Show these cameras alone, also when they do not run; default: all that are found")
      ->type_name("NAME");
  command
      .add_option("--dir", options->folder,
                  "Folder of control sockets (NAME or NAME/control); default: those of the service csrt-track@NAME, "
                  "in /run/csrt-track-NAME")
      ->type_name("DIR");
  command.add_option("--limit", options->limitS, "Wait at most so many seconds for the answers of all cameras")
      ->type_name("S")
      ->check(CLI::Range(0.1, 60.0))
      ->capture_default_str();
  command.add_flag("--json", options->json, "Print one JSON object instead of the table");
  command.footer(helpFooter({"status", "status --json", "status front back --dir /run/user/1000/cameras"},
                            {{0, "every camera answers and gets pictures"},
                             {1, "a camera does not run, does not answer or has no signal; or there is none"}}));
  command.callback([options, &status] { status = showStatus(*options); });
}

}  // namespace host
