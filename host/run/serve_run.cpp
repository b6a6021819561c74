#include "run/serve_run.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/host_error.h"
#include "base/interrupt.h"
#include "base/masked_address.h"
#include "base/worker_pool.h"
#include "picture/box_proposal.h"
#include "plugin/target_session.h"
#include "run/live_facts.h"

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
  ServedTargets(PluginLibrary& library, const ServeRun& run) : library_(library), run_(run), pool_(run.threads) {}

  std::vector<CallRecord> update(const SourceFrame& frame) {
    const Picture picture = pictureOf_(frame);
    std::vector<CallRecord> records(sessions_.size());
    pool_.forEach(sessions_.size(), [&](std::size_t i) { records[i] = updateOf_(*sessions_[i], picture, frame); });
    return records;
  }

  /// Only one of them. @param name  of a target that is followed
  CallRecord update(const SourceFrame& frame, const std::string& name) {
    return updateOf_(**find_(name), pictureOf_(frame), frame);
  }

  std::vector<CallRecord> silent(const SourceFrame& frame) const {
    std::vector<CallRecord> records;
    for (const auto& session : sessions_) records.push_back(session->silent({frame.index, frame.time_s}));
    return records;
  }

  /// Starts a target, or starts it over. One that the plug-in refuses is followed no longer.
  CallRecord start(const std::string& name, const SourceFrame& frame, const BBox& box) {
    auto session = find_(name);
    if (session == sessions_.end()) session = add_(name.empty() ? kFirstTarget : name);
    CallRecord record = (*session)->init(pictureOf_(frame), {frame.index, frame.time_s}, box);
    addLiveFacts(record, frame);
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
    for (const auto& session : sessions_) configure_(*session, text);
  }

  bool hasRoomFor(const std::string& name) { return sessions_.size() < kMostTargets || find_(name) != sessions_.end(); }

 private:
  using Picture = std::shared_ptr<ocula::OculaPicture>;
  using Sessions = std::vector<std::unique_ptr<TargetSession>>;

  /// The named one; without a name the first.
  Sessions::iterator find_(const std::string& name) {
    return std::find_if(sessions_.begin(), sessions_.end(),
                        [&name](const auto& session) { return name.empty() || session->name() == name; });
  }

  Picture pictureOf_(const SourceFrame& frame) const {
    MetadataTable::Metadata metadata = run_.metadata.of(frame.index);
    if (frame.live) {
      for (auto& [key, value] : metadataOf(*frame.live)) metadata[key] = value;
    }
    return std::make_shared<ocula::OculaPicture>(frame.bgr, metadata);
  }

  static CallRecord updateOf_(TargetSession& session, const Picture& picture, const SourceFrame& frame) {
    CallRecord record = session.update(picture, {frame.index, frame.time_s});
    addLiveFacts(record, frame);
    record.file = frame.file;
    record.sourceNote = frame.note;
    return record;
  }

  void configure_(TargetSession& session, const std::string& text) const {
    for (const std::string& line : session.configure(text)) {
      if (run_.logToStderr) std::fprintf(stderr, "%s: %s\n", session.name().c_str(), line.c_str());
    }
  }

  Sessions::iterator add_(const std::string& name) {
    auto session = std::make_unique<TargetSession>(library_.create(), name, library_.engine());
    session->keepPace(run_.pace);
    session->guardWith(run_.guard);
    configure_(*session, run_.configText);
    if (!changes_.empty()) configure_(*session, changes_.dump());
    sessions_.push_back(std::move(session));
    return std::prev(sessions_.end());
  }

  PluginLibrary& library_;
  const ServeRun& run_;
  nlohmann::json changes_ = nlohmann::json::object();  // of the configuration, since the beginning
  Sessions sessions_;
  WorkerPool pool_;
};

class ServeLoop {
 public:
  ServeLoop(FrameSource& source, const PastFrames& past, PluginLibrary& library, const ServeRun& run,
            const std::vector<RunObserver*>& observers, const std::vector<Front*>& fronts)
      : source_(source),
        past_(past),
        library_(library),
        run_(run),
        told_(observers),
        fronts_(fronts),
        targets_(library, run) {
    told_.insert(told_.end(), fronts.begin(), fronts.end());
  }
  ~ServeLoop() {
    while (begun_ > 0) {
      try {
        told_[--begun_]->end();
      } catch (const std::exception& e) {
        std::fprintf(stderr, "csrt-track: %s\n", e.what());
      }
    }
  }
  ServeLoop(const ServeLoop&) = delete;
  ServeLoop& operator=(const ServeLoop&) = delete;

  ServeResult run() {
    SourceFrame frame;
    if (!source_.read(frame)) {
      if (interruptSignal() == 0) throw HostError(ExitCode::Source, "'" + run_.sourceName + "' has no frame");
      result_.interrupted = true;
      return result_;
    }
    begin_(frame);
    do {
      turn_(frame);
    } while (!ended_ && interruptSignal() == 0 && source_.read(frame));
    result_.interrupted = interruptSignal() != 0;
    result_.sourceFaults = source_.faults();
    while (begun_ > 0) told_[--begun_]->end();
    return result_;
  }

 private:
  void begin_(const SourceFrame& first) {
    RunInfo info;
    info.source = withPasswordsMasked(run_.sourceName);
    info.frameSize = first.bgr.size();
    info.fps = source_.fps();
    info.firstFrame = first.index;
    info.expectedFrames = source_.expected();
    info.configText = run_.configText;
    info.pluginPath = library_.path();
    info.engine = library_.engine();
    for (RunObserver* observer : told_) {
      observer->begin(info);
      ++begun_;
    }
  }

  /// One frame, or one moment without; then what the fronts ask for.
  void turn_(SourceFrame& frame) {
    if (frame.noSignal) {
      std::vector<CallRecord> records = targets_.silent(frame);
      finish_(frame, records);
      for (RunObserver* observer : told_) observer->noSignal(records);
      for (Front* front : fronts_) front->silence(frame, records);
    } else {
      ++result_.frames;
      describe_(frame);
      if (frame.live) result_.dropped += frame.live->dropped;
      std::vector<CallRecord> records = targets_.update(frame);
      if (!records.empty()) update_s_ = records.front().update_ms / 1000.0;
      finish_(frame, records);
      for (RunObserver* observer : told_) observer->frame(frame, records);
    }
    for (Front* front : fronts_) {
      for (const FrontCommand& command : front->takeCommands()) obey_(command, frame);
    }
  }

  void describe_(SourceFrame& frame) {
    if (!frame.live) frame.live = LiveFacts{now(), false, 0, {}};
    if (!frame.live->senderClock) frame.live->capturedAt -= run_.videoDelay_s;
    for (Front* front : fronts_) front->describe(frame);
  }

  void finish_(const SourceFrame& frame, std::vector<CallRecord>& records) {
    if (run_.logToStderr) {
      for (const CallRecord& record : records) {
        for (const std::string& line : record.log)
          std::fprintf(stderr, "%s: %s\n", record.target.c_str(), line.c_str());
      }
    }
    for (Front* front : fronts_) front->judged(frame, records);
  }

  void obey_(const FrontCommand& command, const SourceFrame& frame) {
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
        answer.done = tryStart_(command, frame, answer);
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

  bool tryStart_(const FrontCommand& command, const SourceFrame& frame, FrontAnswer& answer) {
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
    finish_(on, records);
    for (RunObserver* observer : told_) observer->restarted(records.front());
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
      finish_(later[place], records);
    }
    return places.size();
  }

  FrameSource& source_;
  const PastFrames& past_;
  PluginLibrary& library_;
  const ServeRun& run_;
  std::vector<RunObserver*> told_;  // observers, then fronts
  const std::vector<Front*>& fronts_;
  std::size_t begun_ = 0;
  ServedTargets targets_;
  double update_s_ = kUsualUpdate_s;
  bool ended_ = false;
  ServeResult result_;
};

}  // namespace

ServeResult runServe(FrameSource& source, const PastFrames& past, PluginLibrary& library, const ServeRun& run,
                     const std::vector<RunObserver*>& observers, const std::vector<Front*>& fronts) {
  return ServeLoop(source, past, library, run, observers, fronts).run();
}

}  // namespace host
