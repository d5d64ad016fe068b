#include "ftime.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "TestTools.h"

namespace {

// One test, as there is no way back from the frozen clock.
TEST(GetSrTime, FrozenClockTakesThePlaceOfTheRealOne) {
  const time_t rBefore = time(nullptr);
  const time_t rNow = GetSrTime();
  const time_t rAfter = time(nullptr);
  EXPECT_LE(rBefore, rNow);
  EXPECT_LE(rNow, rAfter);

  SetSimTime(1000);
  EXPECT_EQ(GetSrTime(), 1000);
  while (time(nullptr) == rAfter) usleep(10000);  // the real second changes, the frozen one does not
  EXPECT_EQ(GetSrTime(), 1000);
  SetSimTime(0);
  EXPECT_EQ(GetSrTime(), 0);
  SetSimTime(-5);
  EXPECT_EQ(GetSrTime(), -5);
}

TEST(StopWatchTest, GoesOnWhileTheClockIsFrozen) {
  SetSimTime(1000);
  const StopWatch rWatch;
  const double dFirst = rWatch.Seconds();
  EXPECT_GE(dFirst, 0);
  EXPECT_TRUE(testtools::Await([&] { return rWatch.Seconds() > dFirst; }));
}

TEST(GetDefTimeStr, GivesTheLocalTimeOfDay) {
  const struct {
    const char* acLabel;
    const char* acZone;
    time_t rTime;
    const char* acText;
  } rRows[] = {
      {"start of the day", "UTC0", 0, "00:00:00"},
      {"end of the day", "UTC0", 86399, "23:59:59"},
      {"before 1970", "UTC0", -1, "23:59:59"},
      {"single digits are filled", "UTC0", 3723, "01:02:03"},
      {"east of Greenwich", "EAST-5:30", 0, "05:30:00"},
      {"west of Greenwich", "WEST8", 0, "16:00:00"},
      {"winter time", "CET-1CEST,M3.5.0,M10.5.0/3", 1705320000, "13:00:00"},
      {"summer time", "CET-1CEST,M3.5.0,M10.5.0/3", 1721044800, "14:00:00"},
  };
  for (const auto& rRow : rRows) {
    setenv("TZ", rRow.acZone, 1);
    tzset();
    EXPECT_EQ(GetDefTimeStr(rRow.rTime), rRow.acText) << rRow.acLabel;
  }
}

}  // namespace
