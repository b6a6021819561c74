// Where a camera looks and where a target appears in its picture. Angles in degrees; pan grows to the right, tilt
// upwards. An offset from the image centre is linear in angle: fraction of the frame times the field of view.
// Everything here is pure and safe from any thread.
#pragma once

#include <opencv2/core/types.hpp>

#include "csrt_config.h"

/// Where a camera looks and how much of the world its picture spans.
struct ViewGeometry {
  double pan = 0.0;   ///< Of the picture's middle, degrees, [-180, 180).
  double tilt = 0.0;  ///< Of the picture's middle, degrees.
  double hfov = 0.0;  ///< Angle that the picture's width spans, degrees; above 0.
  double vfov = 0.0;  ///< Angle that the picture's height spans, degrees; above 0.
};

/// A direction.
struct PanTilt {
  double pan = 0.0;   ///< Degrees.
  double tilt = 0.0;  ///< Degrees.
};

/// An angle brought into [-180, 180).
double wrapDegrees(double degrees);

/// Pan and tilt at which the centre of `box` (frame pixels) would lie in the image centre. Pan is not wrapped.
PanTilt panTiltCentring(const cv::Rect& box, const cv::Size& frame, const ViewGeometry& view);

/// Offset of a pointing target from the image centre, in frames: 0 is centred, x to the right, y downwards.
cv::Point2d offsetFromCentre(const PanTilt& target, const ViewGeometry& view);

/// True for a finite value above 1e-6: what a field of view (degrees) or a scale must be to divide by.
bool isUsable(double value);

/// A side of a box, held between the smallest and the largest multiple of its reference.
/// @param raw, reference  pixels
/// @return at least 1 where the reference is unusable
double clampSideToReference(double raw, double reference, const StabilityConfig& limits);

/// A box of width W and height H around a centre (frame pixels), rounded, at least 1 x 1, shifted into the frame.
cv::Rect boxAround(const cv::Point2d& centre, const cv::Size2d& size, const cv::Size& frame);
