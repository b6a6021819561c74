// setConfig(): from a JSON text to the configuration and the requests to the next frame.
#include <exception>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

#include "config_keys.h"
#include "config_readers.h"
#include "csrt_tracking_algo.h"
#include "sw_json.h"

namespace {

const char* onOff(bool on) {
  return on ? "on" : "off";
}

// True when any value of the group differs; the table of keys knows which there are.
bool groupDiffers(const std::string& group, CsrtConfig a, CsrtConfig b) {
  for (const ConfigKey& key : configKeys()) {
    if (group != key.group || key.slot == nullptr) continue;
    const auto differs = [&b, &key](const auto* value) {
      return *value != *std::get<std::remove_const_t<std::remove_pointer_t<decltype(value)>>*>(key.slot(b));
    };
    if (std::visit(differs, key.slot(a))) return true;
  }
  return false;
}

}  // namespace

void CSRTTrackingAlgo::setConfig(std::string json) {
  const CheckedLock lock(mutex_);
  try {
    log_("setConfig(): payload size = %zu", json.size());
    SwString error;
    const SwJsonValue root = SwJsonDocument::parseDocument(SwString(std::move(json)), SwString(), error);
    const std::shared_ptr<SwJsonObject> object = error.empty() ? root.toObject() : nullptr;
    if (object == nullptr) {
      log_("setConfig(): invalid JSON (%s) — ignoring", error.c_str());
      return;
    }
    applyConfig_Locked_(*object);
    logConfig_Locked_();
  } catch (const std::exception& e) {
    log_("setConfig(): exception: %s", e.what());
  }
}

// The aliases at the top level come last, so that they win over the values in their group.
void CSRTTrackingAlgo::applyConfig_Locked_(const SwJsonObject& root) {
  const CsrtConfig before = config_;
  for (const std::string group : configGroups()) {
    if (group.empty()) {
      readConfigGroup_Locked_(root, group);
    } else if (const std::shared_ptr<SwJsonObject> values = root[group].toObject()) {
      readConfigGroup_Locked_(*values, group);
    }
  }
  const bool rebuild = initialized_ && !pending_full_reset_ && groupDiffers("csrt", before, config_);
  if (rebuild) pending_rebuild_ = true;
}

void CSRTTrackingAlgo::readConfigGroup_Locked_(const SwJsonObject& values, const std::string& group) {
  const cv::Size workBefore(config_.input.work_width, config_.input.work_height);
  readConfigGroup(values, group, config_);
  for (const ConfigKey& key : configKeys()) {
    if (group != key.group || key.slot != nullptr || !values.contains(key.name)) continue;
    bool debug = debug_;
    readConfigBool(values[key.name], debug);
    debug_ = debug;
  }
  const cv::Size workNow(config_.input.work_width, config_.input.work_height);
  if (workNow != workBefore) pending_full_reset_ = initialized_;
}

void CSRTTrackingAlgo::logConfig_Locked_() const {
  const CsrtConfig& c = config_;
  log_(
      "setConfig(): input(work=%dx%d), refine init:%s | csrt(HOG=%s, CN=%s, RGB=%s, SEG=%s, GRAY=%s, tmpl=%d, "
      "scales=%d, sig=%.3f, sLR=%.3f, pad=%.3f, psr=%.3f, bg=%d, admm=%d, fLR=%.3f, wLR=%.3f, win=%s) | "
      "stab(maxMotion=%.1f, scale=[%.2f..%.2f]) | redetect(Nlost=%d, thr=%.2f, coarse=%.2f, fine=%d, dynStab=%.2f) | "
      "preposition(enabled=%s, directTol=%.3f, tol=%.3f, hold=%d, match=%.3f) | predict(damp=%.2f) | debug=%s | "
      "flags(reset=%d, rebuild=%d)",
      c.input.work_width, c.input.work_height, onOff(c.input.refine_init), onOff(c.csrt.use_hog),
      onOff(c.csrt.use_color_names), onOff(c.csrt.use_rgb), onOff(c.csrt.use_segmentation), onOff(c.csrt.use_gray),
      c.csrt.template_size, c.csrt.number_of_scales, c.csrt.scale_sigma_factor, c.csrt.scale_lr, c.csrt.padding,
      c.csrt.psr_threshold, c.csrt.background_ratio, c.csrt.admm_iterations, c.csrt.filter_lr, c.csrt.weights_lr,
      c.csrt.window_function.c_str(), c.stability.max_motion, c.stability.min_scale_ratio, c.stability.max_scale_ratio,
      c.redetect.frames_lost_before_reset, c.redetect.re_detect_threshold, c.redetect.coarse_factor,
      c.redetect.fine_roi_size, c.redetect.dynamic_patch_stability, onOff(c.preposition.enabled),
      c.preposition.direct_init_center_tol_norm, c.preposition.alignment_tol_norm, c.preposition.alignment_hold_frames,
      c.preposition.match_min_score, c.predict.damping, onOff(debug_), pending_full_reset_ ? 1 : 0,
      pending_rebuild_ ? 1 : 0);
}
