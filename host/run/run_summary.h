// What a run comes to, for people: how much of the time each target was really seen, and what it cost.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "run/run_observer.h"

namespace host {

/// One target's run in numbers.
struct TargetTotals {
  long updates = 0;                   ///< Calls of update().
  std::map<TrackState, long> states;  ///< Of those calls.
  long longestUnseen = 0;             ///< Frames.
  double longestUnseenSeconds = 0.0;  ///< The longest time without the target being seen.
  CallRecord last;                    ///< The last record.
  std::string lostReason;             ///< Of the last loss; empty: never lost.
  std::vector<double> update_ms;      ///< One per update().
};

/// Adds a run up for people.
class RunSummary : public RunObserver {
 public:
  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;

  void end() override;

  /// Several lines, the last one with its line feed.
  std::string text() const;
  const std::map<std::string, TargetTotals>& totals() const { return totals_; }

 private:
  RunInfo info_;
  long frames_ = 0;
  long lastFrame_ = 0;
  std::string interruptedBy_;  ///< Name of the signal that cut the run short; empty: none.
  std::map<std::string, TargetTotals> totals_;
};

}  // namespace host
