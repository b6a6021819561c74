#pragma once

#include <cstdint>
#include <string>

/// A standard string of UTF-8 bytes with the operations that the JSON library needs.
/// Numeric conversions first trim space, tab, line feed and carriage return from both ends and then drop every '_'
/// (a digit-group separator: `1_000` is 1000). They read in the C locale whatever the host has set.
/// Integer forms: an optional sign, then `0b`/`0B` and binary digits, or what `strtoll` reads with base 0 (decimal,
/// `0x` hexadecimal, a leading 0 for octal); the whole text must belong to the number.
/// Threads: const operations may run at the same time.
class SwString : public std::string {
 public:
  using std::string::string;
  SwString() = default;
  SwString(const std::string& text) : std::string(text) {}        // NOLINT: a plain string is one
  SwString(std::string&& text) : std::string(std::move(text)) {}  // NOLINT

  /// @param position  byte offset, [0, size()]
  /// @param length    bytes at most; negative: all that follow
  /// @throws std::out_of_range when `position` lies beyond the end (or is negative)
  SwString mid(int position, int length) const;

  /// Reads an integer form.
  /// @param ok  when given, tells success
  /// @return    the value; 0 on failure (no digits, bytes left over, beyond 32 bits), with one line on standard error
  int toInt(bool* ok = nullptr) const;

  /// Reads a number as parseNumericDouble() does, but all of the text must belong to it.
  /// @param ok  when given, tells success
  /// @return    the value; 0.0 on failure, with one line on standard error
  double toDouble(bool* ok = nullptr) const;

  /// Lenient: a text with '.', 'e' or 'E' must be a whole `strtod` number; any other text is tried as an integer form
  /// and then by the rules of `std::stod`, which ignore trailing bytes.
  /// @return false when nothing converts; `value` is then untouched
  bool parseNumericDouble(double& value) const;

  /// An integer form of up to 64 bits.
  /// @return false when the text is no integer form or too large; `value` is then untouched
  bool tryInteger(std::int64_t& value) const;

  /// A whole `strtod` number (decimal, hexadecimal, infinity and NaN forms), nothing left over.
  /// @return false otherwise; `value` is then untouched
  bool tryWholeDouble(double& value) const;

  /// Decrypts this base64 text, see SwCrypto::decryptAES().
  /// @throws what SwCrypto::decryptAES() throws, after writing "Decryption error: ..." to standard error
  SwString decryptAES(SwString const& key) const;
};
