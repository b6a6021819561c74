// Somebody else who knows the target and can be asked where it is: a network, another tracker, a person. The guard
// weighs what it says against the tracker's box and the target's colours; see Guard::consult().
//
// Pixels:   boxes are full-frame pixels; frames are 8-bit with 1, 3 (BGR) or 4 (BGRA) channels.
// Threads:  the guard calls from the thread that calls the guard, one call at a time.
// Errors:   nothing may be thrown. Who cannot tell says nothing, and the guard goes on without.
#pragma once

#include <opencv2/core.hpp>
#include <optional>

namespace csrt_guard {

/// What it says of one frame.
struct Opinion {
  cv::Rect box;  ///< Where the target is; may lie partly outside the frame.
  double score =
      0.0;  ///< How sure that is: 0 not at all, 1 entirely. Of one opinion these compare; of two they do not.
};

class SecondOpinion {
 public:
  SecondOpinion() = default;
  SecondOpinion(const SecondOpinion&) = delete;
  SecondOpinion& operator=(const SecondOpinion&) = delete;
  virtual ~SecondOpinion() = default;

  /// Learns the target: what `box` shows. Forgets the one before.
  /// @return false: nothing there to learn from; look() then says nothing
  virtual bool start(const cv::Mat& frame, const cv::Rect& box) noexcept = 0;

  /// Looks for the target around a box: where it was last, or is supposed to be. How far around, and what size it
  /// expects, follows from the box; nothing else is remembered from look to look, so that what it says of a frame
  /// depends on no other frame but the first.
  /// @return empty: it cannot tell
  virtual std::optional<Opinion> look(const cv::Mat& frame, const cv::Rect& around) noexcept = 0;
};

}  // namespace csrt_guard
