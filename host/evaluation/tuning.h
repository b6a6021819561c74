// The search of a good configuration: brackets of successive halving. It knows no tracker: what a configuration is
// worth comes from a function, so that the search itself can be tested by arithmetic.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "evaluation/search_space.h"
#include "evaluation/sequence.h"

namespace host {

/// How much of the training footage a candidate is tried on.
struct Rung {
  int number = 0;            ///< 0: the shortest trial.
  double targetShare = 1.0;  ///< (0, 1] of the targets.
  double framesShare = 1.0;  ///< (0, 1] of the longest target's frames.
};

/// All targets, for a fifth, half and all of the longest one's frames: targets differ more than the moments of one, so
/// a short look at each tells more than a long look at a few.
std::vector<Rung> defaultRungs();

/// What a configuration was worth in one trial.
struct TrialScore {
  double score = 0.0;       ///< What the search maximises.
  double onTarget = 0.0;    ///< Share of the marks that show the target. [0, 1]
  double successAuc = 0.0;  ///< Area under the success curve. [0, 1]
  double cpu_ms = 0.0;      ///< Median per update.
};

/// One configuration tried on one rung.
struct Trial {
  long bracket = 0;       ///< Counted from 0 through all shards.
  int candidate = 0;      ///< In its bracket.
  int rung = 0;           ///< Rung::number.
  nlohmann::json config;  ///< What was given to setConfig().
  TrialScore score;       ///< What it came to.
};

/// How a search is laid out.
struct TuneSettings {
  std::uint64_t seed = 1;              ///< The same seed and scores, the same search.
  int candidates = 9;                  ///< Per bracket.
  int keepOneOf = 3;                   ///< Candidates that one of which goes on to the next rung.
  long brackets = 0;                   ///< At most so many of this shard; 0: until the time is up.
  Shard shard;                         ///< Brackets are dealt out in turn.
  std::vector<nlohmann::json> starts;  ///< Configurations that the first bracket of every shard begins with.
};

/// What a search needs from outside.
struct TuneHooks {
  /// Scores configurations on a rung, one answer each; an empty answer: stopped on the way.
  std::function<std::vector<TrialScore>(const std::vector<nlohmann::json>&, const Rung&)> evaluate;
  std::function<bool()> timeIsUp;             ///< Asked before every batch.
  std::function<void(const Trial&)> onTrial;  ///< Told of every new trial, for log and progress.
  std::size_t batch = 1;                      ///< Configurations that evaluate() gets at once.
};

/// Runs brackets. A bracket begins with `starts` (the first of a shard) or neighbours of the best so far, and random
/// candidates; the best third of each rung goes on. Candidates depend on the seed and on earlier scores alone, so the
/// same scores give the same search, however often it was stopped and taken up again.
/// @param known  trials of an earlier run of the same search: they are not made again
/// @return all trials, the known ones of the brackets that were reached included
std::vector<Trial> runTuning(const TuneSettings& settings, const SearchSpace& space, const TuneHooks& hooks,
                             const std::vector<Trial>& known);

/// The best trial of the highest rung that any trial reached; null without trials. Ties: the earliest.
const Trial* bestOf(const std::vector<Trial>& trials);

/// How the score moved with one key.
struct KeyEffect {
  std::string path;     ///< "group.key".
  double effect = 0.0;  ///< Mean score of the upper half of its values less that of the lower; on less off.
  double error = 0.0;   ///< Standard error of the effect.
  int trials = 0;       ///< First-rung trials that set the key.
};

/// From the first rung's trials, each compared with its own bracket; keys that mattered most, by effect over error,
/// come first. Keys with fewer than four trials, or with one value only, are left out.
std::vector<KeyEffect> keyEffects(const SearchSpace& space, const std::vector<Trial>& trials);

/// The object that trialScoreOf() reads. Pure.
nlohmann::json toJson(const TrialScore& score);
/// @throws nlohmann::json::exception when it lacks a figure; other members do not matter
TrialScore trialScoreOf(const nlohmann::json& json);

/// The object that trialOf() reads. Pure.
nlohmann::json toJson(const Trial& trial);
/// @throws nlohmann::json::exception when it is not a trial
Trial trialOf(const nlohmann::json& json);

}  // namespace host
