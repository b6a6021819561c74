// Lines over a frame, to read coordinates off.
#pragma once

#include <opencv2/core.hpp>

namespace host {

/// A copy of the frame with a line at every tenth of its width and height, each labelled with its percent and pixel.
/// @param bgr  8-bit BGR, not empty
cv::Mat drawGrid(const cv::Mat& bgr);

}  // namespace host
