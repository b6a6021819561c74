// Images in GPU memory, searched by OpenCV's CUDA modules. Only builds with those modules compile this.
#pragma once

#include "image_backend.h"

/// Everything runs on the default stream and has ended on return. Needs a CUDA device: without one the calls throw.
/// Buffers are kept: a picture or a map of scores that fits into what its image already holds allocates nothing.
/// Threads: matchTemplate() takes turns (one matcher per process); the rest only touches its own images.
class CudaImageBackend : public ImageBackend {
 public:
  const char* name() const override { return "cuda"; }
  void upload(const cv::Mat& pixels, GpuImage& image) const override;
  void uploadGrey(const cv::Mat& bgr, GpuImage& image) const override;
  void download(const GpuImage& image, cv::Mat& out) const override;
  bool empty(const GpuImage& image) const override;
  cv::Size size(const GpuImage& image) const override;
  int type(const GpuImage& image) const override;
  GpuImage clone(const GpuImage& image) const override;
  GpuImage region(const GpuImage& image, const cv::Rect& r) const override;
  void release(GpuImage& image) const override;
  void resize(const GpuImage& src, GpuImage& dst, const cv::Size& size, double fx, double fy,
              int interpolation) const override;
  void matchTemplate(const GpuImage& image, const GpuImage& templ, GpuImage& result, int method) const override;
};

/// True when this process can use a CUDA device; a driver that is missing or refuses to count its devices has none.
bool hasCudaDevice();
