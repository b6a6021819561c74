// The camera on the gimbal: zoom, and the wind that shakes the mast below it.
#pragma once

#include <vector>

#include "simulator/angles.h"

namespace host::sim {

/// When the zoom of a plan begins to count its time.
enum class ZoomStart {
  Beginning,  ///< With the first frame.
  Following   ///< When the host begins to follow the target.
};

/// One order to the lens. The field of view changes by the same factor in the same time.
struct ZoomOrder {
  ZoomStart after = ZoomStart::Beginning;
  double at_s = 0.0;       ///< Seconds after that.
  double hfov_deg = 20.0;  ///< The field of view to reach.
  double over_s = 0.0;     ///< Time the change takes; 0: from one frame to the next.
};

/// The horizontal field of view at a time. Pure.
/// @param following_s  when following began; negative: not yet
double hfovAt(double start_hfov, const std::vector<ZoomOrder>& plan, double t_s, double following_s);

/// How wind moves the camera.
struct ShakeParams {
  double pan_deg = 0.0;   ///< Largest deflection.
  double tilt_deg = 0.0;  ///< Largest deflection.
  double hz = 1.5;        ///< Of the slowest part of the movement.
  double from_s = 0.0;    ///< The wind begins.
};

/// How far the mast is bent: a few sines that never quite repeat. The gimbal's encoders do not see it. Pure.
Angles shakeAt(const ShakeParams& shake, double t_s);

}  // namespace host::sim
