// The texts of --box and --point: which target, where.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ialgo_plugin.h"
#include "run/place_text.h"

namespace host {

/// A target of the command line.
struct TargetOption {
  std::string name;  ///< Unique in a run.
  BBox box;          ///< Full-frame pixels of the first frame; may lie partly outside.
  std::optional<BoxText> relative =
      std::nullopt;  ///< The box in percent: `box` is set from it when the frame's size is known.
  std::optional<PointText> point =
      std::nullopt;  ///< A point on the target: `box` is proposed around it on the first frame.
};

/// Reads "X,Y,W,H" or "name=X,Y,W,H": whole pixels, or percent of the picture such as 10%,20%,5%,8.5%.
/// @throws HostError (Usage) naming the text
TargetOption parseTargetOption(const std::string& text);

/// Reads "X,Y" or "name=X,Y", as above. @throws HostError (Usage) naming the text
TargetOption parsePointOption(const std::string& text);

/// Reads all --box options, then all --point options. A single nameless target is "target", several are "target1",
/// "target2", ... @throws HostError (Usage) for a bad text or a repeated name
std::vector<TargetOption> parseTargetOptions(const std::vector<std::string>& boxes,
                                             const std::vector<std::string>& points = {});

/// Sets `box` of what was given in percent or as a point, from the frame it is meant for.
void resolveOn(const cv::Mat& bgr, std::vector<TargetOption>& targets);

}  // namespace host
