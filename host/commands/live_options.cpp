#include "commands/live_options.h"

#include <CLI/CLI.hpp>

#include "base/host_error.h"
#include "base/interrupt.h"

namespace host {

void addLiveOptions(CLI::App& command, SourceOptions& source, LiveTrackOptions& live) {
  command
      .add_option("--gstreamer", source.pipeline,
                  "A GStreamer pipeline in place of SOURCE; it ends in '! appsink name=out'")
      ->type_name("PIPELINE");
  command.add_option("--rtsp-transport", live.transport, "How an RTSP camera sends: tcp or udp")
      ->type_name("KIND")
      ->check(CLI::IsMember({"tcp", "udp"}))
      ->capture_default_str();
  command.add_option("--connect-timeout", live.connectS, "Live source: longest wait for its first frame, seconds")
      ->type_name("S")
      ->check(CLI::Range(0.5, 3600.0))
      ->capture_default_str();
  command
      .add_option("--give-up", live.giveUpS,
                  "Live source: end the run after so many seconds without a frame; default: wait for ever")
      ->type_name("S")
      ->check(CLI::Range(1.0, 1e9));
  command
      .add_option("--control", live.control,
                  "Take commands while running: box, point, status, stop. -: from standard input, a path: a socket")
      ->type_name("PATH");
}

bool isLive(const SourceOptions& source) {
  return !source.pipeline.empty() || live::isLiveAddress(source.source);
}

std::unique_ptr<live::LiveSource> openLiveSource(const SourceOptions& source, const LiveTrackOptions& options,
                                                 const std::string& metadata, bool quiet) {
  if (source.source == "-" && options.control == "-") {
    throw HostError(ExitCode::Usage, "standard input is the source: name a socket with --control PATH");
  }
  live::LiveOptions live;
  live.overUdp = options.transport == "udp";
  live.connectLimitS = options.connectS;
  live.giveUpS = options.giveUpS;
  live.keepsPast = !options.control.empty();
  live.sidecar = metadata;
  live.quiet = quiet;
  return std::make_unique<live::LiveSource>(source, live, [] { return interruptSignal() != 0; });
}

}  // namespace host
