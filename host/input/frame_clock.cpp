#include "input/frame_clock.h"

#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cmath>

namespace host {
namespace {

// A rule that takes 0 for "never" must not meet it on the first frame.
constexpr time_t kBeginning = 1000;

thread_local bool stopped = false;
thread_local timespec now{};

}  // namespace

FrameClock::FrameClock(double seconds) {
  const double whole = std::floor(seconds);
  now.tv_sec = kBeginning + static_cast<time_t>(whole);
  now.tv_nsec = static_cast<long>((seconds - whole) * 1e9);
  stopped = true;
}

FrameClock::~FrameClock() {
  stopped = false;
}

}  // namespace host

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t id, timespec* out) noexcept {
  if (id == CLOCK_MONOTONIC && host::stopped) {
    *out = host::now;
    return 0;
  }
  return static_cast<int>(syscall(SYS_clock_gettime, id, out));
}
