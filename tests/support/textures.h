// Pictures drawn from a fixed seed: a textured ground and a textured target that differs from it.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace textured {

/// Coloured blocks of about `grain` pixels, blended; the same for the same arguments everywhere.
inline cv::Mat texture(const cv::Size& size, int grain, std::uint64_t seed) {
  cv::RNG random(seed * 0x9E3779B97F4A7C15U);  // spread: neighbouring seeds start alike otherwise
  cv::Mat small((size.height + grain - 1) / grain, (size.width + grain - 1) / grain, CV_8UC3);
  random.fill(small, cv::RNG::UNIFORM, 0, 256);
  cv::Mat out;
  cv::resize(small, out, size, 0.0, 0.0, cv::INTER_LINEAR);
  return out;
}

/// A quiet ground: dim, blended over many pixels.
inline cv::Mat ground(const cv::Size& size, std::uint64_t seed = 1) {
  return texture(size, 24, seed) * 0.5;
}

/// A lively target.
inline cv::Mat target(const cv::Size& size, std::uint64_t seed = 7) {
  return texture(size, 6, seed);
}

/// Draws `patch` with its top-left corner at `at`; what lies outside the picture is cut.
inline void put(cv::Mat& picture, const cv::Mat& patch, const cv::Point& at) {
  const cv::Rect inside = cv::Rect(at, patch.size()) & cv::Rect({}, picture.size());
  if (inside.empty()) return;
  patch(inside - at).copyTo(picture(inside));
}

/// A textured ground, every part of which can be told from every other, with one target on it.
struct Scene {
  cv::Mat background;
  cv::Mat sprite;

  explicit Scene(const cv::Size& frame = {640, 360}, const cv::Size& box = {40, 40}, std::uint64_t seed = 1)
      : background(ground(frame, seed)), sprite(target(box, seed + 6)) {}

  cv::Mat empty() const { return background.clone(); }
  cv::Mat with(const cv::Point& at) const {
    cv::Mat out = empty();
    put(out, sprite, at);
    return out;
  }
  cv::Rect box(const cv::Point& at) const { return {at, sprite.size()}; }
};

}  // namespace textured
