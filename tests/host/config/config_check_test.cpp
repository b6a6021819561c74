// What csrt-track says about a configuration, held against what the plug-in's own loader does with it.
#include "config/config_check.h"

#include <gtest/gtest.h>

#include <ctime>
#include <nlohmann/json.hpp>

#include "config_keys.h"

namespace host {
namespace {

using Level = ConfigFinding::Level;

std::vector<std::string> warningsOf(const std::string& text) {
  std::vector<std::string> texts;
  for (const ConfigFinding& finding : checkConfig(text)) {
    if (finding.level == Level::Warning) texts.push_back(finding.text);
  }
  return texts;
}

/// The one finding there is to be.
ConfigFinding only(const std::string& text) {
  const std::vector<ConfigFinding> findings = checkConfig(text);
  EXPECT_EQ(findings.size(), 1U) << text;
  return findings.empty() ? ConfigFinding{} : findings.front();
}

std::string textOf(const std::string& group, const std::string& key, const nlohmann::json& value) {
  nlohmann::json root;
  if (group.empty()) {
    root[key] = value;
  } else {
    root[group][key] = value;
  }
  return root.dump();
}

TEST(ConfigCheck, TheDefaultsAreTakenAsTheyAreWritten) {
  EXPECT_EQ(warningsOf(defaultConfigText()), std::vector<std::string>());
  EXPECT_EQ(warningsOf("{}"), std::vector<std::string>());
}

TEST(ConfigCheck, TheDefaultsNameEveryKeyOnce) {
  const nlohmann::json defaults = nlohmann::json::parse(defaultConfigText());
  for (const ConfigKey& key : configKeys()) {
    if (*key.group == '\0') continue;
    EXPECT_TRUE(defaults.at(key.group).contains(key.name)) << key.group << "." << key.name;
  }
  EXPECT_EQ(defaults.at("roi").at("min_size"), 128);
  EXPECT_EQ(defaults.at("misc").at("debug"), false);
}

TEST(ConfigCheck, EveryNumberIsClampedAtBothEndsAndSilentOnThem) {
  for (const ConfigKey& key : configKeys()) {
    if (key.type != ConfigType::Integer && key.type != ConfigType::Number) continue;
    const auto value = [&key](double number) {
      return key.type == ConfigType::Integer ? nlohmann::json(static_cast<long>(number)) : nlohmann::json(number);
    };
    const bool cannotStart = std::string(key.name) == "padding";  // taken as it is, and named all the same
    EXPECT_EQ(warningsOf(textOf(key.group, key.name, value(key.lowest))).size(), cannotStart ? 1U : 0U) << key.name;
    EXPECT_EQ(warningsOf(textOf(key.group, key.name, value(key.highest))).size(), 0U) << key.name;
    for (const double beyond : {key.lowest - 1, key.highest + 1}) {
      const ConfigFinding finding = only(textOf(key.group, key.name, value(beyond)));
      EXPECT_EQ(finding.level, Level::Warning) << key.name;
      EXPECT_NE(finding.text.find("lies outside"), std::string::npos) << finding.text;
    }
  }
}

TEST(ConfigCheck, EveryKeyIgnoresNullAndObjects) {
  for (const ConfigKey& key : configKeys()) {
    for (const nlohmann::json& value : {nlohmann::json(nullptr), nlohmann::json::object()}) {
      const ConfigFinding finding = only(textOf(key.group, key.name, value));
      EXPECT_NE(finding.text.find(": ignored"), std::string::npos) << finding.text;
    }
  }
}

TEST(ConfigCheck, SaysWhatAConvertedValueBecomes) {
  EXPECT_EQ(only(R"({"roi":{"min_size":"64px"}})").text, "'roi.min_size': \"64px\" is not a whole number: taken as 64");
  EXPECT_EQ(only(R"({"roi":{"min_size":99.9}})").text, "'roi.min_size': 99.9 is not a whole number: taken as 99");
  EXPECT_EQ(only(R"({"roi":{"min_size":"px"}})").text, "'roi.min_size': \"px\" is not a whole number: ignored");
  EXPECT_EQ(only(R"({"roi":{"enable":0.5}})").text, "'roi.enable': 0.5 is not true or false: taken as true");
  EXPECT_EQ(only(R"({"misc":{"debug":"maybe"}})").text, "'misc.debug': \"maybe\" is not true or false: ignored");
  EXPECT_EQ(only(R"({"redetect":{"scale_list":"0.8, 1.0,x"}})").text,
            "'redetect.scale_list': \"0.8, 1.0,x\" is not a list of numbers: taken as [0.8,1.0]");
  EXPECT_EQ(only(R"({"redetect":{"scale_list":[]}})").text,
            "'redetect.scale_list': [] is not a list of numbers: ignored");
}

TEST(ConfigCheck, NamesTheNearestKeyOfATypo) {
  EXPECT_EQ(only(R"({"roi":{"min_sise":64}})").text,
            "the plug-in does not know 'roi.min_sise'; did you mean 'roi.min_size'?");
  EXPECT_EQ(only(R"({"template_size":64}")").level, Level::Unusable);
  EXPECT_EQ(only(R"({"template_size":64})").text,
            "the plug-in does not know 'template_size'; did you mean 'csrt.template_size'?");
  EXPECT_EQ(only(R"({"roii":{}})").text, "the plug-in does not know 'roii'; did you mean 'roi'?");
  EXPECT_EQ(only(R"({"completely":1})").text, "the plug-in does not know 'completely'");
}

TEST(ConfigCheck, SaysLineAndColumn) {
  const std::vector<ConfigFinding> findings =
      checkConfig("{\n  \"roi\": {\"enable\": true,\n  \"é\": 1, \"min_size\": 3.5}\n}");
  ASSERT_EQ(findings.size(), 2U);
  EXPECT_EQ(findings[0].place.line, 3U);
  EXPECT_EQ(findings[0].place.column, 3U);
  EXPECT_EQ(findings[1].place.line, 3U);
  EXPECT_EQ(findings[1].place.column, 11U) << "counted in characters";
}

TEST(ConfigCheck, SeesARepeatedKeyAndAGroupThatIsNone) {
  const std::vector<ConfigFinding> twice = checkConfig(R"({"roi":{"min_size":64,"min_size":70}})");
  ASSERT_EQ(twice.size(), 1U);
  EXPECT_EQ(twice[0].place.column, 23U);
  EXPECT_NE(twice[0].text.find("given again"), std::string::npos);
  EXPECT_EQ(only(R"({"roi":5})").text, "'roi' is 5 where a group is expected: ignored");
}

TEST(ConfigCheck, WarnsOfWhatKeepsTheTrackerFromStarting) {
  EXPECT_NE(only(R"({"csrt":{"window_function":"hamming"}})").text.find("cannot start"), std::string::npos);
  EXPECT_EQ(warningsOf(R"({"csrt":{"window_function":"kaiser"}})").size(), 0U);
  EXPECT_NE(only(R"({"csrt":{"use_hog":false,"use_color_names":false,"use_rgb":false}})").text.find("cannot start"),
            std::string::npos);
  EXPECT_EQ(warningsOf(R"({"csrt":{"use_hog":false,"use_color_names":false,"use_rgb":false,"use_gray":true}})").size(),
            0U);
}

TEST(ConfigCheck, NotesWhereThePublishedSchemaIsNarrower) {
  const ConfigFinding finding = only(R"({"roi":{"max_size":0}})");
  EXPECT_EQ(finding.level, Level::Note);
  EXPECT_NE(finding.text.find("schema begins at 32"), std::string::npos) << finding.text;
}

TEST(ConfigCheck, SaysWhereATextIsNoJson) {
  const ConfigFinding comma = only("{\"roi\":\n  {\"min_size\": 1,}}");
  EXPECT_EQ(comma.level, Level::Unusable);
  EXPECT_EQ(comma.place.line, 2U);
  EXPECT_EQ(comma.place.column, 18U);
  EXPECT_NE(comma.text.find("Expected string key in object"), std::string::npos) << comma.text;
  EXPECT_EQ(only("{} x").text, "not JSON: Unexpected characters at the end of JSON.");
  EXPECT_EQ(only("[1]").level, Level::Unusable);
  EXPECT_EQ(only("").level, Level::Unusable);
}

TEST(ConfigCheck, NamesAPaddingWithWhichMostBoxesCannotStart) {
  EXPECT_TRUE(only(R"({"csrt":{"padding":0}})").cannotStart);
  EXPECT_TRUE(only(R"({"csrt":{"padding":0.49}})").cannotStart);
  EXPECT_EQ(warningsOf(R"({"csrt":{"padding":0.5}})").size(), 0U);
}

TEST(ConfigCheck, RefusesNestingThatNoConfigurationHas) {
  const std::string lists = std::string(100000, '[') + std::string(100000, ']');
  const ConfigFinding finding = only("{\n\"roi\": " + lists + "}");
  EXPECT_EQ(finding.level, Level::Unusable);
  EXPECT_EQ(finding.place.line, 2U);
  EXPECT_NE(finding.text.find("nested too deeply"), std::string::npos) << finding.text;
  EXPECT_FALSE(only("{\"a\": \"" + lists + "\"}").level == Level::Unusable) << "brackets in a text are no nesting";
}

/// Processor time of checking so many unknown keys, seconds.
double secondsFor(int keys) {
  std::string text = "{";
  for (int i = 0; i < keys; ++i) text += (i > 0 ? ",\n" : "") + ("\"unknown_key_" + std::to_string(i) + "\": 1");
  text += "}";
  const std::clock_t begin = std::clock();
  EXPECT_EQ(checkConfig(text).size(), static_cast<std::size_t>(keys));
  return static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
}

TEST(ConfigCheck, CostsNoMoreForAKeyAmongMany) {
  secondsFor(2000);  // memory and tables are there from here on
  const double few = secondsFor(20000);
  EXPECT_LT(secondsFor(80000), 10 * few) << "four times as many keys; sixteen times the cost where it is quadratic";
}

}  // namespace
}  // namespace host
