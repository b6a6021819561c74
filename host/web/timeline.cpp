#include "web/timeline.h"

#include <algorithm>
#include <cmath>

namespace host::web {
namespace {

using Json = nlohmann::ordered_json;

int gravity(Standing standing) {
  switch (standing) {
    case Standing::Idle:
      return 0;
    case Standing::Tracked:
      return 1;
    case Standing::Waiting:
      return 2;
    case Standing::Predicted:
      return 3;
    case Standing::Searching:
      return 4;
    case Standing::NoSignal:
      return 5;
    case Standing::Lost:
      return 6;
  }
  return 0;
}

double stepOf(double at) {
  return std::floor(at / Timeline::kStep_s);
}

void mergeInto(TimelineRow& row, const TimelineRow& newer) {
  if (newer.age_ms) row.age_ms = std::max(row.age_ms.value_or(0.0), *newer.age_ms);
  if (newer.pan_deg) row.pan_deg = newer.pan_deg;
  if (newer.tilt_deg) row.tilt_deg = newer.tilt_deg;
  for (const auto& [name, target] : newer.targets) {
    TimelineRow::Target& kept = row.targets[name];
    if (gravity(target.standing) > gravity(kept.standing)) kept.standing = target.standing;
    if (target.score) kept.score = target.score;
  }
}

double rounded(double value, double unit) {
  return std::round(value * unit) / unit;
}

Json toJson(const TimelineRow& row) {
  Json json = {{"t", rounded(row.at, 1000)}};
  if (row.age_ms) json["age_ms"] = rounded(*row.age_ms, 10);
  if (row.pan_deg) json["pan_deg"] = rounded(*row.pan_deg, 100);
  if (row.tilt_deg) json["tilt_deg"] = rounded(*row.tilt_deg, 100);
  json["targets"] = Json::object();
  for (const auto& [target, value] : row.targets) {
    json["targets"][target] = {name(value.standing), value.score ? Json(rounded(*value.score, 1000)) : Json()};
  }
  return json;
}

}  // namespace

void Timeline::add(const TimelineRow& row) {
  if (!rows_.empty() && stepOf(rows_.back().at) == stepOf(row.at)) {
    mergeInto(rows_.back(), row);
  } else {
    rows_.push_back(row);
  }
  while (row.at - rows_.front().at > kSeconds) rows_.pop_front();
}

Json Timeline::json(double after, double now) const {
  Json rows = Json::array();
  for (const TimelineRow& row : rows_) {
    if (row.at > after && stepOf(row.at) < stepOf(now)) rows.push_back(toJson(row));
  }
  return {{"now_s", rounded(now, 1000)}, {"step_s", kStep_s}, {"rows", std::move(rows)}};
}

}  // namespace host::web
