// BaseChannel: one monitored telephone line: call state, numbers, recording rules, audio and line health.
// The recorder owns one object a driver channel and routes the card events of that channel to it; a subclass turns them
// into RingingStarted, RingingStopped, InCallMaybeChanged, RemoteNumberChanged and DetectedDigit, and the answer of the
// virtual InCall decides everything else.
// Threads:   main only. Orders from other threads arrive as actions.
// Ownership: the recorder deletes channels; acRecordBuf, acMixBuffer, hAudioFile and hRawFile belong to the channel.
// Errors:    a channel never stops the process: a failed driver call or file operation is logged and the call goes on.
// Text:      numbers are Latin-1, as the cards deliver them; the database gets them as UTF-8.
#pragma once

#include <cstdio>
#include <ctime>
#include <memory>
#include <string>

#include "callcodes.h"
#include "g711.h"
#include "idatabase.h"
#include "irecorder.h"
#include "shpa3api.h"

enum ELineHealth { LINEHEALTH_OK = 0, LINEHEALTH_OFFLINE = 1, LINEHEALTH_ERROR = 2 };
// Values of iHighNotify: the loud alarm of a call is found while audio arrives and sent by the next Periodic, once.
enum EHighNotify { HIGH_NOTIFY_NONE = 0, HIGH_NOTIFY_TO_SEND = 1, HIGH_NOTIFY_SENT = 2 };

// The two sides of a mix, as indices: this channel's own audio and that of the linked channel.
enum EMixSide { MIX_OWN = 0, MIX_LINKED = 1 };

constexpr int NO_LEVEL_DB = -999;  // iLast_dB before the first loudness window of a call

constexpr int RECORD_REPORT_BYTES = 2048;  // the card tells of each quarter second of audio

// -- texts of the card's codes; empty for an unknown one ----------------------------------------------------------
const char* GetChannelStateDescr(int iState);
const char* GetToneDescr(int iTone);
const char* GetLineHealthDescr(ELineHealth eHealth);
bool IsChStateError(int iState);
bool IsChStateDisconnected(int iState);

// A callback entry that no driver registration reaches; pUser is a BaseChannel.
void RecordingCallBack(int iCh, unsigned char* buf, unsigned int len, void* pUser);
// A diagnostic for data that should never be zero: warns above 50 zero bytes in [iStart, iStop).
void CheckForNull(const unsigned char* buf, int iStart, int iStop, int iCh);

class BaseChannel {
 public:
  BaseChannel();
  virtual ~BaseChannel();
  BaseChannel(const BaseChannel&) = delete;
  BaseChannel& operator=(const BaseChannel&) = delete;

  // -- construction, event frame, timers (BaseChannel.cpp) ------------------------------------------------------
  // Called once after construction; a subclass calls this one first.
  // iBoardListIx has to be in the board list. Applies the present state of the line, so that a line which is away at
  // start has its health told from the first moment.
  virtual void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh);
  // A subclass calls this one first, then does its own work.
  virtual void HandleEvent(SSM_EVENT* prEvent);
  // Once a second.
  virtual void Periodic();
  // When the recorder shuts down, after EndOfCall.
  virtual void Finalize() {}
  // Forgets the information of a call. What outlives a call stays: direction, own numbers, and all recording state.
  virtual void ClearInfo();
  // Forgets what belongs to one recording part; runs at the end of each, also when the call goes on.
  virtual void AlwaysClearInfo();
  // Reads "CheckLineStatus" anew, past the cache.
  virtual void ReloadSettingsLive();
  void SetBaseChannel(int iBaseCh);

  // -- call lifecycle (BaseChannel_call.cpp) --------------------------------------------------------------------
  virtual bool InCall() { return fInCall_ChState; }
  // The two ring edges.
  void RingingStarted();
  void RingingStopped();
  // The first ring of a call.
  virtual void WhenNewRing() {}
  // A subclass calls it after anything that may change InCall(); a call starts or stops when the answer has changed.
  void InCallMaybeChanged();
  // The two halves of that change.
  void WhenCallStarts();
  void WhenCallStops();
  // Ends a call in progress when the recorder shuts down.
  void EndOfCall();
  // Forgets the remote number.
  void RemoteExpired();
  // Forgets it when it is too old for a coming call. Does nothing during a call.
  void CheckRemoteExpired();
  // Age reference of the remote number: now while the line rings, so that a number does not age meanwhile.
  time_t GetRemoteNumTime();
  // Seconds of ringing before the call; -1: none or unknown.
  virtual int GetWaitTime();

  // -- recording decisions (BaseChannel_decide.cpp) -------------------------------------------------------------
  // The number filter, and whether the call was barred already; fTell asks for a log line when the filter refuses.
  virtual bool MayStartRecording(bool fTell);
  // The weekly schedule at the real local time, whatever SetSimTime says.
  virtual bool RecordingScheduled();
  // The one way into a recording. A call that waits for a demand gets its active row too, without audio.
  void TryStartRecording();
  // The audio of a part: file, driver, linked channel. A part without file or driver runs on without audio.
  void StartRecording();
  // On entry fClearInfo asks for ClearInfo after the stop; on return it is false when that was done or cancelled.
  virtual void StopRecording(bool& fClearInfo);
  // Is a call of these numbers one for recording on demand?
  bool QRecOnDmd();
  // The answer for the next recording part.
  virtual bool GetNewRecOnDmd() { return fRecOnDmd; }
  bool MayDeleteOnDemand();
  // Ends the recording and bars the rest of the call; whether done.
  bool DeleteAct();
  // Starts or stops on demand; false on a call that does not record on demand.
  bool RecOnDmdAct(bool fStart);
  // False when the setting fSilenceOnDemand is off.
  bool TrySetSilencing(bool fToSet);

  // -- audio (BaseChannel_audio.cpp) ----------------------------------------------------------------------------
  // Whether both directions can stand apart in a two-channel file.
  virtual bool CanStereo() { return false; }
  // Buffers, which live until the channel is destroyed, the law of this recording, and an end of silencing.
  void BasicRecordingPreparation();
  // A subclass calls it for each code that it does not treat itself: carries E_PROC_RecordMem to the audio path.
  // A position outside the ring buffer is dropped.
  void DefaultEventHandle(SSM_EVENT* prEvent);
  // Sends bytes [iStart, iStop) of acRecordBuf to the file, or to the base channel when this side is mixed in.
  // Does nothing for an empty range, or with neither base nor open file, or for one that leaves the buffer. While
  // silenced, overwrites the range first.
  void WriteMemRange(int iStart, int iStop);
  // Audio of the linked channel, on the base; overwritten with silence while the base is silenced.
  void MixAudio(BYTE* buf, int len);
  // Collects both sides, which come in unequal pieces, and writes once they are level. iType is an EMixSide. A piece
  // that finds no room is dropped with a warning; what is left at the end of a recording is dropped too.
  void MixAdd(const BYTE* buf, int iLen, int iType);
  // Writes to the file and the live listener's copy, and measures loudness on the way.
  void WriteBuf(const BYTE* buf, int len);
  // On the linked channel: begins to feed the recording of driver channel iBaseRecCh.
  void StartMixRecord(int iBaseRecCh);
  // Ends it; when the driver refuses to stop, the link stays.
  void StopMixRecord();
  // Replaces any file named strFullFilename. When that fails hAudioFile stays null and the audio goes nowhere.
  void OpenAudioFile();
  void CloseAudioFile();
  // Brings the length fields of an open file up to date, so that the file plays up to here whatever happens next.
  void UpdateAudioFileHeader();
  // The copy of a live listener: strFullFilenameFinal + ".raw" and ".info". Only with fMonitoring.
  void OpenRawFile();
  void CloseRawFile();
  // The member behind RecordingCallBack: to the live listener's copy only.
  void OnRecordingData(const void* pData, unsigned int uiLen);
  // A loudness window is full: level, and the loud-voice count.
  void NewLoudness();

  // -- numbers and digits (BaseChannel_number.cpp) --------------------------------------------------------------
  // The remote number as stored: its last digits masked when so configured. Latin-1.
  std::string GetDbRemoteNum() const;
  // The local number in UTF-8.
  std::string GetLocalNum() const;
  // A number identifies the local side: its own one or that of a custom local identity.
  bool QUseLocalNum() const;
  // A new remote number within the call: stores and tells it. By value, since callers hand in fields of this channel.
  void SetRemoteNum(std::string strNum);
  // Tells the remote and the connected number as they stand: log, active row, recording rules. For a subclass that has
  // written the connected number, or has more to do between a new remote number and telling it.
  void RemoteNumberChanged();
  // A new local number within the same recording. Always true.
  // The number comes by value, here and below, as in SetRemoteNum.
  bool ChangeLocalNum(std::string strLocalPhoneNum);
  // A change from outside; stopstart cuts the recording. strRemotePhoneNum has no effect here. Always true.
  bool LocalNumberChanged(std::string strLocalPhoneNum, const std::string& strRemotePhoneNum, bool stopstart);
  // Asks the recording rules again, during a call. stopIsFinal: true after a remote change, which bars the whole call
  // when it leaves the number filter; false after a local one, which bars only the part that belongs to it.
  void PhoneNumberChanged(bool stopIsFinal);
  // Judges the collected digits once the last one is DIGIT_EXPIRY_S old, or at once; on a line that delivers no number,
  // what was dialled becomes the remote number.
  void CheckDigitsExpired(bool fForceExpired);
  // strDigits are about to be judged and emptied.
  virtual void WhenDigitExpiring() {}
  void DetectedDigit(char ch);
  // A digit forwarded by the linked channel.
  void LinkedChannelDigit(char ch);
  void DtmfAction(const std::string& strAction);

  // -- ids, file names, call rows (BaseChannel_record.cpp) ------------------------------------------------------
  void DetermineDbRemoteId();
  void DetermineFilename();
  // fFinal: false for the row of a running call, true for the lasting one.
  void FillCallInfo(StringMap* rCallInfo, IDatabase* prDB, bool fFinal);
  void AddActive();
  void RemoveActive();
  // The single exit of a recording part; fClearInfo when the call itself has ended.
  void FinalizeRecording(bool fClearInfo);

  // -- line health (BaseChannel_health.cpp) ---------------------------------------------------------------------
  // iLastChannelState has just changed.
  void NewChannelState();
  // Once a second.
  void PeriodicChannelState();
  // Keeps the scores in their range, and reports a health that has changed.
  void FinalCalcChannelState();
  // Tells log and recorder; nothing for a driver channel without a line.
  void NewLineHealth();
  // Writes the state file of the line: 0 written, 1 file could not be opened, -1 this kind of line has none.
  virtual int WriteChState() { return -1; }

  // -- identity and links ---------------------------------------------------------------------------------------
  ICRecorder* prRecorder = nullptr;  // not owned, outlives the channel
  int iChIx = 0;                     // index in the channel table; equals iDrvCh
  int iChannel = -1;                 // line number that users see; -1: none
  int iDrvCh = 0;                    // driver channel
  int iBoardListIx = 0;              // index of the board in the board list
  int iBoardCh = -1;                 // channel on that board
  int iRecSource = SOURCE_OTHER;     // ECallSource, column "source"

  // -- call state -----------------------------------------------------------------------------------------------
  bool fCallBusy = false;        // a call is in progress
  bool fInCall_ChState = false;  // the driver channel state says so
  bool fRinging = false;         // the line rings now
  time_t rFirstRing = 0;         // GetSrTime() seconds; 0: no ring in this call
  time_t rLastRing = 0;          // last ring edge; 0: none
  bool fIncoming = false;
  bool fKnowIncoming = false;      // fIncoming comes from signalling, no guessing
  bool fRingsUntilPickup = false;  // a stopped ring without a call is a lost call on this kind of line
  time_t rCallStopTime = 0;
  int iWaitTime = 0;  // seconds of ringing before the call; -1: none or unknown

  // -- numbers --------------------------------------------------------------------------------------------------
  time_t rRemoteNumTime = 0;        // when strRemoteNum was last set; 0: none
  std::string strRemoteNum;         // far party; written by SetRemoteNum, unless a comment says why not
  std::string strLocalNum;          // monitored party
  std::string strNonMonitoredNum;   // local number kept aside while the call is on a non-monitored phone
  CallerIdContact rCustomLocal;     // local identity that the web side set for this line
  std::string strConnectedNum;      // number that the call was connected to
  bool fUseLocalNum = false;        // strLocalNum identifies the local side, not the line
  bool fHasConnectedNum = false;    // this kind of line delivers a connected number
  std::string strPrevRemoteNum;     // stored form of the number last seen by RemoteNumberChanged
  std::string strPrevConnectedNum;  // connected number last seen by RemoteNumberChanged
  std::string strPrevCallRemoteNum;
  bool fUsePressedDigitsForRemote = false;
  time_t rDigitTime = 0;        // last digit
  bool fResetLocalNum = false;  // ClearInfo also empties strLocalNum; nothing sets it

  // -- recording ------------------------------------------------------------------------------------------------
  // fRecording can hold while hAudioFile is null: the open failed, the call goes on without audio.
  bool fRecording = false;
  time_t rStartTime = 0;
  int iDuration = 0;               // seconds of the last finished recording
  int iLinkedCh = -1;              // driver channel mixed into this recording
  int iBaseRecCh = -1;             // driver channel whose recording this one feeds now
  int iBaseCh = -1;                // driver channel that this one is the linked side of
  bool fDontRecord = false;        // the call is not to be recorded or kept
  bool fDontKeepThisPart = false;  // this part is thrown away, the call goes on
  int iRecUniqCnt = 0;             // recordings on this line, feeds strDbRemoteId
  std::string strFullFilename;     // file being written
  std::string strFullFilenameFinal;
  std::string strArchiveFilename;
  std::string strFilename;
  std::string strDirectory;           // year/month/day/hour
  int iEncoding = ENCODING_NO_AUDIO;  // ECallEncoding, column "encoding"
  FILE* hRawFile = nullptr;           // monitoring copy
  int iRecordOffset = 0;              // read position in acRecordBuf
  int iRecordBufSize = 0;
  int iRecordByteCnt = 0;       // audio bytes of hAudioFile
  BYTE* acRecordBuf = nullptr;  // owned, iRecordBufSize bytes; the card writes, we read behind its position
  FILE* hAudioFile = nullptr;
  bool fSilencing = false;
  int iMixBufIx[2] = {0, 0};    // bytes in acMixBuffer of each EMixSide
  BYTE* acMixBuffer = nullptr;  // owned, 4 * iRecordBufSize bytes
  bool fDoStereo = false;
  int iCalcLoudnessSamples = 0;  // samples of a loudness window
  int iActiveCallID = -1;        // row in ActiveCalls
  std::string strDbRemoteId;     // id of the recording part; orders address the call by it
  int iActiveContactLocal = 0;   // contact of the local side last written to the database

  // -- digits ---------------------------------------------------------------------------------------------------
  std::string strDigits;      // since the last expiry
  bool fDigitFreeze = false;  // digits are ignored
  bool fToEmail = false;      // the recording is to be mailed

  // -- timers and loudness --------------------------------------------------------------------------------------
  int iPeriodicCounter = 0;   // seconds up to the file header update
  int iPeriodicCounter2 = 0;  // seconds of the current long-recording part
  bool fCalcLoudness = false;
  int iCalcLoudnessIndex = 0;     // samples in the current window
  double dLoudness = 0;           // sum of squares of the current window
  int iLast_dB = NO_LEVEL_DB;     // last level
  bool fHighDetect = false;       // loud-voice detection
  int iHighDbThr = 0;             // dB
  int iHighMaxCnt = 0;            // loud windows that raise the alarm
  int iHighCnt = 0;               // loud windows so far
  int iHighAge = 0;               // quiet windows since the last loud one
  int iHighNotify = 0;            // EHighNotify
  bool fHighSwitchedOff = false;  // a call-progress tone is present

  // -- on-demand and long recordings, line health ---------------------------------------------------------------
  bool fRecOnDmd = false;         // this call records only on demand
  bool fRecOnDmdStart = false;    // a demand is in force
  bool fLongRecordings = false;   // long calls are cut into parts
  int iLongRecordingsLen = 0;     // minutes
  bool fCheckLineStatus = false;  // a change of health triggers a recheck of the system
  int iLastChannelState = -1;     // last driver channel state; -1: none
  int iLineErrCalc = 0;           // error score, 0 to 200
  int iLineOfflineCalc = 0;       // offline score, 0 to 200
  ELineHealth eLineHealth = LINEHEALTH_OK;

 protected:
  // A setting of this line as a number; 0 when it is missing.
  int ChannelSetting(const char* acKey);

 private:
  struct Verdict;  // whether a finished part is kept, and what its finishing needs to know
  struct Parties;  // both sides of a call row

  // What a digit code can be set to do.
  struct DtmfRow {
    const char* acAction;
    void (*Do)(BaseChannel& rChannel);
  };
  static const DtmfRow rDtmfRows[];

  // -- steps of Periodic ----------------------------------------------------------------------------------------
  void PeriodicFileHeader();
  void PeriodicLongRecording();

  // -- steps of the call lifecycle ------------------------------------------------------------------------------
  bool GuessDirection();  // true when it has told the direction in the log

  // -- steps of starting and stopping a recording ---------------------------------------------------------------
  void ReadCustomLocal();
  Verdict JudgeRecording();
  bool StoreOnDemandKeeps(const StdStringMap& rExtra, bool& fDelay) const;
  bool DirectionKeeps(const Contact& rContactRemote) const;
  void QueueKeep(const Verdict& rVerdict);
  void QueueDelete();

  // -- steps of the audio ---------------------------------------------------------------------------------------
  // Both log a refusal of the driver, and return false.
  bool StartDriver();
  bool StopDriver();
  void MixMono(const BYTE* buf, int iLen, int iType);
  void ReadLoudnessSettings();
  void ClearLoudness();
  void PeriodicLoudAlarm();
  void MeasureLoudness(const BYTE* buf, int len);
  void CountLoudWindow();
  const AudioLaw* prLaw = &LAW_A;  // of this recording

  // -- steps of a change of numbers -----------------------------------------------------------------------------
  void UpdateActiveNumbers(const std::string& strDbRemoteNum);
  void TakeMonitoredNum(std::string strLocalPhoneNum);

  // -- contacts and columns of a call row -----------------------------------------------------------------------
  Contact LineContact(IDatabase* prDB) const;
  Contact LocalNumContact(IDatabase* prDB) const;
  Contact RemoteNumContact(IDatabase* prDB) const;
  Contact KnownRemoteContact(IDatabase* prDB) const;  // creates none
  Contact ConnectedNumContact(IDatabase* prDB) const;
  // The far party belongs to this site too.
  bool IsInternal(const Contact& rContactRemote) const;
  Parties FindParties(IDatabase* prDB, bool fFinal) const;
  void FillPartColumns(StringMap* rCallInfo, const Parties& rParties, bool fFinal) const;
  void FillPartyColumns(StringMap* rCallInfo, const Parties& rParties) const;
  void FillConnectedColumns(StringMap* rCallInfo, IDatabase* prDB) const;
  ECallDirection Direction(bool fInternal) const;
};
