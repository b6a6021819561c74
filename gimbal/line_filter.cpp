#include "gimbal/line_filter.h"

#include <algorithm>
#include <cmath>

namespace gimbal {

void LineFilter::add(double t_s, double direction) {
  if (!std::isfinite(direction) || !std::isfinite(t_s)) return;
  const double dt = t_s - t_s_;
  if (knows() && dt <= 0) return;
  const double off = direction - at(t_s);
  if (!knows() || dt > params_.forget_s || std::fabs(off) > params_.jump_deg) {
    samples_ = 1;
    t_s_ = t_s;
    direction_ = direction;
    rate_ = 0.0;
    return;
  }
  ++samples_;
  const double n = samples_;
  const double kept = std::exp(-dt / params_.memory_s);
  const double alpha = std::max(1.0 - kept * kept, 2.0 * (2.0 * n - 1.0) / (n * (n + 1.0)));
  const double beta = std::max((1.0 - kept) * (1.0 - kept), 6.0 / (n * (n + 1.0)));
  direction_ = at(t_s) + std::min(alpha, 1.0) * off;
  rate_ = std::clamp(rate_ + std::min(beta, 1.0) * off / dt, -params_.max_dps, params_.max_dps);
  t_s_ = t_s;
}

}  // namespace gimbal
