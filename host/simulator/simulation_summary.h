// What a simulated run comes to: did the camera get there, did it stay there, was the box ever on the wrong thing.
#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/honesty.h"
#include "simulator/scenario.h"
#include "simulator/simulated_frame.h"

namespace host::sim {

/// Degrees or pixels over the frames of a run.
struct Spread {
  double median = 0.0;  ///< Half of the frames lie below.
  double p95 = 0.0;     ///< 95 of 100 frames lie below.
  double max = 0.0;     ///< The worst frame.
};

/// Unless it says otherwise: frames after arming, update() calls only.
struct SimulationTotals {
  std::string engine;                            ///< What the plug-in followed with.
  long frames = 0;                               ///< All of the run, the first one included.
  bool started = false;                          ///< What the first init() answered.
  std::optional<Angles> asked;                   ///< What the plug-in wanted the camera to look at ...
  std::optional<double> askedErrorDeg;           ///< ... and how far that was from the target then.
  std::optional<long> armedFrame;                ///< The first frame on which the plug-in no longer waited.
  double secondsToArm = 0.0;                     ///< From the run's beginning.
  double armedErrorDeg = 0.0;                    ///< Of the picture's middle from the target, on that frame.
  double armedErrorPx = 0.0;                     ///< The same, pixels.
  std::optional<double> firstIou;                ///< Of the first box after arming with the truth.
  Spread followingErrorDeg;                      ///< Over the frames on which the target could be seen.
  Spread followingErrorPx;                       ///< The same, pixels.
  double meanIou = 0.0;                          ///< Over the frames on which it could be seen and was reported seen.
  long framesVisible = 0;                        ///< At least half of it could be seen.
  double secondsLost = 0.0;                      ///< It could be seen, but no box reported as seen lay on it.
  long falseBoxes = 0;                           ///< Reported as seen, but nothing of the target was in the box.
  long zoomReseeds = 0;                          ///< Starts after a zoom.
  long redetections = 0;                         ///< Finds of the search over the whole frame.
  long marksAgain = 0;                           ///< How often the operator had to mark the target anew.
  std::map<TrackState, long> states;             ///< All update() calls.
  TrackState finalState = TrackState::Inactive;  ///< Of the last frame.
  std::string lostReason;                        ///< Of the last time it was given up; empty: never.
  double medianUpdateMs = 0.0;                   ///< Wall clock.
  Honesty honesty;                               ///< Whether states and boxes said what is so.
};

/// One expectation of the scenario and what came.
struct Check {
  std::string name;    ///< Of the expectation, as in the scenario.
  std::string wanted;  ///< In words.
  std::string found;   ///< In words.
  bool met = false;    ///< What came is what was wanted.
};

/// Adds a run up and holds it against what its scenario expects.
class SimulationSummary {
 public:
  void begin(const Scenario& scenario);
  void frame(const SimulatedFrame& frame);

  /// Of the frames so far. Any number of times.
  SimulationTotals totals() const;

 private:
  void countFollowing_(const SimulatedFrame& frame);

  double fps_ = 25.0;
  SimulationTotals totals_;
  HonestyWatch honesty_;
  std::vector<double> errorsDeg_;
  std::vector<double> errorsPx_;
  std::vector<double> ious_;
  std::vector<double> update_ms_;
  long framesLost_ = 0;
};

/// One check per expectation that is given, in the order of the struct. Pure.
std::vector<Check> judge(const SimulationTotals& totals, const Expectations& expect);

/// The summary that `simulate --summary` writes. Pure.
nlohmann::ordered_json toJson(const Scenario& scenario, const SimulationTotals& totals,
                              const std::vector<Check>& checks);

/// Several lines for people, the last one with its line feed.
std::string textOf(const Scenario& scenario, const SimulationTotals& totals, const std::vector<Check>& checks);

}  // namespace host::sim
