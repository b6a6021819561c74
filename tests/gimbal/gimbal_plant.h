// A gimbal for tests, in small steps, and what a camera on it sees of one target. No pictures, no tracker.
#pragma once

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <random>

#include "gimbal/controller.h"

namespace gimbal {

/// One axis that does what it is ordered, with delay, lag and an acceleration limit.
class PlantAxis {
 public:
  double delay_s = 0.04, lag_s = 0.05, accel = 240.0, gain = 1.0;

  void order(double now_s, double rate) { orders_.push_back({now_s + delay_s, rate}); }
  void step(double now_s, double dt) {
    for (; !orders_.empty() && orders_.front().first <= now_s + 1e-9; orders_.pop_front()) {
      wanted_ = gain * orders_.front().second;
    }
    lagged_ += (lag_s > 0 ? 1 - std::exp(-dt / lag_s) : 1.0) * (wanted_ - lagged_);
    rate_ += std::clamp(lagged_ - rate_, -accel * dt, accel * dt);
    angle += rate_ * dt;
  }

  double angle = 0.0;

 private:
  std::deque<std::pair<double, double>> orders_;
  double wanted_ = 0.0, lagged_ = 0.0, rate_ = 0.0;
};

/// Camera, gimbal and target. run() lets time pass; each frame its reading and its sighting come, late.
struct Plant {
  PlantAxis pan, tilt;
  double fps = 25.0;
  double video_s = 0.1;
  double stale_s = 0.0;      // how much older a reading is than the time it carries
  double noise_deg = 0.02;   // of readings
  double jitter_deg = 0.02;  // of the box
  double pictureSign = 1.0;  // -1: the picture is upside down and mirrored
  std::function<PanTilt(double)> target = [](double) { return PanTilt{10.0, -5.0}; };
  std::function<bool(double)> visible = [](double) { return true; };

  std::function<void(double, const PanTilt&)> onAngles;
  std::function<void(double, const PanTilt&)> onSeen;
  std::function<PanTilt(double)> rates;
  std::function<void(double)> watch = [](double) {};

  PanTilt off() const { return {target(now_s).pan - pan.angle, target(now_s).tilt - tilt.angle}; }

  void run(double seconds) {
    const double end_s = now_s + seconds;
    while (now_s < end_s) {
      past_.push_back({now_s, {pan.angle, tilt.angle}});
      if (past_.size() > 1000) past_.pop_front();
      if (now_s + 1e-9 >= nextFrame_s_) frame_();
      for (; !video_.empty() && video_.front().first + video_s <= now_s + 1e-9; video_.pop_front()) {
        const double t_s = video_.front().first;
        if (visible(t_s) && onSeen) onSeen(t_s, video_.front().second);
        const PanTilt order = rates(now_s);
        pan.order(now_s, order.pan);
        tilt.order(now_s, order.tilt);
      }
      watch(now_s);
      pan.step(now_s, 0.001);
      tilt.step(now_s, 0.001);
      now_s += 0.001;
    }
  }

  double now_s = 0.0;

 private:
  double noise_(double deviation) { return std::normal_distribution<double>(0.0, deviation)(rng_); }
  void frame_() {
    nextFrame_s_ += 1.0 / fps;
    const auto old = static_cast<std::size_t>(std::lround(std::max(0.0, stale_s) * 1000));
    const PanTilt read = past_[past_.size() > old ? past_.size() - 1 - old : 0].second;
    // A reading that is younger than it says carries an earlier time.
    const double label_s = now_s + std::min(0.0, stale_s);
    if (onAngles) onAngles(label_s, {wrapped(read.pan + noise_(noise_deg)), read.tilt + noise_(noise_deg)});
    video_.push_back(
        {now_s, {pictureSign * off().pan + noise_(jitter_deg), pictureSign * off().tilt + noise_(jitter_deg)}});
  }

  double nextFrame_s_ = 0.0;
  std::deque<std::pair<double, PanTilt>> past_;
  std::deque<std::pair<double, PanTilt>> video_;
  std::mt19937 rng_{5};
};

/// Closes the loop with a controller.
inline void connect(Plant& plant, Controller& controller) {
  plant.onAngles = [&](double t_s, const PanTilt& angles) { controller.angles(t_s, angles); };
  plant.onSeen = [&](double t_s, const PanTilt& off) { controller.seen(t_s, off); };
  plant.rates = [&](double now_s) { return controller.rates(now_s); };
}

}  // namespace gimbal
