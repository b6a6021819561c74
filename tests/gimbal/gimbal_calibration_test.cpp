// Ten seconds of small motions tell sign, gain and delay of a gimbal, or that it does not do as it is told.
#include "gimbal/calibration.h"

#include <gtest/gtest.h>

#include <cmath>

#include "gimbal_plant.h"

namespace gimbal {
namespace {

CalibrationResult calibrated(Plant& plant) {
  Calibration calibration(0.0);
  double most = 0.0;
  plant.target = [](double) { return PanTilt{1.0, 0.5}; };
  plant.onAngles = [&](double t_s, const PanTilt& angles) { calibration.angles(t_s, angles); };
  plant.onSeen = [&](double t_s, const PanTilt& off) { calibration.seen(t_s, off); };
  plant.rates = [&](double now_s) { return calibration.rates(now_s); };
  plant.watch = [&](double) { most = std::max({most, std::fabs(plant.pan.angle), std::fabs(plant.tilt.angle)}); };
  plant.run(Calibration::kDuration_s + 0.5);
  EXPECT_LT(most, 6.0) << "small motions";
  EXPECT_TRUE(calibration.done(plant.now_s));
  return calibration.result();
}

TEST(GimbalCalibration, FindsSignGainAndDelay) {
  for (const double gain : {1.0, -1.0, 0.8, 1.3}) {
    for (const double delay_s : {0.02, 0.1, 0.25}) {
      Plant plant;
      plant.noise_deg = 0.05;
      plant.pan.gain = gain;
      plant.pan.delay_s = plant.tilt.delay_s = delay_s;
      const CalibrationResult result = calibrated(plant);
      ASSERT_TRUE(result.pan.found && result.tilt.found);
      EXPECT_NEAR(result.pan.gain, gain, 0.05 * std::fabs(gain)) << delay_s;
      EXPECT_NEAR(result.tilt.gain, 1.0, 0.05);
      EXPECT_NEAR(result.pan.delay_s + result.pan.lag_s, delay_s + plant.pan.lag_s, 0.02) << gain;
      EXPECT_NEAR(result.tilt.delay_s + result.tilt.lag_s, delay_s + plant.tilt.lag_s, 0.02) << gain;
      ASSERT_TRUE(result.pan.picture);
      EXPECT_NEAR(*result.pan.picture, -1.0, 0.05);
    }
  }
}

TEST(GimbalCalibration, WhatWasFoundFollows) {
  Plant plant;
  plant.pan.gain = -0.8;
  plant.pan.delay_s = 0.15;
  const CalibrationResult result = calibrated(plant);
  ControllerParams params;
  params.pan.gain = result.pan.gain;
  params.pan.delay_s = result.pan.delay_s;
  params.pan.lag_s = result.pan.lag_s;
  Controller controller(params);
  connect(plant, controller);
  plant.target = [](double) { return PanTilt{15.0, 4.0}; };
  plant.watch = [&](double) { EXPECT_LT(plant.pan.angle, 15.5); };
  plant.run(4.0);
  EXPECT_NEAR(plant.pan.angle, 15.0, 0.2);
}

TEST(GimbalCalibration, FindsTheStalenessOfTheAngles) {
  Plant plant;
  plant.stale_s = 0.1;
  const CalibrationResult result = calibrated(plant);
  ASSERT_TRUE(result.stale_s);
  EXPECT_NEAR(*result.stale_s, 0.1, 0.02);
}

TEST(GimbalCalibration, RefusesAGimbalThatDoesNotFit) {
  const AxisParams configured;
  Plant still;
  still.pan.gain = 0.0;
  EXPECT_NE(problemOf(calibrated(still).pan, configured, "pan"), "");
  Plant reversed;
  reversed.pan.gain = -1.0;
  EXPECT_NE(problemOf(calibrated(reversed).pan, configured, "pan"), "");
  Plant late;
  late.tilt.delay_s = 0.3;
  EXPECT_NE(problemOf(calibrated(late).tilt, configured, "tilt"), "");
  Plant mirrored;
  mirrored.pictureSign = -1.0;
  EXPECT_NE(problemOf(calibrated(mirrored).pan, configured, "pan"), "");
  Plant right;
  const CalibrationResult result = calibrated(right);
  EXPECT_EQ(problemOf(result.pan, configured, "pan"), "");
  EXPECT_EQ(problemOf(result.tilt, configured, "tilt"), "");
}

TEST(GimbalCalibration, RefusesWhenAnotherHandMovesTheGimbal) {
  Plant plant;
  Calibration calibration(0.0);
  plant.onAngles = [&](double t_s, const PanTilt&) { calibration.angles(t_s, {30.0 * std::sin(t_s), 20.0 * t_s}); };
  plant.rates = [&](double now_s) { return calibration.rates(now_s); };
  plant.run(10.5);
  EXPECT_FALSE(calibration.result().pan.found);
  EXPECT_FALSE(calibration.result().tilt.found);
}

TEST(GimbalCalibration, SaysNothingWithoutAngles) {
  Calibration calibration(0.0);
  for (int i = 0; i < 250; ++i) calibration.rates(0.04 * i);
  EXPECT_FALSE(calibration.result().pan.found);
}

}  // namespace
}  // namespace gimbal
