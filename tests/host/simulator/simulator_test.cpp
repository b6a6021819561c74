// The simulated camera's parts, each for itself: no plug-in, no files.
#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "simulator/actors.h"
#include "simulator/angles.h"
#include "simulator/camera.h"
#include "simulator/camera_follower.h"
#include "simulator/drawing.h"
#include "simulator/gimbal.h"
#include "simulator/panorama.h"
#include "simulator/reported_metadata.h"
#include "simulator/simulated_camera.h"
#include "simulator/simulation_summary.h"

namespace host::sim {
namespace {

const cv::Size kFrame(640, 360);
const View kAhead{{0, 0}, 60, 33.75};

TEST(SimulatorAngles, PanGrowsToTheRightAndTiltUpwards) {
  EXPECT_EQ(pixelOf({0, 0}, kAhead, kFrame), cv::Point2d(320, 180));
  EXPECT_EQ(pixelOf({15, 0}, kAhead, kFrame), cv::Point2d(480, 180));
  EXPECT_EQ(pixelOf({0, 33.75 / 4}, kAhead, kFrame), cv::Point2d(320, 90));
  const Angles back = directionOf({480, 90}, kAhead, kFrame);
  EXPECT_DOUBLE_EQ(back.pan, 15);
  EXPECT_DOUBLE_EQ(back.tilt, 33.75 / 4);
}

TEST(SimulatorAngles, TakesTheShortWayAroundTheBack) {
  EXPECT_DOUBLE_EQ(wrapped(180), -180);
  EXPECT_DOUBLE_EQ(wrapped(-181), 179);
  EXPECT_DOUBLE_EQ(between({179, 0}, {-179, 3}).pan, 2);
  EXPECT_NEAR(pixelOf({-179, 0}, {{179, 0}, 60, 33.75}, kFrame).x, 320 + 2 * 640.0 / 60, 1e-9);
}

TEST(SimulatorAngles, BoxGrowsAsTheFieldOfViewNarrows) {
  EXPECT_EQ(boxOf({0, 0}, {6, 3}, kAhead, kFrame), cv::Rect2d(288, 164, 64, 32));
  EXPECT_EQ(boxOf({0, 0}, {6, 3}, View{{0, 0}, 20, 11.25}, kFrame), cv::Rect2d(224, 132, 192, 96));
}

TEST(SimulatorAngles, OverlapIsIntersectionOverUnion) {
  EXPECT_DOUBLE_EQ(overlap({0, 0, 10, 10}, {5, 0, 10, 10}), 50.0 / 150.0);
  EXPECT_EQ(overlap({0, 0, 10, 10}, {10, 0, 10, 10}), 0.0);
  EXPECT_EQ(overlap({}, {}), 0.0);
}

TEST(SimulatorActors, MoveEvenlyBetweenPlacesAndStandBeforeAndAfter) {
  Actor actor;
  actor.path = {{1, {170, 0}}, {3, {190, -4}}};
  EXPECT_DOUBLE_EQ(placeOf(actor, 0).pan, 170);
  EXPECT_DOUBLE_EQ(placeOf(actor, 2).pan, 180);
  EXPECT_DOUBLE_EQ(placeOf(actor, 2).tilt, -2);
  EXPECT_DOUBLE_EQ(placeOf(actor, 9).pan, 190);
}

TEST(SimulatorActors, AreThereFromTheFirstTimeUpToTheLast) {
  Actor actor;
  actor.from_s = 1;
  actor.until_s = 2;
  EXPECT_FALSE(isThere(actor, 0.999));
  EXPECT_TRUE(isThere(actor, 1));
  EXPECT_FALSE(isThere(actor, 2));
}

TEST(SimulatorActors, VisibleShareCountsTheFrameAndWhatCovers) {
  EXPECT_DOUBLE_EQ(visibleShare({100, 100, 40, 40}, {}, kFrame), 1.0);
  EXPECT_NEAR(visibleShare({-20, 100, 40, 40}, {}, kFrame), 0.5, 0.03);
  EXPECT_NEAR(visibleShare({100, 100, 40, 40}, {{100, 100, 10, 40}, {100, 100, 10, 40}}, kFrame), 0.75, 0.03);
  EXPECT_EQ(visibleShare({100, 100, 40, 40}, {{0, 0, 640, 360}}, kFrame), 0.0);
}

/// The largest rate and change of rate of an axis on its way.
struct Ride {
  double rate = 0, accel = 0, overshoot = 0, seconds = 0;
};

Ride ride(Axis& axis, double goal, double seconds) {
  constexpr double kStep = 0.001;
  Ride result;
  axis.goTo(goal);
  double before = axis.rate();
  const double begin = axis.position();
  for (double t = 0; t < seconds; t += kStep) {
    axis.step(kStep);
    result.rate = std::max(result.rate, std::fabs(axis.rate()));
    result.accel = std::max(result.accel, std::fabs(axis.rate() - before) / kStep);
    result.overshoot = std::max(result.overshoot, goal > begin ? axis.position() - goal : goal - axis.position());
    if (std::fabs(axis.position() - goal) > 0.1) result.seconds = t;
    before = axis.rate();
  }
  return result;
}

TEST(SimulatorGimbal, ReachesItsGoalWithinItsLimits) {
  Axis axis({60, 240, 0.05, -180, 180}, false, 0);
  const Ride result = ride(axis, 90, 6);
  EXPECT_NEAR(axis.position(), 90, 0.01);
  EXPECT_LE(result.rate, 60 + 1e-9);
  EXPECT_GT(result.rate, 55);
  EXPECT_LE(result.accel, 240 + 1e-6);
  EXPECT_LT(result.overshoot, 0.5);
  EXPECT_GT(result.seconds, 90.0 / 60);
}

TEST(SimulatorGimbal, TurnsTheShortWayAndStopsAtItsStops) {
  Axis pan({60, 240, 0, -180, 180}, true, 170);
  pan.goTo(-170);
  for (int i = 0; i < 300; ++i) pan.step(0.001);
  EXPECT_TRUE(pan.position() > 170 || pan.position() < -170) << pan.position();
  Axis tilt({60, 240, 0, -30, 30}, false, 0);
  tilt.turn(50);
  for (int i = 0; i < 3000; ++i) tilt.step(0.001);
  EXPECT_EQ(tilt.position(), 30);
}

TEST(SimulatorGimbal, OrdersArriveAfterTheirDelay) {
  Gimbal gimbal({}, {60, 240, 0.05, -90, 90}, 0.1, {0, 0});
  gimbal.order({true, {10, -5}});
  gimbal.advance(0.09);
  EXPECT_EQ(gimbal.position().pan, 0);
  gimbal.advance(4);
  EXPECT_NEAR(gimbal.position().pan, 10, 0.01);
  EXPECT_NEAR(gimbal.position().tilt, -5, 0.01);
}

TEST(SimulatorCamera, ZoomsAtOnceOrByTheSameFactorInTheSameTime) {
  const std::vector<ZoomOrder> plan = {{ZoomStart::Beginning, 1, 15, 2}, {ZoomStart::Following, 0.5, 40, 0}};
  EXPECT_EQ(hfovAt(60, plan, 0.9, -1), 60);
  EXPECT_NEAR(hfovAt(60, plan, 2, -1), 30, 1e-9);
  EXPECT_NEAR(hfovAt(60, plan, 9, -1), 15, 1e-9) << "following has not begun";
  EXPECT_NEAR(hfovAt(60, plan, 4.4, 4), 15, 1e-9);
  EXPECT_NEAR(hfovAt(60, plan, 4.5, 4), 40, 1e-9);
}

TEST(SimulatorCamera, ShakesWithinItsDeflectionAndOnlyOnceTheWindBlows) {
  const ShakeParams shake{0.2, 0.1, 1.5, 1.0};
  double most = 0;
  EXPECT_EQ(shakeAt(shake, 0.99).pan, 0);
  for (double t = 1; t < 9; t += 0.01) {
    EXPECT_LE(std::fabs(shakeAt(shake, t).pan), 0.2);
    EXPECT_LE(std::fabs(shakeAt(shake, t).tilt), 0.1);
    most = std::max(most, std::fabs(shakeAt(shake, t).pan));
  }
  EXPECT_GT(most, 0.1);
}

TEST(SimulatorFollower, TurnsTowardsTheBoxAndKeepsUpItsMotionForAWhile) {
  CameraFollower follower({2.0, 1.0, 40, 0.5});
  const Angles rate = follower.rateFor(cv::Rect2d(470, 260, 20, 20), 60, 33.75, kFrame, 0.04);
  EXPECT_NEAR(rate.pan, 15 * (2.0 + 0.04), 1e-9);
  EXPECT_LT(rate.tilt, 0) << "below the middle: downwards";
  double coasting = follower.rateFor(std::nullopt, 60, 33.75, kFrame, 0.04).pan;
  EXPECT_GT(coasting, 0.5);
  for (int i = 0; i < 100; ++i) coasting = follower.rateFor(std::nullopt, 60, 33.75, kFrame, 0.04).pan;
  EXPECT_LT(coasting, 0.01);
}

TEST(SimulatorFollower, NeverOrdersMoreThanItsLimit) {
  CameraFollower follower({50, 50, 10, 0.5});
  const Angles rate = follower.rateFor(cv::Rect2d(0, 0, 2, 2), 60, 33.75, kFrame, 0.04);
  EXPECT_EQ(rate.pan, -10);
  EXPECT_EQ(rate.tilt, 10);
}

TEST(SimulatorMetadata, ComesInTheTypesThePluginReads) {
  cv::RNG rng(1);
  const auto metadata = reportedMetadata({{190, -5}, 60, 33.75}, true, 0, {}, rng);
  EXPECT_EQ(std::get<double>(metadata.at("pan_deg")), -170);
  EXPECT_EQ(std::get<double>(metadata.at("tilt_deg")), -5);
  EXPECT_EQ(std::get<double>(metadata.at("hfov_deg")), 60);
  EXPECT_EQ(std::get<double>(metadata.at("vfov_deg")), 33.75);
  EXPECT_EQ(std::get<int>(metadata.at("tarvex.follow_me_enabled_command")), 1);
}

TEST(SimulatorMetadata, GoesWrongForAWhileInTheWayAskedFor) {
  using Kind = MetadataFault::Kind;
  MetadataParams params;
  params.faults = {{Kind::Missing, 1, 2, {}},
                   {Kind::Text, 3, 4, {"pan_deg"}},
                   {Kind::WholeInt, 3, 4, {"hfov_deg"}},
                   {Kind::NotFinite, 3, 4, {"tilt_deg"}}};
  cv::RNG rng(1);
  const View view{{10.5, -5}, 59.7, 33.6};
  EXPECT_EQ(reportedMetadata(view, true, 1, params, rng).size(), 1U) << "only the follow-me command is left";
  EXPECT_EQ(reportedMetadata(view, true, 2, params, rng).size(), 5U);
  const auto wrong = reportedMetadata(view, true, 3.5, params, rng);
  EXPECT_EQ(std::get<std::string>(wrong.at("pan_deg")), "10.500");
  EXPECT_EQ(std::get<int>(wrong.at("hfov_deg")), 60);
  EXPECT_TRUE(std::isnan(std::get<double>(wrong.at("tilt_deg"))));
  EXPECT_EQ(std::get<double>(wrong.at("vfov_deg")), 33.6);
}

TEST(SimulatorScene, ShowsTheSameThingWhereTheMappingSaysItIs) {
  const Panorama panorama({"", 40, 8}, 5);
  const cv::Mat ahead = panorama.see({{0, 0}, 40, 22.5}, {320, 180});
  const cv::Mat turned = panorama.see({{10, 2.5}, 40, 22.5}, {320, 180});  // 80 px to the right, 20 px up
  const cv::Rect inAhead(100, 20, 200, 120);
  const cv::Rect inTurned(20, 40, 200, 120);
  EXPECT_LE(cv::norm(ahead(inAhead), turned(inTurned), cv::NORM_INF), 2);
  EXPECT_GT(cv::norm(ahead(inAhead), turned(inAhead), cv::NORM_INF), 40) << "a scene without anything to see";
}

TEST(SimulatorScene, HasNoSeamAtTheBack) {
  const Panorama panorama({"", 40, 8}, 5);
  const cv::Mat right = panorama.see({{175, 0}, 40, 22.5}, {320, 180});  // -160 to -165 on the far side
  const cv::Mat left = panorama.see({{-175, 0}, 40, 22.5}, {320, 180});
  EXPECT_LE(cv::norm(right(cv::Rect(100, 0, 200, 180)), left(cv::Rect(20, 0, 200, 180)), cv::NORM_INF), 2);
}

TEST(SimulatorScene, PaintsASpriteIntoItsBoxAndNowhereElse) {
  const Sprite car = makeSprite("car", 2.0, 0, 1);
  cv::Mat picture(60, 80, CV_8UC3, cv::Scalar::all(128));
  paint(picture, car, {20.5, 10.25, 30, 15});
  cv::Mat changed;
  cv::inRange(picture, cv::Scalar::all(128), cv::Scalar::all(128), changed);
  changed = 255 - changed;
  const cv::Rect where = cv::boundingRect(changed);
  EXPECT_EQ(where & cv::Rect(20, 10, 31, 16), where);
  EXPECT_GT(cv::countNonZero(changed), 200);
  paint(picture, car, {-500, -500, 30, 15});
  paint(picture, car, {70, 50, 300, 150});  // cut at the frame, no crash
}

SimulatedFrame frameOf(long index, TrackState state, std::optional<cv::Rect> box, double visibleShare) {
  SimulatedFrame frame;
  frame.record.frame = index;
  frame.record.time_s = 0.1 * static_cast<double>(index);
  frame.record.isInit = index == 0;
  frame.record.started = true;
  frame.record.state = state;
  frame.record.box = box;
  frame.record.framesSinceSeen = state == TrackState::Tracked ? 0 : 1;
  frame.truth.there = visibleShare > 0;
  frame.truth.visibleShare = visibleShare;
  frame.truth.box = {100, 100, 40, 20};
  frame.truth.pointingErrorDeg = static_cast<double>(index);
  return frame;
}

TEST(SimulationSummary, CountsArmingErrorsLossAndFalseBoxes) {
  Scenario scenario;
  scenario.fps = 10;
  SimulationSummary summary;
  summary.begin(scenario);
  const cv::Rect right(100, 100, 40, 20);
  const cv::Rect wrong(300, 100, 40, 20);
  summary.frame(frameOf(0, TrackState::Waiting, std::nullopt, 1));
  summary.frame(frameOf(1, TrackState::Waiting, std::nullopt, 1));
  summary.frame(frameOf(2, TrackState::Reseeded, std::nullopt, 1));  // armed here, no box: lost for a frame
  summary.frame(frameOf(3, TrackState::Tracked, right, 1));
  summary.frame(frameOf(4, TrackState::Tracked, wrong, 1));    // lost and false
  summary.frame(frameOf(5, TrackState::Tracked, right, 0));    // false: it is hidden
  summary.frame(frameOf(6, TrackState::Predicted, right, 1));  // lost, not false
  summary.frame(frameOf(7, TrackState::Tracked, right, 0.3));  // neither: partly hidden
  const SimulationTotals totals = summary.totals();
  EXPECT_EQ(totals.armedFrame, 2);
  EXPECT_DOUBLE_EQ(totals.secondsToArm, 0.2);
  EXPECT_DOUBLE_EQ(totals.armedErrorDeg, 2);
  EXPECT_DOUBLE_EQ(totals.firstIou.value(), 1);
  EXPECT_DOUBLE_EQ(totals.secondsLost, 0.3);
  EXPECT_EQ(totals.falseBoxes, 2);
  EXPECT_EQ(totals.framesVisible, 4);
  EXPECT_DOUBLE_EQ(totals.meanIou, 0.5);
  EXPECT_DOUBLE_EQ(totals.followingErrorDeg.max, 6);
}

TEST(SimulationSummary, JudgesOnlyWhatIsExpected) {
  SimulationTotals totals;
  totals.armedFrame = 30;
  totals.falseBoxes = 2;
  totals.finalState = TrackState::Tracked;
  EXPECT_TRUE(judge(totals, {}).empty());
  Expectations expect;
  expect.armed_within_frames = 30;
  expect.false_boxes_max = 1;
  expect.first_iou_min = 0.5;  // there was no box at all
  expect.final_state = {"predicted", "tracked"};
  const std::vector<Check> checks = judge(totals, expect);
  ASSERT_EQ(checks.size(), 4U);
  EXPECT_TRUE(checks[0].met);
  EXPECT_FALSE(checks[1].met);
  EXPECT_EQ(checks[1].found, "nothing");
  EXPECT_FALSE(checks[2].met);
  EXPECT_EQ(checks[2].name, "false_boxes_max");
  EXPECT_TRUE(checks[3].met);
}

TEST(SimulationSummary, NeverArmedMeetsNoExpectationOfArming) {
  Expectations expect;
  expect.armed = true;
  expect.armed_within_frames = 1000;
  expect.pointing_error_p95_deg_max = 1000;
  for (const Check& check : judge({}, expect)) EXPECT_FALSE(check.met) << check.name;
}

TEST(SimulatorOperator, GoesAfterWhatIsSeenAndAFindOnTrialButNotAPrediction) {
  const Scenario scenario;
  const auto panRate = [&scenario](TrackState state, long unseen) {
    Operator hand(scenario);
    CallRecord record;
    record.state = state;
    record.framesSinceSeen = unseen;
    record.box = cv::Rect(scenario.frame.width - 80, scenario.frame.height / 2 - 20, 40, 40);
    GimbalOrder order;
    for (int i = 1; i <= 10; ++i) {
      record.time_s = i / scenario.fps;
      order = hand.orderAfter(record, {}, 60.0, record.time_s);
    }
    return order.value.pan;
  };
  EXPECT_GT(panRate(TrackState::Tracked, 0), 1.0);
  EXPECT_EQ(panRate(TrackState::Reacquired, 5), panRate(TrackState::Tracked, 0));
  EXPECT_EQ(panRate(TrackState::Predicted, 5), 0.0);
}

}  // namespace
}  // namespace host::sim
