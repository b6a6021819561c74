#include "picture/grid.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>
#include <string>

namespace host {
namespace {

constexpr int kParts = 10;
constexpr int kFont = cv::FONT_HERSHEY_SIMPLEX;
const cv::Scalar kDark(0, 0, 0);
const cv::Scalar kLight(255, 255, 255);

/// White on black, so that it can be read on any picture.
void write(cv::Mat& picture, const std::string& text, cv::Point at, double size) {
  cv::putText(picture, text, at, kFont, size, kDark, std::max(2, static_cast<int>(size * 6)), cv::LINE_AA);
  cv::putText(picture, text, at, kFont, size, kLight, 1, cv::LINE_AA);
}

void drawLine(cv::Mat& picture, cv::Point from, cv::Point to) {
  cv::line(picture, from, to, kDark, 3);
  cv::line(picture, from, to, kLight, 1);
}

}  // namespace

cv::Mat drawGrid(const cv::Mat& bgr) {
  cv::Mat picture = bgr.clone();
  const double size = std::max(0.3, picture.rows / 1100.0);
  const int step = std::max(8, static_cast<int>(std::lround(size * 26)));
  for (int i = 1; i < kParts; ++i) {
    const int x = picture.cols * i / kParts;
    const int y = picture.rows * i / kParts;
    drawLine(picture, {x, 0}, {x, picture.rows - 1});
    drawLine(picture, {0, y}, {picture.cols - 1, y});
    const std::string percent = std::to_string(i * 100 / kParts) + "%";
    write(picture, percent, {x + 3, step}, size);
    write(picture, std::to_string(x), {x + 3, 2 * step}, size);
    write(picture, percent + " " + std::to_string(y), {3, y - 4}, size);
  }
  return picture;
}

}  // namespace host
