// How much audio is due follows from the time since the start, not from the number of ticks: a tick that comes
// late makes more, and no error adds up. Only what would overrun a ring is left out, and counted as slipped.

#include "simcards_pacing.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "simcards_state.h"
#include "simcards_thread.h"

namespace simcards {
namespace {

using Clock = std::chrono::steady_clock;

constexpr double BYTES_PER_S = 8000.0;
constexpr int TICK_BYTES = 160;  // 20 ms at ordinary speed
constexpr auto SHORTEST_TICK = std::chrono::milliseconds(1);
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

  double Speed() const { return dRunningSpeed; }
  double Slipped() const { return static_cast<double>(iSlippedBytes) / BYTES_PER_S; }

 private:
  void Run() {
    const auto rTick = std::max<Clock::duration>(
        SHORTEST_TICK, std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(TICK_BYTES / (BYTES_PER_S * dSpeed))));
    const Clock::time_point rStart = Clock::now();
    long long iDone = 0;  // bytes made or slipped since rStart
    for (Clock::time_point rNext = rStart + rTick; !StopBefore(rNext); rNext = std::max(rNext + rTick, Clock::now())) {
      const std::chrono::duration<double> rElapsed = Clock::now() - rStart;
      const long long iDue = std::llround(rElapsed.count() * BYTES_PER_S * dSpeed) - iDone;
      const long long iNow = std::min(iDue, MOST_BYTES_AT_ONCE);
      if (iNow > 0) {
        State& rState = TheState();
        const std::lock_guard<std::mutex> rGuard(rState.rMutex);
        rState.AdvanceAll(static_cast<int>(iNow));
      }
      iSlippedBytes += iDue - iNow;
      iDone += iDue;
    }
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
  std::atomic<long long> iSlippedBytes{0};
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

double PacingSpeed() {
  return ThePacer().Speed();
}

double PacingSlipped() {
  return ThePacer().Slipped();
}

}  // namespace simcards
