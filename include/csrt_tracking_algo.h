// The plug-in's one class: follows one target through a host's video.
#pragma once

#include <atomic>
#include <cstdarg>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <opencv2/tracking.hpp>
#include <string>
#include <vector>

#include <ocula/ocula_picture.h>
#include "csrt_config.h"
#include "csrt_tracker_health.h"
#include "gpu_image.h"
#include "ialgo_plugin.h"

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
  std::vector<AlgoOutput> init(const Frames& frames, const BBox& box, bool* started) override;
  std::vector<AlgoOutputDeclaration> getOutputDeclarations() const override;
  /// One step on the first frame.
  /// @param processed  may be null; always true: the frame was consumed, found target or not
  /// @return           exactly one "detection.v1" record
  std::vector<AlgoOutput> update(const Frames& frames, bool* processed) override;
  bool isAlive() override;
  std::string getName() const override;
  std::string getUuid() override;  ///< Random, version 4; the same for the life of the object.
  bool isDynamic() const override;
  void changePerformance(int level) override;  ///< No effect.
  void enableDebug(bool on) override;          ///< The same flag as `misc.debug`.
  std::string getConfigList() override;        ///< JSON Schema of the text setConfig() reads.
  /// Takes what it understands of a JSON object and leaves the rest of the configuration as it is.
  void setConfig(std::string json) override;
  std::string getPropertyList() override;                          ///< Empty: there are none.
  void setProperty(std::string name, std::string value) override;  ///< No effect.
  std::string property(std::string name) override;                 ///< Empty.

 protected:  // tests look inside by deriving
  struct UpdateStep;
  struct RedetectPatch;
  struct RedetectRun;
  enum class TrackAction { Step, ReinitFromOldWindow, Rebuild };

  // Output records and log (csrt_tracking_algo_core.cpp)
  AlgoOutput makeDetectionsOutput_(const DetectionResult& result) const;
  AlgoOutput makePrepositionOutput_(double targetPanDeg, double targetTiltDeg) const;
  float currentDetectionScore_() const;
  static std::string generateUuid_();
  /// One line on standard output while debug is on; formats nothing otherwise. Any thread.
  void log_(const char* format, ...) const __attribute__((format(printf, 2, 3)));

  // Start (csrt_tracking_algo_core.cpp)
  std::vector<AlgoOutput> start_Locked_(const Frames& frames, const BBox& box, bool& started);
  bool startsNearCentre_Locked_(const cv::Size& frame) const;
  bool wantsPreposition_Locked_(const ocula::OculaPicture::BaseMetadata& metadata) const;
  bool startTracker_Locked_(ocula::OculaPicture& picture, const char* reason);
  bool tryStartPreposition_Locked_(ocula::OculaPicture& picture);
  void clearPrepositionAndZoom_Locked_();

  // One frame (csrt_tracking_algo_core.cpp)
  void trackFrame_(UpdateStep& step);
  bool answerWithoutTracking_Locked_(UpdateStep& step);
  void chooseWindow_Locked_(UpdateStep& step);
  bool tryCropWindow_(UpdateStep& step) const;
  void answerOnCrop_Locked_(UpdateStep& step, bool haveCrop);
  void locateBoxInCrop_Locked_(UpdateStep& step);
  TrackAction chooseAction_Locked_(const UpdateStep& step) const;
  void trackOnCrop_Locked_(UpdateStep& step);
  bool tryStepTracker_Locked_(const cv::Mat& crop, cv::Rect& boxInCrop);
  void answerUnstable_Locked_(UpdateStep& step, double score);
  void answerTracked_Locked_(UpdateStep& step, const cv::Rect& boxInCrop, const cv::Rect& newBox);
  void answerLost_Locked_(UpdateStep& step);
  void refreshDynamicPatch_Locked_(const cv::Mat& crop, const cv::Rect& boxInCrop);
  void ageRedetection_Locked_();
  bool oscillates_Locked_();
  void redetectWhenDue_Locked_(UpdateStep& step);
  void carryBoxFromOldWindow_Locked_(UpdateStep& step);
  void rebuildTracker_Locked_(UpdateStep& step);
  void appendBox_Locked_(DetectionResult& result, const cv::Rect& box, const cv::Size& frame);
  /// @param format  the exit's line; takes the number of detections (%zu)
  void answerPredicted_Locked_(UpdateStep& step, const char* format);
  /// The exit's line and one line per detection.
  void logAnswer_(const DetectionResult& result, const char* format, ...) const __attribute__((format(printf, 3, 4)));

  // Preposition and zoom (csrt_tracking_algo_core.cpp)
  static bool tryReadViewGeometry_(const ocula::OculaPicture::BaseMetadata& metadata, double& pan, double& tilt,
                                   double& hfov, double& vfov);
  static bool tryBuildPrepositionTarget_(const ocula::OculaPicture::BaseMetadata& metadata, const BBox& box, int frameW,
                                         int frameH, double& targetPan, double& targetTilt);
  bool tryBuildExpectedBBoxLocked_(const ocula::OculaPicture::BaseMetadata& metadata, int frameW, int frameH,
                                   BBox& outBox, double& dxNorm, double& dyNorm, double& hfov, double& vfov) const;
  static bool tryComputeZoomScaleFactors_(double prevHfov, double prevVfov, double curHfov, double curVfov,
                                          double& scaleX, double& scaleY);
  bool capturePrepositionReferenceLocked_(ocula::OculaPicture& picture, const cv::Rect& box);
  bool refinePrepositionCandidateLocked_(ocula::OculaPicture& picture, const cv::Rect& candidate, cv::Rect& refined,
                                         double& match);
  bool tryArmTrackingLocked_(ocula::OculaPicture& picture);
  bool tryArmOnBox_Locked_(ocula::OculaPicture& picture, const cv::Rect& expected, const cv::Point2d& offset,
                           double hfov, double vfov);
  bool maybeHandleZoomChangeLocked_(ocula::OculaPicture& picture);
  cv::Rect zoomedBox_Locked_(const cv::Size& frame, double scaleX, double scaleY) const;
  /// As initializeTrackerFromFrameLocked_(), but an exception counts as failure.
  bool tryInitializeTracker_Locked_(ocula::OculaPicture& picture, const cv::Rect& box, bool refine, const char* reason);
  void setZoomReference_Locked_(double hfov, double vfov);

  // Configuration (csrt_tracking_algo_config.cpp)
  void applyConfig_Locked_(const SwJsonObject& root);
  void readConfigGroup_Locked_(const SwJsonObject& values, const std::string& group);
  void logConfig_Locked_() const;

  // Processing window (csrt_tracking_algo_redetect.cpp); the arithmetic is in window_geometry.h
  cv::Rect computeProcWindow_Locked_(const cv::Rect& trackBox, const cv::Size& frame) const;
  cv::Size computeProcSizeWithHyst_(int desiredW, int desiredH, const cv::Size& frame) const;
  static int alignToMultiple_(int v, int m);
  cv::Rect guardWindowForCSRT_(const cv::Rect& roi, const cv::Rect& trackBox, const cv::Size& frame) const;
  cv::Rect applyCropSizePolicyAndClamp_(const cv::Rect& roi, const cv::Rect& prevRoi, const cv::Size& frame) const;
  static cv::Rect mapFullToSmall_(const cv::Rect& r, int fullW, int fullH, int smallW, int smallH);
  static cv::Rect mapSmallToFull_(const cv::Rect& r, int smallW, int smallH, int fullW, int fullH);

  // Tracker and pictures (csrt_tracking_algo_redetect.cpp)
  cv::tracking::TrackerCSRT::Params makeCSRTParams_() const;
  /// A tracker that has not seen a picture yet. Throws std::runtime_error when every feature is switched off.
  cv::Ptr<cv::tracking::TrackerCSRT> createTracker_() const;
  /// Starts over on the part of `box` inside the picture; on false or an exception the old track is whole.
  bool initializeTrackerFromFrameLocked_(ocula::OculaPicture& picture, const cv::Rect& box, bool refine,
                                         const char* reason);
  bool tryBuildFullGrey_Locked_(ocula::OculaPicture& picture);
  void commitStart_Locked_(const cv::Ptr<cv::tracking::TrackerCSRT>& tracker, const GpuImage& patch,
                           const cv::Mat& crop, const cv::Rect& window, const cv::Rect& boxInCrop);
  void takeFrameSize_Locked_(const cv::Size& frame);
  cv::Rect windowForStart_Locked_(const cv::Rect& box, const cv::Size& frame) const;
  /// Replaces the tracker by one started on `crop`; without one when that throws.
  void publishTracker_Locked_(const cv::Mat& crop, const cv::Rect& boxInCrop);
  /// A new tracker on the crop of the last start, after a change of its parameters.
  void rebuildTrackerKeepingState_Locked_(const char* reason);
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
  double computeStabilityScore_(const cv::Rect& prevBox, const cv::Rect& newBox, const cv::Size& frame) const;
  cv::Rect applyOutputSmoothing_(const cv::Rect& box);

  // Loss (csrt_tracking_algo_redetect.cpp)
  void lostFrame_Locked_();
  void onRedetectFail_Locked_();
  void forceFullyLost_Locked_();
  void resetInternal_Locked_();
  void fillPredictedResult_Locked_(DetectionResult& result, ocula::OculaPicture& picture, int frameW, int frameH);

  // Re-detection (csrt_tracking_algo_redetect.cpp)
  /// Best place of `templ` near a point. @param cx, cy, objW, objH  full-frame pixels
  /// @param score  -1 when there is none  @param out  size of `templ`; empty when there is none
  void findBestInROI_GPU_Locked_(double cx, double cy, double objW, double objH, const GpuImage& templ,
                                 const GpuImage& image, double& score, cv::Rect& out);
  /// Searches the whole frame; afterwards the tracker runs on the find, or one failed attempt is counted.
  void reDetectGlobally_Locked_(ocula::OculaPicture& picture, int frameW, int frameH);
  void collectPatches_Locked_(RedetectRun& run) const;
  void takeReference_Locked_(RedetectRun& run) const;
  bool tryShrinkFrame_Locked_(RedetectRun& run);
  void searchCoarse_Locked_(RedetectRun& run);
  void matchAtScales_Locked_(RedetectRun& run, const RedetectPatch& patch);
  bool matchBeatsBest_Locked_(RedetectRun& run, const RedetectPatch& patch, const GpuImage& coarse,
                              const GpuImage& templ);
  void searchFine_Locked_(RedetectRun& run);
  const char* validate_Locked_(const RedetectRun& run) const;
  const char* reinitialise_Locked_(const RedetectRun& run, ocula::OculaPicture& picture);
  void finishRedetect_Locked_(const RedetectRun& run, const char* outcome, double value);
  /// Likeness of the frame at `box` (frame pixels) to the target at the start, [-1, 1]; 0 when it cannot be told.
  double computeOrigAppearanceAt_(const cv::Rect& box) const;

  // Lock and identity
  std::mutex mutex_;
  bool pending_full_reset_ = false;  ///< The next update() gives the target up.
  bool pending_rebuild_ = false;     ///< The next update() makes a new tracker with the new parameters.
  std::mutex uuidMutex_;             ///< Never held together with `mutex_`: identity does not wait for a frame.
  std::string uuid_;
  std::atomic<bool> debug_{false};

  // Start, preposition and zoom
  bool prepositionWaiting_ = false;
  bool trackingStarted_ = false;
  bool justReseeded_ = false;
  int alignmentHits_ = 0;
  bool prepositionTargetValid_ = false;
  bool prepositionRefGeomValid_ = false;
  bool zoomRefValid_ = false;
  cv::Rect initBox_;  ///< The box of init(), clipped to the frame; its size is the reference for size limits.
  double prepositionTargetPan_ = 0.0;
  double prepositionTargetTilt_ = 0.0;
  double prepositionRefPan_ = 0.0;
  double prepositionRefTilt_ = 0.0;
  double prepositionRefHfov_ = 0.0;
  double prepositionRefVfov_ = 0.0;
  double zoomRefHfov_ = 0.0;
  double zoomRefVfov_ = 0.0;

  // Track
  cv::Ptr<cv::tracking::TrackerCSRT> tracker_;
  bool trackerReady_ = false;  ///< `tracker_` has seen its first picture; stepping it before would crash.
  bool initialized_ = false;
  bool fullyLost_ = false;
  int lostFrames_ = 0;
  int redetectAttempts_ = 0;
  int lostSinceRedetect_ = 0;
  int redetectAge_ = -1;  ///< Tracked frames since the last find; -1: not watched.
  int oscillationCount_ = 0;
  cv::Rect trackBox_;
  cv::Rect predictedBox_;
  cv::Point2f velocity_;  ///< Pixels per frame.
  double lastScore_ = 1.0;
  cv::Size frameSize_;
  cv::Rect smoothedBox_;
  bool smoothedValid_ = false;
  CsrtTrackerHealth health_;

  // Pictures and windows
  cv::Mat initCrop_;        ///< What the tracker was last started on; 8-bit BGR.
  cv::Rect initBoxInCrop_;  ///< Crop pixels.
  cv::Size csrtInputSize_;  ///< Size of the crop the tracker was last started on; kept by a reset.
  cv::Rect procRoi_;        ///< The last processing window.
  GpuImage fullGrayGpu_;
  GpuImage origPatchGpu_;  ///< The target at the start.
  GpuImage dynPatchGpu_;   ///< The target when it last tracked well.
  bool dynPatchValid_ = false;
  std::vector<double> dynScaleList_{1.0};

  CsrtConfig config_;

 private:
  struct {  // reused by every frame and every search
    cv::Mat crop;
    GpuImage coarse;
    GpuImage patch;
    GpuImage templ;
    GpuImage scores;
    cv::Mat scoreMap;
  } buffers_;
};
