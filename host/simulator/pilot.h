// The host's hand on the gimbal: the follower that a scenario asks for.
#pragma once

#include <opencv2/core.hpp>
#include <optional>

#include "gimbal/controller.h"
#include "ocula/ocula_picture.h"
#include "simulator/angles.h"
#include "simulator/camera_follower.h"
#include "simulator/scenario.h"

namespace host::sim {

/// What the host knows after a frame.
struct PilotView {
  double captured_s = 0.0;        ///< When the frame was taken ...
  double now_s = 0.0;             ///< ... and when it has been judged.
  std::optional<cv::Rect2d> box;  ///< Where the target was seen, frame pixels; nothing: it was not.
  std::optional<Angles> angles;   ///< Of the gimbal, as reported with the frame.
  double hfov = 60.0;             ///< Horizontal field of view, degrees.
};

/// Pan and tilt of a frame's metadata. Pure. @return nothing when one is missing, no double or not finite
std::optional<Angles> readAngles(const ocula::OculaPicture::BaseMetadata& metadata);

/// What a controller must know of the simulated gimbal. Pure.
gimbal::ControllerParams controllerParamsOf(const Scenario& scenario);

/// Not thread-safe; one call per frame.
class Pilot {
 public:
  /// @param scenario  must outlive this
  explicit Pilot(const Scenario& scenario);

  /// The rates to order, degrees per second.
  Angles rates(const PilotView& view);

 private:
  const Scenario& scenario_;
  CameraFollower follower_;
  gimbal::Controller controller_;
};

}  // namespace host::sim
