// What kind of truth a file holds, told from what is in it.
#pragma once

#include <string>
#include <vector>

#include "evaluation/truth.h"
#include "evaluation/truth_rows.h"

namespace host {

/// A heading or six values are a table, four values boxes. Seven values and more are a MOT table or the corners of
/// polygons: a table's first two values are whole numbers that never come twice, and polygons are convex as a rule.
/// What fits neither or both is refused: the reader must not guess.
/// @param rows  at least one. @throws HostError (Usage) naming file and row, or the formats to choose from
TruthFormat recogniseTruth(const std::vector<TruthRow>& rows, const std::string& path);

}  // namespace host
