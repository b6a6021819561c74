#include "commands/track_outputs.h"

#include <filesystem>
#include <utility>

#include "commands/stream_outputs.h"
#include "evaluation/truth.h"
#include "report/html_report.h"
#include "run/progress.h"
#include "run/record_folder.h"
#include "run/run_outputs.h"
#include "run/saved_run.h"

namespace host {
namespace {

std::vector<TruthTarget> truthOf(const TrackOptions& options) {
  if (options.truth.empty()) return {};
  TruthOptions truth;
  truth.format = truthFormatOf(options.truthFormat);
  truth.firstNumber = options.firstNumber;
  return readTruth(options.truth, truth, "target");
}

}  // namespace

TrackOutputs::TrackOutputs(const TrackOptions& options, const TrackRun& run) : delay_(options.quiet) {
  const auto add = [this](auto output) { outputs_.push_back(std::move(output)); };
  if (!options.records.empty()) add(std::make_unique<RecordLines>(options.records, &delay_));
  if (!options.video.empty() || !options.still.empty()) {
    add(std::make_unique<DrawnPictures>(options.video, options.still));
  }
  if (!options.report.empty()) add(std::make_unique<HtmlReport>(options.report, truthOf(options)));
  if (!options.klvOut.empty()) add(std::make_unique<KlvOutput>(options.klvOut));
  if (!options.stream.empty()) add(std::make_unique<StreamOutput>(options.stream));
  if (!options.recordDir.empty()) {
    add(std::make_unique<RecordFolder>(options.recordDir, bytesOf(options.recordQuota)));
  }
  if (!options.saveRun.empty()) add(std::make_unique<RunSaver>(options.saveRun, run));
  if (!options.quiet) add(std::make_unique<Progress>());
}

std::vector<RunObserver*> TrackOutputs::observers() {
  std::vector<RunObserver*> all = {&summary_, &delay_};
  for (const auto& output : outputs_) all.push_back(output.get());
  return all;
}

std::string writtenFiles(const TrackOptions& options) {
  std::string text;
  const auto add = [&text](const char* what, const std::string& name) {
    if (!name.empty() && name != "-") text += what + std::filesystem::absolute(name).lexically_normal().string() + "\n";
  };
  add("annotated video  ", options.video);
  add("still picture    ", options.still);
  add("records          ", options.records);
  add("report           ", options.report);
  add("saved run        ", options.saveRun);
  return text;
}

}  // namespace host
