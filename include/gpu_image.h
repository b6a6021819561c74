// Images for matching: in GPU memory where the build has OpenCV's CUDA modules and the process has a device, in host
// memory otherwise. Decided once per process; no algorithm needs to know.
#pragma once

#include <opencv2/core.hpp>
#include <opencv2/core/cuda.hpp>
#include <string>

class HostImageBackend;
class CudaImageBackend;

/// An 8-bit image (or a 32-bit map of matching scores). Copies share pixels, as those of cv::Mat do; clone() does not.
/// Threads: like cv::Mat, one image is not for several threads at once. OpenCV's exceptions pass through.
class GpuImage {
 public:
  /// Replaces the pixels by a copy of `pixels`; memory is reused when size and type stay.
  void upload(const cv::Mat& pixels);
  /// Replaces the pixels by the grey of an 8-bit BGR picture (COLOR_BGR2GRAY), without a copy in between where it can.
  void uploadGrey(const cv::Mat& bgr);
  /// The pixels in host memory: they may be shared with this image, so read only.
  cv::Mat download() const;
  /// The same into `out`, whose memory serves again where pixels have to be copied and size and type stay.
  void download(cv::Mat& out) const;

  bool empty() const;                                 ///< There are no pixels.
  int cols() const;                                   ///< Width, pixels; 0 when empty.
  int rows() const;                                   ///< Height, pixels; 0 when empty.
  cv::Size size() const { return {cols(), rows()}; }  ///< Pixels.
  int type() const;                                   ///< OpenCV type code, such as CV_8UC1.

  GpuImage clone() const;  ///< Pixels of its own.
  /// A view of the part `r` (image pixels, inside the image), sharing pixels.
  GpuImage region(const cv::Rect& r) const;
  void release();  ///< Empty from here on.

 private:
  friend class HostImageBackend;
  friend class CudaImageBackend;
  cv::Mat host_;
  cv::Mat room_;  ///< One row of bytes that `host_` lies in, where it was made by uploadGrey().
  cv::cuda::GpuMat device_;
};

/// cv::resize on either memory. @param size  target, pixels; empty: from the factors. dst must not be src.
void resizeImage(const GpuImage& src, GpuImage& dst, const cv::Size& size, double fx, double fy, int interpolation);

/// Normalised template matching of one `templ` in `image`; `result` becomes the 32-bit map of scores.
/// A flat template scores 0 everywhere on either memory. Safe from several threads.
/// @param method  cv::TemplateMatchModes, in practice cv::TM_CCOEFF_NORMED
void gpuMatchTemplate(const GpuImage& image, const GpuImage& templ, GpuImage& result, int method);

/// The best place in a map of matching scores.
struct BestMatch {
  double score = -1.0;  ///< -1 without a map, and where the maximum is not finite.
  cv::Point place;      ///< Map pixels; the first in row-major order among equals.
};
/// @param memory  scratch; keep it between calls and nothing is allocated
BestMatch bestMatch(const GpuImage& scores, cv::Mat& memory);

/// Name of an OpenCV type code, such as "CV_8UC3".
std::string cvTypeToStr(int type);

/// "cuda" or "host": where this process holds its images.
const char* imageBackendName();
