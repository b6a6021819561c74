// guard_comparison scenes: how often state and boxes are right in simulated scenes, with every engine and guard.
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/text_output.h"
#include "options.h"
#include "simulator/scenario_reader.h"
#include "simulator/simulation.h"
#include "simulator/simulation_outputs.h"

namespace bench {

void compareScenes(const GuardOptions& options) {
  std::optional<host::WholeText> json;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  std::printf(
      "| scene | engine | guard | frames | state right | boxes called seen | of them elsewhere | starts over |\n"
      "|---|---|---|---:|---:|---:|---:|---:|\n");
  const std::vector<Engine> engines = enginesOf(options);
  for (const std::string& name : options.scenarios) {
    const host::sim::Scenario scenario = host::sim::loadScenario(name);
    for (const Engine& engine : engines) {
      for (const std::string& guard : options.guards) {
        host::sim::SimulatedCamera camera(scenario);
        host::sim::SimulationTally tally(camera);
        host::sim::simulate(camera, *engine.library, {host::Pace::Video, host::guardChoiceOf(guard)}, {&tally});
        const host::sim::SimulationTotals totals = tally.totals();
        const host::sim::Honesty& h = totals.honesty;
        const auto found = totals.states.find(host::TrackState::Reacquired);
        const long over = found == totals.states.end() ? 0 : found->second;
        std::printf("| %s | %s | %s | %ld | %.2f %% | %ld | %.2f %% | %ld |\n", name.c_str(), engine.name.c_str(),
                    guard.c_str(), h.frames, 100.0 * h.rightShare(), h.claims, 100.0 * h.wrongClaimShare(), over);
        std::fflush(stdout);
        all.push_back({{"scene", name},
                       {"engine", engine.name},
                       {"guard", guard},
                       {"frames", h.frames},
                       {"state_right", h.rightShare()},
                       {"claims", h.claims},
                       {"wrong_claims", h.wrongClaims}});
      }
    }
  }
  if (json) json->write(nlohmann::ordered_json{{"scenes", all}}.dump(1));
}

}  // namespace bench
