// A configuration read outside the plug-in is the plug-in's: same values, same parameters of the tracker.
#include "csrt_params.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <variant>

#include "config_facts.h"
#include "config_keys.h"
#include "config_readers.h"

namespace {

/// The plug-in with its tracker's parameters in reach.
struct ParamsAlgo : config_facts::OpenedAlgo {
  using CSRTTrackingAlgo::createTracker_;
  using CSRTTrackingAlgo::makeCSRTParams_;
};

/// The names of the keys whose values differ.
std::vector<std::string> differences(CsrtConfig a, CsrtConfig b) {
  std::vector<std::string> names;
  for (const ConfigKey& key : configKeys()) {
    if (key.slot == nullptr) continue;
    const auto same = [&](const auto* value) {
      return *value == *std::get<std::remove_const_t<std::remove_pointer_t<decltype(value)>>*>(key.slot(b));
    };
    if (!std::visit(same, key.slot(a))) names.push_back(std::string(key.group) + "." + key.name);
  }
  return names;
}

TEST(ReadConfig, TakesEveryKeyAsThePluginTakesIt) {
  int changed = 0;
  for (const std::string& path : config_facts::paths()) {
    for (const char* value : {"1", "0.25", "-1e9", "1e9", "\"yes\"", "\"0.07\"", "true", "false", "null", "[0.5, 2]"}) {
      const std::string text = config_facts::payload(path, value);
      ParamsAlgo algo;
      algo.setConfig(text);
      EXPECT_EQ(differences(readConfig(text), algo.config_), std::vector<std::string>()) << text;
      if (!differences(readConfig(text), CsrtConfig()).empty()) ++changed;
    }
  }
  EXPECT_GT(changed, 150) << "most values change something";
}

TEST(ReadConfig, MakesTheDefaultsOfATextThatIsNoObject) {
  for (const char* text : {"", "{", "[1]", "3", "nothing"}) {
    EXPECT_EQ(differences(readConfig(text), CsrtConfig()), std::vector<std::string>()) << text;
  }
}

TEST(ReadConfig, TheAliasesAtTheTopWin) {
  const CsrtConfig config = readConfig(R"({"work_width": 800, "input": {"work_width": 700, "work_height": 500}})");
  EXPECT_EQ(config.input.work_width, 800);
  EXPECT_EQ(config.input.work_height, 500);
}

TEST(CsrtParams, AreThePluginsForTheSameText) {
  const std::string text =
      R"({"csrt": {"use_hog": "off", "use_color_names": false, "use_gray": 1, "use_segmentation": "no",
                   "template_size": 5000, "number_of_scales": "7", "scale_sigma_factor": 9, "scale_lr": 0.3,
                   "padding": 99, "psr_threshold": 0.2, "background_ratio": 0, "admm_iterations": 3,
                   "filter_lr": -1, "weights_lr": 0.5, "window_function": "cheb"}})";
  ParamsAlgo algo;
  algo.setConfig(text);
  const cv::tracking::TrackerCSRT::Params plugin = algo.makeCSRTParams_();
  const cv::tracking::TrackerCSRT::Params params = csrtParams(readConfig(text));
  EXPECT_EQ(params.use_hog, plugin.use_hog);
  EXPECT_EQ(params.use_color_names, plugin.use_color_names);
  EXPECT_EQ(params.use_gray, plugin.use_gray);
  EXPECT_EQ(params.use_rgb, plugin.use_rgb);
  EXPECT_EQ(params.use_segmentation, plugin.use_segmentation);
  EXPECT_EQ(params.window_function, "cheb");
  EXPECT_EQ(params.template_size, 1024.0F) << "clamped";
  EXPECT_EQ(params.number_of_scales, 7) << "a number as text";
  EXPECT_EQ(params.scale_sigma_factor, 2.0F);
  EXPECT_EQ(params.scale_lr, plugin.scale_lr);
  EXPECT_EQ(params.padding, 8.0F);
  EXPECT_EQ(params.psr_threshold, plugin.psr_threshold);
  EXPECT_EQ(params.background_ratio, 1);
  EXPECT_EQ(params.admm_iterations, 3);
  EXPECT_EQ(params.filter_lr, 0.0F);
  EXPECT_EQ(params.weights_lr, 0.5F);
}

TEST(CsrtParams, NoTrackerIsMadeWithoutAFeature) {
  CsrtConfig config;
  config.csrt.use_hog = config.csrt.use_color_names = config.csrt.use_rgb = config.csrt.use_gray = false;
  EXPECT_THROW(requireFeature(config), std::runtime_error);
  config.csrt.use_gray = true;
  EXPECT_NO_THROW(requireFeature(config));
}

}  // namespace
