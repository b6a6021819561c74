#include "base/statistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace host {

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0.0;
  const auto rank = static_cast<std::size_t>(std::ceil(share * static_cast<double>(values.size())));
  const std::size_t index = std::min(values.size() - 1, rank > 0 ? rank - 1 : 0);
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
  return values[index];
}

}  // namespace host
