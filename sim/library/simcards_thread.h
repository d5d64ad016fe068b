// simcards_thread: threads of the library, hidden from the program's signals and named, so that what they cost can be
// told from what the program costs.
// A signal must go to the program's own threads: the library's would take it in the middle of its lock.
#pragma once

#include <pthread.h>

#include <csignal>
#include <thread>
#include <utility>

namespace simcards {

constexpr const char* THREAD_NAME = "simcards";

template <typename F>
std::thread StartThread(F&& fnRun) {
  sigset_t rAll, rBefore;
  sigfillset(&rAll);
  pthread_sigmask(SIG_SETMASK, &rAll, &rBefore);  // a new thread inherits the mask
  std::thread rThread([fnNamed = std::forward<F>(fnRun)]() mutable {
    (void)pthread_setname_np(pthread_self(), THREAD_NAME);  // fails only for a name too long
    fnNamed();
  });
  pthread_sigmask(SIG_SETMASK, &rBefore, nullptr);
  return rThread;
}

}  // namespace simcards
