// A sequence to evaluate on: its pictures and the truth about its targets.
#pragma once

#include <string>
#include <vector>

#include "evaluation/truth.h"
#include "input/frame_source.h"

namespace host {

/// One video or folder of pictures with the truth about its targets.
struct Sequence {
  std::string name;                  ///< Unique among the sequences of a run.
  SourceOptions source;              ///< Where its pictures are.
  std::vector<TruthTarget> targets;  ///< Each with at least one mark that shows it.
};

/// What to evaluate on, as the command line says it.
struct SequenceOptions {
  std::vector<std::string> sources;  ///< Folders of known layout, or videos and pictures with a truth file each.
  std::vector<std::string> truths;   ///< One per source that brings none, in their order.
  std::vector<std::string> only;     ///< Names of targets to use; empty: all.
  TruthOptions truth;                ///< How the truth files are to be read.
  double fps = 0.0;                  ///< 0: what the source says.
};

/// Finds pictures and truth of every source. Known layouts: a folder with groundtruth_rect.txt or groundtruth.txt and
/// its pictures in img/, color/, imgs/ or beside the truth; absence.label beside the truth is used.
/// @throws HostError (Usage, Source) in one sentence that names the source, file, row or target
std::vector<Sequence> openSequences(const SequenceOptions& options);

/// The i-th of n parts of the work, as in "2/4"; everything is 1/1.
struct Shard {
  long index = 1;  ///< 1 to count.
  long count = 1;  ///< At least 1.
};

/// @throws HostError (Usage) when the text is not "i/n" with 1 <= i <= n
Shard parseShard(const std::string& text);

/// "2/3" for every part that the given ones lack, by number; parts of several divisions are looked at apart. What is
/// not of the form "i/n" says nothing. Pure.
std::vector<std::string> missingShards(const std::vector<std::string>& shards);

/// Keeps every n-th target, counted through all sequences, so that shards are of like size and together are all.
/// Sequences left without a target are dropped.
std::vector<Sequence> shardOf(const std::vector<Sequence>& sequences, const Shard& shard);

}  // namespace host
