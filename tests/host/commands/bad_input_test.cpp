// Bad input to every command, end to end through the built program: one clear sentence, and nothing written is lost.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

/// A simulated run of a moment.
const char* const kMoment =
    R"({"duration_s": 0.2, "title": "a moment", "target": {"path": [{"pan_deg": 2, "tilt_deg": 0}]}})";

class BadInput : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    folder_ = new TempFolder();
    host::writeStreetScene(file("clip.avi"), {320, 180}, 30, 10.0);
    std::string truth = "frame,id,x,y,w,h\n";
    for (int i = 1; i <= 20; ++i) truth += std::to_string(i) + ",a," + std::to_string(9 + i) + ",20,30,40\n";
    writeText(file("truth.csv"), truth);
    writeText(file("moment.json"), kMoment);
    writeText(file("a-file"), "here\n");
  }
  static void TearDownTestSuite() {
    delete folder_;
    folder_ = nullptr;
  }

  static std::string file(const std::string& name) { return folder_->file(name); }

  static ProgramResult run(std::vector<std::string> command, const std::vector<std::string>& more) {
    command.insert(command.end(), more.begin(), more.end());
    return runProgram(command);
  }
  static std::vector<std::string> track() {
    return {"track",          file("clip.avi"), "--box", "10,20,30,40", "--plugin",
            CSRT_FAKE_PLUGIN, "--frames",       "10",    "--quiet"};
  }
  static std::vector<std::string> evaluate(const std::string& truth = file("truth.csv")) {
    return {"evaluate", file("clip.avi"), "--truth", truth, "--plugin", CSRT_FAKE_PLUGIN, "--quiet"};
  }
  static std::vector<std::string> tune(const std::string& truth, const std::string& out) {
    return {"tune", file("clip.avi"), "--truth",        truth,     "--budget",   "0.01", "--out",
            out,    "--plugin",       CSRT_FAKE_PLUGIN, "--quiet", "--brackets", "1"};
  }
  static std::vector<std::string> simulate() {
    return {"simulate", file("moment.json"), "--plugin", CSRT_FAKE_PLUGIN, "--quiet"};
  }
  /// A file of a result, made once.
  static std::string result() {
    if (!fs::exists(file("result.json"))) {
      EXPECT_EQ(run(evaluate(), {"--json", file("result.json")}).status, 0);
    }
    return file("result.json");
  }

  static inline TempFolder* folder_ = nullptr;
};

TEST_F(BadInput, ATruthThatCannotBeUsedIsNamedWithItsRowByEveryCommandThatReadsOne) {
  const struct {
    std::string name;
    std::string text;
    std::string complaint;
  } kCases[] = {
      {"three.txt", "1,2,3\n", "row 1: 3 values"},
      {"five.csv", "frame,id,x,y,w,h\n1,a,1,2,3\n", "row 2: expected frame,id,x,y,w,h, found 5 values"},
      {"twice.csv", "frame,id,x,y,w,h\n1,a,1,2,3,4\n1,a,1,2,3,4\n", "row 3: target 'a' is marked twice in frame 1"},
      {"words.txt", "1,2,3,4\n1,2,three,4\n", "row 2"},
      {"empty.txt", "", "empty.txt"},
  };
  for (const auto& one : kCases) {
    const std::string truth = file(one.name);
    writeText(truth, one.text);
    expectOneSentence(run(evaluate(truth), {}), 2, one.complaint);
    expectOneSentence(run(tune(truth, file("tuned")), {}), 2, one.complaint);
    expectOneSentence(run(track(), {"--report", file("report.html"), "--truth", truth}), 2, one.complaint);
  }
  for (const std::string& unreadable : {file("none.csv"), file(""), std::string("/dev/zero")}) {
    expectOneSentence(run(evaluate(unreadable), {}), 2, unreadable);
    expectOneSentence(run(track(), {"--report", file("report.html"), "--truth", unreadable}), 2, unreadable);
  }
}

TEST_F(BadInput, ATruthWhoseFirstMarkLiesOutsideIsSaidAndTheOthersAreJudged) {
  std::string truth = "frame,id,x,y,w,h\n";
  for (int i = 1; i <= 10; ++i) {
    truth +=
        std::to_string(i) + ",out,9000,20,30,40\n" + std::to_string(i) + ",in," + std::to_string(9 + i) + ",20,30,40\n";
  }
  writeText(file("outside.csv"), truth);
  const ProgramResult all = run(evaluate(file("outside.csv")), {"--json", "-"});
  EXPECT_EQ(all.status, 0);
  EXPECT_EQ(linesOf(all.err).size(), 1U) << all.err;
  EXPECT_NE(all.err.find("target 'out'"), std::string::npos) << all.err;
  const Json json = Json::parse(all.out, nullptr, false);
  ASSERT_EQ(json["targets"].size(), 2U);
  EXPECT_EQ(json["overall"]["plugin"]["held_at_end"], 1);
}

TEST_F(BadInput, ABoxOutsideOrANameGivenTwiceIsNamed) {
  const auto boxes = [](const std::vector<std::string>& more) {
    return run({"track", file("clip.avi"), "--plugin", CSRT_FAKE_PLUGIN, "--frames", "10", "--quiet"}, more);
  };
  expectOneSentence(boxes({"--box", "walker=9000,1,5,5"}), 5, "'walker' did not start on the box 9000,1,5,5");
  expectOneSentence(boxes({"--box", "walker=1,1,5,5", "--box", "walker=9,9,5,5"}), 2, "'walker'");
  const std::string records = file("both.jsonl");
  expectOneSentence(boxes({"--box", "out=9000,1,5,5", "--box", "in=10,20,30,40", "--records", records}), 5, "'out'");
  EXPECT_EQ(recordsOf(textOf(records)).size(), 11U) << "ten of the one that started, one of the other";
}

TEST_F(BadInput, APathThatCannotBeWrittenIsNamedBeforeAnyWork) {
  const std::string under = file("a-file/below");  // below a file there is no folder, not even for root
  for (const char* option : {"--records", "--report", "--save-run"}) {
    expectOneSentence(run(track(), {option, under}), 2, under);
  }
  expectOneSentence(run(track(), {"--video", under + ".mp4"}), 2, under);
  expectOneSentence(run(track(), {"--still", under + ".png"}), 2, under);
  for (const char* option : {"--json", "--html"}) {
    expectOneSentence(run(evaluate(), {option, under}), 2, under);
    expectOneSentence(run({"merge", result()}, {option, under}), 2, under);
  }
  expectOneSentence(run(tune(file("truth.csv"), under), {}), 2, under);
  for (const char* option : {"--records", "--summary", "--clip-metadata"}) {
    expectOneSentence(run(simulate(), {option, under}), 2, under);
  }
  for (const char* option : {"--video", "--clip"}) {
    expectOneSentence(run(simulate(), {option, under + ".avi"}), 2, under);
  }
  expectOneSentence(run(simulate(), {"--sheet", under + ".png"}), 2, under);
  expectOneSentence(run({"draw-scene"}, {under + ".avi"}), 2, under);
}

TEST_F(BadInput, AFullDiskIsSaidByEveryCommandThatWrites) {
  const std::string full = "/dev/full";
  for (const char* option : {"--records", "--report"}) expectOneSentence(run(track(), {option, full}), 6, full);
  for (const char* option : {"--json", "--html"}) {
    expectOneSentence(run(evaluate(), {option, full}), 6, full);
    expectOneSentence(run({"merge", result()}, {option, full}), 6, full);
  }
  for (const char* option : {"--records", "--summary", "--clip-metadata"}) {
    expectOneSentence(run(simulate(), {option, full}), 6, full);
  }
}

TEST_F(BadInput, AFullStandardOutputIsSaidToo) {
  const auto intoFull = [](const std::string& arguments) {
    const std::string said = file("said");
    const int state =
        std::system((std::string(CSRT_TRACK_PROGRAM) + " " + arguments + " >/dev/full 2>" + said).c_str());
    EXPECT_TRUE(WIFEXITED(state));
    const std::vector<std::string> lines = linesOf(textOf(said));
    EXPECT_FALSE(lines.empty()) << arguments;
    if (!lines.empty()) {
      EXPECT_EQ(lines.back().rfind("csrt-track: cannot write to standard output", 0), 0U) << arguments << lines.back();
    }
    return WEXITSTATUS(state);
  };
  const std::string plugin = std::string(" --plugin ") + CSRT_FAKE_PLUGIN;
  const std::string clip = file("clip.avi") + plugin;
  for (const std::string& command :
       {std::string("--help"), std::string("--version"), std::string("config defaults"), std::string("config schema"),
        std::string("schema records"), std::string("simulate --list"), "compare " + result() + " " + result(),
        "track " + clip + " --frames 5 --box 10,20,30,40",
        "track " + clip + " --frames 5 --quiet --records - --box 1,2,9,9",
        "evaluate " + clip + " --truth " + file("truth.csv"), "merge " + result() + " --json -",
        "simulate " + file("moment.json") + plugin}) {
    EXPECT_EQ(intoFull(command), 6) << command;
  }
}

TEST_F(BadInput, AnOutputThatFailsTakesNoOtherWithIt) {
  const std::string records = file("kept.jsonl");
  expectOneSentence(run(track(), {"--records", records, "--report", "/dev/full"}), 6, "/dev/full");
  EXPECT_EQ(recordsOf(textOf(records)).size(), 10U);
}

TEST_F(BadInput, AMistakeElsewhereLeavesWhatAnEarlierRunWrote) {
  const std::string records = file("earlier.jsonl");
  writeText(records, "earlier\n");
  writeText(file("bad.txt"), "1,2,3\n");
  const std::vector<std::string> keep = {"--records", records};
  const auto withRecords = [&keep](std::vector<std::string> more) {
    more.insert(more.end(), keep.begin(), keep.end());
    return more;
  };
  expectOneSentence(run(track(), withRecords({"--report", file("r.html"), "--truth", file("bad.txt")})), 2, "bad.txt");
  expectOneSentence(run(track(), withRecords({"--report", file("a-file/r.html")})), 2, "a-file/r.html");
  expectOneSentence(run(track(), withRecords({"--save-run", file("a-file/run")})), 2, "a-file/run");
  expectOneSentence(run(track(), withRecords({"--still", file("a-file/s.png")})), 2, "a-file/s.png");
  EXPECT_EQ(textOf(records), "earlier\n");
  const std::string json = file("earlier.json");
  writeText(json, "earlier\n");
  expectOneSentence(runProgram({"evaluate", file("clip.avi"), "--truth", file("truth.csv"), "--plugin", file("none.so"),
                                "--quiet", "--json", json}),
                    4, "none.so");
  EXPECT_EQ(textOf(json), "earlier\n");
}

TEST_F(BadInput, AnInterruptedReplaySaysSoInsteadOfADifference) {
  const std::string saved = file("slow-run");
  ASSERT_EQ(run(track(), {"--save-run", saved, "--fps", "0.1"}).status, 0);
  std::string about = textOf(saved + "/run.json");  // saved at once, replayed at the clip's rate: a minute and a half
  const std::string pace = "\"pace\": \"video\"";
  ASSERT_NE(about.find(pace), std::string::npos) << about;
  writeText(saved + "/run.json", about.replace(about.find(pace), pace.size(), "\"pace\": \"source\""));
  Program program({"replay", saved, "--plugin", CSRT_FAKE_PLUGIN, "--records", file("replayed.jsonl")});
  while (!fs::exists(file("replayed.jsonl")) && !program.ended()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  program.signal(SIGINT);
  expectOneSentence(program.wait(), 130, "interrupted after");
}

/// Waits for a running program to have written so many lines.
void waitForLines(const Program& program, const std::string& path, std::size_t count) {
  while (linesOf(textOf(path)).size() < count && !program.ended()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

TEST_F(BadInput, AnInterruptedRunLeavesAReportAndASavedRunThatReplays) {
  const std::string page = file("cut.html");
  const std::string saved = file("cut-run");
  Program program({"track", file("clip.avi"), "--box", "10,20,30,40", "--plugin", CSRT_FAKE_PLUGIN, "--quiet", "--pace",
                   "source", "--fps", "2", "--report", page, "--save-run", saved});
  waitForLines(program, saved + "/records.jsonl", 3);
  program.signal(SIGINT);
  EXPECT_EQ(program.wait().status, 130);
  const std::size_t lines = recordsOf(textOf(saved + "/records.jsonl")).size();
  EXPECT_LT(lines, 30U) << "the run was over before the signal";
  EXPECT_NE(textOf(page).find("</html>"), std::string::npos);
  const ProgramResult replay = runProgram({"replay", saved, "--plugin", CSRT_FAKE_PLUGIN});
  EXPECT_EQ(replay.status, 0) << replay.out << replay.err;
}

TEST_F(BadInput, AnInterruptedSimulationLeavesWholeRecordsAndASummary) {
  writeText(file("long.json"),
            R"({"duration_s": 600, "title": "long", "target": {"path": [{"pan_deg": 2, "tilt_deg": 0}]}})");
  const std::string records = file("simulated.jsonl");
  const std::string summary = file("simulated.json");
  Program program({"simulate", file("long.json"), "--plugin", CSRT_FAKE_PLUGIN, "--quiet", "--records", records,
                   "--summary", summary});
  waitForLines(program, records, 5);
  program.signal(SIGTERM);
  EXPECT_EQ(program.wait().status, 143);
  const std::string text = textOf(records);
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');
  EXPECT_EQ(recordsOf(text).size(), Json::parse(textOf(summary))["frames"].get<std::size_t>());
}

}  // namespace
}  // namespace host_test
