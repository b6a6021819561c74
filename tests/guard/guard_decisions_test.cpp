// Each rule of the guard on drawn frames: agree, doubt, search, accept, lookalikes kept apart, and bad input.
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "guard_scene.h"

using csrt_guard::Answer;
using csrt_guard::Guard;
using csrt_guard::State;
using csrt_guard::Verdict;

namespace {

/// Of a person whose box this would be, but for the legs.
cv::Rect shorter(const cv::Rect& box) {
  return {box.x, box.y, box.width, box.height * 3 / 4};
}

/// One person walks; the test says what the tracker answers.
class GuardTest : public testing::Test {
 protected:
  void SetUp() override {
    cv::Mat first = frame();
    ASSERT_TRUE(guard.start(first, person));
    for (int i = 0; i < 12; ++i) ASSERT_EQ(judge({walk(), true}).state, State::Agreed);
  }
  cv::Rect walk() {
    person.x += 2;
    return person;
  }
  cv::Mat frame() const {
    cv::Mat picture = ground.clone();
    if (drawOther) drawPerson(picture, other, otherClothes);
    if (visible) drawPerson(picture, person, kRedBlue);
    return picture;
  }
  Verdict judge(const Answer& answer) { return verdict = guard.judge(frame(), answer); }
  /// Frames until the guard asks for a start, without any answer of the tracker; -1: not within `most`.
  int framesToRestart(int most) {
    for (int i = 1; i <= most; ++i) {
      walk();
      if (judge({}).restart) return i;
    }
    return -1;
  }

  cv::Mat ground = groundOf();
  cv::Rect person = personAt(200, 150);
  cv::Rect other = personAt(420, 150);
  Clothes otherClothes = kGreenWhite;
  bool visible = true;
  bool drawOther = false;
  Guard guard;
  Verdict verdict;
};

TEST_F(GuardTest, PassesOnABoxThatShowsTheTarget) {
  judge({walk(), true});
  EXPECT_EQ(verdict.state, State::Agreed);
  EXPECT_TRUE(verdict.seen);
  EXPECT_FALSE(verdict.restart);
  EXPECT_EQ(verdict.box, person);
  EXPECT_GT(verdict.likeness.value(), verdict.around.value());
}

TEST_F(GuardTest, CallsABoxOnTheGroundNoLongerSeenAtOnceAndStartsOverOnTheTarget) {
  const cv::Rect stuck = personAt(330, 150);
  walk();
  judge({stuck, true});
  EXPECT_EQ(verdict.state, State::Doubted);
  EXPECT_FALSE(verdict.seen);
  int restart = -1;
  for (int i = 0; i < 10 && restart < 0; ++i) {
    walk();
    if (judge({stuck, true}).restart) restart = i;
  }
  ASSERT_GE(restart, 0) << verdict.reason;
  EXPECT_EQ(verdict.state, State::Reacquired);
  EXPECT_GT(overlapOf(*verdict.box, person), 0.5);
}

TEST_F(GuardTest, WaitsOutDoubtsThatPass) {
  const cv::Rect wrong = personAt(330, 150);
  walk();
  EXPECT_EQ(judge({wrong, true}).state, State::Doubted);
  walk();
  EXPECT_EQ(judge({wrong, true}).state, State::Doubted);
  EXPECT_EQ(judge({walk(), true}).state, State::Agreed);
}

TEST_F(GuardTest, FindsTheTargetThatTheTrackerDoesNotSee) {
  EXPECT_GT(framesToRestart(10), 0) << verdict.reason;
  EXPECT_GT(overlapOf(*verdict.box, person), 0.5);
}

TEST_F(GuardTest, FindsTheTargetWhereItComesBack) {
  visible = false;
  EXPECT_EQ(framesToRestart(20), -1);
  EXPECT_EQ(verdict.state, State::Searching);
  visible = true;
  person.x += 40;
  EXPECT_GT(framesToRestart(20), 0) << verdict.reason;
  EXPECT_GT(overlapOf(*verdict.box, person), 0.5);
}

TEST_F(GuardTest, ReportsNothingWhenTheTargetIsGoneForLong) {
  visible = false;
  EXPECT_EQ(framesToRestart(40), -1);
  EXPECT_FALSE(verdict.box.has_value());
  EXPECT_FALSE(verdict.seen);
  EXPECT_GT(verdict.framesLost, 30);
}

TEST_F(GuardTest, DoesNotTakeAPersonInOtherClothesForTheTarget) {
  visible = false;
  drawOther = true;
  other = personAt(person.x + 40, person.y);
  EXPECT_EQ(framesToRestart(40), -1) << verdict.reason;
}

TEST_F(GuardTest, DoesNotTakeALookalikeForTheTargetThatWasThereBefore) {
  drawOther = true;
  otherClothes = kRedBlue;
  other = personAt(person.x + 80, person.y + 20);
  for (int i = 0; i < 9; ++i) ASSERT_EQ(judge({person, true}).state, State::Agreed);
  visible = false;
  for (int i = 0; i < 12; ++i) EXPECT_FALSE(judge({}).restart) << i;
}

TEST_F(GuardTest, WaitsWhereTwoMayBeTheTarget) {
  visible = false;
  for (int i = 0; i < 8; ++i) judge({});
  const cv::Rect there = walk();
  const int apart = 2 * kPerson.width;
  otherClothes = kRedBlue;
  visible = drawOther = true;
  for (int i = 0; i < 12; ++i) {
    person = there + cv::Point(-apart, 0);
    other = there + cv::Point(apart, 0);
    EXPECT_FALSE(judge({}).restart) << i;
    EXPECT_EQ(verdict.state, State::Searching);
    EXPECT_FALSE(verdict.seen);
  }
  EXPECT_LT(verdict.belief.value(), 0.75);
}

TEST_F(GuardTest, ReportsTheTrackersOwnBoxAsAPredictionWhileItSearches) {
  visible = false;
  const cv::Rect stuck = personAt(330, 150);
  for (int i = 0; i < 20; ++i) judge({stuck, true});
  EXPECT_EQ(verdict.state, State::Searching);
  EXPECT_EQ(verdict.box, stuck);
  EXPECT_FALSE(verdict.seen);
  judge({stuck, false});
  EXPECT_FALSE(verdict.box.has_value()) << "the tracker does not claim it either, and it looks like the ground";
}

TEST_F(GuardTest, StartsATrackerOverOnItsOwnBoxThatItNoLongerClaims) {
  drawOther = true;
  otherClothes = kRedBlue;
  int frames = 0;
  do {
    walk();
    other = person + cv::Point(40, 0);
    judge({person + cv::Point(3, 2), false});
  } while (!verdict.restart && ++frames < 60);
  ASSERT_TRUE(verdict.restart) << verdict.reason;
  EXPECT_EQ(verdict.box, person + cv::Point(3, 2)) << "the box itself, rather than a place near it";
}

TEST_F(GuardTest, AFindThatIsLessSureMustHoldForLonger) {
  const auto restartAfter = [&](int away) {
    Guard fresh;
    const cv::Rect start = personAt(200, 150);
    cv::Mat first = ground.clone();
    drawPerson(first, start, kRedBlue);
    EXPECT_TRUE(fresh.start(first, start));
    for (int i = 0; i < 12; ++i) fresh.judge(first, {start, true});
    for (int i = 0; i < 20; ++i) fresh.judge(ground, {});
    cv::Mat back = ground.clone();
    drawPerson(back, personAt(start.x + away, start.y), kRedBlue);
    for (int i = 1; i < 60; ++i) {
      if ((verdict = fresh.judge(back, {})).restart) return i;
    }
    return 1000;
  };
  EXPECT_LE(restartAfter(40), 3);
  EXPECT_GE(restartAfter(240), 5);
  EXPECT_GE(restartAfter(300), 10);
  EXPECT_LT(restartAfter(300), 60) << "alone, it is taken in the end";
}

/// The target comes back so far from where it should be that a find of it is not sure.
class TrialTest : public GuardTest {
 protected:
  void findUnsure() {
    visible = false;
    ASSERT_EQ(framesToRestart(20), -1);
    visible = true;
    person.x += 200;
    ASSERT_GT(framesToRestart(60), 0) << verdict.reason;
    ASSERT_EQ(verdict.state, State::Reacquired);
    ASSERT_LT(verdict.belief.value(), settings.provenFrom);
    belief = verdict.belief.value();
  }
  /// Frames from now on in which the tracker's box is on the target and the find is on trial.
  int framesOnTrial() {
    for (int i = 0; i < 60; ++i) {
      judge({person, true});
      if (verdict.seen) return i;
      EXPECT_EQ(verdict.state, State::Reacquired) << i;
      EXPECT_EQ(verdict.box, person) << i;
      EXPECT_FALSE(verdict.restart) << i;
      EXPECT_EQ(verdict.belief, belief) << i;
    }
    return 60;
  }

  csrt_guard::Settings settings;
  double belief = 0.0;
};

TEST_F(TrialTest, AFindThatIsNotSureIsOnTrialUntilItWasAgreedOnForLong) {
  findUnsure();
  EXPECT_FALSE(verdict.seen);
  EXPECT_EQ(framesOnTrial(), settings.trialFrames);
  EXPECT_EQ(verdict.state, State::Agreed);
  judge({walk(), true});
  EXPECT_TRUE(verdict.seen) << "the trial is over for good";
}

TEST_F(TrialTest, ASureFindIsSeenAtOnce) {
  ASSERT_GT(framesToRestart(10), 0) << "it was there all the time";
  EXPECT_GE(verdict.belief.value(), settings.provenFrom);
  EXPECT_TRUE(verdict.seen);
  judge({person, true});
  EXPECT_EQ(verdict.state, State::Agreed);
  EXPECT_TRUE(verdict.seen);
}

TEST_F(TrialTest, DoubtfulFramesDoNotCount) {
  findUnsure();
  for (int i = 0; i < 5; ++i) judge({person, true});
  for (int i = 0; i < 2; ++i) EXPECT_EQ(judge({personAt(20, 20), true}).state, State::Doubted);
  EXPECT_EQ(framesOnTrial(), settings.trialFrames - 5);
}

TEST_F(TrialTest, EndsWithALoss) {
  findUnsure();
  for (int i = 0; i < settings.doubtFrames; ++i) judge({personAt(20, 20), true});
  ASSERT_EQ(verdict.state, State::Searching);
  int frames = 0;
  while (!judge({person, true}).seen && frames < 10) ++frames;
  EXPECT_LT(frames, 10) << "the tracker itself is on the target again";
  EXPECT_EQ(judge({person, true}).state, State::Agreed);
}

TEST_F(TrialTest, EndsWithANewStart) {
  findUnsure();
  ASSERT_TRUE(guard.start(frame(), person));
  judge({person, true});
  EXPECT_EQ(verdict.state, State::Agreed);
  EXPECT_TRUE(verdict.seen);
}

TEST_F(TrialTest, ThereIsNoneOfNoFrames) {
  settings.trialFrames = 0;
  guard = Guard(settings);
  SetUp();
  findUnsure();
  EXPECT_TRUE(verdict.seen);
  judge({person, true});
  EXPECT_EQ(verdict.state, State::Agreed);
  EXPECT_TRUE(verdict.seen);
}

/// Something hides a part of the target and stays, while somebody dressed alike turns up beside it.
class DisputedGuardTest : public GuardTest {
 protected:
  /// Frames until the guard starts the tracker over on that other; -1: not within `most`.
  int framesToTheOther(bool trackerClaims, int most, const cv::Point& away = {60, 0}) {
    for (int i = 1; i <= most; ++i) {
      walk();
      cv::Mat picture = ground.clone();
      drawPerson(picture, person, kRedBlue);
      cv::rectangle(picture, cv::Rect(person.x, person.y + 30, person.width, 30), cv::Scalar(60, 160, 50), cv::FILLED);
      drawPerson(picture, person + away, kRedBlue);
      verdict = guard.judge(picture, trackerClaims ? Answer{person, true} : Answer{});
      if (verdict.restart) return i;
    }
    return -1;
  }
};

TEST_F(GuardTest, PassesOnAsAPredictionWhatLooksALittleLikeTheTargetAndIsNotClaimed) {
  for (int i = 0; i < 20; ++i) {
    walk();
    cv::Mat picture = frame();
    cv::rectangle(picture, cv::Rect(person.x, person.y + 30, person.width, 30), cv::Scalar(60, 160, 50), cv::FILLED);
    verdict = guard.judge(picture, {person, false});
  }
  EXPECT_EQ(verdict.state, State::Searching);
  EXPECT_EQ(verdict.box, person);
  EXPECT_FALSE(verdict.seen);
}

TEST_F(DisputedGuardTest, TakesTheOtherSoonWhereTheTrackerClaimsNothing) {
  const int frames = framesToTheOther(false, 60);
  EXPECT_GT(frames, 0) << verdict.reason;
  EXPECT_LT(frames, 15);
}

TEST_F(DisputedGuardTest, WaitsLongerWhereTheTrackerClaimsToSeeItWhereItShouldBe) {
  EXPECT_EQ(framesToTheOther(true, 25), -1) << "whatever hides the target may pass";
  EXPECT_EQ(verdict.state, State::Searching);
  EXPECT_GT(framesToTheOther(true, 60), 0) << verdict.reason;
}

TEST_F(DisputedGuardTest, WaitsForSomebodyWhoCoversAPartOfTheTrackersBoxToo) {
  const cv::Point nearer(0, 36);  // 0.4 of a box is common
  EXPECT_EQ(framesToTheOther(true, 25, nearer), -1) << "it may be who passes in front";
}

TEST_F(GuardTest, DoubtsATrackerThatChangesOverToSomebodyKnownWhoLooksALittleOtherwise) {
  drawOther = true;
  otherClothes = kRedBlue;
  cv::Rect there = personAt(person.x + 100, person.y);
  for (int i = 0; i < 45; ++i) {
    there.x += 2;
    other = shorter(there);
    ASSERT_EQ(judge({walk(), true}).state, State::Agreed) << verdict.reason;
  }
  visible = false;
  for (int i = 1; i < 30 && verdict.seen; ++i) {
    there.x += 2;
    other = shorter(there);
    judge({there, true});
  }
  EXPECT_EQ(verdict.state, State::Doubted) << "likeness " << *verdict.likeness << " of " << *verdict.usual;
  EXPECT_STREQ(verdict.reason, "the tracker's box looks more like somebody else near the target");
  EXPECT_GT((*verdict.likeness - *verdict.around) / (*verdict.usual - *verdict.around), 0.6)
      << "by that alone it agreed";
}

TEST_F(GuardTest, AfterAMeetingDoubtsSoonerATrackerThatWentOnWithTheOther) {
  drawOther = true;
  otherClothes = kRedBlue;
  cv::Rect there = personAt(person.x + 120, person.y);
  for (int i = 0; i < 45; ++i) {  // they walk side by side
    there.x += 2;
    other = shorter(there);
    ASSERT_EQ(judge({walk(), true}).state, State::Agreed) << verdict.reason;
  }
  while (there.x > person.x + 12) {  // and meet
    there.x -= 4;
    other = shorter(there);
    judge({person, true});
  }
  visible = false;
  int frames = 0;
  do {
    there.x += 2;
    other = shorter(there);
    ++frames;
  } while (judge({there, true}).seen && frames < 30);
  EXPECT_LT(frames, 8) << "what boxes showed before they met says nothing any more";
}

/// Somebody in the same clothes comes towards the target, so many pixels a frame, and passes it.
class TakeoverGuardTest : public GuardTest, public testing::WithParamInterface<int> {
 protected:
  void SetUp() override {
    GuardTest::SetUp();
    ASSERT_NO_FATAL_FAILURE(meet());
  }
  void meet() {
    drawOther = true;
    otherClothes = kRedBlue;
    other = personAt(person.x + 24 + 14 * (2 + GetParam()), person.y);
    while (other.x > person.x + 20) {
      other.x -= GetParam();
      ASSERT_EQ(judge({walk(), true}).state, State::Agreed) << verdict.reason;
    }
  }
  const Verdict& step(bool onTheOther) {
    other.x -= GetParam();
    walk();
    judge({onTheOther ? other : person, true});
    return verdict;
  }
  /// The tracker goes with the other until the guard notices it.
  void goWithTheOther() {
    int frames = 0;
    while (step(true).state == State::Agreed && frames < 40) ++frames;
    ASSERT_EQ(verdict.state, State::Searching) << "after " << frames;
  }
};

TEST_P(TakeoverGuardTest, FindsTheTargetAgainThatTheTrackerLeftForSomebodyAlike) {
  ASSERT_NO_FATAL_FAILURE(goWithTheOther());
  EXPECT_STREQ(verdict.reason, "lost: the tracker's box goes where somebody else was going");
  EXPECT_FALSE(verdict.seen);
  EXPECT_GT(overlapOf(verdict.box.value(), person), 0.25) << "predicted where the target was going";
  for (int i = 0; i < 12 && !verdict.restart; ++i) step(true);
  ASSERT_TRUE(verdict.restart) << verdict.reason;
  EXPECT_GT(overlapOf(*verdict.box, person), 0.5);
}

TEST_P(TakeoverGuardTest, DoesNotHeedWhatTheTrackerClaimsThatWasTakenAlong) {
  ASSERT_NO_FATAL_FAILURE(goWithTheOther());
  person.x = other.x + 50;  // within a diagonal, where the tracker's word would count
  for (int i = 0; i < 12 && !verdict.restart; ++i) judge({other, true});
  ASSERT_TRUE(verdict.restart) << verdict.reason;
  EXPECT_GT(overlapOf(*verdict.box, person), 0.5);
}

TEST_P(TakeoverGuardTest, TakesItBackWhereTheTargetIsNotFound) {
  ASSERT_NO_FATAL_FAILURE(goWithTheOther());
  visible = false;
  const csrt_guard::Settings settings;
  int frames = 0;
  while (judge({other, true}).state == State::Searching && frames < 60) ++frames;
  EXPECT_GE(frames, 8) << "the target may be hidden for a moment";
  EXPECT_LE(frames, settings.predictFrames);
  EXPECT_EQ(verdict.state, State::Reacquired) << verdict.reason;
  EXPECT_FALSE(verdict.restart) << "the tracker is there";
  EXPECT_FALSE(verdict.belief.has_value()) << "nothing was found";
  int onTrial = 1;
  while (!judge({other, true}).seen && onTrial < 60) ++onTrial;
  EXPECT_EQ(onTrial, settings.trialFrames);
  EXPECT_EQ(verdict.box, other);
  EXPECT_EQ(verdict.state, State::Agreed);
}

TEST_P(TakeoverGuardTest, TakesItBackWithoutTheBeliefOfAnEarlierFind) {
  drawOther = false;
  person = personAt(200, 150);
  ASSERT_TRUE(guard.start(frame(), person));
  for (int i = 0; i < 12; ++i) judge({walk(), true});
  ASSERT_GT(framesToRestart(10), 0) << verdict.reason;
  ASSERT_TRUE(verdict.belief.has_value());
  for (int i = 0; i < 40; ++i) judge({walk(), true});
  ASSERT_EQ(verdict.state, State::Agreed) << verdict.reason;
  ASSERT_NO_FATAL_FAILURE(meet());
  ASSERT_NO_FATAL_FAILURE(goWithTheOther());
  visible = false;
  for (int i = 0; i < 60 && verdict.state == State::Searching; ++i) judge({other, true});
  ASSERT_EQ(verdict.state, State::Reacquired) << verdict.reason;
  EXPECT_FALSE(verdict.belief.has_value());
}

TEST_P(TakeoverGuardTest, DoesNotTakeItBackForABoxThatLooksOnlyALittleLikeTheTarget) {
  ASSERT_NO_FATAL_FAILURE(goWithTheOther());
  visible = drawOther = false;
  for (int i = 0; i < 30; ++i) {
    cv::Mat picture = frame();
    drawPerson(picture, other, kRedBlue);
    cv::rectangle(picture, cv::Rect(other.x, other.y + 30, other.width, 30), cv::Scalar(60, 160, 50), cv::FILLED);
    EXPECT_FALSE(guard.judge(picture, {other, true}).seen) << i;
    EXPECT_EQ((verdict = guard.judge(picture, {other, true})).state, State::Searching) << i << verdict.reason;
  }
}

TEST_P(TakeoverGuardTest, SaysNothingOfItWhileTheCameraTurns) {
  const cv::Mat wide = groundOf({1600, 360});
  for (int i = 1; i < 30; ++i) {
    ground = wide(cv::Rect(std::min(960, 12 * i), 0, 640, 360));
    ASSERT_NE(step(true).state, State::Searching) << "where anybody goes in the picture, the camera says";
  }
}

TEST_P(TakeoverGuardTest, StaysWithATrackerThatStaysOnTheTarget) {
  for (int i = 0; i < 40; ++i) ASSERT_EQ(step(false).state, State::Agreed) << verdict.reason << ", frame " << i;
}

INSTANTIATE_TEST_SUITE_P(Speeds, TakeoverGuardTest, testing::Values(4, 6));

TEST_F(GuardTest, BelievesAFindLessThatLooksLikeSomebodyKnown) {
  drawOther = true;
  otherClothes = kRedBlue;
  other = shorter(personAt(person.x + 100, person.y));
  for (int i = 0; i < 45; ++i) {
    other.x += 2;
    ASSERT_EQ(judge({walk(), true}).state, State::Agreed) << verdict.reason;
  }
  visible = drawOther = false;
  for (int i = 0; i < 60; ++i) judge({});  // nobody remembers where the other was
  drawOther = true;
  other = shorter(person);
  judge({});
  EXPECT_GT(verdict.belief.value(), 0.0);
  EXPECT_LT(verdict.belief.value(), 0.2) << "0.27 by likeness and place alone";
}

TEST_F(GuardTest, DoesNotTakeAPartOfTheTargetForSomebodyElse) {
  drawOther = true;
  otherClothes = kRedBlue;
  for (int i = 0; i < 20; ++i) {  // the target is wider than the box: more of it is beside
    walk();
    other = person + cv::Point(20, 0);
    ASSERT_EQ(judge({person, true}).state, State::Agreed) << verdict.reason;
  }
  visible = drawOther = false;
  for (int i = 0; i < 4; ++i) judge({});
  drawOther = true;
  int frames = 0;
  while (!judge({}).restart && frames < 60) ++frames;
  EXPECT_LT(frames, 6) << verdict.reason;
}

TEST_F(GuardTest, KeepsLookingForTheSizeThatTheTargetHad) {
  for (int i = 1; i <= 10; ++i) {  // the tracker's box shrinks, and stays on the target
    const cv::Rect box = walk();
    const cv::Size small(box.width - i, box.height - 3 * i);
    judge({cv::Rect(box.tl() + cv::Point(i / 2, 3 * i / 2), small), true});
  }
  EXPECT_GT(framesToRestart(10), 0) << verdict.reason;
  EXPECT_GT(overlapOf(*verdict.box, person), 0.5);
}

TEST_F(GuardTest, SaysHowLikelyAFindIs) {
  ASSERT_GT(framesToRestart(10), 0) << verdict.reason;
  EXPECT_GE(verdict.belief.value(), 0.75);
  EXPECT_LE(verdict.belief.value(), 1.0);
}

TEST_F(GuardTest, SaysTheSameEveryTime) {
  Guard again;
  GuardTest::person = personAt(200, 150);
  ASSERT_TRUE(guard.start(frame(), person));
  ASSERT_TRUE(again.start(frame(), person));
  for (int i = 0; i < 30; ++i) {
    walk();
    const Answer answer = i % 7 < 4 ? Answer{person, true} : Answer{};
    const Verdict one = guard.judge(frame(), answer);
    const Verdict two = again.judge(frame(), answer);
    EXPECT_EQ(one.state, two.state);
    EXPECT_EQ(one.box, two.box);
    EXPECT_EQ(one.likeness, two.likeness);
    EXPECT_STREQ(one.reason, two.reason);
  }
}

TEST_F(GuardTest, PassesOnWhatItCannotJudge) {
  for (const cv::Mat& none : {cv::Mat(), cv::Mat(4, 4, CV_32FC3), cv::Mat(4, 4, CV_8UC2)}) {
    const Verdict passed = guard.judge(none, {personAt(5, 5), true});
    EXPECT_EQ(passed.state, State::Unguarded);
    EXPECT_TRUE(passed.seen);
    EXPECT_FALSE(passed.restart);
    EXPECT_EQ(passed.box, personAt(5, 5));
    EXPECT_NE(std::string(passed.reason), "");
  }
}

TEST_F(GuardTest, SurvivesFramesThatChangeTheirSize) {
  for (const cv::Size& size : {cv::Size(320, 180), cv::Size(1, 1), cv::Size(1280, 720), cv::Size(5, 700)}) {
    const cv::Mat picture = groundOf(size);
    for (int i = 0; i < 6; ++i) EXPECT_FALSE(guard.judge(picture, {}).restart);
    guard.judge(picture, {person, true});
  }
}

TEST_F(GuardTest, SurvivesBoxesThatAreNone) {
  constexpr int kMost = std::numeric_limits<int>::max();
  for (const cv::Rect& box : {cv::Rect(), cv::Rect(-5, -5, -3, 4), cv::Rect(kMost, kMost, kMost, kMost),
                              cv::Rect(-kMost, 0, 10, 10), cv::Rect(5000, 5000, 20, 20), cv::Rect(0, 0, 640, 360)}) {
    EXPECT_NO_THROW(judge({box, true}));
  }
}

TEST(GuardStart, RefusesWhatShowsNothing) {
  Guard guard;
  const cv::Mat ground = groundOf();
  EXPECT_FALSE(guard.start(cv::Mat(), personAt(10, 10)));
  EXPECT_FALSE(guard.start(ground, {}));
  EXPECT_FALSE(guard.start(ground, {5000, 10, 20, 60}));
  EXPECT_EQ(guard.judge(ground, {personAt(10, 10), true}).state, State::Unguarded);
}

TEST(GuardStart, DoesNotJudgeATargetThatLooksLikeItsSurroundings) {
  Guard guard;
  const cv::Mat ground = cv::Mat(360, 640, CV_8UC3, cv::Scalar(110, 120, 115));
  guard.start(ground, personAt(200, 150));
  for (int i = 0; i < 30; ++i) {
    const Verdict verdict = guard.judge(ground, {personAt(200 + 10 * i, 150), true});
    EXPECT_EQ(verdict.state, State::Unguarded);
    EXPECT_TRUE(verdict.seen);
  }
}

TEST(GuardStart, TakesATargetAsLargeAsTheFrameAndOneOfSixPixels) {
  cv::Mat frame = groundOf();
  drawPerson(frame, {300, 150, 6, 6}, kRedBlue);
  for (const cv::Rect& box : {cv::Rect(0, 0, 640, 360), cv::Rect(300, 150, 6, 6)}) {
    Guard guard;
    guard.start(frame, box);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(guard.judge(frame, {box, true}).box, box);
    for (int i = 0; i < 8; ++i) EXPECT_NO_THROW(guard.judge(frame, {}));
  }
}

TEST(GuardGrey, JudgesAGreyPictureByItsBrightness) {
  Guard guard;
  cv::Rect person = personAt(200, 150);
  const Clothes hot{{235, 235, 235}, {200, 200, 200}};
  const auto grey = [&](bool visible) {
    cv::Mat picture = groundOf();
    if (visible) drawPerson(picture, person, hot);
    cv::Mat one;
    cv::cvtColor(picture, one, cv::COLOR_BGR2GRAY);
    return one;
  };
  ASSERT_TRUE(guard.start(grey(true), person));
  for (int i = 0; i < 10; ++i) {
    person.x += 2;
    ASSERT_EQ(guard.judge(grey(true), {person, true}).state, State::Agreed);
  }
  for (int i = 0; i < 10; ++i) EXPECT_FALSE(guard.judge(grey(false), {person, true}).seen);
  bool found = false;
  for (int i = 0; i < 10 && !found; ++i) found = guard.judge(grey(true), {}).restart;
  EXPECT_TRUE(found);
}

}  // namespace
