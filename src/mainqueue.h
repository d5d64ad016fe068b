// mainqueue: actions, and the queue by which they reach the main thread.
// Channels, settings and database belong to the main thread alone. Whatever a worker or the control socket wants of
// them becomes an action, and the main loop runs one a pass.
// Roads:     mainQueue leads straight to the main thread; queueAction (bgact.h) to a worker first, and then here.
// Threads:   mainQueue, queue, Ring: any. RunOneAction, Sleep: main.
// Ownership: the queue takes an action over; the caller keeps no pointer.
// Locks:     rListMutex guards rActQueue and is never held while an action runs.
#pragma once

#include <list>

#include "lock.h"

class ThreadAct {
 public:
  // The work: the slow part on a worker, then the rest on the main thread.
  virtual void performThread() = 0;
  virtual void performMain() = 0;
  virtual ~ThreadAct() = default;
  // The word to whoever waits that performMain is through. It stands apart so that a base class can say it for all its
  // actions (AwaitedAct in reactor_orders.cpp), and so that it stays unsaid where nobody can wait: see queueAction.
  virtual void completed() {}
  // True for work that waits for something which may be slow for hours. The workers run one such action at a time, so
  // that all others go on, and the list holds a limited number. One that will never run has a call of refused, before
  // its end.
  virtual bool runsAlone() const { return false; }
  virtual void refused(const char* /*acReason*/) {}
};

// The queue of one start try; TRecorderBoot (recorder_boot.h) is one.
class MainQueue {
 public:
  void queue(ThreadAct* prAct);
  // Deletes every queued action without running it.
  void emptyQueue();
  // Runs the first queued action, if any; true when an entry was taken, also a null one.
  bool RunOneAction();
  // Ends the sleep of the main loop, or the next one: there is something else than an action.
  void Ring();
  // Sleeps until there is an action, or a ring has come, at most so many milliseconds.
  void Sleep(int iMs);

 private:
  Mutex rListMutex;
  std::list<ThreadAct*> rActQueue GUARDED_BY(rListMutex);  // first in, first out
  ConditionVariable rWakeUp;
  bool fRung GUARDED_BY(rListMutex) = false;
};

// The boot object of the current try, target of mainQueue. Set at the start of each try of RecorderMain, cleared only
// after the main loop has ended on the normal path: the failure returns leave it, as no action can be in flight then.
extern MainQueue* g_prBoot;

// Queues an action straight to the main loop; without a boot object it is deleted unrun. Null is ignored.
void mainQueue(ThreadAct* prAct);
