// The plug-in's one class: follows one target through a host's video.
#pragma once

#include <atomic>
#include <cstdarg>
#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/tracking.hpp>
#include <string>
#include <vector>

#include <ocula/ocula_picture.h>
#include "csrt_config.h"
#include "csrt_tracker_health.h"
#include "frame_search.h"
#include "gpu_image.h"
#include "ialgo_plugin.h"
#include "thread_safety.h"

class SwJsonObject;

/// Follows one target for one host: setConfig() if wanted, init(), then update() per frame; init() again starts over.
/// Pixels:  full-frame, unless the name ends in InCrop.  Angles: degrees; tilt grows upwards, image y downwards.
/// Threads: init(), update() and setConfig() exclude one another; every other call returns without waiting for them.
///          A name ending in Locked_ expects `mutex_` held.
/// Errors:  init() and setConfig() catch and log; update() lets the error of a tracker rebuild through. After every one
///          `mutex_` is free and the object usable. What is not a std::exception passes through.
class CSRTTrackingAlgo : public IAlgoPlugin {
 public:
  using Frames = std::vector<std::shared_ptr<ocula::OculaPicture>>;

  CSRTTrackingAlgo();
  ~CSRTTrackingAlgo() override;
  CSRTTrackingAlgo(const CSRTTrackingAlgo&) = delete;
  CSRTTrackingAlgo& operator=(const CSRTTrackingAlgo&) = delete;

  /// Forgets the old target and starts on the part of `box` inside the first frame.
  /// @param started  may be null; true when tracking started or the camera is asked to point first
  /// @return         one "gimbal_preposition.v1" record when the camera is to point first, else nothing
  std::vector<AlgoOutput> init(const Frames& frames, const BBox& box, bool* started) override CSRT_EXCLUDES(mutex_);
  std::vector<AlgoOutputDeclaration> getOutputDeclarations() const override;
  /// One step on the first frame.
  /// @param processed  may be null; always true: the frame was consumed, found target or not
  /// @return           exactly one "detection.v1" record
  std::vector<AlgoOutput> update(const Frames& frames, bool* processed) override CSRT_EXCLUDES(mutex_);
  bool isAlive() override;
  std::string getName() const override;
  std::string getUuid() override;  ///< Random, version 4; the same for the life of the object.
  bool isDynamic() const override;
  void changePerformance(int level) override;  ///< No effect.
  void enableDebug(bool on) override;          ///< The same flag as `misc.debug`.
  std::string getConfigList() override;        ///< JSON Schema of the text setConfig() reads.
  /// Takes what it understands of a JSON object and leaves the rest of the configuration as it is.
  void setConfig(std::string json) override CSRT_EXCLUDES(mutex_);
  std::string getPropertyList() override;                          ///< Empty: there are none.
  void setProperty(std::string name, std::string value) override;  ///< No effect.
  std::string property(std::string name) override;                 ///< Empty.

 protected:  // tests look inside by deriving
  struct UpdateStep;
  enum class TrackAction { Step, ReinitFromOldWindow, Rebuild };

  // Output records and log (csrt_tracking_algo_core.cpp)
  AlgoOutput makeDetectionsOutput_(const DetectionResult& result) const;
  AlgoOutput makePrepositionOutput_(double targetPanDeg, double targetTiltDeg) const;
  float currentDetectionScore_() const CSRT_REQUIRES(mutex_);
  static std::string generateUuid_();
  /// One line on standard output while debug is on; formats nothing otherwise. Any thread.
  void log_(const char* format, ...) const __attribute__((format(printf, 2, 3)));

  // Start (csrt_tracking_algo_core.cpp)
  std::vector<AlgoOutput> start_Locked_(const Frames& frames, const BBox& box, bool& started) CSRT_REQUIRES(mutex_);
  bool startsNearCentre_Locked_(const cv::Size& frame) const CSRT_REQUIRES(mutex_);
  bool wantsPreposition_Locked_(const ocula::OculaPicture::BaseMetadata& metadata) const CSRT_REQUIRES(mutex_);
  bool startTracker_Locked_(ocula::OculaPicture& picture, const char* reason) CSRT_REQUIRES(mutex_);
  bool tryStartPreposition_Locked_(ocula::OculaPicture& picture) CSRT_REQUIRES(mutex_);
  void clearPrepositionAndZoom_Locked_() CSRT_REQUIRES(mutex_);

  // One frame (csrt_tracking_algo_core.cpp)
  void trackFrame_(UpdateStep& step) CSRT_EXCLUDES(mutex_);
  bool answerWithoutTracking_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void chooseWindow_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void lendCropMemory_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  bool tryCropWindow_(UpdateStep& step) const;
  void takeBackCropMemory_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void answerOnCrop_Locked_(UpdateStep& step, bool haveCrop) CSRT_REQUIRES(mutex_);
  void locateBoxInCrop_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  TrackAction chooseAction_Locked_(const UpdateStep& step) const CSRT_REQUIRES(mutex_);
  void trackOnCrop_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  bool tryStepTracker_Locked_(const cv::Mat& crop, cv::Rect& boxInCrop) CSRT_REQUIRES(mutex_);
  void answerUnstable_Locked_(UpdateStep& step, double score) CSRT_REQUIRES(mutex_);
  void answerTracked_Locked_(UpdateStep& step, const cv::Rect& boxInCrop, const cv::Rect& newBox) CSRT_REQUIRES(mutex_);
  void answerLost_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void refreshDynamicPatch_Locked_(const cv::Mat& crop, const cv::Rect& boxInCrop) CSRT_REQUIRES(mutex_);
  void ageRedetection_Locked_() CSRT_REQUIRES(mutex_);
  bool oscillates_Locked_() CSRT_REQUIRES(mutex_);
  void redetectWhenDue_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void carryBoxFromOldWindow_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void rebuildTracker_Locked_(UpdateStep& step) CSRT_REQUIRES(mutex_);
  void appendBox_Locked_(DetectionResult& result, const cv::Rect& box, const cv::Size& frame) CSRT_REQUIRES(mutex_);
  /// @param format  the exit's line; takes the number of detections (%zu)
  void answerPredicted_Locked_(UpdateStep& step, const char* format) CSRT_REQUIRES(mutex_);
  /// The exit's line and one line per detection.
  void logAnswer_(const DetectionResult& result, const char* format, ...) const __attribute__((format(printf, 3, 4)));

  // Preposition and zoom (csrt_tracking_algo_core.cpp)
  static bool tryReadViewGeometry_(const ocula::OculaPicture::BaseMetadata& metadata, double& pan, double& tilt,
                                   double& hfov, double& vfov);
  static bool tryBuildPrepositionTarget_(const ocula::OculaPicture::BaseMetadata& metadata, const BBox& box, int frameW,
                                         int frameH, double& targetPan, double& targetTilt);
  bool tryBuildExpectedBBoxLocked_(const ocula::OculaPicture::BaseMetadata& metadata, int frameW, int frameH,
                                   BBox& outBox, double& dxNorm, double& dyNorm, double& hfov, double& vfov) const
      CSRT_REQUIRES(mutex_);
  static bool tryComputeZoomScaleFactors_(double prevHfov, double prevVfov, double curHfov, double curVfov,
                                          double& scaleX, double& scaleY);
  bool capturePrepositionReferenceLocked_(ocula::OculaPicture& picture, const cv::Rect& box) CSRT_REQUIRES(mutex_);
  bool refinePrepositionCandidateLocked_(ocula::OculaPicture& picture, const cv::Rect& candidate, cv::Rect& refined,
                                         double& match) CSRT_REQUIRES(mutex_);
  bool tryArmTrackingLocked_(ocula::OculaPicture& picture) CSRT_REQUIRES(mutex_);
  bool tryArmOnBox_Locked_(ocula::OculaPicture& picture, const cv::Rect& expected, const cv::Point2d& offset,
                           double hfov, double vfov) CSRT_REQUIRES(mutex_);
  bool maybeHandleZoomChangeLocked_(ocula::OculaPicture& picture) CSRT_REQUIRES(mutex_);
  cv::Rect zoomedBox_Locked_(const cv::Size& frame, double scaleX, double scaleY) const CSRT_REQUIRES(mutex_);
  /// As initializeTrackerFromFrameLocked_(), but an exception counts as failure.
  bool tryInitializeTracker_Locked_(ocula::OculaPicture& picture, const cv::Rect& box, bool refine, const char* reason)
      CSRT_REQUIRES(mutex_);
  void setZoomReference_Locked_(double hfov, double vfov) CSRT_REQUIRES(mutex_);

  // Configuration (csrt_tracking_algo_config.cpp)
  void applyConfig_Locked_(const SwJsonObject& root) CSRT_REQUIRES(mutex_);
  void readConfigGroup_Locked_(const SwJsonObject& values, const std::string& group) CSRT_REQUIRES(mutex_);
  void logConfig_Locked_() const CSRT_REQUIRES(mutex_);

  // Processing window (csrt_tracking_algo_redetect.cpp); the arithmetic is in window_geometry.h
  cv::Rect computeProcWindow_Locked_(const cv::Rect& trackBox, const cv::Size& frame) const CSRT_REQUIRES(mutex_);
  cv::Size computeProcSizeWithHyst_(int desiredW, int desiredH, const cv::Size& frame) const CSRT_REQUIRES(mutex_);
  static int alignToMultiple_(int v, int m);
  cv::Rect guardWindowForCSRT_(const cv::Rect& roi, const cv::Rect& trackBox, const cv::Size& frame) const
      CSRT_REQUIRES(mutex_);
  cv::Rect applyCropSizePolicyAndClamp_(const cv::Rect& roi, const cv::Rect& prevRoi, const cv::Size& frame) const
      CSRT_REQUIRES(mutex_);
  static cv::Rect mapFullToSmall_(const cv::Rect& r, int fullW, int fullH, int smallW, int smallH);
  static cv::Rect mapSmallToFull_(const cv::Rect& r, int smallW, int smallH, int fullW, int fullH);

  // Tracker and pictures (csrt_tracking_algo_redetect.cpp)
  cv::tracking::TrackerCSRT::Params makeCSRTParams_() const CSRT_REQUIRES(mutex_);
  /// A tracker that has not seen a picture yet. Throws std::runtime_error when every feature is switched off.
  cv::Ptr<cv::tracking::TrackerCSRT> createTracker_() const CSRT_REQUIRES(mutex_);
  /// Starts over on the part of `box` inside the picture; on false or an exception the old track is whole.
  bool initializeTrackerFromFrameLocked_(ocula::OculaPicture& picture, const cv::Rect& box, bool refine,
                                         const char* reason) CSRT_REQUIRES(mutex_);
  bool tryBuildFullGrey_Locked_(ocula::OculaPicture& picture) CSRT_REQUIRES(mutex_);
  void commitStart_Locked_(const cv::Ptr<cv::tracking::TrackerCSRT>& tracker, const GpuImage& patch,
                           const cv::Mat& crop, const cv::Rect& window, const cv::Rect& boxInCrop)
      CSRT_REQUIRES(mutex_);
  void takeFrameSize_Locked_(const cv::Size& frame) CSRT_REQUIRES(mutex_);
  cv::Rect windowForStart_Locked_(const cv::Rect& box, const cv::Size& frame) const CSRT_REQUIRES(mutex_);
  /// Replaces the tracker by one started on `crop`; without one when that throws.
  void publishTracker_Locked_(const cv::Mat& crop, const cv::Rect& boxInCrop) CSRT_REQUIRES(mutex_);
  /// A new tracker on the crop of the last start, after a change of its parameters.
  void rebuildTrackerKeepingState_Locked_(const char* reason) CSRT_REQUIRES(mutex_);
  /// 8-bit BGR, sharing pixels where it already is. Throws std::runtime_error naming any other type than 8-bit with
  /// 1, 3 or 4 channels.
  static cv::Mat ensureBGR8_(const cv::Mat& src);
  static cv::Mat ensureBGR8Contiguous_(const cv::Mat& src);
  /// The same; what has to be converted or copied goes into `memory`, which is used again where its size fits.
  static cv::Mat ensureBGR8_(const cv::Mat& src, cv::Mat& memory);
  static cv::Mat ensureBGR8Contiguous_(const cv::Mat& src, cv::Mat& memory);
  /// The whole frame's grey; `out` is empty when the picture has no pixels.
  static void buildFullYFromVP_Locked_(ocula::OculaPicture& picture, GpuImage& out);

  // Judging and reporting (csrt_tracking_algo_redetect.cpp)
  double computeStabilityScore_(const cv::Rect& prevBox, const cv::Rect& newBox, const cv::Size& frame) const
      CSRT_REQUIRES(mutex_);
  cv::Rect applyOutputSmoothing_(const cv::Rect& box) CSRT_REQUIRES(mutex_);

  // Loss (csrt_tracking_algo_redetect.cpp)
  void lostFrame_Locked_() CSRT_REQUIRES(mutex_);
  void onRedetectFail_Locked_() CSRT_REQUIRES(mutex_);
  void forceFullyLost_Locked_() CSRT_REQUIRES(mutex_);
  void resetInternal_Locked_() CSRT_REQUIRES(mutex_);
  void fillPredictedResult_Locked_(DetectionResult& result, ocula::OculaPicture& picture, int frameW, int frameH)
      CSRT_REQUIRES(mutex_);

  // Re-detection (csrt_tracking_algo_redetect.cpp); the search itself is in frame_search.h
  /// Best place of `templ` near a point. @param cx, cy, objW, objH  full-frame pixels
  /// @param score  -1 when there is none  @param out  size of `templ`; empty when there is none
  void findBestInROI_GPU_Locked_(double cx, double cy, double objW, double objH, const GpuImage& templ,
                                 const GpuImage& image, double& score, cv::Rect& out) CSRT_REQUIRES(mutex_);
  /// Searches the whole frame; afterwards the tracker runs on the find, or one failed attempt is counted.
  void reDetectGlobally_Locked_(ocula::OculaPicture& picture, int frameW, int frameH) CSRT_REQUIRES(mutex_);
  void logTooSmall_Locked_(const NearMatch& match, const cv::Size& templ) const CSRT_REQUIRES(mutex_);
  std::vector<SearchPatch> searchPatches_Locked_() const CSRT_REQUIRES(mutex_);
  SearchLimits searchLimits_Locked_() const CSRT_REQUIRES(mutex_);
  NearMatch searchFine_Locked_(FrameSearch& search) CSRT_REQUIRES(mutex_);
  const char* validate_Locked_(const NearMatch& find) const CSRT_REQUIRES(mutex_);
  const char* reinitialise_Locked_(const cv::Rect& find, const cv::Size& frame, ocula::OculaPicture& picture)
      CSRT_REQUIRES(mutex_);
  void finishRedetect_Locked_(const FrameSearch& search, std::size_t patches, const char* outcome, double value)
      CSRT_REQUIRES(mutex_);
  /// Likeness of the frame at `box` (frame pixels) to the target at the start, [-1, 1]; 0 when it cannot be told.
  double computeOrigAppearanceAt_(const cv::Rect& box) const CSRT_REQUIRES(mutex_);

  // Lock and identity
  CheckedMutex mutex_;
  bool pending_full_reset_ CSRT_GUARDED_BY(mutex_) = false;  ///< The next update() gives the target up.
  bool pending_rebuild_ CSRT_GUARDED_BY(mutex_) = false;     ///< The next update() makes a tracker of new parameters.
  unsigned startCount_ CSRT_GUARDED_BY(mutex_) = 0;          ///< Grows with every start of a tracker on a frame.
  CheckedMutex uuidMutex_;  ///< Never held together with `mutex_`: identity does not wait for a frame.
  std::string uuid_ CSRT_GUARDED_BY(uuidMutex_);
  std::atomic<bool> debug_{false};

  // Start, preposition and zoom
  bool prepositionWaiting_ CSRT_GUARDED_BY(mutex_) = false;
  bool trackingStarted_ CSRT_GUARDED_BY(mutex_) = false;
  bool justReseeded_ CSRT_GUARDED_BY(mutex_) = false;
  int alignmentHits_ CSRT_GUARDED_BY(mutex_) = 0;
  bool prepositionTargetValid_ CSRT_GUARDED_BY(mutex_) = false;
  bool prepositionRefGeomValid_ CSRT_GUARDED_BY(mutex_) = false;
  bool zoomRefValid_ CSRT_GUARDED_BY(mutex_) = false;
  /// The box of init(), clipped to the frame; its size is the reference for size limits.
  cv::Rect initBox_ CSRT_GUARDED_BY(mutex_);
  double prepositionTargetPan_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double prepositionTargetTilt_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double prepositionRefPan_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double prepositionRefTilt_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double prepositionRefHfov_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double prepositionRefVfov_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double zoomRefHfov_ CSRT_GUARDED_BY(mutex_) = 0.0;
  double zoomRefVfov_ CSRT_GUARDED_BY(mutex_) = 0.0;

  // Track
  cv::Ptr<cv::tracking::TrackerCSRT> tracker_ CSRT_GUARDED_BY(mutex_);
  /// `tracker_` has seen its first picture; stepping it before would crash.
  bool trackerReady_ CSRT_GUARDED_BY(mutex_) = false;
  bool initialized_ CSRT_GUARDED_BY(mutex_) = false;
  bool fullyLost_ CSRT_GUARDED_BY(mutex_) = false;
  int lostFrames_ CSRT_GUARDED_BY(mutex_) = 0;
  int redetectAttempts_ CSRT_GUARDED_BY(mutex_) = 0;
  int lostSinceRedetect_ CSRT_GUARDED_BY(mutex_) = 0;
  int redetectAge_ CSRT_GUARDED_BY(mutex_) = -1;  ///< Tracked frames since the last find; -1: not watched.
  int oscillationCount_ CSRT_GUARDED_BY(mutex_) = 0;
  cv::Rect trackBox_ CSRT_GUARDED_BY(mutex_);
  cv::Rect predictedBox_ CSRT_GUARDED_BY(mutex_);
  cv::Point2f velocity_ CSRT_GUARDED_BY(mutex_);  ///< Pixels per frame.
  double lastScore_ CSRT_GUARDED_BY(mutex_) = 1.0;
  cv::Size frameSize_ CSRT_GUARDED_BY(mutex_);
  cv::Rect smoothedBox_ CSRT_GUARDED_BY(mutex_);
  bool smoothedValid_ CSRT_GUARDED_BY(mutex_) = false;
  CsrtTrackerHealth health_ CSRT_GUARDED_BY(mutex_);

  // Pictures and windows
  cv::Mat initCrop_ CSRT_GUARDED_BY(mutex_);        ///< What the tracker was last started on; 8-bit BGR.
  cv::Rect initBoxInCrop_ CSRT_GUARDED_BY(mutex_);  ///< Crop pixels.
  cv::Size csrtInputSize_ CSRT_GUARDED_BY(mutex_);  ///< Of the crop of the last start; kept by a reset.
  cv::Rect procRoi_ CSRT_GUARDED_BY(mutex_);        ///< The last processing window.
  GpuImage fullGrayGpu_ CSRT_GUARDED_BY(mutex_);
  GpuImage origPatchGpu_ CSRT_GUARDED_BY(mutex_);  ///< The target at the start.
  GpuImage dynPatchGpu_ CSRT_GUARDED_BY(mutex_);   ///< The target when it last tracked well.
  bool dynPatchValid_ CSRT_GUARDED_BY(mutex_) = false;
  std::vector<double> dynScaleList_ CSRT_GUARDED_BY(mutex_) = {1.0};

  CsrtConfig config_ CSRT_GUARDED_BY(mutex_);

 private:
  struct {  // reused by every frame and every search
    cv::Mat crop;
    SearchMemory search;
  } buffers_ CSRT_GUARDED_BY(mutex_);
};
