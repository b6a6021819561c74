// Lets commands steer a run: a new box or a point, also on a picture that is already old, the state, the end.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "run/control_channel.h"
#include "run/frame_rate.h"
#include "run/place_text.h"
#include "run/run_steering.h"

namespace host {

/// A command as it was written.
struct ControlCommand {
  enum class Kind { Box, Point, Status, Stop };
  Kind kind = Kind::Status;
  BoxText box{};
  PointText point{};
  std::optional<long> frame;  ///< The frame the coordinates belong to; empty: the newest.
};

/// Reads "box X,Y,W,H [frame=N]", "point X,Y [frame=N]", "status" or "stop"; coordinates as for --box.
/// @param fault  set to a sentence when it is none of these. Pure.
bool tryReadCommand(const std::string& line, ControlCommand& command, std::string& fault);

/// The frames that a source keeps. All functions may be null: then only the newest frame can be named.
struct KeptFrames {
  std::function<std::optional<SourceFrame>(long index)> find;
  std::function<std::vector<SourceFrame>(long index)> after;  ///< Those after it, oldest first.
  std::function<std::pair<long, long>()> range;               ///< First and last number.
};

/// Which of `count` frames to work through to catch up when one takes `frameS` seconds: see live::framesToCatchUp().
using CatchUpRule = std::vector<std::size_t> (*)(std::size_t count, double frameS);

/// Takes commands from a channel; another steering (the window) may lie beneath.
class ControlSteering : public RunSteering {
 public:
  ControlSteering(const std::string& place, KeptFrames kept, CatchUpRule catchUp, RunSteering* beneath);

  std::optional<BBox> firstBox(const cv::Mat& frame) override;
  Steering after(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override;
  bool startsWithout() const override { return true; }
  /// For the answer to a restart: how many frames somebody else has caught up with.
  void haveCaughtUp(std::size_t count) { caughtUp_ = count; }

 private:
  using Json = nlohmann::ordered_json;

  bool tryStart_(const ControlCommand& command, const ControlLine& line, const SourceFrame& frame, Steering& wish);
  Json status_(const SourceFrame& frame);

  ControlChannel channel_;
  KeptFrames kept_;
  CatchUpRule catchUp_;
  RunSteering* beneath_;
  std::deque<ControlLine> waiting_;
  std::vector<CallRecord> records_;
  std::optional<ControlLine> starting_;  // whose restart is under way
  std::size_t caughtUp_ = 0;
  cv::Size size_;
  double begin_;  // seconds of the clock that never goes back
  FrameRate rate_;
  long frames_ = 0;
  long dropped_ = 0;
  std::optional<double> capturedAt_;  // of the last picture of a live source, by the same clock
};

}  // namespace host
