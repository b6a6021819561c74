// What `csrt-track evaluate` found, as it is written, merged, compared and shown.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "evaluation/metrics.h"

namespace host {

/// What a result file says it is; a file of another name or version is refused.
inline constexpr const char* kEvaluationSchemaName = "csrt-track.evaluation";
inline constexpr int kEvaluationSchemaVersion = 1;
/// Who was followed with: the plug-in, or the bare tracker beside it.
inline constexpr const char* kPluginTracker = "plugin";
inline constexpr const char* kReferenceTracker = "reference";
inline constexpr const char* kMissingShards = "missing shards";  ///< The fact that names them in a merged result.

/// How one tracker did on one target.
struct TargetResult {
  std::string sequence;   ///< Name of the sequence; unique in a run.
  std::string target;     ///< Name of the target; unique in its sequence.
  std::string tracker;    ///< kPluginTracker or kReferenceTracker.
  bool complete = false;  ///< False: the source ended before the truth did, or the run was stopped.
  TargetSamples samples;  ///< Every judged frame and the time of every update.
};

/// How a run was made, as text, in the order in which it is shown: versions, configuration, pace, ...
using RunFacts = std::vector<std::pair<std::string, std::string>>;

/// All that an evaluation found.
struct EvaluationResult {
  RunFacts facts;                     ///< How it was made.
  std::vector<TargetResult> targets;  ///< One per target and tracker.
};

/// Time per update over several targets, milliseconds.
struct Timing {
  std::size_t updates = 0;     ///< How many there were; 0: the times mean nothing.
  double wallMedian_ms = 0.0;  ///< Wall-clock time.
  double wallP95_ms = 0.0;     ///< 95 of 100 updates took less wall-clock time.
  double cpuMedian_ms = 0.0;   ///< Processor time of the calling thread.
  double cpuP95_ms = 0.0;      ///< 95 of 100 updates took less processor time.
};

/// One line of figures: a target, or all targets of a tracker together.
struct Figures {
  MetricSums sums;  ///< What the figures are made of; adds up over parts.
  Metrics metrics;  ///< The figures that people read.
  Timing timing;    ///< Of all updates.
};

/// The figures of these targets taken together; all zero without any. Pure.
Figures figuresOf(const std::vector<const TargetResult*>& targets);

/// The figures of all targets together, by tracker.
std::map<std::string, Figures> overallOf(const EvaluationResult& result);

/// Holds every judgement and time, and the figures that follow from them; reading it back gives an equal result.
nlohmann::ordered_json toJson(const EvaluationResult& result);

/// Reads a text that toJson() made; `path` only names it. @throws HostError (Usage) saying what is wrong with it
EvaluationResult evaluationFromJson(const std::string& text, const std::string& path);

/// What the parts of a merged result were made with where that differs and answers may differ with it, such as
/// "program: csrt-track 1.0.0; csrt-track 0.9.0"; empty: nothing. Pure.
std::vector<std::string> differingMakers(const EvaluationResult& result);

/// The shards that a merged result lacks, such as "2/3"; empty: none. Pure.
std::vector<std::string> missingShardsOf(const EvaluationResult& result);

/// Pure. @throws HostError (Usage) when parts are shards of different divisions, such as 1/3 and 2/4
void checkOneDivision(const std::vector<EvaluationResult>& parts, const std::vector<std::string>& names);

/// The parts that a signal cut short; one sentence each, empty: none. Pure.
std::vector<std::string> interruptedParts(const std::vector<EvaluationResult>& parts,
                                          const std::vector<std::string>& names);

/// Puts parts of one evaluation together. Facts that differ between parts are joined.
/// @param names  of the parts, for errors. @throws HostError (Usage) when two parts hold the same target, or were made
///               with another configuration or pace
EvaluationResult mergeEvaluations(const std::vector<EvaluationResult>& parts, const std::vector<std::string>& names);

}  // namespace host
