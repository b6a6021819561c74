// Pointing the camera first: the picture kept of the target, where it is looked for, and when tracking is armed.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/captured_log.h"
#include "support/redetect_fixture.h"

namespace {

using Keys = Metadata::Keys;
const cv::Size kFrame(640, 360);

std::shared_ptr<TestPicture> withoutPixels(const cv::Mat& bgr) {
  auto picture = std::make_shared<TestPicture>(bgr);
  picture->onBgr = [] { return cv::Mat(); };
  return picture;
}

bool same(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && cv::norm(a, b, cv::NORM_INF) == 0.0;
}

// ------------------------------------------------------------------------------------------------------ capture

class CaptureTest : public ::testing::Test {
 protected:
  CaptureTest() { algo_.enableDebug(true); }
  bool capture(const std::shared_ptr<TestPicture>& picture, const cv::Rect& box) {
    bool ok = false;
    log_ = logOf([&] { ok = algo_.capturePrepositionReferenceLocked_(*picture, box); });
    return ok;
  }

  TestAlgo algo_;
  cv::Mat pixels_ = textured::texture(kFrame, 6, 4);
  std::shared_ptr<TestPicture> picture_ = std::make_shared<TestPicture>(pixels_);
  std::vector<std::string> log_;
};

TEST_F(CaptureTest, KeepsTheMiddleOfTheVisibleBox) {
  algo_.dynPatchValid_ = true;
  ASSERT_TRUE(capture(picture_, {600, 100, 80, 50}));
  const cv::Rect patch(603, 104, 34, 42);  // 8 % of 40 are 3.2, of 50 are 4
  EXPECT_TRUE(same(algo_.origPatchGpu_.download(), greyOf(pixels_)(patch)));
  EXPECT_TRUE(same(algo_.dynPatchGpu_.download(), greyOf(pixels_)(patch)));
  EXPECT_FALSE(algo_.dynPatchValid_);
  EXPECT_EQ(algo_.frameSize_, kFrame);
  EXPECT_TRUE(same(algo_.fullGrayGpu_.download(), greyOf(pixels_)));
  const std::vector<std::string> expected{"capturePrepositionReference: bbox=(600,100,40,50) patch=(603,104,34,42)"};
  EXPECT_EQ(log_, expected);
}

TEST_F(CaptureTest, TheTwoPatchesHavePixelsOfTheirOwn) {
  ASSERT_TRUE(capture(picture_, {100, 100, 40, 40}));
  const cv::Mat before = algo_.origPatchGpu_.download().clone();
  algo_.dynPatchGpu_.upload(cv::Mat::zeros(before.size(), CV_8UC1));
  algo_.fullGrayGpu_.upload(cv::Mat::zeros(kFrame, CV_8UC1));
  EXPECT_TRUE(same(algo_.origPatchGpu_.download(), before));
}

TEST_F(CaptureTest, RoundsTheMarginHalvesAway) {
  ASSERT_TRUE(capture(picture_, {100, 100, 19, 6}));  // 1.52 and 0.48
  EXPECT_EQ(algo_.origPatchGpu_.size(), cv::Size(15, 6));
}

TEST_F(CaptureTest, KeepsABoxOfOnePixel) {
  ASSERT_TRUE(capture(picture_, {100, 100, 1, 1}));
  EXPECT_EQ(algo_.origPatchGpu_.size(), cv::Size(1, 1));
}

TEST_F(CaptureTest, RefusesAFrameWithoutSize) {
  picture_->size = cv::Size(640, 0);
  EXPECT_FALSE(capture(picture_, {100, 100, 40, 40}));
  EXPECT_EQ(log_, std::vector<std::string>{"capturePrepositionReference: invalid src size"});
}

TEST_F(CaptureTest, RefusesABoxOutsideTheImageAndKeepsNothing) {
  for (const cv::Rect& box : {cv::Rect(640, 100, 40, 40), cv::Rect(100, -40, 40, 40), cv::Rect(100, 100, 0, 40)}) {
    EXPECT_FALSE(capture(picture_, box)) << box;
    EXPECT_EQ(log_, std::vector<std::string>{"capturePrepositionReference: bbox out of image"});
    EXPECT_TRUE(algo_.origPatchGpu_.empty());
    EXPECT_EQ(algo_.frameSize_, cv::Size());
  }
}

TEST_F(CaptureTest, RefusesAFrameWithoutPixels) {
  EXPECT_FALSE(capture(withoutPixels(pixels_), {100, 100, 40, 40}));
  EXPECT_EQ(log_, std::vector<std::string>{"capturePrepositionReference: empty full BGR"});
  EXPECT_TRUE(algo_.origPatchGpu_.empty());
}

TEST_F(CaptureTest, AsksALazyFrameTwice) {
  picture_->onBgr = [this] { return picture_->bgrCalls == 1 ? cv::Mat() : pixels_; };
  EXPECT_TRUE(capture(picture_, {100, 100, 40, 40}));
  EXPECT_EQ(picture_->bgrCalls, 2);
}

// --------------------------------------------------------------------------------------------------- refinement

class RefineTest : public ::testing::Test {
 protected:
  RefineTest() {
    algo_.enableDebug(true);
    const cv::Mat first = scene_.with({100, 100});
    TestPicture picture(first);
    algo_.origPatchGpu_.upload(greyOf(scene_.sprite));
    algo_.fullGrayGpu_.upload(greyOf(first));  // what the start has left
  }
  bool refine(const std::shared_ptr<TestPicture>& picture, const cv::Rect& candidate) {
    refined_ = {1, 2, 3, 4};
    match_ = 42.0;
    return algo_.refinePrepositionCandidateLocked_(*picture, candidate, refined_, match_);
  }
  bool refineOn(const cv::Mat& bgr, const cv::Rect& candidate) {
    return refine(std::make_shared<TestPicture>(bgr), candidate);
  }

  textured::Scene scene_{kFrame, {40, 40}};
  TestAlgo algo_;
  cv::Rect refined_;
  double match_ = 0.0;
};

TEST_F(RefineTest, FindsTheTargetInThePictureOfThisCall) {
  const cv::Mat now = scene_.with({310, 150});
  EXPECT_TRUE(refineOn(now, {300, 160, 40, 40}));
  EXPECT_EQ(refined_, cv::Rect(310, 150, 40, 40));
  EXPECT_NEAR(match_, 1.0, 1e-3);
  EXPECT_TRUE(same(algo_.fullGrayGpu_.download(), greyOf(now)));
}

TEST_F(RefineTest, NeverMatchesAgainstTheFrameOfTheStart) {
  EXPECT_FALSE(refine(withoutPixels(scene_.with({100, 100})), {100, 100, 40, 40}));
  EXPECT_EQ(match_, -1.0);
  EXPECT_EQ(refined_, cv::Rect(100, 100, 40, 40));
}

TEST_F(RefineTest, NeedsThePictureOfTheTarget) {
  algo_.origPatchGpu_.release();
  auto picture = std::make_shared<TestPicture>(scene_.with({300, 160}));
  EXPECT_FALSE(refine(picture, {300, 160, 40, 40}));
  EXPECT_EQ(match_, -1.0);
  EXPECT_EQ(refined_, cv::Rect(300, 160, 40, 40));
  EXPECT_EQ(picture->bgrCalls, 0);
}

TEST_F(RefineTest, ARejectedScoreIsReportedAndTheBoxStays) {
  const cv::Mat now = scene_.empty();
  EXPECT_TRUE(refineOn(now, {300, 160, 40, 40})) << "whatever resembles most is above 0.15";
  const double score = match_;
  algo_.config_.preposition.match_min_score = std::nextafter(score, 1.0);
  EXPECT_FALSE(refineOn(now, {300, 160, 40, 40}));
  EXPECT_EQ(match_, score);
  EXPECT_EQ(refined_, cv::Rect(300, 160, 40, 40));
}

TEST_F(RefineTest, AnEqualScoreIsAccepted) {
  const cv::Mat now = scene_.empty();
  refineOn(now, {300, 160, 40, 40});
  algo_.config_.preposition.match_min_score = match_;
  EXPECT_TRUE(refineOn(now, {300, 160, 40, 40}));
}

// 40 + 2 * 24 = 88 pixels around the candidate's middle: 24 pixels to every side are reached, 25 are not.
TEST_F(RefineTest, LooksAroundTheMiddleOfTheCandidate) {
  algo_.config_.redetect.fine_roi_size = 32;
  for (const cv::Point& place : {cv::Point(276, 136), cv::Point(324, 184)}) {
    EXPECT_TRUE(refineOn(scene_.with(place), {300, 160, 40, 40}));
    EXPECT_EQ(refined_, scene_.box(place));
  }
  for (const cv::Point& place : {cv::Point(275, 160), cv::Point(325, 160), cv::Point(300, 185)}) {
    refineOn(scene_.with(place), {300, 160, 40, 40});
    EXPECT_NE(refined_, scene_.box(place)) << place;
  }
}

TEST_F(RefineTest, ACandidateOutsideTheFrameIsLeftAlone) {
  EXPECT_FALSE(refineOn(scene_.with({300, 160}), {5000, 160, 40, 40}));
  EXPECT_EQ(match_, -1.0);
  EXPECT_EQ(refined_, cv::Rect(5000, 160, 40, 40));
}

TEST_F(RefineTest, AnOpenCvErrorIsLoggedAndMeansNo) {
  cv::Mat other;
  greyOf(scene_.sprite).convertTo(other, CV_32F);
  algo_.origPatchGpu_.upload(other);  // not the frame's type
  bool ok = true;
  const std::vector<std::string> log = logOf([&] { ok = refineOn(scene_.with({300, 160}), {300, 160, 40, 40}); });
  EXPECT_FALSE(ok);
  EXPECT_NE(lineStarting(log, "CSRT preposition refine failed: "), "");
}

TEST_F(RefineTest, OtherErrorsPassThrough) {
  auto picture = std::make_shared<TestPicture>(scene_.with({300, 160}));
  picture->onBgr = []() -> cv::Mat { throw std::runtime_error("host"); };
  EXPECT_THROW(refine(picture, {300, 160, 40, 40}), std::runtime_error);
}

// ------------------------------------------------------------------------------------------------------- arming

/// Asked to follow a target off the centre at pan 0, tilt 0; the camera then turns. 64 x 36 degrees, ten pixels each.
class ArmTest : public ::testing::Test {
 protected:
  ArmTest() {
    makeTrackerCheap(algo_.config_);
    algo_.config_.preposition.enabled = true;
    algo_.enableDebug(true);
  }

  static Metadata view(double pan, double tilt, double hfov = 64.0, double vfov = 36.0) {
    return viewOf(pan, tilt, hfov, vfov);
  }
  std::shared_ptr<TestPicture> picture(const cv::Point& at, Metadata metadata) const {
    return std::make_shared<TestPicture>(scene_.with(at), std::move(metadata));
  }
  // The target's centre is 160 right of and 80 above the image centre: 16 and 8 degrees.
  void start() {
    Metadata metadata = view(0.0, 0.0);
    metadata[Keys::kFollowMeEnabledCommand] = 1;
    startOn(picture({460, 80}, metadata));
  }
  void startOn(const std::shared_ptr<TestPicture>& first) {
    bool started = false;
    log_ = logOf([&] { outputs_ = algo_.init({first}, {460, 80, 40, 40}, &started); });
    ASSERT_TRUE(started);
    ASSERT_TRUE(algo_.prepositionWaiting_);
    ASSERT_EQ(outputs_.size(), 1U);
    ASSERT_EQ(outputs_.front().name, "gimbal_preposition.v1");
  }
  std::vector<Reported> step(const std::shared_ptr<TestPicture>& frame) {
    log_ = logOf([&] { outputs_ = algo_.update({frame}, nullptr); });
    return reportedIn(outputs_);
  }
  // A frame on which the camera points at the target.
  std::shared_ptr<TestPicture> aligned(const cv::Point& at = {300, 160}) const { return picture(at, view(16.0, 8.0)); }
  std::shared_ptr<TestPicture> misaligned() const { return picture({380, 160}, view(8.0, 8.0)); }
  std::string said(const std::string& words) const { return lineStarting(log_, words); }

  textured::Scene scene_{kFrame, {40, 40}};
  TestAlgo algo_;
  std::vector<std::string> log_;
  std::vector<AlgoOutput> outputs_;
};

TEST_F(ArmTest, TwoAlignedFramesArmAndTheNextTracks) {
  start();
  EXPECT_TRUE(step(aligned()).empty());
  const std::vector<std::string> first{
      "CSRT preposition: alignment hit 1/2 dx_norm=0.00000 dy_norm=0.00000 tol=0.02000",
      "update(): OUT 0 detections (waiting preposition alignment)"};
  EXPECT_EQ(log_, first);

  EXPECT_TRUE(step(aligned({304, 158})).empty()) << "the frame that arms answers nothing";
  EXPECT_EQ(said("CSRT preposition: refined"),
            "CSRT preposition: refined with init patch match=1.000 bbox=(307,161,34,34)");
  EXPECT_EQ(said("CSRT preposition: tracking"),
            "CSRT preposition: tracking armed bbox=(307,161,34,34) dx_norm=0.00000 dy_norm=0.00000 hfov=64.000 "
            "vfov=36.000 tol=0.02000 hold=2 match=1.000");
  EXPECT_NE(said("CSRT init(preposition_aligned)"), "");
  EXPECT_EQ(log_.back(), "update(): OUT 0 detections (skip tracking once)");
  EXPECT_FALSE(algo_.prepositionWaiting_);
  EXPECT_TRUE(algo_.trackingStarted_);
  EXPECT_FALSE(algo_.justReseeded_);
  EXPECT_EQ(algo_.alignmentHits_, 0);
  EXPECT_TRUE(algo_.zoomRefValid_);
  EXPECT_EQ(algo_.zoomRefHfov_, 64.0);
  EXPECT_EQ(algo_.zoomRefVfov_, 36.0);

  const std::vector<Reported> reported = step(aligned({306, 159}));
  ASSERT_FALSE(reported.empty());
  EXPECT_GT(overlap(reported.front().box, {309, 162, 34, 34}), 0.6);
}

TEST_F(ArmTest, OneHeldFrameArmsAtOnceWithoutAHitLine) {
  algo_.config_.preposition.alignment_hold_frames = 1;
  start();
  step(aligned());
  EXPECT_EQ(said("CSRT preposition: alignment hit"), "");
  EXPECT_NE(said("CSRT preposition: tracking armed"), "");
}

TEST_F(ArmTest, AHoldBelowOneCountsAsOne) {
  algo_.config_.preposition.alignment_hold_frames = 0;
  start();
  step(aligned());
  EXPECT_NE(said("CSRT preposition: tracking armed").find("hold=1 "), std::string::npos);
}

TEST_F(ArmTest, AMisalignedFrameStartsTheCountAgain) {
  start();
  step(aligned());
  EXPECT_TRUE(step(misaligned()).empty());
  EXPECT_EQ(said("CSRT preposition: wait"),
            "CSRT preposition: wait alignment dx_norm=0.12500 dy_norm=0.00000 tol=0.02000");
  EXPECT_EQ(algo_.alignmentHits_, 0);
  step(aligned());
  EXPECT_NE(said("CSRT preposition: alignment hit 1/2"), "");
}

TEST_F(ArmTest, AFrameWithoutGeometryStartsTheCountAgain) {
  start();
  step(aligned());
  Metadata noPan = view(16.0, 8.0);
  noPan.erase(Keys::kPanDeg);
  EXPECT_TRUE(step(picture({300, 160}, noPan)).empty());
  EXPECT_EQ(log_.front(), "CSRT preposition: waiting for valid metadata");
  EXPECT_EQ(algo_.alignmentHits_, 0);
  step(aligned());
  EXPECT_TRUE(algo_.prepositionWaiting_);
  step(aligned());
  EXPECT_FALSE(algo_.prepositionWaiting_);
}

TEST_F(ArmTest, ExactlyTheToleranceIsAlignedOnBothAxesAndSides) {
  algo_.config_.preposition.alignment_tol_norm = 0.125;
  start();
  for (const cv::Point2d& offset :
       {cv::Point2d(8.0, 0.0), cv::Point2d(-8.0, 0.0), cv::Point2d(0.0, 4.5), cv::Point2d(0.0, -4.5)}) {
    algo_.alignmentHits_ = 0;
    step(picture({300, 160}, view(16.0 + offset.x, 8.0 + offset.y)));
    EXPECT_EQ(algo_.alignmentHits_, 1) << offset;
    step(picture({300, 160}, view(16.0 + offset.x * 1.001, 8.0 + offset.y * 1.001)));
    EXPECT_EQ(algo_.alignmentHits_, 0) << offset;
  }
}

TEST_F(ArmTest, ArmsAcrossTheTurnOfThePan) {
  Metadata metadata = view(170.0, 0.0);
  metadata[Keys::kFollowMeEnabledCommand] = 1;
  startOn(picture({460, 80}, metadata));  // the target is at 186 degrees
  EXPECT_EQ(algo_.prepositionTargetPan_, 186.0);
  step(picture({300, 160}, view(-174.0, 8.0)));
  EXPECT_EQ(algo_.alignmentHits_, 1);
  step(picture({300, 160}, view(186.0, 8.0)));
  EXPECT_FALSE(algo_.prepositionWaiting_);
}

TEST_F(ArmTest, ABadMatchArmsOnTheComputedBox) {
  algo_.config_.preposition.match_min_score = 0.95;
  start();
  step(aligned());
  step(std::make_shared<TestPicture>(scene_.empty(), view(16.0, 8.0)));
  const std::string line = said("CSRT preposition: using geometric bbox match=0.");
  EXPECT_NE(line.find(" bbox=(300,160,40,40)"), std::string::npos) << line;
  EXPECT_EQ(algo_.trackBox_, cv::Rect(300, 160, 40, 40));
}

TEST_F(ArmTest, AFailedCaptureIsIgnoredAndArmsOnTheComputedBox) {
  Metadata metadata = view(0.0, 0.0);
  metadata[Keys::kFollowMeEnabledCommand] = 1;
  const auto first = picture({460, 80}, metadata);
  first->onBgr = [] { return cv::Mat(); };
  startOn(first);
  EXPECT_NE(said("capturePrepositionReference: empty full BGR"), "");
  step(aligned());
  step(aligned({304, 158}));
  EXPECT_EQ(said("CSRT preposition: using"),
            "CSRT preposition: using geometric bbox match=-1.000 bbox=(300,160,40,40)");
  EXPECT_FALSE(algo_.prepositionWaiting_);
}

TEST_F(ArmTest, AFailedTrackerStartKeepsTheCountAndTriesAgain) {
  start();
  step(aligned());
  auto blind = aligned();
  blind->onCrop = [](const cv::Rect&) { return cv::Mat(); };
  EXPECT_TRUE(step(blind).empty());
  EXPECT_EQ(said("CSRT preposition: tracker"), "CSRT preposition: tracker init failed bbox=(303,163,34,34)");
  EXPECT_EQ(log_.back(), "update(): OUT 0 detections (waiting preposition alignment)");
  EXPECT_EQ(algo_.alignmentHits_, 2);
  step(aligned());
  EXPECT_FALSE(algo_.prepositionWaiting_) << "at once";
}

TEST_F(ArmTest, AnExceptionOfTheTrackerStartCountsAsItsFailure) {
  start();
  step(aligned());
  auto failing = aligned();
  failing->onCrop = [](const cv::Rect&) -> cv::Mat { CV_Error(cv::Error::StsError, "no memory"); };
  EXPECT_TRUE(step(failing).empty());
  EXPECT_NE(said("CSRT preposition: tracker init failed"), "");
  EXPECT_TRUE(algo_.prepositionWaiting_);
  step(aligned());
  EXPECT_FALSE(algo_.prepositionWaiting_);
}

TEST_F(ArmTest, WaitingKeepsAFullResetPending) {
  start();
  algo_.pending_full_reset_ = true;
  step(misaligned());
  EXPECT_TRUE(algo_.pending_full_reset_);
  EXPECT_TRUE(algo_.prepositionWaiting_);
}

TEST_F(ArmTest, NothingArmsWithoutWaiting) {
  auto frame = aligned();
  EXPECT_FALSE(algo_.tryArmTrackingLocked_(*frame));
  EXPECT_EQ(algo_.alignmentHits_, 0);
}

TEST_F(ArmTest, AnglesAtTheEndsOfDoubleOnlyDelayIt) {
  start();
  for (const Metadata& extreme : {view(16.0, 1e300), view(1e300, 8.0), view(16.0, -1e308, 64.0, 1.1e-6),
                                  view(16.5, 8.0, 1.1e-6, 1.1e-6), view(16.0, 20.0, 1e300, 36.0)}) {
    EXPECT_TRUE(step(picture({300, 160}, extreme)).empty());
    EXPECT_TRUE(algo_.prepositionWaiting_);
  }
  step(aligned());
  step(aligned());
  EXPECT_FALSE(algo_.prepositionWaiting_);
}

}  // namespace
