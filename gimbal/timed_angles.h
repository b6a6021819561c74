// Readings of a gimbal's angles, and what they were in between.
#pragma once

#include <algorithm>
#include <iterator>

#include "gimbal/angles.h"

namespace gimbal {

/// An angle, or a way, and its time in seconds.
struct TimedAngles {
  double t_s;
  PanTilt value;
};

/// The angles at a time, on a straight line between the readings around it; before the first and after the last the
/// nearest. Pure.
/// @param readings  at least one TimedAngles, in the order of their times
template <typename Readings>
PanTilt angleAt(const Readings& readings, double t_s) {
  const auto after = std::lower_bound(readings.begin(), readings.end(), t_s,
                                      [](const TimedAngles& reading, double t) { return reading.t_s < t; });
  if (after == readings.begin()) return after->value;
  if (after == readings.end()) return readings.back().value;
  const TimedAngles& before = *std::prev(after);
  const double share = (t_s - before.t_s) / (after->t_s - before.t_s);
  return {before.value.pan + share * (after->value.pan - before.value.pan),
          before.value.tilt + share * (after->value.tilt - before.value.tilt)};
}

}  // namespace gimbal
