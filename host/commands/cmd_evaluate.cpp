// csrt-track evaluate: how well the plug-in follows what people marked.
#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/json_text.h"
#include "base/masked_address.h"
#include "base/text_output.h"
#include "commands/commands.h"
#include "commands/evaluation_options.h"
#include "commands/help_footer.h"
#include "commands/plugin_choice.h"
#include "commands/run_options.h"
#include "config/config_text.h"
#include "evaluation/evaluation_run.h"
#include "evaluation/results.h"
#include "evaluation/results_view.h"
#include "evaluation/sequence.h"
#include "input/file_plan.h"
#include "plugin/plugin_library.h"
#include "run/progress.h"

namespace host {
namespace {

struct EvaluateOptions {
  SequenceArguments sequences;
  ConfigOptions config;
  std::string reference;  ///< Empty: no reference; "opencv" or "plugin": whose parameters it has.
  std::string pace = kDefaultPace;
  GuardOptions guard;
  std::string shard = "1/1";
  std::string json;
  std::string html;
  PluginChoice plugin;
  long maxFrames = 0;
  int threads = 1;
  bool quiet = false;
};

void checkOptions(const EvaluateOptions& options) {
  if (!options.reference.empty() && options.reference != "opencv" && options.reference != "plugin") {
    throw HostError(ExitCode::Usage, "--reference '" + options.reference + "' is neither opencv nor plugin");
  }
}

/// Target after target, the reference right behind the plug-in, so that both meet the same load.
std::vector<FollowJob> jobsOf(const Sequence& sequence, const EvaluateOptions& options, const std::string& configText,
                              PluginLibrary& library, Pace pace, const GuardChoice& guard) {
  std::vector<FollowJob> jobs;
  for (const TruthTarget& target : sequence.targets) {
    jobs.push_back({target, options.maxFrames, [&library, configText, pace, guard] {
                      return makePluginFollower(library, configText, pace == Pace::Video, guard);
                    }});
    if (options.reference.empty()) continue;
    const bool pluginParameters = options.reference == "plugin";
    jobs.push_back({target, options.maxFrames, [configText, pluginParameters] {
                      return makeReferenceFollower(pluginParameters ? &configText : nullptr);
                    }});
  }
  return jobs;
}

RunFacts factsOf(const EvaluateOptions& options, const std::string& configText, const PluginLibrary& library,
                 const std::vector<Sequence>& sequences) {
  RunFacts facts = {{"program", std::string("csrt-track ") + CSRT_VERSION},
                    {"opencv", CV_VERSION},
                    {"plugin", library.path()},
                    {"engine", library.engine()},
                    {"configuration", configText.empty() ? "{}" : configText},
                    {"pace", options.pace},
                    {"threads", std::to_string(options.threads)}};
  if (options.guard.which != "off") facts.emplace_back("guard", options.guard.which);
  if (!options.reference.empty()) facts.emplace_back("reference", options.reference);
  if (options.maxFrames > 0) facts.emplace_back("max_frames", std::to_string(options.maxFrames));
  if (options.shard != "1/1") facts.emplace_back("shard", options.shard);
  std::string sources;
  for (const Sequence& s : sequences) sources += (sources.empty() ? "" : ", ") + s.name + " = " + s.source.source;
  facts.emplace_back("sequences", withPasswordsMasked(sources));
  return facts;
}

/// The jobs are in the order of jobsOf(); those that a signal cut off have no place in a result.
void collect(const Sequence& sequence, std::vector<FollowResult> results, bool hasReference, EvaluationResult& all) {
  const std::size_t perTarget = hasReference ? 2 : 1;
  for (std::size_t i = 0; i < results.size(); ++i) {
    if (!results[i].complete && interruptSignal() != 0) continue;
    TargetResult target;
    target.sequence = sequence.name;
    target.target = sequence.targets[i / perTarget].name;
    target.tracker = i % perTarget == 0 ? kPluginTracker : kReferenceTracker;
    target.complete = results[i].complete;
    target.samples = std::move(results[i].samples);
    all.targets.push_back(std::move(target));
  }
}

long framesOf(const std::vector<FollowJob>& jobs) {
  long first = firstFrameOf(jobs.front());
  long last = 0;
  for (const FollowJob& job : jobs) {
    first = std::min(first, firstFrameOf(job));
    last = std::max(last, lastFrameOf(job));
  }
  return last - first + 1;
}

/// Hands frames on and neither begin nor end: one progress for all sequences.
class FramesOnly : public RunObserver {
 public:
  explicit FramesOnly(RunObserver& to) : to_(to) {}
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override { to_.frame(frame, records); }

 private:
  RunObserver& to_;
};

void run(const EvaluateOptions& options, const std::vector<Sequence>& sequences, const std::string& configText,
         PluginLibrary& library, const GuardChoice& guard, EvaluationResult& all) {
  const Pace pace = paceOf(options.pace);
  std::vector<std::vector<FollowJob>> jobs;
  RunInfo info;
  for (const Sequence& sequence : sequences) {
    jobs.push_back(jobsOf(sequence, options, configText, library, pace, guard));
    info.expectedFrames += framesOf(jobs.back());
  }
  Progress progress;
  if (!options.quiet) progress.begin(info);
  FollowOptions follow;
  follow.threads = options.threads;
  follow.pace = pace;
  if (!options.quiet) {
    follow.onNote = [](const std::string& note) { std::fprintf(stderr, "csrt-track: note: %s\n", note.c_str()); };
  }
  FramesOnly frames(progress);
  if (!options.quiet) follow.observers = {&frames};
  for (std::size_t i = 0; i < sequences.size() && interruptSignal() == 0; ++i) {
    collect(sequences[i], followAll(sequences[i].source, jobs[i], follow), !options.reference.empty(), all);
  }
  if (!options.quiet) progress.end();
}

/// Whatever makes a figure mean less than it seems.
void warnAboutTargets(const EvaluationResult& result) {
  for (const TargetResult& t : result.targets) {
    if (!t.samples.started) {
      std::fprintf(stderr,
                   "csrt-track: the %s did not start on the first mark of target '%s' in '%s'; it counts as "
                   "missed throughout\n",
                   t.tracker.c_str(), t.target.c_str(), t.sequence.c_str());
    }
    if (t.complete) continue;
    std::fprintf(stderr, "csrt-track: '%s' ends before the truth of target '%s' does; only its part is judged\n",
                 t.sequence.c_str(), t.target.c_str());
  }
}

void checkFiles(const EvaluateOptions& options) {
  FilePlan plan;
  options.sequences.addTo(plan);
  plan.reads("--config", options.config.file);
  plan.reads("--plugin", pathOf(options.plugin));
  plan.reads("--guard-model", options.guard.model);
  plan.writes("--json", options.json);
  plan.writes("--html", options.html);
  plan.check();
}

std::size_t targetsOf(const std::vector<Sequence>& sequences) {
  std::size_t count = 0;
  for (const Sequence& sequence : sequences) count += sequence.targets.size();
  return count;
}

std::size_t judgedTargets(const EvaluationResult& result) {
  return static_cast<std::size_t>(std::count_if(result.targets.begin(), result.targets.end(),
                                                [](const TargetResult& t) { return t.tracker == kPluginTracker; }));
}

int evaluate(const EvaluateOptions& options) {
  checkOptions(options);
  checkFiles(options);
  const GuardChoice guard = chosenGuard(options.guard, options.quiet);
  const std::string configText = buildConfigText(options.config);
  const std::vector<Sequence> sequences = shardOf(openSequences(options.sequences.read()), parseShard(options.shard));
  paceOf(options.pace);
  PluginLibrary library(pathOf(options.plugin));
  checkSets(options.config.sets, library.create()->getConfigList());
  // Made before the run: a result that cannot be written must not cost an hour.
  std::optional<WholeText> json;
  std::optional<WholeText> html;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  if (!options.html.empty()) html.emplace(options.html, "--html");
  cv::setNumThreads(1);  // times per update then mean one thread

  EvaluationResult result;
  result.facts = factsOf(options, configText, library, sequences);
  if (!guard.sha256.empty()) result.facts.emplace_back("guard_model_sha256", guard.sha256);
  run(options, sequences, configText, library, guard, result);
  if (interruptSignal() != 0) {
    result.facts.emplace_back("interrupted", fmt::format("{} after {} of {} targets", interruptName(),
                                                         judgedTargets(result), targetsOf(sequences)));
  }
  warnAboutTargets(result);
  if (json) json->write(jsonText(toJson(result)));
  if (html) html->write(htmlOf(result));
  if (options.json != "-" && !options.quiet) std::fputs(tableOf(result).c_str(), stdout);
  return interruptSignal() != 0 ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

}  // namespace

void addEvaluateCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<EvaluateOptions>();
  CLI::App& command = *app.add_subcommand("evaluate", "Measure how well marked targets are followed, and at what cost");
  options->sequences.addTo(command);
  addConfigOptions(command, options->config);
  command.add_flag("--reference{opencv}", options->reference,
                   "Run the bare cv::TrackerCSRT on the whole frame beside the plug-in, with OpenCV's own parameters; "
                   "--reference=plugin: with those of the configuration");
  addGuardOptions(command, options->guard);
  addPaceOption(command, options->pace);
  command.add_option("--max-frames", options->maxFrames, "Use at most so many frames of each target; 0: all")
      ->type_name("N")
      ->check(CLI::Range(0L, 1000000000L));
  addThreadsOption(command, options->threads);
  command.add_option("--shard", options->shard, "Only the i-th of n parts; 'csrt-track merge' puts them together")
      ->type_name("I/N");
  command.add_option("--json", options->json, "Write the result as JSON; -: to standard output, without the table")
      ->type_name("FILE");
  command.add_option("--html", options->html, "Write the result as a page with charts, such as result.html")
      ->type_name("FILE");
  addPluginOptions(command, options->plugin);
  command.add_flag("--quiet", options->quiet, "No progress, no table");
  command.footer(helpFooter({"evaluate sequences/street --reference --html street.html",
                             "evaluate clip.avi --truth clip.csv --preset fast --json fast.json"},
                            runExits()));
  command.callback([options, &status] { status = evaluate(*options); });
}

}  // namespace host
