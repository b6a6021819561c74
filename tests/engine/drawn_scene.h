// Drawn pictures for the engine's tests: a textured target moves, grows and shrinks over a textured ground.
#pragma once

#include <cmath>
#include <opencv2/imgproc.hpp>

namespace engine_test {

/// Smooth coloured noise, the same for the same seed.
inline cv::Mat texture(cv::Size size, int seed, double blur) {
  cv::Mat picture(size, CV_8UC3);
  cv::RNG random(static_cast<uint64_t>(seed));
  random.fill(picture, cv::RNG::UNIFORM, 0, 256);
  if (blur > 0) {
    cv::GaussianBlur(picture, picture, cv::Size(), blur);
    cv::normalize(picture, picture, 0, 255, cv::NORM_MINMAX);
  }
  return picture;
}

class DrawnScene {
 public:
  DrawnScene(cv::Size size, cv::Size target, int seed)
      : ground_(texture(size, seed, 3)), target_(texture(target, seed + 1, 1.5)), size_(size) {}

  cv::Rect boxAt(int frame) const {
    const double t = frame;
    const double grow = 1 + 0.15 * std::sin(t / 12.0);
    const cv::Size s(cvRound(target_.cols * grow), cvRound(target_.rows * grow));
    const cv::Point c(cvRound(size_.width * (0.5 + 0.3 * std::sin(t / 25.0))),
                      cvRound(size_.height * (0.5 + 0.25 * std::cos(t / 18.0))));
    return {c.x - s.width / 2, c.y - s.height / 2, s.width, s.height};
  }
  cv::Mat frame(int index) const {
    cv::Mat picture = ground_.clone(), patch;
    const cv::Rect box = boxAt(index), inside = box & cv::Rect(cv::Point(), size_);
    cv::resize(target_, patch, box.size());
    if (!inside.empty()) patch(inside - box.tl()).copyTo(picture(inside));
    return picture;
  }

 private:
  cv::Mat ground_, target_;
  cv::Size size_;
};

}  // namespace engine_test
