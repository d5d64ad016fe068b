// From rings and call states to a call: when it starts and stops, in which direction it goes, how long it rang.
// A subclass reports ring edges and everything that may change InCall(); InCallMaybeChanged is the one door through
// which a call starts or stops, and compares the answer of InCall() with what was known. Times are GetSrTime() seconds.
//
//   state    fCallBusy  fRinging                    leaves it by
//   idle     false      false                       RingingStarted, InCall() true
//   ringing  false      true                        RingingStopped, InCall() true
//   rang     false      false, rFirstRing not 0     RingingStarted: same call, or a new one after RING_PAUSE_NEW_CALL_S
//   busy     true       either                      InCall() false; a ring here only moves the ring times
#include "BaseChannel.h"

#include <syslog.h>

#include "ftime.h"
#include "logging.h"
#include "shpa3link.h"

namespace {

constexpr time_t RING_PAUSE_NEW_CALL_S = 10;  // a ring after a longer pause belongs to a new call
constexpr time_t RING_ANSWERED_WITHIN_S = 6;  // a call that starts sooner after the last ring was answered
constexpr time_t DIALLED_WITHIN_S = 10;       // no digit for longer than this: the call was not dialled from here
constexpr time_t REMOTE_NUM_EXPIRY_S = 11;    // a remote number this old no longer belongs to a coming call

}  // namespace

// -- ringing ----------------------------------------------------------------------------------------------------------

void BaseChannel::RingingStarted() {
  const time_t rNow = GetSrTime();
  const bool isAfterPause = rLastRing != 0 && rNow - rLastRing > RING_PAUSE_NEW_CALL_S;
  const bool isNewRing = rFirstRing == 0 || isAfterPause;
  if (isNewRing) DropStaleOrder();  // while not yet ringing: a number of long ago announces no other call
  fRinging = true;
  if (isNewRing) {
    rFirstRing = rNow;
    WhenNewRing();
  }
  rLastRing = rNow;
  CheckRemoteExpired();  // drops nothing, as a number does not age while it rings; see RingDropsNoNumberByItself
}

void BaseChannel::RingingStopped() {
  if (!fRinging) return;
  fRinging = false;
  rLastRing = GetSrTime();
  if (fCallBusy || !fRingsUntilPickup) return;
  // The caller gave up.
  lg(LOG_NOTICE, "[%d] Ringing stopped, remote num. expired", iChannel);
  rFirstRing = 0;
  RemoteExpired();
}

int BaseChannel::GetWaitTime() {
  if (!fIncoming || rFirstRing == 0) return -1;
  return static_cast<int>(GetSrTime() - rFirstRing);
}

// -- age of the remote number -----------------------------------------------------------------------------------------

time_t BaseChannel::GetRemoteNumTime() {
  return fRinging ? GetSrTime() : rRemoteNumTime;
}

void BaseChannel::CheckRemoteExpired() {
  if (fCallBusy || rRemoteNumTime == 0) return;
  const time_t iAge = GetSrTime() - GetRemoteNumTime();
  if (iAge < REMOTE_NUM_EXPIRY_S) return;
  lg(LOG_NOTICE, "[%d] Remote expired, %d seconds old", iChannel, static_cast<int>(iAge));
  RemoteExpired();
}

// Its number has come since the last call, and is not too old for it.
bool BaseChannel::IsCallComing() {
  const bool isNew = !strRemoteNum.empty() && fRemoteNumIsNew;
  return isNew && GetSrTime() - GetRemoteNumTime() < REMOTE_NUM_EXPIRY_S;
}

void BaseChannel::RemoteNumberTold() {
  rRemoteNumTime = GetSrTime();
  fRemoteNumIsNew = true;
}

// Not told as a change: there is no call whose row or rules it could concern, and an empty number has no age.
void BaseChannel::RemoteExpired() {
  strPrevRemoteNum.clear();
  strRemoteNum.clear();
  rRemoteNumTime = 0;
}

// -- start and stop ---------------------------------------------------------------------------------------------------

void BaseChannel::InCallMaybeChanged() {
  const bool fCallBusyToSet = InCall();
  if (fCallBusyToSet == fCallBusy) return;
  if (fCallBusyToSet) {
    lg(LOG_NOTICE, "[%d] Call starts", iChannel);
    CheckRemoteExpired();  // while not yet busy: the number of a call long gone is not taken for this one
    TakeWaitingOrder();    // likewise: the call starts with it, and is not cut
    fCallBusy = true;
    WhenCallStarts();
  } else {
    lg(LOG_NOTICE, "[%d] Call stops", iChannel);
    CheckDigitsExpired(/*fForceExpired=*/true);  // while still busy: a dialled number reaches the row of this call
    fCallBusy = false;
    strPrevCallRemoteNum = strRemoteNum;
    WhenCallStops();
  }
}

void BaseChannel::WhenCallStarts() {
  fDigitFreeze = false;
  const bool fTold = !fKnowIncoming && GuessDirection();
  iWaitTime = GetWaitTime();
  if (!fTold) {
    if (fIncoming) {
      lg(LOG_NOTICE, "[%d] Incoming call, ringing time: %d", iChannel, iWaitTime);
    } else {
      lg(LOG_NOTICE, "[%d] Outgoing call", iChannel);
    }
  }
  TryStartRecording();
}

bool BaseChannel::GuessDirection() {
  fIncoming = fRinging;
  if (fRinging || fRingsUntilPickup) return false;
  // On this kind of line the ring ends before the pick-up is seen.
  const time_t rNow = GetSrTime();
  if (rNow - rLastRing >= RING_ANSWERED_WITHIN_S || rNow - rDigitTime <= DIALLED_WITHIN_S) return false;
  fIncoming = true;
  lg(LOG_NOTICE, "[%d] Incoming, last ring: %d s. ago", iChannel, static_cast<int>(rNow - rLastRing));
  return true;
}

void BaseChannel::WhenCallStops() {
  rCallStopTime = GetSrTime();
  fRemoteNumIsNew = false;
  FinalizeRecording(/*fClearInfo=*/true);
  strDbRemoteId.clear();  // what is ordered for this call from here on comes too late
  ClearLoudAlarm();       // of a call too short to be forgotten: the alarm has no call to name any more
  WhenCallIsOver();
  (void)SsmClearCallerId(iDrvCh);  // nothing to be done about a failure: the next caller id replaces this one
  // What the card has gathered of R2 signalling, in which exchanges pass numbers on digit by digit, as pairs of tones.
  if (SsmClearR2callToneBuf_FP != nullptr) (void)SsmClearR2callToneBuf_FP(iDrvCh);
}

void BaseChannel::LogNoCall() const {
  lg(LOG_NOTICE, "[%d] No active call for this channel", iChannel);
}

// Neither judges digits nor keeps strPrevCallRemoteNum: no call comes after this one.
void BaseChannel::EndOfCall() {
  fCallBusy = false;
  WhenCallStops();
}
