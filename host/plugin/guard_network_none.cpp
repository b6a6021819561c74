// Where OpenCV has no tracker that runs the network.
#include <opencv2/core/version.hpp>

#include "plugin/guard_network.h"

namespace host {

std::string whyNoNetworkGuard() {
  return "it needs OpenCV 4.9 or later, and this program was built with OpenCV " CV_VERSION;
}

std::unique_ptr<csrt_guard::SecondOpinion> readNetwork(const std::string& /*file*/, std::string& fault) {
  fault = whyNoNetworkGuard();
  return nullptr;
}

}  // namespace host
