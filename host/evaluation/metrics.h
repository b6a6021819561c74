// How well a target was followed, in numbers. Everything here is arithmetic on what was measured: no tracker, no clock.
#pragma once

#include <array>
#include <opencv2/core.hpp>
#include <optional>
#include <vector>

namespace host {

inline constexpr double kOnTargetIou = 0.3;         ///< Overlap from which a box counts as on the target.
inline constexpr double kElsewhereIou = 0.1;        ///< Overlap below which a box is somewhere else.
inline constexpr double kPrecisionPixels = 20.0;    ///< Distance of centres that still counts as precise, pixels.
inline constexpr std::size_t kSuccessSteps = 21;    ///< Overlaps 0, 0.05, ... 1 of the success curve.
inline constexpr std::size_t kPrecisionSteps = 51;  ///< Distances 0, 1, ... 50 pixels of the precision curve.

/// Intersection over union of two boxes; 0 where one of them has no area.
double overlapOf(const cv::Rect2d& a, const cv::Rect2d& b);

/// Distance between the centres, pixels.
double centreDistance(const cv::Rect2d& a, const cv::Rect2d& b);

/// One marked frame after the start, judged.
struct Judgement {
  long frame = 0;                  ///< Counted from 0 in the source.
  double time_s = 0.0;             ///< Seconds since the source's beginning.
  bool absent = false;             ///< The truth says that the target is not there.
  bool hasBox = false;             ///< The tracker reported a box.
  bool seen = false;               ///< The tracker says that it sees the target in this frame, not only predicts it.
  double iou = 0.0;                ///< Overlap with the truth; 0 without a box or while absent.
  std::optional<double> distance;  ///< Of the centres, pixels; empty without a box or while absent.
};

/// Judges one answer against one mark.
Judgement judge(long frame, double time_s, const std::optional<cv::Rect2d>& truth, const std::optional<cv::Rect2d>& box,
                bool seen);

/// What happened to one target under one tracker.
struct TargetSamples {
  double startTime_s = 0.0;           ///< When the box was given, seconds since the source's beginning.
  bool started = true;                ///< False: the tracker refused the box; it then has no answers.
  std::vector<Judgement> judgements;  ///< By rising frame, without the frame that the box was given in.
  std::vector<double> wall_ms;        ///< One per update: wall-clock time.
  std::vector<double> cpu_ms;         ///< One per update: processor time of the calling thread.
};

/// Sums over judgements, so that several targets can be added up.
struct MetricSums {
  long targets = 0;                                 ///< Targets added up.
  long present = 0;                                 ///< Marked frames that show the target.
  long absent = 0;                                  ///< Marked frames without it.
  double iou = 0.0;                                 ///< Sum over present frames.
  long onTarget = 0;                                ///< Present frames with kOnTargetIou or more.
  long heldAtEnd = 0;                               ///< Targets that are on target in their last present frame.
  long seen = 0;                                    ///< Marked frames called seen.
  long seenElsewhere = 0;                           ///< Present frames called seen with an overlap below kElsewhereIou.
  long falseBoxes = 0;                              ///< Absent frames with any box.
  long falseSeen = 0;                               ///< Absent frames called seen.
  double offTotal_s = 0.0;                          ///< Time off target, see below.
  double offLongest_s = 0.0;                        ///< The longest single time off target.
  double watched_s = 0.0;                           ///< From the start to the last mark.
  long losses = 0;                                  ///< Times the target was off although it was there.
  long recoveries = 0;                              ///< How many of them ended on target again.
  double recovery_s = 0.0;                          ///< Sum of the delays of the recoveries.
  double recoveryLongest_s = 0.0;                   ///< The longest of these delays.
  std::array<long, kSuccessSteps> successCounts{};  ///< Present frames with an overlap above the step's.
  std::array<long, kPrecisionSteps> precisionCounts{};  ///< Present frames with a distance up to the step's.
};

/// A present frame stands for the time since the mark before it (or the start); off target that time is lost. A loss
/// begins with the first present frame off target, or with the target's return after an absence, and ends with the
/// first present frame on target: that time is the re-detection delay. An absence ends a loss without a recovery.
MetricSums sumsOf(const TargetSamples& samples);

MetricSums& operator+=(MetricSums& a, const MetricSums& b);

/// The figures that people read. Shares lie in [0, 1] and are 0 where there is nothing to divide by.
struct Metrics {
  double successAuc = 0.0;       ///< Mean of the success curve.
  double precision20 = 0.0;      ///< Share of present frames within kPrecisionPixels.
  double meanIou = 0.0;          ///< Over present frames; a frame without a box counts 0.
  double onTarget = 0.0;         ///< Share of present frames.
  double offTotal_s = 0.0;       ///< Seconds off target, all targets together.
  double offLongest_s = 0.0;     ///< Seconds; the longest single time off target.
  double redetectDelay_s = 0.0;  ///< Mean over recoveries.
  double seenElsewhere = 0.0;    ///< Share of the frames called seen that lie elsewhere or show no target.
  std::array<double, kSuccessSteps> successCurve{};      ///< Share of present frames with more overlap than the step's.
  std::array<double, kPrecisionSteps> precisionCurve{};  ///< Share of present frames within the step's distance.
};

/// The sums as shares and means; all zero where nothing was judged. Pure.
Metrics metricsOf(const MetricSums& sums);

}  // namespace host
