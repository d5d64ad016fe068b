// Some telephones on a station card speak ISDN-like signalling: each message is a phase of a call, with the numbers as
// lines of text or as a binary record. A Tenovis telephone can hold several calls at once; vBusyCalls keeps the
// connected ones in the order of connection, and the recording follows the one still going.
#include "DstChannel.h"

#include <syslog.h>

#include <algorithm>
#include <cstring>

#include "fstring.h"
#include "logging.h"

namespace {

constexpr DWORD CALL_SOURCE_INCOMING = 1;  // of a record's CallSource, and of dwSubReason where the phase is text

bool IsRecord(const SSM_EVENT& rEvent) {
  return rEvent.pvBuffer != nullptr &&
         (rEvent.dwDataLength == ISDN_RECORD_BYTES || rEvent.dwDataLength == ISDN_RECORD_EXTENDED_BYTES);
}

// The event's record by value: the card's buffer need not be aligned.
ISDN_CALL_INFO ToRecord(const SSM_EVENT& rEvent) {
  ISDN_CALL_INFO rInfo;
  memcpy(&rInfo, rEvent.pvBuffer, sizeof rInfo);
  return rInfo;
}

template <std::size_t N>
std::string ToText(const char (&acField)[N]) {
  return {acField, strnlen(acField, N)};
}

std::string GetPhaseDescr(DWORD dwCode) {
  switch (dwCode) {
    case DMSG_BRI_PROGRESS:
      return "progress";
    case DMSG_BRI_ALERTING:
      return "alerting";
    case DMSG_BRI_CONNECTED:
      return "connected";
    case DMSG_BRI_RELEASED:
      return "released";
    default:
      return ToStdString(static_cast<int>(dwCode));
  }
}

}  // namespace

// -- messages -------------------------------------------------------------------------------------------------------

void DST_Channel::OnBriProgress(const SSM_EVENT& rEvent) {
  if (IsRecord(rEvent)) {
    const ISDN_CALL_INFO rInfo = ToRecord(rEvent);
    HandleIsdnCallInfo(DMSG_BRI_PROGRESS, &rInfo);
    return;
  }
  CopyEventText(rEvent, acPhoneDisp, BRI_TEXT_BYTES);
  lg(LOG_NOTICE, "[%d] BRI in progress %s %d", iChannel, acPhoneDisp, static_cast<int>(rEvent.dwSubReason));
}

void DST_Channel::OnBriAlerting(const SSM_EVENT& rEvent) {
  fKnowIncoming = true;
  if (IsRecord(rEvent)) {
    const ISDN_CALL_INFO rInfo = ToRecord(rEvent);
    HandleIsdnCallInfo(DMSG_BRI_ALERTING, &rInfo);
  } else {
    fIncoming = rEvent.dwSubReason == CALL_SOURCE_INCOMING;
    CopyEventText(rEvent, acPhoneDisp, BRI_TEXT_BYTES);
    AnalyseBriCID();
    lg(LOG_NOTICE, "[%d] BRI alerting %s %d", iChannel, acPhoneDisp, static_cast<int>(rEvent.dwSubReason));
  }
  RingingStarted();  // a pulse: no message tells the end of the ring, so none stays open
  RingingStopped();
}

void DST_Channel::OnBriConnected(const SSM_EVENT& rEvent) {
  fKnowIncoming = true;
  if (IsRecord(rEvent)) {
    const ISDN_CALL_INFO rInfo = ToRecord(rEvent);
    HandleIsdnCallInfo(DMSG_BRI_CONNECTED, &rInfo);
  } else {
    fIncoming = rEvent.dwSubReason == CALL_SOURCE_INCOMING;
    CopyEventText(rEvent, acPhoneDisp, BRI_TEXT_BYTES);
    AnalyseBriCID();
    lg(LOG_NOTICE, "[%d] BRI connected '%s' %d", iChannel, acPhoneDisp, static_cast<int>(rEvent.dwSubReason));
  }
  fInCall_DChannel = true;
  InCallMaybeChanged();
}

void DST_Channel::OnBriReleased(const SSM_EVENT& rEvent) {
  if (IsRecord(rEvent)) {
    const ISDN_CALL_INFO rInfo = ToRecord(rEvent);
    HandleIsdnCallInfo(DMSG_BRI_RELEASED, &rInfo);
  } else {
    lg(LOG_NOTICE, "[%d] BRI released", iChannel);
    CallIsFinished();
  }
  InCallMaybeChanged();
}

void DST_Channel::OnBriCancelled(const SSM_EVENT& rEvent) {
  lg(LOG_NOTICE, "[%d] BRI call %s", iChannel, rEvent.dwParam == DMSG_BRI_ABANDONED ? "abandoned" : "rejected");
  CallCancelled();
  if (iPbxType != PBX_TENOVIS_ISDN) CallIsFinished();  // other calls of a Tenovis telephone must stay
  InCallMaybeChanged();
}

// -- numbers as lines of text ---------------------------------------------------------------------------------------

bool DST_Channel::DetermineBriLR(std::string& strLocalNum_, std::string& strRemoteNum_) {
  std::vector<std::string> astrLines;
  lt_split(astrLines, acPhoneDisp, '\n');
  if (astrLines.size() < 2) return false;
  strRemoteNum_ = fIncoming ? astrLines[0] : astrLines[1];
  strLocalNum_ = fIncoming ? astrLines[1] : astrLines[0];
  if (astrLines.size() == 3) {  // the third line is the party that the call was connected to
    const std::string& strConnected = astrLines[2];
    if (fIncoming && strConnected.size() > 1) strLocalNum_ = strConnected;
    if (!fIncoming && strConnected.size() > 2) strRemoteNum_ = strConnected;
  }
  return true;
}

void DST_Channel::AnalyseBriCID() {
  if (iPbxType != PBX_TENOVIS) {
    strRemoteNum.clear();
    if (DetermineBriLR(strLocalNum, strRemoteNum)) RemoteNumberChanged();
    return;
  }
  std::string newRemote = strRemoteNum;
  std::string newLocal = strLocalNum;
  if (!DetermineBriLR(newLocal, newRemote)) return;
  if (const std::size_t iBlank = newRemote.find(' '); iBlank != std::string::npos) newRemote.erase(0, iBlank + 1);
  if (!strRemoteNum.empty() && newRemote.size() < strRemoteNum.size()) return;  // the number that is known stands
  strRemoteNum = newRemote;
  strLocalNum = newLocal;
  RemoteNumberChanged();
}

// -- numbers as a record --------------------------------------------------------------------------------------------

void DST_Channel::HandleIsdnCallInfo(DWORD eventCode, const ISDN_CALL_INFO* prCallInfo) {
  if (iPbxType == PBX_TENOVIS) iPbxType = PBX_TENOVIS_ISDN;  // this line speaks records, and goes on doing so
  const std::string strCallerNum = ToText(prCallInfo->CallerNumber);
  const std::string strCalledNum = ToText(prCallInfo->CalledNumber);
  const std::string strConnectNum = ToText(prCallInfo->ConnectNumber);
  const bool fMsgIncoming = prCallInfo->CallSource == CALL_SOURCE_INCOMING;
  std::string strMsgRemote = fMsgIncoming ? strCallerNum : strCalledNum;
  std::string strMsgLocal = fMsgIncoming ? strCalledNum : strCallerNum;
  if (fMsgIncoming && strConnectNum.size() > 1) strMsgLocal = strConnectNum;
  // The channel's connected number and not the record's: kept so, the archive of a site stays comparable. See
  // OutgoingRecordTakesConnectedNumberOfChannel.
  if (!fMsgIncoming && strConnectNum.size() > 2) strMsgRemote = strConnectedNum;
  lg(LOG_NOTICE, "[%d] ISDN %s F:%s T:%s C:%s %s (L:%s R:%s)", iChannel, GetPhaseDescr(eventCode).c_str(),
     strCallerNum.c_str(), strCalledNum.c_str(), strConnectNum.c_str(), fMsgIncoming ? "Inc" : "OUT",
     strMsgLocal.c_str(), strMsgRemote.c_str());

  const bool isMultiCall = iPbxType == PBX_TENOVIS_ISDN;
  if (eventCode == DMSG_BRI_RELEASED) {
    if (isMultiCall) RemoveFromBusyRemotes(strMsgRemote);
    if (isMultiCall && !vBusyCalls.empty()) {
      ContinueWithOtherCall();
    } else {
      CallIsFinished();
    }
    RemoteNumberChanged();
    return;
  }
  const bool isFurtherCall = isMultiCall && !vBusyCalls.empty();
  if (isFurtherCall && eventCode != DMSG_BRI_CONNECTED) {
    RemoteNumberChanged();  // it rings or proceeds: the numbers of the call in progress stay
    return;
  }
  if (isFurtherCall) {
    lg(LOG_NOTICE, "[%d] Restarting recording", iChannel);
    FinalizeRecording(false);
  }
  strRemoteNum = strMsgRemote;
  strLocalNum = strMsgLocal;
  fIncoming = fMsgIncoming;
  if (isFurtherCall) TryStartRecording();
  if (eventCode == DMSG_BRI_CONNECTED) vBusyCalls.push_back({strMsgRemote, fMsgIncoming});
  RemoteNumberChanged();
}

// One of several calls was released. When it was the recorded one, the recording moves to the first that is left.
void DST_Channel::ContinueWithOtherCall() {
  if (!IsInBusyRemotes(strRemoteNum)) {
    FinalizeRecording(false);
    strRemoteNum = vBusyCalls.front().strRemote;
    fIncoming = vBusyCalls.front().fIncoming;
    TryStartRecording();
  }
  lg(LOG_NOTICE, "[%d] Tenovis. A call continues with %s", iChannel, strRemoteNum.c_str());
}

bool DST_Channel::IsInBusyRemotes(const std::string& strNum) {
  return std::any_of(vBusyCalls.begin(), vBusyCalls.end(),
                     [&](const BusyCall& rCall) { return rCall.strRemote == strNum; });
}

void DST_Channel::RemoveFromBusyRemotes(const std::string& strNum) {
  const auto it = std::find_if(vBusyCalls.begin(), vBusyCalls.end(),
                               [&](const BusyCall& rCall) { return rCall.strRemote == strNum; });
  if (it != vBusyCalls.end()) {
    vBusyCalls.erase(it);
    return;
  }
  lg(LOG_WARNING, "[%d] Tenovis. Unknown remote (%s) to release", iChannel, strNum.c_str());
  // Deliberate: a release that cannot be matched still shortens the list, so that a line cannot stay busy for ever.
  if (!vBusyCalls.empty()) vBusyCalls.pop_back();
}

// A missed call is a row without audio, written at once.
void DST_Channel::CallCancelled() {
  if (!fMissedCalls || InCall() || rFirstRing == 0) return;
  lg(LOG_NOTICE, "[%d] Missed call!", iChannel);
  IDatabase* prDatabase = prRecorder->GetDatabaseHandle();
  StringMap rCallInfo;
  FillCallInfo(&rCallInfo, prDatabase, /*fFinal=*/true);
  rCallInfo.AddUtf8("flags", ToStdString(FLAG_MISSED));
  rCallInfo.AddUtf8("startdate", std::to_string(rFirstRing));
  rCallInfo.AddUtf8("isconnected", "0");
  rCallInfo.AddUtf8("isarchived", "0");
  (void)prDatabase->AddCall(rCallInfo);  // a failure has been logged, and there is no audio to save
}
