// The windows that fade the patch out towards its edges, and the wanted answer of the filter.
#pragma once

#include <opencv2/core.hpp>

namespace csrt_engine {

/// CV_32F planes of `size`. Empty sizes throw cv::Exception.
cv::Mat hannWindow(cv::Size size);
cv::Mat kaiserWindow(cv::Size size, float alpha);
cv::Mat chebyshevWindow(cv::Size size, float attenuation);

/// Spectrum (CV_32FC2) of a Gaussian with its peak at the first element.
cv::Mat gaussianLabels(float sigma, cv::Size size);

}  // namespace csrt_engine
