#include "vit_follower.h"

namespace bench {

bool canRunVit() {
  return false;
}

std::unique_ptr<host::Follower> makeVitFollower(const std::string& /*model*/) {
  return nullptr;
}

}  // namespace bench
