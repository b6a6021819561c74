// csrt-track: a reference host for the tracking plug-in.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <opencv2/core/utils/logger.hpp>
#include <string>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/masked_address.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/plain_refusal.h"
#include "config/config_check.h"
#include "plugin/log_capture.h"

namespace {

/// What most commands have; each says its own.
std::string footer() {
  return "'csrt-track COMMAND --help' tells a command's options. Results go to standard output, complaints to standard "
         "error.\n\n" +
         host::helpFooter({"doctor", "track street.mp4 --box 412,230,64,48 --video out.mp4 --report out.html",
                           "track street.mp4 --box walker=412,230,64,48 --records -"},
                          {{1, "findings: something differs, is worse or is not as expected"},
                           {3, "the source cannot be opened or has no frame"},
                           {4, "the plug-in cannot be loaded"},
                           {5, "tracking did not start; with several targets, of at least one"},
                           {6, "an output could not be written to its end; files end with the last whole record"},
                           {130, host::kInterrupted}});
}

int fail(const std::string& sentence, host::ExitCode code) {
  std::fprintf(stderr, "csrt-track: %s\n", host::withPasswordsMasked(sentence).c_str());
  return static_cast<int>(code);
}

/// The libraries' own complaints would come on top of our one sentence.
void silenceLibraries() {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", 0);
}

/// A terminal breaks long lines where it likes.
class HelpFormat : public CLI::Formatter {
 public:
  std::string make_option_desc(const CLI::Option* option) const override {
    constexpr std::size_t kDescriptionWidth = 70;  // behind 30 columns for the option itself
    return host::wrapped(option->get_description(), kDescriptionWidth);
  }
};

/// What stands in standard output's buffer may not fit on the disk, and nobody would know.
int withOutput(int status) {
  errno = 0;
  std::cout.flush();
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0 && std::cout) return status;
  if (status == static_cast<int>(host::ExitCode::Output)) return status;  // said already
  if (host::interruptSignal() != 0) return status;                        // a lost connection took its terminal along
  // An earlier write may have failed, and its reason is gone.
  const std::string reason = errno != 0 ? std::string(": ") + std::strerror(errno) : "; is the disk full?";
  return fail("cannot write to standard output" + reason, host::ExitCode::Output);
}

/// A word that is no command, in a sentence.
std::string noCommand(const CLI::App& app, const std::string& word) {
  std::vector<std::string> known;
  for (const CLI::App* command : app.get_subcommands(nullptr)) known.push_back(command->get_name());
  const std::string nearest = host::nearestName(word, known);
  return "there is no command '" + word + "'" + (nearest.empty() ? "" : "; did you mean '" + nearest + "'?");
}

int usageError(CLI::App& app, const CLI::ParseError& error) {
  std::string help = "csrt-track";
  std::string sentence = error.get_exit_code() == 0 ? "" : host::plainRefusal(error.what());
  for (const CLI::App* command = &app; command != nullptr;) {
    const std::vector<CLI::App*> chosen = command->get_subcommands();
    const std::vector<std::string> unknown = command->remaining();
    const bool noneChosen = chosen.empty() && !command->get_subcommands(nullptr).empty();
    if (noneChosen && !unknown.empty()) sentence = noCommand(*command, unknown.front());
    command = chosen.empty() ? nullptr : chosen.front();
    if (command != nullptr) help += " " + command->get_name();
  }
  if (sentence.empty()) return withOutput(app.exit(error));  // --help, --version
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
  app.formatter(std::make_shared<HelpFormat>());
  app.footer(footer());
  host::addTrackCommand(app, status);
  host::addEvaluateCommand(app, status);
  host::addCompareCommand(app, status);
  host::addMergeCommand(app, status);
  host::addTuneCommand(app, status);
  host::addSimulateCommand(app, status);
  host::addServeCommand(app, status);
  host::addStatusCommand(app, status);
  host::addReplayCommand(app, status);
  host::addConfigCommand(app, status);
  host::addSchemaCommand(app, status);
  host::addDoctorCommand(app, status);
  host::addGridCommand(app, status);
  host::addDrawSceneCommand(app, status);
  try {
    app.parse(argc, argv);
    return withOutput(status);
  } catch (const CLI::ParseError& error) {
    return usageError(app, error);
  } catch (const host::HostError& error) {
    return fail(error.what(), error.code());
  } catch (const std::exception& error) {
    return fail(std::string("unexpected: ") + error.what(), host::ExitCode::Usage);
  }
}
