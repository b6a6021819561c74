// Matching one template: the scores, the flat template, several threads, and the search around a point.
#include <gtest/gtest.h>

#include <limits>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <thread>
#include <vector>

#include "gpu_image.h"
#include "support/captured_log.h"
#include "support/test_algo.h"
#include "support/textures.h"

namespace {

GpuImage uploaded(const cv::Mat& pixels) {
  GpuImage image;
  image.upload(pixels);
  return image;
}

cv::Mat grey(const cv::Size& size, std::uint64_t seed) {
  cv::Mat out;
  cv::cvtColor(textured::texture(size, 6, seed), out, cv::COLOR_BGR2GRAY);
  return out;
}

cv::Mat matched(const cv::Mat& image, const cv::Mat& templ) {
  GpuImage result;
  gpuMatchTemplate(uploaded(image), uploaded(templ), result, cv::TM_CCOEFF_NORMED);
  return result.download().clone();
}

// ------------------------------------------------------------------------------------------------ the matcher

TEST(GpuMatchTemplate, ScoresAsOpenCvDoes) {
  const cv::Mat image = grey({90, 70}, 3);
  for (const cv::Rect& place : {cv::Rect(0, 0, 5, 5), cv::Rect(33, 21, 20, 17), cv::Rect(70, 50, 20, 20)}) {
    cv::Mat expected;
    cv::matchTemplate(image, image(place), expected, cv::TM_CCOEFF_NORMED);
    const cv::Mat scores = matched(image, image(place).clone());
    ASSERT_EQ(scores.type(), CV_32FC1);
    ASSERT_EQ(scores.size(), expected.size());
    EXPECT_LT(cv::norm(scores, expected, cv::NORM_INF), 1e-3);
    cv::Point best;
    cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &best);
    EXPECT_EQ(best, place.tl());
  }
}

TEST(GpuMatchTemplate, ScoresAFlatTemplateZeroEverywhere) {
  const cv::Mat image = grey({60, 40}, 3);
  const cv::Mat scores = matched(image, cv::Mat(8, 8, CV_8UC1, cv::Scalar(90)));
  ASSERT_EQ(scores.size(), cv::Size(53, 33));
  EXPECT_EQ(cv::norm(scores, cv::NORM_INF), 0.0);
}

TEST(GpuMatchTemplate, ScoresAnAlmostFlatTemplateForReal) {
  const cv::Mat image = grey({60, 40}, 3);
  cv::Mat templ(8, 8, CV_8UC1, cv::Scalar(90));
  templ.at<unsigned char>(3, 3) = 91;
  cv::Mat expected;
  cv::matchTemplate(image, templ, expected, cv::TM_CCOEFF_NORMED);
  EXPECT_LT(cv::norm(matched(image, templ), expected, cv::NORM_INF), 1e-3);
}

TEST(GpuMatchTemplate, RefusesATemplateLargerThanTheImageAndWorksAfterwards) {
  const cv::Mat image = grey({20, 20}, 3);
  EXPECT_THROW(matched(image, grey({21, 5}, 4)), cv::Exception);
  EXPECT_EQ(matched(image, image(cv::Rect(2, 3, 9, 9))).size(), cv::Size(12, 12));
}

// Images of two types by turns: whatever is kept between calls must not answer for the other type.
TEST(GpuMatchTemplate, ServesAlternatingImageTypes) {
  const cv::Mat oneChannel = grey({60, 40}, 3);
  const cv::Mat threeChannels = textured::texture({60, 40}, 6, 3);
  const cv::Rect place(17, 9, 12, 14);
  for (int round = 0; round < 3; ++round) {
    for (const cv::Mat& image : {oneChannel, threeChannels}) {
      const cv::Mat scores = matched(image, image(place).clone());
      EXPECT_NEAR(scores.at<float>(place.tl()), 1.0F, 1e-3F) << round;
    }
  }
}

TEST(GpuMatchTemplate, ServesSeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  std::vector<int> wrong(kThreads, 0);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &wrong] {
      const auto seed = static_cast<std::uint64_t>(10 + t);  // the threads fight over what is kept per type:
      const cv::Mat image = t % 2 == 1 ? textured::texture({90, 70}, 6, seed) : grey({90, 70}, seed);
      for (int i = 0; i < 25; ++i) {
        const cv::Rect place(3 * i % 70, 2 * i % 50, 16, 12);
        cv::Point best;
        cv::minMaxLoc(matched(image, image(place).clone()), nullptr, nullptr, nullptr, &best);
        if (best != place.tl()) ++wrong[static_cast<std::size_t>(t)];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
}

// ------------------------------------------------------------------------------------------------ the best place

BestMatch bestIn(const cv::Mat& scores) {
  cv::Mat memory;
  return bestMatch(uploaded(scores), memory);
}

TEST(BestMatch, IsTheMaximumAndTheFirstOfEquals) {
  cv::Mat scores(4, 5, CV_32FC1, cv::Scalar(-0.5));
  scores.at<float>(1, 3) = scores.at<float>(1, 4) = scores.at<float>(2, 0) = 0.75F;
  EXPECT_EQ(bestIn(scores).score, 0.75);
  EXPECT_EQ(bestIn(scores).place, cv::Point(3, 1));
}

TEST(BestMatch, IsMinusOneWhereTheMaximumIsNotFinite) {
  EXPECT_EQ(bestIn(cv::Mat(4, 5, CV_32FC1, cv::Scalar(std::numeric_limits<double>::quiet_NaN()))).score, -1.0);
  EXPECT_EQ(bestIn(cv::Mat(4, 5, CV_32FC1, cv::Scalar(-std::numeric_limits<double>::infinity()))).score, -1.0);
  cv::Mat scores(4, 5, CV_32FC1, cv::Scalar(0.5));
  scores.at<float>(2, 2) = std::numeric_limits<float>::infinity();
  EXPECT_EQ(bestIn(scores).score, -1.0);
  EXPECT_EQ(bestIn({}).score, -1.0);
}

TEST(CvTypeToStr, NamesDepthAndChannels) {
  EXPECT_EQ(cvTypeToStr(16), "CV_8UC3");
  EXPECT_EQ(cvTypeToStr(7), "CV_UserC1");
  EXPECT_EQ(cvTypeToStr(CV_8UC1), "CV_8UC1");
  EXPECT_EQ(cvTypeToStr(CV_8SC2), "CV_8SC2");
  EXPECT_EQ(cvTypeToStr(CV_16UC4), "CV_16UC4");
  EXPECT_EQ(cvTypeToStr(CV_16SC1), "CV_16SC1");
  EXPECT_EQ(cvTypeToStr(CV_32SC1), "CV_32SC1");
  EXPECT_EQ(cvTypeToStr(CV_32FC3), "CV_32FC3");
  EXPECT_EQ(cvTypeToStr(CV_64FC(10)), "CV_64FC10");
}

// ------------------------------------------------------------------------------------- the search around a point

class FindBestInRoi : public ::testing::Test {
 protected:
  FindBestInRoi() : pixels_(grey({640, 360}, 5)) { image_.upload(pixels_); }

  // The answer, over values that must not survive.
  void find(double cx, double cy, double objW, double objH, const GpuImage& templ) {
    score_ = 42.0;
    out_ = {1, 2, 3, 4};
    algo_.findBestInROI_GPU_Locked_(cx, cy, objW, objH, templ, image_, score_, out_);
  }
  GpuImage patchAt(const cv::Rect& r) const { return uploaded(pixels_(r).clone()); }
  void expectNothing() const {
    EXPECT_EQ(score_, -1.0);
    EXPECT_EQ(out_, cv::Rect());
  }

  TestAlgo algo_;
  cv::Mat pixels_;
  GpuImage image_;
  double score_ = 0.0;
  cv::Rect out_;
};

TEST_F(FindBestInRoi, FindsTheTemplateInFrameCoordinatesAtItsOwnSize) {
  const cv::Rect place(301, 157, 33, 21);
  find(place.x + 16, place.y + 10, 80.0, 70.0, patchAt(place));
  EXPECT_NEAR(score_, 1.0, 1e-3);
  EXPECT_EQ(out_, place) << "the object's size widens the search, not the box";
}

TEST_F(FindBestInRoi, FindsNothingWithoutTemplateOrImage) {
  find(100.0, 100.0, 30.0, 30.0, {});
  expectNothing();
  const GpuImage templ = patchAt({10, 10, 20, 20});
  image_ = {};
  find(100.0, 100.0, 30.0, 30.0, templ);
  expectNothing();
}

TEST_F(FindBestInRoi, SearchesExactlyTheSquareAroundThePoint) {
  algo_.config_.redetect.fine_roi_size = 100;
  // 20 + 2 * 24 = 68 is below 100: the region is [270, 370) x [130, 230).
  const auto foundAt = [&](const cv::Point& corner) {
    const cv::Rect place(corner, cv::Size(20, 20));
    find(320.0, 180.0, 1.0, 1.0, patchAt(place));
    return out_ == place;
  };
  EXPECT_TRUE(foundAt({270, 130}));
  EXPECT_TRUE(foundAt({350, 210}));
  EXPECT_FALSE(foundAt({269, 130}));
  EXPECT_FALSE(foundAt({351, 210}));
  EXPECT_FALSE(foundAt({270, 129}));
  EXPECT_FALSE(foundAt({350, 211}));
}

TEST_F(FindBestInRoi, GivesSmallObjectsAtLeast24PixelsAround) {
  algo_.config_.redetect.fine_roi_size = 32;
  const auto foundAt = [&](const cv::Point& corner) {
    const cv::Rect place(corner, cv::Size(20, 20));
    find(320.0, 180.0, 0.0, -5.0, patchAt(place));  // below the template's size: the template's size
    return out_ == place;
  };
  EXPECT_TRUE(foundAt({286, 146}));  // 68 pixels: [286, 354) x [146, 214)
  EXPECT_TRUE(foundAt({334, 194}));
  EXPECT_FALSE(foundAt({285, 146}));
  EXPECT_FALSE(foundAt({335, 194}));
}

TEST_F(FindBestInRoi, GivesLargeObjectsAQuarterAround) {
  algo_.config_.redetect.fine_roi_size = 32;
  const auto foundAt = [&](const cv::Point& corner) {
    const cv::Rect place(corner, cv::Size(20, 20));
    find(320.0, 180.0, 160.4, 120.0, patchAt(place));
    return out_ == place;
  };
  EXPECT_TRUE(foundAt({200, 90}));  // 160 + 2 * 40 and 120 + 2 * 30: [200, 440) x [90, 270)
  EXPECT_TRUE(foundAt({420, 250}));
  EXPECT_FALSE(foundAt({199, 90}));
  EXPECT_FALSE(foundAt({420, 251}));
}

TEST_F(FindBestInRoi, ClipsTheRegionAtTheFrame) {
  const cv::Rect place(0, 0, 25, 25);
  find(0.0, 0.0, 25.0, 25.0, patchAt(place));
  EXPECT_EQ(out_, place);
  const cv::Rect corner(610, 330, 30, 30);
  find(639.0, 359.0, 30.0, 30.0, patchAt(corner));
  EXPECT_EQ(out_, corner);
}

TEST_F(FindBestInRoi, SaysNothingAboutAPointFarOutside) {
  algo_.enableDebug(true);
  const GpuImage templ = patchAt({10, 10, 20, 20});
  for (const cv::Point2d& point : {cv::Point2d(5000, 180), cv::Point2d(320, -5000), cv::Point2d(1e300, -1e300)}) {
    EXPECT_EQ(outputOf([&] { find(point.x, point.y, 20.0, 20.0, templ); }), "");
    expectNothing();
  }
}

TEST_F(FindBestInRoi, TellsInDebugThatTheRegionIsTooSmall) {
  const GpuImage templ = patchAt({10, 10, 120, 80});
  algo_.enableDebug(true);
  // 200 wide around -80: 20 columns are left of it.
  const std::vector<std::string> lines = logOf([&] { find(-80.0, 180.0, 130.0, 90.0, templ); });
  expectNothing();
  const std::vector<std::string> expected{
      "findBestInROI: search ROI too small for template search=(0,80,20,200) templ=120x80 obj=130x90 fine=200"};
  EXPECT_EQ(lines, expected);
}

TEST_F(FindBestInRoi, IsSilentAboutATooSmallRegionWithoutDebug) {
  EXPECT_EQ(outputOf([&] { find(-80.0, 180.0, 130.0, 90.0, patchAt({10, 10, 120, 80})); }), "");
  expectNothing();
}

TEST_F(FindBestInRoi, TakesARegionOfExactlyTheTemplatesSize) {
  pixels_ = grey({40, 30}, 6);
  image_.upload(pixels_);
  find(20.0, 15.0, 40.0, 30.0, patchAt({0, 0, 40, 30}));
  EXPECT_NEAR(score_, 1.0, 1e-3);
  EXPECT_EQ(out_, cv::Rect(0, 0, 40, 30));
}

TEST_F(FindBestInRoi, TheFirstOfEqualPlacesWins) {
  cv::Mat twins = textured::ground({400, 200}, 2);
  const cv::Mat sprite = textured::target({24, 24});
  textured::put(twins, sprite, {210, 60});
  textured::put(twins, sprite, {150, 60});
  textured::put(twins, sprite, {180, 120});
  cv::cvtColor(twins, pixels_, cv::COLOR_BGR2GRAY);
  image_.upload(pixels_);
  find(192.0, 100.0, 24.0, 24.0, patchAt({150, 60, 24, 24}));
  EXPECT_NEAR(score_, 1.0, 1e-3);
  EXPECT_EQ(out_.y, 60);  // row-major order
}

TEST_F(FindBestInRoi, LeavesTheImageAlone) {
  const cv::Mat before = pixels_.clone();
  find(320.0, 180.0, 20.0, 20.0, patchAt({300, 170, 20, 20}));
  EXPECT_EQ(cv::norm(image_.download(), before, cv::NORM_INF), 0.0);
}

}  // namespace
