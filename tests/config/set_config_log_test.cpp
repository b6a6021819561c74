// What setConfig() writes, to the byte, and when it writes nothing.
#include <gtest/gtest.h>

#include "config_facts.h"
#include "support/comma_locale.h"

namespace {

using namespace config_facts;

const std::string kPrefix = "[AlgoPlugin INFO] [CSRTTrackingAlgo] setConfig(): ";
const std::string kDefaults =
    kPrefix +
    "input(work=640x360), refine init:off | csrt(HOG=on, CN=on, RGB=on, SEG=on, GRAY=off, tmpl=200, scales=10, "
    "sig=0.200, sLR=0.400, pad=3.000, psr=0.100, bg=2, admm=5, fLR=0.050, wLR=0.050, win=hann) | stab(maxMotion=100.0, "
    "scale=[0.30..2.50]) | redetect(Nlost=12, thr=0.80, coarse=0.25, fine=200, dynStab=0.80) | "
    "preposition(enabled=off, "
    "directTol=0.100, tol=0.020, hold=2, match=0.150) | predict(damp=0.90) | debug=on | flags(reset=0, rebuild=0)\n";

std::string sizeLine(const std::string& json) {
  return kPrefix + "payload size = " + std::to_string(json.size()) + "\n";
}

std::string logOf(OpenedAlgo& algo, const std::string& json) {
  testing::internal::CaptureStdout();
  algo.setConfig(json);
  return testing::internal::GetCapturedStdout();
}

TEST(SetConfigLog, SaysNothingWhileDebugIsOff) {
  OpenedAlgo algo;
  EXPECT_EQ(logOf(algo, "{}"), "");
  EXPECT_EQ(logOf(algo, "[]"), "");
  EXPECT_EQ(logOf(algo, R"({"misc": {"debug": false}})"), "");
}

TEST(SetConfigLog, WritesTheSizeAndTheSummary) {
  OpenedAlgo algo;
  algo.enableDebug(true);
  EXPECT_EQ(logOf(algo, "{}"), sizeLine("{}") + kDefaults);
}

TEST(SetConfigLog, DecidesOnTheSizeByTheOldFlagAndOnTheSummaryByTheNew) {
  OpenedAlgo algo;
  EXPECT_EQ(logOf(algo, R"({"misc": {"debug": "Yes"}})"), kDefaults);
  EXPECT_TRUE(algo.debug_);
  const std::string off = R"({"misc": {"debug": 0}})";
  EXPECT_EQ(logOf(algo, off), sizeLine(off));
  EXPECT_FALSE(algo.debug_);
}

TEST(SetConfigLog, NamesTheReasonOfAnInvalidPayload) {
  OpenedAlgo algo;
  algo.enableDebug(true);
  const std::pair<const char*, const char*> cases[] = {
      {"[]", ""},
      {"5", ""},
      {"null", ""},
      {"", "Unexpected end of JSON input (index 0) near \"\""},
      {"{} x", "Unexpected characters at the end of JSON."},
      {"{\"a\":01}", "Leading zeros are not allowed in JSON numbers (index 6) near \"{\"a\":01}\""},
      {"{\"misc\": {\"debug\": false}} 100%s",
       "Unexpected characters at the end of JSON."}};  // the flag it names is not taken
  for (const auto& [json, reason] : cases) {
    EXPECT_EQ(logOf(algo, json), sizeLine(json) + kPrefix + "invalid JSON (" + reason + ") \xE2\x80\x94 ignoring\n");
  }
}

TEST(SetConfigLog, SummarisesEveryValueInItsPlace) {
  OpenedAlgo algo;
  algo.initialized_ = true;
  const std::string json = R"({
    "input": {"work_width": 1921, "work_height": 1082, "refine_init": true},
    "csrt": {"use_hog": false, "use_color_names": true, "use_rgb": false, "use_segmentation": true, "use_gray": true,
             "template_size": 101, "number_of_scales": 12, "scale_sigma_factor": 0.1239, "scale_lr": 0.2341,
             "padding": 3.4567, "psr_threshold": 0.4562, "background_ratio": 6, "admm_iterations": 7,
             "filter_lr": 0.5673, "weights_lr": 0.6784, "window_function": "100%s"},
    "stability": {"max_motion": 123456.78, "min_scale_ratio": 0.126, "max_scale_ratio": 9.876},
    "redetect": {"frames_lost_before_reset": 13, "re_detect_threshold": 0.789, "coarse_factor": 0.897,
                 "fine_roi_size": 333, "dynamic_patch_stability": 0.344},
    "preposition": {"enabled": true, "direct_init_center_tol_norm": 0.2345, "alignment_tol_norm": 0.2,
                    "alignment_hold_frames": 9, "match_min_score": 0.9876},
    "predict": {"damping": 0.555}, "misc": {"debug": true}})";
  EXPECT_EQ(logOf(algo, json),
            kPrefix +
                "input(work=1921x1082), refine init:on | csrt(HOG=off, CN=on, RGB=off, SEG=on, GRAY=on, tmpl=101, "
                "scales=12, sig=0.124, sLR=0.234, pad=3.457, psr=0.456, bg=6, admm=7, fLR=0.567, wLR=0.678, win=100%s) "
                "| stab(maxMotion=123456.8, scale=[0.13..9.88]) | redetect(Nlost=13, thr=0.79, coarse=0.90, fine=333, "
                "dynStab=0.34) | preposition(enabled=on, directTol=0.234, tol=0.200, hold=9, match=0.988) | "
                "predict(damp=0.56) | debug=on | flags(reset=1, rebuild=0)\n");
  EXPECT_EQ(logOf(algo, R"({"csrt": {"use_color_names": false, "use_segmentation": false}})").find("rebuild=1"),
            std::string::npos);  // the reset still waits
}

TEST(SetConfigLog, SummarisesARebuild) {
  OpenedAlgo algo;
  algo.initialized_ = true;
  algo.enableDebug(true);
  const std::string json = R"({"csrt": {"use_color_names": false}})";
  const std::string log = logOf(algo, json);
  EXPECT_NE(log.find("csrt(HOG=on, CN=off, RGB=on,"), std::string::npos);
  EXPECT_NE(log.find("| flags(reset=0, rebuild=1)\n"), std::string::npos);
}

TEST(SetConfigLog, WritesPointsWhenTheHostWritesCommas) {
  const CommaLocale locale;
  if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma (package locales)";
  OpenedAlgo algo;
  algo.enableDebug(true);
  EXPECT_EQ(logOf(algo, "{}"), sizeLine("{}") + kDefaults);
}

}  // namespace
