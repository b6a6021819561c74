#include "commands/track_options.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "base/host_error.h"
#include "commands/evaluation_options.h"
#include "input/file_plan.h"
#include "picture/picture_output.h"
#include "run/record_folder.h"

namespace host {
namespace {

bool isAnyInPercent(const std::vector<std::string>& boxes) {
  return std::any_of(boxes.begin(), boxes.end(),
                     [](const std::string& box) { return box.find('%') != std::string::npos; });
}

void addSourceOptions(CLI::App& command, SourceOptions& source) {
  command
      .add_option("source", source.source,
                  "Video file, printf pattern (img/%04d.jpg), folder of pictures, camera number, or a live source: "
                  "rtsp://, udp://, rtp://, http://, FILE.sdp, /dev/video0, - for standard input")
      ->type_name("SOURCE");
  command.add_option("--start", source.start, "First frame to use, counted from 0")->type_name("N");
  command.add_option("--frames", source.frames, "Use at most so many frames")->type_name("N");
  command
      .add_option("--fps", source.fps,
                  "Frames per second, instead of the time stamps of the source; default for pictures: 25")
      ->type_name("RATE");
}

void addTargetOptions(CLI::App& command, TrackOptions& options) {
  command
      .add_option("--box", options.boxes,
                  "Target on the first frame: left, top, width, height in pixels or percent (10%); may be repeated, "
                  "then with names: --box walker=412,230,64,48")
      ->type_name("[NAME=]X,Y,W,H")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option("--point", options.points,
                  "A point on the target on the first frame, in pixels or percent; the box is found around it")
      ->type_name("[NAME=]X,Y")
      ->take_all()
      ->allow_extra_args(false);
}

void addOutputOptions(CLI::App& command, TrackOptions& options) {
  command.add_option("--records", options.records, "Write one JSON line per call; -: to standard output")
      ->type_name("FILE");
  command.add_option("--video", options.video, "Write the annotated video, such as out.mp4")->type_name("FILE");
  command.add_option("--still", options.still, "Write the last annotated frame, such as last.png")->type_name("FILE");
  command.add_option("--report", options.report, "Write a page with charts, events and pictures, such as report.html")
      ->type_name("FILE");
  command.add_option("--klv-out", options.klvOut, "Write plain video with the camera's angles inside (MPEG-TS, KLV)")
      ->type_name("FILE.ts");
  command
      .add_option("--stream", options.stream,
                  "Send the drawn picture: rtsp://127.0.0.1:8554/track serves it, udp://HOST:PORT sends MPEG-TS")
      ->type_name("ADDRESS");
  command
      .add_option("--record-dir", options.recordDir,
                  "Keep the drawn video and the records in this folder, a file a minute, the oldest deleted")
      ->type_name("DIR");
  command.add_option("--record-quota", options.recordQuota, "How much --record-dir may hold, such as 500M or 20G")
      ->type_name("SIZE")
      ->capture_default_str();
  command.add_option("--truth", options.truth, "Where the targets really are, for the report; as for 'evaluate'")
      ->type_name("FILE");
  addTruthFormatOptions(command, options.truthFormat, options.firstNumber);
  command.add_option("--save-run", options.saveRun, "Keep frames, calls and answers in a new folder, for 'replay'")
      ->type_name("DIR");
}

}  // namespace

void addTrackOptions(CLI::App& command, TrackOptions& options) {
  addSourceOptions(command, options.source);
  addLiveOptions(command, options.source, options.live);
  addTargetOptions(command, options);
  addConfigOptions(command, options.config);
  command
      .add_option("--metadata", options.metadata,
                  "What the camera said per frame (CSV with a heading, or JSON lines): frame, pan_deg, ..., follow_me")
      ->type_name("FILE");
  addOutputOptions(command, options);
  addGuardOptions(command, options.guard);
  addPaceOption(command, options.pace);
  command.add_flag("--show", options.show,
                   "Open a window: space pauses, . steps, dragging starts over on a new box, q ends");
  addPluginOptions(command, options.plugin);
  addThreadsOption(command, options.threads);
  command.add_flag("--strict", options.strict,
                   "End with status 3 when the source ends early, has damaged frames or changes its picture size");
  command.add_flag("--debug", options.debug, "Show the plug-in's log lines on standard error");
  command.add_flag("--quiet", options.quiet, "No progress, no summary");
}

void checkTrackOptions(const TrackOptions& options) {
  if (options.source.source.empty() == options.source.pipeline.empty()) {
    throw HostError(ExitCode::Usage, "one source is needed: SOURCE, or --gstreamer PIPELINE");
  }
  if (options.boxes.empty() && options.points.empty() && !options.show && options.live.control.empty()) {
    throw HostError(ExitCode::Usage,
                    "--box is required: where is the target on the first frame? (or --point, --show, --control)");
  }
  if (bytesOf(options.recordQuota) == 0) {
    throw HostError(ExitCode::Usage, "--record-quota '" + options.recordQuota + "' is not a size such as 500M or 20G");
  }
  if (!options.truth.empty() && options.report.empty()) {
    throw HostError(ExitCode::Usage, "--truth is for the report: name it with --report FILE");
  }
  if (!options.saveRun.empty() && (options.show || !options.live.control.empty())) {
    throw HostError(ExitCode::Usage, std::string("--save-run and ") + (options.show ? "--show" : "--control") +
                                         " exclude one another: a run steered by hand cannot be repeated");
  }
  if (!options.saveRun.empty() && (!options.points.empty() || isAnyInPercent(options.boxes))) {
    throw HostError(ExitCode::Usage, "--save-run needs each target as a --box in pixels");
  }
  if (!options.video.empty()) checkVideoName(options.video, "--video");
  if (!options.still.empty()) checkPictureName(options.still, "--still");
}

void checkTrackFiles(const TrackOptions& options) {
  FilePlan plan;
  plan.readsSource("the source", options.source.source);
  plan.reads("--config", options.config.file);
  plan.reads("--metadata", options.metadata);
  plan.reads("--truth", options.truth);
  plan.reads("--plugin", pathOf(options.plugin));
  plan.reads("--guard-model", options.guard.model);
  plan.writes("--records", options.records);
  plan.writes("--video", options.video);
  plan.writes("--still", options.still);
  plan.writes("--klv-out", options.klvOut);
  plan.writes("--report", options.report);
  plan.writesFolder("--save-run", options.saveRun);
  plan.check();
}

}  // namespace host
