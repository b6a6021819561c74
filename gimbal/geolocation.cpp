#include "gimbal/geolocation.h"

#include <algorithm>
#include <cmath>

namespace gimbal {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRad = kPi / 180.0;
constexpr double kEquator_m = 6378137.0;  // the earth's ellipsoid, WGS 84
constexpr double kEccentricity2 = 6.69437999014e-3;
constexpr double kSurelyBelow = 3.0;          // standard deviations
constexpr double kChi95 = 5.991464547107979;  // chi-square of two dimensions, 95 %

double metresPerDegreeNorth(double lat_deg) {
  const double s = std::sin(lat_deg * kRad);
  return kRad * kEquator_m * (1 - kEccentricity2) / std::pow(1 - kEccentricity2 * s * s, 1.5);
}

double metresPerDegreeEast(double lat_deg) {
  const double s = std::sin(lat_deg * kRad);
  return kRad * kEquator_m * std::cos(lat_deg * kRad) / std::sqrt(1 - kEccentricity2 * s * s);
}

bool isFinite(const Platform& p, const EarthDirection& d) {
  return std::isfinite(p.lat_deg) && std::isfinite(p.lon_deg) && std::isfinite(p.alt_m) && std::isfinite(p.ground_m) &&
         std::isfinite(d.azimuth_deg) && std::isfinite(d.elevation_deg) && std::fabs(p.lat_deg) < 89.9;
}

ErrorEllipse ellipseOf(double nn, double ne, double ee) {
  const double mean = 0.5 * (nn + ee);
  const double spread = std::hypot(0.5 * (nn - ee), ne);
  ErrorEllipse ellipse;
  ellipse.major_m = std::sqrt(kChi95 * (mean + spread));
  ellipse.minor_m = std::sqrt(kChi95 * std::max(0.0, mean - spread));
  const double azimuth = 0.5 * std::atan2(2 * ne, nn - ee) / kRad;
  ellipse.azimuth_deg = azimuth < 0 ? azimuth + 180.0 : azimuth;
  return ellipse;
}

}  // namespace

EarthDirection earthDirection(const Platform& platform, const PanTilt& onPlatform) {
  // Forward, right, down on the platform ...
  const double cosTilt = std::cos(onPlatform.tilt * kRad);
  double x = cosTilt * std::cos(onPlatform.pan * kRad);
  double y = cosTilt * std::sin(onPlatform.pan * kRad);
  double z = -std::sin(onPlatform.tilt * kRad);
  // ... turned by roll, pitch and yaw: north, east, down.
  const auto turn = [](double& a, double& b, double degrees) {
    const double c = std::cos(degrees * kRad);
    const double s = std::sin(degrees * kRad);
    const double turned = c * a - s * b;
    b = s * a + c * b;
    a = turned;
  };
  turn(y, z, platform.roll_deg);
  turn(z, x, platform.pitch_deg);
  turn(x, y, platform.yaw_deg);
  const double azimuth = std::atan2(y, x) / kRad;
  return {azimuth < 0 ? azimuth + 360.0 : azimuth, std::asin(std::clamp(-z, -1.0, 1.0)) / kRad};
}

std::optional<GroundPoint> groundPoint(const Platform& platform, const EarthDirection& direction) {
  if (!isFinite(platform, direction)) return std::nullopt;
  const PlatformErrors& errors = platform.errors;
  const double height = platform.alt_m - platform.ground_m;
  if (height <= 0 || direction.elevation_deg > -kSurelyBelow * errors.elevation_deg || direction.elevation_deg >= 0) {
    return std::nullopt;
  }
  const double down = -direction.elevation_deg * kRad;
  const double azimuth = direction.azimuth_deg * kRad;
  const double range = height / std::tan(down);
  GroundPoint point;
  point.north_m = range * std::cos(azimuth);
  point.east_m = range * std::sin(azimuth);
  point.distance_m = height / std::sin(down);
  point.alt_m = platform.ground_m;
  point.lat_deg = platform.lat_deg + point.north_m / metresPerDegreeNorth(platform.lat_deg);
  point.lon_deg = wrapped(platform.lon_deg + point.east_m / metresPerDegreeEast(platform.lat_deg));
  // Along the line of sight on the ground: height and elevation. Across it: azimuth.
  const double byElevation = height / (std::sin(down) * std::sin(down)) * errors.elevation_deg * kRad;
  const double along = std::pow(errors.height_m / std::tan(down), 2) + byElevation * byElevation;
  const double across = std::pow(range * errors.azimuth_deg * kRad, 2);
  const double c = std::cos(azimuth);
  const double s = std::sin(azimuth);
  const double own = errors.position_m * errors.position_m;
  const double nn = along * c * c + across * s * s + own;
  const double ee = along * s * s + across * c * c + own;
  point.error = ellipseOf(nn, (along - across) * c * s, ee);
  point.sigma_m = std::sqrt(nn + ee);
  return point;
}

}  // namespace gimbal
