// Frames and payloads: what is written is read again, known bytes are read and written, damage is never taken for a
// message.
#include "mavlink/codec.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "mavlink/crc.h"
#include "mavlink/messages.h"

namespace mavlink {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes fromHex(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// Written by another implementation of the protocol.
const Bytes kHeartbeatV2 = fromHex("fd09000007ffbe0000000000000006080004037efa");
const Bytes kHeartbeatV1 = fromHex("fe0907ffbe00000000000608000403ce51");
const Bytes kTrackPoint =
    fromHex("fd20000008ffbe4c00000000803e0000403fcdcccc3d00000000000000000000000000000000d40701646c82");

std::vector<Frame> framesIn(FrameReader& reader) {
  std::vector<Frame> frames;
  for (Frame frame; reader.next(frame);) frames.push_back(frame);
  return frames;
}

std::vector<Frame> read(const Bytes& bytes) {
  FrameReader reader;
  reader.addBytes(bytes.data(), bytes.size());
  return framesIn(reader);
}

Bytes encoded(const Frame& plain, std::uint8_t sequence) {
  Frame frame = plain;
  frame.sequence = sequence;
  frame.system = 1;
  frame.component = kComponentCamera;
  return encodeFrame(frame);
}

Bytes heartbeat(std::uint8_t sequence) {
  Heartbeat message;
  message.type = kTypeCamera;
  message.system_status = kStateActive;
  return encoded(toFrame(message), sequence);
}

void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

TEST(MavlinkCrc, GivesThePublishedCheckValue) {
  const std::string text = "123456789";
  EXPECT_EQ(crcAdd(kCrcStart, reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), 0x6f91);
}

TEST(MavlinkFrame, ReadsAHeartbeatOfBothVersions) {
  for (const Bytes& bytes : {kHeartbeatV2, kHeartbeatV1}) {
    const std::vector<Frame> frames = read(bytes);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].sequence, 7);
    EXPECT_EQ(frames[0].system, 255);
    EXPECT_EQ(frames[0].component, 190);
    Heartbeat message;
    ASSERT_TRUE(tryRead(frames[0], message));
    EXPECT_EQ(message.type, kTypeGcs);
    EXPECT_EQ(message.autopilot, kAutopilotInvalid);
    EXPECT_EQ(message.system_status, kStateActive);
    EXPECT_EQ(message.mavlink_version, 3);
  }
}

TEST(MavlinkFrame, WritesTheSameBytesAsTheOtherImplementation) {
  CommandLong command;
  command.param1 = 0.25f;
  command.param2 = 0.75f;
  command.param3 = 0.1f;
  command.command = kCmdCameraTrackPoint;
  command.target_system = 1;
  command.target_component = kComponentCamera;
  Frame frame = toFrame(command);
  frame.sequence = 8;
  frame.system = 255;
  frame.component = 190;
  EXPECT_EQ(encodeFrame(frame), kTrackPoint);
}

TEST(MavlinkFrame, LeavesOutFinalZerosButNotTheFirstByte) {
  const Bytes bytes = encoded(toFrame(MessageInterval()), 0);
  ASSERT_EQ(bytes.size(), 10u + 1u + 2u);
  const std::vector<Frame> frames = read(bytes);
  ASSERT_EQ(frames.size(), 1u);
  MessageInterval message;
  message.interval_us = 5;
  EXPECT_TRUE(tryRead(frames[0], message));
  EXPECT_EQ(message.interval_us, 0);
}

TEST(MavlinkFrame, ReadsAPayloadThatALaterVersionMadeLonger) {
  CommandAck ack;
  ack.command = 2005;
  ack.target_component = 190;
  Frame frame = toFrame(ack);
  frame.payload.insert(frame.payload.end(), {1, 2, 3});
  CommandAck again;
  ASSERT_TRUE(tryRead(frame, again));
  EXPECT_EQ(again.command, 2005);
  EXPECT_EQ(again.target_component, 190);
}

TEST(MavlinkFrame, PassesOverASignature) {
  Bytes bytes = kHeartbeatV2;
  bytes[2] = 1;
  const std::uint16_t crc = crcAdd(crcAdd(kCrcStart, bytes.data() + 1, bytes.size() - 3), 50);
  bytes[bytes.size() - 2] = static_cast<std::uint8_t>(crc);
  bytes[bytes.size() - 1] = static_cast<std::uint8_t>(crc >> 8);
  bytes.resize(bytes.size() + 13, 0xfd);
  append(bytes, kHeartbeatV1);
  const std::vector<Frame> frames = read(bytes);
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_TRUE(frames[0].isSigned);
  EXPECT_FALSE(frames[1].isSigned);
}

TEST(MavlinkFrame, DoesNotReadAFormatThatAnUnknownFlagChanges) {
  Bytes bytes = kHeartbeatV2;
  bytes[2] = 2;
  EXPECT_TRUE(read(bytes).empty());
}

TEST(MavlinkFrame, EveryFlippedBitIsNoticed) {
  for (std::size_t i = 0; i < kTrackPoint.size(); ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      Bytes bytes = kTrackPoint;
      bytes[i] = static_cast<std::uint8_t>(bytes[i] ^ (1 << bit));
      FrameReader reader;
      reader.addDatagram(bytes.data(), bytes.size());
      EXPECT_TRUE(framesIn(reader).empty()) << "byte " << i << " bit " << bit;
    }
  }
}

TEST(MavlinkFrame, ComesApartAtAnyByte) {
  Bytes bytes = kHeartbeatV2;
  append(bytes, kTrackPoint);
  append(bytes, kHeartbeatV1);
  for (std::size_t step = 1; step < bytes.size(); ++step) {
    FrameReader reader;
    std::size_t found = 0;
    for (std::size_t at = 0; at < bytes.size(); at += step) {
      reader.addBytes(bytes.data() + at, std::min(step, bytes.size() - at));
      found += framesIn(reader).size();
    }
    EXPECT_EQ(found, 3u) << "in pieces of " << step;
  }
}

TEST(MavlinkFrame, ADatagramEndsWhatItBegan) {
  FrameReader reader;
  reader.addDatagram(kTrackPoint.data(), kTrackPoint.size() - 1);
  EXPECT_TRUE(framesIn(reader).empty());
  reader.addDatagram(kHeartbeatV2.data(), kHeartbeatV2.size());
  EXPECT_EQ(framesIn(reader).size(), 1u);
}

TEST(MavlinkFrame, AnUnknownMessageIsPassedOverWhole) {
  Bytes bytes = fromHex("fd0300000001010f0f0fabfdfe0000");  // a message that nobody here speaks, with marks inside
  append(bytes, kHeartbeatV2);
  FrameReader reader;
  reader.addBytes(bytes.data(), bytes.size());
  EXPECT_EQ(framesIn(reader).size(), 1u);
  EXPECT_EQ(reader.counts().unknown, 1u);
  EXPECT_EQ(reader.counts().garbageBytes, 0u);
}

TEST(MavlinkFrame, MessagesComeThroughDrawnGarbage) {
  std::mt19937 rng(7);
  Bytes bytes;
  for (int i = 0; i < 200; ++i) {
    for (auto n = rng() % 40; n > 0; --n) bytes.push_back(static_cast<std::uint8_t>(rng()));
    bytes.insert(bytes.end(), 280, 0);  // long enough to end whatever seemed to begin
    append(bytes, heartbeat(static_cast<std::uint8_t>(i)));
  }
  const std::vector<Frame> frames = read(bytes);
  ASSERT_EQ(frames.size(), 200u);
  for (std::size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(frames[i].sequence, i);
}

TEST(MavlinkFrame, FindsAFrameAfterAnyAmountOfMarks) {
  FrameReader reader;
  const Bytes marks(100000, 0xfe);
  reader.addBytes(marks.data(), marks.size());
  EXPECT_TRUE(framesIn(reader).empty());
  const Bytes quiet(280, 0);
  reader.addBytes(quiet.data(), quiet.size());
  reader.addBytes(kHeartbeatV2.data(), kHeartbeatV2.size());
  EXPECT_EQ(framesIn(reader).size(), 1u);
}

TEST(MavlinkPayload, AnyStructureComesBackAsItWas) {
  std::mt19937 rng(11);
  for (const MessageInfo* message = messagesBegin(); message != messagesEnd(); ++message) {
    for (int i = 0; i < 20; ++i) {
      Bytes payload(payloadSize(*message, true));
      for (std::uint8_t& byte : payload) byte = static_cast<std::uint8_t>(rng());
      alignas(8) std::uint8_t memory[512] = {};
      unpackPayload(*message, payload, memory);
      EXPECT_EQ(packPayload(*message, memory), payload) << message->name;
    }
  }
}

TEST(MavlinkPayload, ANumberThatIsNotOneTravelsAsSuch) {
  GimbalManagerSetPitchyaw order;
  order.pitch = std::numeric_limits<float>::quiet_NaN();
  order.yaw_rate = -0.25f;
  order.gimbal_device_id = 1;
  GimbalManagerSetPitchyaw again;
  ASSERT_TRUE(tryRead(read(encoded(toFrame(order), 1)).at(0), again));
  EXPECT_TRUE(std::isnan(again.pitch));
  EXPECT_EQ(again.yaw_rate, -0.25f);
  EXPECT_EQ(again.gimbal_device_id, 1);
}

TEST(MavlinkPayload, AnotherMessageIsNotRead) {
  CommandAck ack;
  ack.command = 9;
  EXPECT_FALSE(tryRead(read(kHeartbeatV2).at(0), ack));
  EXPECT_EQ(ack.command, 9);
}

TEST(MavlinkText, FillsAFieldToItsLastByte) {
  std::array<char, 4> field{};
  setText(field, "abcdef");
  EXPECT_EQ(textOf(field), "abcd");
  setText(field, "x");
  EXPECT_EQ(textOf(field), "x");
}

TEST(MavlinkTable, KnowsItsMessagesAndNoOthers) {
  EXPECT_STREQ(findMessage(275)->name, "CAMERA_TRACKING_IMAGE_STATUS");
  EXPECT_EQ(findMessage(1), nullptr);
  EXPECT_EQ(findMessage(0xffffff), nullptr);
  EXPECT_TRUE(encodeFrame(Frame{2, 0, 1, 1, 1, false, {1, 2}}).empty());
}

}  // namespace
}  // namespace mavlink
