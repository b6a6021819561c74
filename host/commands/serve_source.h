// The source of a served run: whatever `track` takes, always the newest frame first, with the last second kept.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "commands/live_options.h"
#include "input/frame_source.h"
#include "input/pace.h"
#include "run/serve_run.h"

namespace host {

/// A source opened for `serve`.
struct ServedSource {
  std::unique_ptr<FrameSource> frames;
  PastFrames past;  ///< Of `frames`, which must outlive it.
};

/// @param live      what concerns live sources
/// @param pace      Source: a recorded source is played at its rate; else every frame of it comes, as fast as asked for
/// @param metadata  of a live source: a growing file; empty: none
/// @param isOver    asked about ten times a second while waiting: true ends the source
/// @throws HostError (Usage, Source)
ServedSource openServedSource(const SourceOptions& source, const LiveTrackOptions& live, Pace pace,
                              const std::string& metadata, bool quiet, const std::function<bool()>& isOver);

}  // namespace host
