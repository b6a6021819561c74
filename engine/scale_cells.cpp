#include "scale_cells.h"

#include <algorithm>
#include <cmath>

#include "gradients.h"

namespace csrt_engine {
namespace {

std::size_t index(int i) { return static_cast<std::size_t>(i); }

/// a * b + c as the library computes it: fused on arm64.
float libraryMulAdd(float a, float b, float c) {
#if defined(__aarch64__)
  return std::fma(a, b, c);
#else
  return a * b + c;
#endif
}

/// The taps of one row of samples, as offsets into the picture's rows.
void pixelTaps(const Subwindow& from, const std::vector<LinearTap>& taps, std::vector<PixelTap>& out) {
  const int last = from.image->cols - 1;
  // Four bytes are read per pixel of three: all but the row's first pixel are read from one byte before them.
  const auto place = [&](int column, int& offset, int& skip) {
    const int x = std::clamp(from.x + column, 0, last);
    offset = 3 * x - (x > 0 ? 1 : 0);
    skip = x > 0 ? 8 : 0;
  };
  for (std::size_t i = 0; i < out.size(); ++i) {
    const LinearTap& tap = taps[std::min(i, taps.size() - 1)];
    PixelTap& to = out[i];
    place(tap.first, to.first, to.firstSkip);
    place(tap.second, to.second, to.secondSkip);
    to.firstWeight = tap.weightFirst;
    to.secondWeight = tap.weightSecond;
  }
}

}  // namespace

void ScaleCells::setup(cv::Size model) {
  model_ = model;
  columns_ = model.width / kCell;
  lines_ = model.height / kCell;
  stride_ = columns_ * kCell + kBlock;  // vectors reach beyond a row's end
  taps_.resize(index(columns_ * kCell));
  pixels_.assign(3 * planeFloats() + kBlock, 0.f);
  histograms_.resize(index(columns_ + 2) * index(lines_ + 2) * kHistogramFloats + kBlock);
  energy_.resize(index(columns_) * index(lines_));
  length_.resize(index(stride_) + kBlock);
  direction_.resize(index(stride_) + kBlock);
}

/// A picture with one channel or a single column is sampled pixel by pixel.
void ScaleCells::sampleSlowly(const Subwindow& from) {
  const int width = columns_ * kCell, height = lines_ * kCell;
  for (int y = 0; y < height; ++y) {
    const LinearTap& ty = alongColumn_[index(y)];
    for (int x = 0; x < width; ++x) {
      const LinearTap& tx = alongRow_[index(x)];
      const Bgr a = pixelAt(from, tx.first, ty.first), b = pixelAt(from, tx.second, ty.first);
      const Bgr c = pixelAt(from, tx.first, ty.second), d = pixelAt(from, tx.second, ty.second);
      const auto mix = [&](uint8_t pa, uint8_t pb, uint8_t pc, uint8_t pd) {
        const float upper = libraryMulAdd(pa, tx.weightFirst, pb * tx.weightSecond);
        const float lower = libraryMulAdd(pc, tx.weightFirst, pd * tx.weightSecond);
        return libraryMulAdd(upper, ty.weightFirst, lower * ty.weightSecond);
      };
      float* out = &pixels_[index(y) * index(stride_) + index(x)];
      out[0] = mix(a.b, b.b, c.b, d.b);
      out[planeFloats()] = mix(a.g, b.g, c.g, d.g);
      out[2 * planeFloats()] = mix(a.r, b.r, c.r, d.r);
    }
  }
}

void ScaleCells::sample(const Kernels& kernels, const Subwindow& from) {
  linearTapsAlongRow(from.width, model_.width, alongRow_);
  linearTapsAlongColumn(from.height, model_.height, alongColumn_);
  if (from.image->channels() != 3 || from.image->cols < 2) return sampleSlowly(from);
  pixelTaps(from, alongRow_, taps_);
  const auto rowAt = [&](int row) { return from.image->ptr<uint8_t>(std::clamp(from.y + row, 0, from.image->rows - 1)); };
  for (int y = 0; y < lines_ * kCell; ++y) {
    const LinearTap& t = alongColumn_[index(y)];
    kernels.sampleRow(rowAt(t.first), rowAt(t.second), taps_.data(), columns_ * kCell, t.weightFirst, t.weightSecond,
                      &pixels_[index(y) * index(stride_)], static_cast<int>(planeFloats()));
  }
}

void ScaleCells::accumulate(const Kernels& kernels) {
  std::fill(histograms_.begin(), histograms_.end(), 0.f);
  const int width = columns_ * kCell, height = lines_ * kCell;
  const auto cellAt = [](int i) { return (static_cast<float>(i) + 0.5f) / kCell - 0.5f; };  // exact: eighths
  for (int y = 1; y < height - 1; ++y) {
    kernels.sampleGradients(&pixels_[index(y) * index(stride_)], static_cast<long>(planeFloats()), stride_, width,
                            length_.data(), direction_.data());
    const int cy = cvFloor(cellAt(y));
    const float lower = cellAt(y) - static_cast<float>(cy), upper = 1 - lower;
    float* row = &histograms_[index(cy + 1) * index(columns_ + 2) * kHistogramFloats];
    for (int x = 1; x < width - 1; ++x) {
      constexpr float kShare[kCell] = {0.625f, 0.875f, 0.125f, 0.375f};  // how far a pixel is on its way to the next cell
      const int cx = (x + kCell / 2) / kCell;  // one cell more on each side
      const float right = kShare[x % kCell] * length_[index(x)], left = length_[index(x)] - right;
      float* cell = row + cx * kHistogramFloats + direction_[index(x)];
      float* below = cell + (columns_ + 2) * kHistogramFloats;
      cell[0] += upper * left;
      cell[kHistogramFloats] += upper * right;
      below[0] += lower * left;
      below[kHistogramFloats] += lower * right;
    }
  }
}

void ScaleCells::compute(const Kernels& kernels, const Subwindow& from, float* out) {
  sample(kernels, from);
  accumulate(kernels);
  const auto cell = [&](int x, int y) {
    return &histograms_[(index(y + 1) * index(columns_ + 2) + index(x + 1)) * kHistogramFloats];
  };
  for (int y = 0; y < lines_; ++y)
    for (int x = 0; x < columns_; ++x) {
      const float* h = cell(x, y);
      float sum = 0;
      for (int o = 0; o < 9; ++o) sum += (h[o] + h[o + 9]) * (h[o] + h[o + 9]);
      energy_[index(y) * index(columns_) + index(x)] = sum;
    }
  const auto factor = [&](int x, int y) {
    const float *e = &energy_[index(y) * index(columns_) + index(x)], *below = e + columns_;
    return 1.0f / std::sqrt(e[0] + e[1] + below[0] + below[1] + 0.0001f);
  };
  for (int y = 1; y < lines_ - 1; ++y)
    for (int x = 1; x < columns_ - 1; ++x) {
      const float factors[4] = {factor(x, y), factor(x, y - 1), factor(x - 1, y), factor(x - 1, y - 1)};
      alignas(32) float values[kHogChannels];
      kernels.hogCell(cell(x, y), factors, values);
      out = std::copy_n(values, kValues, out);
    }
}

}  // namespace csrt_engine
