// All contestants over the same sequences and losses, and what came of each.
#pragma once

#include <string>
#include <vector>

#include "contestants.h"
#include "evaluation/results.h"
#include "evaluation/sequence.h"
#include "made_losses.h"

namespace bench {

/// What one contestant did.
struct Entry {
  Contestant contestant;
  std::vector<host::TargetResult> results;  ///< One per target.
  std::vector<int> longestWrong;            ///< One per target: frames in a row called seen that lie elsewhere.
  std::vector<LossOutcome> losses;          ///< One per loss; empty where none were made.

  int longRuns() const;  ///< Targets with a wrong run of more than 30 frames.
};

/// Where a plug-in with an engine lies.
struct PluginFile {
  std::string engine;
  std::string path;
};

/// Follows all targets with all contestants, every frame handed to all with the same engine before the next is read.
/// One plug-in is loaded at a time, so engines come one after the other; who needs none goes with the first.
std::vector<Entry> follow(const std::vector<host::Sequence>& sequences, const std::vector<Contestant>& contestants,
                          const std::vector<PluginFile>& files, long maxFrames, const LossScenes* losses);

}  // namespace bench
