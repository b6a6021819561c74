// The controller on a simulated gimbal: into the middle without swinging through, whatever is late; honest when the
// target is hidden; at rest when something turns the wrong way.
#include "gimbal/controller.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "gimbal_plant.h"

namespace gimbal {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

ControllerParams believing(const Plant& plant) {
  ControllerParams params;
  params.pan.delay_s = params.tilt.delay_s = plant.pan.delay_s;
  params.pan.lag_s = params.tilt.lag_s = plant.pan.lag_s;
  return params;
}

/// The farthest the gimbal goes beyond a standing target, degrees, either axis.
double beyond(Plant& plant, Controller& controller, double seconds) {
  const PanTilt begin = plant.off();
  double most = 0.0;
  plant.watch = [&](double) {
    most = std::max({most, -std::copysign(plant.off().pan, plant.off().pan * begin.pan),
                     -std::copysign(plant.off().tilt, plant.off().tilt * begin.tilt)});
  };
  connect(plant, controller);
  plant.run(seconds);
  return most;
}

TEST(GimbalController, CentresAStandingTargetWithoutSwingingThrough) {
  for (const double video_s : {0.05, 0.1, 0.2, 0.3, 0.5}) {
    Plant plant;
    plant.video_s = video_s;
    plant.target = [](double) { return PanTilt{20.0, -8.0}; };
    Controller controller(believing(plant));
    EXPECT_LT(beyond(plant, controller, 4.0), 0.4) << video_s;
    EXPECT_LT(std::hypot(plant.off().pan, plant.off().tilt), 0.2) << video_s;
    EXPECT_EQ(controller.state(), ControllerState::Following);
  }
}

TEST(GimbalController, CrossesTheTurnOfPanOnTheShortSide) {
  Plant plant;
  plant.pan.angle = 175.0;
  plant.target = [](double) { return PanTilt{190.0, 0.0}; };
  Controller controller(believing(plant));
  EXPECT_LT(beyond(plant, controller, 3.0), 0.3);
  EXPECT_NEAR(plant.pan.angle, 190.0, 0.2);
}

TEST(GimbalController, FollowsASteadyTargetWithoutFallingBehind) {
  Plant plant;
  plant.video_s = 0.3;
  plant.noise_deg = 0.1;
  plant.target = [](double t_s) { return PanTilt{5.0 + 8.0 * t_s, -2.0 * t_s}; };
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(4.0);
  double squares = 0.0;
  long n = 0;
  plant.watch = [&](double) {
    squares += plant.off().pan * plant.off().pan;
    ++n;
  };
  plant.run(4.0);
  EXPECT_LT(std::sqrt(squares / static_cast<double>(n)), 0.2);
}

/// Overshoot in degrees on a step of 20 when the gimbal is not quite what the controller takes it for.
double beyondWithWrongModel(double gain, double late_s) {
  Plant plant;
  plant.video_s = 0.2;
  plant.target = [](double) { return PanTilt{20.0, 0.0}; };
  const ControllerParams params = believing(plant);
  plant.pan.gain = gain;
  plant.pan.delay_s += late_s;
  Controller controller(params);
  const double most = beyond(plant, controller, 4.0);
  EXPECT_LT(std::fabs(plant.off().pan), 0.2) << gain << " " << late_s;
  return most;
}

TEST(GimbalController, OvershootsLittleWithAModelAsExactAsCalibrationMakesIt) {
  for (const double gain : {0.95, 1.05}) {
    for (const double late_s : {-0.02, 0.02}) EXPECT_LT(beyondWithWrongModel(gain, late_s), 1.0) << gain << late_s;
  }
}

TEST(GimbalController, StaysSteadyWithARougherModel) {
  for (const double gain : {0.8, 1.2}) {
    for (const double late_s : {-0.03, 0.04}) EXPECT_LT(beyondWithWrongModel(gain, late_s), 4.0) << gain << late_s;
  }
}

TEST(GimbalController, BrakesInTimeForASlowMotor) {
  Plant plant;
  plant.pan.accel = plant.tilt.accel = 30.0;
  plant.target = [](double) { return PanTilt{40.0, 0.0}; };
  ControllerParams params = believing(plant);
  params.pan.max_accel_dps2 = params.tilt.max_accel_dps2 = 30.0;
  Controller controller(params);
  EXPECT_LT(beyond(plant, controller, 8.0), 0.4);
}

TEST(GimbalController, KeepsWithinTheLimitsOfRateAndAcceleration) {
  Plant plant;
  plant.target = [](double) { return PanTilt{90.0, 0.0}; };
  ControllerParams params = believing(plant);
  params.pan.max_rate_dps = 25.0;
  params.pan.max_accel_dps2 = 100.0;
  Controller controller(params);
  connect(plant, controller);
  double last = 0.0;
  bool any = false;
  plant.rates = [&](double now_s) {
    const PanTilt order = controller.rates(now_s);
    EXPECT_LE(std::fabs(order.pan), 25.0 + 1e-9);
    EXPECT_LE(std::fabs(order.pan - last), 100.0 * 0.0411);
    any = any || order.pan > 24.9;
    last = order.pan;
    return order;
  };
  plant.run(5.0);
  EXPECT_TRUE(any);
}

TEST(GimbalController, DoesNotPushBeyondAStop) {
  Plant plant;
  plant.target = [](double) { return PanTilt{0.0, 40.0}; };
  ControllerParams params = believing(plant);
  params.tilt.max_deg = 25.0;
  Controller controller(params);
  connect(plant, controller);
  plant.run(4.0);
  EXPECT_NEAR(plant.tilt.angle, 25.0, 0.3);
}

TEST(GimbalController, HoldsAndThenSlowsWhenTheTargetIsHidden) {
  Plant plant;
  plant.target = [](double t_s) { return PanTilt{8.0 * t_s, 0.0}; };
  plant.visible = [](double t_s) { return t_s < 4.0; };
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(4.0);
  EXPECT_EQ(controller.state(), ControllerState::Following);
  plant.run(0.5);
  EXPECT_EQ(controller.state(), ControllerState::Holding);
  EXPECT_LT(std::fabs(plant.off().pan), 0.6);  // it goes on as the target went
  plant.run(0.8);
  EXPECT_EQ(controller.state(), ControllerState::Slowing);
  plant.run(5.0);
  EXPECT_EQ(controller.state(), ControllerState::Idle);
  const double rest = plant.pan.angle;
  plant.run(1.0);
  EXPECT_NEAR(plant.pan.angle, rest, 1e-3);
}

TEST(GimbalController, TakesUpATargetThatComesBackElsewhereAsANewOne) {
  Plant plant;
  plant.target = [](double t_s) { return t_s < 3.0 ? PanTilt{8.0 * t_s, 0.0} : PanTilt{-10.0, 0.0}; };
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(7.0);
  EXPECT_NEAR(plant.pan.angle, -10.0, 0.3);
}

TEST(GimbalController, StopsWhenTheGimbalTurnsTheWrongWay) {
  Plant plant;
  plant.pan.gain = -1.0;
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(6.0);
  EXPECT_EQ(controller.state(), ControllerState::Stopped);
  EXPECT_NE(controller.problem().find("pan"), std::string::npos);
  EXPECT_LT(std::fabs(plant.pan.angle), 25.0) << "it did not run away";
  const double rest = plant.pan.angle;
  plant.run(1.0);
  EXPECT_NEAR(plant.pan.angle, rest, 1e-3);
  controller.restart();
  EXPECT_TRUE(controller.problem().empty());
}

TEST(GimbalController, StopsWhenThePictureMovesTheWrongWay) {
  Plant plant;
  plant.pictureSign = -1.0;
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(6.0);
  EXPECT_EQ(controller.state(), ControllerState::Stopped);
  EXPECT_LT(std::fabs(plant.pan.angle), 40.0);
}

TEST(GimbalController, TheGuardLeavesAWildTargetAlone) {
  Plant plant;
  plant.noise_deg = 0.1;
  plant.target = [](double t_s) { return PanTilt{15.0 * std::sin(2.0 * t_s), 6.0 * std::cos(3.0 * t_s)}; };
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(20.0);
  EXPECT_EQ(controller.state(), ControllerState::Following) << controller.problem();
}

TEST(GimbalController, StaleAnglesAreMadeGoodWhenTheirDelayIsKnown) {
  Plant plant;
  plant.stale_s = 0.1;
  plant.target = [](double) { return PanTilt{20.0, 0.0}; };
  ControllerParams params = believing(plant);
  params.stale_s = 0.1;
  Controller controller(params);
  EXPECT_LT(beyond(plant, controller, 4.0), 0.6);
  EXPECT_LT(std::fabs(plant.off().pan), 0.2);
}

TEST(GimbalController, OrdersNothingWithoutATargetOrWithoutAngles) {
  Controller controller{ControllerParams()};
  controller.seen(0.0, {5.0, 5.0});
  EXPECT_EQ(controller.rates(0.1).pan, 0.0);
  controller.angles(0.1, {kNan, 0.0});
  controller.angles(0.2, {0.0, 0.0});
  controller.seen(0.2, {kNan, 0.0});
  EXPECT_EQ(controller.rates(0.3).pan, 0.0);
  EXPECT_EQ(controller.state(), ControllerState::Idle);
}

TEST(GimbalController, ComesToRestWhenNothingArrivesAnyMore) {
  Plant plant;
  plant.target = [](double t_s) { return PanTilt{20.0 * t_s, 0.0}; };
  Controller controller(believing(plant));
  connect(plant, controller);
  plant.run(3.0);
  PanTilt order;
  for (int i = 1; i < 200; ++i) order = controller.rates(3.0 + 0.04 * i);
  EXPECT_EQ(order.pan, 0.0);
  EXPECT_EQ(controller.state(), ControllerState::Idle);
}

}  // namespace
}  // namespace gimbal
