// The capture's steps with a scripted receiver and a clock that the test moves.
#include "live/capture.h"

#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "klv/st0601.h"

namespace live {
namespace {

/// What a receiver gives, one after the other; Nothing when the list is empty.
struct Script {
  std::deque<Received> events;
  int opened = 0;
  int closed = 0;
  double now = 100.0;
};

class ScriptedReceiver : public Receiver {
 public:
  explicit ScriptedReceiver(Script& script) : script_(script) { ++script_.opened; }
  ~ScriptedReceiver() override { ++script_.closed; }
  ScriptedReceiver(const ScriptedReceiver&) = delete;
  ScriptedReceiver& operator=(const ScriptedReceiver&) = delete;
  Received next(double waitS) override {
    if (script_.events.empty()) {
      script_.now += waitS;
      return {};
    }
    Received received = std::move(script_.events.front());
    script_.events.pop_front();
    return received;
  }
  std::string decoder() const override { return "scripted"; }
  long damaged() const override { return 2; }

 private:
  Script& script_;
};

class CaptureTest : public ::testing::Test {
 protected:
  Received picture(int width = 32, int height = 16) {
    bytes_.assign(static_cast<std::size_t>(width * height * 3), static_cast<std::uint8_t>(++shade_));
    Received received;
    received.event = Received::Event::Picture;
    received.picture.bgr = bytes_.data();
    received.picture.width = width;
    received.picture.height = height;
    received.picture.stride = static_cast<std::size_t>(width) * 3;
    return received;
  }
  static Received failed(bool refused = false) {
    Received received;
    received.event = Received::Event::Failed;
    received.reason = "gone";
    received.refused = refused;
    return received;
  }
  CaptureLoop loop(bool reconnects = true, double firstS = 5.0) {
    CaptureLoop::Options options;
    options.reconnects = reconnects;
    options.firstS = firstS;
    options.keepsPast = true;
    return {[this] { return std::make_unique<ScriptedReceiver>(script_); },
            options,
            {[this] { return script_.now; }, [this] { return script_.now + 1e9; }}};
  }
  std::optional<LiveFrame> taken(CaptureLoop& loop) { return loop.slot().take(std::chrono::seconds(0)); }

  Script script_;
  std::vector<std::uint8_t> bytes_;
  int shade_ = 0;
};

TEST_F(CaptureTest, TheNewestPictureIsTakenAndCountsTheOthers) {
  CaptureLoop capture = loop();
  for (int i = 0; i < 3; ++i) {
    script_.events.push_back(picture());
    capture.step(0.1);
    script_.now += 0.04;
  }
  const std::optional<LiveFrame> frame = taken(capture);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->index, 2);
  EXPECT_EQ(frame->bgr.at<cv::Vec3b>(0, 0)[0], 3) << "a copy, not the receiver's bytes";
  EXPECT_NEAR(frame->time_s, 0.08, 1e-9);
  EXPECT_FALSE(taken(capture)) << "nobody gets the same picture twice";
  EXPECT_EQ(script_.opened, 1);
}

TEST_F(CaptureTest, AFailedConnectionIsOpenedAgainWithGrowingPauses) {
  CaptureLoop capture = loop();
  for (int i = 0; i < 3; ++i) script_.events.push_back(failed());
  EXPECT_DOUBLE_EQ(capture.step(0.1), 0.1);
  EXPECT_DOUBLE_EQ(capture.step(0.1), 0.2);
  EXPECT_DOUBLE_EQ(capture.step(0.1), 0.4);
  script_.events.push_back(picture());
  EXPECT_DOUBLE_EQ(capture.step(0.1), 0.0);
  script_.events.push_back(failed());
  EXPECT_DOUBLE_EQ(capture.step(0.1), 0.1) << "a picture came: the next failure begins anew";
  EXPECT_EQ(script_.opened, 4);
  EXPECT_EQ(script_.closed, 4);
  EXPECT_EQ(capture.report().connections, 1);
  EXPECT_EQ(capture.report().reason, "gone");
  EXPECT_EQ(capture.report().damaged, 8) << "counted over all connections";
  EXPECT_FALSE(capture.slot().closed());
}

TEST_F(CaptureTest, AConnectionWithoutPicturesIsGivenUp) {
  CaptureLoop capture = loop();
  script_.events.push_back(picture());
  capture.step(0.1);
  double pause = 0.0;
  int steps = 0;
  while (pause == 0.0 && ++steps < 1000) pause = capture.step(0.1);
  EXPECT_NEAR(script_.now, 105.0, 0.2);
  EXPECT_EQ(script_.closed, 1);
  EXPECT_EQ(capture.report().reason, "no picture came");
}

TEST_F(CaptureTest, TheFirstPictureIsWaitedForAsLongAsAsked) {
  CaptureLoop capture = loop(true, 30.0);
  const auto secondsToTheEnd = [&] {
    const double begin = script_.now;
    for (int steps = 0; capture.step(0.1) == 0.0 && steps < 1000;) ++steps;
    return script_.now - begin;
  };
  EXPECT_NEAR(secondsToTheEnd(), 30.0, 0.3);
  script_.events.push_back(picture());
  capture.step(0.1);
  EXPECT_NEAR(secondsToTheEnd(), 5.0, 0.3) << "later the connection is given up sooner";
}

TEST_F(CaptureTest, WhatDoesNotComeBackEndsWithItsFirstEnd) {
  CaptureLoop capture = loop(false);
  script_.events.push_back(picture());
  capture.step(0.1);
  Received ended;
  ended.event = Received::Event::Ended;
  script_.events.push_back(ended);
  capture.step(0.1);
  EXPECT_TRUE(capture.report().ended);
  EXPECT_TRUE(capture.slot().closed());
  EXPECT_TRUE(taken(capture)) << "the last picture is still there";
}

TEST_F(CaptureTest, PicturesOfAnotherSizeKeepTheFirstSize) {
  CaptureLoop capture = loop();
  for (const int width : {32, 64, 8}) {
    script_.events.push_back(picture(width, 16));
    capture.step(0.1);
    EXPECT_EQ(taken(capture).value().bgr.size(), cv::Size(32, 16));
  }
  EXPECT_EQ(capture.report().resized, 2);
}

TEST_F(CaptureTest, FrameNumbersGoOnOverAReconnection) {
  CaptureLoop capture = loop();
  script_.events.push_back(picture());
  capture.step(0.1);
  script_.events.push_back(failed());
  capture.step(0.1);
  script_.now += 3.0;
  script_.events.push_back(picture());
  capture.step(0.1);
  const LiveFrame frame = taken(capture).value();
  EXPECT_EQ(frame.index, 1);
  EXPECT_NEAR(frame.time_s, 3.0, 1e-9);
  EXPECT_EQ(capture.report().connections, 2);
}

TEST_F(CaptureTest, WhatTheCameraSaidGoesWithThePictureAndDamagedPacketsAreCounted) {
  CaptureLoop capture = loop();
  klv::CameraState state;
  state.sensorAzimuthDeg = 10.0;
  state.sensorElevationDeg = -5.0;
  state.horizontalFovDeg = 60.0;
  Received received = picture();
  received.picture.streamS = 5.0;
  received.packets.push_back({klv::encode(state), 4.98});
  std::vector<std::uint8_t> bad = klv::encode(state);
  bad.back() = static_cast<std::uint8_t>(bad.back() ^ 1U);
  received.packets.push_back({bad, 4.99});
  script_.events.push_back(received);
  capture.step(0.1);
  const LiveFrame frame = taken(capture).value();
  EXPECT_NEAR(frame.camera.at("pan_deg"), 10.0, 1e-6);
  EXPECT_NEAR(frame.camera.at("hfov_deg"), 60.0, 2e-3);
  EXPECT_EQ(capture.report().packets, 1);
  EXPECT_EQ(capture.report().packetsRefused, 1);
  Received later = picture();
  later.picture.streamS = 5.2;
  script_.events.push_back(later);
  capture.step(0.1);
  EXPECT_TRUE(taken(capture).value().camera.empty()) << "older than 100 ms is missing";
}

TEST_F(CaptureTest, TheLastSecondIsKept) {
  CaptureLoop capture = loop();
  for (int i = 0; i < 60; ++i) {
    script_.events.push_back(picture());
    capture.step(0.1);
    script_.now += 0.0625;
  }
  EXPECT_EQ(capture.past().range(), (std::pair<long, long>(43, 59)));
  EXPECT_FALSE(capture.past().find(42));
  EXPECT_EQ(capture.past().find(50)->index, 50);
  EXPECT_EQ(capture.past().after(57).size(), 2U);
}

TEST_F(CaptureTest, StampsThatJumpAreCountedAndTimeStillGrows) {
  CaptureLoop capture = loop();
  double last = -1;
  for (const double stamp : {5.0, 5.04, 3605.08, 3605.12, 2.0, 2.04}) {
    Received received = picture();
    received.picture.streamS = stamp;
    script_.events.push_back(received);
    capture.step(0.1);
    const double time = taken(capture).value().time_s;
    EXPECT_GT(time, last);
    EXPECT_LT(time - last, 1.1);
    last = time;
    script_.now += 0.04;
  }
  EXPECT_EQ(capture.report().stampJumps, 2);
}

TEST(FaultsOfACapture, AreSentencesOfTheCountersThatAreNotZero) {
  CaptureReport seen;
  seen.connections = 1;
  seen.decoded = 100;
  EXPECT_TRUE(faultsOf(seen).empty());
  seen.connections = 3;
  seen.damaged = 1;
  seen.stampJumps = 4;
  EXPECT_EQ(faultsOf(seen), (std::vector<std::string>{"2 reconnections", "1 damaged or lost packet or picture",
                                                      "4 jumps of its time stamps"}));
}

TEST(FramesToCatchUp, AsManyAsFitIntoHalfASecondAndTheLastAlways) {
  EXPECT_EQ(framesToCatchUp(0, 0.01), std::vector<std::size_t>{});
  EXPECT_EQ(framesToCatchUp(3, 0.01), (std::vector<std::size_t>{0, 1, 2}));
  EXPECT_EQ(framesToCatchUp(20, 0.2), (std::vector<std::size_t>{9, 19}));
  EXPECT_EQ(framesToCatchUp(20, 5.0), (std::vector<std::size_t>{19}));
  EXPECT_EQ(framesToCatchUp(2, 0.0), (std::vector<std::size_t>{0, 1}));
}

}  // namespace
}  // namespace live
