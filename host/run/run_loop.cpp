#include "run/run_loop.h"

#include <cstddef>
#include <cstdio>
#include <exception>

#include "base/interrupt.h"
#include "base/worker_pool.h"
#include "run/live_facts.h"

namespace host {
namespace {

/// All observers as one. Those that began are ended whatever happens; the first error of an end() counts unless one is
/// under way.
class Observers : public RunObserver {
 public:
  explicit Observers(const std::vector<RunObserver*>& all) : all_(all) {}
  ~Observers() override {
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

  void begin(const RunInfo& info) override {
    for (RunObserver* observer : all_) {
      observer->begin(info);
      ++begun_;
    }
  }
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override {
    for (RunObserver* observer : all_) observer->frame(frame, records);
  }
  void noSignal(const std::vector<CallRecord>& records) override {
    for (RunObserver* observer : all_) observer->noSignal(records);
  }
  void restarted(const CallRecord& record) override {
    for (RunObserver* observer : all_) observer->restarted(record);
  }
  void end() override {
    while (begun_ > 0) all_[--begun_]->end();
  }

 private:
  const std::vector<RunObserver*>& all_;
  std::size_t begun_ = 0;
};

/// One run, turn by turn.
class Loop {
 public:
  explicit Loop(const RunParts& parts)
      : parts_(parts),
        observers_(parts.observers),
        pool_(parts.threads),
        isOver_(parts.isOver ? parts.isOver : [] { return interruptSignal() != 0; }) {}

  RunResult run() {
    const long expected = parts_.source.expected();
    SourceFrame frame;
    if (!parts_.source.read(frame)) return result_;
    begin_(frame, expected);
    PaceKeeper pace(parts_.pace == Pace::Source && !frame.live);  // a live source keeps its own
    do {
      if (!frame.noSignal) pace.wait(frame.time_s);
      if (!turn_(frame)) break;
    } while (!isOver_() && parts_.source.read(frame));
    result_.interrupted = isOver_();
    result_.sourceFaults = parts_.source.faults();
    observers_.end();
    return result_;
  }

 private:
  void begin_(const SourceFrame& first, long expected) {
    RunInfo info;
    info.frameSize = result_.frameSize = first.bgr.size();
    info.fps = parts_.source.fps();
    info.firstFrame = first.index;
    info.expectedFrames = expected;
    parts_.director.begin(first, info);
    observers_.begin(info);
  }

  /// One frame, or one moment without. @return whether the run goes on
  bool turn_(SourceFrame& frame) {
    const std::vector<RunSession*> sessions = parts_.director.sessions(frame);
    std::vector<CallRecord> records = frame.noSignal ? silence_(sessions, frame) : work_(sessions, frame);
    parts_.director.answered(frame, records);
    if (frame.noSignal) {
      observers_.noSignal(records);
    } else {
      ++result_.frames;
      observers_.frame(frame, records);
    }
    return parts_.director.goesOn(frame, records, observers_);
  }

  std::vector<CallRecord> work_(const std::vector<RunSession*>& sessions, const SourceFrame& frame) {
    const FramePicture picture = pictureOf(frame);
    std::vector<CallRecord> records(sessions.size());
    pool_.forEach(sessions.size(), [&](std::size_t i) {
      records[i] = sessions[i]->step(picture, frame);
      addLiveFacts(records[i], frame);
    });
    for (CallRecord& record : records) {
      record.file = frame.file;
      record.sourceNote = frame.note;
    }
    return records;
  }

  static std::vector<CallRecord> silence_(const std::vector<RunSession*>& sessions, const SourceFrame& frame) {
    std::vector<CallRecord> records;
    for (const RunSession* session : sessions) records.push_back(session->silent(frame));
    return records;
  }

  const RunParts& parts_;
  Observers observers_;
  WorkerPool pool_;
  std::function<bool()> isOver_;
  RunResult result_;
};

}  // namespace

FramePicture pictureOf(const SourceFrame& frame) {
  ocula::OculaPicture::BaseMetadata metadata = frame.metadata;
  if (frame.live) {
    for (auto& [key, value] : metadataOf(*frame.live)) metadata[key] = value;
  }
  return std::make_shared<ocula::OculaPicture>(frame.bgr, metadata);
}

CallRecord RunSession::silent(const SourceFrame& frame) const {
  CallRecord record;
  record.frame = frame.index;
  record.time_s = frame.time_s;
  record.noSignal = true;
  return record;
}

RunResult runLoop(const RunParts& parts) {
  return Loop(parts).run();
}

}  // namespace host
