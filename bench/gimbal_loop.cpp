// How well does a follower bring a target into the middle when the pictures are late? Budget of the predicting one, in
// every cell: overshoot at most 5 %, settled within 1.5 s plus the gimbal's own slewing time, a target of 8 degrees a
// second followed within 0.2 degrees (root mean square). Ends with 1 when a cell misses it.
//   gimbal_loop                 the table, for both followers
//   gimbal_loop --json FILE     and all of it as JSON, with curves, for docs/plot_gimbal.py; -: standard output
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "simulator/loop_trial.h"

namespace {

using host::sim::LoopTrialParams;
using host::sim::LoopTrialResult;
using host::sim::TrialFollower;
using host::sim::TrialTarget;
using Json = nlohmann::ordered_json;

constexpr double kOvershoot = 0.05;
constexpr double kSettle_s = 1.5;
constexpr double kRamp_deg = 0.2;
constexpr int kSeeds = 5;

struct Cell {
  double overshoot = 0.0;
  double settle_s = 0.0;  // beyond the slewing time
  double ramp_deg = 0.0;
  bool fits() const { return overshoot <= kOvershoot && settle_s <= kSettle_s && ramp_deg <= kRamp_deg; }
};

/// The worst of several seeds.
Cell measured(LoopTrialParams params, TrialFollower follower) {
  Cell cell;
  params.follower = follower;
  for (int seed = 1; seed <= kSeeds; ++seed) {
    params.seed = static_cast<std::uint64_t>(seed);
    params.target = TrialTarget::Step;
    const LoopTrialResult step = host::sim::runLoopTrial(params);
    cell.overshoot = std::max(cell.overshoot, step.overshoot);
    cell.settle_s = std::max(cell.settle_s, step.settled_s - step.slew_s);
    params.target = TrialTarget::Ramp;
    cell.ramp_deg = std::max(cell.ramp_deg, host::sim::runLoopTrial(params).ramp_rms_deg);
  }
  return cell;
}

Json curve(LoopTrialParams params, TrialFollower follower) {
  params.follower = follower;
  Json points = Json::array();
  for (const auto& moment : host::sim::runLoopTrial(params).moments) {
    if (moment.t_s > 6.0) break;
    points.push_back({moment.t_s, moment.gimbal_deg});
  }
  return points;
}

Json toJson(const Cell& cell) {
  return {{"overshoot", cell.overshoot}, {"settle_s", cell.settle_s}, {"ramp_rms_deg", cell.ramp_deg}};
}

}  // namespace

int main(int argc, char** argv) {
  std::string json;
  if (argc == 3 && std::strcmp(argv[1], "--json") == 0) json = argv[2];
  if (argc != 1 && json.empty()) {
    std::fprintf(stderr, "gimbal_loop [--json FILE]\n");
    return 2;
  }
  FILE* const text = json == "-" ? stderr : stdout;
  std::fprintf(
      text,
      "| video | rate limit | encoder noise | overshoot | settled | ramp | plain: overshoot | settled | ramp |\n");
  std::fprintf(text, "|---|---|---|---|---|---|---|---|---|\n");
  Json cells = Json::array();
  bool allFit = true;
  for (const double video_s : {0.05, 0.1, 0.2, 0.3}) {
    for (const double rate : {30.0, 60.0, 90.0}) {
      for (const double noise : {0.02, 0.1}) {
        LoopTrialParams params;
        params.video_s = video_s;
        params.axis.max_rate_dps = rate;
        params.encoder_noise_deg = noise;
        const Cell ours = measured(params, TrialFollower::Predicting);
        const Cell plain = measured(params, TrialFollower::Proportional);
        allFit = allFit && ours.fits();
        std::fprintf(text, "| %.0f ms | %.0f °/s | %.2f° | %.1f %% | %.2f s | %.2f° | %.0f %% | %.2f s | %.2f° |%s\n",
                     1000 * video_s, rate, noise, 100 * ours.overshoot, ours.settle_s, ours.ramp_deg,
                     100 * plain.overshoot, plain.settle_s, plain.ramp_deg, ours.fits() ? "" : " MISSED");
        Json cell = {{"video_s", video_s}, {"rate_dps", rate}, {"noise_deg", noise}};
        cell["predicting"] = toJson(ours);
        cell["proportional"] = toJson(plain);
        if (rate == 60.0 && noise == 0.1) {
          cell["curves"] = {{"predicting", curve(params, TrialFollower::Predicting)},
                            {"proportional", curve(params, TrialFollower::Proportional)}};
        }
        cells.push_back(cell);
      }
    }
  }
  if (!json.empty()) {
    FILE* const file = json == "-" ? stdout : std::fopen(json.c_str(), "w");
    if (file == nullptr) {
      std::fprintf(stderr, "gimbal_loop: cannot write '%s'\n", json.c_str());
      return 2;
    }
    std::fprintf(file, "%s\n", cells.dump().c_str());
    if (file != stdout) std::fclose(file);
  }
  return allFit ? 0 : 1;
}
