// csrt-track evaluate, merge, compare and tune, from end to end through the built program.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <string>
#include <thread>

#include "picture/street_scene.h"
#include "support/browser.h"
#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

/// Black pictures with a truth that moves one pixel a frame to the right: what the scripted plug-in answers.
class ScriptedSequence : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder_.file("walk/img"));
    std::string truth;
    for (int i = 0; i < 11; ++i) {
      cv::imwrite(folder_.file("walk/img/" + std::to_string(i) + ".png"), cv::Mat::zeros(48, 64, CV_8UC3));
      truth += std::to_string(10 + i) + ",10,10,10\n";
    }
    writeText(folder_.file("walk/groundtruth_rect.txt"), truth);
  }

  std::string script(const std::string& letters) {
    const std::string path = folder_.file(letters + ".json");
    writeText(path, R"({"fake":{"script":")" + letters + "\"}}");
    return path;
  }

  Json evaluate(const std::string& letters, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"evaluate", folder_.file("walk"),
                                          "--plugin", CSRT_FAKE_PLUGIN,
                                          "--config", script(letters),
                                          "--json",   "-",
                                          "--quiet",  "--fps",
                                          "10"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ProgramResult result = runProgram(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    return Json::parse(result.out, nullptr, false);
  }

  TempFolder folder_;
};

TEST_F(ScriptedSequence, FiguresFollowFromTheScript) {
  // Five tracked frames, three predicted ones in the right place, two without a box.
  const Json json = evaluate("tttttpppii");
  const Json& f = json["overall"]["plugin"];
  EXPECT_EQ(f["marks_present"], 10);  // the first frame was given
  EXPECT_DOUBLE_EQ(f["on_target"], 0.8);
  EXPECT_DOUBLE_EQ(f["mean_iou"], 0.8);
  EXPECT_EQ(f["called_seen"], 5);
  EXPECT_EQ(f["held_at_end"], 0);
  EXPECT_NEAR(f["off_target_total_s"].get<double>(), 0.2, 1e-9);
  EXPECT_EQ(f["losses"], 1);
  EXPECT_EQ(f["recoveries"], 0);
  EXPECT_EQ(f["updates"], 10);
  EXPECT_EQ(json["run"]["pace"], "video");
}

TEST_F(ScriptedSequence, BoxesWhileTheTargetIsAbsentAreCounted) {
  std::string truth;
  for (int i = 0; i < 11; ++i) truth += i < 6 ? std::to_string(10 + i) + ",10,10,10\n" : "nan,nan,nan,nan\n";
  writeText(folder_.file("walk/groundtruth_rect.txt"), truth);
  const Json f = evaluate("tttttttppi")["overall"]["plugin"];
  EXPECT_EQ(f["marks_absent"], 5);
  EXPECT_EQ(f["false_boxes"], 4);
  EXPECT_EQ(f["false_seen"], 2);
  EXPECT_DOUBLE_EQ(f["seen_elsewhere"], 2.0 / 7);
}

TEST_F(ScriptedSequence, CompareEndsWithOneOnARegressionOnly) {
  writeText(folder_.file("a.json"), evaluate("tttttttttt").dump());
  writeText(folder_.file("b.json"), evaluate("ttttttttii").dump());
  const ProgramResult worse = runProgram({"compare", folder_.file("a.json"), folder_.file("b.json")});
  EXPECT_EQ(worse.status, 1);
  EXPECT_NE(worse.out.find("WORSE than allowed"), std::string::npos) << worse.out;
  EXPECT_EQ(runProgram({"compare", folder_.file("a.json"), folder_.file("b.json"), "--tolerance", "0.25"}).status, 1)
      << "the end was lost";
  EXPECT_EQ(runProgram({"compare", folder_.file("b.json"), folder_.file("a.json")}).status, 0);
  expectOneSentence(runProgram({"compare", folder_.file("a.json"), folder_.file("walk/groundtruth_rect.txt")}), 2,
                    "groundtruth_rect.txt");
}

TEST_F(ScriptedSequence, ShardsMergeToTheWhole) {
  std::string truth = "frame,id,x,y,w,h\n";
  for (int i = 0; i < 11; ++i) {
    for (const char* id : {"1", "2", "3"}) {
      truth += std::to_string(i + 1) + "," + id + "," + std::to_string(10 + i) + ",10,10,10\n";
    }
  }
  fs::remove(folder_.file("walk/groundtruth_rect.txt"));
  writeText(folder_.file("truth.csv"), truth);
  const std::vector<std::string> truthOption = {"--truth", folder_.file("truth.csv")};
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.end(), truthOption.begin(), truthOption.end());
    return evaluate("ttttiiiiii", more);
  };
  writeText(folder_.file("1.json"), with({"--shard", "1/2"}).dump());
  writeText(folder_.file("2.json"), with({"--shard", "2/2"}).dump());
  const ProgramResult merged = runProgram({"merge", folder_.file("1.json"), folder_.file("2.json"), "--json", "-"});
  ASSERT_EQ(merged.status, 0) << merged.err;
  EXPECT_EQ(merged.err, "");
  Json all = Json::parse(merged.out)["overall"]["plugin"];
  Json whole = with({})["overall"]["plugin"];
  for (const char* time : {"wall_ms_median", "wall_ms_p95", "cpu_ms_median", "cpu_ms_p95"}) {
    all.erase(time);
    whole.erase(time);
  }
  EXPECT_EQ(all, whole);
  EXPECT_EQ(whole["targets"], 3);
  expectOneSentence(runProgram({"merge", folder_.file("1.json"), folder_.file("1.json")}), 2, "1.json");
  Json other = Json::parse(textOf(folder_.file("2.json")));
  other["run"]["program"] = "csrt-track 0.0.9";
  writeText(folder_.file("other.json"), other.dump());
  const ProgramResult mixed = runProgram({"merge", folder_.file("1.json"), folder_.file("other.json")});
  EXPECT_EQ(mixed.status, 0) << "nothing is missing";
  EXPECT_EQ(linesOf(mixed.err).size(), 1U) << mixed.err;
  EXPECT_NE(mixed.err.find("note: the parts were not made alike"), std::string::npos) << mixed.err;
  EXPECT_NE(mixed.err.find("; csrt-track 0.0.9"), std::string::npos) << mixed.err;
}

TEST_F(ScriptedSequence, AMergeOfIncompleteShardsSaysWhatIsMissing) {
  writeText(folder_.file("1.json"), evaluate("tttttttttt", {"--shard", "1/3"}).dump());
  writeText(folder_.file("3.json"), evaluate("tttttttttt", {"--shard", "3/3"}).dump());
  const ProgramResult one = runProgram({"merge", folder_.file("1.json")});
  EXPECT_EQ(one.status, 1);
  EXPECT_EQ(one.err, "csrt-track: the result is not complete: shards 2/3, 3/3 are missing\n");
  const std::string page = folder_.file("all.html");
  const std::string all = folder_.file("all.json");
  const ProgramResult two =
      runProgram({"merge", folder_.file("1.json"), folder_.file("3.json"), "--json", all, "--html", page});
  EXPECT_EQ(two.status, 1);
  EXPECT_EQ(two.err, "csrt-track: the result is not complete: shard 2/3 is missing\n");
  EXPECT_NE(two.out.find("NOT COMPLETE, missing shards: 2/3"), std::string::npos) << two.out;
  EXPECT_NE(textOf(page).find("Not complete, missing shards: 2/3"), std::string::npos);
  // The merged file takes the missing part later, and is whole then.
  writeText(folder_.file("2.json"), evaluate("tttttttttt", {"--shard", "2/3"}).dump());
  const ProgramResult whole = runProgram({"merge", all, folder_.file("2.json")});
  EXPECT_EQ(whole.status, 0) << whole.err;
  EXPECT_EQ(whole.out.find("missing"), std::string::npos);
}

TEST_F(ScriptedSequence, WithoutAJudgedFrameThereAreNoFigures) {
  writeText(folder_.file("walk/groundtruth_rect.txt"), "10,10,10,10\n");  // the start alone
  const Json f = evaluate("tttttttttt")["overall"]["plugin"];
  EXPECT_EQ(f["marks_present"], 0);
  for (const char* figure : {"on_target", "success_auc", "precision_20px", "mean_iou"}) {
    EXPECT_TRUE(f[figure].is_null()) << figure;
  }
  const std::string page = folder_.file("page.html");
  const ProgramResult table =
      runProgram({"evaluate", folder_.file("walk"), "--plugin", CSRT_FAKE_PLUGIN, "--html", page});
  EXPECT_EQ(table.status, 0) << table.err;
  EXPECT_EQ(table.out.find("0.000"), std::string::npos) << table.out;
  EXPECT_EQ(textOf(page).find("<td data-label=\"success AUC\">0.000"), std::string::npos);
  EXPECT_NE(textOf(page).find("<td data-label=\"success AUC\">-"), std::string::npos);
}

TEST_F(ScriptedSequence, ANarrowPageShowsEveryFigure) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  const std::string page = folder_.file("page.html");
  evaluate("tttttpppii", {"--reference", "--html", page});
  std::string html = textOf(page);
  html.insert(html.rfind("</body>"), R"(<script>
    const cell = document.querySelector('#figures td[data-label="success AUC"]'), place = cell.getBoundingClientRect();
    parent.postMessage([cell.textContent, place.width > 0, place.right <= innerWidth, innerWidth,
                        document.documentElement.scrollWidth <= innerWidth].join(' '), '*');
  </script>)");
  writeText(page, html);
  // The browser's own window is never as narrow as a telephone.
  writeText(folder_.file("narrow.html"),
            "<body><script>onmessage = e => document.body.dataset.auc = e.data;</script>"
            "<iframe src=\"page.html\" width=\"400\" height=\"800\" frameborder=\"0\"></iframe>");
  const std::string dom = openInBrowser(folder_.file("narrow.html"), folder_).dom;
  EXPECT_NE(dom.find("data-auc=\"0.762 true true 400 true\""), std::string::npos) << dom;
}

TEST_F(ScriptedSequence, TheTableFitsATerminalOfEightyColumns) {
  const std::string longName = "a-sequence-with-a-name-that-is-longer-than-its-column";
  fs::rename(folder_.file("walk"), folder_.file(longName));
  const ProgramResult result =
      runProgram({"evaluate", folder_.file(longName), "--plugin", CSRT_FAKE_PLUGIN, "--reference"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("\n" + longName + "/target\n"), std::string::npos) << "the whole name, on its own line";
  for (const std::string& line : linesOf(result.out)) EXPECT_LE(line.size(), 80U) << line;
}

TEST_F(ScriptedSequence, MistakesAreSaidInOneSentence) {
  const std::string walk = folder_.file("walk");
  const auto run = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"evaluate", walk, "--plugin", CSRT_FAKE_PLUGIN, "--quiet"});
    return runProgram(more);
  };
  expectOneSentence(run({"--truth", "no.txt"}), 2, "no.txt");
  expectOneSentence(run({"--pace", "slow"}), 2, "slow");
  expectOneSentence(run({"--shard", "3/2"}), 2, "3/2");
  expectOneSentence(run({"--targets", "nobody"}), 2, "nobody");
  expectOneSentence(run({"--json", folder_.file("no/such/folder.json")}), 2, "folder.json");
  writeText(folder_.file("walk/groundtruth_rect.txt"), "1,2,3,4\n1,2,3,oops\n");
  expectOneSentence(run({}), 2, "row 2");
}

TEST_F(ScriptedSequence, ATruthLongerThanTheClipIsJudgedAsFarAsItGoes) {
  std::string truth;
  for (int i = 0; i < 20; ++i) truth += std::to_string(10 + i) + ",10,10,10\n";
  writeText(folder_.file("walk/groundtruth_rect.txt"), truth);
  const Json json = evaluate("tttttttttt");
  EXPECT_EQ(json["targets"][0]["complete"], false);
  EXPECT_EQ(json["overall"]["plugin"]["marks_present"], 10);
}

TEST_F(ScriptedSequence, AClipThatEndsBeforeItsTruthBeginsIsAnError) {
  fs::remove(folder_.file("walk/groundtruth_rect.txt"));
  writeText(folder_.file("truth.csv"), "frame,id,x,y,w,h\n51,1,10,10,10,10\n61,1,10,10,10,10\n");
  expectOneSentence(runProgram({"evaluate", folder_.file("walk"), "--truth", folder_.file("truth.csv"), "--plugin",
                                CSRT_FAKE_PLUGIN, "--quiet"}),
                    3, "ends before frame 50");
}

TEST_F(ScriptedSequence, AnInterruptedRunWritesAWholeResult) {
  const std::string json = folder_.file("cut.json");
  Program program({"evaluate", folder_.file("walk"), "--plugin", CSRT_FAKE_PLUGIN, "--quiet", "--json", json, "--pace",
                   "source", "--fps", "1"});
  // Its own file is begun before the first frame, after signals are caught, and takes its place at the end.
  const auto begun = [this] {
    const fs::directory_iterator files(folder_.file("")), end;
    return std::any_of(files, end, [](const auto& f) { return f.path().filename().string().rfind(".csrt-", 0) == 0; });
  };
  while (!begun() && !program.ended()) std::this_thread::yield();
  EXPECT_FALSE(fs::exists(json));
  program.signal(SIGINT);
  EXPECT_EQ(program.wait().status, 130);
  const Json result = Json::parse(textOf(json), nullptr, false);
  ASSERT_TRUE(result.is_object());
  EXPECT_EQ(result["targets"].size(), 0U);  // the one target was cut off
}

TEST_F(ScriptedSequence, TheTableAndThePageShowTheFigures) {
  const std::string page = folder_.file("page.html");
  const ProgramResult result = runProgram({"evaluate", folder_.file("walk"), "--plugin", CSRT_FAKE_PLUGIN, "--config",
                                           script("tttttttttt"), "--html", page});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("walk/target"), std::string::npos) << result.out;
  const std::string html = textOf(page);
  EXPECT_NE(html.find("walk/target"), std::string::npos);
  EXPECT_NE(html.find("</html>"), std::string::npos);
  EXPECT_EQ(html.find("src=\"http"), std::string::npos) << "the page needs nothing but itself";
  EXPECT_EQ(html.find("<link"), std::string::npos);
}

TEST_F(ScriptedSequence, ThePageDrawsTheCurvesOfBothTrackersInABrowserAndFetchesNothing) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  const std::string page = folder_.file("page.html");
  evaluate("tttttpppii", {"--reference", "--html", page});
  const PageVisit visit = openInBrowser(page, folder_);
  EXPECT_NE(visit.dom.find("data-ready=\"yes\""), std::string::npos) << "the page's script did not reach its end";
  EXPECT_EQ(visit.complaints(), "");
  EXPECT_NE(visit.dom.find("plugin, area 0.7"), std::string::npos) << "the legend is told to whoever cannot see it";
  EXPECT_NE(visit.dom.find("reference, area "), std::string::npos);
}

TEST_F(ScriptedSequence, APageThatWantedSomethingFromOutsideWouldBeNoticed) {
  if (!hasBrowser()) GTEST_SKIP() << "chromium is not installed";
  const std::string page = folder_.file("page.html");
  evaluate("tttttttttt", {"--html", page});
  std::string html = textOf(page);
  html.insert(html.find("<h1>"), "<img src=\"http://127.0.0.1:9/none.png\">");
  writeText(page, html);
  EXPECT_NE(openInBrowser(page, folder_).complaints(), "");
}

/// A small drawn street, followed by the real plug-in.
class DrawnSequence : public testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(folder_.file("street/img"));
    const host::StreetScene scene({320, 240}, 7);
    std::string truth = "frame,id,x,y,w,h\n";
    for (int i = 0; i < kFrames; ++i) {
      cv::imwrite(folder_.file("street/img/" + std::to_string(i) + ".png"), scene.frame(i));
      const cv::Rect box = scene.truth(i);
      const std::string mark = std::to_string(box.x) + "," + std::to_string(box.y) + "," + std::to_string(box.width) +
                               "," + std::to_string(box.height) + "\n";
      for (const char* id : {"a", "b"}) truth += std::to_string(i + 1) + "," + id + "," + mark;
    }
    writeText(folder_.file("truth.csv"), truth);
  }

  std::vector<std::string> command(const std::string& name) const {
    return {name,       folder_.file("street"), "--truth", folder_.file("truth.csv"),
            "--plugin", CSRT_REAL_PLUGIN,       "--set",   "csrt.template_size=60"};
  }
  ProgramResult run(const std::string& name, const std::vector<std::string>& more) const {
    std::vector<std::string> arguments = command(name);
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runProgram(arguments);
  }

  static constexpr int kFrames = 12;
  TempFolder folder_;
};

TEST_F(DrawnSequence, PluginAndReferenceAreMeasuredInOneRun) {
  const ProgramResult result =
      run("evaluate", {"--targets", "a", "--reference=plugin", "--pace", "video", "--json", "-", "--quiet"});
  ASSERT_EQ(result.status, 0) << result.err;
  const Json json = Json::parse(result.out);
  EXPECT_GT(json["overall"]["plugin"]["on_target"], 0.9);
  EXPECT_GT(json["overall"]["reference"]["on_target"], 0.9);
  EXPECT_EQ(json["overall"]["reference"]["updates"], kFrames - 1);
  EXPECT_GT(json["overall"]["reference"]["cpu_ms_median"], 0);
  EXPECT_EQ(json["run"]["pace"], "video");
}

TEST_F(DrawnSequence, ASearchIsRepeatableResumableAndScoredOnHeldBackTargets) {
  const std::vector<std::string> search = {"--budget", "30", "--brackets", "1", "--candidates", "3", "--quiet"};
  const auto tuneInto = [&](const std::string& out) {
    std::vector<std::string> more = search;
    more.insert(more.end(), {"--out", folder_.file(out)});
    return run("tune", more);
  };
  ASSERT_EQ(tuneInto("first").status, 0);
  const auto trialsOf = [&](const std::string& out) {
    Json trials = Json::parse(textOf(folder_.file(out + "/tuning.json")))["trials"];
    for (Json& trial : trials) trial.erase("cpu_ms");
    return trials;
  };
  const Json trials = trialsOf("first");
  EXPECT_EQ(trials.size(), 3U + 1U + 1U);
  const Json result = Json::parse(textOf(folder_.file("first/tuning.json")));
  EXPECT_EQ(result["search"]["held_back"], Json::array({"street/a"}));
  EXPECT_EQ(result["held_back"].size(), 3U);  // defaults, start, best
  EXPECT_EQ(Json::parse(textOf(folder_.file("first/best.json"))), result["best"]);

  // The second run is cut in the middle of a line and goes on to the same end.
  fs::create_directories(folder_.file("second"));
  const std::string log = textOf(folder_.file("first/trials.jsonl"));
  const std::vector<std::string> lines = linesOf(log);
  writeText(folder_.file("second/trials.jsonl"), lines[0] + "\n" + lines[1] + "\n" + lines[2].substr(0, 20));
  ASSERT_EQ(tuneInto("second").status, 0);
  EXPECT_EQ(trialsOf("second"), trials);
  EXPECT_EQ(linesOf(textOf(folder_.file("second/trials.jsonl"))).size(), lines.size());

  std::vector<std::string> other = search;
  other.insert(other.end(), {"--out", folder_.file("first"), "--seed", "9"});
  expectOneSentence(run("tune", other), 2, "another search");
}

}  // namespace
}  // namespace host_test
