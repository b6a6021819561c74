// What every configuration key is, written down a second time and on purpose: type, range, value at the start and
// member. The tests hold the loader, the plug-in's own table and the published schema against it.
#pragma once

#include <string>
#include <vector>

#include "csrt_tracking_algo.h"

namespace config_facts {

/// The plug-in with what the configuration tests look at.
struct OpenedAlgo : CSRTTrackingAlgo {
  using CSRTTrackingAlgo::config_;
  using CSRTTrackingAlgo::debug_;
  using CSRTTrackingAlgo::initialized_;
  using CSRTTrackingAlgo::mutex_;
  using CSRTTrackingAlgo::pending_full_reset_;
  using CSRTTrackingAlgo::pending_rebuild_;
};

template <typename Value>
struct Ranged {
  const char* path;  ///< "group.key", or "key" at the top level
  Value lowest;
  Value highest;
  Value initial;
  Value& (*member)(CsrtConfig&);
};
using IntFact = Ranged<int>;
using NumberFact = Ranged<double>;

struct BoolFact {
  const char* path;
  bool initial;
  bool& (*member)(CsrtConfig&);  ///< null for misc.debug
};

#define FACT_MEMBER(type, name) [](CsrtConfig& c) -> type& { return c.name; }

inline const std::vector<IntFact>& integers() {
  static const std::vector<IntFact> facts{
      {"input.work_width", 32, 8192, 640, FACT_MEMBER(int, input.work_width)},
      {"input.work_height", 32, 8192, 360, FACT_MEMBER(int, input.work_height)},
      {"work_width", 32, 8192, 640, FACT_MEMBER(int, input.work_width)},
      {"work_height", 32, 8192, 360, FACT_MEMBER(int, input.work_height)},
      {"roi.min_size", 32, 8192, 128, FACT_MEMBER(int, roi.min_size)},
      {"roi.max_size", 0, 8192, 0, FACT_MEMBER(int, roi.max_size)},
      {"roi.round_to", 1, 128, 2, FACT_MEMBER(int, roi.round_to)},
      {"roi.min_delta_x", 0, 4096, 12, FACT_MEMBER(int, roi.min_delta_x)},
      {"roi.min_delta_y", 0, 4096, 12, FACT_MEMBER(int, roi.min_delta_y)},
      {"roi.margin_slack_px", 0, 128, 8, FACT_MEMBER(int, roi.margin_slack_px)},
      {"csrt.template_size", 32, 1024, 200, FACT_MEMBER(int, csrt.template_size)},
      {"csrt.number_of_scales", 1, 32, 10, FACT_MEMBER(int, csrt.number_of_scales)},
      {"csrt.background_ratio", 1, 16, 2, FACT_MEMBER(int, csrt.background_ratio)},
      {"csrt.admm_iterations", 1, 50, 5, FACT_MEMBER(int, csrt.admm_iterations)},
      {"redetect.frames_lost_before_reset", 1, 1000000, 12, FACT_MEMBER(int, redetect.frames_lost_before_reset)},
      {"redetect.max_redetect_attempts", 1, 1000000, 10, FACT_MEMBER(int, redetect.max_redetect_attempts)},
      {"redetect.fine_roi_size", 32, 2048, 200, FACT_MEMBER(int, redetect.fine_roi_size)},
      {"redetect.oscillation_max", 1, 10, 3, FACT_MEMBER(int, redetect.oscillation_max)},
      {"redetect.oscillation_window", 1, 20, 5, FACT_MEMBER(int, redetect.oscillation_window)},
      {"preposition.alignment_hold_frames", 1, 10, 2, FACT_MEMBER(int, preposition.alignment_hold_frames)},
  };
  return facts;
}

inline const std::vector<NumberFact>& numbers() {
  static const std::vector<NumberFact> facts{
      {"roi.margin_factor", 0.0, 8.0, 2.0, FACT_MEMBER(double, roi.margin_factor)},
      {"roi.speed_gain", 0.0, 10.0, 2.0, FACT_MEMBER(double, roi.speed_gain)},
      {"roi.conf_gain", 0.0, 5.0, 0.6, FACT_MEMBER(double, roi.conf_gain)},
      {"roi.hysteresis_ratio", 0.0, 0.5, 0.15, FACT_MEMBER(double, roi.hysteresis_ratio)},
      {"roi.keep_zone_ratio", 0.0, 1.0, 0.4, FACT_MEMBER(double, roi.keep_zone_ratio)},
      {"roi.hard_resize_ratio", 0.0, 1.0, 0.35, FACT_MEMBER(double, roi.hard_resize_ratio)},
      {"csrt.scale_sigma_factor", 0.01, 2.0, 0.2, FACT_MEMBER(double, csrt.scale_sigma_factor)},
      {"csrt.scale_lr", 0.0, 1.0, 0.4, FACT_MEMBER(double, csrt.scale_lr)},
      {"csrt.padding", 0.0, 8.0, 3.0, FACT_MEMBER(double, csrt.padding)},
      {"csrt.psr_threshold", 0.0, 1.0, 0.1, FACT_MEMBER(double, csrt.psr_threshold)},
      {"csrt.filter_lr", 0.0, 1.0, 0.05, FACT_MEMBER(double, csrt.filter_lr)},
      {"csrt.weights_lr", 0.0, 1.0, 0.05, FACT_MEMBER(double, csrt.weights_lr)},
      {"stability.max_motion", 1.0, 1e9, 100.0, FACT_MEMBER(double, stability.max_motion)},
      {"stability.min_scale_ratio", 0.01, 1e6, 0.3, FACT_MEMBER(double, stability.min_scale_ratio)},
      {"stability.max_scale_ratio", 0.1, 1e6, 2.5, FACT_MEMBER(double, stability.max_scale_ratio)},
      {"redetect.re_detect_threshold", 0.0, 1.0, 0.8, FACT_MEMBER(double, redetect.re_detect_threshold)},
      {"redetect.coarse_factor", 0.05, 1.0, 0.25, FACT_MEMBER(double, redetect.coarse_factor)},
      {"redetect.dynamic_patch_stability", 0.0, 1.0, 0.8, FACT_MEMBER(double, redetect.dynamic_patch_stability)},
      {"predict.damping", 0.0, 1.0, 0.9, FACT_MEMBER(double, predict.damping)},
      {"predict.bbox_smooth_alpha", 0.0, 1.0, 0.5, FACT_MEMBER(double, predict.bbox_smooth_alpha)},
      {"preposition.direct_init_center_tol_norm", 0.0, 0.5, 0.1,
       FACT_MEMBER(double, preposition.direct_init_center_tol_norm)},
      {"preposition.alignment_tol_norm", 0.001, 0.25, 0.02, FACT_MEMBER(double, preposition.alignment_tol_norm)},
      {"preposition.match_min_score", 0.0, 1.0, 0.15, FACT_MEMBER(double, preposition.match_min_score)},
  };
  return facts;
}

inline const std::vector<BoolFact>& booleans() {
  static const std::vector<BoolFact> facts{
      {"input.refine_init", false, FACT_MEMBER(bool, input.refine_init)},
      {"roi.enable", true, FACT_MEMBER(bool, roi.enable)},
      {"roi.snap_square", true, FACT_MEMBER(bool, roi.snap_square)},
      {"roi.size_snap_up", true, FACT_MEMBER(bool, roi.size_snap_up)},
      {"roi.min_delta_both", false, FACT_MEMBER(bool, roi.min_delta_both)},
      {"roi.freeze_input_size", true, FACT_MEMBER(bool, roi.freeze_input_size)},
      {"csrt.use_hog", true, FACT_MEMBER(bool, csrt.use_hog)},
      {"csrt.use_color_names", true, FACT_MEMBER(bool, csrt.use_color_names)},
      {"csrt.use_rgb", true, FACT_MEMBER(bool, csrt.use_rgb)},
      {"csrt.use_segmentation", true, FACT_MEMBER(bool, csrt.use_segmentation)},
      {"csrt.use_gray", false, FACT_MEMBER(bool, csrt.use_gray)},
      {"predict.bbox_smooth_enable", false, FACT_MEMBER(bool, predict.bbox_smooth_enable)},
      {"preposition.enabled", false, FACT_MEMBER(bool, preposition.enabled)},
      {"misc.debug", false, nullptr},
  };
  return facts;
}

#undef FACT_MEMBER

/// The two keys that are alone in their type.
constexpr const char* kText = "csrt.window_function";
constexpr const char* kList = "redetect.scale_list";
constexpr std::size_t kKeyCount = 59;

inline bool getBool(OpenedAlgo& algo, const BoolFact& fact) {
  return fact.member != nullptr ? fact.member(algo.config_) : algo.debug_.load();
}

inline void setBool(OpenedAlgo& algo, const BoolFact& fact, bool value) {
  if (fact.member != nullptr) {
    fact.member(algo.config_) = value;
  } else {
    algo.debug_ = value;
  }
}

inline std::vector<std::string> paths() {
  std::vector<std::string> all{kText, kList};
  for (const IntFact& fact : integers()) all.emplace_back(fact.path);
  for (const NumberFact& fact : numbers()) all.emplace_back(fact.path);
  for (const BoolFact& fact : booleans()) all.emplace_back(fact.path);
  return all;
}

/// A payload that gives one key a value: {"group": {"key": value}}, or {"key": value} at the top level.
inline std::string payload(const std::string& path, const std::string& value) {
  const std::size_t dot = path.find('.');
  if (dot == std::string::npos) return "{\"" + path + "\": " + value + "}";
  return "{\"" + path.substr(0, dot) + "\": {\"" + path.substr(dot + 1) + "\": " + value + "}}";
}

/// Everything that setConfig() may change, for comparing before and after.
struct Snapshot {
  std::vector<double> values;
  std::string text;
  std::vector<double> list;
  bool reset;
  bool rebuild;

  explicit Snapshot(OpenedAlgo& algo)
      : text(algo.config_.csrt.window_function),
        list(algo.config_.redetect.scale_list),
        reset(algo.pending_full_reset_),
        rebuild(algo.pending_rebuild_) {
    for (const IntFact& fact : integers()) values.push_back(fact.member(algo.config_));
    for (const NumberFact& fact : numbers()) values.push_back(fact.member(algo.config_));
    for (const BoolFact& fact : booleans()) values.push_back(getBool(algo, fact) ? 1.0 : 0.0);
  }
  bool operator==(const Snapshot& other) const {
    return values == other.values && text == other.text && list == other.list && reset == other.reset &&
           rebuild == other.rebuild;
  }
};

}  // namespace config_facts
