// What feeds the tracker and judges its answers: window, construction, score, loss, finding a lost target again.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "box_refinement.h"
#include "csrt_tracking_algo.h"
#include "stability_score.h"
#include "window_geometry.h"

namespace {

constexpr double kRefinedGrowth = 0.01;  // context left around a refined box, box sides
constexpr int kSmallestTemplate = 5;     // matching fewer pixels finds everything everywhere
constexpr int kSmallestAppearance = 7;
constexpr int kCoarseSide = 320;     // the first search never looks at more pixels on the shorter side
constexpr double kSureScale = 0.95;  // such a hit ends the search over sizes ...
constexpr double kSurePatch = 0.97;  // ... and such a one over patches
constexpr char kSuccess[] = "success";
constexpr double kMinAppearance = 0.6;
constexpr double kAppearanceCore = 0.6;  // middle part of a box that shows mostly target, box sides

cv::Rect growBy(const cv::Rect& r, double ratio, const cv::Size& bounds) {
  const int dx = roundToInt(ratio * r.width);
  const int dy = roundToInt(ratio * r.height);
  const int x = std::max(r.x - dx, 0);
  const int y = std::max(r.y - dy, 0);
  return {x, y, std::min(r.width + 2 * dx, bounds.width - x), std::min(r.height + 2 * dy, bounds.height - y)};
}

// The empty rect when there is nothing to centre on.
cv::Rect refineBox(const cv::Mat& crop, const cv::Rect& box) {
  const cv::Point seed(box.x + box.width / 2, box.y + box.height / 2);
  const cv::Rect refined = clipToFrame(
      refineInit_GraphSegNearSeed(crop, box, seed, 2.0, 320, 0.8, 700.0F, 160, 3, 16.0, 0.1, 6.0, 8), crop.size());
  return hasArea(refined) ? growBy(refined, kRefinedGrowth, crop.size()) : cv::Rect();
}

// Size that OpenCV gives a picture resized by a factor.
cv::Size scaledSize(const cv::Size& size, double factor) {
  return {cv::saturate_cast<int>(size.width * factor), cv::saturate_cast<int>(size.height * factor)};
}

bool isSmallerThan(const cv::Size& size, int side) {
  return size.width < side || size.height < side;
}

bool isLargerThan(const cv::Size& size, int side) {
  return size.width > side && size.height > side;
}

// The middle of `r`, or all of it where the middle is too small to compare.
cv::Rect appearanceCore(const cv::Rect& r) {
  const int w = std::max(roundToInt(kAppearanceCore * r.width), 4);
  const int h = std::max(roundToInt(kAppearanceCore * r.height), 4);
  const cv::Rect core = intersectRects({r.x + (r.width - w) / 2, r.y + (r.height - h) / 2, w, h}, r);
  return isLargerThan(core.size(), kSmallestAppearance) ? core : r;
}

double intersectionOverUnion(const cv::Rect& a, const cv::Rect& b) {
  const auto common = static_cast<double>(areaOf(intersectRects(a, b)));
  const double together = static_cast<double>(areaOf(a)) + static_cast<double>(areaOf(b)) - common;
  return areaOf(a) < 1 || together <= 0.0 ? 0.0 : common / together;
}

double distanceBetween(const cv::Point2f& a, const cv::Point2f& b) {
  const cv::Point2f step = a - b;
  return std::sqrt(double{step.x} * step.x + double{step.y} * step.y);
}

}  // namespace

// ---------------------------------------------------------------------------------------------- processing window

cv::Rect CSRTTrackingAlgo::computeProcWindow_Locked_(const cv::Rect& trackBox, const cv::Size& frame) const {
  return desiredWindow({trackBox, velocity_, lastScore_, procRoi_.size(), frame}, config_.roi);
}

cv::Size CSRTTrackingAlgo::computeProcSizeWithHyst_(int desiredW, int desiredH, const cv::Size& frame) const {
  return windowSizeWithHysteresis({desiredW, desiredH}, procRoi_.size(), frame, config_.roi);
}

int CSRTTrackingAlgo::alignToMultiple_(int v, int m) {
  return alignToMultiple(v, m);
}

cv::Rect CSRTTrackingAlgo::guardWindowForCSRT_(const cv::Rect& roi, const cv::Rect& trackBox,
                                               const cv::Size& frame) const {
  return guardWindow(roi, trackBox, frame, config_.csrt.padding);
}

cv::Rect CSRTTrackingAlgo::applyCropSizePolicyAndClamp_(const cv::Rect& roi, const cv::Rect& prevRoi,
                                                        const cv::Size& frame) const {
  return applyCropSizePolicy(roi, prevRoi, frame, config_.roi);
}

cv::Rect CSRTTrackingAlgo::mapFullToSmall_(const cv::Rect& r, int fullW, int fullH, int smallW, int smallH) {
  return mapFullToSmall(r, {fullW, fullH}, {smallW, smallH});
}

cv::Rect CSRTTrackingAlgo::mapSmallToFull_(const cv::Rect& r, int smallW, int smallH, int fullW, int fullH) {
  return mapSmallToFull(r, {smallW, smallH}, {fullW, fullH});
}

// -------------------------------------------------------------------------------------------- tracker and pictures

cv::tracking::TrackerCSRT::Params CSRTTrackingAlgo::makeCSRTParams_() const {
  const CsrtConfig::Csrt& c = config_.csrt;
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

cv::Ptr<cv::tracking::TrackerCSRT> CSRTTrackingAlgo::createTracker_() const {
  const CsrtConfig::Csrt& c = config_.csrt;
  if (!c.use_hog && !c.use_color_names && !c.use_rgb && !c.use_gray) {  // OpenCV would crash in init()
    throw std::runtime_error("CSRT needs at least one of use_hog, use_color_names, use_rgb and use_gray");
  }
  return cv::tracking::TrackerCSRT::create(makeCSRTParams_());
}

bool CSRTTrackingAlgo::initializeTrackerFromFrameLocked_(ocula::OculaPicture& picture, const cv::Rect& box, bool refine,
                                                         const char* reason) {
  const cv::Size frame(picture.width(), picture.height());
  if (frame.width < 1 || frame.height < 1) {
    log_("initializeTrackerFromFrame(%s): invalid src size", reason);
    return false;
  }
  takeFrameSize_Locked_(frame);
  const cv::Rect clipped = clipToFrame(box, frame);
  if (!hasArea(clipped)) {
    log_("initializeTrackerFromFrame(%s): bbox out of image", reason);
    return false;
  }
  if (!tryBuildFullGrey_Locked_(picture)) {
    log_("initializeTrackerFromFrame(%s): empty full BGR", reason);
    return false;
  }

  // Everything below is local until the new tracker has seen its picture: a failure leaves the old track whole.
  cv::Rect patch = insetPatchRect(clipped, frame);
  const cv::Rect window = windowForStart_Locked_(clipped, frame);
  cv::Rect boxInCrop = toCrop(clipped, window.tl());
  cv::Mat crop = picture.cropToMat(window.x, window.y, window.width, window.height);
  if (crop.empty()) {
    log_("initializeTrackerFromFrame(%s): ROI BGR empty", reason);
    return false;
  }
  crop = ensureBGR8Contiguous_(crop);
  if (const cv::Rect refined = refine ? refineBox(crop, boxInCrop) : cv::Rect(); hasArea(refined)) {
    boxInCrop = refined;
    patch = clipToFrame(toFrame(refined, window.tl()), frame);  // without an inset: the box is tight now
  }
  const cv::Ptr<cv::tracking::TrackerCSRT> tracker = createTracker_();
  tracker->init(crop, boxInCrop);

  commitStart_Locked_(tracker, fullGrayGpu_.region(patch).clone(), crop, window, boxInCrop);
  log_("CSRT init(%s): src %dx%d | initTrackBoxFull=(%d,%d,%d,%d) | ROI=(%d,%d,%d,%d) | crop=%dx%d", reason,
       frame.width, frame.height, trackBox_.x, trackBox_.y, trackBox_.width, trackBox_.height, procRoi_.x, procRoi_.y,
       procRoi_.width, procRoi_.height, csrtInputSize_.width, csrtInputSize_.height);
  return true;
}

void CSRTTrackingAlgo::commitStart_Locked_(const cv::Ptr<cv::tracking::TrackerCSRT>& tracker, const GpuImage& patch,
                                           const cv::Mat& crop, const cv::Rect& window, const cv::Rect& boxInCrop) {
  initCrop_ = crop.clone();  // first: it is the one step that can fail
  ++startCount_;
  origPatchGpu_ = patch;
  dynPatchValid_ = false;
  lastScore_ = 1.0;
  tracker_ = tracker;
  trackerReady_ = true;
  csrtInputSize_ = crop.size();
  procRoi_ = window;
  initBoxInCrop_ = boxInCrop;
  trackBox_ = predictedBox_ = toFrame(boxInCrop, window.tl());
  velocity_ = {};
  smoothedBox_ = {};
  smoothedValid_ = false;
  initialized_ = true;
  fullyLost_ = false;
  pending_full_reset_ = pending_rebuild_ = false;
  lostFrames_ = redetectAttempts_ = lostSinceRedetect_ = oscillationCount_ = 0;
  redetectAge_ = -1;
  health_.reset();
}

// The working resolution is the frame's from here on.
void CSRTTrackingAlgo::takeFrameSize_Locked_(const cv::Size& frame) {
  frameSize_ = frame;
  config_.input.work_width = frame.width;
  config_.input.work_height = frame.height;
}

bool CSRTTrackingAlgo::tryBuildFullGrey_Locked_(ocula::OculaPicture& picture) {
  buildFullYFromVP_Locked_(picture, fullGrayGpu_);
  if (fullGrayGpu_.empty()) buildFullYFromVP_Locked_(picture, fullGrayGpu_);  // a lazy host may have the pixels now
  return !fullGrayGpu_.empty();
}

// The three steps of every frame's window, for a box that is sure; the speed is still the old target's.
cv::Rect CSRTTrackingAlgo::windowForStart_Locked_(const cv::Rect& box, const cv::Size& frame) const {
  const cv::Rect wished = desiredWindow({box, velocity_, 1.0, procRoi_.size(), frame}, config_.roi);
  return applyCropSizePolicyAndClamp_(guardWindowForCSRT_(wished, box, frame), procRoi_, frame);
}

void CSRTTrackingAlgo::rebuildTrackerKeepingState_Locked_(const char* reason) {
  if (!initialized_ || initCrop_.empty() || !hasArea(initBoxInCrop_)) {
    log_("rebuildTrackerKeepingState(%s): no state => skip", reason);
    return;
  }
  log_("rebuildTrackerKeepingState(%s): recreating CSRT", reason);
  publishTracker_Locked_(initCrop_, initBoxInCrop_);
  predictedBox_ = trackBox_;
  velocity_ = {};
}

void CSRTTrackingAlgo::publishTracker_Locked_(const cv::Mat& crop, const cv::Rect& boxInCrop) {
  tracker_.reset();
  trackerReady_ = false;
  const cv::Ptr<cv::tracking::TrackerCSRT> tracker = createTracker_();
  tracker->init(crop, boxInCrop);
  tracker_ = tracker;
  trackerReady_ = true;
}

cv::Mat CSRTTrackingAlgo::ensureBGR8_(const cv::Mat& src) {
  cv::Mat memory;
  return ensureBGR8_(src, memory);
}

cv::Mat CSRTTrackingAlgo::ensureBGR8_(const cv::Mat& src, cv::Mat& memory) {
  switch (src.type()) {
    case CV_8UC3:
      return src;
    case CV_8UC1:
      cv::cvtColor(src, memory, cv::COLOR_GRAY2BGR);
      return memory;
    case CV_8UC4:
      cv::cvtColor(src, memory, cv::COLOR_BGRA2BGR);
      return memory;
    default:
      throw std::runtime_error("ensureBGR8: unsupported " + cvTypeToStr(src.type()));
  }
}

cv::Mat CSRTTrackingAlgo::ensureBGR8Contiguous_(const cv::Mat& src) {
  cv::Mat memory;
  return ensureBGR8Contiguous_(src, memory);
}

cv::Mat CSRTTrackingAlgo::ensureBGR8Contiguous_(const cv::Mat& src, cv::Mat& memory) {
  cv::Mat bgr = ensureBGR8_(src, memory);
  if (bgr.isContinuous()) return bgr;
  bgr.copyTo(memory);
  return memory;
}

void CSRTTrackingAlgo::buildFullYFromVP_Locked_(ocula::OculaPicture& picture, GpuImage& out) {
  const cv::Mat bgr = picture.getBGR();
  if (bgr.empty()) {
    out.release();
  } else {
    out.uploadGrey(ensureBGR8_(bgr));
  }
}

// ------------------------------------------------------------------------------------------ judging and reporting

double CSRTTrackingAlgo::computeStabilityScore_(const cv::Rect& prevBox, const cv::Rect& newBox,
                                                const cv::Size& frame) const {
  return stabilityScore(prevBox, newBox, frame, config_.stability);
}

cv::Rect CSRTTrackingAlgo::applyOutputSmoothing_(const cv::Rect& box) {
  const double alpha = config_.predict.bbox_smooth_alpha;
  const bool startsAnew = !config_.predict.bbox_smooth_enable || !smoothedValid_ || !hasArea(smoothedBox_);
  if (!hasArea(box) || startsAnew || alpha >= 1.0) {
    smoothedBox_ = box;
    smoothedValid_ = hasArea(box);
  } else if (alpha > 0.0) {
    const auto blend = [alpha](int now, int before) { return roundToInt(alpha * now + (1.0 - alpha) * before); };
    smoothedBox_ = {blend(box.x, smoothedBox_.x), blend(box.y, smoothedBox_.y), blend(box.width, smoothedBox_.width),
                    blend(box.height, smoothedBox_.height)};
  }
  return smoothedBox_;
}

// --------------------------------------------------------------------------------------------------------- loss

void CSRTTrackingAlgo::lostFrame_Locked_() {
  ++lostFrames_;
  ++lostSinceRedetect_;
}

void CSRTTrackingAlgo::onRedetectFail_Locked_() {
  ++redetectAttempts_;
  if (redetectAttempts_ >= config_.redetect.max_redetect_attempts) return forceFullyLost_Locked_();
  log_("reDetect FAILED => attempt %d / %d", redetectAttempts_, config_.redetect.max_redetect_attempts);
}

// Ends in the plain "not initialised" state: the reset clears `fullyLost_` again.
void CSRTTrackingAlgo::forceFullyLost_Locked_() {
  log_("Object declared fully lost => reset.");
  fullyLost_ = true;
  resetInternal_Locked_();
}

// `csrtInputSize_`, the pending requests, the configuration and the identity survive.
void CSRTTrackingAlgo::resetInternal_Locked_() {
  tracker_.reset();
  trackerReady_ = false;
  clearPrepositionAndZoom_Locked_();
  initialized_ = fullyLost_ = false;
  oscillationCount_ = 0;
  lostFrames_ = redetectAttempts_ = lostSinceRedetect_ = 0;
  redetectAge_ = -1;
  trackBox_ = {};
  initCrop_.release();
  predictedBox_ = {};
  velocity_ = {};
  lastScore_ = 1.0;
  procRoi_ = initBoxInCrop_ = {};
  fullGrayGpu_.release();
  origPatchGpu_.release();
  dynPatchGpu_.release();
  frameSize_ = {};
  dynPatchValid_ = false;
  smoothedBox_ = {};
  smoothedValid_ = false;
  health_.reset();
}

void CSRTTrackingAlgo::fillPredictedResult_Locked_(DetectionResult& result, ocula::OculaPicture& picture, int frameW,
                                                   int frameH) {
  if (!initialized_) return;
  const cv::Point2f step = velocity_;
  velocity_ = step * static_cast<float>(config_.predict.damping);  // this frame still moves undamped
  predictedBox_ = shiftRect(predictedBox_, roundToInt(step.x), roundToInt(step.y));
  predictedBox_ = clipToFrame(predictedBox_, {frameW, frameH});  // a box that drifts out shrinks and is dropped
  if (!hasArea(predictedBox_)) return;

  const cv::Size pictureSize(picture.width(), picture.height());
  const cv::Rect full = mapSmallToFull(predictedBox_, {frameW, frameH}, pictureSize);
  if (hasArea(full)) appendBox_Locked_(result, full, pictureSize);
}

// -------------------------------------------------------------------------------------------------- re-detection

/// A picture of the target and the sizes it is tried at.
struct CSRTTrackingAlgo::RedetectPatch {
  const GpuImage* image;
  const std::vector<double>* scales;
  const char* source;
};

/// What one search of the whole frame has found so far.
struct CSRTTrackingAlgo::RedetectRun {
  std::vector<RedetectPatch> patches;
  cv::Size frame;
  cv::Rect reference;    ///< Where the target was last believed to be.
  double maxDist = 0.0;  ///< Farthest from there that a find is plausible, pixels.
  double factor = 1.0;   ///< Shrink factor of the coarse search.

  double coarseScore = -1.0;
  const RedetectPatch* best = nullptr;
  cv::Point bestPlace;    ///< Coarse pixels.
  cv::Size bestTemplate;  ///< Coarse pixels.
  double fineScore = -1.0;
  cv::Rect fineBox;  ///< Frame pixels.

  int smallPatches = 0;
  int scalesTested = 0;
  int scalesSkippedSize = 0;
  int matchCalls = 0;
  std::int64_t start = cv::getTickCount();
  std::int64_t coarseDone = start;
  std::int64_t searchStart = start;
  std::int64_t searchEnd = start;
  std::int64_t fineEnd = start;
};

void CSRTTrackingAlgo::findBestInROI_GPU_Locked_(double cx, double cy, double objW, double objH, const GpuImage& templ,
                                                 const GpuImage& image, double& score, cv::Rect& out) {
  score = -1.0;
  out = {};
  if (templ.empty() || image.empty()) return;
  const cv::Size object(std::max(roundToInt(objW), templ.cols()), std::max(roundToInt(objH), templ.rows()));
  const int fine = config_.redetect.fine_roi_size;
  const cv::Rect search = clipToFrame(fineSearchRect({cx, cy}, object, fine), image.size());
  if (!hasArea(search)) return;
  if (search.width < templ.cols() || search.height < templ.rows()) {
    log_("findBestInROI: search ROI too small for template search=(%d,%d,%d,%d) templ=%dx%d obj=%dx%d fine=%d",
         search.x, search.y, search.width, search.height, templ.cols(), templ.rows(), object.width, object.height,
         fine);
    return;
  }
  gpuMatchTemplate(image.region(search), templ, buffers_.scores, cv::TM_CCOEFF_NORMED);
  const BestMatch best = bestMatch(buffers_.scores, buffers_.scoreMap);
  score = best.score;
  out = {search.x + best.place.x, search.y + best.place.y, templ.cols(), templ.rows()};
}

void CSRTTrackingAlgo::reDetectGlobally_Locked_(ocula::OculaPicture& picture, int frameW, int frameH) {
  RedetectRun run;
  if (!initialized_ || fullGrayGpu_.empty()) return forceFullyLost_Locked_();
  run.frame = {frameW, frameH};
  collectPatches_Locked_(run);
  if (run.patches.empty()) return onRedetectFail_Locked_();
  takeReference_Locked_(run);
  if (!tryShrinkFrame_Locked_(run)) return onRedetectFail_Locked_();

  searchCoarse_Locked_(run);
  if (run.best == nullptr) return finishRedetect_Locked_(run, "noCandidate", -1.0);
  searchFine_Locked_(run);
  if (!hasArea(run.fineBox)) return finishRedetect_Locked_(run, "fineRoi_empty", run.fineScore);
  const char* outcome = validate_Locked_(run);
  if (outcome == nullptr) outcome = reinitialise_Locked_(run, picture);
  finishRedetect_Locked_(run, outcome, run.fineScore);
}

void CSRTTrackingAlgo::collectPatches_Locked_(RedetectRun& run) const {
  if (!origPatchGpu_.empty()) run.patches.push_back({&origPatchGpu_, &config_.redetect.scale_list, "orig"});
  if (dynPatchValid_ && !dynPatchGpu_.empty()) run.patches.push_back({&dynPatchGpu_, &dynScaleList_, "dyn"});
}

void CSRTTrackingAlgo::takeReference_Locked_(RedetectRun& run) const {
  run.reference = areaOf(predictedBox_) >= 1 ? predictedBox_ : trackBox_;
  if (!hasArea(run.reference)) return;
  const auto w = static_cast<double>(run.reference.width);
  const auto h = static_cast<double>(run.reference.height);
  run.maxDist = std::max(3.0 * std::sqrt(w * w + h * h), 80.0);
}

bool CSRTTrackingAlgo::tryShrinkFrame_Locked_(RedetectRun& run) {
  const cv::Size full = fullGrayGpu_.size();
  const int shorter = std::min(full.width, full.height);
  if (shorter < 1) return false;
  run.factor = config_.redetect.coarse_factor;
  if (shorter > kCoarseSide) run.factor = std::min(run.factor, static_cast<double>(kCoarseSide) / shorter);
  if (!(run.factor > 0.0)) run.factor = 1.0;
  if (isSmallerThan(scaledSize(full, run.factor), kSmallestTemplate)) return false;
  if (run.factor != 1.0) {
    resizeImage(fullGrayGpu_, buffers_.coarse, {}, run.factor, run.factor, cv::INTER_AREA);
  }
  run.coarseDone = run.searchStart = cv::getTickCount();
  return true;
}

void CSRTTrackingAlgo::searchCoarse_Locked_(RedetectRun& run) {
  for (const RedetectPatch& patch : run.patches) {
    matchAtScales_Locked_(run, patch);
    if (run.coarseScore > kSurePatch) break;
  }
  run.searchEnd = cv::getTickCount();
}

void CSRTTrackingAlgo::matchAtScales_Locked_(RedetectRun& run, const RedetectPatch& patch) {
  const bool tooSmall = isSmallerThan(patch.image->size(), kSmallestTemplate) ||
                        isSmallerThan(scaledSize(patch.image->size(), run.factor), kSmallestTemplate);
  if (tooSmall) {
    ++run.smallPatches;
    return;
  }
  if (run.factor != 1.0) resizeImage(*patch.image, buffers_.patch, {}, run.factor, run.factor, cv::INTER_LINEAR);
  const GpuImage& coarse = run.factor != 1.0 ? buffers_.coarse : fullGrayGpu_;
  const GpuImage& shrunken = run.factor != 1.0 ? buffers_.patch : *patch.image;
  for (const double scale : *patch.scales) {
    ++run.scalesTested;
    const cv::Size size(std::max(roundToInt(shrunken.cols() * scale), kSmallestTemplate),
                        std::max(roundToInt(shrunken.rows() * scale), kSmallestTemplate));
    if (size.width > coarse.cols() || size.height > coarse.rows()) {
      ++run.scalesSkippedSize;
      continue;
    }
    if (size != shrunken.size()) resizeImage(shrunken, buffers_.templ, size, 0.0, 0.0, cv::INTER_LINEAR);
    const GpuImage& templ = size != shrunken.size() ? buffers_.templ : shrunken;
    if (matchBeatsBest_Locked_(run, patch, coarse, templ) && run.coarseScore > kSureScale) break;
  }
}

bool CSRTTrackingAlgo::matchBeatsBest_Locked_(RedetectRun& run, const RedetectPatch& patch, const GpuImage& coarse,
                                              const GpuImage& templ) {
  ++run.matchCalls;
  gpuMatchTemplate(coarse, templ, buffers_.scores, cv::TM_CCOEFF_NORMED);
  const BestMatch match = bestMatch(buffers_.scores, buffers_.scoreMap);
  if (!(match.score > run.coarseScore)) return false;  // equal: the earlier hit stays
  run.coarseScore = match.score;
  run.best = &patch;
  run.bestPlace = match.place;
  run.bestTemplate = templ.size();
  return true;
}

// Centred on the coarse hit's corner, not its middle: the search region's smallest side covers the difference.
void CSRTTrackingAlgo::searchFine_Locked_(RedetectRun& run) {
  const double back = 1.0 / run.factor;
  findBestInROI_GPU_Locked_(run.bestPlace.x * back, run.bestPlace.y * back, run.bestTemplate.width * back,
                            run.bestTemplate.height * back, *run.best->image, fullGrayGpu_, run.fineScore, run.fineBox);
  run.fineEnd = cv::getTickCount();
  log_("reDetectGlobally: coarse=%.3f, fine=%.3f ROI=(%d,%d,%d,%d) src=%s scale=%.3f", run.coarseScore, run.fineScore,
       run.fineBox.x, run.fineBox.y, run.fineBox.width, run.fineBox.height, run.best->source, run.factor);
}

// nullptr for a find that can be trusted, else the outcome that it fails with.
const char* CSRTTrackingAlgo::validate_Locked_(const RedetectRun& run) const {
  const double threshold = config_.redetect.re_detect_threshold;
  const bool hasReference = hasArea(run.reference);
  double dist = 0.0;
  double areaRatio = 1.0;
  bool scaleOK = true;
  bool near = false;
  if (hasReference) {
    dist = distanceBetween(centreOf(run.fineBox), centreOf(run.reference));
    areaRatio = static_cast<double>(areaOf(run.fineBox)) / static_cast<double>(areaOf(run.reference));
    scaleOK = config_.stability.min_scale_ratio <= areaRatio && areaRatio <= config_.stability.max_scale_ratio &&
              !(dist > run.maxDist);  // the distance is part of the same test, on purpose
    near = dist < 0.25 * run.maxDist;
  }
  const double simOrig = computeOrigAppearanceAt_(run.fineBox);
  const double iou = intersectionOverUnion(run.reference, run.fineBox);
  const bool geomStrong = hasReference && iou >= 0.7 && dist <= 0.3 * run.maxDist;
  log_(
      "reDetectGlobally (validate): fine=%.3f dist=%.1f maxDist=%.1f areaRatio=%.2f scaleOK=%d near=%d simOrig=%.3f "
      "(min=%.3f) IoU=%.2f geomStrong=%d",
      run.fineScore, dist, run.maxDist, areaRatio, scaleOK ? 1 : 0, near ? 1 : 0, simOrig, kMinAppearance, iou,
      geomStrong ? 1 : 0);
  if (!geomStrong && !(simOrig >= kMinAppearance)) return "appearance_fail";

  const double tNear = 0.7 * threshold;
  const bool accept = scaleOK && (run.fineScore > threshold || (hasReference && near && run.fineScore > tNear));
  log_(
      "reDetectGlobally (validate): fine=%.3f dist=%.1f maxDist=%.1f areaRatio=%.2f scaleOK=%d near=%d tNear=%.3f "
      "accept=%d",
      run.fineScore, dist, run.maxDist, areaRatio, scaleOK ? 1 : 0, near ? 1 : 0, tNear, accept ? 1 : 0);
  return accept ? nullptr : "reject";
}

const char* CSRTTrackingAlgo::reinitialise_Locked_(const RedetectRun& run, ocula::OculaPicture& picture) {
  tracker_.reset();
  trackerReady_ = false;
  redetectAttempts_ = 0;
  tracker_ = createTracker_();  // stays, unready, when there is nothing to start it on
  const cv::Rect window = computeProcWindow_Locked_(run.fineBox, run.frame);
  cv::Mat crop = picture.cropToMat(window.x, window.y, window.width, window.height);
  if (crop.empty()) return "roiBgr_empty";
  crop = ensureBGR8Contiguous_(crop);
  const cv::Rect local = clipToFrame(toCrop(run.fineBox, window.tl()), crop.size());
  if (!hasArea(local)) return "local_empty";
  tracker_->init(crop, local);
  trackerReady_ = true;

  initCrop_ = crop.clone();
  procRoi_ = window;
  trackBox_ = predictedBox_ = run.fineBox;
  initBoxInCrop_ = local;
  csrtInputSize_ = crop.size();
  initialized_ = true;
  fullyLost_ = false;
  lostFrames_ = 0;
  redetectAge_ = 0;  // from here on a loss counts as swinging
  velocity_ = {};
  lastScore_ = 1.0;
  return kSuccess;
}

void CSRTTrackingAlgo::finishRedetect_Locked_(const RedetectRun& run, const char* outcome, double value) {
  const double perMs = 1000.0 / cv::getTickFrequency();
  const auto ms = [perMs](std::int64_t ticks) { return static_cast<double>(ticks) * perMs; };
  const double total = ms(cv::getTickCount() - run.start);
  const double coarse = ms(run.coarseDone - run.start);
  const double search = ms(run.searchEnd - run.searchStart);
  const double fine = ms(run.fineEnd - run.searchEnd);  // negative when there was nothing to search finely
  log_(
      "reDetectGlobally[timing-%s]: total=%.3f ms | coarse=%.3f | search=%.3f | fine=%.3f | validate+reinit=%.3f | "
      "patches=%zu smallPatches=%d scalesTested=%d scalesSkippedSize=%d matchCalls=%d fineVal=%.3f",
      outcome, total, coarse, search, fine, std::max(total - coarse - search - fine, 0.0), run.patches.size(),
      run.smallPatches, run.scalesTested, run.scalesSkippedSize, run.matchCalls, value);
  if (outcome != kSuccess) onRedetectFail_Locked_();
}

double CSRTTrackingAlgo::computeOrigAppearanceAt_(const cv::Rect& box) const {
  if (origPatchGpu_.empty() || fullGrayGpu_.empty()) return 0.0;
  const cv::Rect r = clipToFrame(box, fullGrayGpu_.size());
  if (!isLargerThan(r.size(), kSmallestAppearance)) return 0.0;
  const cv::Mat candidate = fullGrayGpu_.region(appearanceCore(r)).download();
  cv::Mat patch = origPatchGpu_.region(appearanceCore({{}, origPatchGpu_.size()})).download();
  if (patch.size() != candidate.size()) cv::resize(patch, patch, candidate.size(), 0.0, 0.0, cv::INTER_LINEAR);
  cv::Mat similarity;
  cv::matchTemplate(candidate, patch, similarity, cv::TM_CCOEFF_NORMED);
  double best = 0.0;
  cv::minMaxLoc(similarity, nullptr, &best);
  return best;
}
