// Commands on their way from the threads that answer requests to the run's thread.
#pragma once

#include <future>
#include <mutex>
#include <optional>
#include <vector>

#include "run/front.h"

namespace host::web {

/// Threads: all calls from any thread.
class CommandQueue {
 public:
  static constexpr std::size_t kMostWaiting = 32;

  /// Hands a command to the run. The future throws std::future_error when the run ends before it is answered.
  /// @return nothing when too many wait already, or the run is over
  std::optional<std::future<FrontAnswer>> ask(FrontCommand command);

  /// What was asked since the last call, in order. For the run's thread.
  std::vector<FrontCommand> take();

  /// Nobody takes commands any more: those that wait are dropped.
  void close();

 private:
  std::mutex mutex_;
  std::vector<FrontCommand> waiting_;
  bool closed_ = false;
};

}  // namespace host::web
