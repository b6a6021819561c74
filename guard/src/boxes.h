// Sums with boxes that the guard's parts share. Pixels of one frame throughout.
#pragma once

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>

namespace csrt_guard {

inline cv::Point2d centreOf(const cv::Rect2d& box) {
  return {box.x + box.width / 2, box.y + box.height / 2};
}

inline double diagonalOf(const cv::Rect2d& box) {
  return std::hypot(box.width, box.height);
}

/// Between their centres.
inline double distanceBetween(const cv::Rect2d& a, const cv::Rect2d& b) {
  return cv::norm(centreOf(a) - centreOf(b));
}

/// As it is about its centre, so many times as wide and high.
inline cv::Rect grown(const cv::Rect2d& box, double by) {
  return cv::Rect2d(box.x - box.width * (by - 1) / 2, box.y - box.height * (by - 1) / 2, box.width * by,
                    box.height * by);
}

/// With so many pixels more on every side.
inline cv::Rect grownBy(const cv::Rect2d& box, double pixels) {
  return cv::Rect2d(box.x - pixels, box.y - pixels, box.width + 2 * pixels, box.height + 2 * pixels);
}

/// Never empty.
inline cv::Rect wholePixels(const cv::Rect2d& box) {
  return {cvRound(box.x), cvRound(box.y), std::max(1, cvRound(box.width)), std::max(1, cvRound(box.height))};
}

}  // namespace csrt_guard
