// What moves in the scene: the target, others that look alike, and what hides them.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "simulator/angles.h"

namespace host::sim {

/// A place at a time. Between two of them things move evenly; before the first and after the last they stand still.
struct Waypoint {
  double t_s = 0.0;  ///< Seconds since the run's beginning.
  Angles at;         ///< Pan is not wrapped: 179 to 181 is a way of 2 degrees.
};

/// One thing in the scene: how it looks and where it goes.
struct Actor {
  std::string look = "car";    ///< car, person, drone, wall
  bool likeTarget = false;     ///< Painted exactly as the target is; else in colours of its own.
  cv::Size2d size{3.0, 1.5};   ///< Degrees, > 0.
  std::vector<Waypoint> path;  ///< At least one; times grow.
  double from_s = 0.0;         ///< There from this time on ...
  double until_s = 1e9;        ///< ... and gone from this one on.
};

/// Whether the actor is in the scene at all. Pure.
bool isThere(const Actor& actor, double t_s);

/// Where the middle of the actor is. Pure.
Angles placeOf(const Actor& actor, double t_s);

/// The actor's box in frame pixels, not cut at the frame. Pure.
cv::Rect2d boxOf(const Actor& actor, double t_s, const View& view, cv::Size frame);

/// How much of `box` can be seen: inside the frame and in front of everything in `covers`. [0, 1]. Pure.
double visibleShare(const cv::Rect2d& box, const std::vector<cv::Rect2d>& covers, cv::Size frame);

}  // namespace host::sim
