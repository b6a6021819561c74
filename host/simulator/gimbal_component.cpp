#include "simulator/gimbal_component.h"

#include <cmath>
#include <limits>
#include <utility>

namespace host::sim {
namespace {

constexpr double kRad = 3.14159265358979323846 / 180.0;
constexpr std::uint8_t kDevice = 1;

std::uint32_t milliseconds(double seconds) {
  return static_cast<std::uint32_t>(std::fmod(std::fabs(seconds) * 1000.0, 4294967296.0));
}

}  // namespace

template <class Message>
void GimbalComponent::send_(const Message& message) {
  mavlink::Frame frame = mavlink::toFrame(message);
  frame.system = system_;
  frame.component = mavlink::kComponentAutopilot;
  frame.sequence = sequence_++;
  outgoing_.push_back(std::move(frame));
}

mavlink::GimbalManagerStatus GimbalComponent::status_(double now_s) const {
  mavlink::GimbalManagerStatus status;
  status.time_boot_ms = milliseconds(now_s);
  status.flags = mavlink::kGimbalYawInVehicleFrame;
  status.gimbal_device_id = kDevice;
  status.primary_control_sysid = controllerSystem_;
  status.primary_control_compid = controllerComponent_;
  return status;
}

void GimbalComponent::tick(double now_s) {
  now_s_ = now_s;
  if (now_s < nextBeat_s_) return;
  nextBeat_s_ = now_s + 1.0;
  mavlink::Heartbeat heartbeat;
  heartbeat.type = mavlink::kTypeQuadrotor;
  heartbeat.autopilot = mavlink::kAutopilotInvalid;
  heartbeat.system_status = mavlink::kStateActive;
  heartbeat.mavlink_version = mavlink::kVersion;
  send_(heartbeat);
  send_(status_(now_s));
}

void GimbalComponent::say(const Angles& angles, double now_s) {
  const double pitch = angles.tilt * kRad / 2;
  const double yaw = wrapped(angles.pan) * kRad / 2;
  mavlink::GimbalDeviceAttitudeStatus message;
  message.time_boot_ms = milliseconds(now_s);
  message.q = {
      static_cast<float>(std::cos(pitch) * std::cos(yaw)), static_cast<float>(-std::sin(pitch) * std::sin(yaw)),
      static_cast<float>(std::sin(pitch) * std::cos(yaw)), static_cast<float>(std::cos(pitch) * std::sin(yaw))};
  message.flags = mavlink::kGimbalYawInVehicleFrame | mavlink::kGimbalRollLock | mavlink::kGimbalPitchLock;
  message.angular_velocity_x = message.angular_velocity_y = message.angular_velocity_z =
      std::numeric_limits<float>::quiet_NaN();
  message.delta_yaw = 0.0f;
  message.gimbal_device_id = kDevice;
  send_(message);
}

void GimbalComponent::sayPlace(double lat_deg, double lon_deg, double alt_m, double height_m, double heading_deg,
                               double now_s) {
  mavlink::GlobalPositionInt message;
  message.time_boot_ms = milliseconds(now_s);
  message.lat = static_cast<std::int32_t>(std::lround(1e7 * lat_deg));
  message.lon = static_cast<std::int32_t>(std::lround(1e7 * lon_deg));
  message.alt = static_cast<std::int32_t>(std::lround(1e3 * alt_m));
  message.relative_alt = static_cast<std::int32_t>(std::lround(1e3 * height_m));
  message.hdg = static_cast<std::uint16_t>(std::lround(100 * std::fmod(heading_deg + 360.0, 360.0)) % 36000);
  send_(message);
}

void GimbalComponent::receive(const mavlink::Frame& frame, double now_s) {
  now_s_ = now_s;
  mavlink::CommandLong command;
  mavlink::GimbalManagerSetPitchyaw order;
  if (mavlink::tryRead(frame, command)) {
    const bool ours = (command.target_system == 0 || command.target_system == system_) &&
                      (command.target_component == 0 || command.target_component == mavlink::kComponentAutopilot);
    if (ours) obey_(frame, command);
  } else if (mavlink::tryRead(frame, order)) {
    if (frame.system != controllerSystem_ || frame.component != controllerComponent_) return;
    const bool rates = std::isfinite(order.pitch_rate) && std::isfinite(order.yaw_rate);
    const bool angles = std::isfinite(order.pitch) && std::isfinite(order.yaw);
    if (rates) {
      orders_.push_back({false, {order.yaw_rate / kRad, order.pitch_rate / kRad}});
    } else if (angles) {
      orders_.push_back({true, {order.yaw / kRad, order.pitch / kRad}});
    }
  }
}

void GimbalComponent::obey_(const mavlink::Frame& frame, const mavlink::CommandLong& command) {
  mavlink::CommandAck ack;
  ack.command = command.command;
  ack.target_system = frame.system;
  ack.target_component = frame.component;
  ack.result = static_cast<std::uint8_t>(mavlink::Result::Accepted);
  if (command.command == mavlink::kCmdDoGimbalManagerConfigure) {
    if (command.param1 >= 0 && command.param2 >= 0) {
      controllerSystem_ = static_cast<std::uint8_t>(command.param1);
      controllerComponent_ = static_cast<std::uint8_t>(command.param2);
    }
    send_(ack);
    send_(status_(now_s_));
  } else if (command.command == mavlink::kCmdRequestMessage &&
             command.param1 == static_cast<float>(mavlink::GimbalManagerInformation::kId)) {
    send_(ack);
    mavlink::GimbalManagerInformation information;
    information.time_boot_ms = milliseconds(now_s_);
    information.cap_flags = 0x1ff;
    information.pitch_min = static_cast<float>(-90 * kRad);
    information.pitch_max = static_cast<float>(90 * kRad);
    information.yaw_min = static_cast<float>(-180 * kRad);
    information.yaw_max = static_cast<float>(180 * kRad);
    information.gimbal_device_id = kDevice;
    send_(information);
  } else if (command.target_component == mavlink::kComponentAutopilot) {
    ack.result = static_cast<std::uint8_t>(mavlink::Result::Unsupported);
    send_(ack);
  }
}

std::optional<GimbalOrder> GimbalComponent::takeOrder() {
  if (orders_.empty()) return std::nullopt;
  const GimbalOrder order = orders_.front();
  orders_.erase(orders_.begin());
  return order;
}

std::vector<mavlink::Frame> GimbalComponent::takeOutgoing() {
  return std::exchange(outgoing_, {});
}

}  // namespace host::sim
