// How a second opinion is weighed against the tracker's box and the target's colours, with one that says what the test
// tells it to say. No network.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <limits>

#include "guard_scene.h"

using csrt_guard::Answer;
using csrt_guard::Guard;
using csrt_guard::Opinion;
using csrt_guard::SecondOpinion;
using csrt_guard::State;
using csrt_guard::Verdict;

namespace {

constexpr int kTurning = 80;  // frames

/// What the scripted opinion says, and what it was asked.
struct Script {
  std::function<std::optional<Opinion>(const cv::Rect& around)> say = [](const cv::Rect&) { return std::nullopt; };
  bool starts = true;
  int started = 0;
  std::vector<cv::Rect> asked;
};

class Scripted : public SecondOpinion {
 public:
  explicit Scripted(std::shared_ptr<Script> script) : script_(std::move(script)) {}
  bool start(const cv::Mat& /*frame*/, const cv::Rect& /*box*/) noexcept override {
    ++script_->started;
    return script_->starts;
  }
  std::optional<Opinion> look(const cv::Mat& /*frame*/, const cv::Rect& around) noexcept override {
    script_->asked.push_back(around);
    return script_->say(around);
  }

 private:
  std::shared_ptr<Script> script_;
};

/// One person walks two pixels a frame; the test says what tracker and opinion say.
class SecondOpinionTest : public testing::Test {
 protected:
  void SetUp() override {
    guard.consult(std::make_unique<Scripted>(script));
    opinionSees();
    ASSERT_TRUE(guard.start(frame(), person));
    ASSERT_EQ(script->started, 1);
    for (int i = 0; i < 12; ++i) ASSERT_EQ(judge({walk(), true}).state, State::Agreed) << verdict.reason;
  }
  cv::Rect walk() {
    person.x += 2;
    return person;
  }
  void opinionSees(double score = 0.6) {
    script->say = [this, score](const cv::Rect&) { return Opinion{person, score}; };
  }
  void opinionIsSilent() {
    script->say = [](const cv::Rect&) { return std::nullopt; };
  }
  cv::Mat frame() const {
    cv::Mat picture = ground.clone();
    if (drawOther) drawPerson(picture, other, otherClothes);
    const cv::Rect stripe(other.x, other.y, other.width, cvRound(other.height * striped));
    if (drawOther && striped > 0.0) cv::rectangle(picture, stripe, cv::Scalar(60, 160, 50), cv::FILLED);
    if (visible) drawPerson(picture, person, kRedBlue);
    const cv::Rect side(person.x, person.y, cvRound(person.width * turned), person.height);
    if (visible && turned > 0.0) cv::rectangle(picture, side, cv::Scalar(60, 200, 220), cv::FILLED);
    return picture;
  }
  /// The target turns: more and more of it is of another colour. @return frames for which its box is called seen
  int framesHeldWhileTurning() {
    for (int i = 0; i < kTurning; ++i) {
      turned = std::min(0.92, 0.03 * i);
      if (!judge({walk(), true}).seen) return i;
    }
    return kTurning;
  }
  Verdict judge(const Answer& answer) { return verdict = guard.judge(frame(), answer); }

  std::shared_ptr<Script> script = std::make_shared<Script>();
  cv::Mat ground = groundOf();
  cv::Rect person = personAt(200, 150);
  cv::Rect other = personAt(420, 150);
  Clothes otherClothes = kGreenWhite;
  bool visible = true;
  bool drawOther = false;
  double striped = 0.0;  ///< Share of the other's clothes, from above, that is of another colour.
  double turned = 0.0;   ///< Share of the target that shows another side.
  Guard guard;
  Verdict verdict;
};

TEST_F(SecondOpinionTest, IsAskedOncePerFrameWhereTheTargetShouldBe) {
  script->asked.clear();
  for (int i = 0; i < 5; ++i) {
    judge({walk(), true});
    const cv::Rect around = script->asked.back();
    EXPECT_LT(std::abs(around.x + around.width / 2 - (person.x + person.width / 2)), 4) << around;
  }
  EXPECT_EQ(script->asked.size(), 5U);
  ASSERT_TRUE(verdict.opinion);
  EXPECT_EQ(verdict.opinion->score, 0.6);
}

TEST_F(SecondOpinionTest, LeavesTheTrackersBoxAloneWhereBothAreTogether) {
  const cv::Rect aLittleOff(walk() + cv::Point(3, 2));
  judge({aLittleOff, true});
  EXPECT_EQ(verdict.state, State::Agreed);
  EXPECT_EQ(verdict.box, aLittleOff);
  EXPECT_FALSE(verdict.restart);
}

TEST_F(SecondOpinionTest, StartsATrackerOverThatIsOffTheTarget) {
  walk();
  judge({personAt(500, 100), true});
  EXPECT_EQ(verdict.state, State::Reacquired);
  EXPECT_TRUE(verdict.restart);
  EXPECT_TRUE(verdict.seen);
  EXPECT_GT(overlapOf(*verdict.box, person), 0.8);
}

TEST_F(SecondOpinionTest, StartsATrackerOverThatSeesNothing) {
  walk();
  judge({});
  EXPECT_EQ(verdict.state, State::Reacquired);
  EXPECT_GT(overlapOf(*verdict.box, person), 0.8);
}

TEST_F(SecondOpinionTest, ColourDecidesWhereTheTwoPart) {
  drawOther = true;
  other = personAt(person.x + 14, 150);  // beside the target, in other clothes
  script->say = [this](const cv::Rect&) { return Opinion{other, 0.9}; };
  for (int i = 0; i < 10; ++i) {
    other.x += 4;
    judge({walk(), true});
    EXPECT_EQ(verdict.state, State::Agreed) << i << verdict.reason;
    EXPECT_EQ(verdict.box, person) << i;
  }
}

TEST_F(SecondOpinionTest, WhereBothShowSomebodyAlikeAnUnsureOneIsHeardOnceItStaysThere) {
  drawOther = true;
  otherClothes = kRedBlue;
  for (const double score : {0.5, 0.6}) {
    opinionSees();
    ASSERT_TRUE(guard.start(frame(), walk()));
    for (int i = 0; i < 5; ++i) judge({walk(), true});
    int frames = 0;
    while (!verdict.restart && frames < 5) {
      walk();
      other = personAt(person.x + 11, 150);
      script->say = [this, score](const cv::Rect&) { return Opinion{other, score}; };
      judge({person, true});
      ++frames;
    }
    EXPECT_EQ(frames, score < 0.55 ? 2 : 1) << verdict.reason;
    EXPECT_GT(overlapOf(*verdict.box, other), 0.8);
  }
}

TEST_F(SecondOpinionTest, ABoxThatJumpsForAFrameStartsNothingOver) {
  drawOther = true;
  otherClothes = kRedBlue;
  for (int i = 0; i < 20; ++i) {
    other = personAt(walk().x + 11, 150);
    script->say = [this, i](const cv::Rect&) { return Opinion{i % 2 == 0 ? other : person, 0.5}; };
    EXPECT_EQ(judge({person, true}).state, State::Agreed) << i << verdict.reason;
    EXPECT_EQ(verdict.box, person) << i;
  }
}

/// Somebody in nearly the same clothes walks along with the target for long enough to be known, or is not there yet.
class AlikeOpinionTest : public SecondOpinionTest {
 protected:
  void walkTogether(bool known, double stripe) {
    otherClothes = kRedBlue;
    striped = stripe;
    person = personAt(60, 150);
    drawOther = known;
    ASSERT_TRUE(guard.start(frame(), person));
    for (int i = 0; i < 60; ++i) {
      other = personAt(walk().x + 30, 150);
      ASSERT_EQ(judge({person, true}).state, State::Agreed) << verdict.reason;
    }
    drawOther = true;
    script->say = [this](const cv::Rect&) { return Opinion{other, 0.6}; };
  }
  /// The opinion goes over to the other; the tracker stays, or goes along. @return frames until more is said than that
  /// the box shows the target; 0: nothing
  int framesUntilHeard(bool along) {
    for (int i = 1; i <= 30; ++i) {
      other = personAt(walk().x + 30, 150);
      if (judge({along ? other : person, true}).state != State::Agreed) return i;
    }
    return 0;
  }
};

TEST_F(AlikeOpinionTest, GoesOverToSomebodyWhoIsNotKnownAndLooksTheSame) {
  ASSERT_NO_FATAL_FAILURE(walkTogether(false, 0.1));
  EXPECT_EQ(framesUntilHeard(false), 1) << verdict.reason;
  EXPECT_TRUE(verdict.restart);
}

TEST_F(AlikeOpinionTest, IsNotHeardWhereItGoesOverToSomebodyKnown) {
  ASSERT_NO_FATAL_FAILURE(walkTogether(true, 0.1));
  EXPECT_EQ(framesUntilHeard(false), 0) << verdict.reason;
}

TEST_F(AlikeOpinionTest, IsNotHeardForSomebodyWhoLooksLessLikeWhatItFollowed) {
  ASSERT_NO_FATAL_FAILURE(walkTogether(false, 0.4));
  EXPECT_EQ(framesUntilHeard(false), 0) << verdict.reason;
}

TEST_F(AlikeOpinionTest, GoingAlongDoesNotSpeakForSomebodyKnown) {
  ASSERT_NO_FATAL_FAILURE(walkTogether(true, 0.3));
  const int frames = framesUntilHeard(true);
  EXPECT_GT(frames, 0);
  EXPECT_LE(frames, 8);
  EXPECT_STREQ(verdict.reason, "the tracker's box looks more like somebody else near the target");
}

/// Somebody in the same clothes comes towards the target and takes the tracker along; the target is hidden.
class TakenBackOpinionTest : public SecondOpinionTest {
 protected:
  void SetUp() override {
    SecondOpinionTest::SetUp();
    drawOther = true;
    otherClothes = kRedBlue;
    other = personAt(person.x + 108, 150);
    while (other.x > person.x + 20) {
      other.x -= 4;
      ASSERT_EQ(judge({walk(), true}).state, State::Agreed) << verdict.reason;
    }
    opinionIsSilent();
    for (int i = 0; i < 40 && verdict.state != State::Searching; ++i) {
      other.x -= 4;
      walk();
      judge({other, true});
    }
    ASSERT_STREQ(verdict.reason, "lost: the tracker's box goes where somebody else was going");
    visible = false;
    for (int i = 0; i < 60 && verdict.state == State::Searching; ++i) judge({other, true});
    ASSERT_STREQ(verdict.reason, "on trial: likely the target");
  }
};

TEST_F(TakenBackOpinionTest, StartsATrackerOverThatIsOnTrial) {
  visible = true;
  person = personAt(other.x + 20, 150);
  opinionSees();
  judge({other, true});
  EXPECT_EQ(verdict.state, State::Reacquired);
  EXPECT_GT(overlapOf(*verdict.box, person), 0.8) << verdict.reason;
  EXPECT_TRUE(verdict.restart) << "the tracker must go where it is said to be";
  EXPECT_FALSE(verdict.seen) << "still on trial";
}

TEST_F(TakenBackOpinionTest, GoesWhereATrackerOnTrialIs) {
  for (int i = 0; i < 8; ++i) {
    other.x -= 4;
    judge({other, true});
    ASSERT_STREQ(verdict.reason, "on trial: likely the target");
  }
  const cv::Rect around = script->asked.back();
  EXPECT_LT(std::abs(around.x - other.x), 14) << "asked at " << around << " with the tracker in " << other;
}

TEST_F(SecondOpinionTest, GoesWhereTheTrackerIsOnceTheColoursSpokeForThat) {
  script->say = [](const cv::Rect&) { return Opinion{personAt(500, 100), 0.9}; };
  for (int i = 0; i < 6; ++i) ASSERT_EQ(judge({walk(), true}).state, State::Agreed);
  const cv::Rect around = script->asked.back();
  EXPECT_LT(std::abs(around.x - person.x), 12) << "asked at " << around << " with the target in " << person;
}

TEST_F(SecondOpinionTest, ABoxThatJumpsIsSomebodyElses) {
  drawOther = true;
  otherClothes = kRedBlue;  // in the same clothes
  other = personAt(person.x + 30, 150);
  visible = false;
  script->say = [this](const cv::Rect&) { return Opinion{other, 0.5}; };
  for (int i = 0; i < 2; ++i) {  // later the colours find it: nothing else is there
    walk();
    other.x += 2;
    EXPECT_FALSE(judge({}).restart) << i << verdict.reason;
  }
}

TEST_F(SecondOpinionTest, UnlessItIsSureOfIt) {
  person.x += 30;
  opinionSees(0.7);
  EXPECT_TRUE(judge({}).restart) << verdict.reason;
  EXPECT_GT(overlapOf(*verdict.box, person), 0.8);
}

TEST_F(SecondOpinionTest, AnUnsureOneIsNotHeard) {
  opinionSees(0.1);
  walk();
  judge({});
  EXPECT_EQ(verdict.state, State::Doubted);
  EXPECT_FALSE(verdict.restart);
}

TEST_F(SecondOpinionTest, AFindThatItConfirmsIsNotOnTrial) {
  visible = false;
  opinionSees(0.1);
  for (int i = 0; i < 40; ++i) judge({});
  visible = true;
  person.x += 200;
  std::size_t askedBefore = 0;
  script->say = [&](const cv::Rect&) {  // what is found is shown to it after it was asked where the target should be
    return Opinion{person, script->asked.size() > askedBefore + 1 ? 0.6 : 0.1};
  };
  for (int i = 0; i < 60 && !verdict.restart; ++i) {
    askedBefore = script->asked.size();
    judge({});
  }
  ASSERT_TRUE(verdict.restart) << verdict.reason;
  EXPECT_STREQ(verdict.reason, "found: likely the target");
  EXPECT_LT(verdict.belief.value(), csrt_guard::Settings().provenFrom) << "by colour alone";
  EXPECT_TRUE(verdict.seen);
  EXPECT_EQ(judge({person, true}).state, State::Agreed);
}

TEST_F(SecondOpinionTest, WaitsWhileTheTargetIsHiddenAndGoesOnWithIt) {
  visible = false;
  opinionSees(0.1);
  for (int i = 0; i < 8; ++i) {
    walk();
    judge({});
    EXPECT_FALSE(verdict.seen) << i;
  }
  EXPECT_EQ(verdict.state, State::Searching);
  visible = true;
  opinionSees(0.6);
  int frames = 0;
  while (!verdict.restart && frames < 10) {
    walk();
    judge({});
    ++frames;
  }
  EXPECT_LE(frames, 3) << verdict.reason;
  EXPECT_EQ(verdict.state, State::Reacquired);
  EXPECT_GT(overlapOf(*verdict.box, person), 0.8);
}

TEST_F(SecondOpinionTest, SpeaksForATargetThatTurnsBeforeItsEyes) {
  EXPECT_EQ(framesHeldWhileTurning(), kTurning) << verdict.reason << " likeness " << verdict.likeness.value_or(-1);
}

TEST_F(SecondOpinionTest, WithoutOneTheSameTurnIsALoss) {
  guard = Guard();
  ASSERT_TRUE(guard.start(frame(), person));
  EXPECT_LT(framesHeldWhileTurning(), kTurning);
}

TEST_F(SecondOpinionTest, ItsBoxGrowsSlowlyAndNotFar) {
  script->say = [this](const cv::Rect&) {
    const cv::Size large(kPerson.width * 6, kPerson.height * 6);
    return Opinion{
        {person.tl() + cv::Point(kPerson.width / 2, kPerson.height / 2) - cv::Point(large.width / 2, large.height / 2),
         large},
        0.9};
  };
  judge({walk(), true});
  ASSERT_TRUE(verdict.opinion);
  EXPECT_LE(verdict.opinion->box.width, kPerson.width * 1.02 + 1);
  for (int i = 0; i < 150; ++i) {
    person.x = 200 + i % 40;
    judge({person, true});
    ASSERT_LE(verdict.opinion->box.width, kPerson.width * 2.2 + 1) << i;
    ASSERT_LE(verdict.opinion->box.height, kPerson.height * 2.2 + 1) << i;
  }
}

TEST_F(SecondOpinionTest, ThatCannotBeStartedOrSaysNothingChangesNothing) {
  for (const bool starts : {false, true}) {
    script->starts = starts;
    opinionIsSilent();
    Guard alone;
    person = personAt(200, 150);
    visible = true;
    ASSERT_TRUE(guard.start(frame(), person));
    ASSERT_TRUE(alone.start(frame(), person));
    for (int i = 0; i < 30; ++i) {
      walk();
      visible = i < 5 || i > 12;
      const Answer answer = i < 5 ? Answer{person, true} : Answer{};
      const Verdict with = judge(answer);
      const Verdict without = alone.judge(frame(), answer);
      if (with.restart || without.restart) break;  // a find is shown to the opinion, which does not see it
      EXPECT_EQ(with.state, without.state) << i;
      EXPECT_EQ(with.box, without.box) << i;
      EXPECT_EQ(with.seen, without.seen) << i;
    }
  }
}

TEST_F(SecondOpinionTest, AnswersThatMakeNoSenseHarmNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const cv::Rect huge(-2000000000, -2000000000, 2000000000, 2000000000);
  int step = 0;
  script->say = [&](const cv::Rect&) {
    const std::array<Opinion, 5> wrong = {
        {{huge, 0.9}, {{0, 0, 0, 0}, 0.9}, {{5, 5, -9, -9}, 0.9}, {person, nan}, {person, 1e9}}};
    return wrong.at(static_cast<std::size_t>(step++) % wrong.size());
  };
  for (int i = 0; i < 40; ++i) {
    walk();
    judge(i % 3 == 0 ? Answer{} : Answer{person, true});
    if (verdict.box) {
      EXPECT_GT(verdict.box->width, 0);
      EXPECT_LT(std::abs(static_cast<double>(verdict.box->x)), 1e5);
    }
  }
}

}  // namespace
