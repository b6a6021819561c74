// How far a run is: a bar on a terminal, a plain line now and then elsewhere. Always on standard error.
#pragma once

#include <chrono>

#include "run/run_observer.h"

namespace host {

/// Says on standard error how far a run is.
class Progress : public RunObserver {
 public:
  Progress();
  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void end() override;

 private:
  using Clock = std::chrono::steady_clock;
  void draw_();

  bool terminal_;
  long expected_ = 0;
  long done_ = 0;
  Clock::time_point begin_;
  Clock::time_point drawn_;
};

/// "42 %  126/300 frames, 55.1 frames/s, 3 s left"; without a known end only what is known. Pure.
std::string progressText(long done, long expected, double seconds);

}  // namespace host
