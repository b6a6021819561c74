// Places in a picture as a person writes them: in pixels, or in percent of the picture.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <string>

#include "ialgo_plugin.h"

namespace host {

/// One coordinate: whole pixels, or percent of the picture's width or height.
struct Coordinate {
  double value = 0.0;
  bool percent = false;
};

using BoxText = std::array<Coordinate, 4>;    ///< Left, top, width, height.
using PointText = std::array<Coordinate, 2>;  ///< x, y.

/// Reads "412,230,64,48", "10%,20%,5%,8.5%" or a mixture. Pixels are whole numbers of 32 bits.
/// @return false for any other text, and for a width or height of 0 or less. Pure.
bool tryReadBox(const std::string& text, BoxText& box);

/// Reads "412,230" or "51.5%,40%". @return false for any other text. Pure.
bool tryReadPoint(const std::string& text, PointText& point);

/// Full-frame pixels, rounded; a side is at least 1. Pure.
BBox boxIn(const BoxText& box, cv::Size frame);
/// Full-frame pixels. Pure.
cv::Point pointIn(const PointText& point, cv::Size frame);

}  // namespace host
