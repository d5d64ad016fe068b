// PriChannel: one direction of a tapped ISDN primary-rate circuit. The card's signalling monitor gives state, direction
// and numbers for certain. The two channels of a circuit pair up: the base records, the linked side feeds it.
// Threads:   main only; base and linked side talk through ICRecorder in plain calls.
#pragma once

#include "BaseChannel.h"

// States of a circuit, as the card reports them.
enum EPriState {
  PRI_IDLE = S_SPY_STANDBY,
  PRI_RING = S_SPY_RINGING,
  PRI_TALK = S_SPY_TALKING,
  PRI_UNAVAILABLE = S_SPY_UNAVAILABLE,
  PRI_NUMB = S_SPY_RCVPHONUM,
};
const char* GetPriStateDescr(int iState);

class PRI_Channel : public BaseChannel {
 public:
  PRI_Channel();

  void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh) override;
  void HandleEvent(SSM_EVENT* prEvent) override;

  int iCic = -1;  // circuit number, which the recorder sets

 protected:
  // A circuit of one side has nothing for the second channel of a file.
  bool CanStereo() override { return iLinkedCh != -1; }
  int GetWaitTime() override;
  bool GetNewRecOnDmd() override;

 private:
  void OnDigit(char ch);
  void OnSpyState(int iCur, int iPrev);
  void OnRinging();
  // Direction, numbers and partner of the call that starts.
  void OnTalking();
  void ReportAvailability(bool fNewChAvail);

  bool fChAvail = false;        // last availability reported
  bool fChAvailUnknown = true;  // nothing reported yet
  bool fSwapSides = false;      // the tap is wired in reverse
};
