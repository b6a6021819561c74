// Histograms of oriented gradients of the search patch.
#pragma once

#include <cstdint>

#include "aligned_array.h"
#include "kernels.h"
#include "patch.h"

namespace csrt_engine {

constexpr int kDirections = 18;        ///< signed directions, 20 degrees apart
constexpr int kHistogramFloats = 24;   ///< floats of one cell's histogram: the directions and zeros after them
constexpr int kHogChannels = 32;       ///< values of one cell

/// Makes the cells' histograms and norms for a patch and answers each cell's 32 values.
class GradientCells {
 public:
  /// cell: pixels of a cell's side, 1 .. 4; the patch has at least 2 x 2 cells.
  void compute(const Kernels& kernels, const Planes& patch, int cell);
  /// Values of cell (x, y), to 32 floats; cells at the border have none, and a 1 in the last place to say so.
  void cellValues(const Kernels& kernels, int x, int y, float* out) const;

 private:
  float* histogram(int x, int y) const {
    return histograms_.data() + (static_cast<std::ptrdiff_t>(y + 1) * (columns_ + 2) + x + 1) * kHistogramFloats;
  }
  void accumulate(const Kernels& kernels, const Planes& patch, int cell);
  void normalise();

  int columns_ = 0, lines_ = 0;
  AlignedArray<float> histograms_;  // one more cell on each side takes what falls outside
  AlignedArray<float> factors_;     // one over the norm of the four cells around each inner corner
  AlignedArray<float> energy_, length_, share_;
  AlignedArray<uint8_t> direction_;
  AlignedArray<int> cellOf_;
};

}  // namespace csrt_engine
