#include "run/track_run.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <utility>

#include "base/host_error.h"
#include "base/masked_address.h"
#include "run/log_lines.h"
#include "run/plugin_session.h"

namespace host {
namespace {

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
    info.guard = run_.guard;
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
    sessions_.push_back(std::make_unique<PluginSession>(
        library_, PluginWork{run_.configText, run_.pace, run_.guard, run_.logToStderr}, target.name));
    sessions_.back()->startOn(target.box);
  }

  /// Starts the first target over; when none is left, a new one of the same name.
  CallRecord restart_(const SourceFrame& frame, const BBox& box) {
    if (sessions_.empty()) add_(targets_.front());
    sessions_.front()->startOn(box);
    CallRecord record = stepOn(*sessions_.front(), frame);
    if (!record.started) sessions_.erase(sessions_.begin());
    return record;
  }

  /// Nobody looks at these answers: they lead the targets to the frame in hand.
  void catchUp_(const SourceFrame& frame) {
    for (const auto& session : sessions_) {
      const CallRecord record = stepOn(*session, frame);
      if (run_.logToStderr) showLogLines(record.log, record.target);
    }
  }

  PluginLibrary& library_;
  const TrackRun& run_;
  RunSteering* steering_;
  std::vector<TargetOption> targets_;
  std::vector<std::unique_ptr<PluginSession>> sessions_;
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
