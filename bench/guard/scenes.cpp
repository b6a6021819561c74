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
namespace {

using Json = nlohmann::ordered_json;

/// How often the guard started the tracker over.
class Restarts : public host::sim::SimulationObserver {
 public:
  using SimulationObserver::SimulationObserver;
  long count() const { return count_; }

 private:
  void seen(const host::sim::SimulatedFrame& frame) override {
    if (frame.record.guard && frame.record.guard->verdict.restart) ++count_;
  }
  long count_ = 0;
};

/// Runs one scene and prints its line. @return the line as JSON
Json runScene(const std::string& scene, host::PluginLibrary& library, const std::string& guard,
              const host::GuardChoice& choice) {
  const host::sim::Scenario scenario = host::sim::loadScenario(scene);
  host::sim::SimulatedCamera camera(scenario);
  host::sim::SimulationTally tally(camera);
  Restarts restarts(camera);
  host::sim::simulate(camera, library, {host::Pace::Video, choice}, {&tally, &restarts});
  const host::sim::SimulationTotals totals = tally.totals();
  const host::sim::Honesty& h = totals.honesty;
  std::printf("| %s | %s | %s | %ld | %.2f %% | %ld | %.2f %% | %ld |\n", scene.c_str(), library.engine().c_str(),
              guard.c_str(), h.frames, 100.0 * h.rightShare(), h.claims, 100.0 * h.wrongClaimShare(), restarts.count());
  std::fflush(stdout);
  return {{"scene", scene},
          {"engine", library.engine()},
          {"guard", guard},
          {"frames", h.frames},
          {"state_right", h.rightShare()},
          {"claims", h.claims},
          {"wrong_claims", h.wrongClaims},
          {"starts_over", restarts.count()}};
}

}  // namespace

void compareScenes(const GuardOptions& options) {
  std::optional<host::WholeText> json;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  Json all = Json::array();
  std::printf(
      "| scene | engine | guard | frames | state right | boxes called seen | of them elsewhere | starts over |\n"
      "|---|---|---|---:|---:|---:|---:|---:|\n");
  for (const Engine& engine : enginesOf(options)) {
    host::PluginLibrary library(engine.path);
    for (const std::string& scene : options.scenarios) {
      for (const std::string& guard : options.guards)
        all.push_back(runScene(scene, library, guard, options.choices.at(guard)));
    }
  }
  if (json) json->write(Json{{"scenes", all}}.dump(1));
}

}  // namespace bench
