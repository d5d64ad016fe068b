// lock: a mutex, its guard and a wait under it, whose use clang checks. A field says by GUARDED_BY which lock it needs,
// a function by REQUIRES which one its caller holds, and -Wthread-safety refuses each use without it. For gcc they are
// plain code.
// Threads:   any.
#pragma once

#include <chrono>
#include <condition_variable>
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
  friend class ConditionVariable;
  std::unique_lock<std::mutex> rLock;
};

// A thread's wait for what others change under the mutex. Wait gives it up meanwhile and holds it again afterwards. It
// may also return for nothing, so it belongs into a loop that looks at what is waited for.
class ConditionVariable {
 public:
  void Wait(MutexLock& rHeld) { rCondition.wait(rHeld.rLock); }
  // The same up to a time of the clock that nobody sets; false when that has come.
  bool WaitUntil(MutexLock& rHeld, std::chrono::steady_clock::time_point rUntil) {
    return rCondition.wait_until(rHeld.rLock, rUntil) == std::cv_status::no_timeout;
  }
  void NotifyOne() { rCondition.notify_one(); }
  void NotifyAll() { rCondition.notify_all(); }

 private:
  std::condition_variable rCondition;
};
