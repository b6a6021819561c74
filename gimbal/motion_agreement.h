// Do two movements belong together? Compares how two signals bend, so that an even movement of the target or of the
// vehicle, which is in one of them only, does not count.
#pragma once

#include <deque>

namespace gimbal {

/// Not thread-safe. Degrees, seconds.
class MotionAgreement {
 public:
  /// @param span_s    half the length of the stretch over which bends are measured, > 0
  /// @param memory_s  how long a bend counts, > 0
  MotionAgreement(double span_s, double memory_s) : span_s_(span_s), memory_s_(memory_s) {}

  /// Both signals at one time; times grow.
  void add(double t_s, double cause, double effect);

  /// How much of the cause shows in the effect: 1 the same, -1 opposite, 0 nothing of it.
  double slope() const { return causes_ > 0 ? product_ / causes_ : 0.0; }

  /// How much the cause has bent: the root of the sum of squared bends in memory, degrees. Too little: slope() is
  /// noise.
  double strength() const;

  void forget();

 private:
  struct Sample {
    double t_s, cause, effect;
  };
  double span_s_;
  double memory_s_;
  std::deque<Sample> samples_;
  double causes_ = 0.0;
  double product_ = 0.0;
};

}  // namespace gimbal
