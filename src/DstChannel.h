// DstChannel: a digital station line between a PBX and a system telephone. There is no ring voltage and no signalling
// standard here: calls are inferred from hook, lamps, keys, display text and audio, numbers are read from the display.
// The means differ by PBX (strPbxType, iPbxType) and by the setting "TdmStart" (iTdmStart).
// Files:     DstChannel.cpp events and calls, DstChannel_display.cpp numbers from the display, DstChannel_isdn.cpp
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

// Longest display text that is looked at; what a telephone shows is shorter.
constexpr std::size_t DISPLAY_TEXT_BYTES = 300;
// Longest text of an ISDN call phase.
constexpr std::size_t BRI_TEXT_BYTES = EVENT_BUFFER_BYTES;

// One connected call of a telephone that can hold several.
struct BusyCall {
  std::string strRemote;
  bool fIncoming = false;
};

// Copies the event's data as a text of at most iMax characters; acTo has room for one more. Empty without data.
void CopyEventText(const SSM_EVENT& rEvent, char* acTo, std::size_t iMax);

// True when the number at yearpos is the year of a date such as "12.03.2015" or "12Mar 2015": two parts of letters and
// digits before it, one of them all digits.
bool IsDateInStrYearPos(const char* buffer, int yearpos);

// What a display scan asks of the line: settings and the state of its call.
struct DisplayScanRules {
  int iPbxType = PBX_UNDEF;
  bool fMuteMode = false;  // TDM_START_MUTELT or TDM_START_MUTELT_AND_TONE
  bool fCallBusy = false;
  int iBusyFor = -1;                          // seconds of the recording or attempt; -1 outside a call
  bool fDontOverwriteExistingNumber = false;  // late in the call, or a call-forward text is shown
  bool fAllowEqualRemoteLenChange = false;
  bool fLateChange = true;
  bool fCheckForMultipleTelNum = false;
  bool fRang = false;  // there was a ring in this call
  std::string strLocalNum, strLocalName, strPrevCallRemoteNum;
};

// What became of one number on the display.
enum EVerdict {
  VERDICT_TAKEN,              // it is the remote number
  VERDICT_TAKEN_MAY_IMPROVE,  // it is, and a better one may follow
  VERDICT_DTMF_TEXT,          // the display shows dialled tones
  VERDICT_NUMBER_STANDS,      // the number that is known stays: late in the call, or a call-forward text is shown
  VERDICT_TOO_SHORT,          // fewer than 3 digits
  VERDICT_NOT_LONGER,         // no longer than the number that is known
  VERDICT_AFTER_HAT,          // directly behind a "^"
  VERDICT_BEFORE_STOP,        // ends in a full stop, in the mute modes
  VERDICT_YEAR,               // the year of a date
  VERDICT_NOT_INTRODUCED,     // in the middle of a line, with nothing that introduces it
  VERDICT_OWN_NUMBER,         // the line's own
  VERDICT_IN_LINE_NAME,       // part of the line's own contact name
  VERDICT_PREVIOUS_CALL,      // the last call's number is still on the display
  VERDICTS,                   // how many there are
};
// The verdict in words, for people.
const char* GetVerdictDescr(EVerdict eVerdict);

// One number on a display, and what became of it.
struct JudgedNumber {
  std::string strNumber;
  EVerdict eVerdict;
};

// Looks for the remote number in a display text and stores it in strRemoteNum, which holds the number known so far.
// True when there is one to store. pvJudged: takes each number in the order of the text; not owned, may be null.
bool ScanDisplay(const char* acText, const DisplayScanRules& rRules, std::string& strRemoteNum,
                 std::vector<JudgedNumber>* pvJudged = nullptr);
// A text of nothing but letters and blanks, at least six characters to its last letter, is a name (Aastra 5000).
bool ExtractA5000Name(const char* acPhoneDisp, std::string& strName);

// Others create it, initialise it and hand it events. The protected part is open to tools and tests that set the line's
// state by hand or look at one step.
class DST_Channel : public BaseChannel {
 public:
  DST_Channel();

  void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh) override;
  void HandleEvent(SSM_EVENT* prEvent) override;
  void Periodic() override;
  void Finalize() override;
  int WriteChState() override;

 protected:
  // -- events and calls (DstChannel.cpp) ------------------------------------------------------------------------------
  bool InCall() override;
  void ClearInfo() override;
  void WhenDigitExpiring() override;
  void WhenNewRing() override;
  void WhenCallIsOver() override;
  // Clears every in-call flag and the digits; the caller runs InCallMaybeChanged.
  void CallIsFinished();

  // -- numbers from the display (DstChannel_display.cpp) --------------------------------------------------------------
  void AnalyseCID();
  void AnalyseCID_ForReset();
  bool AnalyseCIDsub(std::string& strRemoteNum);
  // A new name on the display, into strParamId2: the connected number, since a name in its place has a column.
  bool CheckForName(std::string& strParamId2);
  // What the scan asks of this line at this moment.
  DisplayScanRules ScanRules() const;

  // -- ISDN call phases (DstChannel_isdn.cpp) -------------------------------------------------------------------------
  void AnalyseBriCID();
  void HandleIsdnCallInfo(DWORD eventCode, const ISDN_CALL_INFO* prCallInfo);
  bool DetermineBriLR(std::string& strLocalNum, std::string& strRemoteNum);
  void CallCancelled();
  bool IsInBusyRemotes(const std::string& strNum);
  void RemoveFromBusyRemotes(const std::string& strNum);

  // -- settings and profile: Init alone, but DstChannel_isdn.cpp learns of PBX_TENOVIS_ISDN; read by all three files
  std::string strPbxType;
  int iPbxType = PBX_UNDEF;
  int iTdmStart = TDM_START_DEFAULT;
  int iSilenceTimeOut = 15;         // seconds of silence that end an audio call
  bool fUseAudioDetection = false;  // voice detection drives fInCall_Audio
  bool fDetectDtmf = false;         // report DTMF from the audio path
  bool fMissedCalls = false;
  bool fSpecial_Pilot = false;  // enables CheckForName
  bool fAllowEqualRemoteLenChange = false;
  bool fLateChange = true;  // that replacement stays allowed late in a call
  bool fCheckForMultipleTelNum = false;
  std::string strLocalName;     // name of the line's contact in the database
  bool fLocalIdDetect = false;  // the local number is learnt from login digits; the log calls it local id
  int iLocalNumSize = 4;        // its digits at the login prompt, as MAX_LOGIN_DIGITS; see MIN_LOCAL_ID_DIGITS

  // -- in-call flags: DstChannel.cpp, which has their table; DstChannel_isdn.cpp sets fInCall_DChannel
  bool fInCall_DChannel = false;  // call seen by audio-change or BRI messages
  bool fInCall_Offhook = false;
  bool fInCall_Audio = false;        // call seen by voice detection
  bool fInCall_Extra = false;        // call by start condition, mute light or tone
  bool fInCall_ToneAnalyze = false;  // voice was found by tone analysis; no part of InCall

  // -- audio and mute light: DstChannel.cpp alone
  bool fAudio = false;  // voice is present now
  // When voice last stopped, by GetSrTime, which SetSimTime moves; the same field of AnalogChannel is wall clock.
  time_t rStartSilence = 0;
  bool fOnHold = false;      // stretches the silence time-out; nothing sets it, no message tells of a hold
  bool fAudioState = false;  // last audio-change value was not zero
  bool fAudioMaybeDelayStart = false;
  time_t rAudioStartTime = 0;  // when audio-change last went from zero to not zero
  time_t rAudioNotice = 0;     // last log of voice outside a call
  int iMuteLightState = -1;    // -1 unknown, 0 off, 1 on

  // -- texts and logins: acPhoneDisp all three files, strChangeLocalNum DstChannel.cpp, the times not
  // DstChannel_isdn.cpp
  char acPhoneDisp[BRI_TEXT_BYTES + 1] = {};            // last display or D-channel text
  char strChangeLocalNum[DISPLAY_TEXT_BYTES + 1] = {};  // text of a change-local message
  time_t rAlmostLocalNum = 0;                           // when the local number was seen one digit short
  time_t rLoginBusy = 0;                                // when the login text was seen

  // -- DstChannel_display.cpp alone
  std::vector<JudgedNumber>* pvJudgedNums = nullptr;  // takes each number on a display; not owned, null in the daemon

  // -- DstChannel_isdn.cpp alone
  std::vector<BusyCall> vBusyCalls;  // in the order of connection; empty without a call, and on other profiles

 private:
  // One row a D-channel message: its handler, none when the message tells nothing by itself, and the part of
  // dwSubReason that the board conditions compare.
  struct DMsgRow {
    DWORD dwCode;
    void (DST_Channel::*On)(const SSM_EVENT& rEvent);
    DWORD (*Filter)(DWORD dw) = &LowWord;
  };
  static const DMsgRow rDMsgRows[];

  struct RecordParties {
    BusyCall rCall;
    std::string strLocal;
  };

  bool InMuteMode() const { return iTdmStart == TDM_START_MUTELT || iTdmStart == TDM_START_MUTELT_AND_TONE; }
  // The local number of these lines survives a restart.
  bool KeepsLocalNum() const;
  void ChooseProfile(int iPhoneType);
  void ReadCachedLocalNum();

  // -- events
  void OnToneAnalyze(DWORD dwTone);
  void OnDtmf(char ch);
  void OnChState(int iState);
  void OnBargeIn(bool fSound);
  void OnDChannel(const SSM_EVENT& rEvent);
  void CheckConditions(DWORD dwCode, DWORD dwValue);

  // -- D-channel messages
  void OnOther(const SSM_EVENT& rEvent);
  void OnOffHook(const SSM_EVENT& rEvent);
  void OnOnHook(const SSM_EVENT& rEvent);
  void OnKeyDigit(const SSM_EVENT& rEvent);
  void OnDisplay(const SSM_EVENT& rEvent);
  void OnFunctionButton(const SSM_EVENT& rEvent);
  void OnReleaseButton(const SSM_EVENT& rEvent);
  void OnFeatureButton(const SSM_EVENT& rEvent);
  void OnSoftButton(const SSM_EVENT& rEvent);
  void OnRingOn(const SSM_EVENT& rEvent);
  void OnRingOff(const SSM_EVENT& rEvent);
  void OnLineButton(const SSM_EVENT& rEvent);
  void OnAudioChange(const SSM_EVENT& rEvent);
  void OnAudioChangeInMuteMode(bool fOn);
  void OnMuteLightOff(const SSM_EVENT& rEvent);
  void OnMuteLightOn(const SSM_EVENT& rEvent);
  void OnChangeLocal(const SSM_EVENT& rEvent);

  // -- ISDN call phases
  void OnBriProgress(const SSM_EVENT& rEvent);
  void OnBriAlerting(const SSM_EVENT& rEvent);
  void OnBriConnected(const SSM_EVENT& rEvent);
  void OnBriReleased(const SSM_EVENT& rEvent);
  void OnBriPhase(const SSM_EVENT& rEvent);
  void OnBriText(const SSM_EVENT& rEvent);
  void ReadBriText(const SSM_EVENT& rEvent);
  void OnBriCancelled(const SSM_EVENT& rEvent);
  RecordParties ReadParties(DWORD dwCode, const ISDN_CALL_INFO& rInfo) const;
  void OnRecordReleased(const std::string& strRemote);
  void OnRecordPhase(DWORD dwCode, const RecordParties& rParties);
  void TakeParties(const RecordParties& rParties);
  void RecordOtherCall(const RecordParties& rParties);
  void ContinueWithOtherCall();

  // -- display
  // Login prompt of the mute modes; true when the text was one.
  bool AnalyseLoginPrompt();
};
