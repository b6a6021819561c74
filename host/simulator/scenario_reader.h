// From the text of a scenario file to a Scenario, with every mistake named.
#pragma once

#include <string>

#include "simulator/scenario.h"

namespace host::sim {

/// @param file  shown in complaints; its stem becomes the scenario's name
/// @throws HostError (Usage): one sentence with the place and what is wrong there
Scenario parseScenario(const std::string& text, const std::string& file);

/// A file, or a shipped scenario by its name. A picture's path counts from the file's folder.
/// @throws HostError (Usage)
Scenario loadScenario(const std::string& nameOrFile);

}  // namespace host::sim
