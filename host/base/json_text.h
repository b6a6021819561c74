// JSON as text whatever bytes its strings hold: names of files and targets need not be UTF-8, JSON must.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace host {

/// The text with every byte that is no UTF-8 as \xNN, two hexadecimal digits: "caf\xE9". UTF-8 stays as it is. Pure.
std::string withBytesEscaped(const std::string& text);

/// The JSON as text; strings and keys that are not UTF-8 have their bytes escaped. @param indent  -1: one line. Pure.
std::string jsonText(const nlohmann::json& json, int indent = -1);
std::string jsonText(const nlohmann::ordered_json& json, int indent = -1);

/// Brackets open at once that a text may have; far more than anything this program reads has.
inline constexpr int kDeepestNesting = 500;

/// The first bracket that opens deeper than kDeepestNesting; npos: there is none. Looks at brackets outside of strings
/// alone, so that the text need not be JSON. Pure, linear.
std::size_t tooDeepAt(const std::string& text);

/// nlohmann's parser, for texts from outside: an empty optional-like discarded value where the text is no JSON.
/// @param what  names the text in the complaint. @throws HostError (Usage) when it is nested too deeply
nlohmann::json parseJson(const std::string& text, const std::string& what);
nlohmann::ordered_json parseOrderedJson(const std::string& text, const std::string& what);

}  // namespace host
