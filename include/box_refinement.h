// Re-centres a loose initial box on the object under its centre, by graph segmentation.
// Felzenszwalb and Huttenlocher, "Efficient graph-based image segmentation", IJCV 2004. Pure, any thread.
#pragma once

#include <opencv2/core.hpp>

/// Part of the image around a seed that is segmented: `scale` times the box, at least 64 pixels a side.
/// @return inside the image; (0, 0, 0, 0) when there is none
cv::Rect makeSearchWinAroundSeed(const cv::Rect& box, const cv::Point& seed, double scale, const cv::Size& imageSize);

/// Grows a region of similar colour from the segment under `seed` and centres the box on it.
/// @param image         8-bit BGR
/// @param box           image pixels
/// @param seed          a point on the object, image pixels
/// @param searchScale   side of the segmented part, in box sides
/// @param maxSide       its shorter side is shrunk to this, pixels; below 120: never shrunk
/// @param sigma, k, minSize  smoothing, granularity and smallest segment of the segmentation
/// @param growSteps     passes over the neighbours, at most
/// @param maxColorDist  largest distance to the region's mean colour, 8-bit Lab units, inclusive
/// @param minAreaRatio, maxAreaRatio  admissible region area, in box areas, inclusive
/// @param padPx         added to the region on every side, pixels
/// @return a box never larger than `box`; `box` itself when no region is found; the empty rect when the region's box
///         lies outside the image
cv::Rect refineInit_GraphSegNearSeed(const cv::Mat& image, const cv::Rect& box, const cv::Point& seed,
                                     double searchScale, int maxSide, double sigma, float k, int minSize, int growSteps,
                                     double maxColorDist, double minAreaRatio, double maxAreaRatio, int padPx);
