// track --report: one page that needs nothing but a browser.
#include <gtest/gtest.h>

#include "support/browser.h"
#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

class Report : public testing::Test {
 protected:
  void SetUp() override { host::writeStreetScene(folder_.file("scene.avi"), {320, 180}, 30, 10.0); }

  ProgramResult track(const std::vector<std::string>& more, const std::string& script) {
    std::vector<std::string> all = {"track", folder_.file("scene.avi"), "--plugin", CSRT_FAKE_PLUGIN,        "--quiet",
                                    "--box", "walker=10,20,30,40",      "--set",    "fake.script=" + script, "--report",
                                    page()};
    all.insert(all.end(), more.begin(), more.end());
    return runProgram(all);
  }
  std::string page() const { return folder_.file("report.html"); }

  Json data() const {
    const std::string text = textOf(page());
    const std::string mark = "type=\"application/json\">";
    const std::size_t begin = text.find(mark) + mark.size();
    return Json::parse(text.substr(begin, text.find("</script>", begin) - begin), nullptr, false);
  }

  TempFolder folder_;
};

TEST_F(Report, TellsEveryFrameAndEvent) {
  ASSERT_EQ(track({"--frames", "7"}, "ttpptt").status, 0);
  const Json json = data();
  ASSERT_FALSE(json.is_discarded());
  const Json& target = json["targets"].at(0);
  EXPECT_EQ(target["name"], "walker");
  EXPECT_EQ(target["frames"].size(), 7U);
  EXPECT_EQ(target["frames"][3]["state"], "predicted");
  std::vector<long> events;
  for (const Json& event : target["events"]) events.push_back(event["frame"]);
  EXPECT_EQ(events, (std::vector<long>{0, 1, 3, 5}));
  EXPECT_EQ(json["stills"].size(), 7U);
}

TEST_F(Report, JudgesByTheTruth) {
  std::string truth;
  for (int i = 0; i < 7; ++i) truth += "10,20,30,40\n";
  writeText(folder_.file("truth.txt"), truth);
  ASSERT_EQ(track({"--frames", "7", "--truth", folder_.file("truth.txt")}, "tttttt").status, 0);
  const Json target = data()["targets"].at(0);
  EXPECT_TRUE(target["frames"][2].contains("iou"));
  EXPECT_EQ(target["curves"]["success"].size(), target["curves"]["success_steps"].size());
}

TEST_F(Report, NeedsNothingFromOutside) {
  ASSERT_EQ(track({"--frames", "4"}, "ttt").status, 0);
  const std::string text = textOf(page());
  EXPECT_EQ(text.find("src=\"http"), std::string::npos);
  EXPECT_EQ(text.find("<link"), std::string::npos);
}

TEST_F(Report, OpensInABrowserWithoutComplaint) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  ASSERT_EQ(track({"--frames", "20"}, "ttttppppppttttrtttt").status, 0);
  const PageVisit visit = openInBrowser(page(), folder_);
  EXPECT_NE(visit.dom.find("data-ready=\"yes\""), std::string::npos) << "the page's script did not reach its end";
  EXPECT_NE(visit.dom.find("data:image/jpeg;base64,"), std::string::npos);
  EXPECT_EQ(visit.complaints(), "");
}

TEST_F(Report, SaysWhereItCannotBeWritten) {
  std::vector<std::string> all = {
      "track",    folder_.file("scene.avi"),          "--plugin", CSRT_FAKE_PLUGIN, "--box", "1,2,30,40",
      "--report", folder_.file("no/such/report.html")};
  expectOneSentence(runProgram(all), 2, "no/such");
}

TEST_F(Report, TruthWithoutAReportIsAMistake) {
  expectOneSentence(runProgram({"track", folder_.file("scene.avi"), "--box", "1,2,30,40", "--truth", "t.txt"}), 2,
                    "--report");
}

}  // namespace
}  // namespace host_test
