// One way of holding and searching images. Chosen once per process; GpuImage and the free functions forward to it.
#pragma once

#include "gpu_image.h"

class ImageBackend {
 public:
  virtual ~ImageBackend() = default;
  virtual const char* name() const = 0;
  virtual void upload(const cv::Mat& pixels, GpuImage& image) const = 0;
  virtual void uploadGrey(const cv::Mat& bgr, GpuImage& image) const = 0;
  /// `out` may share its pixels with the image, or keep its memory.
  virtual void download(const GpuImage& image, cv::Mat& out) const = 0;
  virtual bool empty(const GpuImage& image) const = 0;
  virtual cv::Size size(const GpuImage& image) const = 0;
  virtual int type(const GpuImage& image) const = 0;
  virtual GpuImage clone(const GpuImage& image) const = 0;
  virtual GpuImage region(const GpuImage& image, const cv::Rect& r) const = 0;
  virtual void release(GpuImage& image) const = 0;
  virtual void resize(const GpuImage& src, GpuImage& dst, const cv::Size& size, double fx, double fy,
                      int interpolation) const = 0;
  virtual void matchTemplate(const GpuImage& image, const GpuImage& templ, GpuImage& result, int method) const = 0;
};

/// Images in host memory, searched by the processor.
class HostImageBackend : public ImageBackend {
 public:
  const char* name() const override { return "host"; }
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

 private:
  static void fitRoom(const cv::Size& size, GpuImage& image);
};

/// The process's backend, decided at the first call. CMake picks the source that defines it.
const ImageBackend& imageBackend();
