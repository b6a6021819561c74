#include "config_text.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>

#include "host_error.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

Json parseObject(const std::string& text, const std::string& name) {
  try {
    Json json = Json::parse(text);
    if (json.is_object()) return json;
  } catch (const Json::parse_error& e) {
    std::string what = e.what();
    const std::size_t begin = what.find("parse error");
    if (begin != std::string::npos) what = what.substr(begin);
    throw HostError(ExitCode::Usage, "configuration '" + name + "' is not JSON: " + what);
  }
  throw HostError(ExitCode::Usage, "configuration '" + name + "' is JSON but not an object");
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

}  // namespace

std::string readTextFile(const std::string& path) {
  std::error_code ignored;
  if (std::filesystem::is_directory(path, ignored)) throw HostError(ExitCode::Usage, "'" + path + "' is a folder");
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  if (!file) throw HostError(ExitCode::Usage, "cannot read '" + path + "': " + std::strerror(errno));
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string buildConfigText(const ConfigOptions& options) {
  if (options.preset.empty() && options.file.empty() && options.sets.empty()) return {};
  Json merged = Json::object();
  if (!options.file.empty()) {
    std::string text = readTextFile(options.file);
    const Json json = parseObject(text, options.file);
    if (options.preset.empty() && options.sets.empty()) return text;
    mergeInto(merged, json);
  }
  for (const std::string& set : options.sets) applySet(merged, set);
  return merged.dump();
}

bool asksForDebug(const std::string& configText) {
  const Json json = Json::parse(configText, nullptr, false);
  if (!json.is_object() || !json.contains("misc") || !json["misc"].is_object()) return false;
  const Json& misc = json["misc"];
  return misc.contains("debug") && misc["debug"].is_boolean() && misc["debug"].get<bool>();
}

}  // namespace host
