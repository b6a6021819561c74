// track --report: one page that needs nothing but a browser.
#include <gtest/gtest.h>

#include <algorithm>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/videoio.hpp>
#include <set>

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
  static std::string decoded(const std::string& base64) {
    std::string bytes;
    unsigned value = 0;
    int bits = 0;
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (const char c : base64) {
      if (c == '=') break;
      value = (value << 6U) | static_cast<unsigned>(letters.find(c));
      bits += 6;
      if (bits < 8) continue;
      bits -= 8;
      bytes += static_cast<char>((value >> static_cast<unsigned>(bits)) & 0xFFU);
    }
    return bytes;
  }
  std::string page() const { return folder_.file("report.html"); }

  Json data() const {
    const std::string text = textOf(page());
    const std::string mark = "type=\"application/json\">";
    const std::size_t begin = text.find(mark) + mark.size();
    return Json::parse(text.substr(begin, text.find("</script>", begin) - begin), nullptr, false);
  }

  /// How many of the first target's figures have these words in their names.
  long figuresNaming(const std::string& words) const {
    const Json figures = data()["targets"].at(0)["figures"];
    return std::count_if(figures.begin(), figures.end(), [&words](const Json& figure) {
      return figure.at(0).get<std::string>().find(words) != std::string::npos;
    });
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
  EXPECT_EQ(events, (std::vector<long>{0, 3, 5}));
  EXPECT_EQ(json["stills"].size(), 7U);
}

TEST_F(Report, TheStartIsNoIncident) {
  ASSERT_EQ(track({"--frames", "4"}, "ttt").status, 0);
  const Json smooth = data()["targets"].at(0);
  EXPECT_EQ(smooth["events"].size(), 1U) << smooth["events"];
  EXPECT_EQ(smooth["frames"][0]["start"], true);
  EXPECT_FALSE(smooth["frames"][1].contains("start"));
  ASSERT_EQ(track({"--frames", "4"}, "pzt").status, 0);
  const Json rough = data()["targets"].at(0)["events"];
  ASSERT_EQ(rough.size(), 4U) << "a start that fails at once, and starting anew in the middle, are told";
  EXPECT_EQ(rough[1]["what"], "start → predicted");
  EXPECT_EQ(rough[3]["what"], "reseeded → tracked");
}

TEST_F(Report, ExplainsThePluginsOwnWords) {
  ASSERT_EQ(track({"--frames", "4"}, "tot").status, 0);
  const std::string what = data()["targets"].at(0)["events"].at(1)["what"];
  EXPECT_EQ(what.find("tracked → lost: it was found and lost again too often (oscillation"), 0U) << what;
}

TEST_F(Report, PicturesAreWideAndThePageStaysSmall) {
  // Noise: the largest pictures there are.
  cv::VideoWriter writer(folder_.file("noise.avi"), cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10.0, {1600, 900});
  cv::RNG random(1);
  for (int i = 0; i < 24; ++i) {
    cv::Mat noise(900, 1600, CV_8UC3);
    random.fill(noise, cv::RNG::UNIFORM, 0, 256);
    writer.write(noise);
  }
  writer.release();
  ASSERT_EQ(runProgram({"track", folder_.file("noise.avi"), "--plugin", CSRT_FAKE_PLUGIN, "--quiet", "--box",
                        "walker=10,20,30,40", "--set", "fake.script=tptptptptptptptptptptp", "--report", page()})
                .status,
            0);
  EXPECT_LT(fs::file_size(page()), 5U << 20U);
  const Json stills = data()["stills"];
  ASSERT_GE(stills.size(), 2U);
  EXPECT_EQ(stills.at(0)["frame"], 0);
  EXPECT_EQ(data()["targets"].at(0)["events"].size(), 23U) << "events stay, whatever becomes of their pictures";
  const std::string base64 = stills.at(0)["jpeg"];
  const std::string bytes = decoded(base64);
  EXPECT_EQ(cv::imdecode(std::vector<char>(bytes.begin(), bytes.end()), cv::IMREAD_COLOR).size(), cv::Size(1280, 720));
}

/// A figure that goes behind a sign and comes out: the guard doubts, searches and finds.
class GuardedReport : public Report {
 protected:
  void SetUp() override {
    host::writeStreetScene(folder_.file("sign.avi"), {640, 360}, 170, 25.0, 90);
    const ProgramResult result = runProgram({"track", folder_.file("sign.avi"), "--quiet", "--start", "60", "--box",
                                             "figure=236,171,32,60", "--guard", "colour", "--report", page()});
    ASSERT_EQ(result.status, 0) << result.err;
  }
};

TEST_F(GuardedReport, TellsWhatTheGuardDecidedAndWhy) {
  const Json target = data()["targets"].at(0);
  std::set<std::string> states;
  std::string reason;
  for (const Json& frame : target["frames"]) {
    if (!frame.contains("guard")) continue;
    states.insert(frame["guard"]);
    reason = frame.value("why", reason);
    EXPECT_NE(reason, "") << frame;
  }
  for (const char* state : {"agreed", "doubted", "searching", "reacquired"})
    EXPECT_EQ(states.count(state), 1U) << state;
  std::string events;
  for (const Json& event : target["events"]) events += event["what"].get<std::string>() + "\n";
  for (const char* change :
       {"guard: agreed → doubted", "guard: doubted → searching: ", "guard: searching → reacquired"}) {
    EXPECT_NE(events.find(change), std::string::npos) << events;
  }
  bool counted = false;
  for (const Json& figure : target["figures"]) counted = counted || figure.at(0) == "found by the guard";
  EXPECT_TRUE(counted);
}

TEST_F(GuardedReport, TellsTheGuardSTimeBesideThePlugIns) {
  const Json target = data()["targets"].at(0);
  for (const Json& frame : target["frames"]) {
    EXPECT_EQ(frame.contains("guard_ms"), frame.contains("guard")) << frame;
    EXPECT_GE(frame.value("guard_ms", 1.0), 0.0) << frame;
  }
  EXPECT_EQ(figuresNaming("ms of the plug-in"), 2);
  EXPECT_EQ(figuresNaming("ms of the guard"), 2);
  EXPECT_NE(data()["settings"].get<std::string>().find("\nguard: colour\n"), std::string::npos);
}

TEST_F(GuardedReport, ShowsTheGuardAboveTheSameFrames) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  const PageVisit visit = openInBrowser(page(), folder_);
  EXPECT_EQ(visit.complaints(), "");
  EXPECT_NE(visit.dom.find("aria-label=\"Chart: guard over frames: agreed"), std::string::npos);
  EXPECT_NE(visit.dom.find("aria-label=\"Chart: likeness of the box"), std::string::npos);
  EXPECT_NE(visit.dom.find("lost and looked for"), std::string::npos);
  EXPECT_NE(visit.dom.find("aria-label=\"Chart: ms of the plug-in; ms of the guard\""), std::string::npos);
  std::set<std::string> areas;
  for (std::size_t at = visit.dom.find("data-area=\""); at != std::string::npos;
       at = visit.dom.find("data-area=\"", at + 1)) {
    areas.insert(visit.dom.substr(at + 11, visit.dom.find('"', at + 11) - at - 11));
  }
  EXPECT_EQ(areas.size(), 1U);
}

TEST_F(Report, WithoutAGuardSaysNothingOfOne) {
  ASSERT_EQ(track({"--frames", "7"}, "ttpptt").status, 0);
  for (const Json& frame : data()["targets"].at(0)["frames"]) {
    EXPECT_FALSE(frame.contains("guard") || frame.contains("guard_ms"));
  }
  EXPECT_EQ(figuresNaming("guard"), 0);
  EXPECT_EQ(figuresNaming("plug-in"), 0);
  EXPECT_EQ(figuresNaming("ms per frame, median"), 1);
  EXPECT_EQ(data()["settings"].get<std::string>().find("guard"), std::string::npos);
  if (!hasBrowser()) return;
  const std::string dom = openInBrowser(page(), folder_).dom;
  EXPECT_NE(dom.find("<div id=\"guardbox\" hidden"), std::string::npos);
  EXPECT_NE(dom.find("aria-label=\"Chart: ms per frame\""), std::string::npos);
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

/// What a script finds in the page when everything is drawn: it writes into the document, which is then read.
TEST_F(Report, ChartsHaveTheirDataAboveOneAnotherAndEndWhereTheyEnd) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  ASSERT_EQ(track({"--frames", "14"}, "ttttppppttttt").status, 0);
  const std::string dom = openInBrowser(page(), folder_).dom;
  std::set<std::string> areas;
  for (std::size_t at = dom.find("data-area=\""); at != std::string::npos; at = dom.find("data-area=\"", at + 1)) {
    areas.insert(dom.substr(at + 11, dom.find('"', at + 11) - at - 11));
  }
  ASSERT_EQ(areas.size(), 1U) << dom.substr(dom.find("<canvas"), 2000);
  EXPECT_EQ(areas.begin()->substr(areas.begin()->rfind(' ') + 1), "13") << "the last frame";
}

TEST_F(Report, TheOverlapHasAnAxisOfItsOwn) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  std::string truth;
  for (int i = 0; i < 7; ++i) truth += "10,20,30,40\n";
  writeText(folder_.file("truth.txt"), truth);
  ASSERT_EQ(track({"--frames", "7", "--truth", folder_.file("truth.txt")}, "tttttt").status, 0);
  const std::string dom = openInBrowser(page(), folder_).dom;
  EXPECT_NE(dom.find("aria-label=\"Chart: overlap with the truth\""), std::string::npos);
  EXPECT_NE(dom.find("aria-label=\"Chart: score\""), std::string::npos);
}

TEST_F(Report, EventsAreButtonsAndThePicturesPlay) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  ASSERT_EQ(track({"--frames", "10"}, "ttppttttt").status, 0);
  std::string html = textOf(page());
  // What a person does with Tab, Enter and the play button; the browser's time runs until the pictures have played.
  html.insert(html.rfind("</body>"), R"(<script>
    const button = byId('events').querySelectorAll('button')[1];
    button.focus();
    document.body.dataset.focused = document.activeElement === button ? 'yes' : 'no';
    button.click();
    document.body.dataset.event = byId('caption').textContent;
    byId('play').click();
    document.body.dataset.playing = byId('play').getAttribute('aria-pressed');
    setTimeout(() => { document.body.dataset.end = byId('caption').textContent + byId('play').textContent; }, 3000);
  </script>)");
  writeText(page(), html);
  const std::string dom = openInBrowser(page(), folder_).dom;
  EXPECT_NE(dom.find("data-focused=\"yes\""), std::string::npos);
  EXPECT_NE(dom.find("data-event=\"frame 3,"), std::string::npos);
  EXPECT_NE(dom.find("data-playing=\"true\""), std::string::npos);
  EXPECT_NE(dom.find("data-end=\"frame 9, 0.90 sPlay\""), std::string::npos);
}

TEST_F(Report, FollowsTheBrowsersDarkPreference) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  ASSERT_EQ(track({"--frames", "4"}, "ttt").status, 0);
  std::string html = textOf(page());
  html.insert(html.rfind("</body>"),
              "<script>document.body.dataset.looks = getComputedStyle(document.body)."
              "backgroundColor + ' ' + Chart.defaults.color;</script>");
  writeText(page(), html);
  const auto looks = [&](const std::string& option) {
    const std::string dom = openInBrowser(page(), folder_, option).dom;
    const std::size_t at = dom.find("data-looks=\"");
    return at == std::string::npos ? std::string() : dom.substr(at + 12, dom.find('"', at + 12) - at - 12);
  };
  EXPECT_EQ(looks("--blink-settings=preferredColorScheme=1"), "rgb(250, 251, 252) #55606e");
  EXPECT_EQ(looks("--blink-settings=preferredColorScheme=0"), "rgb(20, 24, 29) #a8b2bf");
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
