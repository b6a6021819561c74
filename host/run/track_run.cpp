#include "run/track_run.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/masked_address.h"
#include "base/worker_pool.h"
#include "plugin/target_session.h"
#include "run/live_facts.h"

namespace host {
namespace {

void showLog(const std::string& target, const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::fprintf(stderr, "%s: %s\n", target.c_str(), line.c_str());
}

void showLogs(const std::vector<CallRecord>& records, bool wanted) {
  if (!wanted) return;
  for (const CallRecord& record : records) showLog(record.target, record.log);
}

/// Ends the observers that began, whatever happens. The first error of an end() counts unless one is under way.
class Observers {
 public:
  explicit Observers(const std::vector<RunObserver*>& all) : all_(all) {}
  ~Observers() {
    while (begun_ > 0) {
      try {
        all_[--begun_]->end();
      } catch (const std::exception& e) {
        std::fprintf(stderr, "csrt-track: %s\n", e.what());
      }
    }
  }
  Observers(const Observers&) = delete;
  Observers& operator=(const Observers&) = delete;

  void begin(const RunInfo& info) {
    for (RunObserver* observer : all_) {
      observer->begin(info);
      ++begun_;
    }
  }
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) {
    for (RunObserver* observer : all_) observer->frame(frame, records);
  }
  void noSignal(const std::vector<CallRecord>& records) {
    for (RunObserver* observer : all_) observer->noSignal(records);
  }
  void restarted(const CallRecord& record) {
    for (RunObserver* observer : all_) observer->restarted(record);
  }
  void end() {
    while (begun_ > 0) all_[--begun_]->end();
  }

 private:
  const std::vector<RunObserver*>& all_;
  std::size_t begun_ = 0;
};

/// All targets of a run and the frame they are working on.
class Targets {
 public:
  Targets(PluginLibrary& library, const TrackRun& run) : library_(library), run_(run), pool_(run.threads) {
    for (const TargetOption& target : run.targets) {
      if (!run.startsWithout) add_(target.name);
    }
  }

  std::vector<CallRecord> init(const SourceFrame& frame) {
    const Picture picture = pictureOf_(frame);
    std::vector<CallRecord> records(sessions_.size());
    pool_.forEach(sessions_.size(), [&](std::size_t i) {
      records[i] = sessions_[i]->init(picture, {frame.index, frame.time_s}, run_.targets[i].box);
      addLiveFacts(records[i], frame);
    });
    for (std::size_t i = sessions_.size(); i-- > 0;) {
      if (!records[i].started) sessions_.erase(sessions_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return records;
  }

  std::vector<CallRecord> update(const SourceFrame& frame) {
    const Picture picture = pictureOf_(frame);
    std::vector<CallRecord> records(sessions_.size());
    pool_.forEach(sessions_.size(), [&](std::size_t i) {
      records[i] = sessions_[i]->update(picture, {frame.index, frame.time_s});
      addLiveFacts(records[i], frame);
    });
    return records;
  }

  /// What is said while no frame comes.
  std::vector<CallRecord> silent(const SourceFrame& frame) const {
    std::vector<CallRecord> records;
    for (const auto& session : sessions_) records.push_back(session->silent({frame.index, frame.time_s}));
    return records;
  }

  /// Starts the first target over; when none is left, a new one of the same name.
  CallRecord restart(const SourceFrame& frame, const BBox& box) {
    if (sessions_.empty()) add_(run_.targets.front().name);
    CallRecord record = sessions_.front()->init(pictureOf_(frame), {frame.index, frame.time_s}, box);
    addLiveFacts(record, frame);
    if (!record.started) sessions_.erase(sessions_.begin());
    return record;
  }

  bool empty() const { return sessions_.empty(); }

 private:
  using Picture = std::shared_ptr<ocula::OculaPicture>;

  Picture pictureOf_(const SourceFrame& frame) const {
    return std::make_shared<ocula::OculaPicture>(frame.bgr,
                                                 frame.live ? metadataOf(*frame.live) : run_.metadata.of(frame.index));
  }

  void add_(const std::string& name) {
    sessions_.push_back(std::make_unique<TargetSession>(library_.create(), name, library_.engine()));
    sessions_.back()->keepPace(run_.pace);
    sessions_.back()->guardWith(run_.guard);
    const std::vector<std::string> lines = sessions_.back()->configure(run_.configText);
    if (run_.logToStderr) showLog(name, lines);
  }

  PluginLibrary& library_;
  const TrackRun& run_;
  std::vector<std::unique_ptr<TargetSession>> sessions_;
  WorkerPool pool_;
};

/// What the source knows about the frame the records are of.
void addSource(const SourceFrame& frame, std::vector<CallRecord>& records) {
  for (CallRecord& record : records) {
    record.file = frame.file;
    record.sourceNote = frame.note;
  }
}

RunInfo infoOf(const SourceFrame& first, const FrameSource& source, const PluginLibrary& library, const TrackRun& run) {
  RunInfo info;
  info.source = withPasswordsMasked(run.sourceName);
  info.frameSize = first.bgr.size();
  info.fps = source.fps();
  info.firstFrame = first.index;
  for (const TargetOption& target : run.targets) info.targets.push_back(target.name);
  info.configText = run.configText;
  info.pluginPath = library.path();
  info.engine = library.engine();
  return info;
}

/// Lets a person look and steer; false when the run is to end.
bool steer(RunSteering* steering, const SourceFrame& frame, const std::vector<CallRecord>& records, Targets& targets,
           Observers& observers, bool logToStderr) {
  if (steering == nullptr) return !targets.empty();
  const Steering wish = steering->after(frame, records);
  if (wish.stop) return false;
  if (wish.restart) {
    const CallRecord record = targets.restart(wish.on ? *wish.on : frame, *wish.restart);
    showLogs({record}, logToStderr);
    observers.restarted(record);
    steering->restarted(record);
    for (const SourceFrame& later : wish.catchUp) showLogs(targets.update(later), logToStderr);
  }
  return true;
}

/// The first frame, and the targets on it: a person's choice where none was given.
SourceFrame firstFrame(FrameSource& source, TrackRun& run, RunSteering* steering) {
  SourceFrame frame;
  if (!source.read(frame)) throw HostError(ExitCode::Source, "'" + run.sourceName + "' has no frame");
  resolveOn(frame.bgr, run.targets);
  if (!run.targets.empty()) return frame;
  const std::optional<BBox> box = steering != nullptr ? steering->firstBox(frame.bgr) : std::nullopt;
  if (!box && steering != nullptr && steering->startsWithout()) {
    run.targets.push_back({"target", {}});
    run.startsWithout = true;
    return frame;
  }
  if (!box) throw HostError(ExitCode::NotStarted, "tracking did not start: no box was chosen");
  run.targets.push_back({"target", *box});
  return frame;
}

}  // namespace

TrackRunResult runTrack(FrameSource& source, PluginLibrary& library, TrackRun run, const std::vector<RunObserver*>& all,
                        RunSteering* steering) {
  const long expected = source.expected();
  SourceFrame frame = firstFrame(source, run, steering);
  Targets targets(library, run);
  RunInfo info = infoOf(frame, source, library, run);
  info.expectedFrames = expected;
  Observers observers(all);
  observers.begin(info);

  TrackRunResult result;
  PaceKeeper pace(run.pace == Pace::Source && !frame.live);  // a live source keeps its own
  pace.wait(frame.time_s);
  std::vector<CallRecord> records = targets.init(frame);
  for (const CallRecord& record : records) {
    if (!record.started) result.refused.push_back(record);
  }
  while (true) {
    if (frame.noSignal) {
      observers.noSignal(targets.silent(frame));
    } else {
      ++result.frames;
      addSource(frame, records);
      showLogs(records, run.logToStderr);
      observers.frame(frame, records);
    }
    if (!steer(steering, frame, records, targets, observers, run.logToStderr)) break;
    if (interruptSignal() != 0 || !source.read(frame)) break;
    if (frame.noSignal) continue;
    pace.wait(frame.time_s);
    records = targets.update(frame);
  }
  result.interrupted = interruptSignal() != 0;
  result.sourceFaults = source.faults();
  result.frameSize = info.frameSize;
  observers.end();
  return result;
}

}  // namespace host
