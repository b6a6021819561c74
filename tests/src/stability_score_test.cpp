// How far one answer of the tracker is believed.
#include "stability_score.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/test_algo.h"

namespace {

const cv::Size kFrame(640, 360);
const cv::Rect kBox(300, 160, 40, 40);

double scoreOf(const cv::Rect& newBox, const cv::Size& frame = kFrame, const StabilityConfig& limits = {}) {
  return stabilityScore(kBox, newBox, frame, limits);
}

}  // namespace

TEST(StabilityScore, IsFullForAnUnmovedBoxInsideTheFrame) {
  EXPECT_EQ(scoreOf(kBox), 1.0);
}

TEST(StabilityScore, IsNothingForABoxWithoutArea) {
  EXPECT_EQ(scoreOf({300, 160, 0, 40}), 0.0);
  EXPECT_EQ(scoreOf({300, 160, 40, -1}), 0.0);
  EXPECT_EQ(stabilityScore({0, 0, 40, 0}, kBox, kFrame, {}), 0.0);
}

TEST(StabilityScore, LosesItsMotionTermOverTheLargestMotion) {
  EXPECT_DOUBLE_EQ(scoreOf(kBox + cv::Point(50, 0)), (0.5 + 1.0 + 1.0) / 3.0);
  EXPECT_DOUBLE_EQ(scoreOf(kBox + cv::Point(95, 0)), (1.0 - 0.95 + 2.0) / 3.0);
  EXPECT_DOUBLE_EQ(scoreOf(kBox + cv::Point(60, 80)), 2.0 / 3.0) << "exactly the largest motion";
  EXPECT_DOUBLE_EQ(scoreOf(kBox + cv::Point(200, 0)), 2.0 / 3.0) << "never below nothing";
}

TEST(StabilityScore, MeasuresMotionBetweenCentres) {
  EXPECT_DOUBLE_EQ(scoreOf({290, 150, 60, 60}), 1.0) << "grown around its centre: 2.25 times the area";
  EXPECT_DOUBLE_EQ(scoreOf({300, 160, 41, 40}), (1.0 - 0.5 / 100.0 + 2.0) / 3.0);
}

TEST(StabilityScore, PassesBothBoundsOfScaleInclusively) {
  StabilityConfig limits;
  limits.min_scale_ratio = 0.25;
  limits.max_scale_ratio = 4.0;
  EXPECT_DOUBLE_EQ(scoreOf({310, 170, 20, 20}, kFrame, limits), 1.0);
  EXPECT_DOUBLE_EQ(scoreOf({280, 140, 80, 80}, kFrame, limits), 1.0);
  EXPECT_LT(scoreOf({310, 170, 20, 19}, kFrame, limits), 2.0 / 3.0);
  EXPECT_LT(scoreOf({280, 140, 80, 81}, kFrame, limits), 2.0 / 3.0);
}

TEST(StabilityScore, CountsTheVisiblePartOfTheNewBox) {
  StabilityConfig limits;
  limits.max_motion = 1.0;
  EXPECT_DOUBLE_EQ(scoreOf({620, 160, 40, 40}, kFrame, limits), (0.0 + 1.0 + 0.5) / 3.0);
  EXPECT_DOUBLE_EQ(scoreOf({700, 160, 40, 40}, kFrame, limits), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(scoreOf(kBox, {0, 360}, limits), 2.0 / 3.0) << "nothing is visible without a frame";
}

TEST(StabilityScore, SurvivesBoxesWhoseAreaLeavesTheRangeOfInt) {
  const cv::Rect huge(0, 0, 100000, 100000);
  EXPECT_DOUBLE_EQ(stabilityScore(huge, huge, {100000, 100000}, {}), 1.0);
  constexpr int kMax = std::numeric_limits<int>::max();
  EXPECT_DOUBLE_EQ(scoreOf({kMax, kMax, kMax, kMax}), 0.0);
}

TEST(StabilityScore, OfTheObjectUsesItsLimits) {
  TestAlgo algo;
  EXPECT_DOUBLE_EQ(algo.computeStabilityScore_(kBox, kBox + cv::Point(50, 0), kFrame), 2.5 / 3.0);
  algo.config_.stability.max_motion = 200.0;
  EXPECT_DOUBLE_EQ(algo.computeStabilityScore_(kBox, kBox + cv::Point(50, 0), kFrame), 2.75 / 3.0);
}
