#include "rivalry.h"

#include <algorithm>
#include <cmath>

namespace csrt_guard {
namespace {

constexpr double kLowest = 0.45;      // margin of the first step
constexpr double kStep = 0.04;        // of margin
constexpr double kSpread = 1.5;       // steps that a rival's margin may be off
constexpr double kForget = 0.995;     // a look
constexpr double kPriorArea = 40.0;   // before anything was looked at: one rival ...
constexpr double kPriorRivals = 1.0;  // ... in so many square diagonals, of any margin

constexpr double kOwnMargin = 0.97;  // what the target has when it is found again ...
constexpr double kOwnSpread = 0.1;   // ... or less by this much
constexpr double kFar = 0.25;        // diagonals that it is from where it is expected ...
constexpr double kFarPerFrame = 0.05;
constexpr double kFarMost = 3.0;
constexpr double kTurned = 0.2;   // share of those that are 2.5 times farther off: they turned or stood ...
constexpr double kJumped = 0.03;  // ... and of those that may be anywhere: the camera jumped
constexpr double kJump = 4.0;     // diagonals

constexpr double kSpeed = 0.03;  // diagonals a frame that the target's speed changes by ...
constexpr double kSpeedPerFrame = 0.001;
constexpr int kSpeedFrames = 60;
constexpr double kStranger = 3.0;  // times that: what a stranger's speed differs by
constexpr double kSpeedMost = 9.0;
constexpr double kTwoPi = 6.283185307179586;

double bell(double x) {
  return std::exp(-0.5 * x * x);
}

}  // namespace

void Rivalry::clear() {
  seen_.fill(0.0);
  area_ = 0.0;
}

void Rivalry::looked(double area) {
  for (double& share : seen_) share *= kForget;
  area_ = area_ * kForget + area;
}

void Rivalry::rival(double margin) {
  const double at = std::min((margin - kLowest) / kStep, kSteps - 1.0);
  double sum = 0.0;
  for (int i = 0; i < kSteps; ++i) sum += bell((i - at) / kSpread);
  for (int i = 0; i < kSteps; ++i) seen_[static_cast<std::size_t>(i)] += bell((i - at) / kSpread) / sum;
}

double Rivalry::density(double margin) const {
  const double at = std::clamp((margin - kLowest) / kStep, 0.0, kSteps - 1.0);
  const auto i = static_cast<std::size_t>(at);
  const double next = seen_[std::min<std::size_t>(i + 1, kSteps - 1)];
  const double share = seen_[i] + (at - static_cast<double>(i)) * (next - seen_[i]);
  return (share / kStep + kPriorRivals / (kStep * kSteps)) / (area_ + kPriorArea);
}

double ownDensity(const Evidence& e) {
  const double byMargin = bell(std::min(0.0, e.margin - kOwnMargin) / kOwnSpread) / (2.0 * kOwnSpread);
  const double spread = std::min(kFarMost, kFar + kFarPerFrame * e.lost);
  const auto at = [&e](double s) { return bell(e.distance / s) / (kTwoPi * s * s); };
  return byMargin * e.same *
         ((1.0 - kTurned - kJumped) * at(spread) + kTurned * at(2.5 * spread) +
          kJumped * at(std::max(kJump, 2.5 * spread)));
}

double oddsOf(const Evidence& e, const Rivalry& rivalry) {
  const double odds = ownDensity(e) / (rivalry.density(e.margin) + e.others);
  if (!e.speedKnown) return odds;
  const double usual = kSpeed + kSpeedPerFrame * std::min(e.lost, kSpeedFrames);
  constexpr double kStrange2 = kStranger * kStranger;
  const double x = e.speedDifference / usual;
  const double ratio = kStrange2 * std::exp(-0.5 * x * x * (1.0 - 1.0 / kStrange2));  // of the two's bells
  return odds * std::min(kSpeedMost, (1.0 - kTurned) * ratio + kTurned);
}

}  // namespace csrt_guard
