// From a configuration to OpenCV's tracker: the one place where the two meet.
#pragma once

#include <opencv2/tracking.hpp>

#include "csrt_config.h"

/// The tracker's parameters. What the configuration does not name keeps OpenCV's value. Pure.
cv::tracking::TrackerCSRT::Params csrtParams(const CsrtConfig& config);

/// A tracker with these parameters that has not seen a picture yet.
/// @throws std::runtime_error when every feature is switched off: OpenCV would crash on the first picture
cv::Ptr<cv::tracking::TrackerCSRT> createCsrtTracker(const CsrtConfig& config);
