// bgact_tracker: post-call work: a script outside this program hears of each finished call by its row id.
// Threads:   postCall: workers, one at a time while another waits. close: main, when the workers are through.
// Ownership: Tracker owns its child process, from the first post to close.
// Errors:    a post that fails is repeated for two minutes, then logged and given up; the row in Calls stays.
#pragma once

#include "lock.h"
#include "mainqueue.h"

class LineCom;

// The long-running tracker script; one request at a time.
class Tracker {
 public:
  ~Tracker();
  void init() REQUIRES(rMutex);
  void postCall(int iCallID);
  void close();

 private:
  Mutex rMutex;                                     // usable from the first postCall on
  LineCom* m_lineCom GUARDED_BY(rMutex) = nullptr;  // owned; null until first use
};
extern Tracker theTracker;

// Hands the row id of a finished call to the tracker script.
class CallPostAct : public ThreadAct {
 public:
  void performThread() override;
  void performMain() override;

  int iCallID = -1;
};
