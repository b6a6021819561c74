#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <new>

#include "sw_crypto.h"
#include "sw_json.h"
#include "sw_json_string.h"
#include "sw_json_text.h"
#include "sw_number.h"

namespace {

// What a decrypted text stands for: the words and numbers of JSON, numbers in the lenient forms of SwString.
SwJsonValue typedValue(const SwString& plain) {
  if (plain == "true" || plain == "false") return SwJsonValue(plain == "true");
  if (plain == "null") return SwJsonValue();
  std::int64_t integer = 0;
  double number = 0.0;
  const bool floating = plain.find_first_of(".eE") != std::string::npos;
  if (!floating && plain.tryInteger(integer)) return SwJsonValue(integer);
  if (plain.tryWholeDouble(number) && std::isfinite(number)) return SwJsonValue(number);
  return SwJsonValue(std::string(plain));
}

}  // namespace

// Reads with a stack of its own, so that nesting is limited by memory alone. Every value is read into the place where
// it belongs: the root, a new element or a new member. Those places stay put while the value is being read.
class SwJsonDocument::Parser {
 public:
  Parser(const SwString& json, std::size_t pos, const SwString& key, SwString& error)
      : json_(json), pos_(std::min(pos, json.size())), key_(key), error_(error) {}

  bool parse(SwJsonValue& root) {
    SwJsonValue* place = &root;
    while (place != nullptr) {
      if (!readValue(*place) || !findNextPlace(place)) return false;
    }
    return true;
  }

  bool atEnd() const { return pos_ >= json_.size(); }
  std::size_t pos() const { return pos_; }

  void skipBlanks() {
    while (!atEnd() && sw::isBlank(json_[pos_])) ++pos_;
  }

 private:
  // A container whose closing bracket has not come yet; one of the two.
  struct Open {
    SwJsonObject* object;
    SwJsonArray* array;
  };

  bool fail(const char* message, std::size_t index) {
    pos_ = index;
    reportError(error_, json_, index, message);
    return false;
  }

  bool next(char c) const { return !atEnd() && json_[pos_] == c; }

  bool take(char c) {
    if (!next(c)) return false;
    ++pos_;
    return true;
  }

  // Reads a scalar or an empty container whole; of another container only the opening bracket.
  bool readValue(SwJsonValue& place) {
    skipBlanks();
    if (atEnd()) return fail("Unexpected end of JSON input", pos_);
    switch (json_[pos_]) {
      case '{':
        return openObject(place);
      case '[':
        return openArray(place);
      case '"':
        return readString(place);
      case 't':
        return readLiteral("true", SwJsonValue(true), "Invalid boolean literal", place);
      case 'f':
        return readLiteral("false", SwJsonValue(false), "Invalid boolean literal", place);
      case 'n':
        return readLiteral("null", SwJsonValue(), "Invalid literal, expected 'null'", place);
      default:
        if (json_[pos_] == '-' || sw::isDigit(json_[pos_])) return readNumber(place);
        return fail("Invalid JSON token", pos_);
    }
  }

  bool openObject(SwJsonValue& place) {
    ++pos_;
    auto object = std::make_shared<SwJsonObject>();
    SwJsonObject* const opened = object.get();
    place = SwJsonValue(std::move(object));
    skipBlanks();
    if (take('}')) return true;
    open_.push_back({opened, nullptr});
    justOpened_ = true;
    return true;
  }

  bool openArray(SwJsonValue& place) {
    ++pos_;
    auto array = std::make_shared<SwJsonArray>();
    SwJsonArray* const opened = array.get();
    place = SwJsonValue(std::move(array));
    skipBlanks();
    if (take(']')) return true;
    if (atEnd()) return fail("Unterminated JSON array", pos_);
    open_.push_back({nullptr, opened});
    justOpened_ = true;
    return true;
  }

  // After a value: closes the containers that end here and finds the place of the next value; null after the root.
  bool findNextPlace(SwJsonValue*& place) {
    while (!justOpened_ && !open_.empty()) {
      skipBlanks();
      if (take(',')) break;
      if (!closeContainer()) return false;
    }
    justOpened_ = false;
    place = nullptr;
    if (open_.empty()) return true;
    if (open_.back().object != nullptr) return startMember(*open_.back().object, place);
    place = &open_.back().array->values_.emplace_back();
    return true;
  }

  bool closeContainer() {
    const bool object = open_.back().object != nullptr;
    if (atEnd()) return fail(object ? "Unterminated JSON object" : "Unterminated JSON array", pos_);
    if (!take(object ? '}' : ']')) {
      return fail(object ? "Expected ',' or '}' in object" : "Expected ',' or ']' in array", pos_);
    }
    open_.pop_back();
    return true;
  }

  bool startMember(SwJsonObject& object, SwJsonValue*& place) {
    skipBlanks();
    if (atEnd()) return fail("Unterminated JSON object", pos_);
    if (!next('"')) return fail("Expected string key in object", pos_);
    std::string name;
    if (!parseString(json_, pos_, name, error_)) return false;
    skipBlanks();
    if (!take(':')) return fail("Expected ':' after object key", pos_);
    place = &object.values_[std::move(name)];
    return true;
  }

  bool readString(SwJsonValue& place) {
    const std::size_t quote = pos_;
    std::string text;
    if (!parseString(json_, pos_, text, error_)) return false;
    if (!key_.empty()) return decrypt(text, quote, place);
    place = SwJsonValue(std::move(text));
    return true;
  }

  bool decrypt(const SwString& text, std::size_t quote, SwJsonValue& place) {
    try {
      SwString plain = text.decryptAES(key_);
      const SwWipe wipe(plain);
      place = typedValue(plain);
      return true;
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception&) {
      return fail("Unable to decrypt string value", quote);
    }
  }

  bool readLiteral(const char* word, SwJsonValue value, const char* message, SwJsonValue& place) {
    const std::size_t length = std::char_traits<char>::length(word);
    if (json_.compare(pos_, length, word) != 0) return fail(message, pos_);
    pos_ += length;
    place = std::move(value);
    return true;
  }

  bool readNumber(SwJsonValue& place) {
    const std::size_t first = pos_;
    bool floating = false;
    if (!skipInteger() || !skipFraction(floating) || !skipExponent(floating)) return false;
    return floating ? convertDouble(first, place) : convertInteger(first, place);
  }

  bool skipDigits(const char* message) {
    if (atEnd() || !sw::isDigit(json_[pos_])) return fail(message, pos_);
    while (!atEnd() && sw::isDigit(json_[pos_])) ++pos_;
    return true;
  }

  bool skipInteger() {
    take('-');
    if (!next('0')) return skipDigits("Expected digit in number literal");
    ++pos_;
    if (atEnd() || !sw::isDigit(json_[pos_])) return true;
    return fail("Leading zeros are not allowed in JSON numbers", pos_);
  }

  bool skipFraction(bool& floating) {
    if (!take('.')) return true;
    floating = true;
    return skipDigits("Expected digit after decimal point");
  }

  bool skipExponent(bool& floating) {
    if (!take('e') && !take('E')) return true;
    floating = true;
    if (!take('+')) take('-');
    return skipDigits("Expected digit in exponent");
  }

  bool convertInteger(std::size_t first, SwJsonValue& place) {
    std::int64_t value = 0;
    const auto result = std::from_chars(json_.data() + first, json_.data() + pos_, value);
    if (result.ec != std::errc() || result.ptr != json_.data() + pos_) return fail("Invalid integer number", first);
    place = SwJsonValue(value);
    return true;
  }

  bool convertDouble(std::size_t first, SwJsonValue& place) {
    char* end = nullptr;
    const double value = sw::strtodC(json_.c_str() + first, &end);
    if (end != json_.data() + pos_ || errno == ERANGE) return fail("Invalid floating-point number", first);
    place = SwJsonValue(value);
    return true;
  }

  const SwString& json_;
  std::size_t pos_;
  const SwString& key_;
  SwString& error_;
  std::vector<Open> open_;
  bool justOpened_ = false;  // the last of open_ has no element yet
};

SwJsonValue SwJsonDocument::parseJson(const SwString& json, std::size_t& pos, const SwString& key, SwString& error) {
  if (!error.empty()) return SwJsonValue();
  Parser parser(json, pos, key, error);
  SwJsonValue value;
  const bool valid = parser.parse(value);
  pos = parser.pos();
  return valid ? std::move(value) : SwJsonValue();
}

bool SwJsonDocument::parseString(const SwString& json, std::size_t& pos, std::string& out, SwString& error) {
  if (!error.empty()) return false;
  if (pos >= json.size() || json[pos] != '"') {
    reportError(error, json, pos, "Invalid JSON token");
    return false;
  }
  sw::JsonStringReader reader(json, pos, out);
  const bool valid = reader.read();
  pos = reader.pos();
  if (!valid) reportError(error, json, pos, reader.problem());
  return valid;
}

void SwJsonDocument::reportError(SwString& error, const SwString& json, std::size_t index, const std::string& message) {
  if (!error.empty()) return;
  constexpr std::size_t kSide = 20;
  const std::size_t place = std::min(index, json.size());
  const std::size_t begin = std::max(place, kSide) - kSide;
  const std::size_t end = std::min(place + kSide, json.size());
  // mid() counts in int: beyond 2 GiB the context stays empty.
  const bool reachable = begin <= static_cast<std::size_t>(INT_MAX);
  const SwString context = reachable ? json.mid(static_cast<int>(begin), static_cast<int>(end - begin)) : SwString();
  error = message + " (index " + std::to_string(index) + ") near \"" + context + "\"";
}

SwJsonValue SwJsonDocument::parseDocument(const SwString& json, const SwString& key, SwString& error) {
  if (!error.empty()) return SwJsonValue();
  Parser parser(json, 0, key, error);
  SwJsonValue value;
  if (!parser.parse(value)) return SwJsonValue();
  parser.skipBlanks();
  if (parser.atEnd()) return value;
  error = "Unexpected characters at the end of JSON.";
  return SwJsonValue();
}
