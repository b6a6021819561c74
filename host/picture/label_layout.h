// Where labels go, so that none covers another.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace host {

/// A place for a label near what it belongs to, inside the picture: above, below, beside, then further away. It covers
/// no label that is there already as long as there is room, and none of the boxes to avoid if a near place does not.
/// Pure, any thread.
/// @param label    its size, pixels; larger than the picture: its top-left corner stays inside
/// @param anchor   what it belongs to, full-frame pixels; may lie outside the picture
/// @param taken    the labels that are there
/// @param avoid    boxes that should stay visible
cv::Rect placeLabel(const cv::Size& label, const cv::Rect& anchor, const std::vector<cv::Rect>& taken,
                    const std::vector<cv::Rect>& avoid, const cv::Size& picture);

}  // namespace host
