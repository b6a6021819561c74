#include "commands/plugin_choice.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <system_error>

#include "base/host_error.h"
#include "plugin/plugin_library.h"

namespace host {

void addPluginOptions(CLI::App& command, PluginChoice& choice) {
  command.add_option("--plugin", choice.path, "The plug-in library; default: beside this program")->type_name("PATH");
  command
      .add_option("--engine", choice.engine,
                  std::string("What follows the target inside the plug-in: opencv, its own tracker, or fast, the same "
                              "boxes in less time; default: ") +
                      kDefaultEngine)
      ->type_name("ENGINE");
}

std::string pathOf(const PluginChoice& choice) {
  const std::string& engine = choice.engine;
  if (!engine.empty() && engine != kOpenCvEngine && engine != kFastEngine) {
    throw HostError(ExitCode::Usage, "--engine '" + engine + "' is neither opencv nor fast");
  }
  if (!choice.path.empty()) {
    const std::string held = engine.empty() ? "" : engineOfFile(choice.path);
    if (held != engine) {
      throw HostError(ExitCode::Usage, "--engine " + engine + " and --plugin '" + choice.path +
                                           "' contradict one another: " +
                                           (held == kUnknownEngine ? "the file does not say which engine it has"
                                                                   : "the file has the engine " + held));
    }
    return choice.path;
  }
  if (!engine.empty()) return defaultPluginPath(engine);
  std::error_code ignored;
  const std::string usual = defaultPluginPath(kDefaultEngine);
  return std::filesystem::exists(usual, ignored) ? usual : defaultPluginPath(kOpenCvEngine);
}

}  // namespace host
