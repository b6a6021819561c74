#include <fcntl.h>
#include <openssl/rand.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "base/host_error.h"
#include "base/text_file.h"
#include "web/web_server.h"

namespace host::web {
namespace {

/// 128 bits in letters that are easily typed on a phone.
std::string drawnToken() {
  std::array<unsigned char, 26> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw HostError(ExitCode::Usage, "--http-token-file: no token could be drawn");
  }
  const char* const letters = "abcdefghijkmnpqrstuvwxyz23456789";
  std::string token;
  for (const unsigned char byte : bytes) token += letters[byte % 32U];
  return token;
}

bool tryMake(const std::string& path, const std::string& text) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (file < 0) {
    if (errno == EEXIST) return false;
    throw HostError(ExitCode::Usage, "--http-token-file '" + path + "' cannot be made: " + std::strerror(errno));
  }
  const ssize_t written = ::write(file, text.data(), text.size());
  ::close(file);
  if (written != static_cast<ssize_t>(text.size())) {
    throw HostError(ExitCode::Usage, "--http-token-file '" + path + "' cannot be written");
  }
  return true;
}

}  // namespace

std::string tokenOfFile(const std::string& path, bool& made) {
  const std::string drawn = drawnToken();
  made = tryMake(path, drawn + "\n");
  if (made) return drawn;
  struct stat about {};
  if (::stat(path.c_str(), &about) == 0 && (about.st_mode & 077U) != 0) {
    throw HostError(ExitCode::Usage, "--http-token-file '" + path + "' can be read by others; chmod 600 it");
  }
  const std::string text = readTextFile(path);
  const std::string token = text.substr(0, text.find_first_of("\r\n"));
  if (token.size() < kShortestToken || token.size() > 256) {
    throw HostError(ExitCode::Usage, "--http-token-file '" + path + "': the first line must be a token of " +
                                         std::to_string(kShortestToken) + " to 256 characters");
  }
  for (const char c : token) {
    if (c <= ' ' || c > '~') {
      throw HostError(ExitCode::Usage, "--http-token-file '" + path + "': a token has no spaces and only ASCII");
    }
  }
  return token;
}

}  // namespace host::web
