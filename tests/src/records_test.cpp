// The records that leave the plug-in.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "support/test_algo.h"

namespace {

using Object = AlgoValue::Object;

const AlgoValue::Array& detectionsOf(const AlgoOutput& output) {
  return std::get<AlgoValue::Array>(std::get<Object>(output.value).front().second);
}

std::vector<std::string> namesOf(const AlgoValue& object) {
  std::vector<std::string> names;
  for (const auto& member : std::get<Object>(object)) names.push_back(member.first);
  return names;
}

}  // namespace

TEST(OutputDeclarations, NameBothRecordsWithTheHostsNumbers) {
  const std::vector<AlgoOutputDeclaration> declared = TestAlgo().getOutputDeclarations();
  ASSERT_EQ(declared.size(), 2U);
  EXPECT_EQ(declared[0].name, "detection.v1");
  EXPECT_EQ(declared[0].first, 10);
  EXPECT_EQ(declared[0].second, 30);
  EXPECT_EQ(declared[1].name, "gimbal_preposition.v1");
  EXPECT_EQ(declared[1].first, 0);
  EXPECT_EQ(declared[1].second, 0);
}

TEST(DetectionRecord, HoldsAnEmptyListWhenNothingWasFound) {
  const AlgoOutput output = TestAlgo().makeDetectionsOutput_({});
  EXPECT_EQ(output.name, "detection.v1");
  EXPECT_EQ(namesOf(output.value), std::vector<std::string>{"detections"});
  EXPECT_TRUE(detectionsOf(output).empty());
}

TEST(DetectionRecord, HoldsNineMembersInOrderWithTheirAlternatives) {
  DetectionResult result;
  result.dets.push_back({1, 2, 3, 4, -1, "a name longer than fifteen characters", "info", 6, 0.25F});
  const AlgoOutput output = TestAlgo().makeDetectionsOutput_(result);
  ASSERT_EQ(detectionsOf(output).size(), 1U);
  const AlgoValue& det = detectionsOf(output).front();
  EXPECT_EQ(namesOf(det), (std::vector<std::string>{"x", "y", "w", "h", "class_id", "class_name", "class_info",
                                                    "tracker_id", "score"}));
  EXPECT_EQ(std::get<long>(memberOf(det, "x")), 1);
  EXPECT_EQ(std::get<long>(memberOf(det, "y")), 2);
  EXPECT_EQ(std::get<long>(memberOf(det, "w")), 3);
  EXPECT_EQ(std::get<long>(memberOf(det, "h")), 4);
  EXPECT_EQ(std::get<long>(memberOf(det, "class_id")), -1);
  EXPECT_EQ(std::get<std::string>(memberOf(det, "class_name")), "a name longer than fifteen characters");
  EXPECT_EQ(std::get<std::string>(memberOf(det, "class_info")), "info");
  EXPECT_EQ(std::get<long>(memberOf(det, "tracker_id")), 6);
  EXPECT_EQ(std::get<double>(memberOf(det, "score")), 0.25);
}

TEST(DetectionRecord, KeepsTheOrderOfTheResult) {
  DetectionResult result;
  for (const int x : {30, 10, 20}) {
    result.dets.emplace_back();
    result.dets.back().x = x;
  }
  const AlgoOutput output = TestAlgo().makeDetectionsOutput_(result);
  ASSERT_EQ(detectionsOf(output).size(), 3U);
  EXPECT_EQ(std::get<long>(memberOf(detectionsOf(output)[0], "x")), 30);
  EXPECT_EQ(std::get<long>(memberOf(detectionsOf(output)[1], "x")), 10);
  EXPECT_EQ(std::get<long>(memberOf(detectionsOf(output)[2], "x")), 20);
}

TEST(PrepositionRecord, HoldsPanThenTilt) {
  const AlgoOutput output = TestAlgo().makePrepositionOutput_(12.5, -3.25);
  EXPECT_EQ(output.name, "gimbal_preposition.v1");
  EXPECT_EQ(namesOf(output.value), (std::vector<std::string>{"target_pan_deg", "target_tilt_deg"}));
  EXPECT_EQ(std::get<double>(memberOf(output.value, "target_pan_deg")), 12.5);
  EXPECT_EQ(std::get<double>(memberOf(output.value, "target_tilt_deg")), -3.25);
}

TEST(DetectionScore, IsTheLatestStabilityInsideZeroAndOne) {
  TestAlgo algo;
  EXPECT_EQ(algo.currentDetectionScore_(), 1.0F) << "before any frame";
  algo.lastScore_ = 0.7;
  EXPECT_EQ(algo.currentDetectionScore_(), 0.7F);
  algo.lastScore_ = -3.0;
  EXPECT_EQ(algo.currentDetectionScore_(), 0.0F);
  algo.lastScore_ = 7.0;
  EXPECT_EQ(algo.currentDetectionScore_(), 1.0F);
}

TEST(DetectionScore, IsFullWhereItIsNoNumber) {
  TestAlgo algo;
  for (const double score :
       {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
    algo.lastScore_ = score;
    EXPECT_EQ(algo.currentDetectionScore_(), 1.0F) << score;
  }
}
