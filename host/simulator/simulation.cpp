#include "simulator/simulation.h"

#include <cmath>
#include <cstdio>
#include <exception>
#include <memory>
#include <utility>

#include "base/interrupt.h"
#include "plugin/target_session.h"
#include "simulator/camera.h"
#include "simulator/camera_follower.h"
#include "simulator/drawing.h"
#include "simulator/gimbal.h"
#include "simulator/reported_metadata.h"

namespace host::sim {
namespace {

/// The scene with everything that moves, as pictures and as truth.
class Stage {
 public:
  explicit Stage(const Scenario& scenario)
      : scenario_(scenario),
        panorama_(scenario.scene, scenario.seed),
        noise_(scenario.frame, scenario.camera.noise, scenario.seed) {
    int number = 0;
    const auto add = [&](const Actor& actor) {
      actors_.emplace_back(&actor,
                           makeSprite(actor.look, actor.size.width / actor.size.height, number++, scenario.seed));
    };
    add(scenario.target);  // painted in this order: what comes later hides what came before
    for (const Actor& decoy : scenario.decoys) add(decoy);
    for (const Actor& wall : scenario.occluders) add(wall);
  }

  cv::Mat see(const View& view, double t_s) {
    cv::Mat picture = panorama_.see(view, scenario_.frame);
    for (const auto& [actor, sprite] : actors_) {
      if (isThere(*actor, t_s)) paint(picture, sprite, boxOf(*actor, t_s, view, scenario_.frame));
    }
    noise_.add(picture);
    return picture;
  }

  Truth truth(const View& view, double t_s) const {
    Truth truth;
    truth.there = isThere(scenario_.target, t_s);
    truth.direction = placeOf(scenario_.target, t_s);
    truth.direction.pan = wrapped(truth.direction.pan);
    truth.box = boxOf(scenario_.target, t_s, view, scenario_.frame);
    truth.visibleShare = truth.there ? visibleShare(truth.box, covers_(view, t_s), scenario_.frame) : 0.0;
    const Angles off = between(view.centre, truth.direction);
    truth.pointingErrorDeg = std::hypot(off.pan, off.tilt);
    truth.pointingErrorPx =
        std::hypot(off.pan / view.hfov * scenario_.frame.width, off.tilt / view.vfov * scenario_.frame.height);
    return truth;
  }

  const Panorama& panorama() const { return panorama_; }

 private:
  std::vector<cv::Rect2d> covers_(const View& view, double t_s) const {
    std::vector<cv::Rect2d> covers;
    for (const auto* group : {&scenario_.decoys, &scenario_.occluders}) {
      for (const Actor& actor : *group) {
        if (isThere(actor, t_s)) covers.push_back(boxOf(actor, t_s, view, scenario_.frame));
      }
    }
    return covers;
  }

  const Scenario& scenario_;
  Panorama panorama_;
  SensorNoise noise_;
  std::vector<std::pair<const Actor*, Sprite>> actors_;
};

/// The host's part: what it orders after each answer of the plug-in.
class Operator {
 public:
  explicit Operator(const Scenario& scenario) : scenario_(scenario), follower_(scenario.host.follow) {}

  GimbalOrder orderAfter(const CallRecord& record, double hfov) {
    if (record.isInit) {
      asked_.reset();
      if (record.pointTo) asked_ = Angles{record.pointTo->pan_deg, record.pointTo->tilt_deg};
    }
    const bool waiting = record.state == TrackState::Waiting;
    if (phase_ == HostPhase::Pointing && !waiting) {
      phase_ = HostPhase::Following;
      following_s_ = record.time_s;
    }
    if (phase_ == HostPhase::Pointing && asked_) return {true, *asked_};
    // Only a box that was seen in this frame: chasing predictions would drive the camera away from where it was lost.
    const std::optional<cv::Rect2d> box = isSeen(record) ? std::optional<cv::Rect2d>(*record.box) : std::nullopt;
    const double vfov = vfovOf(hfov, scenario_.frame);
    return {false, follower_.rateFor(box, hfov, vfov, scenario_.frame, 1.0 / scenario_.fps)};
  }

  HostPhase phase() const { return phase_; }
  double following_s() const { return following_s_; }  ///< Negative: not yet.
  const std::optional<Angles>& asked() const { return asked_; }

 private:
  const Scenario& scenario_;
  CameraFollower follower_;
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
  bool marks(const Truth& truth) const {
    return after_s_ && given_up_s_ >= *after_s_ && truth.visibleShare >= kFullView;
  }

  void sees(const CallRecord& record, const Truth& truth) {
    const bool without = record.state == TrackState::Lost || record.state == TrackState::Inactive;
    given_up_s_ = without && truth.visibleShare >= kFullView ? given_up_s_ + dt_s_ : 0.0;
  }

 private:
  static constexpr double kFullView = 0.95;
  std::optional<double> after_s_;
  double dt_s_;
  double given_up_s_ = 0.0;
};

BBox startBox(const Truth& truth, const cv::Point2d& offset) {
  const cv::Rect2d box = truth.box + cv::Point2d(offset.x * truth.box.width, offset.y * truth.box.height);
  return {cvRound(box.x), cvRound(box.y), cvRound(box.width), cvRound(box.height)};
}

/// One run, frame by frame.
class Run {
 public:
  Run(const Scenario& scenario, PluginLibrary& library, const SimulationOptions& options)
      : scenario_(scenario),
        stage_(scenario),
        operator_(scenario),
        secondLook_(scenario),
        rng_(scenario.seed + 99),
        gimbal_(scenario.camera.pan, scenario.camera.tilt, scenario.camera.delay_s, scenario.camera.start),
        session_(library.create(), "target", library.engine()) {
    session_.keepPace(options.frameTime ? Pace::Video : Pace::Fast);
    session_.configure(scenario.config);
  }

  SimulatedFrame step(long index) {
    const double t_s = static_cast<double>(index) / scenario_.fps;
    if (index > 0) gimbal_.advance(1.0 / scenario_.fps);
    SimulatedFrame frame;
    frame.camera = look_(t_s);
    frame.bgr = stage_.see(frame.camera.view, t_s);
    frame.truth = stage_.truth(frame.camera.view, t_s);
    const double hfov = frame.camera.view.hfov;
    const bool mark = index == 0 || secondLook_.marks(frame.truth);
    markedAgain_ = markedAgain_ || (mark && index > 0);
    frame.metadata = reportedMetadata({frame.camera.gimbal, hfov, vfovOf(hfov, scenario_.frame)},
                                      scenario_.host.follow_me && !markedAgain_, t_s, scenario_.metadata, rng_);
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr, frame.metadata);
    const FramePlace place{index, t_s};
    frame.record = mark ? session_.init(picture, place, startBox(frame.truth, scenario_.host.box_offset))
                        : session_.update(picture, place);
    secondLook_.sees(frame.record, frame.truth);
    gimbal_.order(operator_.orderAfter(frame.record, hfov));
    frame.camera.phase = operator_.phase();
    frame.camera.asked = operator_.asked();
    return frame;
  }

  const Panorama& panorama() const { return stage_.panorama(); }

 private:
  CameraState look_(double t_s) const {
    CameraState camera;
    camera.gimbal = gimbal_.position();
    const Angles shake = shakeAt(scenario_.camera.shake, t_s);
    const double hfov = hfovAt(scenario_.camera.hfov_deg, scenario_.camera.zoom, t_s, operator_.following_s());
    camera.view.centre = {wrapped(camera.gimbal.pan + shake.pan), camera.gimbal.tilt + shake.tilt};
    camera.view.hfov = hfov;
    camera.view.vfov = vfovOf(hfov, scenario_.frame);
    return camera;
  }

  const Scenario& scenario_;
  Stage stage_;
  Operator operator_;
  SecondLook secondLook_;
  bool markedAgain_ = false;
  cv::RNG rng_;
  Gimbal gimbal_;
  TargetSession session_;
};

/// Ends the observers that began, whatever happens.
struct Ending {
  const std::vector<SimulationObserver*>& observers;
  std::size_t begun = 0;
  ~Ending() {
    while (begun > 0) {
      try {
        observers[--begun]->end();
      } catch (const std::exception& e) {  // another error is already under way
        std::fprintf(stderr, "csrt-track: %s\n", e.what());
      }
    }
  }
  void endNow() {
    while (begun > 0) observers[--begun]->end();
  }
};

}  // namespace

const char* name(HostPhase phase) {
  return phase == HostPhase::Pointing ? "pointing" : "following";
}

bool simulate(const Scenario& scenario, PluginLibrary& library, const SimulationOptions& options,
              const std::vector<SimulationObserver*>& observers) {
  Run run(scenario, library, options);
  Ending ending{observers};
  for (SimulationObserver* observer : observers) {
    observer->begin(scenario, run.panorama());
    ++ending.begun;
  }
  bool started = true;
  for (long i = 0; started && i < scenario.frames() && interruptSignal() == 0; ++i) {
    const SimulatedFrame frame = run.step(i);
    for (SimulationObserver* observer : observers) observer->frame(frame);
    started = i > 0 || frame.record.started;
  }
  ending.endNow();
  return started;
}

}  // namespace host::sim
