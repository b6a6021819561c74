// What one call of the plug-in came to, read once from its answer and its log lines: a predicted box looks exactly like
// a tracked one in the plug-in's records, and only the lines tell them apart. Nobody else looks at the texts.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ialgo_plugin.h"
#include "plugin/track_state.h"

namespace host {

/// Where the plug-in wants the camera to look: its record "gimbal_preposition.v1".
struct PointingWish {
  double pan_deg = 0.0;   ///< Degrees, growing to the right.
  double tilt_deg = 0.0;  ///< Degrees, growing upwards.
};

/// The facts about one call. Boxes are full-frame pixels.
struct CallFacts {
  std::string exit;  ///< The words of the exit that update() took, such as "track ok", "LOST predict" or
                     ///< "given up: bbox collée au bord"; empty: of init(), or none that is known.
  TrackState state = TrackState::Inactive;
  BoxFrom boxFrom = BoxFrom::None;      ///< None where there is no box.
  bool seen = false;                    ///< The target was seen in this frame; after init(): the user pointed at it.
  std::optional<cv::Rect> box;          ///< The first detection.
  std::optional<double> score;          ///< Only where it was measured on this frame. [0, 1]
  std::optional<cv::Rect> window;       ///< The processing window of a tracked frame.
  std::string search;                   ///< How the search over the whole frame ended, such as "success",
                                        ///< "appearance_fail" or "reject: too far"; empty: there was none.
  std::string reason;                   ///< Why the target was lost or the start refused; empty: no such thing.
  std::optional<PointingWish> pointTo;  ///< Where the camera shall look; empty: the plug-in asks for nothing.
  bool zoomReseeded = false;            ///< The tracker was started anew because the camera zoomed.
};

/// What init() came to. Pure.
/// @param lines    what the call logged, prefix included
/// @param started  what init() answered
CallFacts factsOfInit(const std::vector<std::string>& lines, bool started, const std::vector<AlgoOutput>& outputs);

/// What update() came to. Pure.
/// @param lines    what the call logged, prefix included
/// @param outputs  loses the processing window that the plug-in adds to its detections while it logs
CallFacts factsOfUpdate(const std::vector<std::string>& lines, std::vector<AlgoOutput>& outputs);

/// What a call came to that threw: init() refused the start, update() lost the target.
/// @param reason  the text of the exception
CallFacts factsOfException(bool isInit, const std::string& reason);

}  // namespace host
