// AnalogChannel: an analogue line of a tap card: hook state, caller id, DTMF, tones and sound energy.
// When a call exists is decided by the setting "Trigger": hook state, voice, never or always.
// Threads:   main only.
#pragma once

#include "BaseChannel.h"

// Values of the setting "Trigger": what makes a call.
enum EAnalogTrigger { TRIGGER_OFFHOOK = 1, TRIGGER_VOICE = 2, TRIGGER_OFF = 3, TRIGGER_ALWAYS = 4 };

constexpr int NO_VOLTAGE = -999;  // iVoltage before the first reading

class AnalogChannel : public BaseChannel {
 public:
  AnalogChannel();

  void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh) override;
  void HandleEvent(SSM_EVENT* prEvent) override;
  void Periodic() override;
  int WriteChState() override;

 protected:
  bool InCall() override;

  // The settings' fields have their start values up to Init alone.
  int m_iLastTone = 0;         // last value of tone analysis; 0: none
  bool fInCall_Audio = false;  // in a call by voice detection
  bool fAudio = false;         // sound is present now
  time_t rStartSilence = 0;    // when the last silence began; wall clock, unlike all times of BaseChannel
  int iSilenceTimeOut = 8;     // seconds of silence that end a voice-triggered call
  int iTriggerType = TRIGGER_VOICE;
  int iVoltage = NO_VOLTAGE;  // last line voltage; not read with TRIGGER_ALWAYS
  // An R2 split has been seen, so caller ids of any other form are not taken; holds for the life of the channel.
  bool fIsNumLocked = false;
  bool fR2NumSplit = false;  // 13-character caller ids hold both parties

 private:
  void OnDigit(char ch);
  void OnChState(int iNewState);
  void OnCallerId();
  void OnToneAnalyze(int iTone);
  void OnBargeIn(bool fSound);
  void SilenceTimedOut();
  void StartSilentCall();  // fDebugRepeatRecord: a call out of silence
};
