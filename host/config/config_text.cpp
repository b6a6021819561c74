#include "config/config_text.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "base/host_error.h"
#include "base/json_text.h"
#include "base/pending_file.h"
#include "base/text_file.h"
#include "config/config_check.h"
#include "config/presets.h"

namespace host {
namespace {

using Json = nlohmann::json;  // its members are found in a moment, however many there are

void checkObject(const std::string& text, const std::string& name) {
  for (const ConfigFinding& finding : checkConfig(text)) {
    if (finding.level != ConfigFinding::Level::Unusable) continue;
    const TextPlace& at = finding.place;
    throw HostError(ExitCode::Usage, "configuration '" + name + "', line " + std::to_string(at.line) + ", column " +
                                         std::to_string(at.column) + ": " + finding.text);
  }
}

bool beginsWith(const std::string& text, const std::string& part) {
  return text.compare(0, part.size(), part) == 0;
}

/// What a finding says about a value, without the key and without what the plug-in would make of it.
std::string whatIsWrong(const ConfigFinding& finding) {
  const std::string key = "'" + finding.path + "': ";
  std::string text = beginsWith(finding.text, key) ? finding.text.substr(key.size()) : finding.text;
  for (const char* consequence : {": ignored", ": taken as "}) {
    const std::size_t at = text.rfind(consequence);
    if (at != std::string::npos) text.erase(at);
  }
  return text;
}

/// A person who types a value means it: what the plug-in would ignore or change is refused.
void checkValue(const std::string& set, const std::string& json) {
  for (const ConfigFinding& finding : checkConfig(json)) {
    if (finding.level != ConfigFinding::Level::Warning || finding.unknownKey) continue;
    throw HostError(ExitCode::Usage, "--set '" + set + "': " + whatIsWrong(finding));
  }
}

/// Values that are fine alone and keep the tracker from starting together.
void checkTogether(const std::string& json) {
  for (const ConfigFinding& finding : checkConfig(json)) {
    if (finding.cannotStart) throw HostError(ExitCode::Usage, "--set: " + finding.text);
  }
}

/// "roi.min_size=64" into {"roi":{"min_size":64}}; what is not JSON is taken as a text.
void applySet(Json& target, const std::string& text) {
  const std::size_t equals = text.find('=');
  const std::string path = text.substr(0, equals);
  const std::size_t dot = path.find('.');
  const bool badPath = path.empty() || dot == 0 || path.back() == '.' || path.find('.', dot + 1) != std::string::npos;
  if (equals == std::string::npos || (dot != std::string::npos && badPath) || path.empty()) {
    throw HostError(ExitCode::Usage, "--set '" + text + "' is not of the form group.key=value");
  }
  const std::string valueText = text.substr(equals + 1);
  if (withBytesEscaped(text) != text) {
    throw HostError(ExitCode::Usage, "--set '" + withBytesEscaped(text) + "' is not UTF-8");
  }
  if (tooDeepAt(valueText) != std::string::npos) {
    throw HostError(ExitCode::Usage, "--set '" + path + "': the value is nested too deeply");
  }
  Json value = Json::parse(valueText, nullptr, false);
  if (value.is_discarded()) value = valueText;
  if (dot == std::string::npos) {
    checkValue(text, Json{{path, value}}.dump());
    target[path] = value;
    return;
  }
  checkValue(text, Json{{path.substr(0, dot), {{path.substr(dot + 1), value}}}}.dump());
  Json& group = target[path.substr(0, dot)];
  if (!group.is_object()) group = Json::object();
  group[path.substr(dot + 1)] = value;
}

/// "group.key" of everything a published schema describes.
std::vector<std::string> keysOfSchema(const Json& schema) {
  std::vector<std::string> keys;
  if (!schema.is_object() || !schema.contains("properties")) return keys;
  for (const auto& [name, entry] : schema["properties"].items()) {
    if (!entry.contains("properties")) {
      keys.push_back(name);
      continue;
    }
    for (const auto& member : entry["properties"].items()) keys.push_back(name + "." + member.key());
  }
  return keys;
}

}  // namespace

std::string buildConfigText(const ConfigOptions& options) {
  if (options.preset.empty() && options.file.empty() && options.sets.empty()) return {};
  Json merged = Json::object();
  if (!options.preset.empty()) mergeConfig(merged, Json::parse(presetText(options.preset)));
  if (!options.file.empty()) {
    std::string text = options.fileText ? *options.fileText : readTextFile(options.file);
    checkObject(text, options.file);
    if (options.preset.empty() && options.sets.empty()) return text;
    const Json json = Json::parse(text, nullptr, false);  // the rare text that only the plug-in takes is discarded
    if (json.is_discarded()) {
      throw HostError(ExitCode::Usage, "configuration '" + options.file +
                                           "' cannot be combined with --set or --preset: only "
                                           "the plug-in's own reader takes it");
    }
    mergeConfig(merged, json);
  }
  for (const std::string& set : options.sets) applySet(merged, set);
  std::string text = merged.dump();
  if (!options.sets.empty()) checkTogether(text);
  return text;
}

void checkSets(const std::vector<std::string>& sets, const std::string& schema) {
  const std::vector<std::string> known = keysOfSchema(Json::parse(schema, nullptr, false));
  for (const std::string& set : sets) {
    const std::string path = set.substr(0, set.find('='));
    if (known.empty() || std::find(known.begin(), known.end(), path) != known.end()) continue;
    const std::string nearest = nearestName(path, known);
    throw HostError(ExitCode::Usage, "--set '" + set + "': the plug-in does not know '" + path + "'" +
                                         (nearest.empty() ? "" : "; did you mean '" + nearest + "'?"));
  }
}

bool asksForDebug(const std::string& configText) {
  const Json json = Json::parse(configText, nullptr, false);
  if (!json.is_object() || !json.contains("misc") || !json["misc"].is_object()) return false;
  const Json& misc = json["misc"];
  return misc.contains("debug") && misc["debug"].is_boolean() && misc["debug"].get<bool>();
}

}  // namespace host
