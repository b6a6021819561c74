// What the plug-in would do with a configuration. The plug-in itself is tolerant and silent; this says everything.
#pragma once

#include <string>
#include <vector>

#include "config/json_places.h"

namespace host {

/// What is wrong with one value of a configuration text.
struct ConfigFinding {
  /// How much of a value is taken.
  enum class Level {
    Note,     ///< The plug-in takes the value as it is; the published schema would not.
    Warning,  ///< Not taken as written: unknown, ignored, clamped, converted.
    Unusable  ///< The whole text is refused.
  };
  Level level = Level::Warning;
  std::string path;          ///< "group.key"; empty for the text as a whole.
  TextPlace place;           ///< Where it stands in the text.
  std::string text;          ///< One sentence without its full stop.
  bool unknownKey = false;   ///< The plug-in does not know the key.
  bool cannotStart = false;  ///< With this value the plug-in refuses to start.
};

/// Everything there is to say about a configuration text, in the order of the text; empty when all is well. Pure.
std::vector<ConfigFinding> checkConfig(const std::string& text);

/// The values in force without any configuration, as the JSON text that would set them. Pure.
std::string defaultConfigText();

/// The known name that is most like `name`; empty when none is like it, or the name is longer than any. Pure.
std::string nearestName(const std::string& name, const std::vector<std::string>& known);

}  // namespace host
