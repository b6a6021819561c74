// What the page is told: the word for how a target does, the last minutes, the state, the figures for monitoring.
#include <gtest/gtest.h>

#include "plugin/guard_choice.h"
#include "web/glance.h"
#include "web/run_view.h"
#include "web/timeline.h"

namespace {

using host::CallRecord;
using host::TrackState;
using host::web::Glance;
using host::web::RunView;
using host::web::Standing;
using host::web::Timeline;
using host::web::TimelineRow;

CallRecord record(TrackState state, double unseen = 0) {
  CallRecord made;
  made.target = "car";
  made.state = state;
  made.secondsSinceSeen = unseen;
  return made;
}

CallRecord lost(const std::string& why) {
  CallRecord made = record(TrackState::Lost);
  made.reason = why;
  return made;
}

host::SourceFrame frameOf(long index, double capturedAt, long dropped = 0) {
  host::SourceFrame frame;
  frame.index = index;
  frame.time_s = 0.04 * static_cast<double>(index);
  frame.bgr = cv::Mat(36, 64, CV_8UC3, cv::Scalar::all(7));
  frame.live = host::LiveFacts{capturedAt, false, dropped, {}};
  return frame;
}

TEST(GlanceTest, EverythingThatSeesTheTargetIsTracked) {
  for (const TrackState state : {TrackState::Tracked, TrackState::Rebuilt, TrackState::Redetected, TrackState::Reseeded,
                                 TrackState::Reacquired}) {
    CallRecord seen = record(state);
    seen.box = cv::Rect(10, 10, 20, 20);
    seen.framesSinceSeen = 0;
    Glance glance;
    glance.take(seen, 1);
    EXPECT_EQ(glance.standing(), Standing::Tracked);
    EXPECT_EQ(glance.words(), "Tracked");
  }
}

TEST(GlanceTest, AFindOnTrialIsNotCalledTracked) {
  CallRecord trial = record(TrackState::Reacquired, 1.24);
  trial.box = cv::Rect(10, 10, 20, 20);
  trial.framesSinceSeen = 31;
  Glance glance;
  glance.take(trial, 1);
  EXPECT_EQ(glance.standing(), Standing::Predicted);
  EXPECT_EQ(glance.words(), "Likely found, not seen for 1.2 s");
  glance.take(record(TrackState::Tracked), 2);
  EXPECT_EQ(glance.words(), "Tracked");
  glance.take(record(TrackState::Predicted, 0.5), 3);
  EXPECT_EQ(glance.words(), "Predicted, not seen for 0.5 s") << "not of an earlier find";
}

TEST(GlanceTest, PredictedSaysSinceWhenAndSearchingStaysBetweenSearches) {
  Glance glance;
  glance.take(record(TrackState::Tracked), 0);
  glance.take(record(TrackState::Predicted, 1.24), 1);
  EXPECT_EQ(glance.standing(), Standing::Predicted);
  EXPECT_EQ(glance.words(), "Predicted, not seen for 1.2 s");
  CallRecord search = record(TrackState::Predicted, 1.3);
  search.search = "appearance_fail";
  glance.take(search, 1.1);
  EXPECT_EQ(glance.standing(), Standing::Searching);
  glance.take(record(TrackState::Predicted, 2.0), 2.0);
  EXPECT_EQ(glance.words(), "Searching, not seen for 2.0 s");
  glance.take(record(TrackState::Predicted, 4.0), 4.0);
  EXPECT_EQ(glance.standing(), Standing::Predicted) << "no search for long";
  EXPECT_DOUBLE_EQ(glance.since(4.5), 0.5);
}

TEST(GlanceTest, AGuardThatSearchesIsSearching) {
  CallRecord guarded = record(TrackState::Inactive, 3);
  guarded.guard.emplace();
  guarded.guard->verdict.state = csrt_guard::State::Searching;
  Glance glance;
  glance.take(guarded, 1);
  EXPECT_EQ(glance.standing(), Standing::Searching);
}

TEST(RunViewTest, ATargetSaysWhatItsGuardMakesOfItAndOneWithoutNothing) {
  RunView view;
  view.begin({});
  view.frame(frameOf(1, 1.0), {record(TrackState::Tracked)}, 1.0);
  EXPECT_FALSE(view.targets(1.0)[0].contains("guard"));
  CallRecord guarded = record(TrackState::Inactive, 3);
  guarded.guard.emplace();
  guarded.guard->verdict.state = csrt_guard::State::Searching;
  guarded.guard->verdict.reason = "nowhere";
  view.frame(frameOf(2, 1.1), {guarded}, 1.1);
  EXPECT_EQ(view.targets(1.1)[0]["guard"]["state"], "searching");
  EXPECT_EQ(view.targets(1.1)[0]["guard"]["reason"], "nowhere");
}

TEST(GlanceTest, LostStaysSaidWithItsReasonUntilSomethingIsSeen) {
  Glance glance;
  glance.take(record(TrackState::Tracked), 0);
  glance.take(lost("the reason"), 1);
  glance.take(record(TrackState::Inactive), 2);
  glance.take(record(TrackState::Inactive), 9);
  EXPECT_EQ(glance.standing(), Standing::Lost);
  EXPECT_EQ(glance.words(), "Lost: the reason");
  EXPECT_DOUBLE_EQ(glance.since(9), 8);
  glance.take(record(TrackState::Reseeded), 10);
  EXPECT_EQ(glance.words(), "Tracked");
  glance.take(record(TrackState::Lost), 11);
  EXPECT_EQ(glance.words(), "Lost") << "an old reason is not the new one's";
}

TEST(GlanceTest, WhenTheLastSearchHasFailedItIsLostAtOnce) {
  Glance glance;
  glance.take(record(TrackState::Tracked), 0);
  CallRecord search = record(TrackState::Predicted, 1);
  search.search = "appearance_fail";
  glance.take(search, 1);
  glance.take(lost("why"), 1.04);
  glance.take(record(TrackState::Inactive), 1.08);
  EXPECT_EQ(glance.standing(), Standing::Lost);
}

TEST(GlanceTest, ARefusedStartIsNotStarted) {
  CallRecord refused = record(TrackState::Inactive);
  refused.isInit = true;
  refused.reason = "bbox out of image";
  Glance glance;
  glance.take(refused, 1);
  EXPECT_EQ(glance.standing(), Standing::Lost);
  EXPECT_EQ(glance.words().rfind("Not started: ", 0), 0U) << glance.words();
}

TEST(GlanceTest, SilenceIsNoSignalAndNotALoss) {
  Glance glance;
  glance.take(record(TrackState::Tracked), 0);
  CallRecord silent = record(TrackState::Predicted, 1);
  silent.noSignal = true;
  glance.take(silent, 1);
  EXPECT_EQ(glance.standing(), Standing::NoSignal);
  glance.take(record(TrackState::Tracked), 2);
  EXPECT_EQ(glance.standing(), Standing::Tracked);
}

TEST(TimelineTest, OneRowAStepWithTheGravestStandingTheLargestAgeTheLastScore) {
  Timeline timeline;
  TimelineRow row;
  row.at = 10.00;
  row.age_ms = 80;
  row.targets["car"] = {Standing::Lost, 0.2};
  timeline.add(row);
  row.at = 10.20;
  row.age_ms = 30;
  row.targets["car"] = {Standing::Tracked, 0.9};
  timeline.add(row);
  row.at = 10.26;
  timeline.add(row);
  const auto json = timeline.json(0, 10.3);
  ASSERT_EQ(json["rows"].size(), 1U) << "the step that goes on is not told yet";
  EXPECT_EQ(json["rows"][0]["age_ms"], 80);
  EXPECT_EQ(json["rows"][0]["targets"]["car"], nlohmann::ordered_json({"lost", 0.9}));
  EXPECT_EQ(timeline.json(0, 11)["rows"].size(), 2U);
  EXPECT_EQ(timeline.json(10.1, 11)["rows"].size(), 1U);
}

TEST(TimelineTest, KeepsFiveMinutes) {
  Timeline timeline;
  for (int i = 0; i < 4000; ++i) {
    TimelineRow row;
    row.at = i;
    timeline.add(row);
  }
  EXPECT_EQ(timeline.json(-1, 1e9)["rows"].size(), 301U);
}

TEST(RunViewTest, BeforeTheFirstFrameThereIsAStateToo) {
  RunView view;
  const auto state = view.state(1);
  EXPECT_EQ(state["frame"], -1);
  EXPECT_TRUE(state["targets"].empty());
  EXPECT_NE(view.metrics(1, 0, 0).find("csrt_frames_total 0\n"), std::string::npos);
}

TEST(RunViewTest, SaysAgeRateDropsAndTargets) {
  RunView view;
  view.begin({});
  CallRecord tracked = record(TrackState::Tracked);
  tracked.box = cv::Rect(1, 2, 3, 4);
  tracked.window = cv::Rect(0, 0, 9, 9);
  tracked.score = 0.75;
  for (int i = 0; i < 50; ++i) view.frame(frameOf(2 * i, 100 + 0.08 * i - 0.05, i % 2), {tracked}, 100 + 0.08 * i);
  const double now = 100 + 0.08 * 49;
  const auto state = view.state(now);
  EXPECT_NEAR(state["age_ms"].get<double>(), 50, 0.1);
  EXPECT_NEAR(state["rate"].get<double>(), 12.5, 0.1);
  EXPECT_NEAR(state["source_rate"].get<double>(), 25, 0.1);
  EXPECT_EQ(state["dropped"], 25);
  EXPECT_EQ(state["size"], nlohmann::ordered_json({64, 36}));
  EXPECT_EQ(state["targets"][0]["box"], nlohmann::ordered_json({1, 2, 3, 4}));
  EXPECT_EQ(state["targets"][0]["window"], nlohmann::ordered_json({0, 0, 9, 9}));
  EXPECT_EQ(state["targets"][0]["score"], 0.75);
  EXPECT_EQ(state["targets"][0]["standing"], "tracked");
}

TEST(RunViewTest, ALostTargetHasNoBoxAndAStoppedOneIsGone) {
  RunView view;
  view.begin({});
  CallRecord gone = lost("why");
  gone.box = cv::Rect(1, 2, 3, 4);
  view.frame(frameOf(0, 1), {gone}, 1);
  EXPECT_FALSE(view.targets(1)[0].contains("box"));
  EXPECT_EQ(view.targets(1)[0]["why"], "why");
  view.stopped("car");
  EXPECT_TRUE(view.targets(1).empty());
}

TEST(RunViewTest, AStartShowsTheGivenBox) {
  RunView view;
  view.begin({});
  CallRecord start = record(TrackState::Reseeded);
  start.isInit = start.started = true;
  start.givenBox = cv::Rect(5, 6, 7, 8);
  view.started(start, 1);
  EXPECT_EQ(view.targets(1)[0]["box"], nlohmann::ordered_json({5, 6, 7, 8}));
}

TEST(RunViewTest, NoSignalIsSaidWithItsLength) {
  RunView view;
  view.begin({});
  view.frame(frameOf(0, 1), {}, 1);
  view.noSignal({}, 2.5);
  const auto state = view.state(3.5);
  EXPECT_EQ(state["no_signal"], true);
  EXPECT_EQ(state["silent_s"], 2.5);
  view.frame(frameOf(1, 4), {}, 4);
  EXPECT_EQ(view.state(4)["no_signal"], false);
}

TEST(RunViewTest, MetricsCountLossesOnceAndEscapeNames) {
  RunView view;
  view.begin({});
  CallRecord tracked = record(TrackState::Tracked);
  CallRecord gone = lost("why");
  tracked.target = gone.target = "a\"b\\c";
  view.frame(frameOf(0, 1), {tracked}, 1);
  view.frame(frameOf(1, 1), {gone}, 2);
  view.frame(frameOf(2, 1), {gone}, 3);
  const std::string metrics = view.metrics(3, 4, 5);
  EXPECT_NE(metrics.find("csrt_target_losses_total{target=\"a\\\"b\\\\c\"} 1\n"), std::string::npos) << metrics;
  EXPECT_NE(metrics.find("csrt_target_state{target=\"a\\\"b\\\\c\",state=\"lost\"} 1\n"), std::string::npos);
  EXPECT_NE(metrics.find("csrt_encoded_frames_total 4\n"), std::string::npos);
  EXPECT_NE(metrics.find("csrt_viewers 5\n"), std::string::npos);
}

}  // namespace
