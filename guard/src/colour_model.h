// The target's colours, of its upper and its lower half, and how like them a place is.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <optional>

#include "coded_view.h"

namespace csrt_guard {

inline constexpr int kHalves = 2;
using Colours = std::array<float, kColours>;       ///< Shares; they sum to 1 unless all are 0.
using HalfColours = std::array<Colours, kHalves>;  ///< Upper, lower.

/// The colours inside a box, the middle counting more than the sides. Empty when less than a third of it is in view.
std::optional<HalfColours> coloursIn(const CodedView& view, const cv::Rect2d& boxInView, const Palette& palette);

/// Of two looks, whatever they are of: 0 nothing in common, 1 the same (Bhattacharyya's coefficient, mean of halves).
double sameness(const HalfColours& a, const HalfColours& b);

/// Moves `into` towards `seen` by this share of the difference.
void blend(HalfColours& into, const HalfColours& seen, float share);

class ColourModel {
 public:
  /// @param view  shows the target and its surroundings
  /// @return false: nothing to learn from
  bool learn(const CodedView& view, const cv::Rect2d& boxInView, const Palette& palette);

  /// 0 nothing in common, 1 the same (Bhattacharyya's coefficient, the mean of both halves). Colours that the
  /// surroundings had as well count less.
  double likeness(const HalfColours& colours) const;

  /// The same of a box; empty when it is not enough in view.
  std::optional<double> likenessAt(const CodedView& view, const cv::Rect2d& boxInView, const Palette& palette) const;

  /// Takes what the target looks like now into the average that likeness is judged by.
  /// @param share  of the new picture, (0, 1]
  void learnMore(const HalfColours& colours, float share);

  /// How much rather than the surroundings a pixel of a colour is the target, per half; natural logarithm in [-2, 2].
  HalfColours logRatio(const Colours& surroundings) const;

 private:
  HalfColours weights_{};
  HalfColours mean_{};   ///< As seen so far.
  HalfColours roots_{};  ///< Square roots of its weighed shares.
};

/// Shares of all colours of a view.
Colours coloursOf(const CodedView& view, const Palette& palette);

}  // namespace csrt_guard
