// What a find is worth, by what else is there: arithmetic, no pictures.
#include "rivalry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "place_tracks.h"

using csrt_guard::Evidence;
using csrt_guard::oddsOf;
using csrt_guard::ownDensity;
using csrt_guard::Rivalry;

namespace {

Evidence findAt(double distance, int lost, double margin = 1.0) {
  Evidence find;
  find.margin = margin;
  find.distance = distance;
  find.lost = lost;
  return find;
}

/// Looked around so often, and each time saw so many that look so much like the target.
Rivalry seen(int looks, int rivals, double margin) {
  Rivalry rivalry;
  for (int i = 0; i < looks; ++i) {
    rivalry.looked(25.0);
    for (int j = 0; j < rivals; ++j) rivalry.rival(margin);
  }
  return rivalry;
}

TEST(OddsOf, BelieveAFindWhereTheTargetShouldBe) {
  EXPECT_GT(oddsOf(findAt(0.2, 3), Rivalry()), 10.0);
}

TEST(OddsOf, FallWithTheDistanceAndTheLikeness) {
  EXPECT_LT(oddsOf(findAt(2.0, 3), Rivalry()), oddsOf(findAt(0.2, 3), Rivalry()));
  EXPECT_LT(oddsOf(findAt(0.2, 3, 0.7), Rivalry()), oddsOf(findAt(0.2, 3), Rivalry()));
}

TEST(OddsOf, AFarFindIsLikelierTheLongerTheTargetWasAway) {
  EXPECT_LT(oddsOf(findAt(3.0, 3), Rivalry()), oddsOf(findAt(3.0, 40), Rivalry()));
}

TEST(OddsOf, ManyWhoLookAlikeMakeAFarFindUnlikely) {
  EXPECT_LT(oddsOf(findAt(2.0, 20), seen(30, 3, 1.0)), 0.5);
  EXPECT_GT(oddsOf(findAt(2.0, 20), seen(30, 0, 1.0)), 3.0);
}

TEST(OddsOf, WhoLooksOtherwiseDoesNotMatter) {
  EXPECT_GT(oddsOf(findAt(2.0, 20), seen(30, 3, 0.5)), 3.0);
}

TEST(OddsOf, SomebodyKnownThereIsTheLikelierOne) {
  Evidence find = findAt(0.3, 5);
  const double alone = oddsOf(find, Rivalry());
  find.others = 20.0;
  EXPECT_LT(oddsOf(find, Rivalry()), alone / 20.0);
}

TEST(OddsOf, OneWhoWalksAnotherWayIsLessLikely) {
  Evidence find = findAt(0.5, 5);
  find.speedKnown = true;
  const double sameWay = oddsOf(find, Rivalry());
  find.speedDifference = 0.3;
  EXPECT_LT(oddsOf(find, Rivalry()), sameWay / 10.0);
}

TEST(OddsOf, StayNumbersForAnySpeedAndDistance) {
  for (const double far : {0.0, 1e3, 1e9}) {
    for (const double speed : {0.0, 1.0, 1e9}) {
      Evidence find = findAt(far, 1000000);
      find.speedKnown = true;
      find.speedDifference = speed;
      const double odds = oddsOf(find, seen(3, 2, 5.0));
      EXPECT_TRUE(std::isfinite(odds)) << far << ' ' << speed;
      EXPECT_GE(odds, 0.0);
    }
  }
}

TEST(RivalryDensity, IsThatOfWhatWasSeenAndForgetsSlowly) {
  const Rivalry many = seen(200, 2, 0.9);
  EXPECT_GT(many.density(0.9), 4.0 * many.density(0.6));
  // All margins together: two in 25 square diagonals.
  double sum = 0.0;
  for (double margin = 0.45; margin < 1.1; margin += 0.01) sum += 0.01 * many.density(margin);
  EXPECT_NEAR(sum, 2.0 / 25.0, 0.02);
}

TEST(RivalryDensity, IsThatOfTheStartAgainAfterClearing) {
  Rivalry rivalry = seen(50, 4, 0.9);
  rivalry.clear();
  EXPECT_EQ(rivalry.density(0.9), Rivalry().density(0.9));
}

csrt_guard::Place placeOf(std::size_t colour, int x) {
  csrt_guard::Place place;
  place.box = cv::Rect2d(x, 100, 20, 50);
  place.likeness = 0.9;
  for (csrt_guard::Colours& half : place.look) half.at(colour) = 1.0F;
  return place;
}

TEST(PlaceTracks, WhoLooksLikeTheTargetIsNotTakenForSomebodyKnownWhoDoesNot) {
  for (const double alike : {0.0, 1.0}) {
    csrt_guard::PlaceTracks tracks;
    tracks.update({placeOf(0, 100)}, 1, true);
    tracks.update({placeOf(1, 100)}, 1, false, {}, {alike});
    const auto& all = tracks.all();
    ASSERT_EQ(all.size(), alike > 0.0 ? 2U : 1U) << alike;
    EXPECT_EQ(all.back().other, alike == 0.0) << alike;
  }
}

TEST(PlaceTracks, OneThatIsKnownMeetsTheTargetWhenItShouldBeInAPartOfItsBox) {
  const cv::Rect2d box(112, 100, 20, 50);
  csrt_guard::PlaceTracks tracks;
  tracks.update({placeOf(0, 104)}, 1, true);
  EXPECT_FALSE(tracks.meets(box)) << "found once, it may be anything";
  for (int i = 0; i < 5; ++i) tracks.update({placeOf(0, 104)}, 3, true);
  EXPECT_TRUE(tracks.meets(box));
  EXPECT_FALSE(tracks.meets(cv::Rect2d(122.5, 100, 20, 50))) << "less than a tenth in common";
  tracks.update({}, 12, true);
  EXPECT_TRUE(tracks.meets(box)) << "hidden behind the target";
  tracks.update({}, 1, true);
  EXPECT_FALSE(tracks.meets(box)) << "who knows where it is by now";
}

TEST(PlaceTracks, WhoShouldBeInTheTargetsBoxIsHiddenAndNotFoundBesideIt) {
  for (const int target : {101, 130}) {
    csrt_guard::PlaceTracks tracks;
    for (int i = 0; i < 3; ++i) tracks.updateBeside(cv::Rect2d(300, 100, 20, 50), {placeOf(0, 101)}, 1);
    tracks.updateBeside(cv::Rect2d(target, 100, 20, 50), {placeOf(0, 108)}, 3);
    const bool hidden = target == 101;
    ASSERT_EQ(tracks.all().size(), hidden ? 2U : 1U) << target;
    EXPECT_EQ(tracks.all().front().found, !hidden) << target;
    EXPECT_TRUE(tracks.all().back().other);
  }
}

TEST(PlaceTracks, WhereSomebodyIsInsteadOfTheTargetItMayBeWhatTurnedUpSince) {
  csrt_guard::PlaceTracks tracks;
  for (int i = 0; i < 3; ++i) tracks.update({placeOf(0, 100), placeOf(1, 300)}, 3, true);
  tracks.update({placeOf(1, 300)}, 3, true);                   // the first is hidden
  tracks.update({placeOf(1, 300), placeOf(0, 160)}, 3, true);  // and something turns up
  tracks.isInstead(0, cv::Rect2d(110, 100, 20, 50), 2);
  ASSERT_EQ(tracks.all().size(), 3U);
  EXPECT_TRUE(tracks.all()[0].other);
  EXPECT_EQ(tracks.all()[0].unseen, 0);
  EXPECT_NEAR(tracks.all()[0].box.x, 110, 1) << "stood still";
  EXPECT_TRUE(tracks.all()[1].other) << "was seen beside the target";
  EXPECT_FALSE(tracks.all()[2].other);
}

TEST(PlaceTracks, WhereAllAreTakenWhoWasNotFoundForLongestMakesRoom) {
  csrt_guard::PlaceTracks tracks;
  std::vector<csrt_guard::Place> many;
  for (int i = 0; i < 20; ++i) many.push_back(placeOf(0, 200 * i));
  tracks.update(many, 1, true);
  ASSERT_EQ(tracks.all().size(), 16U);
  tracks.update({placeOf(0, 9000)}, 1, false);
  EXPECT_EQ(tracks.all().size(), 16U);
  EXPECT_TRUE(tracks.all().back().found);
  EXPECT_FALSE(tracks.all().back().other);
}

}  // namespace
