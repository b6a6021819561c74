// What does a guard add to the plug-in: how often is each walker on target, what is found again after a loss, how long
// are the wrong runs, is anything worse for it, and what does it cost? The built plug-in with and without the guard,
// over the same frames.
//
// usage: guard_comparison walkers CLIP --truth FILE [--half developed|held-back|all] [--starts 0,1,2]
//                         [--presets defaults,robust] [--engines fast,opencv] [--json FILE] [--cache FILE]
//                         [--guards off,colour,network --guard-model FILE] [--per-target]
//                         [--enlarge 1920x1080] [--backwards] [--grey]
//        guard_comparison sequences CLIP --truth FILE [--second SOURCE --second-truth FILE]   every target and start
//        guard_comparison losses    CLIP --truth FILE --second SOURCE --second-truth FILE     26 losses from footage
//        guard_comparison finds     CLIP --truth FILE                   what the guard finds without a tracker
//        guard_comparison scenes    [--scenarios honesty,FILE.json]     simulated: are state and boxes right?
//
// The halves are those of `csrt-track tune`: sorted by their number of marks, every second target from the top is held
// back. A start of 1 or 2 begins that many marks later. Intervals come of drawing the targets anew. Frames are decoded
// once; the boxes are the same in every run, and times are processor time of one thread.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <opencv2/core/utils/logger.hpp>

#include "base/host_error.h"
#include "config/presets.h"
#include "options.h"

namespace {

using bench::GuardOptions;

void addContestants(CLI::App& command, GuardOptions& options) {
  command.add_option("--guards", options.guards, "off, colour, network")->delimiter(',');
  command.add_option("--guard-model", options.guardModel, "The network's file (ONNX), for the guard network");
  command.add_option("--engines", options.engines, "fast, opencv; default: the default engine")->delimiter(',');
  command.add_option("--plugin", options.plugin, "Instead of an engine: a plug-in library");
  command.add_option("--json", options.json, "Write the figures to this file as well");
}

void addFootage(CLI::App& command, GuardOptions& options, std::string& enlarge) {
  command.add_option("clip", options.clip)->required();
  command.add_option("--truth", options.truth)->required();
  command.add_option("--half", options.half)->check(CLI::IsMember({"developed", "held-back", "all"}));
  command.add_option("--starts", options.starts)->delimiter(',')->check(CLI::NonNegativeNumber);
  command.add_option("--presets", options.presets, "defaults, or names of presets")->delimiter(',');
  command.add_option("--threads", options.threads)->check(CLI::Range(1, 256));
  command.add_option("--cache", options.cache, "Keep the plug-in's answers in this file; delete it with a new plug-in");
  command.add_option("--only", options.only, "One target");
  command.add_option("--enlarge", enlarge, "Stretch the frames, such as 1920x1080");
  command.add_flag("--per-target", options.perTarget, "A line for every walk");
  command.add_flag("--backwards", options.footage.backwards, "The clip from its end to its beginning");
  command.add_flag("--grey", options.footage.grey, "Without colour");
  command.add_flag("--trace", options.trace, "A line for every frame");
}

void addSecond(CLI::App& command, GuardOptions& options, bool required) {
  CLI::Option* second = command.add_option("--second", options.second, "Another sequence: pictures or a video");
  CLI::Option* truth = command.add_option("--second-truth", options.secondTruth, "Its truth");
  second->needs(truth);
  truth->needs(second);
  if (required) second->required();
}

void checkWords(GuardOptions& options, const std::string& enlarge) {
  for (std::string& preset : options.presets) {
    if (preset == "defaults") preset.clear();
    if (!preset.empty()) host::presetText(preset);  // throws where there is none
  }
  for (const std::string& guard : options.guards) {
    options.choices[guard] = host::guardChoiceOf({guard, guard == "network" ? options.guardModel : ""});
  }
  for (const std::string& engine : options.engines) {
    if (engine == host::kFastEngine || engine == host::kOpenCvEngine) continue;
    throw host::HostError(host::ExitCode::Usage, "there is no engine '" + engine + "'");
  }
  cv::Size& size = options.footage.enlarge;
  if (enlarge.empty()) return;
  if (std::sscanf(enlarge.c_str(), "%dx%d", &size.width, &size.height) != 2 || size.empty()) {
    throw host::HostError(host::ExitCode::Usage, "--enlarge '" + enlarge + "' is not of the form 1920x1080");
  }
}

}  // namespace

int main(int argc, char** argv) {
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  cv::setNumThreads(1);
  GuardOptions options;
  std::string enlarge;
  CLI::App app("What a guard adds to the plug-in.");
  app.require_subcommand(1);
  CLI::App* walkers = app.add_subcommand("walkers", "Every target of a clip, followed with every choice");
  CLI::App* sequences = app.add_subcommand("sequences", "Is any sequence worse off with the guard?");
  CLI::App* losses = app.add_subcommand("losses", "Losses made from footage");
  CLI::App* finds = app.add_subcommand("finds", "What the guard finds by itself");
  CLI::App* scenes = app.add_subcommand("scenes", "Simulated scenes: are state and boxes right?");
  for (CLI::App* command : {walkers, sequences, losses, finds}) addFootage(*command, options, enlarge);
  for (CLI::App* command : {walkers, sequences, losses, scenes}) addContestants(*command, options);
  addSecond(*sequences, options, false);
  addSecond(*losses, options, true);
  scenes->add_option("--scenarios", options.scenarios, "Names of shipped scenarios, or files")->delimiter(',');
  CLI11_PARSE(app, argc, argv);
  try {
    checkWords(options, enlarge);
    bench::AnswerCache cache;
    cache.load(options.cache);
    if (*walkers) bench::compareWalkers(options, cache);
    if (*sequences) bench::compareSequences(options, cache);
    if (*losses) bench::compareLosses(options, cache);
    if (*finds) bench::judgeFinds(options);
    if (*scenes) bench::compareScenes(options);
    cache.save();
  } catch (const host::HostError& e) {
    std::fprintf(stderr, "guard_comparison: %s\n", e.what());
    return static_cast<int>(e.code());
  }
  return 0;
}
