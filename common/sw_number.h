#pragma once

#include <string>

/// Text to number as the standard library does it, but always in the C locale: the host may run with a decimal comma.
/// Free of state, any thread.
namespace sw {

/// `strtod` in the C locale; clears errno first, so that ERANGE afterwards is this call's own.
/// @param text  zero-terminated
/// @param end   receives the first byte not consumed
double strtodC(const char* text, char** end);

/// `std::stod` rules: leading white space, decimal, hexadecimal, infinity and NaN forms; trailing bytes are ignored.
/// @return false when nothing converts or the value leaves the range of a double; `value` is then untouched
bool tryStod(const std::string& text, double& value);

/// `std::stoi` rules, base 10: leading white space and a sign are allowed; trailing bytes are ignored.
/// @return false when no digit is found or the value leaves the range of an int; `value` is then untouched
bool tryStoi(const std::string& text, int& value);

}  // namespace sw
