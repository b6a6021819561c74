#include "tracker.h"

#include <algorithm>
#include <cmath>

#include "windows.h"

namespace csrt_engine {
namespace {

// Beyond these a box is handed to OpenCV's tracker, which knows best how it fails.
constexpr int kLargestSide = 1 << 14;
constexpr int kSmallestCells = 2;

/// Settings that make OpenCV's tracker read where nothing is.
void refuseUnusable(const EngineTracker::Params& p) {
  if (!p.use_hog && !p.use_color_names && !p.use_gray && !p.use_rgb)
    CV_Error(cv::Error::StsBadArg, "no feature is switched on");
  if (p.use_hog && (p.num_hog_channels_used < 0 || p.num_hog_channels_used > kHogChannels))
    CV_Error(cv::Error::StsOutOfRange, "num_hog_channels_used must lie between 0 and 32");
  if (p.use_hog && p.num_hog_channels_used == 0 && !p.use_color_names && !p.use_gray && !p.use_rgb)
    CV_Error(cv::Error::StsBadArg, "no feature is switched on");
  if (p.use_segmentation && p.histogram_bins < 1)
    CV_Error(cv::Error::StsOutOfRange, "histogram_bins must be at least 1");
  if (p.use_segmentation && p.background_ratio == 0)
    CV_Error(cv::Error::StsOutOfRange, "background_ratio must not be 0");
}

float area(const cv::Size2f& size) {
  return size.width * size.height;
}

int wrapped(int i, int n) {
  return (i % n + n) % n;
}

/// How far the peak of a parabola through three neighbours lies from the middle one.
float parabolaPeak(float before, float middle, float after) {
  const float delta = 0.5f * (after - before) / (2 * middle - after - before);
  return std::isfinite(delta) ? delta : 0;
}

/// Grows the mask by the four neighbours of each element.
void grow(const cv::Mat& in, cv::Mat& out) {
  out.create(in.size(), CV_32FC1);
  for (int y = 0; y < in.rows; ++y) {
    const float *row = in.ptr<float>(y), *above = in.ptr<float>(std::max(y - 1, 0));
    const float* below = in.ptr<float>(std::min(y + 1, in.rows - 1));
    float* to = out.ptr<float>(y);
    for (int x = 0; x < in.cols; ++x)
      to[x] = std::max({row[x], above[x], below[x], row[std::max(x - 1, 0)], row[std::min(x + 1, in.cols - 1)]});
  }
}

}  // namespace

void EngineTracker::setInitialMask(cv::InputArray mask) {
  presetMask_ = mask.getMat();
}

bool EngineTracker::ownInput(const cv::Mat& image, const cv::Rect& box) {
  if (image.empty() || (image.type() != CV_8UC1 && image.type() != CV_8UC3)) return false;
  if (box.width < 1 || box.height < 1 || box.width > kLargestSide || box.height > kLargestSide) return false;
  return std::abs(static_cast<long long>(box.x)) <= kLargestSide &&
         std::abs(static_cast<long long>(box.y)) <= kLargestSide;
}

bool EngineTracker::ownSizes() const {
  if (!(std::max(templateSize_.width, templateSize_.height) <= kLargestSide)) return false;
  if (std::min(cells_.width, cells_.height) < kSmallestCells) return false;
  const cv::Size model = ScaleSearch::modelSize(templateSize_, params_.scale_model_max_area);
  return std::min(model.width, model.height) >= 2 * ScaleCells::kCell;
}

void EngineTracker::initOpenCv(cv::InputArray image, const cv::Rect& box) {
  openCv_ = cv::tracking::TrackerCSRT::create(params_);
  if (!presetMask_.empty()) openCv_->setInitialMask(presetMask_);
  openCv_->init(image, box);
  who_ = Who::OpenCv;
}

void EngineTracker::chooseSizes(const cv::Rect& box) {
  scale_ = 1.0f;
  box_ = box;
  cellSize_ = cvFloor(std::min(4.0, std::max(1.0, static_cast<double>(cvCeil((box_.width * box_.height) / 400.0)))));
  targetSize_ = cv::Size(box_.size());
  const float margin = params_.padding * std::sqrt(area(targetSize_));
  const float width = static_cast<float>(cvFloor(targetSize_.width + margin));
  const float height = static_cast<float>(cvFloor(targetSize_.height + margin));
  templateSize_.width = templateSize_.height = (width + height) / 2.0f;
  shrink_ = std::min(std::sqrt((params_.template_size * params_.template_size) / area(templateSize_)), 1.0f);
  patchSize_ = {cvFloor(templateSize_.width * shrink_), cvFloor(templateSize_.height * shrink_)};
  cells_ = {patchSize_.width / cellSize_, patchSize_.height / cellSize_};
  center_ = cv::Point2f(static_cast<float>(box.x) + targetSize_.width / 2.0f,
                        static_cast<float>(box.y) + targetSize_.height / 2.0f);
}

cv::Mat EngineTracker::makeWindow() const {
  if (params_.window_function == "hann") return hannWindow(cells_);
  if (params_.window_function == "cheb") return chebyshevWindow(cells_, params_.cheb_attenuation);
  if (params_.window_function == "kaiser") return kaiserWindow(cells_, params_.kaiser_alpha);
  CV_Error(cv::Error::StsBadArg, "Not a valid window function");
}

/// The target's own rectangle, where no better mask is known.
void EngineTracker::makeDefaultMask() {
  const cv::Size size(cvFloor(targetSize_.width * shrink_ / static_cast<float>(cellSize_)),
                      cvFloor(targetSize_.height * shrink_ / static_cast<float>(cellSize_)));
  const int x = std::max((cells_.width - size.width) / 2 - 1, 0),
            y = std::max((cells_.height - size.height) / 2 - 1, 0);
  defaultMask_ = cv::Mat::zeros(cells_, CV_32FC1);
  defaultMask_(cv::Rect(x, y, size.width, size.height)) = 1.0f;
  defaultMaskArea_ = static_cast<float>(cv::sum(defaultMask_)[0]);
}

ColorModel::Window EngineTracker::colorWindow() const {
  return {center_, cvFloor(scale_ * templateSize_.width), cvFloor(scale_ * templateSize_.height),
          cv::Size2f(targetSize_.width * scale_, targetSize_.height * scale_)};
}

/// The segmented mask grown by one element, or the default one when next to nothing was segmented.
cv::Mat EngineTracker::usableMask(const cv::Mat& segmented) {
  constexpr double kLeastShare = 0.05;
  if (cv::sum(segmented)[0] < kLeastShare * defaultMaskArea_) return defaultMask_;
  grow(segmented, mask_);
  return mask_;
}

cv::Mat EngineTracker::firstMask(const cv::Mat& image) {
  if (!params_.use_segmentation) return defaultMask_;
  colors_.init(kernels_, image, box_, params_);
  const ColorModel::Window window = colorWindow();
  if (!presetMask_.data) {
    colors_.segment(image, window, cells_, segmented_);
    return usableMask(segmented_);
  }
  cv::Mat full, preset = cv::Mat::zeros(window.height, window.width, CV_32FC1);
  colors_.segment(image, window, preset.size(), full);
  const auto start = [](int whole, int part) { return std::max(cvFloor((whole - part) / 2.0) - 1, 0); };
  const int x = start(preset.cols, presetMask_.cols), y = start(preset.rows, presetMask_.rows);
  presetMask_.copyTo(preset(cv::Rect(x, y, presetMask_.cols, presetMask_.rows)));  // only a mask of floats arrives
  cv::resize(full.mul(preset), segmented_, cells_, 0, 0, cv::INTER_NEAREST);
  return usableMask(segmented_);
}

cv::Mat EngineTracker::nextMask(const cv::Mat& image) {
  if (!params_.use_segmentation) return defaultMask_;
  colors_.learn(kernels_, image, box_);
  colors_.segment(image, colorWindow(), cells_, segmented_);
  return usableMask(segmented_);
}

const float* EngineTracker::featuresAt(const cv::Mat& image) {
  const Subwindow window =
      subwindowAround(image, center_, cvFloor(scale_ * templateSize_.width), cvFloor(scale_ * templateSize_.height));
  return features_.compute(kernels_, patch_.make(kernels_, window, patchSize_));
}

void EngineTracker::init(cv::InputArray input, const cv::Rect& boundingBox) {
  who_ = Who::Nobody;
  refuseUnusable(params_);
  const cv::Mat image = input.getMat();
  if (!ownInput(image, boundingBox)) return initOpenCv(input, boundingBox);
  chooseSizes(boundingBox);
  if (!ownSizes()) return initOpenCv(input, boundingBox);

  imageSize_ = image.size();
  const cv::Mat labels = gaussianLabels(params_.gsl_sigma, cells_);
  const cv::Mat window = makeWindow();
  makeDefaultMask();
  const bool columnsFirst = targetSize_.height > targetSize_.width;  // the mask's narrow side costs most
  features_.setup(params_, patchSize_, cellSize_, window, columnsFirst);
  CorrelationFilter::Settings settings;
  settings.channels = features_.channels();
  settings.iterations = params_.admm_iterations;
  settings.weighted = params_.use_channel_weights;
  settings.filterRate = params_.filter_lr;
  settings.weightRate = params_.weights_lr;
  settings.columnsFirst = columnsFirst;
  filter_.setup(kernels_, labels, settings);
  const cv::Mat mask = firstMask(image);
  filter_.learnFirst(featuresAt(image), mask);
  scales_.init(kernels_, image, box_, templateSize_, params_);
  who_ = Who::Engine;
}

cv::Point2f EngineTracker::estimatePosition(const cv::Mat& image) {
  const cv::Mat& answer = filter_.respond(featuresAt(image));
  double most;
  cv::Point peak;
  cv::minMaxLoc(answer, nullptr, &most, nullptr, &peak);
  if (most < params_.psr_threshold) return {-1, -1};
  const auto value = [&](int x, int y) { return answer.at<float>(wrapped(y, answer.rows), wrapped(x, answer.cols)); };
  const float middle = value(peak.x, peak.y);
  float column =
      static_cast<float>(peak.x) + parabolaPeak(value(peak.x - 1, peak.y), middle, value(peak.x + 1, peak.y));
  float row = static_cast<float>(peak.y) + parabolaPeak(value(peak.x, peak.y - 1), middle, value(peak.x, peak.y + 1));
  const auto columns = static_cast<float>(answer.cols), rows = static_cast<float>(answer.rows);
  if (row + 1 > rows / 2.0f) row = row - rows;
  if (column + 1 > columns / 2.0f) column = column - columns;
  const float step = scale_ * (1.0f / shrink_) * static_cast<float>(cellSize_);
  cv::Point2f center = center_ + cv::Point2f(step * column, step * row);
  const auto width = static_cast<float>(imageSize_.width), height = static_cast<float>(imageSize_.height);
  if (center.x < 0) center.x = 0;
  if (center.x >= width) center.x = static_cast<float>(imageSize_.width - 1);
  if (center.y < 0) center.y = 0;
  if (center.y >= height) center.y = static_cast<float>(imageSize_.height - 1);
  return center;
}

bool EngineTracker::update(cv::InputArray input, cv::Rect& boundingBox) {
  if (who_ == Who::OpenCv) return openCv_->update(input, boundingBox);
  if (who_ == Who::Nobody) CV_Error(cv::Error::StsError, "update() before a successful init()");
  const cv::Mat image = input.getMat();
  if (image.empty()) CV_Error(cv::Error::StsAssert, "the picture is empty");
  if (image.type() != CV_8UC1 && image.type() != CV_8UC3)
    CV_Error(cv::Error::StsUnsupportedFormat, "the picture must have 8 bit and one or three channels");

  center_ = estimatePosition(image);
  if (center_.x < 0 && center_.y < 0) return false;

  scales_.newPicture();
  scale_ = scales_.estimate(kernels_, image, center_);
  box_.x = center_.x - scale_ * targetSize_.width / 2.0f;
  box_.y = center_.y - scale_ * targetSize_.height / 2.0f;
  box_.width = scale_ * targetSize_.width;
  box_.height = scale_ * targetSize_.height;

  const cv::Mat mask = nextMask(image);
  filter_.learn(featuresAt(image), mask);
  scales_.learn(kernels_, image, center_);
  boundingBox = box_;
  return true;
}

}  // namespace csrt_engine
