#include "sw_number.h"

#include <clocale>
#include <cstdlib>

#include <cerrno>
#include <climits>

#include <locale.h>

namespace sw {

double strtodC(const char* text, char** end) {
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  errno = 0;
  return strtod_l(text, end, cLocale);
}

bool tryStod(const std::string& text, double& value) {
  char* end = nullptr;
  const double converted = strtodC(text.c_str(), &end);
  if (end == text.c_str() || errno == ERANGE) return false;
  value = converted;
  return true;
}

bool tryStoi(const std::string& text, int& value) {
  char* end = nullptr;
  errno = 0;
  const long converted = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str() || errno == ERANGE || converted < INT_MIN || converted > INT_MAX) return false;
  value = static_cast<int>(converted);
  return true;
}

}  // namespace sw
