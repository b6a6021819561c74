// One target: a plug-in object, driven and judged call by call.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ialgo_plugin.h"
#include "input/pace.h"
#include "ocula/ocula_picture.h"
#include "plugin/call_record.h"

namespace host {

/// The place of a frame in its source.
struct FramePlace {
  long index = 0;       ///< Counted from 0.
  double time_s = 0.0;  ///< Seconds since the source's beginning.
};

/// Drives one plug-in object and turns each answer into a CallRecord.
/// Threads: one call at a time; different sessions may run on different threads.
/// Errors: an exception out of the plug-in becomes a record in state Lost with its text as reason.
class TargetSession {
 public:
  using Frame = std::shared_ptr<ocula::OculaPicture>;

  /// @param engine  the plug-in's, as records say it
  TargetSession(std::shared_ptr<IAlgoPlugin> plugin, std::string name, std::string engine = "unknown");

  /// Gives the plug-in a configuration; its debug lines stay on whatever the text says. Empty: nothing is passed.
  /// @return what the plug-in logged
  std::vector<std::string> configure(const std::string& json);

  /// One call of the plug-in and what it came to. @param place  of the frame in its source
  CallRecord init(const Frame& frame, const FramePlace& place, const BBox& box);
  CallRecord update(const Frame& frame, const FramePlace& place);

  /// The record of a moment without a frame: the last box as predicted, or the last state where there was none. The
  /// plug-in is not called.
  CallRecord silent(const FramePlace& place) const;

  /// From now on records say this pace. Under Pace::Video the plug-in's clock stands at the frame's time_s during a
  /// call (see frame_clock.h), so that its rules in seconds judge the video and not this machine. Pace::Fast at first.
  void keepPace(Pace pace) { pace_ = pace; }

  /// From the next init() on, a guard watches: records then hold what it reports, in `guard` also what the plug-in
  /// said, and the plug-in is started over where the guard finds the target, without pointing the camera again. While
  /// the camera is pointed the guard waits.
  void guardWith(const GuardChoice& choice);

  /// The target's name, and the object that follows it.
  const std::string& name() const { return name_; }
  IAlgoPlugin& plugin() { return *plugin_; }

 private:
  template <typename Call>
  std::string timedCall_(CallRecord& record, Call call) const;
  CallRecord begin_(const FramePlace& place, bool isInit) const;
  void watch_(CallRecord& record, CallFacts& facts, const Frame& frame);
  std::vector<AlgoOutput> initWithoutPointing_(const Frame& frame, const BBox& box, bool& started);
  void takeFind_(CallRecord& record, CallFacts& facts, const Frame& frame, const csrt_guard::Verdict& verdict);
  bool startOver_(CallRecord& record, CallFacts& facts, const Frame& frame);
  void take_(CallRecord& record, const CallFacts& facts);

  std::shared_ptr<IAlgoPlugin> plugin_;
  std::string name_;
  std::string engine_;
  std::vector<std::string> configured_;  // in the order in which they count
  std::optional<FramePlace> seen_;       // where the target was last seen
  long callsSinceSeen_ = 0;
  TrackState lastState_ = TrackState::Inactive;
  std::optional<cv::Rect> lastBox_;
  Pace pace_ = Pace::Fast;
  std::optional<csrt_guard::Guard> guard_;
  std::string guardModelSha256_;  // of the network that the guard asks; empty: none
};

}  // namespace host
