// Where frames come from: a video file, numbered pictures, a folder of pictures, a camera.
#pragma once

#include <map>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>
#include <vector>

#include "ocula/ocula_picture.h"

namespace host {

/// Which source, and which part of it.
struct SourceOptions {
  std::string source;    ///< Video file, printf pattern such as img/%04d.jpg, folder, or a camera's number.
  std::string pipeline;  ///< A GStreamer pipeline in place of `source`; empty: none.
  long start = 0;        ///< First frame to deliver, counted from 0 in the source.
  long frames = 0;       ///< At most so many frames; 0: to the end.
  double fps = 0.0;      ///< Frames per second, whatever the source says; 0: its own time stamps, 25 for pictures.
};

/// What is known of a live frame beside its picture.
struct LiveFacts {
  double capturedAt = 0.0;               ///< When it was taken, seconds of the machine's clock that never goes back.
  bool senderClock = false;              ///< As the sender says; else it is the time of arrival.
  long dropped = 0;                      ///< Frames received since the one before that nobody worked on.
  std::map<std::string, double> camera;  ///< What the camera said at that time, by metadata key; empty: missing.
};

/// One decoded frame and its place in the source.
struct SourceFrame {
  long index = 0;       ///< Counted from 0 at the source's own beginning.
  double time_s = 0.0;  ///< Seconds since the source's first frame: its time stamp, else index / fps; of a
                        ///< camera the clock's.
  cv::Mat bgr;          ///< 8-bit BGR; owned by the caller, never overwritten by a later read.
  std::string file;     ///< Of a sequence of pictures: the picture's name, without its folder. Else empty.
  std::string note;     ///< What was the matter with this frame, such as "damaged"; empty: nothing.
  ocula::OculaPicture::BaseMetadata metadata;  ///< What the camera said about the frame; of live ones see `live`.
  std::optional<LiveFacts> live;               ///< Of live sources alone.
  bool noSignal = false;  ///< Of live sources: no frame came for a second or more; there is no picture.
};

/// Delivers frames in order. Not thread-safe.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  /// The next frame. False at the end, after options.frames frames, or where the source cannot be decoded further.
  virtual bool read(SourceFrame& frame) = 0;
  virtual double fps() const = 0;                  ///< Frames per second, > 0.
  virtual std::string note() const { return {}; }  ///< What a person should know of the rate; empty: nothing.
  virtual long expected() const = 0;               ///< Frames that read() will probably deliver; 0: unknown.
  /// What was the matter with the source as far as it was read, one short sentence each: it ended before the end it
  /// names, frames were damaged, pictures changed their size. Empty: nothing.
  virtual std::vector<std::string> faults() const { return {}; }
};

/// The pictures that a folder or a pattern stands for, in their order; empty for any other source, and where there are
/// none.
std::vector<std::string> picturesOfSource(const std::string& source);

/// Whether a source is a pipe, which can be read but once.
bool isReadableOnce(const std::string& source);

/// Opens a source. The first frame is only read by read().
/// @throws HostError (Source) when it cannot be opened or ends before `start`; (Usage) for a negative number
std::unique_ptr<FrameSource> openFrameSource(const SourceOptions& options);

}  // namespace host
