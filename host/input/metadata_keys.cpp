#include "input/metadata_keys.h"

#include <unordered_map>

#include "ocula/ocula_picture.h"

namespace host {
namespace {

using Keys = ocula::OculaPicture::BaseMetadata::Keys;
using Kinds = std::unordered_map<std::string, MetadataKind>;

Kinds makeKinds() {
  Kinds kinds;
  for (const std::string& key :
       {Keys::kCameraName, Keys::kCameraModelName, Keys::kCameraType, Keys::kPositioningMethodSource,
        Keys::kPlatformStatus, Keys::kPartNumber, Keys::kSerialNumber, Keys::kSoftwareVersion}) {
    kinds[key] = MetadataKind::Text;
  }
  for (const std::string& key : {Keys::kCameraIndex, Keys::kLaserRangeEnabled, Keys::kNavSatCount, Keys::kGimbalModeRaw,
                                 Keys::kLaserPrfCode, Keys::kGimbalModelCode, Keys::kFollowMeEnabledCommand}) {
    kinds[key] = MetadataKind::Int;
  }
  for (const std::string& key : {Keys::kSourceNs, Keys::kUtcTimestampUs}) kinds[key] = MetadataKind::Unsigned;
  for (const std::string& key : {Keys::kHfovDeg,
                                 Keys::kVfovDeg,
                                 Keys::kZoomRatio,
                                 Keys::kPanDeg,
                                 Keys::kTiltDeg,
                                 Keys::kRollDeg,
                                 Keys::kPitchDeg,
                                 Keys::kYawDeg,
                                 Keys::kSensorLatDeg,
                                 Keys::kSensorLonDeg,
                                 Keys::kSensorAltM,
                                 Keys::kFrameCenterLatDeg,
                                 Keys::kFrameCenterLonDeg,
                                 Keys::kFrameCenterElevM,
                                 Keys::kTargetLrfLatDeg,
                                 Keys::kTargetLrfLonDeg,
                                 Keys::kTargetLrfElevM,
                                 Keys::kMeasuredSlantRangeM,
                                 Keys::kVelocityNorthMps,
                                 Keys::kVelocityEastMps,
                                 Keys::kVelocityDownMps,
                                 Keys::kAzimuthRateDps,
                                 Keys::kElevationRateDps,
                                 Keys::kRollRateDps,
                                 Keys::kQuatX,
                                 Keys::kQuatY,
                                 Keys::kQuatZ,
                                 Keys::kQuatW}) {
    kinds[key] = MetadataKind::Double;
  }
  return kinds;
}

}  // namespace

MetadataKind metadataKindOf(const std::string& key) {
  static const Kinds kKinds = makeKinds();
  const auto found = kKinds.find(key);
  return found == kKinds.end() ? MetadataKind::Unknown : found->second;
}

}  // namespace host
