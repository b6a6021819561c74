// What the JSON library complains of, for people.
#pragma once

#include <exception>
#include <string>

namespace host {

/// The complaint without the library's own code in front: "[json.exception...] type must be string" begins with "type".
inline std::string plainError(const std::exception& error) {
  const std::string text = error.what();
  const std::size_t end = text.rfind("[json.exception", 0) == 0 ? text.find("] ") : std::string::npos;
  return end == std::string::npos ? text : text.substr(end + 2);
}

}  // namespace host
