#include "capture_rules.h"

#include <algorithm>

namespace live {
namespace {

constexpr double kYoungest = -0.05;  // two machines' clocks differ by some milliseconds even when both are set
constexpr double kOldest = 10.0;

}  // namespace

void LossWatch::frameCame(double now) {
  last_ = now;
  said_ = 0;
}

std::optional<double> LossWatch::due(double now) {
  if (!last_ || now - *last_ < kLimitS * static_cast<double>(said_ + 1)) return std::nullopt;
  const double without = now - *last_;
  said_ = std::max(said_ + 1, static_cast<long>(without / kLimitS));
  return without;
}

double ReconnectPlan::failed(bool refused) {
  const int doublings = static_cast<int>(std::min(failures_, 10L));
  ++failures_;
  if (refused) return kRefusedPauseS;
  return std::min(std::ldexp(kFirstPauseS, doublings), kLongestPauseS);
}

void ReconnectPlan::succeeded() {
  failures_ = 0;
}

CaptureTime captureTime(double now, double unixNow, double heldS, double sentUnixS) {
  const double age = unixNow - sentUnixS;
  if (std::isfinite(age) && age >= kYoungest && age <= kOldest) return {now - std::max(age, 0.0), true};
  const double held = std::isfinite(heldS) ? std::min(std::max(heldS, 0.0), kOldest) : 0.0;
  return {now - held, false};
}

double RunTime::of(double capturedAt) {
  if (!first_) first_ = capturedAt;
  double time = capturedAt - *first_;
  if (time < last_ + kLeastStepS) {
    if (time < last_) ++corrected_;
    time = last_ + kLeastStepS;
  }
  last_ = time;
  return time;
}

}  // namespace live
