// The engine's tracker: OpenCV's interface, the engine's stages.
#pragma once

#include <opencv2/tracking.hpp>
#include <string>

#include "color_model.h"
#include "correlation_filter.h"
#include "feature_channels.h"
#include "patch.h"
#include "scale_search.h"

namespace csrt_engine {

/// See csrt_engine.h, create().
class EngineTracker final : public cv::tracking::TrackerCSRT {
 public:
  using Params = cv::tracking::TrackerCSRT::Params;
  EngineTracker(const Params& params, const Kernels& kernels) : params_(params), kernels_(kernels) {}

  void init(cv::InputArray image, const cv::Rect& boundingBox) override;
  bool update(cv::InputArray image, cv::Rect& boundingBox) override;
  void setInitialMask(cv::InputArray mask) override;

  /// The state, for checks: where the target is (pixels) and how large, relative to the box at init().
  cv::Point2f center() const { return center_; }
  float scale() const { return scale_; }
  /// The last answer before its coordinates are rounded to whole pixels; empty while OpenCV's tracker does the work.
  cv::Rect2f unrounded() const { return who_ == Who::Engine ? box_ : cv::Rect2f(); }

 private:
  enum class Who { Nobody, Engine, OpenCv };

  static bool ownInput(const cv::Mat& image, const cv::Rect& box);
  bool ownSizes() const;
  void initOpenCv(cv::InputArray image, const cv::Rect& box);
  void chooseSizes(const cv::Rect& box);
  void makeDefaultMask();
  cv::Mat makeWindow() const;
  cv::Mat firstMask(const cv::Mat& image);
  cv::Mat nextMask(const cv::Mat& image);
  cv::Mat usableMask(const cv::Mat& segmented);
  const float* featuresAt(const cv::Mat& image);
  cv::Point2f estimatePosition(const cv::Mat& image);
  ColorModel::Window colorWindow() const;

  Params params_;
  const Kernels& kernels_;
  Who who_ = Who::Nobody;
  cv::Ptr<cv::tracking::TrackerCSRT> openCv_;

  float scale_ = 1;
  cv::Rect2f box_;
  cv::Size2f targetSize_, templateSize_;
  cv::Size imageSize_, patchSize_, cells_;
  float shrink_ = 1;  // template pixels per picture pixel at scale 1
  cv::Point2f center_;
  int cellSize_ = 4;
  cv::Mat presetMask_, defaultMask_, segmented_, mask_;
  double defaultMaskArea_ = 0;

  PatchMaker patch_;
  FeatureMaker features_;
  CorrelationFilter filter_;
  ColorModel colors_;
  ScaleSearch scales_;
};

}  // namespace csrt_engine
