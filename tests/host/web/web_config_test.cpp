// The configuration as the page changes it.
#include "web/config_book.h"

#include <gtest/gtest.h>

#include "plugin/plugin_library.h"

namespace {

using host::web::ConfigBook;
using host::web::ConfigChange;
using Json = nlohmann::json;

std::string firstFault(const ConfigChange& change) {
  return change.faults.empty() ? "" : change.faults.front().key;
}

TEST(ConfigBookTest, TellsWhatDiffersFromNothingConfigured) {
  const ConfigBook book(R"({"roi":{"margin_factor":3.5}})", "", "{}");
  const Json json = book.json();
  EXPECT_EQ(json["set"], Json::parse(R"({"roi":{"margin_factor":3.5}})"));
  EXPECT_EQ(json["values"]["roi"]["margin_factor"], 3.5);
  EXPECT_EQ(json["preset"], "defaults");
  EXPECT_TRUE(json["presets"].contains("robust"));
  EXPECT_EQ(Json::parse(book.download()), json["set"]);
  EXPECT_FALSE(json["keys"]["roi.margin_factor"]["effect"].get<std::string>().empty());
}

TEST(ConfigBookTest, OnlyWhatBecomesAnotherIsPassedOn) {
  ConfigBook book("", "", "{}");
  const ConfigChange change = book.check(R"({"roi":{"margin_factor":2.0,"min_size":64}})", false);
  EXPECT_TRUE(change.faults.empty());
  EXPECT_EQ(Json::parse(change.text), Json::parse(R"({"roi":{"min_size":64}})"));
  EXPECT_TRUE(book.json()["set"].empty()) << "nothing changes before commit()";
  book.commit(change.text, "");
  EXPECT_EQ(book.json()["values"]["roi"]["min_size"], 64);
  EXPECT_EQ(book.check(R"({"roi":{"min_size":64}})", false).text, "");
}

TEST(ConfigBookTest, BadValuesAreRefusedWithTheKey) {
  const ConfigBook book("", "", "{}");
  EXPECT_EQ(firstFault(book.check(R"({"roi":{"margin_factor":99}})", false)), "roi.margin_factor");
  EXPECT_EQ(firstFault(book.check(R"({"roi":{"margin_factor":"wide"}})", false)), "roi.margin_factor");
  EXPECT_EQ(firstFault(book.check(R"({"roi":{"margn_factor":1}})", false)), "roi.margn_factor");
  EXPECT_FALSE(book.check(R"({"nothing":{"at":"all"}})", false).faults.empty());
  EXPECT_FALSE(book.check("[1]", false).faults.empty());
  EXPECT_FALSE(book.check("{", false).faults.empty());
  EXPECT_FALSE(book.check(std::string(100000, '['), false).faults.empty());
}

TEST(ConfigBookTest, ReplacingPutsTheOthersBack) {
  ConfigBook book(R"({"roi":{"min_size":64}})", "", "{}");
  const ConfigChange change = book.check(R"({"roi":{"margin_factor":3.0}})", true);
  EXPECT_EQ(Json::parse(change.text), Json::parse(R"({"roi":{"min_size":128,"margin_factor":3.0}})"));
}

TEST(ConfigBookTest, PresetsAreTakenWholeAndUnknownOnesRefused) {
  ConfigBook book(R"({"roi":{"min_size":64}})", "", "{}");
  EXPECT_FALSE(book.checkPreset("no such").faults.empty());
  const ConfigChange change = book.checkPreset("robust");
  ASSERT_TRUE(change.faults.empty());
  book.commit(change.text, "robust");
  const Json json = book.json();
  EXPECT_EQ(json["values"], json["presets"]["robust"]);
  EXPECT_EQ(json["preset"], "robust");
  book.commit(book.checkPreset("defaults").text, "defaults");
  EXPECT_TRUE(book.json()["set"].empty());
}

TEST(ConfigBookTest, EveryKeyOfThePluginsSchemaIsExplained) {
  host::PluginLibrary library(CSRT_REAL_PLUGIN);
  const Json schema = Json::parse(library.create()->getConfigList());
  const Json json = ConfigBook("", "", schema.dump()).json();
  EXPECT_EQ(json["schema"], schema);
  for (const auto& [group, entry] : schema["properties"].items()) {
    if (!entry.contains("properties")) continue;
    for (const auto& key : entry["properties"].items()) {
      EXPECT_TRUE(json["keys"].contains(group + "." + key.key())) << group << "." << key.key();
    }
  }
}

}  // namespace
