// One frame of the host's video with its metadata. This header and its source stand in for the host
// framework's own library; an integrator builds against the real one with -DCSRT_OCULA_INCLUDE_DIR / _LIBRARY.
#pragma once

#include <opencv2/core.hpp>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace ocula {

/// A frame as the plug-in sees it: pixels on demand and a map of metadata. A frame belongs to the host.
/// Threads: reading one frame from several threads is safe as long as nobody writes to its pixels.
class __attribute__((visibility("default"))) OculaPicture {
 public:
  using MetadataValue = std::variant<std::string, int, unsigned long, double, std::vector<float>>;

  /// Metadata by key text; angles in degrees. A missing key means "not available".
  struct BaseMetadata : std::unordered_map<std::string, MetadataValue> {
    using std::unordered_map<std::string, MetadataValue>::unordered_map;
    struct __attribute__((visibility("hidden"))) Keys;  // every library keeps its own copies
  };

  /// @param bgr       the picture, 8-bit BGR, shared and not copied; may be empty
  /// @param metadata  what the host knows about the moment it was taken
  explicit OculaPicture(cv::Mat bgr, BaseMetadata metadata = {});
  virtual ~OculaPicture();

  virtual int width() const;       ///< Pixels; 0 or less: unusable frame.
  virtual int height() const;      ///< Pixels; 0 or less: unusable frame.
  virtual cv::Mat getBGR() const;  ///< The whole frame, sharing pixels; empty when there are none.
  /// The part of the rectangle (full-frame pixels) that lies inside the frame, sharing pixels.
  /// Wholly outside, or a frame without pixels: an empty Mat.
  virtual cv::Mat cropToMat(int x, int y, int w, int h);
  virtual const BaseMetadata& baseMetadata() const;

 private:
  cv::Mat bgr_;
  BaseMetadata metadata_;
};

/// The texts of all keys a host may fill in.
struct OculaPicture::BaseMetadata::Keys {
  /// Each name ends in the unit of its value where it has one: _deg degrees, _m metres, _mps metres per second, _dps
  /// degrees per second, _us microseconds.
  inline static const std::string kSourceNs = "source_ns";
  inline static const std::string kCameraIndex = "camera_index";
  inline static const std::string kCameraName = "camera_name";
  inline static const std::string kCameraModelName = "camera_model_name";
  inline static const std::string kCameraType = "camera_type";
  inline static const std::string kUtcTimestampUs = "utc_timestamp_us";
  inline static const std::string kHfovDeg = "hfov_deg";
  inline static const std::string kVfovDeg = "vfov_deg";
  inline static const std::string kZoomRatio = "zoom_ratio";
  inline static const std::string kPanDeg = "pan_deg";
  inline static const std::string kTiltDeg = "tilt_deg";
  inline static const std::string kRollDeg = "roll_deg";
  inline static const std::string kPitchDeg = "pitch_deg";
  inline static const std::string kYawDeg = "yaw_deg";
  inline static const std::string kSensorLatDeg = "sensor_lat_deg";
  inline static const std::string kSensorLonDeg = "sensor_lon_deg";
  inline static const std::string kSensorAltM = "sensor_alt_m";
  inline static const std::string kFrameCenterLatDeg = "frame_center_lat_deg";
  inline static const std::string kFrameCenterLonDeg = "frame_center_lon_deg";
  inline static const std::string kFrameCenterElevM = "frame_center_elev_m";
  inline static const std::string kTargetLrfLatDeg = "target_lrf_lat_deg";
  inline static const std::string kTargetLrfLonDeg = "target_lrf_lon_deg";
  inline static const std::string kTargetLrfElevM = "target_lrf_elev_m";
  inline static const std::string kMeasuredSlantRangeM = "measured_slant_range_m";
  inline static const std::string kLaserRangeEnabled = "laser_range_enabled";
  inline static const std::string kVelocityNorthMps = "velocity_north_mps";
  inline static const std::string kVelocityEastMps = "velocity_east_mps";
  inline static const std::string kVelocityDownMps = "velocity_down_mps";
  inline static const std::string kAzimuthRateDps = "azimuth_rate_dps";
  inline static const std::string kElevationRateDps = "elevation_rate_dps";
  inline static const std::string kRollRateDps = "roll_rate_dps";
  inline static const std::string kNavSatCount = "nav_sat_count";
  inline static const std::string kPositioningMethodSource = "positioning_method_source";
  inline static const std::string kPlatformStatus = "platform_status";
  inline static const std::string kGimbalModeRaw = "gimbal_mode_raw";
  inline static const std::string kLaserPrfCode = "laser_prf_code";
  inline static const std::string kQuatX = "quat_x";
  inline static const std::string kQuatY = "quat_y";
  inline static const std::string kQuatZ = "quat_z";
  inline static const std::string kQuatW = "quat_w";
  inline static const std::string kGimbalModelCode = "gimbal_model_code";
  inline static const std::string kPartNumber = "part_number";
  inline static const std::string kSerialNumber = "serial_number";
  inline static const std::string kSoftwareVersion = "software_version";
  inline static const std::string kFollowMeEnabledCommand = "tarvex.follow_me_enabled_command";
};

}  // namespace ocula
