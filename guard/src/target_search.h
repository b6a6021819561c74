// Where in a view could the target be?
#pragma once

#include <vector>

#include "colour_model.h"

namespace csrt_guard {

struct Place {
  cv::Rect2d box;         ///< Full-frame pixels.
  double likeness = 0.0;  ///< See ColourModel::likeness().
  HalfColours look{};     ///< Its colours.
  double contrast = 0.0;  ///< How much more the target's its pixels are than those at its sides; about [-2, 2].
};

/// The places that look most like the target, best first; no two overlap by half or more.
/// Dense: every place is weighed by how much rather than the surroundings its pixels are the target's; the best few are
/// then moved to where they are most like it and stand out most from what is at their sides.
/// @param expected  the size to look for, full-frame pixels
/// @param resized   also look for a sixth smaller and larger: a target that was away for long comes back nearer or
/// farther
std::vector<Place> findPlaces(const CodedView& view, const cv::Size2d& expected, bool resized, const ColourModel& model,
                              const Palette& palette);

}  // namespace csrt_guard
