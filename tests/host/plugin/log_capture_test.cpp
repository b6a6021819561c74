// Lines that a plug-in prints during a call become data; everything else stays standard output.
#include "plugin/log_capture.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

namespace host {
namespace {

using Lines = std::vector<std::string>;

class LogCaptureTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { installLogCapture(); }
};

TEST_F(LogCaptureTest, TakesEveryWayToPrint) {
  LogCapture capture;
  std::printf("formatted %d\n", 7);
  std::fputs("plain\n", stdout);
  const std::string line = "[AlgoPlugin INFO] [X] é\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
  std::fputs("unfinished", stdout);
  EXPECT_EQ(capture.lines(), (Lines{"formatted 7", "plain", "[AlgoPlugin INFO] [X] é", "unfinished"}));
}

TEST_F(LogCaptureTest, KeepsEmptyLinesAndIsEmptyWithoutAny) {
  LogCapture capture;
  EXPECT_EQ(capture.lines(), Lines());
  std::fputs("\n\na\n", stdout);
  EXPECT_EQ(capture.lines(), (Lines{"", "", "a"}));
}

TEST_F(LogCaptureTest, LeavesOutputOfOtherTimesAndThreadsAlone) {
  testing::internal::CaptureStdout();  // looks at the file, behind our stream
  std::printf("before\n");
  {
    LogCapture capture;
    std::printf("inside\n");
    std::thread([] { std::printf("other thread\n"); }).join();
    EXPECT_EQ(capture.lines(), Lines{"inside"});
  }
  std::printf("after\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "before\nother thread\nafter\n");
}

TEST_F(LogCaptureTest, EachThreadGetsItsOwnLines) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        LogCapture capture;
        std::printf("%d says %d\n", t, i);
        EXPECT_EQ(capture.lines(), Lines{std::to_string(t) + " says " + std::to_string(i)});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace host
