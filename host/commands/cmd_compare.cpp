// csrt-track compare and merge: what to do with results of evaluate and tune.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/host_error.h"
#include "base/json_text.h"
#include "base/text_file.h"
#include "base/text_output.h"
#include "commands/commands.h"
#include "commands/help_footer.h"
#include "evaluation/comparison.h"
#include "evaluation/results.h"
#include "evaluation/results_view.h"
#include "evaluation/sequence.h"
#include "evaluation/tuning_result.h"
#include "input/file_plan.h"

namespace host {
namespace {

struct CompareOptions {
  std::string a;
  std::string b;
  CompareSettings settings;
};

struct MergeOptions {
  std::vector<std::string> parts;
  std::string json;
  std::string html;
  std::string best;
  std::string report;
};

EvaluationResult readEvaluation(const std::string& path) {
  return evaluationFromJson(readTextFile(path), path);
}

int compare(const CompareOptions& options) {
  const CompareSettings& s = options.settings;
  if (!(s.tolerance >= 0) || !(s.timeTolerance >= 0)) throw HostError(ExitCode::Usage, "a tolerance is negative");
  const Comparison comparison = compareEvaluations(readEvaluation(options.a), readEvaluation(options.b), s);
  std::fputs(textOf(comparison, s).c_str(), stdout);
  return static_cast<int>(comparison.regression() ? ExitCode::Findings : ExitCode::Done);
}

void writeIfNamed(const std::string& path, const char* option, const std::string& text) {
  if (!path.empty()) WholeText(path, option).write(text);
}

bool isTuning(const std::string& text, const std::string& path) {
  const nlohmann::json json = parseJson(text, path);
  return json.is_object() && json.value("schema", "") == kTuningSchemaName;
}

void refuseOption(const std::string& value, const char* option, const char* kind) {
  if (!value.empty()) throw HostError(ExitCode::Usage, std::string(option) + " does not go with results of " + kind);
}

/// Of the shards that are not there, as a sentence each; empty: all are.
std::vector<std::string> sentencesOf(const std::vector<std::string>& missing) {
  if (missing.empty()) return {};
  std::string names;
  for (const std::string& shard : missing) names += (names.empty() ? "" : ", ") + shard;
  const bool several = missing.size() > 1;
  return {fmt::format("shard{} {} {} missing", several ? "s" : "", names, several ? "are" : "is")};
}

/// @return what is missing for the whole, as sentences
std::vector<std::string> mergeSearches(const MergeOptions& options, const std::vector<std::string>& texts) {
  refuseOption(options.html, "--html", "tune");
  std::vector<TuningResult> parts;
  for (std::size_t i = 0; i < texts.size(); ++i) parts.push_back(tuningFromJson(texts[i], options.parts[i]));
  const TuningResult all = mergeTunings(parts, options.parts);
  const Trial* best = bestOf(all.trials);
  if (best == nullptr) throw HostError(ExitCode::Usage, "the parts hold no trial");
  writeIfNamed(options.json, "--json", jsonText(toJson(all), 2));
  writeIfNamed(options.best, "--best", jsonText(best->config, 2));
  writeIfNamed(options.report, "--report", reportOf(all));
  if (options.json != "-") std::fputs(reportOf(all).c_str(), stdout);
  return sentencesOf(missingShards(all.shards));
}

/// @return what is missing for the whole, as sentences
std::vector<std::string> mergeResults(const MergeOptions& options, const std::vector<std::string>& texts) {
  refuseOption(options.best, "--best", "evaluate");
  refuseOption(options.report, "--report", "evaluate");
  std::vector<EvaluationResult> parts;
  for (std::size_t i = 0; i < texts.size(); ++i) parts.push_back(evaluationFromJson(texts[i], options.parts[i]));
  checkOneDivision(parts, options.parts);
  std::vector<std::string> missing = interruptedParts(parts, options.parts);
  const EvaluationResult all = mergeEvaluations(parts, options.parts);
  writeIfNamed(options.json, "--json", jsonText(toJson(all)));
  writeIfNamed(options.html, "--html", htmlOf(all));
  if (options.json != "-") std::fputs(tableOf(all).c_str(), stdout);
  for (const std::string& makers : differingMakers(all)) {
    std::fprintf(stderr, "csrt-track: note: the parts were not made alike, and may not fit together; %s\n",
                 makers.c_str());
  }
  for (std::string& sentence : sentencesOf(missingShardsOf(all))) missing.push_back(std::move(sentence));
  return missing;
}

void checkFiles(const MergeOptions& options) {
  FilePlan plan;
  for (const std::string& part : options.parts) plan.reads("the part", part);
  plan.writes("--json", options.json);
  plan.writes("--html", options.html);
  plan.writes("--best", options.best);
  plan.writes("--report", options.report);
  plan.check();
}

int merge(const MergeOptions& options) {
  checkFiles(options);
  std::vector<std::string> texts;
  for (const std::string& part : options.parts) texts.push_back(readTextFile(part));  // once: it may be a pipe
  const bool searches = isTuning(texts.front(), options.parts.front());
  const std::vector<std::string> missing = searches ? mergeSearches(options, texts) : mergeResults(options, texts);
  // A result without some of its parts is written all the same, but it is not what was asked for.
  for (const std::string& what : missing) {
    std::fprintf(stderr, "csrt-track: the result is not complete: %s\n", what.c_str());
  }
  return static_cast<int>(missing.empty() ? ExitCode::Done : ExitCode::Findings);
}

}  // namespace

void addCompareCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<CompareOptions>();
  CLI::App& command =
      *app.add_subcommand("compare", "Compare two results of 'evaluate'; status 1 when the second is worse");
  command.add_option("a", options->a, "The result to compare with (JSON)")->required()->type_name("FILE");
  command.add_option("b", options->b, "The result to judge (JSON)")->required()->type_name("FILE");
  command
      .add_option("--tolerance", options->settings.tolerance,
                  "How much lower a share of b may be than that of a, such as 0.02")
      ->type_name("SHARE")
      ->capture_default_str();
  command
      .add_option("--time-tolerance", options->settings.timeTolerance,
                  "By what share processor time may grow, such as 0.1; 0: only shown. For runs on one machine")
      ->type_name("SHARE")
      ->capture_default_str();
  command.add_option("--tracker", options->settings.tracker, "Whose results: plugin or reference")
      ->type_name("TRACKER")
      ->capture_default_str();
  command.add_option("--seed", options->settings.seed, "Of the bootstrap that gives the intervals")
      ->type_name("N")
      ->capture_default_str();
  command.footer(helpFooter({"compare before.json after.json --tolerance 0.05"}, {{1, "b is worse than allowed"}}));
  command.callback([options, &status] { status = compare(*options); });
}

void addMergeCommand(CLI::App& app, int& status) {
  const auto options = std::make_shared<MergeOptions>();
  CLI::App& command = *app.add_subcommand("merge", "Put the results of shards of 'evaluate' or of 'tune' together");
  command.add_option("parts", options->parts, "Results of the shards (JSON)")->required()->type_name("FILE");
  command.add_option("--json", options->json, "Write the whole as JSON; -: to standard output")->type_name("FILE");
  command.add_option("--html", options->html, "Of evaluate: write the result as a page")->type_name("FILE");
  command.add_option("--best", options->best, "Of tune: write the best configuration")->type_name("FILE");
  command.add_option("--report", options->report, "Of tune: write the report (Markdown)")->type_name("FILE");
  command.footer(
      helpFooter({"merge 1.json 2.json --json all.json --html all.html",
                  "merge search1/tuning.json search2/tuning.json --best best.json --report report.md"},
                 {{1, "a shard is missing or was interrupted"}, {6, "an output could not be written to its end"}}));
  command.callback([options, &status] { status = merge(*options); });
}

}  // namespace host
