// Gradient features of the target at one size, for the scale search.
#pragma once

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
  void sample(const Subwindow& from);
  void accumulate();

  cv::Size model_;
  int columns_ = 0, lines_ = 0;
  std::vector<LinearTap> alongRow_, alongColumn_;
  std::vector<float> pixels_, histograms_;
};

}  // namespace csrt_engine
