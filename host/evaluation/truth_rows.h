// The rows of a truth file, before anybody knows what they mean.
#pragma once

#include <string>
#include <vector>

namespace host {

/// A row of the file and where it stands, so that an error can say so.
struct TruthRow {
  long number = 0;                  ///< Line in the file, counted from 1.
  std::vector<std::string> fields;  ///< The values as text, without blanks around them.
};

/// Values are separated by commas, semicolons, tabs or blanks. Empty lines and those that begin with # are left out.
/// Either kind of line end will do. Pure.
std::vector<TruthRow> truthRowsOf(const std::string& text);

/// "nan" in any letters gives NaN; infinite numbers are no numbers here. Pure.
bool tryTruthNumber(const std::string& field, double& value);

/// A row of words that names at least one column of a table: frame, x, ... Pure.
bool isTruthHeading(const TruthRow& row);

/// The value as a number. @throws HostError (Usage) naming file, row and value when it is none, or not finite
double truthNumberOf(const TruthRow& row, std::size_t column, const std::string& path);

/// @throws HostError (Usage) naming file and row
[[noreturn]] void refuseTruthRow(const std::string& path, long row, const std::string& why);

}  // namespace host
