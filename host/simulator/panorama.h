// The wide scene around the camera, without what moves in it.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

#include "simulator/angles.h"
#include "simulator/scenario.h"

namespace host::sim {

/// A full turn of pan, linear in angle; above and below its edge rows go on.
class Panorama {
 public:
  /// Loads the picture, or draws hills, houses and trees from the seed.
  /// @throws HostError (Usage) naming a picture that cannot be read
  Panorama(const SceneParams& scene, std::uint64_t seed);

  /// What a camera sees: 8-bit BGR of that size. Pure.
  cv::Mat see(const View& view, cv::Size frame) const;

  /// All of it, `width` pixels wide, pan -180 on the left. Pure.
  cv::Mat overview(int width) const;

  double tiltSpan() const { return tiltSpan_; }  ///< Degrees; tilt 0 is the middle.

 private:
  cv::Mat turn_;  // a turn and a half, so that no view crosses the seam
  double pixelsPerDeg_;
  double tiltSpan_;
};

}  // namespace host::sim
