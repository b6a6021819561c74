// The delay between frames and the gimbal's angles is found while following, and not claimed where it cannot be known.
#include <gtest/gtest.h>

#include <cmath>

#include "gimbal/delay_estimator.h"
#include "gimbal/delay_watch.h"
#include "gimbal_plant.h"

namespace gimbal {
namespace {

/// Follows with a controller that knows the delay already, so that only the estimator is tried.
std::optional<double> estimated(Plant& plant, double seconds) {
  ControllerParams params;
  params.stale_s = plant.stale_s;
  Controller controller(params);
  DelayEstimator estimator;
  connect(plant, controller);
  plant.onAngles = [&](double t_s, const PanTilt& angles) {
    controller.angles(t_s, angles);
    estimator.angles(t_s, angles);
  };
  plant.onSeen = [&](double t_s, const PanTilt& off) {
    controller.seen(t_s, off);
    estimator.seen(t_s, off);
  };
  plant.run(seconds);
  return estimator.stale_s();
}

TEST(GimbalDelay, IsFoundWithinTwentyMillisecondsOnAStep) {
  for (const double stale_s : {-0.04, 0.0, 0.04, 0.1, 0.2, 0.28}) {
    Plant plant;
    plant.stale_s = stale_s;
    plant.target = [](double) { return PanTilt{20.0, -5.0}; };
    const std::optional<double> found = estimated(plant, 4.0);
    ASSERT_TRUE(found) << stale_s;
    EXPECT_NEAR(*found, stale_s, 0.02);
  }
}

TEST(GimbalDelay, IsFoundWithNoisyEncoders) {
  for (const double stale_s : {0.0, 0.1, 0.25}) {
    Plant plant;
    plant.stale_s = stale_s;
    plant.noise_deg = 0.1;
    plant.target = [](double) { return PanTilt{20.0, 0.0}; };
    const std::optional<double> found = estimated(plant, 3.0);
    ASSERT_TRUE(found) << stale_s;
    EXPECT_NEAR(*found, stale_s, 0.02);
  }
}

TEST(GimbalDelay, IsFoundOnATargetThatDrivesOn) {
  for (const double stale_s : {0.04, 0.2}) {
    Plant plant;
    plant.stale_s = stale_s;
    plant.target = [](double t_s) { return PanTilt{20.0 + 8.0 * t_s, 0.0}; };
    const std::optional<double> found = estimated(plant, 4.0);
    ASSERT_TRUE(found);
    EXPECT_NEAR(*found, stale_s, 0.02);
  }
}

TEST(GimbalDelay, IsNotClaimedWronglyWhereTheTargetItselfBendsItsWay) {
  Plant plant;
  plant.stale_s = 0.1;
  plant.target = [](double t_s) { return PanTilt{8.0 * std::fabs(std::fmod(t_s, 6.0) - 3.0), 0.0}; };
  const std::optional<double> found = estimated(plant, 30.0);
  if (found) {
    EXPECT_NEAR(*found, 0.1, 0.04);
  }
}

TEST(GimbalDelay, IsNotClaimedForAGimbalAtRest) {
  Plant plant;
  plant.target = [](double) { return PanTilt{0.0, 0.0}; };
  EXPECT_FALSE(estimated(plant, 6.0));
}

TEST(GimbalDelay, IsNotClaimedForAnEvenMotion) {
  DelayEstimator estimator;
  for (int i = 0; i < 300; ++i) {
    const double t_s = 0.04 * i;
    estimator.angles(t_s, {wrapped(30.0 * t_s), 0.0});
    estimator.seen(t_s, {0.0, 0.0});
  }
  EXPECT_FALSE(estimator.stale_s());
}

TEST(GimbalDelay, StartsAnewOnAnotherTargetWithoutMeasuringAcross) {
  DelayEstimator estimator;
  for (int i = 0; i < 300; ++i) {
    const double t_s = 0.04 * i;
    if (i % 20 == 0) estimator.newTarget();
    estimator.angles(t_s, {0.0, 0.0});
    estimator.seen(t_s, {i % 40 < 20 ? 10.0 : -10.0, 0.0});
  }
  EXPECT_FALSE(estimator.stale_s());
}

TEST(GimbalDelay, IsSaidOnceItIsFoundTwice) {
  Plant plant;
  plant.stale_s = 0.12;
  plant.target = [](double) { return PanTilt{20.0, -5.0}; };
  ControllerParams params;
  params.stale_s = plant.stale_s;
  Controller controller(params);
  DelayWatch watch;
  connect(plant, controller);
  int news = 0;
  double last_s = 0.0;
  plant.onAngles = [&](double t_s, const PanTilt& angles) {
    controller.angles(t_s, angles);
    watch.angles(t_s, angles);
    if (const auto found = watch.news(t_s)) {
      ++news;
      last_s = *found;
    }
  };
  plant.onSeen = [&](double t_s, const PanTilt& off) {
    controller.seen(t_s, off);
    watch.seen(t_s, off);
  };
  EXPECT_EQ(watch.sentence(), "");
  plant.run(4.0);
  EXPECT_EQ(news, 1);
  EXPECT_NEAR(last_s, 0.12, 0.02);
  EXPECT_EQ(watch.applied_s(), last_s);
  EXPECT_EQ(watch.sentence().find("the camera's angles are 1"), 0u) << watch.sentence();
  EXPECT_NE(watch.sentence().find(" ms behind the picture"), std::string::npos);
}

}  // namespace
}  // namespace gimbal
