// What feeds the tracker and judges its answers: window, construction, score, loss, finding a lost target again.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "box_refinement.h"
#include "csrt_params.h"
#include "csrt_tracking_algo.h"
#include "frame_search.h"
#include "stability_score.h"
#include "tracker_engine.h"
#include "window_geometry.h"

namespace {

constexpr double kRefinedGrowth = 0.01;  // context left around a refined box, box sides
constexpr char kSuccess[] = "success";

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
  return csrtParams(config_);
}

cv::Ptr<cv::tracking::TrackerCSRT> CSRTTrackingAlgo::createTracker_() const {
  requireFeature(config_);
  return createTracker(makeCSRTParams_());
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

void CSRTTrackingAlgo::findBestInROI_GPU_Locked_(double cx, double cy, double objW, double objH, const GpuImage& templ,
                                                 const GpuImage& image, double& score, cv::Rect& out) {
  const NearMatch match =
      findNear(image, templ, {cx, cy}, {objW, objH}, config_.redetect.fine_roi_size, buffers_.search);
  logTooSmall_Locked_(match, templ.size());
  score = match.score;
  out = match.box;
}

void CSRTTrackingAlgo::logTooSmall_Locked_(const NearMatch& match, const cv::Size& templ) const {
  if (!match.tooSmall) return;
  const cv::Rect& r = match.region;
  log_("findBestInROI: search ROI too small for template search=(%d,%d,%d,%d) templ=%dx%d obj=%dx%d fine=%d", r.x, r.y,
       r.width, r.height, templ.width, templ.height, match.object.width, match.object.height,
       config_.redetect.fine_roi_size);
}

void CSRTTrackingAlgo::reDetectGlobally_Locked_(ocula::OculaPicture& picture, int frameW, int frameH) {
  if (!initialized_ || fullGrayGpu_.empty()) return forceFullyLost_Locked_();
  const std::vector<SearchPatch> patches = searchPatches_Locked_();
  if (patches.empty()) return onRedetectFail_Locked_();
  FrameSearch search(fullGrayGpu_, patches, searchLimits_Locked_(), buffers_.search);
  if (!search.tryShrinkFrame()) return onRedetectFail_Locked_();

  if (!search.searchCoarse()) return finishRedetect_Locked_(search, patches.size(), "noCandidate", -1.0);
  const NearMatch find = searchFine_Locked_(search);
  const char* outcome = hasArea(find.box) ? validate_Locked_(find) : "fineRoi_empty";
  if (outcome == nullptr) outcome = reinitialise_Locked_(find.box, {frameW, frameH}, picture);
  finishRedetect_Locked_(search, patches.size(), outcome, find.score);
}

std::vector<SearchPatch> CSRTTrackingAlgo::searchPatches_Locked_() const {
  std::vector<SearchPatch> patches;
  if (!origPatchGpu_.empty()) patches.push_back({&origPatchGpu_, &config_.redetect.scale_list, "orig"});
  if (dynPatchValid_ && !dynPatchGpu_.empty()) patches.push_back({&dynPatchGpu_, &dynScaleList_, "dyn"});
  return patches;
}

SearchLimits CSRTTrackingAlgo::searchLimits_Locked_() const {
  const CsrtConfig::Redetect& c = config_.redetect;
  return {c.coarse_factor, c.fine_roi_size, c.re_detect_threshold, config_.stability.min_scale_ratio,
          config_.stability.max_scale_ratio};
}

NearMatch CSRTTrackingAlgo::searchFine_Locked_(FrameSearch& search) {
  const NearMatch find = search.searchFine();
  logTooSmall_Locked_(find, search.bestPatchSize());
  log_("reDetectGlobally: coarse=%.3f, fine=%.3f ROI=(%d,%d,%d,%d) src=%s scale=%.3f", search.coarseScore(), find.score,
       find.box.x, find.box.y, find.box.width, find.box.height, search.source(), search.factor());
  return find;
}

// nullptr for a find that can be trusted, else the outcome that it fails with.
const char* CSRTTrackingAlgo::validate_Locked_(const NearMatch& find) const {
  const SearchReference reference = referenceAt(areaOf(predictedBox_) >= 1 ? predictedBox_ : trackBox_);
  const double simOrig = computeOrigAppearanceAt_(find.box);
  const SearchVerdict v = judgeFind(find.box, find.score, simOrig, reference, searchLimits_Locked_());
  log_(
      "reDetectGlobally (validate): fine=%.3f dist=%.1f maxDist=%.1f areaRatio=%.2f scaleOK=%d near=%d simOrig=%.3f "
      "(min=%.3f) IoU=%.2f geomStrong=%d",
      find.score, v.dist, reference.maxDist, v.areaRatio, v.scaleOK ? 1 : 0, v.near ? 1 : 0, simOrig, kMinLikeness,
      v.overlap, v.geomStrong ? 1 : 0);
  if (!v.looksRight) return "appearance_fail";
  log_(
      "reDetectGlobally (validate): fine=%.3f dist=%.1f maxDist=%.1f areaRatio=%.2f scaleOK=%d near=%d tNear=%.3f "
      "accept=%d",
      find.score, v.dist, reference.maxDist, v.areaRatio, v.scaleOK ? 1 : 0, v.near ? 1 : 0, v.nearScore,
      v.accepted ? 1 : 0);
  return v.accepted ? nullptr : "reject";
}

const char* CSRTTrackingAlgo::reinitialise_Locked_(const cv::Rect& find, const cv::Size& frame,
                                                   ocula::OculaPicture& picture) {
  tracker_.reset();
  trackerReady_ = false;
  redetectAttempts_ = 0;
  tracker_ = createTracker_();  // stays, unready, when there is nothing to start it on
  const cv::Rect window = computeProcWindow_Locked_(find, frame);
  cv::Mat crop = picture.cropToMat(window.x, window.y, window.width, window.height);
  if (crop.empty()) return "roiBgr_empty";
  crop = ensureBGR8Contiguous_(crop);
  const cv::Rect local = clipToFrame(toCrop(find, window.tl()), crop.size());
  if (!hasArea(local)) return "local_empty";
  tracker_->init(crop, local);
  trackerReady_ = true;

  initCrop_ = crop.clone();
  procRoi_ = window;
  trackBox_ = predictedBox_ = find;
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

void CSRTTrackingAlgo::finishRedetect_Locked_(const FrameSearch& search, std::size_t patches, const char* outcome,
                                              double value) {
  const double perMs = 1000.0 / cv::getTickFrequency();
  const auto ms = [perMs](std::int64_t ticks) { return static_cast<double>(ticks) * perMs; };
  const FrameSearch::Times& at = search.times();
  const FrameSearch::Counts& counts = search.counts();
  const double total = ms(cv::getTickCount() - at.start);
  const double coarse = ms(at.shrunk - at.start);
  const double searched = ms(at.coarse - at.shrunk);
  const double fine = ms(at.fine - at.coarse);  // negative when there was nothing to search finely
  log_(
      "reDetectGlobally[timing-%s]: total=%.3f ms | coarse=%.3f | search=%.3f | fine=%.3f | validate+reinit=%.3f | "
      "patches=%zu smallPatches=%d scalesTested=%d scalesSkippedSize=%d matchCalls=%d fineVal=%.3f",
      outcome, total, coarse, searched, fine, std::max(total - coarse - searched - fine, 0.0), patches,
      counts.smallPatches, counts.scalesTested, counts.scalesSkippedSize, counts.matchCalls, value);
  if (outcome != kSuccess) onRedetectFail_Locked_();
}

double CSRTTrackingAlgo::computeOrigAppearanceAt_(const cv::Rect& box) const {
  return likenessAt(fullGrayGpu_, origPatchGpu_, box);
}
