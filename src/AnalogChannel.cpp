// What the events of an analogue tap mean for the call. Each event sets its own flag and calls InCallMaybeChanged;
// InCall() answers by the trigger type, so the flags of the other types are kept without effect.
//
//   flag             set by                               cleared by
//   fInCall_ChState  off hook                             any other state but "recording"
//   fInCall_Audio    sound begins, StartSilentCall        Periodic, after iSilenceTimeOut seconds of silence
//   fAudio           sound begins                         sound ends, StartSilentCall
#include "AnalogChannel.h"

#include <syslog.h>

#include "logging.h"

namespace {

// A caller id of the R2 form: six characters of the remote party, one between, six of the local party.
constexpr std::size_t R2_PARTY_CHARS = 6;
constexpr std::size_t R2_LOCAL_POS = 7;
constexpr std::size_t R2_CHARS = 13;

std::string TriggerText(int iTriggerType, int iSilenceTimeOut) {
  switch (iTriggerType) {
    case TRIGGER_OFFHOOK:
      return "Off-hook";
    case TRIGGER_VOICE:
      return "Voice detect, time-out " + std::to_string(iSilenceTimeOut) + " s";
    case TRIGGER_OFF:
      return "OFF";
    case TRIGGER_ALWAYS:
      return "Always";
    default:  // a setting that makes no sense: nothing is recorded, see InCall
      return "";
  }
}

}  // namespace

AnalogChannel::AnalogChannel() {
  iRecSource = SOURCE_ANALOG;
  fUsePressedDigitsForRemote = true;
}

void AnalogChannel::Init(int iChannelNr, int iBoardListIndex, int iBoardChannel, ICRecorder* prOwner, int iDriverCh) {
  BaseChannel::Init(iChannelNr, iBoardListIndex, iBoardChannel, prOwner, iDriverCh);
  iTriggerType = ChannelSetting("Trigger");
  iSilenceTimeOut = ChannelSetting("SilenceTimeOut");
  const bool fAGC = ChannelSetting("AGC") != 0;
  const int iAmplify = ChannelSetting("Amplify");
  fR2NumSplit = prRecorder->GetParamInt("R2NumSplit") != 0;

  (void)SsmSetRecVolume(iDrvCh, iAmplify);  // a card that cannot be adjusted records all the same
  (void)SsmSetRecAGC(iDrvCh, fAGC ? 1 : 0);
  const std::string strTrigger = TriggerText(iTriggerType, iSilenceTimeOut);
  lg(LOG_NOTICE, "[%d] Analog settings: %s%s", iChannel, strTrigger.c_str(), fAGC ? ", AGC" : "");
}

bool AnalogChannel::InCall() {
  switch (iTriggerType) {
    case TRIGGER_OFFHOOK:
      return fInCall_ChState;
    case TRIGGER_VOICE:
      return fInCall_Audio;
    case TRIGGER_ALWAYS:
      return true;
    default:  // TRIGGER_OFF, and a setting that makes no sense
      return false;
  }
}

// -- events -----------------------------------------------------------------------------------------------------------

void AnalogChannel::HandleEvent(SSM_EVENT* prEvent) {
  BaseChannel::HandleEvent(prEvent);
  switch (prEvent->wEventCode) {
    case E_CHG_RcvDTMF:
      OnDigit(static_cast<char>(LowByte(prEvent->dwParam)));
      break;
    case E_CHG_ChState:
      OnChState(static_cast<int>(LowWord(prEvent->dwParam)));
      break;
    case E_CHG_CIDExBuf:
      OnCallerId();
      break;
    case E_CHG_FlashCount:
      lg(LOG_NOTICE, "[%d] Hook flash detected", iChannel);
      break;
    case E_CHG_ToneAnalyze:
      OnToneAnalyze(static_cast<int>(LowByte(prEvent->dwParam)));
      break;
    case E_SYS_BargeIn:
      OnBargeIn(prEvent->dwParam == BARGE_IN_SOUND);
      break;
    case E_SYS_NoSound:
      lg(LOG_NOTICE, "[%d] Analog No Sound Detected", iChannel);
      break;
    default:
      DefaultEventHandle(prEvent);
      break;
  }
}

void AnalogChannel::OnDigit(char ch) {
  lg(LOG_NOTICE, "[%d] Analog DTMF detected: %c", iChannel, ch);
  DetectedDigit(ch);
  (void)SsmClearRxDtmfBuf(iDrvCh);
}

void AnalogChannel::OnChState(int iNewState) {
  lg(LOG_NOTICE, "[%d] Analog channel state: %d %s", iChannel, iNewState, GetChannelStateDescr(iNewState));
  if (iNewState == S_CALL_RINGING) {
    RingingStarted();
  } else {
    if (fRinging) RingingStopped();
    if (iNewState == S_DTRC_ACTIVE) return;  // the card's own recording state says nothing about the call
  }
  fInCall_ChState = iNewState == S_CALL_PICKUPED;
  InCallMaybeChanged();
}

void AnalogChannel::OnCallerId() {
  const char* acCallerId = SsmGetCallerIdA(iDrvCh);
  if (acCallerId == nullptr || *acCallerId == '\0') return;
  const std::string strDetectCID = acCallerId;
  lg(LOG_NOTICE, "[%d] Analog caller ID: %s", iChannel, strDetectCID.c_str());
  if (strDetectCID.size() <= 1) return;  // no number is that short

  if (fR2NumSplit && strDetectCID.size() == R2_CHARS) {
    ChangeLocalNum(strDetectCID.substr(R2_LOCAL_POS));
    fIsNumLocked = true;
    SetRemoteNum(strDetectCID.substr(0, R2_PARTY_CHARS));
  }
  if (!fIsNumLocked) SetRemoteNum(strDetectCID);
}

void AnalogChannel::OnToneAnalyze(int iTone) {
  if (iTone == m_iLastTone) return;
  lg(LOG_NOTICE, "[%d] Analog ToneAnalyze: %d %s", iChannel, iTone, GetToneDescr(iTone));
  fHighSwitchedOff = iTone == TONE_DIAL || iTone == TONE_BUSY || iTone == TONE_RINGBACK;
  if (prRecorder->fDebugRepeatRecord && iTone == TONE_NO_SOUND && !InCall()) StartSilentCall();
  m_iLastTone = iTone;
}

void AnalogChannel::OnBargeIn(bool fSound) {
  if (fSound && !fAudio) {
    fInCall_Audio = true;
    fAudio = true;
    InCallMaybeChanged();
  } else if (!fSound && fAudio) {
    rStartSilence = time(nullptr);
    fAudio = false;
  }
}

// -- each second ------------------------------------------------------------------------------------------------------

void AnalogChannel::Periodic() {
  BaseChannel::Periodic();
  if (iTriggerType == TRIGGER_ALWAYS) {
    InCallMaybeChanged();  // the first second of the line starts its one call
    return;
  }
  iVoltage = SsmGetLineVoltage(iDrvCh);
  // By the wall clock and not by GetSrTime: kept as it is, since the daemon has one clock for both.
  if (fInCall_Audio && !fAudio && time(nullptr) - rStartSilence >= iSilenceTimeOut) SilenceTimedOut();
}

void AnalogChannel::SilenceTimedOut() {
  if (iTriggerType == TRIGGER_VOICE) lg(LOG_NOTICE, "[%d] Silence time out (%d s)", iChannel, iSilenceTimeOut);
  fInCall_Audio = false;
  InCallMaybeChanged();
  if (prRecorder->fDebugRepeatRecord) StartSilentCall();
}

void AnalogChannel::StartSilentCall() {
  fInCall_Audio = true;
  fAudio = false;
  rStartSilence = time(nullptr);
  InCallMaybeChanged();
}

// -- state file -------------------------------------------------------------------------------------------------------

int AnalogChannel::WriteChState() {
  return WriteStateFile(iVoltage == NO_VOLTAGE ? "" : "Voltage: " + std::to_string(iVoltage) + "\r\n");
}
