// What configurations are worth on annotated footage, measured with the plug-in.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "evaluation/sequence.h"
#include "evaluation/tuning.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"

namespace host {

/// What a search maximises.
struct TuneGoal {
  std::string name = "success";  ///< "success": area under the success curve; "on-target"; "both": their mean.
  double maxCost = 0.0;          ///< CPU time per update, in times of defaultCpu_ms; 0: time does not count.
  double defaultCpu_ms = 0.0;    ///< Of the plug-in's defaults on the same machine.
  GuardChoice guard{};           ///< Who watches the plug-in's answers meanwhile.
};

/// @throws HostError (Usage) for another name
void checkGoal(const TuneGoal& goal);

/// Pure. A candidate above the allowed cost loses as much score as it is too dear.
double scoreFor(const TuneGoal& goal, double onTarget, double successAuc, double cpu_ms);

/// Splits targets into those to search on and those held back: the named ones, or without names every second one
/// from the one with most visible marks down, so that the halves weigh alike. A single target is never held back.
struct TuneSplit {
  std::vector<Sequence> training;  ///< Targets that the search may see.
  std::vector<Sequence> heldBack;  ///< Targets that it never sees; empty where there is one target only.
};
TuneSplit splitTargets(const std::vector<Sequence>& sequences, const std::vector<std::string>& heldBackNames);

/// The part of the targets that a rung uses, spread evenly over all, and the frames of each.
struct RungPart {
  std::vector<Sequence> sequences;  ///< What is run.
  long maxFrames = 0;               ///< After each target's start; 0: all.
};
RungPart partFor(const std::vector<Sequence>& training, const Rung& rung);

/// Runs every configuration on the part, all at once, with the plug-in's clock following the video.
/// @return one score per configuration; empty when a signal asked to stop
std::vector<TrialScore> scoreConfigs(PluginLibrary& library, const RungPart& part, const TuneGoal& goal, int threads,
                                     const std::vector<nlohmann::json>& configs);

}  // namespace host
