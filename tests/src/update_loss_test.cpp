// One frame on which the tracker loses the target: prediction, search, and the guard against swinging.
#include <gtest/gtest.h>

#include <string>

#include "support/drawn_scene.h"
#include "support/locks.h"
#include "support/update_fixture.h"

using UpdateLossTest = UpdateTest;

TEST_F(UpdateLossTest, PredictsAndCounts) {
  tracker->thenLoses();
  algo.velocity_ = {10.0F, -2.0F};
  EXPECT_EQ(logOfStep(),
            (Lines{"update(): LOST -> OUT 1 detections (predict)", "  det[0]: bbox=(310,158,40,40) id=0 cls=-1"}));
  EXPECT_EQ(algo.velocity_, cv::Point2f(9.0F, -1.8F));
  EXPECT_EQ(algo.lostFrames_, 1);
  EXPECT_EQ(algo.lostSinceRedetect_, 1);
  EXPECT_EQ(algo.trackBox_, kBox);
  EXPECT_EQ(algo.lastScore_, 1.0) << "a lost frame has no score of its own";
}

TEST_F(UpdateLossTest, TakesABoxWithoutAreaForALoss) {
  tracker->thenFinds({80, 80, 0, 40});
  EXPECT_EQ(logOfStep().front(), "update(): LOST -> OUT 1 detections (predict)");
}

TEST_F(UpdateLossTest, TakesAnExceptionOfTheTrackerForALoss) {
  tracker->thenThrows().thenFinds(inWindow(kBox));
  const Lines lines = logOfStep();
  EXPECT_EQ(lines[0].rfind("update(): tracker step failed: ", 0), 0U) << lines[0];
  EXPECT_NE(lineStarting(lines, "update(): LOST -> OUT 1 detections (predict)"), "");
  EXPECT_EQ(algo.lostFrames_, 1);
  EXPECT_TRUE(isFree(algo.mutex_));
  algo.enableDebug(false);
  step();
  EXPECT_EQ(algo.lostFrames_, 0) << "the next frame tracks again";
}

TEST_F(UpdateLossTest, NeverStepsATrackerThatHasNotSeenAPicture) {
  algo.trackerReady_ = false;
  EXPECT_EQ(logOfStep().front(), "update(): LOST -> OUT 1 detections (predict)");
  EXPECT_TRUE(tracker->seen.empty());
}

// ------------------------------------------------------------------------------------------------------ search

TEST_F(UpdateLossTest, SearchesTheFrameWhenEnoughFramesAreLost) {
  algo.config_.redetect.frames_lost_before_reset = 3;
  for (int i = 0; i < 2; ++i) step();
  EXPECT_EQ(algo.redetectAttempts_, 0);
  EXPECT_EQ(picture->bgrCalls, 0);
  step();
  EXPECT_EQ(algo.redetectAttempts_, 1) << "without a patch the search fails";
  EXPECT_EQ(picture->bgrCalls, 1);
  EXPECT_FALSE(algo.fullGrayGpu_.empty());
  EXPECT_EQ(algo.lostSinceRedetect_, 0);
  EXPECT_EQ(algo.lostFrames_, 3);
}

TEST_F(UpdateLossTest, SearchesAfterUnstableStepsToo) {
  algo.config_.redetect.frames_lost_before_reset = 1;
  tracker->thenFinds(inWindow({551, 130, 100, 100}));
  EXPECT_EQ(logOfStep(),
            (Lines{"reDetect FAILED => attempt 1 / 10", "update(): UNSTABLE (stab=0.30) -> OUT 1 detections (predict)",
                   "  det[0]: bbox=(300,160,40,40) id=0 cls=-1"}));
  EXPECT_EQ(algo.lostSinceRedetect_, 0);
}

TEST_F(UpdateLossTest, EndsWhenTheLastSearchFails) {
  algo.config_.redetect.frames_lost_before_reset = 1;
  algo.config_.redetect.max_redetect_attempts = 2;
  step();
  EXPECT_EQ(logOfStep(),
            (Lines{"Object declared fully lost => reset.", "update(): LOST -> OUT 0 detections (predict)"}));
  EXPECT_FALSE(algo.initialized_);
}

TEST_F(UpdateLossTest, SurvivesASearchWhosePictureThrows) {
  algo.config_.redetect.frames_lost_before_reset = 1;
  picture->onBgr = []() -> cv::Mat { throw std::runtime_error("no picture"); };
  EXPECT_EQ(step().size(), 1U);
  EXPECT_EQ(algo.redetectAttempts_, 1);
  EXPECT_TRUE(isFree(algo.mutex_));
}

namespace {

class FoundAgainTest : public UpdateTest {
 protected:
  void SetUp() override {
    makeTrackerCheap(algo.config_);
    algo.config_.redetect.frames_lost_before_reset = 1;
    algo.init({scene.pictureAt({120, 90})}, {120, 90, 60, 50}, nullptr);
    tracker = cv::makePtr<ScriptedTracker>();  // which loses
    algo.tracker_ = tracker;
    algo.lostFrames_ = 4;
    picture = scene.pictureAt({150, 100});
  }

  DrawnScene scene{{320, 240}, {60, 50}};
};

}  // namespace

TEST_F(FoundAgainTest, ReportsTheFindAndWatchesItFromThenOn) {
  algo.config_.predict.bbox_smooth_enable = true;
  algo.smoothedBox_ = {120, 90, 50, 42};
  algo.smoothedValid_ = true;
  const Lines lines = logOfStep();
  const std::string answer = "update(): LOST -> OUT 1 detections (redetect OK)";
  ASSERT_NE(lineStarting(lines, answer), "");
  EXPECT_NE(lineStarting(lines, "reDetectGlobally[timing-success]"), "");
  EXPECT_GT(overlap(algo.trackBox_, {150, 100, 60, 50}), 0.6);
  EXPECT_EQ(algo.lostFrames_ + algo.lostSinceRedetect_, 0);
  EXPECT_EQ(algo.redetectAge_, 0);
  EXPECT_NE(algo.tracker_, tracker);
  EXPECT_NE(algo.smoothedBox_, algo.trackBox_) << "the find is smoothed, too";
  const cv::Rect& shown = algo.smoothedBox_;
  EXPECT_EQ(lines.back(),
            cv::format("  det[0]: bbox=(%d,%d,%d,%d) id=0 cls=-1", shown.x, shown.y, shown.width, shown.height));
}

// ---------------------------------------------------------------------------------------------------- swinging

TEST_F(UpdateLossTest, CountsALossSoonAfterAFind) {
  algo.redetectAge_ = 0;
  EXPECT_EQ(logOfStep(),
            (Lines{"CSRT: lost 0 frames after re-detect (count 1 / 3)", "update(): LOST -> OUT 1 detections (predict)",
                   "  det[0]: bbox=(300,160,40,40) id=0 cls=-1"}));
  EXPECT_EQ(algo.oscillationCount_, 1);
  EXPECT_EQ(algo.redetectAge_, 0) << "only a tracked frame ages the find";
}

TEST_F(UpdateLossTest, CountsUpToTheEndOfTheWindowAndNotBeyond) {
  algo.redetectAge_ = 5;
  step();
  EXPECT_EQ(algo.oscillationCount_, 1);
  algo.redetectAge_ = 6;
  step();
  EXPECT_EQ(algo.oscillationCount_, 1);
  algo.redetectAge_ = -1;
  step();
  EXPECT_EQ(algo.oscillationCount_, 1);
}

TEST_F(UpdateLossTest, GivesUpOnTheLastSwingWithoutAnAnswerLine) {
  algo.redetectAge_ = 2;
  step();
  step();
  std::vector<AlgoOutput> outputs;
  algo.enableDebug(true);
  const Lines lines = logOf([&] { outputs = updateRaw(); });
  EXPECT_EQ(lines, (Lines{"CSRT: lost 2 frames after re-detect (count 3 / 3)",
                          "CSRT: oscillation re-detect <-> lost detected, forcing fully lost.",
                          "Object declared fully lost => reset."}));
  EXPECT_TRUE(reportedIn(outputs).empty());
  EXPECT_FALSE(algo.initialized_);
  EXPECT_EQ(algo.redetectAge_, -1);
  EXPECT_EQ(algo.oscillationCount_, 0);
}
