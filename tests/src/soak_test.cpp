// Memory, descriptors and speed over a long life. CSRT_SOAK_UPDATES asks for a longer one than continuous integration
// has.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "support/long_run.h"

namespace {

constexpr long kDefaultUpdates = 3000;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;  // freed memory stays in quarantine: its growth says nothing
#else
constexpr bool kSanitized = false;
#endif

long updates() {
  const char* wanted = std::getenv("CSRT_SOAK_UPDATES");
  return wanted != nullptr ? std::atol(wanted) : kDefaultUpdates;
}

double residentMb() {
  long pages = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

int openDescriptors() {
  DIR* folder = opendir("/proc/self/fd");
  int count = 0;
  while (readdir(folder) != nullptr) ++count;
  closedir(folder);
  return count;
}

double cpuSeconds(const std::function<void()>& call) {
  const std::clock_t start = std::clock();
  call();
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

}  // namespace

TEST(Soak, MemoryAndDescriptorsStayFlat) {
  LongRun run(21);
  const auto live = [&run](long count) {
    for (long i = 0; i < count; ++i) run.step();
  };
  const long tenth = updates() / 10;
  const double firstCpu = cpuSeconds([&] { live(3 * tenth); });  // warms up too
  const double warmMb = residentMb();
  const int warmDescriptors = openDescriptors();
  live(4 * tenth);
  const double lastCpu = cpuSeconds([&] { live(3 * tenth); });
  const double endMb = residentMb();

  std::printf(
      "soak: %ld updates, %d lost, %d found, %d starts; resident %.1f -> %.1f MB; cpu of the first and last 30 %%: "
      "%.2f, %.2f s\n",
      updates(), run.losses, run.finds, run.restarts, warmMb, endMb, firstCpu, lastCpu);
  EXPECT_EQ(openDescriptors(), warmDescriptors);
  if (!kSanitized) {
    EXPECT_LE(endMb, warmMb * 1.05);
  }
  EXPECT_GT(run.losses, 20);
}
