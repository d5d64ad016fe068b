#include "BaseChannel.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <climits>

#include "ChannelBench.h"
#include "PriChannel.h"

namespace {

const Texts NOTHING;

class BaseChannelTest : public ChannelBench {
 protected:
  BaseChannelTest() {
    (void)setenv("TZ", "UTC", 1);
    tzset();
  }

  void Ring(int iPos) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_PROC_RecordMem, 0, static_cast<DWORD>(iPos));
    rChannel.DefaultEventHandle(&rEvent);
  }
  // A recording without call: buffer "0123456789..." and an open file.
  void OpenFile() {
    rChannel.strFullFilename = FILE_NAME;
    rChannel.BasicRecordingPreparation();
    rChannel.OpenAudioFile();
    for (int i = 0; i < rChannel.iRecordBufSize; i++) rChannel.acRecordBuf[i] = static_cast<BYTE>(i % 251);
  }
  static std::string Audio() { return FileBytes(FILE_NAME).substr(56); }
  std::string RingBytes(int iStart, int iStop) const {
    return std::string(reinterpret_cast<const char*>(rChannel.acRecordBuf) + iStart,
                       static_cast<std::size_t>(iStop - iStart));
  }
  void StartCall() {
    rChannel.fInCall_ChState = true;
    rChannel.InCallMaybeChanged();
  }

  static constexpr const char* FILE_NAME = "/recordings/b.wav";
  TestChannel rChannel;
};

}  // namespace

// -- construction and destruction ------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, FreshChannelKnowsNothing) {
  const OpenChannel<BaseChannel> rFresh;
  EXPECT_EQ(nullptr, rFresh.prRecorder);
  for (const int iValue : {rFresh.iChannel, rFresh.iBoardCh, rFresh.iLinkedCh, rFresh.iBaseRecCh, rFresh.iBaseCh,
                           rFresh.iActiveCallID, rFresh.iLastChannelState, rFresh.iWaitTime}) {
    EXPECT_EQ(-1, iValue);
  }
  EXPECT_EQ(-999, rFresh.iLast_dB);
  for (const int iValue : {rFresh.iChIx,
                           rFresh.iDrvCh,
                           rFresh.iBoardListIx,
                           rFresh.iRecSource,
                           rFresh.iDuration,
                           rFresh.iRecUniqCnt,
                           rFresh.iEncoding,
                           rFresh.iRecordOffset,
                           rFresh.iRecordBufSize,
                           rFresh.iRecordByteCnt,
                           rFresh.iMixBufIx[0],
                           rFresh.iMixBufIx[1],
                           rFresh.iCalcLoudnessSamples,
                           rFresh.iActiveContactLocal,
                           rFresh.iPeriodicCounter,
                           rFresh.iPeriodicCounter2,
                           rFresh.iCalcLoudnessIndex,
                           rFresh.iHighDbThr,
                           rFresh.iHighMaxCnt,
                           rFresh.iHighCnt,
                           rFresh.iHighAge,
                           rFresh.iHighNotify,
                           rFresh.iLongRecordingsLen,
                           rFresh.iLineErrCalc,
                           rFresh.iLineOfflineCalc}) {
    EXPECT_EQ(0, iValue);
  }
  for (const bool fValue : {rFresh.fCallBusy,          rFresh.fInCall_ChState,  rFresh.fRinging,
                            rFresh.fIncoming,          rFresh.fKnowIncoming,    rFresh.fRingsUntilPickup,
                            rFresh.fUseLocalNum,       rFresh.fHasConnectedNum, rFresh.fUsePressedDigitsForRemote,
                            rFresh.fResetLocalNum,     rFresh.fRecording,       rFresh.fDontRecord,
                            rFresh.fDontKeepThisPart,  rFresh.fSilencing,       rFresh.fDoStereo,
                            rFresh.fDigitFreeze,       rFresh.fToEmail,         rFresh.fCalcLoudness,
                            rFresh.fHighDetect,        rFresh.fHighSwitchedOff, rFresh.fRecOnDmd,
                            rFresh.fRecOnDmdStart,     rFresh.fLongRecordings,  rFresh.fCheckLineStatus,
                            rFresh.rCustomLocal.fFound}) {
    EXPECT_FALSE(fValue);
  }
  for (const time_t rValue : {rFresh.rFirstRing, rFresh.rLastRing, rFresh.rCallStopTime, rFresh.rRemoteNumTime,
                              rFresh.rDigitTime, rFresh.rStartTime}) {
    EXPECT_EQ(0, rValue);
  }
  for (const std::string& strValue :
       {rFresh.strRemoteNum, rFresh.strLocalNum, rFresh.strNonMonitoredNum, rFresh.strConnectedNum,
        rFresh.strPrevRemoteNum, rFresh.strPrevConnectedNum, rFresh.strPrevCallRemoteNum, rFresh.strFullFilename,
        rFresh.strFullFilenameFinal, rFresh.strArchiveFilename, rFresh.strFilename, rFresh.strDirectory,
        rFresh.strDbRemoteId, rFresh.strDigits}) {
    EXPECT_EQ("", strValue);
  }
  EXPECT_EQ(nullptr, rFresh.acRecordBuf);
  EXPECT_EQ(nullptr, rFresh.acMixBuffer);
  EXPECT_EQ(nullptr, rFresh.hAudioFile);
  EXPECT_EQ(nullptr, rFresh.hRawFile);
  EXPECT_EQ(0.0, rFresh.dLoudness);
  EXPECT_EQ(LINEHEALTH_OK, rFresh.eLineHealth);
}

TEST_F(BaseChannelTest, BaseAnswersOfTheVirtualOperations) {
  OpenChannel<BaseChannel> rPlain;
  InitLine(rPlain, 1);
  EXPECT_FALSE(rPlain.InCall());
  rPlain.fInCall_ChState = true;
  EXPECT_TRUE(rPlain.InCall());
  EXPECT_FALSE(rPlain.CanStereo());
  EXPECT_EQ(-1, rPlain.WriteChState());
  EXPECT_FALSE(rPlain.GetNewRecOnDmd());
  rPlain.fRecOnDmd = true;
  EXPECT_TRUE(rPlain.GetNewRecOnDmd());
  rPlain.WhenDigitExpiring();
  rPlain.WhenNewRing();
  rPlain.Finalize();
  rPlain.SetBaseChannel(3);
  EXPECT_EQ(3, rPlain.iBaseCh);
  EXPECT_EQ(-1, rPlain.iBaseRecCh);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
}

TEST_F(BaseChannelTest, TrunkLineWritesNoStateFile) {
  OpenChannel<PRI_Channel> rTrunk;
  InitLine(rTrunk, 1);
  rRecorder.strDataDir = "/tmp/none_written_";
  EXPECT_EQ(-1, rTrunk.WriteChState());
  EXPECT_NE(0, access("/tmp/none_written_chstate_1.dat", F_OK));
}

TEST_F(BaseChannelTest, DestructorGivesBackWhatTheChannelHolds) {
  const int iBefore = OpenDescriptors();
  {
    TestChannel rBusy;
    InitLine(rBusy, 1);
    rRecorder.fMonitoring = true;
    rBusy.strFullFilename = FILE_NAME;
    rBusy.strFullFilenameFinal = FILE_NAME;
    rBusy.iLinkedCh = 1;
    rBusy.BasicRecordingPreparation();
    rBusy.OpenAudioFile();
    ASSERT_EQ(iBefore + 2, OpenDescriptors());
  }
  EXPECT_EQ(iBefore, OpenDescriptors());
}

// -- settings --------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, InitTakesPlaceAndSettings) {
  rRecorder.rChannelParams = {{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"},       {"LoudnessLen", "8"},
                              {"LongRecordings", "1"},  {"LongRecordingsLen", "30"}, {"RecOnDmd", "2"},
                              {"CheckLineStatus", "1"}};
  rChannel.fRecOnDmdStart = true;
  simcards::SetChState(2, S_CALL_TALKING);
  rChannel.Init(12, 3, 4, &rRecorder, 2);
  EXPECT_EQ(2, rChannel.iChIx);
  EXPECT_EQ(12, rChannel.iChannel);
  EXPECT_EQ(2, rChannel.iDrvCh);
  EXPECT_EQ(3, rChannel.iBoardListIx);
  EXPECT_EQ(4, rChannel.iBoardCh);
  EXPECT_EQ(&rRecorder, rChannel.prRecorder);
  EXPECT_TRUE(rChannel.fHighDetect);
  EXPECT_TRUE(rChannel.fCalcLoudness);
  EXPECT_EQ(55, rChannel.iHighDbThr);
  EXPECT_EQ(16, rChannel.iHighMaxCnt);
  EXPECT_TRUE(rChannel.fLongRecordings);
  EXPECT_EQ(30, rChannel.iLongRecordingsLen);
  EXPECT_TRUE(rChannel.fRecOnDmd);
  EXPECT_FALSE(rChannel.fRecOnDmdStart);
  EXPECT_TRUE(rChannel.fCheckLineStatus);
  EXPECT_EQ(S_CALL_TALKING, rChannel.iLastChannelState);
}

TEST_F(BaseChannelTest, MissingSettingsAreOff) {
  rRecorder.rChannelParams.clear();
  rChannel.Init(12, 0, 0, &rRecorder, 0);
  EXPECT_FALSE(rChannel.fHighDetect);
  EXPECT_FALSE(rChannel.fCalcLoudness);
  EXPECT_EQ(0, rChannel.iHighDbThr);
  EXPECT_EQ(0, rChannel.iHighMaxCnt);
  EXPECT_FALSE(rChannel.fLongRecordings);
  EXPECT_EQ(0, rChannel.iLongRecordingsLen);
  EXPECT_FALSE(rChannel.fRecOnDmd);
  EXPECT_FALSE(rChannel.fCheckLineStatus);
}

TEST_F(BaseChannelTest, LoudnessWantedByASubclassStays) {
  rRecorder.rChannelParams.clear();
  rChannel.fCalcLoudness = true;
  rChannel.Init(12, 0, 0, &rRecorder, 0);
  EXPECT_TRUE(rChannel.fCalcLoudness);
}

TEST_F(BaseChannelTest, LoudnessLengthBeyondAllReasonStaysInRange) {
  rRecorder.rChannelParams = {{"LoudnessLen", "2147483647"}};
  rChannel.Init(12, 0, 0, &rRecorder, 0);
  EXPECT_EQ(INT_MAX, rChannel.iHighMaxCnt);
}

TEST_F(BaseChannelTest, LineStateAtInitCounts) {
  struct Row {
    int iState;
    int iOffline, iErr;
    Texts astrLines, astrTold;
  };
  const Row rRows[] = {
      {S_CALL_STANDBY, 0, 0, {}, {}},
      {S_CALL_OFFLINE, 60, 0, {"5 [9] Line health: offline"}, {"NewLineHealth 0"}},
      {S_CALL_UNAVAILABLE, 60, 0, {"5 [9] Line health: offline"}, {"NewLineHealth 0"}},
      {S_CALL_SIGNAL_ERROR, 0, 60, {}, {}},
      {S_CALL_FRAME_ERROR, 0, 60, {}, {}},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iState);
    ForgetTraces();
    TestChannel rFresh;
    simcards::SetChState(0, rRow.iState);
    rFresh.Init(9, 0, 0, &rRecorder, 0);
    EXPECT_EQ(rRow.iState, rFresh.iLastChannelState);
    EXPECT_EQ(rRow.iOffline, rFresh.iLineOfflineCalc);
    EXPECT_EQ(rRow.iErr, rFresh.iLineErrCalc);
    EXPECT_EQ(rRow.astrLines, logsink::TakeTexts());
    EXPECT_EQ(rRow.astrTold, rRecorder.TakeCalls());
  }
}

TEST_F(BaseChannelTest, LiveReloadReadsOneKeyPastTheCache) {
  rRecorder.rChannelParams = {{"CheckLineStatus", "1"}, {"RecOnDmd", "1"}};
  InitLine(rChannel, 1);
  rRecorder.rChannelParamsLive = {{"CheckLineStatus", "0"}, {"RecOnDmd", "0"}};
  rChannel.ReloadSettingsLive();
  EXPECT_FALSE(rChannel.fCheckLineStatus);
  EXPECT_TRUE(rChannel.fRecOnDmd);
  rRecorder.rChannelParamsLive = {{"CheckLineStatus", "2"}};
  rChannel.ReloadSettingsLive();
  EXPECT_TRUE(rChannel.fCheckLineStatus);
}

// -- events ----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, StateAlreadyHeldChangesNoCounter) {
  InitLine(rChannel, 1);
  Send(rChannel, E_CHG_ChState, 139);
  Send(rChannel, E_CHG_ChState, 139);
  EXPECT_EQ(60, rChannel.iLineErrCalc);
  Send(rChannel, E_CHG_ChState, 140);
  EXPECT_EQ(120, rChannel.iLineErrCalc);
}

TEST_F(BaseChannelTest, StateIsTheLowWord) {
  InitLine(rChannel, 1);
  Send(rChannel, E_CHG_ChState, 0xabcd0003);
  EXPECT_EQ(S_CALL_TALKING, rChannel.iLastChannelState);
}

TEST_F(BaseChannelTest, BaseKnowsNoCallFromAState) {
  InitLine(rChannel, 1);
  for (const DWORD dwState : {2U, 1U, 3U, 0U}) Send(rChannel, E_CHG_ChState, dwState);
  EXPECT_FALSE(rChannel.fRinging);
  EXPECT_FALSE(rChannel.fInCall_ChState);
  EXPECT_FALSE(rChannel.fCallBusy);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelTest, EveryOtherCodeIsLeftToSubclasses) {
  InitLine(rChannel, 1);
  OpenFile();
  for (WORD wCode = 0; wCode < MAX_EVENT_SIZE; wCode++) {
    if (wCode != E_CHG_ChState) Send(rChannel, wCode, 100);
  }
  EXPECT_EQ(0, rChannel.iRecordOffset);
  EXPECT_EQ(0, rChannel.iRecordByteCnt);
  EXPECT_EQ(0, rChannel.iLastChannelState);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
}

TEST_F(BaseChannelTest, DefaultHandlingKnowsRecordMemOnly) {
  InitLine(rChannel, 1);
  OpenFile();
  for (WORD wCode = 0; wCode < MAX_EVENT_SIZE; wCode++) {
    SSM_EVENT rEvent = simcards::MakeEvent(wCode, 0, 139);
    if (wCode != E_PROC_RecordMem) rChannel.DefaultEventHandle(&rEvent);
  }
  EXPECT_EQ(0, rChannel.iRecordOffset);
  EXPECT_EQ(0, rChannel.iLastChannelState);
}

TEST_F(BaseChannelTest, PositionWritesFromTheLastOneOn) {
  InitLine(rChannel, 1);
  OpenFile();
  Ring(2048);
  EXPECT_EQ(RingBytes(0, 2048), Audio());
  Ring(2048);  // the same position again
  EXPECT_EQ(2048, rChannel.iRecordByteCnt);
  EXPECT_EQ(2048, rChannel.iRecordOffset);
  Ring(3000);
  EXPECT_EQ(RingBytes(0, 3000), Audio());
}

TEST_F(BaseChannelTest, PositionBelowOffsetWritesTailThenHead) {
  InitLine(rChannel, 1);
  OpenFile();
  rChannel.iRecordOffset = 4000;
  Ring(100);
  EXPECT_EQ(RingBytes(4000, 4096) + RingBytes(0, 100), Audio());
  EXPECT_EQ(100, rChannel.iRecordOffset);
}

TEST_F(BaseChannelTest, PositionAtTheEndOfTheRingIsTheSameAsItsStart) {
  for (const int iEnd : {4096, 0}) {
    SCOPED_TRACE(iEnd);
    InitLine(rChannel, 1);
    OpenFile();
    rChannel.iRecordOffset = 4000;
    Ring(iEnd);
    EXPECT_EQ(RingBytes(4000, 4096), Audio());
    Ring(50);
    EXPECT_EQ(RingBytes(4000, 4096) + RingBytes(0, 50), Audio());
    EXPECT_EQ(50, rChannel.iRecordOffset);
  }
}

TEST_F(BaseChannelTest, PositionOutsideTheRingIsDropped) {
  InitLine(rChannel, 1);
  Ring(1);  // no buffer yet
  EXPECT_EQ(0, rChannel.iRecordOffset);
  OpenFile();
  Ring(100);
  for (const int iPos : {4097, 1000000, INT_MAX, -1, INT_MIN}) {
    SCOPED_TRACE(iPos);
    Ring(iPos);
    EXPECT_EQ(100, rChannel.iRecordOffset);
    EXPECT_EQ(100, rChannel.iRecordByteCnt);
  }
  Ring(200);
  EXPECT_EQ(RingBytes(0, 200), Audio());
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

// -- each second -----------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, HeaderIsBroughtUpToDateEveryFifthSecond) {
  InitLine(rChannel, 1);
  OpenFile();
  for (int iSecond = 1; iSecond <= 15; iSecond++) {
    Ring(iSecond * 10);
    Tick(rChannel);
    const int iCounted = iSecond - iSecond % 5;
    EXPECT_EQ(static_cast<char>(iCounted * 10), FileBytes(FILE_NAME)[52]) << iSecond;
  }
}

TEST_F(BaseChannelTest, LoudAlarmIsSentOnceACall) {
  InitLine(rChannel, 4);
  rChannel.iActiveCallID = 31;
  rChannel.strDbRemoteId = "an id";
  rChannel.iHighNotify = HIGH_NOTIFY_TO_SEND;
  Tick(rChannel);
  EXPECT_EQ((Texts{"5 [4] Loud audio detected"}), logsink::TakeTexts());
  EXPECT_EQ((Texts{"UpdateActiveCallCategory 31 1"}), rRecorder.rDatabase.TakeCalls());
  EXPECT_EQ((Texts{"NotifyAdmin 1 an id"}), rRecorder.TakeCalls());
  EXPECT_EQ(HIGH_NOTIFY_SENT, rChannel.iHighNotify);
  Tick(rChannel);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, rRecorder.TakeCalls());
}

TEST_F(BaseChannelTest, LoudAudioReachesTheAdministratorThroughTheWholeRoad) {
  rRecorder.rChannelParams = {{"LoudVoiceDetect", "1"}, {"LoudnessThr", "60"}, {"LoudnessLen", "1"}};
  InitLine(rChannel, 4);
  OpenFile();
  rChannel.fSilencing = false;
  for (int i = 0; i < 4096; i++) rChannel.acRecordBuf[i] = 0xaa;
  for (int i = 1; i <= 3; i++) {
    Ring(2000);
    Ring(4000);
    rChannel.iRecordOffset = 0;
    Tick(rChannel);
    EXPECT_EQ(i < 2 ? NOTHING : i == 2 ? Texts{"5 [4] Loud audio detected"} : NOTHING, logsink::TakeTexts()) << i;
  }
}

TEST_F(BaseChannelTest, DigitsExpireBySecondsToo) {
  InitLine(rChannel, 4);
  rChannel.DetectedDigit('1');
  (void)logsink::Take();
  for (int i = 0; i < 5; i++) Tick(rChannel);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  Tick(rChannel);
  EXPECT_EQ((Texts{"5 [4] Previous digits expired"}), logsink::TakeTexts());
  EXPECT_EQ("", rChannel.strDigits);
}

TEST_F(BaseChannelTest, StepsOfASecondComeInOrder) {
  InitLine(rChannel, 4);
  rChannel.strDigits = "12";
  rChannel.iHighNotify = HIGH_NOTIFY_TO_SEND;
  rChannel.iLineErrCalc = 151;
  rChannel.eLineHealth = LINEHEALTH_ERROR;
  rChannel.fRecording = true;  // a recording that has no file
  rChannel.fLongRecordings = true;
  rChannel.fDontRecord = true;
  Tick(rChannel);
  const Texts astrLines = logsink::TakeTexts();
  ASSERT_EQ(5U, astrLines.size());
  EXPECT_EQ("5 [4] Previous digits expired", astrLines[0]);
  EXPECT_EQ("5 [4] Loud audio detected", astrLines[1]);
  EXPECT_EQ("5 [4] Recording stopped (" + std::to_string(rNow) + " s)", astrLines[2]);
  EXPECT_EQ("5 [4] 0 minutes of recording saved!", astrLines[3]);
  EXPECT_EQ("5 [4] Line health: ok", astrLines[4]);
}

// -- long recordings -------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, LongCallIsCutIntoPartsOfItsOwn) {
  rRecorder.rChannelParams = {{"LongRecordings", "1"}, {"LongRecordingsLen", "2"}};
  rRecorder.rDatabase.rParts["crec"]["RecNotOutg"] = "1";  // so that no finishing stands in this story
  InitLine(rChannel, 4);
  rChannel.strRemoteNum = "0123456";
  rChannel.strLocalNum = "77";
  StartCall();
  EXPECT_EQ("19700112_134640_004_01", rChannel.strDbRemoteId);
  ForgetTraces();

  for (int i = 0; i < 119; i++) Tick(rChannel);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(119, rChannel.iPeriodicCounter2);
  Tick(rChannel);
  EXPECT_EQ((Texts{"5 [4] Recording stopped (120 s)", "5 [4] Outgoing call: not keeping", "5 [4] Starting recording",
                   "5 [4] Recording to file /recordings/1970/01/12/13/19700112_134840_004_02.wav",
                   "5 [4] 2 minutes of recording saved!"}),
            logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmStopRecToMem(0)", "SsmRecToMem(0,6,4096,0)"}), simcards::TakeCalls());
  EXPECT_EQ("19700112_134840_004_02", rChannel.strDbRemoteId);
  EXPECT_EQ("0123456", rChannel.strRemoteNum);
  EXPECT_EQ("77", rChannel.strLocalNum);
  EXPECT_TRUE(rChannel.fCallBusy);
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_EQ(0, rChannel.iPeriodicCounter2);

  for (int i = 0; i < 120; i++) Tick(rChannel);
  EXPECT_EQ("19700112_135040_004_03", rChannel.strDbRemoteId);
}

TEST_F(BaseChannelTest, PartLengthOfZeroCutsEverySecond) {
  rRecorder.rChannelParams = {{"LongRecordings", "1"}};
  InitLine(rChannel, 4);
  StartCall();
  for (int i = 2; i <= 4; i++) {
    Tick(rChannel);
    EXPECT_EQ(i, rChannel.iRecUniqCnt);
    EXPECT_EQ("5 [4] 0 minutes of recording saved!", logsink::TakeTexts().back());
  }
}

TEST_F(BaseChannelTest, PartThatMayNotGoOnLeavesNoSecondsBehind) {
  rRecorder.rChannelParams = {{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}};
  InitLine(rChannel, 4);
  StartCall();
  for (int i = 0; i < 59; i++) Tick(rChannel);
  rRecorder.iNumberFilterType = 1;  // lets no number pass
  Tick(rChannel);
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_EQ(0, rChannel.iPeriodicCounter2);
}

TEST_F(BaseChannelTest, SecondsOfAPartCountOnlyWhileItIsRecordedAndWanted) {
  InitLine(rChannel, 4);
  struct Row {
    bool fRecording, fLongRecordings;
    int iCounted;
  };
  const Row rRows[] = {{false, false, 0}, {true, false, 0}, {false, true, 0}, {true, true, 1}};
  for (const Row& rRow : rRows) {
    rChannel.fRecording = rRow.fRecording;
    rChannel.fLongRecordings = rRow.fLongRecordings;
    rChannel.iLongRecordingsLen = INT_MAX;  // minutes: no overflow on the way to seconds
    Tick(rChannel);
    EXPECT_EQ(rRow.iCounted, rChannel.iPeriodicCounter2);
  }
}

// -- end of a call's information -------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, ClearInfoForgetsTheCall) {
  for (const bool fResetLocalNum : {false, true}) {
    SCOPED_TRACE(fResetLocalNum);
    TestChannel r;
    InitLine(r, 1);
    r.fResetLocalNum = fResetLocalNum;
    r.strPrevRemoteNum = r.strPrevConnectedNum = r.strRemoteNum = r.strConnectedNum = r.strLocalNum = "1";
    r.fRinging = r.fKnowIncoming = r.fHighSwitchedOff = r.fDigitFreeze = r.fToEmail = r.fDontRecord = true;
    r.fDontKeepThisPart = true;
    r.rDigitTime = r.rRemoteNumTime = r.rFirstRing = r.rLastRing = 5;
    r.iWaitTime = r.iCalcLoudnessIndex = r.iHighCnt = r.iHighAge = r.iHighNotify = r.iLast_dB = 2;
    r.dLoudness = 1;
    r.strDigits = "12";
    const int iAlwaysBefore = r.iAlwaysClears;

    r.ClearInfo();
    EXPECT_EQ("", r.strPrevRemoteNum + r.strPrevConnectedNum + r.strRemoteNum + r.strConnectedNum + r.strDigits);
    EXPECT_EQ(fResetLocalNum ? "" : "1", r.strLocalNum);
    EXPECT_FALSE(r.fRinging || r.fKnowIncoming || r.fHighSwitchedOff || r.fDigitFreeze || r.fToEmail || r.fDontRecord);
    EXPECT_FALSE(r.fDontKeepThisPart);
    EXPECT_EQ(0, r.rDigitTime + r.rRemoteNumTime + r.rFirstRing + r.rLastRing);
    EXPECT_EQ(0, r.iCalcLoudnessIndex + r.iHighCnt + r.iHighAge + r.iHighNotify);
    EXPECT_EQ(0.0, r.dLoudness);
    EXPECT_EQ(-1, r.iWaitTime);
    EXPECT_EQ(-999, r.iLast_dB);
    EXPECT_EQ(iAlwaysBefore + 1, r.iAlwaysClears);
  }
}

TEST_F(BaseChannelTest, ClearInfoLeavesWhatOutlivesACall) {
  TestChannel& r = rChannel;
  InitLine(r, 1);
  r.fCallBusy = r.fIncoming = r.fUseLocalNum = r.fRecOnDmd = r.fRecording = r.fSilencing = r.fRecOnDmdStart = true;
  r.fInCall_ChState = r.rCustomLocal.fFound = true;
  r.strNonMonitoredNum = r.strPrevCallRemoteNum = r.strDbRemoteId = r.strFullFilename = r.rCustomLocal.strText = "x";
  r.iActiveCallID = r.iRecUniqCnt = r.iDuration = r.iRecordByteCnt = r.iLinkedCh = 6;
  r.rStartTime = r.rCallStopTime = 7;
  r.ClearInfo();
  EXPECT_TRUE(r.fCallBusy && r.fIncoming && r.fUseLocalNum && r.fRecOnDmd && r.fRecording && r.fSilencing);
  EXPECT_TRUE(r.fRecOnDmdStart && r.fInCall_ChState && r.rCustomLocal.fFound);
  EXPECT_EQ("xxxxx", r.strNonMonitoredNum + r.strPrevCallRemoteNum + r.strDbRemoteId + r.strFullFilename +
                         r.rCustomLocal.strText);
  for (const int iValue : {r.iActiveCallID, r.iRecUniqCnt, r.iDuration, r.iRecordByteCnt, r.iLinkedCh}) {
    EXPECT_EQ(6, iValue);
  }
  EXPECT_EQ(14, r.rStartTime + r.rCallStopTime);
}

TEST_F(BaseChannelTest, EndOfAPartForgetsItsMarksOnly) {
  InitLine(rChannel, 1);
  rChannel.fToEmail = rChannel.fDontKeepThisPart = rChannel.fDontRecord = true;
  rChannel.strRemoteNum = "1";
  rChannel.AlwaysClearInfo();
  EXPECT_FALSE(rChannel.fToEmail);
  EXPECT_FALSE(rChannel.fDontKeepThisPart);
  EXPECT_TRUE(rChannel.fDontRecord);
  EXPECT_EQ("1", rChannel.strRemoteNum);
}
