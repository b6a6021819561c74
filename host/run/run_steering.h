// A person's hand in a run: asked for the first box, and for wishes after every frame.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "ialgo_plugin.h"
#include "input/frame_source.h"
#include "plugin/call_record.h"

namespace host {

/// What a person at the window asks for after a frame.
struct Steering {
  bool stop = false;                 ///< End the run.
  std::optional<BBox> restart;       ///< Start the first target over on this box of the frame just shown, or of `on`.
  std::optional<SourceFrame> on;     ///< An earlier frame that the box belongs to.
  std::vector<SourceFrame> catchUp;  ///< Frames after `on`, in order, to be worked through before the next one is read.
};

/// Lets a person steer a run. All calls come from the thread of the run.
class RunSteering {
 public:
  virtual ~RunSteering() = default;
  /// Asked when no target was given: a box on the first frame, or nothing to give up.
  virtual std::optional<BBox> firstBox(const cv::Mat& frame) = 0;
  /// Asked after every frame, and every second while no frame comes: `frame` then has no picture.
  virtual Steering after(const SourceFrame& frame, const std::vector<CallRecord>& records) = 0;
  /// What came of a restart that was asked for.
  virtual void restarted(const CallRecord& /*record*/) {}
  /// Whether the run begins without a target where firstBox() gives none, and waits for a restart.
  virtual bool startsWithout() const { return false; }
};

}  // namespace host
