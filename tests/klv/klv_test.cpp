// The packets in which a camera says where it looks.
#include "klv/st0601.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kKeySize = 16;

Bytes bytesOf(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < hex.size();) {
    if (hex[i] == ' ') {
      ++i;
      continue;
    }
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    i += 2;
  }
  return bytes;
}

const char* const kKey = "060E2B34020B01010E01030101000000";

/// A packet around the given values, with the given checksum at its end.
Bytes packetOf(const std::string& values, const std::string& checksum) {
  const Bytes body = bytesOf(values + "0102" + checksum);
  Bytes packet = bytesOf(kKey);
  packet.push_back(static_cast<std::uint8_t>(body.size()));
  packet.insert(packet.end(), body.begin(), body.end());
  return packet;
}

/// The codes that the standard gives as its own examples. The time stamp is chosen so that the sum is C850.
const std::string kPublishedCodes =
    "05 02 71C2 06 02 FD3D 07 02 08B8 0D 04 5595B66D 0E 04 5B5360C4 0F 02 C221 "
    "10 02 CD9C 11 02 D917 12 04 724A0A20 13 04 87F84B86 14 04 7DC5 5ECE 15 04 03830926 17 04 F101A229 "
    "18 04 14BC082B 19 02 34F3 41 01 0D";

Bytes publishedPacket() {
  return packetOf("02 08 000459F4A6AA0073" + kPublishedCodes, "C850");
}

klv::Decoded decode(const Bytes& bytes) {
  return klv::decode(bytes.data(), bytes.size());
}

klv::CameraState everything() {
  klv::CameraState state;
  state.timestampUs = 1224807209913000U;
  state.platformHeadingDeg = 159.9744;
  state.platformPitchDeg = -0.4315;
  state.platformRollDeg = 3.4059;
  state.sensorLatitudeDeg = 60.1768;
  state.sensorLongitudeDeg = 128.4268;
  state.sensorAltitudeM = 14190.72;
  state.horizontalFovDeg = 144.5713;
  state.verticalFovDeg = 152.6436;
  state.sensorAzimuthDeg = 160.7192;
  state.sensorElevationDeg = -168.7923;
  state.sensorRollDeg = 176.8654;
  state.slantRangeM = 68590.98;
  state.frameCenterLatitudeDeg = -10.5424;
  state.frameCenterLongitudeDeg = 29.1579;
  state.frameCenterElevationM = 3216.04;
  state.version = 13;
  return state;
}

}  // namespace

TEST(St0601, DecodesThePublishedExamplesExactly) {
  const klv::Decoded decoded = decode(publishedPacket());
  ASSERT_EQ(decoded.verdict, klv::Verdict::Good) << std::hex << decoded.computed;
  EXPECT_EQ(decoded.computed, 0xC850);
  EXPECT_EQ(decoded.stored, 0xC850);
  const klv::CameraState& s = decoded.state;
  EXPECT_NEAR(s.platformHeadingDeg.value(), 159.9744, 5e-5);
  EXPECT_NEAR(s.platformPitchDeg.value(), -0.43153172, 5e-9);
  EXPECT_NEAR(s.platformRollDeg.value(), 3.40586566, 5e-9);
  EXPECT_NEAR(s.sensorLatitudeDeg.value(), 60.17682296, 5e-8);
  EXPECT_NEAR(s.sensorLongitudeDeg.value(), 128.42675904, 5e-8);
  EXPECT_NEAR(s.sensorAltitudeM.value(), 14190.72, 5e-3);
  EXPECT_NEAR(s.horizontalFovDeg.value(), 144.5713, 5e-5);
  EXPECT_NEAR(s.verticalFovDeg.value(), 152.6436, 5e-5);
  EXPECT_NEAR(s.sensorAzimuthDeg.value(), 160.7192, 5e-5);
  EXPECT_NEAR(s.sensorElevationDeg.value(), -168.7923, 5e-5);
  EXPECT_NEAR(s.sensorRollDeg.value(), 176.8654, 5e-5);
  EXPECT_NEAR(s.slantRangeM.value(), 68590.98, 5e-3);
  EXPECT_NEAR(s.frameCenterLatitudeDeg.value(), -10.5423886331461, 5e-9);
  EXPECT_NEAR(s.frameCenterLongitudeDeg.value(), 29.157890122923, 5e-9);
  EXPECT_NEAR(s.frameCenterElevationM.value(), 3216.037, 5e-4);
  EXPECT_EQ(s.version, 13);
}

TEST(St0601, APacketWithAWrongChecksumIsNeverUsed) {
  // The values sum to 3E1E, the packet says AA43.
  const klv::Decoded decoded = decode(packetOf("02 08 000459F4A6AACEE8" + kPublishedCodes, "AA43"));
  EXPECT_EQ(decoded.verdict, klv::Verdict::BadChecksum);
  EXPECT_EQ(decoded.stored, 0xAA43);
  EXPECT_EQ(decoded.computed, 0x3E1E);
  EXPECT_FALSE(decoded.state.timestampUs);
  EXPECT_FALSE(decoded.state.platformHeadingDeg);
}

TEST(St0601, EveryFlippedBitIsNoticed) {
  const Bytes good = publishedPacket();
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    Bytes bad = good;
    bad[bit / 8] = static_cast<std::uint8_t>(bad[bit / 8] ^ (1U << (bit % 8)));
    EXPECT_NE(decode(bad).verdict, klv::Verdict::Good) << "bit " << bit;
  }
}

TEST(St0601, EveryShortenedPacketIsRefused) {
  const Bytes good = publishedPacket();
  for (std::size_t size = 0; size < good.size(); ++size) {
    const Bytes cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    const klv::Verdict verdict = decode(cut).verdict;
    EXPECT_EQ(verdict, size < kKeySize ? klv::Verdict::NotAPacket : klv::Verdict::Truncated) << size;
  }
}

TEST(St0601, WhatIsWrittenIsReadBack) {
  const klv::CameraState state = everything();
  const Bytes packet = klv::encode(state);
  const klv::Decoded decoded = decode(packet);
  ASSERT_EQ(decoded.verdict, klv::Verdict::Good);
  EXPECT_EQ(decoded.size, packet.size());
  EXPECT_EQ(decoded.state.timestampUs, state.timestampUs);
  EXPECT_NEAR(decoded.state.platformHeadingDeg.value(), 159.9744, 360.0 / 65535 / 2 + 1e-9);
  EXPECT_NEAR(decoded.state.sensorElevationDeg.value(), -168.7923, 1e-7);
  EXPECT_NEAR(decoded.state.sensorLongitudeDeg.value(), 128.4268, 1e-7);
  EXPECT_NEAR(decoded.state.frameCenterElevationM.value(), 3216.04, 19900.0 / 65535 / 2 + 1e-9);
  EXPECT_EQ(klv::encode(decoded.state), packet) << "reading and writing again changes nothing";
}

TEST(St0601, TheTimeStampComesFirstAndTheChecksumLast) {
  const Bytes packet = klv::encode(everything());
  ASSERT_EQ(packet[kKeySize], packet.size() - kKeySize - 1);
  EXPECT_EQ(packet[kKeySize + 1], 2);
  EXPECT_EQ(packet[packet.size() - 4], 1);
  EXPECT_EQ(packet[packet.size() - 3], 2);
}

TEST(St0601, ValuesOutsideTheirRangeAreClampedAndNanIsLeftOut) {
  klv::CameraState state;
  state.platformPitchDeg = 75.0;
  state.sensorElevationDeg = -500.0;
  state.horizontalFovDeg = std::nan("");
  const klv::CameraState back = decode(klv::encode(state)).state;
  EXPECT_DOUBLE_EQ(back.platformPitchDeg.value(), 20.0);
  EXPECT_NEAR(back.sensorElevationDeg.value(), -180.0, 1e-6);
  EXPECT_FALSE(back.horizontalFovDeg);
}

TEST(St0601, TheCodeForOutOfRangeIsNoValue) {
  Bytes packet = packetOf("02 08 0000000000000000 06 02 8000 13 04 80000000", "0000");
  const std::uint16_t sum = klv::checksum(packet.data(), packet.size() - 2);
  packet[packet.size() - 2] = static_cast<std::uint8_t>(sum >> 8);
  packet[packet.size() - 1] = static_cast<std::uint8_t>(sum);
  const klv::Decoded decoded = decode(packet);
  ASSERT_EQ(decoded.verdict, klv::Verdict::Good);
  EXPECT_FALSE(decoded.state.platformPitchDeg);
  EXPECT_FALSE(decoded.state.sensorElevationDeg);
}

TEST(St0601, LongLengthsUnknownTagsAndEmptyValuesArePassedOver) {
  Bytes body = bytesOf("02 08 0000000000000001 8100 01 FF 1D 00 10 00 03 8102 4142 41 01 04 01 02 0000");
  Bytes packet = bytesOf(kKey);
  packet.insert(packet.end(), {0x82, 0x00});
  packet.push_back(static_cast<std::uint8_t>(body.size()));
  packet.insert(packet.end(), body.begin(), body.end());
  const std::uint16_t sum = klv::checksum(packet.data(), packet.size() - 2);
  packet[packet.size() - 2] = static_cast<std::uint8_t>(sum >> 8);
  packet[packet.size() - 1] = static_cast<std::uint8_t>(sum);
  const klv::Decoded decoded = decode(packet);
  ASSERT_EQ(decoded.verdict, klv::Verdict::Good) << klv::name(decoded.verdict);
  EXPECT_EQ(decoded.state.timestampUs, 1U);
  EXPECT_EQ(decoded.state.version, 4);
  EXPECT_FALSE(decoded.state.horizontalFovDeg);
}

TEST(St0601, NonsenseInsideIsMalformed) {
  EXPECT_EQ(decode(packetOf("05 03 000000", "0000")).verdict, klv::Verdict::Malformed) << "a value of the wrong size";
  EXPECT_EQ(decode(packetOf("05 40 0000", "0000")).verdict, klv::Verdict::Malformed) << "a value beyond the packet";
  EXPECT_EQ(decode(packetOf("8181818105 01 00", "0000")).verdict, klv::Verdict::Malformed) << "a tag without end";
  EXPECT_EQ(decode(packetOf("01 02 0000 05 02 0000", "0000")).verdict, klv::Verdict::Malformed) << "values behind it";
  Bytes none = bytesOf(kKey);
  none.insert(none.end(), {4, 5, 2, 0, 0});
  EXPECT_EQ(decode(none).verdict, klv::Verdict::NoChecksum);
  Bytes huge = bytesOf(kKey);
  huge.insert(huge.end(), {0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 5, 2, 0, 0});
  EXPECT_EQ(decode(huge).verdict, klv::Verdict::Truncated);
}

TEST(St0601, FindsThePacketBehindAnAccessUnitsHeader) {
  Bytes bytes = {0x00, 0x01, 0xDF, 0x00, 0x40};
  const Bytes packet = publishedPacket();
  bytes.insert(bytes.end(), packet.begin(), packet.end());
  EXPECT_EQ(klv::findPacket(bytes.data(), bytes.size()), 5U);
  EXPECT_EQ(klv::findPacket(bytes.data(), bytes.size(), 6), bytes.size());
  EXPECT_EQ(klv::findPacket(bytes.data(), 0), 0U);
}
