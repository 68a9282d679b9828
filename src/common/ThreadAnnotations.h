// Which lock guards what, in a form clang's thread-safety analysis checks (-Wthread-safety in
// the clang builds); other compilers see plain mutexes.
//
//   internal::Mutex mutex;
//   int count QIPG_GUARDED_BY(mutex) = 0;
//   { internal::MutexLock lock(mutex); ++count; }
#pragma once

#include <mutex>

#if defined(__clang__)
#define QIPG_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QIPG_THREAD_ANNOTATION(x)
#endif

#define QIPG_CAPABILITY(name) QIPG_THREAD_ANNOTATION(capability(name))
#define QIPG_SCOPED_CAPABILITY QIPG_THREAD_ANNOTATION(scoped_lockable)
#define QIPG_GUARDED_BY(lock) QIPG_THREAD_ANNOTATION(guarded_by(lock))
#define QIPG_REQUIRES(...) QIPG_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QIPG_ACQUIRE(...) QIPG_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define QIPG_RELEASE(...) QIPG_THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace qipg::internal {

// A std::mutex the analysis knows as a lock.
class QIPG_CAPABILITY("mutex") Mutex {
 public:
  void lock() QIPG_ACQUIRE() { mutex_.lock(); }
  void unlock() QIPG_RELEASE() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

// Holds a Mutex for its scope. It is also a lock a std::condition_variable_any can wait with
// (the wait lets the mutex go and takes it back before it returns).
class QIPG_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) QIPG_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() QIPG_RELEASE() {
    if (held_) mutex_.unlock();
  }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  void lock() QIPG_ACQUIRE() {
    mutex_.lock();
    held_ = true;
  }
  void unlock() QIPG_RELEASE() {
    mutex_.unlock();
    held_ = false;
  }

 private:
  Mutex& mutex_;
  bool held_ = true;
};

}  // namespace qipg::internal
