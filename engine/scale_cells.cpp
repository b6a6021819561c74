#include "scale_cells.h"

#include <algorithm>
#include <cmath>

#include "gradients.h"

namespace csrt_engine {
namespace {

std::size_t index(int i) { return static_cast<std::size_t>(i); }

struct Strongest {
  float length;
  int direction;
};

// The library's directions; the last digits matter, because resized pixels make near-ties.
constexpr double kUnitX[9] = {1.000, 0.9397, 0.7660, 0.5000, 0.1736, -0.1736, -0.5000, -0.7660, -0.9397};
constexpr double kUnitY[9] = {0.000, 0.3420, 0.6428, 0.8660, 0.9848, 0.9848, 0.8660, 0.6428, 0.3420};

/// p: a BGR pixel as floats 0 .. 255; down: floats to the pixel below.
Strongest strongestGradient(const float* p, std::ptrdiff_t down) {
  constexpr double kUnit = 1.0 / 255.0;
  double most = 0, bestX = 0, bestY = 0;
  for (int c = 2; c >= 0; --c) {
    const double dy = p[c + down] * kUnit - p[c - down] * kUnit, dx = p[c + 3] * kUnit - p[c - 3] * kUnit;
    const double v = dx * dx + dy * dy;
    if (c < 2 && !(v > most)) continue;
    most = v;
    bestX = dx;
    bestY = dy;
  }
  double largest = 0;
  int best = 0;
  for (int o = 0; o < 9; ++o) {
    const double dot = kUnitX[o] * bestX + kUnitY[o] * bestY;
    if (dot > largest) {
      largest = dot;
      best = o;
    } else if (-dot > largest) {
      largest = -dot;
      best = o + 9;
    }
  }
  return {static_cast<float>(std::sqrt(most)), best};
}

}  // namespace

void ScaleCells::setup(cv::Size model) {
  model_ = model;
  columns_ = model.width / kCell;
  lines_ = model.height / kCell;
  pixels_.resize(3 * index(columns_ * kCell) * index(lines_ * kCell));
  histograms_.resize(index(columns_ + 2) * index(lines_ + 2) * kHistogramFloats + kBlock);
}

void ScaleCells::sample(const Subwindow& from) {
  linearTapsAlongRow(from.width, model_.width, alongRow_);
  linearTapsAlongColumn(from.height, model_.height, alongColumn_);
  const int width = columns_ * kCell, height = lines_ * kCell;
  for (int y = 0; y < height; ++y) {
    const LinearTap& ty = alongColumn_[index(y)];
    for (int x = 0; x < width; ++x) {
      const LinearTap& tx = alongRow_[index(x)];
      const Bgr a = pixelAt(from, tx.first, ty.first), b = pixelAt(from, tx.second, ty.first);
      const Bgr c = pixelAt(from, tx.first, ty.second), d = pixelAt(from, tx.second, ty.second);
      const auto mix = [&](uint8_t pa, uint8_t pb, uint8_t pc, uint8_t pd) {
        const float upper = pa * tx.weightFirst + pb * tx.weightSecond;
        const float lower = pc * tx.weightFirst + pd * tx.weightSecond;
        return upper * ty.weightFirst + lower * ty.weightSecond;
      };
      float* out = &pixels_[3 * (index(y) * index(width) + index(x))];
      out[0] = mix(a.b, b.b, c.b, d.b);
      out[1] = mix(a.g, b.g, c.g, d.g);
      out[2] = mix(a.r, b.r, c.r, d.r);
    }
  }
}

void ScaleCells::accumulate() {
  std::fill(histograms_.begin(), histograms_.end(), 0.f);
  const int width = columns_ * kCell, height = lines_ * kCell;
  const auto cellAt = [](int i) { return (static_cast<float>(i) + 0.5f) / kCell - 0.5f; };  // exact: quarters
  for (int y = 1; y < height - 1; ++y) {
    const int cy = cvFloor(cellAt(y));
    const float lower = cellAt(y) - static_cast<float>(cy), upper = 1 - lower;
    float* row = &histograms_[index(cy + 1) * index(columns_ + 2) * kHistogramFloats];
    for (int x = 1; x < width - 1; ++x) {
      const Strongest g = strongestGradient(&pixels_[3 * (index(y) * index(width) + index(x))], 3 * width);
      const int cx = cvFloor(cellAt(x));
      const float right = cellAt(x) - static_cast<float>(cx), left = 1 - right;
      float* cell = row + (cx + 1) * kHistogramFloats + g.direction;
      float* below = cell + (columns_ + 2) * kHistogramFloats;
      cell[0] += upper * left * g.length;
      cell[kHistogramFloats] += upper * right * g.length;
      below[0] += lower * left * g.length;
      below[kHistogramFloats] += lower * right * g.length;
    }
  }
}

void ScaleCells::compute(const Kernels& kernels, const Subwindow& from, float* out) {
  sample(from);
  accumulate();
  const auto cell = [&](int x, int y) {
    return &histograms_[(index(y + 1) * index(columns_ + 2) + index(x + 1)) * kHistogramFloats];
  };
  const auto energy = [&](int x, int y) {
    const float* h = cell(x, y);
    float sum = 0;
    for (int o = 0; o < 9; ++o) sum += (h[o] + h[o + 9]) * (h[o] + h[o + 9]);
    return sum;
  };
  const auto factor = [&](int x, int y) {
    return 1.0f / std::sqrt(energy(x, y) + energy(x + 1, y) + energy(x, y + 1) + energy(x + 1, y + 1) + 0.0001f);
  };
  for (int y = 1; y < lines_ - 1; ++y)
    for (int x = 1; x < columns_ - 1; ++x) {
      const float factors[4] = {factor(x, y), factor(x, y - 1), factor(x - 1, y), factor(x - 1, y - 1)};
      float values[kHogChannels];
      kernels.hogCell(cell(x, y), factors, values);
      out = std::copy_n(values, kValues, out);
    }
}

}  // namespace csrt_engine
