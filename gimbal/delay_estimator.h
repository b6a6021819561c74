// How much older or younger the gimbal's angles are than the frames they come with. The line of sight to the target
// bends with the gimbal's movement as long as the two do not belong together; the delay that leaves it straightest is
// the right one. Needs a gimbal that speeds up or slows down now and then while a target is seen.
#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "gimbal/angles.h"
#include "gimbal/timed_angles.h"

namespace gimbal {

/// Not thread-safe. All times are of one clock, seconds.
class DelayEstimator {
 public:
  static constexpr double kMin_s = -0.30;  ///< What can be found, both ends included.
  static constexpr double kMax_s = 0.30;

  DelayEstimator();

  /// An angle of the gimbal, with the time that it carries. Values that are not finite are passed over.
  void angles(double t_s, const PanTilt& angles);

  /// A target that was seen. @param t_s  when the frame was taken; @param off  degrees from the picture's middle
  void seen(double t_s, const PanTilt& off);

  /// Another target: what was gathered stays, but no bend is measured across.
  void newTarget();

  /// By how much the angles are stale: the angle of a frame taken at t carries the time t + stale. Seconds; nothing as
  /// long as the gimbal has moved too little, or several delays fit as well.
  std::optional<double> stale_s() const;

 private:
  void weigh_(const TimedAngles& frame);

  std::deque<TimedAngles> readings_;
  std::deque<TimedAngles> waiting_;         // frames whose latest possible angle has not come
  std::deque<double> times_;                // of the frames in lines_
  std::vector<std::deque<PanTilt>> lines_;  // lines of sight of the last frames, one row for each delay
  std::vector<double> bends_;               // of each delay, fading
  double motion_ = 0.0;                     // how much the angles themselves bent
};

}  // namespace gimbal
