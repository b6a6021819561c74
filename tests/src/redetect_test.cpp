// Looking for a lost target in the whole frame: what is searched, in which order, at which sizes, and what is counted.
#include <gtest/gtest.h>

#include <limits>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "support/redetect_fixture.h"

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class RedetectSearch : public RedetectTest {
 protected:
  void setScales(std::vector<double> scales) { algo_.config_.redetect.scale_list = std::move(scales); }
  void setFactor(double factor) { algo_.config_.redetect.coarse_factor = factor; }
};

// --------------------------------------------------------------------------------------------- before the search

TEST_F(RedetectSearch, GivesUpAtOnceWhenNotInitialised) {
  algo_.initialized_ = false;
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.lines, std::vector<std::string>{"Object declared fully lost => reset."});
}

TEST_F(RedetectSearch, GivesUpAtOnceWithoutAGreyFrame) {
  algo_.redetectAttempts_ = 0;
  auto picture = std::make_shared<TestPicture>(scene_.with({100, 100}));
  picture->onBgr = [] { return cv::Mat(); };
  const SearchLog log = search(picture);
  EXPECT_EQ(log.lines, std::vector<std::string>{"Object declared fully lost => reset."});
  EXPECT_FALSE(algo_.initialized_);
}

TEST_F(RedetectSearch, CountsOneFailureWithoutAnyPatch) {
  algo_.origPatchGpu_.release();
  algo_.dynPatchGpu_.upload(sprite_);  // there, but not declared valid
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.lines, std::vector<std::string>{"reDetect FAILED => attempt 1 / 10"});
}

TEST_F(RedetectSearch, CountsOneFailureWhenTheShrunkenFrameIsBelow5Pixels) {
  setFactor(0.25);
  const SearchLog log = search(cv::Mat(17, 200, CV_8UC3, cv::Scalar::all(0)));  // 4.25 rows
  EXPECT_EQ(log.lines, std::vector<std::string>{"reDetect FAILED => attempt 1 / 10"});
  EXPECT_EQ(search(cv::Mat(20, 200, CV_8UC3, cv::Scalar::all(0))).outcome, "noCandidate") << "5 rows are searched";
}

// ------------------------------------------------------------------------------------------------ shrink factor

TEST_F(RedetectSearch, ShrinksByTheConfiguredFactor) {
  setFactor(0.25);
  algo_.origPatchGpu_.upload(greyOf(textured::target({40, 40})));
  EXPECT_EQ(search(scene_.with({100, 100})).factor, 0.25);
}

TEST_F(RedetectSearch, NeverSearchesMoreThan320PixelsOnTheShorterSide) {
  for (const cv::Size& size : {cv::Size(640, 400), cv::Size(400, 640)}) {
    const SearchLog log = search(textured::ground(size));
    EXPECT_EQ(log.factor, 0.8) << size;  // 320 / 400
  }
  EXPECT_EQ(search(textured::ground({640, 320})).factor, 1.0) << "exactly 320 is not above";
  setFactor(0.5);
  EXPECT_EQ(search(textured::ground({640, 400})).factor, 0.5) << "the smaller factor holds";
}

TEST_F(RedetectSearch, TakesAFactorOfNothingForOne) {
  for (const double factor : {0.0, -0.5, kNaN}) {
    setFactor(factor);
    EXPECT_EQ(search(scene_.with({100, 100})).factor, 1.0) << factor;
  }
}

TEST_F(RedetectSearch, FindsTheTargetThroughAStrongShrink) {
  const textured::Scene large({1280, 720}, {80, 60});
  algo_.origPatchGpu_.upload(greyOf(large.sprite));
  setFactor(0.25);
  lastSeenAt(large.box({900, 500}));
  const SearchLog log = search(large.with({903, 507}));
  EXPECT_EQ(log.outcome, "success");
  EXPECT_EQ(log.box, large.box({903, 507})) << "the fine search is exact to the pixel";
}

// ------------------------------------------------------------------------------------------- patches and scales

TEST_F(RedetectSearch, SearchesTheFirstAppearanceBeforeTheLatest) {
  knowDynamic(sprite_);
  const SearchLog log = search(showing(resembling(sprite_, 0.9), {100, 100}));
  EXPECT_EQ(log.patches, 2);
  EXPECT_EQ(log.matchCalls, 2);
  EXPECT_EQ(log.source, "orig") << "an equal score does not replace the earlier hit";
}

TEST_F(RedetectSearch, TheLatestAppearanceWinsWhenItIsStrictlyBetter) {
  const cv::Mat shown = resembling(sprite_, 0.8);
  knowDynamic(shown);
  const SearchLog log = search(showing(shown, {100, 100}));
  EXPECT_EQ(log.source, "dyn");
  EXPECT_NEAR(log.fine, 1.0, 1e-3) << "the fine search matches the patch that won";
}

TEST_F(RedetectSearch, TheLatestAppearanceIsTriedAtItsOwnSizeOnly) {
  setScales({0.9, 1.0, 1.1, 1.2});
  knowDynamic(sprite_);
  const SearchLog log = search(scene_.empty());
  EXPECT_EQ(log.scalesTested, 5);
  EXPECT_EQ(log.matchCalls, 5);
}

TEST_F(RedetectSearch, TheLatestAppearanceAloneIsEnough) {
  algo_.origPatchGpu_.release();
  setScales({0.9, 1.0, 1.1});
  knowDynamic(sprite_);
  lastSeenAt(scene_.box({100, 100}));
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.source, "dyn");
  EXPECT_EQ(log.patches, 1);
  EXPECT_EQ(log.scalesTested, 1);
  EXPECT_EQ(log.outcome, "success") << "the overlap stands in for the missing first appearance";
}

TEST_F(RedetectSearch, AnInvalidLatestAppearanceIsNotTried) {
  knowDynamic(sprite_);
  algo_.dynPatchValid_ = false;
  EXPECT_EQ(search(scene_.empty()).patches, 1);
}

TEST_F(RedetectSearch, ASureHitEndsTheSearchOverSizesAndPatches) {
  setScales({0.5, 1.0, 1.1, 1.2});
  knowDynamic(sprite_);
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.patches, 2);
  EXPECT_EQ(log.scalesTested, 2) << "0.5 and 1.0";
  EXPECT_EQ(log.matchCalls, 2);
  EXPECT_EQ(log.source, "orig");
}

TEST_F(RedetectSearch, AHitBetween95And97PercentEndsTheSizesButNotThePatches) {
  setScales({1.0, 1.0, 1.0});
  knowDynamic(greyOf(textured::target({40, 30}, 99)));
  const SearchLog log = search(showing(resembling(sprite_, 0.96), {100, 100}));
  EXPECT_NEAR(log.coarse, 0.96, 0.005);
  EXPECT_EQ(log.scalesTested, 2) << "one size of the first patch, one of the second";
}

TEST_F(RedetectSearch, AHitBelow95PercentEndsNothing) {
  setScales({1.0, 1.0, 1.0});
  const SearchLog log = search(showing(resembling(sprite_, 0.94), {100, 100}));
  EXPECT_NEAR(log.coarse, 0.94, 0.005);
  EXPECT_EQ(log.scalesTested, 3);
}

// The second patch scores above 0.95 too, but less than the first: that ends nothing.
TEST_F(RedetectSearch, OnlyAHitThatBeatsTheBestEndsTheSizes) {
  const cv::Mat shown = resembling(sprite_, 0.965);
  knowDynamic(sprite_);
  algo_.dynScaleList_ = {1.0, 1.0, 1.0};
  const SearchLog log = search(showing(shown, {100, 100}));
  EXPECT_GT(log.coarse, 0.95);
  EXPECT_LT(log.coarse, 0.97);
  EXPECT_EQ(log.scalesTested, 4);
  EXPECT_EQ(log.matchCalls, 4);
}

TEST_F(RedetectSearch, SkipsASizeThatDoesNotFitTheFrame) {
  setScales({8.01, 8.1, 1.0});  // 320 wide is the frame; 8 * 30 = 240 high too
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.scalesTested, 3);
  EXPECT_EQ(log.scalesSkippedSize, 1) << "8.01 rounds to 320 x 240 and fits; 8.1 does not";
  EXPECT_EQ(log.matchCalls, 2);
}

TEST_F(RedetectSearch, SurvivesSizesNobodyMeant) {
  setScales({kNaN, -1.0, 0.0, -kInfinity, kInfinity, 1e300, 1e9, 1.0});
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.scalesTested, 8);
  EXPECT_EQ(log.scalesSkippedSize, 3) << "the huge ones";
  EXPECT_EQ(log.matchCalls, 5) << "the others become the smallest template";
}

TEST_F(RedetectSearch, AnEmptyListOfSizesFindsNothing) {
  setScales({});
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.outcome, "noCandidate");
  EXPECT_EQ(log.scalesTested, 0);
  EXPECT_EQ(log.matchCalls, 0);
}

TEST_F(RedetectSearch, PatchesBelow5PixelsAreSkippedAndCounted) {
  algo_.origPatchGpu_.upload(sprite_(cv::Rect(0, 0, 4, 30)));
  knowDynamic(sprite_(cv::Rect(0, 0, 40, 4)));
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.outcome, "noCandidate");
  EXPECT_EQ(log.smallPatches, 2);
  EXPECT_EQ(log.patches, 2);
  EXPECT_EQ(log.scalesTested, 0);
}

TEST_F(RedetectSearch, PatchesBelow5PixelsAfterTheShrinkAreSkippedAndCounted) {
  setFactor(0.25);
  algo_.origPatchGpu_.upload(sprite_(cv::Rect(0, 0, 17, 30)));  // 4.25 wide
  EXPECT_EQ(search(scene_.with({100, 100})).smallPatches, 1);
  algo_.origPatchGpu_.upload(sprite_(cv::Rect(0, 0, 20, 20)));  // 5 wide
  EXPECT_EQ(search(scene_.with({100, 100})).smallPatches, 0);
}

TEST_F(RedetectSearch, AFlatPatchNeverMatchesWell) {
  algo_.origPatchGpu_.upload(cv::Mat(30, 40, CV_8UC1, cv::Scalar(100)));
  const SearchLog log = search(scene_.with({100, 100}));
  EXPECT_EQ(log.coarse, 0.0);
  EXPECT_NE(log.outcome, "success");
}

// ------------------------------------------------------------------------------------------------- fine search

// Around (100, 100) the region is [46, 154) x [46, 154): a 60 pixel patch that starts at 100 does not fit.
TEST_F(RedetectSearch, LooksCloselyAroundTheCornerOfTheCoarseHit) {
  const textured::Scene large({320, 240}, {60, 60});
  algo_.origPatchGpu_.upload(greyOf(large.sprite));
  algo_.config_.redetect.fine_roi_size = 32;
  EXPECT_NE(search(large.with({100, 100})).box, large.box({100, 100}));
  algo_.config_.redetect.fine_roi_size = 120;  // [40, 160)
  EXPECT_EQ(search(large.with({100, 100})).box, large.box({100, 100}));
  algo_.config_.redetect.fine_roi_size = 118;  // [41, 159)
  EXPECT_NE(search(large.with({100, 100})).box, large.box({100, 100}));
}

TEST_F(RedetectSearch, LooksCloselyForThePatchAtItsOwnSize) {
  setScales({1.25});
  cv::Mat larger;
  cv::resize(scene_.sprite, larger, {}, 1.25, 1.25, cv::INTER_LINEAR);
  cv::Mat frame = scene_.empty();
  textured::put(frame, larger, {100, 100});
  const SearchLog log = search(frame);
  EXPECT_GT(log.coarse, 0.95);
  EXPECT_EQ(log.box.size(), sprite_.size());
}

TEST_F(RedetectSearch, ReportsThatTheCloseSearchFoundNoRoom) {
  setFactor(0.1);  // a coarse hit, but the frame is lower than the patch
  algo_.origPatchGpu_.upload(greyOf(textured::target({60, 104})));
  const SearchLog log = search(textured::ground({320, 96}));
  EXPECT_EQ(log.outcome, "fineRoi_empty");
  EXPECT_EQ(log.fineVal, -1.0);
  EXPECT_EQ(log.box, cv::Rect());
  EXPECT_EQ(algo_.redetectAttempts_, 1);
}

// ------------------------------------------------------------------------------------------------------ the log

TEST_F(RedetectSearch, TheTimingLineOfAFailureHasEveryFieldInItsPlace) {
  algo_.origPatchGpu_.upload(sprite_(cv::Rect(0, 0, 4, 30)));
  const SearchLog log = search(scene_.with({100, 100}));
  ASSERT_EQ(log.lines.size(), 2U);
  const std::regex format(
      R"(reDetectGlobally\[timing-noCandidate\]: total=\d+\.\d{3} ms \| coarse=\d+\.\d{3} \| search=\d+\.\d{3} \| )"
      R"(fine=-\d+\.\d{3} \| validate\+reinit=\d+\.\d{3} \| patches=1 smallPatches=1 scalesTested=0 )"
      R"(scalesSkippedSize=0 matchCalls=0 fineVal=-1\.000)");
  EXPECT_TRUE(std::regex_match(log.lines[0], format)) << log.lines[0];
  EXPECT_EQ(log.lines[1], "reDetect FAILED => attempt 1 / 10");
}

TEST_F(RedetectSearch, TheTimesOfASuccessAddUp) {
  lastSeenAt(scene_.box({100, 100}));
  const SearchLog log = search(scene_.with({100, 100}));
  ASSERT_EQ(log.outcome, "success");
  EXPECT_GE(log.fineMs, 0.0);
  EXPECT_NEAR(log.totalMs, log.coarseMs + log.searchMs + log.fineMs + log.validateMs, 0.01);
}

TEST_F(RedetectSearch, TheHitLineNamesTheShrinkFactorAsScale) {
  setScales({0.9});
  const SearchLog log = search(scene_.with({100, 100}));
  const std::regex format(
      R"(reDetectGlobally: coarse=\d\.\d{3}, fine=\d\.\d{3} ROI=\(100,100,40,30\) src=orig scale=1\.000)");
  EXPECT_TRUE(std::regex_match(lineStarting(log.lines, "reDetectGlobally: "), format))
      << lineStarting(log.lines, "reDetectGlobally: ");
}

TEST_F(RedetectSearch, SaysNothingWithoutDebug) {
  algo_.enableDebug(false);
  EXPECT_TRUE(search(scene_.with({100, 100})).lines.empty());
}

// -------------------------------------------------------------------------------------------------- many at once

// Objects of several threads share what the matcher keeps; every one must find its own target, every time.
TEST(RedetectThreads, ObjectsInSeveralThreadsFindTheirOwnTargets) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 12;
  std::vector<int> found(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &found] {
      const textured::Scene scene({320, 240}, {40, 30}, static_cast<std::uint64_t>(20 + t));
      TestAlgo algo;
      makeTrackerCheap(algo.config_);
      algo.config_.redetect.coarse_factor = 1.0;
      algo.origPatchGpu_.upload(greyOf(scene.sprite));
      for (int i = 0; i < kRounds; ++i) {
        const cv::Point place(20 * i % 270, 17 * i % 200);
        TestPicture picture(scene.with(place));
        algo.initialized_ = true;
        algo.trackBox_ = algo.predictedBox_ = scene.box(place + cv::Point(6, 4));
        algo.buildFullYFromVP_Locked_(picture, algo.fullGrayGpu_);
        algo.reDetectGlobally_Locked_(picture, 320, 240);
        if (algo.trackBox_ == scene.box(place)) ++found[static_cast<std::size_t>(t)];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, std::vector<int>(kThreads, kRounds));
}

}  // namespace
