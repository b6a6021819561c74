// Uncompressed video through a pipe (YUV4MPEG2), as ffmpeg and GStreamer write and read it. A frame may say when it was
// taken: "FRAME Xt=12.345678", seconds of the machine's monotonic clock.
#pragma once

#include <atomic>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// A frame from the pipe.
struct Y4mFrame {
  cv::Mat bgr;                       ///< 8-bit BGR, owned by the caller.
  std::optional<double> captured_s;  ///< Seconds of the monotonic clock, when the sender says it.
};

/// Reads a pipe, a file or standard input. Not thread-safe, but for stop().
class Y4mReader {
 public:
  /// @param path  "-": standard input. A named pipe may still be without a writer.
  /// @throws HostError (Source) when it cannot be opened
  explicit Y4mReader(const std::string& path);
  ~Y4mReader();
  Y4mReader(const Y4mReader&) = delete;
  Y4mReader& operator=(const Y4mReader&) = delete;

  /// Waits for the next frame. @return false at the end, after stop(), or when a signal asked to stop
  /// @throws HostError (Source) with one sentence when what comes is no such video
  bool read(Y4mFrame& frame);

  void stop() { stop_ = true; }  ///< Any thread: read() returns within 100 ms.

  double fps() const { return fps_; }  ///< As the heading says, 25 where it does not; known after the first frame.

 private:
  bool fill_(std::uint8_t* to, std::size_t size);
  bool line_(std::string& line);
  bool heading_();

  std::string path_;
  int fd_;
  bool owns_;
  bool any_ = false;  // something has come, so that nothing more is the end
  std::atomic<bool> stop_{false};
  cv::Size size_;
  double fps_ = 25.0;
};

/// What a writer writes before its first frame.
std::string y4mHeading(cv::Size frame, double fps);

/// One frame with its line. @param bgr  8-bit BGR, even sides. @param captured_s  nothing: not said
std::vector<std::uint8_t> y4mFrame(const cv::Mat& bgr, std::optional<double> captured_s);

}  // namespace host
