// Reading a whole file.
#pragma once

#include <string>

namespace host {

/// The whole file, without a byte-order mark. Reads it once, so that it may be a pipe.
/// @throws HostError (Usage) naming it when it cannot be read, is a folder, no UTF-8, or larger than 256 MiB
std::string readTextFile(const std::string& path);

}  // namespace host
