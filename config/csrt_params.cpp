#include "csrt_params.h"

#include <stdexcept>

cv::tracking::TrackerCSRT::Params csrtParams(const CsrtConfig& config) {
  const CsrtConfig::Csrt& c = config.csrt;
  cv::tracking::TrackerCSRT::Params params;  // what is not tuned keeps OpenCV's value
  params.use_hog = c.use_hog;
  params.use_color_names = c.use_color_names;
  params.use_gray = c.use_gray;
  params.use_rgb = c.use_rgb;
  params.use_segmentation = c.use_segmentation;
  params.window_function = c.window_function;
  params.template_size = static_cast<float>(c.template_size);
  params.number_of_scales = c.number_of_scales;
  params.scale_sigma_factor = static_cast<float>(c.scale_sigma_factor);
  params.scale_lr = static_cast<float>(c.scale_lr);
  params.padding = static_cast<float>(c.padding);
  params.psr_threshold = static_cast<float>(c.psr_threshold);
  params.background_ratio = c.background_ratio;
  params.admm_iterations = c.admm_iterations;
  params.filter_lr = static_cast<float>(c.filter_lr);
  params.weights_lr = static_cast<float>(c.weights_lr);
  return params;
}

void requireFeature(const CsrtConfig& config) {
  const CsrtConfig::Csrt& c = config.csrt;
  if (!c.use_hog && !c.use_color_names && !c.use_rgb && !c.use_gray) {  // OpenCV would crash in init()
    throw std::runtime_error("CSRT needs at least one of use_hog, use_color_names, use_rgb and use_gray");
  }
}
