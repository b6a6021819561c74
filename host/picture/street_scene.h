// A small scene made of numbers: a figure walks along a street and passes behind a lamp post. For a first look where
// no clip is at hand, and for tests that need a video with a known answer.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>
#include <string>

namespace host {

/// The scene, frame by frame.
class StreetScene {
 public:
  /// @param size  of the frames, pixels, at least 160 x 120
  /// @param seed  the same seed draws the same pixels on every machine
  /// @param sign  width of a sign in the post's place that hides the figure, pixels; 0: the post. [0, size.width / 3]
  StreetScene(cv::Size size, std::uint64_t seed, int sign = 0);

  /// Frame i, from 0: 8-bit BGR. Pure: any order.
  cv::Mat frame(int i) const;
  /// Where the figure is in frame i, full-frame pixels; behind the post or sign too.
  cv::Rect truth(int i) const;
  /// The post or sign, full-frame pixels.
  cv::Rect cover() const;

 private:
  int sign_;
  cv::Mat background_;
  cv::Mat figure_;
};

/// What writeStreetScene() draws: where its figure is, a scene of the same size and seed knows.
inline constexpr std::uint64_t kStreetSceneSeed = 20240607;

/// Writes `frames` frames as a video, or as many as there were when a signal asked to stop; `sign` as in StreetScene.
/// @throws HostError (Usage, Output) naming the path
void writeStreetScene(const std::string& path, cv::Size size, int frames, double fps, int sign = 0);

}  // namespace host
