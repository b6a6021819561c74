// csrt-track doctor: is everything there that tracking needs?
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/host_error.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/plugin_choice.h"
#include "plugin/doctor_checks.h"
#include "run/engine_check.h"

namespace host {
namespace {

using Level = DoctorFinding::Level;

struct DoctorOptions {
  PluginChoice plugin;
  std::string output = ".";
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

int examine(const DoctorOptions& options) {
  const std::string plugin = pathOf(options.plugin);
  const bool pluginBad = print(checkPlugin(plugin));
  const bool enginesDiffer = !pluginBad && print({checkEngines(plugin)});
  const bool openCvBad = print(checkOpenCv());
  const bool outputBad = print(checkOutput(options.output));
  print({checkDisplay()});
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
  command.footer(helpFooter({"doctor", "doctor --plugin build/lib/libcsrt_tracking_plugin.so --output results"},
                            {{0, "all is well; notes do not change it"},
                             {1, "OpenCV does not fit, or the two engines give different answers"},
                             {4, "the plug-in cannot be used"},
                             {6, "output cannot be written"}}));
  command.callback([options, &status] { status = examine(*options); });
}

}  // namespace host
