// Ages and times of a call go by GetSrTime, which tests can set. What is compared with somebody else's clock (the
// weekly schedule, a time that the web side wrote) asks time() itself.
#include "ftime.h"

#include <atomic>

namespace {

enum ETimeMode { REALTIME = 0, STATIC_SIMTIME = 1 };

// Every thread reads the clock, so both are atomic. SetSimTime stores the time first: whoever sees the mode sees it
// too.
std::atomic<ETimeMode> eDoSimTime{REALTIME};
std::atomic<time_t> rSimTime{0};

constexpr size_t TIME_TEXT_BYTES = 50;

}  // namespace

time_t GetSrTime() {
  return eDoSimTime == STATIC_SIMTIME ? rSimTime.load() : time(nullptr);
}

void SetSimTime(time_t newTime) {
  rSimTime = newTime;
  eDoSimTime = STATIC_SIMTIME;
}

std::string GetDefTimeStr(time_t theTime) {
  struct tm rLocal = {};
  (void)localtime_r(&theTime, &rLocal);  // fails only for a year beyond int; the text is then 00:00:00
  char acText[TIME_TEXT_BYTES];
  return std::string(acText, strftime(acText, sizeof acText, "%T", &rLocal));
}

StopWatch::StopWatch() {
  (void)clock_gettime(CLOCK_MONOTONIC_RAW, &rStart);
}

double StopWatch::Seconds() const {
  timespec rNow{};
  (void)clock_gettime(CLOCK_MONOTONIC_RAW, &rNow);
  return static_cast<double>(rNow.tv_sec - rStart.tv_sec) + static_cast<double>(rNow.tv_nsec - rStart.tv_nsec) / 1e9;
}
