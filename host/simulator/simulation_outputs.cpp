#include "simulator/simulation_outputs.h"

#include <algorithm>
#include <cmath>
#include <opencv2/imgproc.hpp>

#include "base/json_text.h"

namespace host::sim {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostMoments = 6;
constexpr int kSheetColumns = 2;
constexpr long kFramesIntoSlew = 8;

double rounded(double value) {
  return std::round(value * 1e4) / 1e4;
}

Json toJson(const Angles& angles) {
  return {{"pan_deg", rounded(angles.pan)}, {"tilt_deg", rounded(angles.tilt)}};
}

Json toJson(const cv::Rect2d& box) {
  return {{"x", rounded(box.x)}, {"y", rounded(box.y)}, {"w", rounded(box.width)}, {"h", rounded(box.height)}};
}

Json toJson(const ocula::OculaPicture::BaseMetadata& metadata) {
  std::vector<std::string> keys;
  for (const auto& entry : metadata) keys.push_back(entry.first);
  std::sort(keys.begin(), keys.end());
  Json json = Json::object();
  for (const std::string& key : keys) {
    std::visit([&](const auto& value) { json[key] = value; }, metadata.at(key));
  }
  return json;
}

/// Only what can be read back with its type: a spoilt value is left out, as if the camera had said nothing.
Json recordable(const SourceFrame& frame) {
  Json json = {{"frame", frame.index}};
  const Json all = toJson(frame.metadata);
  for (const auto& [key, value] : all.items()) {
    const bool isDouble = std::holds_alternative<double>(frame.metadata.at(key));
    const bool isCommand = key == ocula::OculaPicture::BaseMetadata::Keys::kFollowMeEnabledCommand;
    if ((isDouble && std::isfinite(value.get<double>())) || isCommand) json[key] = value;
  }
  return json;
}

}  // namespace

Json toJson(const SimulatedFrame& frame) {
  Json json = host::toJson(frame.record);
  const Truth& truth = frame.truth;
  json["truth"] = {{"there", truth.there},
                   {"box", toJson(truth.box)},
                   {"visible_share", rounded(truth.visibleShare)},
                   {"pan_deg", rounded(truth.direction.pan)},
                   {"tilt_deg", rounded(truth.direction.tilt)},
                   {"pointing_error_deg", rounded(truth.pointingErrorDeg)},
                   {"pointing_error_px", rounded(truth.pointingErrorPx)}};
  if (frame.record.box) json["truth"]["iou"] = rounded(overlap(*frame.record.box, truth.box));
  json["camera"] = toJson(frame.camera.view.centre);
  json["camera"]["hfov_deg"] = rounded(frame.camera.view.hfov);
  json["camera"]["vfov_deg"] = rounded(frame.camera.view.vfov);
  json["camera"]["phase"] = name(frame.camera.phase);
  json["camera"]["asked"] = frame.camera.asked ? toJson(*frame.camera.asked) : Json(nullptr);
  json["camera"]["metadata"] = toJson(frame.metadata);
  return json;
}

SimulationPictures::SimulationPictures(const SimulatedCamera& camera, const std::string& video,
                                       const std::string& sheet)
    : SimulationObserver(camera) {
  if (!video.empty()) videoFile_.emplace(video, "--video");
  if (!sheet.empty()) sheet_.emplace(sheet, "--sheet");
}

void SimulationPictures::begin(const RunInfo& info) {
  annotator_.begin(camera().scenario(), camera().panorama());
  if (videoFile_) video_.emplace(*videoFile_, annotator_.size(), info.fps);
}

void SimulationPictures::seen(const SimulatedFrame& frame) {
  last_ = annotator_.draw(frame);
  if (video_) video_->write(last_);
  if (sheet_) keepMoment_(frame, last_);
}

/// The first frame, one on the way, then every first frame of a state; the last frame always has its place.
/// A fresh start has no box to show yet, the frame behind it has.
void SimulationPictures::keepMoment_(const SimulatedFrame& frame, const cv::Mat& picture) {
  const TrackState state = frame.record.state;
  waited_ += state == TrackState::Waiting ? 1 : 0;
  const bool onTheWay = state == TrackState::Waiting && waited_ == kFramesIntoSlew;
  const bool isNew = (!lastState_ || *lastState_ != state) && state != TrackState::Reseeded;
  if ((isNew || onTheWay) && moments_.size() + 1 < kMostMoments) {
    moments_.push_back(picture);
  }
  lastState_ = state;
}

void SimulationPictures::end() {
  if (sheet_ && !last_.empty()) {
    moments_.push_back(last_);
    const int rows = (static_cast<int>(moments_.size()) + kSheetColumns - 1) / kSheetColumns;
    cv::Mat sheet(rows * last_.rows, kSheetColumns * last_.cols, CV_8UC3, cv::Scalar::all(255));
    for (int i = 0; i < static_cast<int>(moments_.size()); ++i) {
      const cv::Point at(i % kSheetColumns * last_.cols, i / kSheetColumns * last_.rows);
      moments_[static_cast<std::size_t>(i)].copyTo(sheet(cv::Rect(at, last_.size())));
    }
    writePicture(*sheet_, sheet);
  }
  if (video_) video_->close();
}

SimulationClip::SimulationClip(const std::string& video, const std::string& metadata) {
  if (!video.empty()) videoFile_.emplace(video, "--clip");
  if (!metadata.empty()) metadata_.emplace(metadata, "--clip-metadata");
}

void SimulationClip::begin(const RunInfo& info) {
  if (videoFile_) video_.emplace(*videoFile_, info.frameSize, info.fps);
}

void SimulationClip::frame(const SourceFrame& frame, const std::vector<CallRecord>& /*records*/) {
  if (video_) video_->write(frame.bgr);
  if (metadata_) metadata_->writeLine(jsonText(recordable(frame)));
}

void SimulationClip::end() {
  if (video_) video_->close();
}

}  // namespace host::sim
