#include "simulator/simulation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <exception>
#include <memory>
#include <utility>

#include "base/interrupt.h"
#include "plugin/target_session.h"
#include "simulator/camera.h"
#include "simulator/gimbal.h"
#include "simulator/pilot.h"
#include "simulator/reported_metadata.h"

namespace host::sim {
namespace {

/// The host's part: what it orders after each answer of the plug-in.
class Operator {
 public:
  explicit Operator(const Scenario& scenario) : pilot_(scenario) {}

  /// @param now_s  the answer came then, later than the frame where the video is delayed
  GimbalOrder orderAfter(const CallRecord& record, const ocula::OculaPicture::BaseMetadata& metadata, double hfov,
                         double now_s) {
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
    return {false, pilot_.rates({record.time_s, now_s, box, readAngles(metadata), hfov})};
  }

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
    session_.guardWith(options.guard);
    session_.configure(scenario.config);
  }

  /// Lets the camera take a frame. @return the frame that reaches the host then; nothing: it is still under way
  std::optional<SimulatedFrame> step(long index) {
    const double t_s = static_cast<double>(index) / scenario_.fps;
    if (index > 0) gimbal_.advance(1.0 / scenario_.fps);
    past_.push_back({t_s, gimbal_.position()});
    underWay_.push_back(capture_(index, t_s));
    if (underWay_.front().t_s + scenario_.camera.video_delay_s > t_s + 1e-6) return std::nullopt;
    Captured captured = std::move(underWay_.front());
    underWay_.pop_front();
    judge_(captured, t_s);
    return std::move(captured.frame);
  }

  const Panorama& panorama() const { return stage_.panorama(); }

 private:
  struct Captured {
    long index;
    double t_s;
    SimulatedFrame frame;
  };

  Captured capture_(long index, double t_s) {
    SimulatedFrame frame;
    frame.camera = look_(t_s);
    frame.bgr = stage_.see(frame.camera.view, t_s);
    frame.truth = stage_.truth(frame.camera.view, t_s);
    return {index, t_s, std::move(frame)};
  }

  /// The plug-in and then the host get to see a frame. @param now_s  when
  void judge_(Captured& captured, double now_s) {
    SimulatedFrame& frame = captured.frame;
    const double hfov = frame.camera.view.hfov;
    const bool mark = captured.index == 0 || secondLook_.marks(frame.truth);
    markedAgain_ = markedAgain_ || (mark && captured.index > 0);
    frame.metadata =
        reportedMetadata({encodersAt_(captured), hfov, vfovOf(hfov, scenario_.frame)},
                         scenario_.host.follow_me && !markedAgain_, captured.t_s, scenario_.metadata, rng_);
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr, frame.metadata);
    const FramePlace place{captured.index, captured.t_s};
    frame.record = mark ? session_.init(picture, place, startBox(frame.truth, scenario_.host.box_offset))
                        : session_.update(picture, place);
    secondLook_.sees(frame.record, frame.truth);
    gimbal_.order(operator_.orderAfter(frame.record, frame.metadata, hfov, now_s));
    frame.camera.phase = operator_.phase();
    frame.camera.asked = operator_.asked();
  }

  /// What the encoders read, a while before the frame where the metadata are late.
  Angles encodersAt_(const Captured& captured) const {
    const double delay_s = scenario_.metadata.delay_s;
    if (delay_s <= 0) return captured.frame.camera.gimbal;
    const double t_s = captured.t_s - delay_s;
    std::size_t after = 0;
    while (after + 1 < past_.size() && past_[after].first < t_s) ++after;
    if (after == 0) return past_.front().second;
    const auto& [t0_s, before] = past_[after - 1];
    const auto& [t1_s, next] = past_[after];
    const Angles way = between(before, next);
    const double share = std::clamp((t_s - t0_s) / (t1_s - t0_s), 0.0, 1.0);
    return {wrapped(before.pan + share * way.pan), before.tilt + share * way.tilt};
  }

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
  std::deque<Captured> underWay_;
  std::vector<std::pair<double, Angles>> past_;  // where the gimbal looked
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
    const std::optional<SimulatedFrame> frame = run.step(i);
    if (!frame) continue;
    for (SimulationObserver* observer : observers) observer->frame(*frame);
    started = !frame->record.isInit || frame->record.frame > 0 || frame->record.started;
  }
  ending.endNow();
  return started;
}

}  // namespace host::sim
