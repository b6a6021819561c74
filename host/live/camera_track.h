// What the camera said, by time, and what it therefore was when a frame was taken.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>

#include "klv/st0601.h"

namespace live {

/// Values by metadata key ("pan_deg", ...), all of one moment.
using CameraValues = std::map<std::string, double>;

/// Samples in the order of their times, and the values between them. Pure state; one thread.
class CameraTrack {
 public:
  static constexpr double kLongestExtrapolationS = 0.1;  ///< Seconds beyond the last sample; later it is missing.
  static constexpr double kLongestGapS = 1.0;  ///< Two samples farther apart say nothing about the time between.
  static constexpr std::size_t kKept = 512;    ///< Samples; the oldest go first.

  /// @param time  seconds of the stream. One that goes back by more than a second begins the track anew; a smaller
  ///              step back, or the same time again, is dropped.
  void add(double time, const CameraValues& values);

  /// The values at a time. Between two samples: linear, angles of direction by the shorter way, and only keys that
  /// both have. Before the first or after the last: carried on as the nearest two samples change, for at most
  /// kLongestExtrapolationS. Else empty: missing is better than wrong.
  CameraValues at(double time) const;

  std::size_t size() const { return samples_.size(); }

 private:
  struct Sample {
    double time;
    CameraValues values;
  };
  std::deque<Sample> samples_;
};

/// Where the picture's middle looks and how the picture lies, degrees.
struct LineOfSight {
  double panDeg = 0.0;   ///< Clockwise from north, [-180, 180).
  double tiltDeg = 0.0;  ///< Above the horizon, [-90, 90].
  double rollDeg = 0.0;  ///< Clockwise turn of the camera about its line of sight against the horizon, [-180, 180).
};

/// A platform's attitude and a sensor's angles against it give the line of sight in the world: the three turns of the
/// platform (heading, pitch, roll), then the three of the sensor (azimuth, elevation, roll). Degrees; pure.
LineOfSight lineOfSight(double heading, double pitch, double roll, double azimuth, double elevation, double sensorRoll);

/// Turns decoded packets into values by metadata key. One per stream, because it remembers whether the platform's
/// attitude was ever given: from then on a packet without it has no pan and tilt, rather than some of another meaning.
class CameraValuesReader {
 public:
  /// What a packet says, by metadata key; without what it does not say. Pure.
  CameraValues valuesOf(const klv::CameraState& state);

 private:
  bool hasPlatform_ = false;
};

}  // namespace live
