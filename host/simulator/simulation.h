// A simulated run: the scene is seen through the camera, the plug-in sees the pictures, its answers move the camera.
#pragma once

#include <string>
#include <vector>

#include "input/pace.h"
#include "plugin/guard_choice.h"
#include "plugin/plugin_library.h"
#include "run/run_observer.h"
#include "simulator/simulated_camera.h"

namespace host::sim {

/// An observer of a simulated run that also wants to know how the scene really was.
class SimulationObserver : public RunObserver {
 public:
  /// @param camera  the run's source; must outlive this
  explicit SimulationObserver(const SimulatedCamera& camera) : camera_(camera) {}
  void frame(const SourceFrame& /*frame*/, const std::vector<CallRecord>& /*records*/) final { seen(camera_.now()); }

 protected:
  virtual void seen(const SimulatedFrame& frame) = 0;
  const SimulatedCamera& camera() const { return camera_; }

 private:
  const SimulatedCamera& camera_;
};

/// How to run a scenario.
struct SimulationOptions {
  Pace pace = Pace::Video;  ///< Which time the plug-in sees; Pace::Source: the scene takes its own time.
  GuardChoice guard;        ///< Who watches the plug-in's answers.
};

/// Runs the camera's scenario to its end, or until a signal asks to stop.
/// @param camera  a fresh one
/// @return false when the plug-in refused the target
/// @throws HostError (Plugin, Usage) and what observers throw; observers that began are always ended
bool simulate(SimulatedCamera& camera, PluginLibrary& library, const SimulationOptions& options,
              const std::vector<RunObserver*>& observers);

}  // namespace host::sim
