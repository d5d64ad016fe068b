#include "ctl_status.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>
#include <pqxx/pqxx>
#include <sstream>
#include <utility>

#include "callcodes.h"
#include "plaintext.h"

namespace {

// With a limit, as a table may be locked for as long as somebody likes.
constexpr const char* DAEMON_DATABASE = "dbname=morvex user=root connect_timeout=3 options='-c statement_timeout=3000'";
// The record of callextra that silencing leaves: key, ": ", value, CR LF.
constexpr const char* SILENCED_RECORD = "silencing: 1\r\n";

const char* DirectionText(int iDirection) {
  switch (iDirection) {
    case DIRECTION_INCOMING:
      return "incoming";
    case DIRECTION_OUTGOING:
      return "outgoing";
    case DIRECTION_INTERNAL:
      return "internal";
    default:  // the column is written by others too
      return "unknown";
  }
}

bool IsSilenced(const std::string& strExtra) {
  const std::size_t iPos = strExtra.find(SILENCED_RECORD);
  return iPos != std::string::npos && (iPos == 0 || strExtra[iPos - 1] == '\n');
}

void ReadCalls(const std::string& strConnection, CtlStatus& rStatus) {
  pqxx::connection rConnection(strConnection);
  pqxx::work rWork(rConnection);
  const pqxx::result rRows = rWork.exec(
      "SELECT linenr, COALESCE(remoteid, ''), direction, COALESCE(local, ''), COALESCE(remote, ''), startdate, "
      "encoding,"
      " COALESCE(callextra, '') FROM ActiveCalls ORDER BY linenr, startdate, id");
  for (const pqxx::row& rRow : rRows) {
    CallStatus rCall;
    rCall.iLine = rRow[0].as<int>(0);
    rCall.strCallId = rRow[1].as<std::string>();
    rCall.strDirection = DirectionText(rRow[2].as<int>(-1));
    rCall.strLocal = rRow[3].as<std::string>();
    rCall.strRemote = rRow[4].as<std::string>();
    rCall.rSince = rRow[5].as<time_t>(0);
    rCall.fWaiting = rRow[6].as<int>(ENCODING_NO_AUDIO) == ENCODING_NO_AUDIO;
    rCall.fSilenced = IsSilenced(rRow[7].as<std::string>());
    rStatus.vCalls.push_back(rCall);
  }
}

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

// When the daemon that serves it took its socket into use; 0 when nobody can tell.
time_t ListensSince(const std::string& strSocket) {
  struct stat rStat {};
  return stat(strSocket.c_str(), &rStat) == 0 ? rStat.st_mtime : 0;
}

void MarkUnfinished(const StatusSources& rSources, CtlStatus& rStatus) {
  // A daemon is away for ten seconds at least between two lives, so a second here or there is no matter.
  constexpr time_t TOLERANCE_S = 3;
  const time_t rSince = ListensSince(rSources.strSocket);
  for (CallStatus& rCall : rStatus.vCalls) {
    rCall.fUnfinished = !rStatus.fRunning || rCall.rSince + TOLERANCE_S < rSince;
  }
}

const char* StateText(const CallStatus& rCall) {
  if (rCall.fUnfinished) return "unfinished";
  if (rCall.fWaiting) return "waiting";
  return rCall.fSilenced ? "silenced" : "recording";
}

// Names in the numbers are UTF-8: bytes that go on with a character take no room.
std::size_t WidthOf(const std::string& strText) {
  return static_cast<std::size_t>(
      std::count_if(strText.begin(), strText.end(), [](char ch) { return (ch & 0xC0) != 0x80; }));
}

std::string Masked(std::string strText) {
  MaskControls(strText.data(), strText.size());
  return strText;
}

// Line by line, since a message of the database library often has several, with tabs before the second.
std::string MaskedLines(const std::string& strText) {
  std::istringstream rLines(strText);
  std::string strMasked;
  for (std::string strLine; std::getline(rLines, strLine);) {
    std::replace(strLine.begin(), strLine.end(), '\t', ' ');
    strMasked += (strMasked.empty() ? "" : "\n") + Masked(strLine);
  }
  return strMasked;
}

// Columns as wide as their widest cell, two blanks apart; the first row is the heading.
std::string Table(std::vector<std::vector<std::string>> vRows) {
  std::vector<std::size_t> vWidths(vRows.front().size());
  for (auto& vRow : vRows) {
    for (std::size_t i = 0; i < vRow.size(); i++) {
      vRow[i] = Masked(vRow[i]);
      vWidths[i] = std::max(vWidths[i], WidthOf(vRow[i]));
    }
  }
  std::string strText;
  for (const auto& vRow : vRows) {
    std::string strLine;
    for (std::size_t i = 0; i < vRow.size(); i++)
      strLine += vRow[i] + std::string(vWidths[i] - WidthOf(vRow[i]) + 2, ' ');
    strLine.erase(strLine.find_last_not_of(' ') + 1);
    strText += strLine + "\n";
  }
  return strText;
}

// Lines with neighbouring numbers.
struct LineRun {
  long iFirst = 0;
  long iLast = 0;
};

struct HealthRow {
  std::string strHealth;
  std::vector<LineRun> vRuns;
};

void AddLine(HealthRow& rRow, long iLine) {
  if (!rRow.vRuns.empty() && rRow.vRuns.back().iLast + 1 == iLine) {
    rRow.vRuns.back().iLast = iLine;
  } else {
    rRow.vRuns.push_back({iLine, iLine});
  }
}

// "1-8,17"
std::string LinesText(const HealthRow& rRow) {
  std::string strText;
  for (const LineRun& rRun : rRow.vRuns) {
    strText += (strText.empty() ? "" : ",") + std::to_string(rRun.iFirst);
    if (rRun.iLast != rRun.iFirst) strText += "-" + std::to_string(rRun.iLast);
  }
  return strText;
}

// One row for all lines of the same health, as a unit has dozens of them and mostly all are ok.
std::string HealthTable(const std::vector<LineStatus>& vLines) {
  std::vector<HealthRow> vHealths;  // in the order in which the file first names them
  for (const LineStatus& rLine : vLines) {
    auto itRow = std::find_if(vHealths.begin(), vHealths.end(),
                              [&](const HealthRow& rRow) { return rRow.strHealth == rLine.strHealth; });
    if (itRow == vHealths.end()) itRow = vHealths.insert(itRow, {rLine.strHealth, {}});
    AddLine(*itRow, rLine.iLine);
  }
  std::vector<std::vector<std::string>> vRows = {{"LINES", "HEALTH"}};
  for (const HealthRow& rRow : vHealths) vRows.push_back({LinesText(rRow), rRow.strHealth});
  return Table(std::move(vRows));
}

}  // namespace

bool ReadLineStatus(const std::string& strPath, std::vector<LineStatus>& vLines) {
  std::ifstream rFile(strPath);
  if (!rFile) return false;
  for (std::string strLine; std::getline(rFile, strLine);) {
    std::array<char, 32> acHealth{};
    LineStatus rLine;
    if (sscanf(strLine.c_str(), "Line_%d: %31s", &rLine.iLine, acHealth.data()) != 2) continue;
    rLine.strHealth = acHealth.data();
    vLines.push_back(rLine);
  }
  return true;
}

CtlStatus ReadStatus(const StatusSources& rSources) {
  CtlStatus rStatus;
  rStatus.fRunning = IsServed(rSources.strSocket);
  rStatus.fLines = rStatus.fRunning && ReadLineStatus(rSources.strLineFile, rStatus.vLines);
  try {
    ReadCalls(rSources.strConnection.empty() ? DAEMON_DATABASE : rSources.strConnection, rStatus);
    rStatus.fDatabase = true;
    MarkUnfinished(rSources, rStatus);
  } catch (const std::exception& rError) {  // the library reports by exceptions; here they end
    rStatus.vCalls.clear();
    rStatus.strDatabaseError = rError.what();
    rStatus.strDatabaseError.erase(rStatus.strDatabaseError.find_last_not_of("\r\n ") + 1);
  }
  return rStatus;
}

std::string StatusToText(const CtlStatus& rStatus, time_t rNow) {
  std::string strText;
  if (!rStatus.fRunning) {
    strText += std::string("The recorder is not running: nobody serves ") + CONTROL_SOCKET + ".\n";
  } else if (!rStatus.fLines) {
    strText += "No line status: a trace runs, or no line has changed since one ran.\n";
  } else {
    strText += HealthTable(rStatus.vLines);
  }
  strText += "\n";
  if (!rStatus.fDatabase)
    return strText + "The database cannot be read: " + MaskedLines(rStatus.strDatabaseError) + "\n";
  if (rStatus.vCalls.empty()) return strText + "No calls in progress.\n";
  std::vector<std::vector<std::string>> vRows = {
      {"LINE", "DIRECTION", "LOCAL", "REMOTE", "SINCE", "AGE", "STATE", "CALL ID"}};
  for (const CallStatus& rCall : rStatus.vCalls) {
    vRows.push_back({std::to_string(rCall.iLine), rCall.strDirection, rCall.strLocal.empty() ? "-" : rCall.strLocal,
                     rCall.strRemote.empty() ? "-" : rCall.strRemote, TimeOfDay(rCall.rSince), Age(rNow - rCall.rSince),
                     StateText(rCall), rCall.strCallId});
  }
  return strText + Table(std::move(vRows));
}

std::string JsonToText(const nlohmann::json& rJson, int iIndent) {
  return rJson.dump(iIndent, ' ', /*ensure_ascii=*/true, nlohmann::json::error_handler_t::replace);
}

nlohmann::json StatusToJson(const CtlStatus& rStatus) {
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
                      {"state", StateText(rCall)},
                      {"silenced", rCall.fSilenced}});
  }
  nlohmann::json rJson = {{"running", rStatus.fRunning}, {"lines", rLines}, {"calls", rCalls}};
  if (!rStatus.fDatabase) rJson["database_error"] = rStatus.strDatabaseError;
  return rJson;
}
