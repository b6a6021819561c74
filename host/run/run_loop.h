// The one loop of every run: frames come out of a source, sessions work on them, observers are told. `track`, `replay`,
// `simulate`, `evaluate` and `tune` differ in their director alone.
#pragma once

#include <functional>
#include <memory>
#include <opencv2/core.hpp>
#include <string>
#include <vector>

#include "input/frame_source.h"
#include "input/pace.h"
#include "ocula/ocula_picture.h"
#include "plugin/call_record.h"
#include "run/run_observer.h"

namespace host {

/// A frame as trackers get it: its pixels, and the metadata of the source and of a live camera. All sessions of a frame
/// share one.
using FramePicture = std::shared_ptr<ocula::OculaPicture>;
FramePicture pictureOf(const SourceFrame& frame);

/// One target under one tracker. The sessions of a frame work on different threads; each does one thing at a time.
class RunSession {
 public:
  virtual ~RunSession() = default;
  /// Works on a frame and says what came of it.
  virtual CallRecord step(const FramePicture& picture, const SourceFrame& frame) = 0;
  /// What is said of a moment without a frame. By default an empty record.
  virtual CallRecord silent(const SourceFrame& frame) const;
};

/// Says who works on which frame, hears what was answered, and decides how the run goes on. All calls come from the
/// thread of the run, for each frame in this order: sessions(), the sessions' step(), answered(), the observers,
/// goesOn(). The next frame is read after that, so that a source can act on what was answered.
class RunDirector {
 public:
  virtual ~RunDirector() = default;
  /// The first frame has come. Sets up what is needed and completes what observers are told: `info` holds what the
  /// source knows. Called before any observer begins.
  virtual void begin(const SourceFrame& first, RunInfo& info) = 0;
  /// Who works on the frame; also asked while no frame comes (`noSignal`), for silent(). May add to the frame what its
  /// source does not know, such as metadata.
  /// @return sessions that live until the next call
  virtual std::vector<RunSession*> sessions(SourceFrame& frame) = 0;
  /// What the sessions answered, in their order; may be added to before observers see it.
  virtual void answered(const SourceFrame& /*frame*/, std::vector<CallRecord>& /*records*/) {}
  /// Asked after the observers. @param told  all observers, to be told of starts in between. @return false to end
  virtual bool goesOn(const SourceFrame& /*frame*/, const std::vector<CallRecord>& /*records*/, RunObserver& /*told*/) {
    return true;
  }
};

/// What a run is made of. All of it must outlive the run.
struct RunParts {
  FrameSource& source;
  RunDirector& director;
  std::vector<RunObserver*> observers;  ///< Told in this order, ended in the opposite one.
  Pace pace = Pace::Fast;               ///< Pace::Source: recorded frames come at their own rate.
  int threads = 1;                      ///< Sessions are spread over so many threads.
  std::function<bool()> isOver;         ///< Asked after every frame; empty: whether a signal asked to stop.
};

/// What a run came to.
struct RunResult {
  long frames = 0;                        ///< Frames delivered by the source; 0: it had none, and nobody was told.
  bool interrupted = false;               ///< Ended because `isOver` said so.
  cv::Size frameSize;                     ///< Of the first frame, pixels.
  std::vector<std::string> sourceFaults;  ///< What was the matter with the source; see FrameSource::faults().
};

/// Runs until the source ends, the director ends it, or `isOver`. Observers that began are always ended, also when the
/// source, a session or an observer throws; the first error is what the caller gets, later ones go to standard error.
RunResult runLoop(const RunParts& parts);

}  // namespace host
