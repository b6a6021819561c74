// The figures of an evaluation, against values worked out by hand.
#include "evaluation/metrics.h"

#include <gtest/gtest.h>

#include "base/host_error.h"
#include "evaluation/results.h"

namespace {

using host::Judgement;
using host::MetricSums;
using host::TargetSamples;

const cv::Rect2d kTruth(100, 100, 40, 40);

/// One second a frame keeps the arithmetic readable.
Judgement at(long frame, const std::optional<cv::Rect2d>& box, bool seen = true) {
  return host::judge(frame, static_cast<double>(frame), kTruth, box, seen);
}

Judgement away(long frame, const std::optional<cv::Rect2d>& box, bool seen) {
  return host::judge(frame, static_cast<double>(frame), std::nullopt, box, seen);
}

/// Moved by dx pixels: an overlap of (40 - dx) / (40 + dx).
cv::Rect2d moved(double dx) {
  return kTruth + cv::Point2d(dx, 0);
}

TEST(Overlap, IsIntersectionOverUnion) {
  EXPECT_DOUBLE_EQ(host::overlapOf(kTruth, kTruth), 1.0);
  EXPECT_DOUBLE_EQ(host::overlapOf(kTruth, moved(20)), 1.0 / 3);
  EXPECT_DOUBLE_EQ(host::overlapOf({0, 0, 10, 10}, {0, 0, 5, 10}), 0.5);
  EXPECT_DOUBLE_EQ(host::overlapOf(kTruth, moved(40)), 0.0);  // touching is not overlapping
  EXPECT_DOUBLE_EQ(host::overlapOf(kTruth, {}), 0.0);
}

TEST(CentreDistance, IsEuclidean) {
  EXPECT_DOUBLE_EQ(host::centreDistance({0, 0, 10, 10}, {3, 4, 10, 10}), 5.0);
  EXPECT_DOUBLE_EQ(host::centreDistance({0, 0, 10, 10}, {0, 0, 20, 10}), 5.0);
}

TEST(Judge, AnEmptyBoxIsNone) {
  EXPECT_FALSE(host::judge(0, 0, kTruth, cv::Rect2d(1, 1, 0, 5), true).hasBox);
  EXPECT_FALSE(host::judge(0, 0, kTruth, std::nullopt, false).distance.has_value());
}

TEST(Metrics, OfFourFramesByHand) {
  TargetSamples s;
  // Overlaps 1, 1/3 (20 px away), 0 without a box, 1/9 (32 px away).
  s.judgements = {at(1, kTruth), at(2, moved(20)), at(3, std::nullopt, false), at(4, moved(32))};
  const MetricSums sums = host::sumsOf(s);
  const host::Metrics m = host::metricsOf(sums);
  EXPECT_EQ(sums.present, 4);
  EXPECT_DOUBLE_EQ(m.meanIou, (1 + 1.0 / 3 + 0 + 1.0 / 9) / 4);
  EXPECT_DOUBLE_EQ(m.onTarget, 0.5);
  EXPECT_DOUBLE_EQ(m.precision20, 0.5);  // exactly 20 px counts
  // Steps 0 to 0.95 lie below 1: 20 of 21; below 1/3: 0 to 0.3, 7; below 1/9: 0, 0.05 and 0.1, 3.
  EXPECT_DOUBLE_EQ(m.successAuc, (20 + 7 + 0 + 3) / (4 * 21.0));
  EXPECT_DOUBLE_EQ(m.successCurve[0], 0.75);
  EXPECT_DOUBLE_EQ(m.successCurve[20], 0.0);  // more than 1 is impossible
  EXPECT_DOUBLE_EQ(m.precisionCurve[0], 0.25);
  EXPECT_DOUBLE_EQ(m.precisionCurve[32], 0.75);
}

TEST(Metrics, TimeOffTargetRunsFromMarkToMark) {
  TargetSamples s;
  s.startTime_s = 0;
  // On at 1; off at 2, 4, 5; on at 7; off at 8 to the end at 10.
  s.judgements = {at(1, kTruth),   at(2, moved(60)), at(4, moved(60)), at(5, std::nullopt, false),
                  at(7, moved(4)), at(8, moved(60)), at(10, moved(60))};
  const MetricSums sums = host::sumsOf(s);
  EXPECT_DOUBLE_EQ(sums.offTotal_s, (1 + 2 + 1) + (1 + 2));
  EXPECT_DOUBLE_EQ(sums.offLongest_s, 4);
  EXPECT_DOUBLE_EQ(sums.watched_s, 10);
  EXPECT_EQ(sums.losses, 2);
  EXPECT_EQ(sums.recoveries, 1);
  EXPECT_DOUBLE_EQ(sums.recovery_s, 7 - 2);
  EXPECT_EQ(sums.heldAtEnd, 0);
}

TEST(Metrics, ADelayRunsFromTheReturnOfTheTarget) {
  TargetSamples s;
  // There and followed, gone, back at 5 and found at 7; gone again, back at 9 and found at once.
  s.judgements = {at(1, kTruth),
                  away(2, kTruth, false),
                  away(3, std::nullopt, false),
                  at(5, std::nullopt, false),
                  at(7, kTruth),
                  away(8, kTruth, true),
                  at(9, kTruth)};
  const MetricSums sums = host::sumsOf(s);
  EXPECT_EQ(sums.losses, 2);
  EXPECT_EQ(sums.recoveries, 2);
  EXPECT_DOUBLE_EQ(sums.recovery_s, (7 - 5) + 0);
  EXPECT_DOUBLE_EQ(sums.recoveryLongest_s, 2);
  EXPECT_DOUBLE_EQ(host::metricsOf(sums).redetectDelay_s, 1);
  EXPECT_EQ(sums.absent, 3);
  EXPECT_EQ(sums.falseBoxes, 2);
  EXPECT_EQ(sums.falseSeen, 1);
}

TEST(Metrics, AnAbsenceEndsALossWithoutARecovery) {
  TargetSamples s;
  s.judgements = {at(1, moved(60)), away(2, std::nullopt, false), at(3, moved(60)), at(4, kTruth)};
  const MetricSums sums = host::sumsOf(s);
  EXPECT_EQ(sums.losses, 2);
  EXPECT_EQ(sums.recoveries, 1);
  EXPECT_DOUBLE_EQ(sums.recovery_s, 1);
}

TEST(Metrics, SeenElsewhereCountsOnlyFramesThatWereCalledSeen) {
  TargetSamples s;
  // Overlap 1/19 = 0.053 called seen, the same only predicted, 1/9 = 0.11 called seen, and one seen while absent.
  s.judgements = {at(1, moved(36)), at(2, moved(36), false), at(3, moved(32)), away(4, kTruth, true)};
  const host::Metrics m = host::metricsOf(host::sumsOf(s));
  EXPECT_DOUBLE_EQ(m.seenElsewhere, 2.0 / 3);
}

TEST(Metrics, OfATargetThatDidNotStart) {
  TargetSamples s;
  s.started = false;
  s.judgements = {at(1, std::nullopt, false)};
  const MetricSums sums = host::sumsOf(s);
  EXPECT_EQ(sums.heldAtEnd, 0);
  EXPECT_DOUBLE_EQ(host::metricsOf(sums).onTarget, 0);
  EXPECT_DOUBLE_EQ(host::metricsOf(MetricSums()).meanIou, 0);  // nothing to divide by
}

TEST(Metrics, SumsOfTwoTargetsPoolTheirFrames) {
  TargetSamples one;
  one.judgements = {at(1, kTruth), at(2, kTruth), at(3, kTruth)};
  TargetSamples two;
  two.judgements = {at(1, moved(60))};
  MetricSums sums = host::sumsOf(one);
  sums += host::sumsOf(two);
  EXPECT_DOUBLE_EQ(host::metricsOf(sums).onTarget, 0.75);
  EXPECT_EQ(sums.heldAtEnd, 1);
  EXPECT_EQ(sums.targets, 2);
}

host::EvaluationResult resultOf(const std::string& target, double dx) {
  host::EvaluationResult result;
  result.facts = {{"configuration", "{}"}, {"pace", "video"}, {"shard", target}};
  host::TargetResult t{"street", target, host::kPluginTracker, true, {}};
  t.samples.judgements = {at(1, moved(dx)), at(2, std::nullopt, false), away(3, kTruth, true)};
  t.samples.wall_ms = {1.5, 2.25, 4};
  t.samples.cpu_ms = {1.25, 2, 3};
  result.targets = {t};
  return result;
}

TEST(EvaluationJson, ReadsBackAsItWasWritten) {
  const host::EvaluationResult result = resultOf("a", 7);
  const std::string text = toJson(result).dump();
  EXPECT_EQ(toJson(host::evaluationFromJson(text, "a.json")).dump(), text);
}

TEST(EvaluationJson, OtherFilesAreRefused) {
  EXPECT_THROW(host::evaluationFromJson("{}", "a.json"), host::HostError);
  EXPECT_THROW(host::evaluationFromJson("no JSON", "a.json"), host::HostError);
  auto json = toJson(resultOf("a", 7));
  json["targets"][0].erase("marks");
  EXPECT_THROW(host::evaluationFromJson(json.dump(), "a.json"), host::HostError);
  json = toJson(resultOf("a", 7));
  json["version"] = 2;
  EXPECT_THROW(host::evaluationFromJson(json.dump(), "a.json"), host::HostError);
}

TEST(MergeEvaluations, AddsTargetsAndRefusesDoublesAndStrangers) {
  const host::EvaluationResult a = resultOf("a", 0);
  const host::EvaluationResult b = resultOf("b", 60);
  const host::EvaluationResult all = host::mergeEvaluations({a, b}, {"a.json", "b.json"});
  ASSERT_EQ(all.targets.size(), 2U);
  EXPECT_DOUBLE_EQ(overallOf(all).at("plugin").metrics.onTarget, 0.25);
  EXPECT_DOUBLE_EQ(overallOf(all).at("plugin").timing.wallMedian_ms, 2.25);
  EXPECT_THROW(host::mergeEvaluations({a, a}, {"a.json", "a.json"}), host::HostError);
  host::EvaluationResult other = b;
  other.facts[1].second = "fast";
  EXPECT_THROW(host::mergeEvaluations({a, other}, {"a.json", "b.json"}), host::HostError);
}

}  // namespace
