// How a simulated run's states and boxes are judged by the truth: arithmetic, no plug-in.
#include "simulator/honesty.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace host::sim {
namespace {

HonestyFrame frameOf(Shown shown, TrackState state, double overlapOfBox = -1.0) {
  HonestyFrame frame;
  frame.shown = shown;
  frame.state = state;
  frame.seen = overlapOfBox >= 0 && state != TrackState::Predicted;
  frame.overlap = std::max(0.0, overlapOfBox);
  frame.exit = name(state);
  return frame;
}

using Frames = std::vector<HonestyFrame>;

Frames& add(Frames& frames, int count, const HonestyFrame& frame) {
  frames.insert(frames.end(), static_cast<std::size_t>(count), frame);
  return frames;
}

const HonestyFrame kFollowed = frameOf(Shown::Target, TrackState::Tracked, 0.8);
const HonestyFrame kMissed = frameOf(Shown::Target, TrackState::Predicted, 0.8);
const HonestyFrame kAway = frameOf(Shown::Nothing, TrackState::Predicted, 0.0);
const HonestyFrame kDreamt = frameOf(Shown::Nothing, TrackState::Tracked, 0.0);

TEST(Honesty, EveryStateIsRightWhereTheFrameShowsWhatItSays) {
  Frames frames;
  add(frames, 10, frameOf(Shown::Pointing, TrackState::Waiting));
  add(frames, 1, frameOf(Shown::Target, TrackState::Reseeded));
  add(frames, 5, kFollowed);
  add(frames, 1, frameOf(Shown::Target, TrackState::Rebuilt, 0.7));
  add(frames, 1, frameOf(Shown::Target, TrackState::Redetected, 0.1));
  add(frames, 9, kAway);
  add(frames, 1, frameOf(Shown::Nothing, TrackState::Lost));
  add(frames, 9, frameOf(Shown::Nothing, TrackState::Inactive));
  const Honesty honesty = judgeHonesty(frames, 0);
  EXPECT_EQ(honesty.frames, 37);
  EXPECT_EQ(honesty.right, 37);
  EXPECT_EQ(honesty.claims, 7) << "a fresh start has no box to judge";
  EXPECT_EQ(honesty.wrongClaims, 0);
  EXPECT_TRUE(honesty.wrongStates.empty());
}

TEST(Honesty, APredictionOnTheTargetInViewIsNotSeeingIt) {
  Frames frames;
  add(frames, 4, kFollowed);
  add(frames, 6, kMissed);
  const Honesty honesty = judgeHonesty(frames, 100);
  EXPECT_EQ(honesty.right, 4);
  ASSERT_EQ(honesty.wrongStates.size(), 1U);
  EXPECT_EQ(honesty.wrongStates[0].what, "does not see the target in view");
  EXPECT_EQ(honesty.wrongStates[0].exit, "predicted");
  EXPECT_EQ(honesty.wrongStates[0].count, 6);
  EXPECT_EQ(honesty.wrongStates[0].firstFrame, 104);
  EXPECT_EQ(honesty.claims, 4) << "a prediction claims nothing";
}

TEST(Honesty, ThreeFramesAroundAnEventMayBeAsBeforeOrAsAfter) {
  Frames frames;
  add(frames, 10, kFollowed);
  add(frames, 5, kDreamt);  // three of them still in time
  add(frames, 10, kAway);
  add(frames, 5, kMissed);  // three of them still in time
  add(frames, 5, kFollowed);
  const Honesty honesty = judgeHonesty(frames, 0);
  ASSERT_EQ(honesty.wrongStates.size(), 2U);
  EXPECT_EQ(honesty.wrongStates[0].count, 2);
  EXPECT_EQ(honesty.wrongStates[0].firstFrame, 13);
  EXPECT_EQ(honesty.wrongStates[0].what, "claims a target that cannot be seen");
  EXPECT_EQ(honesty.wrongStates[1].count, 2);
  EXPECT_EQ(honesty.wrongStates[1].firstFrame, 28);
  EXPECT_EQ(honesty.wrongClaims, 5) << "boxes get no grace";
  EXPECT_EQ(honesty.claims, 20);
  EXPECT_DOUBLE_EQ(honesty.wrongClaimShare(), 0.25);
}

TEST(Honesty, AFindOnTrialIsRightOnlyOnTheTargetThoughItIsNotCalledSeen) {
  Frames frames;
  HonestyFrame trial = frameOf(Shown::Target, TrackState::Reacquired, 0.5);
  trial.seen = false;
  add(frames, 6, trial);
  trial.overlap = 0.0;
  add(frames, 4, trial);
  const Honesty honesty = judgeHonesty(frames, 0);
  EXPECT_EQ(honesty.right, 6);
  ASSERT_EQ(honesty.wrongStates.size(), 1U);
  EXPECT_EQ(honesty.wrongStates[0].what, "claims something beside the target");
  EXPECT_EQ(honesty.claims, 0);
}

TEST(Honesty, ABoxBesideTheTargetIsWrongEvenNextToAnEvent) {
  Frames frames;
  add(frames, 10, kAway);
  add(frames, 1, frameOf(Shown::Target, TrackState::Redetected, 0.09));
  add(frames, 9, kFollowed);
  const Honesty honesty = judgeHonesty(frames, 0);
  EXPECT_EQ(honesty.right, 19);
  EXPECT_EQ(honesty.wrongStates[0].what, "claims something beside the target");
  EXPECT_EQ(honesty.wrongClaims, 1);
}

TEST(Honesty, WhileItIsPartlyInViewBothAreRightButABoxMustLieOnIt) {
  Frames frames;
  add(frames, 5, frameOf(Shown::Partly, TrackState::Predicted, 0.0));
  add(frames, 5, frameOf(Shown::Partly, TrackState::Tracked, 0.3));
  add(frames, 5, frameOf(Shown::Partly, TrackState::Tracked, 0.0));
  const Honesty honesty = judgeHonesty(frames, 0);
  EXPECT_EQ(honesty.right, 10);
  EXPECT_EQ(honesty.partly, 15);
}

TEST(Honesty, WaitingIsRightOnlyWhileTheCameraTurns) {
  Frames frames;
  add(frames, 5, frameOf(Shown::Pointing, TrackState::Waiting));
  add(frames, 5, frameOf(Shown::Target, TrackState::Waiting));
  add(frames, 5, kFollowed);
  const Honesty late = judgeHonesty(frames, 0);
  EXPECT_EQ(late.right, 13);
  EXPECT_EQ(late.wrongStates[0].what, "waits though the camera is there");
  const Honesty early = judgeHonesty(Frames(5, frameOf(Shown::Pointing, TrackState::Tracked, 0.5)), 0);
  EXPECT_EQ(early.right, 0);
  EXPECT_EQ(early.wrongStates[0].what, "does not wait while the camera turns");
}

TEST(Honesty, NothingJudgedIsNothingWrong) {
  const Honesty honesty = judgeHonesty({}, 0);
  EXPECT_EQ(honesty.rightShare(), 1.0);
  EXPECT_EQ(honesty.wrongClaimShare(), 0.0);
}

/// Feeds the watch with frames of a camera that looks ahead.
class Watch : public testing::Test {
 protected:
  void begin(const std::string& config) {
    Scenario scenario;
    scenario.config = config;
    watch_.begin(scenario);
  }

  /// @param box  the target's true box; the frame has 640 x 360 pixels
  void step(const cv::Rect2d& box, double visibleShare, TrackState state, const CallFacts& said = {}) {
    SimulatedFrame frame;
    frame.record.frame = next_;
    frame.record.isInit = next_ == 0;
    frame.record.state = state;
    frame.record.exit = said.exit;
    frame.record.search = said.search;
    if (next_ == 0) frame.record.givenBox = cv::Rect(box);
    frame.truth.there = true;
    frame.truth.box = box;
    frame.truth.visibleShare = visibleShare;
    frame.camera.gimbal = gimbal_;
    frame.camera.view = {gimbal_, 60, 33.75};
    using Keys = ocula::OculaPicture::BaseMetadata::Keys;
    for (const std::string& key : {Keys::kPanDeg, Keys::kTiltDeg, Keys::kHfovDeg, Keys::kVfovDeg}) {
      if (saysAngles_) frame.metadata[key] = 1.0;
    }
    ++next_;
    watch_.frame(frame);
  }

  std::vector<std::string> events() const {
    std::vector<std::string> all;
    for (const HonestyEvent& event : watch_.honesty().events) {
      all.push_back(std::to_string(event.frame) + " " + event.what);
    }
    return all;
  }

  HonestyWatch watch_;
  Angles gimbal_;
  bool saysAngles_ = true;
  long next_ = 0;
};

constexpr const char* kPointing = R"({"preposition": {"enabled": true}})";
const cv::Rect2d kMiddle(300, 160, 40, 40);
const cv::Rect2d kAside(500, 160, 40, 40);

TEST_F(Watch, TheCameraIsThereAfterTwoFramesInARowThatSayTheyLookThere) {
  begin(kPointing);
  step(kAside, 1, TrackState::Waiting);
  for (int i = 0; i < 5; ++i) step(kAside, 1, TrackState::Waiting);
  gimbal_ = {(520.0 / 640 - 0.5) * 60, 0};
  saysAngles_ = false;
  step(kMiddle, 1, TrackState::Waiting);
  saysAngles_ = true;
  step(kMiddle, 1, TrackState::Waiting);
  step(kMiddle, 1, TrackState::Reseeded);
  EXPECT_EQ(events(), std::vector<std::string>{"8 the camera is there"});
  EXPECT_EQ(watch_.honesty().right, 9);
}

TEST_F(Watch, NobodyWaitsForATargetInTheMiddleOrWithoutTheWish) {
  begin(kPointing);
  step(kMiddle, 1, TrackState::Reseeded);
  for (int i = 0; i < 5; ++i) step(kMiddle, 1, TrackState::Waiting);
  EXPECT_EQ(watch_.honesty().right, 1);
  watch_ = HonestyWatch();
  next_ = 0;
  begin("{}");
  step(kAside, 1, TrackState::Reseeded);
  for (int i = 0; i < 5; ++i) step(kAside, 1, TrackState::Waiting);
  EXPECT_EQ(watch_.honesty().right, 1);
}

TEST_F(Watch, EventsNameTheBorderOrTheCover) {
  begin("{}");
  step(kMiddle, 1, TrackState::Reseeded);
  const std::vector<std::pair<cv::Rect2d, std::string>> ways = {{{639, 100, 40, 40}, "out by the right border"},
                                                                {{-39, 100, 40, 40}, "out by the left border"},
                                                                {{300, -39, 40, 40}, "out by the top border"},
                                                                {{300, 359, 40, 40}, "out by the bottom border"},
                                                                {kMiddle, "hidden"}};
  std::vector<std::string> wanted;
  for (const auto& [box, what] : ways) {
    step(box, 0, TrackState::Predicted);
    wanted.push_back(std::to_string(next_ - 1) + " " + what);
    step(kMiddle, 0.3, TrackState::Predicted);
    step(kMiddle, 0.6, TrackState::Reseeded);
    wanted.push_back(std::to_string(next_ - 1) + " in view again");
  }
  EXPECT_EQ(events(), wanted);
}

TEST_F(Watch, AWrongFrameTellsTheLastSearchAndWhyItWasGivenUp) {
  begin("{}");
  CallFacts predicts;
  predicts.exit = "LOST predict";
  CallFacts searches = predicts;
  searches.search = "appearance_fail";
  step(kMiddle, 1, TrackState::Reseeded);
  step(kMiddle, 0, TrackState::Predicted, searches);
  for (int i = 0; i < 5; ++i) step(kMiddle, 1, TrackState::Predicted, predicts);
  step(kMiddle, 1, TrackState::Predicted, searches);
  std::vector<std::string> details;
  for (const WrongFrames& one : watch_.honesty().wrongStates) details.push_back(one.exit + "; " + one.detail);
  EXPECT_EQ(details, (std::vector<std::string>{"LOST predict; no search yet since it came into view",
                                               "LOST predict; last search: appearance_fail"}));
}

}  // namespace
}  // namespace host::sim
