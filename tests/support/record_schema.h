// Holds a record against the published schema.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace host_test {

/// What is wrong with the record, by the schema that `csrt-track schema records` prints; empty when nothing is.
std::string recordFault(const nlohmann::json& record);

}  // namespace host_test
