// csrt-track config, and the configuration options of track, from end to end.
#include <gtest/gtest.h>

#include "config_keys.h"
#include "support/host_program.h"

namespace host_test {
namespace {

ProgramResult check(const std::string& text) {
  const TempFolder folder;
  writeText(folder.file("c.json"), text);
  return runProgram({"config", "check", folder.file("c.json")});
}

TEST(ConfigCommand, PrintsThePublishedSchemaByteForByte) {
  const ProgramResult result = runProgram({"config", "schema"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, configSchemaText());
}

TEST(ConfigCommand, TheDefaultsPassTheCheck) {
  const ProgramResult defaults = runProgram({"config", "defaults"});
  EXPECT_EQ(defaults.status, 0);
  EXPECT_EQ(check(defaults.out).status, 0);
}

TEST(ConfigCommand, TheStatusOfACheckTellsCleanWarnedAndUnusable) {
  const ProgramResult clean = check(R"({"roi":{"min_size":64}})");
  EXPECT_EQ(clean.status, 0);
  EXPECT_EQ(clean.out + clean.err, "");
  const ProgramResult warned = check("{\"roi\":{\n\"min_sise\":64}}");
  EXPECT_EQ(warned.status, 1);
  EXPECT_NE(warned.out.find("c.json:2:1: warning: the plug-in does not know 'roi.min_sise'"), std::string::npos);
  expectOneSentence(check("{\"roi\":\n"), 2, "c.json:2:1: not JSON");
  expectOneSentence(check("7"), 2, "not an object");
  expectOneSentence(runProgram({"config", "check", "/nowhere/c.json"}), 2, "/nowhere/c.json");
}

TEST(ConfigCommand, EveryPresetIsTakenAsItIsWritten) {
  const std::vector<std::string> names = linesOf(runProgram({"config", "preset"}).out);
  EXPECT_NE(std::find(names.begin(), names.end(), "fast"), names.end());
  for (const std::string& name : names) {
    const ProgramResult result = check(runProgram({"config", "preset", name}).out);
    EXPECT_EQ(result.status, 0) << name << ": " << result.out << result.err;
  }
  expectOneSentence(runProgram({"config", "preset", "slow-motion"}), 2, "'slow-motion'");
}

class ConfiguredTrack : public testing::Test {
 protected:
  void SetUp() override { host::writeStreetScene(video_, {320, 180}, 2, 10.0); }
  /// What the real plug-in says it has been set to.
  std::string summary(const std::vector<std::string>& more) const {
    std::vector<std::string> all = {"track", video_, "--box", "63,82,16,30", "--quiet", "--debug"};
    all.insert(all.end(), more.begin(), more.end());
    const ProgramResult result = runProgram(all);
    EXPECT_EQ(result.status, 0) << result.err;
    for (const std::string& line : linesOf(result.err)) {
      if (line.find("setConfig(): input(") != std::string::npos) return line;
    }
    return {};
  }
  void refuses(const std::vector<std::string>& more, const std::string& culprit) const {
    std::vector<std::string> all = {"track", video_, "--box", "63,82,16,30"};
    all.insert(all.end(), more.begin(), more.end());
    expectOneSentence(runProgram(all), 2, culprit);
  }
  std::string file(const std::string& text) const {
    writeText(folder_.file("c.json"), text);
    return folder_.file("c.json");
  }

  TempFolder folder_;
  std::string video_ = folder_.file("scene.avi");
};

TEST_F(ConfiguredTrack, ALaterSourceReplacesAnEarlierOneKeyByKey) {
  EXPECT_EQ(summary({}), "");
  EXPECT_NE(summary({"--preset", "fast"}).find("tmpl=120"), std::string::npos);
  const std::string config = file(R"({"csrt":{"template_size":80},"predict":{"damping":0.25}})");
  const std::string both = summary({"--preset", "fast", "--config", config});
  EXPECT_NE(both.find("tmpl=80"), std::string::npos) << both;
  EXPECT_NE(both.find("admm=1"), std::string::npos) << both;
  const std::string all = summary({"--preset", "fast", "--config", config, "--set", "csrt.template_size=64", "--set",
                                   "csrt.window_function=cheb", "--set", "work_width=320"});
  EXPECT_NE(all.find("tmpl=64"), std::string::npos) << all;
  EXPECT_NE(all.find("win=cheb"), std::string::npos) << all;
  EXPECT_NE(all.find("damp=0.25"), std::string::npos) << all;
  EXPECT_NE(all.find("work=320x360"), std::string::npos) << all;
}

TEST_F(ConfiguredTrack, RefusesWhatThePluginWouldPassOver) {
  refuses({"--set", "roi.min_sise=64"}, "did you mean 'roi.min_size'?");
  refuses({"--set", "roi"}, "'roi'");
  refuses({"--set", "=3"}, "'=3'");
  refuses({"--set", "roi.=3"}, "'roi.=3'");
  refuses({"--set", "a.b.c=3"}, "'a.b.c=3'");
  refuses({"--preset", "none"}, "'none'");
  refuses({"--config", file("{\"roi\":\n}")}, "line 2, column 1");
}

TEST_F(ConfiguredTrack, NotesAFileThatIsNotTakenAsItIsWritten) {
  const std::string config = file(R"({"roi":{"min_sise":64}})");
  const ProgramResult result = runProgram({"track", video_, "--box", "63,82,16,30", "--config", config});
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.err.find("config check " + config), std::string::npos) << result.err;
}

}  // namespace
}  // namespace host_test
