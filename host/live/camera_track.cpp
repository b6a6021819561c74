#include "camera_track.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace live {
namespace {

constexpr double kPi = 3.14159265358979323846;

double wrapped(double degrees) {
  const double turned = std::fmod(degrees + 180.0, 360.0);
  return (turned < 0 ? turned + 360.0 : turned) - 180.0;
}

/// Directions go round: from 179 to -179 is two degrees. A tilt or a field of view does not.
bool goesRound(const std::string& key) {
  return key == "pan_deg" || key == "roll_deg" || key == "yaw_deg" || key == "sensor_lon_deg" ||
         key == "frame_center_lon_deg";
}

double between(const std::string& key, double a, double b, double share) {
  if (!goesRound(key)) return a + (b - a) * share;
  return wrapped(a + wrapped(b - a) * share);
}

using Matrix = std::array<std::array<double, 3>, 3>;

Matrix product(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) {
      for (std::size_t k = 0; k < 3; ++k) c[i][j] += a[i][k] * b[k][j];
    }
  }
  return c;
}

/// From a body's axes (forward, right, down) to those it turns in: about down, then right, then forward. Degrees.
Matrix turned(double yaw, double pitch, double roll) {
  const double y = yaw * kPi / 180.0;
  const double p = pitch * kPi / 180.0;
  const double r = roll * kPi / 180.0;
  const Matrix down = {{{std::cos(y), -std::sin(y), 0}, {std::sin(y), std::cos(y), 0}, {0, 0, 1}}};
  const Matrix right = {{{std::cos(p), 0, std::sin(p)}, {0, 1, 0}, {-std::sin(p), 0, std::cos(p)}}};
  const Matrix forward = {{{1, 0, 0}, {0, std::cos(r), -std::sin(r)}, {0, std::sin(r), std::cos(r)}}};
  return product(product(down, right), forward);
}

void put(CameraValues& values, const char* key, const std::optional<double>& value) {
  if (value && std::isfinite(*value)) values[key] = *value;
}

}  // namespace

void CameraTrack::add(double time, const CameraValues& values) {
  if (!std::isfinite(time)) return;
  if (!samples_.empty() && time <= samples_.back().time) {
    if (time > samples_.back().time - 1.0) return;
    samples_.clear();  // the sender started again
  }
  samples_.push_back({time, values});
  if (samples_.size() > kKept) samples_.pop_front();
}

CameraValues CameraTrack::at(double time) const {
  if (samples_.empty() || !std::isfinite(time)) return {};
  auto after = std::lower_bound(samples_.begin(), samples_.end(), time,
                                [](const Sample& sample, double t) { return sample.time < t; });
  if (after != samples_.end() && after->time == time) return after->values;
  const bool inside = after != samples_.begin() && after != samples_.end();
  const double nearest = after == samples_.end() ? time - samples_.back().time : after->time - time;
  if (!inside && nearest > kLongestExtrapolationS) return {};
  if (samples_.size() == 1) return samples_.front().values;
  if (after == samples_.begin()) ++after;
  if (after == samples_.end()) --after;
  const Sample& b = *after;
  const Sample& a = *(after - 1);
  if (b.time - a.time > kLongestGapS) {
    // Too far apart to say how the values change: the nearer one holds as long as an extrapolation would.
    const Sample& near = std::fabs(time - a.time) < std::fabs(time - b.time) ? a : b;
    return std::fabs(time - near.time) <= kLongestExtrapolationS ? near.values : CameraValues{};
  }
  const double share = (time - a.time) / (b.time - a.time);
  CameraValues values;
  for (const auto& [key, value] : a.values) {
    const auto other = b.values.find(key);
    if (other != b.values.end()) values[key] = between(key, value, other->second, share);
  }
  return values;
}

LineOfSight lineOfSight(double heading, double pitch, double roll, double azimuth, double elevation,
                        double sensorRoll) {
  const Matrix m = product(turned(heading, pitch, roll), turned(azimuth, elevation, sensorRoll));
  // Columns: the camera's forward, right and down in north, east, down.
  LineOfSight sight;
  sight.panDeg = wrapped(std::atan2(m[1][0], m[0][0]) * 180.0 / kPi);
  sight.tiltDeg = std::asin(std::min(1.0, std::max(-1.0, -m[2][0]))) * 180.0 / kPi;
  sight.rollDeg = wrapped(std::atan2(m[2][1], m[2][2]) * 180.0 / kPi);
  return sight;
}

CameraValues CameraValuesReader::valuesOf(const klv::CameraState& state) {
  CameraValues values;
  const bool platform = state.platformHeadingDeg && state.platformPitchDeg && state.platformRollDeg;
  hasPlatform_ = hasPlatform_ || platform;
  if (state.sensorAzimuthDeg && state.sensorElevationDeg && platform == hasPlatform_) {
    const LineOfSight sight = lineOfSight(state.platformHeadingDeg.value_or(0), state.platformPitchDeg.value_or(0),
                                          state.platformRollDeg.value_or(0), *state.sensorAzimuthDeg,
                                          *state.sensorElevationDeg, state.sensorRollDeg.value_or(0));
    values["pan_deg"] = sight.panDeg;
    values["tilt_deg"] = sight.tiltDeg;
    values["roll_deg"] = sight.rollDeg;
  }
  put(values, "hfov_deg", state.horizontalFovDeg);
  put(values, "vfov_deg", state.verticalFovDeg);
  put(values, "sensor_lat_deg", state.sensorLatitudeDeg);
  put(values, "sensor_lon_deg", state.sensorLongitudeDeg);
  put(values, "sensor_alt_m", state.sensorAltitudeM);
  put(values, "measured_slant_range_m", state.slantRangeM);
  put(values, "frame_center_lat_deg", state.frameCenterLatitudeDeg);
  put(values, "frame_center_lon_deg", state.frameCenterLongitudeDeg);
  put(values, "frame_center_elev_m", state.frameCenterElevationM);
  return values;
}

}  // namespace live
