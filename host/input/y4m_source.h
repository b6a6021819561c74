// Uncompressed video through a pipe as a source of frames, each with the time at which it was taken.
#pragma once

#include <functional>
#include <string>

#include "input/frame_source.h"
#include "input/y4m.h"

namespace host {

/// Frames with their facts. When a frame was taken is what the sender says, else its arrival; of a file that is not a
/// pipe both are of another day, and only its time_s follows them, else the frame's number.
class Y4mSource : public FrameSource {
 public:
  /// @throws HostError (Source) when it cannot be opened
  explicit Y4mSource(const SourceOptions& options);

  /// @throws HostError (Source) with one sentence when what comes is no such video
  bool read(SourceFrame& frame) override;
  double fps() const override { return options_.fps > 0 ? options_.fps : reader_.fps(); }
  long expected() const override { return options_.frames; }
  void stop() { reader_.stop(); }  ///< Any thread: read() returns within 100 ms.

 private:
  SourceOptions options_;
  Y4mReader reader_;
  bool isPipe_;
  long next_ = 0;
  double first_s_ = 0.0;
  double last_s_ = 0.0;
};

/// Whether what can be read from a file or pipe begins as such video. Nothing of it is taken. Waits for a pipe's first
/// bytes until `isOver`, which is asked about a hundred times a second.
/// @return false also for what cannot be looked into, such as a terminal
bool beginsAsY4m(int fd, const std::function<bool()>& isOver);

}  // namespace host
