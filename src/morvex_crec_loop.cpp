// The main loop: the only thread that touches channels. The taker hands it the events of the cards; where a card
// library does not bear a second thread, or the system gives none, it takes them itself, and must be back at the driver
// quickly. So one pass handles one event and one action, and warns about handlers that take long.
//
//   normal pass     wait at most 200 ms for an event or an action, and hand the event on; once a second Periodic; one
//                   action. When a stop arrives meanwhile: handle what the taker has taken, end all calls once, and no
//                   Periodic, which could start new ones
//   stopping pass   no events but those that have been taken; end all calls once; one action; leave when no work is
//                   left anywhere; wait at most 200 ms for an action when there was none
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

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

#include "bgact.h"
#include "bgact_tracker.h"
#include "filedir.h"
#include "ftime.h"
#include "logging.h"
#include "reactor.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "recorder_trace.h"
#include "shpa3api.h"
#include "shpa3link.h"
#include "taker.h"

namespace {

constexpr int STOPPING_PAUSE_MS = 200;
// "1": the main loop takes the events itself.
constexpr const char* PLAIN_LOOP_VARIABLE = "MORVEX_CREC_PLAIN_LOOP";

bool IsPlainLoopWanted() {
  const char* const acValue = getenv(PLAIN_LOOP_VARIABLE);
  return acValue != nullptr && strcmp(acValue, "1") == 0;
}

// To be asked again and again: see Tracker::limitStop.
bool StopIsDrained() {
  theTracker.limitStop();
  return isBgQueueReady();
}

struct MainLoop {
  TRecorderBoot& rBoot;
  CRecorder& rRecorder;
  Taker* prTaker;  // null: a plain loop
  time_t rLastPeriod = time(nullptr);
  // Never cleared: Shutdown runs once in a process, also when that was for a trace. A second trace, and a stop after a
  // trace, find the channels as normal passes have left them; see StopAfterTraceEndsNoCallAgain.
  bool fCalledShutDown = false;
  std::optional<StopWatch> rDraining = std::nullopt;  // since the first stopping pass; none in normal passes
  bool fTakerRests = false;
  bool fHadAction = false;              // in the last pass; there may be more
  std::int64_t iNowNs = MonotonicNs();  // with a taker: read behind all that takes time, once for each event

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
    if (prTaker == nullptr) {
      WaitForEvent();
    } else {
      WaitForTaken();
    }
    const bool fHadPeriodic = !ShutdownOnce() && PeriodicOnNewSecond();
    fHadAction = rBoot.RunOneAction();
    if (fHadPeriodic || fHadAction) iNowNs = MonotonicNs();
  }

  // False: leave the loop. Idle workers, then an empty queue, then idle workers again: a worker hands its action to the
  // queue before it counts as idle, so nothing that is still on its way can be missed.
  bool StoppingPass() {
    rRecorder.fDraining = true;
    if (!rDraining) rDraining.emplace();
    HandleAllTaken();
    (void)ShutdownOnce();
    bool fQueueIsEmpty = WorkersAreDrained();
    fHadAction = rBoot.RunOneAction();
    if (fHadAction) return true;
    if (!WorkersAreDrained() || !fCalledShutDown || !fQueueIsEmpty) {
      rBoot.Sleep(STOPPING_PAUSE_MS);
      return true;
    }
    if (!rRecorder.fBitStreamTracing) return false;
    RunBitStreamTrace(rBoot, rRecorder);
    return !fAppTerminate;
  }

  bool WorkersAreDrained() const {
    if (fAppTerminate) return StopIsDrained();
    return isBgQueueReady() || (theTracker.isSilent(*rDraining) && isBgQueueReadyButAlone());
  }

  void WaitForTaken() {
    if (fTakerRests) {
      prTaker->GoOn();
      fTakerRests = false;
      iNowNs = MonotonicNs();
    }
    TakenEvent* prTaken = prTaker->Take(iNowNs);
    if (prTaken == nullptr && !fHadAction) {
      rBoot.Sleep(prTaker->SleepMs());
      iNowNs = MonotonicNs();
      prTaken = prTaker->Take(iNowNs);
    }
    if (prTaken != nullptr) HandleTaken(*prTaken);
  }

  void HandleTaken(TakenEvent& rTaken) {
    if (rTaken.eKind == TAKEN_ERROR) {
      for (long long i = 0; i <= rTaken.iMoreErrors; i++) {
        lg(LOG_ERR, "Error in %s: %s", "SsmWaitForEventA", reinterpret_cast<const char*>(rTaken.acBytes));
      }
      iNowNs = MonotonicNs();
      return;
    }
    rRecorder.HandleTaken(rTaken);
    const std::int64_t iBeforeNs = std::exchange(iNowNs, MonotonicNs());
    const double dTook = static_cast<double>(iNowNs - iBeforeNs) / NS_A_SECOND;
    if (dTook <= SLOW_HANDLER_S) return;
    rRecorder.TellSlowEvent(dTook);
    iNowNs = MonotonicNs();  // the log may be slow itself
  }

  // A stop writes what the card has delivered, and ends the calls that are.
  void HandleAllTaken() {
    if (prTaker == nullptr || fTakerRests) return;
    prTaker->Rest();
    fTakerRests = true;
    iNowNs = MonotonicNs();
    while (TakenEvent* prTaken = prTaker->Take(iNowNs)) HandleTaken(*prTaken);
  }

  void WaitForEvent() {
    char acBuffer[EVENT_BUFFER_BYTES];
    SSM_EVENT rEvent;
    const int iResult = WaitForCardEvent(rEvent, acBuffer);
    if (iResult == SSM_OK) {
      const StopWatch rWatch;
      rRecorder.HandleEvent(&rEvent);
      const double dTook = rWatch.Seconds();
      if (dTook > SLOW_HANDLER_S) rRecorder.TellSlowEvent(dTook);
    } else if (iResult != SSM_EVENT_TIMEOUT) {
      LogSsmError("SsmWaitForEventA");  // and the next pass tries again, at once
    }
  }

  // Whether all calls have been ended by it, in this very pass.
  bool ShutdownOnce() {
    if (!StopWanted() || fCalledShutDown) return false;
    HandleAllTaken();
    rRecorder.Shutdown();
    fCalledShutDown = true;
    return true;
  }

  // At most once a second; once after a stall of several, and not at all while a clock set back catches up.
  bool PeriodicOnNewSecond() {
    const time_t rNow = time(nullptr);
    if (rNow <= rLastPeriod) return false;
    rRecorder.Periodic();
    rLastPeriod = rNow;
    return true;
  }
};

void RunLoop(TRecorderBoot& rBoot, CRecorder& rRecorder) {
  const std::string strFigures = rRecorder.GetDataDir() + LOOP_FIGURES_FILE;
  DeleteOrTell(strFigures);  // of a process that has left it
  std::optional<Taker> rTaker;
  if (!IsPlainLoopWanted()) {
    rTaker.emplace(rBoot, TakerLimitBytes(static_cast<int>(rRecorder.vChannels.size())));
    if (!rTaker->Start()) {
      lg(LOG_ERR, "No thread for the events of the cards: audio waits for all else");
      rTaker.reset();
    }
  }
  rRecorder.prTaker = rTaker ? &*rTaker : nullptr;
  MainLoop rLoop{rBoot, rRecorder, rRecorder.prTaker};
  rLoop.Run();
  rRecorder.prTaker = nullptr;
  DeleteOrTell(strFigures);
}

}  // namespace

int TRecorderBoot::RecorderUseBoardsLoop() {
  CRecorder rRecorder;
  rRecorder.prBoot = this;
  rRecorder.prDatabase = prDatabase.get();
  const bool fStarted = rRecorder.InitRecorder() == 0;
  if (fStarted) {
    init_reactor(&rRecorder);
    RunLoop(*this, rRecorder);
    close_reactor();  // before the queue is emptied: the reactor could still fill it
  }
  // Two ways lead here with a worker at work: a start that failed late has queued a first message, and a stop during a
  // trace leaves at once. The worker uses the recorder and this queue, so both stay until it is through.
  while (!StopIsDrained()) (void)usleep(STOPPING_PAUSE_MS * 1000);
  emptyQueue();
  return fStarted ? 0 : 1;
}
