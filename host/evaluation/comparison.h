// Two evaluations side by side: what changed, how sure that is, and whether it is worse than allowed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "evaluation/results.h"

namespace host {

/// What counts as worse, and how sure one wants to be.
struct CompareSettings {
  double tolerance = 0.02;     ///< A share may get worse by so much; absolute.
  double timeTolerance = 0.0;  ///< CPU time per update may grow by this share; 0: time is shown, never judged.
  int resamples = 2000;        ///< Of the bootstrap.
  std::uint64_t seed = 1;      ///< Of the bootstrap: the same seed, the same intervals.
  std::string tracker = kPluginTracker;  ///< Whose results are compared.
};

/// One figure in A and B, over the targets that both have.
struct Difference {
  std::string figure;       ///< Its name, as the table shows it.
  double a = 0.0;           ///< In A; shares in [0, 1], times in milliseconds or seconds as the name says.
  double b = 0.0;           ///< In B, in the same unit.
  double difference = 0.0;  ///< b - a; of times b / a - 1.
  double low = 0.0;         ///< 95 % interval of the difference when targets are drawn anew.
  double high = 0.0;        ///< The interval's upper end.
  bool judged = true;       ///< Time without a tolerance is only shown.
  bool regression = false;  ///< Worse by more than the tolerance.
};

/// What two evaluations have in common, and where they differ.
struct Comparison {
  std::vector<Difference> differences;  ///< One per figure, in the order in which they are shown.
  std::size_t targets = 0;              ///< Compared.
  std::vector<std::string> onlyA;       ///< "sequence/target" that B lacks.
  std::vector<std::string> onlyB;       ///< "sequence/target" that A lacks.
  bool regression() const;              ///< Whether any judged figure is worse than allowed.
};

/// Pairs targets by sequence and name. Intervals are percentiles of a bootstrap over targets with a seeded generator:
/// the same files give the same text on every machine.
/// @throws HostError (Usage) when no target is in both
Comparison compareEvaluations(const EvaluationResult& a, const EvaluationResult& b, const CompareSettings& settings);

/// A table, one line per figure. Ends with a line feed.
std::string textOf(const Comparison& comparison, const CompareSettings& settings);

}  // namespace host
