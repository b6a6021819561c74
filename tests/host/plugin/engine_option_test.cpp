// --engine: which plug-in is loaded, and that everything that is written says so.
#include <gtest/gtest.h>

#include "support/host_program.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

class EngineOption : public testing::Test {
 protected:
  void SetUp() override { host::writeStreetScene(scene(), {320, 180}, 8, 10.0); }

  std::string scene() const { return folder_.file("scene.avi"); }

  ProgramResult track(const std::vector<std::string>& more) const {
    std::vector<std::string> all = {"track", scene(),       "--quiet",   "--set", "csrt.template_size=48",
                                    "--box", "58,82,16,30", "--records", "-"};
    all.insert(all.end(), more.begin(), more.end());
    return runProgram(all);
  }

  /// The records, each of which must name the engine; times and engine are taken out.
  static std::vector<Json> recordsWith(const std::string& engine, const ProgramResult& result) {
    EXPECT_EQ(result.status, 0) << result.err;
    std::vector<Json> records = recordsOf(result.out);
    EXPECT_EQ(records.size(), 8U);
    for (Json& record : records) {
      EXPECT_EQ(record.value("engine", ""), engine);
      record.erase("engine");
      record.erase("update_ms");
    }
    return records;
  }

  /// The program and OpenCV's plug-in alone, as an installation of before there was an engine.
  std::string programWithoutFast() const {
    fs::create_directories(folder_.file("bin"));
    fs::create_directories(folder_.file("lib"));
    fs::copy_file(CSRT_TRACK_PROGRAM, folder_.file("bin/csrt-track"));
    fs::copy_file(CSRT_REAL_PLUGIN, folder_.file("lib/libcsrt_tracking_plugin.so"));
    return folder_.file("bin/csrt-track");
  }

  TempFolder folder_;
};

TEST_F(EngineOption, EveryRecordSaysWhichAndTheRestIsTheSame) {
  const auto opencv = recordsWith("opencv", track({"--engine", "opencv"}));
  EXPECT_EQ(opencv, recordsWith("fast", track({"--engine", "fast"})));
}

TEST_F(EngineOption, APluginNamedByPathSaysItsEngineWhateverItsName) {
  fs::copy_file(CSRT_FAST_PLUGIN, folder_.file("renamed.so"));
  recordsWith("fast", track({"--plugin", folder_.file("renamed.so")}));
  recordsWith("fast", track({"--plugin", folder_.file("renamed.so"), "--engine", "fast"}));
  recordsWith("opencv", track({"--plugin", CSRT_REAL_PLUGIN}));
  recordsWith("unknown", track({"--plugin", CSRT_FAKE_PLUGIN}));
}

TEST_F(EngineOption, MistakesAreSaidInOneSentence) {
  expectOneSentence(track({"--engine", "quick"}), 2, "--engine 'quick' is neither opencv nor fast");
  expectOneSentence(track({"--engine", "fast", "--plugin", CSRT_REAL_PLUGIN}), 2, "the file has the engine opencv");
  expectOneSentence(track({"--engine", "opencv", "--plugin", CSRT_FAKE_PLUGIN}), 2, "does not say which engine");
  expectOneSentence(track({"--engine", "fast", "--plugin", folder_.file("none.so")}), 2, "none.so");
}

TEST_F(EngineOption, WhereOnlyOneIsInstalledThatOneRunsUnlessTheOtherWasAskedFor) {
  if (textOf(CSRT_TRACK_PROGRAM).substr(1, 3) != "ELF") GTEST_SKIP() << "the program runs under an emulator";
  const std::string program = programWithoutFast();
  const std::string run = "'" + program + "' track '" + scene() + "' --quiet --box 58,82,16,30 --records ";
  ASSERT_EQ(std::system((run + folder_.file("records") + " 2>" + folder_.file("err")).c_str()), 0)
      << textOf(folder_.file("err"));
  EXPECT_EQ(recordsOf(textOf(folder_.file("records"))).at(0)["engine"], "opencv");
  const int status = std::system((run + "- --engine fast 2>" + folder_.file("err")).c_str());
  EXPECT_EQ(WEXITSTATUS(status), 4);
  EXPECT_NE(textOf(folder_.file("err")).find("libcsrt_tracking_plugin_fast.so' does not exist"), std::string::npos);
}

TEST_F(EngineOption, ReportAndSavedRunSayWhich) {
  ASSERT_EQ(track({"--engine", "fast", "--report", folder_.file("r.html"), "--save-run", folder_.file("run")}).status,
            0);
  EXPECT_NE(textOf(folder_.file("r.html")).find("engine: fast"), std::string::npos);
  EXPECT_EQ(Json::parse(textOf(folder_.file("run/run.json")))["engine"], "fast");
}

TEST_F(EngineOption, AReplayTakesTheSavedEngineAndMayTakeTheOther) {
  ASSERT_EQ(track({"--engine", "fast", "--save-run", folder_.file("run")}).status, 0);
  const ProgramResult same = runProgram({"replay", folder_.file("run"), "--records", folder_.file("same.jsonl")});
  EXPECT_EQ(same.status, 0) << same.out << same.err;
  EXPECT_EQ(recordsOf(textOf(folder_.file("same.jsonl"))).at(3)["engine"], "fast");
  const ProgramResult other = runProgram({"replay", folder_.file("run"), "--engine", "opencv"});
  EXPECT_EQ(other.status, 0) << other.out << other.err;
  EXPECT_NE(other.out.find("engine was fast, is opencv"), std::string::npos) << other.out;
  EXPECT_NE(other.out.find("identical: all 8 records"), std::string::npos) << other.out;
}

TEST_F(EngineOption, EvaluationSaysWhichBesideTheReference) {
  writeText(folder_.file("truth.csv"), "frame,id,x,y,w,h\n1,1,58,82,16,30\n5,1,60,82,16,30\n8,1,62,82,16,30\n");
  const ProgramResult result =
      runProgram({"evaluate", scene(), "--truth", folder_.file("truth.csv"), "--engine", "fast", "--reference",
                  "--json", folder_.file("result.json"), "--html", folder_.file("result.html")});
  ASSERT_EQ(result.status, 0) << result.err;
  const Json json = Json::parse(textOf(folder_.file("result.json")));
  EXPECT_EQ(json["run"]["engine"], "fast");
  EXPECT_TRUE(json["overall"].contains("plugin"));
  EXPECT_TRUE(json["overall"].contains("reference"));
  EXPECT_NE(textOf(folder_.file("result.html")).find("<dt>engine</dt><dd><code>fast</code>"), std::string::npos);
}

TEST_F(EngineOption, ASimulationsSummarySaysWhich) {
  writeText(folder_.file("short.json"),
            R"({"duration_s": 0.2, "title": "short", "target": {"path": [{"pan_deg": 0, "tilt_deg": 0}]}})");
  for (const char* engine : {"opencv", "fast"}) {
    const ProgramResult result =
        runProgram({"simulate", folder_.file("short.json"), "--engine", engine, "--quiet", "--summary", "-"});
    EXPECT_EQ(Json::parse(result.out, nullptr, false)["engine"], engine) << result.out << result.err;
  }
}

class DoctorOnEngines : public testing::Test {
 protected:
  /// Status, and what the doctor says of the engines, with these two files beside one another.
  ProgramResult examine(const std::string& opencv, const std::string& fast) const {
    fs::copy_file(opencv, folder_.file("libcsrt_tracking_plugin.so"));
    if (!fast.empty()) fs::copy_file(fast, folder_.file("libcsrt_tracking_plugin_fast.so"));
    return runProgram({"doctor", "--plugin", folder_.file("libcsrt_tracking_plugin.so"), "--output", folder_.file("")});
  }
  TempFolder folder_;
};

TEST_F(DoctorOnEngines, SaysThatTheyAreEqual) {
  const ProgramResult result = examine(CSRT_REAL_PLUGIN, CSRT_FAST_PLUGIN);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("opencv and fast give the same 60 answers"), std::string::npos) << result.out;
}

TEST_F(DoctorOnEngines, SaysFromWhichFrameOnTheyDiffer) {
  const ProgramResult result = examine(CSRT_REAL_PLUGIN, CSRT_FAKE_PLUGIN);
  EXPECT_EQ(result.status, 1) << result.out << result.err;
  EXPECT_NE(result.out.find("opencv and fast differ from frame"), std::string::npos) << result.out;
}

TEST_F(DoctorOnEngines, SaysThatThereIsOnlyOne) {
  const ProgramResult result = examine(CSRT_REAL_PLUGIN, "");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("libcsrt_tracking_plugin_fast.so' with the engine fast is not there"), std::string::npos)
      << result.out;
}

TEST_F(DoctorOnEngines, SaysThatAPluginDoesNotSay) {
  const ProgramResult result = runProgram({"doctor", "--plugin", CSRT_FAKE_PLUGIN, "--output", folder_.file("")});
  EXPECT_NE(result.out.find("does not say which engine it has"), std::string::npos) << result.out << result.err;
}

}  // namespace
}  // namespace host_test
