#include "hsv.h"

#include <algorithm>
#include <opencv2/core.hpp>

namespace csrt_engine {
namespace {

constexpr int kShift = 12;  // the library's divisions are products with tables in units of 1/4096

struct Tables {
  int saturation[256], hue[256];
  uint8_t stretched[256];
  Tables() {
    saturation[0] = hue[0] = 0;
    for (int i = 1; i < 256; ++i) {
      saturation[i] = cvRound((255 << kShift) / (1. * i));
      hue[i] = cvRound((180 << kShift) / (6. * i));
    }
    cv::Mat all(1, 256, CV_8UC1), result;
    for (int i = 0; i < 256; ++i) all.at<uint8_t>(i) = static_cast<uint8_t>(i);
    all.convertTo(result, CV_8UC1, 255.0 / 180.0);
    std::copy_n(result.ptr<uint8_t>(), 256, stretched);
  }
};

const Tables kTables;

}  // namespace

Hsv hsvOf(Bgr pixel) {
  const int b = pixel.b, g = pixel.g, r = pixel.r;
  const int v = std::max({b, g, r}), difference = v - std::min({b, g, r});
  constexpr int kHalf = 1 << (kShift - 1);
  const int s = (difference * kTables.saturation[v] + kHalf) >> kShift;
  int h = v == r ? g - b : v == g ? b - r + 2 * difference : r - g + 4 * difference;
  h = (h * kTables.hue[difference] + kHalf) >> kShift;
  if (h < 0) h += 180;
  return {kTables.stretched[static_cast<uint8_t>(h)], static_cast<uint8_t>(s), static_cast<uint8_t>(v)};
}

}  // namespace csrt_engine
