// The worker pool. Two workers share one list; what they have run goes on to the main thread's queue (mainqueue.h).
// An idle worker wakes for each new action, and one that is through looks at the list before it waits. So what could
// not run beside an action that runs alone needs no wake-up of its own: the worker that had that action takes it.
#include "bgact.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "bgact_tracker.h"
#include "filedir.h"
#include "logging.h"
#include "signaling.h"

BgActHandler* prBgActHandler = nullptr;

namespace {

constexpr int WORKER_NICENESS = 10;
// Of the kernel's interface, which the C library has no header for: best effort, and there the last of eight levels.
constexpr int IOPRIO_OF_THREAD = 1;
constexpr int IOPRIO_LAST = 2 << 13 | 7;

// Two conversions must not compete with a loop that has a quarter of a second: the calling thread, and the commands
// that it starts, come behind it for processor and disk. Without that they work all the same.
void LowerPriority() {
  (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), WORKER_NICENESS);
  (void)syscall(SYS_ioprio_set, IOPRIO_OF_THREAD, 0, IOPRIO_LAST);
}

// A null entry of the list does nothing.
bool RunsAlone(const ThreadAct* prAct) {
  return prAct != nullptr && prAct->runsAlone();
}

void GiveUp(ThreadAct* prAct, const char* acReason) {
  prAct->refused(acReason);
  delete prAct;
}

}  // namespace

// -- the pool ---------------------------------------------------------------------------------------------------------

void BgActHandler::init() {
  const MutexLock rLock(rStartMutex);
  for (std::intptr_t ix = 0; ix < ATHREAD; ix++) {
    if (fStarted[ix]) continue;
    void* pvIndex = reinterpret_cast<void*>(ix);  // NOLINT(performance-no-int-to-ptr): a number, never followed
    fStarted[ix] = pthread_create(&rThread[ix], nullptr, run_it, pvIndex) == 0;
  }
}

bool BgActHandler::hasWorker() {
  const auto isStarted = [](const std::atomic<bool>& fWorkerStarted) { return fWorkerStarted.load(); };
  if (!std::all_of(std::begin(fStarted), std::end(fStarted), isStarted)) init();
  return std::any_of(std::begin(fStarted), std::end(fStarted), isStarted);
}

void BgActHandler::close() {
  {
    const MutexLock rLock(rMutex);  // or a worker that has just looked would wait for ever
    fPleaseStop = true;
  }
  rWakeUp.NotifyAll();
  for (int ix = 0; ix < ATHREAD; ix++) {
    if (fStarted[ix]) (void)pthread_join(rThread[ix], nullptr);
  }
  std::list<ThreadAct*> rLeft;
  {
    const MutexLock rLock(rMutex);
    rLeft.swap(rList);
  }
  for (ThreadAct* prAct : rLeft) {
    if (RunsAlone(prAct)) GiveUp(prAct, "the process ends");
  }
}

void* BgActHandler::run_it(void* pIx) {
  (void)pthread_setname_np(pthread_self(), "worker");
  prBgActHandler->run(static_cast<int>(reinterpret_cast<std::intptr_t>(pIx)));
  return nullptr;
}

void BgActHandler::run(int ix) {
  LowerPriority();
  while (ThreadAct* prAct = take(ix)) {
    lg(LOG_DEBUG, "Bg Act %d\n", ix);
    handleAction(prAct);
    // Only when the main queue has the action: see ready().
    eWork[ix] = WORK_NONE;
  }
}

ThreadAct* BgActHandler::take(int ix) {
  MutexLock rLock(rMutex);
  while (!fPleaseStop) {
    const auto it = std::find_if(rList.begin(), rList.end(),
                                 [this](const ThreadAct* prAct) { return !RunsAlone(prAct) || !isAloneRunning(); });
    if (it == rList.end()) {
      rWakeUp.Wait(rLock);
      continue;
    }
    ThreadAct* prAct = *it;
    rList.erase(it);
    if (prAct == nullptr) continue;
    eWork[ix] = RunsAlone(prAct) ? WORK_ALONE : WORK_ANY;
    if (RunsAlone(prAct)) iAloneWaiting--;
    return prAct;
  }
  return nullptr;
}

bool BgActHandler::isAloneRunning() const {
  return std::any_of(std::begin(eWork), std::end(eWork),
                     [](const std::atomic<EWork>& eOfWorker) { return eOfWorker == WORK_ALONE; });
}

void BgActHandler::handleAction(ThreadAct* prAct) {
  prAct->performThread();
  mainQueue(prAct);
}

void BgActHandler::queue(ThreadAct* prAct) {
  if (append(prAct)) {
    rWakeUp.NotifyOne();
  } else {
    GiveUp(prAct, "too many wait");
  }
}

bool BgActHandler::append(ThreadAct* prAct) {
  const MutexLock rLock(rMutex);
  if (RunsAlone(prAct)) {
    if (iAloneWaiting >= MAX_ALONE_WAITING) return false;
    iAloneWaiting++;
  }
  rList.push_back(prAct);
  return true;
}

bool BgActHandler::ready() {
  const bool fWorker = hasWorker();
  const MutexLock rLock(rMutex);
  return (rList.empty() || !fWorker) &&
         std::all_of(std::begin(eWork), std::end(eWork),
                     [](const std::atomic<EWork>& eOfWorker) { return eOfWorker == WORK_NONE; });
}

bool BgActHandler::readyButAlone() {
  const MutexLock rLock(rMutex);
  return std::all_of(rList.begin(), rList.end(), RunsAlone) &&
         std::all_of(std::begin(eWork), std::end(eWork),
                     [](const std::atomic<EWork>& eOfWorker) { return eOfWorker != WORK_ANY; });
}

// -- the pool of the process ------------------------------------------------------------------------------------------

void init_bgact() {
  prBgActHandler = new BgActHandler;  // before its workers, which find it here
  prBgActHandler->init();
}

void close_bgact() {
  if (prBgActHandler == nullptr) return;
  prBgActHandler->close();
  delete prBgActHandler;  // the pointer stays: whoever queued now would be a bug, not a second way to run actions
  theTracker.close();
}

// What runs alone may take minutes, which the calling thread cannot wait: it waits for a worker itself.
void queueAction(ThreadAct* prAct) {
  if (prBgActHandler != nullptr && (prBgActHandler->hasWorker() || RunsAlone(prAct))) {
    prBgActHandler->queue(prAct);
    return;
  }
  const std::unique_ptr<ThreadAct> prOwned(prAct);
  if (prOwned == nullptr) return;
  prOwned->performThread();
  prOwned->performMain();  // no completed: nobody waits for an action that has run before the call returns
}

bool isBgQueueReady() {
  return prBgActHandler == nullptr || prBgActHandler->ready();
}

bool isBgQueueReadyButAlone() {
  return prBgActHandler == nullptr || prBgActHandler->readyButAlone();
}

// -- small actions ----------------------------------------------------------------------------------------------------

void DeleteFileAct::performThread() {
  DeleteOrTell(strFilename);  // what stays has no row that points to it
}

void DeleteFileAct::performMain() {}

void SlowHandlerMsg::performThread() {
  signal_service(msg);
}

void SlowHandlerMsg::performMain() {}
