#include "simulator/honesty.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "plugin/reason_words.h"

namespace host::sim {
namespace {

using Json = nlohmann::ordered_json;
using Keys = ocula::OculaPicture::BaseMetadata::Keys;

constexpr double kInView = 0.5;     // of the target's area
constexpr double kHidden = 0.1;     // below: no box can be right
constexpr double kZoomStep = 0.02;  // of the field of view, from one frame to the next

bool claimsToSee(TrackState state) {
  return state == TrackState::Tracked || state == TrackState::Rebuilt || state == TrackState::Redetected ||
         state == TrackState::Reseeded || state == TrackState::Reacquired;
}

bool hasNoTarget(TrackState state) {
  return state == TrackState::Lost || state == TrackState::Inactive;
}

/// What neighbouring frames allow besides the frame's own answer.
using Sides = std::set<Shown>;

Sides sidesAround(const std::vector<HonestyFrame>& frames, std::size_t index) {
  constexpr auto kReach = static_cast<std::size_t>(Honesty::kTolerance);
  const std::size_t begin = index < kReach ? 0 : index - kReach;
  const std::size_t end = std::min(frames.size(), index + kReach + 1);
  Sides sides;
  for (std::size_t i = begin; i < end; ++i) {
    if (frames[i].shown != Shown::Partly) {
      sides.insert(frames[i].shown);
    } else {
      sides.insert({Shown::Target, Shown::Nothing});
    }
  }
  return sides;
}

/// How the frame's state is wrong; nullptr: it is not. `sides` has the frame's own, too.
const char* faultOf(const HonestyFrame& frame, const Sides& sides) {
  const bool mayWait = sides.count(Shown::Pointing) > 0;
  const bool maySee = sides.count(Shown::Target) > 0;
  const bool mayMiss = sides.count(Shown::Nothing) > 0;
  if (frame.state == TrackState::Waiting) return mayWait ? nullptr : "waits though the camera is there";
  if (!claimsToSee(frame.state)) {
    if (mayMiss) return nullptr;
    return maySee ? "does not see the target in view" : "does not wait while the camera turns";
  }
  if (!maySee) return mayMiss ? "claims a target that cannot be seen" : "does not wait while the camera turns";
  const bool inView = frame.shown == Shown::Target || frame.shown == Shown::Partly;
  const bool says = frame.seen || frame.state == TrackState::Reacquired;  // a find says so on trial, too
  if (inView && says && frame.overlap < Honesty::kOnTarget) return "claims something beside the target";
  return nullptr;
}

class Causes {
 public:
  void add(const char* what, const HonestyFrame& frame, long number) {
    const auto same = [&](const WrongFrames& one) {
      return one.what == what && one.exit == frame.exit && one.detail == frame.detail;
    };
    const auto known = std::find_if(all_.begin(), all_.end(), same);
    if (known != all_.end()) {
      ++known->count;
    } else {
      all_.push_back({what, frame.exit, frame.detail, 1, number});
    }
  }
  std::vector<WrongFrames> take() {
    std::stable_sort(all_.begin(), all_.end(), [](const auto& a, const auto& b) { return a.count > b.count; });
    return std::move(all_);
  }

 private:
  std::vector<WrongFrames> all_;
};

bool saysWhereItLooks(const ocula::OculaPicture::BaseMetadata& metadata) {
  const auto readable = [&metadata](const std::string& key) {
    const auto found = metadata.find(key);
    const double* number = found == metadata.end() ? nullptr : std::get_if<double>(&found->second);
    return number != nullptr && std::isfinite(*number);
  };
  return readable(Keys::kPanDeg) && readable(Keys::kTiltDeg) && readable(Keys::kHfovDeg) && readable(Keys::kVfovDeg);
}

/// The larger of both distances from the middle, in shares of the frame's sides.
double offCentre(const Angles& direction, const CameraState& camera) {
  const Angles off = between(camera.gimbal, direction);
  return std::max(std::fabs(off.pan) / camera.view.hfov, std::fabs(off.tilt) / camera.view.vfov);
}

PointingRule ruleOf(const Scenario& scenario) {
  PointingRule rule;
  const nlohmann::json config = nlohmann::json::parse(scenario.config, nullptr, false);
  if (!config.is_object() || !config.contains("preposition") || !config["preposition"].is_object()) return rule;
  const nlohmann::json& keys = config["preposition"];
  const auto number = [&keys](const char* key, double otherwise) {
    return keys.contains(key) && keys[key].is_number() ? keys[key].get<double>() : otherwise;
  };
  rule.asked = scenario.host.follow_me && keys.contains("enabled") && keys["enabled"] == true;
  rule.centreTolerance = number("direct_init_center_tol_norm", rule.centreTolerance);
  rule.alignedTolerance = number("alignment_tol_norm", rule.alignedTolerance);
  rule.holdFrames = static_cast<int>(number("alignment_hold_frames", rule.holdFrames));
  return rule;
}

/// The border beyond which most of the box lies; empty: none, something hides it.
std::string borderBehind(const cv::Rect2d& box, cv::Size frame) {
  const std::vector<std::pair<double, const char*>> beyond = {{-box.x / box.width, "left"},
                                                              {(box.br().x - frame.width) / box.width, "right"},
                                                              {-box.y / box.height, "top"},
                                                              {(box.br().y - frame.height) / box.height, "bottom"}};
  const auto most = *std::max_element(beyond.begin(), beyond.end());
  return most.first >= 0.5 ? most.second : "";
}

void addCauses(Json& json, const std::vector<WrongFrames>& causes) {
  json = Json::array();
  for (const WrongFrames& one : causes) {
    json.push_back({{"what", one.what},
                    {"exit", one.exit},
                    {"detail", one.detail},
                    {"frames", one.count},
                    {"first_frame", one.firstFrame}});
  }
}

std::string linesOf(const std::vector<WrongFrames>& causes) {
  std::string text;
  for (const WrongFrames& one : causes) {
    const std::string cause = one.exit + (one.detail.empty() ? "" : "; ") + one.detail;
    text += fmt::format("{:>10}  {}: {} (first: frame {})\n", one.count, one.what, explained(cause), one.firstFrame);
  }
  return text;
}

double rounded(double share) {
  return std::round(share * 1e5) / 1e5;
}

}  // namespace

Honesty judgeHonesty(const std::vector<HonestyFrame>& frames, long firstFrame) {
  Honesty honesty;
  Causes wrongStates;
  Causes wrongClaims;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const HonestyFrame& frame = frames[i];
    const long number = firstFrame + static_cast<long>(i);
    ++honesty.frames;
    if (frame.shown == Shown::Partly) ++honesty.partly;
    const char* const fault = faultOf(frame, sidesAround(frames, i));
    if (fault == nullptr) {
      ++honesty.right;
    } else {
      wrongStates.add(fault, frame, number);
    }
    if (!frame.seen) continue;
    ++honesty.claims;
    if (frame.overlap >= Honesty::kOnTarget) continue;
    ++honesty.wrongClaims;
    wrongClaims.add(frame.shown == Shown::Nothing ? "nothing of the target can be seen" : "the target is elsewhere",
                    frame, number);
  }
  honesty.wrongStates = wrongStates.take();
  honesty.wrongClaimsByCause = wrongClaims.take();
  return honesty;
}

void HonestyWatch::begin(const Scenario& scenario) {
  rule_ = ruleOf(scenario);
  size_ = scenario.frame;
}

void HonestyWatch::frame(const SimulatedFrame& frame) {
  watchPointing_(frame);
  const CallRecord& record = frame.record;
  const Shown shown = shownBy_(frame);
  noteEvents_(frame, shown);
  noteHistory_(record);
  HonestyFrame kept;
  kept.shown = shown;
  kept.state = record.state;
  kept.seen = isSeen(record);
  if (record.box && shown != Shown::Nothing) {
    kept.overlap = overlap(*record.box, frame.truth.box & cv::Rect2d({0, 0}, cv::Size2d(size_)));
  }
  kept.exit = record.isInit ? "init" : record.exit;
  kept.detail = detailOf_(record);
  frames_.push_back(kept);
}

/// The camera is there once it looks at the marked place, and says where it looks, on enough frames in a row.
void HonestyWatch::watchPointing_(const SimulatedFrame& frame) {
  if (frame.record.isInit) {
    goal_.reset();
    aligned_ = 0;
    const bool first = frames_.empty();  // later marks come without the wish to be pointed
    if (!first || !rule_.asked || !saysWhereItLooks(frame.metadata) || !frame.record.givenBox) return;
    const Angles marked = directionOf(centreOf(*frame.record.givenBox), frame.camera.view, size_);
    if (offCentre(marked, frame.camera) > rule_.centreTolerance) goal_ = marked;
    return;
  }
  if (!goal_) return;
  const bool there = saysWhereItLooks(frame.metadata) && offCentre(*goal_, frame.camera) <= rule_.alignedTolerance;
  aligned_ = there ? aligned_ + 1 : 0;
  if (aligned_ >= rule_.holdFrames) goal_.reset();
}

Shown HonestyWatch::shownBy_(const SimulatedFrame& frame) const {
  if (goal_) return Shown::Pointing;
  if (frame.truth.visibleShare >= kInView) return Shown::Target;
  return frame.truth.visibleShare >= kHidden ? Shown::Partly : Shown::Nothing;
}

void HonestyWatch::noteEvent_(const SimulatedFrame& frame, const std::string& what) {
  events_.push_back({frame.record.frame, what});
}

void HonestyWatch::noteEvents_(const SimulatedFrame& frame, Shown shown) {
  const bool first = frames_.empty();
  const double hfov = frame.camera.view.hfov;
  if (!first && frame.record.isInit) noteEvent_(frame, "marked again");
  if (!first && std::fabs(hfov / hfov_ - 1.0) > kZoomStep) noteEvent_(frame, fmt::format("zoom to {:g} deg", hfov));
  hfov_ = hfov;
  if (first) before_ = shown;
  if (shown == Shown::Partly || shown == before_) return;
  const std::string border = borderBehind(frame.truth.box, size_);
  if (before_ == Shown::Pointing) {
    noteEvent_(frame, "the camera is there");
  } else if (shown == Shown::Nothing) {
    noteEvent_(frame, border.empty() ? "hidden" : "out by the " + border + " border");
  } else {
    noteEvent_(frame, "in view again");
  }
  if (shown == Shown::Target) inViewSince_ = frame.record.frame;
  before_ = shown;
}

void HonestyWatch::noteHistory_(const CallRecord& record) {
  if (!record.search.empty()) {
    searchOutcome_ = record.search;
    searchedOn_ = record.frame;
  }
  if (!record.reason.empty()) givenUpFor_ = record.reason;
  if (record.state == TrackState::Redetected) trackerFrom_ = "a search";
  if (record.state == TrackState::Reseeded && !frames_.empty()) trackerFrom_ = record.isInit ? "a mark" : record.exit;
}

std::string HonestyWatch::detailOf_(const CallRecord& record) const {
  if (claimsToSee(record.state)) return "tracker from " + trackerFrom_;
  if (hasNoTarget(record.state)) return record.state == TrackState::Lost ? "" : "given up: " + givenUpFor_;
  if (record.state != TrackState::Predicted) return "";
  return searchedOn_ < inViewSince_ ? "no search yet since it came into view" : "last search: " + searchOutcome_;
}

Honesty HonestyWatch::honesty() const {
  Honesty honesty = judgeHonesty(frames_, 0);
  honesty.events = events_;
  return honesty;
}

Json toJson(const Honesty& honesty) {
  Json json = {{"frames", honesty.frames},
               {"state_right", honesty.right},
               {"state_right_share", rounded(honesty.rightShare())},
               {"claims", honesty.claims},
               {"wrong_claims", honesty.wrongClaims},
               {"wrong_claims_share", rounded(honesty.wrongClaimShare())},
               {"frames_partly_in_view", honesty.partly}};
  addCauses(json["wrong_states_by_cause"], honesty.wrongStates);
  addCauses(json["wrong_claims_by_cause"], honesty.wrongClaimsByCause);
  json["events"] = Json::array();
  for (const HonestyEvent& event : honesty.events) {
    json["events"].push_back({{"frame", event.frame}, {"what", event.what}});
  }
  return json;
}

std::string textOf(const Honesty& honesty) {
  std::string text =
      fmt::format("honesty:    state right on {:.2f} % of {} frames; of {} boxes called seen {:.2f} % lie elsewhere\n",
                  100.0 * honesty.rightShare(), honesty.frames, honesty.claims, 100.0 * honesty.wrongClaimShare());
  if (!honesty.wrongStates.empty())
    text += "            frames with a wrong state, by cause:\n" + linesOf(honesty.wrongStates);
  if (!honesty.wrongClaimsByCause.empty()) {
    text += "            boxes called seen that lie elsewhere, by cause:\n" + linesOf(honesty.wrongClaimsByCause);
  }
  return text;
}

}  // namespace host::sim
