#include "gimbal/delay_watch.h"

#include <cmath>
#include <cstdlib>

namespace gimbal {
namespace {

constexpr double kBetween_s = 0.4;

}  // namespace

std::optional<double> DelayWatch::news(double now_s) {
  if (now_s < next_s_) return std::nullopt;
  next_s_ = now_s + kBetween_s;
  const std::optional<double> before_s = found_s_;
  found_s_ = estimator_.stale_s();
  const bool sure = found_s_ && before_s && std::fabs(*found_s_ - *before_s) < kMatters_s;
  if (!sure) return std::nullopt;
  believed_s_ = found_s_;
  if (std::fabs(*found_s_ - applied_s_) <= kMatters_s) return std::nullopt;
  applied_s_ = *found_s_;
  return found_s_;
}

std::string DelayWatch::sentence() const {
  if (!believed_s_ || std::fabs(*believed_s_) <= kMatters_s) return "";
  const long ms = std::lround(1000 * *believed_s_);
  return "the camera's angles are " + std::to_string(std::labs(ms)) + " ms " + (ms > 0 ? "behind" : "ahead of") +
         " the picture";
}

}  // namespace gimbal
