// The re-centring of a loose initial box on the object under its centre.
#include "box_refinement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/imgproc.hpp>

#include "window_geometry.h"

namespace {

const cv::Size kImage(300, 260);

cv::Mat ground(int grey = 20) {
  return cv::Mat(kImage, CV_8UC3, cv::Scalar::all(grey));
}

cv::Mat with(cv::Mat image, const cv::Rect& part, const cv::Scalar& colour) {
  image(part & cv::Rect({}, image.size())).setTo(colour);
  return image;
}

/// The tuning of one call; without smoothing, so that every pixel belongs to the segment of its colour.
struct Tuning {
  double searchScale = 2.0;
  int maxSide = 320;
  double sigma = 0.1;
  float k = 700.0F;
  int minSize = 160;
  int growSteps = 3;
  double maxColorDist = 16.0;
  double minAreaRatio = 0.1;
  double maxAreaRatio = 6.0;
  int padPx = 8;

  cv::Rect refine(const cv::Mat& image, const cv::Rect& box, const cv::Point& seed) const {
    return refineInit_GraphSegNearSeed(image, box, seed, searchScale, maxSide, sigma, k, minSize, growSteps,
                                       maxColorDist, minAreaRatio, maxAreaRatio, padPx);
  }
};

}  // namespace

// ------------------------------------------------------------------------------------------------ search window

TEST(SearchWindow, IsAMultipleOfTheBoxAroundTheSeed) {
  EXPECT_EQ(makeSearchWinAroundSeed({100, 100, 40, 60}, {120, 130}, 2.0, {640, 360}), cv::Rect(80, 70, 80, 120));
  EXPECT_EQ(makeSearchWinAroundSeed({100, 100, 33, 60}, {120, 130}, 2.5, {640, 360}), cv::Rect(79, 55, 83, 150))
      << "82.5 rounds up, its half is an integer one";
}

TEST(SearchWindow, IsAtLeastSixtyFourPixelsWideAndHigh) {
  EXPECT_EQ(makeSearchWinAroundSeed({100, 100, 20, 20}, {110, 110}, 2.0, {640, 360}), cv::Rect(78, 78, 64, 64));
}

TEST(SearchWindow, IsCutAtTheImage) {
  EXPECT_EQ(makeSearchWinAroundSeed({0, 0, 20, 20}, {5, 6}, 2.0, {640, 360}), cv::Rect(0, 0, 37, 38));
  EXPECT_EQ(makeSearchWinAroundSeed({0, 0, 20, 20}, {25, 20}, 2.0, {50, 40}), cv::Rect(0, 0, 50, 40));
}

TEST(SearchWindow, IsNoneOutsideTheImageOrWithoutOne) {
  EXPECT_EQ(makeSearchWinAroundSeed({0, 0, 20, 20}, {5, 6}, 2.0, {0, 360}), cv::Rect());
  EXPECT_EQ(makeSearchWinAroundSeed({0, 0, 20, 20}, {900, 6}, 2.0, {640, 360}), cv::Rect());
}

// -------------------------------------------------------------------------------------------------- refinement

TEST(BoxRefinement, GivesBackABoxOfNoAreaOrAnEmptyImage) {
  const Tuning tuning;
  EXPECT_EQ(tuning.refine(ground(), {50, 60, 0, 20}, {50, 60}), cv::Rect(50, 60, 0, 20));
  EXPECT_EQ(tuning.refine(cv::Mat(), {50, 60, 20, 20}, {50, 60}), cv::Rect(50, 60, 20, 20));
  EXPECT_EQ(tuning.refine(ground(), {50, 60, 20, 20}, {900, 60}), cv::Rect(50, 60, 20, 20)) << "no search window";
}

TEST(BoxRefinement, CentresTheBoxOnTheSegmentUnderTheSeed) {
  const cv::Mat image = with(ground(), {110, 90, 40, 30}, {30, 40, 220});
  // The object and 8 pixels around it: 56 x 46 from (102, 82); the box is smaller one way and larger the other.
  EXPECT_EQ(Tuning().refine(image, {100, 80, 50, 60}, {125, 110}), cv::Rect(105, 82, 50, 46));
}

TEST(BoxRefinement, FindsTheObjectWithTheTuningOfAStart) {
  Tuning tuning;
  tuning.sigma = 0.8;
  const cv::Mat image = with(ground(), {110, 90, 40, 30}, {30, 40, 220});
  const cv::Rect refined = tuning.refine(image, {100, 80, 50, 60}, {125, 110});
  EXPECT_NEAR(refined.x, 105, 2);
  EXPECT_NEAR(refined.y, 82, 2);
  EXPECT_LE(refined.width, 50);
  EXPECT_LE(refined.height, 60);
}

TEST(BoxRefinement, GivesUpOnASegmentFarLargerThanTheBox) {
  EXPECT_EQ(Tuning().refine(ground(), {100, 80, 20, 20}, {110, 90}), cv::Rect(100, 80, 20, 20));
}

TEST(BoxRefinement, CutsTheSearchAtACornerAndClampsTheSeedIntoIt) {
  const cv::Mat image = with(ground(), {0, 0, 24, 20}, {30, 40, 220});
  const cv::Rect refined = Tuning().refine(image, {0, 0, 40, 40}, {-3, -2});
  EXPECT_EQ(refined, cv::Rect(0, 0, 40, 36)) << "the padding that the corner cuts off is added on the other side";
}

TEST(BoxRefinement, TakesBothLimitsOfTheAreaInclusively) {
  const cv::Mat image = with(ground(), {110, 90, 40, 30}, {30, 40, 220});
  const cv::Rect box(90, 70, 80, 70);
  Tuning tuning;
  tuning.growSteps = 0;
  const double ratio = 56.0 * 46.0 / box.area();
  const cv::Rect found(102, 82, 56, 46);
  tuning.maxAreaRatio = ratio;
  EXPECT_EQ(tuning.refine(image, box, {130, 105}), found);
  tuning.maxAreaRatio = std::nextafter(ratio, 0.0);
  EXPECT_EQ(tuning.refine(image, box, {130, 105}), box);
  tuning.maxAreaRatio = 6.0;
  tuning.minAreaRatio = ratio;
  EXPECT_EQ(tuning.refine(image, box, {130, 105}), found);
  tuning.minAreaRatio = std::nextafter(ratio, 1.0);
  EXPECT_EQ(tuning.refine(image, box, {130, 105}), box);
}

// ------------------------------------------------------------------------------------------------------ growth

namespace {

/// Three stripes of 20 x 60 pixels side by side on a dark ground; the seed lies in the middle one.
class Growth : public ::testing::Test {
 protected:
  cv::Rect refined(int left, int middle, int right) const {
    cv::Mat image = ground();
    with(image, {120, 100, 20, 60}, cv::Scalar::all(left));
    with(image, {140, 100, 20, 60}, cv::Scalar::all(middle));
    with(image, {160, 100, 20, 60}, cv::Scalar::all(right));
    return tuning.refine(image, {100, 80, 100, 100}, {150, 130});
  }

  /// Distance of two greys in 8-bit Lab.
  static double distance(int a, int b) {
    cv::Mat greys(1, 2, CV_8UC3);
    greys.at<cv::Vec3b>(0) = cv::Vec3b::all(static_cast<uchar>(a));
    greys.at<cv::Vec3b>(1) = cv::Vec3b::all(static_cast<uchar>(b));
    cv::Mat lab;
    cv::cvtColor(greys, lab, cv::COLOR_BGR2Lab);
    return cv::norm(cv::Vec3d(lab.at<cv::Vec3b>(0)) - cv::Vec3d(lab.at<cv::Vec3b>(1)));
  }

  const cv::Rect middleOnly{140, 100, 20, 60};
  const cv::Rect leftToo{120, 100, 40, 60};
  const cv::Rect rightToo{140, 100, 40, 60};
  const cv::Rect all{120, 100, 60, 60};
  Tuning tuning = [] {
    Tuning t;
    t.padPx = 0;
    return t;
  }();
};

}  // namespace

TEST_F(Growth, TakesNeighboursUpToTheColourDistanceInclusively) {
  const double near = distance(128, 140);
  tuning.maxColorDist = near;
  EXPECT_EQ(refined(140, 128, 250), leftToo);
  tuning.maxColorDist = std::nextafter(near, 0.0);
  EXPECT_EQ(refined(140, 128, 250), middleOnly);
}

TEST_F(Growth, MovesTheMeanWithinAPassInAscendingOrderOfLabels) {
  // The far stripe is out of reach of the middle one, but within reach of the mean of the middle and the near one.
  ASSERT_GT(distance(128, 148), 16.0);
  ASSERT_LT(distance(134, 148), 16.0);
  tuning.growSteps = 1;
  EXPECT_EQ(refined(140, 128, 148), all) << "the near stripe comes first";
  EXPECT_EQ(refined(148, 128, 140), rightToo) << "the far stripe came first and was refused";
  tuning.growSteps = 2;
  EXPECT_EQ(refined(148, 128, 140), all) << "the next pass asks it again";
}

TEST_F(Growth, ReachesOutInEveryDirection) {
  const cv::Rect middle(130, 110, 30, 30);
  for (const cv::Point& aside : {cv::Point(-30, 0), cv::Point(30, 0), cv::Point(0, -30), cv::Point(0, 30)}) {
    cv::Mat image = with(ground(), middle, cv::Scalar::all(128));
    with(image, middle + aside, cv::Scalar::all(138));
    EXPECT_EQ(tuning.refine(image, {95, 75, 100, 100}, {145, 125}), middle | (middle + aside)) << aside;
  }
}

TEST_F(Growth, WeighsTheMeanByPixels) {
  // A thin near stripe hardly moves the mean: the far one stays out.
  cv::Mat image = ground();
  with(image, {137, 100, 3, 60}, cv::Scalar::all(140));
  with(image, {140, 100, 30, 60}, cv::Scalar::all(128));
  with(image, {170, 100, 20, 60}, cv::Scalar::all(148));
  EXPECT_EQ(tuning.refine(image, {100, 80, 100, 100}, {155, 130}), cv::Rect(137, 100, 33, 60));
}

TEST_F(Growth, StopsWithoutPasses) {
  tuning.growSteps = 0;
  EXPECT_EQ(refined(128, 130, 128), middleOnly);
}

TEST_F(Growth, TakesASegmentOnlyWhileTheAreaFits) {
  tuning.maxAreaRatio = 0.3;  // of 100 x 100: one neighbour of 20 x 60 fits, the second does not
  EXPECT_EQ(refined(140, 128, 140), leftToo);
  tuning.maxAreaRatio = 0.36;
  EXPECT_EQ(refined(140, 128, 140), all) << "exactly the largest area";
}

// ------------------------------------------------------------------------------------------------------- scale

namespace {

/// Two touching blocks of 30 x 40 pixels. The smallest area is what both have together, so that growing fails as soon
/// as the search works on a shrunken picture.
bool grows(const cv::Size& box, int maxSide) {
  cv::Mat image = ground();
  with(image, {120, 110, 30, 40}, cv::Scalar::all(128));
  with(image, {150, 110, 30, 40}, cv::Scalar::all(138));
  Tuning tuning;
  tuning.padPx = 0;
  tuning.maxSide = maxSide;
  tuning.minAreaRatio = 2400.0 / box.area();
  const cv::Rect start({140 - box.width / 2, 130 - box.height / 2}, box);
  return tuning.refine(image, start, {140, 130}) != start;
}

}  // namespace

TEST(BoxRefinementScale, ComparesTheShorterSideOfTheSearchWithTheLargestSide) {
  EXPECT_TRUE(grows({60, 100}, 120)) << "120 x 200: the shorter side is just small enough";
  EXPECT_TRUE(grows({100, 60}, 120));
  EXPECT_FALSE(grows({61, 100}, 120));
  EXPECT_TRUE(grows({61, 100}, 122));
}

TEST(BoxRefinementScale, NeverShrinksBelowALargestSideOfOneHundredAndTwenty) {
  EXPECT_TRUE(grows({80, 100}, 119));
  EXPECT_FALSE(grows({80, 100}, 120));
}

TEST(BoxRefinementScale, ComesBackToImagePixels) {
  cv::Mat image(720, 960, CV_8UC3, cv::Scalar::all(20));
  with(image, {400, 300, 100, 80}, {30, 40, 220});
  const cv::Rect refined = Tuning().refine(image, {350, 230, 240, 200}, {450, 340});
  EXPECT_NEAR(refined.x, 392, 3);
  EXPECT_NEAR(refined.y, 292, 3);
  EXPECT_NEAR(refined.width, 116, 5);
  EXPECT_NEAR(refined.height, 96, 5);
}
