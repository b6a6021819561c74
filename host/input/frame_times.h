// When each frame of a video was taken, from what the container says.
#pragma once

#include <optional>
#include <vector>

namespace host {

/// Whether a camera can have this rate: 1 to 1000 frames per second. MPEG-TS and raw streams name the ticks of their
/// clock instead (90,000, 1,200,000). NaN: no. Pure.
bool isBelievableRate(double fps);

/// The rate that time stamps of consecutive frames give, or nothing when they give none that is believable. Pure.
/// @param stamps_s  seconds, in the order of the frames; one that is not above the one before it makes the list useless
std::optional<double> rateOf(const std::vector<double>& stamps_s);

/// Turns the time stamps of a source, frame after frame, into seconds since its first frame. A frame without a stamp
/// (the last ones of a file with reordered frames have none) goes on as the frames before it did; one whose stamp goes
/// back, and a source without stamps, goes on at the source's rate. So times always rise. Not thread-safe.
class FrameTimes {
 public:
  /// @param fps      frames per second of the source; above 0
  /// @param trusted  false: stamps are not looked at
  FrameTimes(double fps, bool trusted) : period_s_(1.0 / fps), trusted_(trusted) {}

  /// The time of the next frame, seconds since the first one; 0 for the first.
  /// @param stamp_s  what the source says; the first frame's below 0 or beyond any reason: all others are not believed
  double next(double stamp_s);

 private:
  double period_s_;
  bool trusted_;
  bool begun_ = false;
  bool lastHadStamp_ = false;
  double first_s_ = 0.0;
  double step_s_ = 0.0;  ///< Between the last two frames with stamps; 0: not known yet.
  double time_s_ = 0.0;
};

}  // namespace host
