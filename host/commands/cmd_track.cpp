// csrt-track track: follows targets through a video and writes what was found.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/json_text.h"
#include "base/masked_address.h"
#include "base/text_file.h"
#include "base/text_output.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/live_options.h"
#include "commands/plugin_choice.h"
#include "commands/stream_outputs.h"
#include "config/config_check.h"
#include "config/config_text.h"
#include "evaluation/truth.h"
#include "input/file_plan.h"
#include "input/frame_source.h"
#include "input/metadata_file.h"
#include "picture/annotate.h"
#include "picture/picture_output.h"
#include "plugin/plugin_library.h"
#include "report/html_report.h"
#include "run/delay_observer.h"
#include "run/live_window.h"
#include "run/progress.h"
#include "run/record_folder.h"
#include "run/run_summary.h"
#include "run/saved_run.h"
#include "run/track_run.h"

namespace host {
namespace {

struct TrackOptions {
  SourceOptions source;
  LiveTrackOptions live;
  std::vector<std::string> boxes;
  std::vector<std::string> points;
  ConfigOptions config;
  std::string metadata;
  std::string records;
  std::string video;
  std::string still;
  PluginChoice plugin;
  std::string pace = "video";
  std::string guard = "off";
  std::string report;
  std::string truth;
  std::string truthFormat = "auto";
  long firstNumber = 1;
  std::string saveRun;
  std::string klvOut;
  std::string stream;
  std::string recordDir;
  std::string recordQuota = "10G";
  int threads = 1;
  bool debug = false;
  bool quiet = false;
  bool show = false;
  bool strict = false;
};

/// One line per call. A file is begun with the first target that is followed: a box that is refused costs nobody the
/// records of an earlier run.
class RecordsObserver : public RunObserver {
 public:
  /// @param delay  what it has found goes into the records; null: nothing
  RecordsObserver(const std::string& path, const DelayObserver* delay)
      : output_(path, "--records"), delay_(delay), begun_(path == "-") {}
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& records) override { write_(records); }
  void noSignal(const std::vector<CallRecord>& records) override { write_(records); }
  void restarted(const CallRecord& record) override { write_({record}); }

 private:
  void write_(const std::vector<CallRecord>& records) {
    for (CallRecord record : records) {
      if (delay_ != nullptr) record.anglesStaleMs = delay_->stale_ms();
      waiting_.push_back(jsonText(toJson(record)));
    }
    begun_ = begun_ || anyFollowed(records);
    if (!begun_) return;
    for (const std::string& line : std::exchange(waiting_, {})) output_.writeLine(line);
  }

  TextOutput output_;
  const DelayObserver* delay_;
  bool begun_;
  std::vector<std::string> waiting_;
};

/// Draws once per frame for both the video and the still.
class PictureObserver : public RunObserver {
 public:
  PictureObserver(const std::string& video, const std::string& still) {
    if (!video.empty()) videoFile_.emplace(video, "--video");
    if (!still.empty()) stillFile_.emplace(still, "--still");
  }
  void begin(const RunInfo& info) override {
    if (videoFile_) video_.emplace(*videoFile_, info.frameSize, info.fps);
  }
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override {
    hasResult_ = hasResult_ || anyFollowed(records);
    last_ = annotator_.draw(frame.bgr, records);
    if (video_) video_->write(last_);
  }
  void restarted(const CallRecord& record) override { annotator_.forget(record.target); }
  void end() override {
    if (!hasResult_) return;  // what an earlier run left is worth more
    if (stillFile_ && !last_.empty()) writePicture(*stillFile_, last_);
    if (video_) video_->close();
  }

 private:
  std::optional<PendingFile> videoFile_;
  std::optional<PendingFile> stillFile_;
  std::optional<VideoOutput> video_;
  bool hasResult_ = false;
  Annotator annotator_;
  cv::Mat last_;
};

bool isAnyInPercent(const std::vector<std::string>& boxes) {
  return std::any_of(boxes.begin(), boxes.end(),
                     [](const std::string& box) { return box.find('%') != std::string::npos; });
}

void checkOptions(const TrackOptions& options) {
  if (options.source.source.empty() == options.source.pipeline.empty()) {
    throw HostError(ExitCode::Usage, "one source is needed: SOURCE, or --gstreamer PIPELINE");
  }
  if (options.threads < 1 || options.threads > 256) {
    throw HostError(ExitCode::Usage, "--threads " + std::to_string(options.threads) + " is not between 1 and 256");
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

void checkFiles(const TrackOptions& options) {
  FilePlan plan;
  plan.readsSource("the source", options.source.source);
  plan.reads("--config", options.config.file);
  plan.reads("--metadata", options.metadata);
  plan.reads("--truth", options.truth);
  plan.reads("--plugin", pathOf(options.plugin));
  plan.writes("--records", options.records);
  plan.writes("--video", options.video);
  plan.writes("--still", options.still);
  plan.writes("--klv-out", options.klvOut);
  plan.writes("--report", options.report);
  plan.writesFolder("--save-run", options.saveRun);
  plan.check();
}

/// The plug-in passes over what it does not understand in silence; a person should hear of it once.
void noteUncheckedFile(const TrackOptions& options, const std::string& fileText) {
  if (options.config.file.empty() || options.quiet) return;
  for (const ConfigFinding& finding : checkConfig(fileText)) {
    if (finding.level != ConfigFinding::Level::Warning) continue;
    std::fprintf(stderr, "csrt-track: note: '%s' is not taken as it is written; see 'csrt-track config check %s'\n",
                 options.config.file.c_str(), options.config.file.c_str());
    return;
  }
}

/// The human summary goes to standard output, unless the records are there already.
void printSummary(const TrackOptions& options, const RunSummary& summary) {
  std::FILE* out = options.records == "-" ? stderr : stdout;
  std::string text;
  const auto path = [&text](const char* what, const std::string& name) {
    if (!name.empty() && name != "-") text += what + std::filesystem::absolute(name).lexically_normal().string() + "\n";
  };
  path("annotated video  ", options.video);
  path("still picture    ", options.still);
  path("records          ", options.records);
  path("report           ", options.report);
  path("saved run        ", options.saveRun);
  std::fputs((summary.text() + (text.empty() ? "" : "\n") + text).c_str(), out);
}

/// In a person's words; the plug-in's own may be the text of a failed assertion.
std::string whyRefused(const CallRecord& refused, cv::Size picture, const std::string& configText) {
  const cv::Rect box = refused.givenBox.value_or(cv::Rect());
  if ((box & cv::Rect({}, picture)).area() == 0) return "the box lies outside";
  if (box.width < 2 || box.height < 2) return "the box is too small; it needs 2 pixels or more on each side";
  for (const ConfigFinding& finding : checkConfig(configText.empty() ? "{}" : configText)) {
    if (finding.cannotStart) return finding.text;
  }
  const bool readable = !refused.reason.empty() && refused.reason.find("OpenCV(") == std::string::npos;
  return readable ? refused.reason : "the plug-in refused it; --debug shows its log lines";
}

/// What was the matter with the source, in one line; empty: nothing.
std::string faultsOf(const TrackRunResult& result) {
  std::string text;
  for (const std::string& fault : result.sourceFaults) text += (text.empty() ? "" : "; ") + fault;
  return text;
}

int finish(const TrackOptions& options, const std::string& configText, const RunSummary& summary,
           const TrackRunResult& result) {
  for (const CallRecord& refused : result.refused) {
    const cv::Rect b = refused.givenBox.value_or(cv::Rect());
    std::fprintf(stderr,
                 "csrt-track: tracking of '%s' did not start on the box %d,%d,%d,%d of a picture of %dx%d: %s\n",
                 refused.target.c_str(), b.x, b.y, b.width, b.height, result.frameSize.width, result.frameSize.height,
                 whyRefused(refused, result.frameSize, configText).c_str());
  }
  const bool noneStarted = result.refused.size() == summary.totals().size();
  if (!noneStarted && !options.quiet) printSummary(options, summary);
  const std::string faults = faultsOf(result);
  const std::string source = withPasswordsMasked(options.source.source);
  if (!faults.empty() && !noneStarted && !options.quiet && !options.strict) {
    std::fprintf(options.records == "-" ? stderr : stdout, "source: %s\n", faults.c_str());
  }
  if (!result.refused.empty()) return static_cast<int>(ExitCode::NotStarted);
  if (options.strict && !faults.empty() && !result.interrupted) {
    throw HostError(ExitCode::Source, "'" + source + "' is not whole: " + faults);
  }
  return result.interrupted ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

std::vector<TruthTarget> truthOf(const TrackOptions& options) {
  if (options.truth.empty()) return {};
  TruthOptions truth;
  truth.format = truthFormatOf(options.truthFormat);
  truth.firstNumber = options.firstNumber;
  return readTruth(options.truth, truth, "target");
}

int track(const TrackOptions& options) {
  checkFiles(options);
  ConfigOptions config = options.config;
  if (!config.file.empty()) config.fileText = readTextFile(config.file);  // once: it may be a pipe
  TrackRun run;
  const bool live = isLive(options.source);
  run.sourceName =
      live::withoutPassword(options.source.pipeline.empty() ? options.source.source : options.source.pipeline);
  run.targets = parseTargetOptions(options.boxes, options.points);
  run.configText = buildConfigText(config);
  if (!options.metadata.empty() && !live) run.metadata = readMetadataFile(options.metadata);
  run.pace = paceOf(options.pace);
  run.guard = guardChoiceOf(options.guard);
  run.threads = options.threads;
  run.logToStderr = options.debug || asksForDebug(run.configText);
  checkOptions(options);
  std::unique_ptr<FrameSource> source = live ? nullptr : openFrameSource(options.source);
  if (source && !options.quiet && !source->note().empty()) {
    std::fprintf(stderr, "csrt-track: note: %s\n", source->note().c_str());
  }
  PluginLibrary library(pathOf(options.plugin));
  checkSets(options.config.sets, library.create()->getConfigList());
  noteUncheckedFile(options, config.fileText.value_or(""));

  live::LiveSource* camera = nullptr;
  if (live) {
    auto opened = openLiveSource(options.source, options.live, options.metadata, options.quiet);
    camera = opened.get();
    source = std::move(opened);
  }
  RunSummary summary;
  Progress progress;
  PictureObserver pictures(options.video, options.still);
  std::optional<HtmlReport> report;
  if (!options.report.empty()) report.emplace(options.report, truthOf(options));
  std::optional<RunSaver> saver;
  if (!options.saveRun.empty()) saver.emplace(options.saveRun, run);
  DelayObserver delay(options.quiet);
  std::optional<RecordsObserver> records;
  if (!options.records.empty()) records.emplace(options.records, &delay);
  std::vector<RunObserver*> observers = {&summary, &delay};
  if (records) observers.push_back(&*records);
  if (!options.video.empty() || !options.still.empty()) observers.push_back(&pictures);
  if (report) observers.push_back(&*report);
  std::optional<KlvOutput> klvOut;
  if (!options.klvOut.empty()) observers.push_back(&klvOut.emplace(options.klvOut, run.metadata));
  std::optional<StreamOutput> stream;
  if (!options.stream.empty()) observers.push_back(&stream.emplace(options.stream));
  std::optional<RecordFolder> folder;
  if (!options.recordDir.empty()) {
    observers.push_back(&folder.emplace(options.recordDir, bytesOf(options.recordQuota)));
  }
  if (saver) observers.push_back(&*saver);
  if (!options.quiet) observers.push_back(&progress);
  const std::unique_ptr<RunSteering> window = options.show ? openLiveWindow("csrt-track") : nullptr;
  const std::unique_ptr<RunSteering> control = openControl(options.live, camera, window.get());
  const TrackRunResult result = runTrack(*source, library, run, observers, control ? control.get() : window.get());
  if (!options.quiet && !delay.sentence().empty()) {
    std::fprintf(options.records == "-" ? stderr : stdout, "delay: %s\n", delay.sentence().c_str());
  }
  return finish(options, run.configText, summary, result);
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

}  // namespace

void addTrackCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<TrackOptions>();
  CLI::App& command = *app.add_subcommand("track", "Follow one or several targets through a video");
  addSourceOptions(command, options->source);
  addLiveOptions(command, options->source, options->live);
  command
      .add_option("--box", options->boxes,
                  "Target on the first frame: left, top, width, height in pixels or percent (10%); may be repeated, "
                  "then with names: --box walker=412,230,64,48")
      ->type_name("[NAME=]X,Y,W,H")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option("--point", options->points,
                  "A point on the target on the first frame, in pixels or percent; the box is found around it")
      ->type_name("[NAME=]X,Y")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option("--preset", options->config.preset,
                  "A configuration that comes with the program; see 'config preset'")
      ->type_name("NAME");
  command.add_option("--config", options->config.file, "Configuration file (JSON), over the preset")->type_name("FILE");
  command.add_option("--set", options->config.sets, "One configuration value, over preset and file; may be repeated")
      ->type_name("GROUP.KEY=VALUE")
      ->take_all()
      ->allow_extra_args(false);
  command
      .add_option("--metadata", options->metadata,
                  "What the camera said per frame (CSV with a heading, or JSON lines): frame, pan_deg, ..., follow_me")
      ->type_name("FILE");
  command.add_option("--records", options->records, "Write one JSON line per call; -: to standard output")
      ->type_name("FILE");
  command.add_option("--video", options->video, "Write the annotated video, such as out.mp4")->type_name("FILE");
  command.add_option("--still", options->still, "Write the last annotated frame, such as last.png")->type_name("FILE");
  command.add_option("--report", options->report, "Write a page with charts, events and pictures, such as report.html")
      ->type_name("FILE");
  command.add_option("--klv-out", options->klvOut, "Write plain video with the camera's angles inside (MPEG-TS, KLV)")
      ->type_name("FILE.ts");
  command
      .add_option("--stream", options->stream,
                  "Send the drawn picture: rtsp://127.0.0.1:8554/track serves it, udp://HOST:PORT sends MPEG-TS")
      ->type_name("ADDRESS");
  command
      .add_option("--record-dir", options->recordDir,
                  "Keep the drawn video and the records in this folder, a file a minute, the oldest deleted")
      ->type_name("DIR");
  command.add_option("--record-quota", options->recordQuota, "How much --record-dir may hold, such as 500M or 20G")
      ->type_name("SIZE")
      ->capture_default_str();
  command.add_option("--truth", options->truth, "Where the targets really are, for the report; as for 'evaluate'")
      ->type_name("FILE");
  command.add_option("--format", options->truthFormat, "Format of the truth: auto, otb, got10k, vot, mot or csv")
      ->type_name("FORMAT")
      ->capture_default_str();
  command
      .add_option("--first-number", options->firstNumber,
                  "The number that a truth of several targets gives to the first frame of its clip")
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--save-run", options->saveRun, "Keep frames, calls and answers in a new folder, for 'replay'")
      ->type_name("DIR");
  command.add_option("--guard", options->guard, kGuardHelp)->type_name("WHICH")->capture_default_str();
  command
      .add_option("--pace", options->pace,
                  "video: as fast as possible, the plug-in's clock follows the clip, so that answers repeat exactly; "
                  "fast: the same with the machine's clock; source: at the clip's rate")
      ->type_name("PACE")
      ->capture_default_str();
  command.add_flag("--show", options->show,
                   "Open a window: space pauses, . steps, dragging starts over on a new box, q ends");
  addPluginOptions(command, options->plugin);
  command.add_option("--threads", options->threads, "Threads that work on the targets")
      ->type_name("N")
      ->capture_default_str();
  command.add_flag("--strict", options->strict,
                   "End with status 3 when the source ends early, has damaged frames or changes its picture size");
  command.add_flag("--debug", options->debug, "Show the plug-in's log lines on standard error");
  command.add_flag("--quiet", options->quiet, "No progress, no summary");
  std::vector<ExitMeaning> exits = runExits();
  exits.front().second = "the source cannot be opened, has no frame or, with --strict, is not whole";
  exits.emplace_back(5, "tracking did not start; with several targets, of at least one");
  command.footer(helpFooter(
      {"track street.mp4 --box 412,230,64,48 --video out.mp4 --report out.html",
       "track img/%04d.jpg --box walker=412,230,64,48 --box car=30,80,120,60 --records - --quiet", "track 0 --show"},
      std::move(exits)));
  command.callback([options, &status] { status = track(*options); });
}

}  // namespace host
