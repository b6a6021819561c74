// Directions of a pan/tilt gimbal. Degrees; pan grows to the right in the picture, tilt upwards.
#pragma once

#include <cmath>

namespace gimbal {

/// A direction, a way or rates. Pan may have any number of turns.
struct PanTilt {
  double pan = 0.0;
  double tilt = 0.0;
};

/// Brought into [-180, 180). Pure.
inline double wrapped(double degrees) {
  const double turned = std::fmod(degrees + 180.0, 360.0);
  return turned < 0 ? turned + 180.0 : turned - 180.0;
}

/// The same direction as `degrees`, within half a turn of `near`. Pure.
inline double unwrapped(double degrees, double near) {
  return near + wrapped(degrees - near);
}

}  // namespace gimbal
