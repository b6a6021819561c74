#include "web/config_book.h"

#include <algorithm>
#include <cmath>

#include "base/json_text.h"
#include "config/config_check.h"
#include "config/config_text.h"
#include "config/presets.h"
#include "config_keys.h"

namespace host::web {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kDefaults = "defaults";

/// What of `wanted` is not so in `base`.
Json differences(const Json& wanted, const Json& base) {
  Json different = Json::object();
  for (const auto& [key, value] : wanted.items()) {
    if (value.is_object() && base.contains(key) && base[key].is_object()) {
      Json inner = differences(value, base[key]);
      if (!inner.empty()) different[key] = std::move(inner);
    } else if (!base.contains(key) || base[key] != value) {
      different[key] = value;
    }
  }
  return different;
}

Json parsed(const std::string& text) {
  if (tooDeepAt(text) != std::string::npos) return Json();
  Json json = Json::parse(text, nullptr, false);
  return json.is_object() ? json : Json();
}

std::string numberText(double value) {
  return Json(value == std::floor(value) ? Json(static_cast<long>(value)) : Json(value)).dump();
}

/// What a person should know of each key, by its path.
Json aboutKeys() {
  Json all = Json::object();
  for (const ConfigKey& key : configKeys()) {
    const std::string path = *key.group == '\0' ? key.name : std::string(key.group) + "." + key.name;
    Json about = {{"effect", key.effect}, {"unit", key.unit}};
    if (key.lowest != key.highest) about["range"] = numberText(key.lowest) + " to " + numberText(key.highest) + ".";
    all[path] = std::move(about);
  }
  return all;
}

}  // namespace

ConfigBook::ConfigBook(const std::string& text, const std::string& preset, const std::string& schema)
    : defaults_(parsed(defaultConfigText())), values_(defaults_), preset_(preset.empty() ? kDefaults : preset) {
  const Json given = parsed(text);
  if (given.is_object()) mergeConfig(values_, given);
  schema_ = parsed(schema);
}

Json ConfigBook::valuesOf_(const std::string& preset) const {
  Json values = defaults_;
  if (preset != kDefaults) mergeConfig(values, parsed(presetText(preset)));
  return values;
}

Json ConfigBook::json() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  Json presets = Json::object();
  presets[kDefaults] = defaults_;
  for (const std::string& name : presetNames()) presets[name] = valuesOf_(name);
  return {{"values", values_}, {"set", differences(values_, defaults_)},
          {"preset", preset_}, {"presets", std::move(presets)},
          {"schema", schema_}, {"keys", aboutKeys()}};
}

ConfigChange ConfigBook::change_Locked_(const Json& wanted) const {
  ConfigChange change;
  for (const ConfigFinding& finding : checkConfig(wanted.dump())) {
    if (finding.cannotStart) change.faults.push_back({finding.path, finding.text});
  }
  const Json different = differences(wanted, values_);
  if (change.faults.empty() && !different.empty()) change.text = different.dump();
  return change;
}

ConfigChange ConfigBook::check(const std::string& text, bool replaces) const {
  ConfigChange change;
  const Json given = parsed(text);
  if (!given.is_object()) {
    change.faults.push_back({"", "a configuration is a JSON object of groups"});
    return change;
  }
  for (const ConfigFinding& finding : checkConfig(text)) {
    if (finding.level != ConfigFinding::Level::Note) change.faults.push_back({finding.path, finding.text});
  }
  if (!change.faults.empty()) return change;
  const std::lock_guard<std::mutex> lock(mutex_);
  Json wanted = replaces ? defaults_ : values_;
  mergeConfig(wanted, given);
  return change_Locked_(wanted);
}

ConfigChange ConfigBook::checkPreset(const std::string& name) const {
  const std::vector<std::string> names = presetNames();
  if (name != kDefaults && std::find(names.begin(), names.end(), name) == names.end()) {
    return {{{"preset", "there is no preset of that name"}}, ""};
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  return change_Locked_(valuesOf_(name));
}

void ConfigBook::commit(const std::string& text, const std::string& preset) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!text.empty()) mergeConfig(values_, parsed(text));
  if (!preset.empty()) preset_ = preset;
}

std::string ConfigBook::download() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return differences(values_, defaults_).dump(2) + "\n";
}

}  // namespace host::web
