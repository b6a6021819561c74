#include "commands/run_options.h"

#include <CLI/CLI.hpp>
#include <cstdio>

namespace host {

void addConfigOptions(CLI::App& command, ConfigOptions& config, const std::string& beneath) {
  command
      .add_option("--preset", config.preset,
                  "A configuration that comes with the program; see 'config preset'" +
                      (beneath.empty() ? "" : "; goes over " + beneath))
      ->type_name("NAME");
  command.add_option("--config", config.file, "Configuration file (JSON), over the preset")->type_name("FILE");
  command.add_option("--set", config.sets, "One configuration value, over preset and file; may be repeated")
      ->type_name("GROUP.KEY=VALUE")
      ->take_all()
      ->allow_extra_args(false);
}

void addGuardOptions(CLI::App& command, GuardOptions& guard) {
  command.add_option("--guard", guard.which, kGuardHelp)->type_name("WHICH")->capture_default_str();
  command.add_option("--guard-model", guard.model, kGuardModelHelp)->type_name("FILE");
}

GuardChoice chosenGuard(const GuardOptions& guard, bool quiet) {
  GuardChoice choice = guardChoiceOf(guard);
  if (!choice.note.empty() && !quiet) std::fprintf(stderr, "csrt-track: %s\n", choice.note.c_str());
  return choice;
}

namespace {

CLI::Option* paceOption(CLI::App& command, std::string& pace) {
  return command
      .add_option(
          "--pace", pace,
          "video: as fast as possible, the plug-in's clock follows the frames' own times, so that answers repeat "
          "exactly; fast: the same with the machine's clock; source: at the frames' rate")
      ->type_name("PACE")
      ->check(CLI::IsMember({"fast", "source", "video"}))
      ->capture_default_str();
}

}  // namespace

void addPaceOption(CLI::App& command, std::string& pace) {
  paceOption(command, pace);
}

void addPaceAndClockOptions(CLI::App& command, std::string& pace) {
  CLI::Option* const paceItself = paceOption(command, pace);
  command
      .add_option_function<std::string>(
          "--clock", [&pace](const std::string& clock) { pace = clock == "machine" ? "fast" : "video"; },
          "What the plug-in's rules in seconds go by: simulated, as --pace video, or machine, as --pace fast")
      ->type_name("WHICH")
      ->check(CLI::IsMember({"simulated", "machine"}))
      ->excludes(paceItself);
}

void addThreadsOption(CLI::App& command, int& threads, const std::string& defaultName) {
  CLI::Option* const option =
      command.add_option("--threads", threads, "Threads that work on the targets; times then disturb one another")
          ->type_name("N")
          ->check(CLI::Range(1, 256))
          ->capture_default_str();
  if (!defaultName.empty()) option->default_str(defaultName);
}

}  // namespace host
