// What a bad cable, a camera at night or a wrong start does to the guard: it says why it does not judge, and reports
// nothing worse than the tracker does without it.
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>

#include "guard_scene.h"

using csrt_guard::Answer;
using csrt_guard::Guard;
using csrt_guard::State;
using csrt_guard::Verdict;

namespace {

cv::Mat grey(const cv::Mat& bgr) {
  cv::Mat one;
  cv::cvtColor(bgr, one, cv::COLOR_BGR2GRAY);
  return one;
}

cv::Mat greyOfThree(const cv::Mat& bgr) {
  cv::Mat three;
  cv::cvtColor(grey(bgr), three, cv::COLOR_GRAY2BGR);
  return three;
}

cv::Mat greyOfFour(const cv::Mat& bgr) {
  cv::Mat four;
  cv::cvtColor(grey(bgr), four, cv::COLOR_GRAY2BGRA);
  return four;
}

/// As a compressed grey picture comes back: the channels differ by a level here and there.
cv::Mat greyAndNoise(const cv::Mat& bgr) {
  cv::Mat noise(bgr.size(), CV_8UC3);
  cv::RNG random(3);
  random.fill(noise, cv::RNG::UNIFORM, 0, 2);
  return greyOfThree(bgr) + noise;
}

using Change = std::function<cv::Mat(const cv::Mat&)>;

/// One walks, and the tracker is on it throughout.
class GuardBadInput : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(guard.start(frame(), person));
    ASSERT_TRUE(agrees(12));
  }
  cv::Mat frame() const {
    cv::Mat picture = ground.clone();
    drawPerson(picture, person, kRedBlue);
    return picture;
  }
  Verdict step() {
    person.x += 2;
    return guard.judge(frame(), {person, true});
  }
  /// The frames are as they were, and the guard is of one mind with the tracker again.
  testing::AssertionResult agrees(int frames) {
    for (int i = 0; i < frames; ++i) {
      const Verdict verdict = step();
      if (verdict.state != State::Agreed || verdict.box != person) {
        return testing::AssertionFailure() << name(verdict.state) << ": " << verdict.reason;
      }
    }
    return testing::AssertionSuccess();
  }
  /// Such frames are not judged: each answer is passed on as it is, with a reason that says so.
  void expectPassedOn(const cv::Mat& picture, const char* word) {
    for (const Answer& answer : {Answer{person, true}, Answer{person, false}, Answer{}}) {
      const Verdict verdict = guard.judge(picture, answer);
      EXPECT_EQ(verdict.state, State::Unguarded);
      EXPECT_EQ(verdict.box, answer.box);
      EXPECT_EQ(verdict.seen, answer.seen);
      EXPECT_FALSE(verdict.restart);
      EXPECT_NE(std::string(verdict.reason).find(word), std::string::npos) << verdict.reason;
    }
  }

  cv::Mat ground = groundOf();
  cv::Rect person = personAt(200, 150);
  Guard guard;
};

TEST_F(GuardBadInput, FramesThatVanishArePassedOnAndJudgedAgainWhenTheyComeBack) {
  for (int i = 0; i < 8; ++i) {
    person.x += 2;
    expectPassedOn(cv::Mat(), "no picture");
  }
  EXPECT_TRUE(agrees(5));
}

TEST_F(GuardBadInput, FramesOfAnotherSizeArePassedOnAndJudgedAgainWhenTheyComeBack) {
  for (const cv::Size& size : {cv::Size(320, 180), cv::Size(1280, 720), cv::Size(1, 1), cv::Size(5, 700)}) {
    cv::Mat picture;
    cv::resize(frame(), picture, size);
    for (int i = 0; i < 4; ++i) expectPassedOn(picture, "size");
  }
  EXPECT_TRUE(agrees(5));
}

TEST_F(GuardBadInput, FramesThatLoseTheirColourArePassedOnAndJudgedAgainWhenItComesBack) {
  for (const Change& change : {Change(grey), Change(greyOfThree), Change(greyOfFour), Change(greyAndNoise)}) {
    for (int i = 0; i < 4; ++i) expectPassedOn(change(frame()), "colour");
    EXPECT_TRUE(agrees(5));
  }
}

TEST_F(GuardBadInput, ABlackFrameIsNoPictureThatLostItsColour) {
  for (int level : {0, 16, 255}) {
    const cv::Mat black(frame().size(), CV_8UC3, cv::Scalar::all(level));
    EXPECT_FALSE(guard.judge(black, {person, true}).seen) << level;
  }
}

TEST_F(GuardBadInput, PicturesOfOtherKindsArePassedOn) {
  for (const int type : {CV_16UC3, CV_32FC3, CV_64FC1, CV_8SC3, CV_8UC2}) {
    expectPassedOn(cv::Mat(frame().size(), type, cv::Scalar::all(1)), "8 bits");
    EXPECT_FALSE(Guard().start(cv::Mat(frame().size(), type, cv::Scalar::all(1)), person));
  }
  const int three[] = {4, 64, 64};
  expectPassedOn(cv::Mat(3, three, CV_8U, cv::Scalar(7)), "8 bits");
  EXPECT_TRUE(agrees(5));
}

TEST_F(GuardBadInput, ABoxOutsideThePictureIsNotCalledSeen) {
  for (const cv::Rect& box : {cv::Rect(700, 150, 24, 60), cv::Rect(-24, 150, 24, 60), cv::Rect(200, -90, 24, 60),
                              cv::Rect(200, 5000, 24, 60)}) {
    EXPECT_FALSE(guard.judge(frame(), {box, true}).seen) << box;
    EXPECT_TRUE(agrees(5)) << box;
  }
}

TEST_F(GuardBadInput, ALostTargetIsStillFoundAfterFramesThatCouldNotBeJudged) {
  for (int i = 0; i < 6; ++i) guard.judge(ground, {});
  guard.judge(cv::Mat(), {});
  guard.judge(greyOfThree(ground), {});
  guard.judge(cv::Mat(100, 100, CV_8UC3, cv::Scalar(9, 99, 9)), {});
  bool found = false;
  cv::Rect place;
  for (int i = 0; i < 20 && !found; ++i) {
    const Verdict verdict = guard.judge(frame(), {});
    found = verdict.restart;
    if (found) place = *verdict.box;
  }
  EXPECT_TRUE(found);
  EXPECT_GT(overlapOf(place, person), 0.5);
}

TEST(GuardColourless, SaysWhetherThereIsColourToJudgeBy) {
  const cv::Rect person = personAt(200, 150);
  cv::Mat picture = groundOf();
  drawPerson(picture, person, {{235, 235, 235}, {20, 20, 20}});
  Guard guard;
  EXPECT_FALSE(guard.colourless());
  for (const Change& change : {Change(grey), Change(greyOfThree), Change(greyOfFour), Change(greyAndNoise)}) {
    ASSERT_TRUE(guard.start(change(picture), person));
    EXPECT_TRUE(guard.colourless());
  }
  ASSERT_TRUE(guard.start(picture, person));
  EXPECT_FALSE(guard.colourless());
  cv::Mat fog = greyOfThree(picture);
  drawPerson(fog, person, kRedBlue);  // the only colour in it is the target's
  ASSERT_TRUE(guard.start(fog, person));
  EXPECT_FALSE(guard.colourless());
}

TEST(GuardColourless, JudgesBrightnessAndKeepsDoingSoWhenColourComes) {
  for (const Change& change : {Change(grey), Change(greyOfThree), Change(greyAndNoise)}) {
    Guard guard;
    cv::Rect person = personAt(200, 150);
    const auto picture = [&person](const cv::Mat& ground) {
      cv::Mat drawn = ground.clone();
      drawPerson(drawn, person, {{235, 235, 235}, {20, 20, 20}});
      return drawn;
    };
    ASSERT_TRUE(guard.start(change(picture(groundOf())), person));
    for (int i = 0; i < 12; ++i) {
      person.x += 2;
      ASSERT_EQ(guard.judge(change(picture(groundOf())), {person, true}).state, State::Agreed);
    }
    EXPECT_FALSE(guard.judge(change(picture(groundOf())), {personAt(400, 200), true}).seen);
    for (int i = 0; i < 6; ++i) {
      person.x += 2;
      EXPECT_EQ(guard.judge(picture(groundOf()), {person, true}).state, State::Agreed) << i;
    }
  }
}

TEST(GuardTargets, OneAsLargeAsTheFrameIsNeverTakenFromTheTracker) {
  const cv::Mat ground = groundOf();
  const cv::Rect whole({}, ground.size());
  Guard guard;
  guard.start(ground, whole);
  for (int i = 0; i < 10; ++i) {
    const Verdict verdict = guard.judge(ground, {whole, true});
    EXPECT_EQ(verdict.box, whole);
    EXPECT_TRUE(verdict.seen);
    EXPECT_FALSE(verdict.restart);
  }
  for (int i = 0; i < 10; ++i) EXPECT_NO_THROW(guard.judge(ground, {}));
}

TEST(GuardTargets, OneOfSixPixelsIsNeverTakenFromTheTracker) {
  const cv::Mat ground = groundOf();
  cv::Rect box(300, 150, 6, 6);
  const auto frame = [&] {
    cv::Mat picture = ground.clone();
    drawPerson(picture, box, kRedBlue);
    return picture;
  };
  Guard guard;
  guard.start(frame(), box);
  for (int i = 0; i < 30; ++i) {
    box.x += 1;
    const Verdict verdict = guard.judge(frame(), {box, true});
    EXPECT_EQ(verdict.box, box);
    EXPECT_TRUE(verdict.seen) << verdict.reason;
    EXPECT_FALSE(verdict.restart);
  }
}

TEST(GuardTargets, OneHalfOutsideThePictureIsNeverTakenFromTheTracker) {
  const cv::Rect box(-10, 150, 24, 60);
  cv::Mat frame = groundOf();
  drawPerson(frame, box, kRedBlue);
  Guard guard;
  guard.start(frame, box);
  for (int i = 0; i < 10; ++i) {
    const Verdict verdict = guard.judge(frame, {box, true});
    EXPECT_EQ(verdict.box, box);
    EXPECT_TRUE(verdict.seen) << verdict.reason;
  }
}

cv::Mat anyFrame(cv::RNG& random) {
  static const int types[] = {CV_8UC3, CV_8UC3, CV_8UC3, CV_8UC1, CV_8UC4, CV_16UC3, CV_32FC1};
  if (random.uniform(0, 8) == 0) return {};
  const cv::Size size =
      random.uniform(0, 3) > 0 ? cv::Size(160, 120) : cv::Size(random.uniform(1, 200), random.uniform(1, 200));
  cv::Mat frame(size, types[random.uniform(0, 7)]);
  random.fill(frame, cv::RNG::UNIFORM, 0, random.uniform(0, 4) == 0 ? 1 : 255);
  return frame;
}

int anyNumber(cv::RNG& random) {
  static const int odd[] = {0, -1, 1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min(), 999999};
  return random.uniform(0, 6) == 0 ? odd[random.uniform(0, 6)] : random.uniform(-60, 180);
}

cv::Rect anyBox(cv::RNG& random) {
  return {anyNumber(random), anyNumber(random), anyNumber(random), anyNumber(random)};
}

TEST(GuardAnyInput, IsAnsweredWithAReasonAndAStartThatTheFrameHolds) {
  cv::RNG random(11);
  for (int run = 0; run < 30; ++run) {
    Guard guard;
    cv::Mat frame = anyFrame(random);
    guard.start(frame, anyBox(random));
    guard.start(cv::Mat(120, 160, CV_8UC3, cv::Scalar(90, 120, 90)), {40, 40, 20, 30});
    if (run % 2 == 0) {
      cv::Mat good = groundOf({160, 120});
      drawPerson(good, {40, 40, 20, 30}, kRedBlue);
      ASSERT_TRUE(guard.start(good, {40, 40, 20, 30}));
    }
    for (int i = 0; i < 30; ++i) {
      frame = anyFrame(random);
      Answer answer;
      if (random.uniform(0, 3) > 0) answer.box = anyBox(random);
      answer.seen = random.uniform(0, 2) == 0;
      Verdict verdict;
      ASSERT_NO_THROW(verdict = guard.judge(frame, answer));
      EXPECT_STRNE(verdict.reason, "");
      EXPECT_FALSE(verdict.seen && !verdict.box && answer.box);
      EXPECT_GE(verdict.likeness.value_or(0.0), 0.0);
      EXPECT_LE(verdict.likeness.value_or(0.0), 1.0 + 1e-6);
      if (!verdict.restart) continue;
      ASSERT_TRUE(verdict.box.has_value());
      EXPECT_GT((*verdict.box & cv::Rect({}, frame.size())).area(), 0);
    }
  }
}

}  // namespace
