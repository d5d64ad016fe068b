#include "schedule.h"

#include <utility>

namespace {

const char* const acDayNames[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

// A time of day; compares hour first, then minute.
using DayTime = std::pair<long, long>;
constexpr DayTime MIDNIGHT_END{24, 0};

// "8:30". Without a colon the number counts for both, so "9" means 9:09: kept, as schedules in use rely on it; see
// StartWithoutColonIsHourAndMinute.
DayTime ParseDayTime(const std::string& strText) {
  const std::size_t iColon = strText.find(':');
  if (iColon == std::string::npos) return {TextToLong(strText), TextToLong(strText)};
  return {TextToLong(strText.substr(0, iColon)), TextToLong(strText.substr(iColon + 1))};
}

DayTime StopOrMidnight(const std::string& strText) {
  return strText.empty() ? MIDNIGHT_END : ParseDayTime(strText);
}

bool InWindow(const DayTime& rNow, const DayTime& rStart, const DayTime& rStop) {
  return rNow >= rStart && rNow < rStop;
}

}  // namespace

bool InSchedule(const StdStringMap& rCfg, const struct tm& rLocalTime) {
  const std::string strWeekdays = ValueOf(rCfg, "srWeekdays");
  if (strWeekdays.empty()) return true;
  if (strWeekdays.find(ToStdString(rLocalTime.tm_wday + 1)) == std::string::npos) return false;

  const std::string strDay = std::string("sr") + acDayNames[rLocalTime.tm_wday];
  const std::string strStart1 = ValueOf(rCfg, strDay + "Start1");
  const std::string strStart2 = ValueOf(rCfg, strDay + "Start2");
  if (strStart1.empty()) return true;

  const DayTime rNow{rLocalTime.tm_hour, rLocalTime.tm_min};
  if (InWindow(rNow, ParseDayTime(strStart1), StopOrMidnight(ValueOf(rCfg, strDay + "Stop1")))) return true;
  if (strStart2.empty()) return false;  // without a second start the second window is the first
  return InWindow(rNow, ParseDayTime(strStart2), StopOrMidnight(ValueOf(rCfg, strDay + "Stop2")));
}
