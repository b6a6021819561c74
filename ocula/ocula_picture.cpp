#include <ocula/ocula_picture.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace ocula {

OculaPicture::OculaPicture(cv::Mat bgr, BaseMetadata metadata) : bgr_(std::move(bgr)), metadata_(std::move(metadata)) {}

OculaPicture::~OculaPicture() = default;

int OculaPicture::width() const {
  return bgr_.cols;
}

int OculaPicture::height() const {
  return bgr_.rows;
}

cv::Mat OculaPicture::getBGR() const {
  return bgr_;
}

cv::Mat OculaPicture::cropToMat(int x, int y, int w, int h) {
  // 64 bits: x + w of an arbitrary rectangle leaves the range of int.
  const std::int64_t left = std::max<std::int64_t>(x, 0);
  const std::int64_t top = std::max<std::int64_t>(y, 0);
  const std::int64_t right = std::min<std::int64_t>(std::int64_t{x} + w, bgr_.cols);
  const std::int64_t bottom = std::min<std::int64_t>(std::int64_t{y} + h, bgr_.rows);
  if (right <= left || bottom <= top) return {};
  return bgr_(cv::Rect(static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
                       static_cast<int>(bottom - top)));
}

const OculaPicture::BaseMetadata& OculaPicture::baseMetadata() const {
  return metadata_;
}

}  // namespace ocula
