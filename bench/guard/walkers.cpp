// guard_comparison walkers: every chosen walker, followed with every engine, preset, guard and start.
#include <algorithm>
#include <cstdio>
#include <optional>

#include "base/host_error.h"
#include "base/statistics.h"
#include "base/text_output.h"
#include "intervals.h"
#include "options.h"
#include "table_json.h"

namespace bench {
namespace {

/// Sums over the walks of one start that are no figures of the target.
struct Costs {
  int restarts = 0, restartsRight = 0;
  std::vector<double> seen_ms, lost_ms;
  double guard_ms = 0.0, tracker_ms = 0.0;

  void add(const Walk& walk) {
    restarts += walk.restarts;
    restartsRight += walk.restartsRight;
    seen_ms.insert(seen_ms.end(), walk.seen_ms.begin(), walk.seen_ms.end());
    lost_ms.insert(lost_ms.end(), walk.lost_ms.begin(), walk.lost_ms.end());
    guard_ms += walk.guard_ms;
    tracker_ms += walk.tracker_ms;
  }
};

void printHead() {
  std::printf(
      "| engine | base | guard | start | on target | held | success AUC | called seen, elsewhere | wrong runs > 30 | "
      "restarts (right) | guard ms, seen: median | p95 | lost: median | p95 | guard / tracker |\n"
      "|---|---|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
}

void printRow(const Group& group, const std::string& start, const Figures& f, const Costs& costs) {
  const auto n = static_cast<double>(group.targets());
  std::printf("| %s | %s | %s | %s | %.3f | %.3g of %zu | %.3f | %.3f | %.3g |", group.engine.c_str(),
              presetWord(group.preset).c_str(), group.guard.c_str(), start.c_str(), f[kOnTarget], f[kHeld] * n,
              group.targets(), f[kAuc], f[kElsewhere], f[kLongRuns] * n);
  if (costs.seen_ms.empty() && costs.lost_ms.empty()) {
    std::printf(" | | | | | |\n");
    return;
  }
  std::printf(" %d (%d) | %.2f | %.2f | %.2f | %.2f | %.2f |\n", costs.restarts, costs.restartsRight,
              host::quantile(costs.seen_ms, 0.5), host::quantile(costs.seen_ms, 0.95),
              host::quantile(costs.lost_ms, 0.5), host::quantile(costs.lost_ms, 0.95),
              costs.guard_ms / std::max(1e-9, costs.tracker_ms));
}

std::string number(double value, int digits, bool sign) {
  char text[32];
  if (sign) {
    std::snprintf(text, sizeof text, "%+.*f", digits, value);
  } else {
    std::snprintf(text, sizeof text, "%.*f", digits, value);
  }
  return text;
}

/// One line of figures with their intervals. @param targets  what shares of them are multiplied by
void printIntervals(const std::string& what, const Figures& f, const Intervals& in, std::size_t targets, bool sign) {
  std::printf("| %s |", what.c_str());
  for (std::size_t i = 0; i < kFigureCount; ++i) {
    const bool counts = i == kHeld || i == kLongRuns;
    const double scale = counts ? static_cast<double>(targets) : 1.0;
    const int digits = counts ? 1 : 2;
    std::printf(" %s (%s to %s) |", number(scale * f[i], counts ? 1 : 3, sign).c_str(),
                number(scale * in[i].low, digits, sign).c_str(), number(scale * in[i].high, digits, sign).c_str());
  }
  std::printf("\n");
}

void printPerTarget(const Group& group) {
  for (std::size_t s = 0; s < group.starts.size(); ++s) {
    for (const Walk* walk : group.walks[s]) {
      std::printf("    %s %s %s %s+%d: on %ld of %ld held %ld wrong %d restarts %d (%d)\n", group.engine.c_str(),
                  presetWord(group.preset).c_str(), group.guard.c_str(), walk->target->name.c_str(), walk->start,
                  walk->sums.onTarget, walk->sums.present, walk->sums.heldAtEnd, walk->longestWrong, walk->restarts,
                  walk->restartsRight);
    }
  }
}

void printTable(const std::vector<Group>& groups, bool perTarget) {
  printHead();
  for (const Group& group : groups) {
    Costs all;
    for (std::size_t s = 0; s < group.starts.size(); ++s) {
      Costs costs;
      for (const Walk* walk : group.walks[s]) {
        costs.add(*walk);
        all.add(*walk);
      }
      printRow(group, std::to_string(group.starts[s]), figuresOf(group.walks[s]), costs);
    }
    printRow(group, "mean", meanOf(group), all);
  }
  if (!perTarget) return;
  for (const Group& group : groups) printPerTarget(group);
}

/// The group that differs from this one only in having no guard; null: none.
const Group* unguarded(const std::vector<Group>& groups, const Group& group) {
  const auto found = std::find_if(groups.begin(), groups.end(), [&group](const Group& g) {
    return g.engine == group.engine && g.preset == group.preset && g.guard == "off";
  });
  return found == groups.end() || group.guard == "off" ? nullptr : &*found;
}

void printAllIntervals(const std::vector<Group>& groups) {
  std::printf(
      "\nMean of the starts, 95 %% interval when the %zu targets are drawn anew:\n\n"
      "| | on target | held | success AUC | called seen, elsewhere | wrong runs > 30 "
      "|\n|---|---:|---:|---:|---:|---:|\n",
      groups.front().targets());
  for (const Group& group : groups) {
    const std::string name = group.engine + ", " + presetWord(group.preset) + ", " + group.guard;
    const Figures mean = meanOf(group);
    printIntervals(name, mean, intervalsOf(group), group.targets(), false);
    const Group* off = unguarded(groups, group);
    if (off == nullptr) continue;
    Figures difference = mean;
    const Figures from = meanOf(*off);
    for (std::size_t f = 0; f < kFigureCount; ++f) difference[f] -= from[f];
    printIntervals(name + " less off", difference, differenceIntervals(*off, group), group.targets(), true);
  }
}

/// Who was followed wrongly for long, and at which starts.
void printLongRuns(const std::vector<Group>& groups) {
  std::printf("\nWrong runs of more than %d frames, by target (start: frames):\n", kLongRun);
  for (const Group& group : groups) {
    std::printf("%s, %s, %s:", group.engine.c_str(), presetWord(group.preset).c_str(), group.guard.c_str());
    std::size_t targets = 0;
    for (std::size_t t = 0; t < group.targets(); ++t) {
      std::string runs;
      for (const auto& start : group.walks) {
        if (start[t]->longestWrong <= kLongRun) continue;
        runs += (runs.empty() ? "" : ", ") + std::to_string(start[t]->start) + ": " +
                std::to_string(start[t]->longestWrong);
      }
      if (runs.empty()) continue;
      ++targets;
      std::printf(" %s (%s)", group.walks.front()[t]->target->name.c_str(), runs.c_str());
    }
    std::printf("%s; %zu of %zu targets at one start or more\n", targets == 0 ? " none" : "", targets, group.targets());
  }
}

void printEngineEquality(const std::vector<Group>& groups) {
  long answers = 0, walks = 0, different = 0;
  for (const Group& group : groups) {
    const auto first = std::find_if(groups.begin(), groups.end(), [&group](const Group& g) {
      return g.preset == group.preset && g.guard == group.guard;
    });
    if (&*first == &group) continue;
    for (std::size_t s = 0; s < group.walks.size(); ++s) {
      for (std::size_t t = 0; t < group.targets(); ++t, ++walks) {
        different += !sameAnswers(*group.walks[s][t], *first->walks[s][t]);
        answers += static_cast<long>(group.walks[s][t]->answers.size());
      }
    }
  }
  if (walks == 0) return;
  std::printf("\nThe engines side by side: %ld walks, %ld answers; walks with any difference: %ld\n", walks, answers,
              different);
}

}  // namespace

void compareWalkers(const GuardOptions& options, AnswerCache& cache) {
  std::optional<host::WholeText> json;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  const Footage footage(options.clip, options.footage);
  const auto targets = targetsOf(options, footage);
  if (targets.empty()) throw host::HostError(host::ExitCode::Usage, "no target is left to follow");
  GuardOptions everyone = options;
  everyone.half = "all";
  everyone.only.clear();
  const auto everybody = options.trace ? targetsOf(everyone, footage) : std::vector<host::TruthTarget>();
  const std::vector<Engine> engines = enginesOf(options);
  std::vector<Walk> walks = walksOf(options, engines, footage, targets);
  followAll(walks, engines, options, cache, everybody);
  const std::vector<Group> groups = groupsOf(walks);
  printTable(groups, options.perTarget);
  printAllIntervals(groups);
  printLongRuns(groups);
  printEngineEquality(groups);
  if (json) json->write(walkersJson(options, groups).dump(1));
}

}  // namespace bench
