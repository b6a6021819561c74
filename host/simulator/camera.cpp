#include "simulator/camera.h"

#include <algorithm>
#include <cmath>

namespace host::sim {
namespace {

constexpr double kTwoPi = 6.283185307179586;

double beginOf(const ZoomOrder& order, double following_s) {
  if (order.after == ZoomStart::Beginning) return order.at_s;
  return following_s < 0 ? HUGE_VAL : following_s + order.at_s;
}

/// Between -1 and 1.
double sway(double t_s, double hz, double phase) {
  return 0.6 * std::sin(kTwoPi * hz * t_s + phase) + 0.3 * std::sin(kTwoPi * 2.37 * hz * t_s + 2 * phase) +
         0.1 * std::sin(kTwoPi * 5.11 * hz * t_s + 3 * phase);
}

}  // namespace

double hfovAt(double start_hfov, const std::vector<ZoomOrder>& plan, double t_s, double following_s) {
  double hfov = start_hfov;
  for (const ZoomOrder& order : plan) {
    const double begin = beginOf(order, following_s);
    if (t_s < begin) break;
    const double share = order.over_s > 0 ? std::min(1.0, (t_s - begin) / order.over_s) : 1.0;
    hfov *= std::pow(order.hfov_deg / hfov, share);
  }
  return hfov;
}

Angles shakeAt(const ShakeParams& shake, double t_s) {
  if (t_s < shake.from_s) return {};
  const double since = t_s - shake.from_s;
  const double growing = std::min(1.0, since / 0.5);  // no jolt at the beginning
  return {growing * shake.pan_deg * sway(since, shake.hz, 0.4), growing * shake.tilt_deg * sway(since, shake.hz, 1.9)};
}

}  // namespace host::sim
