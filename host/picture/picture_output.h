// Annotated pictures of a run: a video of all frames, a still of the last one.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace cv {
class VideoWriter;
}

namespace host {

class H264Writer;

/// A video file that can be played even when the run was interrupted, because close() is always reached.
class VideoOutput {
 public:
  /// @param path  the ending chooses the kind: .mp4, .mkv, .avi, ...
  /// @throws HostError (Usage) when it cannot be written or no encoder for it is there
  VideoOutput(const std::string& path, cv::Size frameSize, double fps);
  ~VideoOutput();

  /// @throws HostError (Output) when the disk is full
  void write(const cv::Mat& bgr);
  /// @throws HostError (Output) when nothing usable came into being
  void close();

 private:
  std::string path_;
  cv::Size size_;
  std::unique_ptr<H264Writer> h264_;         ///< Where there is one it takes the frames.
  std::unique_ptr<cv::VideoWriter> writer_;  ///< Null after close().
  long written_ = 0;
};

/// @throws HostError (Usage) naming the path and the option when its ending is not that of a picture
void checkPictureName(const std::string& path, const std::string& option);

/// @throws HostError (Output) naming the path when the picture cannot be written
void writePicture(const std::string& path, const cv::Mat& bgr);

/// Looks whether a file can be made at `path`, leaving an existing one as it is.
/// @throws HostError (Usage) naming the path and the option when not
void checkWritable(const std::string& path, const std::string& option);

}  // namespace host
