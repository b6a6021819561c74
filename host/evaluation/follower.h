// One target under one tracker, whichever it is: the plug-in, or the bare OpenCV tracker it is compared with.
#pragma once

#include <memory>
#include <opencv2/core.hpp>
#include <opencv2/tracking.hpp>
#include <opencv2/video/tracking.hpp>
#include <optional>
#include <string>

#include "input/frame_source.h"
#include "ocula/ocula_picture.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"

namespace host {

/// What a tracker says about one frame.
struct FollowerAnswer {
  std::optional<cv::Rect2d> box;  ///< Full-frame pixels.
  bool seen = false;              ///< It claims to see the target, not only to predict it.
  double wall_ms = 0.0;           ///< Wall-clock time of the call.
  double cpu_ms = 0.0;            ///< Processor time of the calling thread.
};

/// Not thread-safe; different followers may work on different threads.
class Follower {
 public:
  using Picture = std::shared_ptr<ocula::OculaPicture>;
  virtual ~Follower() = default;
  /// False: the tracker refuses the box. @param box  full-frame pixels
  virtual bool init(const Picture& picture, const SourceFrame& frame, const cv::Rect& box) = 0;
  virtual FollowerAnswer update(const Picture& picture, const SourceFrame& frame) = 0;
};

/// @param followFrameTime  the plug-in's clock stands at the frame's time during a call
std::unique_ptr<Follower> makePluginFollower(PluginLibrary& library, const std::string& configText,
                                             bool followFrameTime, const GuardChoice& guard = {});

/// What makes a tracker from parameters: OpenCV's own function, or another of that shape.
using TrackerMaker = cv::Ptr<cv::tracking::TrackerCSRT> (*)(const cv::tracking::TrackerCSRT::Params& params);

/// cv::TrackerCSRT on the whole frame. It is "seen" whenever its update() answers true.
/// @param configText  read as the plug-in reads it, so that both run the same parameters; null: OpenCV's own
std::unique_ptr<Follower> makeReferenceFollower(const std::string* configText,
                                                TrackerMaker make = cv::tracking::TrackerCSRT::create);

/// Any tracker of OpenCV on the whole frame, before its init(); null refuses every box. It is "seen" whenever its
/// update() answers true.
std::unique_ptr<Follower> makeTrackerFollower(cv::Ptr<cv::Tracker> tracker);

/// Processor time of the calling thread, milliseconds since it began.
double threadMilliseconds();

}  // namespace host
