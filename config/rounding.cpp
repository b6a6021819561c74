#include "rounding.h"

#include <cmath>
#include <limits>

int roundToInt(double value) {
  return truncateToInt(std::round(value));
}

int truncateToInt(double value) {
  if (std::isnan(value)) return 0;
  if (value <= std::numeric_limits<int>::min()) return std::numeric_limits<int>::min();
  if (value >= std::numeric_limits<int>::max()) return std::numeric_limits<int>::max();
  return static_cast<int>(value);
}
