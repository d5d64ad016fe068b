// OpenTelephone: a station line with what it keeps to itself open to a test: all that an analysis reads and writes, and
// the fields that no message writes.
#pragma once

#include "DstChannel.h"
#include "OpenChannel.h"

class OpenTelephone : public OpenChannel<DST_Channel> {
 public:
  using DST_Channel::acPhoneDisp;
  using DST_Channel::AnalyseCID;
  using DST_Channel::AnalyseCID_ForReset;
  using DST_Channel::AnalyseCIDsub;
  using DST_Channel::CallIsFinished;
  using DST_Channel::CheckForName;
  using DST_Channel::fAllowEqualRemoteLenChange;
  using DST_Channel::fCheckForMultipleTelNum;
  using DST_Channel::fInCall_ToneAnalyze;
  using DST_Channel::fLateChange;
  using DST_Channel::fOnHold;
  using DST_Channel::fSpecial_Pilot;
  using DST_Channel::HandleIsdnCallInfo;
  using DST_Channel::iLocalNumSize;
  using DST_Channel::iPbxType;
  using DST_Channel::iSilenceTimeOut;
  using DST_Channel::iTdmStart;
  using DST_Channel::rAlmostLocalNum;
  using DST_Channel::rLoginBusy;
  using DST_Channel::strChangeLocalNum;
  using DST_Channel::strLocalName;
  using DST_Channel::vBusyCalls;
};
