#include "schedule.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr int SUNDAY = 0, MONDAY = 1, WEDNESDAY = 3, SATURDAY = 6;

struct ScheduleRow {
  const char* acLabel;
  StdStringMap rCfg;
  int iWeekday, iHour, iMinute;
  bool fScheduled;
};

void CheckSchedule(const std::vector<ScheduleRow>& rRows) {
  for (const ScheduleRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    struct tm rLocalTime {};
    rLocalTime.tm_wday = rRow.iWeekday;
    rLocalTime.tm_hour = rRow.iHour;
    rLocalTime.tm_min = rRow.iMinute;
    EXPECT_EQ(InSchedule(rRow.rCfg, rLocalTime), rRow.fScheduled);
  }
}

TEST(InSchedule, DaysAreDigitsFromSunday) {
  CheckSchedule({
      {"no schedule", {}, SUNDAY, 12, 0, true},
      {"an empty list of days is no schedule", {{"srWeekdays", ""}}, SUNDAY, 12, 0, true},
      {"windows alone are no schedule", {{"srSundayStart1", "23:59"}}, SUNDAY, 12, 0, true},
      {"Sunday is not in 23", {{"srWeekdays", "23"}}, SUNDAY, 12, 0, false},
      {"Monday is in 23, and without windows wanted whole", {{"srWeekdays", "23"}}, MONDAY, 0, 0, true},
      {"Saturday is 7", {{"srWeekdays", "7"}}, SATURDAY, 23, 59, true},
      {"Sunday is 1", {{"srWeekdays", "1"}}, SUNDAY, 0, 0, true},
      {"separators between the days do not matter", {{"srWeekdays", "1,4"}}, WEDNESDAY, 0, 0, true},
      {"a day that is not listed has no windows",
       {{"srWeekdays", "1"}, {"srWednesdayStart1", "0:00"}},
       WEDNESDAY,
       12,
       0,
       false},
  });
}

TEST(InSchedule, EachDayHasItsOwnWindows) {
  const char* const acDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  for (int iDay = 0; iDay < 7; iDay++) {
    SCOPED_TRACE(acDays[iDay]);
    StdStringMap rCfg{{"srWeekdays", "1234567"}};
    for (int i = 0; i < 7; i++) {
      const std::string strDay = std::string("sr") + acDays[i];
      rCfg[strDay + "Start1"] = ToStdString(i) + ":00";
      rCfg[strDay + "Stop1"] = ToStdString(i) + ":30";
      rCfg[strDay + "Start2"] = ToStdString(i + 10) + ":00";
      rCfg[strDay + "Stop2"] = ToStdString(i + 10) + ":30";
    }
    struct tm rLocalTime {};
    rLocalTime.tm_wday = iDay;
    int iHeld = 0;
    for (rLocalTime.tm_hour = 0; rLocalTime.tm_hour < 24; rLocalTime.tm_hour++) {
      if (!InSchedule(rCfg, rLocalTime)) continue;
      iHeld++;
      EXPECT_TRUE(rLocalTime.tm_hour == iDay || rLocalTime.tm_hour == iDay + 10) << rLocalTime.tm_hour;
    }
    EXPECT_EQ(iHeld, 2);
  }
}

TEST(InSchedule, WindowHoldsItsStartMinuteButNotItsStopMinute) {
  const StdStringMap rCfg{{"srWeekdays", "4"}, {"srWednesdayStart1", "8:30"}, {"srWednesdayStop1", "17:00"}};
  CheckSchedule({
      {"before the start", rCfg, WEDNESDAY, 8, 29, false},
      {"the start", rCfg, WEDNESDAY, 8, 30, true},
      {"an earlier minute of a later hour", rCfg, WEDNESDAY, 9, 0, true},
      {"the last minute", rCfg, WEDNESDAY, 16, 59, true},
      {"the stop", rCfg, WEDNESDAY, 17, 0, false},
      {"a later minute of an earlier hour", rCfg, WEDNESDAY, 7, 45, false},
  });
}

TEST(InSchedule, MissingTimesHaveTheirDefaults) {
  const StdStringMap rStartOnly{{"srWeekdays", "4"}, {"srWednesdayStart1", "8:00"}};
  const StdStringMap rStop2Only{
      {"srWeekdays", "4"}, {"srWednesdayStart1", "8:00"}, {"srWednesdayStop1", "9:00"}, {"srWednesdayStop2", "20:00"}};
  const StdStringMap rOpenStart2{
      {"srWeekdays", "4"}, {"srWednesdayStart1", "8:00"}, {"srWednesdayStop1", "9:00"}, {"srWednesdayStart2", "20:00"}};
  const StdStringMap rNoStart1{{"srWeekdays", "4"}, {"srWednesdayStop1", "9:00"}, {"srWednesdayStart2", "20:00"}};
  CheckSchedule({
      {"only a start: not before", rStartOnly, WEDNESDAY, 7, 59, false},
      {"only a start: from then on", rStartOnly, WEDNESDAY, 8, 0, true},
      {"only a start: to midnight", rStartOnly, WEDNESDAY, 23, 59, true},
      {"a second stop without start widens nothing", rStop2Only, WEDNESDAY, 12, 0, false},
      {"a second stop without start narrows nothing", rStop2Only, WEDNESDAY, 8, 30, true},
      {"between the windows", rOpenStart2, WEDNESDAY, 12, 0, false},
      {"a second window without stop ends at midnight", rOpenStart2, WEDNESDAY, 23, 59, true},
      {"without a first start the whole day", rNoStart1, WEDNESDAY, 12, 0, true},
  });
}

TEST(InSchedule, StopBeforeStartHoldsNoTime) {
  const StdStringMap rCfg{{"srWeekdays", "4"}, {"srWednesdayStart1", "22:00"}, {"srWednesdayStop1", "6:00"}};
  CheckSchedule({
      {"late", rCfg, WEDNESDAY, 23, 0, false},
      {"early", rCfg, WEDNESDAY, 5, 0, false},
  });
}

TEST(InSchedule, StartWithoutColonIsHourAndMinute) {
  const StdStringMap rCfg{{"srWeekdays", "4"}, {"srWednesdayStart1", "9"}, {"srWednesdayStop1", "10"}};
  CheckSchedule({
      {"9 is not 9:00", rCfg, WEDNESDAY, 9, 8, false},
      {"9 is 9:09", rCfg, WEDNESDAY, 9, 9, true},
      {"10 is not 10:00", rCfg, WEDNESDAY, 10, 9, true},
      {"10 is 10:10", rCfg, WEDNESDAY, 10, 10, false},
  });
}

}  // namespace
