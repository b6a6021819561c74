// csrt-track simulate, and track --metadata, from end to end through the built program and the real plug-in.
#include <gtest/gtest.h>

#include <cmath>

#include "support/host_program.h"

namespace host_test {
namespace {

using nlohmann::json;

/// The plug-in waits in it to the end: a run of a moment.
const char* const kTooShort = R"({"duration_s": 0.2, "title": "too short",
  "target": {"path": [{"pan_deg": 20, "tilt_deg": -5}]},
  "config": {"preposition": {"enabled": true}}, "expect": {"armed": true}})";

std::vector<json> withoutTimes(std::vector<json> records) {
  for (json& record : records) record.erase("update_ms");
  return records;
}

TEST(SimulateCommand, ListsAndPrintsTheShippedScenarios) {
  const ProgramResult list = runProgram({"simulate", "--list"});
  EXPECT_EQ(list.status, 0) << list.err;
  const std::vector<std::string> lines = linesOf(list.out);
  EXPECT_EQ(lines.size(), 11U);
  const ProgramResult print = runProgram({"simulate", "--print", "zoom-step"});
  EXPECT_EQ(print.status, 0);
  EXPECT_TRUE(json::parse(print.out, nullptr, false).contains("camera"));
  expectOneSentence(runProgram({"simulate", "--print", "zoom"}), 2, "'zoom'");
}

TEST(SimulateCommand, SaysWhichExpectationIsNotMetAndExitsWithOne) {
  const TempFolder folder;
  writeText(folder.file("short.json"), kTooShort);
  const ProgramResult run = runProgram({"simulate", folder.file("short.json"), "--summary", folder.file("sum.json")});
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_NE(run.out.find("NOT MET     armed: true wanted, false found"), std::string::npos) << run.out;
  const json summary = json::parse(textOf(folder.file("sum.json")));
  EXPECT_EQ(summary["schema"], "csrt-track.simulation");
  EXPECT_EQ(summary["frames"], 5);
  EXPECT_TRUE(summary["armed"].is_null());
  EXPECT_EQ(summary["states"], json({{"waiting", 4}}));
  EXPECT_EQ(summary["checks"][0]["met"], false);
  EXPECT_NEAR(summary["preposition"]["target_pan_deg"], 20, 0.1);
  EXPECT_NEAR(summary["preposition"]["target_tilt_deg"], -5, 0.1);
}

TEST(SimulateCommand, RefusesABadScenarioInOneSentence) {
  const TempFolder folder;
  writeText(folder.file("bad.json"), R"({"target": {"path": [{"pan_deg": 5, "tilt_deg": 0}]}, "camera": {"zom": []}})");
  expectOneSentence(runProgram({"simulate", folder.file("bad.json")}), 2, "camera.zom: there is no such key");
  expectOneSentence(runProgram({"simulate", "nowhere"}), 2, "'nowhere'");
  writeText(folder.file("picture.json"),
            R"({"scene": {"picture": "none.png"}, "target": {"path": [{"pan_deg": 5, "tilt_deg": 0}]}})");
  expectOneSentence(runProgram({"simulate", folder.file("picture.json")}), 2, "none.png");
  expectOneSentence(runProgram({"simulate", "--clock", "sun"}), 2, "'sun'");
}

TEST(SimulateCommand, GivesTheSameRecordsEachTimeWithTruthAndCamera) {
  const std::vector<std::string> arguments = {"simulate", "off-centre", "--records", "-", "--quiet"};
  const ProgramResult first = runProgram(arguments);
  ASSERT_EQ(first.status, 0) << first.err;
  const std::vector<json> records = recordsOf(first.out);
  ASSERT_EQ(records.size(), 60U);
  EXPECT_EQ(records.front()["call"], "init");
  EXPECT_EQ(records.front()["camera"]["phase"], "pointing");
  EXPECT_EQ(records.front()["outputs"][0]["name"], "gimbal_preposition.v1");
  EXPECT_EQ(records.back()["camera"]["phase"], "following");
  EXPECT_GT(records.back()["truth"]["iou"], 0.5);
  EXPECT_NEAR(records.back()["truth"]["box"]["x"].get<double>() + records.back()["truth"]["box"]["w"].get<double>() / 2,
              320, 10);
  EXPECT_EQ(withoutTimes(records), withoutTimes(recordsOf(runProgram(arguments).out)));
}

TEST(SimulateCommand, WritesAClipWithMetadataThatTrackArmsOn) {
  const TempFolder folder;
  const ProgramResult run = runProgram({"simulate", "off-centre", "--clip", folder.file("clip.avi"), "--clip-metadata",
                                        folder.file("clip.jsonl"), "--summary", folder.file("sum.json"), "--sheet",
                                        folder.file("sheet.png"), "--records", folder.file("sim.jsonl"), "--quiet"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_GT(fs::file_size(folder.file("sheet.png")), 1000U);
  const long armed = json::parse(textOf(folder.file("sum.json")))["armed"]["frame"];
  const json given = json::parse(linesOf(textOf(folder.file("sim.jsonl"))).front())["given_box"];
  const std::string box =
      given["x"].dump() + "," + given["y"].dump() + "," + given["w"].dump() + "," + given["h"].dump();
  const ProgramResult track =
      runProgram({"track", folder.file("clip.avi"), "--metadata", folder.file("clip.jsonl"), "--box", box, "--set",
                  "preposition.enabled=true", "--records", "-", "--quiet"});
  ASSERT_EQ(track.status, 0) << track.err;
  const std::vector<json> records = recordsOf(track.out);
  ASSERT_EQ(records.size(), 60U);
  EXPECT_EQ(records.front()["outputs"][0]["name"], "gimbal_preposition.v1");
  EXPECT_EQ(records.at(1)["state"], "waiting");
  EXPECT_EQ(records.at(static_cast<std::size_t>(armed))["state"], "reseeded") << "the same frames are aligned";
  EXPECT_EQ(records.back()["state"], "tracked");
}

TEST(TrackCommand, NamesTheLineOfAWrongMetadataRow) {
  const TempFolder folder;
  writeText(folder.file("meta.csv"), "frame,pan_deg\n0,1\n1,east\n");
  expectOneSentence(runProgram({"track", "clip.avi", "--box", "1,2,3,4", "--metadata", folder.file("meta.csv")}), 2,
                    "line 3: pan_deg 'east' is not a number");
  expectOneSentence(runProgram({"track", "clip.avi", "--box", "1,2,3,4", "--metadata", folder.file("none.csv")}), 2,
                    "none.csv");
}

}  // namespace
}  // namespace host_test
