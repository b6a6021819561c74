// A run of the tracker over a source: decode once, drive every target, tell the observers.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "input/frame_source.h"
#include "input/metadata_file.h"
#include "input/pace.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"
#include "run/run_observer.h"
#include "run/target_option.h"

namespace host {

/// What to run: which targets, how configured, at what pace.
struct TrackRun {
  std::string sourceName;                ///< As the user named it.
  std::string configText;                ///< For setConfig(); empty: nothing is passed.
  std::vector<TargetOption> targets;     ///< Empty: `steering` is asked.
  MetadataTable metadata;                ///< What the camera said, by frame; empty: nothing.
  Pace pace = Pace::Fast;                ///< Which time the plug-in sees, and how fast frames come.
  GuardChoice guard = GuardChoice::Off;  ///< Who watches the plug-in's answers.
  int threads = 1;                       ///< Targets are spread over so many threads.
  bool startsWithout = false;            ///< Set by the run itself: it waits for its first target.
  bool logToStderr = false;              ///< Whether the plug-in's log lines are shown.
};

/// What a person at the window asks for after a frame.
struct Steering {
  bool stop = false;                 ///< End the run.
  std::optional<BBox> restart;       ///< Start the first target over on this box of the frame just shown, or of `on`.
  std::optional<SourceFrame> on;     ///< An earlier frame that the box belongs to.
  std::vector<SourceFrame> catchUp;  ///< Frames after `on`, in order, to be worked through before the next one is read.
};

/// Lets a person steer a run. All calls come from the thread of the run.
class RunSteering {
 public:
  virtual ~RunSteering() = default;
  /// Asked when no target was given: a box on the first frame, or nothing to give up.
  virtual std::optional<BBox> firstBox(const cv::Mat& frame) = 0;
  /// Asked after every frame, and every second while no frame comes: `frame` then has no picture.
  virtual Steering after(const SourceFrame& frame, const std::vector<CallRecord>& records) = 0;
  /// What came of a restart that was asked for.
  virtual void restarted(const CallRecord& /*record*/) {}
  /// Whether the run begins without a target where firstBox() gives none, and waits for a restart.
  virtual bool startsWithout() const { return false; }
};

/// What a run came to.
struct TrackRunResult {
  long frames = 0;                        ///< Frames delivered by the source, the first one included.
  std::vector<CallRecord> refused;        ///< The init records of targets that did not start.
  bool interrupted = false;               ///< A signal ended it.
  cv::Size frameSize;                     ///< Of the first frame, pixels.
  std::vector<std::string> sourceFaults;  ///< What was the matter with the source; see FrameSource::faults().
};

/// Starts every target on the source's first frame and updates it on each later one until the source ends, a signal
/// asks to stop, or no target started. A target that does not start is left out; the others go on.
/// While a live source has no signal, observers are told once a second and the plug-in is not called.
/// @throws HostError (Source) when the source has no frame, and whatever source and observers throw; observers that
///         began are always ended
/// @param steering  may be null; a target that it starts over begins a new record of init() on the same frame
TrackRunResult runTrack(FrameSource& source, PluginLibrary& library, TrackRun run,
                        const std::vector<RunObserver*>& observers, RunSteering* steering = nullptr);

}  // namespace host
