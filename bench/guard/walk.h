// One target followed once, with or without a guard, and judged frame by frame.
#pragma once

#include <string>
#include <vector>

#include "evaluation/metrics.h"
#include "footage.h"
#include "watched.h"

namespace bench {

constexpr double kRightOverlap = 0.3;  ///< A start over on less is a wrong one.
constexpr int kLongRun = 30;           ///< Frames; longer wrong runs are counted.

/// One walk and what came of it.
struct Walk {
  const host::TruthTarget* target = nullptr;
  const Footage* footage = nullptr;
  std::string engine, preset, guard;
  host::GuardChoice choice;  ///< Of the guard.
  int start = 0;             ///< So many marks after the first visible one.

  host::MetricSums sums;  ///< Of the marked frames.
  int longestWrong = 0;   ///< Frames in a row called seen whose box overlaps the truth by less than 0.1.
  int restarts = 0, restartsRight = 0;
  std::vector<double> seen_ms, lost_ms;  ///< The guard's processor time in each frame, see Watched.
  double guard_ms = 0.0, tracker_ms = 0.0;
  std::vector<host::FollowerAnswer> answers;  ///< Of every frame after the start.
};

/// Follows the target from its start to its last mark. @param trace  everybody in the footage: one line per frame is
/// printed, saying on whom the boxes are; empty: nothing is printed
void follow(Walk& walk, host::PluginLibrary& library, AnswerCache& cache, const std::vector<host::TruthTarget>& trace);

/// Whether both gave the same boxes and claims in every frame.
bool sameAnswers(const Walk& a, const Walk& b);

}  // namespace bench
