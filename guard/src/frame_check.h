// What a frame is, before anything is looked for in it: a picture at all, as large as the first one, with its colour.
#pragma once

#include <opencv2/core.hpp>

namespace csrt_guard {

/// A picture of 8 bits with 1, 3 or 4 channels, and not empty.
bool isPicture(const cv::Mat& frame);

/// How much colour there is: the mean difference of the largest and the smallest of blue, green and red, grey levels.
/// Looks at a grid of at most 48 x 27 pixels, so the time does not depend on the size. @param picture  see isPicture()
double colourfulness(const cv::Mat& picture);

/// Compares each frame with the one at the start. A frame of another kind says nothing about the target: it lies
/// elsewhere in a picture of another size, and looks otherwise in one without colour.
class FrameCheck {
 public:
  /// @param frame  see isPicture(). @param target  the target and what is around it, of the same kind
  void start(const cv::Mat& frame, const cv::Mat& target);

  /// Why this frame cannot be judged, in words, a constant; nullptr: it can.
  const char* fault(const cv::Mat& frame) const;

  /// There was no colour at the start, as in infrared: brightness is all there is.
  bool colourless() const { return colourless_; }

 private:
  cv::Size size_;
  bool coloured_ = false;  ///< So clearly that its absence means something.
  bool colourless_ = false;
};

}  // namespace csrt_guard
