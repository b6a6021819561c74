// How often a run's states and boxes say what is so, judged by the truth of the scene and by nothing the plug-in says.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/scenario.h"
#include "simulator/simulated_frame.h"

namespace host::sim {

/// What a frame really shows, and with it what its state may be.
enum class Shown {
  Pointing,  ///< The camera does not yet look where the target was marked: waiting.
  Target,    ///< At least half of it can be seen: tracked, rebuilt, redetected or reseeded, and a box lies on it.
  Partly,    ///< Between a tenth and half of it: it is just going or coming; as Target or as Nothing.
  Nothing    ///< Hidden or out of the frame: predicted, lost or inactive.
};

/// One frame, reduced to what the judgement needs.
struct HonestyFrame {
  Shown shown = Shown::Nothing;
  TrackState state = TrackState::Inactive;
  bool seen = false;     ///< Its box was called seen.
  double overlap = 0.0;  ///< Of the box with the part of the target's box inside the frame; 0 where it is hidden.
  std::string exit;      ///< The plug-in's exit that led to the state, in its own words.
  std::string detail;    ///< What had gone before it: the last search, or why the target was given up.
};

/// Wrong frames with one cause.
struct WrongFrames {
  std::string what;     ///< How the state is wrong.
  std::string exit;     ///< See HonestyFrame.
  std::string detail;   ///< See HonestyFrame.
  long count = 0;       ///< How many.
  long firstFrame = 0;  ///< The first of them.
};

/// Something that changes what a state may be.
struct HonestyEvent {
  long frame = 0;    ///< Its number in the run.
  std::string what;  ///< In words.
};

/// How honest a run was.
struct Honesty {
  static constexpr long kTolerance = 3;         ///< Frames around an event that may be as before or as after it.
  static constexpr double kOnTarget = 0.1;      ///< Overlap from which a box lies on the target.
  long frames = 0;                              ///< Frames answered by update(), and the operator's further marks.
  long right = 0;                               ///< Frames whose state is right.
  long claims = 0;                              ///< Boxes called seen ...
  long wrongClaims = 0;                         ///< ... whose overlap with the truth is below kOnTarget.
  long partly = 0;                              ///< Frames that show the target partly.
  std::vector<WrongFrames> wrongStates;         ///< Frames that are not right, most frequent cause first.
  std::vector<WrongFrames> wrongClaimsByCause;  ///< The wrong claims likewise.
  std::vector<HonestyEvent> events;             ///< In their order.

  /// [0, 1]; 1 without frames.
  double rightShare() const { return frames > 0 ? static_cast<double>(right) / static_cast<double>(frames) : 1.0; }
  /// [0, 1]; 0 without claims.
  double wrongClaimShare() const {
    return claims > 0 ? static_cast<double>(wrongClaims) / static_cast<double>(claims) : 0.0;
  }
};

/// Judges frames in a row. Pure. @param firstFrame  the number of the first of them
Honesty judgeHonesty(const std::vector<HonestyFrame>& frames, long firstFrame);

/// When a camera looks where a target was marked, from the scenario's configuration.
struct PointingRule {
  bool asked = false;              ///< The scene asks for pointing at all.
  double centreTolerance = 0.1;    ///< Share of the frame's side; within it nothing needs to be pointed.
  double alignedTolerance = 0.02;  ///< Share of the frame's side.
  int holdFrames = 2;              ///< In a row.
};

/// Collects a run's frames.
class HonestyWatch {
 public:
  void begin(const Scenario& scenario);
  void frame(const SimulatedFrame& frame);

  /// The judgement of the frames collected so far.
  Honesty honesty() const;

 private:
  void watchPointing_(const SimulatedFrame& frame);
  Shown shownBy_(const SimulatedFrame& frame) const;
  void noteEvents_(const SimulatedFrame& frame, Shown shown);
  void noteEvent_(const SimulatedFrame& frame, const std::string& what);
  void noteHistory_(const CallRecord& record);
  std::string detailOf_(const CallRecord& record) const;

  PointingRule rule_;
  cv::Size size_;
  std::optional<Angles> goal_;  // where the target was marked, while the camera is being pointed there
  int aligned_ = 0;             // frames in a row
  std::vector<HonestyFrame> frames_;
  std::vector<HonestyEvent> events_;
  Shown before_ = Shown::Pointing;  // of the last frame that was not partly
  double hfov_ = 0.0;
  long inViewSince_ = 0;  // frame
  long searchedOn_ = -1;  // frame of the last search
  std::string searchOutcome_;
  std::string givenUpFor_;
  std::string trackerFrom_ = "the start";  // what started the tracker that now runs
};

/// The member `honesty` of a simulation's summary. Pure.
nlohmann::ordered_json toJson(const Honesty& honesty);

/// Several lines for people, the last one with its line feed.
std::string textOf(const Honesty& honesty);

}  // namespace host::sim
