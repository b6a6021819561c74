// What the plug-in's answer and log lines are taken to mean.
#include "plugin/call_facts.h"

#include <gtest/gtest.h>

#include "plugin/call_record.h"

namespace host {
namespace {

std::vector<std::string> logged(const std::vector<std::string>& messages) {
  std::vector<std::string> lines;
  for (const std::string& message : messages) lines.push_back("[AlgoPlugin INFO] [CSRTTrackingAlgo] " + message);
  return lines;
}

const cv::Rect kBox(1, 2, 3, 4);
const cv::Rect kWindow(0, 0, 9, 9);

AlgoValue detection(const cv::Rect& box, double score) {
  return AlgoValue(AlgoValue::Object{{"x", AlgoValue(long{box.x})},
                                     {"y", AlgoValue(long{box.y})},
                                     {"w", AlgoValue(long{box.width})},
                                     {"h", AlgoValue(long{box.height})},
                                     {"score", AlgoValue(score)}});
}

std::vector<AlgoOutput> answer(const AlgoValue::Array& detections) {
  return {{"detection.v1", AlgoValue(AlgoValue::Object{{"detections", AlgoValue(detections)}})}};
}

/// The facts after an update() that answered a box, or nothing.
CallFacts after(const std::vector<std::string>& messages, bool hasDetections = true) {
  std::vector<AlgoOutput> outputs =
      answer(hasDetections ? AlgoValue::Array{detection(kBox, 0.25)} : AlgoValue::Array{});
  return factsOfUpdate(logged(messages), outputs);
}

TEST(CallFacts, ATrackedFrameHasScoreAndWindow) {
  std::vector<AlgoOutput> outputs = answer({detection(kBox, 0.25), detection(kWindow, 0.0)});
  const CallFacts facts =
      factsOfUpdate(logged({"update(): OUT 2 detections (track ok)", "  det[0]: bbox=(1,2,3,4) id=0 cls=-1",
                            "  det[1]: bbox=(0,0,9,9) id=0 cls=-1"}),
                    outputs);
  EXPECT_EQ(facts.state, TrackState::Tracked);
  EXPECT_EQ(facts.boxFrom, BoxFrom::Tracker);
  EXPECT_EQ(facts.box, kBox);
  EXPECT_EQ(facts.window, kWindow);
  EXPECT_EQ(facts.score, 0.25);
  EXPECT_TRUE(facts.seen);
  EXPECT_EQ(toJson(outputs[0].value)["detections"].size(), 1U) << "the window is not a detection of the target";
}

TEST(CallFacts, AnUnstableAnswerIsAPredictionWithTheScoreThatCondemnedIt) {
  const CallFacts facts = after({"update(): UNSTABLE (stab=0.12) -> OUT 1 detections (predict)"});
  EXPECT_EQ(facts.state, TrackState::Predicted);
  EXPECT_EQ(facts.boxFrom, BoxFrom::Prediction);
  EXPECT_EQ(facts.score, 0.25);
  EXPECT_FALSE(facts.seen);
  EXPECT_FALSE(facts.window);
}

TEST(CallFacts, AFailedStepIsAPredictionWithoutAScore) {
  const CallFacts facts = after({"update(): LOST -> OUT 1 detections (predict)"});
  EXPECT_EQ(facts.state, TrackState::Predicted);
  EXPECT_FALSE(facts.score);
  EXPECT_EQ(after({"update(): OUT 1 detections (empty ROI)"}).state, TrackState::Predicted);
}

TEST(CallFacts, ARedetectionCountsByWhicheverExitItLeaves) {
  const std::string success = "reDetectGlobally[timing-success]: total=3.0 ms | fineVal=0.950";
  for (const char* exit :
       {"update(): LOST -> OUT 1 detections (redetect OK)", "update(): LOST -> OUT 1 detections (predict)",
        "update(): UNSTABLE (stab=0.10) -> OUT 1 detections (predict)"}) {
    const CallFacts facts = after({success, exit});
    EXPECT_EQ(facts.state, TrackState::Redetected) << exit;
    EXPECT_EQ(facts.boxFrom, BoxFrom::Redetection) << exit;
    EXPECT_FALSE(facts.score) << exit;
    EXPECT_TRUE(facts.seen) << exit;
  }
}

TEST(CallFacts, AnExitIsNamedByItsWordsWithoutItsNumbers) {
  const auto exitAfter = [](const std::vector<std::string>& messages) { return after(messages).exit; };
  EXPECT_EQ(exitAfter({"update(): OUT 2 detections (track ok)", "  det[0]: bbox=(1,2,3,4) id=0 cls=-1"}), "track ok");
  EXPECT_EQ(exitAfter({"update(): LOST -> OUT 1 detections (redetect OK)"}), "LOST redetect OK");
  EXPECT_EQ(exitAfter({"update(): UNSTABLE (stab=0.12) -> OUT 1 detections (predict)"}), "UNSTABLE predict");
  EXPECT_EQ(exitAfter({"update(): OUT 0 detections (not init/fullyLost)"}), "not init/fullyLost");
  EXPECT_EQ(exitAfter({"update(): OUT, NO FRAME"}), "NO FRAME");
  EXPECT_EQ(exitAfter({"CSRT: health fault -> sauts", "Object declared fully lost => reset."}), "given up: sauts");
  EXPECT_EQ(exitAfter({}), "");
  EXPECT_EQ(exitAfter({"update(): nothing known"}), "");
}

TEST(CallFacts, ASearchIsNamedByItsOutcomeAndARefusalByItsReason) {
  const auto outcomeAfter = [](const std::string& validate, const std::string& outcome) {
    return after({"reDetectGlobally (validate): " + validate,
                  "reDetectGlobally[timing-" + outcome + "]: total=3.0 ms | fineVal=0.950",
                  "update(): LOST -> OUT 1 detections (predict)"})
        .search;
  };
  EXPECT_EQ(outcomeAfter("fine=0.9 dist=9.0 maxDist=80.0 areaRatio=1.00 scaleOK=1 near=1", "success"), "success");
  EXPECT_EQ(outcomeAfter("fine=0.9 dist=81.0 maxDist=80.0 areaRatio=1.00 scaleOK=0 near=0", "reject"),
            "reject: too far");
  EXPECT_EQ(outcomeAfter("fine=0.9 dist=9.0 maxDist=80.0 areaRatio=9.00 scaleOK=0 near=1", "reject"), "reject: size");
  EXPECT_EQ(outcomeAfter("fine=0.5 dist=9.0 maxDist=80.0 areaRatio=1.00 scaleOK=1 near=1", "reject"), "reject: score");
  EXPECT_EQ(outcomeAfter("fine=0.5 dist=90.0 maxDist=80.0 areaRatio=1.00 scaleOK=0 near=0", "appearance_fail"),
            "appearance_fail");
  EXPECT_EQ(after({"update(): OUT 1 detections (track ok)"}).search, "");
}

TEST(CallFacts, AFailedSearchStaysAPrediction) {
  EXPECT_EQ(after({"reDetectGlobally[timing-reject]: total=3.0 ms", "reDetect FAILED => attempt 1 / 5",
                   "update(): LOST -> OUT 1 detections (predict)"})
                .state,
            TrackState::Predicted);
}

TEST(CallFacts, GivingUpIsLostWithItsReasonWhateverTheExit) {
  const std::string reset = "Object declared fully lost => reset.";
  EXPECT_EQ(after({"CSRT: health fault -> Suivi collé au bord", reset}, false).reason, "Suivi collé au bord");
  EXPECT_EQ(after({"CSRT: oscillation re-detect <-> lost detected, forcing fully lost.", reset}, false).reason,
            "oscillation re-detect <-> lost detected, forcing fully lost.");
  EXPECT_EQ(after({reset, "update(): OUT 0 detections (pending_full_reset_)"}, false).reason, "not found again");
  const CallFacts facts = after({reset, "update(): LOST -> OUT 0 detections (predict)"}, false);
  EXPECT_EQ(facts.state, TrackState::Lost);
  EXPECT_EQ(facts.boxFrom, BoxFrom::None);
  EXPECT_FALSE(facts.seen);
}

TEST(CallFacts, ARebuildIsSeenOnlyWhereTheOldTrackerFollowed) {
  const CallFacts followed = after({"update(): OUT 1 detections (Re-init après update ancien ROI, sizeChanged=1)"});
  EXPECT_EQ(followed.state, TrackState::Rebuilt);
  EXPECT_EQ(followed.boxFrom, BoxFrom::Tracker);
  EXPECT_TRUE(followed.seen);
  const CallFacts carried = after({"update(): OUT 1 detections (Re-init après update ancien ROI, sizeChanged=0)"});
  EXPECT_EQ(carried.state, TrackState::Rebuilt);
  EXPECT_EQ(carried.boxFrom, BoxFrom::Prediction);
  EXPECT_FALSE(carried.seen);
}

TEST(CallFacts, WaitingReseededAndInactive) {
  EXPECT_EQ(after({"update(): OUT 0 detections (waiting preposition alignment)"}, false).state, TrackState::Waiting);
  EXPECT_EQ(after({"update(): OUT, NO FRAME"}, false).state, TrackState::Waiting);
  EXPECT_EQ(after({"update(): OUT 0 detections (zoom reseed)"}, false).state, TrackState::Reseeded);
  EXPECT_EQ(after({"update(): OUT 0 detections (skip tracking once)"}, false).state, TrackState::Reseeded);
  EXPECT_EQ(after({"update(): OUT 0 detections (not init/fullyLost)"}, false).state, TrackState::Inactive);
  EXPECT_EQ(after({"update(): OUT 0 detections (late not init/fullyLost)"}, false).state, TrackState::Inactive);
}

TEST(CallFacts, ABoxOfASilentPluginIsNotVouchedFor) {
  EXPECT_EQ(after({}).state, TrackState::Predicted);
  EXPECT_EQ(after({}, false).state, TrackState::Inactive);
}

TEST(CallFacts, InitStartsWaitsOrRefuses) {
  EXPECT_EQ(factsOfInit(logged({"CSRT init(immediate_init_no_metadata): src 640x360"}), true, {}).state,
            TrackState::Reseeded);
  EXPECT_EQ(factsOfInit(logged({"CSRT init(VP): preposition-only target_pan=1.000 target_tilt=2.000 roi=(1,2,3,4)"}),
                        true, {})
                .state,
            TrackState::Waiting);
  const CallFacts refused = factsOfInit(logged({"init: bbox out of image => abort"}), false, {});
  EXPECT_EQ(refused.state, TrackState::Inactive);
  EXPECT_EQ(refused.reason, "init: bbox out of image => abort");
  EXPECT_FALSE(refused.seen);
}

TEST(CallFacts, AZoomThatStartedTheTrackerAnewIsAFactAboutTheCall) {
  EXPECT_TRUE(after({"CSRT zoom_changed: scale_x=1.10 scale_y=1.10", "update(): OUT 0 detections (zoom reseed)"}, false)
                  .zoomReseeded);
  EXPECT_FALSE(after({"update(): OUT 0 detections (skip tracking once)"}, false).zoomReseeded);
}

TEST(CallFacts, WhereTheCameraShallLookIsReadFromItsRecord) {
  const AlgoValue angles(AlgoValue::Object{{"target_pan_deg", AlgoValue(12.5)}, {"target_tilt_deg", AlgoValue(-3.0)}});
  const CallFacts facts = factsOfInit({}, true, {{"gimbal_preposition.v1", angles}});
  ASSERT_TRUE(facts.pointTo);
  EXPECT_EQ(facts.pointTo->pan_deg, 12.5);
  EXPECT_EQ(facts.pointTo->tilt_deg, -3.0);
  EXPECT_FALSE(factsOfInit({}, true, answer({})).pointTo);
}

TEST(CallFacts, AnExceptionRefusesAStartAndLosesATarget) {
  EXPECT_EQ(factsOfException(true, "exception: no").state, TrackState::Inactive);
  const CallFacts facts = factsOfException(false, "exception: no");
  EXPECT_EQ(facts.state, TrackState::Lost);
  EXPECT_EQ(facts.reason, "exception: no");
  EXPECT_FALSE(facts.seen);
}

TEST(CallFacts, ABrokenAnswerHasNoBox) {
  std::vector<AlgoOutput> outputs = answer({AlgoValue(AlgoValue::Object{{"x", AlgoValue(long{1})}})});
  const CallFacts facts = factsOfUpdate(logged({"update(): LOST -> OUT 1 detections (predict)"}), outputs);
  EXPECT_EQ(facts.state, TrackState::Predicted);
  EXPECT_FALSE(facts.box);
  EXPECT_EQ(facts.boxFrom, BoxFrom::None);
}

TEST(CallRecord, OnlyABoxOfThisFrameIsSeen) {
  CallRecord record;
  EXPECT_FALSE(isSeen(record)) << "never seen, no box";
  record.box = kBox;
  EXPECT_FALSE(isSeen(record)) << "never seen";
  record.framesSinceSeen = 1;
  EXPECT_FALSE(isSeen(record)) << "predicted";
  record.framesSinceSeen = 0;
  EXPECT_TRUE(isSeen(record));
  record.box.reset();
  EXPECT_FALSE(isSeen(record)) << "the user pointed at it, but the plug-in gave no box";
}

TEST(CallRecord, WhatIsSeenAndAFindOnTrialAreWorthFollowing) {
  CallRecord record;
  record.box = kBox;
  record.framesSinceSeen = 3;
  record.state = TrackState::Predicted;
  EXPECT_FALSE(isWorthFollowing(record)) << "a prediction leads away from where it was lost";
  record.state = TrackState::Reacquired;
  EXPECT_TRUE(isWorthFollowing(record)) << "on trial";
  EXPECT_FALSE(isSeen(record));
  record.state = TrackState::Tracked;
  record.framesSinceSeen = 0;
  EXPECT_TRUE(isWorthFollowing(record));
  record.box.reset();
  EXPECT_FALSE(isWorthFollowing(record));
}

TEST(CallFacts, EveryStateHasAName) {
  for (int i = 0; i < 8; ++i) {
    const auto state = static_cast<TrackState>(i);
    EXPECT_EQ(trackStateOf(name(state)), state);
  }
  EXPECT_FALSE(trackStateOf("seen"));
}

TEST(CallFacts, TakesThePrefixOffALine) {
  EXPECT_EQ(factsOfInit({"[AlgoPlugin INFO] [CSRTTrackingAlgo] a ] b"}, false, {}).reason, "a ] b");
  EXPECT_EQ(factsOfInit({"  det[0]"}, false, {}).reason, "  det[0]");
}

}  // namespace
}  // namespace host
