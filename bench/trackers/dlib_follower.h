// dlib's correlation tracker for the comparison, where dlib is installed; CMake chooses the source.
#pragma once

#include <memory>

#include "evaluation/follower.h"

namespace bench {

/// dlib::correlation_tracker on the whole frame, with dlib's own parameters. It always claims to see its target.
/// Null: built without dlib.
std::unique_ptr<host::Follower> makeDlibFollower();

}  // namespace bench
