#include "simulator/simulation_summary.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "base/statistics.h"

namespace host::sim {
namespace {

constexpr double kCanBeSeen = 0.5;  // of the target's area
constexpr double kHidden = 0.1;     // below: no box can be right
constexpr double kOnTarget = 0.1;   // overlap; below: the box is on something else

Spread spreadOf(const std::vector<double>& values) {
  if (values.empty()) return {};
  return {quantile(values, 0.5), quantile(values, 0.95), *std::max_element(values.begin(), values.end())};
}

}  // namespace

void SimulationSummary::begin(const Scenario& scenario) {
  fps_ = scenario.fps;
  honesty_.begin(scenario);
}

void SimulationSummary::frame(const SimulatedFrame& frame) {
  const CallRecord& record = frame.record;
  honesty_.frame(frame);
  ++totals_.frames;
  totals_.engine = record.engine;
  totals_.finalState = record.state;
  if (record.isInit && totals_.frames > 1) {
    ++totals_.marksAgain;
  } else if (record.isInit) {
    totals_.started = record.started;
    totals_.asked = frame.camera.asked;
    if (totals_.asked) {
      const Angles off = between(*totals_.asked, frame.truth.direction);
      totals_.askedErrorDeg = std::hypot(off.pan, off.tilt);
    }
  } else {
    ++totals_.states[record.state];
    update_ms_.push_back(record.update_ms);
  }
  if (!record.reason.empty()) totals_.lostReason = record.reason;
  if (!totals_.armedFrame && totals_.started && record.state != TrackState::Waiting) {
    totals_.armedFrame = record.frame;
    totals_.secondsToArm = record.time_s;
    totals_.armedErrorDeg = frame.truth.pointingErrorDeg;
    totals_.armedErrorPx = frame.truth.pointingErrorPx;
  }
  if (totals_.armedFrame && !record.isInit) countFollowing_(frame);
}

void SimulationSummary::countFollowing_(const SimulatedFrame& frame) {
  const CallRecord& record = frame.record;
  const bool seen = isSeen(record);
  const double iou = record.box ? overlap(*record.box, frame.truth.box) : 0.0;
  if (!totals_.firstIou && record.box) totals_.firstIou = iou;
  if (record.zoomReseeded) ++totals_.zoomReseeds;
  if (record.state == TrackState::Redetected) ++totals_.redetections;
  if (frame.truth.visibleShare >= kCanBeSeen) {
    ++totals_.framesVisible;
    errorsDeg_.push_back(frame.truth.pointingErrorDeg);
    errorsPx_.push_back(frame.truth.pointingErrorPx);
    if (seen) ious_.push_back(iou);
    if (!seen || iou < kOnTarget) ++framesLost_;
    if (seen && iou < kOnTarget) ++totals_.falseBoxes;
  } else if (seen && frame.truth.visibleShare < kHidden) {
    ++totals_.falseBoxes;
  }
}

SimulationTotals SimulationSummary::totals() const {
  SimulationTotals totals = totals_;
  totals.followingErrorDeg = spreadOf(errorsDeg_);
  totals.followingErrorPx = spreadOf(errorsPx_);
  if (!ious_.empty()) {
    totals.meanIou = std::accumulate(ious_.begin(), ious_.end(), 0.0) / static_cast<double>(ious_.size());
  }
  totals.secondsLost = static_cast<double>(framesLost_) / fps_;
  totals.medianUpdateMs = quantile(update_ms_, 0.5);
  totals.honesty = honesty_.honesty();
  return totals;
}

}  // namespace host::sim
