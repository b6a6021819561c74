#include "commands/plain_refusal.h"

#include <cstddef>
#include <regex>

namespace host {
namespace {

/// "0.100000" as a person writes it.
std::string shortNumber(const std::string& number) {
  if (number.find('.') == std::string::npos) return number;
  const std::size_t last = number.find_last_not_of('0');
  return number.substr(0, number[last] == '.' ? last : last + 1);
}

std::string withSpaces(const std::string& list) {
  return std::regex_replace(list, std::regex(","), ", ");
}

}  // namespace

std::string plainRefusal(const std::string& text) {
  std::smatch part;
  // Versions of the parser write "1 to 256" or "[1 - 256]".
  static const std::regex range(R"((\S+): Value (.*) not in range \[?(-?[0-9.e+]+) (?:to|-) (-?[0-9.e+]+)\]?)");
  if (std::regex_match(text, part, range)) {
    return part[1].str() + " " + part[2].str() + " is not between " + shortNumber(part[3]) + " and " +
           shortNumber(part[4]);
  }
  static const std::regex member(R"((\S+): (.*) not in \{(.*)\})");
  if (std::regex_match(text, part, member)) {
    return part[1].str() + " '" + part[2].str() + "' is not one of " + withSpaces(part[3]);
  }
  return text;
}

}  // namespace host
