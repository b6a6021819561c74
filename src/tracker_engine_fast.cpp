#include "csrt_engine/csrt_engine.h"
#include "tracker_engine.h"

// As in tracker_engine_opencv.cpp: what a host reads in the file.
[[gnu::used]] static const char kEngineMark[] = "csrt-tracking engine: fast\n";

cv::Ptr<cv::tracking::TrackerCSRT> createTracker(const cv::tracking::TrackerCSRT::Params& params) {
  return csrt_engine::create(params);
}
