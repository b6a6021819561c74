// The object as the host sees it: identity, start, one frame, pointing and zoom.
#include <algorithm>
#include <cmath>
#include <exception>
#include <opencv2/imgproc.hpp>
#include <optional>
#include <utility>

#include "algo_log.h"
#include "config_keys.h"
#include "csrt_tracking_algo.h"
#include "uuid.h"
#include "view_geometry.h"
#include "window_geometry.h"

using Metadata = ocula::OculaPicture::BaseMetadata;

namespace {

constexpr double kStableScore = 0.3;      // below: predict instead of believing the box; exactly 0.3 is believed
constexpr int kSmallestDynamicPatch = 4;  // a patch must be larger than this both ways to be worth matching
constexpr double kZoomStep = 0.02;        // relative change of the field of view that the tracker cannot follow
constexpr double kClampReported = 1e-6;

bool tryReadDegrees(const Metadata& metadata, const std::string& key, double& value) {
  const auto entry = metadata.find(key);
  if (entry == metadata.end()) return false;
  const double* held = std::get_if<double>(&entry->second);
  if (held == nullptr || !std::isfinite(*held)) return false;
  value = *held;
  return true;
}

// What the host commands; nothing when the key is missing or holds no number.
std::optional<bool> readFollowMe(const Metadata& metadata) {
  const auto entry = metadata.find(Metadata::Keys::kFollowMeEnabledCommand);
  if (entry == metadata.end()) return std::nullopt;
  if (const int* whole = std::get_if<int>(&entry->second)) return *whole != 0;
  if (const unsigned long* whole = std::get_if<unsigned long>(&entry->second)) return *whole != 0;
  if (const double* number = std::get_if<double>(&entry->second); number != nullptr && std::isfinite(*number)) {
    return *number != 0.0;
  }
  return std::nullopt;
}

DetectionResult::Det makeDet(const cv::Rect& box, float score) {
  DetectionResult::Det det;
  det.x = box.x;
  det.y = box.y;
  det.w = box.width;
  det.h = box.height;
  det.score = score;
  return det;
}

AlgoValue toValue(const DetectionResult::Det& det) {
  return AlgoValue::Object{{"x", det.x},
                           {"y", det.y},
                           {"w", det.w},
                           {"h", det.h},
                           {"class_id", det.class_id},
                           {"class_name", det.class_name},
                           {"class_info", det.class_info},
                           {"tracker_id", det.tracker_id},
                           {"score", det.score}};
}

}  // namespace

// ---------------------------------------------------------------------------------------------------- identity

CSRTTrackingAlgo::CSRTTrackingAlgo() = default;
CSRTTrackingAlgo::~CSRTTrackingAlgo() = default;

bool CSRTTrackingAlgo::isAlive() {
  return true;
}

std::string CSRTTrackingAlgo::getName() const {
  return "CSRTTrackingAlgo";
}

std::string CSRTTrackingAlgo::getUuid() {
  const CheckedLock lock(uuidMutex_);
  if (uuid_.empty()) uuid_ = generateUuid_();
  return uuid_;
}

std::string CSRTTrackingAlgo::generateUuid_() {
  return makeUuid();
}

bool CSRTTrackingAlgo::isDynamic() const {
  return true;
}

void CSRTTrackingAlgo::changePerformance(int /*level*/) {}

void CSRTTrackingAlgo::enableDebug(bool on) {
  debug_ = on;
}

std::string CSRTTrackingAlgo::getConfigList() {
  return configSchemaText();
}

std::string CSRTTrackingAlgo::getPropertyList() {
  return {};
}

void CSRTTrackingAlgo::setProperty(std::string /*name*/, std::string /*value*/) {}

std::string CSRTTrackingAlgo::property(std::string /*name*/) {
  return {};
}

// ---------------------------------------------------------------------------------------------- records and log

std::vector<AlgoOutputDeclaration> CSRTTrackingAlgo::getOutputDeclarations() const {
  return {{"detection.v1", 10, 30}, {"gimbal_preposition.v1", 0, 0}};
}

AlgoOutput CSRTTrackingAlgo::makeDetectionsOutput_(const DetectionResult& result) const {
  AlgoValue::Array detections;
  detections.reserve(result.dets.size());
  for (const DetectionResult::Det& det : result.dets) detections.push_back(toValue(det));
  return {"detection.v1", AlgoValue::Object{{"detections", std::move(detections)}}};
}

AlgoOutput CSRTTrackingAlgo::makePrepositionOutput_(double targetPanDeg, double targetTiltDeg) const {
  return {"gimbal_preposition.v1",
          AlgoValue::Object{{"target_pan_deg", targetPanDeg}, {"target_tilt_deg", targetTiltDeg}}};
}

float CSRTTrackingAlgo::currentDetectionScore_() const {
  if (!std::isfinite(lastScore_)) return 1.0F;  // full confidence rather than none, on purpose
  return static_cast<float>(std::clamp(lastScore_, 0.0, 1.0));
}

void CSRTTrackingAlgo::log_(const char* format, ...) const {
  if (!debug_) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = formatInCLocale(format, arguments);
  va_end(arguments);
  writeLogLine(getName(), message);
}

// -------------------------------------------------------------------------------------------------------- start

std::vector<AlgoOutput> CSRTTrackingAlgo::init(const Frames& frames, const BBox& box, bool* started) {
  if (started != nullptr) *started = false;
  const CheckedLock lock(mutex_);
  try {
    bool ok = false;
    std::vector<AlgoOutput> outputs = start_Locked_(frames, box, ok);
    if (started != nullptr) *started = ok;
    return outputs;
  } catch (const std::exception& e) {
    log_("init(): exception: %s", e.what());
    resetInternal_Locked_();
    return {};
  }
}

std::vector<AlgoOutput> CSRTTrackingAlgo::start_Locked_(const Frames& frames, const BBox& box, bool& started) {
  const std::shared_ptr<ocula::OculaPicture> picture = frames.empty() ? nullptr : frames.front();
  resetInternal_Locked_();  // also when there is no frame
  if (picture == nullptr || box.width < 1 || box.height < 1) {
    log_("init(VP): nullptr frame or zero-size bbox => abort");
    return {};
  }
  const cv::Size frame(picture->width(), picture->height());
  if (frame.width < 1 || frame.height < 1) {
    log_("init(VP): invalid src size");
    return {};
  }
  initBox_ = clipToFrame({box.x, box.y, box.width, box.height}, frame);
  if (!hasArea(initBox_)) {
    log_("init: bbox out of image => abort");
    return {};
  }
  prepositionRefGeomValid_ = tryReadViewGeometry_(picture->baseMetadata(), prepositionRefPan_, prepositionRefTilt_,
                                                  prepositionRefHfov_, prepositionRefVfov_);
  if (startsNearCentre_Locked_(frame)) {
    started = startTracker_Locked_(*picture, "direct_init_near_center");
  } else if (wantsPreposition_Locked_(picture->baseMetadata()) && tryStartPreposition_Locked_(*picture)) {
    started = true;
    return {makePrepositionOutput_(prepositionTargetPan_, prepositionTargetTilt_)};
  } else {
    started = startTracker_Locked_(*picture, "immediate_init_no_metadata");
  }
  return {};
}

// Comes before any wish to point the camera: a target near the centre is tracked at once.
bool CSRTTrackingAlgo::startsNearCentre_Locked_(const cv::Size& frame) const {
  const double dx = (initBox_.x + initBox_.width * 0.5) / frame.width - 0.5;
  const double dy = (initBox_.y + initBox_.height * 0.5) / frame.height - 0.5;
  const double tol = config_.preposition.direct_init_center_tol_norm;
  if (!(std::abs(dx) <= tol && std::abs(dy) <= tol)) return false;
  log_("CSRT init(VP): direct init near center dx_norm=%.5f dy_norm=%.5f tol=%.5f roi=(%d,%d,%d,%d)", dx, dy, tol,
       initBox_.x, initBox_.y, initBox_.width, initBox_.height);
  return true;
}

bool CSRTTrackingAlgo::wantsPreposition_Locked_(const Metadata& metadata) const {
  if (!config_.preposition.enabled) {
    log_("CSRT init(VP): preposition disabled by config roi=(%d,%d,%d,%d)", initBox_.x, initBox_.y, initBox_.width,
         initBox_.height);
    return false;
  }
  const std::optional<bool> followMe = readFollowMe(metadata);
  if (followMe.value_or(false)) return true;
  log_("CSRT init(VP): preposition disabled follow_me_enabled_command=%s value=%d roi=(%d,%d,%d,%d)",
       followMe.has_value() ? "present" : "missing", 0, initBox_.x, initBox_.y, initBox_.width, initBox_.height);
  return false;
}

bool CSRTTrackingAlgo::tryStartPreposition_Locked_(ocula::OculaPicture& picture) {
  const BBox box{initBox_.x, initBox_.y, initBox_.width, initBox_.height};
  double pan = 0.0;
  double tilt = 0.0;
  if (!tryBuildPrepositionTarget_(picture.baseMetadata(), box, picture.width(), picture.height(), pan, tilt)) {
    return false;
  }
  capturePrepositionReferenceLocked_(picture, initBox_);  // without a patch the start will be geometric
  prepositionWaiting_ = true;
  alignmentHits_ = 0;
  prepositionTargetValid_ = true;
  prepositionTargetPan_ = pan;
  prepositionTargetTilt_ = tilt;
  log_("CSRT init(VP): preposition-only target_pan=%.3f target_tilt=%.3f roi=(%d,%d,%d,%d)", pan, tilt, initBox_.x,
       initBox_.y, initBox_.width, initBox_.height);
  return true;
}

bool CSRTTrackingAlgo::startTracker_Locked_(ocula::OculaPicture& picture, const char* reason) {
  if (!initializeTrackerFromFrameLocked_(picture, initBox_, config_.input.refine_init, reason)) return false;
  trackingStarted_ = true;
  if (prepositionRefGeomValid_) setZoomReference_Locked_(prepositionRefHfov_, prepositionRefVfov_);
  return true;
}

void CSRTTrackingAlgo::clearPrepositionAndZoom_Locked_() {
  prepositionWaiting_ = trackingStarted_ = justReseeded_ = false;
  alignmentHits_ = 0;
  prepositionTargetValid_ = prepositionRefGeomValid_ = zoomRefValid_ = false;
  initBox_ = {};
  prepositionTargetPan_ = prepositionTargetTilt_ = 0.0;
  prepositionRefPan_ = prepositionRefTilt_ = 0.0;
  prepositionRefHfov_ = prepositionRefVfov_ = 0.0;
  zoomRefHfov_ = zoomRefVfov_ = 0.0;
}

// ---------------------------------------------------------------------------------------------------- one frame

/// What one call of update() has learnt so far.
struct CSRTTrackingAlgo::UpdateStep {
  explicit UpdateStep(ocula::OculaPicture& p) : picture(p) {}

  ocula::OculaPicture& picture;
  cv::Size frame;
  cv::Rect window;          ///< Part of the frame that the tracker sees.
  bool hardResize = false;  ///< The window changed too much to keep the tracker's input size.
  cv::Mat crop;             ///< The window's pixels, 8-bit BGR; may be smaller than the window.
  cv::Mat cropMemory;       ///< Lent by the object for the time of the call.
  unsigned startCount = 0;  ///< Of the object when the window was chosen.
  cv::Rect boxInCrop;       ///< Where the target was, in the crop.
  bool sizeChanged = false;
  bool rethrow = false;  ///< Taking the lock, or building a tracker that cannot be built: the host gets the error.
  DetectionResult result;
};

std::vector<AlgoOutput> CSRTTrackingAlgo::update(const Frames& frames, bool* processed) {
  if (processed != nullptr) *processed = true;  // consumed, whatever comes of it
  if (frames.empty() || frames.front() == nullptr) {
    log_("update(): OUT, NO FRAME");
    return {makeDetectionsOutput_({})};
  }
  // A share of its own: the frame outlives whatever the host does to its list.
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
  const std::shared_ptr<ocula::OculaPicture> picture = frames.front();
  UpdateStep step(*picture);
  try {
    trackFrame_(step);
  } catch (const std::exception& e) {
    log_("update(): exception: %s", e.what());
    if (step.rethrow) throw;
    step.result.dets.clear();
  }
  return {makeDetectionsOutput_(step.result)};
}

void CSRTTrackingAlgo::trackFrame_(UpdateStep& step) {
  step.frame = {step.picture.width(), step.picture.height()};
  step.rethrow = true;
  CheckedLock lock(mutex_);
  step.rethrow = false;
  if (answerWithoutTracking_Locked_(step)) return;  // waiting, reset, lost, just re-seeded
  chooseWindow_Locked_(step);

  lendCropMemory_Locked_(step);
  lock.unlock();  // a host may configure or restart while pixels are copied ...
  const bool haveCrop = tryCropWindow_(step);
  step.rethrow = true;
  lock.lock();
  step.rethrow = false;
  answerOnCrop_Locked_(step, haveCrop);
  takeBackCropMemory_Locked_(step);
}

// Another call in the meantime finds none and takes its own.
void CSRTTrackingAlgo::lendCropMemory_Locked_(UpdateStep& step) {
  cv::swap(step.cropMemory, buffers_.crop);
}

// Not what somebody still looks at: the tracker keeps a crop's pixels where it was built on them.
void CSRTTrackingAlgo::takeBackCropMemory_Locked_(UpdateStep& step) {
  step.crop.release();
  const bool ours = step.cropMemory.u != nullptr && step.cropMemory.u->refcount == 1;
  if (ours) cv::swap(step.cropMemory, buffers_.crop);
}

void CSRTTrackingAlgo::answerOnCrop_Locked_(UpdateStep& step, bool haveCrop) {
  if (!haveCrop) return answerPredicted_Locked_(step, "update(): OUT %zu detections (empty ROI)");
  constexpr char kLate[] = "update(): OUT %zu detections (late not init/fullyLost)";
  // ... so look again: was the target forgotten, or was another one started on?
  if (!initialized_ || fullyLost_) return answerPredicted_Locked_(step, kLate);
  if (startCount_ != step.startCount) return logAnswer_(step.result, kLate, step.result.dets.size());
  locateBoxInCrop_Locked_(step);
  switch (chooseAction_Locked_(step)) {
    case TrackAction::Step:
      trackOnCrop_Locked_(step);
      break;
    case TrackAction::ReinitFromOldWindow:
      carryBoxFromOldWindow_Locked_(step);
      [[fallthrough]];
    case TrackAction::Rebuild:
      rebuildTracker_Locked_(step);
      break;
  }
}

bool CSRTTrackingAlgo::answerWithoutTracking_Locked_(UpdateStep& step) {
  if (prepositionWaiting_ && !tryArmTrackingLocked_(step.picture)) {
    logAnswer_(step.result, "update(): OUT 0 detections (waiting preposition alignment)");
  } else if (pending_full_reset_) {
    forceFullyLost_Locked_();
    pending_full_reset_ = false;
    answerPredicted_Locked_(step, "update(): OUT %zu detections (pending_full_reset_)");
  } else if (!initialized_ || fullyLost_) {
    answerPredicted_Locked_(step, "update(): OUT %zu detections (not init/fullyLost)");
  } else if (justReseeded_) {
    justReseeded_ = false;
    logAnswer_(step.result, "update(): OUT 0 detections (skip tracking once)");
  } else if (maybeHandleZoomChangeLocked_(step.picture) && justReseeded_) {
    justReseeded_ = false;
    logAnswer_(step.result, "update(): OUT 0 detections (zoom reseed)");
  } else {
    return false;
  }
  return true;
}

void CSRTTrackingAlgo::chooseWindow_Locked_(UpdateStep& step) {
  const cv::Rect wished = computeProcWindow_Locked_(trackBox_, step.frame);
  const cv::Rect guarded = guardWindowForCSRT_(wished, trackBox_, step.frame);
  const cv::Rect sized = applyCropSizePolicyAndClamp_(guarded, procRoi_, step.frame);
  const FrozenWindow frozen = freezeWindowSize(sized, csrtInputSize_, trackBox_, step.frame, config_.roi);
  step.startCount = startCount_;
  step.window = frozen.window;
  step.hardResize = frozen.hardResize;
}

bool CSRTTrackingAlgo::tryCropWindow_(UpdateStep& step) const {
  try {
    const cv::Rect& w = step.window;
    step.crop = step.picture.cropToMat(w.x, w.y, w.width, w.height);
    if (!step.crop.empty()) step.crop = ensureBGR8Contiguous_(step.crop, step.cropMemory);
  } catch (const std::exception& e) {
    log_("update(): crop failed: %s", e.what());
    step.crop.release();
  }
  return !step.crop.empty();
}

void CSRTTrackingAlgo::locateBoxInCrop_Locked_(UpdateStep& step) {
  const cv::Size crop = step.crop.size();  // not the window's: a frame side may be below roi.min_size
  step.boxInCrop = clipToFrame(toCrop(trackBox_, step.window.tl()), crop);
  if (!hasArea(step.boxInCrop)) step.boxInCrop = centredBoxInCrop(trackBox_.size(), crop);
}

CSRTTrackingAlgo::TrackAction CSRTTrackingAlgo::chooseAction_Locked_(const UpdateStep& step) const {
  if (tracker_ == nullptr || pending_rebuild_) return TrackAction::Rebuild;
  if (step.crop.size() == csrtInputSize_) return TrackAction::Step;
  return config_.roi.freeze_input_size && !step.hardResize ? TrackAction::Step : TrackAction::ReinitFromOldWindow;
}

void CSRTTrackingAlgo::trackOnCrop_Locked_(UpdateStep& step) {
  cv::Rect boxInCrop;
  if (!tryStepTracker_Locked_(step.crop, boxInCrop)) return answerLost_Locked_(step);
  const cv::Rect newBox = toFrame(boxInCrop, step.window.tl());
  const double score = computeStabilityScore_(trackBox_, newBox, step.frame);
  lastScore_ = score;
  if (score < kStableScore) return answerUnstable_Locked_(step, score);
  answerTracked_Locked_(step, boxInCrop, newBox);
}

bool CSRTTrackingAlgo::tryStepTracker_Locked_(const cv::Mat& crop, cv::Rect& boxInCrop) {
  if (tracker_ == nullptr || !trackerReady_) return false;
  try {
    return tracker_->update(crop, boxInCrop) && hasArea(boxInCrop);
  } catch (const std::exception& e) {
    log_("update(): tracker step failed: %s", e.what());
    return false;
  }
}

void CSRTTrackingAlgo::answerTracked_Locked_(UpdateStep& step, const cv::Rect& boxInCrop, const cv::Rect& newBox) {
  if (lastScore_ >= config_.redetect.dynamic_patch_stability) refreshDynamicPatch_Locked_(step.crop, boxInCrop);
  if (health_.update(newBox, step.frame)) {
    log_("CSRT: health fault -> %s", health_.reason().c_str());
    return forceFullyLost_Locked_();
  }
  lostFrames_ = 0;
  lostSinceRedetect_ = 0;
  ageRedetection_Locked_();

  velocity_ = centreOf(newBox) - centreOf(trackBox_);
  trackBox_ = predictedBox_ = newBox;  // unclipped and unsmoothed: only what is reported is
  procRoi_ = step.window;
  initBoxInCrop_ = boxInCrop;
  appendBox_Locked_(step.result, newBox, step.frame);
  if (debug_) step.result.dets.push_back(makeDet(step.window, 1.0F));  // shows the window to whoever debugs
  logAnswer_(step.result, "update(): OUT %zu detections (track ok)", step.result.dets.size());
}

void CSRTTrackingAlgo::refreshDynamicPatch_Locked_(const cv::Mat& crop, const cv::Rect& boxInCrop) {
  const cv::Rect patch = clipToFrame(boxInCrop, crop.size());
  if (patch.width <= kSmallestDynamicPatch || patch.height <= kSmallestDynamicPatch) return;
  try {
    dynPatchGpu_.uploadGrey(crop(patch));
    dynPatchValid_ = true;
  } catch (const std::exception& e) {
    log_("update(): dynamic patch update failed: %s", e.what());
  } catch (...) {
    log_("update(): dynamic patch update failed (unknown error)");
  }
}

// A find that holds for a while clears the suspicion of swinging between finding and losing.
void CSRTTrackingAlgo::ageRedetection_Locked_() {
  if (redetectAge_ < 0 || ++redetectAge_ <= config_.redetect.oscillation_window) return;
  redetectAge_ = -1;
  oscillationCount_ = 0;
  log_("CSRT: re-detect stabilized after %d frames, clearing oscillation state", config_.redetect.oscillation_window);
}

void CSRTTrackingAlgo::answerUnstable_Locked_(UpdateStep& step, double score) {
  lostFrame_Locked_();
  redetectWhenDue_Locked_(step);
  fillPredictedResult_Locked_(step.result, step.picture, step.frame.width, step.frame.height);
  logAnswer_(step.result, "update(): UNSTABLE (stab=%.2f) -> OUT %zu detections (predict)", score,
             step.result.dets.size());
}

void CSRTTrackingAlgo::answerLost_Locked_(UpdateStep& step) {
  if (oscillates_Locked_()) return;
  const cv::Rect before = trackBox_;
  lostFrame_Locked_();
  redetectWhenDue_Locked_(step);
  const bool moved = initialized_ && !fullyLost_ && hasArea(trackBox_) && trackBox_ != before;
  if (!moved) return answerPredicted_Locked_(step, "update(): LOST -> OUT %zu detections (predict)");
  lostFrames_ = 0;
  appendBox_Locked_(step.result, trackBox_, step.frame);
  logAnswer_(step.result, "update(): LOST -> OUT %zu detections (redetect OK)", step.result.dets.size());
}

bool CSRTTrackingAlgo::oscillates_Locked_() {
  if (redetectAge_ < 0 || redetectAge_ > config_.redetect.oscillation_window) return false;
  ++oscillationCount_;
  log_("CSRT: lost %d frames after re-detect (count %d / %d)", redetectAge_, oscillationCount_,
       config_.redetect.oscillation_max);
  if (oscillationCount_ < config_.redetect.oscillation_max) return false;
  log_("CSRT: oscillation re-detect <-> lost detected, forcing fully lost.");
  forceFullyLost_Locked_();
  redetectAge_ = -1;
  oscillationCount_ = 0;
  return true;
}

void CSRTTrackingAlgo::redetectWhenDue_Locked_(UpdateStep& step) {
  if (lostSinceRedetect_ < config_.redetect.frames_lost_before_reset) return;
  lostSinceRedetect_ = 0;
  try {
    buildFullYFromVP_Locked_(step.picture, fullGrayGpu_);
    reDetectGlobally_Locked_(step.picture, step.frame.width, step.frame.height);
  } catch (const std::exception& e) {
    log_("reDetectGlobally: exception: %s", e.what());
    onRedetectFail_Locked_();
  }
}

// The window's size changed: where is the target in the old window, which the tracker knows?
void CSRTTrackingAlgo::carryBoxFromOldWindow_Locked_(UpdateStep& step) {
  step.sizeChanged = true;
  const cv::Rect old = clipToFrame(procRoi_, step.frame);
  if (!hasArea(old)) return;
  try {
    cv::Mat oldCrop = step.picture.cropToMat(old.x, old.y, old.width, old.height);
    if (oldCrop.empty()) return;
    oldCrop = ensureBGR8Contiguous_(oldCrop);
    cv::Rect box = clipToFrame(initBoxInCrop_, oldCrop.size());
    if (!hasArea(box) || !tryStepTracker_Locked_(oldCrop, box)) return;
    const cv::Rect boxInFrame = clipToFrame(toFrame(box, old.tl()), step.frame);
    step.boxInCrop = clipToFrame(toCrop(boxInFrame, step.window.tl()), step.crop.size());
  } catch (const std::exception& e) {
    log_("update(): old window failed: %s", e.what());
  }
}

void CSRTTrackingAlgo::rebuildTracker_Locked_(UpdateStep& step) {
  if (!hasArea(step.boxInCrop)) step.boxInCrop = centredBoxInCrop(trackBox_.size(), step.crop.size());
  step.rethrow = true;
  publishTracker_Locked_(step.crop, step.boxInCrop);
  step.rethrow = false;

  csrtInputSize_ = step.crop.size();
  initCrop_ = step.crop.clone();
  procRoi_ = step.window;
  initBoxInCrop_ = step.boxInCrop;
  pending_rebuild_ = false;
  trackBox_ = predictedBox_ = clipToFrame(toFrame(step.boxInCrop, step.window.tl()), step.frame);
  velocity_ = {};
  lastScore_ = 1.0;
  appendBox_Locked_(step.result, trackBox_, step.frame);
  logAnswer_(step.result, "update(): OUT %zu detections (Re-init après update ancien ROI, sizeChanged=%d)",
             step.result.dets.size(), step.sizeChanged ? 1 : 0);
}

void CSRTTrackingAlgo::appendBox_Locked_(DetectionResult& result, const cv::Rect& box, const cv::Size& frame) {
  const cv::Rect visible = clipToFrame(box, frame);
  if (!hasArea(visible)) return;
  const cv::Rect reported = clipToFrame(applyOutputSmoothing_(visible), frame);
  if (hasArea(reported)) result.dets.push_back(makeDet(reported, currentDetectionScore_()));
}

void CSRTTrackingAlgo::answerPredicted_Locked_(UpdateStep& step, const char* format) {
  fillPredictedResult_Locked_(step.result, step.picture, step.frame.width, step.frame.height);
  logAnswer_(step.result, format, step.result.dets.size());
}

void CSRTTrackingAlgo::logAnswer_(const DetectionResult& result, const char* format, ...) const {
  if (!debug_) return;
  std::va_list arguments;
  va_start(arguments, format);
  const std::string message = formatInCLocale(format, arguments);
  va_end(arguments);
  writeLogLine(getName(), message);
  for (std::size_t i = 0; i < result.dets.size(); ++i) {
    const DetectionResult::Det& det = result.dets[i];
    log_("  det[%zu]: bbox=(%d,%d,%d,%d) id=%d cls=%d", i, det.x, det.y, det.w, det.h, det.tracker_id, det.class_id);
  }
}

// ------------------------------------------------------------------------------------------- preposition and zoom

bool CSRTTrackingAlgo::tryReadViewGeometry_(const Metadata& metadata, double& pan, double& tilt, double& hfov,
                                            double& vfov) {
  using Keys = Metadata::Keys;
  if (!tryReadDegrees(metadata, Keys::kPanDeg, pan)) return false;
  if (!tryReadDegrees(metadata, Keys::kTiltDeg, tilt)) return false;
  if (!tryReadDegrees(metadata, Keys::kHfovDeg, hfov)) return false;
  if (!tryReadDegrees(metadata, Keys::kVfovDeg, vfov)) return false;
  pan = wrapDegrees(pan);
  return isUsable(hfov) && isUsable(vfov);
}

bool CSRTTrackingAlgo::tryBuildPrepositionTarget_(const Metadata& metadata, const BBox& box, int frameW, int frameH,
                                                  double& targetPan, double& targetTilt) {
  if (frameW < 1 || frameH < 1 || box.width < 1 || box.height < 1) return false;
  ViewGeometry view;
  if (!tryReadViewGeometry_(metadata, view.pan, view.tilt, view.hfov, view.vfov)) return false;
  const PanTilt target = panTiltCentring({box.x, box.y, box.width, box.height}, {frameW, frameH}, view);
  targetPan = target.pan;
  targetTilt = target.tilt;
  return std::isfinite(targetPan) && std::isfinite(targetTilt);
}

bool CSRTTrackingAlgo::tryBuildExpectedBBoxLocked_(const Metadata& metadata, int frameW, int frameH, BBox& outBox,
                                                   double& dxNorm, double& dyNorm, double& hfov, double& vfov) const {
  const cv::Size ref = initBox_.size();
  ViewGeometry view;
  if (!prepositionTargetValid_ || !prepositionRefGeomValid_ || frameW < 1 || frameH < 1 || ref.width < 1 ||
      ref.height < 1 || !tryReadViewGeometry_(metadata, view.pan, view.tilt, view.hfov, view.vfov)) {
    return false;
  }
  const cv::Point2d offset = offsetFromCentre({prepositionTargetPan_, prepositionTargetTilt_}, view);
  const StabilityConfig& limits = config_.stability;
  const cv::Size2d raw(std::max(prepositionRefHfov_ / view.hfov * ref.width, 1.0),
                       std::max(prepositionRefVfov_ / view.vfov * ref.height, 1.0));
  const cv::Size2d size(clampSideToReference(raw.width, ref.width, limits),
                        clampSideToReference(raw.height, ref.height, limits));
  if (std::abs(size.width - raw.width) > kClampReported || std::abs(size.height - raw.height) > kClampReported) {
    log_(
        "CSRT preposition expected bbox clamped: raw=(%.2f,%.2f) clamped=(%.2f,%.2f) ref=(%d,%d) "
        "scale_limits=[%.3f,%.3f]",
        raw.width, raw.height, size.width, size.height, ref.width, ref.height, limits.min_scale_ratio,
        limits.max_scale_ratio);
  }
  const cv::Rect box =
      boxAround({(offset.x + 0.5) * frameW, (offset.y + 0.5) * frameH}, size, cv::Size(frameW, frameH));
  outBox = {box.x, box.y, box.width, box.height};
  dxNorm = offset.x;
  dyNorm = offset.y;
  hfov = view.hfov;
  vfov = view.vfov;
  return true;
}

bool CSRTTrackingAlgo::tryComputeZoomScaleFactors_(double prevHfov, double prevVfov, double curHfov, double curVfov,
                                                   double& scaleX, double& scaleY) {
  for (const double fov : {prevHfov, prevVfov, curHfov, curVfov}) {
    if (!isUsable(fov)) return false;
  }
  scaleX = prevHfov / curHfov;
  scaleY = prevVfov / curVfov;
  return isUsable(scaleX) && isUsable(scaleY);
}

bool CSRTTrackingAlgo::capturePrepositionReferenceLocked_(ocula::OculaPicture& picture, const cv::Rect& box) {
  const cv::Size frame(picture.width(), picture.height());
  if (frame.width < 1 || frame.height < 1) {
    log_("capturePrepositionReference: invalid src size");
    return false;
  }
  const cv::Rect clipped = clipToFrame(box, frame);
  if (!hasArea(clipped)) {
    log_("capturePrepositionReference: bbox out of image");
    return false;
  }
  takeFrameSize_Locked_(frame);
  if (!tryBuildFullGrey_Locked_(picture)) {
    log_("capturePrepositionReference: empty full BGR");
    return false;
  }
  const cv::Rect patch = insetPatchRect(clipped, frame);
  origPatchGpu_ = fullGrayGpu_.region(patch).clone();
  dynPatchGpu_ = origPatchGpu_.clone();
  dynPatchValid_ = false;
  log_("capturePrepositionReference: bbox=(%d,%d,%d,%d) patch=(%d,%d,%d,%d)", clipped.x, clipped.y, clipped.width,
       clipped.height, patch.x, patch.y, patch.width, patch.height);
  return !origPatchGpu_.empty();
}

bool CSRTTrackingAlgo::refinePrepositionCandidateLocked_(ocula::OculaPicture& picture, const cv::Rect& candidate,
                                                         cv::Rect& refined, double& match) {
  match = -1.0;
  refined = candidate;
  if (origPatchGpu_.empty()) return false;
  try {
    if (!tryBuildFullGrey_Locked_(picture)) return false;  // this frame, not the one the patch was taken from
    cv::Rect found;
    findBestInROI_GPU_Locked_(candidate.x + 0.5 * candidate.width, candidate.y + 0.5 * candidate.height,
                              candidate.width, candidate.height, origPatchGpu_, fullGrayGpu_, match, found);
    if (!hasArea(found) || !std::isfinite(match) || match < config_.preposition.match_min_score) return false;
    refined = fitRectInsidePreserveSize(found, picture.width(), picture.height());
    return hasArea(refined);
  } catch (const cv::Exception& e) {
    log_("CSRT preposition refine failed: %s", e.what());
    return false;
  }
}

bool CSRTTrackingAlgo::tryArmTrackingLocked_(ocula::OculaPicture& picture) {
  if (!prepositionWaiting_) return false;
  BBox expected;
  cv::Point2d offset;
  double hfov = 0.0;
  double vfov = 0.0;
  if (!tryBuildExpectedBBoxLocked_(picture.baseMetadata(), picture.width(), picture.height(), expected, offset.x,
                                   offset.y, hfov, vfov)) {
    alignmentHits_ = 0;
    log_("CSRT preposition: waiting for valid metadata");
    return false;
  }
  const double tol = config_.preposition.alignment_tol_norm;
  if (std::abs(offset.x) > tol || std::abs(offset.y) > tol) {
    alignmentHits_ = 0;
    log_("CSRT preposition: wait alignment dx_norm=%.5f dy_norm=%.5f tol=%.5f", offset.x, offset.y, tol);
    return false;
  }
  const int need = std::max(config_.preposition.alignment_hold_frames, 1);
  if (++alignmentHits_ < need) {
    log_("CSRT preposition: alignment hit %d/%d dx_norm=%.5f dy_norm=%.5f tol=%.5f", alignmentHits_, need, offset.x,
         offset.y, tol);
    return false;
  }
  return tryArmOnBox_Locked_(picture, {expected.x, expected.y, expected.width, expected.height}, offset, hfov, vfov);
}

bool CSRTTrackingAlgo::tryArmOnBox_Locked_(ocula::OculaPicture& picture, const cv::Rect& expected,
                                           const cv::Point2d& offset, double hfov, double vfov) {
  cv::Rect box = expected;
  double match = -1.0;
  const bool refined = refinePrepositionCandidateLocked_(picture, expected, box, match);
  log_(refined ? "CSRT preposition: refined with init patch match=%.3f bbox=(%d,%d,%d,%d)"
               : "CSRT preposition: using geometric bbox match=%.3f bbox=(%d,%d,%d,%d)",
       match, box.x, box.y, box.width, box.height);
  if (!tryInitializeTracker_Locked_(picture, box, config_.input.refine_init, "preposition_aligned")) {
    log_("CSRT preposition: tracker init failed bbox=(%d,%d,%d,%d)", box.x, box.y, box.width, box.height);
    return false;  // the hits stay: the next aligned frame tries again at once
  }
  prepositionWaiting_ = false;
  trackingStarted_ = true;
  justReseeded_ = true;
  alignmentHits_ = 0;
  setZoomReference_Locked_(hfov, vfov);
  log_(
      "CSRT preposition: tracking armed bbox=(%d,%d,%d,%d) dx_norm=%.5f dy_norm=%.5f hfov=%.3f vfov=%.3f tol=%.5f "
      "hold=%d match=%.3f",
      box.x, box.y, box.width, box.height, offset.x, offset.y, hfov, vfov, config_.preposition.alignment_tol_norm,
      std::max(config_.preposition.alignment_hold_frames, 1), match);
  return true;
}

bool CSRTTrackingAlgo::maybeHandleZoomChangeLocked_(ocula::OculaPicture& picture) {
  if (!trackingStarted_ || !initialized_ || tracker_ == nullptr || areaOf(trackBox_) < 1) return false;
  ViewGeometry view;
  if (!tryReadViewGeometry_(picture.baseMetadata(), view.pan, view.tilt, view.hfov, view.vfov)) return false;
  double scaleX = 1.0;
  double scaleY = 1.0;
  const bool changed = zoomRefValid_ &&
                       tryComputeZoomScaleFactors_(zoomRefHfov_, zoomRefVfov_, view.hfov, view.vfov, scaleX, scaleY) &&
                       !(std::max(std::abs(scaleX - 1.0), std::abs(scaleY - 1.0)) <= kZoomStep);
  if (!changed) {  // the reference follows, so a slow zoom never re-seeds
    setZoomReference_Locked_(view.hfov, view.vfov);
    return false;
  }
  const cv::Rect box = zoomedBox_Locked_({picture.width(), picture.height()}, scaleX, scaleY);
  if (!tryInitializeTracker_Locked_(picture, box, false, "zoom_changed")) return false;
  justReseeded_ = true;
  setZoomReference_Locked_(view.hfov, view.vfov);
  log_("CSRT zoom_changed: scale_x=%.4f scale_y=%.4f bbox=(%d,%d,%d,%d)", scaleX, scaleY, box.x, box.y, box.width,
       box.height);
  return true;
}

cv::Rect CSRTTrackingAlgo::zoomedBox_Locked_(const cv::Size& frame, double scaleX, double scaleY) const {
  const cv::Size2d ref(initBox_.width > 0 ? initBox_.width : trackBox_.width,
                       initBox_.height > 0 ? initBox_.height : trackBox_.height);
  const cv::Size2d raw(std::max(trackBox_.width * scaleX, 1.0), std::max(trackBox_.height * scaleY, 1.0));
  const StabilityConfig& limits = config_.stability;
  const cv::Size2d size(clampSideToReference(raw.width, ref.width, limits),
                        clampSideToReference(raw.height, ref.height, limits));
  if (std::abs(size.width - raw.width) > kClampReported || std::abs(size.height - raw.height) > kClampReported) {
    log_(
        "CSRT zoom_changed clamp: raw=(%.2f,%.2f) clamped=(%.2f,%.2f) ref=(%.2f,%.2f) scale=(%.4f,%.4f) "
        "limits=[%.3f,%.3f]",
        raw.width, raw.height, size.width, size.height, ref.width, ref.height, scaleX, scaleY, limits.min_scale_ratio,
        limits.max_scale_ratio);
  }
  return boxAround({trackBox_.x + 0.5 * trackBox_.width, trackBox_.y + 0.5 * trackBox_.height}, size, frame);
}

bool CSRTTrackingAlgo::tryInitializeTracker_Locked_(ocula::OculaPicture& picture, const cv::Rect& box, bool refine,
                                                    const char* reason) {
  try {
    return initializeTrackerFromFrameLocked_(picture, box, refine, reason);
  } catch (const std::exception& e) {
    log_("initializeTrackerFromFrame(%s): exception: %s", reason, e.what());
    return false;
  }
}

void CSRTTrackingAlgo::setZoomReference_Locked_(double hfov, double vfov) {
  zoomRefValid_ = true;
  zoomRefHfov_ = hfov;
  zoomRefVfov_ = vfov;
}
