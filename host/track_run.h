// A run of the tracker over a source: decode once, drive every target, tell the observers.
#pragma once

#include <string>
#include <vector>

#include "frame_source.h"
#include "plugin_library.h"
#include "run_observer.h"
#include "target_option.h"

namespace host {

struct TrackRun {
  std::string sourceName;
  std::string configText;             ///< For setConfig(); empty: nothing is passed.
  std::vector<TargetOption> targets;  ///< At least one.
  int threads = 1;                    ///< Targets are spread over so many threads.
  bool logToStderr = false;           ///< Whether the plug-in's log lines are shown.
};

struct TrackRunResult {
  long frames = 0;                  ///< Frames delivered by the source, the first one included.
  std::vector<CallRecord> refused;  ///< The init records of targets that did not start.
  bool interrupted = false;
};

/// Starts every target on the source's first frame and updates it on each later one until the source ends, a signal
/// asks to stop, or no target started. A target that does not start is left out; the others go on.
/// @throws HostError (Source) when the source has no frame, and whatever source and observers throw; observers that
///         began are always ended
TrackRunResult runTrack(FrameSource& source, PluginLibrary& library, const TrackRun& run,
                        const std::vector<RunObserver*>& observers);

}  // namespace host
