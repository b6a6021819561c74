// The search patch is, byte for byte, what copying, padding and cv::resize make of the picture.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <random>

#include "drawn_scene.h"
#include "patch.h"

namespace csrt_engine {
namespace {

cv::Mat expectedPatch(const cv::Mat& image, cv::Point2f center, int w, int h, cv::Size to) {
  const cv::Rect wanted(cvFloor(center.x) + 1 - w / 2, cvFloor(center.y) + 1 - h / 2, w, h);
  cv::Mat big, out;
  const int pad = 600;
  cv::copyMakeBorder(image, big, pad, pad, pad, pad, cv::BORDER_REPLICATE);
  cv::resize(big(wanted + cv::Point(pad, pad)).clone(), out, to, 0, 0, cv::INTER_CUBIC);
  return out;
}

cv::Mat ourPatch(const Kernels& set, const cv::Mat& image, cv::Point2f center, int w, int h, cv::Size to) {
  PatchMaker maker;
  const Planes& planes = maker.make(set, subwindowAround(image, center, w, h), to);
  cv::Mat channels[3], out;
  for (int c = 0; c < 3; ++c)
    channels[c] = cv::Mat(to, CV_8UC1, const_cast<uint8_t*>(planes.plane[c]), static_cast<std::size_t>(planes.stride));
  cv::merge(channels, 3, out);
  return out;
}

TEST(Patch, IsTheLibrarysCubicResizeByteForByte) {
  const cv::Mat color = engine_test::texture({320, 240}, 9, 0.8);
  cv::Mat gray, grayAsColor;
  cv::cvtColor(color, gray, cv::COLOR_BGR2GRAY);
  cv::cvtColor(gray, grayAsColor, cv::COLOR_GRAY2BGR);
  std::mt19937 random(2);
  const auto draw = [&](int low, int high) {
    return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
  };
  for (int i = 0; i < 60; ++i) {
    const int w = draw(3, 400), h = draw(3, 400), side = draw(4, 220);
    const cv::Size to = i % 5 == 0   ? cv::Size(w, h)
                        : i % 7 == 0 ? cv::Size((w + 1) / 2, (h + 1) / 2)
                                     : cv::Size(side, side);
    const cv::Point2f center(static_cast<float>(draw(0, 3190)) / 10, static_cast<float>(draw(0, 2390)) / 10);
    for (const Kernels* set : {&baselineKernels(), &kernels()}) {
      const auto same = [](const cv::Mat& a, const cv::Mat& b) { return cv::norm(a, b, cv::NORM_INF) == 0; };
      EXPECT_TRUE(same(ourPatch(*set, color, center, w, h, to), expectedPatch(color, center, w, h, to)))
          << set->name << ' ' << w << 'x' << h << " to " << to << " at " << center;
      EXPECT_TRUE(same(ourPatch(*set, gray, center, w, h, to), expectedPatch(grayAsColor, center, w, h, to)))
          << set->name;
    }
  }
}

TEST(Subwindow, OutsideThePictureThrowsAsTheLibraryDoes) {
  const cv::Mat image(100, 100, CV_8UC3, cv::Scalar::all(7));
  EXPECT_THROW(subwindowAround(image, {500, 50}, 20, 20), cv::Exception);
  EXPECT_THROW(subwindowAround(image, {50, -400}, 20, 20), cv::Exception);
  EXPECT_THROW(subwindowAround(image, {50, 50}, 0, 20), cv::Exception);
  EXPECT_NO_THROW(subwindowAround(image, {99, 99}, 400, 400));
}

}  // namespace
}  // namespace csrt_engine
