#include "evaluation/comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "base/host_error.h"
#include "base/statistics.h"
#include "evaluation/seeded_random.h"

namespace host {
namespace {

/// A target's sums in both evaluations.
struct Pair {
  MetricSums a;
  MetricSums b;
  double cpuA_ms = 0.0;  ///< Median per update.
  double cpuB_ms = 0.0;
  std::size_t updates = 0;
};

/// A figure, and which way is better.
struct FigureKind {
  const char* name;
  bool moreIsBetter;
  double (*of)(const MetricSums&);
};

double heldShare(const MetricSums& s) {
  return s.targets > 0 ? static_cast<double>(s.heldAtEnd) / static_cast<double>(s.targets) : 0.0;
}

double falseShare(const MetricSums& s) {
  return s.absent > 0 ? static_cast<double>(s.falseBoxes) / static_cast<double>(s.absent) : 0.0;
}

double offShare(const MetricSums& s) {
  return s.watched_s > 0 ? s.offTotal_s / s.watched_s : 0.0;
}

const std::vector<FigureKind>& figureKinds() {
  static const std::vector<FigureKind> kinds = {
      {"success AUC", true, [](const MetricSums& s) { return metricsOf(s).successAuc; }},
      {"precision 20 px", true, [](const MetricSums& s) { return metricsOf(s).precision20; }},
      {"mean IoU", true, [](const MetricSums& s) { return metricsOf(s).meanIou; }},
      {"on target", true, [](const MetricSums& s) { return metricsOf(s).onTarget; }},
      {"held at end", true, heldShare},
      {"time off target", false, offShare},
      {"seen elsewhere", false, [](const MetricSums& s) { return metricsOf(s).seenElsewhere; }},
      {"false boxes", false, falseShare}};
  return kinds;
}

std::map<std::string, const TargetResult*> targetsOf(const EvaluationResult& result, const std::string& tracker) {
  std::map<std::string, const TargetResult*> targets;
  for (const TargetResult& t : result.targets) {
    if (t.tracker == tracker) targets[t.sequence + "/" + t.target] = &t;
  }
  return targets;
}

std::vector<Pair> pairsOf(const EvaluationResult& a, const EvaluationResult& b, const std::string& tracker,
                          Comparison& comparison) {
  const auto ofA = targetsOf(a, tracker);
  const auto ofB = targetsOf(b, tracker);
  std::vector<Pair> pairs;
  for (const auto& [name, target] : ofA) {
    const auto other = ofB.find(name);
    if (other == ofB.end()) {
      comparison.onlyA.push_back(name);
      continue;
    }
    pairs.push_back({sumsOf(target->samples), sumsOf(other->second->samples), quantile(target->samples.cpu_ms, 0.5),
                     quantile(other->second->samples.cpu_ms, 0.5), target->samples.cpu_ms.size()});
  }
  for (const auto& [name, target] : ofB) {
    if (ofA.count(name) == 0) comparison.onlyB.push_back(name);
  }
  comparison.targets = pairs.size();
  return pairs;
}

using Draw = std::vector<std::size_t>;

std::vector<Draw> drawsOf(std::size_t targets, const CompareSettings& settings) {
  SeededRandom random(settings.seed);
  std::vector<Draw> draws(static_cast<std::size_t>(settings.resamples), Draw(targets));
  for (Draw& draw : draws) {
    for (std::size_t& i : draw) i = static_cast<std::size_t>(random.below(targets));
  }
  return draws;
}

Draw everyTargetOnce(std::size_t targets) {
  Draw draw(targets);
  for (std::size_t i = 0; i < targets; ++i) draw[i] = i;
  return draw;
}

/// The two values of a figure over the drawn targets.
std::pair<double, double> valuesOf(const FigureKind& kind, const std::vector<Pair>& pairs, const Draw& draw) {
  MetricSums a;
  MetricSums b;
  for (const std::size_t i : draw) {
    a += pairs[i].a;
    b += pairs[i].b;
  }
  return {kind.of(a), kind.of(b)};
}

/// Mean of the targets' medians, weighted by their updates.
std::pair<double, double> timesOf(const std::vector<Pair>& pairs, const Draw& draw) {
  double a = 0;
  double b = 0;
  double updates = 0;
  for (const std::size_t i : draw) {
    const auto weight = static_cast<double>(pairs[i].updates);
    a += weight * pairs[i].cpuA_ms;
    b += weight * pairs[i].cpuB_ms;
    updates += weight;
  }
  return updates > 0 ? std::pair(a / updates, b / updates) : std::pair(0.0, 0.0);
}

void setInterval(const std::vector<double>& differences, Difference& d) {
  d.low = quantile(differences, 0.025);
  d.high = quantile(differences, 0.975);
}

double growth(const std::pair<double, double>& times) {
  return times.first > 0 ? times.second / times.first - 1 : 0.0;
}

Difference differenceOf(const FigureKind& kind, const std::vector<Pair>& pairs, const std::vector<Draw>& draws,
                        double tolerance) {
  Difference d;
  d.figure = kind.name;
  std::tie(d.a, d.b) = valuesOf(kind, pairs, everyTargetOnce(pairs.size()));
  d.difference = d.b - d.a;
  std::vector<double> differences;
  for (const Draw& draw : draws) {
    const auto [a, b] = valuesOf(kind, pairs, draw);
    differences.push_back(b - a);
  }
  setInterval(std::move(differences), d);
  // A value exactly at the tolerance is allowed, whatever the last binary digit says.
  d.regression = (kind.moreIsBetter ? -d.difference : d.difference) > tolerance + 1e-12;
  return d;
}

Difference timeDifference(const std::vector<Pair>& pairs, const std::vector<Draw>& draws, double tolerance) {
  Difference d;
  d.figure = "CPU ms per update";
  const auto times = timesOf(pairs, everyTargetOnce(pairs.size()));
  std::tie(d.a, d.b) = times;
  d.difference = growth(times);
  std::vector<double> differences;
  for (const Draw& draw : draws) differences.push_back(growth(timesOf(pairs, draw)));
  setInterval(std::move(differences), d);
  d.judged = tolerance > 0;
  d.regression = d.judged && d.difference > tolerance + 1e-12;
  return d;
}

std::string listOf(const char* what, const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text.empty() ? "" : std::string(what) + text + "\n";
}

}  // namespace

bool Comparison::regression() const {
  return std::any_of(differences.begin(), differences.end(), [](const Difference& d) { return d.regression; });
}

Comparison compareEvaluations(const EvaluationResult& a, const EvaluationResult& b, const CompareSettings& settings) {
  Comparison comparison;
  const std::vector<Pair> pairs = pairsOf(a, b, settings.tracker, comparison);
  if (pairs.empty()) {
    throw HostError(ExitCode::Usage,
                    "the two results have no target of the tracker '" + settings.tracker + "' in common");
  }
  const std::vector<Draw> draws = drawsOf(pairs.size(), settings);
  for (const FigureKind& kind : figureKinds()) {
    comparison.differences.push_back(differenceOf(kind, pairs, draws, settings.tolerance));
  }
  comparison.differences.push_back(timeDifference(pairs, draws, settings.timeTolerance));
  return comparison;
}

std::string textOf(const Comparison& comparison, const CompareSettings& settings) {
  std::string text = fmt::format("{:<18} {:>9} {:>9} {:>11}   95 % interval over {} targets\n", "figure", "A", "B",
                                 "difference", comparison.targets);
  for (const Difference& d : comparison.differences) {
    const bool isTime = d.figure.find("ms") != std::string::npos;
    const double scale = isTime ? 100 : 1;
    const char* unit = isTime ? "%" : "";
    const char* verdict = d.regression ? "  WORSE than allowed" : d.judged ? "" : "  (not judged)";
    text += fmt::format("{:<18} {:>9.3f} {:>9.3f} {:>+10.3f}{:1}   {:+.3f}{} to {:+.3f}{}{}\n", d.figure, d.a, d.b,
                        scale * d.difference, unit, scale * d.low, unit, scale * d.high, unit, verdict);
  }
  text += listOf("only in A: ", comparison.onlyA) + listOf("only in B: ", comparison.onlyB);
  return text +
         fmt::format("{} (tolerance {:g}{})\n", comparison.regression() ? "regression" : "no regression",
                     settings.tolerance,
                     settings.timeTolerance > 0 ? fmt::format(", time {:g} %", 100 * settings.timeTolerance) : "");
}

}  // namespace host
