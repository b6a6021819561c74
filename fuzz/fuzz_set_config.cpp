// Any bytes as a configuration: the plug-in survives, every value stays in its range, and nothing is asked of a track
// that was never started.
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>

#include "config_keys.h"
#include "csrt_tracking_algo.h"
#include "fuzz_check.h"

namespace {

struct OpenedAlgo : CSRTTrackingAlgo {
  using CSRTTrackingAlgo::config_;
  using CSRTTrackingAlgo::mutex_;
  using CSRTTrackingAlgo::pending_full_reset_;
  using CSRTTrackingAlgo::pending_rebuild_;
};

void checkRange(const ConfigKey& key, CsrtConfig& config) {
  const ConfigSlot slot = key.slot(config);
  double value = key.lowest;
  if (const auto* const integer = std::get_if<int*>(&slot)) value = **integer;
  if (const auto* const number = std::get_if<double*>(&slot)) value = **number;
  fuzzCheck(value >= key.lowest && value <= key.highest, key.name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  OpenedAlgo algo;
  const std::string json(reinterpret_cast<const char*>(data), size);
  algo.setConfig(json);
  algo.enableDebug(true);  // the second call logs what it does; equal values raise no request either
  algo.setConfig(json);
  for (const ConfigKey& key : configKeys()) {
    if (key.slot != nullptr) checkRange(key, algo.config_);
  }
  fuzzCheck(!algo.config_.redetect.scale_list.empty(), "the list of scales is never empty");
  fuzzCheck(!algo.pending_full_reset_ && !algo.pending_rebuild_, "no request before the start");
  fuzzCheck(algo.mutex_.try_lock(), "the lock is free");
  algo.mutex_.unlock();
  return 0;
}
