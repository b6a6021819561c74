// The rules of a live source that need no stream to be tried: when a signal counts as lost, when to connect again, how
// old a picture is. Every function takes the time as an argument; nothing here reads a clock, waits or locks.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

namespace live {

/// Says once that no frame has come for a second, and again every second for as long as that lasts.
class LossWatch {
 public:
  static constexpr double kLimitS = 1.0;  ///< Seconds without a frame until it is said.

  /// @param now  seconds of a clock that never goes back
  void frameCame(double now);
  /// @return the seconds without a frame when it is time to say so; nothing otherwise, and before the first frame
  std::optional<double> due(double now);
  /// Whether the loss has been said and no frame has come since.
  bool lost() const { return said_ > 0; }
  double secondsWithout(double now) const { return last_ ? now - *last_ : 0.0; }

 private:
  std::optional<double> last_;
  long said_ = 0;  // how often it was said for this gap
};

/// When to connect again: pauses double from 0.1 s to 0.8 s, so that a camera that has started again is seen within a
/// second and a half. After a refused password they are 10 s, because cameras lock accounts.
class ReconnectPlan {
 public:
  static constexpr double kFirstPauseS = 0.1;     ///< Seconds before the first new attempt.
  static constexpr double kLongestPauseS = 0.8;   ///< Seconds; pauses grow up to it.
  static constexpr double kRefusedPauseS = 10.0;  ///< Seconds, where the source refused, as with a wrong password.

  /// The pause after a failure, seconds.
  double failed(bool refused);
  /// A frame came: the next failure begins with the shortest pause again.
  void succeeded();
  long failures() const { return failures_; }  ///< In a row.

 private:
  long failures_ = 0;
};

/// When a frame was taken, in seconds of the machine's clock that never goes back.
struct CaptureTime {
  double at = 0.0;
  bool senderClock = false;  ///< As the sender says; else when it arrived.
};

/// @param now        the machine's clock that never goes back
/// @param unixNow    seconds since 1970 at the same moment
/// @param heldS      for how long the frame was here before `now`
/// @param sentUnixS  when the sender says it was taken; NaN: it does not say
/// A sender whose clock is wrong would make frames old or of the future: what lies outside [-0.05, 10] s of age is not
/// believed, and arrival counts.
CaptureTime captureTime(double now, double unixNow, double heldS, double sentUnixS);

/// Notices a stream whose time stamps jump or go back: their step is compared with that of the machine's clock. What
/// the frames' times are made of does not change; it is counted, because a person who looks for a fault wants to know.
class StampWatch {
 public:
  static constexpr double kLargestStepS = 1.0;  ///< Buffers that fill and empty are smaller than that.
  /// @param streamS  the stream's own stamp; NaN: it has none   @param now  a clock that never goes back
  void picture(double streamS, double now);
  /// The next stamp begins anew: another connection.
  void restart() { last_.reset(); }
  long jumps() const { return jumps_; }

 private:
  struct Seen {
    double streamS;
    double now;
  };
  std::optional<Seen> last_;
  long jumps_ = 0;
};

/// Seconds since a run's first frame: grow with every frame, whatever the capture times do.
class RunTime {
 public:
  static constexpr double kLeastStepS = 0.001;
  /// @param capturedAt  of frames in the order they came
  double of(double capturedAt);
  long corrected() const { return corrected_; }  ///< How often a capture time lay before that of the frame before.

 private:
  std::optional<double> first_;
  double before_ = -std::numeric_limits<double>::infinity();
  double last_ = -std::numeric_limits<double>::infinity();
  long corrected_ = 0;
};

}  // namespace live
