// Figures over a list of numbers.
#pragma once

#include <vector>

namespace host {

/// The value below which `share` of the values lie, such as 0.5 for the median; 0 without values. Pure.
double quantile(std::vector<double> values, double share);

}  // namespace host
