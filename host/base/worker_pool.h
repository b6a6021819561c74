// A few threads that do the same kind of work again and again, frame after frame.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace host {

/// Threads that this machine runs at a time, at least 1.
int usableThreads();

/// Runs work items of one batch on several threads. forEach() is for one caller at a time.
class WorkerPool {
 public:
  /// @param threads  threads that work, the caller's included; below 1 counts as 1
  explicit WorkerPool(int threads);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  /// Calls work(0) to work(count - 1), each once, and returns when all are done.
  /// The first exception of any of them is thrown again here, after all are done.
  void forEach(std::size_t count, const std::function<void(std::size_t)>& work);

 private:
  void serve_();
  void takeItems_(std::unique_lock<std::mutex>& lock);

  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  const std::function<void(std::size_t)>* work_ = nullptr;
  std::size_t next_ = 0;
  std::size_t count_ = 0;
  std::size_t running_ = 0;
  bool stop_ = false;
  std::exception_ptr failed_;
  std::vector<std::thread> threads_;
};

}  // namespace host
