// The filter that finds the target: one per channel, learnt in the frequency domain under a spatial mask.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

#include "aligned_array.h"
#include "fft_plan.h"
#include "kernels.h"

namespace csrt_engine {

/// A. Lukezic et al., "Discriminative Correlation Filter with Channel and Spatial Reliability" (2017).
/// Planes: blocks of eight channels. "Inner" is the direction along which the elements of a plane follow one another.
class CorrelationFilter {
 public:
  struct Settings {
    int channels = 0;
    int iterations = 4;
    bool weighted = true;        ///< weigh the channels by how well each answers
    float filterRate = 0, weightRate = 0;
    bool columnsFirst = false;   ///< planes run downwards first
  };
  /// labels: spectrum of the wanted answer (CV_32FC2, at least 1 x 1).
  void setup(const Kernels& kernels, const cv::Mat& labels, const Settings& settings);
  /// Learns from scratch. planes: see FeatureMaker; mask: CV_32F of the labels' size.
  void learnFirst(const float* planes, const cv::Mat& mask);
  /// Learns a little.
  void learn(const float* planes, const cv::Mat& mask);
  /// The answer to planes: CV_32F of the labels' size, valid until the next call.
  const cv::Mat& respond(const float* planes);

 private:
  void transform(const float* planes);
  void solve(const cv::Mat& mask);
  void setMask(const cv::Mat& mask);
  void centerLabels(int twiceU, int twiceV);
  void newWeights(std::vector<float>& weights);
  long blockFloats() const { return static_cast<long>(kComplex) * grid_.half() * grid_.nv; }

  const Kernels* kernels_ = nullptr;
  Settings settings_;
  int blocks_ = 0;
  Grid grid_;
  FftTables tablesU_, tablesV_;
  DirectTables directU_, directV_;
  std::vector<float> rootsU_, rootsV_;    // of twice the length: the mask's centre may lie between two elements
  std::vector<float> labels_;             // conjugated, pairs, spectrum order
  std::vector<float> centered_, back_;    // labels at the mask's centre, and the way back
  std::vector<float> maskBox_;
  int maskU_ = 0, maskV_ = 0, twiceU_ = -1, twiceV_ = -1;
  AlignedArray<float> features_, filter_, next_, work_;
  std::vector<float> weights_, nextWeights_;
  std::vector<float> plane_;
  cv::Mat answer_;
};

}  // namespace csrt_engine
