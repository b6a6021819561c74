// How an output begins and ends: whole or not at all, by one process at a time, and never over an earlier one too soon.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "base/host_error.h"
#include "base/pending_file.h"
#include "base/text_output.h"
#include "support/host_program.h"

namespace host_test {
namespace {

class OutputFiles : public testing::Test {
 protected:
  std::string file(const std::string& name) const { return folder_.file(name); }
  std::size_t filesInFolder() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_.file("")), fs::directory_iterator()));
  }
  TempFolder folder_;
};

TEST_F(OutputFiles, AWholeTextReplacesTheEarlierOneInOneStep) {
  writeText(file("a.html"), "earlier");
  host::WholeText text(file("a.html"), "--report");
  EXPECT_EQ(textOf(file("a.html")), "earlier");
  text.write("new");
  EXPECT_EQ(textOf(file("a.html")), "new\n");
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(OutputFiles, WithoutAnEndTheEarlierFileStaysAndNothingIsLeftBeside) {
  writeText(file("a.html"), "earlier");
  {
    const host::PendingFile kept(file("a.html"), "--report");
    const host::PendingFile made(file("b.mp4"), "--video");
    writeText(kept.temporary(), "half");
    EXPECT_EQ(fs::path(made.temporary()).extension(), ".mp4") << "the ending chooses the kind of a video";
    EXPECT_EQ(fs::path(made.temporary()).parent_path(), fs::path(file("b.mp4")).parent_path());
  }
  EXPECT_EQ(textOf(file("a.html")), "earlier");
  EXPECT_EQ(filesInFolder(), 1U);
}

TEST_F(OutputFiles, LinksAndPermissionsStay) {
  writeText(file("real"), "earlier");
  fs::create_symlink("real", file("link"));
  chmod(file("real").c_str(), 0640);
  host::WholeText(file("link"), "--json").write("new");
  EXPECT_TRUE(fs::is_symlink(file("link")));
  EXPECT_EQ(textOf(file("real")), "new\n");
  struct stat status {};
  ASSERT_EQ(stat(file("real").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(OutputFiles, ALinkToNothingIsFollowed) {
  fs::create_symlink("new", file("link"));
  host::WholeText(file("link"), "--json").write("text");
  EXPECT_EQ(textOf(file("new")), "text\n");
  EXPECT_TRUE(fs::is_symlink(file("link")));
}

TEST_F(OutputFiles, ADeviceIsWrittenInPlace) {
  const host::PendingFile device("/dev/null", "--report");
  EXPECT_EQ(device.temporary(), "/dev/null");
}

TEST_F(OutputFiles, WhatCannotBeWrittenIsKnownBeforeAnyWork) {
  EXPECT_THROW(host::PendingFile(file("none/a"), "--report"), host::HostError);
  EXPECT_THROW(host::PendingFile(file(""), "--report"), host::HostError);
  EXPECT_THROW(host::TextOutput(file("none/a"), "--records"), host::HostError);
  EXPECT_THROW(host::TextOutput(file(""), "--records"), host::HostError);
}

TEST_F(OutputFiles, LinesReplaceTheEarlierFileWithTheFirstOne) {
  writeText(file("r.jsonl"), "earlier\n");
  host::TextOutput lines(file("r.jsonl"), "--records");
  EXPECT_EQ(textOf(file("r.jsonl")), "earlier\n");
  lines.writeLine("one");
  EXPECT_EQ(textOf(file("r.jsonl")), "one\n") << "readable while it grows";
  lines.writeLine("two");
  EXPECT_EQ(textOf(file("r.jsonl")), "one\ntwo\n");
}

TEST_F(OutputFiles, AFileThatGetsNoLineIsNotLeftBehind) {
  { const host::TextOutput lines(file("r.jsonl"), "--records"); }
  EXPECT_FALSE(fs::exists(file("r.jsonl")));
  writeText(file("r.jsonl"), "earlier\n");
  { const host::TextOutput lines(file("r.jsonl"), "--records"); }
  EXPECT_EQ(textOf(file("r.jsonl")), "earlier\n");
}

TEST_F(OutputFiles, OnlyOneMayWriteLinesAtATime) {
  {
    host::TextOutput first(file("r.jsonl"), "--records");
    first.writeLine("one");
    EXPECT_THROW(host::TextOutput(file("r.jsonl"), "--records"), host::HostError);
    EXPECT_EQ(textOf(file("r.jsonl")), "one\n");
  }
  host::TextOutput(file("r.jsonl"), "--records").writeLine("next");
  EXPECT_EQ(textOf(file("r.jsonl")), "next\n");
}

}  // namespace
}  // namespace host_test
