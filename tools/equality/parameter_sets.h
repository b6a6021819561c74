// Parameters that switch every part of the tracker on, off and over.
#pragma once

#include <opencv2/tracking.hpp>
#include <string>
#include <vector>

namespace equality {

struct ParameterSet {
  std::string name;
  cv::tracking::TrackerCSRT::Params params;
};

/// OpenCV's defaults first, then what the plug-in uses, then one change each.
std::vector<ParameterSet> parameterSets();

}  // namespace equality
