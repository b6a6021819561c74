// One place between the thread that receives frames and the one that works on them: always the newest.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

namespace live {

/// Holds at most one value. A new one replaces what nobody has taken; what is taken is gone, so nobody gets it twice.
/// Threads: all calls from any thread.
template <typename T>
class NewestSlot {
 public:
  void put(T value) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (value_) ++dropped_;
      value_ = std::move(value);
    }
    changed_.notify_one();
  }

  /// No more values will come: waiting ends.
  void close() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
    }
    changed_.notify_all();
  }

  /// Waits at most `limit` for a value. Nothing after that, or at once when closed and empty.
  std::optional<T> take(std::chrono::duration<double> limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, limit, [this] { return value_ || closed_; });
    std::optional<T> taken = std::move(value_);
    value_.reset();
    return taken;
  }

  bool closed() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return closed_;
  }
  /// Values that were replaced before anybody took them.
  long dropped() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return dropped_;
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<T> value_;
  bool closed_ = false;
  long dropped_ = 0;
};

}  // namespace live
