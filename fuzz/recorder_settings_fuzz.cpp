// Settings of part "o", as people type them: the weekly schedule and the lists of numbers, against a second reading.
// The first three bytes choose day, hour and minute, the rest is lines "key=value"; all but the lines of the schedule
// and the lists are passed over.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "FuzzCheck.h"
#include "LogSink.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "schedule.h"

namespace {

// Minutes are compared only within an hour, so "9:75" is after "9:30" and before "10:00".
struct Clock {
  long iHour = 0;
  long iMinute = 0;
  bool IsBefore(const Clock& rOther) const {
    return iHour != rOther.iHour ? iHour < rOther.iHour : iMinute < rOther.iMinute;
  }
};

Clock ReadClock(const std::string& strText) {
  const std::size_t iColon = strText.find(':');
  if (iColon == std::string::npos) return {strtol(strText.c_str(), nullptr, 10), strtol(strText.c_str(), nullptr, 10)};
  return {strtol(strText.substr(0, iColon).c_str(), nullptr, 10), strtol(strText.c_str() + iColon + 1, nullptr, 10)};
}

bool IsWanted(StdStringMap& rCfg, const struct tm& rTime) {
  static const char* const acDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  if (rCfg["srWeekdays"].empty()) return true;
  if (rCfg["srWeekdays"].find(static_cast<char>('1' + rTime.tm_wday)) == std::string::npos) return false;
  const std::string strDay = std::string("sr") + acDays[rTime.tm_wday];
  const Clock rNow = {rTime.tm_hour, rTime.tm_min};
  for (const char* acWindow : {"1", "2"}) {
    const std::string strStart = rCfg[strDay + "Start" + acWindow];
    const std::string strStop = rCfg[strDay + "Stop" + acWindow];
    if (strStart.empty()) return *acWindow == '1';
    const bool hasBegun = !rNow.IsBefore(ReadClock(strStart));
    if (hasBegun && (strStop.empty() || rNow.IsBefore(ReadClock(strStop)))) return true;
  }
  return false;
}

// The items of a list between commas, without white space around them; one of white space alone stays.
std::vector<std::string> Items(const std::string& strList) {
  std::vector<std::string> astrItems(1);
  for (const char ch : strList.substr(0, strList.find('\0'))) {
    if (ch == ',') {
      astrItems.emplace_back();
    } else {
      astrItems.back() += ch;
    }
  }
  for (std::string& strItem : astrItems) {
    const auto IsBlank = [](char ch) { return strchr(" \t\r\n", ch) != nullptr; };
    if (std::all_of(strItem.begin(), strItem.end(), IsBlank)) continue;
    while (IsBlank(strItem.back())) strItem.pop_back();
    while (IsBlank(strItem.front())) strItem.erase(0, 1);
  }
  return astrItems;
}

void CheckLists(StdStringMap& rCfg) {
  TRecorderBoot rBoot;
  CRecorder rRecorder;
  rRecorder.prBoot = &rBoot;
  rBoot.rConfigsO = rCfg;
  rRecorder.LoadReloadableSettings();
  FuzzCheck(rRecorder.astrDelOnDmdList == Items(rCfg["DelOnDmdList"]), "the list of deletion reads as written");
  FuzzCheck(rRecorder.astrRecOnDmdList == Items(rCfg["RecOnDmdList"]), "the list of recording reads as written");
  std::vector<std::string> astrFilters = Items(rCfg["NumberFilters"]);
  if (astrFilters == std::vector<std::string>(1)) astrFilters.clear();
  FuzzCheck(rRecorder.astrNumberFilters == astrFilters, "the number filter reads as written");
  for (const std::string& strNumber : astrFilters) {
    FuzzCheck(rRecorder.IsInNumberFilter(strNumber), "each number of the filter is in it");
  }
  for (const std::string& strItem : rRecorder.astrCstaNumberFilters) {
    FuzzCheck(strItem.find_first_of(",;") == std::string::npos, "an item ends before its remark");
  }
  (void)logsink::Take();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  if (iSize < 3) return -1;
  struct tm rTime {};
  rTime.tm_wday = prData[0] % 7;
  rTime.tm_hour = prData[1] % 24;
  rTime.tm_min = prData[2] % 60;
  StdStringMap rCfg;
  std::istringstream rLines(FuzzText(prData + 3, iSize - 3));
  for (std::string strLine; std::getline(rLines, strLine);) {
    const std::size_t iEqual = strLine.find('=');
    if (iEqual != std::string::npos) rCfg[strLine.substr(0, iEqual)] = strLine.substr(iEqual + 1);
  }
  FuzzCheck(InSchedule(rCfg, rTime) == IsWanted(rCfg, rTime), "the schedule is what a second reading makes of it");
  CheckLists(rCfg);
  return 0;
}
