// What people read first: the help texts, wrapped, with examples and the meaning of every exit status.
#include <gtest/gtest.h>

#include <sstream>

#include "commands/help_footer.h"
#include "support/host_program.h"

namespace host_test {
namespace {

TEST(Wrapped, BreaksBetweenWordsOnly) {
  EXPECT_EQ(host::wrapped("one two three", 7), "one two\nthree");
  EXPECT_EQ(host::wrapped("one two three", 100), "one two three");
  EXPECT_EQ(host::wrapped("a word-that-is-too-long b", 6), "a\nword-that-is-too-long\nb");
  EXPECT_EQ(host::wrapped("", 5), "");
}

TEST(HelpFooter, SortsAndAddsWhatEveryCommandHas) {
  const std::string footer = host::helpFooter({"doctor"}, {{130, "interrupted"}, {1, "worse"}});
  EXPECT_EQ(footer.find("Examples:\n  csrt-track doctor\n\nExit status:\n    0  done\n    1  worse\n    2  "), 0U)
      << footer;
  EXPECT_LT(footer.find("    6  "), footer.find("  130  interrupted"));
}

std::vector<std::string> subcommandsOf(const std::string& help) {
  std::vector<std::string> names;
  std::size_t begin = help.find("Subcommands:\n");
  if (begin == std::string::npos) return names;
  std::istringstream lines(help.substr(begin));
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && !line.empty()) names.push_back(line.substr(2, line.find(' ', 2) - 2));
  return names;
}

void expectReadable(const std::vector<std::string>& command) {
  std::vector<std::string> arguments = command;
  arguments.emplace_back("--help");
  const ProgramResult help = runProgram(arguments);
  std::string name;
  for (const std::string& word : command) name += word + " ";
  EXPECT_EQ(help.status, 0) << name;
  EXPECT_EQ(help.err, "") << name;
  EXPECT_NE(help.out.find("Exit status:\n    0  "), std::string::npos) << name;
  for (const std::string& line : linesOf(help.out)) EXPECT_LE(line.size(), 120U) << name << line;
  for (const std::string& inner : subcommandsOf(help.out)) {
    std::vector<std::string> next = command;
    next.push_back(inner);
    expectReadable(next);
  }
}

TEST(Help, EveryCommandSaysItsExitStatusInLinesThatFitAScreen) {
  EXPECT_GE(subcommandsOf(runProgram({"--help"}).out).size(), 11U);
  expectReadable({});
}

}  // namespace
}  // namespace host_test
