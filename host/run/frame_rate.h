// How many frames a run works through a second, as it is now.
#pragma once

#include <deque>

namespace host {

/// Counts frames over the last seconds. Times are given, so that tests need no clock; they must not go back. Not
/// thread-safe.
class FrameRate {
 public:
  /// @param overS  how far back it looks, seconds, > 0
  explicit FrameRate(double overS = 5.0) : overS_(overS) {}

  /// A frame was worked through at `nowS` (seconds).
  void add(double nowS);
  /// Frames per second over the last `overS` before `nowS`; in the beginning over the time since the first one. 0 while
  /// there is no frame to count by.
  double at(double nowS);

 private:
  void forget_(double nowS);

  double overS_;
  bool begun_ = false;
  double beginS_ = 0.0;
  std::deque<double> times_;
};

}  // namespace host
