#include "base/captured_stderr.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>

namespace host {

CapturedStderr::CapturedStderr() {
  std::fflush(stderr);
  kept_ = memfd_create("stderr", MFD_CLOEXEC);
  if (kept_ < 0) return;
  before_ = dup(STDERR_FILENO);
  if (before_ < 0 || dup2(kept_, STDERR_FILENO) < 0) {
    close(kept_);
    kept_ = -1;
  }
}

CapturedStderr::~CapturedStderr() {
  std::fflush(stderr);
  if (kept_ >= 0) {
    dup2(before_, STDERR_FILENO);
    close(kept_);
  }
  if (before_ >= 0) close(before_);
}

std::string CapturedStderr::text() const {
  std::string text;
  if (kept_ < 0) return text;
  std::array<char, 4096> part{};
  off_t at = 0;
  for (ssize_t n = 0; (n = pread(kept_, part.data(), part.size(), at)) > 0; at += n) {
    text.append(part.data(), static_cast<std::size_t>(n));
  }
  return text;
}

}  // namespace host
