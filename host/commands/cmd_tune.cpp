// csrt-track tune: searches a configuration on footage whose truth is known.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <system_error>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/json_text.h"
#include "base/text_output.h"
#include "base/worker_pool.h"
#include "commands/commands.h"
#include "commands/evaluation_options.h"
#include "commands/help_footer.h"
#include "commands/plugin_choice.h"
#include "commands/run_options.h"
#include "config/config_text.h"
#include "evaluation/tune_scoring.h"
#include "evaluation/tuning_result.h"
#include "input/file_plan.h"
#include "plugin/plugin_library.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

struct TuneOptions {
  SequenceArguments sequences;
  ConfigOptions config;
  std::vector<std::string> heldBack;
  TuneGoal goal;
  double budget_min = 0.0;
  long brackets = 0;
  int candidates = 9;
  std::uint64_t seed = 1;
  GuardOptions guard;
  std::string shard = "1/1";
  std::string out;
  PluginChoice plugin;
  int threads = usableThreads();
  bool quiet = false;
};

void checkOptions(const TuneOptions& options) {
  checkGoal(options.goal);
  if (!(options.budget_min > 0)) throw HostError(ExitCode::Usage, "--budget is not a time above 0 minutes");
}

Json namesOf(const std::vector<Sequence>& sequences) {
  Json names = Json::array();
  for (const Sequence& sequence : sequences) {
    for (const TruthTarget& target : sequence.targets) names.push_back(sequence.name + "/" + target.name);
  }
  return names;
}

/// What makes two searches the same search, whatever their shard, time and machine.
Json searchOf(const TuneOptions& options, const TuneSplit& split, const nlohmann::json& start,
              const std::string& engine) {
  Json search = {{"seed", options.seed},
                 {"candidates", options.candidates},
                 {"goal", options.goal.name},
                 {"max_cost", options.goal.maxCost},
                 {"start", Json(start)},
                 {"training", namesOf(split.training)},
                 {"held_back", namesOf(split.heldBack)},
                 {"engine", engine},
                 {"program", CSRT_VERSION},
                 {"opencv", CV_VERSION}};
  if (options.guard.which != "off") search["guard"] = options.guard.which;
  return search;
}

/// The trials so far, one line each behind a line that says of which search they are. A search that was stopped at
/// any moment goes on from here.
class TrialLog {
 public:
  TrialLog(const std::string& path, const Json& search, const std::string& shard) : path_(path) {
    const Json heading = {{"log", "csrt-track tune"}, {"shard", shard}, {"search", search}};
    if (!read_(heading)) {
      std::ofstream file(path_, std::ios::trunc);
      file << jsonText(heading) << '\n' << std::flush;
      if (!file) throw HostError(ExitCode::Usage, "cannot write '" + path_ + "'");
    }
  }

  const std::vector<Trial>& known() const { return known_; }

  void add(const Trial& trial) {
    std::ofstream file(path_, std::ios::app);
    file << jsonText(toJson(trial)) << '\n' << std::flush;
    if (!file) throw HostError(ExitCode::Output, "cannot write to '" + path_ + "'");
  }

 private:
  bool read_(const Json& heading) {
    std::ifstream file(path_);
    std::string line;
    if (!file || !std::getline(file, line)) return false;
    if (Json::parse(line, nullptr, false) != heading) {
      throw HostError(ExitCode::Usage, "'" + path_ + "' belongs to another search; choose another --out or remove it");
    }
    for (long row = 2; std::getline(file, line); ++row) {
      const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
      if (json.is_discarded() && file.peek() == std::ifstream::traits_type::eof()) {
        cutLastLine_(line.size());  // the machine stopped while it was written
        break;
      }
      try {
        known_.push_back(trialOf(json));
      } catch (const std::exception& e) {
        throw HostError(ExitCode::Usage, "'" + path_ + "', row " + std::to_string(row) + ": " + e.what());
      }
    }
    return true;
  }

  void cutLastLine_(std::size_t length) const {
    std::error_code ignored;
    const std::uintmax_t size = fs::file_size(path_, ignored);
    std::ifstream file(path_, std::ios::binary | std::ios::ate);
    file.seekg(-1, std::ios::end);
    const std::uintmax_t feed = file.get() == '\n' ? 1 : 0;
    if (!ignored && size >= length + feed) fs::resize_file(path_, size - length - feed, ignored);
  }

  std::string path_;
  std::vector<Trial> known_;
};

void makeFolder(const std::string& path) {
  std::error_code failed;
  fs::create_directories(path, failed);
  if (failed || !fs::is_directory(path)) {
    throw HostError(ExitCode::Usage, "cannot make the folder '" + path + "': " + failed.message());
  }
}

void showTrial(const Trial& t, const Trial* best, double minutes, double budget) {
  std::fprintf(stderr,
               "%5.1f of %.4g min  bracket %ld, rung %d, candidate %d: score %.3f (on target %.3f, AUC %.3f, %.1f ms "
               "CPU)%s\n",
               minutes, budget, t.bracket, t.rung, t.candidate, t.score.score, t.score.onTarget, t.score.successAuc,
               t.score.cpu_ms,
               best != nullptr && best->bracket == t.bracket && best->candidate == t.candidate ? "  best so far" : "");
}

std::vector<HeldBackScore> scoreHeldBack(PluginLibrary& library, const TuneSplit& split, const TuneGoal& goal,
                                         int threads, const nlohmann::json& start, const nlohmann::json& best) {
  if (split.heldBack.empty()) return {};
  std::vector<HeldBackScore> scores = {{"default", nlohmann::json::object(), {}}};
  if (!start.empty()) scores.push_back({"start", start, {}});
  scores.push_back({"best", best, {}});
  std::vector<nlohmann::json> configs;
  for (const HeldBackScore& entry : scores) configs.push_back(entry.config);
  const std::vector<TrialScore> answers = scoreConfigs(library, {split.heldBack, 0}, goal, threads, configs);
  if (answers.empty()) return {};
  for (std::size_t i = 0; i < scores.size(); ++i) scores[i].score = answers[i];
  return scores;
}

void write(const std::string& path, const std::string& text) {
  WholeText(path, "--out").write(text);
}

/// The cost of the defaults in the same unit, from the log where it is known.
double defaultCost(PluginLibrary& library, const TuneSplit& split, const TuneOptions& options, const GuardChoice& guard,
                   const std::vector<Trial>& known) {
  if (options.goal.maxCost <= 0) return 0;
  for (const Trial& trial : known) {
    if (trial.config.empty() && trial.rung == 0) return trial.score.cpu_ms;
  }
  TuneGoal costAlone;
  costAlone.guard = guard;
  const std::vector<TrialScore> score = scoreConfigs(library, partFor(split.training, defaultRungs().front()),
                                                     costAlone, options.threads, {nlohmann::json::object()});
  return score.empty() ? 0 : score.front().cpu_ms;
}

TuneSettings settingsOf(const TuneOptions& options, const nlohmann::json& start) {
  TuneSettings settings;
  settings.seed = options.seed;
  settings.candidates = options.candidates;
  settings.brackets = options.brackets;
  settings.shard = parseShard(options.shard);
  settings.starts = {nlohmann::json::object()};  // the defaults are to be beaten
  if (!start.empty()) settings.starts.push_back(start);
  return settings;
}

/// Every trial reads the sources again.
void refusePipes(const TuneOptions& options) {
  for (const std::string& source : options.sequences.sources) {
    if (isReadableOnce(source)) {
      throw HostError(ExitCode::Usage,
                      "'" + source + "' is a pipe or a stream: a search reads its sources many times; name a file");
    }
  }
}

void checkFiles(const TuneOptions& options) {
  refusePipes(options);
  FilePlan plan;
  options.sequences.addTo(plan);
  plan.reads("--config", options.config.file);
  plan.reads("--plugin", pathOf(options.plugin));
  plan.reads("--guard-model", options.guard.model);
  for (const char* file : {"trials.jsonl", "best.json", "tuning.json", "report.md"}) {
    plan.writes("--out", (fs::path(options.out) / file).string());
  }
  plan.check();
}

int tune(const TuneOptions& options) {
  checkOptions(options);
  checkFiles(options);
  const GuardChoice guard = chosenGuard(options.guard, options.quiet);
  const std::string startText = buildConfigText(options.config);
  const nlohmann::json start =
      startText.empty() ? nlohmann::json::object() : nlohmann::json::parse(startText, nullptr, false);
  if (!start.is_object()) throw HostError(ExitCode::Usage, "configuration '" + options.config.file + "' is not JSON");
  const TuneSettings settings = settingsOf(options, start);
  const TuneSplit split = splitTargets(openSequences(options.sequences.read()), options.heldBack);
  PluginLibrary library(pathOf(options.plugin));
  checkSets(options.config.sets, library.create()->getConfigList());
  makeFolder(options.out);
  cv::setNumThreads(1);  // the targets share the cores
  TuningResult result;
  result.search = searchOf(options, split, start, library.engine());
  if (!guard.sha256.empty()) result.search["guard_model_sha256"] = guard.sha256;
  if (settings.shard.count > 1) result.shards = {options.shard};
  TrialLog log(options.out + "/trials.jsonl", result.search, options.shard);

  const Clock::time_point begin = Clock::now();
  const auto minutes = [&begin] { return std::chrono::duration<double>(Clock::now() - begin).count() / 60; };
  TuneGoal goal = options.goal;
  goal.guard = guard;
  goal.defaultCpu_ms = defaultCost(library, split, options, guard, log.known());
  const int threads = options.threads;
  std::vector<Trial> shown = log.known();
  TuneHooks hooks;
  hooks.batch = static_cast<std::size_t>(std::max(1, threads / 4));
  hooks.timeIsUp = [&] { return interruptSignal() != 0 || minutes() >= options.budget_min; };
  hooks.evaluate = [&](const std::vector<nlohmann::json>& configs, const Rung& rung) {
    return scoreConfigs(library, partFor(split.training, rung), goal, threads, configs);
  };
  hooks.onTrial = [&](const Trial& trial) {
    log.add(trial);
    shown.push_back(trial);
    if (!options.quiet) showTrial(trial, bestOf(shown), minutes(), options.budget_min);
  };
  result.trials = runTuning(settings, defaultSearchSpace(), hooks, log.known());
  const Trial* best = bestOf(result.trials);
  if (best == nullptr) throw HostError(ExitCode::Usage, "--budget ended before the first trial did");
  if (interruptSignal() == 0) result.heldBack = scoreHeldBack(library, split, goal, threads, start, best->config);

  write(options.out + "/best.json", jsonText(best->config, 2));
  write(options.out + "/tuning.json", jsonText(toJson(result), 2));
  const std::string report = reportOf(result);
  write(options.out + "/report.md", report);
  if (!options.quiet) std::fputs(report.substr(0, report.find("\n## All trials")).c_str(), stdout);
  return interruptSignal() != 0 ? 128 + interruptSignal() : static_cast<int>(ExitCode::Done);
}

}  // namespace

void addTuneCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<TuneOptions>();
  CLI::App& command = *app.add_subcommand("tune", "Search a configuration that follows marked targets better");
  options->sequences.addTo(command);
  addConfigOptions(command, options->config);
  command.add_option("--budget", options->budget_min, "Minutes for the search; the final scoring comes on top")
      ->required()
      ->type_name("MINUTES");
  command.add_option("--out", options->out, "Folder for log and results; an earlier search in it is taken up again")
      ->required()
      ->type_name("DIR");
  command
      .add_option("--held-back", options->heldBack,
                  "Targets to judge the result on, comma-separated; default: every second, by marks")
      ->type_name("NAME")
      ->delimiter(',');
  addGuardOptions(command, options->guard);
  command.add_option("--goal", options->goal.name, "What to maximise: success, on-target or both")
      ->type_name("GOAL")
      ->check(CLI::IsMember({"success", "on-target", "both"}))
      ->capture_default_str();
  command
      .add_option("--max-cost", options->goal.maxCost,
                  "Processor time per update that is allowed, in times of the defaults'; 0: any")
      ->type_name("RATIO");
  command.add_option("--seed", options->seed, "The same seed and number of rounds give the same search")
      ->type_name("N")
      ->capture_default_str();
  command.add_option("--brackets", options->brackets, "End after so many rounds, whatever the time; 0: no limit")
      ->type_name("N")
      ->check(CLI::Range(0L, 1000000000L));
  command.add_option("--candidates", options->candidates, "Configurations a round begins with")
      ->type_name("N")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  command.add_option("--shard", options->shard, "Only the i-th of n parts; 'csrt-track merge' puts them together")
      ->type_name("I/N");
  addThreadsOption(command, options->threads, "all cores");
  addPluginOptions(command, options->plugin);
  command.add_flag("--quiet", options->quiet, "No progress, no report on standard output");
  command.footer(helpFooter({"tune clip.avi --truth clip.csv --goal both --budget 60 --out search"}, runExits()));
  command.callback([options, &status] { status = tune(*options); });
}

}  // namespace host
