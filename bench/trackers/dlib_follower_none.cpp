#include "dlib_follower.h"

std::unique_ptr<host::Follower> bench::makeDlibFollower() {
  return nullptr;
}
