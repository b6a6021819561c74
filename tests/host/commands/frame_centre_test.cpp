// Where the picture's middle meets the ground, written beside the video when the camera did not say it.
#include <gtest/gtest.h>

#include <cmath>

#include "commands/stream_outputs.h"

namespace host {
namespace {

constexpr double kMetresPerDegree = 111194.9;  // of latitude, on a sphere of 6371 km

klv::CameraState above(double altitude) {
  klv::CameraState state;
  state.sensorLatitudeDeg = 47.0;
  state.sensorLongitudeDeg = 8.0;
  state.sensorAltitudeM = altitude;
  return state;
}

TEST(FrameCentre, LiesAlongTheLineOfSightAtTheMeasuredDistance) {
  klv::CameraState state = above(500.0);
  state.slantRangeM = 200.0;
  fillFrameCentre(state, 0.0, -30.0);
  ASSERT_TRUE(state.frameCenterLatitudeDeg);
  const double north = (*state.frameCenterLatitudeDeg - 47.0) * kMetresPerDegree;
  EXPECT_NEAR(north, 200.0 * std::cos(M_PI / 6), 1.5);
  EXPECT_NEAR(*state.frameCenterLongitudeDeg, 8.0, 1e-6);
  EXPECT_NEAR(*state.frameCenterElevationM, 400.0, 1e-6);
}

TEST(FrameCentre, APanToTheWestIsWest) {
  klv::CameraState state = above(500.0);
  state.slantRangeM = 200.0;
  fillFrameCentre(state, -90.0, -30.0);
  const double east = (*state.frameCenterLongitudeDeg - 8.0) * kMetresPerDegree * std::cos(47.0 * M_PI / 180);
  EXPECT_NEAR(east, -200.0 * std::cos(M_PI / 6), 1.5);
  EXPECT_NEAR(*state.frameCenterLatitudeDeg, 47.0, 1e-5);
}

TEST(FrameCentre, WithoutADistanceTheHeightOfTheGroundDoes) {
  klv::CameraState state = above(500.0);
  state.frameCenterElevationM = 400.0;
  fillFrameCentre(state, 0.0, -45.0);
  ASSERT_TRUE(state.frameCenterLatitudeDeg);
  EXPECT_NEAR((*state.frameCenterLatitudeDeg - 47.0) * kMetresPerDegree, 100.0, 1.0);
}

TEST(FrameCentre, IsLeftEmptyWhereSomethingIsMissing) {
  klv::CameraState nothing = above(500.0);
  fillFrameCentre(nothing, 0.0, -30.0);
  EXPECT_FALSE(nothing.frameCenterLatitudeDeg) << "how far?";
  nothing.slantRangeM = 200.0;
  fillFrameCentre(nothing, std::nullopt, -30.0);
  EXPECT_FALSE(nothing.frameCenterLatitudeDeg) << "where to?";
  klv::CameraState flat = above(500.0);
  flat.slantRangeM = 5000.0;
  fillFrameCentre(flat, 0.0, 10.0);
  EXPECT_FALSE(flat.frameCenterLatitudeDeg) << "into the sky";
  klv::CameraState placeless;
  placeless.slantRangeM = 200.0;
  fillFrameCentre(placeless, 0.0, -30.0);
  EXPECT_FALSE(placeless.frameCenterLatitudeDeg);
}

TEST(FrameCentre, WhatTheCameraSaidStays) {
  klv::CameraState state = above(500.0);
  state.slantRangeM = 200.0;
  state.frameCenterLatitudeDeg = 1.0;
  state.frameCenterLongitudeDeg = 2.0;
  fillFrameCentre(state, 0.0, -30.0);
  EXPECT_EQ(state.frameCenterLatitudeDeg, 1.0);
  EXPECT_EQ(state.frameCenterLongitudeDeg, 2.0);
  EXPECT_FALSE(state.frameCenterElevationM);
}

}  // namespace
}  // namespace host
