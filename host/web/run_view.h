// What is known about the run right now, in the form in which the page and scripts get it.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "input/frame_source.h"
#include "plugin/call_record.h"
#include "run/run_observer.h"
#include "web/glance.h"
#include "web/timeline.h"

namespace host::web {

/// Threads: all calls from any thread. Times are seconds of a clock that never goes back.
class RunView {
 public:
  using Json = nlohmann::ordered_json;

  void begin(const RunInfo& info);
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records, double now);
  void noSignal(const std::vector<CallRecord>& records, double now);
  void started(const CallRecord& record, double now);
  void stopped(const std::string& target);
  void end();
  /// The configuration in force is another one from now on: pages that show it read it again.
  void configured();

  /// The state as GET /api/state gives it, described in openapi.json.
  Json state(double now) const;
  /// Its part "targets".
  Json targets(double now) const;
  Json timeline(double after, double now) const;
  /// Prometheus' text format.
  std::string metrics(double now, long encoded, long viewers) const;

 private:
  struct Target {
    Glance glance;
    CallRecord last;
  };
  struct Moment {
    double at = 0.0;
    long index = 0;
  };
  Json targets_Locked_(double now) const;
  void take_Locked_(const std::vector<CallRecord>& records, double now);
  void note_Locked_(double now);
  double judgedRate_Locked_() const;
  double sourceRate_Locked_() const;

  mutable std::mutex mutex_;
  RunInfo info_;
  std::string run_;  // tells this run from the next one behind the same address
  bool ended_ = false;
  cv::Size size_;
  long index_ = -1;
  double time_s_ = 0.0;
  double lastFrameAt_ = 0.0;
  bool noSignal_ = false;
  long judged_ = 0;
  long dropped_ = 0;
  long configured_ = 0;
  std::optional<double> age_ms_;
  bool ageFromSender_ = false;
  std::optional<double> pan_deg_;
  std::optional<double> tilt_deg_;
  std::map<std::string, Target> targets_;
  std::map<std::string, long> losses_;
  std::deque<Moment> moments_;
  Timeline timeline_;
};

}  // namespace host::web
