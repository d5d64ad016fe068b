// lock: a mutex and its guard whose use clang checks. A field says by GUARDED_BY which lock it needs, a function by
// REQUIRES which one its caller holds, and -Wthread-safety refuses each use without it. For gcc they are plain code.
// Threads:   any.
#pragma once

#include <mutex>

#ifdef __clang__
#define THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define THREAD_SAFETY(attribute)
#endif
#define GUARDED_BY(rMutexOfField) THREAD_SAFETY(guarded_by(rMutexOfField))
#define REQUIRES(rMutexOfCaller) THREAD_SAFETY(requires_capability(rMutexOfCaller))

class THREAD_SAFETY(capability("mutex")) Mutex {
 private:
  friend class MutexLock;
  std::mutex rMutex;
};

// Holds the mutex for its scope.
class THREAD_SAFETY(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& rToHold) THREAD_SAFETY(acquire_capability(rToHold)) : rLock(rToHold.rMutex) {}
  ~MutexLock() THREAD_SAFETY(release_capability()) = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  std::lock_guard<std::mutex> rLock;
};
