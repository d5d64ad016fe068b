// simcards_thread: threads of the library, hidden from the program's signals.
// A signal must go to the program's own threads: the library's would take it in the middle of its lock.
#pragma once

#include <csignal>
#include <thread>
#include <utility>

namespace simcards {

template <typename F>
std::thread StartThread(F&& fnRun) {
  sigset_t rAll, rBefore;
  sigfillset(&rAll);
  pthread_sigmask(SIG_SETMASK, &rAll, &rBefore);  // a new thread inherits the mask
  std::thread rThread(std::forward<F>(fnRun));
  pthread_sigmask(SIG_SETMASK, &rBefore, nullptr);
  return rThread;
}

}  // namespace simcards
