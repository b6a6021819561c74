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
  Angles start;                                     ///< Where it looks on the first frame.
  double hfov_deg = 60.0;                           ///< On the first frame.
  AxisLimits pan;                                   ///< What turning to the sides can do.
  AxisLimits tilt{60.0, 240.0, 0.05, -90.0, 90.0};  ///< What turning up and down can do.
  double delay_s = 0.04;                            ///< An order's way to the gimbal.
  double video_delay_s = 0.0;                       ///< A frame's way to the host; in effect whole frames.
  double noise = 3.0;                               ///< Standard deviation of each pixel, grey levels.
  ShakeParams shake;                                ///< The wind.
  std::vector<ZoomOrder> zoom;                      ///< In the order of their times.
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
  double from_s = 0.0;            ///< Seconds of the scene; included.
  double until_s = 0.0;           ///< Seconds of the scene; excluded.
  std::vector<std::string> keys;  ///< Empty: pan, tilt and both fields of view.
};

/// What goes wrong with the metadata.
struct MetadataParams {
  double noise_deg = 0.0;             ///< Standard deviation of pan and tilt as they are reported.
  double delay_s = 0.0;               ///< The angles that come with a frame were read so long before it was taken.
  std::vector<MetadataFault> faults;  ///< May overlap.
};

/// What the host does.
struct HostParams {
  bool follow_me = true;         ///< What the metadata say to the plug-in.
  cv::Point2d box_offset{0, 0};  ///< How far beside the target the operator draws the box, in box sides.
  FollowParams follow;           ///< How the camera is kept on the box.
  bool predicting = false;       ///< Follow with gimbal::Controller, which knows the delays; else with CameraFollower.
  /// The operator marks the target again, without asking for pointing, once the plug-in has been without a target and
  /// the target in full view for so long. Seconds; nothing: never.
  std::optional<double> mark_again_after_s;
};

/// What the run must come to; what is not given is not judged.
struct Expectations {
  std::optional<bool> armed;                           ///< Tracking starts, or does not.
  std::optional<long> armed_within_frames;             ///< From the mark.
  std::optional<double> first_iou_min;                 ///< Of the first box. [0, 1]
  std::optional<double> mean_iou_min;                  ///< While it can be seen and is reported seen. [0, 1]
  std::optional<double> pointing_error_armed_deg_max;  ///< When tracking starts.
  std::optional<double> pointing_error_p95_deg_max;    ///< While following, 95th percentile.
  std::optional<double> pointing_error_p95_px_max;     ///< Likewise, pixels.
  std::optional<double> seconds_lost_max;              ///< In view, but no box seen lies on it.
  std::optional<long> false_boxes_max;                 ///< Boxes called seen with nothing of the target in them.
  std::optional<long> zoom_reseeds_min;                ///< Starts after a zoom.
  std::optional<long> redetections_min;                ///< Finds of the search over the whole frame.
  std::optional<double> state_right_min;               ///< Share of frames, see Honesty.
  std::optional<double> wrong_claims_max;              ///< Share of the boxes called seen, see Honesty.
  std::vector<std::string> final_state;                ///< One of these.
};

/// A scene, a camera, a host and what must come of them.
struct Scenario {
  std::string name;              ///< Of the file, without its ending.
  std::string title;             ///< One sentence for the list.
  std::uint64_t seed = 1;        ///< Draws scene and noise.
  double duration_s = 8.0;       ///< Seconds.
  double fps = 25.0;             ///< Frames per second.
  cv::Size frame{640, 360};      ///< Pixels.
  SceneParams scene;             ///< The ground.
  CameraParams camera;           ///< What looks at it.
  Actor target;                  ///< What is followed.
  std::vector<Actor> decoys;     ///< Others that look like it.
  std::vector<Actor> occluders;  ///< Walls in front of it.
  HostParams host;               ///< Who drives the plug-in.
  MetadataParams metadata;       ///< What the plug-in is told.
  std::string config;            ///< JSON for setConfig().
  Expectations expect;           ///< What makes the run a test.

  long frames() const { return std::lround(duration_s * fps); }  ///< Of the whole run.
};

}  // namespace host::sim
