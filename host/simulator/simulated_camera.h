// The gimbal camera as a source of frames that listens: what is answered to a frame turns the gimbal.
#pragma once

#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "ialgo_plugin.h"
#include "input/frame_source.h"
#include "simulator/gimbal.h"
#include "simulator/pilot.h"
#include "simulator/scenario.h"
#include "simulator/simulated_frame.h"
#include "simulator/stage.h"

namespace host::sim {

/// The host's part: what it orders after each answer of the plug-in.
class Operator {
 public:
  explicit Operator(const Scenario& scenario) : pilot_(scenario) {}

  /// @param now_s  the answer came then, later than the frame where the video is delayed
  GimbalOrder orderAfter(const CallRecord& record, const ocula::OculaPicture::BaseMetadata& metadata, double hfov,
                         double now_s);

  HostPhase phase() const { return phase_; }
  double following_s() const { return following_s_; }  ///< Negative: not yet.
  const std::optional<Angles>& asked() const { return asked_; }

 private:
  Pilot pilot_;
  HostPhase phase_ = HostPhase::Pointing;
  double following_s_ = -1.0;
  std::optional<Angles> asked_;
};

/// When the operator looks again and marks the target anew.
class SecondLook {
 public:
  explicit SecondLook(const Scenario& scenario)
      : after_s_(scenario.host.mark_again_after_s), dt_s_(1.0 / scenario.fps) {}

  /// Whether this frame is one to mark the target on. @param truth  of this frame
  bool marks(const Truth& truth) const;
  void sees(const CallRecord& record, const Truth& truth);

 private:
  std::optional<double> after_s_;
  double dt_s_;
  double given_up_s_ = 0.0;
};

/// Frames of a scenario, in the simulated time. The same scenario and the same answers give the same frames.
class SimulatedCamera : public FrameSource {
 public:
  /// @param scenario  must outlive this. @throws HostError (Usage) where the scene's picture cannot be read
  explicit SimulatedCamera(const Scenario& scenario);

  /// Lets the camera take frames until one reaches the host: later than it was taken where the video is delayed.
  bool read(SourceFrame& frame) override;
  double fps() const override { return scenario_.fps; }
  long expected() const override { return scenario_.frames(); }

  /// Where the operator marks the target on the frame just read; nothing: on this one nowhere. Full-frame pixels.
  std::optional<BBox> mark() const { return mark_; }
  /// What the plug-in answered to the frame just read: the gimbal is turned after it. Once for every frame.
  void answered(const CallRecord& record);

  /// The frame just read; with the answer once that is known.
  const SimulatedFrame& now() const { return now_.frame; }
  const Scenario& scenario() const { return scenario_; }
  const Panorama& panorama() const { return stage_.panorama(); }

 private:
  struct Captured {
    long index = 0;
    double t_s = 0.0;
    SimulatedFrame frame;
  };

  bool takeOne_();
  Captured capture_(long index, double t_s);
  Angles encodersAt_(const Captured& captured) const;
  CameraState look_(double t_s) const;

  const Scenario& scenario_;
  Stage stage_;
  Operator operator_;
  SecondLook secondLook_;
  bool markedAgain_ = false;
  cv::RNG rng_;
  Gimbal gimbal_;
  long next_ = 0;       // the next frame to take
  double now_s_ = 0.0;  // when the frame in hand reached the host
  Captured now_;
  std::optional<BBox> mark_;
  std::deque<Captured> underWay_;
  std::vector<std::pair<double, Angles>> past_;  // where the gimbal looked
};

}  // namespace host::sim
