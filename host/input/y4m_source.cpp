#include "input/y4m_source.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

namespace host {
namespace {

constexpr std::string_view kBeginning = "YUV4MPEG2";
constexpr double kLeastStepS = 0.001;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool isRegularFile(const std::string& path) {
  struct stat facts {};
  return (path == "-" ? ::fstat(STDIN_FILENO, &facts) : ::stat(path.c_str(), &facts)) == 0 && S_ISREG(facts.st_mode);
}

/// Copies what lies in a pipe, without taking it. @return the bytes; -1: none can be looked at
ssize_t look(int fd, std::array<char, kBeginning.size()>& bytes) {
  int copy[2];
  if (::pipe2(copy, O_CLOEXEC | O_NONBLOCK) != 0) return -1;
  ssize_t count = ::tee(fd, copy[1], bytes.size(), SPLICE_F_NONBLOCK);
  if (count > 0) count = ::read(copy[0], bytes.data(), bytes.size());
  ::close(copy[0]);
  ::close(copy[1]);
  return count;
}

bool pipeBeginsAsY4m(int fd, const std::function<bool()>& isOver) {
  while (!isOver()) {
    std::array<char, kBeginning.size()> bytes{};
    const ssize_t count = look(fd, bytes);
    const std::string_view seen(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (seen != kBeginning.substr(0, seen.size())) return false;
    if (seen.size() == kBeginning.size()) return true;
    pollfd end{fd, POLLIN, 0};
    ::poll(&end, 1, 0);
    const bool ended = (end.revents & POLLHUP) != 0 && (end.revents & POLLIN) == 0;
    if (ended && !seen.empty()) return false;
    ::usleep(10000);  // nobody has written yet
  }
  return false;
}

}  // namespace

Y4mSource::Y4mSource(const SourceOptions& options)
    : options_(options), reader_(options.source), isPipe_(!isRegularFile(options.source)) {}

bool Y4mSource::read(SourceFrame& frame) {
  if (options_.frames > 0 && next_ >= options_.start + options_.frames) return false;
  Y4mFrame got;
  do {
    if (!reader_.read(got)) return false;
  } while (next_++ < options_.start);
  frame = {};
  frame.index = next_ - 1;
  frame.bgr = got.bgr;
  frame.live.emplace();
  frame.live->senderClock = isPipe_ && got.captured_s.has_value();
  frame.live->capturedAt = isPipe_ ? got.captured_s.value_or(now()) : now();
  const bool isFirst = frame.index == options_.start;
  const std::optional<double> said_s = isPipe_ ? frame.live->capturedAt : got.captured_s;
  if (isFirst) first_s_ = said_s.value_or(0.0);
  const double time_s =
      said_s && options_.fps <= 0 ? *said_s - first_s_ : static_cast<double>(frame.index - options_.start) / fps();
  frame.time_s = isFirst ? 0.0 : std::max(time_s, last_s_ + kLeastStepS);
  last_s_ = frame.time_s;
  return true;
}

bool beginsAsY4m(int fd, const std::function<bool()>& isOver) {
  struct stat facts {};
  if (::fstat(fd, &facts) != 0) return false;
  if (S_ISFIFO(facts.st_mode)) return pipeBeginsAsY4m(fd, isOver);
  std::array<char, kBeginning.size()> bytes{};
  return S_ISREG(facts.st_mode) && ::pread(fd, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()) &&
         std::string_view(bytes.data(), bytes.size()) == kBeginning;
}

}  // namespace host
