// The front of a served run that a browser talks to: told by the run, asked by the server.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "run/front.h"
#include "web/command_queue.h"
#include "web/config_book.h"
#include "web/frame_store.h"
#include "web/run_keeper.h"
#include "web/run_view.h"

namespace host::web {

/// Lines of records on their way to who reads them as a stream. Threads: all calls from any thread.
class RecordFeed {
 public:
  static constexpr std::size_t kKept = 512;

  void add(std::string line);
  /// The lines after number `last`, which becomes the number of the newest; waits at most `limit` for one. Lines that
  /// are no longer kept are left out, and counted in `missed`.
  std::vector<std::string> after(long& last, long& missed, std::chrono::milliseconds limit);
  /// The number of the newest line; 0: none.
  long newest() const;
  void close();
  bool closed() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> lines_;
  long newest_ = 0;
  bool closed_ = false;
};

/// What the server works on: everything in it may be used from any thread.
struct WebParts {
  WebParts(const std::string& configText, const std::string& preset, const std::string& schema,
           const std::string& saveFolder = {}, Pace pace = Pace::Source)
      : config(configText, preset, schema), keeper(saveFolder, pace) {}
  FrameStore frames;
  RunView view;
  CommandQueue commands;
  RecordFeed records;
  ConfigBook config;
  RunKeeper keeper;
};

/// The run's side.
class WebFront : public Front {
 public:
  explicit WebFront(WebParts& parts) : parts_(parts) {}

  void begin(const RunInfo& info) override;
  void judged(const SourceFrame& frame, std::vector<CallRecord>& records) override;
  void frame(const SourceFrame& frame, const std::vector<CallRecord>& records) override;
  void noSignal(const std::vector<CallRecord>& records) override;
  void restarted(const CallRecord& record) override;
  void stopped(const std::string& target) override;
  std::vector<FrontCommand> takeCommands() override { return parts_.commands.take(); }
  void end() override;

 private:
  void feed_(const std::vector<CallRecord>& records);

  WebParts& parts_;
};

/// Seconds of the machine's clock that never goes back.
double secondsNow();

/// JSON on one line, in ASCII alone, so that it can stand in a header.
std::string asciiText(const nlohmann::ordered_json& json);

}  // namespace host::web
