#include "ctl_check.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <utility>
#include <vector>

#include "ctl_text.h"
#include "fstring.h"

namespace {

constexpr const char* HEALTH_OK = "ok";
// A recording is one open file, two with a live copy. The rest is for log, database, sockets, cards and conversions.
constexpr std::uint64_t FILES_A_LINE = 1, FILES_A_MONITORED_LINE = 2, OTHER_DESCRIPTORS = 64;
// A quiet site may have no card event for hours. But cards that have been up for so long say something once.
constexpr time_t FIRST_EVENT_WITHIN_S = 3600;

struct Finding {
  EPluginExit eExit;
  std::string strText;
};
using Findings = std::vector<Finding>;

// -- texts ------------------------------------------------------------------------------------------------------------

std::string Number(double fValue, int iDecimals) {
  char acText[400];
  const auto rEnd = std::to_chars(std::begin(acText), std::end(acText), fValue, std::chars_format::fixed, iDecimals);
  return rEnd.ec == std::errc() ? std::string(acText, rEnd.ptr) : "U";
}

// As few digits as tell it, for what people have given.
std::string Number(double fValue) {
  char acText[32];
  const auto rEnd = std::to_chars(std::begin(acText), std::end(acText), fValue);
  return rEnd.ec == std::errc() ? std::string(acText, rEnd.ptr) : "U";
}

std::string Count(std::size_t iCount, const std::string& strWhat) {
  return std::to_string(iCount) + " " + strWhat + (iCount == 1 ? "" : "s");
}

// The first line only, and no bar: that begins the performance data.
std::string OnOneLine(const std::string& strText) {
  std::string strLine = MaskedLines(strText);
  strLine.erase(std::min(strLine.find('\n'), strLine.size()));
  std::replace(strLine.begin(), strLine.end(), '|', '/');
  return strLine;
}

// -- counts -----------------------------------------------------------------------------------------------------------

std::size_t CountLines(const CtlStatus& rStatus, const std::string& strHealth) {
  return static_cast<std::size_t>(std::count_if(rStatus.vLines.begin(), rStatus.vLines.end(),
                                                [&](const LineStatus& rLine) { return rLine.strHealth == strHealth; }));
}

std::size_t CountLeft(const CtlStatus& rStatus) {
  return static_cast<std::size_t>(std::count_if(rStatus.vCalls.begin(), rStatus.vCalls.end(),
                                                [](const CallStatus& rCall) { return rCall.fUnfinished; }));
}

std::uint64_t NeededDescriptors(const CtlStatus& rStatus) {
  const bool fMonitoring = TextToInt(ValueOf(rStatus.rOptions, "Monitoring")) != 0;
  return rStatus.vLines.size() * (fMonitoring ? FILES_A_MONITORED_LINE : FILES_A_LINE) + OTHER_DESCRIPTORS;
}

// -- findings ---------------------------------------------------------------------------------------------------------

void CheckLines(const CtlStatus& rStatus, Findings& vFindings) {
  if (!rStatus.fLines) {
    // A line that was ill before the trace still is, perhaps, and nobody tells until some line changes.
    if (rStatus.rSigns.eLoop != LOOP_TRACES) vFindings.push_back({PLUGIN_WARNING, "no line status"});
    return;
  }
  if (rStatus.vLines.empty()) vFindings.push_back({PLUGIN_WARNING, "no lines"});
  const EPluginExit eExit = CountLines(rStatus, HEALTH_OK) == 0 ? PLUGIN_CRITICAL : PLUGIN_WARNING;
  std::vector<std::string> astrTold = {HEALTH_OK};
  for (const LineStatus& rLine : rStatus.vLines) {
    if (std::find(astrTold.begin(), astrTold.end(), rLine.strHealth) != astrTold.end()) continue;
    astrTold.push_back(rLine.strHealth);
    vFindings.push_back({eExit, std::string(CountLines(rStatus, rLine.strHealth) == 1 ? "line " : "lines ") +
                                    LinesOfHealth(rStatus.vLines, rLine.strHealth) + " " + OnOneLine(rLine.strHealth)});
  }
}

void CheckLoop(const CtlStatus& rStatus, const CheckLimits& rLimits, Findings& vFindings) {
  if (rStatus.rSigns.eLoop == LOOP_TRACES) {
    vFindings.push_back({PLUGIN_CRITICAL, "a trace runs, no call is recorded"});
    return;
  }
  if (!rStatus.rSigns.rLoop) return;
  const double fBehind = LoopBehindSeconds(*rStatus.rSigns.rLoop);
  if (fBehind < std::min(rLimits.fWarnBehind, rLimits.fCritBehind)) return;
  vFindings.push_back({fBehind >= rLimits.fCritBehind ? PLUGIN_CRITICAL : PLUGIN_WARNING,
                       "main loop " + Number(fBehind, 1) + " s behind"});
}

// Where a line is not ok, its cards are known to be silent.
void CheckEvents(const CtlStatus& rStatus, const CheckLimits& rLimits, time_t rNow, Findings& vFindings) {
  const std::optional<double>& fAge = rStatus.rSigns.fEventAge;
  const bool fAllOk = CountLines(rStatus, HEALTH_OK) == rStatus.vLines.size() && !rStatus.vLines.empty();
  if (fAge && rLimits.fWarnEvent > 0 && *fAge > rLimits.fWarnEvent) {
    vFindings.push_back({PLUGIN_WARNING, "no card event for " + Number(*fAge, 0) + " s"});
  }
  if (!fAge && fAllOk && rStatus.rListensSince + FIRST_EVENT_WITHIN_S < rNow) {
    vFindings.push_back({PLUGIN_WARNING, "no card event ever"});
  }
}

void CheckDescriptors(const CtlStatus& rStatus, const std::optional<std::uint64_t>& iDescriptors, Findings& vFindings) {
  const std::uint64_t iNeeded = NeededDescriptors(rStatus);
  if (!iDescriptors || *iDescriptors >= iNeeded) return;
  vFindings.push_back({PLUGIN_WARNING, "at most " + std::to_string(*iDescriptors) + " open files, the lines need " +
                                           std::to_string(iNeeded)});
}

void CheckDisk(const CtlStatus& rStatus, const CheckLimits& rLimits, Findings& vFindings) {
  const std::optional<DiskSpace>& rDisk = rStatus.rSigns.rDisk;
  if (!rDisk) {
    vFindings.push_back({PLUGIN_CRITICAL, std::string(RECORDINGS_FOLDER) + " cannot be read"});
  } else if (rDisk->fFreePercent < std::max(rLimits.fWarnFree, rLimits.fCritFree)) {
    vFindings.push_back({rDisk->fFreePercent < rLimits.fCritFree ? PLUGIN_CRITICAL : PLUGIN_WARNING,
                         Number(rDisk->fFreePercent, 1) + " % free on " + RECORDINGS_FOLDER});
  }
}

void CheckCalls(const CtlStatus& rStatus, Findings& vFindings) {
  if (!rStatus.fDatabase) {
    vFindings.push_back({PLUGIN_CRITICAL, "the database cannot be read: " + OnOneLine(rStatus.strDatabaseError)});
  } else if (rStatus.fRunning && CountLeft(rStatus) > 0) {
    vFindings.push_back({PLUGIN_WARNING, Count(CountLeft(rStatus), "call") + " left by a crash"});
  }
}

// -- the line ---------------------------------------------------------------------------------------------------------

// What is known of lines and calls, behind the findings.
std::string Summary(const CtlStatus& rStatus) {
  std::string strText;
  if (rStatus.fLines) strText = Count(CountLines(rStatus, HEALTH_OK), "line") + " ok";
  if (!rStatus.fDatabase) return strText;
  return strText + (strText.empty() ? "" : ", ") + Count(rStatus.vCalls.size() - CountLeft(rStatus), "call");
}

std::string PerformanceData(const CtlStatus& rStatus, const CheckLimits& rLimits) {
  const Signs& rSigns = rStatus.rSigns;
  std::string strText;
  const auto Add = [&strText](const std::string& strLabel, const std::string& strValue) {
    strText += (strText.empty() ? "" : " ") + strLabel + "=" + strValue;
  };
  if (rStatus.fLines) {
    for (const char* acHealth : {HEALTH_OK, "offline", "error"}) {
      Add(std::string("lines_") + acHealth, std::to_string(CountLines(rStatus, acHealth)));
    }
  }
  if (rStatus.fDatabase) {
    Add("calls", std::to_string(rStatus.vCalls.size() - CountLeft(rStatus)));
    Add("calls_left", std::to_string(CountLeft(rStatus)));
  }
  if (rSigns.rDisk) {
    Add("free", Number(rSigns.rDisk->fFreePercent, 1) + "%;" + Number(rLimits.fWarnFree) + ":;" +
                    Number(rLimits.fCritFree) + ":");
  }
  if (rStatus.fRunning && rSigns.rLoop) {
    Add("behind", Number(LoopBehindSeconds(*rSigns.rLoop), 3) + "s;" + Number(rLimits.fWarnBehind) + ";" +
                      Number(rLimits.fCritBehind));
  }
  if (rSigns.fEventAge) Add("event_age", Number(*rSigns.fEventAge, 0) + "s");
  return strText;
}

const char* ExitText(EPluginExit eExit) {
  switch (eExit) {
    case PLUGIN_OK:
      return "OK";
    case PLUGIN_WARNING:
      return "WARNING";
    case PLUGIN_CRITICAL:
      return "CRITICAL";
    case PLUGIN_UNKNOWN:
      return "UNKNOWN";
  }
  return "";
}

}  // namespace

CheckResult CheckStatus(const CtlStatus& rStatus, const std::optional<std::uint64_t>& iDescriptors,
                        const CheckLimits& rLimits, time_t rNow) {
  Findings vFindings;
  if (!rStatus.fRunning) {
    vFindings.push_back({PLUGIN_CRITICAL, "the recorder is not running"});
  } else {
    CheckLoop(rStatus, rLimits, vFindings);
    CheckLines(rStatus, vFindings);
    CheckEvents(rStatus, rLimits, rNow, vFindings);
    CheckDescriptors(rStatus, iDescriptors, vFindings);
  }
  CheckDisk(rStatus, rLimits, vFindings);
  CheckCalls(rStatus, vFindings);
  std::stable_sort(vFindings.begin(), vFindings.end(),
                   [](const Finding& rOne, const Finding& rOther) { return rOne.eExit > rOther.eExit; });

  CheckResult rResult;
  if (!vFindings.empty()) rResult.eExit = vFindings.front().eExit;
  std::string strText;
  for (const Finding& rFinding : vFindings) strText += (strText.empty() ? "" : "; ") + rFinding.strText;
  const std::string strSummary = Summary(rStatus);
  if (!strSummary.empty()) strText += (strText.empty() ? "" : "; ") + strSummary;
  rResult.strLine = std::string("CREC ") + ExitText(rResult.eExit) + " - " + strText;
  const std::string strData = PerformanceData(rStatus, rLimits);
  if (!strData.empty()) rResult.strLine += " | " + strData;
  return rResult;
}
