// A live source as a source of frames: the newest one, what is known about it, and the word when there is none.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "input/frame_source.h"
#include "live/capture.h"
#include "live/sidecar.h"

namespace live {

/// How a live source is opened and what it may use.
struct LiveOptions {
  bool overUdp = false;         ///< RTSP: media over UDP.
  double connectLimitS = 10.0;  ///< Longest wait for the first frame.
  double giveUpS = 0.0;         ///< Ends the run after so many seconds without a frame; 0: never.
  bool keepsPast = false;       ///< The last second is kept, for commands on an old picture.
  std::string sidecar;          ///< A growing file of what the camera said, by time; empty: none.
  bool quiet = false;           ///< Losses are not said on standard error.
};

/// Whether the text names a live source. A file or folder of that name goes first, except for devices and .sdp files.
bool isLiveAddress(const std::string& text);

/// One thread reads; the capture has a thread of its own.
class LiveSource : public host::FrameSource {
 public:
  /// @param isOver  asked about ten times a second while waiting: true ends the source
  /// @throws HostError (Usage) for a wrong address or option, (Source) where no module receives it
  LiveSource(const host::SourceOptions& source, const LiveOptions& options, std::function<bool()> isOver);

  /// The newest frame; or, once a second while none comes, a frame without picture that says so (`noSignal`).
  /// @throws HostError (Source) when the first frame does not come within the limit
  bool read(host::SourceFrame& frame) override;
  double fps() const override { return fps_; }
  long expected() const override { return frames_; }
  std::vector<std::string> faults() const override;

  CaptureReport report() { return capture_->loop().report(); }
  FrameRing& past() { return capture_->loop().past(); }
  /// A kept frame as read() would have given it.
  host::SourceFrame sourceFrameOf(const LiveFrame& frame, long dropped) const;
  long readFrames() const { return read_; }

 private:
  void deliver_(const LiveFrame& taken, host::SourceFrame& frame);
  bool trySayLoss_(double now, host::SourceFrame& frame);
  [[noreturn]] void failFirst_() const;

  std::string shown_;  // the address without a password
  AddressKind kind_;
  LiveOptions options_;
  std::function<bool()> isOver_;
  Clocks clocks_;
  std::optional<Sidecar> sidecar_;
  std::unique_ptr<Capture> capture_;
  LossWatch loss_;
  double fps_;
  long frames_;
  long read_ = 0;
  long losses_ = 0;
  long lastIndex_ = -1;
  double lastTime_ = 0.0;
  double begin_;
};

}  // namespace live
