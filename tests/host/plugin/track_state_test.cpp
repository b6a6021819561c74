// What the plug-in's log lines are taken to mean.
#include "plugin/track_state.h"

#include <gtest/gtest.h>

namespace host {
namespace {

std::vector<std::string> logged(const std::vector<std::string>& messages) {
  std::vector<std::string> lines;
  for (const std::string& message : messages) lines.push_back("[AlgoPlugin INFO] [CSRTTrackingAlgo] " + message);
  return lines;
}

StateReport after(const std::vector<std::string>& messages, bool hasDetections = true) {
  return stateOfUpdate(logged(messages), hasDetections);
}

TEST(TrackState, ATrackedFrameHasScoreAndWindow) {
  const StateReport report = after({"update(): OUT 2 detections (track ok)", "  det[0]: bbox=(1,2,3,4) id=0 cls=-1",
                                    "  det[1]: bbox=(0,0,9,9) id=0 cls=-1"});
  EXPECT_EQ(report.state, TrackState::Tracked);
  EXPECT_EQ(report.boxFrom, BoxFrom::Tracker);
  EXPECT_TRUE(report.hasWindow);
  EXPECT_TRUE(report.scoreIsOfThisFrame);
  EXPECT_TRUE(report.seen);
}

TEST(TrackState, AnUnstableAnswerIsAPredictionWithTheScoreThatCondemnedIt) {
  const StateReport report = after({"update(): UNSTABLE (stab=0.12) -> OUT 1 detections (predict)"});
  EXPECT_EQ(report.state, TrackState::Predicted);
  EXPECT_EQ(report.boxFrom, BoxFrom::Prediction);
  EXPECT_TRUE(report.scoreIsOfThisFrame);
  EXPECT_FALSE(report.seen);
  EXPECT_FALSE(report.hasWindow);
}

TEST(TrackState, AFailedStepIsAPredictionWithoutAScore) {
  const StateReport report = after({"update(): LOST -> OUT 1 detections (predict)"});
  EXPECT_EQ(report.state, TrackState::Predicted);
  EXPECT_FALSE(report.scoreIsOfThisFrame);
  EXPECT_EQ(after({"update(): OUT 1 detections (empty ROI)"}).state, TrackState::Predicted);
}

TEST(TrackState, ARedetectionCountsByWhicheverExitItLeaves) {
  const std::string success = "reDetectGlobally[timing-success]: total=3.0 ms | fineVal=0.950";
  for (const char* exit :
       {"update(): LOST -> OUT 1 detections (redetect OK)", "update(): LOST -> OUT 1 detections (predict)",
        "update(): UNSTABLE (stab=0.10) -> OUT 1 detections (predict)"}) {
    const StateReport report = after({success, exit});
    EXPECT_EQ(report.state, TrackState::Redetected) << exit;
    EXPECT_EQ(report.boxFrom, BoxFrom::Redetection) << exit;
    EXPECT_FALSE(report.scoreIsOfThisFrame) << exit;
    EXPECT_TRUE(report.seen) << exit;
  }
}

TEST(TrackState, AnExitIsNamedByItsWordsWithoutItsNumbers) {
  const auto exitAfter = [](const std::vector<std::string>& messages) { return exitOf(logged(messages)); };
  EXPECT_EQ(exitAfter({"update(): OUT 2 detections (track ok)", "  det[0]: bbox=(1,2,3,4) id=0 cls=-1"}), "track ok");
  EXPECT_EQ(exitAfter({"update(): LOST -> OUT 1 detections (redetect OK)"}), "LOST redetect OK");
  EXPECT_EQ(exitAfter({"update(): UNSTABLE (stab=0.12) -> OUT 1 detections (predict)"}), "UNSTABLE predict");
  EXPECT_EQ(exitAfter({"update(): OUT 0 detections (not init/fullyLost)"}), "not init/fullyLost");
  EXPECT_EQ(exitAfter({"update(): OUT, NO FRAME"}), "NO FRAME");
  EXPECT_EQ(exitAfter({"CSRT: health fault -> sauts", "Object declared fully lost => reset."}), "given up: sauts");
  EXPECT_EQ(exitAfter({}), "");
  EXPECT_EQ(exitAfter({"update(): nothing known"}), "");
}

TEST(TrackState, ASearchIsNamedByItsOutcomeAndARefusalByItsReason) {
  const auto outcomeAfter = [](const std::string& validate, const std::string& outcome) {
    return searchOutcomeOf(logged({"reDetectGlobally (validate): " + validate,
                                   "reDetectGlobally[timing-" + outcome + "]: total=3.0 ms | fineVal=0.950",
                                   "update(): LOST -> OUT 1 detections (predict)"}));
  };
  EXPECT_EQ(outcomeAfter("fine=0.9 dist=9.0 maxDist=80.0 areaRatio=1.00 scaleOK=1 near=1", "success"), "success");
  EXPECT_EQ(outcomeAfter("fine=0.9 dist=81.0 maxDist=80.0 areaRatio=1.00 scaleOK=0 near=0", "reject"),
            "reject: too far");
  EXPECT_EQ(outcomeAfter("fine=0.9 dist=9.0 maxDist=80.0 areaRatio=9.00 scaleOK=0 near=1", "reject"), "reject: size");
  EXPECT_EQ(outcomeAfter("fine=0.5 dist=9.0 maxDist=80.0 areaRatio=1.00 scaleOK=1 near=1", "reject"), "reject: score");
  EXPECT_EQ(outcomeAfter("fine=0.5 dist=90.0 maxDist=80.0 areaRatio=1.00 scaleOK=0 near=0", "appearance_fail"),
            "appearance_fail");
  EXPECT_EQ(searchOutcomeOf(logged({"update(): OUT 1 detections (track ok)"})), "");
}

TEST(TrackState, AFailedSearchStaysAPrediction) {
  EXPECT_EQ(after({"reDetectGlobally[timing-reject]: total=3.0 ms", "reDetect FAILED => attempt 1 / 5",
                   "update(): LOST -> OUT 1 detections (predict)"})
                .state,
            TrackState::Predicted);
}

TEST(TrackState, GivingUpIsLostWithItsReasonWhateverTheExit) {
  const std::string reset = "Object declared fully lost => reset.";
  EXPECT_EQ(after({"CSRT: health fault -> Suivi collé au bord", reset}, false).reason, "Suivi collé au bord");
  EXPECT_EQ(after({"CSRT: oscillation re-detect <-> lost detected, forcing fully lost.", reset}, false).reason,
            "oscillation re-detect <-> lost detected, forcing fully lost.");
  EXPECT_EQ(after({reset, "update(): OUT 0 detections (pending_full_reset_)"}, false).reason, "not found again");
  const StateReport report = after({reset, "update(): LOST -> OUT 0 detections (predict)"}, false);
  EXPECT_EQ(report.state, TrackState::Lost);
  EXPECT_EQ(report.boxFrom, BoxFrom::None);
  EXPECT_FALSE(report.seen);
}

TEST(TrackState, ARebuildIsSeenOnlyWhereTheOldTrackerFollowed) {
  const StateReport followed = after({"update(): OUT 1 detections (Re-init après update ancien ROI, sizeChanged=1)"});
  EXPECT_EQ(followed.state, TrackState::Rebuilt);
  EXPECT_EQ(followed.boxFrom, BoxFrom::Tracker);
  EXPECT_TRUE(followed.seen);
  const StateReport carried = after({"update(): OUT 1 detections (Re-init après update ancien ROI, sizeChanged=0)"});
  EXPECT_EQ(carried.state, TrackState::Rebuilt);
  EXPECT_EQ(carried.boxFrom, BoxFrom::Prediction);
  EXPECT_FALSE(carried.seen);
}

TEST(TrackState, WaitingReseededAndInactive) {
  EXPECT_EQ(after({"update(): OUT 0 detections (waiting preposition alignment)"}, false).state, TrackState::Waiting);
  EXPECT_EQ(after({"update(): OUT, NO FRAME"}, false).state, TrackState::Waiting);
  EXPECT_EQ(after({"update(): OUT 0 detections (zoom reseed)"}, false).state, TrackState::Reseeded);
  EXPECT_EQ(after({"update(): OUT 0 detections (skip tracking once)"}, false).state, TrackState::Reseeded);
  EXPECT_EQ(after({"update(): OUT 0 detections (not init/fullyLost)"}, false).state, TrackState::Inactive);
  EXPECT_EQ(after({"update(): OUT 0 detections (late not init/fullyLost)"}, false).state, TrackState::Inactive);
}

TEST(TrackState, ABoxOfASilentPluginIsNotVouchedFor) {
  EXPECT_EQ(after({}).state, TrackState::Predicted);
  EXPECT_EQ(after({}, false).state, TrackState::Inactive);
}

TEST(TrackState, InitStartsWaitsOrRefuses) {
  EXPECT_EQ(stateOfInit(logged({"CSRT init(immediate_init_no_metadata): src 640x360"}), true).state,
            TrackState::Reseeded);
  EXPECT_EQ(
      stateOfInit(logged({"CSRT init(VP): preposition-only target_pan=1.000 target_tilt=2.000 roi=(1,2,3,4)"}), true)
          .state,
      TrackState::Waiting);
  const StateReport refused = stateOfInit(logged({"init: bbox out of image => abort"}), false);
  EXPECT_EQ(refused.state, TrackState::Inactive);
  EXPECT_EQ(refused.reason, "init: bbox out of image => abort");
  EXPECT_FALSE(refused.seen);
}

TEST(TrackState, EveryStateHasAName) {
  for (int i = 0; i < 8; ++i) {
    const auto state = static_cast<TrackState>(i);
    EXPECT_EQ(trackStateOf(name(state)), state);
  }
  EXPECT_FALSE(trackStateOf("seen"));
}

TEST(TrackState, TakesThePrefixOffALine) {
  EXPECT_EQ(messageOf("[AlgoPlugin INFO] [CSRTTrackingAlgo] a ] b"), "a ] b");
  EXPECT_EQ(messageOf("  det[0]"), "  det[0]");
}

}  // namespace
}  // namespace host
