#include "tracker_engine.h"

// A host that is given the file alone reads here which engine is in it; nothing in the program uses it.
[[gnu::used]] static const char kEngineMark[] = "csrt-tracking engine: opencv\n";

cv::Ptr<cv::tracking::TrackerCSRT> createTracker(const cv::tracking::TrackerCSRT::Params& params) {
  return cv::tracking::TrackerCSRT::create(params);
}
