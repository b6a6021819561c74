// How many frames a second are worked through, with given times.
#include "run/frame_rate.h"

#include <gtest/gtest.h>

namespace host {
namespace {

TEST(FrameRate, IsNothingBeforeTheSecondFrame) {
  FrameRate rate;
  EXPECT_EQ(rate.at(1.0), 0.0);
  rate.add(10.0);
  EXPECT_EQ(rate.at(10.0), 0.0);
  EXPECT_EQ(rate.at(12.0), 0.0);
}

TEST(FrameRate, IsRightFromTheBeginningOn) {
  FrameRate rate;
  for (int i = 0; i <= 10; ++i) rate.add(100.0 + i * 0.25);
  EXPECT_DOUBLE_EQ(rate.at(102.5), 4.0);
}

TEST(FrameRate, ForgetsWhatIsLongAgo) {
  FrameRate rate(2.0);
  for (int i = 0; i <= 400; ++i) rate.add(i * 0.25);
  EXPECT_DOUBLE_EQ(rate.at(100.0), 4.0);
  for (int i = 1; i <= 8; ++i) rate.add(100.0 + i * 1.0);
  EXPECT_DOUBLE_EQ(rate.at(108.0), 1.0) << "the camera became slower";
}

TEST(FrameRate, FallsToNothingWhenFramesStopComing) {
  FrameRate rate(2.0);
  for (int i = 0; i <= 40; ++i) rate.add(i * 0.25);
  EXPECT_DOUBLE_EQ(rate.at(11.0), 2.0) << "half of the interval is empty";
  EXPECT_EQ(rate.at(12.5), 0.0);
}

}  // namespace
}  // namespace host
