// Linked into the plug-in's code for the thread sanitizer only: OpenCV hands its loops to the workers of a library that
// is not instrumented, so the sanitizer cannot see how they wait for one another and reports every picture they touch.
#include <opencv2/core/utility.hpp>

namespace {

[[maybe_unused]] const bool kOneThread = [] {
  cv::setNumThreads(1);
  return true;
}();

}  // namespace
