// Outputs that are streams: a file of video with what the camera said, and the drawn picture sent on.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "klv/st0601.h"
#include "live/receiver.h"
#include "picture/annotate.h"
#include "run/run_observer.h"

namespace host {

/// A value of the camera by metadata key; nothing where it is not known.
using CameraValue = std::function<std::optional<double>(const std::string& key)>;

/// Fills in where the picture's middle meets the ground (tags 23 to 25) when the camera did not say it: from its place
/// and direction, and the distance to the target or, without one, the height of the ground. Left empty where one of
/// them is missing, or the line of sight meets no ground for sure. Pure.
/// @param panDeg   from north, clockwise   @param tiltDeg  upwards from the horizon
void fillFrameCentre(klv::CameraState& state, std::optional<double> panDeg, std::optional<double> tiltDeg);

/// MPEG-TS: plain video, and beside it the camera's angles and places as KLV.
class KlvFile {
 public:
  /// @throws HostError (Usage) where the file cannot be made or nothing here writes it
  KlvFile(std::string path, cv::Size size, double fps);
  /// @param timestampUs  what the packet says, microseconds since 1970
  /// @throws HostError (Output)
  void write(const cv::Mat& bgr, const CameraValue& camera, std::uint64_t timestampUs, double time_s);
  /// @throws HostError (Output) when not all could be written
  void close();

 private:
  std::string path_;
  std::unique_ptr<live::StreamFile> file_;
};

/// Writes the plain video and what was known of the camera's direction as MPEG-TS with KLV.
class KlvOutput : public RunObserver {
 public:
  explicit KlvOutput(std::string path) : path_(std::move(path)) {}
  /// @throws HostError (Usage) where the file cannot be made or nothing here writes it
  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void end() override;

 private:
  std::string path_;
  std::optional<KlvFile> file_;
};

/// Sends the drawn picture. A receiver that is slow or gone never holds the run up.
class StreamOutput : public RunObserver {
 public:
  explicit StreamOutput(std::string address) : address_(std::move(address)) {}
  /// @throws HostError (Usage) for an address that nothing here sends to
  void begin(const RunInfo& info) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override { annotator_.forget(record.target); }
  void end() override { sender_.reset(); }

 private:
  std::string address_;
  Annotator annotator_;
  std::unique_ptr<live::Sender> sender_;
  bool saidFault_ = false;
};

}  // namespace host
