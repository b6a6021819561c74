// A change of the field of view while tracking: when the tracker starts over, on which box, and what is remembered.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/redetect_fixture.h"

namespace {

const cv::Size kFrame(640, 360);

class ZoomTest : public ::testing::Test {
 protected:
  ZoomTest() {
    makeTrackerCheap(algo_.config_);
    algo_.enableDebug(true);
    follow({270, 155, 100, 50});
    remember(60.0, 34.0);
  }
  void follow(const cv::Rect& box) { algo_.follow(box, {0, 0, 640, 360}); }
  void remember(double hfov, double vfov) {
    algo_.zoomRefValid_ = true;
    algo_.zoomRefHfov_ = hfov;
    algo_.zoomRefVfov_ = vfov;
  }
  std::shared_ptr<TestPicture> seenWith(double hfov, double vfov) const {
    return std::make_shared<TestPicture>(pixels_, viewOf(0.0, 0.0, hfov, vfov));
  }
  bool handle(const std::shared_ptr<TestPicture>& picture) {
    bool reseeded = false;
    log_ = logOf([&] { reseeded = algo_.maybeHandleZoomChangeLocked_(*picture); });
    return reseeded;
  }
  bool zoomTo(double hfov, double vfov) { return handle(seenWith(hfov, vfov)); }
  std::string said(const std::string& words) const { return lineStarting(log_, words); }
  void expectReference(double hfov, double vfov) const {
    EXPECT_TRUE(algo_.zoomRefValid_);
    EXPECT_EQ(algo_.zoomRefHfov_, hfov);
    EXPECT_EQ(algo_.zoomRefVfov_, vfov);
  }

  TestAlgo algo_;
  cv::Mat pixels_ = textured::texture(kFrame, 6, 4);
  std::vector<std::string> log_;
};

// --------------------------------------------------------------------------------------------------- when

TEST_F(ZoomTest, AChangeBelowTwoPercentOnlyMovesTheReference) {
  EXPECT_FALSE(zoomTo(59.0, 34.0));  // 1.0169
  expectReference(59.0, 34.0);
  EXPECT_EQ(algo_.trackBox_, cv::Rect(270, 155, 100, 50));
  EXPECT_FALSE(algo_.justReseeded_);
}

TEST_F(ZoomTest, AChangeAboveTwoPercentStartsOver) {
  EXPECT_TRUE(zoomTo(58.0, 34.0));  // 1.0345
  EXPECT_TRUE(algo_.justReseeded_);
  expectReference(58.0, 34.0);
  EXPECT_EQ(algo_.trackBox_, cv::Rect(268, 155, 103, 50));
  EXPECT_EQ(said("CSRT zoom_changed: "), "CSRT zoom_changed: scale_x=1.0345 scale_y=1.0000 bbox=(268,155,103,50)");
  EXPECT_NE(said("CSRT init(zoom_changed)"), "");
}

TEST_F(ZoomTest, EitherAxisAndEitherDirectionCounts) {
  EXPECT_TRUE(zoomTo(60.0, 33.0));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(100, 52));
  EXPECT_TRUE(zoomTo(66.0, 33.0));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(91, 52));
}

TEST_F(ZoomTest, TheFirstGeometryIsOnlyRemembered) {
  algo_.zoomRefValid_ = false;
  EXPECT_FALSE(zoomTo(20.0, 11.0));
  expectReference(20.0, 11.0);
  EXPECT_TRUE(zoomTo(10.0, 5.5));
}

TEST_F(ZoomTest, ASlowZoomNeverStartsOver) {
  double fov = 60.0;
  for (int i = 0; i < 40; ++i) {
    fov /= 1.019;
    ASSERT_FALSE(zoomTo(fov, 34.0)) << i;
  }
  expectReference(fov, 34.0);
  EXPECT_LT(fov, 30.0) << "half the field of view, and no restart";
}

TEST_F(ZoomTest, InvalidMetadataKeepsTheReference) {
  EXPECT_FALSE(handle(std::make_shared<TestPicture>(pixels_)));
  Metadata whole = viewOf(0.0, 0.0, 20.0, 11.0);
  whole[Metadata::Keys::kHfovDeg] = 20;
  EXPECT_FALSE(handle(std::make_shared<TestPicture>(pixels_, whole))) << "an integer is no field of view";
  EXPECT_FALSE(zoomTo(1e-6, 11.0));
  expectReference(60.0, 34.0);
  EXPECT_TRUE(zoomTo(58.0, 34.0)) << "compared with the last valid one";
}

TEST_F(ZoomTest, AnUnusableReferenceIsReplaced) {
  remember(1e-7, 34.0);
  EXPECT_FALSE(zoomTo(20.0, 11.0));
  expectReference(20.0, 11.0);
}

TEST_F(ZoomTest, DoesNothingWithoutATrack) {
  const auto expectNothing = [&] {
    EXPECT_FALSE(zoomTo(20.0, 11.0));
    expectReference(60.0, 34.0);
    follow({270, 155, 100, 50});
  };
  algo_.trackingStarted_ = false;
  expectNothing();
  algo_.initialized_ = false;
  expectNothing();
  algo_.tracker_.reset();
  expectNothing();
  algo_.trackBox_ = {270, 155, 0, 50};
  expectNothing();
  EXPECT_TRUE(zoomTo(20.0, 11.0));
}

// --------------------------------------------------------------------------------------------------- on what

TEST_F(ZoomTest, ScalesTheBoxAroundItsCentre) {
  EXPECT_TRUE(zoomTo(30.0, 17.0));
  EXPECT_EQ(algo_.trackBox_, cv::Rect(220, 130, 200, 100));
  EXPECT_EQ(said("CSRT zoom_changed clamp"), "");
}

TEST_F(ZoomTest, HoldsTheSizeBelowTheLargestRatioAndSaysSo) {
  EXPECT_TRUE(zoomTo(20.0, 34.0 / 3.0));
  EXPECT_EQ(algo_.trackBox_, cv::Rect(195, 118, 250, 125));  // 117.5 rounds away from zero
  EXPECT_EQ(said("CSRT zoom_changed clamp"),
            "CSRT zoom_changed clamp: raw=(300.00,150.00) clamped=(250.00,125.00) ref=(100.00,50.00) "
            "scale=(3.0000,3.0000) limits=[0.300,2.500]");
}

TEST_F(ZoomTest, HoldsTheSizeAboveTheSmallestRatio) {
  remember(10.0, 10.0);
  EXPECT_TRUE(zoomTo(50.0, 20.0));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(30, 25)) << "0.3 of 100, and half of 50";
}

TEST_F(ZoomTest, MeasuresTheLimitsFromTheInitialBox) {
  algo_.initBox_ = {0, 0, 40, 100};
  EXPECT_TRUE(zoomTo(40.0, 17.0));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(100, 100)) << "2.5 times 40, and twice 50";
  EXPECT_NE(said("CSRT zoom_changed clamp").find("ref=(40.00,100.00)"), std::string::npos);
}

TEST_F(ZoomTest, MeasuresTheLimitsFromTheTrackBoxWithoutAnInitialOne) {
  algo_.initBox_ = {};
  EXPECT_TRUE(zoomTo(20.0, 34.0));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(250, 50));
}

TEST_F(ZoomTest, ABoxAtTheBorderKeepsItsSizeAndIsShifted) {
  follow({560, 310, 80, 50});
  EXPECT_TRUE(zoomTo(30.0, 17.0));
  EXPECT_EQ(algo_.trackBox_, cv::Rect(480, 260, 160, 100));
}

TEST_F(ZoomTest, TheTinyestFieldOfViewOverflowsNothing) {
  EXPECT_TRUE(zoomTo(1.1e-6, 1.1e-6));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(250, 125));
  EXPECT_TRUE(zoomTo(1.0, 1.0));
  EXPECT_EQ(algo_.trackBox_.size(), cv::Size(30, 15));
}

TEST_F(ZoomTest, NeverRefinesTheBox) {
  pixels_.setTo(cv::Scalar(40, 40, 40));
  cv::rectangle(pixels_, cv::Rect(290, 160, 60, 40), cv::Scalar(220, 200, 30), cv::FILLED);
  algo_.config_.input.refine_init = true;
  EXPECT_TRUE(zoomTo(30.0, 17.0));
  EXPECT_EQ(algo_.trackBox_, cv::Rect(220, 130, 200, 100));
}

// ------------------------------------------------------------------------------------------------- failures

TEST_F(ZoomTest, AFailedRestartKeepsTheReferenceAndTriesAgain) {
  auto blind = seenWith(30.0, 17.0);
  blind->onCrop = [](const cv::Rect&) { return cv::Mat(); };
  EXPECT_FALSE(handle(blind));
  EXPECT_FALSE(algo_.justReseeded_);
  expectReference(60.0, 34.0);
  EXPECT_EQ(algo_.trackBox_, cv::Rect(270, 155, 100, 50));
  EXPECT_TRUE(zoomTo(30.0, 17.0)) << "the same field of view again";
  EXPECT_EQ(algo_.trackBox_, cv::Rect(220, 130, 200, 100));
}

TEST_F(ZoomTest, AnExceptionOfTheRestartCountsAsItsFailure) {
  auto failing = seenWith(30.0, 17.0);
  failing->onCrop = [](const cv::Rect&) -> cv::Mat { CV_Error(cv::Error::StsError, "no memory"); };
  EXPECT_FALSE(handle(failing));
  expectReference(60.0, 34.0);
  EXPECT_TRUE(algo_.initialized_);
  EXPECT_TRUE(zoomTo(30.0, 17.0));
}

// ------------------------------------------------------------------------------------------------- in update()

TEST_F(ZoomTest, OneFrameAnswersNothingAndTheNextTracks) {
  algo_.config_.csrt = {};  // the tracker in full: a cheap one is only good to a cell of its small picture
  const textured::Scene scene(kFrame, {80, 60});
  const auto shot = [&](double zoom) {
    cv::Mat frame = scene.empty();
    cv::Mat sprite;
    cv::resize(scene.sprite, sprite, {}, zoom, zoom, cv::INTER_LINEAR);
    textured::put(frame, sprite, cv::Point(320 - sprite.cols / 2, 180 - sprite.rows / 2));
    return std::make_shared<TestPicture>(frame, viewOf(0.0, 0.0, 60.0 / zoom, 34.0 / zoom));
  };
  algo_.enableDebug(false);
  bool started = false;
  algo_.init({shot(1.0)}, {280, 150, 80, 60}, &started);
  ASSERT_TRUE(started);
  EXPECT_FALSE(reportedIn(algo_.update({shot(1.0)}, nullptr)).empty());

  algo_.enableDebug(true);
  std::vector<AlgoOutput> outputs;
  log_ = logOf([&] { outputs = algo_.update({shot(1.5)}, nullptr); });
  EXPECT_TRUE(reportedIn(outputs).empty());
  EXPECT_EQ(log_.back(), "update(): OUT 0 detections (zoom reseed)");
  EXPECT_FALSE(algo_.justReseeded_);

  algo_.enableDebug(false);
  const std::vector<Reported> reported = reportedIn(algo_.update({shot(1.5)}, nullptr));
  ASSERT_FALSE(reported.empty());
  EXPECT_GT(overlap(reported.front().box, {260, 135, 120, 90}), 0.7);
}

}  // namespace
