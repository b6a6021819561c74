// Hue, saturation and value of 8-bit colours, as OpenCV's conversion computes them, with the hue stretched to 0 .. 255.
#pragma once

#include <cstdint>

#include "subwindow.h"

namespace csrt_engine {

struct Hsv {
  uint8_t h, s, v;
};

/// Pure, any thread. Equal to cv::cvtColor(COLOR_BGR2HSV) with the hue then multiplied by 255 / 180 and rounded.
Hsv hsvOf(Bgr pixel);

}  // namespace csrt_engine
