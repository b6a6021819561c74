// The published description of the interface beside what the server really answers.
#include <gtest/gtest.h>

#include <set>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

#include "raw_http.h"
#include "served_page.h"
#include "web/web_texts.h"

namespace {

using namespace host_test;
using Json = nlohmann::json;

Json description() {
  return Json::parse(host::kWebOpenApi);
}

/// What is wrong with a value by a schema of the description; empty: nothing.
std::string fault(const Json& value, const Json& schema) {
  const Json whole = {{"allOf", Json::array({schema})}, {"components", description()["components"]}};
  valijson::Schema parsed;
  valijson::SchemaParser(valijson::SchemaParser::kDraft7)
      .populateSchema(valijson::adapters::NlohmannJsonAdapter(whole), parsed);
  valijson::ValidationResults results;
  if (valijson::Validator().validate(parsed, valijson::adapters::NlohmannJsonAdapter(value), &results)) return {};
  std::string all = "refused";
  valijson::ValidationResults::Error error;
  while (results.popError(error)) all += "; " + error.description;
  return all;
}

Json schemaOf(const Json& operation, int status) {
  const Json::json_pointer place("/responses/" + std::to_string(status) + "/content/application~1json/schema");
  return operation.contains(place) ? operation.at(place) : Json();
}

class WebApiTest : public ServedPageTest {
 protected:
  void SetUp() override {
    ServedPageTest::SetUp();
    host::CallRecord record;
    record.target = "car";
    record.state = host::TrackState::Tracked;
    record.box = record.window = cv::Rect(1, 2, 30, 20);
    record.score = 0.5;
    record.secondsSinceSeen = 0.0;
    show(1234, {record});
    EXPECT_EQ(asked("/frame").status, 200);  // somebody has watched: there is a clip
  }
};

TEST_F(WebApiTest, EveryQuestionIsAnsweredAsDescribed) {
  const Json paths = description()["paths"];
  for (const auto& [path, operations] : paths.items()) {
    if (!operations.contains("get") || path == "/stream.mjpeg" || path == "/api/events") continue;
    const HttpAnswer answer = asked(path == "/frame" ? "/frame?after=1234&wait_ms=0" : path);
    EXPECT_EQ(answer.status, 200) << path;
    const Json schema = schemaOf(operations["get"], 200);
    if (!schema.is_object()) continue;
    EXPECT_EQ(fault(Json::parse(answer.body), schema), "") << path << answer.body;
  }
}

TEST_F(WebApiTest, EveryOrdersExampleIsTakenAsDescribed) {
  const Json all = description();
  for (const auto& [path, operations] : all["paths"].items()) {
    if (!operations.contains("post")) continue;
    const std::string name = operations["post"]["requestBody"]["content"]["application/json"]["schema"]["$ref"];
    const Json example = all["components"]["schemas"][name.substr(name.rfind('/') + 1)]["example"];
    EXPECT_EQ(fault(example, {{"$ref", name}}), "") << path;
    const HttpAnswer answer = ordered(path, example.dump());
    EXPECT_EQ(answer.status, 200) << path << answer.body;
    EXPECT_EQ(fault(Json::parse(answer.body), schemaOf(operations["post"], answer.status)), "") << path << answer.body;
  }
}

TEST_F(WebApiTest, RefusalsAreAsDescribed) {
  const Json paths = description()["paths"];
  const auto check = [&](const std::string& path, const char* method, const HttpAnswer& answer) {
    const Json& responses = paths[path][method]["responses"];
    EXPECT_TRUE(responses.contains(std::to_string(answer.status))) << path << answer.status;
    EXPECT_EQ(fault(Json::parse(answer.body), {{"$ref", "#/components/schemas/Refusal"}}), "") << answer.body;
  };
  check("/frame", "get", asked("/frame?after=x"));
  check("/api/timeline", "get", asked("/api/timeline?after=x"));
  check("/api/targets", "post", ordered("/api/targets", "[]"));
  check("/api/targets", "post", ordered("/api/targets", "{}"));
  check("/api/propose", "post", ordered("/api/propose", R"({"point":[1,1],"frame":1})"));
  check("/api/config", "post", ordered("/api/config", R"({"config":{"roi":{"min_size":-1}}})"));
  obeys_ = false;
  front_->end();
  check("/api/stop", "post", ordered("/api/stop", "{}"));
}

/// The other direction: what the server takes is what is described.
TEST_F(WebApiTest, NothingIsOfferedBesideWhatIsDescribed) {
  const Json paths = description()["paths"];
  std::set<std::string> described;
  for (const auto& path : paths.items()) described.insert(path.key());
  for (const char* path : {"/api/source", "/api/pipeline", "/api/open", "/api/quit", "/api/end", "/api/targets/x"}) {
    EXPECT_EQ(described.count(path), 0U);
    EXPECT_EQ(asked(path).status, 404) << path;
    EXPECT_EQ(ordered(path, "{}").status, 404) << path;
  }
}

}  // namespace
