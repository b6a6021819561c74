// tryShrinkArea() stands in for cv::resize with INTER_AREA: every pixel must be the same one.
#include "area_shrink.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <tuple>

#include "gpu_image.h"

namespace {

// Where the fast sum may lie beside a rounding edge: few levels give many means of exactly one half.
enum Content { kNoise, kBlackAndWhite, kFourLevels, kTwoLevels };

cv::Mat picture(cv::RNG& random, const cv::Size& size, int content) {
  cv::Mat grey(size, CV_8UC1);
  const auto fill = [&](int first, int end) { random.fill(grey, cv::RNG::UNIFORM, first, end); };
  switch (content) {
    case kBlackAndWhite:
      fill(0, 2);
      grey *= 255;
      break;
    case kFourLevels:
      fill(100, 104);
      break;
    case kTwoLevels:
      fill(0, 2);
      break;
    default:
      fill(0, 256);
  }
  return grey;
}

cv::Mat byOpenCv(const cv::Mat& src, double fx, double fy) {
  cv::Mat dst;
  cv::resize(src, dst, {}, fx, fy, cv::INTER_AREA);
  return dst;
}

::testing::AssertionResult samePixels(const cv::Mat& expected, const cv::Mat& got) {
  if (expected.size() != got.size() || expected.type() != got.type()) {
    return ::testing::AssertionFailure() << "size " << got.size() << " instead of " << expected.size();
  }
  const int different = cv::countNonZero(expected != got);
  if (different == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << different << " of " << expected.total() << " pixels differ";
}

bool givesAnyPixel(const cv::Size& size, double fx, double fy) {
  return cv::saturate_cast<int>(size.width * fx) > 0 && cv::saturate_cast<int>(size.height * fy) > 0;
}

TEST(AreaShrink, GivesThePixelsOfOpenCvForAnySizeAndFactor) {
  cv::RNG random(7);
  int covered = 0;
  for (int i = 0; i < 600; ++i) {
    const cv::Size size(random.uniform(5, 300), random.uniform(5, 300));
    const double fx = random.uniform(0.01, 1.0);
    const double fy = i % 2 == 0 ? fx : random.uniform(0.01, 1.0);
    if (!givesAnyPixel(size, fx, fy)) continue;
    const cv::Mat src = picture(random, size, i % 4);
    cv::Mat dst;
    if (!tryShrinkArea(src, dst, fx, fy)) continue;
    ++covered;
    ASSERT_TRUE(samePixels(byOpenCv(src, fx, fy), dst)) << size << " by " << fx << ", " << fy;
  }
#if defined(__x86_64__)
  EXPECT_GT(covered, 500) << "nearly all goes to cv::resize: the search of a large frame is slow again";
#else
  if (covered == 0) GTEST_SKIP() << "this OpenCV adds up in an order of its own; cv::resize does all the work";
#endif
}

TEST(AreaShrink, RoundsMeansOfExactlyOneHalfAsOpenCvDoes) {
  cv::RNG random(11);
  for (const double factor : {2.0 / 3.0, 0.4, 0.5, 0.8}) {
    const cv::Mat src = picture(random, {240, 180}, kTwoLevels);
    cv::Mat dst;
    if (tryShrinkArea(src, dst, 0.5, factor)) {
      EXPECT_TRUE(samePixels(byOpenCv(src, 0.5, factor), dst)) << factor;
    }
    if (tryShrinkArea(src, dst, factor, factor)) {
      EXPECT_TRUE(samePixels(byOpenCv(src, factor, factor), dst)) << factor;
    }
  }
}

// The factors that the search of a whole frame really uses.
TEST(AreaShrink, GivesThePixelsOfOpenCvOnCameraFrames) {
  cv::RNG random(13);
  for (const cv::Size& size : {cv::Size(3840, 2160), {1920, 1080}, {1280, 720}, {768, 576}, {1080, 1920}}) {
    const double factor = 320.0 / std::min(size.width, size.height);
    cv::Mat src = picture(random, size, kNoise);
    cv::GaussianBlur(src, src, {7, 7}, 0.0);
    cv::Mat dst;
    const bool covered = tryShrinkArea(src, dst, factor, factor);
#if defined(__x86_64__)
    ASSERT_TRUE(covered) << size;
#endif
    if (covered) {
      EXPECT_TRUE(samePixels(byOpenCv(src, factor, factor), dst)) << size;
    }
  }
}

TEST(AreaShrink, DoesNotDependOnTheNumberOfThreads) {
  cv::RNG random(17);
  const cv::Mat src = picture(random, {1920, 1080}, kNoise);
  const int before = cv::getNumThreads();
  for (const int threads : {1, 2}) {
    cv::setNumThreads(threads);
    cv::Mat dst;
    if (tryShrinkArea(src, dst, 0.29, 0.31)) {
      EXPECT_TRUE(samePixels(byOpenCv(src, 0.29, 0.31), dst)) << threads;
    }
  }
  cv::setNumThreads(before);
}

TEST(AreaShrink, ReadsAPartOfALargerPictureAndMayReplaceItsSource) {
  cv::RNG random(19);
  const cv::Mat whole = picture(random, {400, 300}, kNoise);
  cv::Mat part = whole(cv::Rect(13, 7, 331, 251));
  const cv::Mat untouched = whole.clone();
  const cv::Mat expected = byOpenCv(part, 0.3, 0.3);
  if (tryShrinkArea(part, part, 0.3, 0.3)) {
    EXPECT_TRUE(samePixels(expected, part));
  }
  EXPECT_TRUE(samePixels(untouched, whole));
}

TEST(AreaShrink, UsesTheBufferItIsGivenAgain) {
  cv::RNG random(23);
  const cv::Mat src = picture(random, {400, 300}, kNoise);
  cv::Mat dst;
  if (!tryShrinkArea(src, dst, 0.3, 0.3)) GTEST_SKIP() << "cv::resize does the work";
  const void* memory = dst.data;
  ASSERT_TRUE(tryShrinkArea(src, dst, 0.3, 0.3));
  EXPECT_EQ(dst.data, memory);
}

// One pixel wide or high is no reason to leave the work to cv::resize.
TEST(AreaShrink, MakesPicturesOfOnePixel) {
  cv::RNG random(29);
  cv::Mat dst;
  if (!tryShrinkArea(picture(random, {40, 40}, kNoise), dst, 0.3, 0.3)) GTEST_SKIP() << "cv::resize does the work";
  for (const cv::Size& size : {cv::Size(3, 40), cv::Size(40, 3), cv::Size(3, 3)}) {
    const cv::Mat src = picture(random, size, kNoise);
    EXPECT_TRUE(tryShrinkArea(src, dst, 0.3, 0.3)) << size;
    EXPECT_TRUE(samePixels(byOpenCv(src, 0.3, 0.3), dst)) << size;
  }
}

class AreaShrinkLeaves : public ::testing::TestWithParam<std::tuple<int, double, double>> {};

TEST_P(AreaShrinkLeaves, ToOpenCv) {
  const auto [type, fx, fy] = GetParam();
  const cv::Mat src(120, 160, type, cv::Scalar::all(9));
  cv::Mat dst(1, 1, CV_8UC1, cv::Scalar(77));
  EXPECT_FALSE(tryShrinkArea(src, dst, fx, fy));
  EXPECT_EQ(dst.size(), cv::Size(1, 1));
  EXPECT_EQ(dst.at<unsigned char>(0, 0), 77);
}

INSTANTIATE_TEST_SUITE_P(Cases, AreaShrinkLeaves,
                         ::testing::Values(std::make_tuple(CV_8UC3, 0.3, 0.3), std::make_tuple(CV_32FC1, 0.3, 0.3),
                                           std::make_tuple(CV_8UC1, 0.25, 0.5), std::make_tuple(CV_8UC1, 1.5, 0.5),
                                           std::make_tuple(CV_8UC1, 0.5, 1.0), std::make_tuple(CV_8UC1, 0.001, 0.3),
                                           std::make_tuple(CV_8UC1, 0.0, 0.3), std::make_tuple(CV_8UC1, -0.3, 0.3),
                                           std::make_tuple(CV_8UC1, 0.3, std::nan(""))));

// What the search calls, covered or not: whole-numbered factors and enlarging go to cv::resize.
TEST(AreaShrink, IsWhatTheImageSeamShrinksWith) {
  cv::RNG random(29);
  const cv::Mat src = picture(random, {640, 360}, kNoise);
  GpuImage image;
  image.upload(src);
  for (const double factor : {0.25, 0.31, 0.9, 1.0, 1.3}) {
    GpuImage dst;
    resizeImage(image, dst, {}, factor, factor, cv::INTER_AREA);
    if (std::string(imageBackendName()) != "host") GTEST_SKIP() << "the GPU has its own arithmetic";
    EXPECT_TRUE(samePixels(byOpenCv(src, factor, factor), dst.download())) << factor;
  }
}

}  // namespace
