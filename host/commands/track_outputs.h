// All that `track` writes, as observers of its run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "commands/track_options.h"
#include "run/delay_observer.h"
#include "run/run_summary.h"
#include "run/track_run.h"

namespace host {

/// Every output that the options name. Made before the run, so that a file that cannot be written costs nobody an hour.
class TrackOutputs {
 public:
  /// @param run  must outlive this. @throws HostError (Usage) for an output that cannot be written
  TrackOutputs(const TrackOptions& options, const TrackRun& run);

  std::vector<RunObserver*> observers();
  const RunSummary& summary() const { return summary_; }
  const DelayObserver& delay() const { return delay_; }

 private:
  RunSummary summary_;
  DelayObserver delay_;
  std::vector<std::unique_ptr<RunObserver>> outputs_;
};

/// The names of the files that were written, a line each; empty where there are none.
std::string writtenFiles(const TrackOptions& options);

}  // namespace host
