// The control channel as a front of a served run.
#pragma once

#include <string>
#include <vector>

#include "run/control_steering.h"
#include "run/front.h"

namespace host {

/// Takes box, point, status and stop as ControlSteering does; stop ends the run.
class ControlFront : public Front {
 public:
  /// @param place  "-": standard input; a path: a socket
  /// @param kept   the frames that the source keeps
  /// @throws HostError (Usage)
  ControlFront(const std::string& place, const KeptFrames& kept);

  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void silence(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  std::vector<FrontCommand> takeCommands() override;

 private:
  ControlSteering steering_;
  SourceFrame last_;
  std::vector<CallRecord> records_;
};

}  // namespace host
