// csrt-track simulate: a gimbal camera in a drawn scene that the plug-in points, arms and follows with.
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
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
#include "base/text_output.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "commands/plugin_choice.h"
#include "commands/run_options.h"
#include "commands/stream_outputs.h"
#include "config/config_text.h"
#include "input/file_plan.h"
#include "picture/picture_output.h"
#include "plugin/plugin_library.h"
#include "run/log_lines.h"
#include "simulator/scenario_reader.h"
#include "simulator/shipped_scenarios.h"
#include "simulator/simulated_flight.h"
#include "simulator/simulation.h"
#include "simulator/simulation_outputs.h"
#include "simulator/simulation_summary.h"

namespace host {
namespace {

struct SimulateOptions {
  std::string scenario = "off-centre";
  std::optional<long> seed;
  ConfigOptions config;
  std::string records;
  std::string summary;
  std::string video;
  std::string sheet;
  std::string clip;
  std::string clipMetadata;
  PluginChoice plugin;
  std::string pace = kDefaultPace;
  GuardOptions guard;
  std::string print;
  std::vector<std::string> mavlink;
  std::string videoPipe;
  std::string platform;
  bool noMark = false;
  bool lockStep = false;
  bool list = false;
  bool debug = false;
  bool quiet = false;
};

int listScenarios() {
  for (const sim::ShippedScenario& shipped : sim::shippedScenarios()) {
    const sim::Scenario scenario = sim::parseScenario(shipped.text, shipped.name);
    std::printf("%-16s %s\n", shipped.name.c_str(), scenario.title.c_str());
  }
  return static_cast<int>(ExitCode::Done);
}

int printScenario(const std::string& name) {
  const sim::ShippedScenario* shipped = sim::findShippedScenario(name);
  if (shipped == nullptr) {
    throw HostError(ExitCode::Usage, "there is no shipped scenario '" + name + "'; see 'csrt-track simulate --list'");
  }
  std::fputs(shipped->text, stdout);
  return static_cast<int>(ExitCode::Done);
}

/// What the user sets goes over the scenario's own configuration.
sim::Scenario scenarioOf(const SimulateOptions& options) {
  sim::Scenario scenario = sim::loadScenario(options.scenario);
  if (options.seed) scenario.seed = static_cast<std::uint64_t>(*options.seed);
  const std::string over = buildConfigText(options.config);
  if (!over.empty()) {
    nlohmann::json config = nlohmann::json::parse(scenario.config);
    config.merge_patch(nlohmann::json::parse(over));
    scenario.config = config.dump();
  }
  return scenario;
}

void checkOptions(const SimulateOptions& options) {
  if (options.seed && *options.seed < 0) {
    throw HostError(ExitCode::Usage, "--seed " + std::to_string(*options.seed) + " is negative");
  }
  if (!options.video.empty()) checkVideoName(options.video, "--video");
  if (!options.clip.empty()) checkVideoName(options.clip, "--clip");
  if (!options.sheet.empty()) checkPictureName(options.sheet, "--sheet");
  if (options.records == "-" && options.summary == "-") {
    throw HostError(ExitCode::Usage, "--records and --summary cannot both go to standard output");
  }
}

void printResult(const SimulateOptions& options, const std::string& text) {
  const bool outIsTaken = options.records == "-" || options.summary == "-" || options.clipMetadata == "-";
  std::fputs(text.c_str(), outIsTaken ? stderr : stdout);
}

int exitCodeOf(bool started, const std::vector<sim::Check>& checks) {
  if (interruptSignal() != 0) return 128 + interruptSignal();
  if (!started) return static_cast<int>(ExitCode::NotStarted);
  for (const sim::Check& check : checks) {
    if (!check.met) return static_cast<int>(ExitCode::Findings);
  }
  return static_cast<int>(ExitCode::Done);
}

void checkFiles(const SimulateOptions& options) {
  FilePlan plan;
  if (sim::findShippedScenario(options.scenario) == nullptr) plan.reads("the scenario", options.scenario);
  plan.reads("--config", options.config.file);
  plan.reads("--plugin", pathOf(options.plugin));
  plan.reads("--guard-model", options.guard.model);
  plan.writes("--records", options.records);
  plan.writes("--summary", options.summary);
  plan.writes("--video", options.video);
  plan.writes("--sheet", options.sheet);
  plan.writes("--clip", options.clip);
  plan.writes("--clip-metadata", options.clipMetadata);
  plan.check();
}

std::optional<sim::PlatformPlace> platformOf(const std::string& text) {
  if (text.empty()) return std::nullopt;
  sim::PlatformPlace place;
  int used = 0;
  const int read = std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf,%lf%n", &place.lat_deg, &place.lon_deg, &place.alt_m,
                               &place.height_m, &place.heading_deg, &used);
  const bool whole = read == 5 && static_cast<std::size_t>(used) == text.size();
  if (!whole || !(std::fabs(place.lat_deg) <= 90 && std::fabs(place.lon_deg) <= 180 && place.height_m > 0)) {
    throw HostError(ExitCode::Usage, "--platform '" + text +
                                         "' is not LAT,LON,ALTITUDE,HEIGHT,HEADING, such as "
                                         "47.4,8.5,520,100,90");
  }
  return place;
}

/// Over MAVLink, with the tracker in another process.
int flyScenario(const SimulateOptions& options) {
  const sim::Scenario scenario = scenarioOf(options);
  const sim::FlightResult result =
      sim::fly(scenario, {options.mavlink, options.videoPipe, options.records, !options.noMark, options.lockStep,
                          platformOf(options.platform)});
  if (!options.summary.empty()) TextOutput(options.summary, "--summary").writeLine(jsonText(sim::toJson(result), 2));
  if (!options.quiet && !result.turned_s) {
    printResult(options, "the gimbal was never ordered to turn\n");
  } else if (!options.quiet) {
    char text[200];
    std::snprintf(text, sizeof text,
                  "off the target by %.2f deg (root mean square), %.2f deg for 95 of 100, over %ld frames; "
                  "beyond it by %.2f deg; %ld of %ld frames late\n",
                  result.rms_deg, result.p95_deg, result.judged, result.overshoot_deg, result.lateFrames,
                  result.frames);
    printResult(options, text);
  }
  if (interruptSignal() != 0) return 128 + interruptSignal();
  return static_cast<int>(result.turned_s ? ExitCode::Done : ExitCode::Findings);
}

int simulate(const SimulateOptions& options) {
  if (options.list) return listScenarios();
  if (!options.print.empty()) return printScenario(options.print);
  checkOptions(options);
  checkFiles(options);
  const GuardChoice guard = chosenGuard(options.guard, options.quiet);
  if (!options.mavlink.empty()) return flyScenario(options);
  const sim::Scenario scenario = scenarioOf(options);
  PluginLibrary library(pathOf(options.plugin));
  checkSets(options.config.sets, library.create()->getConfigList());

  sim::SimulatedCamera camera(scenario);
  sim::SimulationTally tally(camera);
  sim::SimulationPictures pictures(camera, options.video, options.sheet);
  const bool inStream = std::filesystem::path(options.clip).extension() == ".ts";
  sim::SimulationClip clip(inStream ? "" : options.clip, options.clipMetadata);
  KlvOutput klvClip(options.clip);
  std::optional<WholeText> summaryFile;
  if (!options.summary.empty()) summaryFile.emplace(options.summary, "--summary");
  std::optional<sim::SimulationRecords> records;
  LogLines log(false);
  std::vector<RunObserver*> observers = {&tally};
  if (!options.records.empty()) observers.push_back(&records.emplace(camera, options.records));
  if (!options.video.empty() || !options.sheet.empty()) observers.push_back(&pictures);
  if (!options.clip.empty() || !options.clipMetadata.empty()) observers.push_back(&clip);
  if (inStream) observers.push_back(&klvClip);
  if (options.debug) observers.push_back(&log);
  const bool started = sim::simulate(camera, library, {paceOf(options.pace), guard}, observers);

  const sim::SimulationTotals totals = tally.totals();
  const std::vector<sim::Check> checks = sim::judge(totals, scenario.expect);
  nlohmann::ordered_json json = sim::toJson(scenario, totals, checks);
  std::string text = sim::textOf(scenario, totals, checks);
  if (interruptSignal() != 0) {
    json["interrupted"] = interruptName();
    text += "interrupted by " + interruptName() + ": the figures are of the part before\n";
  }
  if (summaryFile) summaryFile->write(jsonText(json, 2));
  if (!options.quiet) printResult(options, text);
  return exitCodeOf(started, checks);
}

void addOutputs(CLI::App& command, SimulateOptions& options) {
  command.add_option("--records", options.records, "One JSON line per call, with truth and camera; -: standard output")
      ->type_name("FILE");
  command.add_option("--summary", options.summary, "The result as JSON; -: standard output")->type_name("FILE");
  command.add_option("--video", options.video, "The annotated video, with the whole scene below it, such as out.mp4")
      ->type_name("FILE");
  command.add_option("--sheet", options.sheet, "One picture of the moments at which something changed")
      ->type_name("FILE");
  command
      .add_option("--clip", options.clip,
                  "The plain video, as a camera would record it; FILE.ts: with its angles inside (KLV)")
      ->type_name("FILE");
  command.add_option("--clip-metadata", options.clipMetadata, "Its metadata, for 'track --metadata'")
      ->type_name("FILE");
}

}  // namespace

void addSimulateCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<SimulateOptions>();
  CLI::App& command = *app.add_subcommand("simulate", "Point and follow with a simulated camera on a gimbal");
  command.add_option("scenario", options->scenario, "A scenario file (JSON) or the name of a shipped one")
      ->type_name("SCENARIO")
      ->capture_default_str();
  command.add_flag("--list", options->list, "List the shipped scenarios");
  command.add_option("--print", options->print, "Print a shipped scenario, to begin an own one with")
      ->type_name("NAME");
  command.add_option("--seed", options->seed, "Draws another scene and other noise than the scenario says")
      ->type_name("N");
  addConfigOptions(command, options->config, "the scenario's own");
  addOutputs(command, *options);
  addPluginOptions(command, options->plugin);
  addGuardOptions(command, options->guard);
  addPaceAndClockOptions(command, options->pace);
  command
      .add_option("--mavlink", options->mavlink,
                  "In real time, without a plug-in: the gimbal obeys what comes over this line, see 'serve --help'; "
                  "may be repeated")
      ->take_all()
      ->allow_extra_args(false)
      ->type_name("LINE");
  command.add_option("--video-pipe", options->videoPipe, "With --mavlink: a named pipe for the video (YUV4MPEG2)")
      ->type_name("FILE");
  command.add_flag("--lock-step", options->lockStep,
                   "With --mavlink: in simulated time instead, which waits for the tracker; that one needs "
                   "'serve --clock link --pace video'");
  command.add_option("--platform", options->platform, "With --mavlink: where the vehicle is, in degrees and metres")
      ->type_name("LAT,LON,ALTITUDE,HEIGHT,HEADING");
  command.add_flag("--no-mark", options->noMark, "With --mavlink: a ground station marks the target");
  command.add_flag("--debug", options->debug, "Show the plug-in's log lines on standard error");
  command.add_flag("--quiet", options->quiet, "No summary for people");
  command.footer(helpFooter({"simulate --list", "simulate zoom-step --video out.mp4 --records out.jsonl",
                             "simulate --print zoom-step > mine.json", "simulate mine.json --summary -"},
                            {{1, "an expectation of the scenario is missed"},
                             {4, "the plug-in cannot be loaded"},
                             {5, "the plug-in refused the target"},
                             {6, "an output could not be written to its end"},
                             {130, kInterrupted}}));
  command.callback([options, &status] { status = simulate(*options); });
}

}  // namespace host
