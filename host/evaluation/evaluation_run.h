// Runs trackers over a sequence and judges every marked frame.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "evaluation/follower.h"
#include "evaluation/metrics.h"
#include "evaluation/sequence.h"
#include "input/pace.h"
#include "run/run_observer.h"

namespace host {

/// One target under one tracker.
struct FollowJob {
  TruthTarget truth;   ///< Where the target really is.
  long maxFrames = 0;  ///< Frames after the start that are used; 0: up to the last mark.
  std::function<std::unique_ptr<Follower>()> makeFollower;
};

struct FollowResult {
  TargetSamples samples;  ///< Every judged frame and the time of every update.
  bool complete = false;  ///< All marks of the job were reached; else the source ended or a signal came.
};

struct FollowOptions {
  int threads = 1;  ///< Jobs worked on at a time; times then disturb one another.
  Pace pace = Pace::Fast;
  std::function<void(const std::string&)> onNote;  ///< Told what a person should know of the source; may be empty.
  std::vector<RunObserver*> observers;             ///< Told of the run of the source, beside the judges.
};

/// The first and the last frame, counted from 0, that a job needs.
long firstFrameOf(const FollowJob& job);
long lastFrameOf(const FollowJob& job);

/// Decodes the source once and drives every job from its first visible mark to its last. Each frame is handed to all
/// jobs before the next is read, job after job, so that trackers are compared under the same load.
/// Stops early, in order, when a signal asks to stop.
/// @return one result per job, in their order. @throws HostError (Source) when the source cannot be opened
std::vector<FollowResult> followAll(const SourceOptions& source, const std::vector<FollowJob>& jobs,
                                    const FollowOptions& options);

}  // namespace host
