// A textured target on a quiet ground, drawn from a fixed seed: the same pixels on every machine.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "test_picture.h"

class DrawnScene {
 public:
  DrawnScene(const cv::Size& frame, const cv::Size& target, std::uint64_t seed = 7)
      : ground_(frame, CV_8UC3), target_(target, CV_8UC3) {
    cv::RNG rng(seed);
    rng.fill(ground_, cv::RNG::UNIFORM, 90, 110);
    rng.fill(target_, cv::RNG::UNIFORM, 0, 256);
    cv::blur(target_, target_, {3, 3});
    target_.colRange(0, target.width / 2).setTo(cv::Scalar(30, 60, 220), target_.colRange(0, target.width / 2) > 128);
  }

  /// The frame with the target's top-left corner at `at`; what lies outside is not drawn.
  cv::Mat draw(const cv::Point& at) const {
    cv::Mat picture = ground_.clone();
    const cv::Rect visible = cv::Rect(at, target_.size()) & cv::Rect({}, picture.size());
    if (!visible.empty()) target_(visible - at).copyTo(picture(visible));
    return picture;
  }

  std::shared_ptr<TestPicture> pictureAt(const cv::Point& at, Metadata metadata = {}) const {
    return std::make_shared<TestPicture>(draw(at), std::move(metadata));
  }

 private:
  cv::Mat ground_;
  cv::Mat target_;
};
