// What watches a run: records, pictures, progress, summary. Each is told the same things in the same order.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "input/frame_source.h"
#include "plugin/call_record.h"
#include "plugin/guard_choice.h"

namespace host {

/// What is known when the first frame has been read.
struct RunInfo {
  std::string source;                ///< As the user named it.
  cv::Size frameSize;                ///< Pixels.
  double fps = 0.0;                  ///< Of the source.
  long firstFrame = 0;               ///< Counted from 0.
  long expectedFrames = 0;           ///< All frames of the run, the first one included; 0: unknown.
  std::vector<std::string> targets;  ///< Names, in the order of the records.
  std::string configText;            ///< What setConfig() got; empty: nothing.
  std::string pluginPath;
  std::string engine;  ///< The plug-in's: opencv, fast or unknown.
  GuardChoice guard;   ///< Who watches the plug-in's answers.
};

/// All calls come from one thread. A thrown HostError ends the run in order.
class RunObserver {
 public:
  virtual ~RunObserver() = default;
  virtual void begin(const RunInfo& /*info*/) {}
  /// @param records  one per target that is still driven, in the order of the targets
  virtual void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& /*records*/) {}
  /// No frame has come for a second or more; told again every second. The records have no picture.
  virtual void noSignal(const std::vector<CallRecord>& /*records*/) {}
  /// A target was started over on the frame just told of.
  virtual void restarted(const CallRecord& /*record*/) {}
  /// Always called once after begin(), also after an interrupt or an error.
  virtual void end() {}
};

}  // namespace host
