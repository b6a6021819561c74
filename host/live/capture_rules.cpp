#include "live/capture_rules.h"

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

void StampWatch::picture(double streamS, double now) {
  if (!std::isfinite(streamS)) return;
  if (last_) {
    const double step = streamS - last_->streamS;
    if (step < 0 || std::fabs(step - (now - last_->now)) > kLargestStepS) ++jumps_;
  }
  last_ = Seen{streamS, now};
}

double RunTime::of(double capturedAt) {
  if (!first_) first_ = capturedAt;
  if (capturedAt < before_) ++corrected_;
  before_ = capturedAt;
  last_ = std::max(capturedAt - *first_, last_ + kLeastStepS);
  return last_;
}

}  // namespace live
