// A rectangle of a picture that may hang over its edges, where the edge's pixels are repeated.
#pragma once

#include <cstdint>
#include <opencv2/core.hpp>

namespace csrt_engine {

/// Pixels of `image` (8 bit, one or three channels) from (x, y) on, which may lie outside; nothing is copied.
struct Subwindow {
  const cv::Mat* image = nullptr;
  int x = 0, y = 0, width = 0, height = 0;
  cv::Rect valid;  ///< the part that lies inside the picture, in the subwindow's own pixels
};

/// The subwindow of w x h pixels around `center`, placed as OpenCV's tracker places it. Throws cv::Exception when it
/// lies wholly outside the picture or is empty, as there.
Subwindow subwindowAround(const cv::Mat& image, const cv::Point2f& center, int w, int h);

/// Copies row `row` of the subwindow (clamped to its height) as BGR, with `pad` repeated pixels before and after it.
/// out: 3 * (width + 2 * pad) bytes.
void copyRow(const Subwindow& from, int row, int pad, uint8_t* out);

/// The BGR pixel at (column, row) of the subwindow, both clamped to its size.
struct Bgr {
  uint8_t b, g, r;
};
Bgr pixelAt(const Subwindow& from, int column, int row);

}  // namespace csrt_engine
