// Starting and rebuilding the tracker: its parameters, its pictures, and what a failure leaves behind.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/drawn_scene.h"
#include "support/test_algo.h"

namespace {

using Lines = std::vector<std::string>;
using Params = cv::tracking::TrackerCSRT::Params;

bool samePixels(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

cv::Mat greyOf(const cv::Mat& bgr, const cv::Rect& part) {
  cv::Mat grey;
  cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
  return grey(part);
}

class TrackerStart : public ::testing::Test {
 protected:
  void SetUp() override {
    makeTrackerCheap(algo.config_);
    algo.config_.roi.min_size = 64;
  }

  bool start(const cv::Rect& box, bool refine = false) {
    return algo.initializeTrackerFromFrameLocked_(*picture, box, refine, "test");
  }
  Lines logOfStart(const cv::Rect& box) {
    algo.enableDebug(true);
    return logOf([&] { ok = start(box); });
  }

  /// A track that runs on a script, in every part that a failed start could harm.
  void followOld() {
    old = algo.follow({10, 20, 30, 40}, {0, 0, 100, 90});
    algo.velocity_ = {3.0F, 4.0F};
    algo.lastScore_ = 0.5;
    algo.lostFrames_ = algo.lostSinceRedetect_ = 5;
    algo.dynPatchValid_ = true;
    algo.origPatchGpu_.upload(cv::Mat(6, 7, CV_8UC1, cv::Scalar(3)));
    algo.initCrop_ = cv::Mat(4, 5, CV_8UC3);
    algo.pending_rebuild_ = true;
  }
  void expectOldTrackWhole() const {
    EXPECT_EQ(algo.tracker_, old);
    EXPECT_TRUE(algo.initialized_ && algo.trackerReady_ && algo.dynPatchValid_ && algo.pending_rebuild_);
    EXPECT_EQ(algo.trackBox_, cv::Rect(10, 20, 30, 40));
    EXPECT_EQ(algo.procRoi_, cv::Rect(0, 0, 100, 90));
    EXPECT_EQ(algo.initBoxInCrop_, cv::Rect(10, 20, 30, 40));
    EXPECT_EQ(algo.csrtInputSize_, cv::Size(100, 90));
    EXPECT_EQ(algo.velocity_, cv::Point2f(3.0F, 4.0F));
    EXPECT_EQ(algo.lastScore_, 0.5);
    EXPECT_EQ(algo.lostFrames_, 5);
    EXPECT_EQ(algo.origPatchGpu_.size(), cv::Size(7, 6));
    EXPECT_EQ(algo.initCrop_.size(), cv::Size(5, 4));
  }

  DrawnScene scene{{200, 160}, {30, 20}};
  cv::Rect target{90, 70, 30, 20};
  std::shared_ptr<TestPicture> picture = scene.pictureAt(target.tl());
  TestAlgo algo;
  cv::Ptr<ScriptedTracker> old;
  bool ok = true;
};

}  // namespace

// -------------------------------------------------------------------------------------------------- parameters

TEST(TrackerParams, TakeSixteenValuesFromTheConfiguration) {
  TestAlgo algo;
  CsrtConfig::Csrt& c = algo.config_.csrt;
  c.use_hog = c.use_color_names = c.use_rgb = c.use_segmentation = false;
  c.use_gray = true;
  c.window_function = "kaiser";
  c.template_size = 77;
  c.number_of_scales = 7;
  c.scale_sigma_factor = 0.3;
  c.scale_lr = 0.1;
  c.padding = 2.5;
  c.psr_threshold = 0.07;
  c.background_ratio = 3;
  c.admm_iterations = 9;
  c.filter_lr = 0.03;
  c.weights_lr = 0.04;
  const Params p = algo.makeCSRTParams_();
  EXPECT_FALSE(p.use_hog || p.use_color_names || p.use_rgb || p.use_segmentation);
  EXPECT_TRUE(p.use_gray);
  EXPECT_EQ(p.window_function, "kaiser");
  EXPECT_EQ(p.template_size, 77.0F);
  EXPECT_EQ(p.number_of_scales, 7);
  EXPECT_EQ(p.scale_sigma_factor, 0.3F);
  EXPECT_EQ(p.scale_lr, 0.1F);
  EXPECT_EQ(p.padding, 2.5F);
  EXPECT_EQ(p.psr_threshold, 0.07F);
  EXPECT_EQ(p.background_ratio, 3);
  EXPECT_EQ(p.admm_iterations, 9);
  EXPECT_EQ(p.filter_lr, 0.03F);
  EXPECT_EQ(p.weights_lr, 0.04F);
}

TEST(TrackerParams, LeaveTheOtherElevenAsOpenCVHasThem) {
  const Params p = TestAlgo().makeCSRTParams_();
  const Params opencv;
  EXPECT_EQ(p.use_channel_weights, opencv.use_channel_weights);
  EXPECT_EQ(p.kaiser_alpha, opencv.kaiser_alpha);
  EXPECT_EQ(p.cheb_attenuation, opencv.cheb_attenuation);
  EXPECT_EQ(p.gsl_sigma, opencv.gsl_sigma);
  EXPECT_EQ(p.hog_orientations, opencv.hog_orientations);
  EXPECT_EQ(p.hog_clip, opencv.hog_clip);
  EXPECT_EQ(p.num_hog_channels_used, opencv.num_hog_channels_used);
  EXPECT_EQ(p.histogram_bins, opencv.histogram_bins);
  EXPECT_EQ(p.histogram_lr, opencv.histogram_lr);
  EXPECT_EQ(p.scale_model_max_area, opencv.scale_model_max_area);
  EXPECT_EQ(p.scale_step, opencv.scale_step);
}

TEST(TrackerParams, WithoutAnyFeatureAreRefusedBeforeOpenCVCrashes) {
  TestAlgo algo;
  CsrtConfig::Csrt& c = algo.config_.csrt;
  c.use_hog = c.use_color_names = c.use_rgb = c.use_gray = false;
  EXPECT_THROW(algo.createTracker_(), std::runtime_error);
  c.use_gray = true;
  EXPECT_NE(algo.createTracker_(), nullptr);
}

// ------------------------------------------------------------------------------------------------------- start

TEST_F(TrackerStart, CommitsTheWholeTrack) {
  followOld();
  algo.fullyLost_ = algo.pending_full_reset_ = algo.smoothedValid_ = true;
  algo.smoothedBox_ = {1, 2, 3, 4};
  algo.redetectAttempts_ = algo.oscillationCount_ = algo.redetectAge_ = 2;
  ASSERT_TRUE(start(target));
  EXPECT_NE(algo.tracker_, old);
  EXPECT_TRUE(algo.initialized_ && algo.trackerReady_);
  EXPECT_FALSE(algo.fullyLost_ || algo.pending_full_reset_ || algo.pending_rebuild_ || algo.smoothedValid_);
  EXPECT_FALSE(algo.dynPatchValid_);
  EXPECT_EQ(algo.trackBox_, target);
  EXPECT_EQ(algo.predictedBox_, target);
  EXPECT_EQ(algo.initBoxInCrop_, target - algo.procRoi_.tl());
  EXPECT_EQ(algo.csrtInputSize_, algo.procRoi_.size());
  EXPECT_TRUE(samePixels(algo.initCrop_, picture->getBGR()(algo.procRoi_)));
  EXPECT_EQ(algo.velocity_, cv::Point2f());
  EXPECT_EQ(algo.lastScore_, 1.0);
  EXPECT_EQ(algo.smoothedBox_, cv::Rect());
  EXPECT_EQ(algo.lostFrames_ + algo.redetectAttempts_ + algo.lostSinceRedetect_ + algo.oscillationCount_, 0);
  EXPECT_EQ(algo.redetectAge_, -1);
  EXPECT_EQ(algo.frameSize_, cv::Size(200, 160));
  EXPECT_EQ(algo.config_.input.work_width, 200);
  EXPECT_EQ(algo.config_.input.work_height, 160);
}

TEST_F(TrackerStart, ForgivesTheHealthMonitor) {
  algo.health_.update({0, 0, 4, 4}, {200, 160});
  algo.now += 5.0;
  ASSERT_TRUE(algo.health_.update({0, 0, 4, 4}, {200, 160}));
  ASSERT_TRUE(start(target));
  EXPECT_FALSE(algo.health_.update(target, {200, 160}));
}

TEST_F(TrackerStart, SaysOnWhatItStarted) {
  const Lines lines = logOfStart(target);
  ASSERT_TRUE(ok);
  const cv::Rect& w = algo.procRoi_;
  EXPECT_EQ(lines, Lines{cv::format("CSRT init(test): src 200x160 | initTrackBoxFull=(90,70,30,20) | "
                                    "ROI=(%d,%d,%d,%d) | crop=%dx%d",
                                    w.x, w.y, w.width, w.height, w.width, w.height)});
}

TEST_F(TrackerStart, CutsABoxThatLeavesThePicture) {
  ASSERT_TRUE(start({-10, -5, 40, 30}));
  EXPECT_EQ(algo.trackBox_, cv::Rect(0, 0, 30, 25));
}

TEST_F(TrackerStart, KeepsItsOwnCopyOfTheCrop) {
  cv::Mat pixels = picture->getBGR();
  ASSERT_TRUE(start(target));
  const cv::Mat before = algo.initCrop_.clone();
  pixels.setTo(cv::Scalar::all(0));
  EXPECT_TRUE(samePixels(algo.initCrop_, before));
}

TEST_F(TrackerStart, TakesThePatchWithoutItsRim) {
  ASSERT_TRUE(start(target));
  // 8 % of 30 x 20 are 2.4 and 1.6 pixels.
  EXPECT_TRUE(samePixels(algo.origPatchGpu_.download(), greyOf(picture->getBGR(), {92, 72, 26, 16})));
  EXPECT_EQ(algo.fullGrayGpu_.size(), cv::Size(200, 160));
}

TEST_F(TrackerStart, KeepsThePatchApartFromTheFrame) {
  ASSERT_TRUE(start(target));
  const cv::Mat before = algo.origPatchGpu_.download().clone();
  algo.fullGrayGpu_.upload(cv::Mat(160, 200, CV_8UC1, cv::Scalar(0)));
  EXPECT_TRUE(samePixels(algo.origPatchGpu_.download(), before));
}

// ------------------------------------------------------------------------------------------------------ window

TEST_F(TrackerStart, ChoosesTheWindowWithoutFreezing) {
  algo.config_.roi.min_delta_x = algo.config_.roi.min_delta_y = 0;
  algo.config_.roi.margin_factor = 1.0;
  algo.csrtInputSize_ = {92, 64};
  ASSERT_TRUE(start({90, 70, 30, 22}));
  // Three boxes wide, but half of CSRT's padding of 3 is wider: 1.5 boxes on every side.
  EXPECT_EQ(algo.procRoi_, cv::Rect(45, 37, 120, 88));
}

TEST_F(TrackerStart, SeesTheClippedBoxFullScoreAndTheOldSpeed) {
  algo.config_.roi.min_size = 32;
  algo.config_.csrt.padding = 1.0;
  algo.config_.roi.margin_factor = 0.5;
  algo.lastScore_ = 0.0;
  algo.velocity_ = {3.0F, 4.0F};
  ASSERT_TRUE(start({-30, 70, 60, 20}));
  EXPECT_EQ(algo.procRoi_.size(), cv::Size(60 + 20, 40 + 20)) << "30 x 20, margins of half a box, speed 5 twice over";
}

TEST_F(TrackerStart, MeasuresSmallChangesFromTheWindowBefore) {
  algo.procRoi_ = {0, 0, 158, 108};
  ASSERT_TRUE(start(target));  // wishes 150 x 100: inside the band and below the smallest change
  EXPECT_EQ(algo.procRoi_.size(), cv::Size(158, 108));
  algo.config_.roi.hysteresis_ratio = 0.0;
  ASSERT_TRUE(start(target));
  EXPECT_EQ(algo.procRoi_.size(), cv::Size(158, 108)) << "the change is small even without a band";
}

TEST_F(TrackerStart, TakesTheWholeFrameWithoutWindows) {
  algo.config_.roi.enable = false;
  ASSERT_TRUE(start(target));
  EXPECT_EQ(algo.procRoi_, cv::Rect(0, 0, 200, 160));
  EXPECT_EQ(algo.initBoxInCrop_, target);
}

TEST_F(TrackerStart, UsesTheCropThatAFrameBelowTheSmallestWindowGives) {
  algo.config_.roi.min_size = 256;
  ASSERT_TRUE(start(target));
  EXPECT_EQ(algo.procRoi_, cv::Rect(0, 0, 256, 256));
  EXPECT_EQ(algo.csrtInputSize_, cv::Size(200, 160));
}

// ---------------------------------------------------------------------------------------------------- failures

TEST_F(TrackerStart, RefusesAPictureWithoutSize) {
  followOld();
  picture->size = cv::Size(200, 0);
  EXPECT_EQ(logOfStart(target), Lines{"initializeTrackerFromFrame(test): invalid src size"});
  EXPECT_FALSE(ok);
  expectOldTrackWhole();
  EXPECT_EQ(algo.config_.input.work_width, 640) << "no size to take over";
}

TEST_F(TrackerStart, RefusesABoxOutside) {
  followOld();
  EXPECT_EQ(logOfStart({200, 70, 30, 20}), Lines{"initializeTrackerFromFrame(test): bbox out of image"});
  EXPECT_FALSE(ok);
  EXPECT_EQ(logOfStart({90, 70, 0, 20}), Lines{"initializeTrackerFromFrame(test): bbox out of image"});
  EXPECT_FALSE(ok);
  expectOldTrackWhole();
}

TEST_F(TrackerStart, RefusesAPictureWithoutPixels) {
  followOld();
  picture->onBgr = [] { return cv::Mat(); };
  EXPECT_EQ(logOfStart(target), Lines{"initializeTrackerFromFrame(test): empty full BGR"});
  EXPECT_FALSE(ok);
  EXPECT_EQ(picture->bgrCalls, 2) << "asked once more";
  expectOldTrackWhole();
}

TEST_F(TrackerStart, TakesPixelsThatComeOnTheSecondAsking) {
  const cv::Mat pixels = picture->getBGR();
  picture->onBgr = [pixels, asked = 0]() mutable { return ++asked > 1 ? pixels : cv::Mat(); };
  EXPECT_TRUE(start(target));
  EXPECT_EQ(algo.fullGrayGpu_.size(), cv::Size(200, 160));
}

TEST_F(TrackerStart, RefusesAnEmptyCrop) {
  followOld();
  picture->onCrop = [](const cv::Rect&) { return cv::Mat(); };
  EXPECT_EQ(logOfStart(target), Lines{"initializeTrackerFromFrame(test): ROI BGR empty"});
  EXPECT_FALSE(ok);
  expectOldTrackWhole();
}

TEST_F(TrackerStart, LeavesTheOldTrackWholeWhenTheNewTrackerThrows) {
  followOld();
  EXPECT_THROW(start({90, 70, 1, 1}), cv::Exception);
  expectOldTrackWhole();
  algo.config_.csrt.use_hog = algo.config_.csrt.use_rgb = false;
  EXPECT_THROW(start(target), std::runtime_error);
  expectOldTrackWhole();
}

TEST_F(TrackerStart, LeavesTheOldTrackWholeWhenTheCropHasAnUnknownType) {
  followOld();
  picture->onCrop = [](const cv::Rect& r) { return cv::Mat(r.size(), CV_16UC3); };
  EXPECT_THROW(start(target), std::runtime_error);
  expectOldTrackWhole();
}

// ---------------------------------------------------------------------------------------------------- refining

TEST_F(TrackerStart, RefinesOnlyWhenAsked) {
  const cv::Rect loose(80, 60, 44, 34);  // the target is the lower right of it
  picture = DrawnScene({200, 160}, {24, 18}).pictureAt({98, 74});
  cv::Mat pixels = picture->getBGR();
  cv::rectangle(pixels, {98, 74, 24, 18}, cv::Scalar(20, 20, 230), cv::FILLED);
  ASSERT_TRUE(start(loose, false));
  EXPECT_EQ(algo.trackBox_, loose);
  ASSERT_TRUE(start(loose, true));
  EXPECT_NE(algo.trackBox_, loose);
  const cv::Point centre = (algo.trackBox_.tl() + algo.trackBox_.br()) / 2;
  EXPECT_NEAR(centre.x, 110, 2);
  EXPECT_NEAR(centre.y, 83, 2);
  EXPECT_EQ(algo.initBoxInCrop_ + algo.procRoi_.tl(), algo.trackBox_);
  EXPECT_TRUE(samePixels(algo.origPatchGpu_.download(), greyOf(pixels, algo.trackBox_)))
      << "the patch of a refined box keeps its rim";
}

TEST_F(TrackerStart, GrowsARefinedBoxByOnePercentASide) {
  // On a plain ground the refinement gives the box back, and it grows: 1 % of 120 and 100 is one pixel a side.
  picture = plainPicture({400, 360});
  ASSERT_TRUE(start({140, 130, 120, 100}, true));
  EXPECT_EQ(algo.trackBox_, cv::Rect(139, 129, 122, 102));
}

// ----------------------------------------------------------------------------------------------------- rebuild

TEST_F(TrackerStart, RebuildsNothingWithoutAStart) {
  algo.enableDebug(true);
  EXPECT_EQ(logOf([&] { algo.rebuildTrackerKeepingState_Locked_("why"); }),
            Lines{"rebuildTrackerKeepingState(why): no state => skip"});
  EXPECT_EQ(algo.tracker_, nullptr);
}

TEST_F(TrackerStart, RebuildsOnTheFirstCropAndKeepsTheCounters) {
  ASSERT_TRUE(start(target));
  const auto before = algo.tracker_;
  algo.trackBox_ = {95, 75, 30, 20};
  algo.predictedBox_ = {1, 1, 2, 2};
  algo.velocity_ = {3.0F, 4.0F};
  algo.lostFrames_ = 3;
  algo.redetectAge_ = 2;
  algo.smoothedValid_ = true;
  algo.enableDebug(true);
  EXPECT_EQ(logOf([&] { algo.rebuildTrackerKeepingState_Locked_("why"); }),
            Lines{"rebuildTrackerKeepingState(why): recreating CSRT"});
  EXPECT_NE(algo.tracker_, before);
  EXPECT_TRUE(algo.trackerReady_ && algo.initialized_ && algo.smoothedValid_);
  EXPECT_EQ(algo.trackBox_, cv::Rect(95, 75, 30, 20));
  EXPECT_EQ(algo.predictedBox_, algo.trackBox_);
  EXPECT_EQ(algo.velocity_, cv::Point2f());
  EXPECT_EQ(algo.lostFrames_, 3);
  EXPECT_EQ(algo.redetectAge_, 2);
  cv::Rect found;
  EXPECT_TRUE(algo.tracker_->update(algo.initCrop_, found));
  EXPECT_GT(overlap(found, algo.initBoxInCrop_), 0.7) << "where the target was at the start";
}

TEST_F(TrackerStart, NeverKeepsATrackerWhoseStartThrew) {
  ASSERT_TRUE(start(target));
  algo.initBoxInCrop_ = {5, 5, 1, 1};
  EXPECT_THROW(algo.rebuildTrackerKeepingState_Locked_("why"), cv::Exception);
  EXPECT_EQ(algo.tracker_, nullptr);
  EXPECT_FALSE(algo.trackerReady_);
}

// ---------------------------------------------------------------------------------------------------- pictures

TEST(EnsureBgr8, SharesThreeChannelsAndConvertsOneAndFour) {
  const cv::Mat bgr(4, 5, CV_8UC3, cv::Scalar(1, 2, 3));
  EXPECT_EQ(TestAlgo::ensureBGR8_(bgr).data, bgr.data);
  EXPECT_TRUE(samePixels(TestAlgo::ensureBGR8_(cv::Mat(4, 5, CV_8UC4, cv::Scalar(1, 2, 3, 9))), bgr));
  EXPECT_TRUE(samePixels(TestAlgo::ensureBGR8_(cv::Mat(4, 5, CV_8UC1, cv::Scalar(7))),
                         cv::Mat(4, 5, CV_8UC3, cv::Scalar(7, 7, 7))));
}

TEST(EnsureBgr8, NamesTheTypeItRefuses) {
  const auto refusal = [](int type) -> std::string {
    try {
      TestAlgo::ensureBGR8_(cv::Mat(2, 2, type));
    } catch (const std::runtime_error& e) {
      return e.what();
    }
    return "taken";
  };
  EXPECT_EQ(refusal(CV_16UC3), "ensureBGR8: unsupported CV_16UC3");
  EXPECT_EQ(refusal(CV_32FC1), "ensureBGR8: unsupported CV_32FC1");
  EXPECT_EQ(refusal(CV_8UC2), "ensureBGR8: unsupported CV_8UC2");
  EXPECT_EQ(refusal(CV_8SC3), "ensureBGR8: unsupported CV_8SC3");
}

TEST(EnsureBgr8, GivesContinuousPixels) {
  const cv::Mat whole(6, 8, CV_8UC3, cv::Scalar(1, 2, 3));
  const cv::Mat part = whole(cv::Rect(1, 1, 4, 3));
  const cv::Mat continuous = TestAlgo::ensureBGR8Contiguous_(part);
  EXPECT_TRUE(continuous.isContinuous());
  EXPECT_TRUE(samePixels(continuous, part));
  EXPECT_EQ(TestAlgo::ensureBGR8Contiguous_(whole).data, whole.data) << "no copy without need";
}

TEST(FullGrey, IsTheGreyOfTheWholePicture) {
  const auto picture = DrawnScene({40, 30}, {8, 6}).pictureAt({3, 4});
  GpuImage grey;
  TestAlgo::buildFullYFromVP_Locked_(*picture, grey);
  EXPECT_TRUE(samePixels(grey.download(), greyOf(picture->getBGR(), {0, 0, 40, 30})));
  EXPECT_EQ(grey.type(), CV_8UC1);
  picture->onBgr = [] { return cv::Mat(); };
  TestAlgo::buildFullYFromVP_Locked_(*picture, grey);
  EXPECT_TRUE(grey.empty());
}
