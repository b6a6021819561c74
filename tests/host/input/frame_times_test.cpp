// When a frame was taken: what time stamps give, and what is done where there are none.
#include "input/frame_times.h"

#include <gtest/gtest.h>

#include <limits>

namespace host {
namespace {

std::vector<double> timesOf(FrameTimes times, const std::vector<double>& stamps_s) {
  std::vector<double> all;
  for (const double stamp : stamps_s) all.push_back(times.next(stamp));
  return all;
}

void expectTimes(const std::vector<double>& found, const std::vector<double>& expected) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i) EXPECT_NEAR(found[i], expected[i], 1e-9) << "frame " << i;
}

TEST(FrameTimes, AreTheStampsSinceTheFirstFrame) {
  expectTimes(timesOf({25.0, true}, {0, 0.1, 0.5, 0.54}), {0, 0.1, 0.5, 0.54});
  expectTimes(timesOf({25.0, true}, {1.4, 1.5, 1.9}), {0, 0.1, 0.5});
}

TEST(FrameTimes, TheLastFramesWithoutAStampGoOnAsTheOnesBefore) {
  expectTimes(timesOf({10.0, true}, {0, 0.1, 0.2, 0.24, 0.28, 0, 0}), {0, 0.1, 0.2, 0.24, 0.28, 0.32, 0.36});
}

TEST(FrameTimes, WithoutStampsTheRateCounts) {
  expectTimes(timesOf({10.0, true}, {0, 0, 0, 0}), {0, 0.1, 0.2, 0.3});
  const double far = -7686143364045.6;  // what readers answer for raw streams
  expectTimes(timesOf({10.0, true}, {far, far + 0.04, far + 0.08}), {0, 0.1, 0.2});
  const double nan = std::numeric_limits<double>::quiet_NaN();
  expectTimes(timesOf({10.0, true}, {nan, nan}), {0, 0.1});
  expectTimes(timesOf({10.0, false}, {0, 0.04, 0.08}), {0, 0.1, 0.2});
}

TEST(FrameTimes, AStampThatGoesBackDoesNotTurnTheTimeBack) {
  expectTimes(timesOf({10.0, true}, {0, 0.1, 0.2, 0.05, 0.15, 0.5}), {0, 0.1, 0.2, 0.3, 0.4, 0.5});
}

TEST(Rate, IsBelievedFromOneToAThousand) {
  for (const double fps : {1.0, 23.976, 25.0, 240.0, 1000.0}) EXPECT_TRUE(isBelievableRate(fps)) << fps;
  for (const double fps : {0.0, -25.0, 0.5, 1001.0, 90000.0, 1.2e6, std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(isBelievableRate(fps)) << fps;
  }
}

TEST(Rate, FollowsFromTimeStamps) {
  EXPECT_NEAR(rateOf({0, 0.1, 0.2, 0.3}).value_or(0), 10.0, 1e-9);
  EXPECT_NEAR(rateOf({5.0, 5.04, 5.12}).value_or(0), 2 / 0.12, 1e-9);
  EXPECT_FALSE(rateOf({0}));
  EXPECT_FALSE(rateOf({0, 0, 0}));
  EXPECT_FALSE(rateOf({0, 0.2, 0.1}));
  EXPECT_FALSE(rateOf({0, 1e-5, 2e-5})) << "a hundred thousand frames per second";
  EXPECT_FALSE(rateOf({-7e12, -7e12 + 1}));
}

}  // namespace
}  // namespace host
