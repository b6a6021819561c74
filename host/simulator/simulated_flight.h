// A scenario in real time, without a plug-in: the camera's video goes out through a pipe, the gimbal obeys what comes
// over MAVLink, an operator marks the target. Whoever tracks is another process.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/scenario.h"

namespace host::sim {

/// Where a flight's video, messages and truth go.
/// Where the vehicle with the camera stands. Degrees; metres.
struct PlatformPlace {
  double lat_deg = 0.0;
  double lon_deg = 0.0;
  double alt_m = 0.0;        ///< Above sea level.
  double height_m = 0.0;     ///< Above the ground.
  double heading_deg = 0.0;  ///< Of its nose, where pan is 0, from north.
};

struct FlightOptions {
  std::vector<std::string> lines;  ///< Addresses for link::openTransport(), at least one.
  std::string video;               ///< A named pipe or file for the uncompressed video; empty: none.
  std::string records;             ///< One JSON line per frame with the truth; empty: none, "-": standard output.
  bool marks = true;               ///< The operator marks the target; else a real ground station does.
  bool lockStep = false;           ///< Simulated time, handed to the tracker with TIMESYNC; it must take it from there.
  std::optional<PlatformPlace> platform;  ///< Where the camera is said to be; nothing: that is not said.
};

/// What came of it. Errors are of the picture's middle from the target, degrees.
struct FlightResult {
  long frames = 0;                 ///< Frames sent.
  long lateFrames = 0;             ///< Taken more than half a frame late: the machine is too slow for this.
  std::optional<double> marked_s;  ///< When the mark was acknowledged ...
  std::optional<double> turned_s;  ///< ... and when the gimbal was first ordered to turn.
  double judgedFrom_s = 0.0;       ///< Errors count from then on: 3 s after the first order.
  long judged = 0;                 ///< Frames that count.
  double rms_deg = 0.0;            ///< Both axes together, with what the tracker's box is off.
  double pan_rms_deg = 0.0;        ///< Pan alone.
  double p95_deg = 0.0;            ///< 95 of 100 judged frames are off by less.
  double max_deg = 0.0;            ///< The worst judged frame.
  double overshoot_deg = 0.0;      ///< How far the gimbal went beyond the target after the mark, pan.
};

/// The summary that `simulate --mavlink` writes. Pure.
nlohmann::ordered_json toJson(const FlightResult& result);

/// Runs the scenario once, at the pace of the machine's clock or in lock step with the tracker, or until a signal asks
/// to stop.
/// @throws HostError (Usage, Source, Output)
FlightResult fly(const Scenario& scenario, const FlightOptions& options);

}  // namespace host::sim
