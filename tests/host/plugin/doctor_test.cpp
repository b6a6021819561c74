// csrt-track doctor on set-ups that are broken, each in its own way.
#include <elf.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <set>

#include "support/host_program.h"

namespace host_test {
namespace {

class Doctor : public testing::Test {
 protected:
  TempFolder folder_;

  ProgramResult examine(const std::string& plugin) {
    return runProgram({"doctor", "--plugin", plugin, "--output", folder_.file("")});
  }

  /// The sentence about the subject; fails the test when there is none.
  static std::string sentence(const ProgramResult& result, const std::string& subject) {
    for (const std::string& line : linesOf(result.out)) {
      if (line.size() > 18 && line.substr(9, subject.size()) == subject) return line;
    }
    ADD_FAILURE() << "nothing about " << subject << " in\n" << result.out << result.err;
    return {};
  }

  /// Every broken plug-in: status 4, and one line that begins with PROBLEM and names cause and remedy.
  void expectProblem(const std::string& plugin, const std::string& cause, const std::string& remedy) {
    const ProgramResult result = examine(plugin);
    EXPECT_EQ(result.status, 4) << result.out << result.err;
    const std::string line = sentence(result, "plug-in");
    EXPECT_EQ(line.rfind("PROBLEM", 0), 0U) << line;
    EXPECT_NE(line.find(cause), std::string::npos) << line;
    EXPECT_NE(line.find(remedy), std::string::npos) << line;
    EXPECT_TRUE(seen_.insert(line.substr(line.find('\'', line.find('\'') + 1))).second) << "said before: " << line;
  }

  std::string copyOfRealPlugin(const std::string& name) {
    writeText(folder_.file(name), textOf(CSRT_REAL_PLUGIN));
    return folder_.file(name);
  }

  static std::set<std::string> seen_;
};
std::set<std::string> Doctor::seen_;

TEST_F(Doctor, IsContentWithTheBuild) {
  const ProgramResult result = examine(CSRT_REAL_PLUGIN);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(sentence(result, "plug-in").rfind("ok", 0), 0U);
  EXPECT_EQ(sentence(result, "OpenCV").rfind("ok", 0), 0U);
  EXPECT_EQ(result.out.find("PROBLEM"), std::string::npos) << result.out;
}

TEST_F(Doctor, LeavesNothingBehind) {
  examine(CSRT_REAL_PLUGIN);
  EXPECT_TRUE(fs::is_empty(folder_.file("")));
}

TEST_F(Doctor, FileIsMissing) {
  expectProblem(folder_.file("none.so"), "does not exist", "--plugin");
}

TEST_F(Doctor, FileIsAFolder) {
  expectProblem(folder_.file(""), "is a folder", "--plugin");
}

TEST_F(Doctor, FileIsEmpty) {
  writeText(folder_.file("empty.so"), "");
  expectProblem(folder_.file("empty.so"), "is empty", "again");
}

TEST_F(Doctor, FileIsNoLibrary) {
  writeText(folder_.file("text.so"), std::string(4096, 'x'));
  expectProblem(folder_.file("text.so"), "not a library", "install");
}

TEST_F(Doctor, FileMayNotBeRead) {
  if (geteuid() == 0) GTEST_SKIP() << "root may read everything";
  const std::string path = copyOfRealPlugin("secret.so");
  fs::permissions(path, fs::perms::none);
  expectProblem(path, "may not be read", "chmod");
}

TEST_F(Doctor, FileIsForAnotherProcessor) {
  std::string bytes = textOf(CSRT_REAL_PLUGIN);
  Elf64_Half& machine = *reinterpret_cast<Elf64_Half*>(bytes.data() + offsetof(Elf64_Ehdr, e_machine));
  machine = machine == EM_AARCH64 ? EM_X86_64 : EM_AARCH64;
  writeText(folder_.file("foreign.so"), bytes);
  expectProblem(folder_.file("foreign.so"), "was built for", "this machine");
}

TEST_F(Doctor, FileIsCutShort) {
  const std::string bytes = textOf(CSRT_REAL_PLUGIN);
  writeText(folder_.file("short.so"), bytes.substr(0, bytes.size() / 2));
  expectProblem(folder_.file("short.so"), "cut short", "again");
}

TEST_F(Doctor, FileIsAnObjectFile) {
  std::string bytes = textOf(CSRT_REAL_PLUGIN);
  *reinterpret_cast<Elf64_Half*>(bytes.data() + offsetof(Elf64_Ehdr, e_type)) = ET_REL;
  writeText(folder_.file("object.so"), bytes);
  expectProblem(folder_.file("object.so"), "not a shared library", "libcsrt_tracking_plugin.so");
}

TEST_F(Doctor, ALibraryItNeedsIsMissing) {
  expectProblem(BROKEN_NEEDS_MISSING, "libbroken_missing_gone", "install");
}

TEST_F(Doctor, TheClassIsUnderAnotherBase) {
  expectProblem(BROKEN_OTHER_BASE, "without the plug-in class", "install");
}

TEST_F(Doctor, TheClassIsAnotherPlugIn) {
  expectProblem(BROKEN_OTHER_RECORDS, "does not declare detection.v1", "--plugin");
}

TEST_F(Doctor, TheObjectCannotBeMade) {
  expectProblem(BROKEN_THROWS, "no licence key", "install");
}

TEST_F(Doctor, LoadingCrashes) {
  expectProblem(BROKEN_CRASHES, "crashes", "matching version");
}

TEST_F(Doctor, LoadingEndsTheProgram) {
  expectProblem(BROKEN_ENDS, "ends the program", "no plug-in");
}

TEST_F(Doctor, OutputFolderIsMissing) {
  const ProgramResult result =
      runProgram({"doctor", "--plugin", CSRT_REAL_PLUGIN, "--output", folder_.file("no/such")});
  EXPECT_EQ(result.status, 6);
  EXPECT_NE(sentence(result, "output").find("not a folder"), std::string::npos);
}

TEST_F(Doctor, OutputFolderTakesNoFile) {
  const ProgramResult result = runProgram({"doctor", "--plugin", CSRT_REAL_PLUGIN, "--output", "/proc"});
  EXPECT_EQ(result.status, 6);
  EXPECT_NE(sentence(result, "output").find("cannot be written to"), std::string::npos);
}

}  // namespace
}  // namespace host_test
