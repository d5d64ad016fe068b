// bgact_tracker: post-call work: a script outside this program hears of each finished call by its row id.
// Threads:   postCall: a worker. limitStop: main. close: main, when the workers are through.
// Ownership: Tracker owns its child process, from the first post to close.
// Errors:    a post that fails is repeated for two minutes, then logged and given up; the row in Calls stays. One
//            worker at most waits for the script; a post too many is logged and given up at once.
#pragma once

#include <atomic>
#include <optional>

#include "ftime.h"
#include "lock.h"
#include "mainqueue.h"

class LineCom;

// The long-running tracker script; one request at a time.
class Tracker {
 public:
  ~Tracker();
  void init() REQUIRES(rMutex);
  void postCall(int iCallID);
  // To be called again and again while the process ends: a script that answers hears of all calls, a dead one is given
  // up some seconds after the first call.
  void limitStop();
  void close();

 private:
  Mutex rMutex;                              // one request at a time; usable from the first postCall on
  std::atomic<LineCom*> m_lineCom{nullptr};  // owned; null until first use. Made under rMutex, read for SignalStop too
  std::atomic<bool> fGivenUp{false};         // no post goes out any more
  std::optional<StopWatch> rStopping;        // main thread only
};
extern Tracker theTracker;

// Hands the row id of a finished call to the tracker script.
class CallPostAct : public ThreadAct {
 public:
  void performThread() override;
  void performMain() override;
  bool runsAlone() const override { return true; }
  void refused() override;

  int iCallID = -1;
};
