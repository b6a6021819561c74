#include "gimbal/axis_model.h"

#include <algorithm>
#include <cmath>

namespace gimbal {
namespace {

constexpr double kStep_s = 0.004;
constexpr double kPast_s = 2.0;

}  // namespace

void AxisModel::step_(State& state, double until_s, std::deque<Order>& orders, std::deque<State>* past) const {
  while (state.t_s < until_s) {
    while (!orders.empty() && orders.front().arrives_s <= state.t_s + 1e-9) {
      state.wanted = orders.front().rate_dps;
      orders.pop_front();
    }
    double dt = std::min(kStep_s, until_s - state.t_s);
    if (!orders.empty()) dt = std::min(dt, orders.front().arrives_s - state.t_s);
    dt = std::max(dt, 1e-6);
    const double share = params_.lag_s > 0 ? 1.0 - std::exp(-dt / params_.lag_s) : 1.0;
    state.lagged += share * (std::clamp(state.wanted, -params_.max_rate_dps, params_.max_rate_dps) - state.lagged);
    const double before = state.rate;
    state.rate += std::clamp(state.lagged - state.rate, -params_.max_accel_dps2 * dt, params_.max_accel_dps2 * dt);
    state.position += 0.5 * (before + state.rate) * dt;
    state.t_s += dt;
    if (past != nullptr) past->push_back(state);
  }
}

void AxisModel::order(double t_s, double rate_dps) {
  advanceTo(t_s);
  orders_.push_back({t_s + params_.delay_s, rate_dps});
}

void AxisModel::advanceTo(double t_s) {
  if (!begun_) {
    begun_ = true;
    state_.t_s = t_s;
    past_.push_back(state_);
    return;
  }
  if (t_s - state_.t_s > kPast_s) {  // asleep for long: whatever was ordered is over
    state_ = {t_s - kPast_s, state_.position, 0.0, 0.0, 0.0};
    orders_.clear();
    past_.assign(1, state_);
  }
  step_(state_, t_s, orders_, &past_);
  while (past_.size() > 2 && past_.front().t_s < t_s - kPast_s) past_.pop_front();
}

double AxisModel::at(double t_s) const {
  if (!begun_) return 0.0;
  if (t_s > state_.t_s) {
    State future = state_;
    std::deque<Order> orders = orders_;
    step_(future, t_s, orders, nullptr);
    return future.position;
  }
  if (t_s <= past_.front().t_s) return past_.front().position;
  const auto after =
      std::lower_bound(past_.begin(), past_.end(), t_s, [](const State& state, double t) { return state.t_s < t; });
  const State& b = *after;
  const State& a = *std::prev(after);
  const double share = (t_s - a.t_s) / (b.t_s - a.t_s);
  return a.position + share * (b.position - a.position);
}

}  // namespace gimbal
