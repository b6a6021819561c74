#include "config_readers.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "rounding.h"
#include "sw_number.h"

namespace {

using Kind = SwJsonValue::Kind;

std::string toLowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

bool isIntegral(double value) {
  return value == std::trunc(value);
}

std::int64_t saturateToInt64(double value) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63, the first double beyond
  if (value >= kLimit) return INT64_MAX;
  if (value < -kLimit) return INT64_MIN;
  return static_cast<std::int64_t>(value);
}

int lowBits(std::int64_t value) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(value));
}

bool tryToInt(const SwJsonValue& value, int& v) {
  switch (value.kind()) {
    case Kind::Int:
      v = lowBits(value.toInt64());
      return true;
    case Kind::Double: {
      const double number = value.toDouble();
      v = isIntegral(number) ? lowBits(saturateToInt64(number)) : truncateToInt(number);
      return true;
    }
    case Kind::Bool:
      v = value.toBool() ? 1 : 0;
      return true;
    case Kind::String:
      return sw::tryStoi(value.toString(), v);
    default:
      return false;
  }
}

bool tryToDouble(const SwJsonValue& value, double& v) {
  switch (value.kind()) {
    case Kind::Int:
    case Kind::Double:
    case Kind::Bool:
      v = value.toDouble();
      return true;
    case Kind::String:
      return sw::tryStod(value.toString(), v);
    default:
      return false;
  }
}

void readInt(const SwJsonValue& value, const ConfigKey& key, int& current) {
  int v = 0;
  if (!tryToInt(value, v)) return;
  current = std::max(static_cast<int>(key.lowest), std::min(static_cast<int>(key.highest), v));
}

// The order of the comparisons makes a NaN the upper bound.
void readDouble(const SwJsonValue& value, const ConfigKey& key, double& current) {
  double v = 0.0;
  if (!tryToDouble(value, v)) return;
  const double bounded = key.highest > v ? v : key.highest;
  current = key.lowest < bounded ? bounded : key.lowest;
}

void readText(const SwJsonValue& value, std::string& current) {
  switch (value.kind()) {
    case Kind::String:
    case Kind::Int:
    case Kind::Bool:
      current = value.toString();
      break;
    case Kind::Double: {
      const double number = value.toDouble();
      current = isIntegral(number) ? std::to_string(saturateToInt64(number)) : value.toString();
      break;
    }
    default:
      break;
  }
}

std::vector<double> listOf(const SwJsonArray& elements) {
  std::vector<double> list;
  for (std::size_t i = 0; i < elements.size(); ++i) {
    double v = 0.0;
    if (tryToDouble(elements[i], v)) list.push_back(v);
  }
  return list;
}

// "0.9, 1.0, 1.1"; what stands behind a piece that does not convert is not read.
std::vector<double> listOf(const std::string& text) {
  std::vector<double> list;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t comma = std::min(text.find(',', start), text.size());
    double v = 0.0;
    if (!sw::tryStod(text.substr(start, comma - start), v)) break;
    list.push_back(v);
    start = comma + 1;
  }
  return list;
}

void readList(const SwJsonValue& value, std::vector<double>& current) {
  std::vector<double> list;
  if (value.kind() == Kind::Array) list = listOf(*value.toArray());
  if (value.kind() == Kind::String) list = listOf(value.toString());
  if (!list.empty()) current = std::move(list);
}

}  // namespace

void readConfigBool(const SwJsonValue& value, bool& current) {
  switch (value.kind()) {
    case Kind::Bool:
      current = value.toBool();
      break;
    case Kind::Int:
      current = value.toInt64() != 0;
      break;
    case Kind::Double:
      current = value.toDouble() != 0.0;
      break;
    case Kind::String: {
      const std::string word = toLowerAscii(value.toString());
      if (word == "true" || word == "1" || word == "yes" || word == "on") current = true;
      if (word == "false" || word == "0" || word == "no" || word == "off") current = false;
      break;
    }
    default:
      break;
  }
}

void readConfigValue(const SwJsonValue& value, const ConfigKey& key, const ConfigSlot& slot) {
  switch (key.type) {
    case ConfigType::Boolean:
      readConfigBool(value, *std::get<bool*>(slot));
      break;
    case ConfigType::Integer:
      readInt(value, key, *std::get<int*>(slot));
      break;
    case ConfigType::Number:
      readDouble(value, key, *std::get<double*>(slot));
      break;
    case ConfigType::String:
      readText(value, *std::get<std::string*>(slot));
      break;
    case ConfigType::NumberList:
      readList(value, *std::get<std::vector<double>*>(slot));
      break;
  }
}

const std::vector<const char*>& configGroups() {
  static const std::vector<const char*> groups = {"input",   "roi",         "csrt", "stability", "redetect",
                                                  "predict", "preposition", "misc", ""};
  return groups;
}

void readConfigGroup(const SwJsonObject& values, const std::string& group, CsrtConfig& config) {
  for (const ConfigKey& key : configKeys()) {
    const bool wanted = group == key.group && key.slot != nullptr && values.contains(key.name);
    if (wanted) readConfigValue(values[key.name], key, key.slot(config));
  }
}

CsrtConfig readConfig(const std::string& text) {
  CsrtConfig config;
  SwString error;
  const SwJsonValue root = SwJsonDocument::parseDocument(SwString(text), SwString(), error);
  const std::shared_ptr<SwJsonObject> object = error.empty() ? root.toObject() : nullptr;
  if (object == nullptr) return config;
  for (const std::string group : configGroups()) {
    const std::shared_ptr<SwJsonObject> values = group.empty() ? object : (*object)[group].toObject();
    if (values != nullptr) readConfigGroup(*values, group, config);
  }
  return config;
}
