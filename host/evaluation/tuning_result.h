// What `csrt-track tune` found, as it is written, merged and shown.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "evaluation/tuning.h"

namespace host {

/// What a result file says it is; a file of another name or version is refused.
inline constexpr const char* kTuningSchemaName = "csrt-track.tuning";
inline constexpr int kTuningSchemaVersion = 1;

/// A configuration's worth on targets that the search never saw.
struct HeldBackScore {
  std::string what;       ///< "default", "start" or "best".
  nlohmann::json config;  ///< The configuration.
  TrialScore score;       ///< What it came to on those targets.
};

/// All that a search found, or a shard of it.
struct TuningResult {
  nlohmann::ordered_json search;  ///< What was searched: seed, targets, goal, ...; equal for the shards of one search.
  std::vector<Trial> trials;      ///< In the order in which they were made.
  std::vector<HeldBackScore> heldBack;  ///< Empty: nothing was held back, or the search was stopped.
  std::vector<std::string> shards;  ///< Which parts of the search these are, such as "1/2"; empty: not known, or all.
};

/// The text that tuningFromJson() reads. Pure.
nlohmann::ordered_json toJson(const TuningResult& result);

/// Reads a text that toJson() made. @throws HostError (Usage) naming `path` and what is wrong
TuningResult tuningFromJson(const std::string& text, const std::string& path);

/// Puts the shards of one search together. @throws HostError (Usage) when they are not of one search or overlap
TuningResult mergeTunings(const std::vector<TuningResult>& parts, const std::vector<std::string>& names);

/// Best configuration, held-back scores, keys that mattered: Markdown for people.
std::string reportOf(const TuningResult& result);

}  // namespace host
