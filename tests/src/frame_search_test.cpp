// Whether a find in a whole frame can be believed, and where it is looked for: arithmetic and pictures, no tracker.
#include "frame_search.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "support/textures.h"

namespace {

const SearchLimits kLimits;               // threshold 0.8, areas 0.3 to 2.5
const cv::Rect kThere(100, 100, 40, 30);  // diagonal 50, so finds are plausible up to 150 pixels away

SearchVerdict judged(const cv::Rect& find, double score, double likeness) {
  return judgeFind(find, score, likeness, referenceAt(kThere), kLimits);
}

TEST(SearchReference, ReachesThreeDiagonalsAndAtLeast80Pixels) {
  EXPECT_DOUBLE_EQ(referenceAt(kThere).maxDist, 150.0);
  EXPECT_DOUBLE_EQ(referenceAt({0, 0, 4, 3}).maxDist, 80.0);
  EXPECT_DOUBLE_EQ(referenceAt({0, 0, 0, 30}).maxDist, 0.0);
}

TEST(SearchVerdict, TheThresholdItselfIsNotEnoughFarAway) {
  const cv::Rect find(180, 100, 40, 30);
  EXPECT_FALSE(judged(find, 0.8, 0.9).accepted);
  EXPECT_TRUE(judged(find, 0.8001, 0.9).accepted);
}

TEST(SearchVerdict, NearTheReferenceSevenTenthsOfTheThresholdWillDo) {
  const cv::Rect near(130, 100, 40, 30);  // 30 pixels; near ends at 37.5
  EXPECT_TRUE(judged(near, 0.57, 0.9).near);
  EXPECT_TRUE(judged(near, 0.57, 0.9).accepted);
  const double enough = judged(near, 0.0, 0.9).nearScore;
  EXPECT_DOUBLE_EQ(enough, 0.56);
  EXPECT_FALSE(judged(near, enough, 0.9).accepted) << "seven tenths themselves are not enough";
  EXPECT_FALSE(judged({138, 100, 40, 30}, 0.57, 0.9).near);
}

TEST(SearchVerdict, AFindTooFarOffFailsBySizeWhateverItsScore) {
  EXPECT_TRUE(judged({250, 100, 40, 30}, 0.99, 0.9).accepted) << "150 pixels";
  const SearchVerdict far = judged({251, 100, 40, 30}, 0.99, 0.9);
  EXPECT_FALSE(far.scaleOK);
  EXPECT_FALSE(far.accepted);
}

TEST(SearchVerdict, SizesOutsideTheLimitsFail) {
  EXPECT_TRUE(judged({100, 100, 100, 30}, 0.99, 0.9).scaleOK) << "2.5 times the area";
  EXPECT_FALSE(judged({100, 100, 101, 30}, 0.99, 0.9).scaleOK);
  EXPECT_TRUE(judged({100, 100, 12, 30}, 0.99, 0.9).scaleOK) << "0.3 times the area";
  EXPECT_FALSE(judged({100, 100, 11, 30}, 0.99, 0.9).scaleOK);
}

TEST(SearchVerdict, WhatLiesWhereTheTargetWasNeedNotLookLikeIt) {
  const SearchVerdict same = judged(kThere, 0.99, 0.0);
  EXPECT_TRUE(same.geomStrong);
  EXPECT_TRUE(same.accepted);
  const SearchVerdict aside = judged({110, 100, 40, 30}, 0.99, 0.0);  // overlap 0.6
  EXPECT_FALSE(aside.geomStrong);
  EXPECT_FALSE(aside.looksRight);
  EXPECT_FALSE(aside.accepted);
  EXPECT_TRUE(judged({110, 100, 40, 30}, 0.99, 0.6).looksRight) << "0.6 itself is like enough";
}

TEST(SearchVerdict, WithoutAReferenceOnlyTheScoreAndTheLikenessCount) {
  const auto judgedAlone = [](double score, double likeness) {
    return judgeFind({900, 900, 500, 5}, score, likeness, referenceAt({}), kLimits);
  };
  EXPECT_TRUE(judgedAlone(0.81, 0.6).accepted);
  EXPECT_FALSE(judgedAlone(0.8, 0.6).accepted);
  EXPECT_FALSE(judgedAlone(0.81, 0.59).accepted);
  EXPECT_EQ(judgedAlone(0.81, 0.6).areaRatio, 1.0);
  EXPECT_FALSE(judgedAlone(0.81, 0.6).near);
}

class FrameSearchTest : public testing::Test {
 protected:
  void SetUp() override {
    cv::Mat noise;
    cv::cvtColor(textured::target({320, 240}), noise, cv::COLOR_BGR2GRAY);
    frame_.upload(noise);
    patch_.upload(noise(kTarget).clone());
  }

  static inline const cv::Rect kTarget{200, 120, 48, 40};
  GpuImage frame_;
  GpuImage patch_;
  SearchMemory memory_;
};

TEST_F(FrameSearchTest, FindsThePatchWhereItWasCutFrom) {
  const std::vector<double> scales = {1.0};
  const std::vector<SearchPatch> patches = {{&patch_, &scales, "orig"}};
  FrameSearch search(frame_, patches, kLimits, memory_);
  ASSERT_TRUE(search.tryShrinkFrame());
  ASSERT_TRUE(search.searchCoarse());
  EXPECT_STREQ(search.source(), "orig");
  EXPECT_EQ(search.counts().matchCalls, 1);
  const NearMatch find = search.searchFine();
  EXPECT_EQ(find.box, kTarget);
  EXPECT_GT(find.score, 0.99);
}

TEST_F(FrameSearchTest, APatchThatFitsNowhereIsCountedAndNotFound) {
  const std::vector<double> scales = {10.0, 20.0};
  GpuImage tiny;
  tiny.upload(cv::Mat::zeros(4, 40, CV_8UC1));
  const std::vector<SearchPatch> patches = {{&tiny, &scales, "orig"}, {&patch_, &scales, "dyn"}};
  FrameSearch search(frame_, patches, kLimits, memory_);
  ASSERT_TRUE(search.tryShrinkFrame());
  EXPECT_FALSE(search.searchCoarse());
  EXPECT_EQ(search.counts().smallPatches, 1);
  EXPECT_EQ(search.counts().scalesTested, 2);
  EXPECT_EQ(search.counts().scalesSkippedSize, 2);
  EXPECT_EQ(search.counts().matchCalls, 0);
}

TEST_F(FrameSearchTest, AFrameThatWouldShrinkToNothingIsNotSearched) {
  GpuImage narrow;
  narrow.upload(cv::Mat::zeros(16, 200, CV_8UC1));  // 4 rows after shrinking
  const std::vector<SearchPatch> patches;
  FrameSearch search(narrow, patches, kLimits, memory_);
  EXPECT_FALSE(search.tryShrinkFrame());
}

TEST_F(FrameSearchTest, ARegionThatHoldsNoWholeTemplateSaysSo) {
  const NearMatch match = findNear(frame_, patch_, {330, 130}, {48, 40}, 20, memory_);
  EXPECT_TRUE(match.tooSmall);
  EXPECT_EQ(match.score, -1.0);
  EXPECT_TRUE(match.box.empty());
  EXPECT_FALSE(findNear(frame_, patch_, {9000, 130}, {48, 40}, 20, memory_).tooSmall) << "outside: nothing to say";
}

TEST_F(FrameSearchTest, LikenessIsOneAtThePlaceAndUnknownWithoutPixels) {
  EXPECT_GT(likenessAt(frame_, patch_, kTarget), 0.99);
  EXPECT_LT(likenessAt(frame_, patch_, {20, 20, 48, 40}), kMinLikeness);
  EXPECT_EQ(likenessAt(frame_, patch_, {20, 20, 7, 40}), 0.0);
  EXPECT_EQ(likenessAt(frame_, GpuImage(), kTarget), 0.0);
}

}  // namespace
