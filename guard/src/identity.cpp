#include "identity.h"

#include <algorithm>

namespace csrt_guard {
namespace {

constexpr double kRate = 0.1;       // of the mean of what boxes show
constexpr double kMost = 1.5;       // that one frame says
constexpr double kMiddle = -0.15;   // as likely the target's as others': its looks vary more
constexpr double kSteepness = 4.0;  // of the odds' logarithm
constexpr double kLeast = -4.0;     // of the odds' logarithm: a look is no proof ...
constexpr double kMostFor = 3.0;    // ... neither way

}  // namespace

void Identity::start(const HalfColours& look) {
  kinds_.clear();
  kinds_.target(look);
  now_ = 1.0;
  again();
  pause_ = 0;
}

void Identity::followed(const HalfColours& look) {
  if (pause_ > 0) --pause_;
  const std::optional<double> kind = kinds_.of(look);
  now_ = kind.value_or(1.0);
  if (!kind) return;
  ++seen_;
  mean_ += std::max(kRate, 1.0 / seen_) * (std::clamp(*kind, -kMost, kMost) - mean_);
}

void Identity::learn(const HalfColours& look) {
  if (pause_ == 0 && now_ > kOther) kinds_.target(look);
}

void Identity::learnOther(const HalfColours& look) {
  if (pause_ == 0) kinds_.other(look);
}

void Identity::meets() {
  if (pause_ == 0) again();
  pause_ = kPause;
}

void Identity::again() {
  mean_ = 0.0;
  seen_ = 0;
}

double Identity::logFactorOf(const HalfColours& look) {
  const std::optional<double> kind = kinds_.of(look);
  return kind ? std::clamp(kSteepness * (*kind - kMiddle), kLeast, kMostFor) : 0.0;
}

}  // namespace csrt_guard
