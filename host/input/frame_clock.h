// The plug-in's health rules measure seconds with the process's monotonic clock. A run that is faster or slower than
// the video was taken would trip them by the machine's speed, so the host program can let that clock follow the
// video's own time while the plug-in works: same frames, same answers, on every machine.
#pragma once

namespace host {

/// While it lives, CLOCK_MONOTONIC as this thread reads it (std::chrono::steady_clock included) stands still at the
/// given time. Other threads and other clocks are untouched. Not to be nested, and not to be held across a wait.
/// Works by this program's own clock_gettime(), which the dynamic loader prefers to the C library's.
class FrameClock {
 public:
  /// @param seconds  time since the source's beginning; finite, 0 or more
  explicit FrameClock(double seconds);
  ~FrameClock();
  FrameClock(const FrameClock&) = delete;
  FrameClock& operator=(const FrameClock&) = delete;
};

}  // namespace host
