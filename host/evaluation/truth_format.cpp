#include "evaluation/truth_format.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <map>
#include <set>
#include <utility>

#include "base/host_error.h"

namespace host {
namespace {

using Values = std::vector<double>;

constexpr std::size_t kTableValues = 6;   // frame, id, left, top, width, height
constexpr std::size_t kLeastCorners = 8;  // values of a polygon with four corners

/// The rows that have as many values as the first: whatever reads the file says what is wrong with another one.
std::vector<Values> numbersOf(const std::vector<TruthRow>& rows, const std::string& path) {
  std::vector<Values> all;
  for (const TruthRow& row : rows) {
    if (row.fields.size() != rows.front().fields.size()) continue;
    Values values;
    for (std::size_t i = 0; i < row.fields.size(); ++i) values.push_back(truthNumberOf(row, i, path));
    all.push_back(std::move(values));
  }
  return all;
}

bool isWhole(double value) {
  return value == std::floor(value) && std::fabs(value) < 1e9;
}

/// Frame and target as whole numbers, each pair once, the frames of a target in their order.
bool canBeTable(const std::vector<Values>& rows) {
  std::set<std::pair<double, double>> known;
  std::map<double, double> lastOf;
  for (const Values& v : rows) {
    if (!isWhole(v[0]) || !isWhole(v[1]) || v[0] < 0 || !known.emplace(v[0], v[1]).second) return false;
    const auto [last, isNew] = lastOf.emplace(v[1], v[0]);
    if (!isNew && v[0] < std::exchange(last->second, v[0])) return false;
  }
  return true;
}

/// Besides: boxes with an area, and a seventh value that says whether the row counts, or how sure it is.
bool looksLikeTable(const std::vector<Values>& rows) {
  return canBeTable(rows) && std::all_of(rows.begin(), rows.end(), [](const Values& v) {
           return v[4] > 0 && v[5] > 0 && v[6] >= -1 && v[6] <= 1;
         });
}

/// Few targets in many frames, counted up from 1: corners that do so by chance would have to creep along a border.
bool countsFrames(const std::vector<Values>& rows) {
  std::set<double> targets;
  for (const Values& v : rows) {
    targets.insert(v[1]);
    if (v[0] < 1) return false;
  }
  return targets.size() * 3 <= rows.size();
}

/// All turns at the corners go the same way.
bool isConvex(const Values& v) {
  const std::size_t corners = v.size() / 2;
  bool left = false;
  bool right = false;
  for (std::size_t i = 0; i < corners; ++i) {
    const auto x = [&](std::size_t k) { return v[2 * ((i + k) % corners)]; };
    const auto y = [&](std::size_t k) { return v[2 * ((i + k) % corners) + 1]; };
    const double turn = (x(1) - x(0)) * (y(2) - y(1)) - (y(1) - y(0)) * (x(2) - x(1));
    left = left || turn > 0;
    right = right || turn < 0;
  }
  return left != right;
}

bool looksLikePolygons(const std::vector<Values>& rows) {
  const auto known = [](double value) { return !std::isnan(value); };
  return std::all_of(rows.begin(), rows.end(),
                     [&](const Values& v) { return !std::all_of(v.begin(), v.end(), known) || isConvex(v); });
}

[[noreturn]] void refuseAmbiguous(const std::string& path) {
  throw HostError(ExitCode::Usage, "truth '" + path +
                                       "' can be read as corners of polygons or as a table of boxes: say which with "
                                       "--format vot or --format mot");
}

TruthFormat polygonsOrTable(const std::vector<TruthRow>& rows, const std::string& path) {
  const std::vector<Values> values = numbersOf(rows, path);
  const bool evenCount = values.front().size() % 2 == 0;
  if (!canBeTable(values)) {
    if (evenCount) return TruthFormat::Polygon;
    refuseTruthRow(path, rows.front().number,
                   std::to_string(values.front().size()) +
                       " values, the first of which are no frame and target: what are they? --format otb, got10k, vot, "
                       "mot or csv says so");
  }
  const bool polygons = evenCount && looksLikePolygons(values);
  const bool table = looksLikeTable(values);
  if (table && (!polygons || countsFrames(values))) return TruthFormat::Mot;
  if (!evenCount) return TruthFormat::Mot;
  const bool quadrangles = values.front().size() == kLeastCorners;  // no table is known to have eight columns
  if (!table && (polygons || quadrangles)) return TruthFormat::Polygon;
  refuseAmbiguous(path);
}

}  // namespace

TruthFormat recogniseTruth(const std::vector<TruthRow>& rows, const std::string& path) {
  const TruthRow& first = rows.front();
  if (isTruthHeading(first)) return TruthFormat::Csv;
  const std::size_t count = first.fields.size();
  if (count == 4) return TruthFormat::Rect;
  if (count == kTableValues) return TruthFormat::Csv;
  if (count == kTableValues + 1 || count >= kLeastCorners) return polygonsOrTable(rows, path);
  for (std::size_t i = 0; i < count; ++i) truthNumberOf(first, i, path);  // a word is the likelier mistake
  refuseTruthRow(path, first.number,
                 std::to_string(count) +
                     " values are neither a box (4), a polygon (8 or more), frame,id,x,y,w,h (6) nor a MOT table (7 to "
                     "10); --format says what is meant");
}

}  // namespace host
