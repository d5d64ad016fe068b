// signaling: short text messages to the appliance's service process.
// The service may be slow or absent, so messages go through a queue and a thread of its own: no caller ever waits.
// Threads:   signal_service: any. init_ and close_signaling: main.
// Ownership: SignalObj owns its queued texts; what is still listed at close_signaling is dropped.
// Locks:     rMutex guards rList, and the start and stop of the thread; it is never held during socket work.
// Errors:    each failed message costs one log line at LOG_ERR and is lost.
#pragma once

#include <pthread.h>

#include <list>
#include <string>

#include "lock.h"

class SignalObj {
 public:
  void init();
  void close();
  // Appends a message; it leaves at once when the thread is idle. A thread that was refused is asked for again.
  void schedule(const std::string& strSignal);
  // Sends one message over the service socket and waits for its reply, 5 seconds at most.
  void signal(const std::string& strSignal);
  // The thread: sends what is listed until it is told to stop.
  void run();

 private:
  static void* run_it(void* pThis);
  bool start() REQUIRES(rMutex);  // false: the system refuses the thread
  bool append(const std::string& strSignal);
  // Takes the first message off the list, waits for one if need be. False when the thread is to stop.
  bool waitForFirst(std::string& strSignal);

  Mutex rMutex;
  ConditionVariable rChanged;  // with rMutex: the list or the order to stop
  pthread_t rThread{};
  bool fStarted GUARDED_BY(rMutex) = false;  // rThread is to be joined; false when no thread could be had
  bool fPleaseStop GUARDED_BY(rMutex) = false;
  std::list<std::string> rList GUARDED_BY(rMutex);
};

extern SignalObj* prSignalObj;  // null before init_signaling and after close_signaling

void init_signaling();
void close_signaling();
// Queues a text for the service socket and returns at once.
void signal_service(const std::string& strMsg);
