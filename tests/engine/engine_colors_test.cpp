// Colours: histogram bins for every colour there is, and brightness, as the library converts them.
#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>
#include <vector>

#include "hsv.h"
#include "kernels.h"

namespace csrt_engine {
namespace {

TEST(Hsv, EveryColorIsConvertedAsTheLibraryDoes) {
  cv::Mat row(1, 65536, CV_8UC3), expected, hue;
  std::vector<int32_t> bins(65536 + 16);
  std::vector<uint8_t> bytes(3 * 65536 + 64);
  for (int b = 0; b < 256; ++b) {
    for (int i = 0; i < 65536; ++i)
      row.at<cv::Vec3b>(i) = {static_cast<uint8_t>(b), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i & 255)};
    cv::cvtColor(row, expected, cv::COLOR_BGR2HSV);
    cv::extractChannel(expected, hue, 0);
    hue.convertTo(hue, CV_8UC1, 255.0 / 180.0);
    std::copy_n(row.ptr<uint8_t>(), 3 * 65536, bytes.data());
    for (int i = 0; i < 65536; ++i) {
      const cv::Vec3b in = row.at<cv::Vec3b>(i), e = expected.at<cv::Vec3b>(i);
      const Hsv ours = hsvOf({in[0], in[1], in[2]});
      ASSERT_TRUE(ours.h == hue.at<uint8_t>(i) && ours.s == e[1] && ours.v == e[2]) << in;
    }
    const int steps = b % 4 == 0 ? 256 : b % 4 == 1 ? 16 : b % 4 == 2 ? 7 : 31;
    const auto level = [&](int v) { return static_cast<int>(std::floor(steps / 256.0 * v)); };
    for (const Kernels* set : {&baselineKernels(), &kernels()}) {
      set->binsOfRow(bytes.data(), 65536, steps, bins.data());
      for (int i = 0; i < 65536; ++i) {
        const cv::Vec3b e = expected.at<cv::Vec3b>(i);
        ASSERT_EQ(bins[static_cast<std::size_t>(i)],
                  (level(hue.at<uint8_t>(i)) * steps + level(e[1])) * steps + level(e[2]))
            << set->name << ' ' << row.at<cv::Vec3b>(i) << " steps " << steps;
      }
    }
  }
}

TEST(Brightness, IsTheLibrarys) {
  cv::Mat row(1, 65536, CV_8UC3), expected;
  std::vector<uint8_t> planes[3], ours(65536 + 16);
  for (auto& plane : planes) plane.resize(65536 + 16);
  for (int b = 0; b < 256; b += 5) {
    for (int i = 0; i < 65536; ++i) {
      planes[0][static_cast<std::size_t>(i)] = static_cast<uint8_t>(b);
      planes[1][static_cast<std::size_t>(i)] = static_cast<uint8_t>(i >> 8);
      planes[2][static_cast<std::size_t>(i)] = static_cast<uint8_t>(i & 255);
      row.at<cv::Vec3b>(i) = {static_cast<uint8_t>(b), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i & 255)};
    }
    cv::cvtColor(row, expected, cv::COLOR_BGR2GRAY);
    for (const Kernels* set : {&baselineKernels(), &kernels()}) {
      set->brightness(planes[0].data(), planes[1].data(), planes[2].data(), 65536, ours.data());
      ASSERT_TRUE(std::equal(ours.begin(), ours.begin() + 65536, expected.ptr<uint8_t>()))
          << set->name << " blue " << b;
    }
  }
}

}  // namespace
}  // namespace csrt_engine
