// When a signal is lost, when to connect again, how old a picture is: with given times, without a clock.
#include "live/capture_rules.h"

#include <gtest/gtest.h>

#include <cmath>

#include "live/newest_slot.h"

namespace live {
namespace {

const double kNotSaid = std::nan("");

TEST(LossWatch, SaysNothingBeforeTheFirstFrame) {
  LossWatch watch;
  EXPECT_FALSE(watch.due(100.0));
  EXPECT_FALSE(watch.lost());
}

TEST(LossWatch, SaysALossAfterASecondAndThenEverySecond) {
  LossWatch watch;
  watch.frameCame(10.0);
  EXPECT_FALSE(watch.due(10.99));
  ASSERT_TRUE(watch.due(11.0));
  EXPECT_TRUE(watch.lost());
  EXPECT_FALSE(watch.due(11.5));
  EXPECT_DOUBLE_EQ(watch.due(12.1).value(), 2.1);
  EXPECT_FALSE(watch.due(12.9));
  EXPECT_TRUE(watch.due(20.0)) << "what was missed in between is not said later";
  EXPECT_FALSE(watch.due(20.5));
  EXPECT_TRUE(watch.due(21.0));
}

TEST(LossWatch, AFrameEndsTheLoss) {
  LossWatch watch;
  watch.frameCame(0.0);
  ASSERT_TRUE(watch.due(1.5));
  watch.frameCame(1.6);
  EXPECT_FALSE(watch.lost());
  EXPECT_FALSE(watch.due(2.5));
  EXPECT_TRUE(watch.due(2.6));
}

TEST(ReconnectPlan, PausesDoubleUpToTheLongest) {
  ReconnectPlan plan;
  EXPECT_DOUBLE_EQ(plan.failed(false), 0.1);
  EXPECT_DOUBLE_EQ(plan.failed(false), 0.2);
  EXPECT_DOUBLE_EQ(plan.failed(false), 0.4);
  for (int i = 0; i < 100; ++i) EXPECT_DOUBLE_EQ(plan.failed(false), 0.8);
  plan.succeeded();
  EXPECT_DOUBLE_EQ(plan.failed(false), 0.1);
}

TEST(ReconnectPlan, ARefusedPasswordWaitsLonger) {
  ReconnectPlan plan;
  EXPECT_DOUBLE_EQ(plan.failed(true), 10.0);
}

TEST(CaptureTimeOf, BelievesTheSendersClockWhereItIsPlausible) {
  const CaptureTime time = captureTime(50.0, 1000.0, 0.01, 999.9);
  EXPECT_TRUE(time.senderClock);
  EXPECT_NEAR(time.at, 49.9, 1e-9);
}

TEST(CaptureTimeOf, AClockThatIsWrongCountsForNothing) {
  for (const double sent : {1000.1, 1e9, 989.0, 0.0, -5.0, std::nan("")}) {
    const CaptureTime time = captureTime(50.0, 1000.0, 0.02, sent);
    EXPECT_FALSE(time.senderClock) << sent;
    EXPECT_NEAR(time.at, 49.98, 1e-9) << sent;
  }
  EXPECT_TRUE(captureTime(50.0, 1000.0, 0.0, 1000.03).senderClock) << "two set clocks differ a little";
  EXPECT_DOUBLE_EQ(captureTime(50.0, 1000.0, 0.0, 1000.03).at, 50.0) << "but no frame is of the future";
}

TEST(CaptureTimeOf, NonsenseAboutTheTimeHeldIsNoAge) {
  EXPECT_DOUBLE_EQ(captureTime(50.0, 1000.0, -3.0, kNotSaid).at, 50.0);
  EXPECT_DOUBLE_EQ(captureTime(50.0, 1000.0, std::nan(""), kNotSaid).at, 50.0);
  EXPECT_DOUBLE_EQ(captureTime(50.0, 1000.0, 1e9, kNotSaid).at, 40.0);
}

TEST(RunTimeOf, BeginsAtZeroAndAlwaysGrows) {
  RunTime time;
  EXPECT_DOUBLE_EQ(time.of(100.0), 0.0);
  EXPECT_DOUBLE_EQ(time.of(100.04), 0.04000000000000625);
  EXPECT_NEAR(time.of(99.0), 0.041, 1e-9) << "a time stamp that goes back";
  EXPECT_EQ(time.corrected(), 1);
  EXPECT_NEAR(time.of(100.0), 0.042, 1e-9);
  EXPECT_NEAR(time.of(101.0), 1.0, 1e-9) << "and finds its way again";
  EXPECT_EQ(time.corrected(), 1) << "it went back once";
}

TEST(RunTimeOf, FramesOfOneMomentAreNotCountedAsGoingBack) {
  RunTime time;
  for (int i = 0; i < 20; ++i) EXPECT_NEAR(time.of(100.0 + i * 1e-5), i * RunTime::kLeastStepS, 1e-9);
  EXPECT_EQ(time.corrected(), 0);
}

TEST(StampWatchOf, CountsStampsThatJumpOrGoBack) {
  StampWatch stamps;
  stamps.picture(10.0, 100.0);
  stamps.picture(10.04, 100.04);
  stamps.picture(10.08, 100.9);  // the network held it up
  stamps.picture(std::nan(""), 101.0);
  EXPECT_EQ(stamps.jumps(), 0);
  stamps.picture(3610.2, 101.1);
  EXPECT_EQ(stamps.jumps(), 1) << "ahead";
  stamps.picture(3610.24, 101.14);
  EXPECT_EQ(stamps.jumps(), 1) << "once";
  stamps.picture(3610.2, 101.18);
  EXPECT_EQ(stamps.jumps(), 2) << "back";
  stamps.picture(3610.24, 110.0);
  EXPECT_EQ(stamps.jumps(), 3) << "it stood still";
  stamps.restart();
  stamps.picture(5.0, 110.1);
  EXPECT_EQ(stamps.jumps(), 3) << "another connection";
}

TEST(NewestSlotOf, GivesTheNewestOnceAndCountsTheRest) {
  NewestSlot<int> slot;
  slot.put(1);
  slot.put(2);
  slot.put(3);
  EXPECT_EQ(slot.take(std::chrono::seconds(0)), 3);
  EXPECT_EQ(slot.take(std::chrono::seconds(0)), std::nullopt);
  EXPECT_EQ(slot.dropped(), 2);
}

TEST(NewestSlotOf, ClosingEndsTheWaitAndKeepsTheLast) {
  NewestSlot<int> slot;
  slot.put(7);
  slot.close();
  EXPECT_EQ(slot.take(std::chrono::hours(1)), 7);
  EXPECT_EQ(slot.take(std::chrono::hours(1)), std::nullopt);
}

}  // namespace
}  // namespace live
