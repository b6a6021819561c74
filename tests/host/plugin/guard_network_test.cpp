// --guard network through the built program: what is said of the network's file, and files that are none. Where this
// program has no network guard it says so; the rest is then skipped.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "base/host_error.h"
#include "plugin/guard_choice.h"
#include "plugin/guard_model.h"
#include "plugin/guard_network.h"
#include "support/host_program.h"
#include "support/tiny_network.h"

namespace host_test {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kVitTrackBytes = 714726;
constexpr const char* kVitTrackSum = "2990f0b7cd44d92afa48cd97db6de7be113fc1d9594fddb74e2725c10478e91d";

bool has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class NetworkGuard : public testing::Test {
 protected:
  void SetUp() override {
    if (!host::whyNoNetworkGuard().empty()) GTEST_SKIP() << host::whyNoNetworkGuard();
    writeText(folder.file("tiny.onnx"), tiny_network::bytes());
  }
  ProgramResult run(const std::string& model) {
    return runProgram({"simulate", "honesty", "--guard", "network", "--guard-model", model, "--records", records});
  }
  /// One sentence, status 2, and nothing was written.
  void expectRefused(const std::string& model, const std::string& why) {
    const ProgramResult result = run(model);
    EXPECT_EQ(result.status, 2) << result.err;
    EXPECT_TRUE(has(result.err, why)) << result.err;
    EXPECT_EQ(linesOf(result.err).size(), 1U) << result.err;
    EXPECT_FALSE(std::filesystem::exists(records)) << why;
  }

  TempFolder folder;
  std::string records = folder.file("records.jsonl");
};

TEST_F(NetworkGuard, RefusesAFileThatIsMissingEmptyBrokenOrNoSuchNetworkBeforeAnythingIsWritten) {
  expectRefused(folder.file("none.onnx"), "is not there");
  expectRefused(folder.file(""), "is no file");
  writeText(folder.file("tiny.bin"), tiny_network::bytes());
  expectRefused(folder.file("tiny.bin"), "ends in .onnx");
  writeText(folder.file("empty.onnx"), "");
  expectRefused(folder.file("empty.onnx"), "is empty");
  writeText(folder.file("text.onnx"), "this is no network");
  expectRefused(folder.file("text.onnx"), "is no tracker network");
  const std::string whole = tiny_network::bytes();
  writeText(folder.file("half.onnx"), whole.substr(0, whole.size() / 2));
  expectRefused(folder.file("half.onnx"), "is no tracker network");
  writeText(folder.file("foreign.onnx"), tiny_network::bytes("picture"));
  expectRefused(folder.file("foreign.onnx"), "is no tracker network");
}

TEST_F(NetworkGuard, NeverWritesOverTheNetwork) {
  const std::string model = folder.file("tiny.onnx");
  const ProgramResult result =
      runProgram({"simulate", "honesty", "--guard", "network", "--guard-model", model, "--records", model});
  EXPECT_EQ(result.status, 2) << result.err;
  EXPECT_EQ(textOf(model), tiny_network::bytes());
}

TEST_F(NetworkGuard, SaysTheSumOfTheFileAndWhatTheNetworkSaw) {
  Json scene = Json::parse(runProgram({"simulate", "--print", "honesty"}).out);
  scene["duration_s"] = 4;
  scene.erase("expect");
  writeText(folder.file("scene.json"), scene.dump());
  const ProgramResult result = runProgram({"simulate", folder.file("scene.json"), "--guard", "network", "--guard-model",
                                           folder.file("tiny.onnx"), "--records", records});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(has(result.err, "sha256 " + host::readGuardModel(folder.file("tiny.onnx")).sha256)) << result.err;
  int asked = 0, starts = 0;
  for (const std::string& line : linesOf(textOf(records))) {
    Json record = Json::parse(line);
    record.erase("truth");
    record.erase("camera");
    EXPECT_EQ(recordFault(record), "") << record;
    asked += record.contains("guard") && record["guard"].contains("opinion");
    if (!record.contains("guard_model_sha256")) continue;
    ++starts;
    EXPECT_EQ(record["guard_model_sha256"], host::readGuardModel(folder.file("tiny.onnx")).sha256);
  }
  EXPECT_EQ(starts, 1);
  EXPECT_GT(asked, 10);
}

TEST_F(NetworkGuard, ASavedRunIsRepeatedWithTheSameFileAlone) {
  const std::string clip = folder.file("clip.avi");
  const std::string model = folder.file("tiny.onnx");
  host::writeStreetScene(clip, {320, 180}, 12, 10.0);
  const ProgramResult saved = runProgram({"track", clip, "--box", "58,82,16,30", "--quiet", "--guard", "network",
                                          "--guard-model", model, "--save-run", folder.file("run")});
  ASSERT_EQ(saved.status, 0) << saved.err;
  const Json guard = Json::parse(textOf(folder.file("run/run.json")))["guard"];
  EXPECT_EQ(guard, Json({{"which", "network"}, {"model_sha256", host::readGuardModel(model).sha256}}));
  const ProgramResult again = runProgram({"replay", folder.file("run"), "--guard-model", model});
  EXPECT_EQ(again.status, 0) << again.out << again.err;
  EXPECT_TRUE(has(again.out, "identical: all 12 records")) << again.out;
  const std::string other = folder.file("other.onnx");
  writeText(other, tiny_network::bytes() + tiny_network::part(99, ""));
  expectOneSentence(runProgram({"replay", folder.file("run"), "--guard-model", other}), 2, "was made with the file of");
}

/// What is said when a guard is made; it must be one that asks no network.
std::string saidOfColourAlone(const host::GuardChoice& choice) {
  std::string asked = "something";
  testing::internal::CaptureStderr();
  EXPECT_TRUE(host::makeGuard(choice, &asked).has_value());
  EXPECT_EQ(asked, "");
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(has(said, "goes by colour alone")) << said;
  EXPECT_EQ(linesOf(said).size(), 1U) << said;
  return said;
}

TEST_F(NetworkGuard, GoesByColourWhereTheFileIsGoneLater) {
  const host::GuardChoice choice = host::guardChoiceOf({"network", folder.file("tiny.onnx")});
  std::string asked;
  EXPECT_TRUE(host::makeGuard(choice, &asked).has_value());
  EXPECT_EQ(asked, host::readGuardModel(folder.file("tiny.onnx")).sha256);
  std::filesystem::remove(folder.file("tiny.onnx"));
  EXPECT_TRUE(has(saidOfColourAlone(choice), "is not there"));
}

TEST(NetworkOfARun, IsNotExchangedWhileItGoesOn) {
  const TempFolder folder;
  writeText(folder.file("tiny.onnx"), tiny_network::bytes());
  host::GuardChoice choice;
  choice.kind = host::GuardKind::Network;
  choice.model = folder.file("tiny.onnx");
  choice.sha256 = host::readGuardModel(choice.model).sha256;
  writeText(choice.model, tiny_network::bytes() + tiny_network::part(99, ""));
  EXPECT_TRUE(has(saidOfColourAlone(choice), "is another file by now"));
}

TEST(GuardModelOption, IsAskedForAndNotTakenWithoutANetwork) {
  const ProgramResult useless = runProgram({"simulate", "honesty", "--guard-model", "x.onnx"});
  EXPECT_EQ(useless.status, 2);
  EXPECT_TRUE(has(useless.err, "--guard-model is of use with --guard network only")) << useless.err;
  const ProgramResult without = runProgram({"simulate", "honesty", "--guard", "network"});
  EXPECT_EQ(without.status, 2);
  const std::string expected = host::whyNoNetworkGuard().empty() ? "--guard-model" : "OpenCV 4.9 or later";
  EXPECT_TRUE(has(without.err, expected)) << without.err;
  EXPECT_EQ(linesOf(without.err).size(), 1U) << without.err;
}

TEST(GuardModelOption, DoctorSaysWhetherANetworkCanBeAsked) {
  const TempFolder folder;
  const ProgramResult result = runProgram({"doctor", "--output", folder.file("")});
  EXPECT_TRUE(has(result.out, "--guard network")) << result.out;
  EXPECT_EQ(has(result.out, "no --guard network"), !host::whyNoNetworkGuard().empty()) << result.out;
}

TEST(GuardModelNote, NamesAKnownFileWhateverItIsCalled) {
  const std::string note = host::noteOnGuardModel("/home/me/net.onnx", kVitTrackBytes, kVitTrackSum);
  EXPECT_TRUE(has(note, "ViTTrack")) << note;
  EXPECT_TRUE(has(note, kVitTrackSum)) << note;
  EXPECT_FALSE(has(note, "warning")) << note;
}

TEST(GuardModelNote, WarnsOfAKnownNameOrSizeWithAnotherSum) {
  const std::string sum(64, 'a');
  EXPECT_TRUE(has(host::noteOnGuardModel("x/object_tracking_vittrack_2023sep.onnx", 5, sum), "warning"));
  EXPECT_TRUE(has(host::noteOnGuardModel("x/net.onnx", kVitTrackBytes, sum), "warning"));
  const std::string unknown = host::noteOnGuardModel("x/net.onnx", kVitTrackBytes + 1, sum);
  EXPECT_FALSE(has(unknown, "warning")) << unknown;
  EXPECT_TRUE(has(unknown, "not known")) << unknown;
}

TEST(GuardModelFile, HasTheSumThatOthersGiveIt) {
  const TempFolder folder;
  writeText(folder.file("abc"), "abc");
  EXPECT_EQ(host::readGuardModel(folder.file("abc")).sha256,
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");  // of FIPS 180-2
}

}  // namespace
}  // namespace host_test
