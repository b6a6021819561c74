#include "subwindow.h"

#include <algorithm>
#include <cstring>

namespace csrt_engine {
namespace {

void expand(const uint8_t* in, int channels, int n, uint8_t* out) {
  if (channels == 3) {
    std::memcpy(out, in, 3 * static_cast<std::size_t>(n));
    return;
  }
  for (int i = 0; i < n; ++i) out[3 * i] = out[3 * i + 1] = out[3 * i + 2] = in[i];
}

void repeat(const uint8_t* pixel, int n, uint8_t* out) {
  for (int i = 0; i < n; ++i) std::memcpy(out + 3 * i, pixel, 3);
}

}  // namespace

Subwindow subwindowAround(const cv::Mat& image, const cv::Point2f& center, int w, int h) {
  Subwindow out;
  out.image = &image;
  out.x = cvFloor(center.x) + 1 - w / 2;
  out.y = cvFloor(center.y) + 1 - h / 2;
  out.width = w;
  out.height = h;
  cv::Rect inside(out.x, out.y, w, h);
  const int left = std::max(-inside.x, 0), top = std::max(-inside.y, 0);
  inside.x = std::max(inside.x, 0);
  inside.y = std::max(inside.y, 0);
  inside.width -= left;
  inside.height -= top;
  if (inside.x + inside.width >= image.cols) inside.width = image.cols - inside.x;
  if (inside.y + inside.height >= image.rows) inside.height = image.rows - inside.y;
  const cv::Mat part = image(inside);  // throws when there is nothing inside
  if (part.empty()) CV_Error(cv::Error::StsAssert, "the search window has no pixels");
  out.valid = {left, top, inside.width, inside.height};
  return out;
}

void copyRow(const Subwindow& from, int row, int pad, uint8_t* out) {
  const int channels = from.image->channels(), cols = from.image->cols;
  const int y = std::clamp(from.y + std::clamp(row, 0, from.height - 1), 0, from.image->rows - 1);
  const uint8_t* in = from.image->ptr<uint8_t>(y);
  uint8_t* const first = out + 3 * pad;
  const int begin = from.valid.x, end = from.valid.x + from.valid.width;
  expand(in + static_cast<std::ptrdiff_t>(channels) * (from.x + begin), channels, std::min(end - begin, cols),
         first + 3 * begin);
  repeat(first + 3 * begin, begin + pad, out);
  repeat(first + 3 * (end - 1), from.width - end + pad, first + 3 * end);
}

Bgr pixelAt(const Subwindow& from, int column, int row) {
  const int x = std::clamp(from.x + std::clamp(column, 0, from.width - 1), 0, from.image->cols - 1);
  const int y = std::clamp(from.y + std::clamp(row, 0, from.height - 1), 0, from.image->rows - 1);
  if (from.image->channels() == 1) {
    const uint8_t v = from.image->ptr<uint8_t>(y)[x];
    return {v, v, v};
  }
  const uint8_t* p = from.image->ptr<uint8_t>(y) + 3 * static_cast<std::ptrdiff_t>(x);
  return {p[0], p[1], p[2]};
}

}  // namespace csrt_engine
