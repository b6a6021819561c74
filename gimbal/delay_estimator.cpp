#include "gimbal/delay_estimator.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace gimbal {
namespace {

constexpr double kStep_s = 0.01;
constexpr int kSteps = 61;        // from kMin_s to kMax_s
constexpr double kSpan_s = 0.24;  // over which a bend is measured
constexpr double kGap_s = 0.15;   // between frames: nothing is measured across
constexpr double kMemory_s = 8.0;
constexpr double kEnoughMotion = 4.0;  // squared degrees of bends
constexpr double kContrast = 1.5;      // how much worse a delay 50 ms beside must fit
constexpr int kBeside = 5;             // steps

double squaredBend(const PanTilt& first, const PanTilt& middle, const PanTilt& last, double share) {
  const double pan = middle.pan - first.pan - share * (last.pan - first.pan);
  const double tilt = middle.tilt - first.tilt - share * (last.tilt - first.tilt);
  return pan * pan + tilt * tilt;
}

}  // namespace

DelayEstimator::DelayEstimator() : lines_(kSteps), bends_(kSteps, 0.0) {}

void DelayEstimator::newTarget() {
  waiting_.clear();
  times_.clear();
  for (auto& line : lines_) line.clear();
}

void DelayEstimator::angles(double t_s, const PanTilt& angles) {
  if (!std::isfinite(angles.pan) || !std::isfinite(angles.tilt)) return;
  PanTilt turned = angles;
  if (!readings_.empty()) {
    if (t_s <= readings_.back().t_s) return;
    turned.pan = unwrapped(angles.pan, readings_.back().value.pan);
  }
  readings_.push_back({t_s, turned});
  while (readings_.size() > 2 && readings_.front().t_s < t_s - 3.0) readings_.pop_front();
  while (!waiting_.empty() && waiting_.front().t_s + kMax_s <= t_s) {
    weigh_(waiting_.front());
    waiting_.pop_front();
  }
}

void DelayEstimator::seen(double t_s, const PanTilt& off) {
  if (!std::isfinite(off.pan) || !std::isfinite(off.tilt)) return;
  if (!waiting_.empty() && t_s <= waiting_.back().t_s) return;
  waiting_.push_back({t_s, off});
  if (waiting_.size() > 1000) waiting_.pop_front();  // no angles come
}

void DelayEstimator::weigh_(const TimedAngles& frame) {
  if (frame.t_s + kMin_s < readings_.front().t_s) return;
  if (!times_.empty()) {
    const double dt = frame.t_s - times_.back();
    if (dt > kGap_s || dt <= 0) {
      times_.clear();
      for (auto& line : lines_) line.clear();
    }
    const double kept = std::exp(-std::max(dt, 0.0) / kMemory_s);
    for (double& bend : bends_) bend *= kept;
    motion_ *= kept;
  }
  times_.push_back(frame.t_s);
  for (int i = 0; i < kSteps; ++i) {
    const PanTilt angle = angleAt(readings_, frame.t_s + kMin_s + i * kStep_s);
    lines_[static_cast<std::size_t>(i)].push_back({angle.pan + frame.value.pan, angle.tilt + frame.value.tilt});
  }
  while (times_.size() > 3 && times_[1] <= frame.t_s - kSpan_s) {
    times_.pop_front();
    for (auto& line : lines_) line.pop_front();
  }
  const double span = times_.back() - times_.front();
  if (times_.size() < 3 || span < 0.75 * kSpan_s) return;
  const std::size_t half = times_.size() / 2;
  const double share = (times_[half] - times_.front()) / span;
  for (std::size_t i = 0; i < lines_.size(); ++i) {
    bends_[i] += squaredBend(lines_[i].front(), lines_[i][half], lines_[i].back(), share);
  }
  motion_ += squaredBend(angleAt(readings_, times_.front()), angleAt(readings_, times_[half]),
                         angleAt(readings_, times_.back()), share);
}

std::optional<double> DelayEstimator::stale_s() const {
  if (motion_ < kEnoughMotion) return std::nullopt;
  const auto best = static_cast<int>(std::min_element(bends_.begin(), bends_.end()) - bends_.begin());
  const auto bend = [this](int i) { return bends_[static_cast<std::size_t>(i)]; };
  for (const int beside : {best - kBeside, best + kBeside}) {
    if (beside >= 0 && beside < kSteps && bend(beside) < kContrast * bend(best)) return std::nullopt;
  }
  double refined = best;
  if (best > 0 && best < kSteps - 1) {  // the lowest point of the parabola through three
    const double curve = bend(best - 1) - 2 * bend(best) + bend(best + 1);
    if (curve > 0) refined += 0.5 * (bend(best - 1) - bend(best + 1)) / curve;
  }
  return kMin_s + refined * kStep_s;
}

}  // namespace gimbal
