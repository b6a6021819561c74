// The network that the guard may ask, where this program was built with one; the source is chosen by CMake.
#pragma once

#include <memory>
#include <string>

#include "csrt_guard/second_opinion.h"

namespace host {

/// Why there is no network guard, as a part of a sentence; empty: there is one.
std::string whyNoNetworkGuard();

/// Reads an ONNX file and tries the network once. @param fault  where there is no result: why
/// @return null: it cannot be read, is no such network, or there is no network guard. Any thread
std::unique_ptr<csrt_guard::SecondOpinion> readNetwork(const std::string& file, std::string& fault);

}  // namespace host
