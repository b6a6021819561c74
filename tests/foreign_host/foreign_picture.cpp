#include <algorithm>
#include <opencv2/imgproc.hpp>

#include <ocula/ocula_picture.h>

namespace ocula {

using Keys = OculaPicture::BaseMetadata::Keys;
const std::string Keys::kPanDeg = "pan_deg";
const std::string Keys::kTiltDeg = "tilt_deg";
const std::string Keys::kHfovDeg = "hfov_deg";
const std::string Keys::kVfovDeg = "vfov_deg";
const std::string Keys::kFollowMeEnabledCommand = "tarvex.follow_me_enabled_command";

OculaPicture::OculaPicture(const std::vector<unsigned char>& i420, int width, int height)
    : height_(height), width_(width), i420_(i420) {}

cv::Mat OculaPicture::getBGR() const {
  ++conversions_;
  const cv::Mat yuv(height_ * 3 / 2, width_, CV_8UC1, const_cast<unsigned char*>(i420_.data()));
  cv::Mat bgr;
  cv::cvtColor(yuv, bgr, cv::COLOR_YUV2BGR_I420);
  return bgr;
}

// Converts only the rows and columns asked for, widened to whole chroma samples.
cv::Mat OculaPicture::cropToMat(int x, int y, int w, int h) {
  const cv::Rect wanted = cv::Rect(x, y, w, h) & cv::Rect(0, 0, width_, height_);
  if (wanted.empty()) return {};
  const cv::Rect even(wanted.x & ~1, wanted.y & ~1, (wanted.br().x - (wanted.x & ~1) + 1) & ~1,
                      (wanted.br().y - (wanted.y & ~1) + 1) & ~1);
  unsigned char* luma = i420_.data();
  unsigned char* u = luma + static_cast<long>(width_) * height_;
  unsigned char* v = u + static_cast<long>(width_ / 2) * (height_ / 2);
  const cv::Rect chroma(even.x / 2, even.y / 2, even.width / 2, even.height / 2);
  cv::Mat part(even.height * 3 / 2, even.width, CV_8UC1);
  cv::Mat(height_, width_, CV_8UC1, luma)(even).copyTo(part.rowRange(0, even.height));
  cv::Mat uPart(chroma.height, chroma.width, CV_8UC1, part.ptr(even.height));
  cv::Mat vPart(chroma.height, chroma.width, CV_8UC1, uPart.data + chroma.area());
  cv::Mat(height_ / 2, width_ / 2, CV_8UC1, u)(chroma).copyTo(uPart);
  cv::Mat(height_ / 2, width_ / 2, CV_8UC1, v)(chroma).copyTo(vPart);
  cv::Mat bgr;
  cv::cvtColor(part, bgr, cv::COLOR_YUV2BGR_I420);
  return bgr(wanted - even.tl());
}

}  // namespace ocula
