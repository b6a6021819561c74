#include "config/config_text.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "base/host_error.h"
#include "base/text_file.h"
#include "config/config_check.h"
#include "config/presets.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

Json parseObject(const std::string& text, const std::string& name) {
  for (const ConfigFinding& finding : checkConfig(text)) {
    if (finding.level != ConfigFinding::Level::Unusable) continue;
    const TextPlace& at = finding.place;
    throw HostError(ExitCode::Usage, "configuration '" + name + "', line " + std::to_string(at.line) + ", column " +
                                         std::to_string(at.column) + ": " + finding.text);
  }
  return Json::parse(text, nullptr, false);  // the rare text that only the plug-in's own parser takes is discarded
}

/// Groups are merged, everything else is replaced.
void mergeInto(Json& target, const Json& source) {
  for (const auto& [key, value] : source.items()) {
    if (value.is_object() && target.contains(key) && target[key].is_object()) {
      mergeInto(target[key], value);
    } else {
      target[key] = value;
    }
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
  Json value = Json::parse(valueText, nullptr, false);
  if (value.is_discarded()) value = valueText;
  if (dot == std::string::npos) {
    target[path] = value;
    return;
  }
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
  if (!options.preset.empty()) mergeInto(merged, Json::parse(presetText(options.preset)));
  if (!options.file.empty()) {
    std::string text = readTextFile(options.file);
    const Json json = parseObject(text, options.file);
    if (options.preset.empty() && options.sets.empty()) return text;
    if (json.is_discarded()) {
      throw HostError(ExitCode::Usage, "configuration '" + options.file +
                                           "' cannot be combined with --set or --preset: only "
                                           "the plug-in's own reader takes it");
    }
    mergeInto(merged, json);
  }
  for (const std::string& set : options.sets) applySet(merged, set);
  return merged.dump();
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
