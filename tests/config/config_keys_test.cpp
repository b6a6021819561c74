// The one table of keys against what is published and against what is written down for the tests: a key added in one
// place and forgotten in another fails here.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "config_facts.h"
#include "config_keys.h"

namespace {

using namespace config_facts;
using Json = nlohmann::ordered_json;

std::string pathOf(const ConfigKey& key) {
  return *key.group != '\0' ? std::string(key.group) + "." + key.name : std::string(key.name);
}

const ConfigKey* findKey(const std::string& path) {
  for (const ConfigKey& key : configKeys()) {
    if (pathOf(key) == path) return &key;
  }
  return nullptr;
}

std::string published() {
  return OpenedAlgo().getConfigList();
}

struct Published {
  std::string path;
  Json entry;
};

// The keys of the schema in the order in which they are published.
std::vector<Published> publishedKeys() {
  std::vector<Published> keys;
  const Json schema = Json::parse(published());
  for (const auto& [name, entry] : schema["properties"].items()) {
    if (entry["type"] != "object") {
      keys.push_back({name, entry});
      continue;
    }
    for (const auto& [key, value] : entry["properties"].items()) keys.push_back({name + "." + key, value});
  }
  return keys;
}

const char* schemaType(ConfigType type) {
  switch (type) {
    case ConfigType::Boolean:
      return "boolean";
    case ConfigType::Integer:
      return "integer";
    case ConfigType::Number:
      return "number";
    case ConfigType::String:
      return "string";
    default:
      return "array";
  }
}

// What is in force for a key from the start, as JSON.
Json initialValue(const ConfigKey& key) {
  CsrtConfig config;
  if (key.slot == nullptr) return false;
  return std::visit([](const auto* value) { return Json(*value); }, key.slot(config));
}

TEST(ConfigTable, AgreesWithWhatIsWrittenDownForTheTests) {
  EXPECT_EQ(configKeys().size(), kKeyCount);
  CsrtConfig config;
  const auto check = [&](const auto& fact, ConfigType type) {
    const ConfigKey* const key = findKey(fact.path);
    ASSERT_NE(key, nullptr) << fact.path;
    EXPECT_EQ(key->type, type) << fact.path;
    EXPECT_EQ(key->lowest, fact.lowest) << fact.path;
    EXPECT_EQ(key->highest, fact.highest) << fact.path;
    EXPECT_EQ(key->slot(config), ConfigSlot(&fact.member(config))) << fact.path;
  };
  for (const IntFact& fact : integers()) check(fact, ConfigType::Integer);
  for (const NumberFact& fact : numbers()) check(fact, ConfigType::Number);
  for (const BoolFact& fact : booleans()) {
    const ConfigKey* const key = findKey(fact.path);
    ASSERT_NE(key, nullptr) << fact.path;
    EXPECT_EQ(key->type, ConfigType::Boolean) << fact.path;
    if (fact.member == nullptr) {
      EXPECT_EQ(key->slot, nullptr) << fact.path;
    } else {
      EXPECT_EQ(key->slot(config), ConfigSlot(&fact.member(config))) << fact.path;
    }
  }
  ASSERT_NE(findKey(kText), nullptr);
  EXPECT_EQ(findKey(kText)->type, ConfigType::String);
  ASSERT_NE(findKey(kList), nullptr);
  EXPECT_EQ(findKey(kList)->type, ConfigType::NumberList);
}

TEST(ConfigTable, GivesLimitsToNumbersAlone) {
  for (const ConfigKey& key : configKeys()) {
    const bool number = key.type == ConfigType::Integer || key.type == ConfigType::Number;
    if (number) {
      EXPECT_LT(key.lowest, key.highest) << pathOf(key);
    } else {
      EXPECT_TRUE(key.lowest == 0.0 && key.highest == 0.0) << pathOf(key);
    }
  }
}

TEST(ConfigTable, IsReadInTheOrderOfTheGroupsWithTheAliasesLast) {
  std::vector<std::string> groups;
  for (const ConfigKey& key : configKeys()) {
    if (groups.empty() || groups.back() != key.group) groups.emplace_back(key.group);
  }
  EXPECT_EQ(groups, (std::vector<std::string>{"input", "roi", "csrt", "stability", "redetect", "predict", "preposition",
                                              "misc", ""}));
}

// The differences between what is published and what is in force; any other fails.
const std::set<std::string> kOtherDefault{"input.refine_init", "roi.min_size",         "roi.max_size",
                                          "roi.margin_factor", "roi.hysteresis_ratio", "roi.min_delta_x",
                                          "roi.min_delta_y",   "csrt.template_size"};
const std::set<std::string> kOtherMinimum{"roi.max_size"};
const std::set<std::string> kNoMaximum{"roi.min_delta_x",
                                       "roi.min_delta_y",
                                       "stability.max_motion",
                                       "stability.min_scale_ratio",
                                       "stability.max_scale_ratio",
                                       "redetect.frames_lost_before_reset",
                                       "redetect.max_redetect_attempts"};

TEST(ConfigTable, DiffersFromThePublishedSchemaOnlyWhereListed) {
  for (const Published& entry : publishedKeys()) {
    const ConfigKey* const key = findKey(entry.path);
    ASSERT_NE(key, nullptr) << entry.path;
    EXPECT_EQ(entry.entry["type"], schemaType(key->type)) << entry.path;
    EXPECT_EQ(entry.entry["default"] != initialValue(*key), kOtherDefault.count(entry.path) == 1) << entry.path;
    const bool ranged = key->type == ConfigType::Integer || key->type == ConfigType::Number;
    EXPECT_EQ(entry.entry.contains("minimum"), ranged) << entry.path;
    EXPECT_EQ(entry.entry.contains("maximum"), ranged && kNoMaximum.count(entry.path) == 0) << entry.path;
    if (!ranged) continue;
    EXPECT_EQ(entry.entry["minimum"] != key->lowest, kOtherMinimum.count(entry.path) == 1) << entry.path;
    EXPECT_EQ(entry.entry.value("maximum", key->highest), key->highest) << entry.path;
  }
}

TEST(PublishedSchema, IsReadByThePluginsOwnParserAndByItsLoader) {
  OpenedAlgo algo;
  const Snapshot before(algo);
  algo.setConfig(published());  // a JSON object, but none of its names are keys
  EXPECT_TRUE(Snapshot(algo) == before);
}

}  // namespace
