// The last minutes in short: a few rows a second, for a chart.
#pragma once

#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "web/glance.h"

namespace host::web {

/// One moment. Absent values were not known.
struct TimelineRow {
  double at = 0.0;                 ///< Seconds of a clock that never goes back.
  std::optional<double> age_ms;    ///< Of the picture when the answer was ready; empty: not live.
  std::optional<double> pan_deg;   ///< Of the gimbal; empty: not known.
  std::optional<double> tilt_deg;  ///< Likewise.
  struct Target {
    Standing standing = Standing::Idle;
    std::optional<double> score;
  };
  std::map<std::string, Target> targets;  ///< By name.
};

/// Not thread-safe.
class Timeline {
 public:
  static constexpr double kSeconds = 300.0;  ///< How far back it reaches.
  static constexpr double kStep_s = 0.25;    ///< One row for so long.

  /// Rows of one step become one: of standings the gravest, of ages the largest, of the rest the last.
  void add(const TimelineRow& row);

  /// {"now_s":..., "step_s":..., "rows":[{"t":..., "age_ms":..., "pan_deg":..., "tilt_deg":...,
  /// "targets":{"NAME":["tracked", 0.83]}}]}: rows that are complete and younger than `after`, oldest first. Pure.
  nlohmann::ordered_json json(double after, double now) const;

 private:
  std::deque<TimelineRow> rows_;
};

}  // namespace host::web
