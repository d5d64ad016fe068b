#include "ctl_orders.h"

#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "ctl_chstate.h"
#include "ctl_text.h"

namespace {

constexpr int LOOK_TIMES = 10;
constexpr useconds_t LOOK_PAUSE_US = 100'000;

constexpr const char* SILENCE_SETTING =
    "SilOnDemand = 1 in part 'o' of the settings allows it, from the next start on.";
constexpr const char* DEMAND_SETTING =
    "RecOnDmd of the line, such as Syn1001_RecOnDmd in part 'crec' of the settings, or for trunks RecOnDmdType in part "
    "'o', allows it.";
constexpr const char* DELETE_SETTING = "DelOnDmdType in part 'o' of the settings allows it.";

struct SettingRow {
  const char* acWord;
  const char* acSetting;
};

constexpr SettingRow SETTINGS[] = {
    {"silence", SILENCE_SETTING}, {"sound", SILENCE_SETTING}, {"start", DEMAND_SETTING},
    {"stop", DEMAND_SETTING},     {"delete", DELETE_SETTING},
};

// -- printing ---------------------------------------------------------------------------------------------------------

int Print(const CtlReply& rReply) {
  // Numbers of the telephone network may stand in it.
  (rReply.eExit == CTL_OK ? std::cout : std::cerr) << MaskedLines(rReply.strText) << "\n";
  return rReply.eExit;
}

CtlReply DatabaseFailure(const CtlStatus& rStatus) {
  return {CTL_NO_DATABASE, "The database cannot be read: " + MaskedLines(rStatus.strDatabaseError)};
}

CtlReply Send(const std::string& strOrder) {
  if (strOrder.size() <= MAX_ORDER_BYTES) return SendOrder(strOrder);
  return {CTL_USAGE, "The order is longer than " + std::to_string(MAX_ORDER_BYTES) + " bytes; nothing was sent."};
}

// -- calls ------------------------------------------------------------------------------------------------------------

bool IsListed(const CtlStatus& rStatus, const std::string& strCallId) {
  return std::any_of(rStatus.vCalls.begin(), rStatus.vCalls.end(),
                     [&](const CallStatus& rCall) { return rCall.strCallId == strCallId; });
}

bool IsNumberOf(const std::string& strGiven, const std::string& strStored) {
  return strGiven == strStored || strGiven == "00" + strStored;
}

// The local number of a call with this remote number; null when it has another. An incoming internal call has its
// parties exchanged, and nothing tells it from an outgoing one.
const std::string* LocalOf(const CallStatus& rCall, const std::string& strRemote) {
  if (IsNumberOf(strRemote, rCall.strRemote)) return &rCall.strLocal;
  const bool fInternal = rCall.strDirection == DIRECTION_TEXT_INTERNAL;
  return fInternal && IsNumberOf(strRemote, rCall.strLocal) ? &rCall.strRemote : nullptr;
}

bool HasRunning(const CtlStatus& rStatus, const std::string& strRemote) {
  return std::any_of(rStatus.vCalls.begin(), rStatus.vCalls.end(), [&](const CallStatus& rCall) {
    return !rCall.fUnfinished && LocalOf(rCall, strRemote) != nullptr;
  });
}

std::string NumberText(const std::string& strNumber) {
  return strNumber.empty() ? "empty" : strNumber;
}

}  // namespace

std::string SettingOf(const std::string& strWord) {
  for (const SettingRow& rRow : SETTINGS) {
    if (strWord == rRow.acWord) return rRow.acSetting;
  }
  return "";
}

CtlReply FindCallOnLine(const CtlStatus& rStatus, int iLine) {
  if (!rStatus.fRunning) {
    return {CTL_NOT_RUNNING, std::string("The recorder is not running: nobody answers at ") + CONTROL_SOCKET + "."};
  }
  if (!rStatus.fDatabase) return DatabaseFailure(rStatus);
  const std::string strComplaint = ComplainOfLine(rStatus, iLine);
  if (!strComplaint.empty()) return {CTL_USAGE, strComplaint};
  const std::string strLine = "Line " + std::to_string(iLine);
  std::vector<std::string> astrIds;
  for (const CallStatus& rCall : rStatus.vCalls) {
    if (rCall.iLine == iLine && !rCall.fUnfinished) astrIds.push_back(rCall.strCallId);
  }
  if (astrIds.empty()) return {CTL_UNKNOWN_CALL, strLine + " has no call in progress."};
  if (astrIds.size() == 1) return {CTL_OK, astrIds[0]};
  std::string strText = strLine + " has more than one call, as one is being finished. Say which:";
  for (const std::string& strId : astrIds) strText += " " + strId;
  return {CTL_UNKNOWN_CALL, strText};
}

std::string NewCallId(const CtlStatus& rBefore, const CtlStatus& rAfter, const std::string& strCallId) {
  const auto itCall = std::find_if(rBefore.vCalls.begin(), rBefore.vCalls.end(),
                                   [&](const CallStatus& rCall) { return rCall.strCallId == strCallId; });
  if (itCall == rBefore.vCalls.end()) return "";
  std::vector<std::string> astrNew;
  for (const CallStatus& rCall : rAfter.vCalls) {
    if (rCall.iLine == itCall->iLine && !IsListed(rBefore, rCall.strCallId)) astrNew.push_back(rCall.strCallId);
  }
  return astrNew.size() == 1 ? astrNew[0] : "";
}

CtlReply JudgeLocalChange(const CtlStatus& rBefore, const CtlStatus& rAfter, const LocalChange& rChange) {
  if (!rBefore.fDatabase || !rAfter.fDatabase) {
    CtlReply rReply = DatabaseFailure(rBefore.fDatabase ? rAfter : rBefore);
    rReply.strText += "\nThe order was sent; what came of it cannot be told.";
    return rReply;
  }
  CtlReply rReply = {CTL_UNKNOWN_CALL, "No call in progress has the remote number " + rChange.strRemote + "."};
  for (const CallStatus& rCall : rAfter.vCalls) {
    const std::string* prLocal = LocalOf(rCall, rChange.strRemote);
    if (rCall.fUnfinished || prLocal == nullptr) continue;
    // To a phone that is not monitored the call goes on with the line's own number, as a part of its own.
    const bool fIsOwn = rChange.strLocal.empty() && rChange.fStopStart && !IsListed(rBefore, rCall.strCallId);
    if (*prLocal == rChange.strLocal || fIsOwn) {
      return {CTL_OK, "Local number of the call " + rCall.strCallId + " is now " + NumberText(*prLocal) + "."};
    }
    rReply = {CTL_NOT_DONE, "Local number of the call " + rCall.strCallId + " is still " + NumberText(*prLocal) + "."};
  }
  if (rReply.eExit == CTL_UNKNOWN_CALL && HasRunning(rBefore, rChange.strRemote)) {
    return {CTL_NOT_DONE, "The call with the remote number " + rChange.strRemote +
                              " is not listed any more: it is over, or not recorded with this number."};
  }
  return rReply;
}

// -- orders -----------------------------------------------------------------------------------------------------------

int RunOrder(const std::string& strOrder) {
  return Print(Send(strOrder));
}

int RunCallOrder(const std::string& strWord, const CallName& rName) {
  const bool fMayMove = strWord == "start" || strWord == "stop";
  const bool fDeletes = strWord == "delete";
  CtlStatus rBefore;
  if (rName.iLine != 0 || fMayMove || fDeletes) rBefore = ReadStatus();
  std::string strCallId = rName.strCallId;
  if (rName.iLine != 0) {
    const CtlReply rFound = FindCallOnLine(rBefore, rName.iLine);
    if (rFound.eExit != CTL_OK) return Print(rFound);
    strCallId = rFound.strText;
  }
  const CtlReply rReply = Send(strWord + " " + strCallId);
  (void)Print(rReply);
  if (rReply.eExit == CTL_REFUSED) std::cerr << SettingOf(strWord) << "\n";
  if (rReply.eExit != CTL_OK) return rReply.eExit;
  if (fMayMove) {
    const std::string strNewId = NewCallId(rBefore, ReadStatus(), strCallId);
    if (!strNewId.empty()) std::cout << MaskedLines(strNewId) << "\n";
  }
  // The daemon knows the id as long as the call lasts.
  if (fDeletes && rBefore.fDatabase && !IsListed(rBefore, strCallId)) {
    std::cout << "No recording of this call was listed any more.\n";
  }
  return CTL_OK;
}

int RunChangeLocal(const LocalChange& rChange) {
  const CtlStatus rBefore = ReadStatus();
  const CtlReply rSent =
      Send("change_local " + rChange.strLocal + "|" + rChange.strRemote + "|" + (rChange.fStopStart ? "1" : "0"));
  // These are the answers of whatever order was before.
  const bool fTellsNothing = rSent.eExit == CTL_OK || rSent.eExit == CTL_UNKNOWN_CALL || rSent.eExit == CTL_NO_REPLY;
  if (!fTellsNothing) return Print(rSent);
  CtlReply rReply = JudgeLocalChange(rBefore, ReadStatus(), rChange);
  for (int i = 0; i < LOOK_TIMES && rReply.eExit == CTL_NOT_DONE; i++) {
    (void)usleep(LOOK_PAUSE_US);
    rReply = JudgeLocalChange(rBefore, ReadStatus(), rChange);
  }
  return Print(rReply);
}

int RunChst(int iLine, bool fJson) {
  CtlStatus rStatus;
  rStatus.fLines = ReadLineStatus(LINE_STATUS_FILE, rStatus.vLines) && IsServed();
  const std::string strComplaint = ComplainOfLine(rStatus, iLine);
  if (!strComplaint.empty()) return Print({CTL_USAGE, strComplaint});
  const ChstReply rReply = AskLineState(iLine);
  if (rReply.eExit != CTL_OK) return Print({rReply.eExit, rReply.strText});
  std::cout << (fJson ? JsonToText(LineStateToJson(iLine, rReply.rState), /*iIndent=*/2) + "\n"
                      : LineStateToText(iLine, rReply.rState));
  return CTL_OK;
}
