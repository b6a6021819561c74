// OpenCV's tracker and the engine on the same pictures from the same start, answer by answer.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/tracking.hpp>
#include <string>
#include <vector>

#include "sequences.h"

namespace equality {

struct Start {
  const Sequence* sequence = nullptr;
  int first = 0;  ///< Frame of the sequence.
  cv::Rect box;   ///< May hang over the edge.
  cv::tracking::TrackerCSRT::Params params;
  bool withMask = false;  ///< setInitialMask() with an ellipse instead of the box.
};

struct Comparison {
  long frames = 0;      ///< Compared, starts included.
  long different = 0;   ///< With another coordinate, another answer "lost" or another exception.
  int largest = 0;      ///< Largest difference of a coordinate, pixels.
  long lost = 0;        ///< On which OpenCV's tracker lost its target.
  long exceptions = 0;  ///< On which OpenCV's tracker threw.
  std::string first;    ///< The first difference in words; empty: none.
  std::string answers;  ///< OpenCV's answers, a line each.

  void add(const Comparison& other);
};

/// Boxes drawn from `seed`: some around what moves, some anywhere, some over the edge; the known one jittered first.
std::vector<Start> startsOn(const Sequence& sequence, int count, std::uint64_t seed);

/// Both from the start over at most `frames` frames. An exception ends the run. Any thread.
Comparison compare(const Start& start, int frames);

}  // namespace equality
