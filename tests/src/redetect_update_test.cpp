// Re-detection inside update(): when it is tried, what the frame that tried it reports, how failures add up.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/redetect_fixture.h"

namespace {

/// A running track whose tracker answers from a script; the frame shows the target somewhere else.
class RedetectUpdate : public RedetectTest {
 protected:
  RedetectUpdate() : RedetectTest({640, 360}) {
    algo_.config_.redetect.frames_lost_before_reset = 1;
    algo_.config_.roi.hard_resize_ratio = 100.0;  // the window keeps the size that the test gives it
    tracker_ = algo_.follow(scene_.box(kBefore), kWindow);
  }

  // One frame; the log lines stay in log_.
  std::vector<Reported> step(const std::shared_ptr<TestPicture>& picture) {
    std::vector<AlgoOutput> outputs;
    log_ = logOf([&] { outputs = algo_.update({picture}, nullptr); });
    return reportedIn(outputs);
  }
  std::vector<Reported> stepOn(const cv::Mat& bgr) { return step(std::make_shared<TestPicture>(bgr)); }
  std::string said(const std::string& start) const { return lineStarting(log_, start); }
  std::string outcome() const { return SearchLog(log_).outcome; }
  // A step that the score does not believe: far away, nine times the area, half outside the frame.
  void thenJumps() { tracker_->thenFinds({-60, -100, 120, 90}); }

  const cv::Point kBefore{300, 160};
  const cv::Point kNow{340, 170};
  const cv::Rect kWindow{200, 55, 240, 240};
  cv::Ptr<ScriptedTracker> tracker_;
  std::vector<std::string> log_;
};

TEST_F(RedetectUpdate, ALostTargetIsReportedWhereItWasFound) {
  const std::vector<Reported> reported = stepOn(scene_.with(kNow));
  EXPECT_EQ(reported, (std::vector<Reported>{{scene_.box(kNow), 1.0}}));
  EXPECT_EQ(outcome(), "success");
  EXPECT_EQ(said("update(): "), "update(): LOST -> OUT 1 detections (redetect OK)");
  EXPECT_EQ(algo_.lostFrames_, 0);
  EXPECT_EQ(algo_.redetectAge_, 0);
}

TEST_F(RedetectUpdate, TheFoundTargetIsTrackedOnTheNextFrames) {
  stepOn(scene_.with(kNow));
  for (int i = 1; i <= 3; ++i) {
    const std::vector<Reported> reported = stepOn(scene_.with(kNow + cv::Point(2 * i, i)));
    ASSERT_FALSE(reported.empty()) << i;
    EXPECT_GT(overlap(reported.front().box, scene_.box(kNow + cv::Point(2 * i, i))), 0.6) << i;
    EXPECT_EQ(said("update(): "), "update(): OUT 2 detections (track ok)");
  }
}

TEST_F(RedetectUpdate, AFindThatDidNotMoveIsReportedAsAPrediction) {
  const std::vector<Reported> reported = stepOn(scene_.with(kBefore));
  EXPECT_EQ(outcome(), "success");
  EXPECT_EQ(reported, (std::vector<Reported>{{scene_.box(kBefore), 1.0}}));
  EXPECT_EQ(said("update(): "), "update(): LOST -> OUT 1 detections (predict)");
}

TEST_F(RedetectUpdate, AnUnstableFrameIsPredictedEvenAfterAFind) {
  thenJumps();
  const std::vector<Reported> reported = stepOn(scene_.with(kNow));
  EXPECT_EQ(outcome(), "success");
  EXPECT_EQ(said("update(): "), "update(): UNSTABLE (stab=0.17) -> OUT 1 detections (predict)");
  EXPECT_EQ(reported, (std::vector<Reported>{{scene_.box(kNow), 1.0}})) << "the prediction starts from the find";
  EXPECT_EQ(algo_.trackBox_, scene_.box(kNow));
}

TEST_F(RedetectUpdate, AnUnstableFrameCountsAsLost) {
  algo_.config_.redetect.frames_lost_before_reset = 2;
  thenJumps();
  stepOn(scene_.empty());
  EXPECT_EQ(outcome(), "") << "not yet";
  EXPECT_EQ(algo_.lostSinceRedetect_, 1);
  stepOn(scene_.empty());
  EXPECT_NE(outcome(), "");
}

TEST_F(RedetectUpdate, SearchesOnceEveryConfiguredNumberOfLostFrames) {
  algo_.config_.redetect.frames_lost_before_reset = 3;
  std::string searched;
  for (int i = 0; i < 9; ++i) {
    stepOn(scene_.empty());
    searched += outcome().empty() ? '.' : 'S';
  }
  EXPECT_EQ(searched, "..S..S..S");
  EXPECT_EQ(algo_.redetectAttempts_, 3);
  EXPECT_EQ(algo_.lostFrames_, 9);
}

TEST_F(RedetectUpdate, TheCountStartsAgainBeforeTheSearch) {
  algo_.lostSinceRedetect_ = 41;
  stepOn(scene_.with(kNow));
  EXPECT_EQ(outcome(), "success");
  EXPECT_EQ(algo_.lostSinceRedetect_, 0);
  tracker_ = algo_.follow(scene_.box(kBefore), kWindow);
  algo_.lostSinceRedetect_ = 41;
  algo_.redetectAge_ = -1;
  stepOn(scene_.empty());
  EXPECT_EQ(algo_.lostSinceRedetect_, 0) << "after a failure too";
}

TEST_F(RedetectUpdate, SearchesTheFrameOfThisCall) {
  algo_.fullGrayGpu_.upload(greyOf(scene_.with({100, 100})));
  stepOn(scene_.with(kNow));
  EXPECT_EQ(algo_.trackBox_, scene_.box(kNow));
}

TEST_F(RedetectUpdate, AFailedSearchPredicts) {
  algo_.velocity_ = {4.0F, 0.0F};
  const std::vector<Reported> reported = stepOn(scene_.empty());
  EXPECT_EQ(said("update(): "), "update(): LOST -> OUT 1 detections (predict)");
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(reported.front().box, scene_.box(kBefore + cv::Point(4, 0)));
  EXPECT_EQ(said("reDetect FAILED"), "reDetect FAILED => attempt 1 / 10");
}

TEST_F(RedetectUpdate, GivesUpAfterTheLastAllowedFailure) {
  algo_.config_.redetect.max_redetect_attempts = 3;
  for (int i = 1; i <= 2; ++i) {
    EXPECT_EQ(stepOn(scene_.empty()).size(), 1U);
    EXPECT_EQ(said("reDetect FAILED"), "reDetect FAILED => attempt " + std::to_string(i) + " / 3");
  }
  EXPECT_TRUE(stepOn(scene_.empty()).empty());
  EXPECT_EQ(said("Object declared"), "Object declared fully lost => reset.");
  EXPECT_EQ(said("update(): "), "update(): LOST -> OUT 0 detections (predict)");
  EXPECT_TRUE(stepOn(scene_.with(kNow)).empty());
  EXPECT_EQ(said("update(): "), "update(): OUT 0 detections (not init/fullyLost)");
}

TEST_F(RedetectUpdate, ASuccessForgivesTheFailuresBefore) {
  algo_.redetectAttempts_ = 9;
  stepOn(scene_.with(kNow));
  EXPECT_EQ(outcome(), "success");
  EXPECT_EQ(algo_.redetectAttempts_, 0);
}

TEST_F(RedetectUpdate, AFrameWithoutPixelsToSearchEndsTheTrack) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kNow));
  picture->onBgr = [] { return cv::Mat(); };
  EXPECT_TRUE(step(picture).empty());
  EXPECT_EQ(said("Object declared"), "Object declared fully lost => reset.");
  EXPECT_EQ(outcome(), "");
  EXPECT_FALSE(algo_.initialized_);
}

TEST_F(RedetectUpdate, AFrameThatCannotBeMadeGreyIsOneFailedAttempt) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kNow));
  picture->onBgr = [] { return cv::Mat(360, 640, CV_16UC3); };
  EXPECT_EQ(step(picture).size(), 1U);
  EXPECT_NE(said("reDetectGlobally: exception: "), "");
  EXPECT_EQ(algo_.redetectAttempts_, 1);
  EXPECT_EQ(algo_.trackBox_, scene_.box(kBefore));
}

TEST_F(RedetectUpdate, AnExceptionOfTheHostInsideTheSearchIsOneFailedAttempt) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kNow));
  picture->onCrop = [&](const cv::Rect& r) {
    if (picture->crops.size() > 1) CV_Error(cv::Error::StsError, "no memory");  // the first crop is the tracker's
    return picture->getBGR()(r & cv::Rect(0, 0, 640, 360));
  };
  EXPECT_EQ(step(picture).size(), 1U);
  EXPECT_NE(said("reDetectGlobally: exception: ").find("no memory"), std::string::npos);
  EXPECT_EQ(algo_.redetectAttempts_, 1);
  EXPECT_TRUE(algo_.initialized_);
  stepOn(scene_.with(kNow));
  EXPECT_EQ(outcome(), "success") << "the next search works";
}

TEST_F(RedetectUpdate, ATrackerThatSawNoPictureIsNotStepped) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kNow));
  picture->onCrop = [&](const cv::Rect& r) {
    return picture->crops.size() > 1 ? cv::Mat() : picture->getBGR()(r & cv::Rect(0, 0, 640, 360));
  };
  step(picture);
  ASSERT_EQ(outcome(), "roiBgr_empty");
  ASSERT_FALSE(algo_.trackerReady_);
  algo_.config_.redetect.frames_lost_before_reset = 2;
  EXPECT_EQ(stepOn(scene_.with(kNow)).size(), 1U);
  EXPECT_EQ(said("update(): "), "update(): LOST -> OUT 1 detections (predict)");
  stepOn(scene_.with(kNow));
  EXPECT_EQ(outcome(), "success");
  EXPECT_TRUE(algo_.trackerReady_);
}

// A loss soon after a find: found, lost, found, lost ... ends after the configured number of times.
TEST_F(RedetectUpdate, SwingingBetweenFindingAndLosingEnds) {
  algo_.config_.redetect.oscillation_max = 3;
  std::vector<std::string> seen;
  for (int i = 0; i < 4; ++i) {
    stepOn(scene_.with(kNow + cv::Point(30 * i, 0)));
    seen.push_back(said("CSRT: lost"));
    if (algo_.initialized_) {  // the new tracker loses at once
      algo_.tracker_ = cv::makePtr<ScriptedTracker>();
      algo_.csrtInputSize_ = algo_.procRoi_.size();
    }
  }
  const std::vector<std::string> expected{"", "CSRT: lost 0 frames after re-detect (count 1 / 3)",
                                          "CSRT: lost 0 frames after re-detect (count 2 / 3)",
                                          "CSRT: lost 0 frames after re-detect (count 3 / 3)"};
  EXPECT_EQ(seen, expected);
  EXPECT_EQ(said("CSRT: oscillation"), "CSRT: oscillation re-detect <-> lost detected, forcing fully lost.");
  EXPECT_FALSE(algo_.initialized_);
  EXPECT_EQ(algo_.redetectAge_, -1);
  EXPECT_EQ(algo_.oscillationCount_, 0);
}

}  // namespace
