#pragma once

#include <cstddef>

/// The character classes of JSON text, by ASCII code: independent of the locale and safe for bytes above 127.
namespace sw {

/// White space between the values of a JSON text. Pure.
inline bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
/// A decimal digit of ASCII, whatever the locale. Pure.
inline bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// The value of a hexadecimal digit in either case; -1 for any other character.
inline int hexDigit(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace sw
