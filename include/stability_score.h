// How far a tracker's answer can be believed.
#pragma once

#include <opencv2/core/types.hpp>

#include "csrt_config.h"

/// Mean of three terms: little motion, plausible size, inside the frame. Pure, any thread.
/// @param prevBox, newBox  full-frame pixels; newBox may reach outside the frame
/// @param frame            pixels
/// @return                 [0, 1]; 0 when a box has no area
double stabilityScore(const cv::Rect& prevBox, const cv::Rect& newBox, const cv::Size& frame,
                      const StabilityConfig& limits);
