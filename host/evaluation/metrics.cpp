#include "evaluation/metrics.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace host {
namespace {

double share(double part, double all) {
  return all > 0 ? part / all : 0.0;
}

void countCurves(const Judgement& j, MetricSums& sums) {
  for (std::size_t i = 0; i < kSuccessSteps; ++i) {
    if (j.iou > static_cast<double>(i) / (kSuccessSteps - 1)) ++sums.successCounts[i];
  }
  if (!j.distance) return;
  for (std::size_t i = 0; i < kPrecisionSteps; ++i) {
    if (*j.distance <= static_cast<double>(i)) ++sums.precisionCounts[i];
  }
}

void countBoxes(const Judgement& j, MetricSums& sums) {
  if (j.seen) ++sums.seen;
  if (j.absent) {
    ++sums.absent;
    if (j.hasBox) ++sums.falseBoxes;
    if (j.seen) ++sums.falseSeen;
    return;
  }
  ++sums.present;
  sums.iou += j.iou;
  if (j.iou >= kOnTargetIou) ++sums.onTarget;
  if (j.seen && j.iou < kElsewhereIou) ++sums.seenElsewhere;
  countCurves(j, sums);
}

/// Walks along the marks and keeps the loss that is under way.
class LossWatch {
 public:
  LossWatch(double startTime_s, MetricSums& sums) : last_s_(startTime_s), sums_(sums) {}

  void see(const Judgement& j) {
    if (j.absent) {
      endRun_();
      away_ = true;
    } else if (j.iou >= kOnTargetIou) {
      recover_(j);
    } else {
      lose_(j);
    }
    last_s_ = j.time_s;
  }
  void end() { endRun_(); }

 private:
  void lose_(const Judgement& j) {
    if (!lost_) {
      lost_ = true;
      ++sums_.losses;
      begin_s_ = j.time_s;
    }
    run_s_ += j.time_s - last_s_;
    away_ = false;
  }
  void recover_(const Judgement& j) {
    if (lost_ || away_) {
      if (!lost_) ++sums_.losses;  // back and found at once
      const double delay = lost_ ? j.time_s - begin_s_ : 0.0;
      ++sums_.recoveries;
      sums_.recovery_s += delay;
      sums_.recoveryLongest_s = std::max(sums_.recoveryLongest_s, delay);
    }
    endRun_();
    away_ = false;
  }
  void endRun_() {
    sums_.offTotal_s += run_s_;
    sums_.offLongest_s = std::max(sums_.offLongest_s, run_s_);
    run_s_ = 0.0;
    lost_ = false;
  }

  double last_s_;
  MetricSums& sums_;
  bool lost_ = false;
  bool away_ = false;
  double begin_s_ = 0.0;
  double run_s_ = 0.0;
};

}  // namespace

double overlapOf(const cv::Rect2d& a, const cv::Rect2d& b) {
  const double width = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
  const double height = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
  if (!(width > 0) || !(height > 0)) return 0.0;
  const double both = width * height;
  return both / (a.width * a.height + b.width * b.height - both);
}

double centreDistance(const cv::Rect2d& a, const cv::Rect2d& b) {
  return std::hypot(a.x + a.width / 2 - b.x - b.width / 2, a.y + a.height / 2 - b.y - b.height / 2);
}

Judgement judge(long frame, double time_s, const std::optional<cv::Rect2d>& truth, const std::optional<cv::Rect2d>& box,
                bool seen) {
  Judgement j;
  j.frame = frame;
  j.time_s = time_s;
  j.absent = !truth;
  j.hasBox = box && box->width > 0 && box->height > 0;
  j.seen = seen;
  if (j.hasBox && truth) {
    j.iou = overlapOf(*truth, *box);
    j.distance = centreDistance(*truth, *box);
  }
  return j;
}

MetricSums sumsOf(const TargetSamples& samples) {
  MetricSums sums;
  sums.targets = 1;
  LossWatch watch(samples.startTime_s, sums);
  bool held = samples.started;
  for (const Judgement& j : samples.judgements) {
    countBoxes(j, sums);
    watch.see(j);
    if (!j.absent) held = j.iou >= kOnTargetIou;
  }
  watch.end();
  sums.heldAtEnd = held ? 1 : 0;
  if (!samples.judgements.empty()) sums.watched_s = samples.judgements.back().time_s - samples.startTime_s;
  return sums;
}

MetricSums& operator+=(MetricSums& a, const MetricSums& b) {
  a.targets += b.targets;
  a.present += b.present;
  a.absent += b.absent;
  a.iou += b.iou;
  a.onTarget += b.onTarget;
  a.heldAtEnd += b.heldAtEnd;
  a.seen += b.seen;
  a.seenElsewhere += b.seenElsewhere;
  a.falseBoxes += b.falseBoxes;
  a.falseSeen += b.falseSeen;
  a.offTotal_s += b.offTotal_s;
  a.offLongest_s = std::max(a.offLongest_s, b.offLongest_s);
  a.watched_s += b.watched_s;
  a.losses += b.losses;
  a.recoveries += b.recoveries;
  a.recovery_s += b.recovery_s;
  a.recoveryLongest_s = std::max(a.recoveryLongest_s, b.recoveryLongest_s);
  for (std::size_t i = 0; i < kSuccessSteps; ++i) a.successCounts[i] += b.successCounts[i];
  for (std::size_t i = 0; i < kPrecisionSteps; ++i) a.precisionCounts[i] += b.precisionCounts[i];
  return a;
}

Metrics metricsOf(const MetricSums& sums) {
  const auto present = static_cast<double>(sums.present);
  const auto ofPresent = [present](long count) { return share(static_cast<double>(count), present); };
  Metrics m;
  for (std::size_t i = 0; i < kSuccessSteps; ++i) m.successCurve[i] = ofPresent(sums.successCounts[i]);
  for (std::size_t i = 0; i < kPrecisionSteps; ++i) m.precisionCurve[i] = ofPresent(sums.precisionCounts[i]);
  m.successAuc = std::accumulate(m.successCurve.begin(), m.successCurve.end(), 0.0) / kSuccessSteps;
  m.precision20 = m.precisionCurve[static_cast<std::size_t>(kPrecisionPixels)];
  m.meanIou = share(sums.iou, present);
  m.onTarget = ofPresent(sums.onTarget);
  m.offTotal_s = sums.offTotal_s;
  m.offLongest_s = sums.offLongest_s;
  m.redetectDelay_s = share(sums.recovery_s, static_cast<double>(sums.recoveries));
  m.seenElsewhere = share(static_cast<double>(sums.seenElsewhere + sums.falseSeen), static_cast<double>(sums.seen));
  return m;
}

}  // namespace host
