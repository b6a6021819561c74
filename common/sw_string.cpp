#include "sw_string.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <limits>

#include "sw_crypto.h"
#include "sw_number.h"

namespace {

constexpr const char* kBlanks = " \t\n\r";

// The text every conversion reads: trimmed, without '_'. Wiped when done: it may hold a decrypted value.
class Prepared {
 public:
  explicit Prepared(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return;
    text_ = text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
    text_.erase(std::remove(text_.begin(), text_.end(), '_'), text_.end());
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
  SwWipe<std::string> wipe_{text_};
};

bool looksFloating(const std::string& text) {
  return text.find_first_of(".eE") != std::string::npos;
}

bool applySign(std::uint64_t magnitude, bool negative, std::int64_t& value) {
  constexpr auto kMax = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  if (magnitude > kMax + (negative ? 1U : 0U)) return false;
  value = static_cast<std::int64_t>(negative ? std::uint64_t{0} - magnitude : magnitude);
  return true;
}

// Binary digits from `at` to the end of the text.
bool tryBinary(const std::string& text, std::size_t at, bool negative, std::int64_t& value) {
  if (at == text.size()) return false;
  std::uint64_t magnitude = 0;
  for (; at < text.size(); ++at) {
    const bool digit = text[at] == '0' || text[at] == '1';
    if (!digit || (magnitude >> 63) != 0) return false;
    magnitude = (magnitude << 1) | (text[at] == '1' ? 1U : 0U);
  }
  return applySign(magnitude, negative, value);
}

bool tryIntegerForm(const std::string& text, std::int64_t& value) {
  if (text.empty()) return false;
  const std::size_t digits = text[0] == '+' || text[0] == '-' ? 1 : 0;
  if (text.compare(digits, 2, "0b") == 0 || text.compare(digits, 2, "0B") == 0) {
    return tryBinary(text, digits + 2, text[0] == '-', value);
  }
  char* end = nullptr;
  errno = 0;
  const long long converted = std::strtoll(text.c_str(), &end, 0);
  if (end == text.c_str() || end != text.c_str() + text.size() || errno == ERANGE) return false;
  value = converted;
  return true;
}

bool tryWhole(const std::string& text, double& value) {
  char* end = nullptr;
  const double converted = sw::strtodC(text.c_str(), &end);
  if (end == text.c_str() || end != text.c_str() + text.size()) return false;
  value = converted;
  return true;
}

}  // namespace

SwString SwString::mid(int position, int length) const {
  return substr(static_cast<std::size_t>(position), length < 0 ? npos : static_cast<std::size_t>(length));
}

int SwString::toInt(bool* ok) const {
  std::int64_t wide = 0;
  const bool valid = tryInteger(wide) && wide >= INT_MIN && wide <= INT_MAX;
  if (ok != nullptr) *ok = valid;
  if (valid) return static_cast<int>(wide);
  std::cerr << "Invalid int conversion in SwString: " << *this << '\n';
  return 0;
}

double SwString::toDouble(bool* ok) const {
  std::int64_t integer = 0;
  double value = 0.0;
  const bool isInteger = tryInteger(integer);
  const bool valid = isInteger || tryWholeDouble(value);
  if (ok != nullptr) *ok = valid;
  if (valid) return isInteger ? static_cast<double>(integer) : value;
  std::cerr << "Invalid float conversion in SwString: " << *this << '\n';
  return 0.0;
}

bool SwString::parseNumericDouble(double& value) const {
  const Prepared prepared(*this);
  if (looksFloating(prepared.text())) return tryWhole(prepared.text(), value);
  std::int64_t integer = 0;
  if (!tryIntegerForm(prepared.text(), integer)) return sw::tryStod(prepared.text(), value);
  value = static_cast<double>(integer);
  return true;
}

bool SwString::tryInteger(std::int64_t& value) const {
  return tryIntegerForm(Prepared(*this).text(), value);
}

bool SwString::tryWholeDouble(double& value) const {
  return tryWhole(Prepared(*this).text(), value);
}

SwString SwString::decryptAES(SwString const& key) const {
  try {
    std::string plain = SwCrypto::decryptAES(*this, key);
    const SwWipe wipe(plain);
    return SwString(plain);
  } catch (const std::exception& e) {
    std::cerr << "Decryption error: " << e.what() << '\n';
    throw;
  }
}
