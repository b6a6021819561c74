// A box around what a person clicked on.
#pragma once

#include <opencv2/core.hpp>

namespace host {

/// What a click was taken to mean.
struct BoxProposal {
  cv::Rect box;            ///< Full-frame pixels, inside the frame, at least 1 x 1.
  bool segmented = false;  ///< Found in the picture; else a square of a tenth of the frame's height about the point.
};

/// Cuts the thing at `point` out of its surroundings (GrabCut on a reduced picture, the middle taken as the thing and a
/// ring as the ground) and answers the box around it where that is plausible. Pure; a few tens of milliseconds.
/// @param bgr    8-bit BGR, not empty
/// @param point  full-frame pixels; one outside is moved to the nearest edge
BoxProposal proposeBox(const cv::Mat& bgr, cv::Point point);

}  // namespace host
