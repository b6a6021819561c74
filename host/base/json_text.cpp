#include "base/json_text.h"

#include <array>
#include <cstdio>

#include "base/host_error.h"

namespace host {
namespace {

/// How many bytes from `at` are one character of UTF-8; 0: the byte is none.
std::size_t characterAt(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
  };
  const auto follows = [&](std::size_t i, unsigned low = 0x80, unsigned high = 0xBF) {
    return byte(at + i) >= low && byte(at + i) <= high;
  };
  const unsigned first = byte(at);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return follows(1) ? 2 : 0;
  if (first >= 0xE0 && first <= 0xEF) {  // neither overlong nor a surrogate
    return follows(1, first == 0xE0 ? 0xA0 : 0x80, first == 0xED ? 0x9F : 0xBF) && follows(2) ? 3 : 0;
  }
  if (first >= 0xF0 && first <= 0xF4) {
    return follows(1, first == 0xF0 ? 0x90 : 0x80, first == 0xF4 ? 0x8F : 0xBF) && follows(2) && follows(3) ? 4 : 0;
  }
  return 0;
}

template <typename Json>
Json escaped(const Json& json) {
  if (json.is_string()) return withBytesEscaped(json.template get_ref<const std::string&>());
  if (!json.is_structured()) return json;
  Json copy = json.is_array() ? Json::array() : Json::object();
  for (const auto& item : json.items()) {
    if (json.is_array()) {
      copy.push_back(escaped(item.value()));
    } else {
      copy[withBytesEscaped(item.key())] = escaped(item.value());
    }
  }
  return copy;
}

template <typename Json>
std::string textOf(const Json& json, int indent) {
  try {
    return json.dump(indent);
  } catch (const nlohmann::json::type_error&) {  // a string that is not UTF-8: rare, so nothing is searched before
    return escaped(json).dump(indent);
  }
}

void checkNesting(const std::string& text, const std::string& what) {
  if (tooDeepAt(text) == std::string::npos) return;
  throw HostError(ExitCode::Usage, "'" + what + "' is nested too deeply: more than " + std::to_string(kDeepestNesting) +
                                       " brackets are open at once");
}

}  // namespace

std::string withBytesEscaped(const std::string& text) {
  std::string escaped;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = characterAt(text, at);
    if (length > 0) {
      escaped.append(text, at, length);
      at += length;
      continue;
    }
    std::array<char, 8> code{};
    std::snprintf(code.data(), code.size(), "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(text[at++])));
    escaped += code.data();
  }
  return escaped;
}

std::string jsonText(const nlohmann::json& json, int indent) {
  return textOf(json, indent);
}

std::string jsonText(const nlohmann::ordered_json& json, int indent) {
  return textOf(json, indent);
}

std::size_t tooDeepAt(const std::string& text) {
  int depth = 0;
  bool inString = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (inString) {
      if (c == '\\') ++at;
      if (c == '"') inString = false;
      continue;
    }
    if (c == '"') inString = true;
    if ((c == '[' || c == '{') && ++depth > kDeepestNesting) return at;
    if ((c == ']' || c == '}') && depth > 0) --depth;
  }
  return std::string::npos;
}

nlohmann::json parseJson(const std::string& text, const std::string& what) {
  checkNesting(text, what);
  return nlohmann::json::parse(text, nullptr, false);
}

nlohmann::ordered_json parseOrderedJson(const std::string& text, const std::string& what) {
  checkNesting(text, what);
  return nlohmann::ordered_json::parse(text, nullptr, false);
}

}  // namespace host
