#include "gimbal/calibration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <iterator>

namespace gimbal {
namespace {

constexpr double kGrid_s = 0.005;
constexpr double kLongestDelay_s = 0.6;
constexpr double kEnoughMotion_deg = 0.5;  // root mean square of the angle, for a fit
constexpr double kLargestMisfit = 0.25;    // of the motion

/// The motion of one axis: +, -, -, +, + and back, for seconds since its beginning.
double doublet(double t_s) {
  constexpr double kPart_s = 0.6;
  constexpr double kSigns[] = {1, -1, -1, 1, 1, -1};
  const double part = (t_s - 0.3) / kPart_s;
  if (part < 0 || part >= 6) return 0.0;
  return kSigns[static_cast<std::size_t>(part)];
}

constexpr double kPanBegins_s = 0.2;
constexpr double kTiltBegins_s = 4.8;

/// How far a motor with this lag would have turned, on a grid, for orders that arrive at once.
std::vector<double> turned(const std::vector<double>& orders, double lag_s) {
  const double share = lag_s > 0 ? 1.0 - std::exp(-kGrid_s / lag_s) : 1.0;
  std::vector<double> way(orders.size());
  double rate = 0.0;
  double position = 0.0;
  for (std::size_t i = 0; i < orders.size(); ++i) {
    rate += share * (orders[i] - rate);
    position += rate * kGrid_s;
    way[i] = position;
  }
  return way;
}

struct Line {
  double slope = 0.0;
  double left = HUGE_VAL;  // mean square of what it leaves over
  double spread = 0.0;     // mean square of y around its mean
};

/// The best y = a + slope * x.
Line fitted(const std::vector<double>& x, const std::vector<double>& y) {
  const auto n = static_cast<double>(x.size());
  double sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    sx += x[i];
    sy += y[i];
    sxx += x[i] * x[i];
    sxy += x[i] * y[i];
    syy += y[i] * y[i];
  }
  const double vx = sxx - sx * sx / n;
  const double vy = syy - sy * sy / n;
  const double c = sxy - sx * sy / n;
  if (vx <= 0) return {0.0, vy / n, vy / n};
  return {c / vx, std::max(0.0, vy - c * c / vx) / n, vy / n};
}

}  // namespace

PanTilt Calibration::rates(double now_s) {
  const double t_s = now_s - start_s_;
  const PanTilt rates{rate_dps_ * doublet(t_s - kPanBegins_s), rate_dps_ * doublet(t_s - kTiltBegins_s)};
  orders_.push_back({now_s, rates});
  return rates;
}

void Calibration::angles(double t_s, const PanTilt& angles) {
  if (!std::isfinite(angles.pan) || !std::isfinite(angles.tilt)) return;
  PanTilt turned = angles;
  if (!readings_.empty()) {
    if (t_s <= readings_.back().t_s) return;
    turned.pan = unwrapped(angles.pan, readings_.back().value.pan);
  }
  readings_.push_back({t_s, turned});
  delay_.angles(t_s, angles);
}

void Calibration::seen(double t_s, const PanTilt& off) {
  if (!std::isfinite(off.pan) || !std::isfinite(off.tilt)) return;
  seen_.push_back({t_s, off});
  delay_.seen(t_s, off);
}

AxisCalibration Calibration::fit_(double PanTilt::*axis) const {
  AxisCalibration best;
  if (orders_.empty() || readings_.size() < 20) return best;
  std::vector<double> orders(static_cast<std::size_t>((kDuration_s + 1.0) / kGrid_s), 0.0);
  std::size_t next = 0;
  double now = 0.0;
  for (std::size_t i = 0; i < orders.size(); ++i) {
    const double t_s = start_s_ + static_cast<double>(i) * kGrid_s;
    for (; next < orders_.size() && orders_[next].t_s <= t_s + 1e-9; ++next) now = orders_[next].value.*axis;
    orders[i] = now;
  }
  std::vector<double> y;
  for (const TimedAngles& reading : readings_) y.push_back(reading.value.*axis);
  Line line;
  for (const double lag_s : {0.0, 0.02, 0.04, 0.06, 0.08, 0.1, 0.15, 0.2, 0.3}) {
    const std::vector<double> way = turned(orders, lag_s);
    for (double delay_s = 0.0; delay_s <= kLongestDelay_s; delay_s += kGrid_s) {
      std::vector<double> x;
      for (const TimedAngles& reading : readings_) {
        const double at =
            std::clamp((reading.t_s - start_s_ - delay_s) / kGrid_s, 0.0, static_cast<double>(way.size() - 1));
        x.push_back(way[static_cast<std::size_t>(at)]);
      }
      const Line here = fitted(x, y);
      if (here.left < line.left) {
        line = here;
        best.gain = here.slope;
        best.delay_s = delay_s;
        best.lag_s = lag_s;
      }
    }
  }
  best.misfit_deg = std::sqrt(line.left);
  const double motion = std::sqrt(line.spread);
  best.found = motion > kEnoughMotion_deg && best.misfit_deg < kLargestMisfit * motion;
  return best;
}

CalibrationResult Calibration::result() const {
  CalibrationResult result;
  result.pan = fit_(&PanTilt::pan);
  result.tilt = fit_(&PanTilt::tilt);
  if (seen_.size() < 50 || readings_.empty()) return result;
  // The right delay can only be judged where the picture answers the right way; without one, judge it as it comes.
  result.stale_s = delay_.stale_s();
  const double stale_s = result.stale_s.value_or(0.0);
  const auto judge = [&](double PanTilt::*axis, double begins_s, AxisCalibration& found) {
    std::vector<double> x, y;
    for (const TimedAngles& sample : seen_) {
      const double t_s = sample.t_s - start_s_ - begins_s;
      if (t_s < 0 || t_s > 4.6) continue;
      x.push_back(angleAt(readings_, sample.t_s + stale_s).*axis);
      y.push_back(sample.value.*axis);
    }
    if (x.size() >= 20) found.picture = fitted(x, y).slope;
  };
  judge(&PanTilt::pan, kPanBegins_s, result.pan);
  judge(&PanTilt::tilt, kTiltBegins_s, result.tilt);
  return result;
}

std::string problemOf(const AxisCalibration& found, const AxisParams& configured, const std::string& axis) {
  char text[200];
  if (!found.found) return axis + ": the gimbal does not move as it is ordered to";
  if (found.picture && *found.picture > -0.5) {
    std::snprintf(text, sizeof text, "%s: the picture does not move against the gimbal (%.2f instead of -1)",
                  axis.c_str(), *found.picture);
    return text;
  }
  if (std::fabs(found.gain - configured.gain) > 0.25 * std::fabs(configured.gain)) {
    std::snprintf(text, sizeof text, "%s: the gimbal turns with %.2f of the rate that is ordered, configured is %.2f",
                  axis.c_str(), found.gain, configured.gain);
    return text;
  }
  const double late_s = found.delay_s + found.lag_s - configured.delay_s - configured.lag_s;
  if (std::fabs(late_s) > 0.05) {
    std::snprintf(text, sizeof text, "%s: orders take %.0f ms, configured are %.0f ms", axis.c_str(),
                  1000 * (found.delay_s + found.lag_s), 1000 * (configured.delay_s + configured.lag_s));
    return text;
  }
  return {};
}

}  // namespace gimbal
