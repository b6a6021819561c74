#include "run/serve_run.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/masked_address.h"
#include "picture/box_proposal.h"
#include "run/log_lines.h"
#include "run/plugin_session.h"
#include "run/run_loop.h"

namespace host {
namespace {

constexpr const char* kFirstTarget = "target";
constexpr std::size_t kMostTargets = 32;
constexpr double kUsualUpdate_s = 0.02;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// The targets that are followed, in the order in which they were started.
class ServedTargets {
 public:
  ServedTargets(PluginLibrary& library, const ServeRun& run) : library_(library), run_(run) {}

  std::vector<RunSession*> all() const {
    std::vector<RunSession*> sessions;
    for (const auto& session : sessions_) sessions.push_back(session.get());
    return sessions;
  }

  /// Only one of them, outside the turns of the run. @param name  of a target that is followed
  CallRecord update(const SourceFrame& frame, const std::string& name) { return stepOn(**find_(name), frame); }

  /// Starts a target, or starts it over. One that the plug-in refuses is followed no longer.
  CallRecord start(const std::string& name, const SourceFrame& frame, const BBox& box) {
    auto session = find_(name);
    if (session == sessions_.end()) session = add_(name.empty() ? kFirstTarget : name);
    (*session)->startOn(box);
    CallRecord record = stepOn(**session, frame);
    if (!record.started) sessions_.erase(session);
    return record;
  }

  /// @return the names of those that were followed
  std::vector<std::string> stop(const std::string& name) {
    std::vector<std::string> stopped;
    for (auto session = sessions_.begin(); session != sessions_.end();) {
      const bool meant = name.empty() || (*session)->name() == name;
      if (meant) stopped.push_back((*session)->name());
      session = meant ? sessions_.erase(session) : session + 1;
    }
    return stopped;
  }

  /// From now on, for those that are followed and those that start later.
  void configure(const std::string& text) {
    changes_.merge_patch(nlohmann::json::parse(text));
    for (const auto& session : sessions_) session->configure(text);
  }

  bool hasRoomFor(const std::string& name) { return sessions_.size() < kMostTargets || find_(name) != sessions_.end(); }

 private:
  using Sessions = std::vector<std::unique_ptr<PluginSession>>;

  /// The named one; without a name the first.
  Sessions::iterator find_(const std::string& name) {
    return std::find_if(sessions_.begin(), sessions_.end(),
                        [&name](const auto& session) { return name.empty() || session->name() == name; });
  }

  Sessions::iterator add_(const std::string& name) {
    const PluginWork work{run_.configText, run_.pace, run_.guard, run_.logToStderr};
    sessions_.push_back(std::make_unique<PluginSession>(library_, work, name));
    if (!changes_.empty()) sessions_.back()->configure(changes_.dump());
    return std::prev(sessions_.end());
  }

  PluginLibrary& library_;
  const ServeRun& run_;
  nlohmann::json changes_ = nlohmann::json::object();  // of the configuration, since the beginning
  Sessions sessions_;
};

/// Obeys the fronts.
class ServeDirector : public RunDirector {
 public:
  ServeDirector(const PastFrames& past, PluginLibrary& library, const ServeRun& run, const std::vector<Front*>& fronts)
      : past_(past), library_(library), run_(run), fronts_(fronts), targets_(library, run) {}

  void begin(const SourceFrame& /*first*/, RunInfo& info) override {
    info.source = withPasswordsMasked(run_.sourceName);
    info.configText = run_.configText;
    info.pluginPath = library_.path();
    info.engine = library_.engine();
    info.guard = run_.guard;
  }

  std::vector<RunSession*> sessions(SourceFrame& frame) override {
    if (!frame.noSignal) {
      describe_(frame);
      dropped_ += frame.live->dropped;
    }
    return targets_.all();
  }

  void answered(const SourceFrame& frame, std::vector<CallRecord>& records) override {
    if (!frame.noSignal && !records.empty()) update_s_ = records.front().update_ms / 1000.0;
    judged_(frame, records);
  }

  bool goesOn(const SourceFrame& frame, const std::vector<CallRecord>& records, RunObserver& told) override {
    for (Front* front : fronts_) {
      if (frame.noSignal) front->silence(frame, records);
    }
    for (Front* front : fronts_) {
      for (const FrontCommand& command : front->takeCommands()) obey_(command, frame, told);
    }
    return !ended_;
  }

  long dropped() const { return dropped_; }

 private:
  void describe_(SourceFrame& frame) {
    frame.metadata = run_.metadata.of(frame.index);
    if (!frame.live) frame.live = LiveFacts{now(), false, 0, {}};
    if (!frame.live->senderClock) frame.live->capturedAt -= run_.videoDelay_s;
    for (Front* front : fronts_) front->describe(frame);
  }

  void judged_(const SourceFrame& frame, std::vector<CallRecord>& records) {
    for (Front* front : fronts_) front->judged(frame, records);
  }

  void obey_(const FrontCommand& command, const SourceFrame& frame, RunObserver& told) {
    FrontAnswer answer;
    switch (command.kind) {
      case FrontCommand::Kind::End:
        ended_ = answer.done = true;
        break;
      case FrontCommand::Kind::Configure:
        targets_.configure(command.configText);
        answer.done = true;
        break;
      case FrontCommand::Kind::Stop:
        answer.done = stop_(command, answer);
        break;
      case FrontCommand::Kind::Box:
      case FrontCommand::Kind::Point:
        answer.done = tryStart_(command, frame, answer, told);
        break;
    }
    if (command.answer) command.answer(answer);
  }

  bool stop_(const FrontCommand& command, FrontAnswer& answer) {
    const std::vector<std::string> stopped = targets_.stop(command.target);
    for (const std::string& name : stopped) {
      for (Front* front : fronts_) front->stopped(name);
    }
    if (!stopped.empty() || command.target.empty()) return true;
    answer.why = "there is no target '" + command.target + "'";
    return false;
  }

  /// The frame that the command was made on. @return false, with the reason, when it is no longer there
  bool tryFind_(const FrontCommand& command, const SourceFrame& frame, SourceFrame& on, FrontAnswer& answer) {
    const long index = command.frame.value_or(frame.index);
    if (index == frame.index && !frame.noSignal) {
      on = frame;
      return true;
    }
    std::optional<SourceFrame> found = past_.kept.find ? past_.kept.find(index) : std::nullopt;
    if (!found) {
      const std::pair<long, long> range = past_.kept.range ? past_.kept.range() : std::pair<long, long>(0, -1);
      answer.why = "frame " + std::to_string(index) + " is not kept" +
                   (range.second >= range.first
                        ? "; kept are " + std::to_string(range.first) + " to " + std::to_string(range.second)
                        : "");
      return false;
    }
    on = std::move(*found);
    describe_(on);
    return true;
  }

  bool tryStart_(const FrontCommand& command, const SourceFrame& frame, FrontAnswer& answer, RunObserver& told) {
    if (!targets_.hasRoomFor(command.target)) {
      answer.why = "more than " + std::to_string(kMostTargets) + " targets are not followed";
      return false;
    }
    SourceFrame on;
    if (!tryFind_(command, frame, on, answer)) return false;
    BBox box = command.box;
    if (command.kind == FrontCommand::Kind::Point) {
      const cv::Rect proposed = proposeBox(on.bgr, command.point).box;
      box = {proposed.x, proposed.y, proposed.width, proposed.height};
    }
    std::vector<CallRecord> records = {targets_.start(command.target, on, box)};
    judged_(on, records);
    told.restarted(records.front());
    answer.record = records.front();
    if (answer.record->started && on.index != frame.index) {
      answer.caughtUp = catchUp_(answer.record->target, on.index, frame.index);
    }
    if (!answer.record->started) {
      answer.why = answer.record->reason.empty() ? "the plug-in refused the box" : answer.record->reason;
    }
    return answer.record->started;
  }

  /// Leads a target through the frames after the one of its start, up to the newest one in hand. When a frame takes
  /// long, only some of those between.
  std::size_t catchUp_(const std::string& target, long from, long to) {
    std::vector<SourceFrame> later = past_.kept.after ? past_.kept.after(from) : std::vector<SourceFrame>{};
    later.erase(std::remove_if(later.begin(), later.end(), [to](const SourceFrame& f) { return f.index > to; }),
                later.end());
    std::vector<std::size_t> places(later.size());
    for (std::size_t i = 0; i < places.size(); ++i) places[i] = i;
    if (past_.catchUp != nullptr) places = past_.catchUp(later.size(), update_s_);
    for (const std::size_t place : places) {
      describe_(later[place]);
      std::vector<CallRecord> records = {targets_.update(later[place], target)};
      if (run_.logToStderr) showLogLines(records.front().log, records.front().target);
      judged_(later[place], records);
    }
    return places.size();
  }

  const PastFrames& past_;
  PluginLibrary& library_;
  const ServeRun& run_;
  const std::vector<Front*>& fronts_;
  ServedTargets targets_;
  double update_s_ = kUsualUpdate_s;
  long dropped_ = 0;
  bool ended_ = false;
};

}  // namespace

ServeResult runServe(FrameSource& source, const PastFrames& past, PluginLibrary& library, const ServeRun& run,
                     const std::vector<RunObserver*>& observers, const std::vector<Front*>& fronts) {
  ServeDirector director(past, library, run, fronts);
  LogLines log;
  std::vector<RunObserver*> told;
  if (run.logToStderr) told.push_back(&log);
  told.insert(told.end(), observers.begin(), observers.end());
  told.insert(told.end(), fronts.begin(), fronts.end());
  const RunResult loop = runLoop({source, director, told, Pace::Fast, run.threads, {}});  // the source has its own pace
  const bool interrupted = interruptSignal() != 0;
  if (loop.frames == 0 && !interrupted) {
    throw HostError(ExitCode::Source, "'" + run.sourceName + "' has no frame");
  }
  return {loop.frames, director.dropped(), interrupted, loop.sourceFaults};
}

}  // namespace host
