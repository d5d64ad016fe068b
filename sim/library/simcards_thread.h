// simcards_thread: threads of the library, hidden from the program's signals and named, so that what they cost can be
// told from what the program costs.
// A signal must go to the program's own threads: the library's would take it in the middle of its lock. Cards have
// processors of their own, so these threads come before all others; nor must one that holds the lock wait for the
// program's.
#pragma once

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <thread>
#include <utility>

namespace simcards {

constexpr const char* THREAD_NAME = "simcards";
constexpr int HIGHEST_PRIORITY = -20;

template <typename F>
std::thread StartThread(F&& fnRun) {
  sigset_t rAll, rBefore;
  sigfillset(&rAll);
  pthread_sigmask(SIG_SETMASK, &rAll, &rBefore);  // a new thread inherits the mask
  std::thread rThread([fnNamed = std::forward<F>(fnRun)]() mutable {
    (void)pthread_setname_np(pthread_self(), THREAD_NAME);                           // fails only for a name too long
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), HIGHEST_PRIORITY);  // if allowed
    fnNamed();
  });
  pthread_sigmask(SIG_SETMASK, &rBefore, nullptr);
  return rThread;
}

}  // namespace simcards
