// Where people are told of a run and steer it: a ground station's line, a browser's page, a control channel. A served
// run has one or several of them.
#pragma once

#include <functional>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ialgo_plugin.h"
#include "run/run_observer.h"

namespace host {

/// What came of a command.
struct FrontAnswer {
  bool done = false;
  std::string why;                   ///< When not done: one sentence without full stop.
  std::optional<CallRecord> record;  ///< Of a start: the plug-in's init(), accepted or not.
  std::size_t caughtUp = 0;          ///< Of a start on an older frame: frames worked through since.
};

/// What a front asks for. Boxes and points are full-frame pixels.
struct FrontCommand {
  enum class Kind {
    Box,        ///< Start a target on `box`.
    Point,      ///< Start a target on what lies around `point`; see proposeBox().
    Stop,       ///< Follow a target no longer.
    Configure,  ///< Give all targets, and those that start later, `configText`.
    End         ///< End the run.
  };
  Kind kind = Kind::Stop;
  std::string target;         ///< Its name. Empty: of a start the first target, of Stop all of them.
  BBox box{};                 ///< Of Box; may lie partly outside.
  cv::Point point;            ///< Of Point.
  std::optional<long> frame;  ///< The number of the frame it was chosen on; nothing: the newest one.
  std::string configText;     ///< Of Configure: a JSON object for setConfig(), over what they have; checked before.
  std::function<void(const FrontAnswer&)> answer;  ///< Called once, from the run's thread; may be empty.
};

/// All calls come from the run's thread; what a front hears from outside it keeps until takeCommands(). As an observer
/// it is also told of every frame with its finished records (none: no target is followed), of starts and of silence.
/// A frame's turn: describe(), judged(), frame(), takeCommands().
class Front : public RunObserver {
 public:
  /// Adds what it knows about a frame that is about to be judged, such as the gimbal's angles, to `frame.live->camera`.
  virtual void describe(SourceFrame& /*frame*/) {}
  /// What was asked for since the last call, in order. Also asked while no frame comes.
  virtual std::vector<FrontCommand> takeCommands() { return {}; }
  /// Adds what it makes of the answers to the records, before any observer sees them. Also called for the record of a
  /// start, and of each frame that a start on an older frame catches up with; observers do not see the latter.
  virtual void judged(const SourceFrame& /*frame*/, std::vector<CallRecord>& /*records*/) {}
  /// A second or more has passed without a frame: told every second, beside noSignal(), with the frame that has no
  /// picture.
  virtual void silence(const SourceFrame& /*frame*/, const std::vector<CallRecord>& /*records*/) {}
  /// A target is no longer followed, because somebody asked for it.
  virtual void stopped(const std::string& /*target*/) {}
};

}  // namespace host
