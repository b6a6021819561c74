// The tables as JSON, for plots and for comparing by other programs.
#pragma once

#include <nlohmann/json.hpp>

#include "intervals.h"
#include "options.h"

namespace bench {

/// {"walkers": {half, starts, groups: [{engine, preset, guard, mean: {figure: [value, low, high]}, less_off: the same,
/// walks: [...]}]}}; figures that count targets are shares of them.
nlohmann::ordered_json walkersJson(const GuardOptions& options, const std::vector<Group>& groups);

/// One walk: target, start, marks and what came of them.
nlohmann::ordered_json walkJson(const Walk& walk);

}  // namespace bench
