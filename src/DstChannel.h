// DstChannel: a digital station line between a PBX and a system telephone. There is no ring voltage and no signalling
// standard here: calls are inferred from hook, lamps, keys, display text and audio, numbers are read from the display.
// The means differ by PBX (strPbxType, iPbxType) and by the setting "TdmStart" (iTdmStart).
// Topics:    DstChannel.cpp events and calls, DstChannel_display.cpp numbers from the display, DstChannel_isdn.cpp
//            call phases of telephones that speak ISDN-like signalling.
// Threads:   main only.
#pragma once

#include <vector>

#include "BaseChannel.h"

enum EPbxType {
  PBX_UNDEF = 0,
  PBX_NEC = 1,
  PBX_PANASONIC = 2,
  PBX_SIEMENS = 3,
  PBX_BELGACOM = 4,
  PBX_ALCATEL = 5,
  PBX_A5000 = 6,
  PBX_TENOVIS = 7,
  PBX_TENOVIS_ISDN = 8,
};

enum ETdmStart {
  TDM_START_DEFAULT = 0,
  TDM_START_MUTELT = 1,
  TDM_START_AUCH = 2,
  TDM_START_MUTELT_AND_TONE = 3,
};

// One connected call of a telephone that can hold several.
struct BusyCall {
  std::string strRemote;
  bool fIncoming = false;
};

// Record of an ISDN call, as the card hands it over in pvBuffer; little-endian.
struct ISDN_CALL_INFO {
  DWORD CallRef = 0;     // not used here
  DWORD CallSource = 0;  // 1: the call comes in; any other value: it goes out
  DWORD Cause = 0;       // not used here
  char CallerNumber[32] = {};
  char CallerSubAddr[32] = {};
  char CalledNumber[32] = {};
  char CalledSubAddr[32] = {};
  char ConnectNumber[32] = {};
  char ConnectSubAddr[32] = {};
};
static_assert(sizeof(ISDN_CALL_INFO) == 204, "size of the card's ISDN call record");
static_assert(offsetof(ISDN_CALL_INFO, CallerNumber) == 12 && offsetof(ISDN_CALL_INFO, CalledNumber) == 76, "layout");
static_assert(offsetof(ISDN_CALL_INFO, ConnectNumber) == 140, "layout");

// True when the 4-digit number at yearpos is the year of a date.
bool IsDateInStrYearPos(const char* buffer, int yearpos);

class DST_Channel : public BaseChannel {
 public:
  DST_Channel();

  // -- events and calls (DstChannel.cpp) ------------------------------------------------------------------------
  void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh) override;
  void HandleEvent(SSM_EVENT* prEvent) override;
  void Periodic() override;
  bool InCall() override;
  void Finalize() override;
  void ClearInfo() override;
  int WriteChState() override;
  void WhenDigitExpiring() override;
  void WhenNewRing() override;
  // Clears every in-call flag and the digits; the caller runs InCallMaybeChanged.
  void CallIsFinished();

  // -- numbers from the display (DstChannel_display.cpp) --------------------------------------------------------
  void AnalyseCID();
  void AnalyseCID_ForReset();
  bool AnalyseCIDsub(std::string& strRemoteNum);
  bool CheckForName(std::string& strParamId2);
  bool ExtractA5000Name(const char* acPhoneDisp, std::string& strName);

  // -- ISDN call phases (DstChannel_isdn.cpp) -------------------------------------------------------------------
  void AnalyseBriCID();
  void HandleIsdnCallInfo(DWORD eventCode, const ISDN_CALL_INFO* prCallInfo);
  bool DetermineBriLR(std::string& strLocalNum, std::string& strRemoteNum);
  void CallCancelled();
  bool IsInBusyRemotes(const std::string& strNum);
  void RemoveFromBusyRemotes(const std::string& strNum);

  char acPhoneDisp[301] = {};        // last display or D-channel text
  char strChangeLocalNum[301] = {};  // text of a change-local message
  bool fInCall_DChannel = false;     // call seen by audio-change or BRI messages
  std::vector<BusyCall> vBusyCalls;  // in the order of connection
  bool fInCall_Offhook = false;
  std::string strPbxType;
  bool fInCall_Audio = false;        // call seen by voice detection
  bool fAudio = false;               // voice is present now
  time_t rStartSilence = 0;          // when voice last stopped
  int iSilenceTimeOut = 15;          // seconds of silence that end an audio call
  bool fDetectDtmf = false;          // report DTMF from the audio path
  bool fMissedCalls = false;
  bool fUseAudioDetection = false;   // voice detection drives fInCall_Audio
  int iTdmStart = TDM_START_DEFAULT;
  bool fInCall_Extra = false;        // call by start condition, mute light or tone
  bool fInCall_ToneAnalyze = false;  // voice was found by tone analysis
  bool fOnHold = false;              // stretches the silence time-out
  bool fAudioState = false;          // last audio-change value was not zero
  bool fAudioMaybeDelayStart = false;
  time_t rAudioStartTime = 0;        // when audio-change last went from zero to not zero
  time_t rAlmostLocalNum = 0;        // when the local id was seen one digit short
  time_t rLoginBusy = 0;             // when the login text was seen
  int iLocalNumSize = 4;             // digits of a local id
  bool fLocalIdDetect = false;       // the local id is learnt from login digits
  int iMuteLightState = -1;          // -1 unknown, 0 off, 1 on
  time_t rAudioNotice = 0;           // last log of voice outside a call
  bool fSpecial_Pilot = false;       // enables CheckForName
  int iPbxType = PBX_UNDEF;
  bool fAllowEqualRemoteLenChange = false;
  bool fLateChange = true;           // that replacement stays allowed late in a call
  bool fCheckForMultipleTelNum = false;
  std::string strLocalName;          // name of the line's contact in the database
};
