// Whether somebody took the tracker along, by where the target and he were going: arithmetic, no pictures.
#include "takeover.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using csrt_guard::HalfColours;
using csrt_guard::PlaceTrack;
using csrt_guard::Takeover;
using csrt_guard::TargetMotion;

namespace {

constexpr int kFrames = 4;

HalfColours lookOf(std::size_t colour) {
  HalfColours look{};
  for (csrt_guard::Colours& half : look) half.at(colour) = 1.0F;
  return look;
}

cv::Rect2d boxAt(double x) {
  return {x, 100, 30, 40};  // a diagonal of 50
}

/// The target goes right by 4 pixels a frame and meets somebody who goes left by 4.
class TakeoverTest : public testing::Test {
 protected:
  void SetUp() override {
    motion.start(boxAt(0));
    for (int i = 1; i <= 60; ++i) motion.see(boxAt(4.0 * i));
    x = 240;
    other.box = boxAt(x);
    other.velocity = {-4, 0};
    other.looks = 10;
    other.other = true;
  }

  /// One frame: the other is hidden and goes on, and the tracker's box moves by so much.
  std::optional<Takeover::Before> step(double boxMoves, int frames = kFrames) {
    takeover.followed(motion, lookOf(0));
    x += boxMoves;
    if (hidden) {
      ++other.unseen;
      other.box += other.velocity;
    }
    return takeover.noticed(boxAt(x), shown, {other}, 0, frames);
  }
  /// The frame in which it is noticed; -1: never.
  int noticedAfter(double boxMoves, int most = 20, int frames = kFrames) {
    for (int i = 1; i <= most; ++i) {
      if ((before = step(boxMoves, frames))) return i;
    }
    return -1;
  }

  Takeover takeover;
  TargetMotion motion;
  PlaceTrack other;
  HalfColours shown = lookOf(1);
  bool hidden = true;
  double x = 0;
  std::optional<Takeover::Before> before;

  TakeoverTest() { other.look = lookOf(1); }
};

TEST_F(TakeoverTest, IsNoticedWhenTheBoxGoesWhereTheOtherWasGoing) {
  const int frame = noticedAfter(-4);
  ASSERT_GT(frame, 0);
  EXPECT_LT(frame, 15);
  EXPECT_EQ(before->motion.lost(), frame) << "since he was last found beside it";
  EXPECT_NEAR(before->motion.box().x, 240 + 4 * frame, 0.3 * 4 * frame) << "where the target was going";
  EXPECT_EQ(before->look, lookOf(0));
}

TEST_F(TakeoverTest, IsNoneWhenTheBoxGoesWhereTheTargetWasGoing) {
  EXPECT_EQ(noticedAfter(4), -1);
}

TEST_F(TakeoverTest, IsNoneWhereTheTargetStopsAndTheOtherGoesOn) {
  EXPECT_EQ(noticedAfter(0, 40), -1) << "the box is farther from the other than from the target";
}

TEST_F(TakeoverTest, IsNoneWhileTheOtherIsFoundBesideTheBox) {
  hidden = false;
  EXPECT_EQ(noticedAfter(-4), -1);
}

TEST_F(TakeoverTest, IsNoneWhenTheBoxShowsSomebodyWhoLooksOtherwise) {
  shown = lookOf(0);
  EXPECT_EQ(noticedAfter(-4), -1);
}

TEST_F(TakeoverTest, IsNoneWhenBothGoTheSameWay) {
  other.velocity = {4, 0};
  EXPECT_EQ(noticedAfter(4), -1);
}

TEST_F(TakeoverTest, IsNoneWhereTheBoxIsAboutAsFarFromBoth) {
  motion.start(boxAt(240));  // who stands, as the other does, 1.1 diagonals beside
  other.box = boxAt(295);
  other.velocity = {};
  step(31);  // 0.62 from the one and 0.48 from the other
  EXPECT_EQ(noticedAfter(0, 20, 1), -1);
  step(5);  // 0.72 and 0.38
  EXPECT_EQ(noticedAfter(0, 20, 1), 1);
}

TEST_F(TakeoverTest, NeedsSomebodyWhoWasNotFoundForAWhile) {
  motion.start(boxAt(0));  // far from the box, which is on the other
  for (int i = 1; i <= 5; ++i) EXPECT_FALSE(step(-4, 1)) << i;
  EXPECT_TRUE(step(-4, 1));
}

TEST_F(TakeoverTest, NeedsSomebodyWhoseWayIsKnown) {
  other.looks = 2;
  EXPECT_EQ(noticedAfter(-4), -1);
  takeover.clear();
  SetUp();
  other.other = false;  // it may be the target itself
  EXPECT_EQ(noticedAfter(-4), -1);
}

TEST_F(TakeoverTest, NeedsSoManyFramesInARow) {
  const int first = noticedAfter(-4, 20, 1);
  ASSERT_GT(first, 0);
  takeover.clear();
  SetUp();
  other.unseen = 0;
  EXPECT_EQ(noticedAfter(-4), first + kFrames - 1);
  takeover.clear();
  SetUp();
  other.unseen = 0;
  EXPECT_EQ(noticedAfter(-4, 20, 0), -1) << "0: never";
}

TEST_F(TakeoverTest, SaysNothingOfTheTimeBeforeItWasCleared) {
  for (int i = 0; i < 5; ++i) step(-4);
  takeover.clear();
  EXPECT_EQ(noticedAfter(-4), -1) << "he was lost sight of before";
}

TEST_F(TakeoverTest, CountsTheFramesSinceTheOthersWereLookedFor) {
  const auto noticedWith = [](int behind) {
    Takeover fresh;
    TargetMotion goes;
    goes.start(boxAt(0));
    for (int i = 1; i <= 60; ++i) goes.see(boxAt(4.0 * i));
    PlaceTrack there;
    there.look = lookOf(1);
    there.velocity = {-4, 0};
    there.looks = 10;
    there.other = true;
    for (int i = 1; i <= 30; ++i) {
      fresh.followed(goes, lookOf(0));
      goes.stay(boxAt(240 - 4 * i));
      there.unseen = i - behind;
      there.box = boxAt(240 - 4 * (i - behind));
      if (i >= behind && fresh.noticed(boxAt(240 - 4 * i), lookOf(1), {there}, behind, kFrames)) return i;
    }
    return -1;
  };
  EXPECT_GT(noticedWith(0), 0);
  EXPECT_EQ(noticedWith(2), noticedWith(0));
}

}  // namespace
