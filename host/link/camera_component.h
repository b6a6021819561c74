// The camera as a ground station sees it: heartbeat, what it can do, commands to track, how tracking goes. A state
// machine: frames and the time go in, frames and requests come out; nothing here waits, reads a clock or a socket.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "mavlink/codec.h"
#include "mavlink/messages.h"

namespace host::link {

/// What the camera says about itself. Texts that are too long for their fields are cut.
struct CameraDescription {
  std::uint8_t system = 1;                             ///< Of the vehicle; a camera shares it.
  std::uint8_t component = mavlink::kComponentCamera;  ///< Its component id.
  std::string vendor = "csrt-track";                   ///< At most 32 bytes go out.
  std::string model = "Tracking camera";               ///< At most 32 bytes go out.
  std::string streamUri;          ///< Where the ground station finds the video; empty: it must be told by hand.
  cv::Size frame{640, 360};       ///< Pixels.
  double fps = 25.0;              ///< Frames per second.
  double hfov_deg = 60.0;         ///< Degrees; 0: unknown.
  double vfov_deg = 33.75;        ///< Degrees; 0: unknown.
  bool knowsGround = false;       ///< Positions on the ground are reported.
  std::uint8_t gimbalDevice = 0;  ///< The gimbal it sits on; 0: none.
};

/// A ground station's wish. Coordinates are shares of the frame's width and height, [0, 1].
struct TrackRequest {
  /// What the ground station wants.
  enum class Kind { Point, Rectangle, Stop };
  Kind kind = Kind::Stop;
  cv::Point2d point;
  cv::Rect2d rectangle;
};

/// How tracking goes, for status messages.
struct TrackingReport {
  /// What the camera reports of its target.
  enum class State {
    Idle,      ///< Nothing is tracked.
    Active,    ///< The target is seen, or the camera is still being pointed at it.
    Coasting,  ///< Not seen: the box is a prediction.
    Lost       ///< Given up.
  };
  State state = State::Idle;
  std::optional<cv::Rect2d> box;  ///< Shares of the frame, may lie partly outside.
};

/// Where the target is on the ground.
struct GroundReport {
  double lat_deg = 0.0;
  double lon_deg = 0.0;
  double alt_m = 0.0;
  double distance_m = 0.0;         ///< From the camera, metres.
  double horizontalError_m = 0.0;  ///< Standard deviation.
  double verticalError_m = 0.0;    ///< Standard deviation.
};

/// Not thread-safe. Times are seconds of one clock that only goes forwards.
class CameraComponent {
 public:
  CameraComponent(const CameraDescription& description, double now_s);

  /// A frame from another component. What is not for this camera is passed over, but for its number: all frames of a
  /// sender tell which of its commands came late.
  void receive(const mavlink::Frame& frame, double now_s);

  /// Says what is due. Call it at least every 10 ms.
  void tick(double now_s);

  /// How tracking goes now; a change of state is said at once.
  void report(const TrackingReport& report, double now_s);
  void reportGround(const std::optional<GroundReport>& ground) { ground_ = ground; }
  void reportPlatform(const mavlink::GlobalPositionInt& position) { platform_ = position; }

  /// The picture may turn out to be another than was thought at first.
  void describe(const CameraDescription& description) { description_ = description; }

  /// The oldest wish that nobody has taken. A wish is given once, however often its command came.
  std::optional<TrackRequest> takeRequest();

  /// What is to be sent, in order; sender and sequence numbers are set.
  std::vector<mavlink::Frame> takeOutgoing();

  /// A message of another part of this component, such as an order to the gimbal.
  template <class Message>
  void send(const Message& message) {
    queue_(mavlink::toFrame(message));
  }

  const CameraDescription& description() const { return description_; }

 private:
  struct Timer {
    double interval_s;
    double next_s;
  };
  struct Handled {
    std::uint8_t system, component;
    std::int64_t number;
    mavlink::CommandLong command;
    mavlink::Result result;
    double at_s;
  };
  std::int64_t numberOf_(const mavlink::Frame& frame);
  void obey_(const mavlink::Frame& frame, std::int64_t number, const mavlink::CommandLong& command, double now_s);
  const Handled* handledBefore_(const mavlink::Frame& frame, std::int64_t number, const mavlink::CommandLong& command,
                                double now_s) const;
  mavlink::Result result_(const mavlink::CommandLong& command, double now_s);
  mavlink::Result setInterval_(double id, double interval_us, double now_s);
  mavlink::Result track_(const mavlink::CommandLong& command);
  bool sayMessage_(std::uint32_t id, double now_s);
  void queue_(mavlink::Frame frame);

  mavlink::Heartbeat heartbeat_() const;
  mavlink::CameraInformation information_(double now_s) const;
  mavlink::VideoStreamInformation stream_() const;
  mavlink::VideoStreamStatus streamStatus_() const;
  mavlink::CameraFovStatus fov_(double now_s) const;
  mavlink::CameraTrackingImageStatus status_() const;
  mavlink::CameraTrackingGeoStatus geoStatus_() const;

  CameraDescription description_;
  double begin_s_;
  std::uint8_t sequence_ = 0;
  std::map<std::uint32_t, Timer> timers_;
  TrackingReport report_;
  std::optional<GroundReport> ground_;
  std::optional<mavlink::GlobalPositionInt> platform_;
  std::map<std::pair<std::uint8_t, std::uint8_t>, std::int64_t> newest_;  // number of each sender's newest frame
  std::deque<Handled> handled_;
  std::deque<TrackRequest> requests_;
  std::vector<mavlink::Frame> outgoing_;
};

}  // namespace host::link
