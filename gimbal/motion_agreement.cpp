#include "gimbal/motion_agreement.h"

#include <cmath>
#include <cstddef>

namespace gimbal {

void MotionAgreement::add(double t_s, double cause, double effect) {
  if (!std::isfinite(cause) || !std::isfinite(effect)) return;
  if (!samples_.empty()) {
    const double dt = t_s - samples_.back().t_s;
    if (dt <= 0) return;
    if (dt > 2 * span_s_) samples_.clear();  // a gap: nothing spans it
    const double kept = std::exp(-dt / memory_s_);
    causes_ *= kept;
    product_ *= kept;
  }
  samples_.push_back({t_s, cause, effect});
  while (samples_.size() > 2 && samples_[1].t_s <= t_s - 2 * span_s_) samples_.pop_front();
  const Sample& first = samples_.front();
  const Sample& last = samples_.back();
  if (last.t_s - first.t_s < 1.5 * span_s_) return;
  // The sample nearest the middle; the bend is its way off the straight line between the ends.
  const double middle_s = 0.5 * (first.t_s + last.t_s);
  std::size_t nearest = 0;
  for (std::size_t i = 1; i < samples_.size(); ++i) {
    if (std::fabs(samples_[i].t_s - middle_s) < std::fabs(samples_[nearest].t_s - middle_s)) nearest = i;
  }
  const Sample& middle = samples_[nearest];
  const double share = (middle.t_s - first.t_s) / (last.t_s - first.t_s);
  const double causeBend = middle.cause - first.cause - share * (last.cause - first.cause);
  const double effectBend = middle.effect - first.effect - share * (last.effect - first.effect);
  causes_ += causeBend * causeBend;
  product_ += causeBend * effectBend;
}

double MotionAgreement::strength() const {
  return std::sqrt(causes_);
}

void MotionAgreement::forget() {
  samples_.clear();
  causes_ = product_ = 0.0;
}

}  // namespace gimbal
