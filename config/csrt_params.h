// From a configuration to OpenCV's tracker: the one place where the two meet.
#pragma once

#include <opencv2/tracking.hpp>

#include "csrt_config.h"

/// The tracker's parameters. What the configuration does not name keeps OpenCV's value. Pure.
cv::tracking::TrackerCSRT::Params csrtParams(const CsrtConfig& config);

/// @throws std::runtime_error when every feature is switched off: a tracker would crash on its first picture
void requireFeature(const CsrtConfig& config);
