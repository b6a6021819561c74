// A small tracker network for the comparison, where OpenCV has it (4.9 or later); CMake chooses the source.
#pragma once

#include <memory>
#include <string>

#include "evaluation/follower.h"

namespace bench {

/// Whether this OpenCV has cv::TrackerVit.
bool canRunVit();

/// cv::TrackerVit on the whole frame. It is "seen" whenever its update() answers true; a frame on which it throws has
/// no box. Null: built without. @param model  an ONNX file. @throws HostError (Usage) when it cannot be read
std::unique_ptr<host::Follower> makeVitFollower(const std::string& model);

}  // namespace bench
