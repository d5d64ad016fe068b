// What the telephone shows and does, message by message. Each source of evidence (hook, audio path, mute light, tone,
// conditions from settings, ISDN phases) has its in-call flag; InCall is true while any is set, and every handler that
// changes a flag calls InCallMaybeChanged, which alone starts and stops calls.
//
// Which event sets and which clears which flag:
//   fInCall_Offhook   set: off hook                          cleared: CallIsFinished
//   fInCall_DChannel  set: audio on (mute modes: once it lasts, Periodic), ISDN connected, soak test (Periodic)
//                                                            cleared: audio off (default mode), CallIsFinished
//   fInCall_Audio     set: voice, with voice detection       cleared: silence time-out, CallIsFinished
//   fInCall_Extra     set: start condition, mute light off, voice by tone    cleared: stop condition, CallIsFinished
//   fInCall_ChState   set: never on this kind of line        cleared: CallIsFinished
// fInCall_ToneAnalyze is no part of InCall: voice by tone sets it and counts once until CallIsFinished clears it.
#include "DstChannel.h"

#include <syslog.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "fstring.h"
#include "ftime.h"
#include "logging.h"
#include "shpa3link.h"

namespace {

constexpr int HOLD_SILENCE_TIME_OUT_S = 600;  // silence that ends a call on hold
constexpr int NEW_RING_KEEPS_NUMBER_S = 3;    // a number younger than this belongs to the ring that starts
constexpr int LOGIN_DIGITS_WITHIN_S = 46;     // login digits that expire later are none
// Of a local number that is dialled at the login text; at the login prompt it has iLocalNumSize.
constexpr std::size_t MIN_LOCAL_ID_DIGITS = 3;
constexpr std::size_t MAX_LOCAL_ID_DIGITS = 5;
constexpr int LAST_ID_DIGIT_WITHIN_S = 5;     // the last digit of a local number follows its display within this time
constexpr int AUDIO_NOTICE_PAUSE_S = 4;       // between two notices of voice outside a call
constexpr int AUDIO_NOTICE_AFTER_CALL_S = 1;  // the tail of a call is no voice outside of it
constexpr int SHORT_AUDIO_BURST_S = 2;        // mute modes: audio up to this long ends no call while the light is off
constexpr DWORD NEC_AUDIO_IGNORED = 8;        // audio change that NEC sends outside calls
constexpr int DEBUG_TOGGLE_CHANCE = 15;       // soak test: one second in so many toggles the call

// What the text of the board's PBX type begins with, or is as a whole.
enum EPbxMatch { PBX_BEGINS, PBX_WHOLE };

constexpr int PHONE_TYPE_ANY = -1;
constexpr int PHONE_TYPE_TENOVIS = 1;  // of the setting "PhoneType"

// Ways in which a PBX differs, besides what the code asks of its profile.
enum EPbxSwitch : unsigned {
  SWITCH_EQUAL_LENGTH = 1,     // fAllowEqualRemoteLenChange
  SWITCH_NOT_LATE = 2,         // no fLateChange
  SWITCH_SEVERAL_NUMBERS = 4,  // fCheckForMultipleTelNum
  SWITCH_PRESSED_DIGITS = 8,   // fUsePressedDigitsForRemote
  SWITCH_LOCAL_NUM = 16,       // fUseLocalNum
};

// One row a PBX; no text fits two of them. Some have rules but no profile of their own.
struct PbxRow {
  EPbxMatch eMatch;
  const char* acType;
  EPbxType ePbxType;
  unsigned uiSwitches = 0;
  int iPhoneType = PHONE_TYPE_ANY;

  bool Fits(const std::string& strType, int iType) const {
    if (iPhoneType != PHONE_TYPE_ANY && iType != iPhoneType) return false;
    return eMatch == PBX_WHOLE ? strType == acType : beginsWith(strType, acType);
  }
  bool Has(EPbxSwitch eSwitch) const { return (uiSwitches & eSwitch) != 0; }
};
constexpr PbxRow PBX_ROWS[] = {
    {PBX_BEGINS, "Siemens", PBX_SIEMENS, SWITCH_EQUAL_LENGTH},
    {PBX_BEGINS, "Ericsson", PBX_UNDEF, SWITCH_EQUAL_LENGTH | SWITCH_NOT_LATE | SWITCH_SEVERAL_NUMBERS},
    {PBX_WHOLE, "Belgacom", PBX_BELGACOM},
    {PBX_BEGINS, "Alcatel", PBX_ALCATEL},
    {PBX_WHOLE, "Aastra 5000", PBX_A5000},
    {PBX_BEGINS, "Avaya Mer", PBX_TENOVIS, 0, PHONE_TYPE_TENOVIS},
    {PBX_WHOLE, "PANASONIC", PBX_PANASONIC},
    {PBX_WHOLE, "NEC", PBX_NEC, SWITCH_PRESSED_DIGITS},
    {PBX_BEGINS, "ISDN", PBX_UNDEF, SWITCH_LOCAL_NUM},
};

}  // namespace

void CopyEventText(const SSM_EVENT& rEvent, char* acTo, std::size_t iMax) {
  const std::size_t iLen = rEvent.pvBuffer == nullptr ? 0 : std::min<std::size_t>(rEvent.dwDataLength, iMax);
  if (iLen > 0) memcpy(acTo, rEvent.pvBuffer, iLen);
  acTo[iLen] = '\0';
}

const DST_Channel::DMsgRow DST_Channel::rDMsgRows[] = {
    {DMSG_OFF_HOOK, &DST_Channel::OnOffHook},
    {DMSG_ON_HOOK, &DST_Channel::OnOnHook},
    {DMSG_BRI_PROGRESS, &DST_Channel::OnBriProgress},
    {DMSG_BRI_ALERTING, &DST_Channel::OnBriAlerting},
    {DMSG_BRI_CONNECTED, &DST_Channel::OnBriConnected},
    {DMSG_BRI_RELEASED, &DST_Channel::OnBriReleased},
    {DMSG_BRI_ABANDONED, &DST_Channel::OnBriCancelled},
    {DMSG_BRI_REJECTED, &DST_Channel::OnBriCancelled},
    // Lamps and keys without a meaning of their own: only the board conditions look at them.
    {DMSG_UNNAMED_1001, nullptr},
    {DMSG_UNNAMED_1002, nullptr},
    {DMSG_UNNAMED_1003, nullptr},
    {DMSG_UNNAMED_100B, nullptr},
    {DMSG_UNNAMED_100F, nullptr},
    {DMSG_UNNAMED_1025, nullptr},
    {DMSG_UNNAMED_1028, nullptr},
    {DMSG_UNNAMED_102A, nullptr},
    {DMSG_UNNAMED_1033, nullptr},
    {DMSG_KEY_DIGIT, &DST_Channel::OnKeyDigit, &LowByte},
    {DMSG_DISPLAY, &DST_Channel::OnDisplay},
    {DMSG_FUNCTION_BUTTON, &DST_Channel::OnFunctionButton, &LowByte},
    {DMSG_RELEASE_BUTTON, &DST_Channel::OnReleaseButton},
    {DMSG_FEATURE_BUTTON, &DST_Channel::OnFeatureButton},
    {DMSG_SOFT_BUTTON, &DST_Channel::OnSoftButton, &LowByte},
    {DMSG_RING_ON, &DST_Channel::OnRingOn},
    {DMSG_RING_ON_10BA, &DST_Channel::OnRingOn},
    {DMSG_RING_ON_10BB, &DST_Channel::OnRingOn},
    {DMSG_RING_ON_10BC, &DST_Channel::OnRingOn},
    {DMSG_RING_ON_1307, &DST_Channel::OnRingOn},
    {DMSG_RING_OFF, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_10B8, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_1304, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_1306, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_1308, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_1309, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_130A, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_130B, &DST_Channel::OnRingOff},
    {DMSG_RING_OFF_130C, &DST_Channel::OnRingOff},
    {DMSG_LINE_BUTTON, &DST_Channel::OnLineButton},
    {DMSG_AUDIO_CHANGE, &DST_Channel::OnAudioChange},
    {DMSG_MUTE_LIGHT_OFF, &DST_Channel::OnMuteLightOff},
    {DMSG_MUTE_LIGHT_ON, &DST_Channel::OnMuteLightOn},
    {DMSG_MUTE_LIGHT_BLINK, &DST_Channel::OnMuteLightOn},
    {DMSG_CHANGE_LOCAL, &DST_Channel::OnChangeLocal},
};

DST_Channel::DST_Channel() {
  iRecSource = SOURCE_DST;
}

// -- set-up and overrides ---------------------------------------------------------------------------------------------

void DST_Channel::Init(int iChannelNr, int iBoardListIndex, int iBoardChannel, ICRecorder* prOwner, int iDriverCh) {
  BaseChannel::Init(iChannelNr, iBoardListIndex, iBoardChannel, prOwner, iDriverCh);
  strPbxType = prRecorder->GetBoardPbxType(iBoardListIx);
  fRingsUntilPickup = false;

  const auto BoardInt = [this](const char* acParam) { return prRecorder->GetBoardParamInt(iBoardListIx, acParam); };
  fUseAudioDetection = BoardInt("AudioDetect") != 0;
  iSilenceTimeOut = BoardInt("SilenceT");
  const int iAudioSens = BoardInt("AudioSens");
  iTdmStart = BoardInt("TdmStart");
  fDetectDtmf = BoardInt("DetectDtmf") != 0;
  fMissedCalls = BoardInt("MissedCalls") != 0;
  const int iInboundGain = BoardInt("InboundGain");
  const int iOutboundGain = BoardInt("OutboundGain");
  const int iPhoneType = prRecorder->GetChannelParamInt(iBoardCh, iBoardListIx, "PhoneType");
  ChooseProfile(iPhoneType);

  if (DTRSetMixerVolume(iDrvCh, 0, iInboundGain, iOutboundGain) != SSM_OK) LogSsmError("DTRSetMixerVolume");
  if (InMuteMode()) fLocalIdDetect = true;
  ReadCachedLocalNum();
  (void)SsmSetBargeInSens(iDrvCh, iAudioSens);  // a card without the function keeps its own sensitivity
  fSpecial_Pilot = prRecorder->IsSpecial("Pilot");

  IDatabase* prDatabase = prRecorder->GetDatabaseHandle();
  strLocalName = prDatabase->GetContactName(static_cast<int>(LineContact(prDatabase).iContactID));
}

void DST_Channel::ChooseProfile(int iPhoneType) {
  const PbxRow* prRow = std::find_if(std::begin(PBX_ROWS), std::end(PBX_ROWS),
                                     [&](const PbxRow& rRow) { return rRow.Fits(strPbxType, iPhoneType); });
  if (prRow == std::end(PBX_ROWS)) return;
  iPbxType = prRow->ePbxType;
  fAllowEqualRemoteLenChange = prRow->Has(SWITCH_EQUAL_LENGTH);
  fLateChange = !prRow->Has(SWITCH_NOT_LATE);
  fCheckForMultipleTelNum = prRow->Has(SWITCH_SEVERAL_NUMBERS);
  fUsePressedDigitsForRemote = prRow->Has(SWITCH_PRESSED_DIGITS);
  fUseLocalNum = prRow->Has(SWITCH_LOCAL_NUM);
}

bool DST_Channel::KeepsLocalNum() const {
  return iPbxType == PBX_ALCATEL || InMuteMode();
}

void DST_Channel::ReadCachedLocalNum() {
  if (!KeepsLocalNum()) return;
  strLocalNum = Utf8ToLatin1(prRecorder->GetCachedLocalNum(iBoardCh, iBoardListIx));
  if (strLocalNum.empty()) return;
  fUseLocalNum = true;
  lg(LOG_NOTICE, "[%d] Cached local number: %s", iChannel, strLocalNum.c_str());
}

void DST_Channel::Finalize() {
  if (KeepsLocalNum()) prRecorder->SetCachedLocalNum(iBoardCh, iBoardListIx, Latin1ToUtf8(strLocalNum));
}

bool DST_Channel::InCall() {
  return fInCall_ChState || fInCall_DChannel || fInCall_Audio || fInCall_Extra || fInCall_Offhook;
}

void DST_Channel::ClearInfo() {
  BaseChannel::ClearInfo();
  fOnHold = false;
}

void DST_Channel::WhenCallIsOver() {
  vBusyCalls.clear();
}

void DST_Channel::CallIsFinished() {
  fInCall_ChState = false;
  fInCall_DChannel = false;
  fInCall_Offhook = false;
  fInCall_Audio = false;
  fInCall_Extra = false;
  fInCall_ToneAnalyze = false;
  strDigits.clear();
}

void DST_Channel::WhenNewRing() {
  if (fCallBusy) return;
  if (GetSrTime() - rRemoteNumTime < NEW_RING_KEEPS_NUMBER_S) return;
  lg(LOG_NOTICE, "[%d] A new ring and expire remote", iChannel);
  RemoteExpired();
}

// Digits dialled at the login text are the local number.
void DST_Channel::WhenDigitExpiring() {
  const bool isLogin = rLoginBusy != 0 && GetSrTime() - rLoginBusy < LOGIN_DIGITS_WITHIN_S;
  if (isLogin && strDigits.size() >= MIN_LOCAL_ID_DIGITS && strDigits.size() <= MAX_LOCAL_ID_DIGITS) {
    strLocalNum = strDigits;
    fUseLocalNum = true;
    lg(LOG_NOTICE, "[%d] Local ID: %s", iChannel, strLocalNum.c_str());
  }
  rLoginBusy = 0;
}

int DST_Channel::WriteChState() {
  return WriteStateFile("");
}

void DST_Channel::Periodic() {
  BaseChannel::Periodic();
  const time_t rNow = GetSrTime();
  if (fInCall_Audio && !fAudio) {
    const int iLimit = fOnHold ? std::max(iSilenceTimeOut, HOLD_SILENCE_TIME_OUT_S) : iSilenceTimeOut;
    if (rNow - rStartSilence >= iLimit) {
      lg(LOG_NOTICE, "[%d] Silence time-out", iChannel);
      fInCall_Audio = false;
      InCallMaybeChanged();
    }
  }
  if (fAudioMaybeDelayStart && rNow > rAudioStartTime) {  // the audio has outlasted the second in which it began
    fAudioMaybeDelayStart = false;
    if (fAudioState && !fCallBusy) {
      lg(LOG_NOTICE, "[%d] Delay-start on audio", iChannel);
      fInCall_DChannel = true;
      InCallMaybeChanged();
    }
  }
  if (prRecorder->fDebugRepeatRecord && rand() % DEBUG_TOGGLE_CHANCE == 0) {
    if (InCall()) {
      CallIsFinished();
    } else {
      fInCall_DChannel = true;
    }
    InCallMaybeChanged();
  }
}

// -- events -----------------------------------------------------------------------------------------------------------

void DST_Channel::HandleEvent(SSM_EVENT* prEvent) {
  BaseChannel::HandleEvent(prEvent);
  switch (prEvent->wEventCode) {
    case E_CHG_ToneAnalyze:
      OnToneAnalyze(prEvent->dwParam);
      break;
    case E_CHG_RcvDTMF:
      OnDtmf(static_cast<char>(LowByte(prEvent->dwParam)));
      break;
    case E_CHG_ChState:
      OnChState(static_cast<int>(LowWord(prEvent->dwParam)));
      break;
    case E_SYS_BargeIn:
      OnBargeIn(/*fSound=*/prEvent->dwParam == BARGE_IN_SOUND);
      break;
    case E_RCV_DSTDChannel:
      OnDChannel(*prEvent);
      break;
    default:
      DefaultEventHandle(prEvent);
      break;
  }
}

void DST_Channel::OnToneAnalyze(DWORD dwTone) {
  if (dwTone != TONE_VOICE || iTdmStart != TDM_START_MUTELT_AND_TONE) return;
  if (iMuteLightState != 0 || fInCall_ToneAnalyze) return;
  lg(LOG_NOTICE, "[%d] Voice detected", iChannel);
  fInCall_Extra = true;
  fInCall_ToneAnalyze = true;
  InCallMaybeChanged();
}

void DST_Channel::OnDtmf(char ch) {
  lg(LOG_NOTICE, "[%d] TDM DTMF detected: %c", iChannel, ch);
  if (fDetectDtmf) DetectedDigit(ch);
  (void)SsmClearRxDtmfBuf(iDrvCh);
}

void DST_Channel::OnChState(int iState) {
  lg(LOG_NOTICE, "[%d] Channel state: %d %s", iChannel, iState, GetChannelStateDescr(iState));
  if (!IsChStateDisconnected(iState)) return;
  CallIsFinished();
  InCallMaybeChanged();
  ClearInfo();
}

void DST_Channel::OnBargeIn(bool fSound) {
  const time_t rNow = GetSrTime();
  if (!fUseAudioDetection) {
    const bool isNews = rNow - rAudioNotice > AUDIO_NOTICE_PAUSE_S && rNow - rCallStopTime > AUDIO_NOTICE_AFTER_CALL_S;
    if (fSound && !fCallBusy && isNews) {
      lg(LOG_NOTICE, "[%d] Voice detected outside of call", iChannel);
      rAudioNotice = rNow;
    }
    return;
  }
  if (!fSound) {
    if (fAudio) rStartSilence = rNow;
    fAudio = false;
    return;
  }
  if (fAudio) return;
  fInCall_Audio = true;
  fAudio = true;
  InCallMaybeChanged();
}

void DST_Channel::OnDChannel(const SSM_EVENT& rEvent) {
  static constexpr DMsgRow rOther = {0, &DST_Channel::OnOther};
  const DMsgRow* prRow = std::find_if(std::begin(rDMsgRows), std::end(rDMsgRows),
                                      [&](const DMsgRow& rRow) { return rRow.dwCode == rEvent.dwParam; });
  if (prRow == std::end(rDMsgRows)) prRow = &rOther;
  if (prRow->On != nullptr) (this->*prRow->On)(rEvent);
  CheckConditions(rEvent.dwParam, prRow->Filter(rEvent.dwSubReason));
}

// A site teaches the recorder new signals of its PBX by these conditions. A stop condition outside a call falls through
// to the start condition, so one message may serve as both.
void DST_Channel::CheckConditions(DWORD dwCode, DWORD dwValue) {
  if (prRecorder->IsBoardStopCondition(iBoardListIx, dwCode, dwValue) && InCall()) {
    lg(LOG_NOTICE, "[%d] Soft stop condition", iChannel);
    fInCall_Extra = false;  // soft: a call that another flag holds goes on
    InCallMaybeChanged();
  } else if (prRecorder->IsBoardStartCondition(iBoardListIx, dwCode, dwValue)) {
    lg(LOG_NOTICE, "[%d] Start condition", iChannel);
    fInCall_Extra = true;
    InCallMaybeChanged();
  }
  if (prRecorder->IsBoardRingOnCondition(iBoardListIx, dwCode, dwValue)) {
    lg(LOG_NOTICE, "[%d] Ring ON condition", iChannel);
    RingingStarted();
  }
  if (prRecorder->IsBoardRingOffCondition(iBoardListIx, dwCode, dwValue)) {
    lg(LOG_NOTICE, "[%d] Ring OFF condition", iChannel);
    RingingStopped();
  }
}

// -- D-channel messages -----------------------------------------------------------------------------------------------

void DST_Channel::OnOther(const SSM_EVENT& rEvent) {
  lg(LOG_NOTICE, "[%d] Other D-channel event %x.%x", iChannel, rEvent.dwParam, rEvent.dwSubReason);
}

void DST_Channel::OnOffHook(const SSM_EVENT& /*rEvent*/) {
  lg(LOG_NOTICE, "[%d] Off hook", iChannel);
  fInCall_Offhook = true;
  InCallMaybeChanged();
}

void DST_Channel::OnOnHook(const SSM_EVENT& /*rEvent*/) {
  lg(LOG_NOTICE, "[%d] On hook", iChannel);
  CallIsFinished();
  InCallMaybeChanged();
}

void DST_Channel::OnReleaseButton(const SSM_EVENT& /*rEvent*/) {
  lg(LOG_NOTICE, "[%d] Release button", iChannel);
  CallIsFinished();
  InCallMaybeChanged();
}

void DST_Channel::OnKeyDigit(const SSM_EVENT& rEvent) {
  DetectedDigit(static_cast<char>(LowByte(rEvent.dwSubReason)));
  // The display showed the local number one digit short just before: this was its last digit.
  const bool isLastIdDigit = fLocalIdDetect && strDigits.size() == static_cast<std::size_t>(iLocalNumSize) &&
                             GetSrTime() - rAlmostLocalNum < LAST_ID_DIGIT_WITHIN_S;
  if (!isLastIdDigit) return;
  rAlmostLocalNum = 0;
  strLocalNum = strDigits;
  fUseLocalNum = true;
  lg(LOG_NOTICE, "[%d] Local ID: %s", iChannel, strLocalNum.c_str());
}

void DST_Channel::OnDisplay(const SSM_EVENT& rEvent) {
  CopyEventText(rEvent, acPhoneDisp, DISPLAY_TEXT_BYTES);
  lg(LOG_NOTICE, "[%d] Message change:%s", iChannel, acPhoneDisp);
  const bool isAlwaysAnalysed = InMuteMode() || iPbxType == PBX_PANASONIC || iPbxType == PBX_BELGACOM;
  if (isAlwaysAnalysed || fCallBusy || fRinging || rLastRing == GetSrTime()) {
    AnalyseCID();
  } else {
    AnalyseCID_ForReset();
  }
}

void DST_Channel::OnFunctionButton(const SSM_EVENT& rEvent) {
  const unsigned iButton = LowByte(rEvent.dwSubReason);
  lg(LOG_NOTICE, "[%d] Function button %u (%x.%x)", iChannel, iButton, rEvent.dwParam, iButton);
}

void DST_Channel::OnSoftButton(const SSM_EVENT& rEvent) {
  const unsigned iButton = LowByte(rEvent.dwSubReason);
  lg(LOG_NOTICE, "[%d] Soft button %u (%x.%x)", iChannel, iButton, rEvent.dwParam, iButton);
}

void DST_Channel::OnFeatureButton(const SSM_EVENT& rEvent) {
  lg(LOG_NOTICE, "[%d] Feature button (%x.%x)", iChannel, rEvent.dwParam, rEvent.dwSubReason);
}

void DST_Channel::OnLineButton(const SSM_EVENT& /*rEvent*/) {
  lg(LOG_NOTICE, "[%d] Line button", iChannel);
}

void DST_Channel::OnRingOn(const SSM_EVENT& rEvent) {
  lg(LOG_NOTICE, "[%d] Ring on (%x)", iChannel, rEvent.dwParam);
  RingingStarted();
}

void DST_Channel::OnRingOff(const SSM_EVENT& rEvent) {
  lg(LOG_NOTICE, "[%d] Ring off (%x)", iChannel, rEvent.dwParam);
  RingingStopped();
}

void DST_Channel::OnAudioChange(const SSM_EVENT& rEvent) {
  const DWORD dwAudio = rEvent.dwSubReason;
  lg(LOG_NOTICE, "[%d] Audio change %d", iChannel, static_cast<int>(dwAudio));
  switch (iTdmStart) {
    case TDM_START_DEFAULT:
      if (iPbxType == PBX_NEC && dwAudio == NEC_AUDIO_IGNORED) break;
      fInCall_DChannel = dwAudio != 0;
      InCallMaybeChanged();
      break;
    case TDM_START_AUCH:
      if (dwAudio == 0) {
        CallIsFinished();
      } else {
        fInCall_DChannel = true;
      }
      InCallMaybeChanged();
      break;
    case TDM_START_MUTELT:
    case TDM_START_MUTELT_AND_TONE:
      OnAudioChangeInMuteMode(dwAudio != 0);
      break;
    default:  // a mode that does not exist: audio says nothing
      break;
  }
}

// Audio alone starts a call only when it outlasts its first second (Periodic), and ends one unless it was a short burst
// with the light off.
void DST_Channel::OnAudioChangeInMuteMode(bool fOn) {
  if (fOn) {
    if (!fAudioState) rAudioStartTime = GetSrTime();
    fAudioMaybeDelayStart = true;
  } else if (iMuteLightState != 0 || GetSrTime() - rAudioStartTime > SHORT_AUDIO_BURST_S) {
    CallIsFinished();
    InCallMaybeChanged();
  }
  fAudioState = fOn;
}

// The sense of the light is deliberate: it goes off for a live call, and comes on when the call is over.
void DST_Channel::OnMuteLightOff(const SSM_EVENT& /*rEvent*/) {
  lg(LOG_NOTICE, "[%d] MuteLight off", iChannel);
  iMuteLightState = 0;
  if (iTdmStart != TDM_START_MUTELT) return;
  fInCall_Extra = true;
  InCallMaybeChanged();
}

void DST_Channel::OnMuteLightOn(const SSM_EVENT& /*rEvent*/) {
  lg(LOG_NOTICE, "[%d] MuteLight ON", iChannel);
  iMuteLightState = 1;
  if (!InMuteMode()) return;
  CallIsFinished();
  InCallMaybeChanged();
}

void DST_Channel::OnChangeLocal(const SSM_EVENT& rEvent) {
  CopyEventText(rEvent, strChangeLocalNum, DISPLAY_TEXT_BYTES);
  lg(LOG_NOTICE, "[%d] Change Local Number: %s", iChannel, strChangeLocalNum);
  const std::list<std::string> astrElements = getElements(strChangeLocalNum);
  auto it = astrElements.begin();
  const auto Next = [&] { return it == astrElements.end() ? std::string() : *it++; };
  const std::string strLocalPhoneNum = Next();
  const std::string strRemotePhoneNum = Next();
  const bool bStopstart = it != astrElements.end() && *it != "0";
  LocalNumberChanged(strLocalPhoneNum, strRemotePhoneNum, bStopstart);
}
