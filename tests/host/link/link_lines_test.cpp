// The lines that the protocol is spoken over, on loopback and a pseudo-terminal; who is heard and who is not; video
// through a pipe; the simulated gimbal against the client that turns it.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <fstream>
#include <thread>

#include "base/host_error.h"
#include "input/y4m.h"
#include "link/gimbal_client.h"
#include "link/mavlink_front.h"
#include "link/transport.h"
#include "simulator/gimbal_component.h"

namespace host::link {
namespace {

std::vector<std::uint8_t> heartbeat(std::uint8_t sequence) {
  mavlink::Frame frame = mavlink::toFrame(mavlink::Heartbeat());
  frame.sequence = sequence;
  return mavlink::encodeFrame(frame);
}

/// Waits until frames have come, for as long as a slow machine may need.
std::vector<mavlink::Frame> arrived(Transport& line, std::size_t count) {
  std::vector<mavlink::Frame> frames;
  for (int i = 0; i < 2000 && frames.size() < count; ++i) {
    line.receive(frames);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return frames;
}

/// A socket of the test's own on 127.0.0.1.
class Neighbour {
 public:
  explicit Neighbour(const char* address = "127.0.0.1") : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = inet_addr(address);
    EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&own), sizeof own), 0);
    socklen_t size = sizeof own;
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&own), &size);
    port = ntohs(own.sin_port);
  }
  ~Neighbour() { ::close(fd_); }
  void sendTo(int toPort, const std::vector<std::uint8_t>& bytes) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(static_cast<std::uint16_t>(toPort));
    ::sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
  }
  /// The port that the next datagram came from; 0: none came.
  int heardFrom() {
    std::uint8_t bytes[512];
    sockaddr_in from{};
    socklen_t size = sizeof from;
    for (int i = 0; i < 2000; ++i) {
      if (::recvfrom(fd_, bytes, sizeof bytes, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &size) > 0) {
        return ntohs(from.sin_port);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return 0;
  }
  int port = 0;

 private:
  int fd_;
};

int freePort() {
  return Neighbour().port;
}

TEST(MavlinkLine, RefusesAddressesThatAreNone) {
  for (const char* address : {"", "udp", "udp:", "udp:0", "udp:70000", "udp:14x", "carrier-pigeon:1", "serial:",
                              "serial:/dev/ttyACM0:12345", "tcp:127.0.0.1:", "udp:no.such.host.invalid:14550"}) {
    try {
      openTransport(address);
      ADD_FAILURE() << address;
    } catch (const HostError& error) {
      EXPECT_EQ(error.code(), ExitCode::Usage) << address;
    }
  }
  EXPECT_THROW(openTransport("serial:/no/such/device:57600"), HostError);
}

TEST(MavlinkLine, AUdpClientHearsOnlyWhomItSpeaksTo) {
  Neighbour station, stranger;
  const auto line = openTransport("udp:127.0.0.1:" + std::to_string(station.port));
  line->send(heartbeat(1));
  const int port = station.heardFrom();
  ASSERT_NE(port, 0);
  stranger.sendTo(port, heartbeat(2));
  station.sendTo(port, heartbeat(3));
  const auto frames = arrived(*line, 1);
  ASSERT_EQ(frames.size(), 1u);
  EXPECT_EQ(frames[0].sequence, 3);
  EXPECT_EQ(line->strangers(), 1u);
}

TEST(MavlinkLine, AUdpServerKeepsToItsFirstPeer) {
  const int port = freePort();
  const auto line = openTransport("udp-listen:" + std::to_string(port));
  Neighbour first, second, elsewhere("127.0.0.2");
  elsewhere.sendTo(port, heartbeat(1));  // another host than the peer's
  first.sendTo(port, heartbeat(2));
  second.sendTo(port, heartbeat(3));
  first.sendTo(port, heartbeat(4));
  const auto frames = arrived(*line, 2);
  ASSERT_EQ(frames.size(), 2u);
  EXPECT_EQ(frames[0].sequence, 2);
  EXPECT_EQ(frames[1].sequence, 4);
  EXPECT_EQ(line->strangers(), 2u);
  line->send(heartbeat(5));
  EXPECT_EQ(first.heardFrom(), port);
}

TEST(MavlinkLine, ListensOnLoopbackUnlessToldOtherwise) {
  const int port = freePort();
  const auto line = openTransport("udp-listen:" + std::to_string(port));
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in same{};  // the same port of another address is still free
  same.sin_family = AF_INET;
  same.sin_addr.s_addr = inet_addr("127.0.0.2");
  same.sin_port = htons(static_cast<std::uint16_t>(port));
  EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&same), sizeof same), 0);
  ::close(fd);
}

TEST(MavlinkLine, TcpWorksInBothRolesAndComesBack) {
  const int port = freePort();
  const auto client = openTransport("tcp:127.0.0.1:" + std::to_string(port));
  std::vector<mavlink::Frame> none;
  client->receive(none);  // nobody listens yet
  auto server = openTransport("tcp-listen:" + std::to_string(port));
  const auto exchanged = [&] {
    for (int i = 0; i < 3000; ++i) {
      std::vector<mavlink::Frame> frames;
      client->send(heartbeat(7));
      server->receive(frames);
      if (!frames.empty()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  };
  EXPECT_TRUE(exchanged());
  server->send(heartbeat(8));
  EXPECT_GE(arrived(*client, 1).size(), 1u);
  server.reset();
  server = openTransport("tcp-listen:" + std::to_string(port));
  EXPECT_TRUE(exchanged()) << "connected again";
}

TEST(MavlinkLine, ASerialLineIsReadAndWritten) {
  const int master = ::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0) GTEST_SKIP() << "no pseudo-terminals here";
  const auto line = openTransport(std::string("serial:") + ::ptsname(master) + ":115200");
  std::vector<std::uint8_t> all = heartbeat(13);  // 13 and 10 are line ends to a terminal that is not raw
  const auto second = heartbeat(10);
  all.insert(all.end(), second.begin(), second.end());
  ASSERT_EQ(::write(master, all.data(), all.size()), static_cast<ssize_t>(all.size()));
  EXPECT_EQ(arrived(*line, 2).size(), 2u);
  line->send(heartbeat(26));
  std::uint8_t bytes[64];
  ssize_t got = -1;
  for (int i = 0; i < 2000 && got <= 0; ++i) {
    got = ::read(master, bytes, sizeof bytes);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(got, static_cast<ssize_t>(heartbeat(26).size()));
  ::close(master);
}

TEST(MavlinkFront, AClickStaysAPointAndARectangleLiesInside) {
  TrackRequest click;
  click.kind = TrackRequest::Kind::Point;
  click.point = {0.5, 0.5};
  const FrontCommand middle = commandOf(click, {640, 360});
  EXPECT_EQ(middle.kind, FrontCommand::Kind::Point);
  EXPECT_EQ(middle.point, cv::Point(320, 180));
  click.point = {0.0, 1.0};
  EXPECT_EQ(commandOf(click, {640, 360}).point, cv::Point(0, 359));
  TrackRequest drag;
  drag.kind = TrackRequest::Kind::Rectangle;
  drag.rectangle = {0.25, 0.5, 0.1, 0.2};
  const FrontCommand dragged = commandOf(drag, {640, 360});
  EXPECT_EQ(dragged.kind, FrontCommand::Kind::Box);
  EXPECT_EQ(cv::Rect(dragged.box.x, dragged.box.y, dragged.box.width, dragged.box.height), cv::Rect(160, 180, 64, 72));
  drag.rectangle = {0.999, 0.999, 0.001, 0.001};
  const BBox smallest = commandOf(drag, {640, 360}).box;
  EXPECT_EQ(smallest.width, 4);
  EXPECT_LE(smallest.x + smallest.width, 640);
  EXPECT_EQ(commandOf(TrackRequest(), {640, 360}).kind, FrontCommand::Kind::Stop);
}

TEST(MavlinkFront, CoastingIsSaidExactlyWhilePredicted) {
  CallRecord record;
  record.box = cv::Rect(64, 36, 128, 72);
  using State = TrackingReport::State;
  const std::pair<TrackState, State> cases[] = {
      {TrackState::Waiting, State::Active},  {TrackState::Tracked, State::Active},
      {TrackState::Rebuilt, State::Active},  {TrackState::Redetected, State::Active},
      {TrackState::Reseeded, State::Active}, {TrackState::Predicted, State::Coasting},
      {TrackState::Lost, State::Lost},       {TrackState::Inactive, State::Lost}};
  for (const auto& [state, said] : cases) {
    record.state = state;
    EXPECT_EQ(reportOf(record, {640, 360}).state, said) << name(state);
  }
  EXPECT_EQ(*reportOf(record, {640, 360}).box, cv::Rect2d(0.1, 0.1, 0.2, 0.2));
}

TEST(SimulatedGimbal, ObeysWhoTookControlAndNobodyElse) {
  sim::GimbalComponent gimbal(1);
  CameraComponent camera(CameraDescription{}, 0.0);
  GimbalClient client(camera, PanFrame::Vehicle);
  std::optional<gimbal::PanTilt> angles;
  const auto exchange = [&](double now_s) {
    client.tick(now_s);
    gimbal.tick(now_s);
    for (const mavlink::Frame& frame : camera.takeOutgoing()) gimbal.receive(frame, now_s);
    for (const mavlink::Frame& frame : gimbal.takeOutgoing()) {
      const auto heard = client.receive(frame, now_s);
      if (heard) angles = heard;
    }
  };
  exchange(0.0);
  EXPECT_TRUE(client.found());
  mavlink::GimbalManagerSetPitchyaw order;
  order.yaw_rate = 1.0f;
  mavlink::Frame stranger = mavlink::toFrame(order);
  stranger.system = 99;
  gimbal.receive(stranger, 0.1);
  EXPECT_FALSE(gimbal.takeOrder());
  client.want(0.2);
  exchange(0.3);
  EXPECT_TRUE(client.controls());
  client.turn({10.0, -5.0});
  exchange(0.4);
  const auto taken = gimbal.takeOrder();
  ASSERT_TRUE(taken);
  EXPECT_FALSE(taken->toPosition);
  EXPECT_NEAR(taken->value.pan, 10.0, 1e-4);
  EXPECT_NEAR(taken->value.tilt, -5.0, 1e-4);
  gimbal.say({-170.0, 20.0}, 0.5);
  exchange(0.5);
  ASSERT_TRUE(angles);
  EXPECT_NEAR(angles->pan, -170.0, 1e-3);
  EXPECT_NEAR(angles->tilt, 20.0, 1e-3);
}

class Y4m : public ::testing::Test {
 protected:
  Y4m() { path = ::testing::TempDir() + "y4m_test_" + std::to_string(::getpid()) + ".y4m"; }
  ~Y4m() override { ::unlink(path.c_str()); }
  void write(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
  std::string path;
};

TEST_F(Y4m, WhatIsWrittenIsReadWithItsTimes) {
  const cv::Mat picture(48, 64, CV_8UC3, cv::Scalar(40, 120, 200));
  std::string text = y4mHeading(picture.size(), 12.5);
  for (const auto& frame : {y4mFrame(picture, 12.345678), y4mFrame(picture, std::nullopt)}) {
    text.append(frame.begin(), frame.end());
  }
  write(text);
  Y4mReader reader(path);
  Y4mFrame frame;
  ASSERT_TRUE(reader.read(frame));
  EXPECT_EQ(reader.fps(), 12.5);
  EXPECT_NEAR(frame.captured_s.value_or(0), 12.345678, 1e-6);
  ASSERT_EQ(frame.bgr.size(), picture.size());
  EXPECT_LT(cv::norm(frame.bgr, picture, cv::NORM_INF), 6);
  ASSERT_TRUE(reader.read(frame));
  EXPECT_FALSE(frame.captured_s);
  EXPECT_FALSE(reader.read(frame));
}

TEST_F(Y4m, ACutFrameIsTheEnd) {
  const cv::Mat picture(48, 64, CV_8UC3, cv::Scalar::all(0));
  const auto bytes = y4mFrame(picture, 1.0);
  write(y4mHeading(picture.size(), 25) + std::string(bytes.begin(), bytes.end() - 10));
  Y4mReader reader(path);
  Y4mFrame frame;
  EXPECT_FALSE(reader.read(frame));
}

TEST_F(Y4m, WhatIsNoSuchVideoIsRefusedWithASentence) {
  for (const char* text :
       {"RIFF....AVI \n", "YUV4MPEG2 W64 H48 C444\n", "YUV4MPEG2 W64 H48 C420p10\n", "YUV4MPEG2 W-4 H48\n",
        "YUV4MPEG2 W63 H48\n", "YUV4MPEG2 W99999999999 H99999999999\n", "YUV4MPEG2 W64 H48\nGRAME\n"}) {
    write(text);
    Y4mReader reader(path);
    Y4mFrame frame;
    EXPECT_THROW(reader.read(frame), HostError) << text;
  }
  write(std::string(5000, 'x'));
  Y4mReader reader(path);
  Y4mFrame frame;
  EXPECT_THROW(reader.read(frame), HostError);
  EXPECT_THROW(Y4mReader("/no/such/pipe"), HostError);
}

}  // namespace
}  // namespace host::link
