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

/// What two boxes have in common, as a share of both together; 0 where there is nothing.
inline double overlap(const cv::Rect2d& a, const cv::Rect2d& b) {
  const double common = (a & b).area();
  const double together = a.area() + b.area() - common;
  return together > 0.0 ? common / together : 0.0;
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

/// A size that follows what is seen slowly, and not far from what it was at the start: by 2 % a frame, between 0.45 and
/// 2.2 of that.
inline cv::Size2d followedSize(const cv::Size2d& size, const cv::Size2d& seen, const cv::Size2d& start) {
  constexpr double kResize = 1.02;
  constexpr double kSmallest = 0.45;
  constexpr double kBiggest = 2.2;
  const auto follow = [](double now, double to, double first) {
    return std::clamp(std::clamp(to, now / kResize, now * kResize), kSmallest * first, kBiggest * first);
  };
  return {follow(size.width, seen.width, start.width), follow(size.height, seen.height, start.height)};
}

}  // namespace csrt_guard
