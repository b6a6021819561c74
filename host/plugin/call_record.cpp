#include "plugin/call_record.h"

#include <algorithm>
#include <cmath>
#include <variant>

namespace host {
namespace {

using Json = nlohmann::ordered_json;

struct ToJson {
  Json operator()(bool value) const { return value; }
  Json operator()(long value) const { return value; }
  Json operator()(double value) const { return value; }
  Json operator()(const std::string& value) const { return value; }
  Json operator()(const AlgoValue::Object& members) const {
    Json object = Json::object();
    for (const auto& [key, value] : members) object[key] = toJson(value);
    return object;
  }
  Json operator()(const AlgoValue::Array& elements) const {
    Json array = Json::array();
    for (const AlgoValue& element : elements) array.push_back(toJson(element));
    return array;
  }
};

Json toJson(const cv::Rect& box) {
  return {{"x", box.x}, {"y", box.y}, {"w", box.width}, {"h", box.height}};
}

/// 0.3 rather than 0.30000000000000004, so that a person can read the records too.
double roundedTo(double value, int digits) {
  const double unit = std::pow(10.0, digits);
  return std::round(value * unit) / unit;
}

Json toJson(const GuardNote& note) {
  const csrt_guard::Verdict& verdict = note.verdict;
  Json json = {{"state", csrt_guard::name(verdict.state)}, {"reason", verdict.reason}};
  if (verdict.likeness) json["likeness"] = roundedTo(*verdict.likeness, 3);
  if (verdict.usual) json["usual"] = roundedTo(*verdict.usual, 3);
  if (verdict.around) json["around"] = roundedTo(*verdict.around, 3);
  if (verdict.belief) json["belief"] = roundedTo(*verdict.belief, 3);
  if (verdict.opinion) {
    json["opinion"] = {{"box", toJson(verdict.opinion->box)}, {"score", roundedTo(verdict.opinion->score, 3)}};
  }
  json["frames_lost"] = verdict.framesLost;
  if (note.colourless) json["colourless"] = true;
  Json tracker = {{"state", note.trackerState}, {"seen", note.trackerSeen}};
  if (note.trackerBox) tracker["box"] = toJson(*note.trackerBox);
  json["tracker"] = std::move(tracker);
  return json;
}

}  // namespace

bool anyFollowed(const std::vector<CallRecord>& records) {
  return std::any_of(records.begin(), records.end(), [](const CallRecord& r) { return !r.isInit || r.started; });
}

Json toJson(const AlgoValue& value) {
  return std::visit(ToJson{}, static_cast<const AlgoValue::Base&>(value));
}

Json toJson(const GimbalNote& note) {
  Json json = Json::object();
  if (note.pan_deg) json["pan_deg"] = roundedTo(*note.pan_deg, 4);
  if (note.tilt_deg) json["tilt_deg"] = roundedTo(*note.tilt_deg, 4);
  json["state"] = note.state;
  return json;
}

Json toJson(const GroundNote& note) {
  if (!note.unknown.empty()) return {{"unknown", note.unknown}};
  return {{"lat_deg", roundedTo(note.lat_deg, 7)},
          {"lon_deg", roundedTo(note.lon_deg, 7)},
          {"alt_m", roundedTo(note.alt_m, 1)},
          {"distance_m", roundedTo(note.distance_m, 1)},
          {"major_m", roundedTo(note.major_m, 1)},
          {"minor_m", roundedTo(note.minor_m, 1)},
          {"azimuth_deg", roundedTo(note.azimuth_deg, 1)}};
}

Json toJson(const CallRecord& record) {
  Json json = {{"schema", kRecordSchemaName},
               {"version", kRecordSchemaVersion},
               {"target", record.target},
               {"frame", record.frame},
               {"time_s", roundedTo(record.time_s, 6)},
               {"call", record.noSignal ? "none"
                        : record.isInit ? "init"
                                        : "update"}};
  if (!record.file.empty()) json["file"] = record.file;
  if (!record.sourceNote.empty()) json["source_note"] = record.sourceNote;
  if (record.isInit) json["started"] = record.started;
  if (record.givenBox) json["given_box"] = toJson(*record.givenBox);
  if (!record.guardModelSha256.empty()) json["guard_model_sha256"] = record.guardModelSha256;
  json["engine"] = record.engine;
  json["pace"] = record.pace;
  json["update_ms"] = roundedTo(record.update_ms, 3);
  json["state"] = name(record.state);
  json["box_from"] = name(record.boxFrom);
  if (record.box) json["box"] = toJson(*record.box);
  if (record.score) json["score"] = *record.score;
  if (record.window) json["window"] = toJson(*record.window);
  json["frames_since_seen"] = record.framesSinceSeen ? Json(*record.framesSinceSeen) : Json(nullptr);
  json["seconds_since_seen"] = record.secondsSinceSeen ? Json(roundedTo(*record.secondsSinceSeen, 6)) : Json(nullptr);
  if (record.ageMs) {
    json["age_ms"] = roundedTo(*record.ageMs, 1);
    json["age_from"] = record.ageFromSender ? "sender" : "arrival";
  }
  if (record.dropped) json["dropped"] = *record.dropped;
  if (record.noSignal) json["no_signal"] = true;
  if (!record.reason.empty()) json["reason"] = record.reason;
  if (record.guard) json["guard"] = toJson(*record.guard);
  if (record.gimbal) json["gimbal"] = toJson(*record.gimbal);
  if (record.anglesStaleMs) json["angles_stale_ms"] = roundedTo(*record.anglesStaleMs, 1);
  if (record.ground) json["ground"] = toJson(*record.ground);
  Json outputs = Json::array();
  for (const AlgoOutput& output : record.outputs)
    outputs.push_back({{"name", output.name}, {"value", toJson(output.value)}});
  json["outputs"] = std::move(outputs);
  return json;
}

}  // namespace host
