// What a host and the plug-in agree on: the interface's binary order, values, frames and their metadata.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <opencv2/core.hpp>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "csrt_tracking_algo.h"
#include "ialgo_plugin.h"
#include "ocula/ocula_picture.h"

using ocula::OculaPicture;
using Keys = OculaPicture::BaseMetadata::Keys;

namespace {

// Place of a virtual function in the table, as both processors' ABI writes it into a pointer to member. The destructor
// takes places 0 and 1, so the n-th operation of the interface, counted from 1, lies at place n.
template <typename Member>
std::size_t placeOf(Member member) {
  std::uintptr_t words[2] = {};
  static_assert(sizeof(member) == sizeof(words));
  std::memcpy(words, &member, sizeof(words));
  return words[0] / sizeof(void*);
}

}  // namespace

TEST(IAlgoPlugin, KeepsTheOrderOfItsFifteenOperations) {
  EXPECT_EQ(placeOf(&IAlgoPlugin::init), 2U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::getOutputDeclarations), 3U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::update), 4U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::isAlive), 5U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::getName), 6U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::getUuid), 7U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::isDynamic), 8U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::changePerformance), 9U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::enableDebug), 10U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::getConfigList), 11U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::setConfig), 12U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::getPropertyList), 13U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::setProperty), 14U);
  EXPECT_EQ(placeOf(&IAlgoPlugin::property), 15U);
}

TEST(IAlgoPlugin, IsImplementedInFullAndDestroyedThroughTheBase) {
  static_assert(std::is_abstract_v<IAlgoPlugin> && !std::is_abstract_v<CSRTTrackingAlgo>);
  static_assert(std::has_virtual_destructor_v<IAlgoPlugin>);
  static_assert(std::is_convertible_v<CSRTTrackingAlgo*, IAlgoPlugin*>, "public base");
  static_assert(!std::is_copy_constructible_v<CSRTTrackingAlgo>);
  // The operations come first: the order holds for the object as for the interface.
  EXPECT_EQ(placeOf(&CSRTTrackingAlgo::init), 2U);
  EXPECT_EQ(placeOf(&CSRTTrackingAlgo::property), 15U);
}

// ------------------------------------------------------------------------------------------------------ values

TEST(AlgoValue, NumbersItsAlternatives) {
  EXPECT_EQ(AlgoValue(true).index(), 0U);
  EXPECT_EQ(AlgoValue(1L).index(), 1U);
  EXPECT_EQ(AlgoValue(1.0).index(), 2U);
  EXPECT_EQ(AlgoValue(std::string("a")).index(), 3U);
  EXPECT_EQ(AlgoValue(AlgoValue::Object{}).index(), 4U);
  EXPECT_EQ(AlgoValue(AlgoValue::Array{}).index(), 5U);
}

TEST(AlgoValue, CarriesEveryIntegerAsLong) {
  EXPECT_EQ(std::get<long>(AlgoValue(-7)), -7L);
  EXPECT_EQ(std::get<long>(AlgoValue(std::int16_t{-7})), -7L);
  EXPECT_EQ(std::get<long>(AlgoValue(7U)), 7L);
  EXPECT_EQ(std::get<long>(AlgoValue(std::numeric_limits<std::int64_t>::min())),
            std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(std::get<long>(AlgoValue(0)), 0L) << "a zero is a number, not a null pointer";
}

TEST(AlgoValue, WidensAFloat) {
  EXPECT_EQ(std::get<double>(AlgoValue(0.25F)), 0.25);
}

TEST(AlgoValue, TakesTextAsTextNeverAsBool) {
  EXPECT_EQ(std::get<std::string>(AlgoValue("text")), "text");
  EXPECT_EQ(std::get<std::string>(AlgoValue(std::string_view("view"))), "view");
  static_assert(!std::is_constructible_v<AlgoValue, int*>, "no other pointer becomes a bool");
  static_assert(!std::is_constructible_v<AlgoValue, const void*>);
}

TEST(AlgoValue, KeepsMembersInTheOrderOfInsertion) {
  const AlgoValue value = AlgoValue::Object{{"zulu", 1}, {"alpha", 2}, {"mike", AlgoValue::Array{3, "x"}}};
  const auto& members = std::get<AlgoValue::Object>(value);
  ASSERT_EQ(members.size(), 3U);
  EXPECT_EQ(members[0].first, "zulu");
  EXPECT_EQ(members[1].first, "alpha");
  EXPECT_EQ(members[2].first, "mike");
  EXPECT_EQ(std::get<AlgoValue::Array>(members[2].second).size(), 2U);
}

TEST(AlgoValue, IsAVariantToAHostThatVisitsIt) {
  static_assert(std::is_base_of_v<AlgoValue::Base, AlgoValue>);
  const auto index = std::visit([](const auto& held) { return sizeof(held); }, AlgoValue::Base(AlgoValue(2.0)));
  EXPECT_EQ(index, sizeof(double));
}

TEST(Records, StartAsNothingFound) {
  const DetectionResult::Det det;
  EXPECT_EQ(cv::Rect(det.x, det.y, det.w, det.h), cv::Rect());
  EXPECT_EQ(det.class_id, -1);
  EXPECT_EQ(det.tracker_id, 0);
  EXPECT_EQ(det.score, 0.0F);
  EXPECT_TRUE(DetectionResult().dets.empty());
}

TEST(BBox, BeginsWithFourIntegers) {
  const BBox box{1, 2, 3, 4};
  std::int32_t words[4] = {};
  std::memcpy(words, &box, sizeof(words));
  EXPECT_EQ(words[0], 1);
  EXPECT_EQ(words[1], 2);
  EXPECT_EQ(words[2], 3);
  EXPECT_EQ(words[3], 4);
}

// ------------------------------------------------------------------------------------------------------ frames

TEST(OculaPicture, CropsThePartInsideTheFrame) {
  cv::Mat pixels(30, 40, CV_8UC3, cv::Scalar::all(0));
  pixels.at<cv::Vec3b>(29, 39) = {1, 2, 3};
  OculaPicture picture(pixels);
  EXPECT_EQ(picture.width(), 40);
  EXPECT_EQ(picture.height(), 30);
  const cv::Mat corner = picture.cropToMat(38, 27, 10, 10);
  ASSERT_EQ(corner.size(), cv::Size(2, 3));
  EXPECT_EQ(corner.at<cv::Vec3b>(2, 1), cv::Vec3b(1, 2, 3));
  EXPECT_EQ(picture.cropToMat(-3, -4, 10, 10).size(), cv::Size(7, 6));
}

TEST(OculaPicture, CropsNothingOutsideOrWithoutPixels) {
  OculaPicture picture(cv::Mat(30, 40, CV_8UC3));
  EXPECT_TRUE(picture.cropToMat(40, 0, 5, 5).empty());
  EXPECT_TRUE(picture.cropToMat(-5, 0, 5, 5).empty());
  EXPECT_TRUE(picture.cropToMat(0, 0, 0, 5).empty());
  EXPECT_TRUE(picture.cropToMat(0, 0, -3, 5).empty());
  constexpr int kMax = std::numeric_limits<int>::max();
  EXPECT_TRUE(picture.cropToMat(kMax, kMax, kMax, kMax).empty());
  EXPECT_EQ(picture.cropToMat(-1, -1, kMax, kMax).size(), cv::Size(40, 30));
  OculaPicture empty{cv::Mat()};
  EXPECT_EQ(empty.width(), 0);
  EXPECT_TRUE(empty.getBGR().empty());
  EXPECT_TRUE(empty.cropToMat(0, 0, 5, 5).empty());
}

TEST(OculaPicture, SharesItsPixelsAndKeepsItsMetadata) {
  const cv::Mat pixels(30, 40, CV_8UC3);
  const OculaPicture picture(pixels, {{Keys::kPanDeg, 12.5}});
  EXPECT_EQ(picture.getBGR().data, pixels.data);
  EXPECT_EQ(std::get<double>(picture.baseMetadata().at("pan_deg")), 12.5);
}

TEST(OculaPicture, NumbersTheAlternativesOfAMetadataValue) {
  using Value = OculaPicture::MetadataValue;
  EXPECT_EQ(Value(std::string("a")).index(), 0U);
  EXPECT_EQ(Value(1).index(), 1U);
  EXPECT_EQ(Value(1UL).index(), 2U);
  EXPECT_EQ(Value(1.0).index(), 3U);
  EXPECT_EQ(Value(std::vector<float>{}).index(), 4U);
}

TEST(MetadataKeys, AreTheFortyFiveTextsOfTheHost) {
  const std::vector<std::pair<std::string, std::string>> keys{
      {Keys::kSourceNs, "source_ns"},
      {Keys::kCameraIndex, "camera_index"},
      {Keys::kCameraName, "camera_name"},
      {Keys::kCameraModelName, "camera_model_name"},
      {Keys::kCameraType, "camera_type"},
      {Keys::kUtcTimestampUs, "utc_timestamp_us"},
      {Keys::kHfovDeg, "hfov_deg"},
      {Keys::kVfovDeg, "vfov_deg"},
      {Keys::kZoomRatio, "zoom_ratio"},
      {Keys::kPanDeg, "pan_deg"},
      {Keys::kTiltDeg, "tilt_deg"},
      {Keys::kRollDeg, "roll_deg"},
      {Keys::kPitchDeg, "pitch_deg"},
      {Keys::kYawDeg, "yaw_deg"},
      {Keys::kSensorLatDeg, "sensor_lat_deg"},
      {Keys::kSensorLonDeg, "sensor_lon_deg"},
      {Keys::kSensorAltM, "sensor_alt_m"},
      {Keys::kFrameCenterLatDeg, "frame_center_lat_deg"},
      {Keys::kFrameCenterLonDeg, "frame_center_lon_deg"},
      {Keys::kFrameCenterElevM, "frame_center_elev_m"},
      {Keys::kTargetLrfLatDeg, "target_lrf_lat_deg"},
      {Keys::kTargetLrfLonDeg, "target_lrf_lon_deg"},
      {Keys::kTargetLrfElevM, "target_lrf_elev_m"},
      {Keys::kMeasuredSlantRangeM, "measured_slant_range_m"},
      {Keys::kLaserRangeEnabled, "laser_range_enabled"},
      {Keys::kVelocityNorthMps, "velocity_north_mps"},
      {Keys::kVelocityEastMps, "velocity_east_mps"},
      {Keys::kVelocityDownMps, "velocity_down_mps"},
      {Keys::kAzimuthRateDps, "azimuth_rate_dps"},
      {Keys::kElevationRateDps, "elevation_rate_dps"},
      {Keys::kRollRateDps, "roll_rate_dps"},
      {Keys::kNavSatCount, "nav_sat_count"},
      {Keys::kPositioningMethodSource, "positioning_method_source"},
      {Keys::kPlatformStatus, "platform_status"},
      {Keys::kGimbalModeRaw, "gimbal_mode_raw"},
      {Keys::kLaserPrfCode, "laser_prf_code"},
      {Keys::kQuatX, "quat_x"},
      {Keys::kQuatY, "quat_y"},
      {Keys::kQuatZ, "quat_z"},
      {Keys::kQuatW, "quat_w"},
      {Keys::kGimbalModelCode, "gimbal_model_code"},
      {Keys::kPartNumber, "part_number"},
      {Keys::kSerialNumber, "serial_number"},
      {Keys::kSoftwareVersion, "software_version"},
      {Keys::kFollowMeEnabledCommand, "tarvex.follow_me_enabled_command"}};
  std::set<std::string> different;
  for (const auto& [constant, text] : keys) {
    EXPECT_EQ(constant, text);
    different.insert(constant);
  }
  EXPECT_EQ(different.size(), 45U);
}
