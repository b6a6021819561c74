// The figures that the predicting controller is held to, at the corners of the table; bench/gimbal_loop has all of it.
#include "simulator/loop_trial.h"

#include <gtest/gtest.h>

namespace host::sim {
namespace {

LoopTrialParams corner(double video_s, double rate, double noise) {
  LoopTrialParams params;
  params.video_s = video_s;
  params.axis.max_rate_dps = rate;
  params.encoder_noise_deg = noise;
  return params;
}

TEST(LoopTrial, ThePredictingControllerKeepsTheTablesLimits) {
  for (const double video_s : {0.05, 0.3}) {
    for (const double rate : {30.0, 90.0}) {
      for (const double noise : {0.02, 0.1}) {
        LoopTrialParams params = corner(video_s, rate, noise);
        const LoopTrialResult step = runLoopTrial(params);
        EXPECT_LE(step.overshoot, 0.05) << video_s << " " << rate << " " << noise;
        EXPECT_LE(step.settled_s, 1.5 + step.slew_s) << video_s << " " << rate << " " << noise;
        params.target = TrialTarget::Ramp;
        EXPECT_LE(runLoopTrial(params).ramp_rms_deg, 0.2) << video_s << " " << rate << " " << noise;
      }
    }
  }
}

TEST(LoopTrial, ThePlainFollowerSwingsThroughTheMoreTheLaterThePicture) {
  double before = 0.0;
  for (const double video_s : {0.05, 0.1, 0.2, 0.3}) {
    LoopTrialParams params = corner(video_s, 60.0, 0.02);
    params.follower = TrialFollower::Proportional;
    const double overshoot = runLoopTrial(params).overshoot;
    EXPECT_GT(overshoot, before + 0.03) << video_s;
    before = overshoot;
  }
}

TEST(LoopTrial, UnknownStalenessLeavesTheGimbalSwingingAndKnownStalenessDoesNot) {
  LoopTrialParams params = corner(0.1, 60.0, 0.02);
  params.stale_s = 0.15;
  const LoopTrialResult unknown = runLoopTrial(params);
  EXPECT_GT(unknown.overshoot, 0.05);
  EXPECT_GT(unknown.settled_s, 5.0);
  params.believedStale_s = 0.15;
  const LoopTrialResult known = runLoopTrial(params);
  EXPECT_LT(known.overshoot, 0.05);
  EXPECT_LT(known.settled_s, 1.5 + known.slew_s);
}

TEST(LoopTrial, TheSameParametersGiveTheSameResult) {
  const LoopTrialParams params = corner(0.1, 60.0, 0.1);
  EXPECT_EQ(runLoopTrial(params).settled_s, runLoopTrial(params).settled_s);
}

}  // namespace
}  // namespace host::sim
