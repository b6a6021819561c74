#include "evaluation/results.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <utility>

#include "base/host_error.h"
#include "base/json_error.h"
#include "base/json_text.h"
#include "base/statistics.h"
#include "evaluation/sequence.h"
#include "run/run_summary.h"

namespace host {
namespace {

using Json = nlohmann::ordered_json;

Json toJson(const Judgement& j) {
  Json row = Json::array({j.frame, j.time_s, j.absent, j.hasBox, j.seen, j.iou});
  row.push_back(j.distance ? Json(*j.distance) : Json(nullptr));
  return row;
}

Judgement judgementOf(const Json& row) {
  if (row.size() != 7) throw std::invalid_argument("a mark does not have seven values");
  Judgement j;
  row.at(0).get_to(j.frame);
  row.at(1).get_to(j.time_s);
  row.at(2).get_to(j.absent);
  row.at(3).get_to(j.hasBox);
  row.at(4).get_to(j.seen);
  row.at(5).get_to(j.iou);
  if (!row.at(6).is_null()) j.distance = row.at(6).get<double>();
  return j;
}

Json toJson(const Figures& f) {
  const MetricSums& s = f.sums;
  const Metrics& m = f.metrics;
  const auto ofMarks = [&s](double figure) { return s.present > 0 ? Json(figure) : Json(nullptr); };
  return {{"targets", s.targets},
          {"marks_present", s.present},
          {"marks_absent", s.absent},
          {"held_at_end", s.heldAtEnd},
          {"on_target", ofMarks(m.onTarget)},
          {"success_auc", ofMarks(m.successAuc)},
          {"precision_20px", ofMarks(m.precision20)},
          {"mean_iou", ofMarks(m.meanIou)},
          {"off_target_total_s", m.offTotal_s},
          {"off_target_longest_s", m.offLongest_s},
          {"watched_s", s.watched_s},
          {"losses", s.losses},
          {"recoveries", s.recoveries},
          {"redetect_delay_s", m.redetectDelay_s},
          {"redetect_delay_longest_s", s.recoveryLongest_s},
          {"called_seen", s.seen},
          {"seen_elsewhere", m.seenElsewhere},
          {"false_boxes", s.falseBoxes},
          {"false_seen", s.falseSeen},
          {"updates", f.timing.updates},
          {"wall_ms_median", f.timing.wallMedian_ms},
          {"wall_ms_p95", f.timing.wallP95_ms},
          {"cpu_ms_median", f.timing.cpuMedian_ms},
          {"cpu_ms_p95", f.timing.cpuP95_ms},
          {"success_curve", m.successCurve},
          {"precision_curve", m.precisionCurve}};
}

Json toJson(const TargetResult& t) {
  Json marks = Json::array();
  for (const Judgement& j : t.samples.judgements) marks.push_back(toJson(j));
  return {{"sequence", t.sequence},
          {"target", t.target},
          {"tracker", t.tracker},
          {"complete", t.complete},
          {"started", t.samples.started},
          {"start_time_s", t.samples.startTime_s},
          {"figures", toJson(figuresOf({&t}))},
          {"marks_columns", "frame, time_s, absent, has_box, seen, iou, distance_px"},
          {"marks", std::move(marks)},
          {"wall_ms", t.samples.wall_ms},
          {"cpu_ms", t.samples.cpu_ms}};
}

TargetResult targetOf(const Json& json) {
  TargetResult t;
  json.at("sequence").get_to(t.sequence);
  json.at("target").get_to(t.target);
  json.at("tracker").get_to(t.tracker);
  json.at("complete").get_to(t.complete);
  json.at("started").get_to(t.samples.started);
  json.at("start_time_s").get_to(t.samples.startTime_s);
  for (const Json& row : json.at("marks")) t.samples.judgements.push_back(judgementOf(row));
  json.at("wall_ms").get_to(t.samples.wall_ms);
  json.at("cpu_ms").get_to(t.samples.cpu_ms);
  return t;
}

const std::string* factOf(const RunFacts& facts, const std::string& key) {
  for (const auto& [name, value] : facts) {
    if (name == key) return &value;
  }
  return nullptr;
}

/// Keeps the first part's order; a value that differs is put behind what is there.
void joinFacts(RunFacts& all, const RunFacts& part) {
  for (const auto& [key, value] : part) {
    const auto it = std::find_if(all.begin(), all.end(), [k = key](const auto& fact) { return fact.first == k; });
    if (it == all.end()) {
      all.emplace_back(key, value);
    } else if (("; " + it->second + ";").find("; " + value + ";") == std::string::npos) {
      it->second += "; " + value;
    }
  }
}

/// What joinFacts() put together.
std::vector<std::string> partsOf(const std::string& joined) {
  std::vector<std::string> parts;
  for (std::size_t at = 0; at <= joined.size();) {
    const std::size_t end = std::min(joined.find("; ", at), joined.size());
    parts.push_back(joined.substr(at, end - at));
    at = end + 2;
  }
  return parts;
}

void checkSameKind(const RunFacts& first, const RunFacts& other, const std::string& firstName,
                   const std::string& otherName) {
  for (const char* key : {"configuration", "engine", "pace", "reference"}) {
    const std::string* a = factOf(first, key);
    const std::string* b = factOf(other, key);
    const bool same = (a == nullptr) == (b == nullptr) && (a == nullptr || *a == *b);
    if (!same) {
      throw HostError(ExitCode::Usage, "'" + firstName + "' and '" + otherName + "' were not made alike: their " + key +
                                           " differs; compare them instead of merging");
    }
  }
}

void addTimes(const TargetResult& target, std::vector<double>& wall, std::vector<double>& cpu) {
  wall.insert(wall.end(), target.samples.wall_ms.begin(), target.samples.wall_ms.end());
  cpu.insert(cpu.end(), target.samples.cpu_ms.begin(), target.samples.cpu_ms.end());
}

}  // namespace

Figures figuresOf(const std::vector<const TargetResult*>& targets) {
  Figures f;
  std::vector<double> wall;
  std::vector<double> cpu;
  for (const TargetResult* target : targets) {
    f.sums += sumsOf(target->samples);
    addTimes(*target, wall, cpu);
  }
  f.metrics = metricsOf(f.sums);
  f.timing = {wall.size(), quantile(wall, 0.5), quantile(wall, 0.95), quantile(cpu, 0.5), quantile(cpu, 0.95)};
  return f;
}

std::map<std::string, Figures> overallOf(const EvaluationResult& result) {
  std::map<std::string, std::vector<const TargetResult*>> byTracker;
  for (const TargetResult& target : result.targets) byTracker[target.tracker].push_back(&target);
  std::map<std::string, Figures> overall;
  for (const auto& [tracker, targets] : byTracker) overall[tracker] = figuresOf(targets);
  return overall;
}

Json toJson(const EvaluationResult& result) {
  Json run = Json::object();
  for (const auto& [key, value] : result.facts) run[key] = value;
  Json overall = Json::object();
  for (const auto& [tracker, figures] : overallOf(result)) overall[tracker] = toJson(figures);
  Json targets = Json::array();
  for (const TargetResult& target : result.targets) targets.push_back(toJson(target));
  return {{"schema", kEvaluationSchemaName},
          {"version", kEvaluationSchemaVersion},
          {"run", std::move(run)},
          {"overall", std::move(overall)},
          {"targets", std::move(targets)}};
}

EvaluationResult evaluationFromJson(const std::string& text, const std::string& path) {
  const Json json = parseOrderedJson(text, path);
  if (!json.is_object() || json.value("schema", "") != kEvaluationSchemaName) {
    throw HostError(ExitCode::Usage, "'" + path + "' is not a result of csrt-track evaluate");
  }
  try {
    if (json.at("version") != kEvaluationSchemaVersion) {
      throw HostError(ExitCode::Usage, "'" + path + "' has version " + json.at("version").dump() +
                                           " of the result format; this program reads version " +
                                           std::to_string(kEvaluationSchemaVersion));
    }
    EvaluationResult result;
    for (const auto& [key, value] : json.at("run").items()) result.facts.emplace_back(key, value.get<std::string>());
    for (const Json& target : json.at("targets")) result.targets.push_back(targetOf(target));
    return result;
  } catch (const HostError&) {
    throw;
  } catch (const std::exception& e) {
    throw HostError(ExitCode::Usage, "'" + path + "' is damaged: " + plainError(e));
  }
}

std::vector<std::string> interruptedParts(const std::vector<EvaluationResult>& parts,
                                          const std::vector<std::string>& names) {
  std::vector<std::string> cut;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string* signal = factOf(parts[i].facts, "interrupted");
    if (signal != nullptr) cut.push_back("'" + names[i] + "' was interrupted (" + *signal + ")");
  }
  return cut;
}

void checkOneDivision(const std::vector<EvaluationResult>& parts, const std::vector<std::string>& names) {
  std::string first;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string* shards = factOf(parts[i].facts, "shard");  // "1/3", of merged ones "1/3; 3/3"
    if (shards == nullptr) continue;
    for (const std::string& text : partsOf(*shards)) {
      if (first.empty()) first = text;
      if (parseShard(text).count == parseShard(first).count) continue;
      throw HostError(ExitCode::Usage, "'" + names[i] + "' is shard " + text + ", another is shard " + first +
                                           ": they are of different divisions");
    }
  }
}

std::vector<std::string> differingMakers(const EvaluationResult& result) {
  std::vector<std::string> differing;
  for (const char* key : {"program", "opencv"}) {
    const std::string* makers = factOf(result.facts, key);
    if (makers != nullptr && partsOf(*makers).size() > 1) differing.push_back(std::string(key) + ": " + *makers);
  }
  return differing;
}

std::vector<std::string> missingShardsOf(const EvaluationResult& result) {
  const std::string* joined = factOf(result.facts, "shard");
  return joined == nullptr ? std::vector<std::string>() : missingShards(partsOf(*joined));
}

namespace {

/// As a fact, so that table and page say it too; that of an earlier merge is out of date.
void noteMissing(EvaluationResult& result) {
  RunFacts& facts = result.facts;
  facts.erase(std::remove_if(facts.begin(), facts.end(), [](const auto& fact) { return fact.first == kMissingShards; }),
              facts.end());
  std::string missing;
  for (const std::string& shard : missingShardsOf(result)) missing += (missing.empty() ? "" : ", ") + shard;
  if (!missing.empty()) facts.emplace_back(kMissingShards, missing);
}

}  // namespace

EvaluationResult mergeEvaluations(const std::vector<EvaluationResult>& parts, const std::vector<std::string>& names) {
  EvaluationResult all;
  std::map<std::tuple<std::string, std::string, std::string>, std::string> owners;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) checkSameKind(parts.front().facts, parts[i].facts, names.front(), names[i]);
    joinFacts(all.facts, parts[i].facts);
    for (const TargetResult& target : parts[i].targets) {
      const auto [owner, isNew] = owners.emplace(std::tie(target.sequence, target.target, target.tracker), names[i]);
      if (!isNew) {
        throw HostError(ExitCode::Usage, "'" + owner->second + "' and '" + names[i] + "' both hold target '" +
                                             target.target + "' of '" + target.sequence + "'");
      }
      all.targets.push_back(target);
    }
  }
  noteMissing(all);
  std::stable_sort(all.targets.begin(), all.targets.end(), [](const TargetResult& a, const TargetResult& b) {
    return std::tie(a.sequence, a.tracker) < std::tie(b.sequence, b.tracker);
  });
  return all;
}

}  // namespace host
