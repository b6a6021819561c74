// The published schema of the configuration, byte for byte where that can be told.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "config_keys.h"
#include "support/test_algo.h"

using Json = nlohmann::ordered_json;

namespace {

/// One key as it must be published; the defaults as JSON text.
struct Published {
  std::string key;
  std::string type;
  std::optional<double> minimum;
  std::optional<double> maximum;
  std::string byDefault;
};

constexpr std::nullopt_t kNone = std::nullopt;

const std::vector<Published>& table() {
  static const std::vector<Published> keys{
      {"roi.enable", "boolean", kNone, kNone, "true"},
      {"roi.min_size", "integer", 32, 8192, "64"},
      {"roi.max_size", "integer", 32, 8192, "1920"},
      {"roi.margin_factor", "number", 0.0, 8.0, "3.0"},
      {"roi.speed_gain", "number", 0.0, 10.0, "2.0"},
      {"roi.conf_gain", "number", 0.0, 5.0, "0.6"},
      {"roi.hysteresis_ratio", "number", 0.0, 0.5, "0.1"},
      {"roi.keep_zone_ratio", "number", 0.0, 1.0, "0.4"},
      {"roi.round_to", "integer", 1, 128, "2"},
      {"roi.snap_square", "boolean", kNone, kNone, "true"},
      {"roi.size_snap_up", "boolean", kNone, kNone, "true"},
      {"roi.min_delta_x", "integer", 0, kNone, "4"},
      {"roi.min_delta_y", "integer", 0, kNone, "4"},
      {"roi.min_delta_both", "boolean", kNone, kNone, "false"},
      {"roi.margin_slack_px", "integer", 0, 128, "8"},
      {"roi.freeze_input_size", "boolean", kNone, kNone, "true"},
      {"roi.hard_resize_ratio", "number", 0.0, 1.0, "0.35"},
      {"input.work_width", "integer", 32, 8192, "640"},
      {"input.work_height", "integer", 32, 8192, "360"},
      {"input.refine_init", "boolean", kNone, kNone, "true"},
      {"work_width", "integer", 32, 8192, "640"},
      {"work_height", "integer", 32, 8192, "360"},
      {"csrt.use_hog", "boolean", kNone, kNone, "true"},
      {"csrt.use_color_names", "boolean", kNone, kNone, "true"},
      {"csrt.use_rgb", "boolean", kNone, kNone, "true"},
      {"csrt.use_segmentation", "boolean", kNone, kNone, "true"},
      {"csrt.use_gray", "boolean", kNone, kNone, "false"},
      {"csrt.template_size", "integer", 32, 1024, "120"},
      {"csrt.number_of_scales", "integer", 1, 32, "10"},
      {"csrt.scale_sigma_factor", "number", 0.01, 2.0, "0.2"},
      {"csrt.scale_lr", "number", 0.0, 1.0, "0.4"},
      {"csrt.padding", "number", 0.0, 8.0, "3.0"},
      {"csrt.psr_threshold", "number", 0.0, 1.0, "0.1"},
      {"csrt.background_ratio", "integer", 1, 16, "2"},
      {"csrt.admm_iterations", "integer", 1, 50, "5"},
      {"csrt.filter_lr", "number", 0.0, 1.0, "0.05"},
      {"csrt.weights_lr", "number", 0.0, 1.0, "0.05"},
      {"csrt.window_function", "string", kNone, kNone, "\"hann\""},
      {"stability.max_motion", "number", 1.0, kNone, "100.0"},
      {"stability.min_scale_ratio", "number", 0.01, kNone, "0.3"},
      {"stability.max_scale_ratio", "number", 0.1, kNone, "2.5"},
      {"redetect.frames_lost_before_reset", "integer", 1, kNone, "12"},
      {"redetect.re_detect_threshold", "number", 0.0, 1.0, "0.8"},
      {"redetect.max_redetect_attempts", "integer", 1, kNone, "10"},
      {"redetect.coarse_factor", "number", 0.05, 1.0, "0.25"},
      {"redetect.fine_roi_size", "integer", 32, 2048, "200"},
      {"redetect.scale_list", "array", kNone, kNone, "[0.9,1.0,1.1]"},
      {"redetect.dynamic_patch_stability", "number", 0.0, 1.0, "0.8"},
      {"redetect.oscillation_max", "integer", 1, 10, "3"},
      {"redetect.oscillation_window", "integer", 1, 20, "5"},
      {"predict.damping", "number", 0.0, 1.0, "0.9"},
      {"predict.bbox_smooth_enable", "boolean", kNone, kNone, "false"},
      {"predict.bbox_smooth_alpha", "number", 0.0, 1.0, "0.5"},
      {"preposition.enabled", "boolean", kNone, kNone, "false"},
      {"preposition.direct_init_center_tol_norm", "number", 0.0, 0.5, "0.1"},
      {"preposition.alignment_tol_norm", "number", 0.001, 0.25, "0.02"},
      {"preposition.alignment_hold_frames", "integer", 1, 10, "2"},
      {"preposition.match_min_score", "number", 0.0, 1.0, "0.15"},
      {"misc.debug", "boolean", kNone, kNone, "false"},
  };
  return keys;
}

Json schema() {
  return Json::parse(TestAlgo().getConfigList());
}

std::vector<std::string> keysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& item : object.items()) keys.push_back(item.key());
  return keys;
}

/// All leaves in order, as "group.key" or "key".
std::vector<std::pair<std::string, Json>> leavesOf(const Json& document) {
  std::vector<std::pair<std::string, Json>> leaves;
  for (const auto& entry : document.at("properties").items()) {
    if (!entry.value().contains("properties")) {
      leaves.emplace_back(entry.key(), entry.value());
      continue;
    }
    for (const auto& leaf : entry.value().at("properties").items()) {
      leaves.emplace_back(entry.key() + "." + leaf.key(), leaf.value());
    }
  }
  return leaves;
}

std::vector<std::string> membersOf(const Published& key) {
  std::vector<std::string> members{"type"};
  if (key.type == "array") members.emplace_back("items");
  if (key.minimum) members.emplace_back("minimum");
  if (key.maximum) members.emplace_back("maximum");
  members.emplace_back("default");
  return members;
}

}  // namespace

TEST(ConfigSchema, IsAlwaysTheSameTextBetweenTwoLineFeeds) {
  TestAlgo algo;
  const std::string text = algo.getConfigList();
  EXPECT_EQ(text.size(), 6466U);
  EXPECT_EQ(text.substr(0, 2), "\n{");
  EXPECT_EQ(text.substr(text.size() - 2), "}\n");
  algo.config_.roi.min_size = 99;
  EXPECT_EQ(algo.getConfigList(), text) << "the text says nothing of the values in force";
}

TEST(ConfigSchema, NamesItselfAndItsGroupsInOrder) {
  const Json document = schema();
  EXPECT_EQ(keysOf(document),
            (std::vector<std::string>{"$schema", "title", "type", "additionalProperties", "properties"}));
  EXPECT_NE(document.at("$schema").get<std::string>().find("draft-07/schema#"), std::string::npos);
  EXPECT_EQ(document.at("title"), "CSRTTrackingAlgo configuration");
  EXPECT_EQ(document.at("type"), "object");
  EXPECT_EQ(document.at("additionalProperties"), false);
  EXPECT_EQ(keysOf(document.at("properties")),
            (std::vector<std::string>{"roi", "input", "work_width", "work_height", "csrt", "stability", "redetect",
                                      "predict", "preposition", "misc"}));
}

TEST(ConfigSchema, ClosesEveryGroup) {
  const Json document = schema();  // lives longer than the loop over it
  for (const auto& entry : document.at("properties").items()) {
    if (!entry.value().contains("properties")) continue;
    EXPECT_EQ(keysOf(entry.value()), (std::vector<std::string>{"type", "additionalProperties", "properties"}));
    EXPECT_EQ(entry.value().at("type"), "object");
    EXPECT_EQ(entry.value().at("additionalProperties"), false) << entry.key();
  }
}

TEST(ConfigSchema, PublishesEveryKeyWithTypeBoundsAndDefault) {
  const auto leaves = leavesOf(schema());
  ASSERT_EQ(leaves.size(), table().size());
  for (std::size_t i = 0; i < leaves.size(); ++i) {
    const auto& [name, leaf] = leaves[i];
    const Published& key = table()[i];
    EXPECT_EQ(name, key.key);
    EXPECT_EQ(keysOf(leaf), membersOf(key)) << name;
    EXPECT_EQ(leaf.at("type"), key.type) << name;
    EXPECT_EQ(leaf.value("minimum", -1.0), key.minimum.value_or(-1.0)) << name;
    EXPECT_EQ(leaf.value("maximum", -1.0), key.maximum.value_or(-1.0)) << name;
    EXPECT_EQ(leaf.at("default"), Json::parse(key.byDefault)) << name;
    EXPECT_EQ(leaf.at("default").is_number_float(), key.type == "number") << name << ": as " << leaf.at("default");
  }
}

TEST(ConfigSchema, KnowsExactlyTheKeysThatAreRead) {
  std::vector<std::string> read;
  for (const ConfigKey& key : configKeys()) {
    read.push_back(std::string(key.group).empty() ? key.name : std::string(key.group) + "." + key.name);
  }
  std::vector<std::string> published;
  for (const auto& leaf : leavesOf(schema())) published.push_back(leaf.first);
  std::sort(read.begin(), read.end());
  std::sort(published.begin(), published.end());
  EXPECT_EQ(published, read);
}
