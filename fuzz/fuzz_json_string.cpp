// Any bytes as a string literal, read from any place in them.
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "sw_json.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const SwString json(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  const std::size_t start = data[0] == '0' ? 0 : data[0] % (json.size() + 2);  // two places lie beyond the text
  std::size_t pos = start;
  std::string text = "left over";
  SwString error;
  const bool read = SwJsonDocument::parseString(json, pos, text, error);
  fuzzCheck(read == error.empty(), "a message for every failure");
  fuzzCheck(!read || (pos <= json.size() && pos >= start + 2), "two quotes at least");
  fuzzCheck(!read || json[pos - 1] == '"', "the place is past the closing quote");
  fuzzCheck(!read || text.size() <= pos - start - 2, "no escape is shorter than what it stands for");

  const SwString number(text);
  bool ok = false;
  double value = 0.0;
  std::int64_t integer = 0;
  const bool whole = number.tryInteger(integer);
  fuzzCheck(!whole || number.find_first_of(".eE") != std::string::npos || number.parseNumericDouble(value),
            "an integer is a number too");
  if (whole && integer >= INT32_MIN && integer <= INT32_MAX) {
    fuzzCheck(number.toInt(&ok) == integer && ok, "both integer conversions agree");
  }
  return 0;
}
