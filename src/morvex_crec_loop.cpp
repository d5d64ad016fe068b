// The main loop: the only place that takes events from the cards, and the only thread that touches channels. It must be
// back at the driver quickly, so one pass handles one event and one action, and warns about handlers that take long.
//
//   normal pass     wait at most 200 ms for an event and hand it on; once a second Periodic; one action
//                   when a stop arrives meanwhile: end all calls once, and no Periodic, which could start new ones
//   stopping pass   no events; end all calls once; one action; leave when no work is left anywhere
//   trace           between two stopping passes, once everything has drained: recorder_trace.cpp
//
// A post-call script that does not answer holds neither up: a stop gives its posts up, and a trace goes without them,
// as they touch no channel. Nor does a client that orders in a loop: the reactor leaves time between two orders then.
//
// A stop and a trace take the same road: both drain the queues, and the first of them in a process shuts the channels
// down; see fCalledShutDown. What decides is looked at once at the top of a pass, so a stop that arrives in a normal
// pass still lets that pass come to its end, all but Periodic.
#include "morvex_crec.h"

#include <syslog.h>
#include <unistd.h>

#include <ctime>
#include <optional>

#include "bgact.h"
#include "bgact_tracker.h"
#include "ftime.h"
#include "logging.h"
#include "reactor.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "recorder_trace.h"
#include "shpa3api.h"
#include "shpa3link.h"

namespace {

constexpr DWORD EVENT_WAIT_MS = 200;
constexpr useconds_t STOPPING_PAUSE_US = 200'000;

// To be asked again and again: see Tracker::limitStop.
bool StopIsDrained() {
  theTracker.limitStop();
  return isBgQueueReady();
}

struct MainLoop {
  TRecorderBoot& rBoot;
  CRecorder& rRecorder;
  time_t rLastPeriod = time(nullptr);
  // Never cleared: Shutdown runs once in a process, also when that was for a trace. A second trace, and a stop after a
  // trace, find the channels as normal passes have left them; see StopAfterTraceEndsNoCallAgain.
  bool fCalledShutDown = false;
  std::optional<StopWatch> rDraining = std::nullopt;  // since the first stopping pass; none in normal passes

  void Run() {
    bool fGoOn = true;
    while (fGoOn) {
      if (StopWanted()) {
        fGoOn = StoppingPass();
      } else {
        NormalPass();
      }
    }
  }

  bool StopWanted() const { return fAppTerminate || rRecorder.fBitStreamTracing; }

  void NormalPass() {
    rRecorder.fDraining = false;
    rDraining.reset();
    WaitForEvent();
    if (!ShutdownOnce()) PeriodicOnNewSecond();
    (void)rBoot.RunOneAction();
  }

  // False: leave the loop. Idle workers, then an empty queue, then idle workers again: a worker hands its action to the
  // queue before it counts as idle, so nothing that is still on its way can be missed.
  bool StoppingPass() {
    rRecorder.fDraining = true;
    if (!rDraining) rDraining.emplace();
    (void)usleep(STOPPING_PAUSE_US);
    (void)ShutdownOnce();
    bool fQueueIsEmpty = WorkersAreDrained();
    if (rBoot.RunOneAction()) fQueueIsEmpty = false;
    if (!WorkersAreDrained() || !fCalledShutDown || !fQueueIsEmpty) return true;
    if (!rRecorder.fBitStreamTracing) return false;
    RunBitStreamTrace(rBoot, rRecorder);
    return !fAppTerminate;
  }

  bool WorkersAreDrained() const {
    if (fAppTerminate) return StopIsDrained();
    return isBgQueueReady() || (theTracker.isSilent(*rDraining) && isBgQueueReadyButAlone());
  }

  void WaitForEvent() {
    char acBuffer[EVENT_BUFFER_BYTES];
    acBuffer[0] = 0;
    SSM_EVENT rEvent;
    rEvent.pvBuffer = acBuffer;
    rEvent.dwBufferLength = EVENT_BUFFER_BYTES;
    const int iResult = SsmWaitForEventA(EVENT_WAIT_MS, &rEvent);
    if (iResult == SSM_OK) {
      const StopWatch rWatch;
      rRecorder.HandleEvent(&rEvent);
      const double dTook = rWatch.Seconds();
      if (dTook > SLOW_HANDLER_S) lg(LOG_WARNING, "Event handling took: %.4f s", dTook);
    } else if (iResult != SSM_EVENT_TIMEOUT) {
      LogSsmError("SsmWaitForEventA");  // and the next pass tries again, at once
    }
  }

  // Whether all calls have been ended by it, in this very pass.
  bool ShutdownOnce() {
    if (!StopWanted() || fCalledShutDown) return false;
    rRecorder.Shutdown();
    fCalledShutDown = true;
    return true;
  }

  // At most once a second; once after a stall of several, and not at all while a clock set back catches up.
  void PeriodicOnNewSecond() {
    const time_t rNow = time(nullptr);
    if (rNow <= rLastPeriod) return;
    rRecorder.Periodic();
    rLastPeriod = rNow;
  }
};

}  // namespace

int TRecorderBoot::RecorderUseBoardsLoop() {
  CRecorder rRecorder;
  rRecorder.prBoot = this;
  rRecorder.prDatabase = prDatabase.get();
  const bool fStarted = rRecorder.InitRecorder() == 0;
  if (fStarted) {
    init_reactor(&rRecorder);
    MainLoop rLoop{*this, rRecorder};
    rLoop.Run();
    close_reactor();  // before the queue is emptied: the reactor could still fill it
  }
  // Two ways lead here with a worker at work: a start that failed late has queued a first message, and a stop during a
  // trace leaves at once. The worker uses the recorder and this queue, so both stay until it is through.
  while (!StopIsDrained()) (void)usleep(STOPPING_PAUSE_US);
  emptyQueue();
  return fStarted ? 0 : 1;
}
