// A run of the plug-in over a source: every target is started on the first frame and updated on each later one.
#pragma once

#include <string>
#include <vector>

#include "input/frame_source.h"
#include "input/metadata_file.h"
#include "input/pace.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"
#include "run/run_loop.h"
#include "run/run_observer.h"
#include "run/run_steering.h"
#include "run/target_option.h"

namespace host {

/// What to run: which targets, how configured, at what pace.
struct TrackRun {
  std::string sourceName;             ///< As the user named it.
  std::string configText;             ///< For setConfig(); empty: nothing is passed.
  std::vector<TargetOption> targets;  ///< Empty: `steering` is asked.
  MetadataTable metadata;             ///< What the camera said, by frame; empty: nothing.
  Pace pace = Pace::Fast;             ///< Which time the plug-in sees, and how fast frames come.
  GuardChoice guard;                  ///< Who watches the plug-in's answers.
  int threads = 1;                    ///< Targets are spread over so many threads.
  bool logToStderr = false;           ///< Whether the plug-in's log lines are shown.
};

/// What a run came to.
struct TrackRunResult : RunResult {
  std::vector<CallRecord> refused;  ///< The init records of targets that did not start.
};

/// Starts every target on the source's first frame and updates it on each later one until the source ends, a signal
/// asks to stop, or no target started. A target that does not start is left out; the others go on.
/// While a live source has no signal, observers are told once a second and the plug-in is not called.
/// @throws HostError (Source) when the source has no frame, and whatever source and observers throw; observers that
///         began are always ended
/// @param steering  may be null; a target that it starts over begins a new record of init() on the same frame
TrackRunResult runTrack(FrameSource& source, PluginLibrary& library, const TrackRun& run,
                        const std::vector<RunObserver*>& observers, RunSteering* steering = nullptr);

}  // namespace host
