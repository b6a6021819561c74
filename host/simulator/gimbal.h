// A pan/tilt gimbal: two motors that have limits, and orders that take their time to arrive.
#pragma once

#include <deque>

#include "simulator/angles.h"

namespace host::sim {

/// What one axis of the gimbal can do.
struct AxisLimits {
  double max_rate_dps = 60.0;     ///< Degrees per second, > 0.
  double max_accel_dps2 = 240.0;  ///< Degrees per second and second, > 0.
  double lag_s = 0.05;            ///< Time constant of the motor's own control loop, 0 or more.
  double min_deg = -180.0;        ///< Stops; without meaning for an endless axis.
  double max_deg = 180.0;         ///< At least min_deg.
};

/// One motor. Not thread-safe.
class Axis {
 public:
  /// @param endless  turns round and round: positions are wrapped and the short way is taken
  Axis(const AxisLimits& limits, bool endless, double position);

  void goTo(double position);      ///< Degrees. From now on the axis goes there and stays.
  void turn(double degPerSecond);  ///< From now on the axis turns at this rate.
  void step(double dt_s);          ///< Lets a time pass, at most a few milliseconds.

  double position() const { return position_; }  ///< Degrees; wrapped when endless.
  double rate() const { return rate_; }          ///< Degrees per second.

 private:
  double wantedRate_() const;

  AxisLimits limits_;
  bool endless_;
  double position_;
  double rate_ = 0.0;
  double lagged_ = 0.0;  // the wanted rate as it comes through the control loop
  bool toPosition_ = true;
  double goal_;  // position or rate
};

/// What the gimbal is told.
struct GimbalOrder {
  bool toPosition = true;  ///< Else a rate.
  Angles value;            ///< Degrees, or degrees per second.
};

/// The mount: it turns as fast as its axes allow, some time after it was told.
class Gimbal {
 public:
  /// @param delay_s  time that an order takes to arrive
  Gimbal(const AxisLimits& pan, const AxisLimits& tilt, double delay_s, const Angles& start);

  /// Sends an order; it is obeyed once its delay has passed, and replaces the one before it.
  void order(const GimbalOrder& order);
  void advance(double dt_s);  ///< Lets any time pass.

  /// Where it points now, degrees.
  Angles position() const { return {pan_.position(), tilt_.position()}; }

 private:
  struct Travelling {
    double arrives_s;
    GimbalOrder order;
  };
  void obey_();

  Axis pan_;
  Axis tilt_;
  double delay_s_;
  double now_s_ = 0.0;
  std::deque<Travelling> travelling_;
};

}  // namespace host::sim
