#include "ctl_orders.h"

#include <algorithm>
#include <iostream>
#include <vector>

namespace {

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

}  // namespace

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
