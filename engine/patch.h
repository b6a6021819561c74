// The search patch: the picture around the target, brought to the template's size.
#pragma once

#include <cstdint>
#include <vector>

#include "aligned_array.h"
#include "kernels.h"
#include "subwindow.h"

namespace csrt_engine {

/// Three planes (blue, green, red) of bytes; rows lie `stride` bytes apart.
struct Planes {
  int width = 0, height = 0, stride = 0;
  const uint8_t* plane[3] = {nullptr, nullptr, nullptr};
};

/// Resizes subwindows as cv::resize does with INTER_CUBIC, byte for byte. Keeps its memory.
class PatchMaker {
 public:
  /// The result is valid until the next call. `to`: at least 1 x 1.
  const Planes& make(const Kernels& kernels, const Subwindow& from, cv::Size to);

 private:
  void prepare(const Subwindow& from, cv::Size to);
  const float* sourceRow(const Kernels& kernels, const Subwindow& from, int row);
  void finishRow(const float* const* rows, const int16_t* weights, int y);

  cv::Size fromSize_, toSize_;
  int rowStride_ = 0;                             // floats of one plane of a resized row
  std::vector<int> tap_, rowBefore_;
  std::vector<int16_t> columnWeights_, rowWeights_;
  AlignedArray<uint8_t> source_, result_;
  AlignedArray<float> rows_;                      // four resized rows of three planes each
  int rowHeld_[4] = {-1, -1, -1, -1};
  Planes planes_;
};

}  // namespace csrt_engine
