// The channels that the filter looks at: gradients, colour names, brightness, colours; one value per cell each.
#pragma once

#include <opencv2/tracking.hpp>
#include <vector>

#include "gradients.h"
#include "resampling.h"

namespace csrt_engine {

/// Computes all channels of a patch into blocks of eight, weighted with the window. Keeps its memory.
class FeatureMaker {
 public:
  /// patch: pixels; cell: pixels of a cell's side; window: cells.height x cells.width; columnsFirst: the planes' inner
  /// direction is downwards instead of to the right.
  void setup(const cv::tracking::TrackerCSRT::Params& params, cv::Size patch, int cell, const cv::Mat& window,
             bool columnsFirst);
  int channels() const { return channels_; }
  int blocks() const { return (channels_ + kBlock - 1) / kBlock; }
  /// Planes of all blocks, each cells.area() elements of eight floats; valid until the next call.
  const float* compute(const Kernels& kernels, const Planes& patch);

 private:
  void grayCells(const Planes& patch);
  void colorMeans(const Planes& patch);
  void appendNames(const Planes& patch, const LinearTap& tx, const LinearTap& ty, float* out) const;
  void appendColors(const Planes& patch, const LinearTap& tx, const LinearTap& ty, float* out) const;

  int hog_ = 0, channels_ = 0, cell_ = 1;
  bool names_ = false, gray_ = false, rgb_ = false, columnsFirst_ = false;
  cv::Size patch_, cells_;
  std::vector<float> window_, grayValues_;
  std::vector<LinearTap> alongRow_, alongColumn_;
  std::vector<int> grayColumn_, grayRow_;              // first of four taps, clamped one by one
  std::vector<int16_t> grayColumnWeights_, grayRowWeights_;
  std::vector<int> grayRows_;                          // resized rows of brightness
  std::vector<uint8_t> grayLine_;
  float colorMean_[3] = {};
  GradientCells gradients_;
  AlignedArray<float> planes_;
};

}  // namespace csrt_engine
