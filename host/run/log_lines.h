// The plug-in's log lines on standard error, for people who ask for --debug.
#pragma once

#include <string>
#include <vector>

#include "run/run_observer.h"

namespace host {

/// Shows lines as they are, or behind "target: " where a target is named.
void showLogLines(const std::vector<std::string>& lines, const std::string& target = "");

/// Shows what every call logged.
class LogLines : public RunObserver {
 public:
  /// @param naming  each line stands behind its target's name
  explicit LogLines(bool naming = true) : naming_(naming) {}
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& records) override {
    for (const CallRecord& record : records) restarted(record);
  }
  void restarted(const CallRecord& record) override { showLogLines(record.log, naming_ ? record.target : ""); }

 private:
  bool naming_;
};

}  // namespace host
