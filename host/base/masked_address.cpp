#include "base/masked_address.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace host {
namespace {

constexpr const char* kMask = "***";

/// Where an address in a sentence ends: at a blank or a quote. A quote inside a password only shortens the address.
std::size_t endOfAddress(const std::string& text, std::size_t begin) {
  return std::min(text.find_first_of(" \t\r\n'\"<>", begin), text.size());
}

/// "user:password@host" loses its password. A password may itself hold an @ or a stroke.
void maskUser(std::string& address) {
  const std::size_t query = std::min(address.find('?'), address.size());
  const std::size_t at = address.rfind('@', query == 0 ? 0 : query - 1);
  const std::size_t colon = address.find(':');
  if (at == std::string::npos || colon == std::string::npos || colon > at) return;
  address.replace(colon + 1, at - colon - 1, kMask);
}

bool namesASecret(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
  const auto holds = [&name](const char* word) { return name.find(word) != std::string::npos; };
  return holds("password") || holds("passwd") || holds("pwd") || holds("token") || holds("key") || holds("secret");
}

void maskParameters(std::string& address) {
  std::size_t begin = address.find('?');
  while (begin != std::string::npos) {
    const std::size_t equals = address.find('=', begin + 1);
    if (equals == std::string::npos) return;
    std::size_t end = std::min(address.find_first_of("&;#", begin + 1), address.size());
    if (equals < end && namesASecret(address.substr(begin + 1, equals - begin - 1))) {
      address.replace(equals + 1, end - equals - 1, kMask);
      end = equals + 1 + std::strlen(kMask);
    }
    begin = end < address.size() ? end : std::string::npos;
  }
}

}  // namespace

std::string withPasswordsMasked(const std::string& text) {
  std::string masked;
  std::size_t done = 0;
  for (std::size_t at = text.find("://"); at != std::string::npos; at = text.find("://", done)) {
    const std::size_t begin = at + 3;
    const std::size_t end = endOfAddress(text, begin);
    std::string address = text.substr(begin, end - begin);
    maskUser(address);
    maskParameters(address);
    masked += text.substr(done, begin - done) + address;
    done = end;
  }
  return masked + text.substr(done);
}

}  // namespace host
