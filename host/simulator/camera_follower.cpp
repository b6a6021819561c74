#include "simulator/camera_follower.h"

#include <algorithm>
#include <cmath>

namespace host::sim {
namespace {

double clamped(double rate, double limit) {
  return std::clamp(rate, -limit, limit);
}

}  // namespace

Angles CameraFollower::rateFor(const std::optional<cv::Rect2d>& box, double hfov, double vfov, cv::Size frame,
                               double dt_s) {
  const double limit = params_.max_rate_dps;
  if (!box) {
    const double kept = params_.coast_s > 0 ? std::exp(-dt_s / params_.coast_s) : 0.0;
    motion_ = {motion_.pan * kept, motion_.tilt * kept};
    return motion_;
  }
  const cv::Point2d centre = centreOf(*box);
  const Angles off{(centre.x / frame.width - 0.5) * hfov, (0.5 - centre.y / frame.height) * vfov};
  motion_.pan = clamped(motion_.pan + params_.integral_per_s2 * off.pan * dt_s, limit);
  motion_.tilt = clamped(motion_.tilt + params_.integral_per_s2 * off.tilt * dt_s, limit);
  return {clamped(motion_.pan + params_.gain_per_s * off.pan, limit),
          clamped(motion_.tilt + params_.gain_per_s * off.tilt, limit)};
}

}  // namespace host::sim
