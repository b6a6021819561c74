// Where the target should be while it is not seen.
#pragma once

#include <algorithm>
#include <opencv2/core.hpp>

#include "boxes.h"

namespace csrt_guard {

class TargetMotion {
 public:
  void start(const cv::Rect2d& box) {
    box_ = box;
    velocity_ = {};
    damping_ = 1.0;
    lost_ = 0;
  }

  /// The target was in this box in this frame.
  void see(const cv::Rect2d& box) {
    const cv::Point2d moved = centreOf(box) - centreOf(box_);
    const double share = 1.0 / (lost_ + 1);  // over so many frames
    velocity_ += kLearning * (moved * share - velocity_);
    box_ = box;
    lost_ = 0;
    damping_ = 1.0;
  }

  /// The target is in this box, but how it moves is not to be learnt from that.
  void stay(const cv::Rect2d& box) { box_ = box; }

  /// One frame without the target: on with its last speed, of which this share is left every frame.
  void miss(double left = kDamping) {
    ++lost_;
    damping_ *= left;
    box_ += velocity_ * damping_;
  }

  /// A target that would be outside the picture waits at its border.
  void keepInside(const cv::Size& picture) {
    const cv::Point2d c = centreOf(box_);
    box_ += cv::Point2d(std::clamp(c.x, 0.0, picture.width - 1.0), std::clamp(c.y, 0.0, picture.height - 1.0)) - c;
  }

  const cv::Rect2d& box() const { return box_; }             ///< Full-frame pixels.
  const cv::Point2d& velocity() const { return velocity_; }  ///< Pixels a frame, when last seen.
  int lost() const { return lost_; }                         ///< Frames since it was seen.

 private:
  static constexpr double kLearning = 0.15;
  static constexpr double kDamping = 0.95;
  cv::Rect2d box_;
  cv::Point2d velocity_;
  double damping_ = 1.0;
  int lost_ = 0;
};

}  // namespace csrt_guard
