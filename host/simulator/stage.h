// The scene with everything that moves in it.
#pragma once

#include <opencv2/core.hpp>
#include <utility>
#include <vector>

#include "simulator/angles.h"
#include "simulator/drawing.h"
#include "simulator/panorama.h"
#include "simulator/scenario.h"

namespace host::sim {

/// Where the target really is.
struct Truth {
  bool there = false;             ///< In the scene at all.
  cv::Rect2d box;                 ///< Frame pixels, not cut at the frame.
  double visibleShare = 0.0;      ///< Inside the frame and not hidden. [0, 1]
  Angles direction;               ///< Pan in [-180, 180).
  double pointingErrorDeg = 0.0;  ///< From the picture's true middle.
  double pointingErrorPx = 0.0;   ///< The same in frame pixels.
};

/// A scenario's scene, as pictures and as truth. Not thread-safe.
class Stage {
 public:
  /// @param scenario  must outlive this
  explicit Stage(const Scenario& scenario);

  /// The picture that a camera takes. 8-bit BGR. The sensor's noise differs from call to call.
  cv::Mat see(const View& view, double t_s);
  Truth truth(const View& view, double t_s) const;
  const Panorama& panorama() const { return panorama_; }

 private:
  std::vector<cv::Rect2d> covers_(const View& view, double t_s) const;

  const Scenario& scenario_;
  Panorama panorama_;
  SensorNoise noise_;
  std::vector<std::pair<const Actor*, Sprite>> actors_;
};

}  // namespace host::sim
