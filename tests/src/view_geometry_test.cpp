// Where the camera looks, and where a target must appear in its picture.
#include "view_geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/test_algo.h"

namespace {

using Keys = Metadata::Keys;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Reading {
  bool valid = false;
  double pan = -1.0;
  double tilt = -1.0;
  double hfov = -1.0;
  double vfov = -1.0;
};

Reading read(const Metadata& metadata) {
  Reading r;
  r.valid = TestAlgo::tryReadViewGeometry_(metadata, r.pan, r.tilt, r.hfov, r.vfov);
  return r;
}

}  // namespace

TEST(ViewGeometry, IsReadFromFourNumbers) {
  const Reading r = read(viewOf(12.5, -3.0, 60.0, 34.0));
  EXPECT_TRUE(r.valid);
  EXPECT_EQ(r.pan, 12.5);
  EXPECT_EQ(r.tilt, -3.0);
  EXPECT_EQ(r.hfov, 60.0);
  EXPECT_EQ(r.vfov, 34.0);
}

TEST(ViewGeometry, WrapsPanButNotTilt) {
  EXPECT_EQ(read(viewOf(190.0, 200.0, 60.0, 34.0)).pan, -170.0);
  EXPECT_EQ(read(viewOf(190.0, 200.0, 60.0, 34.0)).tilt, 200.0);
  EXPECT_EQ(read(viewOf(180.0, 0.0, 60.0, 34.0)).pan, -180.0);
  EXPECT_EQ(read(viewOf(-180.0, 0.0, 60.0, 34.0)).pan, -180.0);
  EXPECT_EQ(read(viewOf(-190.0, 0.0, 60.0, 34.0)).pan, 170.0);
  EXPECT_EQ(read(viewOf(725.0, 0.0, 60.0, 34.0)).pan, 5.0);
}

TEST(ViewGeometry, NeedsEveryKeyAsAFiniteDouble) {
  for (const std::string& key : {Keys::kPanDeg, Keys::kTiltDeg, Keys::kHfovDeg, Keys::kVfovDeg}) {
    Metadata missing = viewOf(1.0, 2.0, 60.0, 34.0);
    missing.erase(key);
    EXPECT_FALSE(read(missing).valid) << key << " missing";
    const std::vector<ocula::OculaPicture::MetadataValue> unfit{
        60, 60UL, std::string("60"), std::vector<float>{60.0F}, std::nan(""), kInfinity};
    for (const auto& value : unfit) {
      Metadata ill = viewOf(1.0, 2.0, 60.0, 34.0);
      ill[key] = value;
      EXPECT_FALSE(read(ill).valid) << key << " alternative " << value.index();
    }
  }
}

TEST(ViewGeometry, NeedsFieldsOfViewAboveAMillionth) {
  EXPECT_FALSE(read(viewOf(0.0, 0.0, 1e-6, 34.0)).valid);
  EXPECT_FALSE(read(viewOf(0.0, 0.0, 60.0, 1e-6)).valid);
  EXPECT_FALSE(read(viewOf(0.0, 0.0, -60.0, 34.0)).valid);
  EXPECT_TRUE(read(viewOf(0.0, 0.0, 1.1e-6, 1.1e-6)).valid);
}

TEST(ViewGeometry, KeepsWhatItReadBeforeTheFirstMiss) {
  const Reading r = read({{Keys::kPanDeg, 12.5}, {Keys::kTiltDeg, 3.0}});
  EXPECT_EQ(r.tilt, 3.0);
  EXPECT_EQ(r.hfov, -1.0);
}

// ------------------------------------------------------------------------------------------------------ target

TEST(PrepositionTarget, IsTheCurrentViewForACentredBox) {
  double pan = 0.0;
  double tilt = 0.0;
  ASSERT_TRUE(
      TestAlgo::tryBuildPrepositionTarget_(viewOf(10.0, 5.0, 60.0, 40.0), {300, 170, 40, 20}, 640, 360, pan, tilt));
  EXPECT_EQ(pan, 10.0);
  EXPECT_EQ(tilt, 5.0);
}

TEST(PrepositionTarget, GrowsWithXAndFallsWithY) {
  double pan = 0.0;
  double tilt = 0.0;
  ASSERT_TRUE(
      TestAlgo::tryBuildPrepositionTarget_(viewOf(10.0, 5.0, 64.0, 32.0), {460, 260, 40, 20}, 640, 360, pan, tilt));
  EXPECT_EQ(pan, 10.0 + 0.25 * 64.0);
  EXPECT_EQ(tilt, 5.0 - 0.25 * 32.0);
}

TEST(PrepositionTarget, IsNotWrappedAgain) {
  double pan = 0.0;
  double tilt = 0.0;
  ASSERT_TRUE(
      TestAlgo::tryBuildPrepositionTarget_(viewOf(179.0, 0.0, 64.0, 32.0), {460, 170, 40, 20}, 640, 360, pan, tilt));
  EXPECT_EQ(pan, 195.0);
}

TEST(PrepositionTarget, NeedsFrameBoxAndGeometry) {
  double pan = 0.0;
  double tilt = 0.0;
  const Metadata view = viewOf(10.0, 5.0, 60.0, 40.0);
  EXPECT_FALSE(TestAlgo::tryBuildPrepositionTarget_(view, {1, 1, 4, 4}, 0, 360, pan, tilt));
  EXPECT_FALSE(TestAlgo::tryBuildPrepositionTarget_(view, {1, 1, 4, 4}, 640, 0, pan, tilt));
  EXPECT_FALSE(TestAlgo::tryBuildPrepositionTarget_(view, {1, 1, 0, 4}, 640, 360, pan, tilt));
  EXPECT_FALSE(TestAlgo::tryBuildPrepositionTarget_(view, {1, 1, 4, 0}, 640, 360, pan, tilt));
  EXPECT_FALSE(TestAlgo::tryBuildPrepositionTarget_({}, {1, 1, 4, 4}, 640, 360, pan, tilt));
}

// ------------------------------------------------------------------------------------------------- expected box

namespace {

class ExpectedBox : public ::testing::Test {
 protected:
  void SetUp() override {
    algo.prepositionTargetValid_ = algo.prepositionRefGeomValid_ = true;
    algo.initBox_ = {10, 10, 40, 20};
    algo.prepositionTargetPan_ = 20.0;
    algo.prepositionTargetTilt_ = 5.0;
    algo.prepositionRefHfov_ = 64.0;
    algo.prepositionRefVfov_ = 32.0;
  }

  bool expect(const Metadata& metadata) {
    BBox out;
    const bool valid = algo.tryBuildExpectedBBoxLocked_(metadata, 640, 360, out, dx, dy, hfov, vfov);
    box = {out.x, out.y, out.width, out.height};
    return valid;
  }

  TestAlgo algo;
  cv::Rect box;
  double dx = 9.0;
  double dy = 9.0;
  double hfov = 9.0;
  double vfov = 9.0;
};

}  // namespace

TEST_F(ExpectedBox, LiesCentredWhereTheCameraPointsAtTheTarget) {
  ASSERT_TRUE(expect(viewOf(20.0, 5.0, 64.0, 32.0)));
  EXPECT_EQ(box, cv::Rect(300, 170, 40, 20));
  EXPECT_EQ(dx, 0.0);
  EXPECT_EQ(dy, 0.0);
  EXPECT_EQ(hfov, 64.0);
  EXPECT_EQ(vfov, 32.0);
}

TEST_F(ExpectedBox, LiesRightOfTheCentreForATargetFurtherRightAndBelowForOneFurtherDown) {
  ASSERT_TRUE(expect(viewOf(4.0, 13.0, 64.0, 32.0)));
  EXPECT_EQ(dx, 0.25);
  EXPECT_EQ(dy, 0.25);
  EXPECT_EQ(box, cv::Rect(460, 260, 40, 20));
}

TEST_F(ExpectedBox, TakesTheShortWayRoundTheCircle) {
  algo.prepositionTargetPan_ = 178.0;
  ASSERT_TRUE(expect(viewOf(-178.0, 5.0, 64.0, 32.0)));
  EXPECT_EQ(dx, -4.0 / 64.0);
}

TEST_F(ExpectedBox, GrowsAsTheFieldOfViewNarrows) {
  ASSERT_TRUE(expect(viewOf(20.0, 5.0, 32.0, 16.0)));
  EXPECT_EQ(box, cv::Rect(280, 160, 80, 40));
}

TEST_F(ExpectedBox, IsHeldBetweenTheScaleLimitsPerAxisAndSaysSo) {
  algo.enableDebug(true);
  const auto lines = logOf([&] { expect(viewOf(20.0, 5.0, 16.0, 320.0)); });
  EXPECT_EQ(box, cv::Rect(270, 177, 100, 6)) << "2.5 and 0.3 times the reference";
  EXPECT_EQ(lines, std::vector<std::string>{"CSRT preposition expected bbox clamped: raw=(160.00,2.00) "
                                            "clamped=(100.00,6.00) ref=(40,20) scale_limits=[0.300,2.500]"});
}

TEST_F(ExpectedBox, SaysNothingWithoutAClamp) {
  algo.enableDebug(true);
  EXPECT_TRUE(logOf([&] { expect(viewOf(20.0, 5.0, 32.0, 16.0)); }).empty());
}

TEST_F(ExpectedBox, MovesInsideTheFrameKeepingItsSize) {
  ASSERT_TRUE(expect(viewOf(-20.0, 30.0, 64.0, 32.0)));
  EXPECT_EQ(box, cv::Rect(600, 340, 40, 20));
  EXPECT_EQ(dx, 40.0 / 64.0) << "the offset is not clamped";
}

TEST_F(ExpectedBox, NeedsTargetReferenceSizeFrameAndGeometry) {
  const Metadata view = viewOf(20.0, 5.0, 64.0, 32.0);
  BBox out;
  EXPECT_FALSE(algo.tryBuildExpectedBBoxLocked_(view, 0, 360, out, dx, dy, hfov, vfov));
  EXPECT_FALSE(algo.tryBuildExpectedBBoxLocked_(view, 640, -1, out, dx, dy, hfov, vfov));
  EXPECT_FALSE(expect({}));
  algo.prepositionTargetValid_ = false;
  EXPECT_FALSE(expect(view));
  algo.prepositionTargetValid_ = true;
  algo.prepositionRefGeomValid_ = false;
  EXPECT_FALSE(expect(view));
  algo.prepositionRefGeomValid_ = true;
  algo.initBox_.height = 0;
  EXPECT_FALSE(expect(view));
}

TEST(ClampSide, HasLowestLimitsOfItsOwn) {
  StabilityConfig limits;
  limits.min_scale_ratio = 0.001;
  limits.max_scale_ratio = 0.001;
  EXPECT_DOUBLE_EQ(clampSideToReference(5.0, 1000.0, limits), 10.0) << "never below a hundredth, and max follows min";
  EXPECT_EQ(clampSideToReference(0.5, 0.0, limits), 1.0) << "no reference: at least a pixel";
  EXPECT_EQ(clampSideToReference(7.0, 0.5, limits), 7.0);
}

// -------------------------------------------------------------------------------------------------------- zoom

TEST(ZoomScale, IsAboveOneZoomingIn) {
  double x = 0.0;
  double y = 0.0;
  ASSERT_TRUE(TestAlgo::tryComputeZoomScaleFactors_(60.0, 34.0, 30.0, 68.0, x, y));
  EXPECT_EQ(x, 2.0);
  EXPECT_EQ(y, 0.5);
}

TEST(ZoomScale, NeedsUsableFieldsOfViewAndFactors) {
  double x = 0.0;
  double y = 0.0;
  for (const double bad : {0.0, -1.0, 1e-6, kInfinity, std::nan("")}) {
    EXPECT_FALSE(TestAlgo::tryComputeZoomScaleFactors_(bad, 1.0, 1.0, 1.0, x, y)) << bad;
    EXPECT_FALSE(TestAlgo::tryComputeZoomScaleFactors_(1.0, bad, 1.0, 1.0, x, y)) << bad;
    EXPECT_FALSE(TestAlgo::tryComputeZoomScaleFactors_(1.0, 1.0, bad, 1.0, x, y)) << bad;
    EXPECT_FALSE(TestAlgo::tryComputeZoomScaleFactors_(1.0, 1.0, 1.0, bad, x, y)) << bad;
  }
  EXPECT_FALSE(TestAlgo::tryComputeZoomScaleFactors_(1.0, 1.0, 1e6, 1.0, x, y)) << "a factor of a millionth";
  EXPECT_FALSE(TestAlgo::tryComputeZoomScaleFactors_(1e308, 1.0, 1e-5, 1.0, x, y)) << "an infinite factor";
}
