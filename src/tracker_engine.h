// Who computes a step of the tracker. CMake picks the source that defines it, one for each of the two plug-ins.
#pragma once

#include <opencv2/tracking.hpp>

/// A new tracker that has not seen a picture yet; never null. Both sources give the same boxes for the same pictures.
/// Any thread. @throws cv::Exception as cv::tracking::TrackerCSRT::create() does
cv::Ptr<cv::tracking::TrackerCSRT> createTracker(const cv::tracking::TrackerCSRT::Params& params);
