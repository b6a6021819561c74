// csrt-track doctor: is everything there that tracking needs?
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "base/host_error.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/plugin_choice.h"
#include "live/module.h"
#include "plugin/doctor_checks.h"
#include "run/engine_check.h"

namespace host {
namespace {

using Level = DoctorFinding::Level;

struct DoctorOptions {
  PluginChoice plugin;
  std::string output = ".";
  bool live = false;
};

const char* word(Level level) {
  switch (level) {
    case Level::Ok:
      return "ok";
    case Level::Note:
      return "note";
    case Level::Problem:
      return "PROBLEM";
  }
  return "";
}

/// Prints what was found. @return true when one of them is a problem
bool print(const std::vector<DoctorFinding>& findings) {
  bool problem = false;
  for (const DoctorFinding& finding : findings) {
    std::printf("%-8s %-8s %s\n", word(finding.level), finding.subject.c_str(), finding.sentence.c_str());
    problem = problem || finding.level == Level::Problem;
  }
  return problem;
}

/// Whether modules for live sources are installed. Without them files still work.
std::vector<DoctorFinding> checkLiveFiles() {
  const std::size_t count = live::modulePaths().size();
  if (count == 0) return {{Level::Note, "live", "no live sources: the package csrt-track-live receives streams"}};
  const std::string modules = count == 1 ? "1 module receives" : std::to_string(count) + " modules receive";
  return {{Level::Ok, "live", modules + " live sources; doctor --live names the decoders"}};
}

/// Which modules for live sources there are, and the decoders that they would take. Looks for devices, as GStreamer
/// does when it looks for its plugins.
std::vector<DoctorFinding> checkLive(const std::string& folder) {
  // GStreamer writes down which plugins there are. A look around leaves nothing in the home folder: it goes where this
  // command tries out the output folder, and away again.
  const std::string list = folder + "/.csrt-track-doctor-plugins";
  setenv("GST_REGISTRY", list.c_str(), 0);
  std::vector<DoctorFinding> findings;
  for (const live::FoundModule& found : live::modules()) {
    if (found.module == nullptr) {
      findings.push_back({Level::Note, "live", found.path + " cannot be used: " + found.fault});
      continue;
    }
    std::string sentence = found.module->title();
    for (const std::string& decoder : found.module->decoders()) sentence += ", " + decoder;
    findings.push_back({Level::Ok, "live", sentence});
  }
  std::error_code ignored;
  std::filesystem::remove(list, ignored);
  return findings.empty() ? checkLiveFiles() : findings;
}

int examine(const DoctorOptions& options) {
  const std::string plugin = pathOf(options.plugin);
  const bool pluginBad = print(checkPlugin(plugin));
  const bool enginesDiffer = !pluginBad && print({checkEngines(plugin)});
  const bool openCvBad = print(checkOpenCv());
  const bool outputBad = print(checkOutput(options.output));
  print({checkNetworkGuard()});
  print({checkDisplay()});
  print(options.live ? checkLive(options.output) : checkLiveFiles());
  if (pluginBad) return static_cast<int>(ExitCode::Plugin);
  if (outputBad) return static_cast<int>(ExitCode::Output);
  return static_cast<int>(openCvBad || enginesDiffer ? ExitCode::Findings : ExitCode::Done);
}

}  // namespace

void addDoctorCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<DoctorOptions>();
  CLI::App& command = *app.add_subcommand(
      "doctor", "Check the plug-in and its engines, OpenCV, the GPU, codecs, output folder and display");
  addPluginOptions(command, options->plugin);
  command.add_option("--output", options->output, "Folder that output would go to")
      ->type_name("DIR")
      ->capture_default_str();
  command.add_flag("--live", options->live, "Load the modules for live sources and name the decoders they would take");
  command.footer(helpFooter({"doctor", "doctor --plugin build/lib/libcsrt_tracking_plugin.so --output results"},
                            {{0, "all is well; notes do not change it"},
                             {1, "OpenCV does not fit, or the two engines give different answers"},
                             {4, "the plug-in cannot be used"},
                             {6, "output cannot be written"}}));
  command.callback([options, &status] { status = examine(*options); });
}

}  // namespace host
