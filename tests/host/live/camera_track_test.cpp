// What the camera was when a frame was taken: between samples, past their ends, and from packets to angles.
#include "live/camera_track.h"

#include <gtest/gtest.h>

#include <cmath>

namespace live {
namespace {

CameraTrack turning() {
  CameraTrack track;
  track.add(10.0, {{"pan_deg", 170.0}, {"hfov_deg", 60.0}});
  track.add(10.2, {{"pan_deg", -170.0}, {"hfov_deg", 50.0}});
  return track;
}

TEST(CameraTrackAt, InterpolatesAndTakesTheShorterWayRound) {
  const CameraTrack track = turning();
  EXPECT_NEAR(track.at(10.05).at("pan_deg"), 175.0, 1e-9);
  EXPECT_NEAR(track.at(10.15).at("pan_deg"), -175.0, 1e-9);
  EXPECT_NEAR(track.at(10.1).at("hfov_deg"), 55.0, 1e-9);
  EXPECT_NEAR(track.at(10.2).at("pan_deg"), -170.0, 1e-9);
}

TEST(CameraTrackAt, ExtrapolatesATenthOfASecondAndNoMore) {
  const CameraTrack track = turning();
  EXPECT_NEAR(track.at(10.25).at("pan_deg"), -165.0, 1e-9);
  EXPECT_NEAR(track.at(9.95).at("pan_deg"), 165.0, 1e-9);
  EXPECT_FALSE(track.at(10.2999).empty());
  EXPECT_TRUE(track.at(10.301).empty());
  EXPECT_TRUE(track.at(9.899).empty());
}

TEST(CameraTrackAt, SaysNothingInsideALongGap) {
  CameraTrack track;
  track.add(1.0, {{"pan_deg", 1.0}});
  track.add(3.0, {{"pan_deg", 3.0}});
  EXPECT_TRUE(track.at(2.0).empty());
  EXPECT_NEAR(track.at(1.05).at("pan_deg"), 1.0, 1e-9) << "the nearer one holds as long as an extrapolation would";
  EXPECT_NEAR(track.at(2.95).at("pan_deg"), 3.0, 1e-9);
  EXPECT_TRUE(track.at(1.2).empty());
}

TEST(CameraTrackAt, KeysThatOnlyOneSampleHasAreMissing) {
  CameraTrack track;
  track.add(1.0, {{"pan_deg", 1.0}, {"tilt_deg", 2.0}});
  track.add(1.1, {{"pan_deg", 2.0}});
  EXPECT_EQ(track.at(1.05).count("tilt_deg"), 0U);
  EXPECT_EQ(track.at(1.05).count("pan_deg"), 1U);
}

TEST(CameraTrackAt, NothingKnownIsEmptyAndOneSampleHolds) {
  CameraTrack track;
  EXPECT_TRUE(track.at(1.0).empty());
  track.add(1.0, {{"pan_deg", 4.0}});
  EXPECT_NEAR(track.at(1.09).at("pan_deg"), 4.0, 1e-9);
  EXPECT_TRUE(track.at(1.2).empty());
  EXPECT_TRUE(track.at(std::nan("")).empty());
}

TEST(CameraTrackAt, ATimeThatGoesBackBeginsAnew) {
  CameraTrack track = turning();
  track.add(10.1, {{"pan_deg", 0.0}});
  EXPECT_EQ(track.size(), 2U) << "a small step back is dropped";
  track.add(1.0, {{"pan_deg", 7.0}});
  EXPECT_EQ(track.size(), 1U);
  EXPECT_NEAR(track.at(1.0).at("pan_deg"), 7.0, 1e-9);
}

TEST(CameraTrackAt, KeepsABoundedPast) {
  CameraTrack track;
  for (int i = 0; i < 5000; ++i) track.add(i * 0.01, {{"pan_deg", 0.0}});
  EXPECT_EQ(track.size(), CameraTrack::kKept);
}

TEST(LineOfSightOf, APlatformThatIsLevelAddsItsHeading) {
  const LineOfSight sight = lineOfSight(90, 0, 0, 30, -20, 0);
  EXPECT_NEAR(sight.panDeg, 120.0, 1e-9);
  EXPECT_NEAR(sight.tiltDeg, -20.0, 1e-9);
  EXPECT_NEAR(sight.rollDeg, 0.0, 1e-9);
}

TEST(LineOfSightOf, PitchTiltsAheadAndRollsToTheSide) {
  EXPECT_NEAR(lineOfSight(0, 10, 0, 0, -30, 0).tiltDeg, -20.0, 1e-9);
  const LineOfSight aside = lineOfSight(0, 10, 0, 90, 0, 0);
  EXPECT_NEAR(aside.tiltDeg, 0.0, 1e-9);
  EXPECT_NEAR(aside.rollDeg, 10.0, 1e-9) << "nose up, looking right: the camera's right is the low tail";
  EXPECT_NEAR(lineOfSight(0, 0, 10, 90, 0, 0).tiltDeg, -10.0, 1e-9) << "right wing down, looking right: down";
  EXPECT_NEAR(lineOfSight(0, 0, 10, 270, 0, 0).tiltDeg, 10.0, 1e-9);
  EXPECT_NEAR(lineOfSight(350, 0, 0, 20, 0, 0).panDeg, 10.0, 1e-9);
}

TEST(CameraValuesReaderOf, APacketWithoutThePlatformHasNoAnglesOnceThereWasOne) {
  klv::CameraState state;
  state.sensorAzimuthDeg = 30.0;
  state.sensorElevationDeg = 0.0;
  CameraValuesReader reader;
  EXPECT_NEAR(reader.valuesOf(state).at("pan_deg"), 30.0, 1e-9);
  klv::CameraState whole = state;
  whole.platformHeadingDeg = 90.0;
  whole.platformPitchDeg = 0.0;
  whole.platformRollDeg = 0.0;
  EXPECT_NEAR(reader.valuesOf(whole).at("pan_deg"), 120.0, 1e-9);
  EXPECT_EQ(reader.valuesOf(state).count("pan_deg"), 0U) << "30 would mean something else now";
}

}  // namespace
}  // namespace live
