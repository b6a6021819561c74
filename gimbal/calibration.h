// Finds out what a real gimbal does with an order: its sign, its gain and how late it comes. Small motions of a few
// degrees, first in pan, then in tilt, ten seconds in all; the target must stand still in sight for the part that
// judges the picture.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "gimbal/angles.h"
#include "gimbal/axis_model.h"
#include "gimbal/delay_estimator.h"
#include "gimbal/motion_agreement.h"
#include "gimbal/timed_angles.h"

namespace gimbal {

/// What was found of one axis.
struct AxisCalibration {
  bool found = false;       ///< The movement fits the orders.
  double gain = 0.0;        ///< Rate that came for a rate that was ordered; negative: the other way.
  double delay_s = 0.0;     ///< From the order to the movement.
  double lag_s = 0.0;       ///< Time constant of the motor's own loop. Together with the delay it is surer than alone.
  double misfit_deg = 0.0;  ///< Root mean square of what the fit leaves over.
  std::optional<double>
      picture;  ///< How the picture answers: -1 as it should, 1 the wrong way. Nothing: no target seen.
};

/// What was found of the gimbal.
struct CalibrationResult {
  AxisCalibration pan;
  AxisCalibration tilt;
  std::optional<double> stale_s;  ///< See DelayEstimator; nothing: no target was seen.
};

/// One run. All times are of one clock, seconds. Not thread-safe.
class Calibration {
 public:
  static constexpr double kDuration_s = 10.0;

  /// @param start_s   now
  /// @param rate_dps  of the motions, > 0; each goes 0.6 s away and back on either side
  explicit Calibration(double start_s, double rate_dps = 6.0) : start_s_(start_s), rate_dps_(rate_dps) {}

  /// The rates to order now. The call is taken as given: the order counts as sent.
  PanTilt rates(double now_s);
  void angles(double t_s, const PanTilt& angles);
  void seen(double t_s, const PanTilt& off);

  bool done(double now_s) const { return now_s >= start_s_ + kDuration_s; }
  CalibrationResult result() const;

 private:
  AxisCalibration fit_(double PanTilt::*axis) const;

  double start_s_;
  double rate_dps_;
  std::vector<TimedAngles> orders_;
  std::vector<TimedAngles> readings_;
  std::vector<TimedAngles> seen_;
  DelayEstimator delay_;
};

/// Whether an axis may be followed with. Pure.
/// @return one sentence when what was found does not fit what is configured; empty: it does
std::string problemOf(const AxisCalibration& found, const AxisParams& configured, const std::string& axis);

}  // namespace gimbal
