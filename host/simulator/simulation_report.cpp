// The summary's words, its JSON and its verdicts.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "plugin/reason_words.h"
#include "simulator/simulation_summary.h"

namespace host::sim {
namespace {

using Json = nlohmann::ordered_json;

class Checks {
 public:
  void atMost(const char* name, const std::optional<double>& limit, const std::optional<double>& found) {
    if (limit) add_(name, fmt::format("at most {:g}", *limit), found, found && *found <= *limit);
  }
  void atLeast(const char* name, const std::optional<double>& limit, const std::optional<double>& found) {
    if (limit) add_(name, fmt::format("at least {:g}", *limit), found, found && *found >= *limit);
  }
  void add(Check check) { all_.push_back(std::move(check)); }
  std::vector<Check> take() { return std::move(all_); }

 private:
  void add_(const char* name, std::string wanted, const std::optional<double>& found, bool met) {
    all_.push_back({name, std::move(wanted), found ? fmt::format("{:.4g}", *found) : "nothing", met});
  }
  std::vector<Check> all_;
};

std::optional<double> asNumber(const std::optional<long>& value) {
  return value ? std::optional<double>(static_cast<double>(*value)) : std::nullopt;
}

double roundedTo(double value, int digits) {
  const double scale = std::pow(10.0, digits);
  return std::round(value * scale) / scale;
}

Json toJson(const Spread& spread) {
  return {
      {"median", roundedTo(spread.median, 4)}, {"p95", roundedTo(spread.p95, 4)}, {"max", roundedTo(spread.max, 4)}};
}

template <typename T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json armingJson(const SimulationTotals& totals) {
  if (!totals.armedFrame) return nullptr;
  return {{"frame", *totals.armedFrame},
          {"seconds", roundedTo(totals.secondsToArm, 4)},
          {"pointing_error_deg", roundedTo(totals.armedErrorDeg, 4)},
          {"pointing_error_px", roundedTo(totals.armedErrorPx, 3)},
          {"first_iou", orNull(totals.firstIou)}};
}

Json askedJson(const SimulationTotals& totals) {
  if (!totals.asked) return nullptr;
  return {{"target_pan_deg", totals.asked->pan},
          {"target_tilt_deg", totals.asked->tilt},
          {"error_deg", orNull(totals.askedErrorDeg)}};
}

std::string armingText(const SimulationTotals& totals) {
  if (!totals.started) return "the plug-in refused the target: " + explained(totals.lostReason) + "\n";
  std::string text;
  if (totals.asked) {
    text += fmt::format("asked for:  pan {:.2f}, tilt {:.2f} ({:.2f} deg beside the target)\n", totals.asked->pan,
                        totals.asked->tilt, totals.askedErrorDeg.value_or(0.0));
  }
  if (!totals.armedFrame) return text + "armed:      never\n";
  return text +
         fmt::format("armed:      after {} frames ({:.2f} s), {:.2f} deg ({:.1f} px) beside the target, IoU {:.2f}\n",
                     *totals.armedFrame, totals.secondsToArm, totals.armedErrorDeg, totals.armedErrorPx,
                     totals.firstIou.value_or(0.0));
}

std::string followingText(const SimulationTotals& totals) {
  const Spread& deg = totals.followingErrorDeg;
  const Spread& px = totals.followingErrorPx;
  std::string text = fmt::format(
      "following:  beside the middle by {:.2f} deg ({:.1f} px) in the median, {:.2f} deg ({:.1f} px) for 95 of 100\n",
      deg.median, px.median, deg.p95, px.p95);
  text +=
      fmt::format("            mean IoU {:.2f}, lost for {:.2f} s, {} false boxes, {} zoom re-seeds, {} found again\n",
                  totals.meanIou, totals.secondsLost, totals.falseBoxes, totals.zoomReseeds, totals.redetections);
  return text;
}

}  // namespace

std::vector<Check> judge(const SimulationTotals& totals, const Expectations& expect) {
  Checks checks;
  if (expect.armed) {
    const bool armed = totals.armedFrame.has_value();
    checks.add({"armed", *expect.armed ? "true" : "false", armed ? "true" : "false", armed == *expect.armed});
  }
  const auto ifArmed = [&totals](double value) {
    return totals.armedFrame ? std::optional<double>(value) : std::nullopt;
  };
  checks.atMost("armed_within_frames", asNumber(expect.armed_within_frames), asNumber(totals.armedFrame));
  checks.atLeast("first_iou_min", expect.first_iou_min, totals.firstIou);
  checks.atLeast("mean_iou_min", expect.mean_iou_min, ifArmed(totals.meanIou));
  checks.atMost("pointing_error_armed_deg_max", expect.pointing_error_armed_deg_max, ifArmed(totals.armedErrorDeg));
  checks.atMost("pointing_error_p95_deg_max", expect.pointing_error_p95_deg_max, ifArmed(totals.followingErrorDeg.p95));
  checks.atMost("pointing_error_p95_px_max", expect.pointing_error_p95_px_max, ifArmed(totals.followingErrorPx.p95));
  checks.atMost("seconds_lost_max", expect.seconds_lost_max, ifArmed(totals.secondsLost));
  checks.atMost("false_boxes_max", asNumber(expect.false_boxes_max), static_cast<double>(totals.falseBoxes));
  checks.atLeast("zoom_reseeds_min", asNumber(expect.zoom_reseeds_min), static_cast<double>(totals.zoomReseeds));
  checks.atLeast("redetections_min", asNumber(expect.redetections_min), static_cast<double>(totals.redetections));
  checks.atLeast("state_right_min", expect.state_right_min, totals.honesty.rightShare());
  checks.atMost("wrong_claims_max", expect.wrong_claims_max, totals.honesty.wrongClaimShare());
  if (!expect.final_state.empty()) {
    const std::string state = host::name(totals.finalState);
    std::string wanted;
    for (const std::string& one : expect.final_state) wanted += (wanted.empty() ? "" : " or ") + one;
    checks.add({"final_state", wanted, state,
                std::find(expect.final_state.begin(), expect.final_state.end(), state) != expect.final_state.end()});
  }
  return checks.take();
}

Json toJson(const Scenario& scenario, const SimulationTotals& totals, const std::vector<Check>& checks) {
  Json states = Json::object();
  for (const auto& [state, count] : totals.states) states[host::name(state)] = count;
  Json verdicts = Json::array();
  for (const Check& check : checks) {
    verdicts.push_back({{"name", check.name}, {"wanted", check.wanted}, {"found", check.found}, {"met", check.met}});
  }
  return {{"schema", "csrt-track.simulation"},
          {"version", 1},
          {"scenario", scenario.name},
          {"engine", totals.engine},
          {"frames", totals.frames},
          {"fps", scenario.fps},
          {"started", totals.started},
          {"preposition", askedJson(totals)},
          {"armed", armingJson(totals)},
          {"following",
           {{"pointing_error_deg", toJson(totals.followingErrorDeg)},
            {"pointing_error_px", toJson(totals.followingErrorPx)},
            {"mean_iou", roundedTo(totals.meanIou, 4)},
            {"frames_visible", totals.framesVisible},
            {"seconds_lost", roundedTo(totals.secondsLost, 4)},
            {"false_boxes", totals.falseBoxes},
            {"zoom_reseeds", totals.zoomReseeds},
            {"redetections", totals.redetections},
            {"marked_again", totals.marksAgain}}},
          {"honesty", toJson(totals.honesty)},
          {"states", states},
          {"final_state", host::name(totals.finalState)},
          {"lost_reason", totals.lostReason},
          {"median_update_ms", roundedTo(totals.medianUpdateMs, 3)},
          {"checks", verdicts}};
}

std::string textOf(const Scenario& scenario, const SimulationTotals& totals, const std::vector<Check>& checks) {
  std::string text = fmt::format("{}: {}\n", scenario.name, scenario.title);
  text += armingText(totals);
  if (totals.armedFrame) text += followingText(totals);
  text += textOf(totals.honesty);
  text += fmt::format("at the end: {}{}; {} frames, {:.1f} ms each in the plug-in\n", host::name(totals.finalState),
                      totals.lostReason.empty() ? "" : ": " + explained(totals.lostReason), totals.frames,
                      totals.medianUpdateMs);
  long missed = 0;
  for (const Check& check : checks) {
    if (check.met) continue;
    ++missed;
    text += fmt::format("NOT MET     {}: {} wanted, {} found\n", check.name, check.wanted, check.found);
  }
  if (!checks.empty() && missed == 0) text += fmt::format("all {} expectations are met\n", checks.size());
  return text;
}

}  // namespace host::sim
