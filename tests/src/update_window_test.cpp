// One frame whose window changes: keeping the tracker's input size, carrying the box over, building a new tracker.
#include <gtest/gtest.h>

#include <stdexcept>

#include "support/drawn_scene.h"
#include "support/locks.h"
#include "support/update_fixture.h"

namespace {

class UpdateWindowTest : public UpdateTest {
 protected:
  void SetUp() override {
    UpdateTest::SetUp();
    makeTrackerCheap(algo.config_);
    algo.config_.roi.hard_resize_ratio = 0.25;  // exact in binary
    picture = DrawnScene({640, 360}, {40, 40}).pictureAt(kBox.tl());
  }

  /// The box moves so fast that the window wants to be `side` pixels wide and high.
  void wishWindow(int side) { algo.velocity_ = {static_cast<float>(side - 200) / 4.0F, 0.0F}; }

  static inline const std::string kRebuilt = "update(): OUT 1 detections (Re-init apr\xC3\xA8s update ancien ROI, ";
};

}  // namespace

// ------------------------------------------------------------------------------------------------------ window

TEST_F(UpdateWindowTest, IsTheWholeFrameWhenSwitchedOff) {
  algo.config_.roi.enable = false;
  algo.config_.roi.freeze_input_size = false;
  step();
  EXPECT_EQ(picture->crops.front(), cv::Rect(0, 0, 640, 360));
}

TEST_F(UpdateWindowTest, KeepsTheInputSizeBelowTheRatioOfTheFrozenSide) {
  wishWindow(248);
  tracker->thenFinds(inWindow(kBox));
  step();
  EXPECT_EQ(picture->crops, std::vector<cv::Rect>{kWindow});
  EXPECT_EQ(tracker->seen.size(), 1U);
}

TEST_F(UpdateWindowTest, GivesTheInputSizeUpExactlyAtTheRatio) {
  wishWindow(250);
  EXPECT_EQ(logOfStep().front(), kRebuilt + "sizeChanged=1)");
  EXPECT_EQ(picture->crops.front(), cv::Rect(195, 55, 250, 250));
  EXPECT_EQ(algo.csrtInputSize_, cv::Size(250, 250));
}

TEST_F(UpdateWindowTest, CommitsTheFrozenWindow) {
  algo.follow({310, 165, 40, 40}, kWindow)->thenFinds({80, 80, 40, 40});
  step();
  EXPECT_EQ(algo.procRoi_, cv::Rect(230, 85, 200, 200));
}

TEST_F(UpdateWindowTest, StepsOnACropThatDiffersWhileTheSizeIsFrozen) {
  picture->onCrop = [this](const cv::Rect& r) { return picture->getBGR()(cv::Rect(r.x, r.y, r.width - 10, r.height)); };
  tracker->thenFinds(inWindow(kBox));
  EXPECT_EQ(step().size(), 1U);
  ASSERT_EQ(tracker->seen.size(), 1U);
  EXPECT_EQ(tracker->seen[0].image, cv::Size(190, 200));
}

TEST_F(UpdateWindowTest, ComparesTheCropWhereTheFrameIsSmallerThanTheWindow) {
  // The window is 128 x 128 whatever the frame; the crop and the tracker's input are 80 x 70.
  picture = plainPicture({80, 70});
  tracker = algo.follow({30, 25, 20, 20}, {0, 0, 128, 128});
  algo.csrtInputSize_ = {80, 70};
  tracker->thenFinds({30, 25, 20, 20});
  EXPECT_EQ(step().size(), 1U);
  EXPECT_EQ(picture->crops, std::vector<cv::Rect>{cv::Rect(0, 0, 128, 128)});
  EXPECT_EQ(algo.tracker_, tracker) << "a step, although the window differs from the input size by far";
}

// ----------------------------------------------------------------------------------------- from the old window

TEST_F(UpdateWindowTest, CarriesTheBoxFoundInTheOldWindowIntoTheNewOne) {
  algo.config_.roi.freeze_input_size = false;
  wishWindow(280);
  tracker->thenFinds({84, 86, 40, 40});
  EXPECT_EQ(logOfStep(), (Lines{kRebuilt + "sizeChanged=1)", "  det[0]: bbox=(304,166,40,40) id=0 cls=-1"}));
  const cv::Rect window(180, 40, 280, 280);
  EXPECT_EQ(picture->crops, (std::vector<cv::Rect>{window, kWindow})) << "both of the current frame";
  ASSERT_EQ(tracker->seen.size(), 1U);
  EXPECT_EQ(tracker->seen[0].image, kWindow.size());
  EXPECT_EQ(tracker->seen[0].boxBefore, inWindow(kBox));
  EXPECT_NE(algo.tracker_, tracker);
  EXPECT_EQ(algo.trackBox_, cv::Rect(304, 166, 40, 40));
  EXPECT_EQ(algo.initBoxInCrop_, cv::Rect(124, 126, 40, 40));
  EXPECT_EQ(algo.procRoi_, window);
  EXPECT_EQ(algo.csrtInputSize_, window.size());
}

TEST_F(UpdateWindowTest, KeepsTheOldBoxWhenTheOldWindowFails) {
  algo.config_.roi.freeze_input_size = false;
  wishWindow(280);
  tracker->thenLoses();
  EXPECT_EQ(logOfStep().front(), kRebuilt + "sizeChanged=1)");
  EXPECT_EQ(algo.trackBox_, kBox);

  tracker = algo.follow(kBox, kWindow);
  wishWindow(280);
  picture->onCrop = [this](const cv::Rect& r) { return r == kWindow ? cv::Mat() : picture->getBGR()(r); };
  logOfStep();
  EXPECT_TRUE(tracker->seen.empty());
  EXPECT_EQ(algo.trackBox_, kBox);

  tracker = algo.follow(kBox, kWindow);
  wishWindow(280);
  picture->onCrop = [this](const cv::Rect& r) -> cv::Mat {
    if (r == kWindow) throw std::runtime_error("no old window");
    return picture->getBGR()(r);
  };
  const Lines lines = logOfStep();
  EXPECT_EQ(lines[0], "update(): old window failed: no old window");
  EXPECT_EQ(algo.trackBox_, kBox);
}

TEST_F(UpdateWindowTest, CutsTheCarriedBoxAtTheFrame) {
  algo.config_.roi.freeze_input_size = false;
  algo.follow({590, 160, 40, 40}, {440, 80, 200, 200})->thenFinds({170, 80, 40, 40});
  algo.velocity_ = {20.0F, 0.0F};
  step();
  EXPECT_EQ(algo.trackBox_, cv::Rect(610, 160, 30, 40));
}

// ----------------------------------------------------------------------------------------------------- rebuild

TEST_F(UpdateWindowTest, BuildsATrackerWhereThereIsNone) {
  algo.tracker_.reset();
  algo.velocity_ = {3.0F, 4.0F};
  algo.lastScore_ = 0.5;
  algo.lostFrames_ = 3;
  EXPECT_EQ(logOfStep(), (Lines{kRebuilt + "sizeChanged=0)", "  det[0]: bbox=(300,160,40,40) id=0 cls=-1"}));
  EXPECT_NE(algo.tracker_, nullptr);
  EXPECT_TRUE(algo.trackerReady_);
  EXPECT_EQ(algo.trackBox_, kBox);
  EXPECT_EQ(algo.predictedBox_, kBox);
  EXPECT_EQ(algo.initBoxInCrop_, inWindow(kBox));
  EXPECT_EQ(algo.initCrop_.size(), kWindow.size());
  EXPECT_EQ(algo.velocity_, cv::Point2f());
  EXPECT_EQ(algo.lastScore_, 1.0);
  EXPECT_EQ(algo.lostFrames_, 3);
}

TEST_F(UpdateWindowTest, ReportsARebuiltBoxWithFullScoreSmoothed) {
  algo.tracker_.reset();
  algo.lastScore_ = 0.5;
  algo.config_.predict.bbox_smooth_enable = true;
  algo.smoothedBox_ = kBox - cv::Point(10, 0);
  algo.smoothedValid_ = true;
  const auto reported = step();
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(reported[0], (Reported{kBox - cv::Point(5, 0), 1.0}));
  EXPECT_EQ(algo.trackBox_, kBox);
}

TEST_F(UpdateWindowTest, BuildsANewTrackerOnTheLiveCropWhenAskedTo) {
  algo.pending_rebuild_ = true;
  tracker->thenFinds(inWindow(kBox));
  EXPECT_EQ(logOfStep().front(), kRebuilt + "sizeChanged=0)");
  EXPECT_FALSE(algo.pending_rebuild_);
  EXPECT_NE(algo.tracker_, tracker);
  EXPECT_TRUE(tracker->seen.empty());
  EXPECT_EQ(cv::norm(algo.initCrop_, picture->getBGR()(kWindow), cv::NORM_INF), 0.0);
}

TEST_F(UpdateWindowTest, RebuildsWithoutTheOldWindowWhenTheSizeChangesToo) {
  algo.pending_rebuild_ = true;
  algo.config_.roi.freeze_input_size = false;
  wishWindow(280);
  EXPECT_EQ(logOfStep().front(), kRebuilt + "sizeChanged=0)");
  EXPECT_EQ(picture->crops.size(), 1U);
}

TEST_F(UpdateWindowTest, StartsInTheMiddleWhenTheBoxIsNotInTheCrop) {
  algo.tracker_.reset();
  picture = DrawnScene({200, 200}, {40, 40}).pictureAt({80, 80});
  step();
  EXPECT_EQ(picture->crops, std::vector<cv::Rect>{cv::Rect(0, 0, 200, 200)});
  EXPECT_EQ(algo.initBoxInCrop_, cv::Rect(80, 80, 40, 40));
  EXPECT_EQ(algo.trackBox_, cv::Rect(80, 80, 40, 40));
}

TEST_F(UpdateWindowTest, LetsTheErrorOfARebuildThroughAndStaysUsable) {
  algo.pending_rebuild_ = true;
  algo.config_.csrt.window_function = "triangle";
  EXPECT_THROW(updateRaw(), cv::Exception);
  EXPECT_TRUE(processed);
  EXPECT_TRUE(isFree(algo.mutex_));
  EXPECT_EQ(algo.tracker_, nullptr) << "a tracker that did not start is never kept";
  EXPECT_THROW(updateRaw(), cv::Exception) << "still nothing to track with";
  algo.config_.csrt.window_function = "hann";
  EXPECT_EQ(step().size(), 1U);
}

TEST_F(UpdateWindowTest, RefusesToRebuildWithoutAnyFeature) {
  algo.pending_rebuild_ = true;
  algo.config_.csrt.use_hog = algo.config_.csrt.use_rgb = false;
  const Lines lines = [this] {
    algo.enableDebug(true);
    return logOf([this] { EXPECT_THROW(updateRaw(), std::runtime_error); });
  }();
  EXPECT_EQ(lines.front().rfind("update(): exception: ", 0), 0U);
  EXPECT_TRUE(isFree(algo.mutex_));
}
