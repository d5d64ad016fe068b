// OpenChannel: a channel of some kind with what it keeps to itself open to a test, as a class of its own so that the
// channel needs not know the tests. Of any other channel the same can be read by pointers to members:
//   rChannel.*&OpenChannel<BaseChannel>::iDrvCh
#pragma once

#include "BaseChannel.h"

template <class Channel>
class OpenChannel : public Channel {
 public:
  using Channel::acRecordBuf;
  using Channel::AlwaysClearInfo;
  using Channel::BasicRecordingPreparation;
  using Channel::CanStereo;
  using Channel::ChangeLocalNum;
  using Channel::CheckDigitsExpired;
  using Channel::CheckRemoteExpired;
  using Channel::ClearInfo;
  using Channel::DefaultEventHandle;
  using Channel::DetectedDigit;
  using Channel::DtmfAction;
  using Channel::fCalcLoudness;
  using Channel::fCallBusy;
  using Channel::fDigitFreeze;
  using Channel::fDontRecord;
  using Channel::fHasConnectedNum;
  using Channel::fHighSwitchedOff;
  using Channel::FillCallInfo;
  using Channel::fInCall_ChState;
  using Channel::fIncoming;
  using Channel::fKnowIncoming;
  using Channel::fRecOnDmd;
  using Channel::fRecording;
  using Channel::fResetLocalNum;
  using Channel::fRinging;
  using Channel::fRingsUntilPickup;
  using Channel::fSilencing;
  using Channel::fToEmail;
  using Channel::fUsePressedDigitsForRemote;
  using Channel::GetNewRecOnDmd;
  using Channel::iActiveCallID;
  using Channel::iBaseCh;
  using Channel::iBaseRecCh;
  using Channel::iBoardCh;
  using Channel::iBoardListIx;
  using Channel::iChIx;
  using Channel::iDrvCh;
  using Channel::iDuration;
  using Channel::iLast_dB;
  using Channel::iLinkedCh;
  using Channel::iMixBufIx;
  using Channel::InCall;
  using Channel::InCallMaybeChanged;
  using Channel::iRecordByteCnt;
  using Channel::iRecSource;
  using Channel::MayStartRecording;
  using Channel::NewLineHealth;
  using Channel::OpenAudioFile;
  using Channel::PhoneNumberChanged;
  using Channel::prRecorder;
  using Channel::QRecOnDmd;
  using Channel::rCallStopTime;
  using Channel::RemoteNumberChanged;
  using Channel::rFirstRing;
  using Channel::RingingStarted;
  using Channel::RingingStopped;
  using Channel::rLastRing;
  using Channel::rRemoteNumTime;
  using Channel::rStartTime;
  using Channel::strArchiveFilename;
  using Channel::strConnectedNum;
  using Channel::strDigits;
  using Channel::strFilename;
  using Channel::strFullFilename;
  using Channel::strFullFilenameFinal;
  using Channel::strLocalNum;
  using Channel::strNonMonitoredNum;
  using Channel::strPrevCallRemoteNum;
  using Channel::strPrevConnectedNum;
  using Channel::strPrevRemoteNum;
  using Channel::strRemoteNum;
  using Channel::TryStartRecording;
  using Channel::WhenDigitExpiring;
  using Channel::WhenNewRing;
  using Channel::WriteMemRange;
};
