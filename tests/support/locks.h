// Who holds a lock, told without waiting for it.
#pragma once

#include <mutex>
#include <thread>

/// True when no thread holds `mutex`; asked from a thread of its own, so the caller may be the one that holds it.
inline bool isFree(std::mutex& mutex) {
  bool free = false;
  std::thread([&] {
    free = mutex.try_lock();
    if (free) mutex.unlock();
  }).join();
  return free;
}
