// Annotated pictures of a run: a video of all frames, a still of the last one.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

#include "base/pending_file.h"

namespace cv {
class VideoWriter;
}

namespace host {

/// A video file that can be played even when the run was interrupted, because close() is always reached. Without
/// close() an earlier file stays.
class VideoOutput {
 public:
  /// @param file  its ending chooses the kind: .mp4, .mkv, .avi, ...; must outlive this
  /// @throws HostError (Usage) when no encoder for it is there
  VideoOutput(PendingFile& file, cv::Size frameSize, double fps);
  ~VideoOutput();

  /// @throws HostError (Output) when the disk is full
  void write(const cv::Mat& bgr);
  /// Puts the video in its place. @throws HostError (Output) when nothing usable came into being
  void close();

 private:
  PendingFile& file_;
  cv::Size size_;
  std::unique_ptr<cv::VideoWriter> writer_;
  long written_ = 0;
};

/// @throws HostError (Usage) naming the path and the option when its ending is not that of a video: some writers would
///         put a video into a file of any name
void checkVideoName(const std::string& path, const std::string& option);

/// @throws HostError (Usage) naming the path and the option when its ending is not that of a picture
void checkPictureName(const std::string& path, const std::string& option);

/// Writes the picture and puts it in its place. @throws HostError (Output) naming the path when it cannot be written
void writePicture(PendingFile& file, const cv::Mat& bgr);

}  // namespace host
