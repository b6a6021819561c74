// guard_comparison sequences: is any sequence worse off with the guard? Success AUC of every target and start, without
// and with it.
#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/text_output.h"
#include "options.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kAllowed = 0.02;  // success AUC

/// One target without and with a guard.
struct Pair {
  std::string engine, preset, guard, target, start;
  long marks = 0;
  double off = 0.0, guarded = 0.0;
  double difference() const { return guarded - off; }
};

double aucOf(const Walk& walk) {
  return host::metricsOf(walk.sums).successAuc;
}

const Walk* unguarded(const std::vector<Walk>& walks, const Walk& walk) {
  const auto found = std::find_if(walks.begin(), walks.end(), [&walk](const Walk& w) {
    return w.guard == "off" && w.target == walk.target && w.start == walk.start && w.engine == walk.engine &&
           w.preset == walk.preset;
  });
  return found == walks.end() ? nullptr : &*found;
}

std::vector<Pair> pairsOf(const std::vector<Walk>& walks) {
  std::vector<Pair> pairs;
  for (const Walk& walk : walks) {
    const Walk* off = walk.guard == "off" ? nullptr : unguarded(walks, walk);
    if (off == nullptr || walk.sums.present == 0) continue;
    pairs.push_back({walk.engine, walk.preset, walk.guard, walk.target->name, std::to_string(walk.start),
                     walk.sums.present, aucOf(*off), aucOf(walk)});
  }
  return pairs;
}

/// One line for each target: the mean over its starts.
std::vector<Pair> meansOf(const std::vector<Pair>& pairs) {
  std::vector<Pair> means;
  std::vector<int> counts;
  for (const Pair& pair : pairs) {
    auto mean = std::find_if(means.begin(), means.end(), [&pair](const Pair& m) {
      return m.target == pair.target && m.engine == pair.engine && m.preset == pair.preset && m.guard == pair.guard;
    });
    if (mean == means.end()) {
      means.push_back(pair);
      means.back().start = "mean";
      counts.push_back(1);
      continue;
    }
    mean->marks += pair.marks;
    mean->off += pair.off;
    mean->guarded += pair.guarded;
    ++counts[static_cast<std::size_t>(mean - means.begin())];
  }
  for (std::size_t i = 0; i < means.size(); ++i) {
    means[i].off /= counts[i];
    means[i].guarded /= counts[i];
  }
  return means;
}

void print(const std::vector<Pair>& pairs) {
  std::printf(
      "| engine, base, guard | target | start | marks | AUC off | guarded | difference |\n"
      "|---|---|---|---:|---:|---:|---:|\n");
  for (const Pair& p : pairs) {
    std::printf("| %s, %s, %s | %s | %s | %ld | %.3f | %.3f | %+.3f%s |\n", p.engine.c_str(),
                presetWord(p.preset).c_str(), p.guard.c_str(), p.target.c_str(), p.start.c_str(), p.marks, p.off,
                p.guarded, p.difference(), p.difference() < -kAllowed ? " worse" : "");
  }
}

void printWorse(const char* what, const std::vector<Pair>& pairs) {
  std::vector<Pair> worse;
  for (const Pair& p : pairs) {
    if (p.difference() < -kAllowed) worse.push_back(p);
  }
  std::printf("%s: %zu of %zu are worse by more than %.2f\n", what, worse.size(), pairs.size(), kAllowed);
}

Json jsonOf(const std::vector<Pair>& pairs) {
  Json all = Json::array();
  for (const Pair& p : pairs) {
    all.push_back({{"engine", p.engine},
                   {"preset", presetWord(p.preset)},
                   {"guard", p.guard},
                   {"target", p.target},
                   {"start", p.start},
                   {"marks", p.marks},
                   {"off", p.off},
                   {"guarded", p.guarded}});
  }
  return {{"sequences", all}};
}

}  // namespace

void compareSequences(const GuardOptions& options, AnswerCache& cache) {
  std::optional<host::WholeText> json;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  const Footage clip(options.clip, options.footage);
  const auto targets = targetsOf(options, clip);
  const std::vector<Engine> engines = enginesOf(options);
  std::vector<Walk> walks = walksOf(options, engines, clip, targets);
  std::optional<Footage> second;
  std::vector<host::TruthTarget> others;
  if (!options.second.empty()) {
    second.emplace(options.second, FootageOptions());
    for (const auto& target : host::readTruth(options.secondTruth, host::TruthOptions(), "second")) {
      others.push_back(second->fitted(target));
    }
    for (const Walk& walk : walksOf(options, engines, *second, others)) walks.push_back(walk);
  }
  followAll(walks, engines, options, cache, {});
  std::vector<Pair> pairs = pairsOf(walks);
  std::vector<Pair> means = meansOf(pairs);
  const auto worstFirst = [](const Pair& a, const Pair& b) { return a.difference() < b.difference(); };
  std::stable_sort(pairs.begin(), pairs.end(), worstFirst);
  std::stable_sort(means.begin(), means.end(), worstFirst);
  print(pairs);
  std::printf("\n");
  print(means);
  std::printf("\n");
  printWorse("every start", pairs);
  printWorse("mean of the starts", means);
  if (json) json->write(jsonOf(pairs).dump(1));
}

}  // namespace bench
