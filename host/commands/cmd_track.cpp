// csrt-track track: follows targets through a video and writes what was found.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/masked_address.h"
#include "base/text_file.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/track_options.h"
#include "commands/track_outputs.h"
#include "config/config_check.h"
#include "input/metadata_file.h"
#include "plugin/plugin_library.h"
#include "run/live_window.h"
#include "run/run_summary.h"
#include "run/track_run.h"

namespace host {
namespace {

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
  std::FILE* const out = options.records == "-" ? stderr : stdout;  // where the records are not
  if (!noneStarted && !options.quiet) {
    const std::string written = writtenFiles(options);
    std::fputs((summary.text() + (written.empty() ? "" : "\n") + written).c_str(), out);
  }
  const std::string faults = faultsOf(result);
  const std::string source = withPasswordsMasked(options.source.source);
  if (!faults.empty() && !noneStarted && !options.quiet && !options.strict) {
    std::fprintf(out, "source: %s\n", faults.c_str());
  }
  if (!result.refused.empty()) return static_cast<int>(ExitCode::NotStarted);
  if (options.strict && !faults.empty() && !result.interrupted) {
    throw HostError(ExitCode::Source, "'" + source + "' is not whole: " + faults);
  }
  return result.interrupted ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

/// What to run, of what is known before the source is opened.
TrackRun runOf(const TrackOptions& options, const ConfigOptions& config, bool live) {
  TrackRun run;
  run.sourceName =
      live::withoutPassword(options.source.pipeline.empty() ? options.source.source : options.source.pipeline);
  run.targets = parseTargetOptions(options.boxes, options.points);
  run.configText = buildConfigText(config);
  if (!options.metadata.empty() && !live) run.metadata = readMetadataFile(options.metadata);
  run.pace = paceOf(options.pace);
  run.guard = chosenGuard(options.guard, options.quiet);
  run.threads = options.threads;
  run.logToStderr = options.debug || asksForDebug(run.configText);
  return run;
}

int track(const TrackOptions& options) {
  checkTrackFiles(options);
  ConfigOptions config = options.config;
  if (!config.file.empty()) config.fileText = readTextFile(config.file);  // once: it may be a pipe
  const bool live = isLive(options.source);
  const TrackRun run = runOf(options, config, live);
  checkTrackOptions(options);
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
  TrackOutputs outputs(options, run);
  const std::unique_ptr<RunSteering> window = options.show ? openLiveWindow("csrt-track") : nullptr;
  const std::unique_ptr<RunSteering> control = openControl(options.live, camera, window.get());
  const TrackRunResult result =
      runTrack(*source, library, run, outputs.observers(), control ? control.get() : window.get());
  if (!options.quiet && !outputs.delay().sentence().empty()) {
    std::fprintf(options.records == "-" ? stderr : stdout, "delay: %s\n", outputs.delay().sentence().c_str());
  }
  return finish(options, run.configText, outputs.summary(), result);
}

}  // namespace

void addTrackCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<TrackOptions>();
  CLI::App& command = *app.add_subcommand("track", "Follow one or several targets through a video");
  addTrackOptions(command, *options);
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
