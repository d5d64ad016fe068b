// reactor: the control socket towards the web side: one short order a connection, one line of reply.
// Its thread never touches channels: each order becomes an action for the main thread, and for orders that need an
// answer the thread polls until the main thread reports back or a short time passes.
// Files:     reactor.cpp socket and thread, reactor_orders.cpp ReplyTo, DoWaitOnMain and what the orders do.
// Threads:   init_, close_reactor: main. run: the reactor thread. performMain, completed of its actions: main.
// Ownership: g_prReactor is made and deleted by init_ and close_reactor; an action belongs to the queue once queued.
// Bounds:    while the main loop stops or traces, an order a second is served.
// Errors:    socket failures are logged; after a failed wait the thread ends and the socket stays silent.
#pragma once

#include <pthread.h>

#include <atomic>
#include <string>

class CRecorder;

constexpr const char* CREC_SOCKET_PATH = "/tmp/morvex_crec";

class CrecReactor {
 public:
  explicit CrecReactor(CRecorder* prRecorderToUse) : prRecorder(prRecorderToUse) {}
  // Does what a client's message orders. The line to answer, without its line feed; null: none is sent.
  const char* ReplyTo(const std::string& strMsg);
  // Waits until the queued action has completed; false when it took longer.
  bool DoWaitOnMain(int iMaxWaitMs);
  // The thread: serves clients one at a time until it is told to close.
  void run();
  static void* run_it(void* pThis);

  pthread_t rThread{};
  std::atomic<bool> fClosing{false};
  std::atomic<bool> fEnded{false};          // the thread is about to end
  std::atomic<bool> fWaitingOnMain{false};  // true from before an action is queued until its completed runs
  std::atomic<int> iActResult{0};           // of the last action that reports one
  // Of the orders that nobody waits for: one of this kind is queued and has not begun.
  std::atomic<bool> fReconfigWaits{false};
  std::atomic<bool> fTraceStartWaits{false};
  std::atomic<bool> fTraceStopWaits{false};
  std::atomic<int> iTraceChNr{0};  // driver channel of the last "bittrace_start"
  CRecorder* prRecorder;
};

extern CrecReactor* g_prReactor;  // null when no reactor runs

void init_reactor(CRecorder* prRecorder);
void close_reactor();
