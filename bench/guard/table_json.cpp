#include "table_json.h"

#include <algorithm>

#include "base/statistics.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

Json figuresJson(const Figures& values, const Intervals& intervals) {
  Json json;
  for (std::size_t f = 0; f < kFigureCount; ++f) {
    json[keyOf(static_cast<Figure>(f))] = {values[f], intervals[f].low, intervals[f].high};
  }
  return json;
}

Json groupJson(const Group& group, const std::vector<Group>& groups) {
  Json json = {{"engine", group.engine}, {"preset", presetWord(group.preset)}, {"guard", group.guard}};
  const Figures mean = meanOf(group);
  json["mean"] = figuresJson(mean, intervalsOf(group));
  for (const Group& off : groups) {
    if (group.guard == "off" || off.guard != "off" || off.engine != group.engine || off.preset != group.preset)
      continue;
    Figures difference = mean;
    const Figures from = meanOf(off);
    for (std::size_t f = 0; f < kFigureCount; ++f) difference[f] -= from[f];
    json["less_off"] = figuresJson(difference, differenceIntervals(off, group));
  }
  json["walks"] = Json::array();
  for (const auto& start : group.walks) {
    for (const Walk* walk : start) json["walks"].push_back(walkJson(*walk));
  }
  return json;
}

}  // namespace

Json walkJson(const Walk& walk) {
  const host::Metrics m = host::metricsOf(walk.sums);
  Json json = {{"target", walk.target->name},
               {"start", walk.start},
               {"marks", walk.sums.present},
               {"on_target", walk.sums.onTarget},
               {"held", walk.sums.heldAtEnd > 0},
               {"success_auc", m.successAuc},
               {"seen", walk.sums.seen},
               {"seen_elsewhere", walk.sums.seenElsewhere + walk.sums.falseSeen},
               {"longest_wrong_run", walk.longestWrong}};
  if (walk.guard == "off") return json;
  json["restarts"] = walk.restarts;
  json["restarts_right"] = walk.restartsRight;
  json["guard_ms"] = {{"seen_median", host::quantile(walk.seen_ms, 0.5)},
                      {"seen_p95", host::quantile(walk.seen_ms, 0.95)},
                      {"lost_median", host::quantile(walk.lost_ms, 0.5)},
                      {"lost_p95", host::quantile(walk.lost_ms, 0.95)}};
  return json;
}

Json walkersJson(const GuardOptions& options, const std::vector<Group>& groups) {
  Json all = Json::array();
  for (const Group& group : groups) all.push_back(groupJson(group, groups));
  return {{"walkers", {{"half", options.half}, {"starts", options.starts}, {"groups", all}}}};
}

}  // namespace bench
