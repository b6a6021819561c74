// What the camera says, message by message.
#include <algorithm>
#include <cmath>
#include <limits>

#include "link/camera_component.h"

namespace host::link {
namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr std::int32_t kNoPosition = std::numeric_limits<std::int32_t>::max();

std::uint32_t milliseconds(double seconds) {
  return static_cast<std::uint32_t>(std::fmod(std::max(0.0, seconds) * 1000.0, 4294967296.0));
}

std::int32_t scaled(double degrees) {
  return static_cast<std::int32_t>(std::lround(degrees * 1e7));
}

std::uint16_t pixels(int side) {
  return static_cast<std::uint16_t>(std::clamp(side, 0, 65535));
}

std::uint8_t statusOf(TrackingReport::State state) {
  switch (state) {
    case TrackingReport::State::Active:
      return mavlink::kTrackingActive;
    case TrackingReport::State::Coasting:
      return mavlink::kTrackingActive | mavlink::kTrackingCoasting;
    case TrackingReport::State::Lost:
      return mavlink::kTrackingError;
    case TrackingReport::State::Idle:
      break;
  }
  return mavlink::kTrackingIdle;
}

}  // namespace

mavlink::Heartbeat CameraComponent::heartbeat_() const {
  mavlink::Heartbeat message;
  message.type = mavlink::kTypeCamera;
  message.autopilot = mavlink::kAutopilotInvalid;
  message.system_status = mavlink::kStateActive;
  message.mavlink_version = mavlink::kVersion;
  return message;
}

mavlink::CameraInformation CameraComponent::information_(double now_s) const {
  mavlink::CameraInformation message;
  message.time_boot_ms = milliseconds(now_s - begin_s_);
  message.firmware_version = 1;
  message.focal_length = message.sensor_size_h = message.sensor_size_v = kNan;
  message.flags =
      mavlink::kCameraHasVideoStream | mavlink::kCameraHasTrackingPoint | mavlink::kCameraHasTrackingRectangle;
  if (description_.knowsGround) message.flags |= mavlink::kCameraHasTrackingGeoStatus;
  message.resolution_h = pixels(description_.frame.width);
  message.resolution_v = pixels(description_.frame.height);
  mavlink::setText(message.vendor_name, description_.vendor);
  mavlink::setText(message.model_name, description_.model);
  message.gimbal_device_id = description_.gimbalDevice;
  return message;
}

mavlink::VideoStreamInformation CameraComponent::stream_() const {
  constexpr std::uint16_t kRunning = 1;
  mavlink::VideoStreamInformation message;
  message.framerate = static_cast<float>(description_.fps);
  message.flags = kRunning;
  message.resolution_h = pixels(description_.frame.width);
  message.resolution_v = pixels(description_.frame.height);
  message.hfov = static_cast<std::uint16_t>(std::lround(std::max(0.0, description_.hfov_deg)));
  message.stream_id = 1;
  message.count = 1;
  const bool udp = description_.streamUri.rfind("udp", 0) == 0;
  message.type = udp ? 1 : 0;  // RTP over UDP; RTSP
  if (description_.streamUri.rfind("mpegts", 0) == 0) message.type = 3;
  mavlink::setText(message.name, description_.model);
  mavlink::setText(message.uri, description_.streamUri);
  return message;
}

mavlink::VideoStreamStatus CameraComponent::streamStatus_() const {
  const mavlink::VideoStreamInformation information = stream_();
  mavlink::VideoStreamStatus message;
  message.framerate = information.framerate;
  message.flags = information.flags;
  message.resolution_h = information.resolution_h;
  message.resolution_v = information.resolution_v;
  message.hfov = information.hfov;
  message.stream_id = information.stream_id;
  return message;
}

mavlink::CameraFovStatus CameraComponent::fov_(double now_s) const {
  mavlink::CameraFovStatus message;
  message.time_boot_ms = milliseconds(now_s - begin_s_);
  message.lat_camera = platform_ ? platform_->lat : kNoPosition;
  message.lon_camera = platform_ ? platform_->lon : kNoPosition;
  message.alt_camera = platform_ ? platform_->alt : kNoPosition;
  message.lat_image = message.lon_image = message.alt_image = kNoPosition;
  message.q = {kNan, kNan, kNan, kNan};
  message.hfov = description_.hfov_deg > 0 ? static_cast<float>(description_.hfov_deg) : kNan;
  message.vfov = description_.vfov_deg > 0 ? static_cast<float>(description_.vfov_deg) : kNan;
  return message;
}

mavlink::CameraTrackingImageStatus CameraComponent::status_() const {
  mavlink::CameraTrackingImageStatus message;
  message.tracking_status = statusOf(report_.state);
  message.point_x = message.point_y = message.radius = kNan;
  message.rec_top_x = message.rec_top_y = message.rec_bottom_x = message.rec_bottom_y = kNan;
  const bool tracks =
      report_.state == TrackingReport::State::Active || report_.state == TrackingReport::State::Coasting;
  if (tracks && report_.box) {
    message.rec_top_x = static_cast<float>(report_.box->x);
    message.rec_top_y = static_cast<float>(report_.box->y);
    message.rec_bottom_x = static_cast<float>(report_.box->br().x);
    message.rec_bottom_y = static_cast<float>(report_.box->br().y);
    message.tracking_mode = mavlink::kTrackingModeRectangle;
    message.target_data = mavlink::kTargetDataInStatus;
  }
  return message;
}

mavlink::CameraTrackingGeoStatus CameraComponent::geoStatus_() const {
  mavlink::CameraTrackingGeoStatus message;
  message.tracking_status = statusOf(report_.state);
  message.vel_n = message.vel_e = message.vel_d = message.vel_acc = message.hdg = message.hdg_acc = kNan;
  if (!ground_) {
    message.lat = message.lon = kNoPosition;
    message.alt = message.h_acc = message.v_acc = message.dist = kNan;
    return message;
  }
  message.lat = scaled(ground_->lat_deg);
  message.lon = scaled(ground_->lon_deg);
  message.alt = static_cast<float>(ground_->alt_m);
  message.h_acc = static_cast<float>(ground_->horizontalError_m);
  message.v_acc = static_cast<float>(ground_->verticalError_m);
  message.dist = static_cast<float>(ground_->distance_m);
  return message;
}

bool CameraComponent::sayMessage_(std::uint32_t id, double now_s) {
  switch (id) {
    case mavlink::Heartbeat::kId:
      send(heartbeat_());
      return true;
    case mavlink::CameraInformation::kId:
      send(information_(now_s));
      return true;
    case mavlink::CameraSettings::kId: {
      mavlink::CameraSettings message;
      message.time_boot_ms = milliseconds(now_s - begin_s_);
      message.mode_id = 1;  // video
      message.zoomLevel = message.focusLevel = kNan;
      send(message);
      return true;
    }
    case mavlink::VideoStreamInformation::kId:
      send(stream_());
      return true;
    case mavlink::VideoStreamStatus::kId:
      send(streamStatus_());
      return true;
    case mavlink::CameraFovStatus::kId:
      send(fov_(now_s));
      return true;
    case mavlink::CameraTrackingImageStatus::kId:
      send(status_());
      return true;
    case mavlink::CameraTrackingGeoStatus::kId:
      if (!description_.knowsGround) return false;
      send(geoStatus_());
      return true;
    default:
      return false;
  }
}

}  // namespace host::link
