// Prints docs/configuration.md: every key from the table the loader reads, with the published schema's default beside
// the one in force.   config_reference > docs/configuration.md
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <variant>

#include "config_keys.h"
#include "sw_json.h"

namespace {

std::string numberText(double value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

std::string listText(const std::vector<double>& values) {
  std::string text = "[";
  for (const double value : values) text += (text.size() > 1 ? ", " : "") + numberText(value);
  return text + "]";
}

struct ValueText {
  std::string operator()(const bool* v) const { return *v ? "true" : "false"; }
  std::string operator()(const int* v) const { return std::to_string(*v); }
  std::string operator()(const double* v) const { return numberText(*v); }
  std::string operator()(const std::string* v) const { return "\"" + *v + "\""; }
  std::string operator()(const std::vector<double>* v) const { return listText(*v); }
};

std::string defaultText(const ConfigKey& key) {
  CsrtConfig config;
  return key.slot != nullptr ? std::visit(ValueText(), key.slot(config)) : "false";
}

std::string schemaText(const SwJsonValue& value) {
  switch (value.kind()) {
    case SwJsonValue::Kind::Double:
      return numberText(value.toDouble());
    case SwJsonValue::Kind::String:
      return "\"" + value.toString() + "\"";
    case SwJsonValue::Kind::Array: {
      std::vector<double> numbers;
      for (std::size_t i = 0; i < value.toArray()->size(); ++i) numbers.push_back((*value.toArray())[i].toDouble());
      return listText(numbers);
    }
    default:
      return value.toString();
  }
}

SwJsonValue schemaDefault(const SwJsonObject& schema, const ConfigKey& key) {
  const auto properties = [](const SwJsonObject& object) { return object["properties"].toObject(); };
  const std::string group = key.group;
  const auto owner = group.empty() ? properties(schema) : properties(*(*properties(schema))[group].toObject());
  return (*(*owner)[key.name].toObject())["default"];
}

std::string rangeText(const ConfigKey& key) {
  const bool hasRange = key.type == ConfigType::Integer || key.type == ConfigType::Number;
  return hasRange ? numberText(key.lowest) + " to " + numberText(key.highest) : "";
}

const char* typeText(ConfigType type) {
  switch (type) {
    case ConfigType::Boolean:
      return "boolean";
    case ConfigType::Integer:
      return "integer";
    case ConfigType::Number:
      return "number";
    case ConfigType::String:
      return "string";
    case ConfigType::NumberList:
      return "list of numbers";
  }
  return "";
}

void printRow(const SwJsonObject& schema, const ConfigKey& key) {
  const std::string path = (*key.group != '\0' ? std::string(key.group) + "." : std::string()) + key.name;
  std::printf("| `%s` | %s | %s | %s | %s | %s | %s |\n", path.c_str(), typeText(key.type), defaultText(key).c_str(),
              schemaText(schemaDefault(schema, key)).c_str(), rangeText(key).c_str(), key.unit, key.effect);
}

constexpr char kIntroduction[] = R"(# Configuration

`setConfig()` takes a JSON object such as `{"csrt": {"template_size": 120}, "roi": {"enable": true}}` at any time,
before or after `init()`. It is tolerant: a key that is absent, unknown or of a type that does not convert leaves the
value as it is, and numbers are clamped to their range. Only a text that is not a JSON object is refused as a whole.
`csrt-track config check FILE` says what a file would do, typos included.

A change of a `csrt` value while tracking makes the next frame start a new tracker on the live box. A change of the
working size while tracking gives the target up.

The schema published by `getConfigList()` is documentation for editors: for several keys its default is not the one in
force. Both are listed. This page is printed by the program `config_reference` from the table that the loader reads.

| key | type | default in force | default in the schema | range | unit | effect |
|---|---|---|---|---|---|---|
)";

}  // namespace

int main() {
  SwString error;
  const SwJsonValue schema = SwJsonDocument::parseDocument(SwString(configSchemaText()), SwString(), error);
  if (!error.empty()) {
    std::fprintf(stderr, "config_reference: the published schema is no JSON: %s\n", error.c_str());
    return EXIT_FAILURE;
  }
  std::fputs(kIntroduction, stdout);
  for (const ConfigKey& key : configKeys()) printRow(*schema.toObject(), key);
  return EXIT_SUCCESS;
}
