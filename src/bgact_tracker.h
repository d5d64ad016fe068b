// bgact_tracker: post-call work: a script outside this program hears of each finished call by its row id.
// Threads:   postCall: a worker. isSilent, limitStop: main. close: main, when the workers are through.
// Ownership: Tracker owns its child process, from the first post to close.
// Locks:     rMutex is held for as long as a post takes, rPostMutex for a moment, also within it.
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
  // True when a post is under way and has had no good answer for ten seconds, all of them since rWait began: the script
  // counts as broken. "ERROR" is none: the ten seconds go on over all tries of the post.
  bool isSilent(const StopWatch& rWait);
  // To be called again and again while the process ends, with the first call as its beginning: a script that answers
  // each post well within that time hears of all calls, however long that takes; one that is silent, or answers
  // "ERROR" for as long, is given up with all posts that wait for it.
  void limitStop();
  void close();

 private:
  void setPost(const std::optional<StopWatch>& rSince);

  Mutex rMutex;                              // one request at a time; usable from the first postCall on
  std::atomic<LineCom*> m_lineCom{nullptr};  // owned; null until first use. Made under rMutex, read for SignalStop too
  std::atomic<bool> fGivenUp{false};         // no post goes out any more
  std::optional<StopWatch> rStopping;        // main thread only
  Mutex rPostMutex;
  std::optional<StopWatch> rPost GUARDED_BY(rPostMutex);  // since its beginning; none: no post is under way
};
extern Tracker theTracker;

// Hands the row id of a finished call to the tracker script.
class CallPostAct : public ThreadAct {
 public:
  void performThread() override;
  void performMain() override;
  bool runsAlone() const override { return true; }
  void refused(const char* acReason) override;

  int iCallID = -1;
};
