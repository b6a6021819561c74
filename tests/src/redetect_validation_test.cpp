// Whether a find is believed: distance, size, likeness to the first appearance, score; and what a believed find
// changes.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "support/redetect_fixture.h"

namespace {

class RedetectValidation : public RedetectTest {
 protected:
  // The first appearance does not resemble what is shown; the latest does.
  void forgetFirstAppearance(double likeness) {
    algo_.origPatchGpu_.upload(resembling(sprite_, likeness, kCore));
    knowDynamic(sprite_);
  }
  void setThreshold(double threshold) { algo_.config_.redetect.re_detect_threshold = threshold; }

  // The close search's score of what `frame` shows, with all its digits.
  double fineScore(const cv::Mat& frame, const cv::Rect& at) {
    GpuImage image;
    GpuImage templ;
    image.uploadGrey(frame);
    templ.upload(sprite_);
    double score = 0.0;
    cv::Rect out;
    algo_.findBestInROI_GPU_Locked_(at.x, at.y, at.width, at.height, templ, image, score, out);
    return score;
  }

  static constexpr int kX = 100;
  static constexpr int kY = 90;
  const cv::Point kPlace{kX, kY};
  const cv::Rect kCore{8, 6, 24, 18};  // the judged middle of a 40 x 30 box
};

// A box of `size` with its centre `dx` right of that of the target at (100, 90).
cv::Rect aside(const cv::Size& size, int dx) {
  return {120 - size.width / 2 + dx, 105 - size.height / 2, size.width, size.height};
}

// ------------------------------------------------------------------------------------------------ the reference

TEST_F(RedetectValidation, MeasuresFromThePredictedBox) {
  algo_.trackBox_ = {0, 0, 40, 30};
  algo_.predictedBox_ = scene_.box(kPlace) + cv::Point(10, 0);
  EXPECT_EQ(search(scene_.with(kPlace)).dist, 10.0);
}

TEST_F(RedetectValidation, MeasuresFromTheTrackBoxWithoutAPrediction) {
  algo_.trackBox_ = scene_.box(kPlace) + cv::Point(0, 7);
  algo_.predictedBox_ = {};
  EXPECT_EQ(search(scene_.with(kPlace)).dist, 7.0);
}

TEST_F(RedetectValidation, APredictionOfOnePixelIsAReference) {
  algo_.trackBox_ = scene_.box(kPlace);
  algo_.predictedBox_ = {110, 105, 1, 1};
  const SearchLog log = search(scene_.with(kPlace));
  EXPECT_EQ(log.dist, 9.5);
  EXPECT_EQ(log.areaRatio, 1200.0);
}

TEST_F(RedetectValidation, AllowsThreeDiagonalsButAtLeast80Pixels) {
  lastSeenAt(aside({40, 30}, 0));
  EXPECT_EQ(search(scene_.with(kPlace)).maxDist, 150.0);
  lastSeenAt(aside({12, 16}, 0));
  EXPECT_EQ(search(scene_.with(kPlace)).maxDist, 80.0);
}

// -------------------------------------------------------------------------------------------- size and distance

TEST_F(RedetectValidation, TakesAreasUpToBothLimitsIncluded) {
  const std::pair<cv::Size, int> sizes[] = {
      {{50, 80}, 1},  // 1200 / 4000 = 0.3
      {{49, 82}, 0},  // a little less
      {{24, 20}, 1},  // 1200 / 480 = 2.5
      {{23, 20}, 0},  // a little more
  };
  for (const auto& [size, expected] : sizes) {
    lastSeenAt(aside(size, 0));
    const SearchLog log = search(scene_.with(kPlace));
    EXPECT_EQ(log.scaleOK, expected) << size;
    EXPECT_EQ(log.outcome, expected == 1 ? "success" : "reject") << size;
  }
}

TEST_F(RedetectValidation, TheDistanceIsPartOfTheSizeTest) {
  lastSeenAt(aside({40, 30}, 150));
  SearchLog log = search(scene_.with(kPlace));
  EXPECT_EQ(log.dist, 150.0);
  EXPECT_EQ(log.scaleOK, 1) << "at the limit";
  EXPECT_EQ(log.outcome, "success");
  lastSeenAt(aside({40, 30}, 151));
  log = search(scene_.with(kPlace));
  EXPECT_EQ(log.scaleOK, 0);
  EXPECT_EQ(log.areaRatio, 1.0);
  EXPECT_EQ(log.outcome, "reject") << "a perfect score does not help";
}

TEST_F(RedetectValidation, NearIsStrictlyBelowAQuarterOfTheDistance) {
  lastSeenAt(aside({28, 30}, 20));  // maxDist 123.1
  EXPECT_EQ(search(scene_.with(kPlace)).near, 1);
  lastSeenAt(aside({24, 20}, 23));  // maxDist 93.7, a quarter is 23.4
  EXPECT_EQ(search(scene_.with(kPlace)).near, 1);
  lastSeenAt(aside({24, 20}, 24));
  EXPECT_EQ(search(scene_.with(kPlace)).near, 0);
  lastSeenAt(aside({40, 30}, 37));  // maxDist 150, a quarter is 37.5
  EXPECT_EQ(search(scene_.with(kPlace)).near, 1);
}

TEST_F(RedetectValidation, ExactlyAQuarterIsNotNear) {
  lastSeenAt(aside({12, 16}, 20));  // maxDist 80
  EXPECT_EQ(search(scene_.with(kPlace)).near, 0);
  lastSeenAt(aside({12, 16}, 19));
  EXPECT_EQ(search(scene_.with(kPlace)).near, 1);
}

// -------------------------------------------------------------------------------------------------- the score

TEST_F(RedetectValidation, TheScoreMustBeStrictlyAboveTheThreshold) {
  const cv::Mat frame = showing(resembling(sprite_, 0.9), kPlace);
  const cv::Rect seen = aside({40, 30}, 60);  // neither near nor overlapping
  const double score = fineScore(frame, scene_.box(kPlace));
  ASSERT_NEAR(score, 0.9, 0.01);
  setThreshold(score);
  lastSeenAt(seen);
  EXPECT_EQ(search(frame).outcome, "reject");
  setThreshold(std::nextafter(score, 0.0));
  lastSeenAt(seen);
  EXPECT_EQ(search(frame).outcome, "success");
}

TEST_F(RedetectValidation, NearAScoreStrictlyAbove70PercentOfTheThresholdIsEnough) {
  const cv::Mat frame = showing(resembling(sprite_, 0.8), kPlace);
  const double score = fineScore(frame, scene_.box(kPlace));
  double threshold = score / 0.7;
  while (0.7 * threshold < score) threshold = std::nextafter(threshold, 2.0);
  ASSERT_GT(threshold, score);
  setThreshold(threshold);  // seven tenths of it are the score, or the next number above
  lastSeenAt(aside({40, 30}, 20));
  SearchLog log = search(frame);
  EXPECT_EQ(log.near, 1);
  EXPECT_EQ(log.outcome, "reject");
  setThreshold(threshold * (1.0 - 1e-12));
  lastSeenAt(aside({40, 30}, 20));
  EXPECT_EQ(search(frame).outcome, "success");
  lastSeenAt(aside({40, 30}, 60));
  EXPECT_EQ(search(frame).outcome, "reject") << "far away the full threshold holds";
}

TEST_F(RedetectValidation, NearDoesNotReplaceTheSizeTest) {
  setThreshold(0.8);
  lastSeenAt(aside({50, 82}, 0));  // area ratio 0.293
  EXPECT_EQ(search(scene_.with(kPlace)).outcome, "reject");
}

// -------------------------------------------------------------------------------------------------- appearance

TEST_F(RedetectValidation, AskForLikenessToTheFirstAppearance) {
  forgetFirstAppearance(0.62);
  lastSeenAt(aside({40, 30}, 60));
  SearchLog log = search(scene_.with(kPlace));
  EXPECT_NEAR(log.simOrig, 0.62, 0.01);
  EXPECT_EQ(log.source, "dyn");
  EXPECT_EQ(log.outcome, "success");
  forgetFirstAppearance(0.58);
  lastSeenAt(aside({40, 30}, 60));
  log = search(scene_.with(kPlace));
  EXPECT_NEAR(log.simOrig, 0.58, 0.01);
  EXPECT_EQ(log.outcome, "appearance_fail");
  EXPECT_TRUE(log.acceptance.empty()) << "the second line comes only after the appearance";
}

TEST_F(RedetectValidation, AFindOnTheReferenceNeedsNoLikeness) {
  forgetFirstAppearance(0.2);
  lastSeenAt(scene_.box(kPlace));
  const SearchLog log = search(scene_.with(kPlace));
  EXPECT_LT(log.simOrig, 0.3);
  EXPECT_EQ(log.geomStrong, 1);
  EXPECT_EQ(log.outcome, "success");
}

TEST_F(RedetectValidation, AFindOnTheReferenceStillNeedsTheScore) {
  algo_.origPatchGpu_.upload(resembling(sprite_, 0.2, kCore));
  knowDynamic(resembling(sprite_, 0.5));
  lastSeenAt(scene_.box(kPlace));
  const SearchLog log = search(scene_.with(kPlace));
  EXPECT_EQ(log.geomStrong, 1);
  EXPECT_EQ(log.outcome, "reject");
}

TEST_F(RedetectValidation, OverlapCountsFrom70Percent) {
  forgetFirstAppearance(0.2);
  lastSeenAt({kX, kY, 28, 30});  // 840 of 1200: exactly 0.7
  SearchLog log = search(scene_.with(kPlace));
  EXPECT_EQ(log.iou, 0.7);
  EXPECT_EQ(log.geomStrong, 1);
  lastSeenAt({kX, kY, 27, 30});
  log = search(scene_.with(kPlace));
  EXPECT_EQ(log.geomStrong, 0);
  EXPECT_EQ(log.outcome, "appearance_fail");
}

TEST_F(RedetectValidation, NoOverlapIsReportedAsNone) {
  lastSeenAt(aside({40, 30}, 40));
  EXPECT_EQ(search(scene_.with(kPlace)).iou, 0.0);
}

// ------------------------------------------------------------------------------------------ without a reference

TEST_F(RedetectValidation, WithoutAReferenceLikenessAndThresholdDecide) {
  const SearchLog log = search(scene_.with(kPlace));
  EXPECT_EQ(log.outcome, "success");
  const std::regex format(
      R"(reDetectGlobally \(validate\): fine=1\.000 dist=0\.0 maxDist=0\.0 areaRatio=1\.00 scaleOK=1 near=0 )"
      R"(simOrig=1\.000 \(min=0\.600\) IoU=0\.00 geomStrong=0)");
  EXPECT_TRUE(std::regex_match(log.appearanceLine, format)) << log.appearanceLine;
}

TEST_F(RedetectValidation, WithoutAReferenceNothingIsNear) {
  setThreshold(0.95);
  EXPECT_EQ(search(showing(resembling(sprite_, 0.9), kPlace)).outcome, "reject");
}

TEST_F(RedetectValidation, WithoutAReferenceLikenessIsNeeded) {
  forgetFirstAppearance(0.5);
  EXPECT_EQ(search(scene_.with(kPlace)).outcome, "appearance_fail");
}

TEST_F(RedetectValidation, TheSecondLineSaysWhatDecided) {
  lastSeenAt(aside({40, 30}, 5));
  const SearchLog log = search(scene_.with(kPlace));
  const std::regex format(
      R"(reDetectGlobally \(validate\): fine=1\.000 dist=5\.0 maxDist=150\.0 areaRatio=1\.00 scaleOK=1 near=1 )"
      R"(tNear=0\.560 accept=1)");
  EXPECT_TRUE(std::regex_match(log.acceptance, format)) << log.acceptance;
}

// --------------------------------------------------------------------------------------- what a find changes

class RedetectCommit : public RedetectTest {
 protected:
  RedetectCommit() : RedetectTest({640, 240}) {
    lastSeenAt(scene_.box(kPlace + cv::Point(5, 3)));
    algo_.redetectAttempts_ = 5;
  }
  const cv::Point kPlace{500, 100};
};

TEST_F(RedetectCommit, SetsWhatBelongsToTheNewTrack) {
  algo_.lostFrames_ = 12;
  algo_.redetectAge_ = -1;
  algo_.velocity_ = {3.0F, 4.0F};
  algo_.lastScore_ = 0.1;
  algo_.fullyLost_ = true;
  algo_.csrtInputSize_ = {10, 10};
  const cv::Rect window = algo_.computeProcWindow_Locked_(scene_.box(kPlace), {640, 240});
  const cv::Mat frame = scene_.with(kPlace);
  ASSERT_EQ(search(frame).outcome, "success");
  EXPECT_EQ(algo_.trackBox_, scene_.box(kPlace));
  EXPECT_EQ(algo_.predictedBox_, scene_.box(kPlace));
  EXPECT_EQ(algo_.procRoi_, window) << "from the speed and the score before the find";
  EXPECT_EQ(algo_.initBoxInCrop_, scene_.box(kPlace) - window.tl());
  EXPECT_EQ(algo_.csrtInputSize_, window.size());
  EXPECT_EQ(cv::norm(algo_.initCrop_, frame(window), cv::NORM_INF), 0.0);
  EXPECT_TRUE(algo_.initialized_);
  EXPECT_FALSE(algo_.fullyLost_);
  EXPECT_EQ(algo_.redetectAttempts_, 0);
  EXPECT_EQ(algo_.lostFrames_, 0);
  EXPECT_EQ(algo_.redetectAge_, 0);
  EXPECT_EQ(algo_.velocity_, cv::Point2f());
  EXPECT_EQ(algo_.lastScore_, 1.0);
  EXPECT_TRUE(algo_.trackerReady_);
}

TEST_F(RedetectCommit, TheCropKeptIsACopy) {
  cv::Mat frame = scene_.with(kPlace);
  ASSERT_EQ(search(frame).outcome, "success");
  const cv::Mat before = frame(algo_.procRoi_).clone();
  frame.setTo(0);
  EXPECT_EQ(cv::norm(algo_.initCrop_, before, cv::NORM_INF), 0.0);
}

TEST_F(RedetectCommit, LeavesEverythingElseAlone) {
  knowDynamic(resembling(sprite_, 0.5));
  const cv::Mat dynamic = algo_.dynPatchGpu_.download().clone();
  algo_.oscillationCount_ = 2;
  algo_.pending_rebuild_ = true;
  algo_.lostSinceRedetect_ = 7;
  algo_.smoothedBox_ = {1, 2, 3, 4};
  algo_.smoothedValid_ = true;
  algo_.trackingStarted_ = true;
  algo_.initBox_ = {9, 9, 40, 30};
  algo_.secondsPerLook = 1.0;
  const cv::Rect left(40, 100, 40, 30);
  const cv::Rect right(500, 100, 40, 30);
  algo_.health_.update(left, {640, 240});
  algo_.health_.update(right, {640, 240});
  algo_.health_.update(left, {640, 240});  // two jumps of the three that are a fault
  ASSERT_EQ(search(scene_.with(kPlace)).outcome, "success");
  EXPECT_TRUE(algo_.health_.update(right, {640, 240})) << "the health monitor remembers";
  EXPECT_EQ(algo_.oscillationCount_, 2);
  EXPECT_TRUE(algo_.pending_rebuild_);
  EXPECT_EQ(algo_.lostSinceRedetect_, 7);
  EXPECT_EQ(algo_.smoothedBox_, cv::Rect(1, 2, 3, 4));
  EXPECT_TRUE(algo_.smoothedValid_);
  EXPECT_TRUE(algo_.trackingStarted_);
  EXPECT_EQ(algo_.initBox_, cv::Rect(9, 9, 40, 30));
  EXPECT_TRUE(algo_.dynPatchValid_);
  EXPECT_EQ(cv::norm(algo_.dynPatchGpu_.download(), dynamic, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(algo_.origPatchGpu_.download(), sprite_, cv::NORM_INF), 0.0);
}

// The window is wished for, not guarded, rounded or frozen: its margin may be less than the tracker's padding.
TEST_F(RedetectCommit, TakesTheWindowAsWished) {
  algo_.config_.roi.margin_factor = 0.0;
  algo_.config_.roi.min_size = 32;
  algo_.config_.roi.round_to = 64;
  algo_.csrtInputSize_ = {60, 60};
  const cv::Rect window = algo_.computeProcWindow_Locked_(scene_.box(kPlace), {640, 240});
  const cv::Rect guarded = algo_.guardWindowForCSRT_(window, scene_.box(kPlace), {640, 240});
  ASSERT_NE(guarded, window) << "the guard would widen it";
  auto picture = std::make_shared<TestPicture>(scene_.with(kPlace));
  ASSERT_EQ(search(picture).outcome, "success");
  EXPECT_EQ(picture->crops, std::vector<cv::Rect>{window});
}

TEST_F(RedetectCommit, TakesTheWholeFrameWithoutWindows) {
  algo_.config_.roi.enable = false;
  ASSERT_EQ(search(scene_.with(kPlace)).outcome, "success");
  EXPECT_EQ(algo_.procRoi_, cv::Rect(0, 0, 640, 240));
  EXPECT_EQ(algo_.initBoxInCrop_, scene_.box(kPlace));
}

TEST_F(RedetectCommit, AMissingCropLeavesANewTrackerThatIsNotStepped) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kPlace));
  picture->onCrop = [](const cv::Rect&) { return cv::Mat(); };
  const auto before = algo_.follow(scene_.box(kPlace), {400, 0, 240, 240});
  const SearchLog log = search(picture);
  EXPECT_EQ(log.outcome, "roiBgr_empty");
  EXPECT_EQ(log.accept, 1);
  EXPECT_EQ(algo_.redetectAttempts_, 1) << "first nothing, then this one";
  EXPECT_NE(algo_.tracker_, nullptr);
  EXPECT_NE(algo_.tracker_.get(), static_cast<cv::tracking::TrackerCSRT*>(before.get()));
  EXPECT_FALSE(algo_.trackerReady_);
  EXPECT_EQ(algo_.procRoi_, cv::Rect(400, 0, 240, 240)) << "nothing committed";
}

TEST_F(RedetectCommit, ACropThatMissesTheFindLeavesANewTrackerThatIsNotStepped) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kPlace));
  picture->onCrop = [](const cv::Rect&) { return cv::Mat(8, 8, CV_8UC3, cv::Scalar::all(0)); };
  EXPECT_EQ(search(picture).outcome, "local_empty");
  EXPECT_EQ(algo_.redetectAttempts_, 1);
  EXPECT_NE(algo_.tracker_, nullptr);
  EXPECT_FALSE(algo_.trackerReady_);
}

TEST_F(RedetectCommit, ALateFailureMayBeTheLastOneAllowed) {
  algo_.config_.redetect.max_redetect_attempts = 1;
  auto picture = std::make_shared<TestPicture>(scene_.with(kPlace));
  picture->onCrop = [](const cv::Rect&) { return cv::Mat(); };
  const SearchLog log = search(picture);
  EXPECT_EQ(log.lines.back(), "Object declared fully lost => reset.");
  EXPECT_EQ(lineStarting(log.lines, "reDetect FAILED"), "");
  EXPECT_FALSE(algo_.initialized_);
  EXPECT_EQ(algo_.tracker_, nullptr);
}

TEST_F(RedetectCommit, TheCropIsMadeWhatTheTrackerTakes) {
  auto picture = std::make_shared<TestPicture>(scene_.with(kPlace));
  picture->onCrop = [&](const cv::Rect& r) { return greyOf(picture->getBGR())(r); };
  EXPECT_EQ(search(picture).outcome, "success");
  EXPECT_EQ(algo_.initCrop_.type(), CV_8UC3);
  EXPECT_TRUE(algo_.initCrop_.isContinuous());
}

// --------------------------------------------------------------------------- likeness to the first appearance

class OrigAppearance : public RedetectTest {
 protected:
  OrigAppearance() { see(scene_.with({100, 90})); }
  void see(const cv::Mat& frame) {
    grey_ = greyOf(frame);
    algo_.fullGrayGpu_.upload(grey_);
  }
  double at(const cv::Rect& box) const { return algo_.computeOrigAppearanceAt_(box); }
  cv::Mat grey_;
};

TEST_F(OrigAppearance, IsOneWhereTheTargetIs) {
  EXPECT_NEAR(at({100, 90, 40, 30}), 1.0, 1e-5);
  EXPECT_LT(at({200, 90, 40, 30}), 0.6);
}

TEST_F(OrigAppearance, CannotBeToldWithoutPictures) {
  algo_.origPatchGpu_.release();
  EXPECT_EQ(at({100, 90, 40, 30}), 0.0);
  algo_.origPatchGpu_.upload(sprite_);
  algo_.fullGrayGpu_.release();
  EXPECT_EQ(at({100, 90, 40, 30}), 0.0);
}

TEST_F(OrigAppearance, CannotBeToldOutsideTheFrameOrBelow8Pixels) {
  EXPECT_EQ(at({400, 90, 40, 30}), 0.0);
  EXPECT_EQ(at({100, 90, 0, 0}), 0.0);
  EXPECT_EQ(at({100, 90, 7, 30}), 0.0);
  EXPECT_EQ(at({100, 90, 40, 7}), 0.0);
  EXPECT_EQ(at({-33, 90, 40, 30}), 0.0) << "7 columns are inside";
  EXPECT_NE(at({100, 90, 8, 8}), 0.0);
}

TEST_F(OrigAppearance, ComparesTheMiddle60Percent) {
  const cv::Rect box(101, 91, 47, 33);
  const cv::Rect core(101 + (47 - 28) / 2, 91 + (33 - 20) / 2, 28, 20);  // 28.2 and 19.8 rounded
  cv::Mat patch = sprite_(cv::Rect(8, 6, 24, 18)).clone();
  cv::resize(patch, patch, core.size(), 0.0, 0.0, cv::INTER_LINEAR);
  EXPECT_NEAR(at(box), likenessOf(grey_(core), patch), 1e-6);
}

TEST_F(OrigAppearance, IgnoresTheRim) {
  cv::Mat framed = scene_.with({100, 90});
  cv::rectangle(framed, cv::Rect(100, 90, 40, 30), cv::Scalar::all(255), 5);
  see(framed);
  EXPECT_NEAR(at({100, 90, 40, 30}), 1.0, 1e-5);
}

TEST_F(OrigAppearance, TakesTheWholeOfASmallBoxOrPatch) {
  // 60 % of 12 are 7: not enough, so all 12 x 12 pixels are compared.
  const cv::Rect box(104, 95, 12, 12);
  cv::Mat patch = sprite_(cv::Rect(8, 6, 24, 18)).clone();
  cv::resize(patch, patch, box.size(), 0.0, 0.0, cv::INTER_LINEAR);
  EXPECT_NEAR(at(box), likenessOf(grey_(box), patch), 1e-6);

  const cv::Mat small = sprite_(cv::Rect(4, 5, 12, 12)).clone();
  algo_.origPatchGpu_.upload(small);
  EXPECT_NEAR(at(box), 1.0, 1e-5);
}

TEST_F(OrigAppearance, ComparesTheVisiblePartOfABoxAcrossTheEdge) {
  const cv::Rect visible(0, 90, 30, 30);
  const cv::Rect core(6, 96, 18, 18);
  cv::Mat patch = sprite_(cv::Rect(8, 6, 24, 18)).clone();
  cv::resize(patch, patch, core.size(), 0.0, 0.0, cv::INTER_LINEAR);
  EXPECT_NEAR(at({-10, 90, 40, 30}), likenessOf(grey_(core), patch), 1e-6);
  EXPECT_EQ(at({-10, 90, 40, 30}), at(visible));
}

TEST_F(OrigAppearance, AFlatFirstAppearanceKeepsTheMatchersAnswer) {
  algo_.origPatchGpu_.upload(cv::Mat(30, 40, CV_8UC1, cv::Scalar(100)));
  EXPECT_EQ(at({100, 90, 40, 30}), 1.0);
}

}  // namespace
