// Where on the ground the camera looks, against closed forms, and how often the truth lies in the stated ellipse.
#include "gimbal/geolocation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace gimbal {
namespace {

constexpr double kRad = 3.14159265358979323846 / 180.0;

Platform at(double height) {
  Platform platform;
  platform.lat_deg = 47.0;
  platform.lon_deg = 8.0;
  platform.alt_m = 400.0 + height;
  platform.ground_m = 400.0;
  return platform;
}

TEST(Geolocation, ClosedForms) {
  const struct {
    double height, azimuth, elevation, north, east;
  } cases[] = {{100, 0, -45, 100.0, 0.0},
               {100, 90, -45, 0.0, 100.0},
               {100, 180, -30, -173.205, 0.0},
               {250, 225, -60, -102.062, -102.062},
               {80, 0, -90, 0.0, 0.0}};
  for (const auto& c : cases) {
    const auto point = groundPoint(at(c.height), {c.azimuth, c.elevation});
    ASSERT_TRUE(point);
    EXPECT_NEAR(point->north_m, c.north, 0.1);
    EXPECT_NEAR(point->east_m, c.east, 0.1);
    EXPECT_NEAR(point->distance_m, c.height / std::sin(-c.elevation * kRad), 0.1);
    EXPECT_EQ(point->alt_m, 400.0);
  }
}

TEST(Geolocation, DegreesOnTheEarth) {
  Platform platform = at(1000);
  const auto north = groundPoint(platform, {0, -45});
  ASSERT_TRUE(north);
  EXPECT_NEAR((north->lat_deg - 47.0) * 111170.0, 1000.0, 1.0);  // a degree of latitude at 47 degrees: 111.17 km
  const auto east = groundPoint(platform, {90, -45});
  ASSERT_TRUE(east);
  EXPECT_NEAR((east->lon_deg - 8.0) * 76056.0, 1000.0, 1.0);  // of longitude: 76.06 km
  platform.lon_deg = 179.999;
  EXPECT_LT(groundPoint(platform, {90, -45})->lon_deg, -179.9);
}

TEST(Geolocation, IsUnknownAboveTheHorizonAndNearIt) {
  EXPECT_FALSE(groundPoint(at(100), {0, 10}));
  EXPECT_FALSE(groundPoint(at(100), {0, 0}));
  EXPECT_FALSE(groundPoint(at(100), {0, -1.4}));  // three standard deviations are 1.5 degrees
  EXPECT_TRUE(groundPoint(at(100), {0, -1.6}));
  EXPECT_FALSE(groundPoint(at(0), {0, -45}));
  EXPECT_FALSE(groundPoint(at(-5), {0, -45}));
  EXPECT_FALSE(groundPoint(at(100), {std::numeric_limits<double>::quiet_NaN(), -45}));
}

TEST(Geolocation, TheVehiclesAttitudeTurnsTheDirection) {
  Platform platform = at(100);
  platform.yaw_deg = 30;
  EarthDirection direction = earthDirection(platform, {60, -20});
  EXPECT_NEAR(direction.azimuth_deg, 90, 1e-9);
  EXPECT_NEAR(direction.elevation_deg, -20, 1e-9);
  platform.yaw_deg = 0;
  platform.pitch_deg = 10;  // nose up
  direction = earthDirection(platform, {0, 0});
  EXPECT_NEAR(direction.elevation_deg, 10, 1e-9);
  platform.pitch_deg = 0;
  platform.roll_deg = 15;  // right wing down
  direction = earthDirection(platform, {90, 0});
  EXPECT_NEAR(direction.azimuth_deg, 90, 1e-9);
  EXPECT_NEAR(direction.elevation_deg, -15, 1e-9);
  direction = earthDirection(at(1), {0, -90});
  EXPECT_NEAR(direction.elevation_deg, -90, 1e-6);
}

/// How often the ground point of the true direction lies in the ellipse around what was stated.
double shareInside(const Platform& truth, const EarthDirection& direction) {
  std::mt19937 rng(3);
  std::normal_distribution<double> normal;
  const auto real = groundPoint(truth, direction);
  int inside = 0;
  constexpr int kDraws = 20000;
  for (int i = 0; i < kDraws; ++i) {
    Platform measured = truth;
    const PlatformErrors& e = truth.errors;
    measured.alt_m += e.height_m * normal(rng);
    const double shiftNorth = e.position_m * normal(rng), shiftEast = e.position_m * normal(rng);
    const auto stated = groundPoint(measured, {direction.azimuth_deg + e.azimuth_deg * normal(rng),
                                               direction.elevation_deg + e.elevation_deg * normal(rng)});
    if (!stated) continue;
    const double n = real->north_m - stated->north_m - shiftNorth, o = real->east_m - stated->east_m - shiftEast;
    const double a = stated->error.azimuth_deg * kRad;
    const double along = n * std::cos(a) + o * std::sin(a), across = -n * std::sin(a) + o * std::cos(a);
    inside += std::pow(along / stated->error.major_m, 2) + std::pow(across / stated->error.minor_m, 2) <= 1.0;
  }
  return static_cast<double>(inside) / kDraws;
}

TEST(Geolocation, TheStatedEllipseHoldsNinetyFivePercent) {
  for (const EarthDirection& direction :
       {EarthDirection{20, -60}, EarthDirection{110, -35}, EarthDirection{300, -20}}) {
    const double share = shareInside(at(120), direction);
    EXPECT_GT(share, 0.94) << direction.elevation_deg;
    EXPECT_LT(share, 0.965) << direction.elevation_deg;
  }
}

TEST(Geolocation, TheEllipseLiesAlongTheLineOfSightWhenItIsFlat) {
  const auto point = groundPoint(at(100), {70, -10});
  ASSERT_TRUE(point);
  EXPECT_NEAR(point->error.azimuth_deg, 70, 0.5);
  EXPECT_GT(point->error.major_m, 3 * point->error.minor_m);
}

}  // namespace
}  // namespace gimbal
