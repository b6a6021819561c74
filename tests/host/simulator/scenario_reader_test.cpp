// Scenario files: what is read, and how each kind of mistake is named.
#include "simulator/scenario_reader.h"

#include <gtest/gtest.h>

#include <string>

#include "base/host_error.h"
#include "simulator/shipped_scenarios.h"

namespace host::sim {
namespace {

/// A scenario that is in order, with more members put in.
std::string with(const std::string& members) {
  return R"({"target": {"path": [{"pan_deg": 5, "tilt_deg": -2}]})" + (members.empty() ? "" : ", " + members) + "}";
}

std::string complaintAbout(const std::string& text) {
  try {
    parseScenario(text, "own.json");
  } catch (const HostError& error) {
    EXPECT_EQ(error.code(), ExitCode::Usage);
    return error.what();
  }
  return "nothing";
}

TEST(ScenarioReader, ReadsWhatIsGivenAndKeepsDefaultsForTheRest) {
  const Scenario scenario = parseScenario(with(R"("fps": 10, "duration_s": 2.5, "frame": {"width": 320, "height": 180},
    "camera": {"pan_deg": 2, "zoom": [{"after": "following", "at_s": 1, "hfov_deg": 20}],
               "tilt": {"min_deg": -20, "max_deg": 10}},
    "metadata": {"faults": [{"kind": "text", "from_s": 1, "until_s": 2, "keys": ["pan_deg"]}]},
    "config": {"preposition": {"enabled": true}}, "host": {"mark_again_after_s": 1.5},
    "expect": {"armed_within_frames": 9, "final_state": ["tracked"], "state_right_min": 0.9})"),
                                          "dir/own.json");
  EXPECT_EQ(scenario.name, "own");
  EXPECT_EQ(scenario.frames(), 25);
  EXPECT_EQ(scenario.frame, cv::Size(320, 180));
  EXPECT_EQ(scenario.camera.start.pan, 2);
  EXPECT_EQ(scenario.camera.hfov_deg, 60);
  EXPECT_EQ(scenario.camera.zoom.at(0).after, ZoomStart::Following);
  EXPECT_EQ(scenario.camera.tilt.min_deg, -20);
  EXPECT_EQ(scenario.metadata.faults.at(0).kind, MetadataFault::Kind::Text);
  EXPECT_EQ(scenario.config, R"({"preposition":{"enabled":true}})");
  EXPECT_EQ(scenario.expect.armed_within_frames, 9);
  EXPECT_EQ(scenario.expect.state_right_min, 0.9);
  EXPECT_FALSE(scenario.expect.armed.has_value());
  EXPECT_EQ(scenario.host.mark_again_after_s, 1.5);
  EXPECT_EQ(scenario.target.path.at(0).at.pan, 5);
}

TEST(ScenarioReader, NamesThePlaceOfAMistake) {
  const std::string head = "scenario 'own.json': ";
  const struct {
    std::string text;
    std::string complaint;
  } kCases[] = {
      {"[]", "this must be an object, not an array"},
      {"{}", "target: this is missing"},
      {with(R"("fps": 0)"), "fps: 0 is not between 1 and 240"},
      {with(R"("fps": "25")"), "fps: this must be a number, not a text"},
      {with(R"("seed": 1.5)"), "seed: 1.5 is not a whole number"},
      {with(R"("title": 3)"), "title: this must be a text, not a number"},
      {with(R"("camera": {"tilt": {"min_deg": 5, "max_deg": 5}})"), "camera.tilt.min_deg: this is not below max_deg"},
      {with(R"("camera": {"zoom": [{"at_s": 1}]})"), "camera.zoom[0].hfov_deg: this is missing"},
      {with(R"("camera": {"zoom": [{"after": "lunch", "hfov_deg": 20}]})"),
       "camera.zoom[0].after: 'lunch' is none of beginning, following"},
      {with(R"("camera": [])"), "camera: this must be an object, not an array"},
      {with(R"("occluders": {})"), "occluders: this must be an array, not an object"},
      {with(R"("occluders": [{"look": "tree"}])"), "occluders[0].look: 'tree' is none of car, person, drone, wall"},
      {with(R"("occluders": [{"look": "wall"}])"), "occluders[0].path: there must be at least one place"},
      {with(R"("decoys": [{"size_deg": [1, 2, 3], "path": []}])"), "decoys[0].size_deg: this must be two numbers"},
      {with(R"("decoys": [{"size_deg": [1, 0], "path": []}])"), "decoys[0].size_deg[1]: 0 is not between 0.05 and 180"},
      {with(
           R"("decoys": [{"path": [{"t_s": 1, "pan_deg": 1, "tilt_deg": 1}, {"t_s": 1, "pan_deg": 1, "tilt_deg": 1}]}])"),
       "decoys[0].path[1].t_s: this is not later than the one before"},
      {with(R"("decoys": [{"path": [{"t_s": 1, "pan_deg": 1}]}])"), "decoys[0].path[0].tilt_deg: this is missing"},
      {with(R"("host": {"follow_me": 1})"), "host.follow_me: this must be true or false, not a number"},
      {with(R"("metadata": {"faults": [{"from_s": 2, "until_s": 2}]})"),
       "metadata.faults[0].until_s: this is not later than from_s"},
      {with(R"("expect": {"final_state": ["asleep"]})"),
       "expect.final_state[0]: 'asleep' is none of waiting, tracked, rebuilt, redetected, predicted, reseeded, lost, "
       "inactive, reacquired"},
      {with(R"("config": 3)"), "config: this must be an object, not a number"},
      {R"({"target": {"path": [{"pan_deg": 40, "tilt_deg": 0}]}})",
       "target: it is not in the picture of the first frame"},
  };
  for (const auto& one : kCases) EXPECT_EQ(complaintAbout(one.text), head + one.complaint) << one.text;
}

TEST(ScenarioReader, ReadsWhatIsLateAndWhoFollows) {
  const Scenario plain = parseScenario(with(R"("seed": 1)"), "own");
  EXPECT_EQ(plain.camera.video_delay_s, 0.0);
  EXPECT_FALSE(plain.host.predicting);
  const Scenario late = parseScenario(
      with(R"("camera": {"video_delay_s": 0.2}, "metadata": {"delay_s": 0.1}, "host": {"controller": "predicting"})"),
      "own");
  EXPECT_EQ(late.camera.video_delay_s, 0.2);
  EXPECT_EQ(late.metadata.delay_s, 0.1);
  EXPECT_TRUE(late.host.predicting);
  EXPECT_NE(complaintAbout(with(R"("host": {"controller": "magic"})")).find("host.controller"), std::string::npos);
}

TEST(ScenarioReader, PaintsADecoyAsTheTargetOnlyWhereItSaysSo) {
  const char* path = R"("path": [{"pan_deg": 5, "tilt_deg": -2}])";
  const Scenario scenario = parseScenario(
      with(std::string(R"("decoys": [{"like_target": true, )") + path + "}, {" + path + "}]"), "own.json");
  EXPECT_TRUE(scenario.decoys.at(0).likeTarget);
  EXPECT_FALSE(scenario.decoys.at(1).likeTarget);
}

TEST(ScenarioReader, NamesAKeyThatThereIsNot) {
  const std::string complaint = complaintAbout(with(R"("host": {"folow_me": true})"));
  EXPECT_EQ(complaint,
            "scenario 'own.json': host.folow_me: there is no such key here; known are box_offset, controller, follow, "
            "follow_me, mark_again_after_s");
}

TEST(ScenarioReader, SaysWhereTheTextStopsBeingJson) {
  EXPECT_NE(complaintAbout("{\n  \"fps\": }").find("line 2, column"), std::string::npos)
      << complaintAbout("{\n  \"fps\": }");
}

TEST(ScenarioReader, KnowsNoFileAndNoNameThatThereIsNot) {
  EXPECT_THROW(loadScenario("nowhere"), HostError);
  EXPECT_EQ(loadScenario("zoom-step").name, "zoom-step");
}

TEST(ShippedScenarios, AllSayWhatTheyExpectOfArmingAndOfWrongTargets) {
  ASSERT_EQ(shippedScenarios().size(), 11U);
  for (const ShippedScenario& shipped : shippedScenarios()) {
    const Scenario scenario = loadScenario(shipped.name);
    EXPECT_FALSE(scenario.title.empty()) << shipped.name;
    EXPECT_LE(scenario.frame.area(), 640 * 360) << shipped.name;
    EXPECT_EQ(scenario.expect.armed, true) << shipped.name;
    EXPECT_LE(scenario.expect.armed_within_frames.value_or(1000), 75) << shipped.name;
    EXPECT_GE(scenario.expect.first_iou_min.value_or(0), 0.3) << shipped.name;
    EXPECT_TRUE(scenario.expect.false_boxes_max == 0 || scenario.expect.wrong_claims_max <= 0.02) << shipped.name;
    EXPECT_FALSE(scenario.expect.final_state.empty()) << shipped.name;
  }
}

}  // namespace
}  // namespace host::sim
