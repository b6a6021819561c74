// What `csrt-track evaluate` found, as it is written, merged, compared and shown.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "evaluation/metrics.h"

namespace host {

inline constexpr const char* kEvaluationSchemaName = "csrt-track.evaluation";
inline constexpr int kEvaluationSchemaVersion = 1;
inline constexpr const char* kPluginTracker = "plugin";
inline constexpr const char* kReferenceTracker = "reference";
inline constexpr const char* kMissingShards = "missing shards";  ///< The fact that names them in a merged result.

struct TargetResult {
  std::string sequence;
  std::string target;
  std::string tracker;    ///< kPluginTracker or kReferenceTracker.
  bool complete = false;  ///< False: the source ended before the truth did, or the run was stopped.
  TargetSamples samples;
};

/// How a run was made, as text, in the order in which it is shown: versions, configuration, pace, ...
using RunFacts = std::vector<std::pair<std::string, std::string>>;

struct EvaluationResult {
  RunFacts facts;
  std::vector<TargetResult> targets;
};

/// Time per update over several targets, milliseconds.
struct Timing {
  std::size_t updates = 0;
  double wallMedian_ms = 0.0;
  double wallP95_ms = 0.0;
  double cpuMedian_ms = 0.0;
  double cpuP95_ms = 0.0;
};

/// One line of figures: a target, or all targets of a tracker together.
struct Figures {
  MetricSums sums;
  Metrics metrics;
  Timing timing;
};

Figures figuresOf(const std::vector<const TargetResult*>& targets);

/// The figures of all targets together, by tracker.
std::map<std::string, Figures> overallOf(const EvaluationResult& result);

/// Holds every judgement and time, and the figures that follow from them; reading it back gives an equal result.
nlohmann::ordered_json toJson(const EvaluationResult& result);

/// Reads a text that toJson() made; `path` only names it. @throws HostError (Usage) saying what is wrong with it
EvaluationResult evaluationFromJson(const std::string& text, const std::string& path);

/// The shards that a merged result lacks, such as "2/3"; empty: none. Pure.
std::vector<std::string> missingShardsOf(const EvaluationResult& result);

/// The parts that a signal cut short; one sentence each, empty: none. Pure.
std::vector<std::string> interruptedParts(const std::vector<EvaluationResult>& parts,
                                          const std::vector<std::string>& names);

/// Puts parts of one evaluation together. Facts that differ between parts are joined.
/// @param names  of the parts, for errors. @throws HostError (Usage) when two parts hold the same target, or were made
///               with another configuration or pace
EvaluationResult mergeEvaluations(const std::vector<EvaluationResult>& parts, const std::vector<std::string>& names);

}  // namespace host
