// Files of the source tree that the program carries inside; the build makes their definitions.
#pragma once

namespace host {

extern const char* const kRecordsSchema;  ///< records.schema.json, the schema of one record line.

struct EmbeddedText {
  const char* name;  ///< File name without its ending; null behind the last one.
  const char* text;
};

extern const EmbeddedText kPresets[];    ///< presets/*.json, sorted by name.
extern const EmbeddedText kScenarios[];  ///< scenarios/*.json, sorted by name.

}  // namespace host
