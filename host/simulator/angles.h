// Where things are seen by a camera on a gimbal. Angles in degrees; pan grows to the right, tilt upwards; the picture's
// x grows to the right, its y downwards. The mapping is linear in angle, as the plug-in takes it to be.
#pragma once

#include <opencv2/core.hpp>

namespace host::sim {

/// A direction. Pan may have any number of turns unless it says otherwise.
struct Angles {
  double pan = 0.0;   ///< Degrees, growing to the right.
  double tilt = 0.0;  ///< Degrees, growing upwards.
};

/// What the camera looks at: the direction of the picture's centre and the angles its sides span.
struct View {
  Angles centre;        ///< What the picture's middle shows.
  double hfov = 60.0;   ///< > 0
  double vfov = 33.75;  ///< > 0
};

/// Brought into [-180, 180). Pure.
double wrapped(double degrees);

/// The way from `from` to `to` on the short side: pan in [-180, 180). Pure.
Angles between(const Angles& from, const Angles& to);

/// The vertical field of view that belongs to a horizontal one with square pixels. Pure.
double vfovOf(double hfov, cv::Size frame);

/// Frame pixels of a direction; the picture's centre is (width / 2, height / 2). Pure.
cv::Point2d pixelOf(const Angles& direction, const View& view, cv::Size frame);

/// The direction of a point in frame pixels. Pan is not wrapped. Pure.
Angles directionOf(const cv::Point2d& pixel, const View& view, cv::Size frame);

/// The box of something of `size` (degrees wide, high) around `direction`, frame pixels, not cut. Pure.
cv::Rect2d boxOf(const Angles& direction, cv::Size2d size, const View& view, cv::Size frame);

/// Intersection over union; 0 when a box has no area. Pure.
double overlap(const cv::Rect2d& a, const cv::Rect2d& b);

/// The middle of a box, in the box's own unit. Pure.
cv::Point2d centreOf(const cv::Rect2d& box);

}  // namespace host::sim
