// A simulated run: the scene is seen through the camera, the plug-in sees the pictures, the host moves the camera.
#pragma once

#include <opencv2/core.hpp>
#include <optional>
#include <vector>

#include "ocula/ocula_picture.h"
#include "plugin/call_record.h"
#include "plugin/plugin_library.h"
#include "simulator/panorama.h"
#include "simulator/scenario.h"
#include "simulator/stage.h"

namespace host::sim {

/// What the host is doing with the camera.
enum class HostPhase {
  Pointing,  ///< The gimbal goes to the angles the plug-in asked for.
  Following  ///< The gimbal is turned so that the box stays in the middle.
};

const char* name(HostPhase phase);

/// The camera on one frame.
struct CameraState {
  View view;                              ///< What is really seen.
  Angles gimbal;                          ///< What the encoders read.
  HostPhase phase = HostPhase::Pointing;  ///< After the plug-in's answer.
  std::optional<Angles> asked;            ///< The plug-in's "gimbal_preposition.v1".
};

/// All about one frame.
struct SimulatedFrame {
  cv::Mat bgr;                                 ///< 8-bit BGR.
  ocula::OculaPicture::BaseMetadata metadata;  ///< As the plug-in got it, faults included.
  CallRecord record;                           ///< What the plug-in answered.
  Truth truth;                                 ///< What it should have.
  CameraState camera;                          ///< When the frame was taken.
};

/// All calls come from one thread, begin() first, end() always last.
class SimulationObserver {
 public:
  virtual ~SimulationObserver() = default;
  virtual void begin(const Scenario& /*scenario*/, const Panorama& /*panorama*/) {}
  virtual void frame(const SimulatedFrame& frame) = 0;
  virtual void end() {}
};

/// How to run a scenario.
struct SimulationOptions {
  bool frameTime = true;  ///< The plug-in's clock follows the simulated time; false: it follows the machine's.
  GuardChoice guard = GuardChoice::Off;  ///< Who watches the plug-in's answers.
};

/// Runs the scenario to its end, or until a signal asks to stop. The same scenario gives the same frames.
/// @return false when the plug-in refused the target
/// @throws HostError (Plugin, Usage) and what observers throw
bool simulate(const Scenario& scenario, PluginLibrary& library, const SimulationOptions& options,
              const std::vector<SimulationObserver*>& observers);

}  // namespace host::sim
