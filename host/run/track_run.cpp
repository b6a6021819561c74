#include "run/track_run.h"

#include <cstddef>
#include <cstdio>
#include <memory>
#include <optional>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/worker_pool.h"
#include "plugin/target_session.h"

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
    for (const TargetOption& target : run.targets) add_(target.name);
  }

  std::vector<CallRecord> init(const SourceFrame& frame) {
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr, run_.metadata.of(frame.index));
    std::vector<CallRecord> records(sessions_.size());
    pool_.forEach(sessions_.size(), [&](std::size_t i) {
      records[i] = sessions_[i]->init(picture, {frame.index, frame.time_s}, run_.targets[i].box);
    });
    for (std::size_t i = sessions_.size(); i-- > 0;) {
      if (!records[i].started) sessions_.erase(sessions_.begin() + static_cast<std::ptrdiff_t>(i));
    }
    return records;
  }

  std::vector<CallRecord> update(const SourceFrame& frame) {
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr, run_.metadata.of(frame.index));
    std::vector<CallRecord> records(sessions_.size());
    pool_.forEach(sessions_.size(), [&](std::size_t i) {
      records[i] = sessions_[i]->update(picture, {frame.index, frame.time_s});
    });
    return records;
  }

  /// Starts the first target over; when none is left, a new one of the same name.
  CallRecord restart(const SourceFrame& frame, const BBox& box) {
    if (sessions_.empty()) add_(run_.targets.front().name);
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr, run_.metadata.of(frame.index));
    CallRecord record = sessions_.front()->init(picture, {frame.index, frame.time_s}, box);
    if (!record.started) sessions_.erase(sessions_.begin());
    return record;
  }

  bool empty() const { return sessions_.empty(); }

 private:
  void add_(const std::string& name) {
    sessions_.push_back(std::make_unique<TargetSession>(library_.create(), name));
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

RunInfo infoOf(const SourceFrame& first, const FrameSource& source, const PluginLibrary& library, const TrackRun& run) {
  RunInfo info;
  info.source = run.sourceName;
  info.frameSize = first.bgr.size();
  info.fps = source.fps();
  info.firstFrame = first.index;
  for (const TargetOption& target : run.targets) info.targets.push_back(target.name);
  info.configText = run.configText;
  info.pluginPath = library.path();
  return info;
}

/// Lets a person look and steer; false when the run is to end.
bool steer(RunSteering* steering, const SourceFrame& frame, const std::vector<CallRecord>& records, Targets& targets,
           Observers& observers, bool logToStderr) {
  if (steering == nullptr) return !targets.empty();
  const Steering wish = steering->after(frame, records);
  if (wish.stop) return false;
  if (wish.restart) {
    const CallRecord record = targets.restart(frame, *wish.restart);
    showLogs({record}, logToStderr);
    observers.restarted(record);
  }
  return true;
}

/// The first frame, and the targets on it: a person's choice where none was given.
SourceFrame firstFrame(FrameSource& source, TrackRun& run, RunSteering* steering) {
  SourceFrame frame;
  if (!source.read(frame)) throw HostError(ExitCode::Source, "'" + run.sourceName + "' has no frame");
  if (!run.targets.empty()) return frame;
  const std::optional<BBox> box = steering != nullptr ? steering->firstBox(frame.bgr) : std::nullopt;
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
  PaceKeeper pace(run.pace == Pace::Source);
  pace.wait(frame.time_s);
  std::vector<CallRecord> records = targets.init(frame);
  for (const CallRecord& record : records) {
    if (!record.started) result.refused.push_back(record);
  }
  while (true) {
    ++result.frames;
    showLogs(records, run.logToStderr);
    observers.frame(frame, records);
    if (!steer(steering, frame, records, targets, observers, run.logToStderr)) break;
    if (interruptSignal() != 0 || !source.read(frame)) break;
    pace.wait(frame.time_s);
    records = targets.update(frame);
  }
  result.interrupted = interruptSignal() != 0;
  observers.end();
  return result;
}

}  // namespace host
