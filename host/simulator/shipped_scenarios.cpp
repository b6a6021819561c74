#include "simulator/shipped_scenarios.h"

#include "base/embedded.h"

namespace host::sim {
namespace {

std::vector<ShippedScenario> makeList() {
  std::vector<ShippedScenario> all;
  for (const EmbeddedText* one = kScenarios; one->name != nullptr; ++one) all.push_back({one->name, one->text});
  return all;
}

}  // namespace

const std::vector<ShippedScenario>& shippedScenarios() {
  static const std::vector<ShippedScenario> kAll = makeList();
  return kAll;
}

const ShippedScenario* findShippedScenario(const std::string& name) {
  for (const ShippedScenario& scenario : shippedScenarios()) {
    if (scenario.name == name) return &scenario;
  }
  return nullptr;
}

}  // namespace host::sim
