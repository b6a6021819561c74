// A run that is steered from outside while it goes on: targets are started and stopped by fronts, the last second of
// frames is kept because a person chooses on a picture that is already old.
#pragma once

#include <string>
#include <vector>

#include "input/frame_source.h"
#include "input/metadata_file.h"
#include "input/pace.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"
#include "run/control_steering.h"
#include "run/front.h"

namespace host {

/// One run of `serve`: its source, its targets, and who may command it.
struct ServeRun {
  std::string sourceName;     ///< As the user named it.
  std::string configText;     ///< For setConfig(); empty: nothing is passed.
  MetadataTable metadata;     ///< What a recorded camera said, by frame; empty: nothing.
  Pace pace = Pace::Source;   ///< Which time the plug-in sees.
  GuardChoice guard;          ///< Who watches the plug-in's answers.
  int threads = 1;            ///< Targets are spread over so many threads.
  bool logToStderr = false;   ///< Whether the plug-in's log lines are shown.
  double videoDelay_s = 0.0;  ///< From capture to arrival, where the sender does not say when it captured.
};

/// The frames that a source keeps, and how many of them to catch up with.
struct PastFrames {
  KeptFrames kept;
  CatchUpRule catchUp = nullptr;  ///< Null: with all.
};

/// What came of it.
struct ServeResult {
  long frames = 0;   ///< Judged, or shown while nothing was tracked.
  long dropped = 0;  ///< Passed over, as the tracker was slower than they came.
  bool interrupted = false;
  std::vector<std::string> sourceFaults;
};

/// Works through the source until it ends, a front ends it, or a signal asks to stop. Observers and fronts are told the
/// same; a front's commands are obeyed after each frame, and every second while no frame comes.
/// @throws HostError (Source) when the source has no frame, and whatever source, observers and fronts throw; those that
///         began are always ended
ServeResult runServe(FrameSource& source, const PastFrames& past, PluginLibrary& library, const ServeRun& run,
                     const std::vector<RunObserver*>& observers, const std::vector<Front*>& fronts);

}  // namespace host
