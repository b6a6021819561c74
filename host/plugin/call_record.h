// What one call of the plug-in gave: the plug-in's own records and what the host knows about them.
#pragma once

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ialgo_plugin.h"
#include "plugin/call_facts.h"
#include "plugin/guard_choice.h"

namespace host {

/// What every record says it is.
inline constexpr const char* kRecordSchemaName = "csrt-track.record";
inline constexpr int kRecordSchemaVersion = 1;

/// The gimbal that a target is followed with, at the frame's time. Angles in degrees.
struct GimbalNote {
  std::optional<double> pan_deg;   ///< [-180, 180); nothing: not known for that time.
  std::optional<double> tilt_deg;  ///< Likewise.
  std::string state;               ///< What it does, or why it does not turn.
};

/// Where a target is on the ground, and the ellipse that holds it with 95 %.
struct GroundNote {
  double lat_deg = 0.0;
  double lon_deg = 0.0;
  double alt_m = 0.0;        ///< Metres above sea level.
  double distance_m = 0.0;   ///< From the camera.
  double major_m = 0.0;      ///< Longer half axis, metres.
  double minor_m = 0.0;      ///< Shorter half axis, metres.
  double azimuth_deg = 0.0;  ///< Of the longer one, from north over east.
  std::string unknown;       ///< Why the place is not known; all else is 0 then. Empty: it is known.
};

/// The facts about one call, and which call it was.
struct CallRecord : CallFacts {
  std::string target;                      ///< The target's name; unique in a run.
  long frame = 0;                          ///< Counted from 0 in the source.
  std::string file;                        ///< The frame's picture in a sequence of pictures; empty: none.
  std::string sourceNote;                  ///< What was the matter with the frame; empty: nothing.
  double time_s = 0.0;                     ///< Seconds since the source's beginning.
  std::string pace = "fast";               ///< Which time the plug-in saw: fast, source or video.
  std::string engine = "unknown";          ///< What the plug-in follows with: opencv, fast or unknown.
  bool isInit = false;                     ///< The call was init(), else update().
  bool started = false;                    ///< What init() answered.
  double update_ms = 0.0;                  ///< Wall-clock time of the plug-in's call, milliseconds.
  std::vector<AlgoOutput> outputs;         ///< The plug-in's, in its order; without the window that debugging adds.
  std::optional<cv::Rect> givenBox;        ///< Of init(): the box to start on, full-frame pixels.
  std::string guardModelSha256;            ///< Of init() with --guard network: of its file, 64 digits; else empty.
  std::optional<long> framesSinceSeen;     ///< 0: seen in this frame. Empty: never seen.
  std::optional<double> secondsSinceSeen;  ///< In the source's time; empty: never seen.
  std::optional<double> ageMs;             ///< Live: the picture's age when the answer was ready, milliseconds.
  bool ageFromSender = false;              ///< Live: the age is by the sender's clock; else since arrival.
  std::optional<long> dropped;             ///< Live: frames received since the last call that were not worked on.
  bool noSignal = false;                   ///< Live: no frame came, and no call was made; the box is the last one.
  std::optional<GuardNote> guard;       ///< What the guard made of it, and the plug-in's own answer; empty: no guard.
  std::optional<GimbalNote> gimbal;     ///< Of a served target that a gimbal follows.
  std::optional<double> anglesStaleMs;  ///< How much older than the pictures the camera's angles are found to be.
  std::optional<GroundNote> ground;     ///< Where the target is, when that was asked for.
  std::vector<std::string> log;         ///< The plug-in's log lines of this call, to be shown; not part of the JSON.
};

/// Whether a target was followed or its start accepted: something that a run has to show. Pure.
bool anyFollowed(const std::vector<CallRecord>& records);

/// Whether the record's box is where the target was seen in this frame. False without a box, for a box that is only
/// predicted, and for the last box carried over a rebuild of the tracker.
inline bool isSeen(const CallRecord& record) {
  return record.box.has_value() && record.framesSinceSeen == 0;
}

/// Whether a camera should go after the record's box: it is seen, or a find of the guard's that is on trial. Pure.
inline bool isWorthFollowing(const CallRecord& record) {
  return isSeen(record) || (record.box.has_value() && record.state == TrackState::Reacquired);
}

/// Members keep the plug-in's order. NaN and infinite numbers become null.
nlohmann::ordered_json toJson(const AlgoValue& value);

/// One record as the JSON object that `csrt-track schema records` describes.
nlohmann::ordered_json toJson(const CallRecord& record);

}  // namespace host
