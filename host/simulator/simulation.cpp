#include "simulator/simulation.h"

#include <optional>

#include "plugin/target_session.h"
#include "run/run_loop.h"

namespace host::sim {
namespace {

/// Follows what the operator marks.
class MarkedSession : public RunSession {
 public:
  MarkedSession(const SimulatedCamera& camera, PluginLibrary& library, const SimulationOptions& options)
      : camera_(camera), session_(library.create(), "target", library.engine()) {
    session_.keepPace(options.pace);
    session_.guardWith(options.guard);
    session_.configure(camera.scenario().config);
  }

  CallRecord step(const FramePicture& picture, const SourceFrame& frame) override {
    const FramePlace place{frame.index, frame.time_s};
    const std::optional<BBox> mark = camera_.mark();
    return mark ? session_.init(picture, place, *mark) : session_.update(picture, place);
  }

 private:
  const SimulatedCamera& camera_;
  TargetSession session_;
};

/// Hands the answers to the camera, and ends a run whose target was refused.
class SimulationDirector : public RunDirector {
 public:
  SimulationDirector(SimulatedCamera& camera, PluginLibrary& library, const SimulationOptions& options)
      : camera_(camera), library_(library), guard_(options.guard), session_(camera, library, options) {}

  void begin(const SourceFrame& /*first*/, RunInfo& info) override {
    info.source = camera_.scenario().name;
    info.targets = {"target"};
    info.configText = camera_.scenario().config;
    info.pluginPath = library_.path();
    info.engine = library_.engine();
    info.guard = guard_;
  }

  std::vector<RunSession*> sessions(SourceFrame& /*frame*/) override { return {&session_}; }

  void answered(const SourceFrame& frame, std::vector<CallRecord>& records) override {
    camera_.answered(records.front());
    if (frame.index == 0) started_ = records.front().started;
  }

  bool goesOn(const SourceFrame& /*frame*/, const std::vector<CallRecord>& /*records*/,
              RunObserver& /*told*/) override {
    return started_;
  }

  bool started() const { return started_; }

 private:
  SimulatedCamera& camera_;
  PluginLibrary& library_;
  const GuardChoice& guard_;
  MarkedSession session_;
  bool started_ = true;
};

}  // namespace

bool simulate(SimulatedCamera& camera, PluginLibrary& library, const SimulationOptions& options,
              const std::vector<RunObserver*>& observers) {
  SimulationDirector director(camera, library, options);
  runLoop({camera, director, observers, options.pace, 1, {}});
  return director.started();
}

}  // namespace host::sim
