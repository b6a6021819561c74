// What a camera said, in a file that another program keeps writing: one JSON object per line, by time.
#pragma once

#include <string>

#include "live/camera_track.h"

namespace live {

/// Reads a growing file line by line. One thread.
/// A line: {"unix_s": 1732234500.25, "pan_deg": 12.5, ...}, or "utc_timestamp_us" in place of "unix_s"; numbers alone
/// are taken. A line that is none of this is counted and passed over, and a half line waits for its end.
class Sidecar {
 public:
  /// @throws HostError (Usage) naming the path when it cannot be read
  explicit Sidecar(const std::string& path);

  /// Takes in what was written since; never waits, and reads at most 1 MB at a time.
  void readMore();
  /// @param unixTime  seconds since 1970 @return as CameraTrack::at()
  CameraValues at(double unixTime) const { return track_.at(unixTime); }
  long refused() const { return refused_; }

 private:
  void takeLine_(const std::string& line);

  std::string path_;
  std::string pending_;
  long read_ = 0;  // bytes of the file
  long refused_ = 0;
  bool endless_ = false;  // inside a line that is dropped because it is too long
  CameraTrack track_;
};

}  // namespace live
