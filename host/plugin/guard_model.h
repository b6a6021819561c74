// The file of the network that the guard asks: what it is, as far as its sum tells.
#pragma once

#include <string>

namespace host {

struct GuardModel {
  std::string sha256;  ///< 64 hexadecimal digits.
  std::string note;    ///< What the sum says, one sentence: a known network, an unknown file, a known one changed.
};

/// Reads the file and says what is known of it; whether it is a network is not looked at.
/// @throws HostError (Usage) when it cannot be read, is no file, is empty or larger than 256 MiB
GuardModel readGuardModel(const std::string& path);

/// The note on a file of that name, size and sum. Pure.
std::string noteOnGuardModel(const std::string& path, std::size_t bytes, const std::string& sha256);

}  // namespace host
