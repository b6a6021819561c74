// The scenarios that come inside the program.
#pragma once

#include <string>
#include <vector>

namespace host::sim {

/// A scenario that comes with the program.
struct ShippedScenario {
  std::string name;  ///< Without an ending; unique.
  const char* text;  ///< Its JSON.
};

/// Sorted by name.
const std::vector<ShippedScenario>& shippedScenarios();

/// nullptr when there is none of that name.
const ShippedScenario* findShippedScenario(const std::string& name);

}  // namespace host::sim
