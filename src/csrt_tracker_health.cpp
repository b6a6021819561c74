#include "csrt_tracker_health.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "window_geometry.h"

namespace {

constexpr double kMinElapsedSec = 1e-6;  // two updates in one tick of the clock must not divide by zero
const cv::Point2f kNoCentre{-1.0F, -1.0F};

cv::Point2f normalisedCentre(const cv::Rect& box, const cv::Size& frame) {
  const cv::Point2f centre = centreOf(box);
  return {centre.x / static_cast<float>(frame.width), centre.y / static_cast<float>(frame.height)};
}

}  // namespace

CsrtTrackerHealth::CsrtTrackerHealth(Clock clock) : clock_(std::move(clock)) {}

void CsrtTrackerHealth::reset() {
  failed_ = false;
  reason_.clear();
  edgeSince_ = 0.0;
  jumpCount_ = 0;
  speedCount_ = 0;
  lastCenter_ = kNoCentre;
  lastTime_ = 0.0;
}

bool CsrtTrackerHealth::update(const cv::Rect& box, const cv::Size& frame) {
  if (failed_) return true;
  if (!hasArea(box) || frame.width < 1 || frame.height < 1) return false;

  const double now = nowSec_();
  const cv::Point2f centre = normalisedCentre(box, frame);
  if (failsAtBorder_(centre, now)) return fail_("bbox collée au bord");
  if (lastCenter_.x >= 0.0F && lastCenter_.y >= 0.0F) {
    const cv::Point2f step = centre - lastCenter_;
    const float distance = std::sqrt(step.x * step.x + step.y * step.y);
    if (failsByJump_(distance)) return fail_("sauts successifs trop importants");
    if (failsBySpeed_(distance, now)) return fail_("vitesse tracking irréaliste");
  }
  lastCenter_ = centre;
  lastTime_ = now;
  return false;
}

double CsrtTrackerHealth::nowSec_() const {
  if (clock_) return clock_();
  const auto sinceStart = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(sinceStart).count()) / 1e9;
}

bool CsrtTrackerHealth::fail_(const char* reason) {
  failed_ = true;
  reason_ = reason;
  return true;
}

bool CsrtTrackerHealth::failsAtBorder_(const cv::Point2f& centre, double now) {
  const float band = edgeMarginNorm_;
  const bool inBand = centre.x < band || centre.x > 1.0F - band || centre.y < band || centre.y > 1.0F - band;
  if (!inBand) {
    edgeSince_ = 0.0;
    return false;
  }
  if (edgeSince_ <= 0.0) edgeSince_ = now;
  return now - edgeSince_ > double{edgeTimeSec_};
}

bool CsrtTrackerHealth::failsByJump_(float distance) {
  jumpCount_ = distance > maxJumpNorm_ ? jumpCount_ + 1 : 0;
  return jumpCount_ >= maxJumpCount_;
}

bool CsrtTrackerHealth::failsBySpeed_(float distance, double now) {
  if (!(lastTime_ > 0.0)) return false;
  const double speed = double{distance} / std::max(now - lastTime_, kMinElapsedSec);
  speedCount_ = speed > double{maxSpeedNorm_} ? speedCount_ + 1 : 0;
  return speedCount_ >= maxSpeedCount_;
}
