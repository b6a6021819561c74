// Keeps a box in the middle of the picture: a plain proportional and integral controller of the gimbal's rate.
#pragma once

#include <opencv2/core.hpp>
#include <optional>

#include "simulator/angles.h"

namespace host::sim {

/// How hard the camera follows a box.
struct FollowParams {
  double gain_per_s = 2.5;       ///< Degrees per second for each degree off the middle.
  double integral_per_s2 = 1.5;  ///< What remains off the middle for a second adds so much rate.
  double max_rate_dps = 40.0;    ///< Of the order, each axis.
  double coast_s = 0.6;          ///< Without a box the last motion is kept up, fading within this time.
};

/// Not thread-safe; one call per frame.
class CameraFollower {
 public:
  explicit CameraFollower(const FollowParams& params) : params_(params) {}

  /// @param box   where the target was seen in this frame, frame pixels; nothing: it was not seen
  /// @param dt_s  since the last frame
  /// @return the rates to order, degrees per second
  Angles rateFor(const std::optional<cv::Rect2d>& box, double hfov, double vfov, cv::Size frame, double dt_s);

 private:
  FollowParams params_;
  Angles motion_;  // the integral part: what the target itself moves by
};

}  // namespace host::sim
