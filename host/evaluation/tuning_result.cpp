#include "evaluation/tuning_result.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <tuple>

#include "base/host_error.h"
#include "base/json_text.h"
#include "evaluation/sequence.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

HeldBackScore heldBackOf(const nlohmann::json& json) {
  HeldBackScore h;
  json.at("what").get_to(h.what);
  h.config = json.at("config");
  h.score = trialScoreOf(json);
  return h;
}

void checkOneSearch(const TuningResult& a, const TuningResult& b, const std::string& nameA, const std::string& nameB) {
  if (a.search == b.search) return;
  throw HostError(ExitCode::Usage, "'" + nameA + "' and '" + nameB + "' are not parts of one search");
}

void addHeldBack(const std::vector<HeldBackScore>& part, std::vector<HeldBackScore>& all) {
  for (const HeldBackScore& h : part) {
    const bool known = std::any_of(all.begin(), all.end(), [&h](const HeldBackScore& other) {
      return other.what == h.what && other.config == h.config;
    });
    if (!known) all.push_back(h);
  }
}

std::string heldBackTable(const TuningResult& result, const Trial& best) {
  if (result.heldBack.empty()) return "No target was held back: the score above is that of the training targets.\n";
  std::string text = "| configuration | on target | success AUC | CPU ms per update |\n|---|---|---|---|\n";
  for (const HeldBackScore& h : result.heldBack) {
    if (h.what == "best" && h.config != best.config) continue;  // the best of one shard only
    text += fmt::format("| {} | {:.3f} | {:.3f} | {:.2f} |\n", h.what, h.score.onTarget, h.score.successAuc,
                        h.score.cpu_ms);
  }
  return text;
}

std::string effectsTable(const TuningResult& result) {
  std::string text = "| key | higher or on, less lower or off | standard error | trials |\n|---|---|---|---|\n";
  for (const KeyEffect& e : keyEffects(defaultSearchSpace(), result.trials)) {
    text += fmt::format("| {} | {:+.3f} | {:.3f} | {} |\n", e.path, e.effect, e.error, e.trials);
  }
  return text;
}

std::string trialsTable(const std::vector<Trial>& trials) {
  std::string text =
      "| bracket | candidate | rung | score | on target | success AUC | CPU ms |\n|---|---|---|---|---|---|---|\n";
  for (const Trial& t : trials) {
    text += fmt::format("| {} | {} | {} | {:.3f} | {:.3f} | {:.3f} | {:.2f} |\n", t.bracket, t.candidate, t.rung,
                        t.score.score, t.score.onTarget, t.score.successAuc, t.score.cpu_ms);
  }
  return text;
}

}  // namespace

Json toJson(const TuningResult& result) {
  Json trials = Json::array();
  for (const Trial& trial : result.trials) trials.push_back(Json(toJson(trial)));
  Json heldBack = Json::array();
  for (const HeldBackScore& h : result.heldBack) {
    Json entry = {{"what", h.what}, {"config", Json(h.config)}};
    entry.update(Json(toJson(h.score)));
    heldBack.push_back(std::move(entry));
  }
  const Trial* best = bestOf(result.trials);
  Json json = {{"schema", kTuningSchemaName},      {"version", kTuningSchemaVersion},
               {"search", result.search},          {"best", best == nullptr ? Json(nullptr) : Json(best->config)},
               {"held_back", std::move(heldBack)}, {"trials", std::move(trials)}};
  if (!result.shards.empty()) json["shards"] = result.shards;
  return json;
}

TuningResult tuningFromJson(const std::string& text, const std::string& path) {
  const Json json = parseOrderedJson(text, path);
  if (!json.is_object() || json.value("schema", "") != kTuningSchemaName ||
      json.value("version", 0) != kTuningSchemaVersion) {
    throw HostError(ExitCode::Usage, "'" + path + "' is not a result of csrt-track tune that this program can read");
  }
  try {
    TuningResult result;
    result.search = json.at("search");
    for (const Json& trial : json.at("trials")) result.trials.push_back(trialOf(trial));
    for (const Json& entry : json.at("held_back")) result.heldBack.push_back(heldBackOf(entry));
    result.shards = json.value("shards", std::vector<std::string>());
    return result;
  } catch (const std::exception& e) {
    throw HostError(ExitCode::Usage, "'" + path + "' is damaged: " + e.what());
  }
}

TuningResult mergeTunings(const std::vector<TuningResult>& parts, const std::vector<std::string>& names) {
  TuningResult all;
  all.search = parts.front().search;
  std::map<std::tuple<long, int, int>, std::string> owners;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    checkOneSearch(parts.front(), parts[i], names.front(), names[i]);
    for (const Trial& trial : parts[i].trials) {
      const auto [owner, isNew] = owners.emplace(std::tuple(trial.bracket, trial.candidate, trial.rung), names[i]);
      if (!isNew) {
        throw HostError(ExitCode::Usage, "'" + owner->second + "' and '" + names[i] + "' both hold bracket " +
                                             std::to_string(trial.bracket));
      }
      all.trials.push_back(trial);
    }
    addHeldBack(parts[i].heldBack, all.heldBack);
    all.shards.insert(all.shards.end(), parts[i].shards.begin(), parts[i].shards.end());
  }
  return all;
}

std::string reportOf(const TuningResult& result) {
  const Trial* best = bestOf(result.trials);
  if (best == nullptr) return "# Search of a configuration\n\nNothing was tried.\n";
  std::string text = "# Search of a configuration\n\n";
  for (const auto& [key, value] : result.search.items()) text += fmt::format("- {}: `{}`\n", key, jsonText(value));
  if (result.shards.size() > 1) {
    for (const std::string& shard : missingShards(result.shards)) text += fmt::format("- missing: shard {}\n", shard);
  }
  text += fmt::format(
      "\nBest of {} trials: score {:.3f}, on target {:.3f}, success AUC {:.3f}, {:.2f} ms CPU (bracket {}, candidate "
      "{}, rung {}).\n",
      result.trials.size(), best->score.score, best->score.onTarget, best->score.successAuc, best->score.cpu_ms,
      best->bracket, best->candidate, best->rung);
  text += "\n```json\n" + jsonText(best->config, 2) + "\n```\n";
  text += "\n## On targets held back from the search\n\n" + heldBackTable(result, *best);
  text +=
      "\n## Keys that mattered\n\nMean score of the trials with the higher half of a key's values, less that of the "
      "lower half. First rung only, where\ncandidates differ in many keys at once; the surest come first.\n\n";
  text += effectsTable(result);
  return text + "\n## All trials\n\n" + trialsTable(result.trials);
}

}  // namespace host
