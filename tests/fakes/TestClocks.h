// TestClocks: the clocks of limits and stopwatches run ahead when the test says so, by standing in for clock_gettime in
// the test program: nobody waits for minutes. Include it in one source file of the program. Await goes by the clock of
// repeated messages, so that one runs ahead only where nothing is awaited.
#pragma once

#include <dlfcn.h>

#include <atomic>
#include <ctime>

namespace testclocks {

// Seconds that they run ahead.
inline std::atomic<time_t> rLimitSkipS{0};  // the clock of LineCom's limits
inline std::atomic<time_t> rWatchSkipS{0};  // that of StopWatch
inline std::atomic<time_t> rFloodSkipS{0};  // that of the limit on repeated messages

}  // namespace testclocks

extern "C" int clock_gettime(clockid_t iClock, timespec* prTime) noexcept {
  static auto* const Real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int iResult = Real(iClock, prTime);
  if (iClock == CLOCK_BOOTTIME) prTime->tv_sec += testclocks::rLimitSkipS;
  if (iClock == CLOCK_MONOTONIC_RAW) prTime->tv_sec += testclocks::rWatchSkipS;
  if (iClock == CLOCK_MONOTONIC) prTime->tv_sec += testclocks::rFloodSkipS;
  return iResult;
}
