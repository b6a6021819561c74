// How does the plug-in compare with what else could follow the target: how often is each on target, and what does an
// update cost? The plug-in with its defaults and with every preset, bare CSRT and the bare engine with the plug-in's
// parameters and with OpenCV's own, KCF, MIL and, where it was found, dlib's correlation tracker; all but the plug-in
// on the whole frame. Every frame is handed to all of them before the next is read, so they meet the same load; one
// thread.
//
// usage: tracker_comparison SEQUENCE... [--truth FILE]... [--contestants NAME,...] [--json FILE]
//        tracker_comparison --drawn FRAMES   a drawn walk behind a lamp post: do they all still run?
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/tracking.hpp>
#include <string>
#include <utility>
#include <vector>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/text_output.h"
#include "commands/evaluation_options.h"
#include "commands/plugin_choice.h"
#include "config/presets.h"
#include "csrt_engine/csrt_engine.h"
#include "dlib_follower.h"
#include "evaluation/evaluation_run.h"
#include "evaluation/results.h"
#include "evaluation/sequence.h"
#include "picture/street_scene.h"
#include "plugin/plugin_library.h"

namespace {

namespace fs = std::filesystem;
using host::Figures;
using host::TargetResult;
using Json = nlohmann::ordered_json;

struct Contestant {
  std::string name;
  std::string words;
  std::function<std::unique_ptr<host::Follower>()> make;
};

struct Options {
  host::SequenceArguments sequences;
  std::vector<std::string> contestants;
  std::string json;
  host::PluginChoice plugin;
  long maxFrames = 0;
  int drawn = 0;
};

std::vector<Contestant> allContestants(host::PluginLibrary& library) {
  const auto plugIn = [&library](const std::string& config) {
    return [&library, config] { return host::makePluginFollower(library, config, true); };
  };
  std::vector<Contestant> all = {{"plugin", "plug-in, defaults", plugIn("")}};
  for (const std::string& preset : host::presetNames()) {
    all.push_back({preset, "plug-in, `" + preset + "`", plugIn(host::presetText(preset))});
  }
  static const std::string kDefaults;
  all.push_back(
      {"csrt-plugin", "bare CSRT, the plug-in's parameters", [] { return host::makeReferenceFollower(&kDefaults); }});
  all.push_back({"csrt", "bare CSRT, OpenCV's parameters", [] { return host::makeReferenceFollower(nullptr); }});
  all.push_back({"engine-plugin", "bare engine, the plug-in's parameters",
                 [] { return host::makeReferenceFollower(&kDefaults, csrt_engine::create); }});
  all.push_back({"engine", "bare engine, OpenCV's parameters",
                 [] { return host::makeReferenceFollower(nullptr, csrt_engine::create); }});
  all.push_back(
      {"kcf", "cv::TrackerKCF", [] { return host::makeTrackerFollower(cv::tracking::TrackerKCF::create()); }});
  all.push_back({"mil", "cv::TrackerMIL", [] { return host::makeTrackerFollower(cv::TrackerMIL::create()); }});
  if (bench::makeDlibFollower() != nullptr) {
    all.push_back({"dlib", "dlib::correlation_tracker", bench::makeDlibFollower});
  }
  return all;
}

std::vector<Contestant> chosenOf(const std::vector<Contestant>& all, const std::vector<std::string>& names) {
  if (names.empty()) return all;
  std::vector<Contestant> chosen;
  for (const std::string& name : names) {
    const auto found = std::find_if(all.begin(), all.end(), [&name](const Contestant& c) { return c.name == name; });
    if (found == all.end()) throw host::HostError(host::ExitCode::Usage, "there is no contestant '" + name + "'");
    chosen.push_back(*found);
  }
  return chosen;
}

/// A drawn clip with its truth, in a folder of its own that goes when this does.
class DrawnSequence {
 public:
  explicit DrawnSequence(int frames) {
    std::string pattern = (fs::temp_directory_path() / "tracker-comparison-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw host::HostError(host::ExitCode::Output, "cannot make " + pattern);
    folder_ = pattern;
    const cv::Size size(640, 360);
    host::writeStreetScene(clip(), size, frames, 25.0);
    const host::StreetScene scene(size, host::kStreetSceneSeed);
    std::ofstream file(truth());
    for (int i = 0; i < frames; ++i) {
      const cv::Rect box = scene.truth(i);
      file << box.x << ',' << box.y << ',' << box.width << ',' << box.height << '\n';
    }
  }
  DrawnSequence(const DrawnSequence&) = delete;
  DrawnSequence& operator=(const DrawnSequence&) = delete;
  ~DrawnSequence() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  std::string clip() const { return folder_ + "/walk.avi"; }
  std::string truth() const { return folder_ + "/walk.txt"; }

 private:
  std::string folder_;
};

/// By contestant, in their order.
std::vector<std::vector<TargetResult>> follow(const std::vector<host::Sequence>& sequences,
                                              const std::vector<Contestant>& contestants, long maxFrames) {
  std::vector<std::vector<TargetResult>> results(contestants.size());
  host::FollowOptions options;
  options.pace = host::Pace::Video;
  for (const host::Sequence& sequence : sequences) {
    std::vector<host::FollowJob> jobs;
    for (const host::TruthTarget& target : sequence.targets) {
      for (const Contestant& c : contestants) jobs.push_back({target, maxFrames, c.make});
    }
    std::vector<host::FollowResult> followed = host::followAll(sequence.source, jobs, options);
    if (host::interruptSignal() != 0) throw host::HostError(host::ExitCode::Interrupted, "interrupted");
    for (std::size_t i = 0; i < followed.size(); ++i) {
      const std::size_t who = i % contestants.size();
      results[who].push_back({sequence.name, sequence.targets[i / contestants.size()].name, contestants[who].name,
                              followed[i].complete, std::move(followed[i].samples)});
    }
  }
  return results;
}

Figures figuresOf(const std::vector<TargetResult>& results) {
  std::vector<const TargetResult*> pointers;
  for (const TargetResult& result : results) pointers.push_back(&result);
  return host::figuresOf(pointers);
}

void printTable(const std::vector<Contestant>& contestants, const std::vector<Figures>& figures) {
  std::printf(
      "| tracker | on target | held | success AUC | precision at 20 px | CPU ms, median | p95 |\n"
      "|---|---:|---:|---:|---:|---:|---:|\n");
  for (std::size_t i = 0; i < contestants.size(); ++i) {
    const Figures& f = figures[i];
    std::printf("| %s | %.3f | %ld of %ld | %.3f | %.3f | %.1f | %.1f |\n", contestants[i].words.c_str(),
                f.metrics.onTarget, f.sums.heldAtEnd, f.sums.targets, f.metrics.successAuc, f.metrics.precision20,
                f.timing.cpuMedian_ms, f.timing.cpuP95_ms);
  }
}

Json toJson(const std::vector<Contestant>& contestants, const std::vector<std::vector<TargetResult>>& results) {
  Json all = Json::array();
  for (std::size_t i = 0; i < contestants.size(); ++i) {
    const host::EvaluationResult ofOne = {{{"tracker", contestants[i].words}, {"opencv", CV_VERSION}}, results[i]};
    all.push_back(host::toJson(ofOne));  // as 'csrt-track evaluate' writes it, with every judgement and time
  }
  return {{"comparison", std::move(all)}};
}

/// A tracker that refuses a box would otherwise pass for one that lost it.
bool allStarted(const std::vector<std::vector<TargetResult>>& results) {
  bool all = true;
  for (const std::vector<TargetResult>& ofOne : results) {
    for (const TargetResult& r : ofOne) {
      if (r.samples.started) continue;
      std::fprintf(stderr, "tracker_comparison: '%s' did not start on %s/%s\n", r.tracker.c_str(), r.sequence.c_str(),
                   r.target.c_str());
      all = false;
    }
  }
  return all;
}

int compare(Options& options) {
  std::unique_ptr<DrawnSequence> drawn;
  if (options.drawn > 0) {
    drawn = std::make_unique<DrawnSequence>(options.drawn);
    options.sequences.sources = {drawn->clip()};
    options.sequences.truths = {drawn->truth()};
  }
  std::unique_ptr<host::TextOutput> json;
  if (!options.json.empty()) json = std::make_unique<host::TextOutput>(options.json, "--json");
  host::PluginLibrary library(host::pathOf(options.plugin));
  const std::vector<Contestant> contestants = chosenOf(allContestants(library), options.contestants);
  cv::setNumThreads(1);
  const auto results = follow(host::openSequences(options.sequences.read()), contestants, options.maxFrames);
  std::vector<Figures> figures;
  for (const std::vector<TargetResult>& ofOne : results) figures.push_back(figuresOf(ofOne));
  printTable(contestants, figures);
  if (json != nullptr) json->writeLine(toJson(contestants, results).dump());
  return allStarted(results) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  host::catchInterrupts();
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
  Options options;
  CLI::App app("Accuracy and speed of trackers side by side, on sequences whose truth is known.");
  options.sequences.addTo(app);
  app.get_option("sequences")->required(false);
  app.add_option("--drawn", options.drawn, "Instead of a sequence: a drawn one of so many frames")
      ->check(CLI::Range(2, 10000));
  app.add_option("--contestants", options.contestants,
                 "Only these: plugin, csrt-plugin, csrt, engine-plugin, engine, kcf, mil, dlib, a preset")
      ->delimiter(',');
  app.add_option("--max-frames", options.maxFrames, "Use at most so many frames of each target");
  app.add_option("--json", options.json, "Write every judgement and time");
  host::addPluginOptions(app, options.plugin);
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
