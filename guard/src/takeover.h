// Whether somebody who met the target has taken the tracker along: its box goes where that one was going, and not where
// the target was going.
#pragma once

#include <cstddef>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "colour_model.h"
#include "place_tracks.h"
#include "target_motion.h"

namespace csrt_guard {

class Takeover {
 public:
  /// The target as it was before somebody took the tracker along.
  struct Before {
    TargetMotion motion;  ///< Taken on to this frame: lost() says since when.
    HalfColours look{};   ///< What it looked like of late.
    std::size_t who = 0;  ///< Somebody's number in `others`.
  };

  void clear();

  /// One frame in which the target is followed: as it was in the frame before, and what it looked like of late.
  void followed(const TargetMotion& motion, const HalfColours& recent);

  /// After followed(), where the tracker claims to see the target.
  /// @param box     the tracker's, full-frame pixels
  /// @param look    what that shows
  /// @param others  all that is followed beside the target, as of `behind` frames ago
  /// @param frames  in a row in which somebody must fit; 0: never
  /// @return the target before somebody took the tracker along; empty: nobody did, as it seems
  std::optional<Before> noticed(const cv::Rect2d& box, const HalfColours& look, const std::vector<PlaceTrack>& others,
                                int behind, int frames);

 private:
  std::vector<Before> past_;  ///< The latest is the last.
  int fits_ = 0;              ///< Frames in a row in which somebody does.
};

}  // namespace csrt_guard
