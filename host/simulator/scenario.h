// Everything that a simulated run needs to know, as plain data. Angles in degrees, times in seconds.
#pragma once

#include <cmath>
#include <cstdint>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulator/actors.h"
#include "simulator/camera.h"
#include "simulator/camera_follower.h"
#include "simulator/gimbal.h"

namespace host::sim {

/// What is drawn.
struct SceneParams {
  std::string picture;           ///< A panorama of the full turn; empty: one is drawn.
  double tilt_span_deg = 60.0;   ///< Height of the drawn scene, its middle at tilt 0. [20, 180]
  double pixels_per_deg = 12.0;  ///< Of the drawn scene. [4, 40]
};

/// The camera and its mount.
struct CameraParams {
  Angles start;            ///< Where it looks on the first frame.
  double hfov_deg = 60.0;  ///< On the first frame.
  AxisLimits pan;
  AxisLimits tilt{60.0, 240.0, 0.05, -90.0, 90.0};
  double delay_s = 0.04;  ///< An order's way to the gimbal.
  double noise = 3.0;     ///< Standard deviation of each pixel, grey levels.
  ShakeParams shake;
  std::vector<ZoomOrder> zoom;
};

/// How the camera's metadata go wrong for a while.
struct MetadataFault {
  enum class Kind {
    Missing,   ///< The key is not there.
    Text,      ///< The number comes as text.
    WholeInt,  ///< The number comes rounded, as an int.
    NotFinite  ///< A NaN.
  };
  Kind kind = Kind::Missing;
  double from_s = 0.0;
  double until_s = 0.0;
  std::vector<std::string> keys;  ///< Empty: pan, tilt and both fields of view.
};

/// What goes wrong with the metadata.
struct MetadataParams {
  double noise_deg = 0.0;  ///< Standard deviation of pan and tilt as they are reported.
  std::vector<MetadataFault> faults;
};

/// What the host does.
struct HostParams {
  bool follow_me = true;         ///< What the metadata say to the plug-in.
  cv::Point2d box_offset{0, 0};  ///< How far beside the target the operator draws the box, in box sides.
  FollowParams follow;
  /// The operator marks the target again, without asking for pointing, once the plug-in has been without a target and
  /// the target in full view for so long. Seconds; nothing: never.
  std::optional<double> mark_again_after_s;
};

/// What the run must come to; what is not given is not judged.
struct Expectations {
  std::optional<bool> armed;
  std::optional<long> armed_within_frames;
  std::optional<double> first_iou_min;
  std::optional<double> mean_iou_min;
  std::optional<double> pointing_error_armed_deg_max;
  std::optional<double> pointing_error_p95_deg_max;
  std::optional<double> pointing_error_p95_px_max;
  std::optional<double> seconds_lost_max;
  std::optional<long> false_boxes_max;
  std::optional<long> zoom_reseeds_min;
  std::optional<long> redetections_min;
  std::optional<double> state_right_min;   ///< Share of frames, see Honesty.
  std::optional<double> wrong_claims_max;  ///< Share of the boxes called seen, see Honesty.
  std::vector<std::string> final_state;    ///< One of these.
};

/// A scene, a camera, a host and what must come of them.
struct Scenario {
  std::string name;  ///< Of the file, without its ending.
  std::string title;
  std::uint64_t seed = 1;
  double duration_s = 8.0;
  double fps = 25.0;
  cv::Size frame{640, 360};
  SceneParams scene;
  CameraParams camera;
  Actor target;
  std::vector<Actor> decoys;
  std::vector<Actor> occluders;
  HostParams host;
  MetadataParams metadata;
  std::string config;  ///< JSON for setConfig().
  Expectations expect;

  long frames() const { return std::lround(duration_s * fps); }
};

}  // namespace host::sim
