// The one JSON text that the plug-in's setConfig() gets, put together from what the user gave.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace host {

/// What the command line says about the configuration.
struct ConfigOptions {
  std::string preset;                   ///< Name of a shipped configuration; empty: none.
  std::string file;                     ///< A JSON file; empty: none.
  std::optional<std::string> fileText;  ///< What the file holds where it was read already, as a pipe is but once.
  std::vector<std::string> sets;        ///< "group.key=value" or "key=value", applied in order.
};

/// Preset, then file, then single values; a later one replaces an earlier one key by key.
/// A file alone is passed on byte for byte. Empty when nothing was given.
/// @throws HostError (Usage) naming the file or the value that cannot be used; a single value also when the plug-in
/// would
///         ignore or change it, or could not start with it
std::string buildConfigText(const ConfigOptions& options);

/// Puts the values of one configuration over another's: groups are merged, everything else is replaced. Pure.
/// @tparam Json  nlohmann::json, or nlohmann::ordered_json where the order of the keys is shown
template <class Json>
void mergeConfig(Json& target, const Json& source) {
  for (const auto& [key, value] : source.items()) {
    if (value.is_object() && target.contains(key) && target[key].is_object()) {
      mergeConfig(target[key], value);
    } else {
      target[key] = value;
    }
  }
}

/// Refuses a value of --set that the plug-in would silently ignore because it does not know the key.
/// @param schema  what the plug-in publishes; one without properties knows every key
/// @throws HostError (Usage) naming the key and the nearest known one
void checkSets(const std::vector<std::string>& sets, const std::string& schema);

/// Whether the text asks for the plug-in's log lines (misc.debug).
bool asksForDebug(const std::string& configText);

}  // namespace host
