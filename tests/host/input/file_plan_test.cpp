// No output over an input or over another output, by whatever name.
#include "input/file_plan.h"

#include <gtest/gtest.h>

#include "base/host_error.h"
#include "support/host_program.h"

namespace host_test {
namespace {

class FilePlanTest : public testing::Test {
 protected:
  std::string file(const std::string& name) const { return folder_.file(name); }
  /// What the plan says; empty when it has nothing to say.
  static std::string complaint(const host::FilePlan& plan) {
    try {
      plan.check();
    } catch (const host::HostError& e) {
      EXPECT_EQ(e.code(), host::ExitCode::Usage);
      return e.what();
    }
    return {};
  }
  static void expectNames(const std::string& text, const std::vector<std::string>& parts) {
    for (const std::string& part : parts) EXPECT_NE(text.find(part), std::string::npos) << text;
    EXPECT_FALSE(text.empty());
  }
  std::string clash(const std::string& input, const std::string& output) const {
    host::FilePlan plan;
    plan.reads("--config", input);
    plan.writes("--records", output);
    return complaint(plan);
  }
  TempFolder folder_;
};

TEST_F(FilePlanTest, AnInputIsFoundByAnyName) {
  writeText(file("c.json"), "{}");
  fs::create_directory(file("sub"));
  fs::create_symlink("c.json", file("link"));
  fs::create_hard_link(file("c.json"), file("hard"));
  for (const char* name : {"c.json", "sub/../c.json", "link", "hard"}) {
    expectNames(clash(file("c.json"), file(name)), {"--config", "--records", name});
  }
  EXPECT_EQ(clash(file("c.json"), file("d.json")), "");
}

TEST_F(FilePlanTest, TwoNewFilesAreOneWhenFolderAndNameAre) {
  fs::create_directory(file("sub"));
  fs::create_directory_symlink("sub", file("linked"));
  fs::create_symlink("sub/a", file("to-a"));
  for (const char* name : {"sub/a", "sub/./a", "linked/a", "to-a", "sub/../sub/a"}) {
    host::FilePlan plan;
    plan.writes("--records", file("sub/a"));
    plan.writes("--report", file(name));
    expectNames(complaint(plan), {"--records", "--report"});
  }
  host::FilePlan plan;
  plan.writes("--records", file("sub/a"));
  plan.writes("--report", file("a"));
  EXPECT_EQ(complaint(plan), "");
}

TEST_F(FilePlanTest, DevicesAndNothingMayBeNamedTwice) {
  host::FilePlan plan;
  plan.reads("--config", "");
  plan.writes("--json", "");
  plan.writes("--records", "/dev/null");
  plan.writes("--report", "/dev/null");
  EXPECT_EQ(complaint(plan), "");
}

TEST_F(FilePlanTest, PicturesOfAFolderAreInputsAndItsOtherFilesAreNot) {
  fs::create_directory(file("img"));
  writeText(file("img/1.png"), "picture");
  writeText(file("img/notes.txt"), "text");
  for (const std::string& source : {file("img"), file("img/%d.png")}) {
    host::FilePlan bad;
    bad.readsSource("the source", source);
    bad.writes("--still", file("img/1.png"));
    expectNames(complaint(bad), {"the source", "--still"});
    host::FilePlan good;
    good.readsSource("the source", source);
    good.writes("--records", file("img/notes.txt"));
    good.writes("--still", file("img/2.png"));
    EXPECT_EQ(complaint(good), "");
  }
}

TEST_F(FilePlanTest, NothingElseGoesIntoAFolderThatIsMade) {
  for (const char* inside : {"run/a", "run/frames/a", "run/../run/a"}) {
    host::FilePlan plan;
    plan.writesFolder("--save-run", file("run"));
    plan.writes("--still", file(inside));
    expectNames(complaint(plan), {"--save-run", "--still"});
  }
  host::FilePlan plan;
  plan.writesFolder("--save-run", file("run"));
  plan.writes("--still", file("runner"));
  EXPECT_EQ(complaint(plan), "");
}

}  // namespace
}  // namespace host_test
