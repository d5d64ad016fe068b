// TestTime: the C library's time() under the test's control, by standing in for it in the test program. Include it in
// one source file of the program. Clocks read in other ways, and sleeps, are not affected.
#pragma once

#include <atomic>
#include <ctime>

namespace testtime {

inline std::atomic<time_t> rFrozen{0};    // what time() gives; 0: the real time plus rSkippedS
inline std::atomic<time_t> rSkippedS{0};  // seconds that the clock runs ahead

}  // namespace testtime

extern "C" time_t time(time_t* prTime) noexcept {
  timespec rNow{};
  (void)clock_gettime(CLOCK_REALTIME, &rNow);
  const time_t rFrozen = testtime::rFrozen;
  const time_t rTime = rFrozen != 0 ? rFrozen : rNow.tv_sec + testtime::rSkippedS;
  if (prTime != nullptr) *prTime = rTime;
  return rTime;
}
