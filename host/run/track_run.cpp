#include "run/track_run.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

#include "base/host_error.h"
#include "base/masked_address.h"
#include "plugin/target_session.h"
#include "run/live_facts.h"
#include "run/log_lines.h"

namespace host {
namespace {

/// A target that is started on the next frame and updated on all later ones.
class TrackSession : public RunSession {
 public:
  TrackSession(PluginLibrary& library, const TrackRun& run, const std::string& name)
      : session_(library.create(), name, library.engine()) {
    session_.keepPace(run.pace);
    session_.guardWith(run.guard);
    const std::vector<std::string> lines = session_.configure(run.configText);
    if (run.logToStderr) showLogLines(lines, name);
  }

  void startOn(const BBox& box) { start_ = box; }

  CallRecord step(const FramePicture& picture, const SourceFrame& frame) override {
    const FramePlace place{frame.index, frame.time_s};
    const std::optional<BBox> box = std::exchange(start_, std::nullopt);
    return box ? session_.init(picture, place, *box) : session_.update(picture, place);
  }

  CallRecord silent(const SourceFrame& frame) const override { return session_.silent({frame.index, frame.time_s}); }

 private:
  TargetSession session_;
  std::optional<BBox> start_;
};

/// Drives the targets of the command line, and what a person makes of them.
class TrackDirector : public RunDirector {
 public:
  TrackDirector(PluginLibrary& library, const TrackRun& run, RunSteering* steering)
      : library_(library), run_(run), steering_(steering), targets_(run.targets) {}

  void begin(const SourceFrame& first, RunInfo& info) override {
    resolveOn(first.bgr, targets_);
    if (!targets_.empty()) {
      for (const TargetOption& target : targets_) add_(target);
    } else if (const std::optional<BBox> box = firstBox_(first)) {
      targets_.push_back({kOnlyTarget, *box});
      add_(targets_.front());
    } else if (steering_ != nullptr && steering_->startsWithout()) {
      targets_.push_back({kOnlyTarget, {}});
    } else {
      throw HostError(ExitCode::NotStarted, "tracking did not start: no box was chosen");
    }
    info.source = withPasswordsMasked(run_.sourceName);
    for (const TargetOption& target : targets_) info.targets.push_back(target.name);
    info.configText = run_.configText;
    info.pluginPath = library_.path();
    info.engine = library_.engine();
  }

  std::vector<RunSession*> sessions(SourceFrame& frame) override {
    frame.metadata = run_.metadata.of(frame.index);
    std::vector<RunSession*> all;
    for (const auto& session : sessions_) all.push_back(session.get());
    return all;
  }

  void answered(const SourceFrame& /*frame*/, std::vector<CallRecord>& records) override {
    for (std::size_t i = records.size(); i-- > 0;) {
      if (!records[i].isInit || records[i].started) continue;
      refused_.insert(refused_.begin(), records[i]);
      sessions_.erase(sessions_.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }

  bool goesOn(const SourceFrame& frame, const std::vector<CallRecord>& records, RunObserver& told) override {
    if (steering_ == nullptr) return !sessions_.empty();
    const Steering wish = steering_->after(frame, records);
    if (wish.stop) return false;
    if (wish.restart) {
      const CallRecord record = restart_(wish.on ? *wish.on : frame, *wish.restart);
      told.restarted(record);
      steering_->restarted(record);
      for (const SourceFrame& later : wish.catchUp) catchUp_(later);
    }
    return true;
  }

  std::vector<CallRecord> takeRefused() { return std::move(refused_); }

 private:
  static constexpr const char* kOnlyTarget = "target";

  std::optional<BBox> firstBox_(const SourceFrame& first) const {
    return steering_ != nullptr ? steering_->firstBox(first.bgr) : std::nullopt;
  }

  void add_(const TargetOption& target) {
    sessions_.push_back(std::make_unique<TrackSession>(library_, run_, target.name));
    sessions_.back()->startOn(target.box);
  }

  /// Starts the first target over; when none is left, a new one of the same name.
  CallRecord restart_(const SourceFrame& frame, const BBox& box) {
    if (sessions_.empty()) add_(targets_.front());
    sessions_.front()->startOn(box);
    CallRecord record = sessions_.front()->step(pictureOf(frame), frame);
    addLiveFacts(record, frame);
    if (!record.started) sessions_.erase(sessions_.begin());
    return record;
  }

  /// Nobody looks at these answers: they lead the targets to the frame in hand.
  void catchUp_(const SourceFrame& frame) {
    const FramePicture picture = pictureOf(frame);
    for (const auto& session : sessions_) {
      const CallRecord record = session->step(picture, frame);
      if (run_.logToStderr) showLogLines(record.log, record.target);
    }
  }

  PluginLibrary& library_;
  const TrackRun& run_;
  RunSteering* steering_;
  std::vector<TargetOption> targets_;
  std::vector<std::unique_ptr<TrackSession>> sessions_;
  std::vector<CallRecord> refused_;
};

}  // namespace

TrackRunResult runTrack(FrameSource& source, PluginLibrary& library, const TrackRun& run,
                        const std::vector<RunObserver*>& observers, RunSteering* steering) {
  TrackDirector director(library, run, steering);
  LogLines log;
  std::vector<RunObserver*> all = observers;
  if (run.logToStderr) all.insert(all.begin(), &log);
  TrackRunResult result;
  static_cast<RunResult&>(result) = runLoop({source, director, all, run.pace, run.threads, {}});
  if (result.frames == 0) throw HostError(ExitCode::Source, "'" + run.sourceName + "' has no frame");
  result.refused = director.takeRefused();
  return result;
}

}  // namespace host
