// track --save-run and replay: a run that can be handed over and repeated.
#include <gtest/gtest.h>

#include <chrono>
#include <set>

#include "run/saved_run.h"
#include "support/host_program.h"
#include "web/run_keeper.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

class Replay : public testing::Test {
 protected:
  void SetUp() override { host::writeStreetScene(folder_.file("scene.avi"), {320, 180}, 12, 10.0); }

  ProgramResult save(const std::vector<std::string>& more = {}, const std::string& plugin = CSRT_REAL_PLUGIN) {
    std::vector<std::string> all = {"track",
                                    folder_.file("scene.avi"),
                                    "--plugin",
                                    plugin,
                                    "--quiet",
                                    "--set",
                                    "csrt.template_size=48",
                                    "--box",
                                    "58,82,16,30",
                                    "--save-run",
                                    folder_.file("run")};
    all.insert(all.end(), more.begin(), more.end());
    return runProgram(all);
  }
  ProgramResult replay(const std::string& plugin = CSRT_REAL_PLUGIN) { return replayWith({"--plugin", plugin}); }
  ProgramResult replayWith(const std::vector<std::string>& more) {
    std::vector<std::string> all = {"replay", folder_.file("run")};
    all.insert(all.end(), more.begin(), more.end());
    return runProgram(all);
  }
  Json about() const { return Json::parse(textOf(folder_.file("run/run.json"))); }
  void sayOfTheGuard(const Json& guard) {
    Json changed = about();
    changed["guard"] = guard;
    writeText(folder_.file("run/run.json"), changed.dump());
  }
  void edit(const std::string& name, const std::string& from, const std::string& to) {
    std::string text = textOf(folder_.file("run/" + name));
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    writeText(folder_.file("run/" + name), text.replace(at, from.size(), to));
  }

  TempFolder folder_;
};

TEST_F(Replay, RepeatsEveryRecord) {
  ASSERT_EQ(save().status, 0);
  const ProgramResult result = replay();
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("identical: all 12 records"), std::string::npos) << result.out;
}

TEST_F(Replay, NamesTheFirstRecordThatDiffers) {
  ASSERT_EQ(save().status, 0);
  edit("records.jsonl", "\"frame\":7,", "\"frame\":70,");
  const ProgramResult result = replay();
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("first difference: target 'target', frame 70: /frame was 70, is 7"), std::string::npos)
      << result.out;
  EXPECT_NE(result.out.find("1 of 12 records differ"), std::string::npos) << result.out;
}

TEST_F(Replay, SeesARecordThatIsMissing) {
  ASSERT_EQ(save().status, 0);
  const std::string text = textOf(folder_.file("run/records.jsonl"));
  writeText(folder_.file("run/records.jsonl"), text.substr(0, text.rfind('\n', text.size() - 2) + 1));
  EXPECT_EQ(replay().status, 1);
}

TEST_F(Replay, GivesTheCameraSWordsToThePlugInAgain) {
  writeText(folder_.file("meta.csv"),
            "frame,pan_deg,tilt_deg,hfov_deg,vfov_deg\n0,1,2,40,30\n1,1,2,40,30\n2,1,2,30,22.5\n");
  ASSERT_EQ(save({"--metadata", folder_.file("meta.csv")}).status, 0);
  bool reseeded = false;
  for (const Json& record : recordsOf(textOf(folder_.file("run/records.jsonl")))) {
    reseeded = reseeded || (record["frame"] == 2 && record["state"] == "reseeded");
  }
  EXPECT_TRUE(reseeded) << "the zoom of frame 2 had no effect";
  EXPECT_EQ(replay().status, 0);
}

TEST_F(Replay, RefusesAFolderThatHoldsARunAlready) {
  ASSERT_EQ(save().status, 0);
  expectOneSentence(save(), 2, "holds a run already");
}

TEST_F(Replay, SaysWhatIsWrongWithAFolder) {
  expectOneSentence(replay(), 3, "run.json");
  ASSERT_EQ(save().status, 0);
  fs::remove(folder_.file("run/frames/00000004.png"));
  expectOneSentence(replay(), 3, "00000004.png");
  edit("run.json", "csrt-track.run", "something.else");
  expectOneSentence(replay(), 3, "the format is another");
  writeText(folder_.file("run/run.json"), "{");
  expectOneSentence(replay(), 3, "not JSON");
}

TEST_F(Replay, ARunWithoutTheClipSTimeSaysSo) {
  ASSERT_EQ(save({"--pace", "fast"}).status, 0);
  for (const Json& record : recordsOf(textOf(folder_.file("run/records.jsonl")))) EXPECT_EQ(record["pace"], "fast");
}

TEST_F(Replay, RepeatsARunWithItsGuard) {
  ASSERT_EQ(save({"--guard", "colour"}).status, 0);
  EXPECT_EQ(about()["guard"], Json({{"which", "colour"}}));
  int judged = 0;
  for (const Json& record : recordsOf(textOf(folder_.file("run/records.jsonl")))) judged += record.contains("guard");
  EXPECT_EQ(judged, 11);
  const ProgramResult result = replay();
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("identical: all 12 records"), std::string::npos) << result.out;
}

TEST_F(Replay, ARunThatNamesNoGuardIsRepeatedWithout) {
  ASSERT_EQ(save({"--guard", "colour"}).status, 0);
  Json older = about();
  older.erase("guard");
  writeText(folder_.file("run/run.json"), older.dump());
  const ProgramResult result = replayWith({"--records", folder_.file("again.jsonl")});
  EXPECT_EQ(result.status, 1) << result.err;
  for (const Json& record : recordsOf(textOf(folder_.file("again.jsonl")))) EXPECT_FALSE(record.contains("guard"));
}

TEST_F(Replay, ARunWithoutAGuardSaysNothingOfOne) {
  ASSERT_EQ(save({"--guard", "off"}).status, 0);
  const std::set<std::string> known = {"format", "version", "source",     "fps",    "config", "pace",
                                       "plugin", "engine",  "csrt_track", "opencv", "targets"};
  const Json saved = about();
  for (const auto& [key, value] : saved.items()) EXPECT_EQ(known.count(key), 1U) << key << " " << value;
  EXPECT_EQ(replay().status, 0);
}

TEST_F(Replay, ARunWithANetworkWantsThatNetwork) {
  const std::string sum(64, 'a');
  ASSERT_EQ(save({"--guard", "colour"}).status, 0);
  writeText(folder_.file("abc.onnx"), "abc");
  expectOneSentence(replayWith({"--guard-model", folder_.file("abc.onnx")}), 2, "of use with a run that was made with");
  sayOfTheGuard({{"which", "network"}, {"model_sha256", sum}});
  expectOneSentence(replay(), 2, "give it with --guard-model FILE; its sha256 is " + sum);
  expectOneSentence(replayWith({"--guard-model", folder_.file("none.onnx")}), 2, "is not there");
  expectOneSentence(replayWith({"--guard-model", folder_.file("abc.onnx")}), 2,
                    "has the sha256 ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST_F(Replay, SaysWhatIsWrongWithTheGuardOfARun) {
  ASSERT_EQ(save({"--guard", "colour"}).status, 0);
  sayOfTheGuard({{"which", "sonar"}});
  expectOneSentence(replay(), 3, "a guard that this csrt-track does not have: 'sonar'");
  for (const Json& damaged : {Json("colour"), Json::object(), Json({{"which", 3}}), Json({{"which", "network"}}),
                              Json({{"which", "network"}, {"model_sha256", "short"}})}) {
    sayOfTheGuard(damaged);
    expectOneSentence(replay(), 3, "run.json");
  }
}

TEST(RunKeeper, KeepsTheGuardOfAServedRun) {
  const TempFolder folder;
  std::string saved;
  {
    host::web::RunKeeper keeper(folder.file(""), host::Pace::Source);
    host::RunInfo info;
    info.fps = 25.0;
    info.guard.kind = host::GuardKind::Colour;
    keeper.begin(info);
    ASSERT_TRUE(keeper.tryArm());
    host::SourceFrame frame;
    frame.bgr = cv::Mat(16, 16, CV_8UC3, cv::Scalar::all(9));
    host::CallRecord start;
    start.target = "car";
    start.isInit = start.started = true;
    start.givenBox = cv::Rect(1, 2, 8, 8);
    keeper.judged(frame, {start});
    saved = keeper.json()["folder"];
  }
  EXPECT_EQ(host::readSavedRun(saved).guard.which, "colour");
}

TEST(Pace, SourceKeepsTheClipSRate) {
  const TempFolder folder;
  host::writeStreetScene(folder.file("scene.avi"), {320, 180}, 8, 10.0);
  const auto begin = std::chrono::steady_clock::now();
  const ProgramResult result = runProgram({"track", folder.file("scene.avi"), "--plugin", CSRT_FAKE_PLUGIN, "--quiet",
                                           "--box", "10,20,30,40", "--pace", "source", "--records", "-"});
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_GE(seconds, 0.7);  // eight frames at ten a second cannot be done sooner; later is the machine's business
  EXPECT_EQ(recordsOf(result.out).at(0)["pace"], "source");
}

TEST(Pace, RefusesAnotherWord) {
  const TempFolder folder;
  host::writeStreetScene(folder.file("scene.avi"), {320, 180}, 2, 10.0);
  expectOneSentence(runProgram({"track", folder.file("scene.avi"), "--box", "1,2,30,40", "--pace", "brisk"}), 2,
                    "brisk");
}

}  // namespace
}  // namespace host_test
