#include "evaluation/truth.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <limits>
#include <map>
#include <sstream>

#include "base/host_error.h"
#include "base/text_file.h"

namespace host {
namespace {

constexpr const char* kSeparators = ",; \t";

/// A row of the file and where it stands, so that an error can say so.
struct Row {
  long number = 0;  ///< Line in the file, counted from 1.
  std::vector<std::string> fields;
};

[[noreturn]] void refuse(const std::string& path, long row, const std::string& why) {
  throw HostError(ExitCode::Usage, "truth '" + path + "', row " + std::to_string(row) + ": " + why);
}

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

std::vector<Row> rowsOf(const std::string& text) {
  std::vector<Row> rows;
  std::istringstream lines(text);
  std::string line;
  for (long number = 1; std::getline(lines, line); ++number) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    Row row{number, fieldsOf(line)};
    if (!row.fields.empty() && row.fields.front().front() != '#') rows.push_back(std::move(row));
  }
  return rows;
}

bool tryNumber(const std::string& field, double& value) {
  if (field == "nan" || field == "NaN" || field == "NAN") {
    value = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  const char* const end = field.data() + field.size();
  const auto [next, failed] = std::from_chars(field.data(), end, value);
  return failed == std::errc() && next == end && std::isfinite(value);
}

double numberOf(const Row& row, std::size_t column, const std::string& path) {
  double value = 0;
  if (!tryNumber(row.fields[column], value)) {
    refuse(path, row.number, "'" + row.fields[column] + "' is not a number");
  }
  return value;
}

std::vector<double> numbersOf(const Row& row, const std::string& path) {
  std::vector<double> numbers;
  for (std::size_t i = 0; i < row.fields.size(); ++i) numbers.push_back(numberOf(row, i, path));
  return numbers;
}

TruthMark markOf(long frame, double x, double y, double width, double height) {
  TruthMark mark;
  mark.frame = frame;
  mark.box = {x, y, width, height};
  mark.absent = !std::isfinite(x + y + width + height) || width <= 0 || height <= 0;
  if (mark.absent) mark.box = {};
  return mark;
}

TruthMark markAroundCorners(long frame, const std::vector<double>& corners) {
  double left = corners[0];
  double right = corners[0];
  double top = corners[1];
  double bottom = corners[1];
  bool known = true;
  for (std::size_t i = 0; i < corners.size(); i += 2) {
    known = known && std::isfinite(corners[i]) && std::isfinite(corners[i + 1]);
    left = std::min(left, corners[i]);
    right = std::max(right, corners[i]);
    top = std::min(top, corners[i + 1]);
    bottom = std::max(bottom, corners[i + 1]);
  }
  return known ? markOf(frame, left, top, right - left, bottom - top) : markOf(frame, 0, 0, 0, 0);
}

bool isHeading(const Row& row) {
  double ignored = 0;
  return !tryNumber(row.fields.front(), ignored);
}

TruthFormat recognise(const std::vector<Row>& rows, const std::string& path) {
  const Row& first = rows.front();
  if (isHeading(first)) return TruthFormat::Csv;
  const std::size_t count = first.fields.size();
  if (count == 4) return TruthFormat::Rect;
  if (count == 6) return TruthFormat::Csv;
  if (count >= 8 && count % 2 == 0) return TruthFormat::Polygon;
  refuse(path, first.number,
         std::to_string(count) + " values are neither a box (4), a polygon (8 or more) nor frame,id,x,y,w,h (6)");
}

std::vector<TruthTarget> oneTarget(const std::vector<Row>& rows, const std::string& path, TruthFormat format,
                                   const std::string& name) {
  TruthTarget target;
  target.name = name;
  for (const Row& row : rows) {
    const std::vector<double> v = numbersOf(row, path);
    const long frame = static_cast<long>(target.marks.size());
    if (format == TruthFormat::Rect) {
      if (v.size() != 4)
        refuse(path, row.number, "expected x,y,width,height, found " + std::to_string(v.size()) + " values");
      target.marks.push_back(markOf(frame, v[0], v[1], v[2], v[3]));
    } else {
      if (v.size() < 6 || v.size() % 2 != 0) {
        refuse(path, row.number, "expected the corners x1,y1,x2,y2,..., found " + std::to_string(v.size()) + " values");
      }
      target.marks.push_back(markAroundCorners(frame, v));
    }
  }
  return {target};
}

/// Which column holds what; a heading may name them in another order.
struct CsvColumns {
  std::size_t frame = 0, id = 1, x = 2, y = 3, width = 4, height = 5;
  std::size_t count = 6;  ///< Values that a row must at least have.
};

CsvColumns columnsOf(const Row& heading, const std::string& path) {
  std::map<std::string, std::size_t> found;
  for (std::size_t i = 0; i < heading.fields.size(); ++i) found.emplace(heading.fields[i], i);
  const auto column = [&](std::initializer_list<const char*> names) {
    for (const char* name : names) {
      const auto it = found.find(name);
      if (it != found.end()) return it->second;
    }
    refuse(path, heading.number, std::string("the heading has no column '") + *names.begin() + "'");
  };
  CsvColumns c;
  c.frame = column({"frame"});
  c.id = column({"id", "target", "name"});
  c.x = column({"x", "left", "bb_left"});
  c.y = column({"y", "top", "bb_top"});
  c.width = column({"w", "width", "bb_width"});
  c.height = column({"h", "height", "bb_height"});
  c.count = 1 + std::max({c.frame, c.id, c.x, c.y, c.width, c.height});
  return c;
}

long frameOf(const Row& row, const CsvColumns& columns, const std::string& path, long firstNumber) {
  const double number = numberOf(row, columns.frame, path);
  if (number != std::floor(number) || !(std::abs(number) < 1e9)) {
    refuse(path, row.number, "'" + row.fields[columns.frame] + "' is not the number of a frame");
  }
  if (number < static_cast<double>(firstNumber)) {
    refuse(path, row.number,
           "frame " + row.fields[columns.frame] + " lies before the first frame, which has the number " +
               std::to_string(firstNumber) + " (see --first-number)");
  }
  return static_cast<long>(number) - firstNumber;
}

/// 2 before 10, numbers before words.
bool nameLess(const std::string& a, const std::string& b) {
  double x = 0;
  double y = 0;
  const bool isX = tryNumber(a, x);
  const bool isY = tryNumber(b, y);
  if (isX && isY && x != y) return x < y;
  if (isX != isY) return isX;
  return a < b;
}

std::vector<TruthTarget> manyTargets(const std::vector<Row>& rows, const std::string& path, long firstNumber) {
  const bool heading = isHeading(rows.front());
  const CsvColumns columns = heading ? columnsOf(rows.front(), path) : CsvColumns();
  std::map<std::string, std::map<long, TruthMark>> marks;
  for (std::size_t i = heading ? 1 : 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    if (row.fields.size() < columns.count) {
      refuse(path, row.number, "expected frame,id,x,y,w,h, found " + std::to_string(row.fields.size()) + " values");
    }
    const auto value = [&](std::size_t column) { return numberOf(row, column, path); };
    const long frame = frameOf(row, columns, path, firstNumber);
    const std::string& id = row.fields[columns.id];
    const TruthMark mark =
        markOf(frame, value(columns.x), value(columns.y), value(columns.width), value(columns.height));
    if (!marks[id].emplace(frame, mark).second) {
      refuse(path, row.number, "target '" + id + "' is marked twice in frame " + row.fields[columns.frame]);
    }
  }
  std::vector<TruthTarget> targets;
  for (const auto& [id, byFrame] : marks) {
    TruthTarget target;
    target.name = id;
    for (const auto& [frame, mark] : byFrame) target.marks.push_back(mark);
    targets.push_back(std::move(target));
  }
  std::sort(targets.begin(), targets.end(),
            [](const TruthTarget& a, const TruthTarget& b) { return nameLess(a.name, b.name); });
  return targets;
}

}  // namespace

long TruthTarget::firstVisibleMark() const {
  for (std::size_t i = 0; i < marks.size(); ++i) {
    if (!marks[i].absent) return static_cast<long>(i);
  }
  return -1;
}

TruthFormat truthFormatOf(const std::string& word) {
  if (word == "auto") return TruthFormat::Auto;
  if (word == "rect" || word == "otb" || word == "got10k") return TruthFormat::Rect;
  if (word == "polygon" || word == "vot") return TruthFormat::Polygon;
  if (word == "csv") return TruthFormat::Csv;
  throw HostError(ExitCode::Usage, "--format '" + word + "' is not one of auto, otb, got10k, vot, csv");
}

std::vector<TruthTarget> parseTruth(const std::string& text, const std::string& path, const TruthOptions& options,
                                    const std::string& name) {
  const std::vector<Row> rows = rowsOf(text);
  if (rows.empty()) throw HostError(ExitCode::Usage, "truth '" + path + "' holds no rows");
  const TruthFormat format = options.format == TruthFormat::Auto ? recognise(rows, path) : options.format;
  std::vector<TruthTarget> targets =
      format == TruthFormat::Csv ? manyTargets(rows, path, options.firstNumber) : oneTarget(rows, path, format, name);
  for (const TruthTarget& target : targets) {
    if (target.firstVisibleMark() >= 0) return targets;
  }
  throw HostError(ExitCode::Usage, "truth '" + path + "' marks no target anywhere");
}

void applyAbsence(const std::string& text, const std::string& path, TruthTarget& target) {
  const std::vector<Row> rows = rowsOf(text);
  if (rows.size() != target.marks.size()) {
    throw HostError(ExitCode::Usage, "'" + path + "' has " + std::to_string(rows.size()) + " rows for " +
                                         std::to_string(target.marks.size()) + " frames of truth");
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::vector<std::string>& fields = rows[i].fields;
    if (fields.size() != 1 || (fields[0] != "0" && fields[0] != "1")) {
      refuse(path, rows[i].number, "expected 0 (in the picture) or 1 (absent)");
    }
    if (fields[0] == "1") target.marks[i].absent = true;
  }
}

std::vector<TruthTarget> readTruth(const std::string& path, const TruthOptions& options, const std::string& name) {
  std::vector<TruthTarget> targets = parseTruth(readTextFile(path), path, options, name);
  if (options.absentFile.empty()) return targets;
  if (targets.size() != 1) {
    throw HostError(ExitCode::Usage, "'" + options.absentFile + "' needs a truth file with one target");
  }
  applyAbsence(readTextFile(options.absentFile), options.absentFile, targets.front());
  return targets;
}

}  // namespace host
