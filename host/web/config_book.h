// The configuration in force during a run, and what may be made of it.
#pragma once

#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace host::web {

/// What is wrong with a configuration somebody sent.
struct ConfigFault {
  std::string key;   ///< "group.key"; empty: the text as a whole.
  std::string text;  ///< One sentence without full stop.
};

/// What came of a change.
struct ConfigChange {
  std::vector<ConfigFault> faults;  ///< Not empty: nothing is changed.
  std::string text;                 ///< For setConfig(): the values that become others; empty: none does.
};

/// Threads: all calls from any thread.
class ConfigBook {
 public:
  using Json = nlohmann::ordered_json;

  /// @param text    what setConfig() got at the start; empty: nothing
  /// @param preset  the preset it is made from; empty: none
  /// @param schema  what the plug-in publishes
  ConfigBook(const std::string& text, const std::string& preset, const std::string& schema);

  /// {"values": all keys, "set": those that are not as without any configuration, "preset", "presets": {NAME: all
  /// keys},
  ///  "schema", "keys": {"group.key": {"effect", "unit", "range"}}}. The preset "defaults" is the one of nothing
  ///  configured.
  Json json() const;

  /// What would come of these values: {"group": {"key": value}}. Nothing changes before commit().
  /// @param replaces  keys that are not named go back to what they are without any configuration
  ConfigChange check(const std::string& text, bool replaces) const;
  /// The same for all keys of a preset; "defaults": none. An unknown name is a fault.
  ConfigChange checkPreset(const std::string& name) const;

  /// The text of a change was taken by the plug-in. @param preset  the preset it came from; empty: the last one stays
  void commit(const std::string& text, const std::string& preset);

  /// The values that are not as without any configuration, as a file for --config.
  std::string download() const;

 private:
  Json valuesOf_(const std::string& preset) const;
  ConfigChange change_Locked_(const Json& wanted) const;

  mutable std::mutex mutex_;
  Json defaults_;
  Json values_;
  std::string preset_;
  Json schema_;
};

}  // namespace host::web
