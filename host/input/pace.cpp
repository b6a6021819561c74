#include "input/pace.h"

#include <algorithm>
#include <thread>

#include "base/host_error.h"
#include "base/interrupt.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kNap(50);  // so that a signal is answered at once

Clock::duration seconds(double value) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(value));
}

}  // namespace

Pace paceOf(const std::string& word) {
  if (word == "fast") return Pace::Fast;
  if (word == "source") return Pace::Source;
  if (word == "video") return Pace::Video;
  throw HostError(ExitCode::Usage, "--pace '" + word + "' is not one of fast, source, video");
}

const char* name(Pace pace) {
  return pace == Pace::Fast ? "fast" : pace == Pace::Source ? "source" : "video";
}

void PaceKeeper::wait(double time_s) {
  if (!on_) return;
  if (!begun_) {
    begun_ = true;
    begin_ = Clock::now() - seconds(time_s);
  }
  const Clock::time_point due = begin_ + seconds(time_s);
  while (interruptSignal() == 0 && Clock::now() < due) {
    std::this_thread::sleep_until(std::min(due, Clock::now() + kNap));
  }
}

}  // namespace host
