// The JSON parser against an independent one: documents drawn from a fixed seed and mutated. Both accept, with equal
// values, or both reject, but for the differences named below.
#include <gtest/gtest.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <random>

#include "sw_json.h"

namespace {

using Kind = SwJsonValue::Kind;
using nlohmann::json;

// Draws documents: every kind of value, blanks of every sort, escapes, numbers at the ends of their ranges.
class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  std::string document() {
    text_.clear();
    value(5);
    return text_;
  }

  std::string mutated(std::string text) {
    for (int changes = pick(3) + 1; changes > 0; --changes) mutate(text);
    return text;
  }

 private:
  int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

  template <std::size_t N>
  std::string pick(const char* const (&choices)[N]) {
    return choices[pick(static_cast<int>(N))];
  }

  void blanks() {
    static constexpr const char* kBlanks[] = {"", "", "", " ", "\n", "\t", "\r\n", "  ", "\v", "\f"};
    if (pick(4) == 0) text_ += pick(kBlanks);
  }

  void value(int depth) {
    blanks();
    switch (pick(depth > 0 ? 8 : 5)) {
      case 0:
        text_ += pick({"null", "true", "false"});
        break;
      case 1:
      case 2:
        number();
        break;
      case 3:
      case 4:
        string();
        break;
      case 5:
      case 6:
        object(depth);
        break;
      default:
        array(depth);
    }
    blanks();
  }

  void number() {
    static constexpr const char* kSpecial[] = {
        "0",      "-0",    "9223372036854775807",     "-9223372036854775808",   "9223372036854775808",
        "1e308",  "1e309", "18446744073709551615",    "18446744073709551616",   "-9223372036854775809",
        "1e-308", "-0e+1", "2.2250738585072014e-308", "1.7976931348623157e308", "5e-324"};
    if (pick(3) == 0) {
      text_ += pick(kSpecial);
      return;
    }
    text_ += pick({"", "-"}) + std::to_string(pick(1000000));
    if (pick(2) == 0) text_ += "." + std::to_string(pick(100000));
    if (pick(4) == 0) text_ += pick({"e", "E"}) + pick({"", "+", "-"}) + std::to_string(pick(30));
  }

  void string() {
    static constexpr const char* kPieces[] = {"a",
                                              "key",
                                              " ",
                                              "\\n",
                                              "\\\"",
                                              "\\\\",
                                              "\\/",
                                              "\\b",
                                              "\\f",
                                              "\\r",
                                              "\\t",
                                              "\\u0041",
                                              "\\u00e9",
                                              "\\u20AC",
                                              "\xC3\xA9",
                                              "\\u0000",
                                              "\xE2\x82\xAC",
                                              "\xF0\x9F\x98\x80",
                                              "\\uD83D\\uDE00"};
    text_ += '"';
    for (int pieces = pick(5); pieces > 0; --pieces) text_ += pick(kPieces);
    text_ += '"';
  }

  void object(int depth) {
    text_ += '{';
    for (int members = pick(5); members > 0; --members) {
      blanks();
      string();
      blanks();
      text_ += ':';
      value(depth - 1);
      if (members > 1) text_ += ',';
    }
    blanks();
    text_ += '}';
  }

  void array(int depth) {
    text_ += '[';
    for (int elements = pick(5); elements > 0; --elements) {
      value(depth - 1);
      if (elements > 1) text_ += ',';
    }
    blanks();
    text_ += ']';
  }

  void mutate(std::string& text) {
    static constexpr const char* kInserted[] = {
        "\"", "\\", "{", "}", "[",    "]",    ",",    ":",   "0",       "1",       "-",    "+",    ".", "e",  "E",
        "u",  "t",  "n", "/", "\x01", "\x7F", "\xFF", "\\u", "\\uD83D", "\\uDC00", "null", "true", " ", "\n", "\v"};
    const auto at = static_cast<std::size_t>(pick(static_cast<int>(text.size()) + 1));
    switch (pick(4)) {
      case 0:
        text.insert(at, pick(kInserted));
        break;
      case 1:
        if (at < text.size()) text.erase(at, static_cast<std::size_t>(pick(3) + 1));
        break;
      case 2:
        if (at < text.size()) text.replace(at, 1, pick(kInserted));
        break;
      default:
        text.resize(at);
    }
  }

  std::mt19937 random_;
  std::string text_;
};

// What the independent parser met on its way: the listed differences show in its events.
class Differences : public nlohmann::json_sax<json> {
 public:
  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t value) override {
    outOfRange_ |= value > static_cast<number_unsigned_t>(INT64_MAX);
    return true;
  }
  bool number_float(number_float_t value, const string_t& text) override {
    const bool integer = text.find_first_of(".eE") == string_t::npos;
    const bool zero = text.find_first_of("123456789") >= text.find_first_of("eE");
    outOfRange_ |= integer || (std::abs(value) < 2.2250738585072015e-308 && !zero);
    return true;
  }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(std::size_t, const std::string&, const json::exception&) override { return false; }

  bool outOfRange() const { return outOfRange_; }

 private:
  bool outOfRange_ = false;
};

// Vertical tab and form feed outside of strings are blanks here and faults there.
std::string withPlainBlanks(std::string text) {
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '"') inString = !inString;
    if (inString && text[i] == '\\') ++i;
    if (!inString && i < text.size() && (text[i] == '\v' || text[i] == '\f')) text[i] = ' ';
  }
  return text;
}

// UTF-8 passes unchecked here and is checked there: a byte that belongs to no character becomes a letter.
std::string withValidUtf8(std::string text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xC2 ? 0
                               : lead < 0xE0 ? 2
                               : lead < 0xF0 ? 3
                               : lead < 0xF5 ? 4
                                             : 0;
    bool valid = length > 0 && i + length <= text.size();
    for (std::size_t k = 1; valid && k < length; ++k) valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
    if (!valid) text[i] = 'x';
    i += valid ? length : 1;
  }
  return text;
}

bool equal(const SwJsonValue& ours, const json& theirs) {
  switch (ours.kind()) {
    case Kind::Null:
      return theirs.is_null();
    case Kind::Bool:
      return theirs.is_boolean() && ours.toBool() == theirs.get<bool>();
    case Kind::Int:
      return theirs.is_number_integer() && ours.toInt64() == theirs.get<std::int64_t>();
    case Kind::Double:
      return theirs.is_number_float() && ours.toDouble() == theirs.get<double>() &&
             std::signbit(ours.toDouble()) == std::signbit(theirs.get<double>());
    case Kind::String:
      return theirs.is_string() && ours.toString() == theirs.get_ref<const std::string&>();
    case Kind::Array: {
      const auto array = ours.toArray();
      if (!theirs.is_array() || array->size() != theirs.size()) return false;
      for (std::size_t i = 0; i < theirs.size(); ++i) {
        if (!equal((*array)[i], theirs[i])) return false;
      }
      return true;
    }
    case Kind::Object: {
      const auto object = ours.toObject();
      if (!theirs.is_object() || object->size() != theirs.size()) return false;
      for (const auto& [key, value] : *object) {
        if (!theirs.contains(key) || !equal(value, theirs[key])) return false;
      }
      return true;
    }
  }
  return false;
}

enum class Verdict { BothAccept, BothReject, ListedDifference };

// Integers beyond 64 bits and doubles that under- or overflow are errors here; there integers grow unsigned or turn
// into doubles, subnormal doubles are taken, and only an overflow is an error. Everything else must agree.
Verdict compare(const std::string& drawn) {
  const std::string text = withValidUtf8(drawn);
  SwString error;
  const SwJsonValue ours = SwJsonDocument::parseDocument(text, "", error);
  Differences differences;
  const std::string plain = withPlainBlanks(text);
  json::sax_parse(plain, &differences);
  if (differences.outOfRange()) {
    EXPECT_NE(error, "") << text;
    return Verdict::ListedDifference;
  }
  const json theirs = json::parse(plain, nullptr, false);
  EXPECT_EQ(error.empty(), !theirs.is_discarded()) << text << "\n" << error;
  if (theirs.is_discarded() || !error.empty()) return Verdict::BothReject;
  EXPECT_TRUE(equal(ours, theirs)) << text;
  return Verdict::BothAccept;
}

TEST(JsonConformance, DrawnAndMutatedDocumentsAreJudgedAlike) {
  Generator generator(20240711);
  int counts[3] = {};
  for (int i = 0; i < 20000; ++i) {
    const std::string document = generator.document();
    ++counts[static_cast<int>(compare(document))];
    ++counts[static_cast<int>(compare(generator.mutated(document)))];
    if (HasFailure()) break;
  }
  // The comparison means something only when every verdict occurs often.
  EXPECT_GT(counts[static_cast<int>(Verdict::BothAccept)], 5000);
  EXPECT_GT(counts[static_cast<int>(Verdict::BothReject)], 5000);
  EXPECT_GT(counts[static_cast<int>(Verdict::ListedDifference)], 500);
}

TEST(JsonConformance, ListedDifferences) {
  SwString error;
  EXPECT_EQ(SwJsonDocument::parseDocument("\v[\f1]", "", error).kind(), Kind::Array);
  EXPECT_TRUE(json::parse("\v[\f1]", nullptr, false).is_discarded());
  EXPECT_EQ(SwJsonDocument::parseDocument("\"\xFF\"", "", error).kind(), Kind::String);
  EXPECT_TRUE(json::parse("\"\xFF\"", nullptr, false).is_discarded());
  EXPECT_EQ(error, "");
  for (const char* const text : {"9223372036854775808", "-9223372036854775809", "5e-324"}) {
    error.clear();
    EXPECT_EQ(SwJsonDocument::parseDocument(text, "", error).kind(), Kind::Null) << text;
    EXPECT_NE(error, "") << text;
    EXPECT_TRUE(json::parse(text, nullptr, false).is_number()) << text;
  }
}

}  // namespace
