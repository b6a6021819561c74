#include "simulator/gimbal.h"

#include <algorithm>
#include <cmath>

namespace host::sim {
namespace {

constexpr double kStep_s = 0.001;
constexpr double kGain_per_s = 6.0;      // near the goal the rate falls with the way that is left
constexpr double kBrakingReserve = 0.6;  // of the acceleration: the lag eats some of the braking way

}  // namespace

Axis::Axis(const AxisLimits& limits, bool endless, double position)
    : limits_(limits), endless_(endless), position_(position), goal_(position) {}

void Axis::goTo(double position) {
  toPosition_ = true;
  goal_ = endless_ ? position : std::clamp(position, limits_.min_deg, limits_.max_deg);
}

void Axis::turn(double degPerSecond) {
  toPosition_ = false;
  goal_ = degPerSecond;
}

double Axis::wantedRate_() const {
  if (!toPosition_) return std::clamp(goal_, -limits_.max_rate_dps, limits_.max_rate_dps);
  const double way = endless_ ? wrapped(goal_ - position_) : goal_ - position_;
  const double braking = std::sqrt(2.0 * kBrakingReserve * limits_.max_accel_dps2 * std::fabs(way));
  return std::copysign(std::min({limits_.max_rate_dps, kGain_per_s * std::fabs(way), braking}), way);
}

void Axis::step(double dt_s) {
  const double share = limits_.lag_s > 0 ? 1.0 - std::exp(-dt_s / limits_.lag_s) : 1.0;
  lagged_ += share * (wantedRate_() - lagged_);
  const double change = limits_.max_accel_dps2 * dt_s;
  rate_ += std::clamp(lagged_ - rate_, -change, change);
  position_ += rate_ * dt_s;
  if (endless_) {
    position_ = wrapped(position_);
  } else if (position_ < limits_.min_deg || position_ > limits_.max_deg) {
    position_ = std::clamp(position_, limits_.min_deg, limits_.max_deg);
    rate_ = 0.0;
  }
}

Gimbal::Gimbal(const AxisLimits& pan, const AxisLimits& tilt, double delay_s, const Angles& start)
    : pan_(pan, true, wrapped(start.pan)), tilt_(tilt, false, start.tilt), delay_s_(delay_s) {}

void Gimbal::order(const GimbalOrder& order) {
  travelling_.push_back({now_s_ + delay_s_, order});
}

void Gimbal::obey_() {
  while (!travelling_.empty() && travelling_.front().arrives_s <= now_s_) {
    const GimbalOrder& order = travelling_.front().order;
    if (order.toPosition) {
      pan_.goTo(order.value.pan);
      tilt_.goTo(order.value.tilt);
    } else {
      pan_.turn(order.value.pan);
      tilt_.turn(order.value.tilt);
    }
    travelling_.pop_front();
  }
}

void Gimbal::advance(double dt_s) {
  const int steps = std::max(1, static_cast<int>(std::ceil(dt_s / kStep_s)));
  for (int i = 0; i < steps; ++i) {
    obey_();
    pan_.step(dt_s / steps);
    tilt_.step(dt_s / steps);
    now_s_ += dt_s / steps;
  }
}

}  // namespace host::sim
