// Options that several commands have mean the same in all of them.
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <map>
#include <set>

#include "commands/commands.h"
#include "commands/plain_refusal.h"
#include "support/host_program.h"

namespace host_test {
namespace {

/// All commands with their options, as the program builds them; nothing is run.
class SharedOptions : public testing::Test {
 protected:
  SharedOptions() {
    host::addTrackCommand(app_, status_);
    host::addEvaluateCommand(app_, status_);
    host::addTuneCommand(app_, status_);
    host::addSimulateCommand(app_, status_);
    host::addReplayCommand(app_, status_);
    host::addServeCommand(app_, status_);
  }

  /// The option in every command that has it; one that has not fails the test.
  std::map<std::string, const CLI::Option*> in(const std::set<std::string>& commands, const std::string& name) {
    std::map<std::string, const CLI::Option*> found;
    for (CLI::App* command : app_.get_subcommands([](CLI::App*) { return true; })) {
      const CLI::Option* const option = command->get_option_no_throw(name);
      EXPECT_EQ(option != nullptr, commands.count(command->get_name()) > 0) << command->get_name() << " " << name;
      if (option != nullptr) found[command->get_name()] = option;
    }
    return found;
  }

  void expectSame(const std::set<std::string>& commands, const std::string& name) {
    const auto found = in(commands, name);
    ASSERT_FALSE(found.empty()) << name;
    const CLI::Option& first = *found.begin()->second;
    for (const auto& [command, option] : found) {
      EXPECT_EQ(option->get_description(), first.get_description()) << command << " " << name;
      EXPECT_EQ(option->get_type_name(), first.get_type_name()) << command << " " << name;
      EXPECT_EQ(option->get_default_str(), first.get_default_str()) << command << " " << name;
    }
  }

  CLI::App app_;
  int status_ = 0;
};

TEST_F(SharedOptions, ConfigurationIsAskedForInTheSameWords) {
  const std::set<std::string> commands = {"track", "evaluate", "tune", "simulate", "serve"};
  expectSame(commands, "--config");
  expectSame(commands, "--set");
  for (const auto& [command, option] : in(commands, "--preset")) {
    EXPECT_EQ(option->get_description().find("A configuration that comes with the program"), 0U) << command;
  }
}

TEST_F(SharedOptions, ThePaceHasOneMeaningAndOneDefaultBesideThatOfLiveFrames) {
  const auto found = in({"track", "evaluate", "simulate", "serve"}, "--pace");
  for (const auto& [command, option] : found) {
    EXPECT_EQ(option->get_description(), found.at("track")->get_description()) << command;
    EXPECT_EQ(option->get_default_str(), command == "serve" ? "source" : "video") << command;
  }
}

TEST_F(SharedOptions, ThreadsAreOneToTwoHundredAndFiftySixEverywhere) {
  const std::set<std::string> commands = {"track", "evaluate", "tune", "replay", "serve"};
  for (const auto& [command, option] : in(commands, "--threads")) {
    EXPECT_EQ(option->get_default_str(), command == "tune" ? "all cores" : "1") << command;
  }
  for (const std::string& command : commands) {
    expectOneSentence(runProgram({command, "x", "--threads", "0"}), 2, "--threads 0 is not between 1 and 256");
  }
}

TEST_F(SharedOptions, PlugInEngineAndGuardAreTheSame) {
  expectSame({"track", "evaluate", "tune", "simulate", "replay", "serve"}, "--plugin");
  expectSame({"track", "evaluate", "tune", "simulate", "replay", "serve"}, "--engine");
  expectSame({"track", "evaluate", "tune", "simulate", "serve"}, "--guard");
}

TEST_F(SharedOptions, HowATruthIsWrittenIsToldInTheSameWay) {
  expectSame({"track", "evaluate", "tune"}, "--format");
  expectSame({"track", "evaluate", "tune"}, "--first-number");
}

TEST(Clock, IsAnotherWordForThePace) {
  const TempFolder folder;
  const auto paceOf = [&folder](std::vector<std::string> more) {
    std::vector<std::string> all = {"simulate",  "off-centre",          "--plugin", CSRT_FAKE_PLUGIN, "--quiet",
                                    "--records", folder.file("r.jsonl")};
    all.insert(all.end(), more.begin(), more.end());
    runProgram(all);
    const std::string text = textOf(folder.file("r.jsonl"));
    return nlohmann::json::parse(text.substr(0, text.find('\n')), nullptr, false).value("pace", "");
  };
  EXPECT_EQ(paceOf({}), "video");
  EXPECT_EQ(paceOf({"--clock", "machine"}), "fast");
  EXPECT_EQ(paceOf({"--clock", "simulated"}), "video");
  EXPECT_EQ(paceOf({"--pace", "fast"}), "fast");
  const ProgramResult both = runProgram({"simulate", "off-centre", "--clock", "machine", "--pace", "fast"});
  EXPECT_EQ(both.status, 2) << both.err;
  expectOneSentence(runProgram({"simulate", "off-centre", "--clock", "stopped"}), 2, "'stopped'");
}

TEST(PlainRefusal, SaysRangesAndWordsAsAPersonWould) {
  using host::plainRefusal;
  EXPECT_EQ(plainRefusal("--threads: Value 0 not in range 1 to 256"), "--threads 0 is not between 1 and 256");
  EXPECT_EQ(plainRefusal("--threads: Value 0 not in range [1 - 256]"), "--threads 0 is not between 1 and 256");
  EXPECT_EQ(plainRefusal("--max-rate: Value 0 not in range 0.100000 to 1000.000000"),
            "--max-rate 0 is not between 0.1 and 1000");
  EXPECT_EQ(plainRefusal("--pan-gain: Value 11 not in range -10.000000 to 10.000000"),
            "--pan-gain 11 is not between -10 and 10");
  EXPECT_EQ(plainRefusal("--pace: brisk not in {fast,source,video}"),
            "--pace 'brisk' is not one of fast, source, video");
}

TEST(PlainRefusal, LeavesOtherTextsAlone) {
  for (const char* text : {"", "--records: 1 required TEXT missing", "The following argument was not expected: --x"}) {
    EXPECT_EQ(host::plainRefusal(text), text);
  }
}

}  // namespace
}  // namespace host_test
