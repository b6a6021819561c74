// Saves what one target went through, so that `csrt-track replay` can repeat it: from its next start until it is
// stopped or started over.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "input/frame_source.h"
#include "input/pace.h"
#include "plugin/call_record.h"
#include "run/run_observer.h"

namespace host::web {

/// Threads: all calls from any thread; pictures are written by a thread of its own.
class RunKeeper {
 public:
  static constexpr std::size_t kMostBytes = std::size_t{256} << 20;  ///< Of frames that wait to be written.
  static constexpr long kMostFrames = 3000;                          ///< Of one saved run.

  /// @param folder  for the saved runs, one folder each; empty: nothing is saved
  RunKeeper(std::string folder, Pace pace);
  ~RunKeeper();
  RunKeeper(const RunKeeper&) = delete;
  RunKeeper& operator=(const RunKeeper&) = delete;

  bool canSave() const { return !folder_.empty(); }
  /// The next target that is started is saved. @return false when one is being saved, or there is no folder
  bool tryArm();
  /// Whatever is being saved ends here, in order.
  void finish(const std::string& why);

  void begin(const RunInfo& info);
  /// @param text  the configuration in force
  void configured(const std::string& text);
  /// A frame and its records; the one of a start, and those of frames that it catches up with, too.
  void judged(const SourceFrame& frame, const std::vector<CallRecord>& records);

  /// {"state": "off" | "ready" | "armed" | "saving", "frames", "folder", "said"}
  nlohmann::ordered_json json() const;

 private:
  struct Step {
    SourceFrame frame;
    CallRecord record;
  };
  void start_Locked_(const CallRecord& record);
  void end_Locked_(const std::string& why);
  void add_Locked_(const SourceFrame& frame, const CallRecord& record);
  void write_(const std::string& folder, const RunInfo& info, const CallRecord& start);
  bool next_(std::optional<Step>& step);

  const std::string folder_;
  const Pace pace_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  RunInfo info_;
  bool armed_ = false;
  bool saving_ = false;   // frames are taken
  bool writing_ = false;  // the thread is at it
  std::string target_;
  std::string into_;
  std::string said_;
  long frames_ = 0;
  std::deque<Step> waiting_;
  std::size_t bytes_ = 0;
  std::thread thread_;
};

}  // namespace host::web
