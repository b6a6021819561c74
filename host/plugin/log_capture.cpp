#include "plugin/log_capture.h"

#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <mutex>

namespace host {
namespace {

thread_local std::string* captured = nullptr;  // the capture of this thread's call in progress

/// write(2) until everything is out; the number of bytes written, short on an error.
std::size_t writeAll(const char* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(STDOUT_FILENO, data + done, size - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  return done;
}

/// Called by the C library on the thread that writes, because the stream has no buffer of its own.
ssize_t writeCookie(void* /*cookie*/, const char* data, std::size_t size) {
  if (captured != nullptr) {
    captured->append(data, size);
    return static_cast<ssize_t>(size);
  }
  return static_cast<ssize_t>(writeAll(data, size));  // 0 tells the C library of an error
}

}  // namespace

void installLogCapture() {
  static std::once_flag once;
  std::call_once(once, [] {
    std::fflush(stdout);
    cookie_io_functions_t functions{};
    functions.write = writeCookie;
    FILE* stream = fopencookie(nullptr, "w", functions);
    if (stream == nullptr) return;  // out of memory: the lines then reach standard output
    std::setvbuf(stream, nullptr, _IONBF, 0);
    stdout = stream;
  });
}

LogCapture::LogCapture() {
  captured = &text_;
}

LogCapture::~LogCapture() {
  captured = nullptr;
}

std::vector<std::string> LogCapture::lines() const {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  while (begin < text_.size()) {
    std::size_t end = text_.find('\n', begin);
    if (end == std::string::npos) end = text_.size();
    lines.push_back(text_.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

}  // namespace host
