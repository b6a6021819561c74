#include "config/config_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <optional>
#include <set>

#include "base/json_text.h"
#include "config_keys.h"
#include "config_readers.h"
#include "sw_json.h"

namespace host {
namespace {

using Kind = SwJsonValue::Kind;
using Level = ConfigFinding::Level;
using Json = nlohmann::ordered_json;

std::string pathOf(const ConfigKey& key) {
  return (*key.group != '\0' ? std::string(key.group) + "." : std::string()) + key.name;
}

const ConfigKey* findKey(const std::string& path) {
  static const std::map<std::string, const ConfigKey*> kKeys = [] {
    std::map<std::string, const ConfigKey*> keys;
    for (const ConfigKey& key : configKeys()) keys.emplace(pathOf(key), &key);
    return keys;
  }();
  const auto found = kKeys.find(path);
  return found == kKeys.end() ? nullptr : found->second;
}

bool isGroup(const std::string& name) {
  static const std::set<std::string> kGroups = [] {
    std::set<std::string> groups;
    for (const ConfigKey& key : configKeys()) {
      if (*key.group != '\0') groups.insert(key.group);
    }
    return groups;
  }();
  return kGroups.count(name) > 0;
}

/// Every group and every key, with their full names.
std::vector<std::string> makeAllNames() {
  std::vector<std::string> names;
  for (const ConfigKey& key : configKeys()) {
    if (*key.group != '\0' && (names.empty() || std::find(names.begin(), names.end(), key.group) == names.end())) {
      names.emplace_back(key.group);
    }
    names.push_back(pathOf(key));
  }
  return names;
}

const std::vector<std::string>& allNames() {
  static const std::vector<std::string> kNames = makeAllNames();
  return kNames;
}

constexpr double kLeastPadding = 0.5;      // box sides; below, a start depends on the box's shape
constexpr std::size_t kLongestName = 100;  // longer than any key, so like none
constexpr int kMostSuggestions = 100;      // nobody reads more, and each costs a look at every key

std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
    }
  }
  return row.back();
}

// ------------------------------------------------------------------------------------------ what a value becomes

/// The value a slot holds, as JSON.
struct SlotJson {
  template <typename T>
  Json operator()(const T* value) const {
    return *value;
  }
};

/// Two different values to start from: a reader that leaves both as they are ignored what it was given.
struct SetStart {
  bool first;
  void operator()(bool* v) const { *v = first; }
  void operator()(int* v) const { *v = first ? 1 : 2; }
  void operator()(double* v) const { *v = first ? 1.0 : 2.0; }
  void operator()(std::string* v) const { *v = first ? "a" : "b"; }
  void operator()(std::vector<double>* v) const { *v = {first ? 1.0 : 2.0}; }
};

Json readFrom(const SwJsonValue& value, const ConfigKey& key, bool first) {
  if (key.slot == nullptr) {
    bool flag = first;
    readConfigBool(value, flag);
    return flag;
  }
  CsrtConfig config;
  const ConfigSlot slot = key.slot(config);
  std::visit(SetStart{first}, slot);
  readConfigValue(value, key, slot);
  return std::visit(SlotJson{}, slot);
}

/// What the plug-in stores; nothing when it leaves its value as it is.
std::optional<Json> storedValue(const SwJsonValue& value, const ConfigKey& key) {
  const Json a = readFrom(value, key, true);
  const Json b = readFrom(value, key, false);
  return a == b ? std::optional<Json>(a) : std::nullopt;
}

const char* wanted(ConfigType type) {
  switch (type) {
    case ConfigType::Boolean:
      return "true or false";
    case ConfigType::Integer:
      return "a whole number";
    case ConfigType::Number:
      return "a number";
    case ConfigType::String:
      return "a text";
    case ConfigType::NumberList:
      return "a list of numbers";
  }
  return "";
}

/// Whether the text's value is of the key's own kind, so that only its size can be wrong.
bool isOfType(const Json& value, ConfigType type) {
  switch (type) {
    case ConfigType::Boolean:
      return value.is_boolean();
    case ConfigType::Integer:
      return value.is_number_integer();
    case ConfigType::Number:
      return value.is_number();
    case ConfigType::String:
      return value.is_string();
    case ConfigType::NumberList:
      return value.is_array() && std::all_of(value.begin(), value.end(), [](const Json& v) { return v.is_number(); });
  }
  return false;
}

/// What OpenCV's tracker knows; it refuses to start with any other.
bool isWindowFunction(const Json& name) {
  return name == "hann" || name == "cheb" || name == "kaiser";
}

Json toJson(const SwJsonValue& value) {
  switch (value.kind()) {
    case Kind::Null:
      return nullptr;
    case Kind::Bool:
      return value.toBool();
    case Kind::Int:
      return value.toInt64();
    case Kind::Double:
      return value.toDouble();
    case Kind::String:
      return value.toString();
    case Kind::Object:
      return Json::object();
    case Kind::Array:
      break;
  }
  Json list = Json::array();
  for (std::size_t i = 0; i < value.toArray()->size(); ++i) list.push_back(toJson((*value.toArray())[i]));
  return list;
}

std::string shown(const Json& value) {
  if (value.is_object()) return "an object";
  std::string text = value.dump(-1, ' ', false, Json::error_handler_t::replace);
  constexpr std::size_t kLongest = 60;
  if (text.size() > kLongest) text.replace(kLongest, std::string::npos, "...");
  return text;
}

// ------------------------------------------------------------------------------------------------ the checks

class Checker {
 public:
  explicit Checker(const std::string& text) {
    for (const KeyPlace& key : keyPlaces(text)) {
      if (key.repeated)
        add_(Level::Warning, key.path, key.place, "'" + key.path + "' is given again: the last one counts");
      places_[key.path] = key.place;
    }
    schema_ = Json::parse(configSchemaText(), nullptr, false);
  }

  std::vector<ConfigFinding> check(const SwJsonObject& root) {
    for (const auto& [name, value] : root) {
      if (isGroup(name)) {
        checkGroup_(name, value);
      } else {
        checkKey_(name, value);
      }
    }
    checkFeatures_(root);
    std::stable_sort(findings_.begin(), findings_.end(), [](const ConfigFinding& a, const ConfigFinding& b) {
      return std::pair(a.place.line, a.place.column) < std::pair(b.place.line, b.place.column);
    });
    return std::move(findings_);
  }

 private:
  void add_(Level level, const std::string& path, const TextPlace& place, const std::string& text) {
    findings_.push_back({level, path, place, text});
  }
  void addCannotStart_(const std::string& path, const std::string& text) {
    add_(Level::Warning, path, text + ": tracking cannot start");
    findings_.back().cannotStart = true;
  }
  void add_(Level level, const std::string& path, const std::string& text) { add_(level, path, places_[path], text); }

  void checkGroup_(const std::string& name, const SwJsonValue& value) {
    if (value.kind() != Kind::Object) {
      return add_(Level::Warning, name,
                  "'" + name + "' is " + shown(toJson(value)) + " where a group is expected: ignored");
    }
    for (const auto& [key, member] : *value.toObject()) checkKey_(name + "." + key, member);
  }

  void checkKey_(const std::string& path, const SwJsonValue& value) {
    const ConfigKey* key = findKey(path);
    if (key == nullptr) return addUnknown_(path);
    const Json given = toJson(value);
    const std::optional<Json> stored = storedValue(value, *key);
    if (!stored) {
      return add_(Level::Warning, path,
                  "'" + path + "': " + shown(given) + " is not " + wanted(key->type) + ": ignored");
    }
    if (!isOfType(given, key->type)) {
      return add_(
          Level::Warning, path,
          fmt::format("'{}': {} is not {}: taken as {}", path, shown(given), wanted(key->type), shown(*stored)));
    }
    if (*stored != given) {
      return add_(Level::Warning, path,
                  fmt::format("'{}': {} lies outside [{:g}, {:g}]: taken as {}", path, shown(given), key->lowest,
                              key->highest, shown(*stored)));
    }
    if (path == "csrt.window_function" && !isWindowFunction(given)) {
      return addCannotStart_(path, "'" + path + "': " + shown(given) + " is none of hann, cheb and kaiser");
    }
    if (path == "csrt.padding" && given < kLeastPadding) {
      return addCannotStart_(path, fmt::format("'{}': {} leaves OpenCV's tracker too little around most boxes; {} and "
                                               "more does",
                                               path, shown(given), kLeastPadding));
    }
    checkAgainstSchema_(path, given);
  }

  void addUnknown_(const std::string& path) {
    std::string text = "the plug-in does not know '" + path + "'";
    const std::string nearest = ++unknown_ <= kMostSuggestions ? nearestName(path, allNames()) : std::string();
    if (!nearest.empty()) text += "; did you mean '" + nearest + "'?";
    add_(Level::Warning, path, text);
    findings_.back().unknownKey = true;
  }

  /// A value that the plug-in takes, but that an editor built on the published schema would refuse.
  void checkAgainstSchema_(const std::string& path, const Json& given) {
    const std::size_t dot = path.find('.');
    Json entry = schema_["properties"];
    if (dot != std::string::npos) entry = entry[path.substr(0, dot)]["properties"];
    entry = entry[dot == std::string::npos ? path : path.substr(dot + 1)];
    const auto note = [&](const std::string& what) {
      add_(Level::Note, path, "'" + path + "': " + shown(given) + " is taken, though the published schema " + what);
    };
    if (given.is_number() && entry.contains("minimum") && given < entry["minimum"]) {
      note("begins at " + entry["minimum"].dump());
    }
    if (given.is_number() && entry.contains("maximum") && given > entry["maximum"]) {
      note("ends at " + entry["maximum"].dump());
    }
  }

  /// Without any feature the tracker refuses to start.
  void checkFeatures_(const SwJsonObject& root) {
    const SwJsonValue& group = root["csrt"];
    if (group.kind() != Kind::Object) return;
    CsrtConfig config;
    for (const ConfigKey& key : configKeys()) {
      if (std::string(key.group) == "csrt") readConfigValue((*group.toObject())[key.name], key, key.slot(config));
    }
    if (config.csrt.use_hog || config.csrt.use_color_names || config.csrt.use_rgb || config.csrt.use_gray) return;
    addCannotStart_("csrt", "'csrt' switches all of use_hog, use_color_names, use_rgb and use_gray off");
  }

  std::map<std::string, TextPlace> places_;
  Json schema_;
  std::vector<ConfigFinding> findings_;
  int unknown_ = 0;
};

ConfigFinding unusable(const TextPlace& place, const std::string& text) {
  return {Level::Unusable, "", place, text};
}

}  // namespace

std::string nearestName(const std::string& name, const std::vector<std::string>& known) {
  if (name.size() > kLongestName) return {};
  std::string nearest;
  std::size_t best = std::numeric_limits<std::size_t>::max();
  for (const std::string& candidate : known) {
    // A key that was put at the top level or into another group is still the same key.
    const std::string key = candidate.substr(candidate.find('.') + 1);
    const std::size_t distance =
        std::min(editDistance(name, candidate), editDistance(name.substr(name.find('.') + 1), key) + 1);
    if (distance >= best) continue;
    best = distance;
    nearest = candidate;
  }
  return best <= 1 + name.size() / 4 ? nearest : std::string();
}

std::vector<ConfigFinding> checkConfig(const std::string& text) {
  const std::size_t deep = tooDeepAt(text);
  if (deep != std::string::npos) {
    return {unusable(placeOf(text, deep),
                     fmt::format("nested too deeply: more than {} brackets are open at once", kDeepestNesting))};
  }
  const SwString json(text);
  SwString error;
  std::size_t at = 0;
  const SwJsonValue value = SwJsonDocument::parseJson(json, at, SwString(), error);
  if (!error.empty()) {
    std::replace_if(
        error.begin(), error.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    return {unusable(placeOf(text, at), "not JSON: " + error)};
  }
  at = text.find_first_not_of(" \t\n\v\f\r", at);
  if (at != std::string::npos)
    return {unusable(placeOf(text, at), "not JSON: Unexpected characters at the end of JSON.")};
  if (value.kind() != Kind::Object) return {unusable({}, "JSON, but not an object: the plug-in ignores all of it")};
  return Checker(text).check(*value.toObject());
}

std::string defaultConfigText() {
  Json root = Json::object();
  CsrtConfig config;
  for (const ConfigKey& key : configKeys()) {
    if (*key.group == '\0') continue;  // another name of a value of a group
    root[key.group][key.name] = key.slot != nullptr ? std::visit(SlotJson{}, key.slot(config)) : Json(false);
  }
  return root.dump(2);
}

}  // namespace host
