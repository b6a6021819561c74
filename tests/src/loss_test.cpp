// Losing a target: counters, giving up, and the box predicted in between.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/test_algo.h"

namespace {

using Lines = std::vector<std::string>;

class Loss : public ::testing::Test {
 protected:
  void SetUp() override {
    algo.follow({300, 160, 40, 20}, {200, 100, 240, 140});
    algo.config_.predict.damping = 0.5;
  }

  /// The boxes that one predicted frame reports.
  std::vector<DetectionResult::Det> predict(int w = 640, int h = 360) {
    DetectionResult result;
    algo.fillPredictedResult_Locked_(result, *picture, w, h);
    return result.dets;
  }

  TestAlgo algo;
  std::shared_ptr<TestPicture> picture = plainPicture({640, 360});
};

}  // namespace

TEST_F(Loss, CountsALostFrameTwiceOver) {
  algo.lostFrames_ = 4;
  algo.lostSinceRedetect_ = 2;
  algo.lostFrame_Locked_();
  EXPECT_EQ(algo.lostFrames_, 5);
  EXPECT_EQ(algo.lostSinceRedetect_, 3);
  EXPECT_TRUE(algo.initialized_);
}

TEST_F(Loss, CountsAFailedSearchAndSaysSo) {
  algo.enableDebug(true);
  algo.config_.redetect.max_redetect_attempts = 3;
  const Lines lines = logOf([&] { algo.onRedetectFail_Locked_(); });
  EXPECT_EQ(lines, Lines{"reDetect FAILED => attempt 1 / 3"});
  EXPECT_EQ(algo.redetectAttempts_, 1);
  EXPECT_TRUE(algo.initialized_);
}

TEST_F(Loss, GivesUpAtTheLastAttemptWithoutCallingItFailed) {
  algo.enableDebug(true);
  algo.config_.redetect.max_redetect_attempts = 1;
  const Lines lines = logOf([&] { algo.onRedetectFail_Locked_(); });
  EXPECT_EQ(lines, Lines{"Object declared fully lost => reset."});
  EXPECT_FALSE(algo.initialized_);
  EXPECT_EQ(algo.redetectAttempts_, 0);
}

TEST_F(Loss, EndsInThePlainStateBeforeAnyStart) {
  algo.forceFullyLost_Locked_();
  EXPECT_FALSE(algo.fullyLost_);
  EXPECT_FALSE(algo.initialized_);
}

TEST_F(Loss, ForgetsEverythingOfTheTrackInAReset) {
  algo.fullyLost_ = algo.dynPatchValid_ = algo.smoothedValid_ = algo.prepositionWaiting_ = algo.justReseeded_ = true;
  algo.prepositionTargetValid_ = algo.prepositionRefGeomValid_ = algo.zoomRefValid_ = true;
  algo.prepositionTargetPan_ = algo.prepositionRefHfov_ = algo.zoomRefHfov_ = 7.0;
  algo.alignmentHits_ = algo.oscillationCount_ = algo.lostFrames_ = algo.redetectAttempts_ = 3;
  algo.lostSinceRedetect_ = algo.redetectAge_ = 3;
  algo.velocity_ = {1.0F, 2.0F};
  algo.lastScore_ = 0.2;
  algo.initCrop_ = cv::Mat(4, 4, CV_8UC3);
  algo.smoothedBox_ = {1, 2, 3, 4};
  algo.frameSize_ = {640, 360};
  for (GpuImage* image : {&algo.fullGrayGpu_, &algo.origPatchGpu_, &algo.dynPatchGpu_}) {
    image->upload(cv::Mat(4, 4, CV_8UC1, cv::Scalar(9)));
  }
  algo.health_.update({0, 0, 4, 4}, {640, 360});
  algo.now += 5.0;
  ASSERT_TRUE(algo.health_.update({0, 0, 4, 4}, {640, 360}));

  algo.resetInternal_Locked_();
  EXPECT_EQ(algo.tracker_, nullptr);
  EXPECT_FALSE(algo.initialized_ || algo.fullyLost_ || algo.dynPatchValid_ || algo.smoothedValid_);
  EXPECT_FALSE(algo.prepositionWaiting_ || algo.trackingStarted_ || algo.justReseeded_);
  EXPECT_FALSE(algo.prepositionTargetValid_ || algo.prepositionRefGeomValid_ || algo.zoomRefValid_);
  EXPECT_EQ(algo.prepositionTargetPan_ + algo.prepositionRefHfov_ + algo.zoomRefHfov_, 0.0);
  EXPECT_EQ(algo.alignmentHits_, 0);
  EXPECT_EQ(algo.oscillationCount_ + algo.lostFrames_ + algo.redetectAttempts_ + algo.lostSinceRedetect_, 0);
  EXPECT_EQ(algo.redetectAge_, -1);
  for (const cv::Rect& box :
       {algo.trackBox_, algo.predictedBox_, algo.procRoi_, algo.initBoxInCrop_, algo.smoothedBox_}) {
    EXPECT_EQ(box, cv::Rect());
  }
  EXPECT_EQ(algo.velocity_, cv::Point2f());
  EXPECT_EQ(algo.lastScore_, 1.0);
  EXPECT_TRUE(algo.initCrop_.empty());
  EXPECT_TRUE(algo.fullGrayGpu_.empty() && algo.origPatchGpu_.empty() && algo.dynPatchGpu_.empty());
  EXPECT_EQ(algo.frameSize_, cv::Size());
  EXPECT_FALSE(algo.health_.update({300, 160, 40, 20}, {640, 360}));
}

TEST_F(Loss, KeepsInputSizeRequestsConfigurationAndIdentityInAReset) {
  algo.pending_full_reset_ = algo.pending_rebuild_ = true;
  algo.config_.roi.min_size = 77;
  const std::string uuid = algo.getUuid();
  algo.enableDebug(true);
  outputOf([&] { algo.resetInternal_Locked_(); });
  EXPECT_EQ(algo.csrtInputSize_, cv::Size(240, 140));
  EXPECT_TRUE(algo.pending_full_reset_ && algo.pending_rebuild_ && algo.debug_);
  EXPECT_EQ(algo.config_.roi.min_size, 77);
  EXPECT_EQ(algo.getUuid(), uuid);
}

// -------------------------------------------------------------------------------------------------- prediction

TEST_F(Loss, PredictsNothingBeforeAStart) {
  algo.initialized_ = false;
  algo.velocity_ = {4.0F, 4.0F};
  EXPECT_TRUE(predict().empty());
  EXPECT_EQ(algo.velocity_, cv::Point2f(4.0F, 4.0F));
  EXPECT_EQ(algo.predictedBox_, cv::Rect(300, 160, 40, 20));
}

TEST_F(Loss, MovesUndampedAndStoresTheDampedSpeed) {
  algo.velocity_ = {2.6F, -0.4F};
  const auto dets = predict();
  ASSERT_EQ(dets.size(), 1U);
  EXPECT_EQ(cv::Rect(dets[0].x, dets[0].y, dets[0].w, dets[0].h), cv::Rect(303, 160, 40, 20));
  EXPECT_EQ(algo.velocity_, cv::Point2f(1.3F, -0.2F));
  EXPECT_EQ(algo.predictedBox_, cv::Rect(303, 160, 40, 20));
  EXPECT_EQ(algo.trackBox_, cv::Rect(300, 160, 40, 20)) << "only the prediction moves";
}

TEST_F(Loss, RoundsTheStepHalfAwayFromZero) {
  algo.velocity_ = {2.5F, -2.5F};
  predict();
  EXPECT_EQ(algo.predictedBox_.tl(), cv::Point(303, 157));
}

TEST_F(Loss, StopsAfterOneStepAtDampingZeroAndNeverAtOne) {
  algo.velocity_ = {8.0F, 0.0F};
  algo.config_.predict.damping = 0.0;
  predict();
  predict();
  EXPECT_EQ(algo.predictedBox_.x, 308);
  algo.velocity_ = {8.0F, 0.0F};
  algo.config_.predict.damping = 1.0;
  predict();
  predict();
  EXPECT_EQ(algo.predictedBox_.x, 324);
}

TEST_F(Loss, ReportsTheLatestScoreAndNoClass) {
  algo.lastScore_ = 0.25;
  const auto dets = predict();
  ASSERT_EQ(dets.size(), 1U);
  EXPECT_EQ(dets[0].score, 0.25F);
  EXPECT_EQ(dets[0].class_id, -1);
  EXPECT_EQ(dets[0].tracker_id, 0);
  EXPECT_EQ(dets[0].class_name + dets[0].class_info, "");
}

TEST_F(Loss, ShrinksABoxThatDriftsOutAndThenDropsIt) {
  algo.config_.predict.damping = 1.0;
  algo.predictedBox_ = {590, 160, 40, 20};
  algo.velocity_ = {30.0F, 0.0F};
  ASSERT_EQ(predict().size(), 1U);
  EXPECT_EQ(algo.predictedBox_, cv::Rect(620, 160, 20, 20)) << "the clipped box is the next start";
  EXPECT_TRUE(predict().empty());
  EXPECT_EQ(algo.predictedBox_, cv::Rect());
  algo.velocity_ = {-30.0F, 0.0F};
  EXPECT_TRUE(predict().empty()) << "a dropped box does not come back";
}

TEST_F(Loss, PredictsNothingWithoutABoxOrAFrame) {
  algo.predictedBox_ = {300, 160, 40, 0};
  EXPECT_TRUE(predict().empty());
  EXPECT_EQ(algo.predictedBox_, cv::Rect());
  algo.predictedBox_ = {300, 160, 40, 20};
  EXPECT_TRUE(predict(0, 360).empty());
  EXPECT_EQ(algo.predictedBox_, cv::Rect());
}

TEST_F(Loss, ReportsInThePixelsOfThePicture) {
  picture->size = cv::Size(1280, 720);
  const auto dets = predict(640, 360);
  ASSERT_EQ(dets.size(), 1U);
  EXPECT_EQ(cv::Rect(dets[0].x, dets[0].y, dets[0].w, dets[0].h), cv::Rect(600, 320, 80, 40));
  EXPECT_EQ(algo.predictedBox_, cv::Rect(300, 160, 40, 20));
}

TEST_F(Loss, SmoothsAPredictedBoxLikeATrackedOne) {
  algo.config_.predict.bbox_smooth_enable = true;
  algo.smoothedBox_ = {300, 160, 40, 20};
  algo.smoothedValid_ = true;
  algo.velocity_ = {8.0F, 0.0F};
  const auto dets = predict();
  ASSERT_EQ(dets.size(), 1U);
  EXPECT_EQ(dets[0].x, 304);
  EXPECT_EQ(algo.predictedBox_.x, 308);
}

TEST_F(Loss, SurvivesASpeedBeyondTheRangeOfInt) {
  algo.velocity_ = {3e9F, -3e9F};
  EXPECT_TRUE(predict().empty());
  EXPECT_EQ(algo.predictedBox_, cv::Rect());
}
