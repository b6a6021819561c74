// The messages as structures, one for each entry of messages.def, and the numbers they use. A field has the name, the
// unit and the meaning that the protocol's public description gives it; all begin as zero.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace mavlink {

#define MAVLINK_BEGIN(Structure, NAME, id, seed) \
  struct Structure {                             \
    static constexpr std::uint32_t kId = id;
#define MAVLINK_FIELD(type, name) type name{};
#define MAVLINK_ARRAY(type, name, count) std::array<type, count> name{};
#define MAVLINK_EXTENSION(type, name) type name{};
#define MAVLINK_END(Structure) \
  }                            \
  ;
#include "mavlink/messages.def"

/// Kinds of component, HEARTBEAT.type.
enum : std::uint8_t { kTypeQuadrotor = 2, kTypeGcs = 6, kTypeGimbal = 26, kTypeCamera = 30 };
enum : std::uint8_t { kAutopilotInvalid = 8, kStateActive = 4, kVersion = 3 };

/// Component numbers.
enum : std::uint8_t { kComponentAll = 0, kComponentAutopilot = 1, kComponentCamera = 100, kComponentGimbal = 154 };

/// Commands, COMMAND_LONG.command.
enum : std::uint16_t {
  kCmdGetMessageInterval = 510,
  kCmdSetMessageInterval = 511,
  kCmdRequestMessage = 512,
  kCmdRequestCameraInformation = 521,
  kCmdRequestCameraSettings = 522,
  kCmdDoGimbalManagerConfigure = 1001,
  kCmdCameraTrackPoint = 2004,
  kCmdCameraTrackRectangle = 2005,
  kCmdCameraStopTracking = 2010,
  kCmdRequestVideoStreamInformation = 2504,
  kCmdRequestVideoStreamStatus = 2505
};

/// COMMAND_ACK.result.
enum class Result : std::uint8_t {
  Accepted = 0,
  TemporarilyRejected = 1,
  Denied = 2,
  Unsupported = 3,
  Failed = 4,
  InProgress = 5
};

/// CAMERA_INFORMATION.flags.
enum : std::uint32_t {
  kCameraHasVideoStream = 256,
  kCameraHasTrackingPoint = 512,
  kCameraHasTrackingRectangle = 1024,
  kCameraHasTrackingGeoStatus = 2048
};

/// CAMERA_TRACKING_IMAGE_STATUS.tracking_status; Coasting is added to Active while the target is only predicted.
enum : std::uint8_t { kTrackingIdle = 0, kTrackingActive = 1, kTrackingError = 2, kTrackingCoasting = 8 };
enum : std::uint8_t { kTrackingModeNone = 0, kTrackingModePoint = 1, kTrackingModeRectangle = 2 };
enum : std::uint8_t { kTargetDataNone = 0, kTargetDataEmbedded = 1, kTargetDataInStatus = 4 };

/// Which way yaw counts, GIMBAL_DEVICE_ATTITUDE_STATUS.flags and GIMBAL_MANAGER_SET_PITCHYAW.flags.
enum : std::uint32_t {
  kGimbalRollLock = 4,
  kGimbalPitchLock = 8,
  kGimbalYawLock = 16,            ///< Yaw holds against north, not against the vehicle.
  kGimbalYawInVehicleFrame = 32,  ///< The yaw of the quaternion counts from the vehicle's nose.
  kGimbalYawInEarthFrame = 64     ///< It counts from north.
};

/// Writes a text into a field; what does not fit is cut, a full field has no final zero. Pure.
template <class Char, std::size_t N>
void setText(std::array<Char, N>& field, const std::string& text) {
  for (std::size_t i = 0; i < N; ++i) field[i] = i < text.size() ? static_cast<Char>(text[i]) : Char{};
}

/// Reads a text field up to its first zero or its end. Pure.
template <class Char, std::size_t N>
std::string textOf(const std::array<Char, N>& field) {
  std::string text;
  for (const Char c : field) {
    if (c == Char{}) break;
    text.push_back(static_cast<char>(c));
  }
  return text;
}

}  // namespace mavlink
