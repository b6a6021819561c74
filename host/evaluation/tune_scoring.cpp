#include "evaluation/tune_scoring.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <set>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "evaluation/evaluation_run.h"
#include "evaluation/results.h"

namespace host {
namespace {

long lengthOf(const TruthTarget& target) {
  return target.marks.back().frame - target.marks[static_cast<std::size_t>(target.firstVisibleMark())].frame;
}

void keep(const Sequence& from, const TruthTarget& target, std::vector<Sequence>& to) {
  if (to.empty() || to.back().name != from.name) {
    to.push_back(from);
    to.back().targets.clear();
  }
  to.back().targets.push_back(target);
}

std::size_t countOf(const std::vector<Sequence>& sequences) {
  std::size_t count = 0;
  for (const Sequence& s : sequences) count += s.targets.size();
  return count;
}

/// Every second target from the one with most marks down, as numbers through all sequences: halves of like weight,
/// where numbers or names would leave the long ones to chance.
std::set<std::size_t> everySecondByMarks(const std::vector<Sequence>& sequences) {
  std::vector<std::pair<std::ptrdiff_t, std::size_t>> order;  // marks less than none, so that most come first
  for (const Sequence& sequence : sequences) {
    for (const TruthTarget& target : sequence.targets) {
      const auto absent =
          std::count_if(target.marks.begin(), target.marks.end(), [](const TruthMark& m) { return m.absent; });
      order.emplace_back(absent - static_cast<std::ptrdiff_t>(target.marks.size()), order.size());
    }
  }
  std::sort(order.begin(), order.end());
  std::set<std::size_t> chosen;
  for (std::size_t i = 0; i < order.size() && order.size() > 1; i += 2) chosen.insert(order[i].second);
  return chosen;
}

}  // namespace

void checkGoal(const TuneGoal& goal) {
  if (goal.name != "success" && goal.name != "on-target" && goal.name != "both") {
    throw HostError(ExitCode::Usage, "--goal '" + goal.name + "' is not one of success, on-target, both");
  }
  if (!(goal.maxCost >= 0)) throw HostError(ExitCode::Usage, "--max-cost is negative");
}

double scoreFor(const TuneGoal& goal, double onTarget, double successAuc, double cpu_ms) {
  const double worth = goal.name == "on-target" ? onTarget
                       : goal.name == "both"    ? (onTarget + successAuc) / 2
                                                : successAuc;
  if (goal.maxCost <= 0 || goal.defaultCpu_ms <= 0) return worth;
  return worth - std::max(0.0, cpu_ms / goal.defaultCpu_ms - goal.maxCost);
}

TuneSplit splitTargets(const std::vector<Sequence>& sequences, const std::vector<std::string>& heldBackNames) {
  const std::set<std::string> names(heldBackNames.begin(), heldBackNames.end());
  std::set<std::string> unknown = names;
  const std::set<std::size_t> chosen = everySecondByMarks(sequences);
  TuneSplit split;
  std::size_t i = 0;
  for (const Sequence& sequence : sequences) {
    for (const TruthTarget& target : sequence.targets) {
      unknown.erase(target.name);
      const bool held = names.empty() ? chosen.count(i) > 0 : names.count(target.name) > 0;
      keep(sequence, target, held ? split.heldBack : split.training);
      ++i;
    }
  }
  if (!unknown.empty()) throw HostError(ExitCode::Usage, "--held-back names no target '" + *unknown.begin() + "'");
  if (split.training.empty()) throw HostError(ExitCode::Usage, "--held-back leaves no target to search on");
  return split;
}

RungPart partFor(const std::vector<Sequence>& training, const Rung& rung) {
  const std::size_t count = countOf(training);
  const auto wanted = static_cast<std::size_t>(std::ceil(rung.targetShare * static_cast<double>(count) - 1e-9));
  std::set<std::size_t> chosen;
  for (std::size_t i = 0; i < wanted; ++i) chosen.insert(i * count / wanted);
  RungPart part;
  long longest = 0;
  std::size_t i = 0;
  for (const Sequence& sequence : training) {
    for (const TruthTarget& target : sequence.targets) {
      longest = std::max(longest, lengthOf(target));
      if (chosen.count(i++) > 0) keep(sequence, target, part.sequences);
    }
  }
  if (rung.framesShare < 1) part.maxFrames = std::max(1L, std::lround(rung.framesShare * static_cast<double>(longest)));
  return part;
}

std::vector<TrialScore> scoreConfigs(PluginLibrary& library, const RungPart& part, const TuneGoal& goal, int threads,
                                     const std::vector<nlohmann::json>& configs) {
  std::vector<std::vector<TargetResult>> results(configs.size());
  for (const Sequence& sequence : part.sequences) {
    std::vector<FollowJob> jobs;
    for (const TruthTarget& target : sequence.targets) {
      for (const nlohmann::json& config : configs) {
        jobs.push_back({target, part.maxFrames,
                        [&library, text = config.dump()] { return makePluginFollower(library, text, true); }});
      }
    }
    FollowOptions options;
    options.threads = threads;
    options.pace = Pace::Video;
    std::vector<FollowResult> followed = followAll(sequence.source, jobs, options);
    if (interruptSignal() != 0) return {};
    for (std::size_t i = 0; i < followed.size(); ++i) {
      results[i % configs.size()].push_back({sequence.name, "", kPluginTracker, true, std::move(followed[i].samples)});
    }
  }
  std::vector<TrialScore> scores;
  for (const std::vector<TargetResult>& ofConfig : results) {
    std::vector<const TargetResult*> pointers;
    for (const TargetResult& result : ofConfig) pointers.push_back(&result);
    const Figures f = figuresOf(pointers);
    TrialScore score{0, f.metrics.onTarget, f.metrics.successAuc, f.timing.cpuMedian_ms};
    score.score = scoreFor(goal, score.onTarget, score.successAuc, score.cpu_ms);
    scores.push_back(score);
  }
  return scores;
}

}  // namespace host
