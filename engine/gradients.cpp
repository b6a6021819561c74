#include "gradients.h"

#include <algorithm>
#include <cmath>

namespace csrt_engine {
namespace {

constexpr float kTiny = 0.0001f;  // keeps flat cells from being divided by nothing

}  // namespace

void GradientCells::compute(const Kernels& kernels, const Planes& patch, int cell) {
  columns_ = patch.width / cell;
  lines_ = patch.height / cell;
  const auto cells = static_cast<std::size_t>(columns_ + 2) * static_cast<std::size_t>(lines_ + 2);
  std::fill_n(histograms_.reserve(cells * kHistogramFloats + kBlock), cells * kHistogramFloats, 0.f);
  accumulate(kernels, patch, cell);
  normalise();
}

void GradientCells::accumulate(const Kernels& kernels, const Planes& patch, int cell) {
  const int width = columns_ * cell, height = lines_ * cell;
  const auto n = static_cast<std::size_t>(width);
  float* length = length_.reserve(n + kBlock);
  uint8_t* direction = direction_.reserve(n + kBlock);
  float* share = share_.reserve(n);
  int* cellOf = cellOf_.reserve(n);
  const auto cellAt = [cell](int i) { return (i + 0.5) / cell - 0.5; };
  for (int x = 0; x < width; ++x) {
    cellOf[x] = cvFloor(cellAt(x));
    share[x] = static_cast<float>(cellAt(x) - cellOf[x]);
  }
  for (int y = 1; y < height - 1; ++y) {
    const uint8_t *above[3], *row[3], *below[3];
    for (int c = 0; c < 3; ++c) {
      row[c] = patch.plane[c] + static_cast<std::ptrdiff_t>(patch.stride) * y;
      above[c] = row[c] - patch.stride;
      below[c] = row[c] + patch.stride;
    }
    kernels.gradientRow(above, row, below, width, length, direction);
    const int cy = cvFloor(cellAt(y));
    const float lower = static_cast<float>(cellAt(y) - cy), upper = 1 - lower;
    float* upperCells = histogram(0, cy);
    float* lowerCells = histogram(0, cy + 1);
    for (int x = 1; x < width - 1; ++x) {
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(cellOf[x]) * kHistogramFloats + direction[x];
      const float right = share[x] * length[x], left = length[x] - right;
      upperCells[at] += upper * left;
      upperCells[at + kHistogramFloats] += upper * right;
      lowerCells[at] += lower * left;
      lowerCells[at + kHistogramFloats] += lower * right;
    }
  }
}

void GradientCells::normalise() {
  const std::ptrdiff_t columns = columns_, lines = lines_;
  float* energy = energy_.reserve(static_cast<std::size_t>(columns * lines));
  for (int y = 0; y < lines_; ++y)
    for (int x = 0; x < columns_; ++x) {
      const float* h = histogram(x, y);
      float sum = 0;
      for (int o = 0; o < 9; ++o) sum += (h[o] + h[o + 9]) * (h[o] + h[o + 9]);
      energy[y * columns + x] = sum;
    }
  float* factors = factors_.reserve(static_cast<std::size_t>(columns * lines));
  for (int y = 0; y + 1 < lines_; ++y)
    for (int x = 0; x + 1 < columns_; ++x) {
      const float* e = energy + y * columns + x;
      factors[y * columns + x] = 1.0f / std::sqrt(e[0] + e[1] + e[columns] + e[columns + 1] + kTiny);
    }
}

void GradientCells::cellValues(const Kernels& kernels, int x, int y, float* out) const {
  if (x == 0 || y == 0 || x >= columns_ - 1 || y >= lines_ - 1) {
    std::fill_n(out, kHogChannels, 0.f);
    out[kHogChannels - 1] = 1.f;
    return;
  }
  const float* f = factors_.data() + static_cast<std::ptrdiff_t>(y) * columns_ + x;
  const float around[4] = {f[0], f[-columns_], f[-1], f[-columns_ - 1]};
  kernels.hogCell(histogram(x, y), around, out);
}

}  // namespace csrt_engine
