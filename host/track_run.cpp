#include "track_run.h"

#include <cstddef>
#include <cstdio>
#include <memory>

#include "host_error.h"
#include "interrupt.h"
#include "target_session.h"
#include "worker_pool.h"

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
  Targets(PluginLibrary& library, const TrackRun& run) : run_(run), pool_(run.threads) {
    for (const TargetOption& target : run.targets) {
      sessions_.push_back(std::make_unique<TargetSession>(library.create(), target.name));
      const std::vector<std::string> lines = sessions_.back()->configure(run.configText);
      if (run.logToStderr) showLog(target.name, lines);
    }
  }

  std::vector<CallRecord> init(const SourceFrame& frame) {
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr);
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
    const auto picture = std::make_shared<ocula::OculaPicture>(frame.bgr);
    std::vector<CallRecord> records(sessions_.size());
    pool_.forEach(sessions_.size(), [&](std::size_t i) {
      records[i] = sessions_[i]->update(picture, {frame.index, frame.time_s});
    });
    return records;
  }

  bool empty() const { return sessions_.empty(); }

 private:
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

}  // namespace

TrackRunResult runTrack(FrameSource& source, PluginLibrary& library, const TrackRun& run,
                        const std::vector<RunObserver*>& all) {
  Targets targets(library, run);
  SourceFrame frame;
  const long expected = source.expected();
  if (!source.read(frame)) throw HostError(ExitCode::Source, "'" + run.sourceName + "' has no frame");
  RunInfo info = infoOf(frame, source, library, run);
  info.expectedFrames = expected;
  Observers observers(all);
  observers.begin(info);

  TrackRunResult result;
  const std::vector<CallRecord> starts = targets.init(frame);
  result.frames = 1;
  for (const CallRecord& record : starts) {
    if (!record.started) result.refused.push_back(record);
  }
  showLogs(starts, run.logToStderr);
  observers.frame(frame, starts);
  while (!targets.empty() && interruptSignal() == 0 && source.read(frame)) {
    const std::vector<CallRecord> records = targets.update(frame);
    ++result.frames;
    showLogs(records, run.logToStderr);
    observers.frame(frame, records);
  }
  result.interrupted = interruptSignal() != 0;
  observers.end();
  return result;
}

}  // namespace host
