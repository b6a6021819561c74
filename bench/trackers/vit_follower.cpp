#include "vit_follower.h"

#include <opencv2/video/tracking.hpp>

#include "base/host_error.h"

namespace bench {

bool canRunVit() {
  return true;
}

std::unique_ptr<host::Follower> makeVitFollower(const std::string& model) {
  cv::TrackerVit::Params params;
  params.net = model;
  try {
    return host::makeTrackerFollower(cv::TrackerVit::create(params));
  } catch (const cv::Exception& e) {
    throw host::HostError(host::ExitCode::Usage, "--guard-model '" + model + "' cannot be read: " + e.err);
  }
}

}  // namespace bench
