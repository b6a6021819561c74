#include "simulator/loop_trial.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <opencv2/core.hpp>

#include "gimbal/controller.h"
#include "simulator/camera_follower.h"

namespace host::sim {
namespace {

constexpr double kTick_s = 0.001;
constexpr double kStep_deg = 20.0;
constexpr double kRamp_dps = 8.0;
constexpr double kBand = 0.02;
constexpr double kHfov = 60.0;
const cv::Size kFrame{640, 360};

struct Arriving {
  double at_s;        // here
  double captured_s;  // as its time says
  double value_deg;
};

double targetAt(TrialTarget kind, double t_s) {
  return kind == TrialTarget::Step ? kStep_deg : kStep_deg + kRamp_dps * t_s;
}

/// The time that a way takes with the gimbal's limits.
double slewTime(double way, const AxisLimits& limits) {
  const double top = std::min(limits.max_rate_dps, std::sqrt(way * limits.max_accel_dps2));
  return way / top + top / limits.max_accel_dps2;
}

gimbal::ControllerParams controllerParams(const LoopTrialParams& params) {
  gimbal::ControllerParams controller;
  controller.pan = {params.axis.max_rate_dps,
                    params.axis.max_accel_dps2,
                    params.believedOrder_s,
                    params.axis.lag_s,
                    params.believedGain,
                    -1e9,
                    1e9};
  controller.stale_s = params.believedStale_s;
  return controller;
}

/// Either follower, one axis.
class Pilot {
 public:
  explicit Pilot(const LoopTrialParams& params)
      : params_(params), follower_({2.5, 1.5, params.axis.max_rate_dps, 0.6}), controller_(controllerParams(params)) {}

  void angle(double t_s, double degrees) { controller_.angles(t_s, {degrees, 0.0}); }

  double rate(double now_s, const Arriving& frame) {
    if (params_.follower == TrialFollower::Predicting) {
      controller_.seen(frame.captured_s, {frame.value_deg, 0.0});
      return controller_.rates(now_s).pan;
    }
    const cv::Point2d at = pixelOf({frame.value_deg, 0.0}, {{0, 0}, kHfov, vfovOf(kHfov, kFrame)}, kFrame);
    return follower_
        .rateFor(cv::Rect2d(at.x - 10, at.y - 10, 20, 20), kHfov, vfovOf(kHfov, kFrame), kFrame, 1.0 / params_.fps)
        .pan;
  }

 private:
  const LoopTrialParams& params_;
  CameraFollower follower_;
  gimbal::Controller controller_;
};

LoopTrialResult judged(const LoopTrialParams& params, std::vector<TrialMoment> moments) {
  LoopTrialResult result;
  result.slew_s = slewTime(kStep_deg, params.axis);
  double squares = 0.0;
  long counted = 0;
  for (const TrialMoment& moment : moments) {
    const double off = moment.gimbal_deg - moment.target_deg;
    result.overshoot = std::max(result.overshoot, off / kStep_deg);
    if (std::fabs(off) > kBand * kStep_deg) result.settled_s = moment.t_s;
    if (moment.t_s < params.duration_s / 2) continue;
    squares += off * off;
    ++counted;
  }
  result.ramp_rms_deg = counted > 0 ? std::sqrt(squares / static_cast<double>(counted)) : 0.0;
  result.moments = std::move(moments);
  return result;
}

}  // namespace

LoopTrialResult runLoopTrial(const LoopTrialParams& params) {
  const AxisLimits still = params.axis;
  Gimbal gimbal(params.axis, still, params.order_s, {0.0, 0.0});
  Pilot pilot(params);
  cv::RNG rng(params.seed);
  std::deque<Arriving> video;
  std::deque<Arriving> readings;
  std::deque<TrialMoment> past;  // for readings that are older than they say
  std::vector<TrialMoment> moments;
  double turned = 0.0;  // the gimbal's pan without wrapping
  long frames = 0;
  const auto ticks = std::lround(params.duration_s / kTick_s);
  for (long tick = 0; tick < ticks; ++tick) {
    const double now_s = static_cast<double>(tick) * kTick_s;
    const double target = targetAt(params.target, now_s);
    past.push_back({now_s, target, turned});
    if (past.size() > 1000) past.pop_front();
    if (tick % 10 == 0) moments.push_back({now_s, target, turned});
    if (now_s + 1e-9 >= static_cast<double>(frames) / params.fps) {
      ++frames;
      const auto old = static_cast<std::size_t>(std::lround(params.stale_s / kTick_s));
      const double read = past[past.size() > old ? past.size() - 1 - old : 0].gimbal_deg;
      readings.push_back({now_s + params.metadata_s, now_s, read + rng.gaussian(params.encoder_noise_deg)});
      video.push_back({now_s + params.video_s, now_s, target - turned});
    }
    for (; !readings.empty() && readings.front().at_s <= now_s + 1e-9; readings.pop_front()) {
      pilot.angle(readings.front().captured_s, readings.front().value_deg);
    }
    for (; !video.empty() && video.front().at_s <= now_s + 1e-9; video.pop_front()) {
      gimbal.order({false, {pilot.rate(now_s, video.front()), 0.0}});
    }
    const double before = gimbal.position().pan;
    gimbal.advance(kTick_s);
    turned += wrapped(gimbal.position().pan - before);
  }
  return judged(params, std::move(moments));
}

}  // namespace host::sim
