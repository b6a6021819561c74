#include "frame_check.h"

#include <algorithm>
#include <cmath>

namespace csrt_guard {
namespace {

constexpr int kColumns = 48;
constexpr int kRows = 27;
constexpr double kGrey = 2.0;      // grey levels; a grey picture has 0, one that was compressed a little more
constexpr double kColoured = 4.0;  // clearly more than that
constexpr double kFlat = 8.0;      // spread of brightness, grey levels: below it is a black or empty picture

/// The middle of the i-th of n equal parts.
std::ptrdiff_t middle(int i, int n, int length) {
  return static_cast<std::ptrdiff_t>((2LL * i + 1) * length / (2LL * n));
}

/// Calls `take` with the brightest and the darkest channel of pixels on a grid.
template <typename Take>
void sample(const cv::Mat& picture, Take take) {
  const int channels = std::min(picture.channels(), 3);  // alpha is no colour
  const int columns = std::min(kColumns, picture.cols);
  const int rows = std::min(kRows, picture.rows);
  for (int j = 0; j < rows; ++j) {
    const uchar* row = picture.ptr<uchar>(static_cast<int>(middle(j, rows, picture.rows)));
    for (int i = 0; i < columns; ++i) {
      const uchar* pixel = row + middle(i, columns, picture.cols) * picture.channels();
      const auto [least, most] = std::minmax_element(pixel, pixel + channels);
      take(*most, *least);
    }
  }
}

bool flat(const cv::Mat& picture) {
  double sum = 0.0, squares = 0.0, count = 0.0;
  sample(picture, [&](int most, int) {
    sum += most;
    squares += most * most;
    count += 1.0;
  });
  return std::sqrt(std::max(0.0, squares / count - sum / count * (sum / count))) < kFlat;
}

}  // namespace

bool isPicture(const cv::Mat& frame) {
  return !frame.empty() && frame.dims == 2 && frame.depth() == CV_8U &&
         (frame.channels() == 1 || frame.channels() == 3 || frame.channels() == 4);
}

double colourfulness(const cv::Mat& picture) {
  double sum = 0.0, count = 0.0;
  sample(picture, [&](int most, int least) {
    sum += most - least;
    count += 1.0;
  });
  return sum / count;
}

void FrameCheck::start(const cv::Mat& frame, const cv::Mat& target) {
  size_ = frame.size();
  coloured_ = colourfulness(frame) >= kColoured;
  colourless_ = std::max(colourfulness(frame), colourfulness(target)) < kGrey;
}

const char* FrameCheck::fault(const cv::Mat& frame) const {
  if (frame.empty()) return "no picture to judge by";
  if (!isPicture(frame)) return "not a picture of 8 bits: it cannot be judged";
  if (frame.size() != size_) return "the picture has another size than at the start: it cannot be judged";
  // A black picture has no colour either, and shows no target: that can be judged.
  if (coloured_ && colourfulness(frame) < kGrey && !flat(frame))
    return "the picture has lost its colour: it cannot be judged";
  return nullptr;
}

}  // namespace csrt_guard
