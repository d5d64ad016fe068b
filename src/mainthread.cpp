#include "mainthread.h"

#include <atomic>
#include <thread>

namespace {

std::atomic<std::thread::id> rMainThread{};  // the id of no thread, until one is remembered

}  // namespace

void RememberMainThread() {
  rMainThread = std::this_thread::get_id();
}

bool OnMainThread() {
  const std::thread::id rMain = rMainThread;
  return rMain == std::thread::id() || rMain == std::this_thread::get_id();
}
