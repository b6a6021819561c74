// csrt-track replay: repeats a run that --save-run kept and says whether every record is the same.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
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
#include "input/file_plan.h"
#include "plugin/guard_model.h"
#include "plugin/plugin_library.h"
#include "run/saved_run.h"
#include "run/track_run.h"

namespace host {
namespace {

struct ReplayOptions {
  std::string folder;
  PluginChoice plugin;
  std::string guardModel;
  std::string records;
  int threads = 1;
};

class RecordCollector : public RunObserver {
 public:
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& records) override {
    for (const CallRecord& record : records) all.emplace_back(toJson(record));
  }
  std::vector<nlohmann::json> all;
};

void noteVersions(const nlohmann::json& about, const std::string& engine) {
  const auto differs = [&about](const char* what, const std::string& now) {
    const std::string then = about.value(what, "");
    if (then != now) std::printf("%s was %s, is %s\n", what, then.c_str(), now.c_str());
  };
  differs("csrt_track", CSRT_VERSION);
  differs("opencv", cv::getVersionString());
  if (about.contains("engine")) differs("engine", engine);
}

/// The saved run's engine, unless the user names one.
std::string pluginOf(const ReplayOptions& options, const SavedRun& saved) {
  PluginChoice choice = options.plugin;
  const std::string engine = saved.about.value("engine", "");
  if (choice.path.empty() && choice.engine.empty() && engine != kUnknownEngine) choice.engine = engine;
  return pathOf(choice);
}

/// The saved run's guard. A network is not in the folder: it must be given, and be the same.
GuardChoice guardOf(const ReplayOptions& options, const SavedGuard& saved) {
  const auto refuse = [](const std::string& why) { throw HostError(ExitCode::Usage, why); };
  const std::string& model = options.guardModel;
  if (saved.modelSha256.empty() && !model.empty()) {
    refuse("--guard-model is of use with a run that was made with --guard network; '" + options.folder + "' was not");
  }
  if (!saved.modelSha256.empty() && model.empty()) {
    refuse("'" + options.folder + "' was made with --guard network, whose file is not in it: give it with " +
           "--guard-model FILE; its sha256 is " + saved.modelSha256);
  }
  if (!model.empty()) {
    const std::string sum = readGuardModel(model).sha256;
    if (sum != saved.modelSha256) {
      refuse("--guard-model '" + model + "' has the sha256 " + sum + ", but '" + options.folder +
             "' was made with the file of sha256 " + saved.modelSha256);
    }
  }
  return chosenGuard({saved.which, model}, false);
}

/// Prints how many records differ and the first of them. @return true when all are the same
bool compare(const std::vector<nlohmann::json>& saved, const std::vector<nlohmann::json>& now) {
  std::size_t different = 0;
  const std::size_t common = std::min(saved.size(), now.size());
  for (std::size_t i = 0; i < common; ++i) {
    const std::string difference = firstDifference(saved[i], now[i]);
    if (difference.empty() || different++ > 0) continue;
    std::printf("first difference: target '%s', frame %ld: %s\n", saved[i].value("target", "").c_str(),
                saved[i].value("frame", -1L), difference.c_str());
  }
  if (saved.size() != now.size())
    std::printf("%zu records were saved, the replay made %zu\n", saved.size(), now.size());
  if (different == 0 && saved.size() == now.size()) {
    std::printf("identical: all %zu records\n", saved.size());
    return true;
  }
  std::printf("%zu of %zu records differ\n", different, common);
  return false;
}

void checkFiles(const ReplayOptions& options) {
  FilePlan plan;
  plan.readsFolder("the saved run's", options.folder);
  plan.readsFolder("the saved run's", options.folder + "/frames");
  plan.reads("--plugin", pathOf(options.plugin));
  plan.reads("--guard-model", options.guardModel);
  plan.writes("--records", options.records);
  plan.check();
}

int replay(const ReplayOptions& options) {
  checkFiles(options);
  SavedRun saved = readSavedRun(options.folder);
  saved.run.threads = options.threads;
  saved.run.guard = guardOf(options, saved.guard);
  PluginLibrary library(pluginOf(options, saved));
  std::optional<TextOutput> output;
  if (!options.records.empty()) output.emplace(options.records, "--records");
  RecordCollector collector;
  runTrack(*saved.frames, library, saved.run, {&collector});
  if (output) {
    for (const nlohmann::json& record : collector.all) output->writeLine(jsonText(record));
  }
  if (interruptSignal() != 0) {
    std::fprintf(stderr, "csrt-track: interrupted after %zu of %zu records; nothing is compared\n",
                 collector.all.size(), saved.records.size());
    return 128 + interruptSignal();
  }
  noteVersions(saved.about, library.engine());
  return static_cast<int>(compare(saved.records, collector.all) ? ExitCode::Done : ExitCode::Findings);
}

}  // namespace

void addReplayCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<ReplayOptions>();
  CLI::App& command =
      *app.add_subcommand("replay", "Repeat a run that 'track --save-run' kept, and compare every record");
  command.add_option("folder", options->folder, "The folder that --save-run wrote")->required()->type_name("DIR");
  addPluginOptions(command, options->plugin);
  command
      .add_option("--guard-model", options->guardModel,
                  "The network's file, where the run was made with --guard network; the folder holds its sha256 alone")
      ->type_name("FILE");
  addThreadsOption(command, options->threads);
  command.add_option("--records", options->records, "Write the replay's records, one JSON line per call")
      ->type_name("FILE");
  command.footer(helpFooter(
      {"track street.mp4 --box 412,230,64,48 --save-run problem", "replay problem", "replay problem --engine opencv"},
      {{0, "every record is the same, timings and engine aside"},
       {1, "some records differ"},
       {3, "the folder holds no saved run, or a damaged one"},
       {4, "the plug-in cannot be loaded"},
       {6, "an output could not be written to its end"},
       {130, kInterrupted}}));
  command.callback([options, &status] { status = replay(*options); });
}

}  // namespace host
