// What tells the target from others that look like it, learnt from both.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "colour_model.h"

namespace csrt_guard {

/// Linear discriminant analysis (Fisher 1936) of two kinds of looks, those of the target and those of others: colours
/// that differ between the two count, and more so where looks of one kind have them alike. Only means and covariances
/// are kept, so memory is bounded; older looks count less.
class Discriminant {
 public:
  static constexpr int kLength = kHalves * kColours;  ///< Numbers in a look.

  void clear();
  void target(const HalfColours& look);
  void other(const HalfColours& look);

  /// Which kind a look is of: 1 as the target's mean, -1 as the others' mean, and beyond. Empty: too few were seen of
  /// either. Takes longer after a new look was learnt, as the direction is found anew (about 20 us).
  std::optional<double> of(const HalfColours& look);

 private:
  using Numbers = std::array<double, kLength>;
  /// Mean and covariance of one kind, as sums.
  class Kind {
   public:
    explicit Kind(double forget) : forget_(forget) {}
    void add(const HalfColours& look);
    int looks() const { return looks_; }
    double mean(int i) const { return sums_[static_cast<std::size_t>(i)] / weight_; }
    double covariance(int i, int j) const;

   private:
    double forget_;  ///< What a look counts for when the next one comes.
    double weight_ = 0.0;
    int looks_ = 0;
    Numbers sums_{};
    std::vector<double> products_ = std::vector<double>(static_cast<std::size_t>(kLength) * kLength, 0.0);
  };

  void solve_();

  Kind targets_{0.998};
  Kind others_{0.995};
  Numbers direction_{};
  Numbers middle_{};
  double apart_ = 0.0;  ///< Of the means, along the direction.
  bool solved_ = false;
};

}  // namespace csrt_guard
