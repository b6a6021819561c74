// Watches the tracker's answers over time and declares the track failed when they are implausible.
#pragma once

#include <functional>
#include <opencv2/core/types.hpp>
#include <string>

/// Three rules on the box's centre, in frame-normalised units: stuck at the border, repeated jumps, too fast.
/// Once failed it stays failed until reset(). Not locked: the owner serialises the calls.
class CsrtTrackerHealth {
 public:
  using Clock = std::function<double()>;  ///< Seconds, monotonic.

  /// @param clock  what nowSec_() reads; empty: the system's steady clock. Only tests pass one.
  explicit CsrtTrackerHealth(Clock clock = {});

  /// Forgets everything seen; keeps the limits and the clock.
  void reset();

  /// @param box    full-frame pixels, may reach outside the frame; without area nothing is recorded
  /// @param frame  pixels
  /// @return true when the track is, or already was, declared failed; reason() says why
  bool update(const cv::Rect& box, const cv::Size& frame);

  /// Why it failed, as the log says it; empty while it has not.
  const std::string& reason() const { return reason_; }

 protected:
  double nowSec_() const;
  bool fail_(const char* reason);
  bool failsAtBorder_(const cv::Point2f& centre, double now);
  bool failsByJump_(float distance);
  bool failsBySpeed_(float distance, double now);

  float edgeMarginNorm_ = 0.05F;  ///< Border band, fraction of the frame.
  float edgeTimeSec_ = 0.8F;      ///< Longest stay in the band, seconds.
  float maxJumpNorm_ = 0.35F;     ///< Largest movement between two updates.
  int maxJumpCount_ = 3;          ///< Over-large movements in a row that are a fault.
  float maxSpeedNorm_ = 2.0F;     ///< Largest speed, per second.
  int maxSpeedCount_ = 2;         ///< Over-fast updates in a row that are a fault.
  bool failed_ = false;
  std::string reason_;
  double edgeSince_ = 0.0;  ///< When the centre entered the band, seconds; 0: it is outside.
  int jumpCount_ = 0;
  int speedCount_ = 0;
  cv::Point2f lastCenter_{-1.0F, -1.0F};
  double lastTime_ = 0.0;  ///< Seconds; 0: none.
  Clock clock_;
};
