#include "mainqueue.h"

#include <cassert>
#include <memory>

#include "mainthread.h"

MainQueue* g_prBoot = nullptr;

void MainQueue::queue(ThreadAct* prAct) {
  const MutexLock rLock(rListMutex);
  rActQueue.push_back(prAct);
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
