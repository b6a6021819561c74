// The options of `track` that concern live sources, commands while running, and how the source is opened.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "input/frame_source.h"
#include "live/live_source.h"
#include "run/track_run.h"

namespace CLI {
class App;
}

namespace host {

/// What only a live run has: where it sends, keeps and steers.
struct LiveTrackOptions {
  std::string transport = "tcp";  ///< RTSP: "tcp" or "udp".
  double connectS = 10.0;         ///< Longest wait for the first frame.
  double giveUpS = 0.0;           ///< 0: never.
  std::string control;            ///< "-": standard input; a path: a socket; empty: none.
  bool keepsPast = false;         ///< The last second is kept also without --control.
};

/// How a live source is received: --gstreamer, --rtsp-transport, --connect-timeout.
void addReceiveOptions(CLI::App& command, SourceOptions& source, LiveTrackOptions& live);

/// The same, and what a run needs beside it: --give-up, --control.
void addLiveOptions(CLI::App& command, SourceOptions& source, LiveTrackOptions& live);

/// Whether the source that is named is a live one: an address, a device, a pipeline, standard input.
bool isLive(const SourceOptions& source);

/// @param metadata  of a live source: a growing file; empty: none
/// @throws HostError (Usage) for a wrong option, (Source) where it cannot be received
/// @param isOver  asked about ten times a second while waiting; empty: whether a signal asked to stop
std::unique_ptr<live::LiveSource> openLiveSource(const SourceOptions& source, const LiveTrackOptions& live,
                                                 const std::string& metadata, bool quiet,
                                                 std::function<bool()> isOver = {});

/// Takes commands while the run goes on, from where --control says; null without it.
/// @param source   the live source whose last second is kept; null: only the newest frame can be named
/// @param beneath  the window, or null
std::unique_ptr<RunSteering> openControl(const LiveTrackOptions& live, live::LiveSource* source, RunSteering* beneath);

}  // namespace host
