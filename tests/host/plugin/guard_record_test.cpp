// --guard through the built program: what records say of the guard, how a lost target is started over, wrong words.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

/// The first 16 seconds of the honesty scene: pointing, a wall, out by one border and back over another.
class GuardRecords : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    Json scene = Json::parse(runProgram({"simulate", "--print", "honesty"}).out);
    scene["duration_s"] = 16;
    scene.erase("expect");
    const TempFolder folder;
    writeText(folder.file("scene.json"), scene.dump());
    for (const char* guard : {"off", "colour"}) {
      std::vector<Json>& records = std::string(guard) == "off" ? unguarded_ : guarded_;
      const std::string file = folder.file(std::string(guard) + ".jsonl");
      result_ = runProgram({"simulate", folder.file("scene.json"), "--guard", guard, "--records", file});
      for (const std::string& line : linesOf(textOf(file))) records.push_back(Json::parse(line));
    }
  }
  static inline ProgramResult result_;
  static inline std::vector<Json> guarded_, unguarded_;
};

TEST_F(GuardRecords, SayWhatTheGuardMadeOfEveryCallThatItJudged) {
  ASSERT_EQ(guarded_.size(), 400U) << result_.err;
  int judged = 0;
  for (const Json& record : guarded_) {
    Json plain = record;
    plain.erase("truth");
    plain.erase("camera");
    EXPECT_EQ(recordFault(plain), "") << record;
    if (!record.contains("guard")) continue;
    ++judged;
    EXPECT_NE(record["guard"]["reason"], "");
    const std::string state = record["guard"]["state"];
    const bool seen = record["frames_since_seen"] == 0;
    const bool vouchedFor = state == "agreed" || state == "reacquired";
    EXPECT_TRUE(state == "unguarded" || seen == vouchedFor) << record;
  }
  EXPECT_GT(judged, 300);
}

TEST_F(GuardRecords, AFindStartsTheTrackerOverWithoutPointingTheCameraAgain) {
  int found = 0;
  for (const Json& record : guarded_) {
    if (record["state"] == "reacquired") {
      ++found;
      EXPECT_EQ(record["box_from"], "guard") << record;
      EXPECT_GE(record["guard"]["belief"], 0.75) << record;
    }
    EXPECT_TRUE(found == 0 || record["state"] != "waiting") << record;
  }
  EXPECT_GT(found, 0);
}

TEST_F(GuardRecords, WithoutAGuardSayNothingOfOne) {
  ASSERT_EQ(unguarded_.size(), 400U);
  for (const Json& record : unguarded_) EXPECT_FALSE(record.contains("guard")) << record;
}

TEST(GuardOption, NamesAGuardThatThereIsNot) {
  for (const char* command : {"track", "simulate"}) {
    const ProgramResult result = runProgram({command, "nowhere", "--guard", "sonar"});
    EXPECT_EQ(result.status, 2) << command;
    EXPECT_NE(result.err.find("--guard 'sonar'"), std::string::npos) << result.err;
  }
}

}  // namespace
}  // namespace host_test
