#include "base/worker_pool.h"

#include <algorithm>

namespace host {

int usableThreads() {
  return std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
}

WorkerPool::WorkerPool(int threads) {
  for (int i = 1; i < threads; ++i) threads_.emplace_back([this] { serve_(); });
}

WorkerPool::~WorkerPool() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  for (std::thread& thread : threads_) thread.join();
}

void WorkerPool::forEach(std::size_t count, const std::function<void(std::size_t)>& work) {
  std::unique_lock<std::mutex> lock(mutex_);
  work_ = &work;
  next_ = 0;
  count_ = count;
  failed_ = nullptr;
  wake_.notify_all();
  takeItems_(lock);
  done_.wait(lock, [this] { return running_ == 0; });
  work_ = nullptr;
  count_ = next_ = 0;
  if (failed_) std::rethrow_exception(failed_);
}

void WorkerPool::serve_() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!stop_) {
    wake_.wait(lock, [this] { return stop_ || next_ < count_; });
    takeItems_(lock);
  }
}

/// Takes items until none is left; the lock is free while an item is worked on.
void WorkerPool::takeItems_(std::unique_lock<std::mutex>& lock) {
  while (next_ < count_) {
    const std::size_t item = next_++;
    const std::function<void(std::size_t)>& work = *work_;
    ++running_;
    lock.unlock();
    std::exception_ptr thrown;
    try {
      work(item);
    } catch (...) {
      thrown = std::current_exception();
    }
    lock.lock();
    --running_;
    if (thrown && !failed_) failed_ = thrown;
  }
  if (running_ == 0) done_.notify_all();
}

}  // namespace host
