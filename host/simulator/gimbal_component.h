// The simulated gimbal as MAVLink sees it: a gimbal manager and its device in one component, like a flight controller
// with a gimbal on it. A state machine; frames and times go in, frames and orders come out.
#pragma once

#include <optional>
#include <vector>

#include "mavlink/codec.h"
#include "mavlink/messages.h"
#include "simulator/gimbal.h"

namespace host::sim {

/// Not thread-safe. Times are seconds of one clock.
class GimbalComponent {
 public:
  explicit GimbalComponent(std::uint8_t system) : system_(system) {}

  /// Takes a frame from the line; one that is not for this component is ignored.
  void receive(const mavlink::Frame& frame, double now_s);
  /// Lets time pass: heartbeats and status go out when they are due. Nothing goes out between calls.
  void tick(double now_s);

  /// A reading of the encoders goes out now.
  void say(const Angles& angles, double now_s);

  /// Where the vehicle is goes out now. Degrees; metres; the heading from north.
  void sayPlace(double lat_deg, double lon_deg, double alt_m, double height_m, double heading_deg, double now_s);

  /// The oldest order that nobody has taken, only of the component in control.
  std::optional<GimbalOrder> takeOrder();
  std::vector<mavlink::Frame> takeOutgoing();

  /// Whether anybody has taken control.
  bool isControlled() const { return controllerSystem_ != 0; }

 private:
  template <class Message>
  void send_(const Message& message);
  void obey_(const mavlink::Frame& frame, const mavlink::CommandLong& command);
  mavlink::GimbalManagerStatus status_(double now_s) const;

  std::uint8_t system_;
  std::uint8_t sequence_ = 0;
  std::uint8_t controllerSystem_ = 0;
  std::uint8_t controllerComponent_ = 0;
  double now_s_ = 0.0;
  double nextBeat_s_ = 0.0;
  std::vector<GimbalOrder> orders_;
  std::vector<mavlink::Frame> outgoing_;
};

}  // namespace host::sim
