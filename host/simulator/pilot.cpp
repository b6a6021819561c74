#include "simulator/pilot.h"

#include <algorithm>
#include <cmath>

namespace host::sim {
namespace {

gimbal::AxisParams axisOf(const AxisLimits& axis, const Scenario& scenario) {
  gimbal::AxisParams params;
  params.max_rate_dps = std::min(axis.max_rate_dps, scenario.host.follow.max_rate_dps);
  params.max_accel_dps2 = axis.max_accel_dps2;
  params.delay_s = scenario.camera.delay_s;
  params.lag_s = axis.lag_s;
  return params;
}

}  // namespace

std::optional<Angles> readAngles(const ocula::OculaPicture::BaseMetadata& metadata) {
  using Keys = ocula::OculaPicture::BaseMetadata::Keys;
  const auto number = [&](const std::string& key) {
    const auto found = metadata.find(key);
    const double* value = found == metadata.end() ? nullptr : std::get_if<double>(&found->second);
    return value != nullptr ? *value : NAN;
  };
  const Angles angles{number(Keys::kPanDeg), number(Keys::kTiltDeg)};
  if (!std::isfinite(angles.pan) || !std::isfinite(angles.tilt)) return std::nullopt;
  return angles;
}

gimbal::ControllerParams controllerParamsOf(const Scenario& scenario) {
  gimbal::ControllerParams params;
  params.pan = axisOf(scenario.camera.pan, scenario);
  params.tilt = axisOf(scenario.camera.tilt, scenario);
  params.tilt.min_deg = scenario.camera.tilt.min_deg;
  params.tilt.max_deg = scenario.camera.tilt.max_deg;
  params.stale_s = scenario.metadata.delay_s;
  return params;
}

Pilot::Pilot(const Scenario& scenario)
    : scenario_(scenario), follower_(scenario.host.follow), controller_(controllerParamsOf(scenario)) {}

Angles Pilot::rates(const PilotView& view) {
  const double vfov = vfovOf(view.hfov, scenario_.frame);
  if (!scenario_.host.predicting) {
    return follower_.rateFor(view.box, view.hfov, vfov, scenario_.frame, 1.0 / scenario_.fps);
  }
  if (view.angles) controller_.angles(view.captured_s, {view.angles->pan, view.angles->tilt});
  if (view.box) {
    const Angles at = directionOf(centreOf(*view.box), {{0.0, 0.0}, view.hfov, vfov}, scenario_.frame);
    controller_.seen(view.captured_s, {at.pan, at.tilt});
  }
  const gimbal::PanTilt rates = controller_.rates(view.now_s);
  return {rates.pan, rates.tilt};
}

}  // namespace host::sim
