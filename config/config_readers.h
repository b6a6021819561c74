// Reads one configuration value from JSON, tolerantly: what does not convert leaves the value as it is. Pure, any
// thread.
#pragma once

#include <string>
#include <vector>

#include "config_keys.h"
#include "sw_json.h"

/// @param slot  holds the current value; changed only when `value` converts. Numbers are clamped to the key's range.
void readConfigValue(const SwJsonValue& value, const ConfigKey& key, const ConfigSlot& slot);

/// Takes the values of one group ("" for the top level) as the plug-in takes them; the rest stays.
/// `misc.debug` is no part of a CsrtConfig and not looked at.
void readConfigGroup(const SwJsonObject& values, const std::string& group, CsrtConfig& config);

/// The configuration that setConfig() of this text makes of the defaults. A text that is no JSON object: the defaults.
CsrtConfig readConfig(const std::string& text);

/// The groups of a configuration in the order they are read; "", the top level with its aliases, comes last and wins.
const std::vector<const char*>& configGroups();

/// true, a number but 0, or one of "true", "1", "yes", "on" (any case) turn on; their opposites turn off.
void readConfigBool(const SwJsonValue& value, bool& current);
