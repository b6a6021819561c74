// csrt-track config: the published schema, the values in force, presets, and what the plug-in makes of a file.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>

#include "base/host_error.h"
#include "base/text_file.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "config/config_check.h"
#include "config/presets.h"
#include "config_keys.h"

namespace host {
namespace {

std::string placed(const std::string& file, const ConfigFinding& finding) {
  return file + ":" + std::to_string(finding.place.line) + ":" + std::to_string(finding.place.column) + ": ";
}

/// One line per finding, in the form that editors jump to: FILE:LINE:COLUMN: level: text.
int check(const std::string& file) {
  bool warned = false;
  for (const ConfigFinding& finding : checkConfig(readTextFile(file))) {
    if (finding.level == ConfigFinding::Level::Unusable)
      throw HostError(ExitCode::Usage, placed(file, finding) + finding.text);
    const bool warning = finding.level == ConfigFinding::Level::Warning;
    warned = warned || warning;
    std::printf("%s%s: %s\n", placed(file, finding).c_str(), warning ? "warning" : "note", finding.text.c_str());
  }
  return static_cast<int>(warned ? ExitCode::Findings : ExitCode::Done);
}

void addCheck(CLI::App& config, int& status) {
  const auto file = std::make_shared<std::string>();
  CLI::App& command = *config.add_subcommand("check", "Say what the plug-in would make of a file, typos included");
  command.add_option("file", *file, "The configuration")->required()->type_name("FILE");
  command.footer(helpFooter({"config check mine.json"},
                            {{0, "taken as it is written"}, {1, "warnings"}, {2, "not usable at all"}}));
  command.callback([file, &status] { status = check(*file); });
}

void addPreset(CLI::App& config) {
  const auto name = std::make_shared<std::string>();
  CLI::App& command =
      *config.add_subcommand("preset", "Print a configuration that comes with the program; without a name: list them");
  command.add_option("name", *name, "Which one")->type_name("NAME");
  command.footer(helpFooter({"config preset", "config preset robust > mine.json"}));
  command.callback([name] {
    if (!name->empty()) {
      std::fputs(presetText(*name).c_str(), stdout);
      return;
    }
    for (const std::string& preset : presetNames()) std::printf("%s\n", preset.c_str());
  });
}

}  // namespace

void addConfigCommand(CLI::App& app, int& status) {
  CLI::App& config = *app.add_subcommand("config", "Look up, print and check configurations of the plug-in");
  config.require_subcommand(1);
  config.footer(helpFooter({"config defaults > mine.json", "config check mine.json", "config preset robust"},
                           {{1, "check: warnings"}}));
  CLI::App& schema = *config.add_subcommand("schema", "Print the JSON Schema that the plug-in publishes");
  schema.callback([] { std::fputs(configSchemaText(), stdout); });
  CLI::App& defaults = *config.add_subcommand("defaults", "Print the values in force when nothing is configured");
  defaults.callback([] { std::printf("%s\n", defaultConfigText().c_str()); });
  addCheck(config, status);
  addPreset(config);
}

}  // namespace host
