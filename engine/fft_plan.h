// Plans for transforms of one length, and the tables of the direct ones.
#pragma once

#include <vector>

#include "kernels.h"

namespace csrt_engine {

/// Owns the tables of one transform length. Any n >= 1.
class FftTables {
 public:
  FftTables() = default;
  explicit FftTables(int n);
  FftTables(FftTables&&) = default;
  FftTables& operator=(FftTables&&) = default;
  FftPlan plan() const { return {n_, static_cast<int>(stages_.size()), stages_.data()}; }

 private:
  int n_ = 1;
  std::vector<FftStage> stages_;
  std::vector<float> numbers_;
};

/// Cosines and sines around an origin on an element and between two.
class DirectTables {
 public:
  DirectTables() = default;
  explicit DirectTables(int n);
  /// For a window of `width` elements, 1 .. n, with its origin at twiceOrigin().
  DirectTable forWidth(int width) const;

 private:
  int n_ = 1;
  std::vector<float> numbers_;  // odd widths: cosines, sines; even widths: cosines, sines
};

/// cos and sin of 2 pi j / n for j = 0 .. n - 1, exact to the last digit of a float.
std::vector<float> unitRoots(int n);

}  // namespace csrt_engine
