// The filter on the reported box.
#include <gtest/gtest.h>

#include "support/test_algo.h"

namespace {

class OutputSmoothing : public ::testing::Test {
 protected:
  void SetUp() override { algo.config_.predict.bbox_smooth_enable = true; }
  cv::Rect smooth(const cv::Rect& box) { return algo.applyOutputSmoothing_(box); }

  TestAlgo algo;
};

const cv::Rect kFirst(100, 100, 40, 40);

}  // namespace

TEST_F(OutputSmoothing, PassesTheFirstBox) {
  EXPECT_EQ(smooth(kFirst), kFirst);
  EXPECT_EQ(algo.smoothedBox_, kFirst);
  EXPECT_TRUE(algo.smoothedValid_);
}

TEST_F(OutputSmoothing, BlendsEveryValueRoundingHalvesAwayFromZero) {
  smooth({-101, 100, 40, 40});
  EXPECT_EQ(smooth({-100, 101, 41, 44}), cv::Rect(-101, 101, 41, 42)) << "-100.5, 100.5, 40.5, 42";
  EXPECT_EQ(algo.smoothedBox_, cv::Rect(-101, 101, 41, 42)) << "the result is the next start";
}

TEST_F(OutputSmoothing, WeighsTheNewBoxByAlpha) {
  algo.config_.predict.bbox_smooth_alpha = 0.25;
  smooth(kFirst);
  EXPECT_EQ(smooth({108, 104, 44, 48}), cv::Rect(102, 101, 41, 42));
}

TEST_F(OutputSmoothing, HoldsStillAtAlphaZero) {
  algo.config_.predict.bbox_smooth_alpha = 0.0;
  smooth(kFirst);
  EXPECT_EQ(smooth({200, 200, 50, 50}), kFirst);
  EXPECT_EQ(smooth({300, 200, 50, 50}), kFirst);
  algo.smoothedValid_ = false;
  EXPECT_EQ(smooth({300, 200, 50, 50}), cv::Rect(300, 200, 50, 50)) << "until the state is cleared";
}

TEST_F(OutputSmoothing, FollowsAtAlphaOne) {
  algo.config_.predict.bbox_smooth_alpha = 1.0;
  smooth(kFirst);
  EXPECT_EQ(smooth({200, 201, 50, 51}), cv::Rect(200, 201, 50, 51));
  EXPECT_EQ(algo.smoothedBox_, cv::Rect(200, 201, 50, 51));
}

TEST_F(OutputSmoothing, StoresTheBoxEvenWhileSwitchedOff) {
  algo.config_.predict.bbox_smooth_enable = false;
  EXPECT_EQ(smooth(kFirst), kFirst);
  EXPECT_EQ(smooth({120, 120, 40, 40}), cv::Rect(120, 120, 40, 40));
  algo.config_.predict.bbox_smooth_enable = true;
  EXPECT_EQ(smooth({140, 120, 40, 40}), cv::Rect(130, 120, 40, 40)) << "blended with the last box while off";
}

TEST_F(OutputSmoothing, ForgetsOnABoxWithoutArea) {
  smooth(kFirst);
  EXPECT_EQ(smooth({5, 6, 0, 10}), cv::Rect(5, 6, 0, 10));
  EXPECT_EQ(algo.smoothedBox_, cv::Rect(5, 6, 0, 10));
  EXPECT_FALSE(algo.smoothedValid_);
  EXPECT_EQ(smooth({140, 120, 40, 40}), cv::Rect(140, 120, 40, 40));
}

TEST_F(OutputSmoothing, StartsAnewFromASmoothedBoxWithoutArea) {
  algo.smoothedValid_ = true;
  algo.smoothedBox_ = {10, 10, 0, 10};
  EXPECT_EQ(smooth(kFirst), kFirst);
}
