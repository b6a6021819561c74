// A camera that a ground station can track with: frames go in, the plug-in follows what the station chose, the gimbal
// is turned, and all of it is said over the protocol.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "gimbal/calibration.h"
#include "gimbal/controller.h"
#include "gimbal/delay_estimator.h"
#include "gimbal/geolocation.h"
#include "link/camera_component.h"
#include "link/gimbal_client.h"
#include "link/transport.h"
#include "plugin/plugin_library.h"
#include "plugin/target_session.h"

namespace host::link {

struct ServerOptions {
  std::vector<std::string> lines;  ///< Addresses for openTransport(), at least one.
  CameraDescription camera;
  std::string configText;  ///< For setConfig(); empty: nothing is passed.
  bool gimbal = true;      ///< Turn the gimbal when one is found.
  PanFrame panFrame = PanFrame::Vehicle;
  gimbal::ControllerParams controller;
  bool calibrate = false;  ///< Try the gimbal first, and do not turn it when it does not fit.
  bool findDelay = true;   ///< Make good what the delay estimator finds.
  gimbal::PlatformErrors platformErrors;
};

/// What is known about one frame after it was judged.
struct ServedFrame {
  std::optional<CallRecord> record;  ///< Nothing: no target.
  std::optional<gimbal::PanTilt> angles;
  std::optional<gimbal::GroundPoint> ground;
  std::string gimbalState;        ///< Of the controller, or why it does not turn.
  std::optional<double> stale_s;  ///< What the delay estimator says.
};

/// Threads: frame() from one thread; the lines are served by a thread of its own. Times are monotonic(), seconds.
class TrackingServer {
 public:
  /// @throws HostError (Usage, Source, Plugin)
  TrackingServer(const ServerOptions& options, PluginLibrary& library);
  ~TrackingServer();
  TrackingServer(const TrackingServer&) = delete;
  TrackingServer& operator=(const TrackingServer&) = delete;

  /// Judges one frame. @param captured_s  when it was taken
  ServedFrame frame(const cv::Mat& bgr, double captured_s);

  /// One sentence when something stands in the way, such as a calibration that does not fit; empty: nothing does.
  std::string problem() const;

  /// Seconds of the machine's clock that only goes forwards.
  static double monotonic();

 private:
  void serve_();
  void hear_(const mavlink::Frame& frame, double now_s);
  void sendAll_();
  void steer_(double now_s);
  void calibrate_(double now_s);
  void endCalibration_(double now_s);
  void estimateDelay_(double now_s);
  std::optional<BBox> takeWish_(cv::Size frame);
  ocula::OculaPicture::BaseMetadata metadata_(double captured_s, ServedFrame& served);
  void conclude_(const CallRecord& record, double captured_s, cv::Size frame, ServedFrame& served);
  std::optional<gimbal::GroundPoint> groundOf_(const gimbal::PanTilt& direction) const;

  ServerOptions options_;
  TargetSession session_;
  bool tracking_ = false;  // frame()'s thread only
  long index_ = 0;

  mutable std::mutex mutex_;  // everything below
  CameraComponent camera_;
  GimbalClient gimbal_;
  std::vector<std::unique_ptr<Transport>> lines_;
  gimbal::Controller controller_;
  gimbal::DelayEstimator delay_;
  std::optional<gimbal::Calibration> calibration_;
  AngleHistory angles_;
  std::optional<double> delayFound_s_;
  double delayApplied_s_ = 0.0;
  double nextEstimate_s_ = 0.0;
  double nextOrder_s_ = 0.0;
  double restUntil_s_ = 0.0;  // zero rates are repeated, as one may get lost
  std::optional<gimbal::PanTilt> pointing_;
  std::optional<mavlink::GlobalPositionInt> position_;
  std::string problem_;
  bool saidTaken_ = false;

  std::atomic<bool> stop_{false};
  std::thread thread_;
};

/// The box to track for a wish: a rectangle as it is, around a point a square of a tenth of the frame's height.
/// Pure. Inside the frame, at least 4 pixels wide and high.
BBox boxOf(const TrackRequest& request, cv::Size frame);

/// How a record is told to the ground station. Pure.
TrackingReport reportOf(const CallRecord& record, cv::Size frame);

}  // namespace host::link
