// The front of ground stations: a camera that they can track with. What they choose becomes commands of the run, what
// the run answers is said over the protocol, and the gimbal is turned.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gimbal/calibration.h"
#include "gimbal/controller.h"
#include "gimbal/delay_watch.h"
#include "gimbal/geolocation.h"
#include "link/camera_component.h"
#include "link/gimbal_client.h"
#include "link/transport.h"
#include "run/front.h"

namespace host::link {

/// How the ground station is reached, and what the gimbal can do.
struct MavlinkOptions {
  std::vector<std::string> lines;  ///< Addresses for openTransport(), at least one.
  CameraDescription camera;        ///< vfov_deg 0: as with square pixels.
  bool gimbal = true;              ///< Turn the gimbal when one is found.
  PanFrame panFrame = PanFrame::Vehicle;
  gimbal::ControllerParams controller;
  bool calibrate = false;      ///< Try the gimbal first, and do not turn it when it does not fit.
  bool findDelay = true;       ///< Make good what the delay estimator finds.
  double shownDelay_s = 0.0;   ///< How old a picture is when a person at the ground station sees it, at least.
  bool clockFromLink = false;  ///< Time stands still between TIMESYNC requests of the other side, for simulators.
  gimbal::PlatformErrors platformErrors;
};

/// Follows the first target of the run, whoever started it. The lines are served by a thread of its own, from the
/// construction on; all else is called by the run's thread. Times are monotonic(), seconds, or those of the link.
///
/// With clockFromLink what comes is put aside until a TIMESYNC with tc1 = 0 comes; then it is heard at the time ts1
/// (nanoseconds), everything that is due is said, and last the answer: ts1 again, and in tc1 when the newest frame was
/// taken whose turn is over, in nanoseconds, at least 1. So a simulator can wait for us, on a machine of any speed.
/// Until the first request the machine's clock counts.
class MavlinkFront : public Front {
 public:
  /// @throws HostError (Usage, Source)
  explicit MavlinkFront(const MavlinkOptions& options);
  ~MavlinkFront() override;
  MavlinkFront(const MavlinkFront&) = delete;
  MavlinkFront& operator=(const MavlinkFront&) = delete;

  void begin(const RunInfo& info) override;
  void describe(SourceFrame& frame) override;
  void judged(const SourceFrame& frame, std::vector<CallRecord>& records) override;
  std::vector<FrontCommand> takeCommands() override;
  void stopped(const std::string& target) override;

  /// One sentence when something stands in the way, such as a calibration that does not fit; empty: nothing does.
  /// Any thread.
  std::string problem() const;

  /// What the delay estimator has to say; empty: nothing. Any thread.
  std::string delaySentence() const;

  /// Seconds of the machine's clock that only goes forwards.
  static double monotonic();

 private:
  void serve_();
  void pass_();
  void passOnRequest_();
  double now_() const { return options_.clockFromLink ? linkTime_s_ : monotonic(); }
  void hear_(const mavlink::Frame& frame, double now_s);
  void sendAll_();
  void steer_(double now_s);
  void calibrate_(double now_s);
  void endCalibration_(double now_s);
  void estimateDelay_(double now_s);
  void newTarget_();
  void conclude_(CallRecord& record, const SourceFrame& frame);
  void follow_(CallRecord& record, double captured_s);
  std::string gimbalState_() const;
  std::optional<gimbal::GroundPoint> groundOf_(const std::optional<gimbal::PanTilt>& direction, std::string& why) const;
  std::optional<long> shownFrame_(double now_s) const;

  MavlinkOptions options_;
  std::string followed_;                       // the target's name; run's thread only, as the next
  std::deque<std::pair<double, long>> shown_;  // when frames were taken, and their numbers

  mutable std::mutex mutex_;  // everything below
  CameraComponent camera_;
  GimbalClient gimbal_;
  std::vector<std::unique_ptr<Transport>> lines_;
  gimbal::Controller controller_;
  gimbal::DelayWatch delay_;
  std::optional<gimbal::Calibration> calibration_;
  AngleHistory angles_;
  double linkTime_s_ = 0.0;
  bool asked_ = false;  // the other side has given the time
  std::int64_t turnOver_ns_ = 1;
  std::vector<mavlink::Frame> aside_;
  double nextOrder_s_ = 0.0;
  double restUntil_s_ = 0.0;  // zero rates are repeated, as one may get lost
  std::optional<gimbal::PanTilt> pointing_;
  std::optional<mavlink::GlobalPositionInt> position_;
  std::string problem_;
  bool saidTaken_ = false;

  std::atomic<bool> stop_{false};
  std::thread thread_;
};

/// What a wish is for the run: full-frame pixels of a frame of that size. A rectangle lies inside the frame and is at
/// least 4 pixels wide and high. Pure.
FrontCommand commandOf(const TrackRequest& request, cv::Size frame);

/// How a record is told to the ground station. Pure.
TrackingReport reportOf(const CallRecord& record, cv::Size frame);

}  // namespace host::link
