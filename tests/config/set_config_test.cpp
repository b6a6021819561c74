// setConfig(): every key with every type of value, the groups, the aliases, and payloads that are none.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "config_facts.h"
#include "support/comma_locale.h"

namespace {

using namespace config_facts;

constexpr int kIntMax = std::numeric_limits<int>::max();
constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr double kInf = std::numeric_limits<double>::infinity();

TEST(SetConfigFacts, CoverEveryKeyOnce) {
  std::vector<std::string> all = paths();
  std::sort(all.begin(), all.end());
  EXPECT_EQ(std::unique(all.begin(), all.end()), all.end());
  EXPECT_EQ(all.size(), kKeyCount);
}

TEST(SetConfigDefaults, AreInForceUntilTheFirstCall) {
  OpenedAlgo algo;
  for (const IntFact& fact : integers()) EXPECT_EQ(fact.member(algo.config_), fact.initial) << fact.path;
  for (const NumberFact& fact : numbers()) EXPECT_EQ(fact.member(algo.config_), fact.initial) << fact.path;
  for (const BoolFact& fact : booleans()) EXPECT_EQ(getBool(algo, fact), fact.initial) << fact.path;
  EXPECT_EQ(algo.config_.csrt.window_function, "hann");
  EXPECT_EQ(algo.config_.redetect.scale_list, (std::vector<double>{0.9, 1.0, 1.1}));
  EXPECT_FALSE(algo.pending_full_reset_);
  EXPECT_FALSE(algo.pending_rebuild_);
}

struct IntCase {
  const char* value;
  std::optional<int> converted;  // before clamping; none: the key keeps its value
};

const IntCase kIntCases[] = {
    {"null", {}},
    {"{}", {}},
    {"[]", {}},
    {"[40]", {}},
    {"40", 40},
    {"-7", -7},
    {"0", 0},
    {"1000000000", 1000000000},
    {"4294967301", 5},
    {"4294967336", 40},
    {"4294967295", -1},
    {"2147483648", kIntMin},
    {"9223372036854775807", -1},
    {"-9223372036854775808", 0},
    {"40.0", 40},
    {"40.9", 40},
    {"-0.9", 0},
    {"-7.9", -7},
    {"4294967336.0", 40},
    {"4294967336.5", kIntMax},
    {"-4294967336.5", kIntMin},
    {"1e300", -1},  // the largest 64-bit integer, of which the low 32 bits are all ones
    {"-1e300", 0},  // the smallest
    {"true", 1},
    {"false", 0},
    {"\"40\"", 40},
    {"\" \\t+64px\"", 64},
    {"\"-7\"", -7},
    {"\"040\"", 40},
    {"\"0x28\"", 0},
    {"\"40.9\"", 40},
    {"\"4e9\"", 4},
    {"\"px\"", {}},
    {"\"\"", {}},
    {"\"true\"", {}},
    {"\"2147483647\"", kIntMax},
    {"\"2147483648\"", {}},
    {"\"-2147483649\"", {}},
};

TEST(SetConfigInteger, ConvertsAndClampsEveryTypeOfValueForEveryKey) {
  for (const IntFact& fact : integers()) {
    for (const IntCase& c : kIntCases) {
      OpenedAlgo algo;
      const int before = fact.lowest + 3;
      fact.member(algo.config_) = before;
      algo.setConfig(payload(fact.path, c.value));
      const int expected = c.converted ? std::max(fact.lowest, std::min(fact.highest, *c.converted)) : before;
      EXPECT_EQ(fact.member(algo.config_), expected) << payload(fact.path, c.value);
    }
  }
}

TEST(SetConfigInteger, KeepsBothEndsOfItsRange) {
  OpenedAlgo algo;
  for (const IntFact& fact : integers()) {
    for (const int end : {fact.lowest, fact.highest}) {
      algo.setConfig(payload(fact.path, std::to_string(end)));
      EXPECT_EQ(fact.member(algo.config_), end) << fact.path;
    }
  }
}

struct NumberCase {
  const char* value;
  std::optional<double> converted;
};

const NumberCase kNumberCases[] = {
    {"null", {}},
    {"{}", {}},
    {"[]", {}},
    {"[0.25]", {}},
    {"1", 1.0},
    {"0", 0.0},
    {"-1", -1.0},
    {"9223372036854775807", 9223372036854775807.0},
    {"0.25", 0.25},
    {"0.0625", 0.0625},
    {"-0.5", -0.5},
    {"1e308", 1e308},
    {"-1e308", -1e308},
    {"true", 1.0},
    {"false", 0.0},
    {"\"0.25\"", 0.25},
    {"\" 0.25abc\"", 0.25},
    {"\"0x1p-2\"", 0.25},
    {"\"2,5\"", 2.0},
    {"\"inf\"", kInf},
    {"\"-inf\"", -kInf},
    {"\"nan\"", kInf},  // counts as more than the highest
    {"\"1e999\"", {}},
    {"\"-1e999\"", {}},
    {"\"1e-999\"", {}},
    {"\"abc\"", {}},
    {"\"\"", {}},
    {"\"true\"", {}},
};

TEST(SetConfigNumber, ConvertsAndClampsEveryTypeOfValueForEveryKey) {
  for (const NumberFact& fact : numbers()) {
    for (const NumberCase& c : kNumberCases) {
      OpenedAlgo algo;
      const double before = fact.lowest + 0.125;
      fact.member(algo.config_) = before;
      algo.setConfig(payload(fact.path, c.value));
      const double expected = c.converted ? std::max(fact.lowest, std::min(fact.highest, *c.converted)) : before;
      EXPECT_EQ(fact.member(algo.config_), expected) << payload(fact.path, c.value);
    }
  }
}

TEST(SetConfigNumber, KeepsBothEndsOfItsRange) {
  OpenedAlgo algo;
  for (const NumberFact& fact : numbers()) {
    for (const double end : {fact.lowest, fact.highest}) {
      algo.setConfig(payload(fact.path, "\"" + std::to_string(end) + "\""));
      EXPECT_EQ(fact.member(algo.config_), end) << fact.path;
    }
  }
}

TEST(SetConfigNumber, ReadsAPointWhenTheHostWritesAComma) {
  const CommaLocale locale;
  if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma (package locales)";
  OpenedAlgo algo;
  algo.setConfig(R"({"roi": {"margin_factor": 0.5, "speed_gain": "0.25"}, "redetect": {"scale_list": "0.5,0.75"}})");
  EXPECT_EQ(algo.config_.roi.margin_factor, 0.5);
  EXPECT_EQ(algo.config_.roi.speed_gain, 0.25);
  EXPECT_EQ(algo.config_.redetect.scale_list, (std::vector<double>{0.5, 0.75}));
}

struct BoolCase {
  const char* value;
  std::optional<bool> converted;
};

const BoolCase kBoolCases[] = {
    {"null", {}},       {"{}", {}},        {"[]", {}},         {"[true]", {}},    {"true", true},
    {"false", false},   {"1", true},       {"0", false},       {"-1", true},      {"4294967296", true},
    {"0.5", true},      {"1e-300", true},  {"0.0", false},     {"-0.0", false},   {"\"true\"", true},
    {"\"TRUE\"", true}, {"\"1\"", true},   {"\"Yes\"", true},  {"\"oN\"", true},  {"\"false\"", false},
    {"\"0\"", false},   {"\"NO\"", false}, {"\"Off\"", false}, {"\"maybe\"", {}}, {"\"\"", {}},
    {"\" true\"", {}},  {"\"1.0\"", {}},   {"\"01\"", {}},     {"\"yes!\"", {}},
};

TEST(SetConfigBoolean, ConvertsEveryTypeOfValueForEveryKey) {
  for (const BoolFact& fact : booleans()) {
    for (const BoolCase& c : kBoolCases) {
      for (const bool before : {false, true}) {
        OpenedAlgo algo;
        setBool(algo, fact, before);
        testing::internal::CaptureStdout();  // misc.debug talks
        algo.setConfig(payload(fact.path, c.value));
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(getBool(algo, fact), c.converted.value_or(before)) << payload(fact.path, c.value);
      }
    }
  }
}

TEST(SetConfigText, TakesAnythingThatIsOneValue) {
  const std::pair<const char*, const char*> cases[] = {
      {"null", "hann"}, {"{}", "hann"},     {"[]", "hann"},       {"\"cheb\"", "cheb"},
      {"\"\"", ""},     {"\"a b\"", "a b"}, {"5", "5"},           {"-9223372036854775808", "-9223372036854775808"},
      {"2.0", "2"},     {"-3e2", "-300"},   {"2.5", "2.500000"},  {"0.0000001", "0.000000"},
      {"true", "true"}, {"false", "false"}, {"\"Hann\"", "Hann"}, {"[\"cheb\"]", "hann"}};
  for (const auto& [value, expected] : cases) {
    OpenedAlgo algo;
    algo.setConfig(payload(kText, value));
    EXPECT_EQ(algo.config_.csrt.window_function, expected) << value;
  }
}

TEST(SetConfigList, CollectsWhatConverts) {
  using List = std::vector<double>;
  const List old{0.9, 1.0, 1.1};
  const std::pair<const char*, List> cases[] = {
      {"[0.8, 1, true, false]", {0.8, 1.0, 1.0, 0.0}},
      {R"(["0.5", " 1.5x", "x", "", "1e999", 2])", {0.5, 1.5, 2.0}},
      {"[null, {}, [3], 4]", {4.0}},
      {"[1.1, -5, 1.1, 1e9]", {1.1, -5.0, 1.1, 1e9}},  // not clamped, sorted or thinned
      {"[]", old},
      {R"([null, "x", []])", old},
      {R"("0.8, 1.0,x,1.2")", {0.8, 1.0}},
      {R"("0.5")", {0.5}},
      {R"("1,\t2 ,3abc, 4")", {1.0, 2.0, 3.0, 4.0}},
      {R"("1,,2")", {1.0}},
      {R"("1,2,")", {1.0, 2.0}},
      {R"("1,1e999,2")", {1.0}},
      {R"("x,1")", old},
      {R"("")", old},
      {R"(",")", old},
      {"5", old},
      {"0.5", old},
      {"true", old},
      {"null", old},
      {R"({"0": 1})", old}};
  for (const auto& [value, expected] : cases) {
    OpenedAlgo algo;
    algo.setConfig(payload(kList, value));
    EXPECT_EQ(algo.config_.redetect.scale_list, expected) << value;
  }
}

TEST(SetConfigList, KeepsNaNAsItIs) {
  OpenedAlgo algo;
  algo.setConfig(payload(kList, R"(["nan", "-inf"])"));
  ASSERT_EQ(algo.config_.redetect.scale_list.size(), 2U);
  EXPECT_TRUE(std::isnan(algo.config_.redetect.scale_list[0]));
  EXPECT_EQ(algo.config_.redetect.scale_list[1], -kInf);
}

// How many entries of two snapshots differ.
std::ptrdiff_t differences(const Snapshot& a, const Snapshot& b) {
  std::ptrdiff_t count = (a.text != b.text ? 1 : 0) + (a.list != b.list ? 1 : 0);
  for (std::size_t i = 0; i < a.values.size(); ++i) count += a.values[i] != b.values[i] ? 1 : 0;
  return count;
}

TEST(SetConfigKey, ChangesItsOwnValueAlone) {
  for (const std::string& path : paths()) {
    OpenedAlgo algo;
    const Snapshot before(algo);
    testing::internal::CaptureStdout();  // misc.debug talks
    algo.setConfig(payload(path, path == kText ? "\"cheb\"" : path == kList ? "[2]" : "0"));
    if (Snapshot(algo) == before) algo.setConfig(payload(path, "1"));  // the value at the start was 0
    testing::internal::GetCapturedStdout();
    const bool work = path.find("work_") != std::string::npos;  // two names for one value
    EXPECT_EQ(differences(before, Snapshot(algo)), work ? 2 : 1) << path;
  }
}

TEST(SetConfigGroup, OfAnotherTypeIsSkippedAndTheOthersAreRead) {
  for (const char* const group : {"input", "roi", "csrt", "stability", "redetect", "predict", "preposition", "misc"}) {
    for (const char* const value : {"5", "\"x\"", "[]", "[{\"enable\": false}]", "null", "true", "0.5"}) {
      OpenedAlgo algo;
      const Snapshot before(algo);
      algo.setConfig("{\"" + std::string(group) + "\": " + value + ", \"work_width\": 800}");
      EXPECT_EQ(algo.config_.input.work_width, 800) << group << value;
      algo.config_.input.work_width = 640;
      EXPECT_TRUE(Snapshot(algo) == before) << group << value;
    }
  }
}

TEST(SetConfigGroup, IgnoresKeysItDoesNotKnow) {
  OpenedAlgo algo;
  const Snapshot before(algo);
  algo.setConfig(
      R"({"min_size": 64, "roi": {"work_width": 800, "Min_size": 64, "": 5, "debug": true}, "ROI": {"min_size": 64},
                     "roi.min_size": 64, "other": {"min_size": 64}, "work": 1, "debug": true, "refine_init": true})");
  EXPECT_TRUE(Snapshot(algo) == before);
}

TEST(SetConfigGroup, IsReplacedWhenItIsRepeated) {
  OpenedAlgo algo;
  algo.setConfig(R"({"roi": {"min_size": 64, "round_to": 8}, "roi": {"min_size": 100, "min_size": 96}})");
  EXPECT_EQ(algo.config_.roi.min_size, 96);
  EXPECT_EQ(algo.config_.roi.round_to, 2);
}

TEST(SetConfigAlias, WinsOverTheGroup) {
  OpenedAlgo algo;
  algo.setConfig(R"({"work_width": 1024, "input": {"work_width": 800, "work_height": 450}})");
  EXPECT_EQ(algo.config_.input.work_width, 1024);
  EXPECT_EQ(algo.config_.input.work_height, 450);
  algo.setConfig(R"({"work_height": 500, "work_width": null, "input": {"work_width": 900, "work_height": 10}})");
  EXPECT_EQ(algo.config_.input.work_width, 900);
  EXPECT_EQ(algo.config_.input.work_height, 500);
  algo.setConfig(R"({"work_width": "px", "work_height": [1]})");
  EXPECT_EQ(algo.config_.input.work_width, 900);
  EXPECT_EQ(algo.config_.input.work_height, 500);
}

TEST(SetConfigPayload, ChangesNothingWhenItIsNoObject) {
  const char* const payloads[] = {"",
                                  " ",
                                  "[]",
                                  "[{\"roi\": {\"min_size\": 64}}]",
                                  "5",
                                  "null",
                                  "true",
                                  "\"{}\"",
                                  "{",
                                  "{} x",
                                  "{}{}",
                                  "{\"roi\": {\"min_size\": 64}",
                                  "{\"roi\": {\"min_size\": 64}} ,",
                                  "{\"roi\": {\"min_size\": 64,}}",
                                  "{\"roi\": {\"min_size\": 064}}",
                                  "{'roi': {'min_size': 64}}"};
  for (const char* const text : payloads) {
    OpenedAlgo algo;
    algo.pending_full_reset_ = true;
    const Snapshot before(algo);
    algo.setConfig(text);
    EXPECT_TRUE(Snapshot(algo) == before) << text;
  }
}

TEST(SetConfigPayload, MayBeAnEmptyObjectOrHaveBlanksAround) {
  OpenedAlgo algo;
  const Snapshot before(algo);
  algo.setConfig("{}");
  EXPECT_TRUE(Snapshot(algo) == before);
  algo.setConfig("\f\v {\"roi\": {\"min_size\": 64}}\r\n\v\f");
  EXPECT_EQ(algo.config_.roi.min_size, 64);
}

}  // namespace
