// What scenes are painted with.
#pragma once

#include <opencv2/core.hpp>
#include <string>

namespace host::sim {

/// Smooth patches of colour, `patch` pixels wide, with fine grain. 8-bit BGR.
cv::Mat texture(cv::Size size, const cv::Scalar& mean, double contrast, int patch, cv::RNG& rng);

/// A figure with what is seen of it: 255 inside its outline, 0 outside.
struct Sprite {
  cv::Mat bgr;   ///< 8-bit BGR.
  cv::Mat mask;  ///< 8 bits, one channel, the size of `bgr`.
};

/// @param look    car, person, drone or wall
/// @param aspect  width to height
/// @param number  another number, other colours
Sprite makeSprite(const std::string& look, double aspect, int number, std::uint64_t seed);

/// Puts the sprite into a box of frame pixels, which may lie between pixels and partly or wholly outside.
void paint(cv::Mat& picture, const Sprite& sprite, const cv::Rect2d& box);

/// Adds what a sensor adds: the same kind of noise each time, drawn from a store made once.
class SensorNoise {
 public:
  /// @param deviation  standard deviation of each value, grey levels; 0: none
  SensorNoise(cv::Size frame, double deviation, std::uint64_t seed);
  /// @param picture  8-bit BGR of the size given to the constructor; changed in place
  void add(cv::Mat& picture);

 private:
  cv::RNG rng_;
  cv::Mat store_;  // larger than a frame: another part each time
  cv::Size frame_;
};

}  // namespace host::sim
