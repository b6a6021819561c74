#include "evaluation/search_space.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace host {
namespace {

using Json = nlohmann::json;

SearchKey range(const char* group, const char* key, double low, double high) {
  return {group, key, low, high, false, {}};
}

SearchKey ratio(const char* group, const char* key, double low, double high) {
  return {group, key, low, high, true, {}};
}

SearchKey list(const char* group, const char* key, std::vector<Json> values) {
  return {group, key, 0, 0, false, std::move(values)};
}

SearchKey onOff(const char* group, const char* key) {
  return list(group, key, {true, false});
}

/// Three digits are plenty, and the file stays readable.
double threeDigits(double value) {
  if (value == 0) return 0;
  const double step = std::pow(10.0, std::floor(std::log10(std::abs(value))) - 2);
  const double rounded = std::round(value / step) * step;
  return std::round(rounded * 1e6) / 1e6;
}

double atShare(const SearchKey& k, double share) {
  const double value = k.byRatio ? k.low * std::pow(k.high / k.low, share) : k.low + (k.high - k.low) * share;
  return std::clamp(threeDigits(value), k.low, k.high);
}

double shareOf(const SearchKey& k, double value) {
  const double inside = std::clamp(value, k.low, k.high);
  return k.byRatio ? std::log(inside / k.low) / std::log(k.high / k.low) : (inside - k.low) / (k.high - k.low);
}

Json drawn(const SearchKey& k, SeededRandom& random) {
  if (k.high > k.low) return atShare(k, random.unit());
  return k.values[static_cast<std::size_t>(random.below(k.values.size()))];
}

Json moved(const SearchKey& k, const Json& parent, SeededRandom& random) {
  const bool has = parent.contains(k.group) && parent[k.group].contains(k.key) && parent[k.group][k.key].is_number();
  if (!(k.high > k.low) || !has) return drawn(k, random);
  const double share = shareOf(k, parent[k.group][k.key].get<double>()) + 0.4 * (random.unit() - 0.5);
  return atShare(k, std::clamp(share, 0.0, 1.0));
}

constexpr long kNever = 1000000;  // the largest redetect.frames_lost_before_reset: no search within a day's frames

/// Nothing reads the key in this configuration: a candidate that differs in it alone would be the same trial again.
bool isIdle(const SearchKey& k, const Json& config) {
  const std::string group = k.group;
  const std::string key = k.key;
  if (!config.contains(group)) return false;
  if (group == "roi") return key != "enable" && !config[group].value("enable", true);
  return group == "redetect" && key != "frames_lost_before_reset" &&
         config[group].value("frames_lost_before_reset", 0L) >= kNever;
}

/// OpenCV needs one kind of picture to learn from.
void keepAFeature(Json& config) {
  if (!config.contains("csrt")) return;
  Json& csrt = config["csrt"];
  if (!csrt.value("use_hog", true) && !csrt.value("use_color_names", true)) csrt["use_hog"] = true;
}

constexpr int kDraws = 20;  // more than enough for one that differs, where any can

Json changed(const SearchSpace& space, const Json& parent, SeededRandom& random) {
  Json config = parent;
  const double change = std::min(1.0, 4.0 / static_cast<double>(space.size()));
  for (const SearchKey& k : space) {
    const Json value = moved(k, parent, random);
    if (random.unit() < change && !isIdle(k, config)) config[k.group][k.key] = value;
  }
  keepAFeature(config);
  return config;
}

}  // namespace

SearchSpace defaultSearchSpace() {
  return {ratio("csrt", "filter_lr", 0.005, 0.08),
          ratio("csrt", "weights_lr", 0.005, 0.08),
          ratio("csrt", "scale_lr", 0.01, 0.4),
          ratio("csrt", "psr_threshold", 0.02, 0.15),
          range("csrt", "padding", 2.0, 4.0),
          list("csrt", "template_size", {100, 120, 160, 200}),
          list("csrt", "admm_iterations", {2, 3, 4, 5}),
          list("csrt", "number_of_scales", {5, 10, 17, 32}),
          range("csrt", "scale_sigma_factor", 0.1, 0.5),
          list("csrt", "background_ratio", {2, 3}),
          onOff("csrt", "use_hog"),
          onOff("csrt", "use_color_names"),
          onOff("csrt", "use_gray"),
          onOff("csrt", "use_rgb"),
          onOff("csrt", "use_segmentation"),
          onOff("roi", "enable"),  // before the keys that it makes idle
          range("roi", "margin_factor", 1.0, 4.0),
          list("roi", "min_size", {64, 96, 128, 192}),
          range("roi", "hysteresis_ratio", 0.1, 0.4),
          list("redetect", "frames_lost_before_reset", {1, 2, 3, 5, 8, 12, kNever}),
          range("redetect", "re_detect_threshold", 0.45, 0.85),
          list("redetect", "coarse_factor", {0.25, 0.5, 1.0}),
          list("redetect", "max_redetect_attempts", {10, 30, 100, 300}),
          range("redetect", "dynamic_patch_stability", 0.7, 0.99),
          list("redetect", "oscillation_max", {3, 6, 10}),
          ratio("stability", "max_motion", 15.0, 150.0),
          range("predict", "damping", 0.5, 1.0)};
}

Json randomConfig(const SearchSpace& space, const Json& base, SeededRandom& random) {
  Json config = base;
  for (const SearchKey& k : space) {
    const Json value = drawn(k, random);  // drawn in any case: a key must not shift what the next one gets
    if (random.unit() < 0.5 && !isIdle(k, config)) config[k.group][k.key] = value;
  }
  keepAFeature(config);
  return config;
}

Json neighbourOf(const SearchSpace& space, const Json& parent, SeededRandom& random) {
  Json config = changed(space, parent, random);
  for (int i = 0; config == parent && i < kDraws; ++i) config = changed(space, parent, random);
  return config;
}

}  // namespace host
