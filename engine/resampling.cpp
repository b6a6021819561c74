#include "resampling.h"

#include <algorithm>
#include <cstddef>
#include <opencv2/core.hpp>

namespace csrt_engine {

SamplePoint samplePoint(int i, int from, int to) {
  const double scale = 1.0 / (static_cast<double>(to) / from);
  const float position = static_cast<float>((i + 0.5) * scale - 0.5);
  const int before = cvFloor(position);
  return {before, position - static_cast<float>(before)};
}

void cubicWeights(float x, int16_t* weights) {
  constexpr float kA = -0.75f;  // Keys' parameter
  float w[4];
  w[0] = ((kA * (x + 1) - 5 * kA) * (x + 1) + 8 * kA) * (x + 1) - 4 * kA;
  w[1] = ((kA + 2) * x - (kA + 3)) * x * x + 1;
  w[2] = ((kA + 2) * (1 - x) - (kA + 3)) * (1 - x) * (1 - x) + 1;
  w[3] = 1.f - w[0] - w[1] - w[2];
  for (int k = 0; k < 4; ++k) weights[k] = cv::saturate_cast<short>(w[k] * 2048);
}

void linearTapsAlongRow(int from, int to, std::vector<LinearTap>& taps) {
  taps.resize(static_cast<std::size_t>(to));
  for (int i = 0; i < to; ++i) {
    SamplePoint at = samplePoint(i, from, to);
    if (at.before < 0) at = {0, 0.f};
    if (at.before >= from - 1) at = {from - 1, 0.f};
    taps[static_cast<std::size_t>(i)] = {at.before, std::min(at.before + 1, from - 1), 1.f - at.fraction, at.fraction};
  }
}

void linearTapsAlongColumn(int from, int to, std::vector<LinearTap>& taps) {
  taps.resize(static_cast<std::size_t>(to));
  for (int i = 0; i < to; ++i) {
    const SamplePoint at = samplePoint(i, from, to);
    taps[static_cast<std::size_t>(i)] = {std::clamp(at.before, 0, from - 1), std::clamp(at.before + 1, 0, from - 1),
                                         1.f - at.fraction, at.fraction};
  }
}

}  // namespace csrt_engine
