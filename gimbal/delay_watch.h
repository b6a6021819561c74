// What is made of the delay that the estimator finds: believed only when it is found twice, acted on only when it
// matters, said in one sentence.
#pragma once

#include <optional>
#include <string>

#include "gimbal/delay_estimator.h"

namespace gimbal {

/// Not thread-safe. All times are of one clock, seconds.
class DelayWatch {
 public:
  static constexpr double kMatters_s = 0.02;  ///< A smaller delay, or change of one, is none.

  /// @param applied_s  what is made good already
  explicit DelayWatch(double applied_s = 0.0) : applied_s_(applied_s) {}

  void angles(double t_s, const PanTilt& angles) { estimator_.angles(t_s, angles); }  ///< As of DelayEstimator.
  void seen(double t_s, const PanTilt& off) { estimator_.seen(t_s, off); }            ///< Likewise.
  void newTarget() { estimator_.newTarget(); }

  /// Looks at the estimate two or three times a second; call it as often as you like.
  /// @return a delay to be made good from now on, when it is another one than before; applied_s() then is that
  std::optional<double> news(double now_s);

  /// By how much the angles are stale, as found last; nothing as long as that cannot be known.
  std::optional<double> found_s() const { return found_s_; }
  double applied_s() const { return applied_s_; }

  /// "the camera's angles are 120 ms behind the picture"; empty where they belong together or nothing is known.
  std::string sentence() const;

 private:
  DelayEstimator estimator_;
  double applied_s_;
  double next_s_ = 0.0;
  std::optional<double> found_s_;
  std::optional<double> believed_s_;  // found twice
};

}  // namespace gimbal
