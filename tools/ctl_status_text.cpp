// The status as people and scripts read it.
#include "ctl_status.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "ctl_text.h"
#include "fstring.h"
#include "schedule.h"

namespace {

std::string TimeOfDay(time_t rTime) {
  tm rLocal{};
  localtime_r(&rTime, &rLocal);
  char acText[16];
  return {acText, strftime(acText, sizeof acText, "%H:%M:%S", &rLocal)};
}

std::string Age(time_t rSeconds) {
  const long long iSeconds = std::max<long long>(rSeconds, 0);
  char acText[32];
  (void)snprintf(acText, sizeof acText, "%lld:%02lld:%02lld", iSeconds / 3600, iSeconds / 60 % 60, iSeconds % 60);
  return acText;
}

std::string Age(double fSeconds) {
  return Age(static_cast<time_t>(fSeconds));
}

// The present daemon finishes its own calls.
const char* StateText(const CtlStatus& rStatus, const CallStatus& rCall) {
  if (rCall.fUnfinished) return rStatus.fRunning ? "left by a crash" : "unfinished";
  if (rCall.fWaiting) return "waiting";
  return rCall.fSilenced ? "silenced" : "recording";
}

// "1-8,17": neighbouring numbers in one.
std::string Runs(const std::vector<int>& vNumbers) {
  std::string strText;
  for (std::size_t i = 0; i < vNumbers.size(); i++) {
    const std::size_t iFirst = i;
    while (i + 1 < vNumbers.size() && vNumbers[i] + 1L == vNumbers[i + 1]) i++;
    strText += (strText.empty() ? "" : ",") + std::to_string(vNumbers[iFirst]);
    if (i > iFirst) strText += "-" + std::to_string(vNumbers[i]);
  }
  return strText;
}

// One row for all lines of the same health, as a unit has dozens of them and mostly all are ok.
std::string HealthTable(const std::vector<LineStatus>& vLines) {
  std::vector<std::vector<std::string>> vRows = {{"LINES", "HEALTH"}};
  for (const LineStatus& rLine : vLines) {  // in the order in which the file first names each health
    const bool fHasRow = std::any_of(vRows.begin() + 1, vRows.end(),
                                     [&](const std::vector<std::string>& vRow) { return vRow[1] == rLine.strHealth; });
    if (!fHasRow) vRows.push_back({LinesOfHealth(vLines, rLine.strHealth), rLine.strHealth});
  }
  return Table(std::move(vRows));
}

std::string LinesBlock(const CtlStatus& rStatus) {
  if (!rStatus.fRunning) return std::string("The recorder is not running: nobody serves ") + CONTROL_SOCKET + ".\n";
  const Signs& rSigns = rStatus.rSigns;
  std::string strText;
  if (rSigns.eLoop == LOOP_TRACES) strText = "A trace runs: no call is recorded.\n";
  if (rSigns.eLoop == LOOP_SILENT) {
    strText = "The main loop has not reported for " + Age(rSigns.rLoop->fAgeSeconds) +
              ": it stands, drains for a trace or a stop, or traces without files.\n";
  }
  if (rStatus.fLines) return strText + HealthTable(rStatus.vLines);
  if (rSigns.eLoop == LOOP_TURNS) return "No line status: no line has changed since a trace.\n";
  if (rSigns.eLoop == LOOP_UNKNOWN) return "No line status: a trace runs, or no line has changed since one ran.\n";
  return strText;
}

std::string CallsBlock(const CtlStatus& rStatus, time_t rNow) {
  if (!rStatus.fDatabase) return "The database cannot be read: " + MaskedLines(rStatus.strDatabaseError) + "\n";
  if (rStatus.vCalls.empty()) return "No calls in progress.\n";
  std::vector<std::vector<std::string>> vRows = {
      {"LINE", "CALL ID", "STATE", "LOCAL", "REMOTE", "DIRECTION", "SINCE", "AGE"}};
  for (const CallStatus& rCall : rStatus.vCalls) {
    vRows.push_back({std::to_string(rCall.iLine), rCall.strCallId, StateText(rStatus, rCall),
                     rCall.strLocal.empty() ? "-" : rCall.strLocal, rCall.strRemote.empty() ? "-" : rCall.strRemote,
                     rCall.strDirection, TimeOfDay(rCall.rSince), Age(rNow - rCall.rSince)});
  }
  return Table(std::move(vRows));
}

// What keeps calls from being recorded that begin now. It leaves no row, so that this is all that shows of them.
std::vector<std::string> NotRecorded(const CtlStatus& rStatus, time_t rNow) {
  constexpr int FILTER_OFF = 0, FILTER_EXCLUDES = 2;  // any other value: only listed numbers
  std::vector<std::string> astrReasons;
  tm rLocal{};
  localtime_r(&rNow, &rLocal);
  if (!InSchedule(rStatus.rOptions, rLocal)) astrReasons.emplace_back("calls that begin outside the schedule, as now");
  const int iFilter = TextToInt(ValueOf(rStatus.rOptions, "NumberFilterType"));
  if (iFilter == FILTER_EXCLUDES) {
    astrReasons.emplace_back("calls with a number of the number filter");
  } else if (iFilter != FILTER_OFF) {
    astrReasons.emplace_back("calls without a number of the number filter");
  }
  return astrReasons;
}

std::string WithOneDecimal(double fValue) {
  char acText[64];
  (void)snprintf(acText, sizeof acText, "%.1f", fValue);
  return acText;
}

std::string DiskLine(const std::optional<DiskSpace>& rDisk) {
  constexpr double BYTES_A_GB = 1e9;
  if (!rDisk) return std::string(RECORDINGS_FOLDER) + " cannot be read\n";
  return std::string("Free on ") + RECORDINGS_FOLDER + ": " + WithOneDecimal(rDisk->fFreePercent) + " % (" +
         WithOneDecimal(static_cast<double>(rDisk->iFreeBytes) / BYTES_A_GB) + " GB)\n";
}

std::string SignsBlock(const CtlStatus& rStatus, time_t rNow) {
  const Signs& rSigns = rStatus.rSigns;
  std::string strText;
  for (const std::string& strReason : NotRecorded(rStatus, rNow)) strText += "Not recorded: " + strReason + "\n";
  if (rStatus.fRunning && rSigns.eLoop == LOOP_TURNS && rSigns.rLoop) {
    strText += "Main loop: " + WithOneDecimal(LoopBehindSeconds(*rSigns.rLoop)) + " s behind\n";
  }
  strText += DiskLine(rSigns.rDisk);
  strText += "Last card event: " + (rSigns.fEventAge ? Age(*rSigns.fEventAge) + " ago" : "none") + "\n";
  if (!rSigns.rError) return strText + "Last error: none\n";
  return strText + "Last error, " + Age(rSigns.rError->fAgeSeconds) + " ago: " + Masked(rSigns.rError->strText) + "\n";
}

const char* LoopText(ELoopSign eLoop) {
  switch (eLoop) {
    case LOOP_UNKNOWN:
      return "unknown";
    case LOOP_TURNS:
      return "turns";
    case LOOP_SILENT:
      return "silent";
    case LOOP_TRACES:
      return "traces";
  }
  return "";
}

nlohmann::json SignsToJson(const CtlStatus& rStatus, time_t rNow) {
  const Signs& rSigns = rStatus.rSigns;
  nlohmann::json rJson = {{"loop", rStatus.fRunning ? LoopText(rSigns.eLoop) : "none"},
                          {"not_recorded", NotRecorded(rStatus, rNow)}};
  if (rStatus.fRunning && rSigns.rLoop) rJson["loop_behind_seconds"] = LoopBehindSeconds(*rSigns.rLoop);
  if (rSigns.fEventAge) rJson["card_event_age_seconds"] = *rSigns.fEventAge;
  if (rSigns.rDisk) {
    rJson["free_percent"] = rSigns.rDisk->fFreePercent;
    rJson["free_bytes"] = rSigns.rDisk->iFreeBytes;
  }
  if (rSigns.rError) {
    rJson["last_error"] = rSigns.rError->strText;
    rJson["last_error_age_seconds"] = rSigns.rError->fAgeSeconds;
  }
  return rJson;
}

}  // namespace

std::string LinesOfHealth(const std::vector<LineStatus>& vLines, const std::string& strHealth) {
  std::vector<int> vNumbers;
  for (const LineStatus& rLine : vLines) {
    if (rLine.strHealth == strHealth) vNumbers.push_back(rLine.iLine);
  }
  return Runs(vNumbers);
}

std::string ComplainOfLine(const CtlStatus& rStatus, int iLine) {
  if (!rStatus.fLines) return "";
  std::vector<int> vNumbers;
  for (const LineStatus& rLine : rStatus.vLines) {
    if (rLine.iLine == iLine) return "";
    vNumbers.push_back(rLine.iLine);
  }
  return "There is no line " + std::to_string(iLine) +
         (vNumbers.empty() ? "; the recorder has none." : "; the recorder has " + Runs(vNumbers) + ".");
}

std::string StatusToText(const CtlStatus& rStatus, time_t rNow) {
  return LinesBlock(rStatus) + "\n" + CallsBlock(rStatus, rNow) + "\n" + SignsBlock(rStatus, rNow);
}

std::string JsonToText(const nlohmann::json& rJson, int iIndent) {
  return rJson.dump(iIndent, ' ', /*ensure_ascii=*/true, nlohmann::json::error_handler_t::replace);
}

nlohmann::json StatusToJson(const CtlStatus& rStatus, time_t rNow) {
  nlohmann::json rLines = nlohmann::json::array();
  for (const LineStatus& rLine : rStatus.vLines) rLines.push_back({{"line", rLine.iLine}, {"health", rLine.strHealth}});
  nlohmann::json rCalls = nlohmann::json::array();
  for (const CallStatus& rCall : rStatus.vCalls) {
    rCalls.push_back({{"line", rCall.iLine},
                      {"call_id", rCall.strCallId},
                      {"direction", rCall.strDirection},
                      {"local", rCall.strLocal},
                      {"remote", rCall.strRemote},
                      {"since", rCall.rSince},
                      {"state", StateText(rStatus, rCall)},
                      {"silenced", rCall.fSilenced}});
  }
  nlohmann::json rJson = {
      {"running", rStatus.fRunning}, {"lines", rLines}, {"calls", rCalls}, {"signs", SignsToJson(rStatus, rNow)}};
  if (!rStatus.fDatabase) rJson["database_error"] = rStatus.strDatabaseError;
  return rJson;
}
