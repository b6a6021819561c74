// A minute of covers, exits over every border, returns elsewhere, zoom steps and the target's end, through the built
// program and the real plug-in: are states and boxes what the truth of the scene says?
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

/// The scene is run once for all tests.
class HonestyScene : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    const TempFolder folder;
    const std::string summary = folder.file("summary.json");
    result_ = runProgram({"simulate", "honesty", "--summary", summary});
    summary_ = Json::parse(textOf(summary), nullptr, false);
  }

  static const Json& honesty() { return summary_["honesty"]; }
  static long eventsNamed(const std::string& what) {
    return std::count_if(honesty()["events"].begin(), honesty()["events"].end(),
                         [&what](const Json& event) { return event["what"] == what; });
  }

  static inline ProgramResult result_;
  static inline Json summary_;
};

TEST_F(HonestyScene, EverythingThatWasScriptedHappens) {
  ASSERT_TRUE(summary_.is_object()) << result_.err;
  EXPECT_EQ(honesty()["frames"], 1500);
  EXPECT_EQ(eventsNamed("the camera is there"), 1);
  EXPECT_GE(eventsNamed("hidden"), 1);
  for (const char* border : {"right", "left", "top", "bottom"}) {
    EXPECT_GE(eventsNamed(std::string("out by the ") + border + " border"), 1) << border;
  }
  EXPECT_GE(eventsNamed("in view again"), 5);
  EXPECT_EQ(eventsNamed("zoom to 45 deg") + eventsNamed("zoom to 60 deg"), 2);
  EXPECT_EQ(honesty()["events"].back()["what"], "out by the top border");
}

// The scenario's limits: states right in 82 of 100 frames (86.6 were measured; the aim of 99 is out of reach, see
// below), boxes elsewhere in at most 2 of 100 (none was measured).
TEST_F(HonestyScene, TheFiguresAreThoseOfTheDocumentation) {
  EXPECT_EQ(result_.status, 0) << result_.out << result_.err;
  EXPECT_NE(result_.out.find("honesty:    state right on "), std::string::npos) << result_.out;
  EXPECT_GE(honesty()["state_right_share"], 0.82);
  EXPECT_LE(honesty()["wrong_claims_share"], 0.02);
  EXPECT_GT(honesty()["claims"], 600);
}

// A wrong frame never claims too much: each says "not seen" although the target is back, because the plug-in has not
// found it again. It may not have, by its own rules: given up at the border or after ten searches, the next search not
// due, its find refused.
TEST_F(HonestyScene, EveryWrongStateHasADocumentedCause) {
  const std::set<std::string> exits = {"LOST predict", "UNSTABLE predict", "not init/fullyLost",
                                       "given up: bbox collée au bord", "given up: not found again"};
  const std::set<std::string> details = {"",
                                         "no search yet since it came into view",
                                         "last search: appearance_fail",
                                         "last search: reject: too far",
                                         "last search: reject: size",
                                         "last search: reject: score",
                                         "given up: bbox collée au bord",
                                         "given up: not found again"};
  long wrong = 0;
  for (const Json& cause : honesty()["wrong_states_by_cause"]) {
    EXPECT_EQ(cause["what"], "does not see the target in view") << cause;
    EXPECT_EQ(exits.count(cause["exit"]), 1U) << cause;
    EXPECT_EQ(details.count(cause["detail"]), 1U) << cause;
    wrong += cause["frames"].get<long>();
  }
  EXPECT_EQ(wrong, 1500 - honesty()["state_right"].get<long>());
}

}  // namespace
}  // namespace host_test
