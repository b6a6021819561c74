#include "intervals.h"

#include <algorithm>

#include "base/statistics.h"
#include "evaluation/seeded_random.h"

namespace bench {
namespace {

constexpr int kResamples = 2000;  // as `csrt-track compare`
constexpr std::uint64_t kSeed = 1;

using Draw = std::vector<std::size_t>;

std::vector<Draw> drawsOf(std::size_t targets) {
  host::SeededRandom random(kSeed);
  std::vector<Draw> draws(kResamples, Draw(targets));
  for (Draw& draw : draws) {
    for (std::size_t& i : draw) i = static_cast<std::size_t>(random.below(targets));
  }
  return draws;
}

Figures drawn(const Group& group, const Draw& draw) {
  Figures mean{};
  for (const auto& start : group.walks) {
    std::vector<const Walk*> walks;
    for (const std::size_t i : draw) walks.push_back(start[i]);
    const Figures figures = figuresOf(walks);
    for (std::size_t f = 0; f < kFigureCount; ++f) mean[f] += figures[f] / static_cast<double>(group.walks.size());
  }
  return mean;
}

Intervals intervalsOf(const std::vector<Figures>& samples) {
  Intervals intervals;
  for (std::size_t f = 0; f < kFigureCount; ++f) {
    std::vector<double> values;
    for (const Figures& sample : samples) values.push_back(sample[f]);
    intervals[f] = {host::quantile(values, 0.025), host::quantile(values, 0.975)};
  }
  return intervals;
}

}  // namespace

const char* keyOf(Figure figure) {
  static const char* const keys[] = {"on_target", "held", "success_auc", "seen_elsewhere", "long_wrong_runs"};
  return keys[figure];
}

std::vector<Group> groupsOf(const std::vector<Walk>& walks) {
  std::vector<Group> groups;
  for (const Walk& walk : walks) {
    auto group = std::find_if(groups.begin(), groups.end(), [&walk](const Group& g) {
      return g.engine == walk.engine && g.preset == walk.preset && g.guard == walk.guard;
    });
    if (group == groups.end()) {
      groups.push_back({walk.engine, walk.preset, walk.guard, {}, {}});
      group = std::prev(groups.end());
    }
    if (group->starts.empty() || group->starts.back() != walk.start) {
      group->starts.push_back(walk.start);
      group->walks.emplace_back();
    }
    group->walks.back().push_back(&walk);
  }
  return groups;
}

Figures figuresOf(const std::vector<const Walk*>& walks) {
  host::MetricSums sums;
  double longRuns = 0.0;
  for (const Walk* walk : walks) {
    sums += walk->sums;
    longRuns += walk->longestWrong > kLongRun ? 1.0 : 0.0;
  }
  const host::Metrics m = host::metricsOf(sums);
  const auto n = static_cast<double>(std::max<std::size_t>(1, walks.size()));
  return {m.onTarget, static_cast<double>(sums.heldAtEnd) / n, m.successAuc, m.seenElsewhere, longRuns / n};
}

Figures meanOf(const Group& group) {
  Draw everyTarget(group.targets());
  for (std::size_t i = 0; i < everyTarget.size(); ++i) everyTarget[i] = i;
  return drawn(group, everyTarget);
}

Intervals intervalsOf(const Group& group) {
  std::vector<Figures> samples;
  for (const Draw& draw : drawsOf(group.targets())) samples.push_back(drawn(group, draw));
  return intervalsOf(samples);
}

Intervals differenceIntervals(const Group& a, const Group& b) {
  std::vector<Figures> samples;
  for (const Draw& draw : drawsOf(a.targets())) {
    Figures difference = drawn(b, draw);
    const Figures from = drawn(a, draw);
    for (std::size_t f = 0; f < kFigureCount; ++f) difference[f] -= from[f];
    samples.push_back(difference);
  }
  return intervalsOf(samples);
}

}  // namespace bench
