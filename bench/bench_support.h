// What the benchmarks of this folder share: clocks, samples, drawn scenes, the plug-in opened up.
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/tracking.hpp>
#include <string>
#include <vector>

#include "csrt_tracking_algo.h"

namespace bench {

/// `full` steps, or a handful when CSRT_BENCH_SHORT is set: then the programs only prove that they still run.
int steps(int full);

/// A moment: milliseconds of the wall's clock and of processor time that the process has used, all threads together.
struct Moment {
  double wall = 0.0;
  double cpu = 0.0;
};
Moment now();
Moment operator-(const Moment& a, const Moment& b);

template <typename Work>
Moment timeOf(Work&& work) {
  const Moment start = now();
  work();
  return now() - start;
}

/// Durations of the same work, milliseconds.
class Samples {
 public:
  void add(const Moment& duration);
  double median() const;     ///< Wall time.
  double p95() const;        ///< Wall time.
  double cpuMedian() const;  ///< Processor time.
  double cpuP95() const;     ///< Processor time.
  const std::vector<double>& cpu() const { return cpu_; }

 private:
  std::vector<double> wall_;
  std::vector<double> cpu_;
};

double medianOf(std::vector<double> values);
double percentileOf(std::vector<double> values, double share);
/// Median over pairs of neighbouring steps of how many times longer `a` took than `b`, in processor time. Steps that
/// alternate meet the same noise, so this moves far less than either time.
double medianRatio(const Samples& a, const Samples& b);

/// A target of coloured cells that circles slowly over a calm, uneven background. The middle of the picture, with
/// all the target ever reaches, is the same in every picture size.
class MovingTarget {
 public:
  MovingTarget(const cv::Size& frame, const cv::Size& target);

  /// Draws the next frame, or the first. The pixels are overwritten by the following call.
  const CSRTTrackingAlgo::Frames& next();
  /// Without the target in sight, from the next frame on.
  void hide() { visible_ = false; }
  void show() { visible_ = true; }
  /// Moves the path.
  void jump(const cv::Point& by) { jump_ += by; }

  cv::Rect box() const { return box_; }  ///< Where the target is on the last frame.
  const CSRTTrackingAlgo::Frames& frames() const { return frames_; }
  const cv::Mat& pixels() const { return pixels_; }

 private:
  cv::Mat pixels_;
  cv::Mat target_;
  cv::Mat covered_;  ///< What the target hides.
  cv::Point jump_;
  cv::Rect box_;
  CSRTTrackingAlgo::Frames frames_;
  int index_ = 0;
  bool visible_ = true;
};

double overlap(const cv::Rect& a, const cv::Rect& b);  ///< Intersection over union.

/// Steps a real tracker, and remembers what the step cost and on which pixels.
class WatchedTracker : public cv::tracking::TrackerCSRT {
 public:
  explicit WatchedTracker(cv::Ptr<cv::tracking::TrackerCSRT> real) : real_(std::move(real)) {}
  void init(cv::InputArray image, const cv::Rect& box) override { real_->init(image, box); }
  bool update(cv::InputArray image, cv::Rect& box) override;
  void setInitialMask(cv::InputArray mask) override { real_->setInitialMask(mask); }

  Moment spent;    ///< By the last step.
  cv::Mat pixels;  ///< Of the last step; shared.

 private:
  cv::Ptr<cv::tracking::TrackerCSRT> real_;
};

/// The plug-in with its inside in reach.
class OpenAlgo : public CSRTTrackingAlgo {
 public:
  /// Frames are 40 ms apart for the health monitor, however fast they are computed: its rules are in seconds.
  OpenAlgo();
  using CSRTTrackingAlgo::buildFullYFromVP_Locked_;
  using CSRTTrackingAlgo::computeOrigAppearanceAt_;
  using CSRTTrackingAlgo::computeProcWindow_Locked_;
  using CSRTTrackingAlgo::config_;
  using CSRTTrackingAlgo::createTracker_;
  using CSRTTrackingAlgo::findBestInROI_GPU_Locked_;
  using CSRTTrackingAlgo::fullGrayGpu_;
  using CSRTTrackingAlgo::initBoxInCrop_;
  using CSRTTrackingAlgo::initCrop_;
  using CSRTTrackingAlgo::makeCSRTParams_;
  using CSRTTrackingAlgo::makeDetectionsOutput_;
  using CSRTTrackingAlgo::origPatchGpu_;
  using CSRTTrackingAlgo::predictedBox_;
  using CSRTTrackingAlgo::procRoi_;
  using CSRTTrackingAlgo::redetectAge_;
  using CSRTTrackingAlgo::reDetectGlobally_Locked_;
  using CSRTTrackingAlgo::trackBox_;
  using CSRTTrackingAlgo::tracker_;

  /// init() on the scene's first frame; throws when tracking does not start.
  void start(MovingTarget& scene);
  /// update() on the scene's last frame. @return the box, empty when there is none
  cv::Rect step(const MovingTarget& scene);
  /// Puts a watch on the tracker in use.
  cv::Ptr<WatchedTracker> watch();

 private:
  double frameTime_ = 1.0;  ///< Seconds; what the health monitor reads. Not 0, which means "none" to it.
};

/// A bare CSRT of OpenCV, whatever the plug-in runs, with the plug-in's parameters.
cv::Ptr<cv::tracking::TrackerCSRT> bareTracker(const OpenAlgo& algo);

}  // namespace bench
