#include "evaluation/truth_rows.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <sstream>

#include "base/host_error.h"
#include "base/text_parts.h"

namespace host {
namespace {

constexpr const char* kSeparators = ",; \t";

constexpr std::array<const char*, 14> kColumnNames = {"frame", "id",  "target", "name", "x",     "left", "bb_left",
                                                      "y",     "top", "bb_top", "w",    "width", "h",    "height"};

std::vector<std::string> fieldsOf(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t at = line.find_first_not_of(kSeparators);
  while (at != std::string::npos) {
    const std::size_t end = line.find_first_of(kSeparators, at);
    fields.push_back(line.substr(at, end == std::string::npos ? end : end - at));
    at = end == std::string::npos ? end : line.find_first_not_of(kSeparators, end);
  }
  return fields;
}

/// Written as a number, whether it can be used or not: inf and 1e400 too.
bool looksLikeNumber(const std::string& field) {
  double value = 0;
  const std::size_t sign = field.find_first_not_of("+-") == 1 ? 1 : 0;
  const char* const end = field.data() + field.size();
  const auto [next, failed] = std::from_chars(field.data() + sign, end, value);
  return failed != std::errc::invalid_argument && next == end;
}

}  // namespace

std::vector<TruthRow> truthRowsOf(const std::string& text) {
  std::vector<TruthRow> rows;
  std::istringstream lines(text);
  std::string line;
  for (long number = 1; std::getline(lines, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    TruthRow row{number, fieldsOf(line)};
    if (!row.fields.empty() && row.fields.front().front() != '#') rows.push_back(std::move(row));
  }
  return rows;
}

bool tryTruthNumber(const std::string& field, double& value) {
  if (lowered(field) == "nan") {
    value = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  const std::size_t plus = field.size() > 1 && field[0] == '+' && field[1] != '-' ? 1 : 0;
  const char* const end = field.data() + field.size();
  const auto [next, failed] = std::from_chars(field.data() + plus, end, value);
  return failed == std::errc() && next == end && std::isfinite(value);
}

bool isTruthHeading(const TruthRow& row) {
  const auto isName = [](const std::string& field) {
    return std::find(kColumnNames.begin(), kColumnNames.end(), lowered(field)) != kColumnNames.end();
  };
  return std::none_of(row.fields.begin(), row.fields.end(), looksLikeNumber) &&
         std::any_of(row.fields.begin(), row.fields.end(), isName);
}

double truthNumberOf(const TruthRow& row, std::size_t column, const std::string& path) {
  double value = 0;
  const std::string& field = row.fields[column];
  if (!tryTruthNumber(field, value)) {
    refuseTruthRow(path, row.number, "'" + field + (looksLikeNumber(field) ? "' is not finite" : "' is not a number"));
  }
  return value;
}

void refuseTruthRow(const std::string& path, long row, const std::string& why) {
  throw HostError(ExitCode::Usage, "truth '" + path + "', row " + std::to_string(row) + ": " + why);
}

}  // namespace host
