#include "commands/stream_outputs.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>

#include "base/host_error.h"
#include "gimbal/geolocation.h"
#include "klv/st0601.h"
#include "live/address.h"
#include "live/module.h"

namespace host {
namespace {

constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180.0;

using Keys = ocula::OculaPicture::BaseMetadata::Keys;

/// The value of a key, of a live frame or of a recorded one.
std::optional<double> valueOf(const SourceFrame& frame, const std::string& key) {
  if (frame.live) {
    const auto found = frame.live->camera.find(key);
    return found == frame.live->camera.end() ? std::nullopt : std::optional<double>(found->second);
  }
  const auto found = frame.metadata.find(key);
  if (found == frame.metadata.end()) return std::nullopt;
  const double* const number = std::get_if<double>(&found->second);
  return number == nullptr ? std::nullopt : std::optional<double>(*number);
}

/// Pan and tilt go out as the sensor's angles on a level platform that heads north: they read back as they were.
klv::CameraState stateOf(const CameraValue& value) {
  klv::CameraState state;
  if (const auto pan = value(Keys::kPanDeg)) {
    state.sensorAzimuthDeg = *pan < 0 ? *pan + 360.0 : *pan;
    state.sensorElevationDeg = value(Keys::kTiltDeg);
    state.platformHeadingDeg = state.platformPitchDeg = state.platformRollDeg = 0.0;
  }
  state.horizontalFovDeg = value(Keys::kHfovDeg);
  state.verticalFovDeg = value(Keys::kVfovDeg);
  state.sensorLatitudeDeg = value(Keys::kSensorLatDeg);
  state.sensorLongitudeDeg = value(Keys::kSensorLonDeg);
  state.sensorAltitudeM = value(Keys::kSensorAltM);
  state.slantRangeM = value(Keys::kMeasuredSlantRangeM);
  state.frameCenterLatitudeDeg = value(Keys::kFrameCenterLatDeg);
  state.frameCenterLongitudeDeg = value(Keys::kFrameCenterLonDeg);
  state.frameCenterElevationM = value(Keys::kFrameCenterElevM);
  fillFrameCentre(state, value(Keys::kPanDeg), value(Keys::kTiltDeg));
  return state;
}

std::uint64_t unixMicros() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

}  // namespace

void fillFrameCentre(klv::CameraState& state, std::optional<double> panDeg, std::optional<double> tiltDeg) {
  const bool known = state.frameCenterLatitudeDeg && state.frameCenterLongitudeDeg;
  const bool place = state.sensorLatitudeDeg && state.sensorLongitudeDeg && state.sensorAltitudeM;
  if (known || !place || !panDeg || !tiltDeg) return;
  gimbal::Platform platform;
  platform.lat_deg = *state.sensorLatitudeDeg;
  platform.lon_deg = *state.sensorLongitudeDeg;
  platform.alt_m = *state.sensorAltitudeM;
  if (state.slantRangeM) {
    platform.ground_m = platform.alt_m + *state.slantRangeM * std::sin(*tiltDeg * kRadiansPerDegree);
  } else if (state.frameCenterElevationM) {
    platform.ground_m = *state.frameCenterElevationM;
  } else {
    return;
  }
  const auto point = gimbal::groundPoint(platform, {*panDeg < 0 ? *panDeg + 360.0 : *panDeg, *tiltDeg});
  if (!point) return;
  state.frameCenterLatitudeDeg = point->lat_deg;
  state.frameCenterLongitudeDeg = point->lon_deg;
  state.frameCenterElevationM = point->alt_m;
}

KlvFile::KlvFile(std::string path, cv::Size size, double fps) : path_(std::move(path)) {
  std::string fault = "nothing here writes MPEG-TS; install the package csrt-track-live";
  for (const live::FoundModule& found : live::modules()) {
    if (found.module == nullptr || file_) continue;
    file_ = found.module->createFile({path_, size.width, size.height, fps}, fault);
  }
  if (!file_) throw HostError(ExitCode::Usage, "'" + path_ + "' cannot be written: " + fault);
}

void KlvFile::write(const cv::Mat& bgr, const CameraValue& camera, std::uint64_t timestampUs, double time_s) {
  klv::CameraState state = stateOf(camera);
  state.timestampUs = timestampUs;
  if (!file_->write(bgr.data, bgr.step, klv::encode(state), time_s)) {
    throw HostError(ExitCode::Output, "'" + path_ + "': " + file_->fault());
  }
}

void KlvFile::close() {
  if (!file_->close()) throw HostError(ExitCode::Output, "'" + path_ + "': " + file_->fault());
}

void KlvOutput::begin(const RunInfo& info) {
  file_.emplace(path_, info.frameSize, info.fps);
}

void KlvOutput::frame(const SourceFrame& frame, const std::vector<CallRecord>& /*records*/) {
  // A live frame's time is the machine's; a recorded one counts from 1970, so that the same run gives the same bytes.
  const std::uint64_t time = frame.live ? unixMicros() : static_cast<std::uint64_t>(frame.time_s * 1e6);
  file_->write(
      frame.bgr, [&](const std::string& key) { return valueOf(frame, key); }, time, frame.time_s);
}

void KlvOutput::end() {
  if (file_) file_->close();
  file_.reset();
}

void StreamOutput::begin(const RunInfo& info) {
  std::string fault = "nothing here sends streams; install the package csrt-track-live";
  for (const live::FoundModule& found : live::modules()) {
    if (found.module == nullptr || sender_) continue;
    sender_ = found.module->openSender({address_, info.frameSize.width, info.frameSize.height, info.fps}, fault);
  }
  if (!sender_) throw HostError(ExitCode::Usage, "--stream '" + live::withoutPassword(address_) + "': " + fault);
}

void StreamOutput::frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
  const cv::Mat drawn = annotator_.draw(frame.bgr, records);
  if (sender_->send(drawn.data, drawn.cols, drawn.rows, drawn.step, frame.time_s) || saidFault_) return;
  saidFault_ = true;  // the run goes on without it
  std::fprintf(stderr, "csrt-track: --stream '%s': %s\n", live::withoutPassword(address_).c_str(),
               sender_->fault().c_str());
}

}  // namespace host
