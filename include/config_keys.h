// The one table of configuration keys: the loader, the host's configuration tools, the tests against the published
// schema and the documentation all read it.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "csrt_config.h"

/// What a key holds.
enum class ConfigType { Boolean, Integer, Number, String, NumberList };

/// Where a key's value lives.
using ConfigSlot = std::variant<bool*, int*, double*, std::string*, std::vector<double>*>;

/// One key of the configuration.
struct ConfigKey {
  const char* group;                ///< JSON group; "" for the two aliases at the top level.
  const char* name;                 ///< JSON name in its group.
  ConfigType type;                  ///< What it holds.
  double lowest;                    ///< Clamping range of integers and numbers; both 0 for other types.
  double highest;                   ///< Likewise.
  ConfigSlot (*slot)(CsrtConfig&);  ///< null for `misc.debug`, which is the plug-in's own atomic flag.
  const char* unit;                 ///< "" where there is none.
  const char* effect;               ///< One sentence.
};

/// All keys in the order in which setConfig() reads them: a later key of the same slot wins. Any thread.
const std::vector<ConfigKey>& configKeys();

/// JSON Schema (draft-07) of the configuration, as published to hosts. Its defaults and ranges are documentation; for
/// several keys those in force differ, and the table above holds. Any thread.
const char* configSchemaText();
