#include "stability_score.h"

#include <algorithm>
#include <cmath>

#include "window_geometry.h"

double stabilityScore(const cv::Rect& prevBox, const cv::Rect& newBox, const cv::Size& frame,
                      const StabilityConfig& limits) {
  if (!hasArea(prevBox) || !hasArea(newBox)) return 0.0;

  const cv::Point2f step = centreOf(newBox) - centreOf(prevBox);
  const double distance = std::sqrt(double{step.x} * step.x + double{step.y} * step.y);
  const double motion = distance / limits.max_motion;
  const double motionTerm = motion < 1.0 ? 1.0 - motion : 0.0;

  const auto newArea = static_cast<double>(areaOf(newBox));
  const double areaRatio = newArea / static_cast<double>(areaOf(prevBox));
  const bool sizeFits = !(areaRatio < limits.min_scale_ratio) && !(areaRatio > limits.max_scale_ratio);

  const double visibleTerm = static_cast<double>(areaOf(clipToFrame(newBox, frame))) / newArea;
  return std::max((motionTerm + (sizeFits ? 1.0 : 0.0) + visibleTerm) / 3.0, 0.0);
}
