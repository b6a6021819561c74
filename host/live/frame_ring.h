// The last second of frames, because a person clicks on a picture that is already old.
#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "live/camera_track.h"

namespace live {

/// One frame of a live source.
struct LiveFrame {
  long index = 0;            ///< Counts every decoded frame from 0, taken or not.
  double capturedAt = 0.0;   ///< Seconds of the machine's clock that never goes back.
  double time_s = 0.0;       ///< Since the first frame; grows with every frame.
  bool senderClock = false;  ///< capturedAt is as the sender says; else it is the time of arrival.
  cv::Mat bgr;               ///< Never written to once it is here.
  CameraValues camera;       ///< What the camera said, at this frame's time; empty: missing.
};

/// Keeps the frames of the last second, within a limit of bytes. Threads: all calls from any thread.
class FrameRing {
 public:
  static constexpr double kSeconds = 1.0;                        ///< How long a frame is kept.
  static constexpr std::size_t kBytes = std::size_t{256} << 20;  ///< Most memory for pictures; the oldest go first.

  /// Keeps the frame, which shares its pixels, and drops what is too old or too much. Any thread.
  void add(const LiveFrame& frame);

  /// The frame of that number; nothing where it is no longer, or not yet, here.
  std::optional<LiveFrame> find(long index) const;

  /// What lies after a frame, oldest first.
  std::vector<LiveFrame> after(long index) const;

  /// The numbers of the oldest and the newest frame; (0, -1) when empty.
  std::pair<long, long> range() const;

 private:
  mutable std::mutex mutex_;
  std::deque<LiveFrame> frames_;
  std::size_t bytes_ = 0;
};

/// Which of `count` frames to work through to catch up, when one takes `frameS` seconds: evenly spread, the last one
/// always, as many as fit into half a second, at least one. Pure. @return places in [0, count), rising
std::vector<std::size_t> framesToCatchUp(std::size_t count, double frameS);

}  // namespace live
