#include "gimbal/controller.h"

#include <algorithm>
#include <cmath>

namespace gimbal {
namespace {

constexpr double kReadings_s = 1.5;
constexpr double kOffsetShare = 0.15;      // of a reading in the smoothed offset
constexpr double kOffsetJump_deg = 3.0;    // the gimbal was moved by another hand
constexpr double kBrakingReserve = 0.5;    // of the acceleration: lag and noise take the rest
constexpr double kWrongWay = 0.3;          // slopes are 1 or -1 when all is well, here the sign counts
constexpr double kEnoughMotion_deg = 2.0;  // of bends, for the guard to judge
constexpr double kAtRest = 5.0;            // time constants after which a fading motion has ended
constexpr double kGrace_s = 0.1;           // between frames, and for one that is late
constexpr double kLongestStep_s = 0.2;     // between two orders, for the acceleration

}  // namespace

const char* name(ControllerState state) {
  switch (state) {
    case ControllerState::Following:
      return "following";
    case ControllerState::Holding:
      return "holding";
    case ControllerState::Slowing:
      return "slowing";
    case ControllerState::Stopped:
      return "stopped";
    case ControllerState::Idle:
      break;
  }
  return "idle";
}

Controller::Axis::Axis(const AxisParams& axis, const LineFilterParams& filter)
    : params(axis), model(axis), line(filter) {}

/// The gimbal's angle: between two readings, or from the last one on with what was ordered.
double Controller::Axis::angleAt(double t_s, double stale_s) const {
  const double label_s = t_s + stale_s;  // the reading of t_s carries this time
  const Reading& last = readings.back();
  if (label_s >= last.t_s) return last.angle + model.at(t_s) - model.at(last.t_s - stale_s);
  const auto after = std::lower_bound(readings.begin(), readings.end(), label_s,
                                      [](const Reading& reading, double t) { return reading.t_s < t; });
  if (after == readings.begin()) return after->angle;
  const Reading& before = *std::prev(after);
  const double share = (label_s - before.t_s) / (after->t_s - before.t_s);
  return before.angle + share * (after->angle - before.angle);
}

double Controller::Axis::wantedRate(double now_s, double gain) const {
  const double acts_s = now_s + params.delay_s;
  const double goal = std::clamp(line.at(acts_s), params.min_deg, params.max_deg);
  const double off = goal - (model.at(acts_s) + offset);
  const double braking = std::sqrt(2.0 * kBrakingReserve * params.max_accel_dps2 * std::fabs(off));
  const double closing = std::copysign(std::min(gain * std::fabs(off), braking), off);
  return std::clamp(line.rate() + closing, -params.max_rate_dps, params.max_rate_dps);
}

Controller::Controller(const ControllerParams& params)
    : params_(params), pan_(params.pan, params.filter), tilt_(params.tilt, params.filter) {}

void Controller::restart() {
  for (Axis* axis : {&pan_, &tilt_}) {
    axis->line.forget();
    axis->motor.forget();
    axis->picture.forget();
  }
  state_ = ControllerState::Idle;
  problem_.clear();
}

void Controller::read_(Axis& axis, double t_s, double angle) {
  if (!axis.readings.empty()) {
    if (t_s <= axis.readings.back().t_s) return;
    angle = unwrapped(angle, axis.readings.back().angle);
  }
  const double model = axis.model.at(t_s - params_.stale_s);
  const double off = angle - model;
  const bool first = axis.readings.empty() || std::fabs(off - axis.offset) > kOffsetJump_deg;
  axis.offset = first ? off : axis.offset + kOffsetShare * (off - axis.offset);
  axis.readings.push_back({t_s, angle});
  while (axis.readings.size() > 2 && axis.readings.front().t_s < t_s - kReadings_s) axis.readings.pop_front();
  axis.motor.add(t_s, model, angle);
}

void Controller::angles(double t_s, const PanTilt& angles) {
  if (!std::isfinite(angles.pan) || !std::isfinite(angles.tilt) || !std::isfinite(t_s)) return;
  read_(pan_, t_s, angles.pan);
  read_(tilt_, t_s, angles.tilt);
}

void Controller::see_(Axis& axis, double t_s, double off) {
  const double angle = axis.angleAt(t_s, params_.stale_s);
  axis.line.add(t_s, angle + off);
  axis.picture.add(t_s, angle, off);
}

void Controller::seen(double t_s, const PanTilt& off) {
  if (pan_.readings.empty() || !std::isfinite(off.pan) || !std::isfinite(off.tilt)) return;
  see_(pan_, t_s, off.pan);
  see_(tilt_, t_s, off.tilt);
  lastSeen_s_ = t_s;
  freshlySeen_ = true;
}

void Controller::guard_(const Axis& axis, const char* which) {
  if (axis.motor.strength() > kEnoughMotion_deg && axis.motor.slope() < -kWrongWay) {
    problem_ = std::string("the gimbal turns the other way when it is ordered to turn in ") + which;
  } else if (axis.picture.strength() > kEnoughMotion_deg && axis.picture.slope() > kWrongWay) {
    problem_ = std::string("the picture moves the wrong way when the gimbal turns in ") + which;
  } else {
    return;
  }
  state_ = ControllerState::Stopped;
}

/// How much of the motion is left when the target was last seen so long ago.
double Controller::share_(double coast_s) {
  if (coast_s <= kGrace_s) {
    state_ = ControllerState::Following;
    return 1.0;
  }
  if (coast_s <= kGrace_s + params_.hold_s) {
    state_ = ControllerState::Holding;
    return 1.0;
  }
  const double over = (coast_s - kGrace_s - params_.hold_s) / params_.fade_s;
  state_ = over < kAtRest ? ControllerState::Slowing : ControllerState::Idle;
  return over < kAtRest ? std::exp(-over) : 0.0;
}

double Controller::order_(Axis& axis, double now_s, double dt_s, double share) {
  axis.model.advanceTo(now_s);
  const bool fades = state_ == ControllerState::Slowing;  // its place is no longer known, only how it went
  const double rate = fades ? axis.line.rate() : axis.wantedRate(now_s, params_.gain_per_s);
  const double wanted = share > 0 ? share * rate : 0.0;
  const double change = axis.params.max_accel_dps2 * dt_s;
  axis.rate += std::clamp(wanted - axis.rate, -change, change);
  axis.model.order(now_s, axis.rate);
  return axis.rate / axis.params.gain;
}

PanTilt Controller::rates(double now_s) {
  const double dt_s = lastOrder_s_ < 0 ? 0.04 : std::clamp(now_s - lastOrder_s_, 0.0, kLongestStep_s);
  lastOrder_s_ = now_s;
  if (params_.guardSign && state_ != ControllerState::Stopped) {
    guard_(pan_, "pan");
    if (state_ != ControllerState::Stopped) guard_(tilt_, "tilt");
  }
  double share = 0.0;
  if (state_ != ControllerState::Stopped && pan_.line.knows()) {
    if (freshlySeen_) usualAge_s_ = now_s - lastSeen_s_;
    const double coast_s = now_s - lastSeen_s_ - usualAge_s_;
    share = share_(freshlySeen_ ? 0.0 : coast_s);
  } else if (state_ != ControllerState::Stopped) {
    state_ = ControllerState::Idle;
  }
  freshlySeen_ = false;
  return {order_(pan_, now_s, dt_s, share), order_(tilt_, now_s, dt_s, share)};
}

}  // namespace gimbal
