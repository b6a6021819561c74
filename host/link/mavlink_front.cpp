#include "link/mavlink_front.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>

#include "ocula/ocula_picture.h"
#include "run/delay_observer.h"

namespace host::link {
namespace {

constexpr double kOrder_s = 0.04;  // between two orders to the gimbal
constexpr double kRest_s = 1.0;    // for so long zero rates are repeated
constexpr double kRemembered_s = 3.0;
constexpr int kSmallest = 4;

gimbal::PanTilt offOf(const cv::Rect& box, const CameraDescription& camera) {
  return offFromMiddle(box, camera.frame, camera.hfov_deg, camera.vfov_deg);
}

/// A box in shares of the frame.
cv::Rect2d shareOf(const cv::Rect& box, cv::Size frame) {
  return {static_cast<double>(box.x) / frame.width, static_cast<double>(box.y) / frame.height,
          static_cast<double>(box.width) / frame.width, static_cast<double>(box.height) / frame.height};
}

}  // namespace

double MavlinkFront::monotonic() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

FrontCommand commandOf(const TrackRequest& request, cv::Size frame) {
  FrontCommand command;
  switch (request.kind) {
    case TrackRequest::Kind::Stop:
      command.kind = FrontCommand::Kind::Stop;
      break;
    case TrackRequest::Kind::Point:
      command.kind = FrontCommand::Kind::Point;
      command.point = {std::clamp(cvFloor(request.point.x * frame.width), 0, frame.width - 1),
                       std::clamp(cvFloor(request.point.y * frame.height), 0, frame.height - 1)};
      break;
    case TrackRequest::Kind::Rectangle: {
      const cv::Rect2d& share = request.rectangle;
      const int width = std::clamp(cvRound(share.width * frame.width), kSmallest, frame.width);
      const int height = std::clamp(cvRound(share.height * frame.height), kSmallest, frame.height);
      command.kind = FrontCommand::Kind::Box;
      command.box = {std::clamp(cvRound(share.x * frame.width), 0, frame.width - width),
                     std::clamp(cvRound(share.y * frame.height), 0, frame.height - height), width, height};
      break;
    }
  }
  return command;
}

TrackingReport reportOf(const CallRecord& record, cv::Size frame) {
  TrackingReport report;
  switch (record.state) {
    case TrackState::Waiting:
    case TrackState::Tracked:
    case TrackState::Rebuilt:
    case TrackState::Redetected:
    case TrackState::Reacquired:
    case TrackState::Reseeded:
      report.state = TrackingReport::State::Active;
      break;
    case TrackState::Predicted:
      report.state = TrackingReport::State::Coasting;
      break;
    case TrackState::Lost:
    case TrackState::Inactive:
      report.state = TrackingReport::State::Lost;
      break;
  }
  const std::optional<cv::Rect> box = record.isInit ? record.givenBox : record.box;
  if (box && frame.area() > 0) report.box = shareOf(*box, frame);
  return report;
}

MavlinkFront::MavlinkFront(const MavlinkOptions& options)
    : options_(options),
      camera_(options.camera, monotonic()),
      gimbal_(camera_, options.panFrame),
      controller_(options.controller),
      delay_(options.controller.stale_s) {
  for (const std::string& line : options.lines) lines_.push_back(openTransport(line));
  if (options.calibrate) calibration_.emplace(0.0);
  thread_ = std::thread([this] { serve_(); });
}

MavlinkFront::~MavlinkFront() {
  stop_ = true;
  thread_.join();
}

std::string MavlinkFront::problem() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return problem_.empty() ? controller_.problem() : problem_;
}

std::string MavlinkFront::delaySentence() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return delay_.sentence();
}

void MavlinkFront::serve_() {
  while (!stop_) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (options_.clockFromLink) {
        passOnRequest_();
      } else {
        for (const auto& line : lines_) line->receive(aside_);
        pass_();
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(options_.clockFromLink ? 1 : 4));
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  for (int i = 0; i < 3 && gimbal_.controls(); ++i) {  // nobody will stop it afterwards, and one may get lost
    gimbal_.turn({0.0, 0.0});
    sendAll_();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

/// Hears what has come, and says and orders what is due.
void MavlinkFront::pass_() {
  const double now_s = now_();
  for (const mavlink::Frame& frame : std::exchange(aside_, {})) hear_(frame, now_s);
  if (options_.gimbal) gimbal_.tick(now_s);
  steer_(now_s);
  camera_.tick(now_s);
  sendAll_();
}

void MavlinkFront::passOnRequest_() {
  std::vector<mavlink::Frame> frames;
  for (const auto& line : lines_) line->receive(frames);
  if (!asked_) {
    linkTime_s_ = monotonic();
    pass_();
  }
  for (mavlink::Frame& frame : frames) {
    mavlink::Timesync request;
    if (!mavlink::tryRead(frame, request)) {
      aside_.push_back(std::move(frame));
      continue;
    }
    if (request.tc1 != 0) continue;
    asked_ = true;
    linkTime_s_ = std::max(linkTime_s_, 1e-9 * static_cast<double>(request.ts1));
    pass_();
    camera_.receive(frame, linkTime_s_);
    mavlink::Timesync answer = request;
    answer.tc1 = turnOver_ns_;
    camera_.send(answer);
    sendAll_();
  }
}

void MavlinkFront::sendAll_() {
  for (const mavlink::Frame& frame : camera_.takeOutgoing()) {
    const std::vector<std::uint8_t> bytes = mavlink::encodeFrame(frame);
    for (const auto& line : lines_) line->send(bytes);
  }
}

void MavlinkFront::hear_(const mavlink::Frame& frame, double now_s) {
  camera_.receive(frame, now_s);
  mavlink::GlobalPositionInt position;
  if (mavlink::tryRead(frame, position)) {
    position_ = position;
    camera_.reportPlatform(position);
  }
  if (!options_.gimbal) return;
  const std::optional<gimbal::PanTilt> angles = gimbal_.receive(frame, now_s);
  if (!angles) return;
  angles_.add(now_s, *angles);
  controller_.angles(now_s, *angles);
  delay_.angles(now_s, *angles);
  if (calibration_) calibration_->angles(now_s, *angles);
}

void MavlinkFront::steer_(double now_s) {
  if (gimbal_.takenAway() && !saidTaken_) {
    std::fprintf(stderr, "csrt-track: another station has taken the gimbal; choose a target to take it back\n");
    saidTaken_ = true;
  }
  if (calibration_) return calibrate_(now_s);
  if (now_s < nextOrder_s_) return;
  nextOrder_s_ = std::max(nextOrder_s_ + kOrder_s, now_s + 0.5 * kOrder_s);
  if (pointing_) return gimbal_.goTo(*pointing_);
  estimateDelay_(now_s);
  if (!gimbal_.controls()) return;
  const gimbal::PanTilt rates = controller_.rates(now_s);
  if (rates.pan != 0.0 || rates.tilt != 0.0 || controller_.state() == gimbal::ControllerState::Following) {
    restUntil_s_ = now_s + kRest_s;
  }
  if (now_s <= restUntil_s_) gimbal_.turn(rates);
}

void MavlinkFront::estimateDelay_(double now_s) {
  const std::optional<double> found_s = options_.findDelay ? delay_.news(now_s) : std::nullopt;
  if (!found_s) return;
  controller_.setStale(*found_s);
  const std::string said = delay_.sentence();
  std::fprintf(stderr, "csrt-track: %s; made good\n",
               said.empty() ? "the camera's angles belong to the picture again" : said.c_str());
}

void MavlinkFront::calibrate_(double now_s) {
  if (!gimbal_.controls()) {
    if (gimbal_.found()) gimbal_.want(now_s);
    calibration_.emplace(now_s);
    return;
  }
  if (now_s < nextOrder_s_) return;
  nextOrder_s_ = now_s + kOrder_s;
  gimbal_.turn(calibration_->rates(now_s));
  if (calibration_->done(now_s)) endCalibration_(now_s);
}

void MavlinkFront::endCalibration_(double now_s) {
  const gimbal::CalibrationResult result = calibration_->result();
  calibration_.reset();
  restUntil_s_ = now_s + kRest_s;
  const auto say = [](const char* axis, const gimbal::AxisCalibration& found) {
    std::fprintf(stderr, "csrt-track: %s: gain %.2f, delay %.0f ms, lag %.0f ms, left over %.2f degrees\n", axis,
                 found.gain, 1000 * found.delay_s, 1000 * found.lag_s, found.misfit_deg);
  };
  say("pan", result.pan);
  say("tilt", result.tilt);
  problem_ = gimbal::problemOf(result.pan, options_.controller.pan, "pan");
  if (problem_.empty()) problem_ = gimbal::problemOf(result.tilt, options_.controller.tilt, "tilt");
  if (!problem_.empty()) {
    std::fprintf(stderr, "csrt-track: the gimbal is not turned: %s\n", problem_.c_str());
    gimbal_.turn({0.0, 0.0});
    gimbal_.release();
    options_.gimbal = false;
    return;
  }
  gimbal::ControllerParams params = options_.controller;
  params.pan.delay_s = result.pan.delay_s;
  params.pan.lag_s = result.pan.lag_s;
  params.pan.gain = result.pan.gain;
  params.tilt.delay_s = result.tilt.delay_s;
  params.tilt.lag_s = result.tilt.lag_s;
  params.tilt.gain = result.tilt.gain;
  params.stale_s = delay_.applied_s();
  controller_ = gimbal::Controller(params);
}

void MavlinkFront::begin(const RunInfo& info) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CameraDescription camera = camera_.description();
  camera.frame = info.frameSize;
  camera.fps = info.fps;
  if (camera.vfov_deg <= 0) camera.vfov_deg = camera.hfov_deg * info.frameSize.height / info.frameSize.width;
  camera_.describe(camera);
}

void MavlinkFront::describe(SourceFrame& frame) {
  using Keys = ocula::OculaPicture::BaseMetadata::Keys;
  const std::lock_guard<std::mutex> lock(mutex_);
  std::map<std::string, double>& said = frame.live->camera;
  CameraDescription camera = camera_.description();
  // A camera that zooms says so with its frames; one that does not is as it was described.
  camera.hfov_deg = said.emplace(Keys::kHfovDeg, camera.hfov_deg).first->second;
  camera.vfov_deg = said.emplace(Keys::kVfovDeg, camera.vfov_deg).first->second;
  camera_.describe(camera);
  if (const auto angles = angles_.at(frame.live->capturedAt + delay_.applied_s())) {
    said[Keys::kPanDeg] = gimbal::wrapped(angles->pan);
    said[Keys::kTiltDeg] = angles->tilt;
  }
  said.emplace(Keys::kFollowMeEnabledCommand, options_.gimbal && gimbal_.found() ? 1.0 : 0.0);
}

std::vector<FrontCommand> MavlinkFront::takeCommands() {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::vector<FrontCommand> commands;
  const cv::Size frame = camera_.description().frame;
  while (const std::optional<TrackRequest> request = camera_.takeRequest()) {  // the newest counts
    FrontCommand command = commandOf(*request, frame);
    command.target = followed_;
    command.frame = shownFrame_(now_());
    TrackingReport report;
    if (command.kind == FrontCommand::Kind::Box) {
      report = {TrackingReport::State::Active,
                shareOf({command.box.x, command.box.y, command.box.width, command.box.height}, frame)};
    } else if (command.kind == FrontCommand::Kind::Point) {
      report.state = TrackingReport::State::Active;
    }
    // Said before the tracker is built, which takes its time. After a stop the gimbal stays ours: it comes to rest, and
    // is told so more than once.
    camera_.report(report, now_());
    commands = {std::move(command)};
  }
  if (!shown_.empty()) turnOver_ns_ = std::max<std::int64_t>(1, std::llround(1e9 * shown_.back().first));
  return commands;
}

std::optional<long> MavlinkFront::shownFrame_(double now_s) const {
  if (options_.shownDelay_s <= 0) return std::nullopt;
  std::optional<long> shown;
  for (const auto& [taken_s, index] : shown_) {
    if (taken_s <= now_s - options_.shownDelay_s) shown = index;
  }
  return shown;
}

void MavlinkFront::stopped(const std::string& target) {
  if (target != followed_) return;
  followed_.clear();
  const std::lock_guard<std::mutex> lock(mutex_);
  pointing_.reset();
  controller_.restart();
  camera_.report({}, now_());
  camera_.reportGround(std::nullopt);
}

void MavlinkFront::newTarget_() {
  pointing_.reset();
  controller_.restart();
  delay_.newTarget();
  if (!options_.gimbal) return;
  if (gimbal_.takenAway()) gimbal_.release();
  saidTaken_ = false;
  gimbal_.want(now_());
}

/// @param why  set where nothing is answered
std::optional<gimbal::GroundPoint> MavlinkFront::groundOf_(const std::optional<gimbal::PanTilt>& direction,
                                                           std::string& why) const {
  constexpr std::uint16_t kUnknownHeading = 65535;
  const bool onVehicle = options_.panFrame == PanFrame::Vehicle;
  if (!direction) why = "the gimbal's angles are not known";
  if (!position_) why = "the vehicle has not said where it is";
  if (position_ && onVehicle && position_->hdg == kUnknownHeading) why = "the vehicle's heading is not known";
  if (!why.empty()) return std::nullopt;
  gimbal::Platform platform;
  platform.lat_deg = position_->lat * 1e-7;
  platform.lon_deg = position_->lon * 1e-7;
  platform.alt_m = position_->alt * 1e-3;
  platform.ground_m = (position_->alt - position_->relative_alt) * 1e-3;
  platform.errors = options_.platformErrors;
  const double heading = onVehicle ? position_->hdg * 0.01 : 0.0;
  // The gimbal says its tilt against the horizon, whatever the vehicle's attitude is.
  const auto point =
      gimbal::groundPoint(platform, {std::fmod(heading + direction->pan + 720.0, 360.0), direction->tilt});
  if (!point) why = "the line of sight is not surely below the horizon";
  return point;
}

void MavlinkFront::judged(const SourceFrame& frame, std::vector<CallRecord>& records) {
  if (frame.live && (shown_.empty() || frame.index > shown_.back().second)) {
    shown_.emplace_back(frame.live->capturedAt, frame.index);
    while (shown_.front().first < frame.live->capturedAt - kRemembered_s) shown_.pop_front();
  }
  if (records.empty()) return;
  if (followed_.empty()) followed_ = records.front().target;
  for (CallRecord& record : records) {
    if (record.target != followed_) continue;
    const std::lock_guard<std::mutex> lock(mutex_);
    conclude_(record, frame);
  }
}

void MavlinkFront::conclude_(CallRecord& record, const SourceFrame& frame) {
  const cv::Size size = camera_.description().frame;
  camera_.report(reportOf(record, size), now_());
  if (record.isInit) newTarget_();
  if (record.isInit && record.pointTo) {
    pointing_ = gimbal::PanTilt{record.pointTo->pan_deg, record.pointTo->tilt_deg};
  }
  if (!record.isInit && record.state != TrackState::Waiting) pointing_.reset();
  record.gimbal.emplace();
  if (frame.live) follow_(record, frame.live->capturedAt);
  const bool tracking =
      record.isInit ? record.started : record.state != TrackState::Lost && record.state != TrackState::Inactive;
  if (!tracking) controller_.restart();
  if (record.isInit && !record.started) followed_.clear();
  if (delay_.found_s()) record.anglesStaleMs = 1000.0 * *delay_.found_s();
  record.gimbal->state = gimbalState_();
}

/// Controller, delay and place learn where the target was seen, the controller also where it was likely found; the
/// record learns where the gimbal looked.
void MavlinkFront::follow_(CallRecord& record, double captured_s) {
  const std::optional<gimbal::PanTilt> angles = angles_.at(captured_s + delay_.applied_s());
  if (angles) record.gimbal->pan_deg = gimbal::wrapped(angles->pan);
  if (angles) record.gimbal->tilt_deg = angles->tilt;
  std::optional<GroundReport> report;
  if (isWorthFollowing(record)) controller_.seen(captured_s, offOf(*record.box, camera_.description()));
  if (isSeen(record)) {
    const gimbal::PanTilt off = offOf(*record.box, camera_.description());
    delay_.seen(captured_s, off);
    if (calibration_) calibration_->seen(captured_s, off);
    if (options_.camera.knowsGround) {
      const auto direction =
          angles ? std::optional<gimbal::PanTilt>({angles->pan + off.pan, angles->tilt + off.tilt}) : std::nullopt;
      record.ground.emplace();
      if (const auto ground = groundOf_(direction, record.ground->unknown)) {
        *record.ground = {ground->lat_deg,
                          ground->lon_deg,
                          ground->alt_m,
                          ground->distance_m,
                          ground->error.major_m,
                          ground->error.minor_m,
                          ground->error.azimuth_deg,
                          ""};
        report = GroundReport{ground->lat_deg,    ground->lon_deg, ground->alt_m,
                              ground->distance_m, ground->sigma_m, options_.platformErrors.height_m};
      }
    }
  }
  camera_.reportGround(report);
}

std::string MavlinkFront::gimbalState_() const {
  if (!options_.gimbal) return "off";
  if (!gimbal_.found()) return "none found";
  if (gimbal_.takenAway()) return "taken by another";
  if (calibration_) return "calibrating";
  return pointing_ ? "pointing" : gimbal::name(controller_.state());
}

}  // namespace host::link
