#include "evaluation/truth.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>

#include "base/host_error.h"
#include "base/text_file.h"
#include "base/text_parts.h"
#include "evaluation/truth_format.h"
#include "evaluation/truth_rows.h"

namespace host {
namespace {

using Row = TruthRow;

std::vector<double> numbersOf(const Row& row, const std::string& path) {
  std::vector<double> numbers;
  for (std::size_t i = 0; i < row.fields.size(); ++i) numbers.push_back(truthNumberOf(row, i, path));
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

std::vector<TruthTarget> oneTarget(const std::vector<Row>& rows, const std::string& path, TruthFormat format,
                                   const std::string& name) {
  TruthTarget target;
  target.name = name;
  for (const Row& row : rows) {
    const std::vector<double> v = numbersOf(row, path);
    const long frame = static_cast<long>(target.marks.size());
    if (format == TruthFormat::Rect) {
      if (v.size() != 4)
        refuseTruthRow(path, row.number, "expected x,y,width,height, found " + std::to_string(v.size()) + " values");
      target.marks.push_back(markOf(frame, v[0], v[1], v[2], v[3]));
    } else {
      if (v.size() < 6 || v.size() % 2 != 0) {
        refuseTruthRow(path, row.number,
                       "expected the corners x1,y1,x2,y2,..., found " + std::to_string(v.size()) + " values");
      }
      target.marks.push_back(markAroundCorners(frame, v));
    }
  }
  return {target};
}

/// Which column holds what; a heading may name them in another order, and leave out what says nothing new.
struct CsvColumns {
  static constexpr std::size_t kNone = std::string::npos;
  std::size_t frame = 0;  ///< kNone: a row a frame, from the first on.
  std::size_t id = 1;     ///< kNone: all rows are of one target.
  std::size_t x = 2, y = 3, width = 4, height = 5;
  std::size_t counts = kNone;  ///< 0 there: the row is not to be judged.
  std::size_t count = 6;       ///< Values that a row must at least have.
  std::string named = "frame,id,x,y,w,h";
};

CsvColumns columnsOf(const Row& heading, const std::string& path) {
  std::map<std::string, std::size_t> found;
  CsvColumns c;
  c.named.clear();
  for (std::size_t i = 0; i < heading.fields.size(); ++i) {
    found.emplace(lowered(heading.fields[i]), i);
    c.named += (i > 0 ? "," : "") + heading.fields[i];
  }
  const auto optional = [&](std::initializer_list<const char*> names) {
    for (const char* name : names) {
      const auto it = found.find(name);
      if (it != found.end()) return it->second;
    }
    return CsvColumns::kNone;
  };
  const auto column = [&](std::initializer_list<const char*> names) {
    const std::size_t at = optional(names);
    if (at == CsvColumns::kNone) {
      refuseTruthRow(path, heading.number, std::string("the heading has no column '") + *names.begin() + "'");
    }
    return at;
  };
  c.id = optional({"id", "target", "name"});
  c.frame = c.id == CsvColumns::kNone ? optional({"frame"}) : column({"frame"});
  c.x = column({"x", "left", "bb_left"});
  c.y = column({"y", "top", "bb_top"});
  c.width = column({"w", "width", "bb_width"});
  c.height = column({"h", "height", "bb_height"});
  const auto last = [](std::size_t at) { return at == CsvColumns::kNone ? 0 : at; };
  c.count = 1 + std::max({last(c.frame), last(c.id), c.x, c.y, c.width, c.height});
  return c;
}

CsvColumns columnsOf(const std::vector<Row>& rows, const std::string& path, TruthFormat format) {
  if (isTruthHeading(rows.front())) return columnsOf(rows.front(), path);
  CsvColumns columns;
  if (format == TruthFormat::Mot && rows.front().fields.size() > columns.count) columns.counts = columns.count;
  return columns;
}

long frameOf(const Row& row, const CsvColumns& columns, const std::string& path, long firstNumber) {
  const double number = truthNumberOf(row, columns.frame, path);
  if (number != std::floor(number) || !(std::abs(number) < 1e9)) {
    refuseTruthRow(path, row.number, "'" + row.fields[columns.frame] + "' is not the number of a frame");
  }
  if (number < static_cast<double>(firstNumber)) {
    refuseTruthRow(path, row.number,
                   "frame " + row.fields[columns.frame] + " lies before the first frame, which has the number " +
                       std::to_string(firstNumber) + " (see --first-number)");
  }
  return static_cast<long>(number) - firstNumber;
}

/// 2 before 10, numbers before words.
bool nameLess(const std::string& a, const std::string& b) {
  double x = 0;
  double y = 0;
  const bool isX = tryTruthNumber(a, x);
  const bool isY = tryTruthNumber(b, y);
  if (isX && isY && x != y) return x < y;
  if (isX != isY) return isX;
  return a < b;
}

std::vector<TruthTarget> manyTargets(const std::vector<Row>& rows, const std::string& path, const TruthOptions& options,
                                     TruthFormat format, const std::string& onlyName) {
  const std::size_t heading = isTruthHeading(rows.front()) ? 1 : 0;
  const CsvColumns columns = columnsOf(rows, path, format);
  std::map<std::string, std::map<long, TruthMark>> marks;
  for (std::size_t i = heading; i < rows.size(); ++i) {
    const Row& row = rows[i];
    if (row.fields.size() < columns.count) {
      refuseTruthRow(path, row.number,
                     "expected " + columns.named + ", found " + std::to_string(row.fields.size()) + " values");
    }
    const auto value = [&](std::size_t column) { return truthNumberOf(row, column, path); };
    const bool counted = columns.frame == CsvColumns::kNone;
    const long frame = counted ? static_cast<long>(i - heading) : frameOf(row, columns, path, options.firstNumber);
    const std::string& id = columns.id == CsvColumns::kNone ? onlyName : row.fields[columns.id];
    const TruthMark mark =
        markOf(frame, value(columns.x), value(columns.y), value(columns.width), value(columns.height));
    if (columns.counts < row.fields.size() && value(columns.counts) == 0) continue;
    if (!marks[id].emplace(frame, mark).second) {
      refuseTruthRow(path, row.number, "target '" + id + "' is marked twice in frame " + row.fields[columns.frame]);
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
  if (word == "mot") return TruthFormat::Mot;
  throw HostError(ExitCode::Usage, "--format '" + word + "' is not one of auto, otb, got10k, vot, mot, csv");
}

std::vector<TruthTarget> parseTruth(const std::string& text, const std::string& path, const TruthOptions& options,
                                    const std::string& name) {
  const std::vector<Row> rows = truthRowsOf(text);
  if (rows.empty()) throw HostError(ExitCode::Usage, "truth '" + path + "' holds no rows");
  const TruthFormat format = options.format == TruthFormat::Auto ? recogniseTruth(rows, path) : options.format;
  const bool table = format == TruthFormat::Csv || format == TruthFormat::Mot;
  std::vector<TruthTarget> targets =
      table ? manyTargets(rows, path, options, format, name) : oneTarget(rows, path, format, name);
  for (const TruthTarget& target : targets) {
    if (target.firstVisibleMark() >= 0) return targets;
  }
  throw HostError(ExitCode::Usage, "truth '" + path + "' marks no target anywhere");
}

void applyAbsence(const std::string& text, const std::string& path, TruthTarget& target) {
  const std::vector<Row> rows = truthRowsOf(text);
  if (rows.size() != target.marks.size()) {
    throw HostError(ExitCode::Usage, "'" + path + "' has " + std::to_string(rows.size()) + " rows for " +
                                         std::to_string(target.marks.size()) + " frames of truth");
  }
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::vector<std::string>& fields = rows[i].fields;
    if (fields.size() != 1 || (fields[0] != "0" && fields[0] != "1")) {
      refuseTruthRow(path, rows[i].number, "expected 0 (in the picture) or 1 (absent)");
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
