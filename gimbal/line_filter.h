// The direction to the target and how fast it turns, from noisy directions: an alpha-beta filter of one axis.
// Method: fading-memory polynomial filter of first order (Morrison, Introduction to Sequential Smoothing and
// Prediction, 1969), begun with the growing-memory one.
#pragma once

namespace gimbal {

/// How quickly the filter believes.
struct LineFilterParams {
  double memory_s = 0.2;   ///< Time constant; longer is smoother and later. > 0
  double jump_deg = 3.0;   ///< A direction so far from the expected one begins the filter anew. > 0
  double forget_s = 1.5;   ///< After so long without a direction it begins anew. > 0
  double max_dps = 200.0;  ///< The target is not thought to be faster. > 0
};

/// Not thread-safe. Degrees, seconds.
class LineFilter {
 public:
  explicit LineFilter(const LineFilterParams& params) : params_(params) {}

  /// A direction at a time. One that is not later than the last is passed over.
  void add(double t_s, double direction);

  void forget() { samples_ = 0; }
  bool knows() const { return samples_ > 0; }

  /// Where the target is expected, kept on its rate. @return 0 when nothing is known
  double at(double t_s) const { return knows() ? direction_ + rate_ * (t_s - t_s_) : 0.0; }
  double rate() const { return knows() ? rate_ : 0.0; }
  double lastTime() const { return t_s_; }

 private:
  LineFilterParams params_;
  int samples_ = 0;
  double t_s_ = 0.0;
  double direction_ = 0.0;
  double rate_ = 0.0;
};

}  // namespace gimbal
