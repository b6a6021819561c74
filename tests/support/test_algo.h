// The plug-in's class with its inside open, a clock that does not depend on the machine, and records read back.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "csrt_tracking_algo.h"
#include "scripted_tracker.h"
#include "test_picture.h"

class TestAlgo : public CSRTTrackingAlgo {
 public:
  TestAlgo() {
    health_ = CsrtTrackerHealth([this] { return now += secondsPerLook; });
  }

  double now = 1000.0;          ///< What the health monitor takes for the time, seconds.
  double secondsPerLook = 0.1;  ///< Time that passes from one tracked frame to the next.

  /// Tracks `box` with answers given by a script instead of by a tracker; no picture is needed to get there.
  cv::Ptr<ScriptedTracker> follow(const cv::Rect& box, const cv::Rect& window) {
    const cv::Ptr<ScriptedTracker> tracker = cv::makePtr<ScriptedTracker>();
    tracker_ = tracker;
    trackerReady_ = initialized_ = trackingStarted_ = true;
    initBox_ = trackBox_ = predictedBox_ = box;
    procRoi_ = window;
    initBoxInCrop_ = box - window.tl();
    csrtInputSize_ = window.size();
    return tracker;
  }

  using CSRTTrackingAlgo::TrackAction;

  using CSRTTrackingAlgo::currentDetectionScore_;
  using CSRTTrackingAlgo::generateUuid_;
  using CSRTTrackingAlgo::log_;
  using CSRTTrackingAlgo::makeDetectionsOutput_;
  using CSRTTrackingAlgo::makePrepositionOutput_;

  using CSRTTrackingAlgo::capturePrepositionReferenceLocked_;
  using CSRTTrackingAlgo::maybeHandleZoomChangeLocked_;
  using CSRTTrackingAlgo::refinePrepositionCandidateLocked_;
  using CSRTTrackingAlgo::tryArmTrackingLocked_;
  using CSRTTrackingAlgo::tryBuildExpectedBBoxLocked_;
  using CSRTTrackingAlgo::tryBuildPrepositionTarget_;
  using CSRTTrackingAlgo::tryComputeZoomScaleFactors_;
  using CSRTTrackingAlgo::tryReadViewGeometry_;

  using CSRTTrackingAlgo::alignToMultiple_;
  using CSRTTrackingAlgo::applyCropSizePolicyAndClamp_;
  using CSRTTrackingAlgo::computeProcSizeWithHyst_;
  using CSRTTrackingAlgo::computeProcWindow_Locked_;
  using CSRTTrackingAlgo::guardWindowForCSRT_;
  using CSRTTrackingAlgo::mapFullToSmall_;
  using CSRTTrackingAlgo::mapSmallToFull_;

  using CSRTTrackingAlgo::buildFullYFromVP_Locked_;
  using CSRTTrackingAlgo::createTracker_;
  using CSRTTrackingAlgo::ensureBGR8_;
  using CSRTTrackingAlgo::ensureBGR8Contiguous_;
  using CSRTTrackingAlgo::initializeTrackerFromFrameLocked_;
  using CSRTTrackingAlgo::makeCSRTParams_;
  using CSRTTrackingAlgo::rebuildTrackerKeepingState_Locked_;

  using CSRTTrackingAlgo::applyOutputSmoothing_;
  using CSRTTrackingAlgo::computeStabilityScore_;
  using CSRTTrackingAlgo::fillPredictedResult_Locked_;
  using CSRTTrackingAlgo::forceFullyLost_Locked_;
  using CSRTTrackingAlgo::lostFrame_Locked_;
  using CSRTTrackingAlgo::onRedetectFail_Locked_;
  using CSRTTrackingAlgo::resetInternal_Locked_;

  using CSRTTrackingAlgo::computeOrigAppearanceAt_;
  using CSRTTrackingAlgo::findBestInROI_GPU_Locked_;
  using CSRTTrackingAlgo::reDetectGlobally_Locked_;

  using CSRTTrackingAlgo::config_;
  using CSRTTrackingAlgo::debug_;
  using CSRTTrackingAlgo::mutex_;
  using CSRTTrackingAlgo::pending_full_reset_;
  using CSRTTrackingAlgo::pending_rebuild_;
  using CSRTTrackingAlgo::uuid_;

  using CSRTTrackingAlgo::alignmentHits_;
  using CSRTTrackingAlgo::initBox_;
  using CSRTTrackingAlgo::justReseeded_;
  using CSRTTrackingAlgo::prepositionRefGeomValid_;
  using CSRTTrackingAlgo::prepositionRefHfov_;
  using CSRTTrackingAlgo::prepositionRefPan_;
  using CSRTTrackingAlgo::prepositionRefTilt_;
  using CSRTTrackingAlgo::prepositionRefVfov_;
  using CSRTTrackingAlgo::prepositionTargetPan_;
  using CSRTTrackingAlgo::prepositionTargetTilt_;
  using CSRTTrackingAlgo::prepositionTargetValid_;
  using CSRTTrackingAlgo::prepositionWaiting_;
  using CSRTTrackingAlgo::trackingStarted_;
  using CSRTTrackingAlgo::zoomRefHfov_;
  using CSRTTrackingAlgo::zoomRefValid_;
  using CSRTTrackingAlgo::zoomRefVfov_;

  using CSRTTrackingAlgo::frameSize_;
  using CSRTTrackingAlgo::fullyLost_;
  using CSRTTrackingAlgo::health_;
  using CSRTTrackingAlgo::initialized_;
  using CSRTTrackingAlgo::lastScore_;
  using CSRTTrackingAlgo::lostFrames_;
  using CSRTTrackingAlgo::lostSinceRedetect_;
  using CSRTTrackingAlgo::oscillationCount_;
  using CSRTTrackingAlgo::predictedBox_;
  using CSRTTrackingAlgo::redetectAge_;
  using CSRTTrackingAlgo::redetectAttempts_;
  using CSRTTrackingAlgo::smoothedBox_;
  using CSRTTrackingAlgo::smoothedValid_;
  using CSRTTrackingAlgo::trackBox_;
  using CSRTTrackingAlgo::tracker_;
  using CSRTTrackingAlgo::trackerReady_;
  using CSRTTrackingAlgo::velocity_;

  using CSRTTrackingAlgo::csrtInputSize_;
  using CSRTTrackingAlgo::dynPatchGpu_;
  using CSRTTrackingAlgo::dynPatchValid_;
  using CSRTTrackingAlgo::dynScaleList_;
  using CSRTTrackingAlgo::fullGrayGpu_;
  using CSRTTrackingAlgo::initBoxInCrop_;
  using CSRTTrackingAlgo::initCrop_;
  using CSRTTrackingAlgo::origPatchGpu_;
  using CSRTTrackingAlgo::procRoi_;
};

/// A tracker small enough for tests: it still follows a textured target on a plain ground.
inline void makeTrackerCheap(CsrtConfig& config) {
  config.csrt.template_size = 48;
  config.csrt.number_of_scales = 3;
  config.csrt.admm_iterations = 2;
  config.csrt.use_color_names = false;
  config.csrt.use_segmentation = false;
}

/// The member `name` of an object; fails the test and answers false-valued when there is none.
inline AlgoValue memberOf(const AlgoValue& object, const std::string& name) {
  if (const auto* members = std::get_if<AlgoValue::Object>(&object)) {
    for (const auto& [key, value] : *members) {
      if (key == name) return value;
    }
  }
  ADD_FAILURE() << "no member " << name;
  return {};
}

inline int intOf(const AlgoValue& value) {
  const long* whole = std::get_if<long>(&value);
  if (whole == nullptr) ADD_FAILURE() << "not a long: alternative " << value.index();
  return whole == nullptr ? 0 : static_cast<int>(*whole);
}

/// One reported box.
struct Reported {
  cv::Rect box;
  double score = 0.0;
};

inline bool operator==(const Reported& a, const Reported& b) {
  return a.box == b.box && a.score == b.score;
}

inline std::ostream& operator<<(std::ostream& out, const Reported& r) {
  return out << r.box << " score " << r.score;
}

/// What the one "detection.v1" record of an answer reports; fails the test when the answer is anything else.
inline std::vector<Reported> reportedIn(const std::vector<AlgoOutput>& outputs) {
  std::vector<Reported> reported;
  if (outputs.size() != 1 || outputs.front().name != "detection.v1") {
    ADD_FAILURE() << "not exactly one detection.v1 record but " << outputs.size();
    return reported;
  }
  const AlgoValue list = memberOf(outputs.front().value, "detections");
  const auto* elements = std::get_if<AlgoValue::Array>(&list);
  if (elements == nullptr) {
    ADD_FAILURE() << "detections is not an array";
    return reported;
  }
  for (const AlgoValue& det : *elements) {
    const AlgoValue score = memberOf(det, "score");
    reported.push_back(
        {{intOf(memberOf(det, "x")), intOf(memberOf(det, "y")), intOf(memberOf(det, "w")), intOf(memberOf(det, "h"))},
         std::holds_alternative<double>(score) ? std::get<double>(score) : -1.0});
  }
  return reported;
}

/// Overlap of two boxes: common area by joint area, [0, 1].
inline double overlap(const cv::Rect& a, const cv::Rect& b) {
  const double common = (a & b).area();
  return common / (a.area() + b.area() - common);
}
