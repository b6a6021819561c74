// Gradient features of the target at one size, for the scale search.
#pragma once

#include <algorithm>
#include <vector>

#include "aligned_array.h"
#include "kernels.h"
#include "resampling.h"
#include "subwindow.h"

namespace csrt_engine {

/// Samples a subwindow down to the scale model's size and answers its cells' gradient values.
class ScaleCells {
 public:
  static constexpr int kCell = 4;      ///< pixels of a cell's side
  static constexpr int kValues = 31;   ///< values of an inner cell

  /// model: pixels, at least two cells wide and high.
  void setup(cv::Size model);
  int innerCells() const { return std::max(columns_ - 2, 0) * std::max(lines_ - 2, 0); }
  int borderCells() const { return columns_ * lines_ - innerCells(); }
  int values() const { return innerCells() * kValues; }
  /// values() floats.
  void compute(const Kernels& kernels, const Subwindow& from, float* out);

 private:
  void sample(const Kernels& kernels, const Subwindow& from);
  void sampleSlowly(const Subwindow& from);
  void accumulate(const Kernels& kernels);
  std::size_t planeFloats() const { return static_cast<std::size_t>(stride_) * static_cast<std::size_t>(lines_ * kCell); }

  cv::Size model_;
  int columns_ = 0, lines_ = 0;
  std::vector<LinearTap> alongRow_, alongColumn_;
  std::vector<PixelTap> taps_;
  int stride_ = 0;
  std::vector<float> pixels_, histograms_, energy_, length_;
  std::vector<int32_t> direction_;
};

}  // namespace csrt_engine
