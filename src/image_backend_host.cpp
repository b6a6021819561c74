#include <cfloat>
#include <opencv2/imgproc.hpp>

#include "area_shrink.h"
#include "image_backend.h"

namespace {

// OpenCV's own test for a template without contrast: its processor path scores such a one 1, its CUDA path 0.
bool isFlat(const cv::Mat& templ) {
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(templ, mean, deviation);
  return deviation.dot(deviation) < DBL_EPSILON;
}

}  // namespace

void HostImageBackend::upload(const cv::Mat& pixels, GpuImage& image) const {
  pixels.copyTo(image.host_);
}

// A target's size changes by a pixel at a time. Memory is taken in steps, and serves again until a picture needs more.
void HostImageBackend::fitRoom(const cv::Size& size, GpuImage& image) {
  constexpr int kStep = 4096;  // bytes
  const int need = size.area();
  image.host_.release();
  const bool shared = image.room_.u != nullptr && image.room_.u->refcount > 1;
  if (shared || image.room_.cols < need) {
    image.room_.release();
    image.room_.create(1, (need + kStep - 1) / kStep * kStep, CV_8UC1);
  }
  image.host_ = image.room_.colRange(0, need).reshape(1, size.height);
}

void HostImageBackend::uploadGrey(const cv::Mat& bgr, GpuImage& image) const {
  if (bgr.type() == CV_8UC3 && bgr.size() != image.host_.size() && !bgr.empty()) fitRoom(bgr.size(), image);
  cv::cvtColor(bgr, image.host_, cv::COLOR_BGR2GRAY);
}

void HostImageBackend::download(const GpuImage& image, cv::Mat& out) const {
  out = image.host_;
}

bool HostImageBackend::empty(const GpuImage& image) const {
  return image.host_.empty();
}

cv::Size HostImageBackend::size(const GpuImage& image) const {
  return image.host_.size();
}

int HostImageBackend::type(const GpuImage& image) const {
  return image.host_.type();
}

GpuImage HostImageBackend::clone(const GpuImage& image) const {
  GpuImage copy;
  copy.host_ = image.host_.clone();
  return copy;
}

GpuImage HostImageBackend::region(const GpuImage& image, const cv::Rect& r) const {
  GpuImage view;
  view.host_ = image.host_(r);
  return view;
}

void HostImageBackend::release(GpuImage& image) const {
  image.host_.release();
  image.room_.release();
}

void HostImageBackend::resize(const GpuImage& src, GpuImage& dst, const cv::Size& size, double fx, double fy,
                              int interpolation) const {
  if (interpolation == cv::INTER_AREA && size.empty() && tryShrinkArea(src.host_, dst.host_, fx, fy)) return;
  cv::resize(src.host_, dst.host_, size, fx, fy, interpolation);
}

void HostImageBackend::matchTemplate(const GpuImage& image, const GpuImage& templ, GpuImage& result, int method) const {
  cv::matchTemplate(image.host_, templ.host_, result.host_, method);
  if (isFlat(templ.host_)) result.host_.setTo(0);
}
