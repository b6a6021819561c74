#include "csrt_engine/csrt_engine.h"

namespace csrt_engine {

cv::Ptr<cv::tracking::TrackerCSRT> create(const cv::tracking::TrackerCSRT::Params& params) {
  return cv::tracking::TrackerCSRT::create(params);
}

Handling handling(const cv::tracking::TrackerCSRT::Params&) { return {false, "the engine is not built in yet"}; }

const char* instructionSet() {
#if defined(__aarch64__)
  return "neon";
#else
  return "sse2";
#endif
}

}  // namespace csrt_engine
