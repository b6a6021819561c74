// One target's long life: it moves, hides, jumps away and comes back, is re-started and re-configured, by seed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <random>
#include <string>
#include <vector>

#include "drawn_scene.h"
#include "test_algo.h"

class LongRun {
 public:
  static inline const cv::Size kFrame{240, 160};
  static inline const cv::Size kTarget{28, 28};

  explicit LongRun(unsigned seed) : random_(seed), scene_(kFrame, kTarget) {
    makeTrackerCheap(algo.config_);
    algo.config_.csrt.template_size = 40;
    algo.config_.redetect.frames_lost_before_reset = 3;
    algo.config_.redetect.re_detect_threshold = 0.6;
    algo.config_.redetect.coarse_factor = 1.0;
    restart();
  }

  TestAlgo algo;
  int losses = 0;
  int finds = 0;
  int restarts = 0;

  /// The next frame's answer.
  std::vector<AlgoOutput> step() {
    move();
    if (chance(150)) reconfigure();
    if (!algo.initialized_ || chance(400)) restart();
    const int lostBefore = algo.lostFrames_;
    const bool wasWatching = algo.redetectAge_ == 0;
    const std::vector<AlgoOutput> outputs = algo.update(frame(), nullptr);
    losses += algo.lostFrames_ > lostBefore ? 1 : 0;
    finds += !wasWatching && algo.redetectAge_ == 0 ? 1 : 0;
    return outputs;
  }

 private:
  bool chance(unsigned oneIn) { return random_() % oneIn == 0; }
  int within(int low, int high) { return low + static_cast<int>(random_() % static_cast<unsigned>(high - low + 1)); }

  void move() {
    if (hidden_ > 0) --hidden_;
    if (hidden_ == 0 && chance(40)) hidden_ = within(2, 25);
    if (chance(60)) at_ = {within(0, kFrame.width - kTarget.width), within(0, kFrame.height - kTarget.height)};
    at_ += cv::Point{within(-3, 3), within(-2, 2)};  // may leave the frame in part; braces: drawn in this order
  }

  void reconfigure() {
    const std::string padding = std::to_string(within(2, 3));  // drawn one by one: in a sum the order is the compiler's
    const std::string margin = std::to_string(within(0, 3));
    const std::string freeze = chance(2) ? "true" : "false";
    const std::string minSize = std::to_string(within(32, 200));
    const std::string smooth = chance(2) ? "true" : "false";
    algo.setConfig(R"({"csrt":{"padding":)" + padding + R"(},"roi":{"margin_factor":)" + margin +
                   R"(,"freeze_input_size":)" + freeze + R"(,"min_size":)" + minSize +
                   R"(},"predict":{"bbox_smooth_enable":)" + smooth + "}}");
  }

  void restart() {
    ++restarts;
    hidden_ = 0;
    at_ = {within(20, kFrame.width - 60), within(20, kFrame.height - 60)};
    algo.init(frame(), {at_.x, at_.y, kTarget.width, kTarget.height}, nullptr);
  }

  Frames frame() { return {scene_.pictureAt(hidden_ > 0 ? cv::Point(-500, -500) : at_)}; }

  std::mt19937 random_;
  DrawnScene scene_;
  cv::Point at_;
  int hidden_ = 0;
};
