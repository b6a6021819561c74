#include "simulator/simulated_camera.h"

#include <algorithm>
#include <cstddef>

#include "simulator/camera.h"
#include "simulator/reported_metadata.h"

namespace host::sim {
namespace {

constexpr double kFullView = 0.95;

BBox startBox(const Truth& truth, const cv::Point2d& offset) {
  const cv::Rect2d box = truth.box + cv::Point2d(offset.x * truth.box.width, offset.y * truth.box.height);
  return {cvRound(box.x), cvRound(box.y), cvRound(box.width), cvRound(box.height)};
}

}  // namespace

const char* name(HostPhase phase) {
  return phase == HostPhase::Pointing ? "pointing" : "following";
}

GimbalOrder Operator::orderAfter(const CallRecord& record, const ocula::OculaPicture::BaseMetadata& metadata,
                                 double hfov, double now_s) {
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
  // Not a prediction: chasing one would drive the camera away from where the target was lost.
  const std::optional<cv::Rect2d> box =
      isWorthFollowing(record) ? std::optional<cv::Rect2d>(*record.box) : std::nullopt;
  return {false, pilot_.rates({record.time_s, now_s, box, readAngles(metadata), hfov})};
}

bool SecondLook::marks(const Truth& truth) const {
  return after_s_ && given_up_s_ >= *after_s_ && truth.visibleShare >= kFullView;
}

void SecondLook::sees(const CallRecord& record, const Truth& truth) {
  const bool without = record.state == TrackState::Lost || record.state == TrackState::Inactive;
  given_up_s_ = without && truth.visibleShare >= kFullView ? given_up_s_ + dt_s_ : 0.0;
}

SimulatedCamera::SimulatedCamera(const Scenario& scenario)
    : scenario_(scenario),
      stage_(scenario),
      operator_(scenario),
      secondLook_(scenario),
      rng_(scenario.seed + 99),
      gimbal_(scenario.camera.pan, scenario.camera.tilt, scenario.camera.delay_s, scenario.camera.start) {}

bool SimulatedCamera::read(SourceFrame& frame) {
  do {
    if (next_ >= scenario_.frames()) return false;
  } while (!takeOne_());
  frame = {};
  frame.index = now_.index;
  frame.time_s = now_.t_s;
  frame.bgr = now_.frame.bgr;
  frame.metadata = now_.frame.metadata;
  return true;
}

/// Takes the next frame. @return whether one has reached the host by then; it is `now_`
bool SimulatedCamera::takeOne_() {
  const long index = next_++;
  now_s_ = static_cast<double>(index) / scenario_.fps;
  if (index > 0) gimbal_.advance(1.0 / scenario_.fps);
  past_.push_back({now_s_, gimbal_.position()});
  underWay_.push_back(capture_(index, now_s_));
  if (underWay_.front().t_s + scenario_.camera.video_delay_s > now_s_ + 1e-6) return false;
  now_ = std::move(underWay_.front());
  underWay_.pop_front();
  SimulatedFrame& frame = now_.frame;
  const double hfov = frame.camera.view.hfov;
  mark_.reset();
  if (now_.index == 0 || secondLook_.marks(frame.truth)) mark_ = startBox(frame.truth, scenario_.host.box_offset);
  markedAgain_ = markedAgain_ || (mark_ && now_.index > 0);
  frame.metadata = reportedMetadata({encodersAt_(now_), hfov, vfovOf(hfov, scenario_.frame)},
                                    scenario_.host.follow_me && !markedAgain_, now_.t_s, scenario_.metadata, rng_);
  return true;
}

void SimulatedCamera::answered(const CallRecord& record) {
  SimulatedFrame& frame = now_.frame;
  frame.record = record;
  secondLook_.sees(frame.record, frame.truth);
  gimbal_.order(operator_.orderAfter(frame.record, frame.metadata, frame.camera.view.hfov, now_s_));
  frame.camera.phase = operator_.phase();
  frame.camera.asked = operator_.asked();
}

SimulatedCamera::Captured SimulatedCamera::capture_(long index, double t_s) {
  SimulatedFrame frame;
  frame.camera = look_(t_s);
  frame.bgr = stage_.see(frame.camera.view, t_s);
  frame.truth = stage_.truth(frame.camera.view, t_s);
  return {index, t_s, std::move(frame)};
}

/// What the encoders read, a while before the frame where the metadata are late.
Angles SimulatedCamera::encodersAt_(const Captured& captured) const {
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

CameraState SimulatedCamera::look_(double t_s) const {
  CameraState camera;
  camera.gimbal = gimbal_.position();
  const Angles shake = shakeAt(scenario_.camera.shake, t_s);
  const double hfov = hfovAt(scenario_.camera.hfov_deg, scenario_.camera.zoom, t_s, operator_.following_s());
  camera.view.centre = {wrapped(camera.gimbal.pan + shake.pan), camera.gimbal.tilt + shake.tilt};
  camera.view.hfov = hfov;
  camera.view.vfov = vfovOf(hfov, scenario_.frame);
  return camera;
}

}  // namespace host::sim
