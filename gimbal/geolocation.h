// Where on the ground the camera looks: a straight line from the platform to a flat ground of known height, with what
// the errors of position, height and direction make of it. Metres; degrees; azimuth from true north over east;
// elevation above the horizon.
#pragma once

#include <optional>

#include "gimbal/angles.h"

namespace gimbal {

/// How sure the inputs are: standard deviations.
struct PlatformErrors {
  double position_m = 3.0;     ///< North and east, each.
  double height_m = 5.0;       ///< Of the platform above the ground, the ground's own roughness included.
  double azimuth_deg = 1.0;    ///< Heading and encoder together.
  double elevation_deg = 0.5;  ///< Attitude and encoder together.
};

/// Where the camera is and how it lies.
struct Platform {
  double lat_deg = 0.0;
  double lon_deg = 0.0;
  double alt_m = 0.0;     ///< Above the same zero as ground_m.
  double ground_m = 0.0;  ///< Height of the ground around the target.
  double roll_deg = 0.0;
  double pitch_deg = 0.0;
  double yaw_deg = 0.0;  ///< From north.
  PlatformErrors errors;
};

/// A direction seen from the earth.
struct EarthDirection {
  double azimuth_deg = 0.0;    ///< [0, 360)
  double elevation_deg = 0.0;  ///< [-90, 90]
};

/// 95 % of what can be meant lies inside.
struct ErrorEllipse {
  double major_m = 0.0;  ///< Half axes.
  double minor_m = 0.0;
  double azimuth_deg = 0.0;  ///< Of the major axis, [0, 180).
};

/// A place on the ground and how sure it is.
struct GroundPoint {
  double lat_deg = 0.0;
  double lon_deg = 0.0;
  double alt_m = 0.0;
  double north_m = 0.0;  ///< From the platform.
  double east_m = 0.0;
  double distance_m = 0.0;  ///< Along the line of sight.
  ErrorEllipse error;
  double sigma_m = 0.0;  ///< Root of the sum of both variances: one number for the horizontal error.
};

/// The direction of the gimbal's pan and tilt when its zero is the platform's nose. Pure.
EarthDirection earthDirection(const Platform& platform, const PanTilt& onPlatform);

/// Where the line of sight meets the ground. Pure.
/// @return nothing when it does not, or so flat that three standard deviations reach the horizon, or when an input is
///         not finite or the platform not above the ground
std::optional<GroundPoint> groundPoint(const Platform& platform, const EarthDirection& direction);

}  // namespace gimbal
