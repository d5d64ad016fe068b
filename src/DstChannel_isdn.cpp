// Some telephones on a station card speak ISDN-like signalling: each message is a phase of a call, with the numbers as
// lines of text or as a binary record. A Tenovis telephone can hold several calls at once; vBusyCalls keeps the
// connected ones in the order of connection, and the recording follows the one still going. To the line they are one
// call: when that ends, by whatever message, the list ends with it, also when a release is lost or comes later.
#include "DstChannel.h"

#include <syslog.h>

#include <algorithm>
#include <cstring>

#include "fstring.h"
#include "logging.h"

namespace {

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

// -- messages ---------------------------------------------------------------------------------------------------------

void DST_Channel::OnBriProgress(const SSM_EVENT& rEvent) {
  OnBriPhase(rEvent);
}

void DST_Channel::OnBriAlerting(const SSM_EVENT& rEvent) {
  fKnowIncoming = true;
  OnBriPhase(rEvent);
  RingingStarted();  // a pulse: no message tells the end of the ring, so none stays open
  RingingStopped();
}

void DST_Channel::OnBriConnected(const SSM_EVENT& rEvent) {
  fKnowIncoming = true;
  OnBriPhase(rEvent);
  fInCall_DChannel = true;
  InCallMaybeChanged();
}

void DST_Channel::OnBriReleased(const SSM_EVENT& rEvent) {
  OnBriPhase(rEvent);
  InCallMaybeChanged();
}

// The one door of call phases: what it tells comes as a record or as text.
void DST_Channel::OnBriPhase(const SSM_EVENT& rEvent) {
  if (!IsRecord(rEvent)) {
    OnBriText(rEvent);
    return;
  }
  const ISDN_CALL_INFO rInfo = ToRecord(rEvent);
  HandleIsdnCallInfo(rEvent.dwParam, &rInfo);
}

void DST_Channel::OnBriText(const SSM_EVENT& rEvent) {
  const int iSource = static_cast<int>(rEvent.dwSubReason);
  switch (rEvent.dwParam) {
    case DMSG_BRI_PROGRESS:
      CopyEventText(rEvent, acPhoneDisp, BRI_TEXT_BYTES);
      lg(LOG_NOTICE, "[%d] BRI in progress %s %d", iChannel, acPhoneDisp, iSource);
      break;
    case DMSG_BRI_ALERTING:
      ReadBriText(rEvent);
      lg(LOG_NOTICE, "[%d] BRI alerting %s %d", iChannel, acPhoneDisp, iSource);
      break;
    case DMSG_BRI_CONNECTED:
      ReadBriText(rEvent);
      lg(LOG_NOTICE, "[%d] BRI connected '%s' %d", iChannel, acPhoneDisp, iSource);
      break;
    default:  // released, whatever its text says
      lg(LOG_NOTICE, "[%d] BRI released", iChannel);
      CallIsFinished();
      break;
  }
}

void DST_Channel::OnBriCancelled(const SSM_EVENT& rEvent) {
  lg(LOG_NOTICE, "[%d] BRI call %s", iChannel, rEvent.dwParam == DMSG_BRI_ABANDONED ? "abandoned" : "rejected");
  CallCancelled();
  if (iPbxType != PBX_TENOVIS_ISDN) CallIsFinished();  // other calls of a Tenovis telephone must stay
  InCallMaybeChanged();
}

// -- numbers as lines of text -----------------------------------------------------------------------------------------

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

void DST_Channel::ReadBriText(const SSM_EVENT& rEvent) {
  fIncoming = rEvent.dwSubReason == CALL_SOURCE_INCOMING;
  CopyEventText(rEvent, acPhoneDisp, BRI_TEXT_BYTES);
  AnalyseBriCID();
}

void DST_Channel::AnalyseBriCID() {
  if (iPbxType != PBX_TENOVIS) {
    std::string strRemote;
    if (DetermineBriLR(strLocalNum, strRemote)) {
      SetRemoteNum(strRemote);
    } else {
      strRemoteNum.clear();  // not told: the row in ActiveCalls has it until a text, display or record names one
    }
    return;
  }
  std::string newRemote = strRemoteNum;
  std::string newLocal = strLocalNum;
  if (!DetermineBriLR(newLocal, newRemote)) return;
  if (const std::size_t iBlank = newRemote.find(' '); iBlank != std::string::npos) newRemote.erase(0, iBlank + 1);
  if (!strRemoteNum.empty() && newRemote.size() < strRemoteNum.size()) return;  // the number that is known stands
  strLocalNum = newLocal;
  SetRemoteNum(newRemote);
}

// -- numbers as a record ----------------------------------------------------------------------------------------------

// Each record tells the remote number at its end, also when that is the one of another call or has not changed.
void DST_Channel::HandleIsdnCallInfo(DWORD eventCode, const ISDN_CALL_INFO* prCallInfo) {
  if (iPbxType == PBX_TENOVIS) iPbxType = PBX_TENOVIS_ISDN;  // this line speaks records, and goes on doing so
  const RecordParties rParties = ReadParties(eventCode, *prCallInfo);
  if (eventCode == DMSG_BRI_RELEASED) {
    OnRecordReleased(rParties.rCall.strRemote);
  } else {
    OnRecordPhase(eventCode, rParties);
  }
  RemoteNumberChanged();
}

// The parties as this line sees them.
DST_Channel::RecordParties DST_Channel::ReadParties(DWORD dwCode, const ISDN_CALL_INFO& rInfo) const {
  const std::string strCallerNum = ToText(rInfo.CallerNumber);
  const std::string strCalledNum = ToText(rInfo.CalledNumber);
  const std::string strConnectNum = ToText(rInfo.ConnectNumber);
  const bool isIncoming = rInfo.CallSource == CALL_SOURCE_INCOMING;
  std::string strRemote = isIncoming ? strCallerNum : strCalledNum;
  std::string strLocal = isIncoming ? strCalledNum : strCallerNum;
  if (isIncoming && strConnectNum.size() > 1) strLocal = strConnectNum;
  // The channel's connected number and not the record's: kept so, the archive of a site stays comparable. See
  // OutgoingRecordTakesConnectedNumberOfChannel.
  if (!isIncoming && strConnectNum.size() > 2) strRemote = strConnectedNum;
  lg(LOG_NOTICE, "[%d] ISDN %s F:%s T:%s C:%s %s (L:%s R:%s)", iChannel, GetPhaseDescr(dwCode).c_str(),
     strCallerNum.c_str(), strCalledNum.c_str(), strConnectNum.c_str(), isIncoming ? "Inc" : "OUT", strLocal.c_str(),
     strRemote.c_str());
  return {{strRemote, isIncoming}, strLocal};
}

void DST_Channel::OnRecordReleased(const std::string& strRemote) {
  const bool isMultiCall = iPbxType == PBX_TENOVIS_ISDN;
  if (isMultiCall) RemoveFromBusyRemotes(strRemote);
  if (isMultiCall && !vBusyCalls.empty()) {
    ContinueWithOtherCall();
  } else {
    CallIsFinished();
  }
}

void DST_Channel::OnRecordPhase(DWORD dwCode, const RecordParties& rParties) {
  const bool isConnected = dwCode == DMSG_BRI_CONNECTED;
  if (vBusyCalls.empty()) {
    TakeParties(rParties);
  } else if (isConnected) {
    lg(LOG_NOTICE, "[%d] Restarting recording", iChannel);
    RecordOtherCall(rParties);
  }  // else it rings or proceeds: the numbers of the call in progress stay
  if (isConnected && iPbxType == PBX_TENOVIS_ISDN) vBusyCalls.push_back(rParties.rCall);
}

// The remote number is told by HandleIsdnCallInfo, once a recording that begins with it has begun.
void DST_Channel::TakeParties(const RecordParties& rParties) {
  strRemoteNum = rParties.rCall.strRemote;
  strLocalNum = rParties.strLocal;
  fIncoming = rParties.rCall.fIncoming;
}

void DST_Channel::RecordOtherCall(const RecordParties& rParties) {
  FinalizeRecording(/*fClearInfo=*/false);
  TakeParties(rParties);
  TryStartRecording();
}

// One of several calls was released. When it was the recorded one, the recording moves to the first that is left.
void DST_Channel::ContinueWithOtherCall() {
  if (!IsInBusyRemotes(strRemoteNum)) RecordOtherCall({vBusyCalls.front(), strLocalNum});
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
