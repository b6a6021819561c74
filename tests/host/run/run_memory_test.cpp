// How much memory a run with all its outputs takes.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include "support/host_program.h"

namespace host_test {
namespace {

TEST(RunMemory, AVideoAndAReportOfFullHdStayBelow300Megabytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer's own memory is in the way";
#endif
  const TempFolder folder;
  host::writeStreetScene(folder.file("scene.avi"), {1920, 1080}, 45, 25.0);
  const ProgramResult result =
      runProgram({"track", folder.file("scene.avi"), "--plugin", CSRT_FAKE_PLUGIN, "--quiet", "--box", "400,500,90,160",
                  "--video", folder.file("out.mp4"), "--report", folder.file("report.html")});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "") << "encoders keep their messages to themselves";
  rusage used{};
  getrusage(RUSAGE_CHILDREN, &used);
  EXPECT_LT(used.ru_maxrss, 300L * 1000 * 1000 / 1024);  // kilobytes of 1024
}

}  // namespace
}  // namespace host_test
