// What one motor of the gimbal is expected to do with the orders it was given: each arrives late, then the motor's own
// loop lags, then its acceleration limits it. Degrees and seconds.
#pragma once

#include <deque>

namespace gimbal {

/// One axis, as calibration or a data sheet gives it.
struct AxisParams {
  double max_rate_dps = 60.0;     ///< > 0
  double max_accel_dps2 = 240.0;  ///< > 0
  double delay_s = 0.04;          ///< From an order until the motor hears of it, 0 or more.
  double lag_s = 0.05;            ///< Time constant of the motor's own loop, 0 or more.
  double gain = 1.0;              ///< Rate that comes for a rate that was ordered; negative: it turns the other way.
  double min_deg = -1e9;          ///< Stops ...
  double max_deg = 1e9;           ///< ... of this axis.
};

/// Time goes forwards only. Not thread-safe.
class AxisModel {
 public:
  explicit AxisModel(const AxisParams& params) : params_(params) {}

  /// The rate the axis shall turn with. @param rate_dps  degrees per second as they will come, gain already taken out
  void order(double t_s, double rate_dps);

  /// Lets the time pass until `t_s`; nothing happens when that is in the past.
  void advanceTo(double t_s);

  /// How far the axis had turned, or will have with the orders that are under way. Degrees from where it began.
  double at(double t_s) const;

 private:
  struct State {
    double t_s = 0.0;
    double position = 0.0;
    double rate = 0.0;
    double lagged = 0.0;
    double wanted = 0.0;
  };
  struct Order {
    double arrives_s;
    double rate_dps;
  };
  void step_(State& state, double until_s, std::deque<Order>& orders, std::deque<State>* past) const;

  AxisParams params_;
  State state_;
  bool begun_ = false;
  std::deque<Order> orders_;  // under way
  std::deque<State> past_;    // the last seconds, in steps
};

}  // namespace gimbal
