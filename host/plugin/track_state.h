// What a plug-in's answer is worth. A predicted box looks exactly like a tracked one in the plug-in's records, so the
// host reads the plug-in's own log lines to tell them apart.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

enum class TrackState {
  Waiting,     ///< The camera is still being pointed at the target, or the frame had no pixels to look at.
  Tracked,     ///< The tracker found the target in this frame.
  Rebuilt,     ///< The tracker was rebuilt on this frame because its window changed size.
  Redetected,  ///< The target was found again by the search over the whole frame.
  Predicted,   ///< Not seen: the box is the last one moved on by the last motion.
  Reseeded,    ///< The tracker was started on a given box in this call (start, zoom, end of pointing): no answer yet.
  Lost,        ///< The plug-in gave the target up in this call.
  Inactive,    ///< Nothing is being tracked.
};

/// Where the box of a record comes from.
enum class BoxFrom { Tracker, Prediction, Redetection, None };

const char* name(TrackState state);
const char* name(BoxFrom from);
std::optional<TrackState> trackStateOf(const std::string& name);

/// What the log lines of one call say.
struct StateReport {
  TrackState state = TrackState::Inactive;
  BoxFrom boxFrom = BoxFrom::None;  ///< Of a box that is there; the caller sets None where the answer has none.
  bool hasWindow = false;           ///< The last detection is the processing window, not the target.
  bool scoreIsOfThisFrame = false;  ///< The first detection's score was measured on this frame.
  bool seen = false;                ///< The target was seen in this frame.
  std::string reason;               ///< Why it was lost, in the plug-in's words; else empty.
};

/// The message of a log line of the plug-in, without its prefix; the whole line where it has another form.
std::string messageOf(const std::string& line);

/// The words that tell the exit of update() which logged these lines, such as "track ok", "LOST predict" or
/// "given up: bbox collée au bord"; empty when none of them is known. Pure.
std::string exitOf(const std::vector<std::string>& lines);

/// How the search over the whole frame ended in this call, such as "success", "appearance_fail" or
/// "reject: too far"; empty when there was none. Pure.
std::string searchOutcomeOf(const std::vector<std::string>& lines);

/// The state after update(). Pure. @param lines  what the call logged, prefix included
StateReport stateOfUpdate(const std::vector<std::string>& lines, bool hasDetections);

/// The state after init(). Pure. @param started  what init() answered
StateReport stateOfInit(const std::vector<std::string>& lines, bool started);

}  // namespace host
