// The processing window: which part of the frame the tracker sees.
#include "window_geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/test_algo.h"

namespace {

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr int kMinInt = std::numeric_limits<int>::min();
const cv::Size kFrame(640, 360);
const cv::Rect kNone;

}  // namespace

// ------------------------------------------------------------------------------------------------- conversions

TEST(RoundToInt, TakesHalvesAwayFromZero) {
  EXPECT_EQ(roundToInt(2.5), 3);
  EXPECT_EQ(roundToInt(-2.5), -3);
  EXPECT_EQ(roundToInt(2.49), 2);
  EXPECT_EQ(roundToInt(-0.4), 0);
}

TEST(RoundToInt, SaturatesAndTakesNanAsZero) {
  EXPECT_EQ(roundToInt(1e300), kMaxInt);
  EXPECT_EQ(roundToInt(-1e300), kMinInt);
  EXPECT_EQ(roundToInt(std::numeric_limits<double>::infinity()), kMaxInt);
  EXPECT_EQ(roundToInt(std::nan("")), 0);
  EXPECT_EQ(roundToInt(2147483647.4), kMaxInt);
  EXPECT_EQ(roundToInt(-2147483648.0), kMinInt);
}

TEST(TruncateToInt, GoesTowardsZeroOnBothSides) {
  EXPECT_EQ(truncateToInt(2.9), 2);
  EXPECT_EQ(truncateToInt(-2.9), -2);
  EXPECT_EQ(truncateToInt(-1e300), kMinInt);
  EXPECT_EQ(truncateToInt(std::nan("")), 0);
}

// ------------------------------------------------------------------------------------------------------- boxes

TEST(IntersectRects, GivesTheCommonPartOrTheZeroRect) {
  EXPECT_EQ(intersectRects({0, 0, 10, 10}, {5, 6, 10, 10}), cv::Rect(5, 6, 5, 4));
  EXPECT_EQ(intersectRects({0, 0, 10, 10}, {10, 0, 5, 5}), kNone) << "touching is not common";
  EXPECT_EQ(intersectRects({3, 4, 0, 5}, {0, 0, 10, 10}), kNone);
  EXPECT_EQ(intersectRects({3, 4, -2, 5}, {0, 0, 10, 10}), kNone);
}

TEST(IntersectRects, IsCorrectAtTheEndsOfInt) {
  EXPECT_EQ(intersectRects({kMaxInt - 5, 0, kMaxInt, 10}, {kMaxInt - 10, 0, 10, 10}), cv::Rect(kMaxInt - 5, 0, 5, 10));
  EXPECT_EQ(intersectRects({kMinInt, kMinInt, kMaxInt, kMaxInt}, {0, 0, 10, 10}), kNone);
  EXPECT_EQ(intersectRects({-10, -10, kMaxInt, kMaxInt}, {0, 0, 640, 360}), cv::Rect(0, 0, 640, 360));
}

TEST(AreaOf, CountsIn64BitsAndNeverNegative) {
  EXPECT_EQ(areaOf({0, 0, 100000, 100000}), 10000000000LL);
  EXPECT_EQ(areaOf({0, 0, -3, -4}), 0);
}

TEST(ShiftRect, SaturatesInsteadOfWrapping) {
  EXPECT_EQ(shiftRect({kMaxInt - 1, 0, 4, 4}, 10, 0), cv::Rect(kMaxInt, 0, 4, 4));
  EXPECT_EQ(toCrop({kMinInt, 5, 4, 4}, {7, 2}), cv::Rect(kMinInt, 3, 4, 4));
  EXPECT_EQ(toFrame({10, 5, 4, 4}, {7, 2}), cv::Rect(17, 7, 4, 4));
}

TEST(FitRectInside, ShiftsABoxThatCrossesAnEdge) {
  EXPECT_EQ(fitRectInsidePreserveSize({630, 10, 40, 20}, 640, 360), cv::Rect(600, 10, 40, 20));
  EXPECT_EQ(fitRectInsidePreserveSize({-7, 350, 40, 20}, 640, 360), cv::Rect(0, 340, 40, 20));
}

TEST(FitRectInside, ShrinksOnlyToThePictureAndNeverBelowOnePixel) {
  EXPECT_EQ(fitRectInsidePreserveSize({5, 5, 700, 20}, 640, 360), cv::Rect(0, 5, 640, 20));
  EXPECT_EQ(fitRectInsidePreserveSize({5, 5, 0, -3}, 640, 360), cv::Rect(5, 5, 1, 1));
  EXPECT_EQ(fitRectInsidePreserveSize({5, 5, 10, 10}, 0, -4), cv::Rect(0, 0, 1, 1));
  EXPECT_EQ(fitRectInsidePreserveSize({kMaxInt, kMinInt, 10, 10}, 640, 360), cv::Rect(630, 0, 10, 10));
}

TEST(InsetPatchRect, DrawsInByEightPercentRounded) {
  EXPECT_EQ(insetPatchRect({100, 100, 100, 50}, kFrame), cv::Rect(108, 104, 84, 42));
  EXPECT_EQ(insetPatchRect({100, 100, 6, 7}, kFrame), cv::Rect(100, 101, 6, 5)) << "0.48 rounds to 0, 0.56 to 1";
}

TEST(InsetPatchRect, FallsBackToTheBoxWhereNothingIsLeft) {
  EXPECT_EQ(insetPatchRect({700, 100, 6, 7}, kFrame), cv::Rect(700, 100, 6, 7));
}

// ----------------------------------------------------------------------------------------------- desired window

class DesiredWindow : public ::testing::Test {
 protected:
  cv::Rect window() const { return desiredWindow(in, roi); }

  RoiConfig roi = [] {
    RoiConfig r;
    r.min_size = 32;
    r.round_to = 1;
    r.margin_factor = 1.0;
    return r;
  }();
  WindowInput in{{300, 160, 40, 20}, {0.0F, 0.0F}, 1.0, {}, kFrame};
};

TEST_F(DesiredWindow, AddsTheMarginFactorPerSideAndCentresOnTheBox) {
  EXPECT_EQ(window(), cv::Rect(260, 140, 120, 60));
}

TEST_F(DesiredWindow, AddsSpeedInAbsolutePixelsOnBothAxes) {
  in.velocity = {3.0F, 4.0F};  // five pixels per frame, twice the gain of 2, on both sides
  EXPECT_EQ(window().size(), cv::Size(120 + 20, 60 + 20));
}

TEST_F(DesiredWindow, AddsTheDiagonalAsConfidenceFalls) {
  in.trackBox = {300, 160, 40, 30};  // diagonal 50
  roi.conf_gain = 0.5;
  in.score = 0.6;  // half of 50 x 0.5 x 0.4, on both sides
  EXPECT_EQ(window().size(), cv::Size(120 + 10, 90 + 10));
  in.score = 0.0;
  EXPECT_EQ(window().size(), cv::Size(120 + 25, 90 + 25));
  in.score = -2.0;
  EXPECT_EQ(window().size(), cv::Size(120 + 25, 90 + 25)) << "below nothing is nothing";
}

TEST_F(DesiredWindow, TakesFullOrUnknownConfidenceAsNoReasonToGrow) {
  for (const double score : {1.0, 1.5, std::nan("")}) {
    in.score = score;
    EXPECT_EQ(window().size(), cv::Size(120, 60)) << score;
  }
}

TEST_F(DesiredWindow, IsTheWholeFrameWithoutWindowsOrWithoutBox) {
  roi.enable = false;
  EXPECT_EQ(window(), cv::Rect(0, 0, 640, 360));
  roi.enable = true;
  in.trackBox = {300, 160, 0, 20};
  EXPECT_EQ(window(), cv::Rect(0, 0, 640, 360));
}

TEST_F(DesiredWindow, MovesInsideTheFrameOnEverySide) {
  in.trackBox = {2, 1, 40, 20};
  EXPECT_EQ(window(), cv::Rect(0, 0, 120, 60));
  in.trackBox = {598, 339, 40, 20};
  EXPECT_EQ(window(), cv::Rect(520, 300, 120, 60));
}

TEST_F(DesiredWindow, RoundsTheOriginHalfAwayFromZero) {
  in.trackBox = {300, 160, 41, 21};
  roi.margin_factor = 0.5;  // 82 x 42 around (320.5, 170.5): 279.5 and 149.5
  EXPECT_EQ(window(), cv::Rect(280, 150, 82, 42));
}

TEST_F(DesiredWindow, IsWhatTheObjectAsksForWithItsOwnState) {
  TestAlgo algo;
  algo.config_.roi = roi;
  algo.velocity_ = {3.0F, 4.0F};
  algo.lastScore_ = 1.0;
  EXPECT_EQ(algo.computeProcWindow_Locked_(in.trackBox, kFrame).size(), cv::Size(140, 80));
  algo.procRoi_ = {0, 0, 130, 75};  // 140 and 80 lie inside its band of 15 %
  EXPECT_EQ(algo.computeProcWindow_Locked_(in.trackBox, kFrame).size(), cv::Size(130, 75));
}

// -------------------------------------------------------------------------------------------------- hysteresis

class Hysteresis : public ::testing::Test {
 protected:
  cv::Size sizeFor(int w, int h) const { return windowSizeWithHysteresis({w, h}, previous, frame, roi); }

  RoiConfig roi = [] {
    RoiConfig r;
    r.min_size = 32;
    r.round_to = 1;
    r.hysteresis_ratio = 0.1;
    return r;
  }();
  cv::Size previous{200, 100};
  cv::Size frame = kFrame;
};

TEST_F(Hysteresis, KeepsTheOldSideOnTheEdgesOfTheBand) {
  EXPECT_EQ(sizeFor(220, 110), previous);
  EXPECT_EQ(sizeFor(180, 90), previous);
}

TEST_F(Hysteresis, FollowsOneBeyondTheEdgesEachAxisOnItsOwn) {
  EXPECT_EQ(sizeFor(221, 110), cv::Size(221, 100));
  EXPECT_EQ(sizeFor(180, 89), cv::Size(200, 89));
}

TEST_F(Hysteresis, RoundsTheBandHalfAwayFromZero) {
  previous = {205, 205};  // band 184.5 .. 225.5 becomes 185 .. 226
  EXPECT_EQ(sizeFor(226, 185), previous);
  EXPECT_EQ(sizeFor(227, 184), cv::Size(227, 184));
}

TEST_F(Hysteresis, DoesNothingWithoutAWindowBefore) {
  previous = {200, 0};
  EXPECT_EQ(sizeFor(201, 101), cv::Size(201, 101));
}

TEST_F(Hysteresis, BoundsBySizeLimitsAndFrame) {
  previous = {};
  roi.min_size = 64;
  EXPECT_EQ(sizeFor(20, 30), cv::Size(64, 64));
  EXPECT_EQ(sizeFor(2000, 2000), kFrame) << "no largest side: the frame bounds";
  roi.max_size = 300;
  EXPECT_EQ(sizeFor(2000, 2000), cv::Size(300, 300));
  roi.max_size = 2000;
  EXPECT_EQ(sizeFor(3000, 3000), kFrame) << "the frame bounds a larger limit";
}

TEST_F(Hysteresis, ClampsToTheFrameLastEvenBelowTheSmallestSide) {
  previous = {};
  roi.min_size = 128;
  frame = {101, 90};
  roi.round_to = 16;
  EXPECT_EQ(sizeFor(50, 50), cv::Size(101, 90)) << "and so not a multiple";
}

TEST_F(Hysteresis, AlignsDownButRaisesASmallValueToTheMultiple) {
  previous = {};
  roi.round_to = 64;
  EXPECT_EQ(sizeFor(200, 40), cv::Size(192, 64));
}

TEST(AlignToMultiple, RoundsDownRaisesSmallValuesAndIgnoresMultiplesBelowTwo) {
  EXPECT_EQ(TestAlgo::alignToMultiple_(17, 8), 16);
  EXPECT_EQ(TestAlgo::alignToMultiple_(16, 8), 16);
  EXPECT_EQ(TestAlgo::alignToMultiple_(5, 8), 8);
  EXPECT_EQ(TestAlgo::alignToMultiple_(8, 8), 8);
  EXPECT_EQ(TestAlgo::alignToMultiple_(17, 1), 17);
  EXPECT_EQ(TestAlgo::alignToMultiple_(17, 0), 17);
}

TEST(Hysteresis_, OfTheObjectMeasuresFromItsLastWindow) {
  TestAlgo algo;
  algo.config_.roi.round_to = 1;
  algo.procRoi_ = {40, 40, 200, 200};
  EXPECT_EQ(algo.computeProcSizeWithHyst_(230, 231, kFrame), cv::Size(200, 231)) << "the default band is 15 %";
}

// ------------------------------------------------------------------------------------------------------- guard

TEST(GuardWindow, LeavesHalfThePaddingFreeOnEverySide) {
  EXPECT_EQ(guardWindow({280, 150, 80, 40}, {300, 160, 40, 20}, kFrame, 3.0), cv::Rect(240, 130, 160, 80));
}

TEST(GuardWindow, KeepsAWindowThatIsWideEnough) {
  EXPECT_EQ(guardWindow({200, 100, 300, 200}, {300, 160, 40, 20}, kFrame, 3.0), cv::Rect(200, 100, 300, 200));
}

TEST(GuardWindow, GrowsOnlyTheSideThatLacksContext) {
  EXPECT_EQ(guardWindow({290, 100, 300, 200}, {300, 160, 40, 20}, kFrame, 3.0), cv::Rect(240, 100, 350, 200));
  EXPECT_EQ(guardWindow({100, 100, 250, 200}, {300, 160, 40, 20}, kFrame, 3.0), cv::Rect(100, 100, 300, 200));
  EXPECT_EQ(guardWindow({200, 150, 300, 150}, {300, 160, 40, 20}, kFrame, 3.0), cv::Rect(200, 130, 300, 170));
  EXPECT_EQ(guardWindow({200, 100, 300, 90}, {300, 160, 40, 20}, kFrame, 3.0), cv::Rect(200, 100, 300, 110));
}

TEST(GuardWindow, RoundsTheMarginUpAndTakesAtLeastEight) {
  // 41 x 0.5 is 20.5 and becomes 21; 11 x 0.5 is 5.5, below the smallest margin.
  EXPECT_EQ(guardWindow({300, 160, 41, 11}, {300, 160, 41, 11}, kFrame, 1.0), cv::Rect(279, 150, 83, 32))
      << "27 high, raised to 32: two more above";
  EXPECT_EQ(guardWindow({300, 160, 60, 60}, {300, 160, 60, 60}, kFrame, 0.0), cv::Rect(292, 152, 76, 76));
}

TEST(GuardWindow, CutsAtTheFrameWithoutCompensation) {
  EXPECT_EQ(guardWindow({0, 150, 80, 60}, {5, 160, 40, 20}, kFrame, 3.0), cv::Rect(0, 130, 105, 80));
}

TEST(GuardWindow, CentresABoxThatTheWindowDoesNotShow) {
  // As if a box of 40 x 20 lay in the middle of the window of 60 x 40, at (10, 10): margins 60 and 30.
  EXPECT_EQ(guardWindow({300, 160, 60, 40}, {10, 10, 40, 20}, kFrame, 3.0), cv::Rect(250, 140, 160, 80));
}

TEST(GuardWindow, MeasuresTheVisiblePartOfABoxThatTheWindowCuts) {
  // Half of the box shows: 20 wide, margin 30 on both sides of that half.
  EXPECT_EQ(guardWindow({320, 100, 200, 200}, {300, 160, 40, 40}, kFrame, 3.0), cv::Rect(290, 100, 230, 200));
}

TEST(GuardWindow, AnswersNoneForNoWindowNoFrameOrAWindowOutside) {
  EXPECT_EQ(guardWindow({10, 10, 0, 40}, {10, 10, 40, 20}, kFrame, 3.0), kNone);
  EXPECT_EQ(guardWindow({10, 10, 40, 40}, {10, 10, 40, 20}, {0, 360}, 3.0), kNone);
  EXPECT_EQ(guardWindow({640, 10, 40, 40}, {10, 10, 40, 20}, kFrame, 3.0), kNone);
}

TEST(GuardWindow, OnlyClipsWithoutABox) {
  EXPECT_EQ(guardWindow({-10, 10, 40, 20}, {10, 10, 0, 20}, kFrame, 3.0), cv::Rect(0, 10, 30, 20));
}

TEST(GuardWindow, RaisesToThirtyTwoFromTheMiddleAndStaysInTheFrame) {
  EXPECT_EQ(guardWindow({100, 100, 4, 4}, {100, 100, 4, 4}, kFrame, 0.0), cv::Rect(86, 86, 32, 32));
  EXPECT_EQ(guardWindow({630, 100, 4, 4}, {630, 100, 4, 4}, kFrame, 0.0), cv::Rect(615, 86, 25, 32))
      << "622..640 is 18 wide: seven to the left, the frame ends on the right";
  EXPECT_EQ(guardWindow({0, 0, 20, 10}, {2, 2, 4, 4}, {20, 10}, 0.0), cv::Rect(0, 0, 20, 10)) << "a tiny frame";
}

TEST(GuardWindow, TakesTheLargestFrameThatAnIntCanTell) {
  constexpr int kLargest = std::numeric_limits<int>::max();
  const cv::Rect all(0, 0, kLargest, kLargest);
  EXPECT_EQ(guardWindow(all, {10, 10, 1 << 30, 1 << 30}, all.size(), 3.0), all);
  EXPECT_EQ(guardWindow(all, {1 << 30, 1 << 30, 1 << 29, 1 << 29}, all.size(), 8.0), all);
}

TEST(GuardWindow, TakesThePaddingOfTheTracker) {
  TestAlgo algo;
  algo.config_.csrt.padding = 1.0;
  EXPECT_EQ(algo.guardWindowForCSRT_({300, 160, 40, 40}, {300, 160, 40, 40}, kFrame), cv::Rect(280, 140, 80, 80));
}

// ------------------------------------------------------------------------------------------------------ policy

class SizePolicy : public ::testing::Test {
 protected:
  cv::Rect applied(const cv::Rect& window) const { return applyCropSizePolicy(window, previous, frame, roi); }

  RoiConfig roi = [] {
    RoiConfig r;
    r.min_size = 32;
    r.round_to = 1;
    r.min_delta_x = 12;
    r.min_delta_y = 6;
    return r;
  }();
  cv::Rect previous{0, 0, 200, 100};
  cv::Size frame = kFrame;
};

TEST_F(SizePolicy, FollowsEachAxisFromItsSmallestChangeOn) {
  EXPECT_EQ(applied({10, 10, 211, 105}).size(), cv::Size(200, 100));
  EXPECT_EQ(applied({10, 10, 212, 105}).size(), cv::Size(212, 100));
  EXPECT_EQ(applied({10, 10, 189, 94}).size(), cv::Size(200, 94));
}

TEST_F(SizePolicy, WantsBothAxesToHaveChangedWhenToldSo) {
  roi.min_delta_both = true;
  EXPECT_EQ(applied({10, 10, 300, 105}).size(), cv::Size(200, 100));
  EXPECT_EQ(applied({10, 10, 211, 200}).size(), cv::Size(200, 100));
  EXPECT_EQ(applied({10, 10, 212, 106}).size(), cv::Size(212, 106));
}

TEST_F(SizePolicy, IgnoresNothingWithoutAWindowBefore) {
  previous = {};
  EXPECT_EQ(applied({10, 10, 201, 101}), cv::Rect(10, 10, 201, 101));
}

TEST_F(SizePolicy, RoundsDownWithoutRaisingASmallValue) {
  previous = {};
  roi.round_to = 64;
  roi.min_size = 40;
  EXPECT_EQ(applied({10, 10, 130, 50}).size(), cv::Size(128, 40)) << "50 rounds to 0, then the smallest side holds";
  EXPECT_EQ(applied({10, 10, 50, 130}).size(), cv::Size(40, 128));
}

TEST_F(SizePolicy, LetsTheSmallestSideWinOverTheLargestAndOverTheFrame) {
  previous = {};
  roi.min_size = 128;
  roi.max_size = 100;
  EXPECT_EQ(applied({10, 10, 300, 300}).size(), cv::Size(128, 128));
  frame = {100, 90};
  EXPECT_EQ(applied({20, 30, 60, 50}), cv::Rect(0, 0, 128, 128)) << "larger than the frame, at its origin";
}

TEST_F(SizePolicy, BoundsByTheLargestSideAndTheFrame) {
  previous = {};
  EXPECT_EQ(applied({0, 0, 2000, 2000}).size(), kFrame);
  roi.max_size = 300;
  EXPECT_EQ(applied({0, 0, 2000, 2000}).size(), cv::Size(300, 300));
}

TEST_F(SizePolicy, ShiftsInsideOnTheRightAndKeepsANegativePosition) {
  previous = {};
  EXPECT_EQ(applied({500, 300, 200, 100}), cv::Rect(440, 260, 200, 100));
  EXPECT_EQ(applied({-5, -6, 200, 100}), cv::Rect(-5, -6, 200, 100));
  EXPECT_EQ(applied({440, 260, 200, 100}), cv::Rect(440, 260, 200, 100)) << "touching the edge is inside";
}

TEST_F(SizePolicy, IsTheObjectsWithItsConfiguration) {
  TestAlgo algo;
  EXPECT_EQ(algo.applyCropSizePolicyAndClamp_({10, 10, 211, 189}, {0, 0, 200, 200}, kFrame).size(), cv::Size(200, 200))
      << "changes of 11 are below the default of 12";
  EXPECT_EQ(algo.applyCropSizePolicyAndClamp_({10, 10, 213, 190}, {}, kFrame).size(), cv::Size(212, 190));
}

// ------------------------------------------------------------------------------------------------------ freeze

class Freeze : public ::testing::Test {
 protected:
  FrozenWindow frozen(const cv::Rect& window) const { return freezeWindowSize(window, input, box, kFrame, roi); }

  RoiConfig roi = [] {
    RoiConfig r;
    r.hard_resize_ratio = 0.25;  // exact in binary
    return r;
  }();
  cv::Size input{200, 100};
  cv::Rect box{300, 160, 40, 20};
};

TEST_F(Freeze, KeepsTheInputSizeCentredOnTheBoxBelowTheRatio) {
  const FrozenWindow f = frozen({0, 0, 249, 100});
  EXPECT_EQ(f.window, cv::Rect(220, 120, 200, 100));
  EXPECT_FALSE(f.hardResize);
}

TEST_F(Freeze, GivesTheInputSizeUpFromTheRatioOnRelativeToTheFrozenSide) {
  const FrozenWindow wide = frozen({0, 0, 250, 100});  // exactly a quarter
  EXPECT_EQ(wide.window, cv::Rect(0, 0, 250, 100));
  EXPECT_TRUE(wide.hardResize);
  EXPECT_TRUE(frozen({0, 0, 200, 75}).hardResize) << "either axis decides";
  EXPECT_FALSE(frozen({0, 0, 151, 76}).hardResize);
}

TEST_F(Freeze, LeavesAnEqualSizeWhereItIs) {
  EXPECT_EQ(frozen({7, 9, 200, 100}).window, cv::Rect(7, 9, 200, 100));
}

TEST_F(Freeze, TruncatesTheNewOriginAndKeepsItInTheFrame) {
  box = {300, 160, 41, 21};  // centre (320.5, 170.5), origin (220.5, 120.5)
  EXPECT_EQ(frozen({0, 0, 210, 100}).window.tl(), cv::Point(220, 120));
  box = {3, 2, 40, 20};
  EXPECT_EQ(frozen({0, 0, 210, 100}).window.tl(), cv::Point(0, 0));
  box = {600, 340, 40, 20};
  EXPECT_EQ(frozen({0, 0, 210, 100}).window.tl(), cv::Point(440, 260));
  input = {800, 400};  // larger than the frame
  EXPECT_EQ(frozen({0, 0, 790, 400}).window, cv::Rect(0, 0, 800, 400));
}

TEST_F(Freeze, DoesNothingSwitchedOffOrBeforeTheFirstInput) {
  roi.freeze_input_size = false;
  EXPECT_EQ(frozen({7, 9, 500, 100}).window, cv::Rect(7, 9, 500, 100));
  EXPECT_FALSE(frozen({7, 9, 500, 100}).hardResize);
  roi.freeze_input_size = true;
  input = {200, 0};
  EXPECT_FALSE(frozen({7, 9, 500, 100}).hardResize);
  EXPECT_EQ(frozen({7, 9, 500, 100}).window, cv::Rect(7, 9, 500, 100));
}

// ----------------------------------------------------------------------------------------------------- mapping

TEST(MapFullToSmall, ScalesEveryValueOnItsOwnWithoutClipping) {
  EXPECT_EQ(TestAlgo::mapFullToSmall_({5, 7, 11, 13}, 640, 360, 320, 180), cv::Rect(3, 4, 6, 7));
  EXPECT_EQ(TestAlgo::mapFullToSmall_({-5, 700, 11, 13}, 640, 360, 320, 180), cv::Rect(-3, 350, 6, 7));
  EXPECT_EQ(TestAlgo::mapFullToSmall_({5, 7, 11, 13}, 0, -1, 320, 180), cv::Rect(5, 7, 11, 13));
}

TEST(MapSmallToFull, ScalesAndClips) {
  EXPECT_EQ(TestAlgo::mapSmallToFull_({10, 20, 30, 40}, 320, 180, 640, 360), cv::Rect(20, 40, 60, 80));
  EXPECT_EQ(TestAlgo::mapSmallToFull_({310, 170, 30, 40}, 320, 180, 640, 360), cv::Rect(620, 340, 20, 20));
  EXPECT_EQ(TestAlgo::mapSmallToFull_({-5, 10, 20, 20}, 640, 360, 640, 360), cv::Rect(0, 10, 15, 20));
}

TEST(MapSmallToFull, AnswersNoneWhenNothingIsLeft) {
  EXPECT_EQ(TestAlgo::mapSmallToFull_({400, 10, 20, 20}, 320, 180, 640, 360), kNone);
  EXPECT_EQ(TestAlgo::mapSmallToFull_({10, 10, 1, 20}, 640, 360, 64, 36), kNone) << "0.1 wide rounds to 0";
  EXPECT_EQ(TestAlgo::mapSmallToFull_({10, 10, 20, 20}, 320, 180, 0, 360), kNone);
  EXPECT_EQ(TestAlgo::mapSmallToFull_({10, 10, 20, 20}, 0, 0, 640, 360), cv::Rect(10, 10, 20, 20));
}

// ---------------------------------------------------------------------------------------------------- fallback

TEST(CentredBoxInCrop, LiesInTheMiddleAndIsNeverEmpty) {
  EXPECT_EQ(centredBoxInCrop({40, 20}, {101, 80}), cv::Rect(30, 30, 40, 20));
  EXPECT_EQ(centredBoxInCrop({41, 21}, {101, 80}), cv::Rect(30, 30, 41, 21)) << "integer halves";
  EXPECT_EQ(centredBoxInCrop({400, 20}, {100, 80}), cv::Rect(0, 30, 100, 20));
  EXPECT_EQ(centredBoxInCrop({0, -5}, {100, 80}), cv::Rect(50, 40, 1, 1));
}
