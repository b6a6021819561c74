// Smooths a segmentation: a Markov random field over priors and posteriors, solved in a few rounds.
#pragma once

#include <opencv2/core.hpp>
#include <vector>

namespace csrt_engine {

/// Works on small pictures of doubles, row by row. Method: M. Kristan et al., "A graphical model for rapid obstacle
/// image-map estimation from unmanned surface vehicles" (2014).
class Smoothing {
 public:
  /// Inputs, size.area() values each: what place and colour say for the target (front) and for its surroundings (back).
  std::vector<double> priorFront, priorBack, front, back;
  /// The target's smoothed probability after run().
  std::vector<double> result;

  void resize(cv::Size size);
  /// Uses up the priors. No value may be NaN.
  void run();

 private:
  void filter(const std::vector<double>& in, std::vector<double>& out, double centre);

  cv::Size size_;
  int radius_ = 1;
  std::vector<double> kernel_, padded_, pFront_, pBack_, a_, b_, sumA_, sumB_, resultBack_;
};

}  // namespace csrt_engine
