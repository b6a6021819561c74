// The camera's side of the gimbal: found, taken once, ordered with rates only, and read in the right frame.
#include "link/gimbal_client.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "simulator/gimbal_component.h"

namespace host::link {
namespace {

constexpr double kRad = 3.14159265358979323846 / 180.0;

mavlink::GimbalDeviceAttitudeStatus attitude(double roll, double pitch, double yaw, std::uint32_t flags) {
  const double cr = std::cos(roll * kRad / 2), sr = std::sin(roll * kRad / 2);
  const double cp = std::cos(pitch * kRad / 2), sp = std::sin(pitch * kRad / 2);
  const double cy = std::cos(yaw * kRad / 2), sy = std::sin(yaw * kRad / 2);
  mavlink::GimbalDeviceAttitudeStatus message;
  message.q = {static_cast<float>(cr * cp * cy + sr * sp * sy), static_cast<float>(sr * cp * cy - cr * sp * sy),
               static_cast<float>(cr * sp * cy + sr * cp * sy), static_cast<float>(cr * cp * sy - sr * sp * cy)};
  message.flags = static_cast<std::uint16_t>(flags);
  message.delta_yaw = std::numeric_limits<float>::quiet_NaN();
  return message;
}

TEST(GimbalAttitude, IsReadAsPanTiltAndRoll) {
  const auto reading = readAttitude(attitude(3, -25, 140, mavlink::kGimbalYawInVehicleFrame));
  ASSERT_TRUE(reading);
  EXPECT_NEAR(reading->angles.pan, 140, 1e-3);
  EXPECT_NEAR(reading->angles.tilt, -25, 1e-3);
  EXPECT_NEAR(reading->roll_deg, 3, 1e-3);
}

TEST(GimbalAttitude, ItsFlagsSayWhatYawCountsFrom) {
  EXPECT_EQ(readAttitude(attitude(0, 0, 10, mavlink::kGimbalYawInEarthFrame))->frame, PanFrame::Earth);
  EXPECT_EQ(readAttitude(attitude(0, 0, 10, mavlink::kGimbalYawInVehicleFrame))->frame, PanFrame::Vehicle);
  EXPECT_EQ(readAttitude(attitude(0, 0, 10, mavlink::kGimbalYawInVehicleFrame | mavlink::kGimbalYawLock))->frame,
            PanFrame::Vehicle);
  EXPECT_EQ(readAttitude(attitude(0, 0, 10, mavlink::kGimbalYawLock))->frame, PanFrame::Earth);  // the older rule
  EXPECT_EQ(readAttitude(attitude(0, 0, 10, 0))->frame, PanFrame::Vehicle);
}

TEST(GimbalAttitude, TheVehiclesHeadingTurnsOneFrameIntoTheOther) {
  mavlink::GimbalDeviceAttitudeStatus message = attitude(0, 5, 170, mavlink::kGimbalYawInVehicleFrame);
  EXPECT_FALSE(inFrame(*readAttitude(message), PanFrame::Earth));
  message.delta_yaw = static_cast<float>(40 * kRad);
  const auto earth = inFrame(*readAttitude(message), PanFrame::Earth);
  ASSERT_TRUE(earth);
  EXPECT_NEAR(earth->pan, -150, 1e-3);
  EXPECT_NEAR(inFrame(*readAttitude(message), PanFrame::Vehicle)->pan, 170, 1e-3);
}

TEST(GimbalAttitude, WhatIsNoRotationIsNotRead) {
  mavlink::GimbalDeviceAttitudeStatus message;
  EXPECT_FALSE(readAttitude(message));
  message.q = {NAN, 0, 0, 0};
  EXPECT_FALSE(readAttitude(message));
}

TEST(AngleHistory, IsInterpolatedToTheFrameAndNotMadeUp) {
  AngleHistory history;
  EXPECT_FALSE(history.at(0.0));
  history.add(1.0, {179.0, 10.0});
  history.add(1.1, {-179.0, 20.0});
  EXPECT_NEAR(history.at(1.05)->pan, 180.0, 1e-9);
  EXPECT_NEAR(history.at(1.05)->tilt, 15.0, 1e-9);
  EXPECT_NEAR(history.at(1.19)->tilt, 20.0, 1e-9);
  EXPECT_FALSE(history.at(1.21));
  EXPECT_FALSE(history.at(0.85));
}

class GimbalClientTest : public ::testing::Test {
 protected:
  GimbalClientTest() : camera(CameraDescription{}, 0.0), client(camera, PanFrame::Vehicle) {}

  template <class Message>
  std::vector<Message> sent() {
    std::vector<Message> messages;
    for (const mavlink::Frame& frame : camera.takeOutgoing()) {
      Message message;
      if (mavlink::tryRead(frame, message)) messages.push_back(message);
    }
    return messages;
  }

  template <class Message>
  void hear(const Message& message) {
    mavlink::Frame frame = mavlink::toFrame(message);
    frame.system = 1;
    frame.component = mavlink::kComponentAutopilot;
    client.receive(frame, now_s);
  }

  void findManager() {
    mavlink::GimbalManagerInformation information;
    information.gimbal_device_id = 1;
    hear(information);
  }

  static mavlink::GimbalManagerStatus controlledBy(std::uint8_t system, std::uint8_t component) {
    mavlink::GimbalManagerStatus status;
    status.gimbal_device_id = 1;
    status.primary_control_sysid = system;
    status.primary_control_compid = component;
    return status;
  }

  void takeControl() {
    findManager();
    client.want(now_s);
    client.tick(now_s);
    mavlink::CommandAck ack;
    ack.command = mavlink::kCmdDoGimbalManagerConfigure;
    hear(ack);
  }

  CameraComponent camera;
  GimbalClient client;
  double now_s = 10.0;
};

TEST_F(GimbalClientTest, AsksForTheManagerUntilItAnswers) {
  client.tick(now_s);
  client.tick(now_s + 0.5);
  client.tick(now_s + 1.0);
  const auto commands = sent<mavlink::CommandLong>();
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[0].command, mavlink::kCmdRequestMessage);
  EXPECT_EQ(commands[0].param1, 280.0f);
  findManager();
  client.tick(now_s + 5.0);
  EXPECT_TRUE(sent<mavlink::CommandLong>().empty());
}

TEST_F(GimbalClientTest, TakesControlOnceAndRepeatsOnlyWhatIsNotHeard) {
  findManager();
  client.want(now_s);
  client.tick(now_s);
  client.tick(now_s + 0.5);
  const auto commands = sent<mavlink::CommandLong>();
  ASSERT_EQ(commands.size(), 2u);
  EXPECT_EQ(commands[0].command, mavlink::kCmdDoGimbalManagerConfigure);
  EXPECT_EQ(commands[0].param1, 1.0f);
  EXPECT_EQ(commands[0].param2, 100.0f);
  EXPECT_EQ(commands[1].confirmation, 1);
  client.turn({5, 5});
  EXPECT_TRUE(sent<mavlink::GimbalManagerSetPitchyaw>().empty()) << "no orders before control is ours";
  hear(controlledBy(1, 100));
  client.want(now_s + 1);
  client.tick(now_s + 3);
  EXPECT_TRUE(sent<mavlink::CommandLong>().empty());
  EXPECT_TRUE(client.controls());
}

TEST_F(GimbalClientTest, OrdersRatesOnlyWithAnglesThatAreNoNumbers) {
  takeControl();
  client.turn({-30.0, 12.0});
  const auto orders = sent<mavlink::GimbalManagerSetPitchyaw>();
  ASSERT_EQ(orders.size(), 1u);
  EXPECT_TRUE(std::isnan(orders[0].pitch) && std::isnan(orders[0].yaw));
  EXPECT_NEAR(orders[0].yaw_rate, -30.0 * kRad, 1e-6);
  EXPECT_NEAR(orders[0].pitch_rate, 12.0 * kRad, 1e-6);
  EXPECT_EQ(orders[0].flags, mavlink::kGimbalYawInVehicleFrame);
  EXPECT_EQ(orders[0].gimbal_device_id, 1);
}

TEST_F(GimbalClientTest, OrdersADirectionOnTheShortWay) {
  takeControl();
  client.goTo({190.0, -10.0});
  const auto orders = sent<mavlink::GimbalManagerSetPitchyaw>();
  ASSERT_EQ(orders.size(), 1u);
  EXPECT_NEAR(orders[0].yaw, -170.0 * kRad, 1e-5);
  EXPECT_TRUE(std::isnan(orders[0].pitch_rate) && std::isnan(orders[0].yaw_rate));
}

TEST_F(GimbalClientTest, GivesWayToAnotherOneInControl) {
  takeControl();
  hear(controlledBy(0, 0));  // may be older than the acknowledgement
  EXPECT_TRUE(client.controls());
  hear(controlledBy(255, 190));
  EXPECT_TRUE(client.takenAway());
  client.turn({5, 5});
  EXPECT_TRUE(sent<mavlink::GimbalManagerSetPitchyaw>().empty());
  client.want(now_s);
  EXPECT_TRUE(client.takenAway()) << "it does not fight for control";
  client.release();
  client.want(now_s);
  client.tick(now_s);
  EXPECT_EQ(sent<mavlink::CommandLong>().size(), 1u);
}

TEST_F(GimbalClientTest, ARefusalOrAnotherOnesAcknowledgementIsNoControl) {
  findManager();
  client.want(now_s);
  client.tick(now_s);
  mavlink::CommandAck ack;
  ack.command = mavlink::kCmdDoGimbalManagerConfigure;
  ack.result = static_cast<std::uint8_t>(mavlink::Result::Denied);
  hear(ack);
  EXPECT_FALSE(client.controls());
  ack.result = 0;
  ack.target_system = 200;
  hear(ack);
  EXPECT_FALSE(client.controls());
}

TEST_F(GimbalClientTest, ReadsItsOwnGimbalOnly) {
  findManager();
  mavlink::GimbalDeviceAttitudeStatus message = attitude(0, 0, 30, mavlink::kGimbalYawInVehicleFrame);
  mavlink::Frame frame = mavlink::toFrame(message);
  EXPECT_TRUE(client.receive(frame, now_s));
  message.gimbal_device_id = 2;
  EXPECT_FALSE(client.receive(mavlink::toFrame(message), now_s));
}

/// A line that loses, copies and reorders.
class BadLine {
 public:
  explicit BadLine(unsigned seed) : rng_(seed) {}
  void put(std::vector<mavlink::Frame> frames, double now_s) {
    for (mavlink::Frame& frame : frames) {
      const int copies = happens_(0.1) ? 0 : happens_(0.1) ? 2 : 1;
      for (int i = 0; i < copies; ++i) underWay_.emplace_back(now_s + (happens_(0.1) ? 0.15 : 0.01), frame);
    }
  }
  std::vector<mavlink::Frame> take(double now_s) {
    std::vector<mavlink::Frame> arrived;
    std::vector<std::pair<double, mavlink::Frame>> later;
    for (auto& one : underWay_) {
      if (one.first > now_s) {
        later.push_back(std::move(one));
      } else {
        arrived.push_back(std::move(one.second));
      }
    }
    underWay_ = std::move(later);
    return arrived;
  }

 private:
  bool happens_(double share) { return std::uniform_real_distribution<>(0, 1)(rng_) < share; }
  std::mt19937 rng_;
  std::vector<std::pair<double, mavlink::Frame>> underWay_;
};

TEST(GimbalOverABadLine, IsTakenLostAndTakenBackWithoutAStuckState) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    CameraComponent camera({}, 0.0);
    GimbalClient client(camera, PanFrame::Vehicle);
    sim::GimbalComponent gimbal(1);
    BadLine there(seed), back(seed + 1000);
    std::optional<sim::GimbalOrder> order;
    double now_s = 0.0;
    const auto live = [&](double seconds, double rate_dps) {
      for (const double end_s = now_s + seconds; now_s < end_s; now_s += 0.02) {
        client.tick(now_s);
        client.turn({rate_dps, 0.0});
        there.put(camera.takeOutgoing(), now_s);
        for (const mavlink::Frame& frame : there.take(now_s)) gimbal.receive(frame, now_s);
        while (const auto next = gimbal.takeOrder()) order = next;
        gimbal.tick(now_s);
        back.put(gimbal.takeOutgoing(), now_s);
        for (const mavlink::Frame& frame : back.take(now_s)) client.receive(frame, now_s);
      }
    };
    live(8.0, 0.0);
    ASSERT_TRUE(client.found()) << seed;
    client.want(now_s);
    live(8.0, 5.0);
    ASSERT_TRUE(client.controls()) << seed;
    ASSERT_TRUE(order);
    EXPECT_NEAR(order->value.pan, 5.0, 1e-4) << seed;

    mavlink::CommandLong theirs;
    theirs.command = mavlink::kCmdDoGimbalManagerConfigure;
    theirs.param1 = 255;
    theirs.param2 = 190;
    mavlink::Frame taken = mavlink::toFrame(theirs);
    taken.system = 255;
    taken.component = 190;
    gimbal.receive(taken, now_s);
    live(8.0, 5.0);
    EXPECT_TRUE(client.takenAway()) << seed;

    client.release();
    client.want(now_s);
    order.reset();
    live(8.0, -3.0);
    ASSERT_TRUE(client.controls()) << seed;
    ASSERT_TRUE(order) << seed;
    EXPECT_NEAR(order->value.pan, -3.0, 1e-4) << seed;
  }
}

}  // namespace
}  // namespace host::link
