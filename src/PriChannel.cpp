// A tapped circuit shows as two driver channels, one a direction. The one that sees the talking state first becomes the
// base: it follows the call, records, and mixes in the other, which from then on ignores every state of its own.
#include "PriChannel.h"

#include <syslog.h>

#include "logging.h"

namespace {

using SpyGetNumber = int (*)(int nCic, char* pcCid);

// A number of the circuit; empty when the card gives none. The result of the card is not looked at: the buffer tells.
std::string ReadNumber(SpyGetNumber pGet, int iCic) {
  char acNumber[SPY_NUMBER_BYTES] = {};
  (void)pGet(iCic, acNumber);
  acNumber[sizeof acNumber - 1] = '\0';
  return acNumber;
}

}  // namespace

const char* GetPriStateDescr(int iState) {
  switch (iState) {
    case PRI_IDLE:
      return "idle";
    case PRI_RING:
      return "ringing";
    case PRI_TALK:
      return "talking";
    case PRI_UNAVAILABLE:
      return "unavail";
    case PRI_NUMB:
      return "numbering";
    default:
      return "";
  }
}

PRI_Channel::PRI_Channel() {
  iRecSource = SOURCE_PRI;
  fUseLocalNum = true;  // signalling always delivers both numbers, and the connected one
  fHasConnectedNum = true;
  fRingsUntilPickup = true;
}

void PRI_Channel::Init(int iChannelNr, int iBoardListIndex, int iBoardChannel, ICRecorder* prOwner, int iDriverCh) {
  BaseChannel::Init(iChannelNr, iBoardListIndex, iBoardChannel, prOwner, iDriverCh);
  fChAvail = false;
  fChAvailUnknown = true;
  fSwapSides = prRecorder->GetBoardParamInt(iBoardListIx, "SwapSides") != 0;
}

int PRI_Channel::GetWaitTime() {
  // Signalling rings on outgoing calls too, so the direction does not matter here. The wall clock less a ring time of
  // GetSrTime: kept as it is, since the daemon has one clock for both. See
  // WaitTimeRunsFromTheFirstRingByTheMachinesClockInEitherDirection.
  return rFirstRing == 0 ? -1 : static_cast<int>(time(nullptr) - rFirstRing);
}

bool PRI_Channel::GetNewRecOnDmd() {
  return QRecOnDmd();
}

void PRI_Channel::HandleEvent(SSM_EVENT* prEvent) {
  BaseChannel::HandleEvent(prEvent);
  switch (prEvent->wEventCode) {
    case E_CHG_RcvDTMF:
      OnDigit(static_cast<char>(LowByte(prEvent->dwParam)));
      break;
    case E_CHG_SpyState:
      OnSpyState(static_cast<int>(LowWord(prEvent->dwParam)), static_cast<int>(HighWord(prEvent->dwParam)));
      break;
    default:  // audio of both sides is served, whatever the roles
      DefaultEventHandle(prEvent);
      break;
  }
}

// Digits count from exactly one direction of the pair: the linked side's, or the base's on a reversed tap. Those of the
// other direction are dropped on purpose.
void PRI_Channel::OnDigit(char ch) {
  (void)SsmClearRxDtmfBuf(iDrvCh);
  lg(LOG_NOTICE, "{%d} PRI DTMF detected: %c linked to {%d}", iChIx, ch, iBaseCh);
  const bool isLinkedSide = iBaseCh != -1;
  if (isLinkedSide && !fSwapSides) prRecorder->ChannelDigit(iBaseCh, ch);
  if (!isLinkedSide && fSwapSides) DetectedDigit(ch);
}

void PRI_Channel::OnSpyState(int iCur, int iPrev) {
  if (iBaseCh != -1) {
    lg(LOG_WARNING, "[%d] (ignored, has base) PRI was: %d is: %d %s", iChannel, iPrev, iCur, GetPriStateDescr(iCur));
    return;
  }
  lg(LOG_NOTICE, "[%d] PRI was: %d is: %d %s", iChannel, iPrev, iCur, GetPriStateDescr(iCur));
  ReportAvailability(iCur != PRI_UNAVAILABLE);
  if (iCur == PRI_RING) {
    OnRinging();
    return;
  }
  if (iCur == PRI_TALK) {
    OnTalking();
  } else {
    fInCall_ChState = false;
  }
  InCallMaybeChanged();
  // Only now, so that the call that starts here still sees the line ringing and counts its waiting time.
  if (iPrev == PRI_RING) RingingStopped();
}

void PRI_Channel::ReportAvailability(bool fNewChAvail) {
  if (!fChAvailUnknown && fNewChAvail == fChAvail) return;
  fChAvail = fNewChAvail;
  fChAvailUnknown = false;
  prRecorder->NotifyChAvail(iBoardListIx, iBoardCh, fNewChAvail);
}

// The numbers of a ring are only logged: those of the talking state are final.
void PRI_Channel::OnRinging() {
  const std::string strCallee = ReadNumber(SpyGetCalleeId, iCic);
  const std::string strCaller = ReadNumber(SpyGetCallerId, iCic);
  lg(LOG_NOTICE, "[%d] RING Callee: %s Caller: %s", iChannel, strCallee.c_str(), strCaller.c_str());
  RingingStarted();
  fInCall_ChState = false;
  InCallMaybeChanged();
}

void PRI_Channel::OnTalking() {
  fInCall_ChState = true;
  const int iChIn = SpyGetCallInCh(iCic);
  const int iChOut = SpyGetCallOutCh(iCic);
  lg(LOG_NOTICE, "[%d] Channel IN: {%d} OUT: {%d}", iChannel, iChIn, iChOut);
  const std::string strCallee = ReadNumber(SpyGetCalleeId, iCic);
  const std::string strCaller = ReadNumber(SpyGetCallerId, iCic);
  const std::string strConnect = ReadNumber(SpyGetConId, iCic);
  lg(LOG_NOTICE, "[%d] Callee: %s Caller: %s Connect: %s", iChannel, strCallee.c_str(), strCaller.c_str(),
     strConnect.c_str());

  fKnowIncoming = true;
  fIncoming = iChIx == iChIn;
  iLinkedCh = fIncoming ? iChOut : iChIn;
  if (iLinkedCh == iChIx) iLinkedCh = -1;  // a circuit of one side; as its own linked side it would follow no state
  prRecorder->LinkedChannel(iChIx, iLinkedCh);
  if (fSwapSides) fIncoming = !fIncoming;  // the pair stays as it is

  // Written without telling: the call that starts with them takes all three as they stand.
  strRemoteNum = fIncoming ? strCaller : strCallee;
  strLocalNum = fIncoming ? strCallee : strCaller;
  strConnectedNum = strConnect;
  fRecOnDmd = QRecOnDmd();
}
