// Figures over many walks, and how sure they are: intervals by drawing the targets anew.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "walk.h"

namespace bench {

/// A figure of the tables.
enum Figure { kOnTarget, kHeld, kAuc, kElsewhere, kLongRuns, kFigureCount };
/// As in the JSON: "on_target", "held", ...
const char* keyOf(Figure figure);
using Figures = std::array<double, kFigureCount>;  ///< kHeld and kLongRuns are shares of the targets here.

/// All walks with one engine, preset and guard: by start, then by target, targets in the same order in all.
struct Group {
  std::string engine, preset, guard;
  std::vector<int> starts;
  std::vector<std::vector<const Walk*>> walks;

  std::size_t targets() const { return walks.empty() ? 0 : walks.front().size(); }
};

/// The groups of these walks, in the order in which they begin.
std::vector<Group> groupsOf(const std::vector<Walk>& walks);

/// Pools the targets of one start. Pure.
Figures figuresOf(const std::vector<const Walk*>& walks);
/// Mean over the starts. Pure.
Figures meanOf(const Group& group);

struct Interval {
  double low = 0.0, high = 0.0;
};
using Intervals = std::array<Interval, kFigureCount>;

/// 95 % of the means when the targets are drawn anew, each with all its starts: 2000 times, with a fixed seed. Pure.
Intervals intervalsOf(const Group& group);
/// The same of b's figures less a's, the same targets drawn for both.
Intervals differenceIntervals(const Group& a, const Group& b);

}  // namespace bench
