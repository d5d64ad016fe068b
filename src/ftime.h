// ftime: the daemon's clock, which tests can freeze, and a stopwatch beside it.
// Threads:   any; SetSimTime only where no other thread reads the clock.
#pragma once

#include <ctime>
#include <string>

// Seconds since 1970: the real clock, or the frozen one.
time_t GetSrTime();
// Freezes the clock at `newTime` for the rest of the process.
void SetSimTime(time_t newTime);
// Local time of day as "hh:mm:ss".
std::string GetDefTimeStr(time_t theTime);

// Seconds since it was made, on a clock that nobody sets or freezes.
class StopWatch {
 public:
  StopWatch();
  double Seconds() const;

 private:
  timespec rStart{};
};
