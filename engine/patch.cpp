#include "patch.h"

#include <algorithm>
#include <cmath>

#include "resampling.h"

namespace csrt_engine {
namespace {
constexpr int kPad = 2;      // a cubic tap reaches two pixels over the edge
constexpr int kSlack = 64;   // vectors read and write whole lanes
}  // namespace

void PatchMaker::prepare(const Subwindow& from, cv::Size to) {
  const auto columns = static_cast<std::size_t>(to.width), lines = static_cast<std::size_t>(to.height);
  if (to != toSize_ || from.width != fromSize_.width || from.height != fromSize_.height) {
    fromSize_ = {from.width, from.height};
    toSize_ = to;
    tap_.resize(columns);
    columnWeights_.resize(4 * columns);
    rowBefore_.resize(lines);
    rowWeights_.resize(4 * lines);
    for (std::size_t x = 0; x < columns; ++x) {
      const SamplePoint at = samplePoint(static_cast<int>(x), from.width, to.width);
      tap_[x] = 3 * (at.before - 1 + kPad);
      cubicWeights(at.fraction, &columnWeights_[4 * x]);
    }
    for (std::size_t y = 0; y < lines; ++y) {
      const SamplePoint at = samplePoint(static_cast<int>(y), from.height, to.height);
      rowBefore_[y] = at.before;
      cubicWeights(at.fraction, &rowWeights_[4 * y]);
    }
    rowStride_ = (to.width + 15) / 16 * 16;
    planes_.width = to.width;
    planes_.height = to.height;
    planes_.stride = rowStride_ + kSlack;
  }
  source_.reserve(3 * static_cast<std::size_t>(from.width + 2 * kPad) + kSlack);
  rows_.reserve(12 * static_cast<std::size_t>(rowStride_) + kSlack);
  const std::size_t planeBytes = static_cast<std::size_t>(planes_.stride) * lines;
  uint8_t* bytes = result_.reserve(3 * planeBytes + kSlack);
  for (std::size_t c = 0; c < 3; ++c) planes_.plane[c] = bytes + planeBytes * c;
  std::fill(rowHeld_, rowHeld_ + 4, -1);
}

const float* PatchMaker::sourceRow(const Kernels& kernels, const Subwindow& from, int row) {
  const int y = std::clamp(row, 0, from.height - 1), slot = y % 4;
  float* out = rows_.data() + 3L * rowStride_ * slot;
  if (rowHeld_[slot] != y) {
    copyRow(from, y, kPad, source_.data());
    kernels.cubicRow(source_.data(), tap_.data(), columnWeights_.data(), toSize_.width, out, rowStride_);
    rowHeld_[slot] = y;
  }
  return out;
}

/// The library's vector code takes eight of the row's values at a time and leaves the rest to integer arithmetic.
void PatchMaker::finishRow(const float* const* rows, const int16_t* weights, int y) {
  for (int i = 3 * toSize_.width / 8 * 8; i < 3 * toSize_.width; ++i) {
    const int x = i / 3, c = i % 3;
    int sum = 0;
    for (int k = 0; k < 4; ++k) sum += static_cast<int>(rows[k][c * rowStride_ + x]) * weights[k];
    const int value = (sum + (1 << 21)) >> 22;
    const_cast<uint8_t*>(planes_.plane[c])[static_cast<std::ptrdiff_t>(planes_.stride) * y + x] =
        static_cast<uint8_t>(std::clamp(value, 0, 255));
  }
}

const Planes& PatchMaker::make(const Kernels& kernels, const Subwindow& from, cv::Size to) {
  prepare(from, to);
  for (int y = 0; y < to.height; ++y) {
    const float* rows[4];
    const int16_t* weights = &rowWeights_[4 * static_cast<std::size_t>(y)];
    for (int k = 0; k < 4; ++k) rows[k] = sourceRow(kernels, from, rowBefore_[static_cast<std::size_t>(y)] - 1 + k);
    for (int c = 0; c < 3; ++c) {
      const float* planeRows[4];
      for (int k = 0; k < 4; ++k) planeRows[k] = rows[k] + static_cast<std::ptrdiff_t>(c) * rowStride_;
      uint8_t* out = const_cast<uint8_t*>(planes_.plane[c]) + static_cast<std::ptrdiff_t>(planes_.stride) * y;
      kernels.cubicColumn(planeRows, weights, to.width, out);
    }
    finishRow(rows, weights, y);
  }
  return planes_;
}

}  // namespace csrt_engine
