// The loop of picture, controller and gimbal alone, with a tracker that is always right: how well a follower brings a
// target into the middle and keeps it there when pictures, angles and orders are late.
#pragma once

#include <cstdint>
#include <vector>

#include "simulator/angles.h"
#include "simulator/gimbal.h"

namespace host::sim {

/// How the target moves in a trial.
enum class TrialTarget {
  Step,  ///< Stands still, 20 degrees beside the middle.
  Ramp   ///< Begins there and drives on with 8 degrees a second.
};

/// Who turns the gimbal.
enum class TrialFollower {
  Proportional,  ///< Follower: proportional and integral, on the box alone.
  Predicting     ///< gimbal::Controller.
};

/// One cell of the table: delays, limits, noise. Times in seconds.
struct LoopTrialParams {
  TrialTarget target = TrialTarget::Step;
  TrialFollower follower = TrialFollower::Predicting;
  AxisLimits axis{60.0, 240.0, 0.05, -180.0, 180.0};  ///< The gimbal itself.
  double video_s = 0.1;                               ///< From a frame's capture until it can be judged.
  double metadata_s = 0.02;                           ///< From an encoder's reading until it arrives.
  double order_s = 0.04;                              ///< From an order until the gimbal hears of it.
  double stale_s = 0.0;                               ///< How much older a reading is than the time it carries.
  double encoder_noise_deg = 0.02;                    ///< Standard deviation of a reading.
  double fps = 25.0;                                  ///< Frames per second.
  double duration_s = 10.0;                           ///< Of the trial.
  double believedGain = 1.0;      ///< What the controller takes the gimbal's gain for; the true one is 1.
  double believedOrder_s = 0.04;  ///< What it takes the orders' delay for.
  double believedStale_s = 0.0;   ///< What it takes the staleness for.
  std::uint64_t seed = 1;         ///< Of the encoder's noise.
};

/// One moment of a trial, for plots.
struct TrialMoment {
  double t_s = 0.0;         ///< Since the trial's beginning.
  double target_deg = 0.0;  ///< Where the target is.
  double gimbal_deg = 0.0;  ///< Where the gimbal points.
};

/// What a trial came to.
struct LoopTrialResult {
  double overshoot = 0.0;            ///< Share of the step by which the gimbal goes beyond a standing target.
  double settled_s = 0.0;            ///< From then on within 2 % of the step.
  double slew_s = 0.0;               ///< What the gimbal itself needs for the way.
  double ramp_rms_deg = 0.0;         ///< Off the target over the second half of the run.
  std::vector<TrialMoment> moments;  ///< Every 10 ms.
};

/// The same parameters give the same result. Pure.
LoopTrialResult runLoopTrial(const LoopTrialParams& params);

}  // namespace host::sim
