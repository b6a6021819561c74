#include "csrt_guard/network_opinion.h"
#include "plugin/guard_network.h"

namespace host {

std::string whyNoNetworkGuard() {
  return {};
}

std::unique_ptr<csrt_guard::SecondOpinion> readNetwork(const std::string& file, std::string& fault) {
  return csrt_guard::readNetworkOpinion(file, fault);
}

}  // namespace host
