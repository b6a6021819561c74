// What the target and its surroundings look like: two colour histograms, and the mask that follows from them.
#pragma once

#include <opencv2/tracking.hpp>
#include <vector>

#include "resampling.h"
#include "smoothing.h"
#include "subwindow.h"

namespace csrt_engine {

/// Histograms of hue, saturation and value of a target and of what surrounds it, and the target's segmentation by them.
class ColorModel {
 public:
  /// The search window, what the target measures in it, and the size at which its mask is wanted.
  struct Window {
    cv::Point2f center;  ///< pixels of the picture
    int width, height;   ///< pixels
    cv::Size2f target;   ///< pixels
  };

  /// Forgets everything and learns `region` (pixels of `image`; may hang over the edge).
  void init(const cv::Mat& image, const cv::Rect& region, const cv::tracking::TrackerCSRT::Params& params);
  /// Learns a little of `region`.
  void learn(const cv::Mat& image, const cv::Rect& region);
  /// The target's mask (0 or 1, CV_32F) in the search window, taken at size.area() places. An empty mask (all 0) when
  /// the histograms do not know one of the window's colours: see posteriors().
  void segment(const cv::Mat& image, const Window& window, cv::Size size, cv::Mat& mask);

 private:
  void extract(const cv::Mat& image, const cv::Rect& region);
  bool posteriors(const Subwindow& window, const cv::Size2f& target);
  void priors(const Subwindow& window, const cv::Size2f& target);
  double largestIn(const Subwindow& window) const;
  double at(int x, int y) const;
  std::size_t binOf(int h, int s, int v) const;
  std::size_t binAt(const Subwindow& window, int x, int y) const;

  int bins_ = 16, backgroundRatio_ = 2;
  float rate_ = 0;
  double backgroundShare_ = 0;
  std::vector<std::size_t> level_;  // the bin of a byte
  std::vector<double> foreground_, background_, newForeground_, newBackground_;
  // The segmentation works on a small picture of the window, about 1000 pixels.
  cv::Size small_;
  std::vector<LinearTap> shrinkX_, shrinkY_, growX_, growY_;
  Smoothing smoothing_;
};

}  // namespace csrt_engine
