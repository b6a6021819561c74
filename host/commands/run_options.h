// Options that several commands have: each is declared here and nowhere else, so that it means the same in all of them.
#pragma once

#include <string>

#include "config/config_text.h"
#include "plugin/guard_choice.h"

namespace CLI {
class App;
}

namespace host {

inline constexpr const char* kDefaultPace = "video";

// Each adds its options to a command; the variables must outlive it and hold the defaults.

/// --preset, --config, --set. @param beneath  what lies under all three, such as "the scenario's own"; empty: nothing
void addConfigOptions(CLI::App& command, ConfigOptions& config, const std::string& beneath = "");

/// --guard and --guard-model, for chosenGuard().
void addGuardOptions(CLI::App& command, GuardOptions& guard);

/// guardChoiceOf(); what is known of the network's file is said on standard error unless `quiet`.
GuardChoice chosenGuard(const GuardOptions& guard, bool quiet);

/// --pace, for paceOf().
void addPaceOption(CLI::App& command, std::string& pace);

/// --pace, and --clock, which says the same for a simulated scene: simulated is --pace video, machine is --pace fast.
void addPaceAndClockOptions(CLI::App& command, std::string& pace);

/// --threads, 1 to 256. @param defaultName  shown in place of the default's number; empty: the number
void addThreadsOption(CLI::App& command, int& threads, const std::string& defaultName = "");

}  // namespace host
