// Reading a whole file.
#pragma once

#include <string>

namespace host {

/// The whole file. @throws HostError (Usage) naming it when it cannot be read, is a folder, or larger than 256 MiB
std::string readTextFile(const std::string& path);

}  // namespace host
