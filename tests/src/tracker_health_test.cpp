// The monitor that declares a track failed: stuck at the border, jumping, too fast. Its time is the test's.
#include "csrt_tracker_health.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace {

const cv::Size kFrame(1000, 1000);  // one pixel is a thousandth

class OpenHealth : public CsrtTrackerHealth {
 public:
  using CsrtTrackerHealth::CsrtTrackerHealth;
  using CsrtTrackerHealth::edgeMarginNorm_;
  using CsrtTrackerHealth::edgeSince_;
  using CsrtTrackerHealth::edgeTimeSec_;
  using CsrtTrackerHealth::failed_;
  using CsrtTrackerHealth::jumpCount_;
  using CsrtTrackerHealth::lastCenter_;
  using CsrtTrackerHealth::lastTime_;
  using CsrtTrackerHealth::maxJumpCount_;
  using CsrtTrackerHealth::maxJumpNorm_;
  using CsrtTrackerHealth::maxSpeedCount_;
  using CsrtTrackerHealth::maxSpeedNorm_;
  using CsrtTrackerHealth::nowSec_;
  using CsrtTrackerHealth::speedCount_;
};

class TrackerHealth : public ::testing::Test {
 protected:
  /// Looks at a box of 20 x 20 around (x, y) at the given time.
  bool look(int x, int y, double at) {
    now = at;
    return health.update({x - 10, y - 10, 20, 20}, kFrame);
  }

  double now = 0.0;
  OpenHealth health{[this] { return now; }};
};

}  // namespace

TEST_F(TrackerHealth, StartsWithItsFixedLimits) {
  EXPECT_FLOAT_EQ(health.edgeMarginNorm_, 0.05F);
  EXPECT_FLOAT_EQ(health.edgeTimeSec_, 0.8F);
  EXPECT_FLOAT_EQ(health.maxJumpNorm_, 0.35F);
  EXPECT_EQ(health.maxJumpCount_, 3);
  EXPECT_FLOAT_EQ(health.maxSpeedNorm_, 2.0F);
  EXPECT_EQ(health.maxSpeedCount_, 2);
  EXPECT_FALSE(health.failed_);
  EXPECT_EQ(health.reason(), "");
  EXPECT_EQ(health.edgeSince_, 0.0);
  EXPECT_EQ(health.lastCenter_, cv::Point2f(-1.0F, -1.0F));
  EXPECT_EQ(health.lastTime_, 0.0);
}

TEST_F(TrackerHealth, FailsAfterMoreThanTheAllowedTimeAtTheBorder) {
  EXPECT_FALSE(look(20, 500, 10.0));
  EXPECT_FALSE(look(20, 500, 10.0 + 0.8)) << "as long as allowed is not too long";
  EXPECT_TRUE(look(20, 500, 10.9));
  EXPECT_EQ(health.reason(), "bbox collée au bord");
}

TEST_F(TrackerHealth, ForgetsTheBorderAsSoonAsTheCentreLeavesIt) {
  EXPECT_FALSE(look(20, 500, 10.0));
  EXPECT_FALSE(look(100, 500, 10.5));
  EXPECT_EQ(health.edgeSince_, 0.0);
  EXPECT_FALSE(look(20, 500, 11.0));
  EXPECT_FALSE(look(20, 500, 11.7));
}

TEST_F(TrackerHealth, KnowsAllFourBordersByTheCentre) {
  for (const cv::Point& at : {cv::Point(49, 500), cv::Point(951, 500), cv::Point(500, 49), cv::Point(500, 951)}) {
    health.reset();
    EXPECT_FALSE(look(at.x, at.y, 10.0));
    EXPECT_EQ(health.edgeSince_, 10.0) << at;
  }
  for (const cv::Point& at : {cv::Point(51, 500), cv::Point(949, 500), cv::Point(500, 51), cv::Point(500, 949)}) {
    health.reset();
    EXPECT_FALSE(look(at.x, at.y, 10.0));
    EXPECT_EQ(health.edgeSince_, 0.0) << at;
  }
}

TEST_F(TrackerHealth, TakesACentreExactlyOnALimitAsAwayFromTheBorder) {
  for (const cv::Point& at : {cv::Point(50, 500), cv::Point(950, 500), cv::Point(500, 50), cv::Point(500, 950)}) {
    health.reset();
    EXPECT_FALSE(look(at.x, at.y, 10.0));
    EXPECT_EQ(health.edgeSince_, 0.0) << at;
  }
}

TEST_F(TrackerHealth, FailsOnTheThirdJumpInARow) {
  EXPECT_FALSE(look(100, 500, 10.0));
  EXPECT_FALSE(look(500, 500, 11.0));
  EXPECT_FALSE(look(100, 500, 12.0));
  EXPECT_TRUE(look(500, 500, 13.0));
  EXPECT_EQ(health.reason(), "sauts successifs trop importants");
}

TEST_F(TrackerHealth, StartsCountingJumpsAgainAfterASmallStep) {
  EXPECT_FALSE(look(100, 500, 10.0));
  EXPECT_FALSE(look(500, 500, 11.0));
  EXPECT_FALSE(look(100, 500, 12.0));
  EXPECT_FALSE(look(150, 500, 13.0));
  EXPECT_EQ(health.jumpCount_, 0);
  EXPECT_FALSE(look(550, 500, 14.0));
  EXPECT_FALSE(look(150, 500, 15.0));
}

TEST_F(TrackerHealth, TakesAStepOfExactlyTheLimitAsNoJump) {
  health.maxJumpNorm_ = 0.25F;  // exact in binary
  now = 10.0;
  EXPECT_FALSE(health.update({246, 502, 20, 20}, {1024, 1024}));
  now = 11.0;
  EXPECT_FALSE(health.update({502, 502, 20, 20}, {1024, 1024}));
  EXPECT_EQ(health.jumpCount_, 0);
}

TEST_F(TrackerHealth, FailsOnTheSecondStepInARowThatIsTooFast) {
  EXPECT_FALSE(look(300, 500, 10.0));
  EXPECT_FALSE(look(500, 500, 10.0625));  // 3.2 frames per second
  EXPECT_EQ(health.speedCount_, 1);
  EXPECT_TRUE(look(300, 500, 10.125));
  EXPECT_EQ(health.reason(), "vitesse tracking irréaliste");
}

TEST_F(TrackerHealth, StartsCountingSpeedAgainAfterASlowStep) {
  EXPECT_FALSE(look(300, 500, 10.0));
  EXPECT_FALSE(look(500, 500, 10.0625));
  EXPECT_FALSE(look(510, 500, 10.125));
  EXPECT_EQ(health.speedCount_, 0);
  EXPECT_FALSE(look(310, 500, 10.1875));
}

TEST_F(TrackerHealth, TakesExactlyTheSpeedLimitAsSlowEnough) {
  now = 10.0;
  EXPECT_FALSE(health.update({246, 502, 20, 20}, {1024, 1024}));
  now = 10.125;  // a quarter of the frame in an eighth of a second
  EXPECT_FALSE(health.update({502, 502, 20, 20}, {1024, 1024}));
  EXPECT_EQ(health.speedCount_, 0);
}

TEST_F(TrackerHealth, CountsAtLeastAMicrosecondBetweenTwoLooks) {
  EXPECT_FALSE(look(500, 500, 10.0));
  now = 10.0;  // the clock did not move: 1e-6 s, and 2e-6 of the frame in that time is exactly at the limit
  EXPECT_FALSE(health.update({490, 490, 20, 20}, kFrame));
  EXPECT_EQ(health.speedCount_, 0);
  EXPECT_FALSE(look(501, 500, 10.0));
  EXPECT_EQ(health.speedCount_, 1);
}

TEST_F(TrackerHealth, JudgesNeitherJumpNorSpeedOnTheFirstLook) {
  EXPECT_FALSE(look(100, 500, 10.0));
  health.reset();
  EXPECT_FALSE(look(900, 500, 10.001));
  EXPECT_EQ(health.jumpCount_, 0);
  EXPECT_EQ(health.speedCount_, 0);
}

TEST_F(TrackerHealth, RecordsNothingOfAFailingLook) {
  EXPECT_FALSE(look(300, 500, 10.0));
  EXPECT_FALSE(look(500, 500, 10.0625));
  EXPECT_TRUE(look(300, 500, 10.125));
  EXPECT_EQ(health.lastCenter_, cv::Point2f(0.5F, 0.5F));
  EXPECT_EQ(health.lastTime_, 10.0625);
}

TEST_F(TrackerHealth, StaysFailedUntilReset) {
  look(20, 500, 10.0);
  EXPECT_TRUE(look(20, 500, 11.0));
  EXPECT_TRUE(look(500, 500, 12.0));
  EXPECT_EQ(health.lastTime_, 10.0) << "a failed monitor looks at nothing";
  health.reset();
  EXPECT_EQ(health.reason(), "");
  EXPECT_EQ(health.edgeSince_, 0.0);
  EXPECT_FALSE(look(500, 500, 13.0));
}

TEST_F(TrackerHealth, IgnoresABoxOrAFrameWithoutArea) {
  now = 10.0;
  EXPECT_FALSE(health.update({10, 10, 0, 20}, kFrame));
  EXPECT_FALSE(health.update({10, 10, 20, 20}, {0, 1000}));
  EXPECT_EQ(health.lastTime_, 0.0);
  EXPECT_EQ(health.edgeSince_, 0.0);
}

TEST_F(TrackerHealth, JudgesNoJumpFromACentreOutsideTheFrame) {
  EXPECT_FALSE(look(-20, 500, 10.0));
  EXPECT_FALSE(look(900, 500, 10.1));
  EXPECT_EQ(health.jumpCount_, 0);
}

TEST(TrackerHealthClock, ReadsAMonotonicClockByDefault) {
  const OpenHealth health;
  const double before = health.nowSec_();
  EXPECT_GE(health.nowSec_(), before);
  EXPECT_GT(before, 0.0);
}
