// Finds the target's size: a one-dimensional correlation filter over 33 sizes (discriminative scale space).
#pragma once

#include <opencv2/tracking.hpp>
#include <vector>

#include "fft_plan.h"
#include "scale_cells.h"

namespace csrt_engine {

/// One target's scale filter. The picture's centre and the current scale come from the tracker.
class ScaleSearch {
 public:
  /// Throws cv::Exception where the smallest or largest size has no pixels inside the picture.
  void init(const Kernels& kernels, const cv::Mat& image, const cv::Rect2f& box, const cv::Size2f& templateSize,
            const cv::tracking::TrackerCSRT::Params& params);
  /// A new picture: nothing computed for the last one is used any more.
  void newPicture() { known_.clear(); }
  /// The new scale, relative to the box at init().
  float estimate(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center);
  /// Learns the target at the current scale.
  void learn(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center);

  /// Size of the scale model for a template, pixels.
  static cv::Size modelSize(const cv::Size2f& templateSize, float maxArea);

 private:
  void computeSpectra(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center);
  void blend(const Kernels& kernels, float rate);
  const float* valuesAt(const Kernels& kernels, const cv::Mat& image, const cv::Point2f& center, cv::Size size);

  struct Known {
    cv::Size size;
    int slot;
  };
  ScaleCells cells_;
  std::vector<Known> known_;         // sizes whose values were computed for this picture
  cv::Point2f knownCenter_;
  AlignedArray<float> slots_;        // their values, padded_ floats each
  int padded_ = 0, pairs_ = 0;       // floats of one size's values; blocks of 2 x 8 values
  int count_ = 0, half_ = 0;         // sizes, frequencies
  cv::Size target_;
  float current_ = 1, smallest_ = 0, largest_ = 0, rate_ = 0;
  std::vector<float> factors_, window_, roots_;
  std::vector<float> labels_;        // spectrum of the wanted answer: pairs
  FftTables tables_;
  AlignedArray<float> rows_, work_, spectra_, numerator_;
  std::vector<float> denominator_, response_;
};

}  // namespace csrt_engine
