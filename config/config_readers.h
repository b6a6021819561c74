// Reads one configuration value from JSON, tolerantly: what does not convert leaves the value as it is. Pure, any
// thread.
#pragma once

#include "config_keys.h"
#include "sw_json.h"

/// @param slot  holds the current value; changed only when `value` converts. Numbers are clamped to the key's range.
void readConfigValue(const SwJsonValue& value, const ConfigKey& key, const ConfigSlot& slot);

/// true, a number but 0, or one of "true", "1", "yes", "on" (any case) turn on; their opposites turn off.
void readConfigBool(const SwJsonValue& value, bool& current);
