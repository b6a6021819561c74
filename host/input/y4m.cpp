#include "input/y4m.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <opencv2/imgproc.hpp>
#include <sstream>

#include "base/host_error.h"
#include "base/interrupt.h"

namespace host {
namespace {

constexpr int kLongestSide = 16384;
constexpr std::size_t kLongestLine = 1024;

[[noreturn]] void fail(const std::string& path, const std::string& what) {
  throw HostError(ExitCode::Source, "'" + path + "' is no uncompressed video (YUV4MPEG2): " + what);
}

}  // namespace

Y4mReader::Y4mReader(const std::string& path)
    : path_(path == "-" ? "standard input" : path),
      fd_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)),
      owns_(path != "-") {
  if (fd_ < 0) throw HostError(ExitCode::Source, "cannot open '" + path + "': " + std::strerror(errno));
}

Y4mReader::~Y4mReader() {
  if (owns_) ::close(fd_);
}

bool Y4mReader::fill_(std::uint8_t* to, std::size_t size) {
  while (size > 0) {
    if (stop_ || interruptSignal() != 0) return false;
    pollfd wait{fd_, POLLIN, 0};
    const int ready = ::poll(&wait, 1, 100);
    if (ready <= 0) continue;
    const ssize_t got = ::read(fd_, to, size);
    if (got > 0) {
      any_ = true;
      to += got;
      size -= static_cast<std::size_t>(got);
    } else if (got == 0) {
      if (any_) return false;
      ::usleep(20000);  // a pipe that nobody writes into yet
    } else if (errno != EAGAIN && errno != EINTR) {
      throw HostError(ExitCode::Source, "cannot read '" + path_ + "': " + std::strerror(errno));
    }
  }
  return true;
}

bool Y4mReader::line_(std::string& line) {
  line.clear();
  for (std::uint8_t byte = 0; fill_(&byte, 1);) {
    if (byte == '\n') return true;
    if (line.size() >= kLongestLine) fail(path_, "its heading does not end");
    line.push_back(static_cast<char>(byte));
  }
  return false;
}

bool Y4mReader::heading_() {
  std::string line;
  if (!line_(line)) return false;
  std::istringstream words(line);
  std::string word;
  words >> word;
  if (word != "YUV4MPEG2") fail(path_, "it does not begin with that word");
  while (words >> word) {
    const std::string value = word.substr(1);
    if (word[0] == 'W') size_.width = std::atoi(value.c_str());
    if (word[0] == 'H') size_.height = std::atoi(value.c_str());
    if (word[0] == 'C' && value.rfind("420", 0) != 0) fail(path_, "its colours are '" + value + "', only 420 is read");
    if (word[0] == 'C' && value.find("p1") != std::string::npos) fail(path_, "it has more than 8 bits");
    int over = 0, under = 0;
    if (word[0] == 'F' && std::sscanf(value.c_str(), "%d:%d", &over, &under) == 2 && over > 0 && under > 0) {
      fps_ = static_cast<double>(over) / under;
    }
  }
  const bool fits = size_.width >= 16 && size_.height >= 16 && size_.width <= kLongestSide &&
                    size_.height <= kLongestSide && size_.width % 2 == 0 && size_.height % 2 == 0;
  if (!fits) fail(path_, fmt::format("pictures of {} x {} are not read", size_.width, size_.height));
  return true;
}

bool Y4mReader::read(Y4mFrame& frame) {
  if (size_.area() == 0 && !heading_()) return false;
  std::string line;
  if (!line_(line)) return false;
  if (line.rfind("FRAME", 0) != 0) fail(path_, "a frame does not begin where it should");
  const std::size_t at = line.find(" Xt=");
  const double said = at == std::string::npos ? NAN : std::strtod(line.c_str() + at + 4, nullptr);
  cv::Mat yuv(size_.height * 3 / 2, size_.width, CV_8UC1);
  if (!fill_(yuv.data, yuv.total())) return false;
  frame.captured_s = std::isfinite(said) ? std::optional<double>(said) : std::nullopt;
  frame.bgr = cv::Mat();
  cv::cvtColor(yuv, frame.bgr, cv::COLOR_YUV2BGR_I420);
  return true;
}

std::string y4mHeading(cv::Size frame, double fps) {
  return fmt::format("YUV4MPEG2 W{} H{} F{}:1000 Ip A1:1 C420jpeg\n", frame.width, frame.height,
                     std::lround(fps * 1000));
}

std::vector<std::uint8_t> y4mFrame(const cv::Mat& bgr, std::optional<double> captured_s) {
  const std::string line = captured_s ? fmt::format("FRAME Xt={:.6f}\n", *captured_s) : "FRAME\n";
  cv::Mat yuv;
  cv::cvtColor(bgr, yuv, cv::COLOR_BGR2YUV_I420);
  std::vector<std::uint8_t> bytes(line.begin(), line.end());
  bytes.insert(bytes.end(), yuv.data, yuv.data + yuv.total());
  return bytes;
}

}  // namespace host
