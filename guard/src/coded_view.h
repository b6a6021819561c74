// A part of a frame, shrunken and with its colours replaced by numbers of a palette.
#pragma once

#include <array>
#include <cstdint>
#include <opencv2/core.hpp>
#include <vector>

namespace csrt_guard {

inline constexpr int kColours = 24;  ///< Of a palette.

/// The colours that matter for one target: those of itself and of its surroundings at the start.
class Palette {
 public:
  /// @param picture  8-bit BGR, the target and its surroundings; not empty
  /// @param target   the target in it; its pixels count more, so that it gets colours of its own
  void learn(const cv::Mat& picture, const cv::Rect& target);

  std::uint8_t codeOf(const cv::Vec3b& bgr) const {
    return table_[static_cast<std::size_t>(((bgr[0] >> 3) << 10) | ((bgr[1] >> 3) << 5) | (bgr[2] >> 3))];
  }
  /// How much of a pixel of colour i counts as colour j; rows sum to 1. Light changes a little from frame to frame.
  const std::array<std::array<float, kColours>, kColours>& kinship() const { return kinship_; }

 private:
  std::vector<std::uint8_t> table_;  ///< By the upper 5 bits of blue, green and red.
  std::array<std::array<float, kColours>, kColours> kinship_{};
};

/// Sizes at which targets are looked at: the geometric mean of the sides, pixels.
inline constexpr double kWorkSide = 20.0;

/// How much a frame is shrunken to look at a box of this size; never enlarged.
double workScale(const cv::Size2d& box);

/// 8-bit BGR of any 1-, 3- or 4-channel 8-bit picture part, shrunken by `scale`. Time is bounded by the result's size.
cv::Mat shrunkenBgr(const cv::Mat& frame, const cv::Rect& part, double scale);

struct CodedView {
  cv::Mat codes;          ///< 8-bit, one channel: numbers of the palette.
  cv::Rect part;          ///< What of the frame it shows, full-frame pixels.
  double scaleX = 1.0;    ///< View pixels per frame pixel.
  double scaleY = 1.0;

  cv::Rect2d toView(const cv::Rect2d& box) const {
    return {(box.x - part.x) * scaleX, (box.y - part.y) * scaleY, box.width * scaleX, box.height * scaleY};
  }
  cv::Rect2d toFrame(const cv::Rect2d& box) const {
    return {box.x / scaleX + part.x, box.y / scaleY + part.y, box.width / scaleX, box.height / scaleY};
  }
};

/// @param part  cut at the frame; the view is empty when nothing is left
CodedView viewOf(const cv::Mat& frame, const cv::Rect& part, double scale, const Palette& palette);

}  // namespace csrt_guard
