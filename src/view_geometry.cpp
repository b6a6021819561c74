#include "view_geometry.h"

#include <algorithm>
#include <cmath>

#include "window_geometry.h"

namespace {
constexpr double kSmallest = 1e-6;  // of fields of view, scales and sides
}  // namespace

double wrapDegrees(double degrees) {
  double wrapped = std::fmod(degrees + 180.0, 360.0);
  if (wrapped < 0.0) wrapped += 360.0;
  if (wrapped >= 360.0) wrapped = 0.0;  // a hair below -180 rounds up to the full turn
  return wrapped - 180.0;
}

PanTilt panTiltCentring(const cv::Rect& box, const cv::Size& frame, const ViewGeometry& view) {
  const double u = (box.x + 0.5 * box.width) / frame.width;
  const double v = (box.y + 0.5 * box.height) / frame.height;
  return {view.pan + (u - 0.5) * view.hfov, view.tilt - (v - 0.5) * view.vfov};  // image y grows downwards
}

cv::Point2d offsetFromCentre(const PanTilt& target, const ViewGeometry& view) {
  return {wrapDegrees(target.pan - view.pan) / view.hfov, (view.tilt - target.tilt) / view.vfov};
}

bool isUsable(double value) {
  return std::isfinite(value) && value > kSmallest;
}

double clampSideToReference(double raw, double reference, const StabilityConfig& limits) {
  const bool usable = std::isfinite(reference) && reference >= 1.0 && isUsable(raw);
  if (!usable) return std::max(raw, 1.0);
  const double lowest = std::max(limits.min_scale_ratio, 0.01);
  const double highest = std::max(limits.max_scale_ratio, lowest);
  return std::min(reference * highest, std::max(raw, reference * lowest));
}

cv::Rect boxAround(const cv::Point2d& centre, const cv::Size2d& size, const cv::Size& frame) {
  const cv::Rect box(roundToInt(centre.x - 0.5 * size.width), roundToInt(centre.y - 0.5 * size.height),
                     std::max(roundToInt(size.width), 1), std::max(roundToInt(size.height), 1));
  return fitRectInsidePreserveSize(box, frame.width, frame.height);
}
