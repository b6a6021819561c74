// All that is known about one frame of a simulated run.
#pragma once

#include <opencv2/core.hpp>
#include <optional>

#include "ocula/ocula_picture.h"
#include "plugin/call_record.h"
#include "simulator/angles.h"
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

}  // namespace host::sim
