// AnalogChannel: an analogue line of a tap card: hook state, caller id, DTMF, tones and sound energy.
// When a call exists is decided by the setting "Trigger": hook state, voice, never or always.
// Threads:   main only.
#pragma once

#include "BaseChannel.h"

enum EAnalogTrigger { TRIGGER_OFFHOOK = 1, TRIGGER_VOICE = 2, TRIGGER_OFF = 3, TRIGGER_ALWAYS = 4 };

class AnalogChannel : public BaseChannel {
 public:
  AnalogChannel();

  void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh) override;
  void HandleEvent(SSM_EVENT* prEvent) override;
  void Periodic() override;
  bool InCall() override;
  int WriteChState() override;

  int m_iLastTone = 0;        // last value of tone analysis; 0: none
  bool fInCall_Audio = false;  // in a call by voice detection
  bool fAudio = false;         // sound is present now
  time_t rStartSilence = 0;    // when the last silence began
  int iSilenceTimeOut = 8;     // seconds of silence that end a voice-triggered call
  int iTriggerType = TRIGGER_VOICE;
  int iVoltage = -999;         // last line voltage; -999: none
  bool fIsNumLocked = false;   // the number came from an R2 split, and no caller id replaces it
  bool fR2NumSplit = false;    // 13-character caller ids hold both parties

 private:
  void OnChState(int iNewState);
  void OnCallerId();
  void OnToneAnalyze(int iTone);
  void OnBargeIn(bool fSound);
};
