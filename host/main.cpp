// csrt-track: a reference host for the tracking plug-in.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <opencv2/core/utils/logger.hpp>
#include <string>
#include <vector>

#include "commands.h"
#include "host_error.h"
#include "interrupt.h"
#include "log_capture.h"

namespace {

constexpr const char* kExitCodes =
    "Exit status: 0 done; 1 findings (check, compare); 2 wrong usage; 3 the source cannot be opened or has no frame;\n"
    "4 the plug-in cannot be loaded; 5 tracking did not start; 6 an output could not be written to its end;\n"
    "130 or 143 interrupted (everything written so far is complete).";

int fail(const std::string& sentence, host::ExitCode code) {
  std::fprintf(stderr, "csrt-track: %s\n", sentence.c_str());
  return static_cast<int>(code);
}

/// The libraries' own complaints would come on top of our one sentence.
void silenceLibraries() {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", 0);
}

int usageError(CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
  std::string help = "csrt-track";
  std::string sentence = error.what();
  for (const CLI::App* command = &app; command != nullptr;) {
    const std::vector<CLI::App*> chosen = command->get_subcommands();
    const std::vector<std::string> unknown = command->remaining();
    const bool noneChosen = chosen.empty() && !command->get_subcommands(nullptr).empty();
    if (noneChosen && !unknown.empty()) sentence = "there is no command '" + unknown.front() + "'";
    command = chosen.empty() ? nullptr : chosen.front();
    if (command != nullptr) help += " " + command->get_name();
  }
  return fail(sentence + "; see '" + help + " --help'", host::ExitCode::Usage);
}

}  // namespace

int main(int argc, char** argv) {
  host::installLogCapture();
  host::catchInterrupts();
  silenceLibraries();
  int status = 0;
  CLI::App app("Follows targets through a video with the tracking plug-in.", "csrt-track");
  app.set_version_flag("--version", CSRT_VERSION);
  app.require_subcommand(1);
  app.footer(kExitCodes);
  host::addTrackCommand(app, status);
  host::addSimulateCommand(app, status);
  host::addConfigCommand(app, status);
  host::addDoctorCommand(app, status);
  host::addDrawSceneCommand(app, status);
  host::addReplayCommand(app, status);
  host::addSchemaCommand(app, status);
  host::addEvaluateCommand(app, status);
  host::addCompareCommand(app, status);
  host::addTuneCommand(app, status);
  host::addMergeCommand(app, status);
  try {
    app.parse(argc, argv);
    return status;
  } catch (const CLI::ParseError& error) {
    return usageError(app, error);
  } catch (const host::HostError& error) {
    return fail(error.what(), error.code());
  } catch (const std::exception& error) {
    return fail(std::string("unexpected: ") + error.what(), host::ExitCode::Usage);
  }
}
