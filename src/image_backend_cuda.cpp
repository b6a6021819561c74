#include "image_backend_cuda.h"

#include <mutex>
#include <opencv2/cudaimgproc.hpp>
#include <opencv2/cudawarping.hpp>
#include <opencv2/imgproc.hpp>

namespace {

// The matcher is costly to build, so the whole process shares one; `lock` is held from the key check to the end of
// match(), because another thread may replace the matcher and because the matcher writes to buffers of its own.
struct TmCache {
  std::mutex lock;
  int type = -1;   // of the search image that `alg` was built for
  int method = 0;  // that `alg` was built for
  cv::Ptr<cv::cuda::TemplateMatching> alg;
};

// Makes `image` a size x type image without allocating, where nobody shares its memory and that is large enough.
// Otherwise it is left alone, and the next create() allocates.
void reuseMemory(cv::cuda::GpuMat& image, const cv::Size& size, int type) {
  if (image.empty() || size.empty() || image.type() != type || image.size() == size) return;
  if (image.refcount == nullptr || *image.refcount != 1) return;
  cv::Size whole;
  cv::Point offset;
  image.locateROI(whole, offset);
  if (whole.width < size.width || whole.height < size.height) return;
  image.adjustROI(offset.y, size.height - image.rows - offset.y, offset.x, size.width - image.cols - offset.x);
}

}  // namespace

void CudaImageBackend::upload(const cv::Mat& pixels, GpuImage& image) const {
  if (pixels.empty()) return image.device_.release();
  reuseMemory(image.device_, pixels.size(), pixels.type());
  image.device_.upload(pixels);
}

void CudaImageBackend::uploadGrey(const cv::Mat& bgr, GpuImage& image) const {
  if (bgr.empty()) return image.device_.release();
  // Grey on this side of the bus: a third of the bytes travels. The host side stays as the staging buffer.
  cv::cvtColor(bgr, image.host_, cv::COLOR_BGR2GRAY);
  upload(image.host_, image);
}

void CudaImageBackend::download(const GpuImage& image, cv::Mat& out) const {
  if (image.device_.empty()) return out.release();
  image.device_.download(out);
}

bool CudaImageBackend::empty(const GpuImage& image) const {
  return image.device_.empty();
}

cv::Size CudaImageBackend::size(const GpuImage& image) const {
  return image.device_.size();
}

int CudaImageBackend::type(const GpuImage& image) const {
  return image.device_.type();
}

GpuImage CudaImageBackend::clone(const GpuImage& image) const {
  GpuImage copy;
  if (!image.device_.empty()) copy.device_ = image.device_.clone();
  return copy;
}

GpuImage CudaImageBackend::region(const GpuImage& image, const cv::Rect& r) const {
  GpuImage view;
  view.device_ = image.device_(r);
  return view;
}

void CudaImageBackend::release(GpuImage& image) const {
  image.device_.release();
  image.host_.release();
}

void CudaImageBackend::resize(const GpuImage& src, GpuImage& dst, const cv::Size& size, double fx, double fy,
                              int interpolation) const {
  const cv::Size target = size.empty() ? cv::Size(cv::saturate_cast<int>(src.device_.cols * fx),
                                                  cv::saturate_cast<int>(src.device_.rows * fy))
                                       : size;
  reuseMemory(dst.device_, target, src.device_.type());
  cv::cuda::resize(src.device_, dst.device_, size, fx, fy, interpolation);
}

void CudaImageBackend::matchTemplate(const GpuImage& image, const GpuImage& templ, GpuImage& result, int method) const {
  static TmCache cache;
  const std::lock_guard<std::mutex> guard(cache.lock);
  if (cache.alg.empty() || cache.type != image.device_.type() || cache.method != method) {
    cache.alg = cv::cuda::createTemplateMatching(image.device_.type(), method);
    cache.type = image.device_.type();
    cache.method = method;
  }
  const cv::Size scores = image.device_.size() - templ.device_.size() + cv::Size(1, 1);
  reuseMemory(result.device_, scores, CV_32FC1);
  cache.alg->match(image.device_, templ.device_, result.device_);
}

bool hasCudaDevice() {
  try {
    return cv::cuda::getCudaEnabledDeviceCount() > 0;
  } catch (...) {
    return false;
  }
}

const ImageBackend& imageBackend() {
  static const HostImageBackend host;
  static const CudaImageBackend cuda;
  static const bool onDevice = hasCudaDevice();
  if (onDevice) return cuda;
  return host;
}
