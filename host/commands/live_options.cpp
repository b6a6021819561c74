#include "commands/live_options.h"

#include <CLI/CLI.hpp>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "run/control_steering.h"

namespace host {

void addReceiveOptions(CLI::App& command, SourceOptions& source, LiveTrackOptions& live) {
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
}

void addLiveOptions(CLI::App& command, SourceOptions& source, LiveTrackOptions& live) {
  addReceiveOptions(command, source, live);
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
                                                 const std::string& metadata, bool quiet,
                                                 std::function<bool()> isOver) {
  if (source.source == "-" && options.control == "-") {
    throw HostError(ExitCode::Usage, "standard input is the source: name a socket with --control PATH");
  }
  live::LiveOptions live;
  live.overUdp = options.transport == "udp";
  live.connectLimitS = options.connectS;
  live.giveUpS = options.giveUpS;
  live.keepsPast = options.keepsPast || !options.control.empty();
  live.sidecar = metadata;
  live.quiet = quiet;
  if (!isOver) isOver = [] { return interruptSignal() != 0; };
  return std::make_unique<live::LiveSource>(source, live, std::move(isOver));
}

std::unique_ptr<RunSteering> openControl(const LiveTrackOptions& options, live::LiveSource* source,
                                         RunSteering* beneath) {
  if (options.control.empty()) return nullptr;
  KeptFrames kept;
  if (source != nullptr) {
    kept.find = [source](long index) -> std::optional<SourceFrame> {
      const std::optional<live::LiveFrame> found = source->past().find(index);
      if (!found) return std::nullopt;
      return source->sourceFrameOf(*found, 0);
    };
    kept.after = [source](long index) {
      std::vector<SourceFrame> later;
      for (const live::LiveFrame& frame : source->past().after(index)) {
        later.push_back(source->sourceFrameOf(frame, 0));
      }
      return later;
    };
    kept.range = [source] { return source->past().range(); };
  }
  return std::make_unique<ControlSteering>(options.control, std::move(kept), live::framesToCatchUp, beneath);
}

}  // namespace host
