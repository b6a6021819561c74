// A video in H.264 that needs little memory: OpenCV's own writer lets the encoder look forty frames ahead, which are
// 450 MB at 1920 x 1080, and passes no wish on.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <string>

namespace host {

/// Not thread-safe. The encoder's own threads end with it.
class H264Writer {
 public:
  virtual ~H264Writer() = default;

  /// @param frameSize  pixels, both sides even. @param fps  above 0
  /// @return null where this build or this machine has no such encoder, or the kind of file cannot hold H.264, or the
  ///         file cannot be made: another writer may then try, and say why not
  static std::unique_ptr<H264Writer> open(const std::string& path, cv::Size frameSize, double fps);

  /// @param bgr  8-bit BGR of the size given. False: the frame could not be encoded or written
  virtual bool write(const cv::Mat& bgr) = 0;
  /// Writes what the encoder holds back and the end of the file; without it the file does not play. False: it could
  /// not.
  virtual bool close() = 0;
};

}  // namespace host
