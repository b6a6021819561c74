// Receives a live source in a thread of its own and keeps the newest frame; connects again when it is lost.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "live/camera_track.h"
#include "live/capture_rules.h"
#include "live/frame_ring.h"
#include "live/newest_slot.h"
#include "live/receiver.h"

namespace live {

/// The two clocks of the machine; tests give their own.
struct Clocks {
  std::function<double()> steady;    ///< Seconds; never goes back.
  std::function<double()> unixTime;  ///< Seconds since 1970.
};
/// The clocks of this machine.
Clocks machineClocks();

/// What the capture has seen so far. A copy; from any thread.
struct CaptureReport {
  long decoded = 0;         ///< Pictures that came out of the decoder.
  long connections = 0;     ///< How often a connection gave its first picture.
  long damaged = 0;         ///< Packets or pictures lost or not decodable.
  long packets = 0;         ///< Good packets of what the camera said.
  long packetsRefused = 0;  ///< Such packets with a wrong checksum, or damaged.
  long resized = 0;         ///< Pictures of another size than the first one, brought to its size.
  long timesCorrected = 0;  ///< How often a capture time lay before that of the picture before.
  long stampJumps = 0;      ///< The stream's time stamps went back, or jumped by more than a second.
  std::string reason;       ///< Why the last connection ended; empty: it did not.
  bool refused = false;     ///< The last failure was a refused name or password.
  bool ended = false;       ///< No more will come.
  std::string decoder;
};

/// What was the matter, for a person: one short sentence per counter that is not zero. Pure.
std::vector<std::string> faultsOf(const CaptureReport& seen);

/// One thread's work in steps, so that a test can take them one by one with a clock of its own.
class CaptureLoop {
 public:
  using Open = std::function<std::unique_ptr<Receiver>()>;

  /// How a source is captured.
  struct Options {
    bool reconnects = true;  ///< Else the first end or failure is final.
    double stalledS = 5.0;   ///< Without a picture for so long a connection is given up ...
    double firstS = 5.0;     ///< ... but for so long before the very first one.
    bool keepsPast = false;  ///< Whether the last second is kept for clicks on an old picture.
  };

  CaptureLoop(Open open, Options options, Clocks clocks);

  /// Opens, or receives once, at most `waitS`. @return the pause to make before the next step, seconds
  double step(double waitS);

  /// Where the newest frame lies. Any thread.
  NewestSlot<LiveFrame>& slot() { return slot_; }
  /// The frames of the last second. Any thread.
  FrameRing& past() { return past_; }
  /// What has been counted so far. Any thread.
  CaptureReport report() const;
  /// Closes the connection and the slot. No step after this.
  void finish();

 private:
  double close_(const std::string& reason, bool refused, bool ended);
  void takePicture_(const Received& received);
  void takePackets_(const Received& received);

  Open open_;
  Options options_;
  Clocks clocks_;
  std::unique_ptr<Receiver> receiver_;
  ReconnectPlan plan_;
  RunTime runTime_;
  StampWatch stamps_;
  CameraTrack camera_;
  CameraValuesReader reader_;
  NewestSlot<LiveFrame> slot_;
  FrameRing past_;
  cv::Size size_;
  double lastLife_ = 0.0;  // of the connection: opened or last picture
  bool pictureOfConnection_ = false;
  long damagedBefore_ = 0;    // by connections that are closed
  mutable std::mutex mutex_;  // guards report_
  CaptureReport report_;
};

/// CaptureLoop in a thread. Destroying it ends the thread within the receiver's limits.
class Capture {
 public:
  /// @param stop  handed to the receivers; becomes true on destruction. Shared with `open`.
  Capture(CaptureLoop::Open open, CaptureLoop::Options options, std::shared_ptr<std::atomic<bool>> stop);
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  CaptureLoop& loop() { return loop_; }

 private:
  void run_();
  void pause_(double seconds);

  CaptureLoop loop_;
  std::shared_ptr<std::atomic<bool>> stop_;
  std::mutex mutex_;
  std::condition_variable stopping_;
  std::thread thread_;
};

}  // namespace live
