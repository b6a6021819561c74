// How does the plug-in compare with what else could follow the target: how often is each on target, what is found again
// after a loss, how long is something else followed, and what does an update cost? The plug-in with its defaults and
// every preset, with and without a guard; bare CSRT and the bare engine with the plug-in's parameters and with OpenCV's
// own, KCF, MIL, dlib's correlation tracker where it was found, and a small network where its file is; all but the
// plug-in on the whole frame. Every frame is handed to all of them before the next is read, so they meet the same load;
// one thread. Only plug-ins with different engines come one after the other.
//
// usage: tracker_comparison SEQUENCE... [--truth FILE]... [--contestants NAME,...] [--guards off,colour]
//                           [--engines fast,opencv] [--guard-model FILE] [--json FILE]
//                           [--losses --second SOURCE --second-truth FILE]   26 losses, as guard_comparison makes them
//        tracker_comparison --drawn FRAMES   a drawn walk behind a lamp post: do they all still run?
#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/text_output.h"
#include "commands/evaluation_options.h"
#include "commands/plugin_choice.h"
#include "drawn_sequence.h"
#include "entrants.h"

namespace {

using bench::Entry;
using host::Figures;
using Json = nlohmann::ordered_json;

struct Options {
  host::SequenceArguments sequences;
  bench::ContestantOptions contestants;
  std::string json;
  host::PluginChoice plugin;
  std::string second, secondTruth;
  long maxFrames = 0;
  int drawn = 0;
  bool losses = false;
};

/// The plug-ins to load: those of --engines, else the one that --plugin and --engine choose.
std::vector<bench::PluginFile> pluginFiles(Options& options) {
  std::vector<bench::PluginFile> files;
  if (options.contestants.engines.empty()) {
    const std::string path = host::pathOf(options.plugin);
    files.push_back({host::engineOfFile(path), path});
    options.contestants.engines = {files.front().engine};
    return files;
  }
  for (const std::string& engine : options.contestants.engines) {
    host::PluginChoice choice;
    choice.engine = engine;
    files.push_back({engine, host::pathOf(choice)});
  }
  return files;
}

Figures figuresOf(const Entry& entry) {
  std::vector<const host::TargetResult*> pointers;
  for (const host::TargetResult& result : entry.results) pointers.push_back(&result);
  return host::figuresOf(pointers);
}

struct LossTotals {
  int found = 0, falseBoxes = 0;
  long hidden = 0;
};

LossTotals lossTotals(const Entry& entry, const std::vector<bench::MadeLoss>& losses) {
  LossTotals totals;
  for (std::size_t i = 0; i < entry.losses.size(); ++i) {
    totals.found += entry.losses[i].delay >= 0;
    totals.falseBoxes += entry.losses[i].falseBoxes;
    totals.hidden += losses[i].hidden;
  }
  return totals;
}

void printTable(const std::vector<Entry>& entries, const bench::LossScenes* losses) {
  std::printf(
      "| tracker | on target | held | success AUC | precision at 20 px | called seen, elsewhere | wrong runs > 30 | "
      "CPU "
      "ms, median | p95 |%s\n|---|---:|---:|---:|---:|---:|---:|---:|---:|%s\n",
      losses != nullptr ? " losses found | called seen while hidden |" : "", losses != nullptr ? "---:|---:|" : "");
  for (const Entry& entry : entries) {
    const Figures f = figuresOf(entry);
    std::printf("| %s | %.3f | %ld of %ld | %.3f | %.3f | %.3f | %d | %.1f | %.1f |", entry.contestant.words.c_str(),
                f.metrics.onTarget, f.sums.heldAtEnd, f.sums.targets, f.metrics.successAuc, f.metrics.precision20,
                f.metrics.seenElsewhere, entry.longRuns(), f.timing.cpuMedian_ms, f.timing.cpuP95_ms);
    if (losses != nullptr) {
      const LossTotals totals = lossTotals(entry, losses->all());
      std::printf(
          " %d of %zu | %.3f |", totals.found, entry.losses.size(),
          totals.hidden > 0 ? static_cast<double>(totals.falseBoxes) / static_cast<double>(totals.hidden) : 0.0);
    }
    std::printf("\n");
  }
}

Json lossesJson(const Entry& entry, const std::vector<bench::MadeLoss>& losses) {
  Json all = Json::array();
  for (std::size_t i = 0; i < entry.losses.size(); ++i) {
    const bench::LossOutcome& o = entry.losses[i];
    all.push_back({{"target", losses[i].target},
                   {"loss", losses[i].what},
                   {"found_after", o.delay < 0 ? Json() : Json(o.delay)},
                   {"hidden", losses[i].hidden},
                   {"boxes_while_hidden", o.falseBoxes}});
  }
  return all;
}

Json toJson(const std::vector<Entry>& entries, const bench::LossScenes* losses) {
  Json all = Json::array();
  for (const Entry& entry : entries) {
    const host::EvaluationResult ofOne = {{{"tracker", entry.contestant.words}, {"opencv", CV_VERSION}}, entry.results};
    Json one = host::toJson(ofOne);  // as 'csrt-track evaluate' writes it, with every judgement and time
    one["longest_wrong_runs"] = entry.longestWrong;
    if (losses != nullptr) one["losses"] = lossesJson(entry, losses->all());
    all.push_back(std::move(one));
  }
  return {{"comparison", std::move(all)}};
}

/// A tracker that refuses a box would otherwise pass for one that lost it.
bool allStarted(const std::vector<Entry>& entries) {
  bool all = true;
  for (const Entry& entry : entries) {
    for (const host::TargetResult& r : entry.results) {
      if (r.samples.started) continue;
      std::fprintf(stderr, "tracker_comparison: '%s' did not start on %s/%s\n", r.tracker.c_str(), r.sequence.c_str(),
                   r.target.c_str());
      all = false;
    }
  }
  return all;
}

int compare(Options& options) {
  std::unique_ptr<bench::DrawnSequence> drawn;
  if (options.drawn > 0) {
    drawn = std::make_unique<bench::DrawnSequence>(options.drawn);
    options.sequences.sources = {drawn->clip()};
    options.sequences.truths = {drawn->truth()};
  }
  std::optional<host::WholeText> json;
  if (!options.json.empty()) json.emplace(options.json, "--json");
  const std::vector<bench::PluginFile> files = pluginFiles(options);
  const std::vector<bench::Contestant> contestants = bench::contestantsOf(options.contestants);
  cv::setNumThreads(1);
  const std::vector<host::Sequence> sequences = host::openSequences(options.sequences.read());
  std::optional<bench::Footage> clip;
  std::optional<bench::LossScenes> losses;
  if (options.losses) {
    clip.emplace(sequences.front().source.source, bench::FootageOptions());
    losses.emplace(*clip, sequences.front().targets, options.second, options.secondTruth);
  }
  const bench::LossScenes* scenes = losses ? &*losses : nullptr;
  const std::vector<Entry> entries = bench::follow(sequences, contestants, files, options.maxFrames, scenes);
  printTable(entries, scenes);
  if (json) json->write(toJson(entries, scenes).dump());
  return allStarted(entries) ? 0 : 1;
}

void addOptions(CLI::App& app, Options& options) {
  options.sequences.addTo(app);
  app.get_option("sequences")->required(false);
  app.add_option("--drawn", options.drawn, "Instead of a sequence: a drawn one of so many frames")
      ->check(CLI::Range(2, 10000));
  app.add_option("--contestants", options.contestants.names,
                 "Only these: plugin, a preset, either with /colour; csrt-plugin, csrt, engine-plugin, engine, kcf, "
                 "mil, dlib, network")
      ->delimiter(',');
  app.add_option("--guards", options.contestants.guards, "Beside the plug-in: off, colour")->delimiter(',');
  CLI::Option* engines =
      app.add_option("--engines", options.contestants.engines, "The plug-in with each of these: fast, opencv")
          ->delimiter(',');
  app.add_option("--guard-model", options.contestants.model, "The network's file (ONNX)");
  app.add_option("--max-frames", options.maxFrames, "Use at most so many frames of each target");
  CLI::Option* second = app.add_option("--second", options.second, "With --losses: another sequence");
  CLI::Option* truth = app.add_option("--second-truth", options.secondTruth, "With --losses: its truth");
  app.add_flag("--losses", options.losses, "Also 26 losses made from the first sequence and another one")
      ->needs(second)
      ->needs(truth);
  app.add_option("--json", options.json, "Write every judgement and time");
  host::addPluginOptions(app, options.plugin);
  engines->excludes("--plugin")->excludes("--engine");
}

}  // namespace

int main(int argc, char** argv) {
  host::catchInterrupts();
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  Options options;
  CLI::App app("Accuracy and speed of trackers side by side, on sequences whose truth is known.");
  addOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  try {
    if (options.sequences.sources.empty() == (options.drawn == 0)) {
      throw host::HostError(host::ExitCode::Usage, "give a sequence or --drawn");
    }
    return compare(options);
  } catch (const host::HostError& e) {
    std::fprintf(stderr, "tracker_comparison: %s\n", e.what());
    return static_cast<int>(e.code());
  }
}
