// The JSON parser: every rule with its message, the index it names, and the text around it.
#include "sw_json.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>

#include "support/comma_locale.h"

namespace {

using Kind = SwJsonValue::Kind;
using namespace std::string_literals;

SwJsonValue parse(const SwString& json) {
  SwString error;
  SwJsonValue value = SwJsonDocument::parseDocument(json, "", error);
  EXPECT_EQ(error, "") << json;
  return value;
}

std::string errorOf(const SwString& json) {
  SwString error;
  EXPECT_EQ(SwJsonDocument::parseDocument(json, "", error).kind(), Kind::Null) << json;
  return error;
}

struct Fault {
  SwString json;
  std::size_t index;
  const char* message;
};

constexpr const char* kEnd = "Unexpected end of JSON input";
constexpr const char* kToken = "Invalid JSON token";
constexpr const char* kOpenObject = "Unterminated JSON object";
constexpr const char* kOpenArray = "Unterminated JSON array";
constexpr const char* kWantKey = "Expected string key in object";
constexpr const char* kWantColon = "Expected ':' after object key";
constexpr const char* kInObject = "Expected ',' or '}' in object";
constexpr const char* kInArray = "Expected ',' or ']' in array";
constexpr const char* kBool = "Invalid boolean literal";
constexpr const char* kNull = "Invalid literal, expected 'null'";
constexpr const char* kWantDigit = "Expected digit in number literal";
constexpr const char* kLeadingZero = "Leading zeros are not allowed in JSON numbers";
constexpr const char* kWantFraction = "Expected digit after decimal point";
constexpr const char* kWantExponent = "Expected digit in exponent";
constexpr const char* kInteger = "Invalid integer number";
constexpr const char* kDouble = "Invalid floating-point number";
constexpr const char* kOpenString = "Unterminated string literal";
constexpr const char* kControl = "Unescaped control character in string";
constexpr const char* kCutEscape = "Invalid escape sequence in string";
constexpr const char* kEscape = "Invalid escape character in string";
constexpr const char* kCutUnicode = "Incomplete Unicode escape sequence";
constexpr const char* kHex = "Invalid hex digit in Unicode escape";
constexpr const char* kNoLow = "Missing low surrogate after high surrogate";
constexpr const char* kBadLow = "Invalid low surrogate in Unicode escape";
constexpr const char* kLoneLow = "Unexpected low surrogate without leading high surrogate";

const Fault kFaults[] = {
    // values
    {"", 0, kEnd},
    {" \t\n\v\f\r", 6, kEnd},
    {"x", 0, kToken},
    {"  +1", 2, kToken},
    {".5", 0, kToken},
    {"'a'", 0, kToken},
    {"]", 0, kToken},
    {"\0"s, 0, kToken},
    {"\xEF\xBB\xBF{}", 0, kToken},
    {"\xA0"s + "1", 0, kToken},  // a byte that some locales count as a blank
    {"NaN", 0, kToken},
    {"// comment", 0, kToken},
    // objects
    {"{", 1, kOpenObject},
    {"{ ", 2, kOpenObject},
    {"{]", 1, kWantKey},
    {"{1:2}", 1, kWantKey},
    {"{,}", 1, kWantKey},
    {R"({"a":1,})", 7, kWantKey},
    {R"({"a")", 4, kWantColon},
    {R"({"a" )", 5, kWantColon},
    {R"({"a" 1})", 5, kWantColon},
    {R"({"a"})", 4, kWantColon},
    {R"({"a":)", 5, kEnd},
    {R"({"a":})", 5, kToken},
    {R"({"a":1)", 6, kOpenObject},
    {R"({"a":1 )", 7, kOpenObject},
    {R"({"a":1,)", 7, kOpenObject},
    {R"({"a":1 "b":2})", 7, kInObject},
    {R"({"a":1])", 6, kInObject},
    {R"({"a)", 3, kOpenString},
    {R"({"a":{"b":tru}})", 10, kBool},
    // arrays
    {"[", 1, kOpenArray},
    {"[ ", 2, kOpenArray},
    {"[1", 2, kOpenArray},
    {"[1 ", 3, kOpenArray},
    {"[1,", 3, kEnd},
    {"[1,]", 3, kToken},
    {"[,1]", 1, kToken},
    {"[1 2]", 3, kInArray},
    {"[1}", 2, kInArray},
    {"[[1]", 4, kOpenArray},
    {R"([{"a":1])", 7, kInObject},
    {R"([1, {"a": [2, nul]}])", 14, kNull},
    // literals
    {"t", 0, kBool},
    {"tru", 0, kBool},
    {"trUe", 0, kBool},
    {" fals", 1, kBool},
    {"False", 0, kToken},
    {"nul", 0, kNull},
    {"[nulL]", 1, kNull},
    // numbers
    {"-", 1, kWantDigit},
    {"-x", 1, kWantDigit},
    {"--1", 1, kWantDigit},
    {"01", 1, kLeadingZero},
    {"-01", 2, kLeadingZero},
    {"[00]", 2, kLeadingZero},
    {"1.", 2, kWantFraction},
    {"1.e5", 2, kWantFraction},
    {"-0.x", 3, kWantFraction},
    {"1e", 2, kWantExponent},
    {"1e+", 3, kWantExponent},
    {"1.5E-", 5, kWantExponent},
    {"1e+-5", 3, kWantExponent},
    {" 9223372036854775808", 1, kInteger},
    {"-9223372036854775809", 0, kInteger},
    {"123456789012345678901234567890", 0, kInteger},
    {"[1e400]", 1, kDouble},
    {"-1e400", 0, kDouble},
    {"1e-400", 0, kDouble},
    {"4e-320", 0, kDouble},  // representable only with lost digits
    // strings
    {"\"", 1, kOpenString},
    {"\"abc", 4, kOpenString},
    {"\"a\tb\"", 2, kControl},
    {"\"\0\""s, 1, kControl},
    {"\"\x1F\"", 1, kControl},
    {"\"\n", 1, kControl},
    {"\"\\", 2, kCutEscape},
    {R"("\x")", 2, kEscape},
    {R"("\')", 2, kEscape},
    {R"("\U0041")", 2, kEscape},
    {"\"\\\0\""s, 2, kEscape},
    {R"("\u)", 3, kCutUnicode},
    {R"("\u12")", 6, kCutUnicode},
    {R"("\u123)", 6, kCutUnicode},
    {R"("\u12" )", 5, kHex},
    {R"("\u00G0")", 5, kHex},
    {R"("\u 041")", 3, kHex},
    {R"("\u+041")", 3, kHex},
    {R"("\uDE00")", 3, kLoneLow},
    {R"("\uDC00\uD800")", 3, kLoneLow},
    {R"("\uD83D")", 7, kNoLow},
    {R"("\uD83Dx")", 7, kNoLow},
    {R"("\uD83D\n")", 8, kNoLow},
    {"\"\\uD83D", 7, kNoLow},
    {"\"\\uD83D\\", 8, kNoLow},
    {R"("\uD83D\u12")", 11, kNoLow},
    {R"("\uD83D\uDE0G")", 12, kNoLow},
    {R"("\uD83D\u0041")", 9, kBadLow},
    {R"("\uD83D\uD83D")", 9, kBadLow},
    {R"("\uDBFF\uE000")", 9, kBadLow},
};

TEST(JsonFault, IsNamedWithItsIndexAndItsSurroundings) {
  for (const Fault& fault : kFaults) {
    const std::size_t begin = fault.index < 20 ? 0 : fault.index - 20;
    const std::string context = fault.json.substr(begin, fault.index + 20 - begin);
    const std::string expected =
        std::string(fault.message) + " (index " + std::to_string(fault.index) + ") near \"" + context + "\"";
    EXPECT_EQ(errorOf(fault.json), expected);
  }
}

TEST(JsonFault, LeavesPosAtItsIndex) {
  for (const Fault& fault : kFaults) {
    std::size_t pos = 0;
    SwString error;
    SwJsonDocument::parseJson(fault.json, pos, "", error);
    EXPECT_EQ(pos, fault.index) << error;
  }
}

TEST(JsonFault, ShowsTwentyBytesOnEachSide) {
  const std::string left = "[0,1,2,3,4,5,6,7,8,9,10,11,12,";
  EXPECT_EQ(errorOf(left + "x,13,14,15,16,17,18,19]"),
            "Invalid JSON token (index 30) near \",5,6,7,8,9,10,11,12,x,13,14,15,16,17,18,\"");
  EXPECT_EQ(errorOf("[1, 2x3456789012345678901234567890]"),
            "Expected ',' or ']' in array (index 5) near \"[1, 2x3456789012345678901\"");
}

TEST(JsonFault, IsTheFirstOneReported) {
  SwString error;
  SwJsonDocument::reportError(error, "abc", 1, "first");
  SwJsonDocument::reportError(error, "abc", 2, "second");
  EXPECT_EQ(error, "first (index 1) near \"abc\"");
}

TEST(JsonFault, IsReportedForAnIndexBeyondTheTextToo) {
  SwString error;
  SwJsonDocument::reportError(error, "abc", 50, "odd");
  EXPECT_EQ(error, "odd (index 50) near \"abc\"");
}

TEST(JsonFault, OfAnEarlierCallStopsALaterOne) {
  SwString error = "earlier";
  std::size_t pos = 0;
  std::string text;
  EXPECT_EQ(SwJsonDocument::parseJson("5", pos, "", error).kind(), Kind::Null);
  EXPECT_EQ(SwJsonDocument::parseDocument("5", "", error).kind(), Kind::Null);
  EXPECT_FALSE(SwJsonDocument::parseString("\"a\"", pos, text, error));
  EXPECT_EQ(error, "earlier");
  EXPECT_EQ(pos, 0U);
}

TEST(JsonDocument, EndsWithItsValue) {
  for (const std::string& json : {"{} x"s, "1 2"s, "[]]"s, "\"a\"b"s, "null\0"s, "0x10"s, "1 ,"s}) {
    EXPECT_EQ(errorOf(json), "Unexpected characters at the end of JSON.") << json;
  }
  EXPECT_EQ(parse(" \t\n\v\f\r{} \t\n\v\f\r").kind(), Kind::Object);
}

TEST(JsonDocument, IsOneOfManyForParseJson) {
  const SwString json = " 1 [2] \"x\"";
  std::size_t pos = 0;
  SwString error;
  EXPECT_EQ(SwJsonDocument::parseJson(json, pos, "", error).toInt64(), 1);
  EXPECT_EQ(pos, 2U);
  EXPECT_EQ(SwJsonDocument::parseJson(json, pos, "", error).toArray()->size(), 1U);
  EXPECT_EQ(pos, 6U);
  EXPECT_EQ(SwJsonDocument::parseJson(json, pos, "", error).toString(), "x");
  EXPECT_EQ(pos, 10U);
  EXPECT_EQ(error, "");
}

TEST(JsonNumber, IsAnIntegerWithoutPointAndExponent) {
  const std::pair<const char*, std::int64_t> cases[] = {
      {"0", 0},
      {"-0", 0},
      {"42", 42},
      {"-7", -7},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()}};
  for (const auto& [json, value] : cases) {
    EXPECT_EQ(parse(json).kind(), Kind::Int) << json;
    EXPECT_EQ(parse(json).toInt64(), value) << json;
  }
}

TEST(JsonNumber, IsADoubleWithPointOrExponent) {
  const std::pair<const char*, double> cases[] = {
      {"0.5", 0.5},
      {"-0e+1", -0.0},
      {"1E2", 100.0},
      {"-1.25e-2", -0.0125},
      {"3.0", 3.0},
      {"0.0", 0.0},
      {"0e-999", 0.0},
      {"1.7976931348623157e308", 1.7976931348623157e308},
      {"1e22", 1e22},
      {"1e23", 1e23},
      {"2.2250738585072014e-308", 2.2250738585072014e-308},
      {"0.1", 0.1},
      {"123456789012345678901234567890.0", 123456789012345678901234567890.0}};
  for (const auto& [json, value] : cases) {
    EXPECT_EQ(parse(json).kind(), Kind::Double) << json;
    EXPECT_EQ(parse(json).toDouble(), value) << json;
  }
}

TEST(JsonNumber, IgnoresAnErrorThatHappenedEarlier) {
  errno = ERANGE;
  EXPECT_EQ(parse("0.5").toDouble(), 0.5);
}

TEST(JsonNumber, KeepsItsPointWhenTheHostWritesAComma) {
  const CommaLocale locale;
  if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma (package locales)";
  EXPECT_EQ(parse("0.5").toDouble(), 0.5);
  EXPECT_EQ(parse("[1.25,2]").toArray()->size(), 2U);
  EXPECT_EQ(parse("0.5").toString(), "0.500000");
}

TEST(JsonLiteral, IsAWholeWord) {
  EXPECT_EQ(parse("true").kind(), Kind::Bool);
  EXPECT_TRUE(parse("true").toBool());
  EXPECT_EQ(parse(" false ").kind(), Kind::Bool);
  EXPECT_FALSE(parse("false").toBool());
  EXPECT_EQ(parse("null").kind(), Kind::Null);
  EXPECT_EQ(errorOf("truex"), "Unexpected characters at the end of JSON.");
}

TEST(JsonString, ReplacesEscapes) {
  EXPECT_EQ(parse(R"("\"\\\/\b\f\n\r\t")").toString(), "\"\\/\b\f\n\r\t");
  EXPECT_EQ(parse(R"("a\tb")").toString(), "a\tb");
  EXPECT_EQ(parse(R"("\u0041\u00e9\u00E9\u20AC")").toString(), "A\xC3\xA9\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(parse(R"("\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF")").toString(),
            "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF");
  EXPECT_EQ(parse(R"("\u0000")").toString(), "\0"s);
}

TEST(JsonString, CombinesSurrogatePairs) {
  EXPECT_EQ(parse(R"("\uD83D\uDE00")").toString(), "\xF0\x9F\x98\x80");
  EXPECT_EQ(parse(R"("\ud800\udc00\uDBFF\uDFFF")").toString(), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(JsonString, PassesOtherBytesUnchecked) {
  EXPECT_EQ(parse("\"\xC3\xA9 \xFF\xC0\x80 \x7F\"").toString(), "\xC3\xA9 \xFF\xC0\x80 \x7F");
}

TEST(JsonString, IsReadOnItsOwnFromItsQuote) {
  std::size_t pos = 2;
  std::string text = "old";
  SwString error;
  EXPECT_TRUE(SwJsonDocument::parseString("[ \"a\\n\", 5]", pos, text, error));
  EXPECT_EQ(text, "a\n");
  EXPECT_EQ(pos, 7U);
  EXPECT_FALSE(SwJsonDocument::parseString("[ \"a\\n\", 5]", pos, text, error));
  EXPECT_EQ(error, "Invalid JSON token (index 7) near \"[ \"a\\n\", 5]\"");
}

TEST(JsonObject, IsSortedByBytesAndKeepsTheLastOfARepeatedKey) {
  const auto object = parse(R"({"b":1, "a":[1], "\u00e9":3, "B":4, "a":5, "":6})").toObject();
  std::ostringstream seen;
  for (const auto& [key, value] : *object) seen << key << '=' << value.toString() << ' ';
  EXPECT_EQ(seen.str(), "=6 B=4 a=5 b=1 \xC3\xA9=3 ");
}

TEST(JsonObject, TakesBlanksAroundEverything) {
  const auto object = parse(" { \"a\" : [ 1 , 2 ] ,\n\"b\"\v:\f{ } } ").toObject();
  EXPECT_EQ((*object)["a"].toArray()->size(), 2U);
  EXPECT_EQ((*object)["b"].toObject()->size(), 0U);
}

TEST(JsonArray, KeepsDocumentOrder) {
  const auto array = parse(R"([3, "x", [], {"k": null}, true])").toArray();
  ASSERT_EQ(array->size(), 5U);
  EXPECT_EQ((*array)[0].toInt64(), 3);
  EXPECT_EQ((*array)[1].toString(), "x");
  EXPECT_EQ((*array)[2].toArray()->size(), 0U);
  EXPECT_TRUE((*array)[3].toObject()->contains("k"));
  EXPECT_TRUE((*array)[4].toBool());
}

}  // namespace
