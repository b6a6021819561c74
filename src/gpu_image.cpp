#include "gpu_image.h"

#include <array>
#include <cmath>

#include "image_backend.h"

void GpuImage::upload(const cv::Mat& pixels) {
  imageBackend().upload(pixels, *this);
}

void GpuImage::uploadGrey(const cv::Mat& bgr) {
  imageBackend().uploadGrey(bgr, *this);
}

cv::Mat GpuImage::download() const {
  cv::Mat out;
  imageBackend().download(*this, out);
  return out;
}

void GpuImage::download(cv::Mat& out) const {
  imageBackend().download(*this, out);
}

bool GpuImage::empty() const {
  return imageBackend().empty(*this);
}

int GpuImage::cols() const {
  return imageBackend().size(*this).width;
}

int GpuImage::rows() const {
  return imageBackend().size(*this).height;
}

int GpuImage::type() const {
  return imageBackend().type(*this);
}

GpuImage GpuImage::clone() const {
  return imageBackend().clone(*this);
}

GpuImage GpuImage::region(const cv::Rect& r) const {
  return imageBackend().region(*this, r);
}

void GpuImage::release() {
  imageBackend().release(*this);
}

void resizeImage(const GpuImage& src, GpuImage& dst, const cv::Size& size, double fx, double fy, int interpolation) {
  imageBackend().resize(src, dst, size, fx, fy, interpolation);
}

void gpuMatchTemplate(const GpuImage& image, const GpuImage& templ, GpuImage& result, int method) {
  imageBackend().matchTemplate(image, templ, result, method);
}

BestMatch bestMatch(const GpuImage& scores, cv::Mat& memory) {
  BestMatch best;
  if (scores.empty()) return best;
  scores.download(memory);
  cv::minMaxLoc(memory, nullptr, &best.score, nullptr, &best.place);
  if (!std::isfinite(best.score)) best.score = -1.0;
  return best;
}

std::string cvTypeToStr(int type) {
  static constexpr std::array<const char*, 8> kDepths{"8U", "8S", "16U", "16S", "32S", "32F", "64F", "User"};
  const auto bits = static_cast<unsigned>(type);
  return std::string("CV_") + kDepths[bits & 7U] + "C" + std::to_string((bits >> 3U) + 1U);
}

const char* imageBackendName() {
  return imageBackend().name();
}
