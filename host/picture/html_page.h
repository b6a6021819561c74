// Pages that need nothing but a browser: the chart library and all data lie inside.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <string>

namespace host {

/// Fills the marks of a page, such as @DATA@: STYLE, CHART_LIBRARY and CHART_HELPERS with what all pages share, DATA
/// with the JSON, every other one with its text of `parts` as it stands. What is filled in is not searched for marks.
/// A mark that nobody knows stays.
std::string htmlPage(const char* page, const nlohmann::ordered_json& data,
                     const std::map<std::string, std::string>& parts = {});

}  // namespace host
