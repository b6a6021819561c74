// SwString: what the lenient conversions accept, refuse and say, and the piece of text that mid() cuts.
#include "sw_string.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "support/comma_locale.h"
#include "sw_number.h"

namespace {

using namespace std::string_literals;

struct IntCase {
  SwString text;
  std::optional<int> value;  // none: the conversion fails
};

const IntCase kIntCases[] = {
    {" 42\n", 42},
    {"\t-7\r\n", -7},
    {"+7", 7},
    {"4_2", 42},
    {"1_000", 1000},
    {"_1__0_", 10},
    {"0x1F", 31},
    {"0X1f", 31},
    {"-0x10", -16},
    {"0b101", 5},
    {"0B11", 3},
    {"-0b101", -5},
    {"+0b1", 1},
    {"0b_1_0", 2},
    {"010", 8},
    {"0", 0},
    {"-0", 0},
    {"2147483647", 2147483647},
    {"-2147483648", std::numeric_limits<int>::min()},
    {"-0b10000000000000000000000000000000", std::numeric_limits<int>::min()},
    {"2147483648", {}},
    {"-2147483649", {}},
    {"0b10000000000000000000000000000000", {}},
    {"99999999999999999999", {}},
    {"", {}},
    {" \t\r\n", {}},
    {"_", {}},
    {"+", {}},
    {"--5", {}},
    {"+-5", {}},
    {"- 5", {}},
    {"0b", {}},
    {"0b2", {}},
    {"0b12", {}},
    {"0b-1", {}},
    {"0x", {}},
    {"0xG", {}},
    {"089", {}},
    {"12x", {}},
    {"1 2", {}},
    {"1.0", {}},
    {"1e3", {}},
    {"5\0"s, {}},
    {"abc", {}},
};

TEST(SwStringToInt, ReadsEveryIntegerFormAndFailsOnTheRest) {
  for (const IntCase& c : kIntCases) {
    bool ok = !c.value.has_value();
    testing::internal::CaptureStderr();
    const int value = c.text.toInt(&ok);
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_EQ(ok, c.value.has_value()) << '"' << c.text << '"';
    EXPECT_EQ(value, c.value.value_or(0)) << '"' << c.text << '"';
    EXPECT_EQ(complaint.empty(), c.value.has_value()) << '"' << c.text << '"';
  }
}

TEST(SwStringToInt, ComplainsWithTheUntrimmedTextWhenNoFlagIsGiven) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(SwString(" 12x ").toInt(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid int conversion in SwString:  12x \n");
}

TEST(SwStringToInt, IgnoresAnErrorThatHappenedEarlier) {
  errno = ERANGE;
  bool ok = false;
  EXPECT_EQ(SwString("42").toInt(&ok), 42);
  EXPECT_TRUE(ok);
}

struct DoubleCase {
  SwString text;
  std::optional<double> value;
};

const DoubleCase kDoubleCases[] = {
    {"1.5e3", 1500.0},
    {" 1_0.2_5 ", 10.25},
    {".5", 0.5},
    {"5.", 5.0},
    {"-1E-2", -0.01},
    {"0x1.8p1", 3.0},
    {"1e400", std::numeric_limits<double>::infinity()},  // strtod consumed it all
    {"2147483648", 2147483648.0},
    {" 42\n", 42.0},
    {"0x1F", 31.0},
    {"0b101", 5.0},
    {"-0b101", -5.0},
    {"010", 8.0},
    {"-9223372036854775808", -9223372036854775808.0},
    {"9223372036854775808", 9223372036854775808.0},  // too large for the integer form: read as a double
    {"0b1000000000000000000000000000000000000000000000000000000000000000", 0.0},  // 2^63: only the "0" is left to read
    {"64px", 64.0},  // the last attempt ignores what follows the number
    {"089", 89.0},
    {"inf", std::numeric_limits<double>::infinity()},
    {"1.5x", {}},
    {"1e", {}},
    {"1e5_x", {}},
    {".", {}},
    {"px", {}},
    {"0.5\0"s, {}},
    {"", {}},
    {" \n", {}},
    {"_", {}},
};

TEST(SwStringParseNumericDouble, ReadsNumbersAndLeavesTheValueAloneOnFailure) {
  for (const DoubleCase& c : kDoubleCases) {
    double value = -77.5;
    EXPECT_EQ(c.text.parseNumericDouble(value), c.value.has_value()) << '"' << c.text << '"';
    EXPECT_EQ(value, c.value.value_or(-77.5)) << '"' << c.text << '"';
  }
}

TEST(SwStringParseNumericDouble, ReadsNaN) {
  double value = 0.0;
  EXPECT_TRUE(SwString("nan").parseNumericDouble(value));
  EXPECT_TRUE(std::isnan(value));
}

TEST(SwStringToDouble, WantsTheWholeText) {
  bool ok = false;
  EXPECT_EQ(SwString(" 0x10 ").toDouble(&ok), 16.0);
  EXPECT_TRUE(ok);
  EXPECT_EQ(SwString("1_0.5").toDouble(&ok), 10.5);
  EXPECT_TRUE(ok);
  testing::internal::CaptureStderr();
  EXPECT_EQ(SwString(" 64px").toDouble(&ok), 0.0);
  EXPECT_FALSE(ok);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Invalid float conversion in SwString:  64px\n");
}

TEST(SwStringTryInteger, HoldsSixtyFourBits) {
  std::int64_t value = 5;
  EXPECT_TRUE(SwString("9223372036854775807").tryInteger(value));
  EXPECT_EQ(value, std::numeric_limits<std::int64_t>::max());
  EXPECT_TRUE(SwString("-0b1000000000000000000000000000000000000000000000000000000000000000").tryInteger(value));
  EXPECT_EQ(value, std::numeric_limits<std::int64_t>::min());
  value = 5;
  EXPECT_FALSE(SwString("9223372036854775808").tryInteger(value));
  EXPECT_FALSE(SwString("0b10000000000000000000000000000000000000000000000000000000000000000").tryInteger(value));
  EXPECT_EQ(value, 5);
}

TEST(SwStringMid, CutsByBytes) {
  const SwString text = "abcdef";
  EXPECT_EQ(text.mid(0, 3), "abc");
  EXPECT_EQ(text.mid(4, 20), "ef");
  EXPECT_EQ(text.mid(6, 1), "");
  EXPECT_EQ(text.mid(2, -1), "cdef");
  EXPECT_EQ(text.mid(2, 0), "");
  EXPECT_THROW(text.mid(7, 1), std::out_of_range);
  EXPECT_THROW(text.mid(-1, 1), std::out_of_range);
}

TEST(StandardNumberRules, StodTakesALeadingNumber) {
  double value = -77.5;
  EXPECT_TRUE(sw::tryStod(" \t1.25abc", value));
  EXPECT_EQ(value, 1.25);
  EXPECT_TRUE(sw::tryStod("0x10", value));
  EXPECT_EQ(value, 16.0);
  EXPECT_TRUE(sw::tryStod("-inf", value));
  EXPECT_EQ(value, -std::numeric_limits<double>::infinity());
  value = -77.5;
  for (const char* const text : {"", "abc", "1e999", "-1e999", "1e-999", "4e-320", "--1"}) {
    EXPECT_FALSE(sw::tryStod(text, value)) << text;
    EXPECT_EQ(value, -77.5) << text;
  }
}

TEST(StandardNumberRules, StoiTakesALeadingDecimalInteger) {
  int value = -77;
  EXPECT_TRUE(sw::tryStoi(" \n+64px", value));
  EXPECT_EQ(value, 64);
  EXPECT_TRUE(sw::tryStoi("010", value));
  EXPECT_EQ(value, 10);
  EXPECT_TRUE(sw::tryStoi("0x10", value));
  EXPECT_EQ(value, 0);
  EXPECT_TRUE(sw::tryStoi("2147483647", value));
  EXPECT_EQ(value, std::numeric_limits<int>::max());
  EXPECT_TRUE(sw::tryStoi("-2147483648", value));
  EXPECT_EQ(value, std::numeric_limits<int>::min());
  value = -77;
  for (const char* const text : {"", "px", "2147483648", "-2147483649", "99999999999999999999", "- 1"}) {
    EXPECT_FALSE(sw::tryStoi(text, value)) << text;
    EXPECT_EQ(value, -77) << text;
  }
}

TEST(Numbers, KeepTheirPointWhenTheHostWritesAComma) {
  const CommaLocale locale;
  if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma (package locales)";
  double value = 0.0;
  EXPECT_TRUE(SwString("0.5").parseNumericDouble(value));
  EXPECT_EQ(value, 0.5);
  EXPECT_TRUE(SwString("0,5").parseNumericDouble(value));  // the number ends at the comma
  EXPECT_EQ(value, 0.0);
  EXPECT_TRUE(sw::tryStod("0.25", value));
  EXPECT_EQ(value, 0.25);
  EXPECT_EQ(SwString("1.5").toDouble(), 1.5);
}

}  // namespace
