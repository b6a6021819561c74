// Configurations that come with the program, one file each in presets/.
#pragma once

#include <string>
#include <vector>

namespace host {

/// Their names, sorted.
std::vector<std::string> presetNames();

/// The JSON text of one. @throws HostError (Usage) naming it and those there are
std::string presetText(const std::string& name);

}  // namespace host
