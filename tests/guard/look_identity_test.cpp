// Who is who, by looks alone: arithmetic, no pictures.
#include "identity.h"

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <utility>

#include "discriminant.h"

using csrt_guard::Discriminant;
using csrt_guard::HalfColours;
using csrt_guard::Identity;

namespace {

/// Both halves have these shares of these colours.
HalfColours lookOf(std::initializer_list<std::pair<std::size_t, float>> shares) {
  HalfColours look{};
  for (csrt_guard::Colours& half : look) {
    for (const auto& [colour, share] : shares) half.at(colour) = share;
  }
  return look;
}

/// Two who have nearly all in common: a fifth of their colours is another.
HalfColours target(float more = 0.0F) {
  return lookOf({{0, 0.4F + more}, {1, 0.4F - more}, {2, 0.2F}});
}
HalfColours other(float more = 0.0F) {
  return lookOf({{0, 0.4F + more}, {1, 0.4F - more}, {3, 0.2F}});
}

/// What both share varies from look to look, as if light and shade went over them.
float shade(int i) {
  return 0.05F * static_cast<float>(i % 5 - 2);
}

TEST(Discriminant, SaysNothingBeforeSixLooksOfBothWereSeen) {
  Discriminant kinds;
  for (int i = 0; i < 6; ++i) kinds.target(target());
  for (int i = 0; i < 5; ++i) kinds.other(other());
  EXPECT_FALSE(kinds.of(target()).has_value());
  kinds.other(other());
  EXPECT_TRUE(kinds.of(target()).has_value());
  kinds.clear();
  EXPECT_FALSE(kinds.of(target()).has_value());
}

TEST(Discriminant, IsOneForTheTargetAndMinusOneForOthers) {
  Discriminant kinds;
  for (int i = 0; i < 30; ++i) {
    kinds.target(target(shade(i)));
    kinds.other(other(shade(i)));
  }
  EXPECT_NEAR(kinds.of(target()).value(), 1.0, 0.05);
  EXPECT_NEAR(kinds.of(other()).value(), -1.0, 0.05);
}

TEST(Discriminant, HeedsWhatStaysTheSameRatherThanWhatVaries) {
  // The target is in the sun more often, the other in the shade: their means differ there most, but either may be in
  // both.
  Discriminant kinds;
  for (int i = 0; i < 60; ++i) {
    kinds.target(lookOf({{0, i % 3 == 0 ? 0.1F : 0.7F}, {1, i % 3 == 0 ? 0.7F : 0.1F}, {2, 0.2F}}));
    kinds.other(lookOf({{0, i % 3 == 0 ? 0.7F : 0.1F}, {1, i % 3 == 0 ? 0.1F : 0.7F}, {3, 0.2F}}));
  }
  EXPECT_GT(kinds.of(lookOf({{0, 0.1F}, {1, 0.7F}, {2, 0.2F}})).value(), 0.3) << "the target in the shade";
  EXPECT_LT(kinds.of(lookOf({{0, 0.7F}, {1, 0.1F}, {3, 0.2F}})).value(), -0.3) << "the other in the sun";
}

TEST(Discriminant, SaysNothingOfTwoThatLookTheSame) {
  Discriminant kinds;
  for (int i = 0; i < 10; ++i) {
    kinds.target(target());
    kinds.other(target());
  }
  EXPECT_FALSE(kinds.of(target()).has_value());
}

TEST(Discriminant, StaysANumberForAnyLook) {
  Discriminant kinds;
  for (int i = 0; i < 10; ++i) {
    kinds.target(HalfColours{});
    kinds.other(lookOf({{0, 1.0F}}));
  }
  for (const HalfColours& look : {HalfColours{}, lookOf({{0, 1.0F}}), lookOf({{23, 1.0F}})}) {
    EXPECT_TRUE(std::isfinite(kinds.of(look).value()));
  }
}

/// Followed long enough to know both.
Identity known() {
  Identity identity;
  identity.start(target());
  for (int i = 0; i < 20; ++i) {
    identity.followed(target(shade(i)));
    identity.learn(target(shade(i)));
    identity.learnOther(other(shade(i)));
  }
  return identity;
}

TEST(Identity, WeighsNothingBeforeItKnowsOthers) {
  Identity identity;
  identity.start(target());
  EXPECT_EQ(identity.logFactorOf(other()), 0.0);
}

TEST(Identity, AFindThatLooksLikeTheTargetIsLikelierAndOneLikeOthersLessSo) {
  Identity identity = known();
  EXPECT_GT(identity.logFactorOf(target()), std::log(5.0));
  EXPECT_LT(identity.logFactorOf(other()), std::log(0.1));
}

TEST(Identity, ALookIsNoProof) {
  Identity identity = known();
  const HalfColours farther = lookOf({{0, 0.4F}, {3, 0.6F}});
  EXPECT_GE(identity.logFactorOf(farther), -4.0);
  EXPECT_LE(identity.logFactorOf(lookOf({{0, 0.4F}, {2, 0.6F}})), 3.0);
}

TEST(Identity, BoxesThatShowSomebodyElseForAWhileAreNotTheTarget) {
  Identity identity = known();
  identity.followed(other());
  EXPECT_FALSE(identity.looksLikeOther()) << "one frame is nothing";
  for (int i = 0; i < 40; ++i) identity.followed(other());
  EXPECT_TRUE(identity.looksLikeOther());
}

TEST(Identity, BoxesThatShowTheTargetStayIt) {
  Identity identity = known();
  for (int i = 0; i < 40; ++i) identity.followed(target(shade(i)));
  EXPECT_FALSE(identity.looksLikeOther());
}

TEST(Identity, DoesNotLearnSomebodyElseAsTheTarget) {
  Identity identity = known();
  for (int i = 0; i < 200; ++i) {
    identity.followed(other());
    identity.learn(other());
  }
  EXPECT_LT(identity.logFactorOf(other()), std::log(0.1));
}

TEST(Identity, LearnsNothingForTenFramesWhileTwoOverlap) {
  Identity identity = known();
  const double before = identity.logFactorOf(other());
  identity.meets();
  for (int i = 0; i < 9; ++i) {
    identity.followed(target());
    identity.learn(lookOf({{5, 1.0F}}));
    identity.learnOther(target());
  }
  EXPECT_EQ(identity.logFactorOf(other()), before);
  identity.followed(target());
  identity.learnOther(lookOf({{5, 1.0F}}));
  EXPECT_NE(identity.logFactorOf(other()), before);
}

TEST(Identity, WhatBoxesShowedBeforeAMeetingSaysNothingAfterIt) {
  Identity identity = known();
  for (int i = 0; i < 40; ++i) identity.followed(other());
  ASSERT_TRUE(identity.looksLikeOther());
  identity.meets();
  EXPECT_FALSE(identity.looksLikeOther());
  for (int i = 0; i < 3; ++i) identity.followed(other());
  EXPECT_TRUE(identity.looksLikeOther());
  identity.meets();  // the meeting goes on
  EXPECT_TRUE(identity.looksLikeOther());
  identity.again();
  EXPECT_FALSE(identity.looksLikeOther());
}

}  // namespace
