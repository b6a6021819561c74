// Threads for connections: made when they are needed, up to a limit.
#pragma once

#include <httplib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace host::web {

/// One thread per connection, since a connection may wait for pictures as long as it lives. When all are taken, further
/// connections wait in the system's queue, which is short: who comes then is refused by the system.
class ConnectionPool : public httplib::TaskQueue {
 public:
  explicit ConnectionPool(std::size_t most) : most_(most) {}

  // Newer versions of the library ask whether the connection was taken.
  using Taken = decltype(std::declval<httplib::TaskQueue&>().enqueue(std::function<void()>()));

  /// Waits for a free thread. The accepting thread alone calls it.
  Taken enqueue(std::function<void()> work) override {
    std::unique_lock<std::mutex> lock(mutex_);
    freed_.wait(lock, [this] { return ending_ || busy_ < most_; });
    ++busy_;
    waiting_.push_back(std::move(work));
    if (threads_.size() < busy_) threads_.emplace_back([this] { run_(); });
    came_.notify_one();
    return static_cast<Taken>(true);
  }

  void shutdown() override {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ending_ = true;
    }
    came_.notify_all();
    freed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

 private:
  void run_() {
    // Tracking goes first where processors are few.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), kLessUrgent);
    std::unique_lock<std::mutex> lock(mutex_);
    while (true) {
      came_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
      if (waiting_.empty()) return;
      const std::function<void()> work = std::move(waiting_.front());
      waiting_.pop_front();
      lock.unlock();
      work();
      lock.lock();
      --busy_;
      freed_.notify_one();
    }
  }

  static constexpr int kLessUrgent = 5;  // of nice()

  const std::size_t most_;
  std::mutex mutex_;
  std::condition_variable came_;
  std::condition_variable freed_;
  std::deque<std::function<void()>> waiting_;
  std::vector<std::thread> threads_;
  std::size_t busy_ = 0;  // connections that are worked on or wait for a thread
  bool ending_ = false;
};

}  // namespace host::web
