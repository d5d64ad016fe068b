#include "ctl_status.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <pqxx/pqxx>

#include "callcodes.h"
#include "ctl_database.h"

namespace {

// The record of callextra that silencing leaves: key, ": ", value, CR LF.
constexpr const char* SILENCED_RECORD = "silencing: 1\r\n";

const char* DirectionText(int iDirection) {
  switch (iDirection) {
    case DIRECTION_INCOMING:
      return "incoming";
    case DIRECTION_OUTGOING:
      return "outgoing";
    case DIRECTION_INTERNAL:
      return DIRECTION_TEXT_INTERNAL;
    default:  // the column is written by others too
      return "unknown";
  }
}

bool IsSilenced(const std::string& strExtra) {
  const std::size_t iPos = strExtra.find(SILENCED_RECORD);
  return iPos != std::string::npos && (iPos == 0 || strExtra[iPos - 1] == '\n');
}

void ReadCalls(pqxx::work& rWork, CtlStatus& rStatus) {
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

// Also what decides whether a call is recorded. The daemon reads them at its start, or anew as it goes on.
void ReadOptions(pqxx::work& rWork, CtlStatus& rStatus) {
  for (const pqxx::row& rRow : rWork.exec("SELECT param, COALESCE(value, '') FROM Configs WHERE part = 'o'")) {
    rStatus.rOptions[rRow[0].as<std::string>()] = rRow[1].as<std::string>();
  }
}

time_t ListensSince(const std::string& strSocket) {
  struct stat rStat {};
  return stat(strSocket.c_str(), &rStat) == 0 ? rStat.st_mtime : 0;
}

void MarkUnfinished(CtlStatus& rStatus) {
  // A daemon is away for ten seconds at least between two lives, so a second here or there is no matter.
  constexpr time_t TOLERANCE_S = 3;
  for (CallStatus& rCall : rStatus.vCalls) {
    rCall.fUnfinished = !rStatus.fRunning || rCall.rSince + TOLERANCE_S < rStatus.rListensSince;
  }
}

}  // namespace

bool ReadLineStatus(const std::string& strPath, std::vector<LineStatus>& vLines) {
  if (!FileAgeSeconds(strPath)) return false;
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
  rStatus.rListensSince = ListensSince(rSources.strSocket);
  rStatus.rSigns = ReadSigns(rSources.rSigns);
  try {
    pqxx::connection rConnection(rSources.strConnection.empty() ? DAEMON_DATABASE : rSources.strConnection);
    pqxx::work rWork(rConnection);
    ReadCalls(rWork, rStatus);
    ReadOptions(rWork, rStatus);
    rStatus.fDatabase = true;
    MarkUnfinished(rStatus);
  } catch (const std::exception& rError) {  // the library reports by exceptions; here they end
    rStatus.vCalls.clear();
    rStatus.strDatabaseError = rError.what();
    rStatus.strDatabaseError.erase(rStatus.strDatabaseError.find_last_not_of("\r\n ") + 1);
  }
  return rStatus;
}

CtlStatus StatusOfLine(CtlStatus rStatus, int iLine) {
  auto& vLines = rStatus.vLines;
  auto& vCalls = rStatus.vCalls;
  const auto IsOther = [iLine](const auto& rOne) { return rOne.iLine != iLine; };
  vLines.erase(std::remove_if(vLines.begin(), vLines.end(), IsOther), vLines.end());
  vCalls.erase(std::remove_if(vCalls.begin(), vCalls.end(), IsOther), vCalls.end());
  return rStatus;
}
