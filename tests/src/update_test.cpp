// One frame: the exits before tracking, and a target that is found.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "support/drawn_scene.h"
#include "support/locks.h"
#include "support/update_fixture.h"

// ------------------------------------------------------------------------------------------- exits before tracking

TEST_F(UpdateTest, AnswersNoFrameWithAnEmptyRecordAndChangesNothing) {
  algo.velocity_ = {4.0F, 0.0F};
  for (const Frames& frames : {Frames{}, Frames{nullptr}, Frames{nullptr, picture}}) {
    processed = false;
    EXPECT_TRUE(reportedIn(algo.update(frames, &processed)).empty());
    EXPECT_TRUE(processed);
  }
  EXPECT_TRUE(tracker->seen.empty());
  EXPECT_EQ(algo.predictedBox_, kBox);
  EXPECT_EQ(algo.velocity_, cv::Point2f(4.0F, 0.0F));
  algo.enableDebug(true);
  EXPECT_EQ(logOf([&] { algo.update({}, nullptr); }), Lines{"update(): OUT, NO FRAME"});
}

TEST_F(UpdateTest, UsesOnlyTheFirstFrame) {
  const auto second = plainPicture({640, 360});
  tracker->thenFinds(inWindow(kBox));
  EXPECT_EQ(reportedIn(algo.update({picture, second}, nullptr)).size(), 1U);
  EXPECT_TRUE(second->crops.empty());
}

TEST_F(UpdateTest, ReportsNothingBeforeAStart) {
  algo.resetInternal_Locked_();
  EXPECT_TRUE(step().empty());
  EXPECT_EQ(logOfStep(), Lines{"update(): OUT 0 detections (not init/fullyLost)"});
}

TEST_F(UpdateTest, OnlyPredictsWhenFullyLost) {
  algo.fullyLost_ = true;
  EXPECT_EQ(logOfStep(),
            (Lines{"update(): OUT 1 detections (not init/fullyLost)", "  det[0]: bbox=(300,160,40,40) id=0 cls=-1"}));
  EXPECT_TRUE(tracker->seen.empty());
}

TEST_F(UpdateTest, GivesUpOnAPendingReset) {
  algo.pending_full_reset_ = true;
  EXPECT_EQ(logOfStep(),
            (Lines{"Object declared fully lost => reset.", "update(): OUT 0 detections (pending_full_reset_)"}));
  EXPECT_FALSE(algo.pending_full_reset_ || algo.initialized_);
  EXPECT_EQ(logOfStep(), Lines{"update(): OUT 0 detections (not init/fullyLost)"});
}

TEST_F(UpdateTest, WaitsForTheCameraBeforeAnythingElse) {
  algo.prepositionWaiting_ = algo.pending_full_reset_ = algo.justReseeded_ = true;
  EXPECT_EQ(logOfStep(), (Lines{"CSRT preposition: waiting for valid metadata",
                                "update(): OUT 0 detections (waiting preposition alignment)"}));
  EXPECT_TRUE(algo.pending_full_reset_ && algo.justReseeded_);
  EXPECT_TRUE(tracker->seen.empty());
}

TEST_F(UpdateTest, SkipsExactlyOneFrameAfterAReseed) {
  algo.justReseeded_ = true;
  tracker->thenFinds(inWindow(kBox));
  EXPECT_EQ(logOfStep(), Lines{"update(): OUT 0 detections (skip tracking once)"});
  EXPECT_TRUE(picture->crops.empty());
  algo.enableDebug(false);
  EXPECT_EQ(step().size(), 1U);
}

TEST_F(UpdateTest, AnswersEmptyOnTheZoomFrameAndTracksOnTheNext) {
  makeTrackerCheap(algo.config_);
  const DrawnScene scene({320, 240}, {30, 30});
  algo.init({scene.pictureAt({140, 100}, viewOf(0.0, 0.0, 60.0, 45.0))}, {140, 100, 30, 30}, nullptr);
  const auto zoomed = scene.pictureAt({139, 99}, viewOf(0.0, 0.0, 58.0, 43.5));
  algo.enableDebug(true);
  const Lines lines = logOf([&] { algo.update({zoomed}, nullptr); });
  EXPECT_EQ(lines.back(), "update(): OUT 0 detections (zoom reseed)");
  EXPECT_FALSE(algo.justReseeded_) << "the frame of the re-seed is the one that is skipped";
  algo.enableDebug(false);
  EXPECT_EQ(reportedIn(algo.update({zoomed}, nullptr)).size(), 1U);
}

TEST_F(UpdateTest, PredictsOnAnEmptyCropWithoutCountingALoss) {
  picture->onCrop = [](const cv::Rect&) { return cv::Mat(); };
  algo.velocity_ = {4.0F, 0.0F};
  EXPECT_EQ(logOfStep(),
            (Lines{"update(): OUT 1 detections (empty ROI)", "  det[0]: bbox=(304,160,40,40) id=0 cls=-1"}));
  EXPECT_EQ(algo.lostFrames_ + algo.lostSinceRedetect_, 0);
  EXPECT_TRUE(tracker->seen.empty());
}

TEST_F(UpdateTest, TakesAnUnknownTypeForAnEmptyCrop) {
  picture->onCrop = [](const cv::Rect& r) { return cv::Mat(r.size(), CV_16UC3); };
  EXPECT_EQ(logOfStep(),
            (Lines{"update(): crop failed: ensureBGR8: unsupported CV_16UC3", "update(): OUT 1 detections (empty ROI)",
                   "  det[0]: bbox=(300,160,40,40) id=0 cls=-1"}));
  EXPECT_EQ(algo.lostFrames_, 0);
}

TEST_F(UpdateTest, TakesACropThatThrowsForAnEmptyOne) {
  picture->onCrop = [](const cv::Rect&) -> cv::Mat { throw std::runtime_error("no pixels"); };
  EXPECT_EQ(logOfStep().front(), "update(): crop failed: no pixels");
  EXPECT_TRUE(isFree(algo.mutex_));
}

TEST_F(UpdateTest, LetsWhatIsNoStandardExceptionThroughWithTheLockFree) {
  picture->onCrop = [](const cv::Rect&) -> cv::Mat { throw 7; };
  EXPECT_THROW(updateRaw(), int);
  EXPECT_TRUE(isFree(algo.mutex_));
}

TEST_F(UpdateTest, ConvertsAGreyCrop) {
  picture->onCrop = [](const cv::Rect& r) { return cv::Mat(r.size(), CV_8UC1, cv::Scalar(9)); };
  tracker->thenFinds(inWindow(kBox));
  EXPECT_EQ(step().size(), 1U);
}

// -------------------------------------------------------------------------------------------------------- found

TEST_F(UpdateTest, ReportsTheFoundBoxInFramePixelsWithItsScore) {
  tracker->thenFinds(inWindow(kBox + cv::Point(3, 4)));
  const auto reported = step();
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(reported[0].box, kBox + cv::Point(3, 4));
  EXPECT_FLOAT_EQ(static_cast<float>(reported[0].score), static_cast<float>((0.95 + 2.0) / 3.0));
}

TEST_F(UpdateTest, CommitsBoxWindowAndSpeed) {
  tracker->thenFinds({83, 84, 42, 40});
  step();
  EXPECT_EQ(algo.trackBox_, cv::Rect(303, 164, 42, 40));
  EXPECT_EQ(algo.predictedBox_, algo.trackBox_);
  EXPECT_EQ(algo.procRoi_, kWindow);
  EXPECT_EQ(algo.initBoxInCrop_, cv::Rect(83, 84, 42, 40));
  EXPECT_EQ(algo.velocity_, cv::Point2f(4.0F, 4.0F)) << "between the centres";
  EXPECT_DOUBLE_EQ(algo.lastScore_, algo.computeStabilityScore_(kBox, algo.trackBox_, {640, 360}));
}

TEST_F(UpdateTest, GivesTheTrackerTheWindowsPixels) {
  tracker->thenFinds(inWindow(kBox));
  step();
  EXPECT_EQ(picture->crops, std::vector<cv::Rect>{kWindow});
  ASSERT_EQ(tracker->seen.size(), 1U);
  EXPECT_EQ(tracker->seen[0].image, kWindow.size());
}

TEST_F(UpdateTest, ClearsTheLossCounters) {
  algo.lostFrames_ = algo.lostSinceRedetect_ = 5;
  tracker->thenFinds(inWindow(kBox));
  step();
  EXPECT_EQ(algo.lostFrames_ + algo.lostSinceRedetect_, 0);
}

TEST_F(UpdateTest, LogsTheAnswerAndEveryDetection) {
  tracker->thenFinds(inWindow(kBox + cv::Point(1, 0)));
  EXPECT_EQ(logOfStep(), (Lines{"update(): OUT 2 detections (track ok)", "  det[0]: bbox=(301,160,40,40) id=0 cls=-1",
                                "  det[1]: bbox=(220,80,200,200) id=0 cls=-1"}));
}

TEST_F(UpdateTest, ShowsTheWindowOnlyWhileDebugIsOn) {
  tracker->thenFinds(inWindow(kBox)).thenFinds(inWindow(kBox));
  EXPECT_EQ(step().size(), 1U);
  algo.enableDebug(true);
  std::vector<AlgoOutput> outputs;
  outputOf([&] { outputs = updateRaw(); });
  const auto reported = reportedIn(outputs);
  ASSERT_EQ(reported.size(), 2U);
  EXPECT_EQ(reported[1], (Reported{kWindow, 1.0}));
}

TEST_F(UpdateTest, ScoresAndKeepsTheUnclippedBoxButReportsTheVisiblePart) {
  algo.follow({580, 160, 40, 40}, {440, 80, 200, 200})->thenFinds({170, 80, 40, 40});
  const auto reported = step();
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(reported[0].box, cv::Rect(610, 160, 30, 40));
  EXPECT_EQ(algo.trackBox_, cv::Rect(610, 160, 40, 40));
  EXPECT_DOUBLE_EQ(algo.lastScore_, (0.7 + 1.0 + 0.75) / 3.0);
  EXPECT_EQ(algo.velocity_, cv::Point2f(30.0F, 0.0F)) << "of the unclipped centres";
}

TEST_F(UpdateTest, SmoothsOnlyWhatItReports) {
  algo.config_.predict.bbox_smooth_enable = true;
  algo.smoothedBox_ = kBox;
  algo.smoothedValid_ = true;
  tracker->thenFinds(inWindow(kBox + cv::Point(10, 0)));
  EXPECT_EQ(step().front().box, kBox + cv::Point(5, 0));
  EXPECT_EQ(algo.trackBox_, kBox + cv::Point(10, 0));
  EXPECT_EQ(algo.predictedBox_, algo.trackBox_);
}

TEST_F(UpdateTest, SmoothsTheClippedBoxAndClipsTheSmoothedOne) {
  algo.config_.predict.bbox_smooth_enable = true;
  algo.follow({580, 160, 40, 40}, {440, 80, 200, 200})->thenFinds({170, 80, 40, 40});
  algo.smoothedBox_ = {600, 160, 60, 40};  // reaches outside, as after a change of picture size
  algo.smoothedValid_ = true;
  EXPECT_EQ(step().front().box, cv::Rect(605, 160, 35, 40)) << "605 and 45 wide, cut at 640";
  EXPECT_EQ(algo.smoothedBox_, cv::Rect(605, 160, 45, 40));
}

// -------------------------------------------------------------------------------------------------- how stable

TEST_F(UpdateTest, BelievesExactlyTheSmallestScore) {
  // Too far, too large, and 90 of 100 columns visible: (0 + 0 + 0.9) / 3.
  tracker->thenFinds(inWindow({550, 130, 100, 100}));
  EXPECT_EQ(logOfStep().front(), "update(): OUT 2 detections (track ok)");
  EXPECT_EQ(algo.lastScore_, 0.3);
}

TEST_F(UpdateTest, PredictsBelowTheSmallestScore) {
  tracker->thenFinds(inWindow({551, 130, 100, 100}));
  algo.velocity_ = {4.0F, 0.0F};
  EXPECT_EQ(logOfStep(), (Lines{"update(): UNSTABLE (stab=0.30) -> OUT 1 detections (predict)",
                                "  det[0]: bbox=(304,160,40,40) id=0 cls=-1"}));
}

TEST_F(UpdateTest, LeavesBoxAndWindowOfAnUnstableStepAlone) {
  algo.redetectAge_ = 2;
  tracker->thenFinds(inWindow({551, 130, 100, 100}));
  const auto reported = step();
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(algo.trackBox_, kBox);
  EXPECT_EQ(algo.procRoi_, kWindow);
  EXPECT_EQ(algo.initBoxInCrop_, inWindow(kBox));
  EXPECT_FALSE(algo.dynPatchValid_);
  EXPECT_DOUBLE_EQ(algo.lastScore_, 0.89 / 3.0) << "stored although the step was not believed";
  EXPECT_EQ(static_cast<float>(reported[0].score), static_cast<float>(0.89 / 3.0));
  EXPECT_EQ(algo.lostFrames_, 1);
  EXPECT_EQ(algo.lostSinceRedetect_, 1);
  EXPECT_EQ(algo.redetectAge_, 2);
  EXPECT_EQ(algo.oscillationCount_, 0) << "an unstable step is no loss soon after a find";
}

// ----------------------------------------------------------------------------------------------- dynamic patch

TEST_F(UpdateTest, RefreshesTheDynamicPatchFromTheCropWhenStableEnough) {
  picture = DrawnScene({640, 360}, {40, 40}).pictureAt({310, 165});
  algo.config_.redetect.dynamic_patch_stability = 1.0;
  tracker->thenFinds(inWindow(kBox)).thenFinds(inWindow(kBox + cv::Point(1, 0)));
  step();
  ASSERT_TRUE(algo.dynPatchValid_);
  cv::Mat grey;
  cv::cvtColor(picture->getBGR()(kBox), grey, cv::COLOR_BGR2GRAY);
  EXPECT_EQ(cv::norm(algo.dynPatchGpu_.download(), grey, cv::NORM_INF), 0.0);
  algo.dynPatchValid_ = false;
  step();
  EXPECT_FALSE(algo.dynPatchValid_) << "a step of one pixel scores below 1";
}

TEST_F(UpdateTest, WantsAPatchOfMoreThanFourPixelsBothWays) {
  algo.config_.redetect.dynamic_patch_stability = 0.0;
  for (const cv::Size& size : {cv::Size(4, 40), cv::Size(40, 4)}) {
    algo.follow(kBox, kWindow)->thenFinds({{80, 80}, size});
    step();
    EXPECT_FALSE(algo.dynPatchValid_) << size.width;
  }
  algo.follow(kBox, kWindow)->thenFinds({80, 80, 5, 5});
  step();
  EXPECT_TRUE(algo.dynPatchValid_);
}

TEST_F(UpdateTest, CutsTheDynamicPatchAtTheCrop) {
  algo.config_.redetect.dynamic_patch_stability = 0.0;
  tracker->thenFinds({170, 80, 40, 40});
  step();
  EXPECT_EQ(algo.dynPatchGpu_.size(), cv::Size(30, 40));
  algo.dynPatchValid_ = false;
  algo.follow(kBox, kWindow)->thenFinds({196, 80, 40, 40});
  step();
  EXPECT_FALSE(algo.dynPatchValid_) << "four columns are left";
}

TEST_F(UpdateTest, RefreshesThePatchBeforeTheHealthMonitorLooks) {
  bool refreshed = false;
  algo.health_ = CsrtTrackerHealth([&] {
    refreshed = algo.dynPatchValid_;
    return 1.0;
  });
  tracker->thenFinds(inWindow(kBox));
  step();
  EXPECT_TRUE(refreshed);
}

// ------------------------------------------------------------------------------------------------------ health

TEST_F(UpdateTest, GivesUpOnAHealthFaultInFrenchAndWithoutAnAnswerLine) {
  algo.follow({0, 160, 40, 40}, {0, 80, 200, 200})->thenFinds({0, 80, 40, 40}).thenFinds({0, 80, 40, 40});
  EXPECT_EQ(step().size(), 1U);
  algo.now += 5.0;
  algo.enableDebug(true);
  std::vector<AlgoOutput> outputs;
  const Lines lines = logOf([&] { outputs = updateRaw(); });
  EXPECT_TRUE(reportedIn(outputs).empty());
  EXPECT_EQ(lines, (Lines{"CSRT: health fault -> bbox coll\xC3\xA9"
                          "e au bord",
                          "Object declared fully lost => reset."}));
  EXPECT_FALSE(algo.initialized_ || algo.fullyLost_);
}

TEST_F(UpdateTest, WatchesTheUnclippedBox) {
  // The centre of the box lies at 620 of 640, in the border band; that of its visible part at 605, outside the band.
  const cv::Rect box(570, 130, 100, 100);
  algo.follow(box, {140, 0, 500, 360})->thenFinds({430, 130, 100, 100}).thenFinds({430, 130, 100, 100});
  EXPECT_EQ(step().size(), 1U);
  algo.now += 5.0;
  EXPECT_TRUE(step().empty());
  EXPECT_FALSE(algo.initialized_);
}

TEST_F(UpdateTest, TellsTheMonitorBeforeTheFrameIsCounted) {
  algo.lostFrames_ = 4;
  int lostWhenLooking = -1;
  algo.health_ = CsrtTrackerHealth([&] {
    lostWhenLooking = algo.lostFrames_;
    return 1.0;
  });
  tracker->thenFinds(inWindow(kBox));
  step();
  EXPECT_EQ(lostWhenLooking, 4);
  EXPECT_EQ(algo.lostFrames_, 0);
}

// ---------------------------------------------------------------------------------------- after a re-detection

TEST_F(UpdateTest, CountsTrackedFramesAfterAFindUntilTheyExceedTheWindow) {
  algo.redetectAge_ = 4;
  algo.oscillationCount_ = 2;
  tracker->thenFinds(inWindow(kBox)).thenFinds(inWindow(kBox)).thenFinds(inWindow(kBox));
  step();
  EXPECT_EQ(algo.redetectAge_, 5);
  EXPECT_EQ(algo.oscillationCount_, 2);
  EXPECT_EQ(logOfStep().front(), "CSRT: re-detect stabilized after 5 frames, clearing oscillation state");
  EXPECT_EQ(algo.redetectAge_, -1);
  EXPECT_EQ(algo.oscillationCount_, 0);
  algo.enableDebug(false);
  step();
  EXPECT_EQ(algo.redetectAge_, -1) << "nothing to watch";
}

// ---------------------------------------------------------------------------------------------------- failures

namespace {

class ThrowingPicture : public TestPicture {
 public:
  using TestPicture::TestPicture;
  int width() const override { throw std::runtime_error("no width"); }
};

}  // namespace

TEST_F(UpdateTest, AnswersAnExceptionOfTheFrameWithAnEmptyRecord) {
  picture = std::make_shared<ThrowingPicture>(cv::Mat(360, 640, CV_8UC3));
  EXPECT_EQ(logOfStep(), Lines{"update(): exception: no width"});
  EXPECT_TRUE(isFree(algo.mutex_));
  EXPECT_TRUE(algo.initialized_);
}
