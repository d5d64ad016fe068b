// BaseChannel: one monitored telephone line: call state, numbers, recording rules, audio and line health.
// The recorder owns one object a driver channel and routes the card events of that channel to it. A subclass for each
// kind of line turns them into RingingStarted, RingingStopped, InCallMaybeChanged, SetRemoteNum and DetectedDigit, and
// the answer of the virtual InCall decides everything else.
// Files:     BaseChannel.cpp life and timers, _call ringing and calls, _decide what is recorded and kept, _audio from
//            the card to the file, _number numbers and digits, _record ids, files and rows, _health state of the line.
// Threads:   main only. Orders from other threads arrive as actions.
// Ownership: the recorder deletes channels; acRecordBuf, acMixBuffer, hAudioFile and hRawFile belong to the channel. A
//            ring that the card may still write goes to the recorder (KeepRing) when the channel does.
// Errors:    a channel never stops the process: a failed driver call or file operation is logged and the call goes on.
// Text:      numbers are Latin-1, as the cards deliver them; the database gets them as UTF-8.
#pragma once

#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "callcodes.h"
#include "g711.h"
#include "idatabase.h"
#include "irecorder.h"
#include "shpa3api.h"

enum ELineHealth { LINEHEALTH_OK = 0, LINEHEALTH_OFFLINE = 1, LINEHEALTH_ERROR = 2 };

constexpr int NO_LEVEL_DB = -999;          // iLast_dB before the first loudness window of a call
constexpr int RECORD_REPORT_BYTES = 2048;  // the card tells of each quarter second of audio; the recorder asks it to

// -- texts of the card's codes; empty for an unknown one --------------------------------------------------------------
const char* GetChannelStateDescr(int iState);
const char* GetToneDescr(int iTone);
const char* GetLineHealthDescr(ELineHealth eHealth);
bool IsChStateError(int iState);
bool IsChStateDisconnected(int iState);

// Part of the interface; nothing in the daemon calls it, and no driver registration reaches it. pUser is a BaseChannel.
void RecordingCallBack(int iCh, unsigned char* buf, unsigned int len, void* pUser);
// A diagnostic for data that should never be zero: warns above 50 zero bytes in [iStart, iStop). Part of the interface;
// nothing in the daemon calls it.
void CheckForNull(const unsigned char* buf, int iStart, int iStop, int iCh);

// Which parts of a stream of audio are silenced, by places in the stream: what is written has been spoken before, by a
// quarter of a second or by as long as the loop is behind.
class SilentParts {
 public:
  // From this place on; what has passed by stays as it is. -1: from now on.
  void Switch(long long iWhere, bool fToSilence);
  // The next len bytes of the stream.
  void Cover(BYTE* buf, int len, BYTE ucSilence);

 private:
  long long iAt = 0;              // bytes that have passed by
  bool fSilent = false;           // at iAt
  std::vector<long long> vEdges;  // places where that turns over
};

// Virtual is what a kind of line may answer in its own way, also where none does so yet: StopRecording,
// MayStartRecording, RecordingScheduled, AlwaysClearInfo, ReloadSettingsLive.
class BaseChannel {
 public:
  // What the recorder calls and reads. A kind of line that overrides one of these calls that of the base first.
  BaseChannel();
  virtual ~BaseChannel();
  BaseChannel(const BaseChannel&) = delete;
  BaseChannel& operator=(const BaseChannel&) = delete;

  // -- life and events ------------------------------------------------------------------------------------------------
  // Called once after construction. iBoardListIx has to be in the board list. Applies the present state of the line, so
  // that a line which is away at start has its health told from the first moment.
  virtual void Init(int iChannel, int iBoardListIx, int iBoardCh, ICRecorder* prRecorder, int iDrvCh);
  virtual void HandleEvent(SSM_EVENT* prEvent);
  // Once a second.
  virtual void Periodic();
  // Ends a call in progress when the recorder shuts down.
  void EndOfCall();
  // When the recorder shuts down, after EndOfCall.
  virtual void Finalize() {}
  // Reads "CheckLineStatus" anew, past the cache.
  virtual void ReloadSettingsLive();
  // Writes the state file of the line: 0 written, 1 file could not be opened, -1 this kind of line has none.
  virtual int WriteChState() { return -1; }

  // -- orders about the call at hand ----------------------------------------------------------------------------------
  // Whether an order with this call id is for this line. The empty id means a line without a call: a call that is not
  // recorded has no id either, but a later number may still allow its recording.
  bool IsMeantBy(const std::string& strCallId) const {
    return strDbRemoteId == strCallId && !(strCallId.empty() && fCallBusy);
  }
  // The remote number as stored: its last digits masked when so configured. Latin-1.
  std::string GetDbRemoteNum() const;
  // The order "change_local": as LocalNumberChanged for a call. One on its way starts with it, without a cut, and takes
  // it along when it does not come; elsewhere nothing changes. Always true.
  bool ChangeLocalOrder(std::string strLocalPhoneNum, const std::string& strRemotePhoneNum, bool stopstart);
  // A change from outside; stopstart cuts the recording. strRemotePhoneNum has no effect here. Always true.
  // The number comes by value, here and below: callers hand in fields of this channel, which change on the way.
  bool LocalNumberChanged(std::string strLocalPhoneNum, const std::string& strRemotePhoneNum, bool stopstart);
  // Starts or stops on demand; false on a call that does not record on demand.
  bool RecOnDmdAct(bool fStart);
  // False when the setting fSilenceOnDemand is off.
  bool TrySetSilencing(bool fToSet);
  // Ends the recording and bars the rest of the call; whether done.
  bool DeleteAct();

  // -- a linked pair: one side calls the other by these, through the recorder -----------------------------------------
  void SetBaseChannel(int iBaseCh);
  // On the linked channel: begins to feed the recording of driver channel iBaseRecCh. False when the driver refuses, so
  // that no audio will come.
  bool StartMixRecord(int iBaseRecCh);
  // Ends it; when the driver refuses to stop, the link stays.
  void StopMixRecord();
  // Audio of the linked channel, on the base; overwritten with silence while the base is silenced.
  void MixAudio(BYTE* buf, int len);
  // A digit forwarded by the linked channel.
  void LinkedChannelDigit(char ch);

  // -- audio that the taker has carried out of the ring ---------------------------------------------------------------
  // A piece of this channel's, in the order of the card. May be overwritten: silenced parts are. fOverrun: the card may
  // have overwritten it before it was taken.
  void TakenAudio(BYTE* buf, int len, bool fOverrun);
  // As many bytes for which there was no memory.
  void LostAudio(int len);

  // The member behind RecordingCallBack: to the live listener's copy only.
  void OnRecordingData(const void* pData, unsigned int uiLen);

  // -- what the recorder reads ----------------------------------------------------------------------------------------
  int iChannel = -1;  // line number that users see; -1: none
  // Id of the recording part, column "remoteid"; orders address the call by it. Empty without a call, and in a call up
  // to its first part. Nothing of the remote party is in it.
  std::string strDbRemoteId;
  ELineHealth eLineHealth = LINEHEALTH_OK;
  bool fCheckLineStatus = false;  // a change of health triggers a recheck of the system

 protected:
  // What a kind of line answers, reports and knows.

  // -- answers that differ by kind of line ----------------------------------------------------------------------------
  virtual bool InCall() { return fInCall_ChState; }
  // Seconds of ringing before the call; -1: none or unknown.
  virtual int GetWaitTime();
  // Whether both directions can stand apart in a two-channel file.
  virtual bool CanStereo() { return false; }
  // Whether the next recording part waits for a demand.
  virtual bool GetNewRecOnDmd() { return fRecOnDmd; }
  // The number filter, and whether the call was barred already; fTell asks for a log line when the filter refuses.
  virtual bool MayStartRecording(bool fTell);
  // The weekly schedule at the real local time, whatever SetSimTime says.
  virtual bool RecordingScheduled();
  // The first ring of a call.
  virtual void WhenNewRing() {}
  // A call has ended, and its recording with it.
  virtual void WhenCallIsOver() {}
  // strDigits are about to be judged and emptied.
  virtual void WhenDigitExpiring() {}
  // Forgets the information of a call. What outlives a call stays: direction, own numbers, and all recording state.
  virtual void ClearInfo();
  // Forgets what belongs to one recording part; runs at the end of each, also when the call goes on.
  virtual void AlwaysClearInfo();
  // On entry fClearInfo asks for ClearInfo after the stop; on return it is false when that was done or cancelled. When
  // the driver refuses to stop, ClearInfo has run and fClearInfo stays as it was, so that it may run a second time.
  virtual void StopRecording(bool& fClearInfo);

  // -- reports of a kind of line --------------------------------------------------------------------------------------
  // For each code that it does not treat itself: carries E_PROC_RecordMem to the audio path. A position outside the
  // ring buffer is dropped.
  void DefaultEventHandle(SSM_EVENT* prEvent);
  // The two ring edges.
  void RingingStarted();
  void RingingStopped();
  // After anything that may change InCall(); a call starts or stops when the answer has changed.
  void InCallMaybeChanged();
  // A new remote number within the call: stores and tells it.
  void SetRemoteNum(std::string strNum);
  // Tells the remote and the connected number as they stand: log, active row, recording rules. For a kind of line that
  // has written the connected number, or has more to do between a new remote number and telling it.
  void RemoteNumberChanged();
  // The remote number has been told, as a new one or once more: its age begins.
  void RemoteNumberTold();
  // Forgets the remote number.
  void RemoteExpired();
  // Forgets it when it is too old for a coming call. Does nothing during a call.
  void CheckRemoteExpired();
  // A new local number within the same recording. Always true.
  bool ChangeLocalNum(std::string strLocalPhoneNum);
  void DetectedDigit(char ch);

  // -- services for a kind of line ------------------------------------------------------------------------------------
  // A setting of this line as a number; 0 when it is missing.
  int ChannelSetting(const char* acKey);
  // Writes the state file of the line: strLines, then the last level when there is one. As WriteChState.
  int WriteStateFile(const std::string& strLines);
  // The contact of the line itself.
  Contact LineContact(IDatabase* prDB) const;
  // Is a call of these numbers one for recording on demand?
  bool QRecOnDmd();
  // The one way into a recording; there is none without a call. A call that waits for a demand gets its active row too,
  // without audio.
  void TryStartRecording();
  // The single exit of a recording part; fClearInfo when the call itself has ended.
  void FinalizeRecording(bool fClearInfo);
  // fFinal: false for the row of a running call, true for the lasting one.
  void FillCallInfo(StringMap* rCallInfo, IDatabase* prDB, bool fFinal);

  // -- identity and links ---------------------------------------------------------------------------------------------
  ICRecorder* prRecorder = nullptr;  // not owned, outlives the channel
  int iChIx = 0;                     // index in the channel table; equals iDrvCh
  int iDrvCh = 0;                    // driver channel
  int iBoardListIx = 0;              // index of the board in the board list
  int iBoardCh = -1;                 // channel on that board
  int iRecSource = SOURCE_OTHER;     // ECallSource, column "source"
  // Neither link is taken back at the end of a call.
  int iLinkedCh = -1;  // driver channel mixed into the recordings that start; -1: none
  int iBaseCh = -1;    // driver channel that this one is the linked side of; -1: none

  // -- the call -------------------------------------------------------------------------------------------------------
  bool fInCall_ChState = false;    // the driver channel state says so
  bool fRingsUntilPickup = false;  // a ring that stops without a call was given up, and its number is forgotten
  bool fKnowIncoming = false;      // fIncoming comes from signalling, no guessing
  bool fIncoming = false;
  bool fRecOnDmd = false;    // this call records only on demand
  bool fDontRecord = false;  // the call is not to be recorded or kept
  // A kind of line only reads these. BaseChannel_call.cpp writes them, ClearInfo those of the ring. Times are
  // GetSrTime() seconds.
  bool fCallBusy = false;  // a call is in progress
  bool fRinging = false;   // the line rings now
  time_t rFirstRing = 0;   // 0: no ring in this call
  time_t rLastRing = 0;    // last ring edge; 0: none
  time_t rCallStopTime = 0;
  time_t rStartTime = 0;  // of this recording or attempt; BaseChannel_decide.cpp alone writes it

  // -- numbers and digits ---------------------------------------------------------------------------------------------
  std::string strRemoteNum;          // far party; written by SetRemoteNum, unless a comment says why not
  time_t rRemoteNumTime = 0;         // when it was last set; 0: none
  std::string strPrevCallRemoteNum;  // far party of the call before, unlike strPrevRemoteNum
  // Monitored party. BaseChannel_number.cpp writes a change that is told, a kind of line one that is not.
  std::string strLocalNum;
  bool fUseLocalNum = false;      // strLocalNum identifies the local side, not the line
  std::string strConnectedNum;    // number that the call was connected to, or a name (DST_Channel::CheckForName)
  bool fHasConnectedNum = false;  // this kind of line delivers a connected number
  bool fUsePressedDigitsForRemote = false;
  std::string strDigits;      // since the last expiry
  bool fDigitFreeze = false;  // digits are ignored

  // -- audio ----------------------------------------------------------------------------------------------------------
  int iLast_dB = NO_LEVEL_DB;     // last level
  bool fHighSwitchedOff = false;  // a call-progress tone is present

 private:
  // The base's own, by the file that writes it; where another one does too, the field says so. ClearInfo and the
  // destructor reach into all.
  template <class Channel>
  friend class OpenChannel;  // of the tests

  struct Verdict;  // whether a finished part is kept, and what its finishing needs to know
  // What the rules of keeping have found of both sides; none before them.
  struct Judged {
    Contact rLocal;  // of the line, or of the local number
    Contact rRemote;
  };
  struct Parties;  // both sides of a call row
  // What a digit code can be set to do.
  struct DtmfRow {
    const char* acAction;
    void (*Do)(BaseChannel& rChannel);
  };
  static const DtmfRow rDtmfRows[];

  // -- BaseChannel.cpp: timers ----------------------------------------------------------------------------------------
  void PeriodicFileHeader();
  void PeriodicLongRecording();
  int iPeriodicCounter = 0;      // seconds up to the file header update
  int iPeriodicCounter2 = 0;     // seconds of the current long-recording part; a new recording sets it back
  bool fLongRecordings = false;  // long calls are cut into parts
  int iLongRecordingsLen = 0;    // minutes
  bool fResetLocalNum = false;   // ClearInfo also empties strLocalNum; nothing sets it

  // -- BaseChannel_call.cpp -------------------------------------------------------------------------------------------
  // The two halves of a change of InCall().
  void WhenCallStarts();
  void WhenCallStops();
  bool GuessDirection();  // true when it has told the direction in the log
  // Tells that what was asked for finds no call here.
  void LogNoCall() const;
  // Age reference of the remote number: now while the line rings, so that a number does not age meanwhile.
  time_t GetRemoteNumTime();
  bool IsCallComing();
  bool fRemoteNumIsNew = false;  // told since the last call; one that stands from it announces no other
  int iWaitTime = 0;             // of this call, by GetWaitTime

  // -- BaseChannel_decide.cpp -----------------------------------------------------------------------------------------
  // The audio of a part: file, driver, linked channel. A part without file or driver runs on without audio.
  void StartRecording();
  void ReadCustomLocal();
  bool MayDeleteOnDemand();
  Verdict JudgeRecording();
  bool StoreOnDemandKeeps(const StdStringMap& rExtra, bool& fDelay) const;
  bool DirectionKeeps(const Contact& rContactRemote) const;
  void QueueKeep(const Verdict& rVerdict);
  void QueueDelete();
  // fRecording can hold while hAudioFile is null: the open failed, the call goes on without audio.
  bool fRecording = false;
  int iDuration = 0;                  // seconds of the last finished recording
  int iEncoding = ENCODING_NO_AUDIO;  // ECallEncoding, column "encoding"
  int iRecUniqCnt = 0;                // recordings on this line, feeds strDbRemoteId
  bool fRecOnDmdStart = false;        // a demand is in force; FinalizeRecording ends it
  bool fDontKeepThisPart = false;     // this part is thrown away, the call goes on; a change of number sets it
  CallerIdContact rCustomLocal;       // local identity that the web side set for this line

  // -- BaseChannel_audio.cpp: from the card to the ring buffer, and on ------------------------------------------------
  // Buffers, which live until the channel is destroyed, the law of this recording, and an end of silencing.
  void BasicRecordingPreparation();
  // Both log a refusal of the driver, and return false.
  bool StartDriver();
  bool StopDriver();
  // Sends bytes [iStart, iStop) of acRecordBuf to the file, or to the base channel when this side is mixed in.
  // Does nothing for an empty range, or with neither base nor open file, or for one that leaves the buffer. While
  // silenced, overwrites the range first.
  void WriteMemRange(int iStart, int iStop);
  void WriteAudio(BYTE* buf, int len);
  // Collects both sides, which come in unequal pieces, and writes once they are level. iType: the side, 0 this
  // channel's own audio, 1 that of the linked channel. A piece that finds no room is dropped with a warning; what is
  // left at the end of a recording is dropped too.
  void MixAdd(const BYTE* buf, int iLen, int iType);
  void MixMono(const BYTE* buf, int iLen, int iType);
  void WriteLevelSides();
  void WriteOwnSide(const BYTE* buf, int iLen);
  void WriteStereo(const BYTE* acOwn, const BYTE* acLinked, int iLen);
  const AudioLaw* prLaw = &LAW_A;  // of this recording
  bool fSilencing = false;         // set by TrySetSilencing
  SilentParts rOwnSilence;         // what of this channel's audio is to be silent
  SilentParts rLinkedSilence;      // and of the linked side's
  bool fDoStereo = false;
  // Driver channel mixed into this recording; -1: none. It stays when the card names another partner, or none, in
  // mid-call: a side that has not started with the recording would hold back the audio of the other.
  int iMixedCh = -1;
  // The side in iMixedCh has not started: this one does not wait for it. The stop is ordered from both all the same.
  bool fOwnSideAlone = false;
  int iBaseRecCh = -1;    // driver channel whose recording this one feeds now; -1: none
  int iRecordOffset = 0;  // read position in acRecordBuf; a new recording sets it back
  int iRecordBufSize = 0;
  BYTE* acRecordBuf = nullptr;  // owned, iRecordBufSize bytes; the card writes, we read behind its position
  // The card has this ring: it took a start, and no stop since. A stop that it refused leaves it so, and the next
  // recording has the same ring.
  bool fCardMayWrite = false;
  // Logs what is missing, and counts anew.
  void TellLosses();
  long long iOverrunBytes = 0;  // what the card may have overwritten before it was taken, and nobody was told of yet
  long long iLostBytes = 0;     // likewise: what there was no memory for
  int iMixBufIx[2] = {0, 0};    // bytes in acMixBuffer of each side
  // Owned; BasicRecordingPreparation makes it. In stereo one side stands behind the other, in mono both in one place.
  BYTE* acMixBuffer = nullptr;

  // -- BaseChannel_audio.cpp: files -----------------------------------------------------------------------------------
  // Writes to the file and the live listener's copy, and measures loudness on the way.
  void WriteBuf(const BYTE* buf, int len);
  // Replaces any file named strFullFilename. When that fails hAudioFile stays null and the audio goes nowhere.
  void OpenAudioFile();
  void CloseAudioFile();
  // The mode of a kept recording.
  void LetAllUseAudioFile();
  // Brings the header of an open file up to date, so that the file plays up to here whatever happens next. The whole
  // header in one write: all lines have theirs in the same second, and one that found no room is made up for. False
  // when it is not written; an update that follows makes up for it, so only the last one reports:
  // FinishAudioFileHeader.
  bool UpdateAudioFileHeader();
  void FinishAudioFileHeader();
  // The copy of a live listener: strFullFilenameFinal + ".raw" and ".info". Only with fMonitoring.
  void OpenRawFile();
  void CloseRawFile();
  FILE* hAudioFile = nullptr;
  std::string strAudioFileName;  // of hAudioFile, when strFullFilename is that of the next part already
  int iRecordByteCnt = 0;        // audio bytes of hAudioFile
  FILE* hRawFile = nullptr;      // monitoring copy

  // -- BaseChannel_audio.cpp: loudness --------------------------------------------------------------------------------
  void ReadLoudnessSettings();
  void ClearLoudness();
  void SetLoudnessWindow(int iSamples);
  void ClearLoudAlarm();
  void MeasureLoudness(const BYTE* buf, int len);
  // A loudness window is full: level, and the loud-voice count.
  void NewLoudness();
  void CountLoudWindow();
  void PeriodicLoudAlarm();
  bool fCalcLoudness = false;
  int iCalcLoudnessSamples = 0;  // samples of a loudness window
  int iCalcLoudnessIndex = 0;    // samples in the current window, fewer than it has
  double dLoudness = 0;          // sum of squares of the current window
  bool fHighDetect = false;      // loud-voice detection
  int iHighDbThr = 0;            // dB
  int iHighMaxCnt = 0;           // loud windows that raise the alarm
  int iHighCnt = 0;              // loud windows so far
  int iHighAge = 0;              // quiet windows since the last loud one
  int iHighNotify = 0;           // the loud alarm of a call: 0 none, 1 to be sent by Periodic, 2 sent

  // -- BaseChannel_number.cpp -----------------------------------------------------------------------------------------
  // The local number in UTF-8.
  std::string GetLocalNum() const;
  // A number identifies the local side: its own one or that of a custom local identity.
  bool QUseLocalNum() const;
  // Asks the recording rules again, during a call. stopIsFinal: true after a remote change, which bars the whole call
  // when it leaves the number filter; false after a local one, which bars only the part that belongs to it.
  void PhoneNumberChanged(bool stopIsFinal);
  void UpdateActiveNumbers(const std::string& strDbRemoteNum);
  void TransferTo(std::string strLocalPhoneNum);
  void TakeMonitoredNum(std::string strLocalPhoneNum);
  void LogLocalChange(const std::string& strLocalPhoneNum) const;
  // Forgets a waiting order whose call has not come, or has made way for another.
  void DropStaleOrder();
  // At the start of a call.
  void TakeWaitingOrder();
  // Judges the collected digits once the last one is DIGIT_EXPIRY_S old, or at once; on a line that delivers no number,
  // what was dialled becomes the remote number.
  void CheckDigitsExpired(bool fForceExpired);
  void DtmfAction(const std::string& strAction);
  // The numbers of this call that RemoteNumberChanged has told last; RemoteExpired empties the first.
  std::string strPrevRemoteNum;  // stored form
  std::string strPrevConnectedNum;
  std::string strNonMonitoredNum;  // local number kept aside while the call is on a non-monitored phone
  struct WaitingOrder {
    std::string strLocalNum;
    std::string strRemoteNum;  // announces the call that it is for
    bool stopstart;
  };
  std::optional<WaitingOrder> rWaitingOrder;
  time_t rDigitTime = 0;  // last digit
  bool fToEmail = false;  // the recording is to be mailed

  // -- BaseChannel_record.cpp -----------------------------------------------------------------------------------------
  void DetermineDbRemoteId();
  void DetermineFilename();
  void AddActive();
  void RemoveActive();
  Contact LocalNumContact(IDatabase* prDB) const;
  Contact RemoteNumContact(IDatabase* prDB) const;
  Contact KnownRemoteContact(IDatabase* prDB) const;  // creates none
  Contact ConnectedNumContact(IDatabase* prDB) const;
  // The far party belongs to this site too.
  bool IsInternal(const Contact& rContactRemote) const;
  Parties FindParties(IDatabase* prDB, bool fFinal, const Judged& rJudged) const;
  void FillCallInfo(StringMap* rCallInfo, IDatabase* prDB, bool fFinal, const Judged& rJudged);
  void FillPartColumns(StringMap* rCallInfo, const Parties& rParties, bool fFinal) const;
  void FillPartyColumns(StringMap* rCallInfo, const Parties& rParties) const;
  void FillConnectedColumns(StringMap* rCallInfo, IDatabase* prDB) const;
  ECallDirection Direction(bool fInternal) const;
  std::string strDirectory;  // year/month/day/hour
  std::string strFilename;
  std::string strFullFilename;       // file being written
  std::string strFullFilenameFinal;  // what it becomes
  std::string strArchiveFilename;
  int iActiveCallID = -1;       // row in ActiveCalls; handed over with a kept recording
  int iActiveContactLocal = 0;  // contact of the local side last written to the database

  // -- BaseChannel_health.cpp -----------------------------------------------------------------------------------------
  // iLastChannelState has just changed.
  void NewChannelState();
  // Once a second.
  void PeriodicChannelState();
  // Keeps the scores in their range, and reports a health that has changed.
  void FinalCalcChannelState();
  // Tells log and recorder; nothing for a driver channel without a line.
  void NewLineHealth();
  int iLastChannelState = -1;  // last driver channel state; -1: none; Init and HandleEvent write it
  // Scores, which FinalCalcChannelState keeps in their range.
  int iLineErrCalc = 0;
  int iLineOfflineCalc = 0;
};
