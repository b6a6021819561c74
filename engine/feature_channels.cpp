#include "feature_channels.h"

#include <algorithm>
#include <cmath>

#include "color_names.h"

namespace csrt_engine {
namespace {

std::size_t index(int i) { return static_cast<std::size_t>(i); }

void cubicTaps(int from, int to, std::vector<int>& first, std::vector<int16_t>& weights) {
  first.resize(index(to));
  weights.resize(4 * index(to));
  for (int i = 0; i < to; ++i) {
    const SamplePoint at = samplePoint(i, from, to);
    first[index(i)] = at.before - 1;
    cubicWeights(at.fraction, &weights[4 * index(i)]);
  }
}

const float* namesOf(const Planes& patch, int x, int y) {
  const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(patch.stride) * y + x;
  return kColorNameTable[(patch.plane[2][at] >> 3) + 32 * (patch.plane[1][at] >> 3) + 1024 * (patch.plane[0][at] >> 3)];
}

/// Brightness of a pixel as the library computes it, in units of 1/32768.
uint8_t brightness(int b, int g, int r) { return static_cast<uint8_t>((b * 3735 + g * 19235 + r * 9798 + (1 << 14)) >> 15); }

}  // namespace

void FeatureMaker::setup(const cv::tracking::TrackerCSRT::Params& params, cv::Size patch, int cell, const cv::Mat& window,
                         bool columnsFirst) {
  hog_ = params.use_hog ? params.num_hog_channels_used : 0;
  names_ = params.use_color_names;
  gray_ = params.use_gray;
  rgb_ = params.use_rgb;
  channels_ = hog_ + (names_ ? kColorNames : 0) + (gray_ ? 1 : 0) + (rgb_ ? 3 : 0);
  cell_ = cell;
  columnsFirst_ = columnsFirst;
  patch_ = patch;
  cells_ = window.size();
  window_.assign(window.ptr<float>(), window.ptr<float>() + window.total());
  linearTapsAlongRow(patch.width, cells_.width, alongRow_);
  linearTapsAlongColumn(patch.height, cells_.height, alongColumn_);
  if (gray_) {
    cubicTaps(patch.width, cells_.width, grayColumn_, grayColumnWeights_);
    cubicTaps(patch.height, cells_.height, grayRow_, grayRowWeights_);
    grayValues_.resize(window.total());
    grayRows_.resize(index(patch.height) * index(cells_.width));
    grayLine_.resize(index(patch.width));
  }
  const std::size_t floats = index(blocks()) * kBlock * window.total();
  std::fill_n(planes_.reserve(floats), floats, 0.f);
}

/// Brightness of all cells: cubic resizing of bytes, whose last few values of a row are computed in integers.
void FeatureMaker::grayCells(const Planes& patch) {
  const int width = cells_.width;
  for (int y = 0; y < patch.height; ++y) {
    const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(patch.stride) * y;
    const uint8_t *b = patch.plane[0] + at, *g = patch.plane[1] + at, *r = patch.plane[2] + at;
    for (int x = 0; x < patch.width; ++x) grayLine_[index(x)] = brightness(b[x], g[x], r[x]);
    for (int x = 0; x < width; ++x) {
      int sum = 0;
      for (int k = 0; k < 4; ++k)
        sum += grayLine_[index(std::clamp(grayColumn_[index(x)] + k, 0, patch.width - 1))] *
               grayColumnWeights_[4 * index(x) + index(k)];
      grayRows_[index(y) * index(width) + index(x)] = sum;
    }
  }
  constexpr float kScale = 1.0f / (2048.0f * 2048.0f);
  for (int y = 0; y < cells_.height; ++y) {
    const int16_t* w = &grayRowWeights_[4 * index(y)];
    const int* rows[4];
    for (int k = 0; k < 4; ++k)
      rows[k] = &grayRows_[index(std::clamp(grayRow_[index(y)] + k, 0, patch.height - 1)) * index(width)];
    for (int x = 0; x < width; ++x) {
      int value;
      if (x < width / 8 * 8) {
        float sum = static_cast<float>(rows[3][x]) * (static_cast<float>(w[3]) * kScale);
        for (int k = 2; k >= 0; --k) {
          const float a = static_cast<float>(rows[k][x]), f = static_cast<float>(w[k]) * kScale;
#if defined(__aarch64__)
          sum = std::fma(a, f, sum);
#else
          sum = a * f + sum;
#endif
        }
        value = cvRound(sum);
      } else {
        int sum = 0;
        for (int k = 0; k < 4; ++k) sum += rows[k][x] * w[k];
        value = (sum + (1 << 21)) >> 22;
      }
      grayValues_[index(y) * index(width) + index(x)] =
          static_cast<float>(std::clamp(value, 0, 255)) * static_cast<float>(1.0 / 255.0) - 0.5f;
    }
  }
}

void FeatureMaker::colorMeans(const Planes& patch) {
  for (int c = 0; c < 3; ++c) {
    long long sum = 0;
    for (int y = 0; y < patch.height; ++y) {
      const uint8_t* row = patch.plane[c] + static_cast<std::ptrdiff_t>(patch.stride) * y;
      for (int x = 0; x < patch.width; ++x) sum += row[x];
    }
    colorMean_[c] = static_cast<float>(static_cast<double>(sum) / (255.0 * patch.width * patch.height) - 0.5);
  }
}

void FeatureMaker::appendNames(const Planes& patch, const LinearTap& tx, const LinearTap& ty, float* out) const {
  const float *a = namesOf(patch, tx.first, ty.first), *b = namesOf(patch, tx.second, ty.first);
  const float *c = namesOf(patch, tx.first, ty.second), *d = namesOf(patch, tx.second, ty.second);
  for (int k = 0; k < kColorNames; ++k)
    out[k] = (a[k] * tx.weightFirst + b[k] * tx.weightSecond) * ty.weightFirst +
             (c[k] * tx.weightFirst + d[k] * tx.weightSecond) * ty.weightSecond;
}

void FeatureMaker::appendColors(const Planes& patch, const LinearTap& tx, const LinearTap& ty, float* out) const {
  const std::ptrdiff_t upper = static_cast<std::ptrdiff_t>(patch.stride) * ty.first;
  const std::ptrdiff_t lower = static_cast<std::ptrdiff_t>(patch.stride) * ty.second;
  for (int c = 0; c < 3; ++c) {
    const uint8_t* plane = patch.plane[c];
    const auto value = [&](std::ptrdiff_t at) {
      return (static_cast<float>(plane[at]) * static_cast<float>(1.0 / 255.0) - 0.5f) - colorMean_[c];
    };
    out[c] = (value(upper + tx.first) * tx.weightFirst + value(upper + tx.second) * tx.weightSecond) * ty.weightFirst +
             (value(lower + tx.first) * tx.weightFirst + value(lower + tx.second) * tx.weightSecond) * ty.weightSecond;
  }
}

const float* FeatureMaker::compute(const Kernels& kernels, const Planes& patch) {
  if (hog_ > 0) gradients_.compute(kernels, patch, cell_);
  if (gray_) grayCells(patch);
  if (rgb_) colorMeans(patch);
  const std::ptrdiff_t stride = static_cast<std::ptrdiff_t>(kBlock) * cells_.area();
  alignas(64) float cell[kHogChannels + kColorNames + 4 + kBlock] = {};
  for (int y = 0; y < cells_.height; ++y)
    for (int x = 0; x < cells_.width; ++x) {
      const std::ptrdiff_t inner = static_cast<std::ptrdiff_t>(y) * cells_.width + x;
      int next = 0;
      if (hog_ > 0) gradients_.cellValues(kernels, x, y, cell), next = hog_;
      if (names_) appendNames(patch, alongRow_[index(x)], alongColumn_[index(y)], cell + next), next += kColorNames;
      if (gray_) cell[next++] = grayValues_[static_cast<std::size_t>(inner)];
      if (rgb_) appendColors(patch, alongRow_[index(x)], alongColumn_[index(y)], cell + next), next += 3;
      for (; next % kBlock != 0; ++next) cell[next] = 0;
      const std::ptrdiff_t place = columnsFirst_ ? static_cast<std::ptrdiff_t>(x) * cells_.height + y : inner;
      kernels.storeCell(cell, window_[static_cast<std::size_t>(inner)], blocks(), stride, planes_.data() + kBlock * place);
    }
  return planes_.data();
}

}  // namespace csrt_engine
