// How much audio is due follows from the time since the start, not from the number of ticks: a tick that comes
// late makes more, and no error adds up. Only what would overrun a ring is left out, if it may be, and counted as
// slipped; if it may not, it is counted as late.

#include "simcards_pacing.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "simcards_cost.h"
#include "simcards_state.h"
#include "simcards_thread.h"

namespace simcards {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double BYTES_PER_S = 8000.0;
constexpr auto SHORTEST_TICK = std::chrono::milliseconds(1);
constexpr int LINES_AT_ONCE = 64;  // the program's threads must not wait longer for the library's lock
constexpr auto LONGEST_TURN = std::chrono::milliseconds(1);
constexpr int MOST_YIELDS = 1000;
// More than this at once would overrun a small ring though its reader is quick; the cards' clock slips instead.
constexpr long long MOST_BYTES_AT_ONCE = 1024;

class Pacer {
 public:
  void Start(double dNewSpeed) {
    Stop();
    const std::lock_guard<std::mutex> rGuard(rOwnerMutex);
    dSpeed = dNewSpeed;
    dRunningSpeed = dNewSpeed;
    fStop = false;
    iSlippedBytes = 0;
    iLateBytes = 0;
    rThread = StartThread([this] { Run(); });
  }

  void Stop() {
    const std::lock_guard<std::mutex> rGuard(rOwnerMutex);
    if (!rThread.joinable()) return;
    {
      const std::lock_guard<std::mutex> rStopGuard(rStopMutex);
      fStop = true;
    }
    rStopped.notify_all();
    rThread.join();
    dRunningSpeed = 0;
  }

  void LetSlip(bool fMay) { fMaySlip = fMay; }
  double Speed() const { return dRunningSpeed; }
  double Slipped() const { return static_cast<double>(iSlippedBytes) / BYTES_PER_S; }
  double Late() const { return static_cast<double>(iLateBytes) / BYTES_PER_S; }

 private:
  void Run() {
    const Clock::time_point rStart = Clock::now();
    long long iDone = 0;  // bytes made or slipped since rStart
    long long iToldNs = 0;
    for (Clock::time_point rNext = rStart; !StopBefore(rNext);) {
      const Clock::time_point rNow = Clock::now();
      const std::chrono::duration<double> rElapsed = rNow - rStart;
      const long long iDue = std::llround(rElapsed.count() * BYTES_PER_S * dSpeed) - iDone;
      const long long iBehind = std::max(iDue - MOST_BYTES_AT_ONCE, 0LL);
      const bool fSlips = fMaySlip;
      const long long iMade = fSlips ? iDue - iBehind : iDue;
      iDone += iDue;
      (fSlips ? iSlippedBytes : iLateBytes) += iBehind;
      const int iAhead = Make(iMade, rStart + DurationOf(iDone));
      rNext = std::max(rNow + SHORTEST_TICK, rStart + DurationOf(iDone + iAhead));
      const long long iCpuNs = ThreadCpuNs();
      AddPacingNs(iCpuNs - iToldNs);
      iToldNs = iCpuNs;
    }
    const std::lock_guard<std::mutex> rGuard(TheState().rMutex);
    TheState().rTime = CardTime();
  }

  // Makes iBytes bytes of each line, the last of which is due at rDue, and tells in how many the next ones are.
  int Make(long long iBytes, Clock::time_point rDue) const {
    State& rState = TheState();
    std::unique_lock<std::mutex> rLock(rState.rMutex);
    const long long iUntil = rState.iClock + iBytes;
    rState.rTime = {iUntil, std::chrono::nanoseconds(rDue.time_since_epoch()).count(), 1e9 / (BYTES_PER_S * dSpeed)};
    for (Clock::time_point rLetPass = Clock::now(); !rState.RunClock(iUntil, LINES_AT_ONCE);) {
      const bool fTakerComes = rState.iTakers > 0 && !rState.rQueue.IsEmpty();
      rLock.unlock();
      if (Clock::now() - rLetPass > LONGEST_TURN) {
        LetPass(rState, fTakerComes);
        rLetPass = Clock::now();
      }
      rLock.lock();
    }
    return rState.NextLook();
  }

  // A lock goes to whoever is running, which would be this thread again and again.
  static void LetPass(const State& rState, bool fTakerComes) {
    for (int i = 0; i < MOST_YIELDS && (rState.iCallers > 0 || (fTakerComes && rState.iTakers > 0)); i++) {
      std::this_thread::yield();
    }
  }

  Clock::duration DurationOf(long long iBytes) const {
    const std::chrono::duration<double> rSeconds(static_cast<double>(iBytes) / (BYTES_PER_S * dSpeed));
    return std::chrono::duration_cast<Clock::duration>(rSeconds);
  }

  bool StopBefore(Clock::time_point rUntil) {
    std::unique_lock<std::mutex> rLock(rStopMutex);
    return rStopped.wait_until(rLock, rUntil, [this] { return fStop; });
  }

  std::mutex rOwnerMutex;  // one Start or Stop at a time
  std::mutex rStopMutex;
  std::condition_variable rStopped;
  bool fStop = false;   // guarded by rStopMutex
  double dSpeed = 1.0;  // written only while no thread runs
  std::atomic<double> dRunningSpeed{0};
  std::atomic<bool> fMaySlip{true};
  std::atomic<long long> iSlippedBytes{0};
  std::atomic<long long> iLateBytes{0};
  std::thread rThread;  // guarded by rOwnerMutex
};

Pacer& ThePacer() {
  static Pacer& rPacer = *new Pacer;  // never deleted: its thread may run while the process exits
  return rPacer;
}

}  // namespace

void StartPacingThread(double dSpeed) {
  ThePacer().Start(dSpeed);
}

void StopPacingThread() {
  ThePacer().Stop();
}

void LetPacingSlip(bool fMay) {
  ThePacer().LetSlip(fMay);
}

double PacingSpeed() {
  return ThePacer().Speed();
}

double PacingSlipped() {
  return ThePacer().Slipped();
}

double PacingLate() {
  return ThePacer().Late();
}

}  // namespace simcards
