// The camera in the protocol, with the clock and the network in the test's hand.
#include "link/camera_component.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

namespace host::link {
namespace {

using mavlink::CameraTrackingImageStatus;
using mavlink::CommandAck;
using mavlink::CommandLong;
using mavlink::Result;

class CameraComponentTest : public ::testing::Test {
 protected:
  CameraComponentTest() : camera(described(), 0.0) {}

  static CameraDescription described() {
    CameraDescription description;
    description.system = 7;
    description.streamUri = "rtsp://127.0.0.1:8554/track";
    return description;
  }

  static CommandLong command(std::uint16_t number, std::initializer_list<float> parameters = {}) {
    CommandLong message;
    message.command = number;
    message.target_system = 7;
    message.target_component = mavlink::kComponentCamera;
    float* const places[] = {&message.param1, &message.param2, &message.param3, &message.param4};
    std::size_t i = 0;
    for (const float parameter : parameters) *places[i++] = parameter;
    return message;
  }

  mavlink::Frame framed(const CommandLong& message) {
    mavlink::Frame frame = mavlink::toFrame(message);
    frame.system = 255;
    frame.component = 190;
    frame.sequence = sequence++;
    return frame;
  }

  void deliver(const mavlink::Frame& frame) {
    camera.receive(frame, now_s);
    collect();
  }
  void say(const CommandLong& message) { deliver(framed(message)); }

  void run(double seconds) {
    for (const double end_s = now_s + seconds; now_s < end_s; now_s += 0.01) {
      camera.tick(now_s);
      collect();
    }
  }

  void collect() {
    for (const mavlink::Frame& frame : camera.takeOutgoing()) sent.push_back(frame);
  }

  template <class Message>
  std::vector<Message> all() const {
    std::vector<Message> messages;
    for (const mavlink::Frame& frame : sent) {
      Message message;
      if (mavlink::tryRead(frame, message)) messages.push_back(message);
    }
    return messages;
  }

  Result lastResult() const { return static_cast<Result>(all<CommandAck>().back().result); }
  int requests() {
    int n = 0;
    while (camera.takeRequest()) ++n;
    return n;
  }

  CameraComponent camera;
  double now_s = 0.0;
  std::uint8_t sequence = 0;
  std::vector<mavlink::Frame> sent;
};

TEST_F(CameraComponentTest, BeatsOnceASecondAsACamera) {
  run(10.0);
  const auto beats = all<mavlink::Heartbeat>();
  EXPECT_NEAR(static_cast<double>(beats.size()), 10.0, 1.0);
  EXPECT_EQ(beats[0].type, mavlink::kTypeCamera);
  EXPECT_EQ(sent[0].system, 7);
  EXPECT_EQ(sent[0].component, mavlink::kComponentCamera);
  for (std::size_t i = 1; i < sent.size(); ++i) EXPECT_EQ(sent[i].sequence, static_cast<std::uint8_t>(i));
}

TEST_F(CameraComponentTest, TellsWhatItCanWithEitherRequest) {
  say(command(mavlink::kCmdRequestMessage, {259}));
  say(command(mavlink::kCmdRequestCameraInformation, {1}));
  const auto information = all<mavlink::CameraInformation>();
  ASSERT_EQ(information.size(), 2u);
  EXPECT_EQ(information[0].flags,
            mavlink::kCameraHasVideoStream | mavlink::kCameraHasTrackingPoint | mavlink::kCameraHasTrackingRectangle);
  EXPECT_EQ(information[0].resolution_h, 640);
  say(command(mavlink::kCmdRequestMessage, {269}));
  say(command(mavlink::kCmdRequestVideoStreamInformation, {1}));
  ASSERT_EQ(all<mavlink::VideoStreamInformation>().size(), 2u);
  EXPECT_EQ(mavlink::textOf(all<mavlink::VideoStreamInformation>()[0].uri), "rtsp://127.0.0.1:8554/track");
  say(command(mavlink::kCmdRequestVideoStreamStatus, {1}));
  EXPECT_EQ(all<mavlink::VideoStreamStatus>().size(), 1u);
  say(command(mavlink::kCmdRequestMessage, {271}));
  EXPECT_EQ(all<mavlink::CameraFovStatus>().at(0).hfov, 60.0f);
  say(command(mavlink::kCmdRequestCameraSettings, {1}));
  EXPECT_EQ(all<mavlink::CameraSettings>().size(), 1u);
  for (const CommandAck& ack : all<CommandAck>()) EXPECT_EQ(ack.result, 0) << ack.command;
}

TEST_F(CameraComponentTest, HasGeolocationOnlyWhereItKnowsTheGround) {
  say(command(mavlink::kCmdRequestMessage, {276}));
  EXPECT_EQ(lastResult(), Result::Unsupported);
  CameraDescription description = described();
  description.knowsGround = true;
  CameraComponent other(description, 0.0);
  other.receive(framed(command(mavlink::kCmdRequestMessage, {276})), 0.0);
  mavlink::CameraTrackingGeoStatus status;
  ASSERT_TRUE(mavlink::tryRead(other.takeOutgoing().at(0), status));
  EXPECT_EQ(status.lat, std::numeric_limits<std::int32_t>::max());  // unknown
  other.reportGround(GroundReport{47.5, 8.25, 400, 150, 3, 5});
  other.receive(framed(command(mavlink::kCmdRequestMessage, {276})), 0.1);
  ASSERT_TRUE(mavlink::tryRead(other.takeOutgoing().at(0), status));
  EXPECT_EQ(status.lat, 475000000);
  EXPECT_EQ(status.lon, 82500000);
  EXPECT_EQ(status.h_acc, 3.0f);
}

TEST_F(CameraComponentTest, AClickBecomesOneRequestAndItsRadiusDoesNotMatter) {
  say(command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f, 0.1f}));
  EXPECT_EQ(lastResult(), Result::Accepted);
  EXPECT_EQ(all<CommandAck>().back().target_system, 255);
  EXPECT_EQ(all<CommandAck>().back().target_component, 190);
  const auto request = camera.takeRequest();
  ASSERT_TRUE(request);
  EXPECT_EQ(request->kind, TrackRequest::Kind::Point);
  EXPECT_EQ(request->point, cv::Point2d(0.25, 0.75));
}

TEST_F(CameraComponentTest, ARectangleMayBeDrawnFromAnyCorner) {
  say(command(mavlink::kCmdCameraTrackRectangle, {0.5f, 0.75f, 0.25f, 0.5f}));
  const auto request = camera.takeRequest();
  ASSERT_TRUE(request);
  EXPECT_EQ(request->rectangle, cv::Rect2d(0.25, 0.5, 0.25, 0.25));
}

TEST_F(CameraComponentTest, RefusesWhatIsNoPlaceInThePicture) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const auto& parameters : {std::initializer_list<float>{nan, 0.5f}, {1.5f, 0.5f}, {-0.1f, 0.5f}}) {
    say(command(mavlink::kCmdCameraTrackPoint, parameters));
    EXPECT_EQ(lastResult(), Result::Denied);
  }
  say(command(mavlink::kCmdCameraTrackRectangle, {0.5f, 0.5f, 0.5f, 0.7f}));
  EXPECT_EQ(lastResult(), Result::Denied);
  EXPECT_EQ(requests(), 0);
}

TEST_F(CameraComponentTest, ARepeatedCommandIsAcknowledgedAgainAndStartsNothing) {
  CommandLong click = command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f});
  for (int i = 0; i < 4; ++i) {
    click.confirmation = static_cast<std::uint8_t>(i);
    now_s += 1.5;
    say(click);
  }
  EXPECT_EQ(all<CommandAck>().size(), 4u);
  EXPECT_EQ(requests(), 1);
}

TEST_F(CameraComponentTest, ACopyThatComesLateDoesNotUndoWhatCameAfterIt) {
  const mavlink::Frame click = framed(command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f}));
  deliver(click);
  now_s = 2.0;
  say(command(mavlink::kCmdCameraStopTracking));
  now_s = 3.0;
  deliver(click);
  ASSERT_EQ(camera.takeRequest()->kind, TrackRequest::Kind::Point);
  ASSERT_EQ(camera.takeRequest()->kind, TrackRequest::Kind::Stop);
  EXPECT_FALSE(camera.takeRequest());
}

TEST_F(CameraComponentTest, ARepetitionThatOvertakesIsNoNewWish) {
  CommandLong click = command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f});
  const mavlink::Frame first = framed(click);
  click.confirmation = 1;
  const mavlink::Frame again = framed(click);
  deliver(first);
  now_s = 0.5;
  say(command(mavlink::kCmdCameraStopTracking));
  now_s = 0.8;
  deliver(again);
  EXPECT_EQ(requests(), 2);
}

TEST_F(CameraComponentTest, AStopIsHeardThoughItsFirstFrameAndAnEarlierStopLookAlike) {
  say(command(mavlink::kCmdCameraStopTracking));
  now_s = 2.0;
  say(command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f}));
  now_s = 3.0;
  CommandLong stop = command(mavlink::kCmdCameraStopTracking);
  stop.confirmation = 1;  // the one before it was lost
  say(stop);
  EXPECT_EQ(requests(), 3);
}

/// A station that also steers by hand says much between two commands: their numbers go round.
TEST_F(CameraComponentTest, AStopIsHeardHoweverMuchItsSenderHasSaidMeanwhile) {
  for (const int others : {127, 150, 200, 253, 254, 255, 300, 600}) {
    SCOPED_TRACE(others);
    say(command(mavlink::kCmdCameraStopTracking));
    now_s += 1.0;
    say(command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f}));
    for (int i = 0; i < others; ++i) {
      mavlink::Frame beat = mavlink::toFrame(mavlink::Heartbeat{});
      beat.system = 255;
      beat.component = 190;
      beat.sequence = sequence++;
      deliver(beat);
    }
    now_s += 1.0;
    say(command(mavlink::kCmdCameraStopTracking));
    EXPECT_EQ(requests(), 3);
    now_s += 20.0;
  }
}

TEST_F(CameraComponentTest, TheSameWishLaterIsANewOne) {
  say(command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f}));
  now_s = 5.0;
  say(command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f}));
  EXPECT_EQ(requests(), 2);
}

TEST_F(CameraComponentTest, WhatIsForOthersIsPassedOver) {
  CommandLong click = command(mavlink::kCmdCameraTrackPoint, {0.25f, 0.75f});
  click.target_system = 9;
  say(click);
  click.target_system = 7;
  click.target_component = 1;
  say(click);
  EXPECT_TRUE(sent.empty());
  click.target_component = 0;  // to all
  say(click);
  EXPECT_EQ(requests(), 1);
  CommandLong other = command(400);
  other.target_component = 0;
  sent.clear();
  say(other);
  EXPECT_TRUE(sent.empty()) << "not ours to answer";
  other.target_component = mavlink::kComponentCamera;
  say(other);
  EXPECT_EQ(lastResult(), Result::Unsupported);
}

TEST_F(CameraComponentTest, ACommandWithWholeNumbersIsTheSame) {
  mavlink::CommandInt message;
  message.command = mavlink::kCmdCameraTrackPoint;
  message.param1 = 0.5f;
  message.param2 = 0.5f;
  message.target_system = 7;
  mavlink::Frame frame = mavlink::toFrame(message);
  frame.system = 255;
  deliver(frame);
  EXPECT_EQ(lastResult(), Result::Accepted);
  EXPECT_EQ(requests(), 1);
}

TEST_F(CameraComponentTest, StatusGoesByItsState) {
  const cv::Rect2d box(0.25, 0.5, 0.125, 0.25);
  const struct {
    TrackingReport report;
    int status;
    bool hasBox;
  } cases[] = {{{TrackingReport::State::Idle, {}}, 0, false},
               {{TrackingReport::State::Active, box}, 1, true},
               {{TrackingReport::State::Coasting, box}, 9, true},
               {{TrackingReport::State::Lost, {}}, 2, false}};
  for (const auto& c : cases) {
    camera.report(c.report, now_s);
    sent.clear();
    say(command(mavlink::kCmdRequestMessage, {275}));
    const CameraTrackingImageStatus status = all<CameraTrackingImageStatus>().at(0);
    EXPECT_EQ(status.tracking_status, c.status);
    EXPECT_TRUE(std::isnan(status.point_x) && std::isnan(status.point_y) && std::isnan(status.radius));
    EXPECT_EQ(std::isnan(status.rec_top_x), !c.hasBox);
    if (c.hasBox) {
      EXPECT_EQ(status.rec_bottom_x, 0.375f);
      EXPECT_EQ(status.rec_bottom_y, 0.75f);
    }
  }
}

TEST_F(CameraComponentTest, StatusComesAtTheRateThatIsAsked) {
  for (const double hz : {5.0, 25.0}) {
    sent.clear();
    if (hz != 5.0) say(command(mavlink::kCmdSetMessageInterval, {275, static_cast<float>(1e6 / hz)}));
    run(10.0);
    EXPECT_NEAR(static_cast<double>(all<CameraTrackingImageStatus>().size()), 10.0 * hz, hz) << hz;
  }
  say(command(mavlink::kCmdSetMessageInterval, {275, -1}));
  sent.clear();
  run(2.0);
  EXPECT_TRUE(all<CameraTrackingImageStatus>().empty());
  say(command(mavlink::kCmdSetMessageInterval, {275, 0}));
  run(2.0);
  EXPECT_NEAR(static_cast<double>(all<CameraTrackingImageStatus>().size()), 10.0, 2.0);
}

TEST_F(CameraComponentTest, RefusesIntervalsThatAreNone) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  for (const float interval : {nan, 5.0f, -2.0f, 1e12f}) {
    say(command(mavlink::kCmdSetMessageInterval, {275, interval}));
    EXPECT_EQ(lastResult(), Result::Denied) << interval;
  }
  say(command(mavlink::kCmdSetMessageInterval, {33, 1000000}));
  EXPECT_EQ(lastResult(), Result::Unsupported);
  say(command(mavlink::kCmdSetMessageInterval, {nan, 1000000}));
  EXPECT_EQ(lastResult(), Result::Unsupported);
  say(command(mavlink::kCmdGetMessageInterval, {275}));
  EXPECT_EQ(all<mavlink::MessageInterval>().at(0).interval_us, 200000);
}

TEST_F(CameraComponentTest, AChangeIsSaidAtOnce) {
  run(0.35);
  sent.clear();
  camera.report({TrackingReport::State::Active, cv::Rect2d(0.1, 0.1, 0.1, 0.1)}, now_s);
  collect();
  ASSERT_EQ(all<CameraTrackingImageStatus>().size(), 1u);
  EXPECT_EQ(all<CameraTrackingImageStatus>()[0].tracking_status, 1);
}

TEST_F(CameraComponentTest, ASleepIsNotMadeUpFor) {
  run(1.0);
  now_s += 100.0;
  sent.clear();
  camera.tick(now_s);
  collect();
  EXPECT_LE(all<CameraTrackingImageStatus>().size(), 1u);
}

/// A ground station that sends each command until it is acknowledged, over a line that loses, copies and reorders.
TEST_F(CameraComponentTest, ALossyLineLeavesNoStuckState) {
  std::mt19937 rng(9);
  const auto happens = [&](double share) { return std::uniform_real_distribution<>(0, 1)(rng) < share; };
  int expected = 0, got = 0;
  for (int round = 0; round < 100; ++round) {
    CommandLong wish = round % 2 == 0
                           ? command(mavlink::kCmdCameraTrackPoint, {static_cast<float>(round) / 100.0f, 0.5f})
                           : command(mavlink::kCmdCameraStopTracking);
    ++expected;
    bool heard = false;
    std::vector<mavlink::Frame> late;
    for (int attempt = 0; attempt < 20 && !heard; ++attempt) {
      wish.confirmation = static_cast<std::uint8_t>(attempt);
      const mavlink::Frame frame = framed(wish);
      sent.clear();
      if (!happens(0.1)) deliver(frame);
      if (happens(0.1)) deliver(frame);
      if (happens(0.1)) late.push_back(frame);
      for (const CommandAck& ack : all<CommandAck>()) {
        heard = heard || (ack.command == wish.command && !happens(0.1));
      }
      now_s += 0.5;
    }
    EXPECT_TRUE(heard);
    for (const mavlink::Frame& frame : late) deliver(frame);
    now_s += 2.0;
    while (const auto request = camera.takeRequest()) {
      ++got;
      EXPECT_EQ(request->kind == TrackRequest::Kind::Stop, round % 2 == 1);
    }
  }
  EXPECT_EQ(got, expected);
}

}  // namespace
}  // namespace host::link
