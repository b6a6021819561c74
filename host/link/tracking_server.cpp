#include "link/tracking_server.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace host::link {
namespace {

constexpr double kOrder_s = 0.04;  // between two orders to the gimbal
constexpr double kRest_s = 1.0;    // for so long zero rates are repeated
constexpr double kEstimate_s = 0.4;
constexpr double kDelayMatters_s = 0.02;
constexpr double kPointShare = 0.1;  // of the frame's height: the box around a point
constexpr int kSmallest = 4;

gimbal::PanTilt offOf(const cv::Rect& box, cv::Size frame, const CameraDescription& camera) {
  const double x = (box.x + 0.5 * box.width) / frame.width;
  const double y = (box.y + 0.5 * box.height) / frame.height;
  return {(x - 0.5) * camera.hfov_deg, (0.5 - y) * camera.vfov_deg};
}

/// A box in shares of the frame.
cv::Rect2d shareOf(const cv::Rect& box, cv::Size frame) {
  return {static_cast<double>(box.x) / frame.width, static_cast<double>(box.y) / frame.height,
          static_cast<double>(box.width) / frame.width, static_cast<double>(box.height) / frame.height};
}

}  // namespace

double TrackingServer::monotonic() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

BBox boxOf(const TrackRequest& request, cv::Size frame) {
  cv::Rect2d box(request.rectangle.x * frame.width, request.rectangle.y * frame.height,
                 request.rectangle.width * frame.width, request.rectangle.height * frame.height);
  if (request.kind == TrackRequest::Kind::Point) {
    const double side = kPointShare * frame.height;
    box = {request.point.x * frame.width - side / 2, request.point.y * frame.height - side / 2, side, side};
  }
  const int width = std::clamp(cvRound(box.width), kSmallest, frame.width);
  const int height = std::clamp(cvRound(box.height), kSmallest, frame.height);
  return {std::clamp(cvRound(box.x), 0, frame.width - width), std::clamp(cvRound(box.y), 0, frame.height - height),
          width, height};
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

TrackingServer::TrackingServer(const ServerOptions& options, PluginLibrary& library)
    : options_(options),
      session_(library.create(), "target", library.engine()),
      camera_(options.camera, monotonic()),
      gimbal_(camera_, options.panFrame),
      controller_(options.controller),
      delayApplied_s_(options.controller.stale_s) {
  session_.configure(options.configText);
  for (const std::string& line : options.lines) lines_.push_back(openTransport(line));
  if (options.calibrate) calibration_.emplace(0.0);
  thread_ = std::thread([this] { serve_(); });
}

TrackingServer::~TrackingServer() {
  stop_ = true;
  thread_.join();
}

std::string TrackingServer::problem() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return problem_.empty() ? controller_.problem() : problem_;
}

void TrackingServer::serve_() {
  while (!stop_) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      const double now_s = monotonic();
      std::vector<mavlink::Frame> frames;
      for (const auto& line : lines_) line->receive(frames);
      for (const mavlink::Frame& frame : frames) hear_(frame, now_s);
      if (options_.gimbal) gimbal_.tick(now_s);
      steer_(now_s);
      camera_.tick(now_s);
      sendAll_();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(4));
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  for (int i = 0; i < 3 && gimbal_.controls(); ++i) {  // nobody will stop it afterwards, and one may get lost
    gimbal_.turn({0.0, 0.0});
    sendAll_();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

void TrackingServer::sendAll_() {
  for (const mavlink::Frame& frame : camera_.takeOutgoing()) {
    const std::vector<std::uint8_t> bytes = mavlink::encodeFrame(frame);
    for (const auto& line : lines_) line->send(bytes);
  }
}

void TrackingServer::hear_(const mavlink::Frame& frame, double now_s) {
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

void TrackingServer::steer_(double now_s) {
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

void TrackingServer::estimateDelay_(double now_s) {
  if (!options_.findDelay || now_s < nextEstimate_s_) return;
  nextEstimate_s_ = now_s + kEstimate_s;
  const std::optional<double> found_s = delay_.stale_s();
  // Twice the same, or it is not believed.
  const bool sure = found_s && delayFound_s_ && std::fabs(*found_s - *delayFound_s_) < kDelayMatters_s;
  delayFound_s_ = found_s;
  if (!sure || std::fabs(*found_s - delayApplied_s_) <= kDelayMatters_s) return;
  delayApplied_s_ = *found_s;
  controller_.setStale(*found_s);
  std::fprintf(stderr, "csrt-track: the gimbal's angles come %.0f ms %s than the pictures they belong to; made good\n",
               std::fabs(1000 * *found_s), *found_s > 0 ? "later" : "earlier");
}

void TrackingServer::calibrate_(double now_s) {
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

void TrackingServer::endCalibration_(double now_s) {
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
  params.stale_s = delayApplied_s_;
  controller_ = gimbal::Controller(params);
}

std::optional<BBox> TrackingServer::takeWish_(cv::Size frame) {
  std::optional<BBox> box;
  while (const std::optional<TrackRequest> request = camera_.takeRequest()) {  // the newest counts
    box.reset();
    tracking_ = false;
    pointing_.reset();
    controller_.restart();
    delay_.newTarget();
    if (request->kind != TrackRequest::Kind::Stop) box = boxOf(*request, frame);
    // The gimbal stays ours: it comes to rest, and is told so more than once.
    if (!box) camera_.report({}, monotonic());
  }
  // Said before the tracker is built, which takes its time.
  if (box)
    camera_.report({TrackingReport::State::Active, shareOf({box->x, box->y, box->width, box->height}, frame)},
                   monotonic());
  if (box && options_.gimbal) {
    if (gimbal_.takenAway()) gimbal_.release();
    saidTaken_ = false;
    gimbal_.want(monotonic());
  }
  return box;
}

ocula::OculaPicture::BaseMetadata TrackingServer::metadata_(double captured_s, ServedFrame& served) {
  using Keys = ocula::OculaPicture::BaseMetadata::Keys;
  ocula::OculaPicture::BaseMetadata metadata;
  served.angles = angles_.at(captured_s + delayApplied_s_);
  if (served.angles) {
    metadata[Keys::kPanDeg] = gimbal::wrapped(served.angles->pan);
    metadata[Keys::kTiltDeg] = served.angles->tilt;
  }
  const CameraDescription& camera = camera_.description();
  if (camera.hfov_deg > 0) metadata[Keys::kHfovDeg] = camera.hfov_deg;
  if (camera.vfov_deg > 0) metadata[Keys::kVfovDeg] = camera.vfov_deg;
  metadata[Keys::kFollowMeEnabledCommand] = options_.gimbal && gimbal_.found() ? 1 : 0;
  return metadata;
}

std::optional<gimbal::GroundPoint> TrackingServer::groundOf_(const gimbal::PanTilt& direction) const {
  constexpr std::uint16_t kUnknownHeading = 65535;
  if (!position_ || (options_.panFrame == PanFrame::Vehicle && position_->hdg == kUnknownHeading)) return std::nullopt;
  gimbal::Platform platform;
  platform.lat_deg = position_->lat * 1e-7;
  platform.lon_deg = position_->lon * 1e-7;
  platform.alt_m = position_->alt * 1e-3;
  platform.ground_m = (position_->alt - position_->relative_alt) * 1e-3;
  platform.errors = options_.platformErrors;
  const double heading = options_.panFrame == PanFrame::Vehicle ? position_->hdg * 0.01 : 0.0;
  // The gimbal says its tilt against the horizon, whatever the vehicle's attitude is.
  return gimbal::groundPoint(platform, {std::fmod(heading + direction.pan + 720.0, 360.0), direction.tilt});
}

void TrackingServer::conclude_(const CallRecord& record, double captured_s, cv::Size frame, ServedFrame& served) {
  const double now_s = monotonic();
  camera_.report(reportOf(record, frame), now_s);
  if (record.isInit && record.pointTo) {
    pointing_ = gimbal::PanTilt{record.pointTo->pan_deg, record.pointTo->tilt_deg};
  }
  if (!record.isInit && record.state != TrackState::Waiting) pointing_.reset();
  if (isSeen(record)) {
    const gimbal::PanTilt off = offOf(*record.box, frame, camera_.description());
    controller_.seen(captured_s, off);
    delay_.seen(captured_s, off);
    if (calibration_) calibration_->seen(captured_s, off);
    if (served.angles) served.ground = groundOf_({served.angles->pan + off.pan, served.angles->tilt + off.tilt});
  }
  std::optional<GroundReport> ground;
  if (served.ground) {
    const gimbal::GroundPoint& point = *served.ground;
    ground = GroundReport{point.lat_deg,    point.lon_deg, point.alt_m,
                          point.distance_m, point.sigma_m, options_.platformErrors.height_m};
  }
  camera_.reportGround(ground);
  tracking_ = record.isInit ? record.started : record.state != TrackState::Lost && record.state != TrackState::Inactive;
  if (!tracking_) controller_.restart();
}

ServedFrame TrackingServer::frame(const cv::Mat& bgr, double captured_s) {
  ServedFrame served;
  std::optional<BBox> wish;
  ocula::OculaPicture::BaseMetadata metadata;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (camera_.description().frame != bgr.size()) {
      CameraDescription description = camera_.description();
      description.frame = bgr.size();
      camera_.describe(description);
    }
    wish = takeWish_(bgr.size());
    metadata = metadata_(captured_s, served);
  }
  const FramePlace place{index_++, captured_s};
  if (wish || tracking_) {
    const auto picture = std::make_shared<ocula::OculaPicture>(bgr, metadata);
    served.record = wish ? session_.init(picture, place, *wish) : session_.update(picture, place);
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  if (served.record) conclude_(*served.record, captured_s, bgr.size(), served);
  served.stale_s = delayFound_s_;
  served.gimbalState = !options_.gimbal      ? "off"
                       : !gimbal_.found()    ? "none found"
                       : gimbal_.takenAway() ? "taken by another"
                       : calibration_        ? "calibrating"
                       : pointing_           ? "pointing"
                                             : gimbal::name(controller_.state());
  return served;
}

}  // namespace host::link
