#include "mainqueue.h"

#include <cassert>
#include <chrono>
#include <memory>

#include "mainthread.h"

MainQueue* g_prBoot = nullptr;

void MainQueue::queue(ThreadAct* prAct) {
  {
    const MutexLock rLock(rListMutex);
    rActQueue.push_back(prAct);
  }
  rWakeUp.NotifyOne();
}

void MainQueue::Ring() {
  {
    const MutexLock rLock(rListMutex);
    fRung = true;
  }
  rWakeUp.NotifyOne();
}

void MainQueue::Sleep(int iMs) {
  assert(OnMainThread());
  const auto rUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(iMs);
  MutexLock rLock(rListMutex);
  while (rActQueue.empty() && !fRung && rWakeUp.WaitUntil(rLock, rUntil)) {
  }
  fRung = false;
}

void MainQueue::emptyQueue() {
  const MutexLock rLock(rListMutex);
  for (ThreadAct* prAct : rActQueue) delete prAct;
  rActQueue.clear();
}

bool MainQueue::RunOneAction() {
  assert(OnMainThread());
  std::unique_ptr<ThreadAct> prAct;
  {
    const MutexLock rLock(rListMutex);
    if (rActQueue.empty()) return false;
    prAct.reset(rActQueue.front());
    rActQueue.pop_front();
  }
  if (prAct != nullptr) {  // a null entry counts as taken
    prAct->performMain();
    prAct->completed();
  }
  return true;
}

void mainQueue(ThreadAct* prAct) {
  if (g_prBoot == nullptr) {
    delete prAct;
    return;
  }
  g_prBoot->queue(prAct);
}
