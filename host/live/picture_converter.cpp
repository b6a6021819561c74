#include "picture_converter.h"

extern "C" {
#include <libswscale/swscale.h>
}

namespace live {
namespace {

constexpr std::size_t kAlignment = 64;  // rows as the converter likes them

}  // namespace

PictureConverter::~PictureConverter() {
  sws_freeContext(context_);
}

const std::uint8_t* PictureConverter::toBgr(AVPixelFormat format, int width, int height,
                                            const std::uint8_t* const planes[4], const int strides[4]) {
  context_ = sws_getCachedContext(context_, width, height, format, width, height, AV_PIX_FMT_BGR24, SWS_BICUBIC,
                                  nullptr, nullptr, nullptr);
  if (context_ == nullptr) return nullptr;
  stride_ = (static_cast<std::size_t>(width) * 3 + kAlignment - 1) / kAlignment * kAlignment;
  bgr_.resize(stride_ * static_cast<std::size_t>(height) + kAlignment);
  std::uint8_t* const out[4] = {bgr_.data(), nullptr, nullptr, nullptr};
  const int outStrides[4] = {static_cast<int>(stride_), 0, 0, 0};
  return sws_scale(context_, planes, strides, 0, height, out, outStrides) == height ? bgr_.data() : nullptr;
}

}  // namespace live
