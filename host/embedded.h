// Files of the source tree that the program carries inside; the build makes their definitions.
#pragma once

namespace host {

extern const char* const kRecordsSchema;  ///< records.schema.json, the schema of one record line.

}  // namespace host
