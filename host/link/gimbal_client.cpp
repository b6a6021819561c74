#include "link/gimbal_client.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host::link {
namespace {

constexpr double kDeg = 180.0 / 3.14159265358979323846;
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr double kAsk_s = 1.0;
constexpr double kAskControl_s = 0.5;

float radians(double degrees) {
  return static_cast<float>(degrees / kDeg);
}

}  // namespace

std::optional<GimbalReading> readAttitude(const mavlink::GimbalDeviceAttitudeStatus& message) {
  const double w = message.q[0], x = message.q[1], y = message.q[2], z = message.q[3];
  const double norm = std::sqrt(w * w + x * x + y * y + z * z);
  if (!(norm > 0.9 && norm < 1.1)) return std::nullopt;  // and no number at all
  GimbalReading reading;
  const double n2 = norm * norm;
  reading.angles.pan = std::atan2(2 * (w * z + x * y), n2 - 2 * (y * y + z * z)) * kDeg;
  reading.angles.tilt = std::asin(std::clamp(2 * (w * y - z * x) / n2, -1.0, 1.0)) * kDeg;
  reading.roll_deg = std::atan2(2 * (w * x + y * z), n2 - 2 * (x * x + y * y)) * kDeg;
  const bool vehicle = (message.flags & mavlink::kGimbalYawInVehicleFrame) != 0;
  const bool earth = (message.flags & mavlink::kGimbalYawInEarthFrame) != 0;
  // Without either flag an older rule holds: a locked yaw counts from north.
  const bool locked = (message.flags & mavlink::kGimbalYawLock) != 0;
  reading.frame = earth || (!vehicle && locked) ? PanFrame::Earth : PanFrame::Vehicle;
  // A sender that does not know the extension leaves zeros; only one that sets a frame flag means them.
  if ((vehicle || earth) && std::isfinite(message.delta_yaw)) reading.heading_deg = message.delta_yaw * kDeg;
  return reading;
}

std::optional<gimbal::PanTilt> inFrame(const GimbalReading& reading, PanFrame frame) {
  if (reading.frame == frame) return reading.angles;
  if (!reading.heading_deg) return std::nullopt;
  const double turn = frame == PanFrame::Earth ? *reading.heading_deg : -*reading.heading_deg;
  return gimbal::PanTilt{gimbal::wrapped(reading.angles.pan + turn), reading.angles.tilt};
}

void AngleHistory::add(double t_s, const gimbal::PanTilt& angles) {
  gimbal::PanTilt turned = angles;
  if (!samples_.empty()) {
    if (t_s <= samples_.back().t_s) return;
    turned.pan = gimbal::unwrapped(angles.pan, samples_.back().angles.pan);
  }
  samples_.push_back({t_s, turned});
  while (samples_.front().t_s < t_s - 3.0) samples_.pop_front();
}

std::optional<gimbal::PanTilt> AngleHistory::at(double t_s) const {
  if (samples_.empty()) return std::nullopt;
  if (t_s < samples_.front().t_s - kFarthest_s || t_s > samples_.back().t_s + kFarthest_s) return std::nullopt;
  const auto after = std::lower_bound(samples_.begin(), samples_.end(), t_s,
                                      [](const Sample& sample, double t) { return sample.t_s < t; });
  if (after == samples_.begin()) return after->angles;
  if (after == samples_.end()) return samples_.back().angles;
  const Sample& before = *std::prev(after);
  const double share = (t_s - before.t_s) / (after->t_s - before.t_s);
  return gimbal::PanTilt{before.angles.pan + share * (after->angles.pan - before.angles.pan),
                         before.angles.tilt + share * (after->angles.tilt - before.angles.tilt)};
}

void GimbalClient::command_(std::uint16_t command, float p1, float p2, float p3, float p4, float p7,
                            std::uint8_t confirmation) {
  mavlink::CommandLong message;
  message.command = command;
  message.param1 = p1;
  message.param2 = p2;
  message.param3 = p3;
  message.param4 = p4;
  message.param7 = p7;
  message.confirmation = confirmation;
  if (manager_) {
    message.target_system = manager_->system;
    message.target_component = manager_->component;
  }
  camera_.send(message);
}

std::optional<gimbal::PanTilt> GimbalClient::receive(const mavlink::Frame& frame, double /*now_s*/) {
  mavlink::GimbalManagerInformation information;
  mavlink::GimbalManagerStatus status;
  mavlink::CommandAck ack;
  mavlink::GimbalDeviceAttitudeStatus attitude;
  const CameraDescription& us = camera_.description();
  if (mavlink::tryRead(frame, information)) {
    if (!manager_) {
      manager_ = Address{frame.system, frame.component};
      device_ = information.gimbal_device_id;
      next_s_ = 0.0;
    }
  } else if (mavlink::tryRead(frame, status)) {
    if (manager_ && manager_->system == frame.system && manager_->component == frame.component) hearStatus_(status);
  } else if (mavlink::tryRead(frame, ack)) {
    const bool ours = ack.command == mavlink::kCmdDoGimbalManagerConfigure && state_ == State::Asking &&
                      (ack.target_system == 0 || ack.target_system == us.system) &&
                      (ack.target_component == 0 || ack.target_component == us.component);
    if (ours && ack.result == static_cast<std::uint8_t>(mavlink::Result::Accepted)) state_ = State::Ours;
  } else if (mavlink::tryRead(frame, attitude)) {
    const bool other = device_ != 0 && attitude.gimbal_device_id != 0 && attitude.gimbal_device_id != device_;
    const auto reading = other ? std::nullopt : readAttitude(attitude);
    if (reading) return inFrame(*reading, frame_);
  }
  return std::nullopt;
}

void GimbalClient::hearStatus_(const mavlink::GimbalManagerStatus& status) {
  if (device_ != 0 && status.gimbal_device_id != 0 && status.gimbal_device_id != device_) return;
  const CameraDescription& us = camera_.description();
  const bool ours = status.primary_control_sysid == us.system && status.primary_control_compid == us.component;
  if (state_ == State::Asking && ours) state_ = State::Ours;
  strangers_ = ours ? 0 : strangers_ + 1;
  // One such status may be older than the one that gave us control.
  if (state_ == State::Ours && strangers_ >= 2) state_ = State::TakenAway;
}

void GimbalClient::tick(double now_s) {
  if (now_s < next_s_) return;
  if (!manager_) {
    command_(mavlink::kCmdRequestMessage, static_cast<float>(mavlink::GimbalManagerInformation::kId), 0, 0, 0, 0, 0);
    next_s_ = now_s + kAsk_s;
  } else if (state_ == State::Asking) {
    const CameraDescription& us = camera_.description();
    command_(mavlink::kCmdDoGimbalManagerConfigure, us.system, us.component, -1, -1, device_, confirmation_++);
    next_s_ = now_s + kAskControl_s;
  }
}

void GimbalClient::want(double now_s) {
  if (state_ != State::Idle) return;
  state_ = State::Asking;
  confirmation_ = 0;
  strangers_ = 0;
  if (manager_) next_s_ = now_s;
}

void GimbalClient::release() {
  if (state_ == State::Ours) turn({0.0, 0.0});
  state_ = State::Idle;
}

mavlink::GimbalManagerSetPitchyaw GimbalClient::order_() const {
  mavlink::GimbalManagerSetPitchyaw message;
  message.flags = frame_ == PanFrame::Earth ? mavlink::kGimbalYawLock | mavlink::kGimbalYawInEarthFrame
                                            : mavlink::kGimbalYawInVehicleFrame;
  message.pitch = message.yaw = message.pitch_rate = message.yaw_rate = kNan;
  message.target_system = manager_->system;
  message.target_component = manager_->component;
  message.gimbal_device_id = device_;
  return message;
}

void GimbalClient::turn(const gimbal::PanTilt& rates_dps) {
  if (state_ != State::Ours || !manager_) return;
  mavlink::GimbalManagerSetPitchyaw message = order_();
  message.pitch_rate = radians(rates_dps.tilt);
  message.yaw_rate = radians(rates_dps.pan);
  camera_.send(message);
}

void GimbalClient::goTo(const gimbal::PanTilt& angles_deg) {
  if (state_ != State::Ours || !manager_) return;
  mavlink::GimbalManagerSetPitchyaw message = order_();
  message.pitch = radians(angles_deg.tilt);
  message.yaw = radians(gimbal::wrapped(angles_deg.pan));
  camera_.send(message);
}

}  // namespace host::link
