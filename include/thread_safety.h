// Locks that clang checks: which member needs which lock, and which function expects it held. Elsewhere the marks are
// empty. See "Thread Safety Analysis" in clang's manual; src/CMakeLists.txt switches it on.
#pragma once

#include <mutex>

#ifdef __clang__
#define CSRT_THREAD_MARK(mark) __attribute__((mark))
#else
#define CSRT_THREAD_MARK(mark)
#endif

/// Of a member: read and written only under this lock.
#define CSRT_GUARDED_BY(lock) CSRT_THREAD_MARK(guarded_by(lock))
/// Of a function: its caller holds this lock.
#define CSRT_REQUIRES(lock) CSRT_THREAD_MARK(requires_capability(lock))
/// Of a function: its caller does not hold this lock, because it takes it itself.
#define CSRT_EXCLUDES(lock) CSRT_THREAD_MARK(locks_excluded(lock))

/// A std::mutex, which it also is, that the marks above can name.
class CSRT_THREAD_MARK(capability("mutex")) CheckedMutex : public std::mutex {
 public:
  /// As those of std::mutex.
  void lock() CSRT_THREAD_MARK(acquire_capability()) { std::mutex::lock(); }
  void unlock() CSRT_THREAD_MARK(release_capability()) { std::mutex::unlock(); }
};

/// Holds a lock to the end of its block, but for a time in between where asked to. Errors: what std::mutex throws.
class CSRT_THREAD_MARK(scoped_lockable) CheckedLock {
 public:
  explicit CheckedLock(CheckedMutex& mutex) CSRT_THREAD_MARK(acquire_capability(mutex)) : lock_(mutex) {}
  ~CheckedLock() CSRT_THREAD_MARK(release_capability()) = default;
  CheckedLock(const CheckedLock&) = delete;
  CheckedLock& operator=(const CheckedLock&) = delete;

  /// Gives the lock back before the end of the block, and takes it again.
  void unlock() CSRT_THREAD_MARK(release_capability()) { lock_.unlock(); }
  void lock() CSRT_THREAD_MARK(acquire_capability()) { lock_.lock(); }

 private:
  std::unique_lock<std::mutex> lock_;
};
