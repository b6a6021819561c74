// The names of what a call of the plug-in can come to.
#pragma once

#include <optional>
#include <string>

namespace host {

/// What a call came to.
enum class TrackState {
  Waiting,     ///< The camera is still being pointed at the target, or the frame had no pixels to look at.
  Tracked,     ///< The tracker found the target in this frame.
  Rebuilt,     ///< The tracker was rebuilt on this frame because its window changed size.
  Redetected,  ///< The target was found again by the search over the whole frame.
  Predicted,   ///< Not seen: the box is the last one moved on by the last motion.
  Reseeded,    ///< The tracker was started on a given box in this call (start, zoom, end of pointing): no answer yet.
  Lost,        ///< The plug-in gave the target up in this call.
  Inactive,    ///< Nothing is being tracked.
  Reacquired,  ///< The guard found something that looks like the target and started the tracker there; on trial if
               ///< unseen.
};

/// Where the box of a record comes from.
enum class BoxFrom { Tracker, Prediction, Redetection, None, Guard };

/// The word in the records, such as "tracked"; and back, empty for a word that is none.
const char* name(TrackState state);
const char* name(BoxFrom from);
std::optional<TrackState> trackStateOf(const std::string& name);

}  // namespace host
