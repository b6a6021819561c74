// The front of ground stations as a whole, over loopback, in a time that the test hands over: nothing here depends on
// how fast the machine is.
#include "link/mavlink_front.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "gimbal/geolocation.h"
#include "klv/st0601.h"
#include "link/transport.h"
#include "simulator/gimbal_component.h"

namespace host::link {
namespace {

constexpr double kDeg = 3.14159265358979323846 / 180.0;

int freePort() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
  socklen_t size = sizeof own;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&own), &size);
  ::close(fd);
  return ntohs(own.sin_port);
}

/// The other end of the line: an operator and a vehicle with a gimbal.
class MavlinkFrontTest : public ::testing::Test {
 protected:
  void begin(bool ground = true) {
    const int port = freePort();
    line_ = openTransport("udp-listen:" + std::to_string(port));
    MavlinkOptions options;
    options.lines = {"udp:" + std::to_string(port)};
    options.camera.vfov_deg = 0.0;
    options.camera.knowsGround = ground;
    options.clockFromLink = true;
    front_.emplace(options);
    RunInfo info;
    info.frameSize = {640, 320};
    info.fps = 25.0;
    front_->begin(info);
    ASSERT_TRUE(waitFor([this] { return has<mavlink::Heartbeat>(); })) << "the camera does not say that it is there";
    now_s_ = MavlinkFront::monotonic();
    meet(0.0);
  }

  /// For as long as a slow machine may need.
  template <typename Condition>
  bool waitFor(Condition condition) {
    for (int i = 0; i < 20000; ++i) {
      line_->receive(heard_);
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

  template <class Message>
  bool has() const {
    return newest<Message>().has_value();
  }
  template <class Message>
  std::optional<Message> newest() const {
    std::optional<Message> found;
    for (const mavlink::Frame& frame : heard_) {
      Message message;
      if (mavlink::tryRead(frame, message)) found = message;
    }
    return found;
  }
  template <class Message>
  long count() const {
    return std::count_if(heard_.begin(), heard_.end(),
                         [](const mavlink::Frame& frame) { return frame.id == Message::kId; });
  }

  void send(mavlink::Frame frame) {
    frame.system = 255;
    frame.component = 190;
    frame.sequence = sequence_++;
    line_->send(mavlink::encodeFrame(frame));
  }
  void command(std::uint16_t number, float p1 = 0, float p2 = 0, float p3 = 0, float p4 = 0) {
    mavlink::CommandLong message;
    message.command = number;
    message.param1 = p1;
    message.param2 = p2;
    message.param3 = p3;
    message.param4 = p4;
    message.target_system = 1;
    message.target_component = mavlink::kComponentCamera;
    send(mavlink::toFrame(message));
  }
  void sendVehicle() {
    for (const mavlink::Frame& frame : vehicle_.takeOutgoing()) line_->send(mavlink::encodeFrame(frame));
  }

  /// Time goes on; everything that was sent has been heard afterwards.
  void meet(double seconds) {
    now_s_ += std::max(seconds, 1e-6);  // every request is another one
    mavlink::Timesync request;
    request.ts1 = std::llround(1e9 * now_s_);
    ASSERT_TRUE(waitFor([&, i = 0]() mutable {
      if (i++ % 200 == 0) send(mavlink::toFrame(request));
      const auto answer = newest<mavlink::Timesync>();
      return answer && answer->ts1 == request.ts1;
    })) << "no answer to TIMESYNC";
  }

  SourceFrame frameNow() {
    SourceFrame frame;
    frame.index = next_++;
    frame.time_s = 0.04 * static_cast<double>(frame.index);
    frame.bgr = cv::Mat(320, 640, CV_8UC3, cv::Scalar::all(0));
    frame.live.emplace();
    frame.live->capturedAt = now_s_;
    return frame;
  }
  CallRecord seenAt(const cv::Rect& box) {
    CallRecord record;
    record.target = "target";
    record.state = TrackState::Tracked;
    record.box = box;
    record.framesSinceSeen = 0;
    return record;
  }
  /// One turn of the run, with one target.
  CallRecord turn(CallRecord record) {
    SourceFrame frame = frameNow();
    front_->describe(frame);
    std::vector<CallRecord> records = {std::move(record)};
    front_->judged(frame, records);
    front_->frame(frame, records);
    commands_ = front_->takeCommands();
    return records.front();
  }
  /// The vehicle's gimbal answers until the front, which has a target, has found it and is in control.
  void haveGimbal() {
    CallRecord start = seenAt({310, 150, 20, 20});
    start.isInit = start.started = true;
    turn(start);
    for (int i = 0; i < 400 && !vehicle_.isControlled(); ++i) {
      heard_.clear();
      vehicle_.tick(now_s_);
      sendVehicle();
      meet(0.05);
      for (const mavlink::Frame& frame : heard_) vehicle_.receive(frame, now_s_);
    }
    ASSERT_TRUE(vehicle_.isControlled());
    sendVehicle();
    meet(0.05);
  }
  void look(double pan, double tilt, double heading) {
    vehicle_.sayPlace(47.4, 8.5, 520.0, 100.0, heading, now_s_);
    vehicle_.say({pan, tilt}, now_s_);
    sendVehicle();
    meet(0.0);
  }

  std::unique_ptr<Transport> line_;
  std::optional<MavlinkFront> front_;
  sim::GimbalComponent vehicle_{1};
  std::vector<mavlink::Frame> heard_;
  std::vector<FrontCommand> commands_;
  double now_s_ = 0.0;
  long next_ = 0;
  std::uint8_t sequence_ = 0;
};

TEST_F(MavlinkFrontTest, SaysWhereTheTargetIsOnTheGroundAlikeEverywhere) {
  begin();
  meet(0.02);
  look(10.0, -30.0, 80.0);  // due east, thirty degrees below the horizon
  const CallRecord record = turn(seenAt({310, 150, 20, 20}));
  ASSERT_TRUE(record.ground);
  EXPECT_EQ(record.ground->unknown, "");
  EXPECT_EQ(toJson(record)["ground"]["alt_m"], 420.0);
  const GroundNote& ground = *record.ground;
  const double reach_m = 100.0 / std::tan(30 * kDeg);
  const double s = std::sin(47.4 * kDeg);
  const double metresEast = kDeg * 6378137.0 * std::cos(47.4 * kDeg) / std::sqrt(1 - 0.00669437999014 * s * s);
  EXPECT_NEAR((ground.lon_deg - 8.5) * metresEast, reach_m, 0.1);
  EXPECT_NEAR((ground.lat_deg - 47.4) * 111000.0, 0.0, 0.1);
  EXPECT_NEAR(ground.alt_m, 420.0, 0.01);
  EXPECT_NEAR(ground.distance_m, 200.0, 0.1);

  heard_.clear();
  meet(0.3);
  const auto status = newest<mavlink::CameraTrackingGeoStatus>();
  ASSERT_TRUE(status);
  EXPECT_EQ(status->lat, std::lround(1e7 * ground.lat_deg));
  EXPECT_EQ(status->lon, std::lround(1e7 * ground.lon_deg));
  EXPECT_FLOAT_EQ(status->alt, static_cast<float>(ground.alt_m));
  EXPECT_FLOAT_EQ(status->dist, static_cast<float>(ground.distance_m));
  EXPECT_GT(status->h_acc, 3.0f);

  klv::CameraState camera;
  camera.frameCenterLatitudeDeg = ground.lat_deg;
  camera.frameCenterLongitudeDeg = ground.lon_deg;
  camera.frameCenterElevationM = ground.alt_m;
  const std::vector<std::uint8_t> packet = klv::encode(camera);
  const klv::Decoded decoded = klv::decode(packet.data(), packet.size());
  ASSERT_EQ(decoded.verdict, klv::Verdict::Good);
  EXPECT_NEAR(*decoded.state.frameCenterLatitudeDeg, status->lat * 1e-7, 1.1e-7);
  EXPECT_NEAR(*decoded.state.frameCenterLongitudeDeg, status->lon * 1e-7, 1.4e-7);
  EXPECT_NEAR(*decoded.state.frameCenterElevationM, static_cast<double>(status->alt), 0.16);
}

TEST_F(MavlinkFrontTest, APlaceAboveTheHorizonIsUnknown) {
  begin();
  meet(0.02);
  const auto unknown = [this] { return turn(seenAt({310, 150, 20, 20})).ground.value_or(GroundNote()).unknown; };
  EXPECT_EQ(unknown(), "the vehicle has not said where it is");
  look(0.0, 5.0, 0.0);
  EXPECT_EQ(unknown(), "the line of sight is not surely below the horizon");
  heard_.clear();
  meet(0.3);
  const auto status = newest<mavlink::CameraTrackingGeoStatus>();
  ASSERT_TRUE(status);
  EXPECT_EQ(status->lat, 2147483647);
  EXPECT_EQ(status->lon, 2147483647);
  EXPECT_TRUE(std::isnan(status->dist));
}

TEST_F(MavlinkFrontTest, NothingIsSaidOfTheGroundUnlessAsked) {
  begin(false);
  meet(0.02);
  look(0.0, -30.0, 0.0);
  EXPECT_FALSE(turn(seenAt({310, 150, 20, 20})).ground);
  heard_.clear();
  meet(1.0);
  EXPECT_FALSE(has<mavlink::CameraTrackingGeoStatus>());
}

TEST_F(MavlinkFrontTest, AcknowledgesInTheSameMomentAndSaysThatItTracks) {
  begin();
  turn(seenAt({310, 150, 20, 20}));
  meet(0.04);
  heard_.clear();
  command(mavlink::kCmdCameraTrackRectangle, 0.25f, 0.25f, 0.5f, 0.5f);
  meet(0.0);
  const auto ack = newest<mavlink::CommandAck>();
  ASSERT_TRUE(ack) << "no time passes between a command and its acknowledgement";
  EXPECT_EQ(ack->result, 0);
  CallRecord none;
  none.target = "target";
  none.state = TrackState::Inactive;
  turn(none);
  ASSERT_EQ(commands_.size(), 1u);
  EXPECT_EQ(commands_[0].kind, FrontCommand::Kind::Box);
  EXPECT_EQ(commands_[0].box.x, 160);
  EXPECT_EQ(commands_[0].box.width, 160);
  meet(0.0);
  const auto status = newest<mavlink::CameraTrackingImageStatus>();
  ASSERT_TRUE(status) << "and none until the first status";
  EXPECT_EQ(status->tracking_status, mavlink::kTrackingActive);
}

TEST_F(MavlinkFrontTest, StatusComesAtTheRateThatIsAsked) {
  begin();
  for (const double hertz : {5.0, 25.0}) {
    command(mavlink::kCmdSetMessageInterval, mavlink::CameraTrackingImageStatus::kId, static_cast<float>(1e6 / hertz));
    meet(0.02);
    heard_.clear();
    for (int i = 0; i < 200; ++i) meet(0.01);
    EXPECT_NEAR(static_cast<double>(count<mavlink::CameraTrackingImageStatus>()) / 2.0, hertz, 0.1 * hertz);
  }
}

TEST_F(MavlinkFrontTest, FollowsTheFirstTargetWhoeverStartedIt) {
  begin();
  CallRecord other = seenAt({10, 10, 20, 20});
  other.target = "theirs";
  turn(other);
  meet(0.3);
  const auto status = newest<mavlink::CameraTrackingImageStatus>();
  ASSERT_TRUE(status);
  EXPECT_NEAR(status->rec_top_x, 10.0 / 640, 1e-4);
  front_->stopped("another");
  meet(0.3);
  EXPECT_EQ(newest<mavlink::CameraTrackingImageStatus>()->tracking_status, mavlink::kTrackingActive);
  front_->stopped("theirs");
  meet(0.3);
  EXPECT_EQ(newest<mavlink::CameraTrackingImageStatus>()->tracking_status, mavlink::kTrackingIdle);
}

TEST_F(MavlinkFrontTest, TheGimbalGoesAfterAFindOnTrialButNothingElseIsLearntFromIt) {
  begin();
  haveGimbal();
  const auto stateAfter = [this](TrackState state, std::optional<long> unseen) {
    look(10.0, -30.0, 80.0);
    CallRecord away = seenAt({500, 150, 20, 20});
    away.state = state;
    away.framesSinceSeen = unseen;
    const CallRecord record = turn(away);
    EXPECT_EQ(record.ground.has_value(), unseen == 0) << "said only of what is seen";
    meet(0.05);
    return turn(away).gimbal->state;
  };
  EXPECT_EQ(stateAfter(TrackState::Predicted, 4), "idle");
  EXPECT_EQ(stateAfter(TrackState::Reacquired, 4), "following") << "on trial";
  EXPECT_EQ(stateAfter(TrackState::Tracked, 0), "following");
}

TEST_F(MavlinkFrontTest, ACameraThatZoomsSaysItsFieldOfView) {
  begin();
  SourceFrame frame = frameNow();
  frame.live->camera["hfov_deg"] = 20.0;
  frame.live->camera["vfov_deg"] = 10.0;
  front_->describe(frame);
  command(mavlink::kCmdRequestMessage, mavlink::CameraFovStatus::kId);
  meet(0.0);
  const auto fov = newest<mavlink::CameraFovStatus>();
  ASSERT_TRUE(fov);
  EXPECT_FLOAT_EQ(fov->hfov, 20.0f);
  EXPECT_FLOAT_EQ(fov->vfov, 10.0f);
}

}  // namespace
}  // namespace host::link
