// The frame of a line: start, events, timers, what each call forgets, and long recordings.
#include "BaseChannel.h"

#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <initializer_list>

#include "CallBench.h"
#include "PriChannel.h"

namespace {

bool fHeadersTold = false;  // each update of a header is a line of the log

}  // namespace

// Stands in for the C library's: nothing else writes at a place of a file.
extern "C" ssize_t pwrite(int hFile, const void* pData, size_t uiBytes, off_t iPlace) {
  if (fHeadersTold) syslog(LOG_DEBUG, "header");
  return syscall(SYS_pwrite64, hFile, pData, uiBytes, iPlace);
}

namespace {

const Texts NOTHING;
constexpr int WINDOW_BYTES = 4000;  // of loudness: half a second

class BaseChannelTest : public CallBench {
 protected:
  static constexpr const char* FILE_NAME = "/recordings/2024/01/31/14/20240131_142345_007_01.wav";

  // The card writes on in its ring, and what it tells of that is what the test says.
  static void CardWrites(int iBytes) {
    simcards::Advance(iBytes);
    SSM_EVENT rEvent;
    while (SsmWaitForEventA(0, &rEvent) == SSM_OK) continue;
  }
  void Position(int iPos) { Send(rLine, E_PROC_RecordMem, static_cast<DWORD>(iPos)); }
  // What the line heard from byte iStart of its recording to iStop.
  static std::string Heard(long long iStart, long long iStop) {
    std::string strBytes;
    for (long long k = iStart; k < iStop; k++) strBytes += static_cast<char>(simcards::CountingByte(k));
    return strBytes;
  }
  static std::string Audio() { return AudioOf(FILE_NAME); }
  // Off hook, with audio that tells each byte from the next.
  void StartCall() {
    simcards::PlayCounting(DRIVER_CH);
    OffHook();
    ForgetTraces();
  }
  // So many windows of loudness, all loud or all quiet.
  void HearWindows(int iWindows, bool fLoud) {
    if (fLoud) {
      simcards::PlayTone(DRIVER_CH, 1000, -6);
    } else {
      simcards::PlaySilence(DRIVER_CH);
    }
    for (int iBytes = 0; iBytes < iWindows * WINDOW_BYTES; iBytes += RECORD_REPORT_BYTES) Hear(RECORD_REPORT_BYTES);
  }
  // Whether the alarm is sent with the next second.
  bool LoudAlarm() {
    Seconds(1);
    const Texts astrLog = Log();
    return std::count(astrLog.begin(), astrLog.end(), "5 [7] Loud audio detected") == 1;
  }
  // Whether a call of these windows, loud ones above zero and quiet ones below, sends it.
  bool AlarmIn(std::initializer_list<int> aiWindows) {
    OffHook();
    for (const int iWindows : aiWindows) HearWindows(std::abs(iWindows), iWindows > 0);
    const bool fAlarm = LoudAlarm();
    OnHook();
    return fAlarm;
  }
};

}  // namespace

// -- construction and destruction -------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, FreshLineKnowsNothing) {
  { const BaseChannel rFresh; }
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
  EXPECT_EQ(NO_LEVEL_DB, rLine.LevelOfStateFile());
  OffHook();
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Outgoing call", "5 [7] Starting recording",
                   std::string("5 [7] Recording to file ") + FILE_NAME}),
            Log());
  for (const char* acColumn : {"remote", "local"}) EXPECT_EQ("", Active(acColumn));
  for (const char* acColumn : {"duration", "localcallerid"}) EXPECT_EQ("0", Active(acColumn));
  EXPECT_EQ("-1", Active("waittime"));
  EXPECT_EQ("(none)", Active("connected"));
}

TEST_F(BaseChannelTest, BaseAnswersOfTheVirtualOperations) {
  OpenChannel<BaseChannel> rPlain;
  InitLine(rPlain, 1);
  EXPECT_FALSE(rPlain.InCall());
  EXPECT_FALSE(rPlain.CanStereo());
  EXPECT_EQ(-1, rPlain.WriteChState());
  EXPECT_FALSE(rPlain.GetNewRecOnDmd());
  rPlain.WhenDigitExpiring();
  rPlain.WhenNewRing();
  rPlain.Finalize();
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
  rRecorder.rChannelParams["RecOnDmd"] = "1";
  InitLine(rPlain, 1);
  EXPECT_TRUE(rPlain.GetNewRecOnDmd());
}

TEST_F(BaseChannelTest, BaseChannelOfALineIsKnownToItAndStartsNoMix) {
  PRI_Channel rTrunk;
  InitLine(rTrunk, 1);
  rTrunk.SetBaseChannel(3);
  EXPECT_EQ(NOTHING, Cards());
  Send(rTrunk, E_CHG_SpyState, PRI_TALK);
  EXPECT_EQ((Texts{"4 [1] (ignored, has base) PRI was: 0 is: 3 talking"}), Log());
}

TEST_F(BaseChannelTest, TrunkLineWritesNoStateFile) {
  PRI_Channel rTrunk;
  InitLine(rTrunk, 1);
  rRecorder.strDataDir = "/tmp/none_written_";
  EXPECT_EQ(-1, rTrunk.WriteChState());
  EXPECT_FALSE(testtools::Exists("/tmp/none_written_chstate_1.dat"));
}

TEST_F(BaseChannelTest, DestructorGivesBackWhatTheChannelHolds) {
  const int iBefore = OpenDescriptors();
  rRecorder.fMonitoring = true;
  {
    EventLine rBusy;
    InitLine(rBusy, 1);
    rRecorder.vChannels = {&rBusy, &rLinked};
    rBusy.LinkWith(LINKED_CH);
    Send(rBusy, E_RCV_DSTDChannel, DMSG_OFF_HOOK);
    ASSERT_EQ(iBefore + 2, OpenDescriptors());
    ForgetTraces();
  }
  EXPECT_EQ(iBefore, OpenDescriptors());
}

TEST_F(BaseChannelTest, RingThatTheCardMayStillWriteOutlivesItsChannel) {
  const struct {
    const char* acLabel;
    bool fRefuseStart, fOnHook, fRefuseStop, fKept;
  } rRows[] = {
      {"in a recording", false, false, false, true},
      {"stopped", false, true, false, false},
      {"stop refused", false, true, true, true},
      {"never started", true, false, false, false},
      {"never started, stopped all the same", true, true, false, false},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    simcards::Reset();
    simcards::AddBoard(0, LINES, CH_ANALOG);
    rRecorder.vKeptRings.clear();
    simcards::PlayCounting(DRIVER_CH);
    {
      EventLine rBusy;
      InitLine(rBusy, 1);
      if (rRow.fRefuseStart) simcards::FailNext("SsmRecToMem", 1, -1, "channel is busy");
      Send(rBusy, E_RCV_DSTDChannel, DMSG_OFF_HOOK);
      if (rRow.fRefuseStop) simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
      if (rRow.fOnHook) Send(rBusy, E_RCV_DSTDChannel, DMSG_ON_HOOK);
      ForgetTraces();
    }
    EXPECT_EQ(NOTHING, Cards());  // its end orders nothing
    CardWrites(2000);
    ASSERT_EQ(rRow.fKept ? 1U : 0U, rRecorder.vKeptRings.size());
    if (!rRow.fKept) continue;
    EXPECT_EQ(simcards::CountingByte(1999), rRecorder.vKeptRings[0][1999]);
  }
}

TEST_F(BaseChannelTest, RingOfALinkedSideOutlivesItToo) {
  {
    EventLine rSide;
    InitLine(rSide, 2, LINKED_CH);
    rRecorder.vChannels = {&rLine, &rSide};
    rLine.LinkWith(LINKED_CH);
    OffHook();
    ForgetTraces();
  }
  EXPECT_EQ(NOTHING, Cards());
  EXPECT_EQ(1U, rRecorder.vKeptRings.size());
  rRecorder.vChannels = {&rLine};
}

TEST_F(BaseChannelTest, RecordingAfterARefusedStopHasTheSameRing) {
  StartCall();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  OnHook();
  OffHook();  // refused too, as the card still records
  Position(0);
  CardWrites(100);
  Position(100);
  EXPECT_EQ(100U, AudioOf("/recordings/2024/01/31/14/20240131_142345_007_02.wav").size());
  OnHook();
  EXPECT_EQ(0U, rRecorder.vKeptRings.size());
}

// -- settings ---------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, InitTakesThePlaceOfTheLine) {
  PRI_Channel rTrunk;
  rTrunk.Init(12, 3, 4, &rRecorder, 2);
  simcards::SetSpyInfo(2, {2, 1, "0301234", "22", "23"});
  (void)Log();
  Send(rTrunk, E_CHG_SpyState, PRI_UNAVAILABLE);
  Send(rTrunk, E_CHG_ChState, S_CALL_OFFLINE);
  EXPECT_EQ((Texts{"5 [12] PRI was: 0 is: 11 unavail", "5 [12] Line health: offline"}), Log());
  EXPECT_EQ((Texts{"NotifyChAvail 3 4 0", "NewLineHealth 2"}), Orders());
}

TEST_F(BaseChannelTest, InitTakesTheSettings) {
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "30"}, {"CheckLineStatus", "1"}});
  EXPECT_TRUE(rLine.fCheckLineStatus);  // the recorder reads it
  OffHook();
  Seconds(30 * 60 - 1);
  EXPECT_EQ(1U, ActiveRows() + KeptRows());
  Seconds(1);
  EXPECT_EQ("5 [7] 30 minutes of recording saved!", Log().back());
  OnHook();

  InitLines({{"RecOnDmd", "2"}});
  OffHook();
  EXPECT_EQ("5 [7] Recording on demand", Log().back());
}

TEST_F(BaseChannelTest, InitForgetsADemand) {
  InitLines({{"RecOnDmd", "1"}});
  rRecorder.iNumberFilterType = 1;
  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));  // in force, but no number passes
  InitLines({{"RecOnDmd", "1"}});
  rRecorder.iNumberFilterType = 0;
  OffHook();
  EXPECT_EQ("5 [7] Recording on demand", Log().back());
}

TEST_F(BaseChannelTest, MissingSettingsAreOff) {
  InitLines({});
  EXPECT_FALSE(rLine.fCheckLineStatus);  // the recorder reads it
  OffHook();
  ForgetTraces();
  HearWindows(20, /*fLoud=*/true);
  Seconds(3600);
  EXPECT_EQ(NOTHING, Log());  // neither alarm nor cut
  EXPECT_EQ(NO_LEVEL_DB, rLine.LevelOfStateFile());
}

TEST_F(BaseChannelTest, LoudnessWantedByASubclassStays) {
  rLine.BeOneThatMeasuresLoudness();
  InitLines({});
  OffHook();
  HearWindows(1, /*fLoud=*/false);
  EXPECT_NE(NO_LEVEL_DB, rLine.LevelOfStateFile());
}

TEST_F(BaseChannelTest, LoudVoiceIsTakenByThresholdAndLength) {
  struct Row {
    const char* acLabel;
    StdStringMap rSettings;
    int iWindows;
    bool fAlarm;
  };
  const Row rRows[] = {
      {"too short by a window", {{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"}, {"LoudnessLen", "8"}}, 15, false},
      {"long enough", {{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"}, {"LoudnessLen", "8"}}, 16, true},
      {"too low", {{"LoudVoiceDetect", "1"}, {"LoudnessThr", "70"}, {"LoudnessLen", "8"}}, 16, false},
      {"switched off", {{"LoudVoiceDetect", "0"}, {"LoudnessThr", "55"}, {"LoudnessLen", "8"}}, 16, false},
      {"length beyond all reason stays in range",
       {{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"}, {"LoudnessLen", "-2147483647"}},
       16,
       false},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    InitLines(rRow.rSettings);
    EXPECT_EQ(rRow.fAlarm, AlarmIn({rRow.iWindows}));
  }
}

TEST_F(BaseChannelTest, LineStateAtInitCounts) {
  struct Row {
    int iState;
    Texts astrLines, astrTold;
    int iErrorsToIllness;  // further bad states until the line is unhealthy although no longer in that state
    int iOfflinesToIllness;
  };
  const Texts OFFLINE_LINE = {"5 [9] Line health: offline"};
  const Row rRows[] = {
      {S_CALL_STANDBY, {}, {}, 3, 3},
      {S_CALL_OFFLINE, OFFLINE_LINE, {"NewLineHealth 0"}, 3, 2},
      {S_CALL_UNAVAILABLE, OFFLINE_LINE, {"NewLineHealth 0"}, 3, 2},
      {S_CALL_SIGNAL_ERROR, {}, {}, 2, 3},
      {S_CALL_FRAME_ERROR, {}, {}, 2, 3},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iState);
    for (const bool fErrors : {true, false}) {
      EventLine rFresh;
      simcards::SetChState(0, rRow.iState);
      rFresh.Init(9, 0, 0, &rRecorder, 0);
      EXPECT_EQ(rRow.astrLines, Log());
      EXPECT_EQ(rRow.astrTold, Orders());
      int iBadStates = 0;
      Texts astrHealth;
      do {
        Send(rFresh, E_CHG_ChState, S_CALL_STANDBY);
        (void)Log();
        Send(rFresh, E_CHG_ChState, fErrors ? S_CALL_SIGNAL_ERROR : S_CALL_OFFLINE);
        Send(rFresh, E_CHG_ChState, S_CALL_STANDBY);
        astrHealth = Log();
        iBadStates++;
      } while (iBadStates < 9 && (astrHealth.empty() || astrHealth.back() == "5 [9] Line health: ok"));
      EXPECT_EQ(fErrors ? rRow.iErrorsToIllness : rRow.iOfflinesToIllness, iBadStates);
      (void)Orders();
    }
  }
}

TEST_F(BaseChannelTest, LiveReloadReadsOneKeyPastTheCache) {
  InitLines({{"CheckLineStatus", "1"}, {"RecOnDmd", "1"}});
  rRecorder.rChannelParamsLive = {{"CheckLineStatus", "0"}, {"RecOnDmd", "0"}};
  rLine.ReloadSettingsLive();
  EXPECT_FALSE(rLine.fCheckLineStatus);  // the recorder reads it
  OffHook();
  EXPECT_EQ("5 [7] Recording on demand", Log().back());
  rRecorder.rChannelParamsLive = {{"CheckLineStatus", "2"}};
  rLine.ReloadSettingsLive();
  EXPECT_TRUE(rLine.fCheckLineStatus);
}

// -- events -----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, StateAlreadyHeldChangesNoCounter) {
  for (const DWORD dwState : {139U, 139U, 139U, 140U}) Send(rLine, E_CHG_ChState, dwState);
  EXPECT_EQ(NOTHING, Log());
  Send(rLine, E_CHG_ChState, 139);  // the third change
  EXPECT_EQ((Texts{"5 [7] Line health: error"}), Log());
}

TEST_F(BaseChannelTest, StateIsTheLowWord) {
  Send(rLine, E_CHG_ChState, 0xabcd0000 | S_CALL_OFFLINE);
  EXPECT_EQ((Texts{"5 [7] Line health: offline"}), Log());
}

TEST_F(BaseChannelTest, BaseKnowsNoCallFromAState) {
  OpenChannel<BaseChannel> rPlain;
  InitLine(rPlain, 1);
  for (const DWORD dwState : {2U, 1U, 3U, 0U}) Send(rPlain, E_CHG_ChState, dwState);
  EXPECT_FALSE(rPlain.InCall());
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
  EXPECT_EQ(NOTHING, Queries());
}

TEST_F(BaseChannelTest, EveryOtherCodeIsLeftToSubclasses) {
  OpenChannel<BaseChannel> rPlain;
  InitLine(rPlain, LINE);
  rPlain.fCallBusy = true;  // which no event of this kind of line brings about
  rPlain.TryStartRecording();
  CardWrites(200);
  ForgetTraces();
  for (WORD wCode = 0; wCode < MAX_EVENT_SIZE; wCode++) {
    if (wCode != E_CHG_ChState) Send(rPlain, wCode, 100);
  }
  EXPECT_EQ("", Audio());
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
  rPlain.EndOfCall();
}

TEST_F(BaseChannelTest, DefaultHandlingKnowsRecordMemOnly) {
  StartCall();
  CardWrites(200);
  for (WORD wCode = 0; wCode < MAX_EVENT_SIZE; wCode++) {
    SSM_EVENT rEvent = simcards::MakeEvent(wCode, 0, 100);
    if (wCode != E_PROC_RecordMem) rLine.DefaultEventHandle(&rEvent);
  }
  EXPECT_EQ("", Audio());
  EXPECT_EQ(NOTHING, Log());
  Position(200);
  EXPECT_EQ(Heard(0, 200), Audio());
}

TEST_F(BaseChannelTest, PositionWritesFromTheLastOneOn) {
  StartCall();
  CardWrites(3000);
  Position(2048);
  EXPECT_EQ(Heard(0, 2048), Audio());
  Position(2048);  // the same position again
  EXPECT_EQ(Heard(0, 2048), Audio());
  Position(3000);
  EXPECT_EQ(Heard(0, 3000), Audio());
}

TEST_F(BaseChannelTest, PositionBelowOffsetWritesTailThenHead) {
  StartCall();
  CardWrites(4000);
  Position(4000);
  CardWrites(196);
  Position(100);
  EXPECT_EQ(Heard(0, 4196), Audio());
  CardWrites(50);
  Position(150);
  EXPECT_EQ(Heard(0, 4246), Audio());
}

TEST_F(BaseChannelTest, PositionAtTheEndOfTheRingIsTheSameAsItsStart) {
  for (const int iEnd : {4096, 0}) {
    SCOPED_TRACE(iEnd);
    InitLines({});
    SetClock(CALL_START + iEnd);
    StartCall();
    const std::string strFile = iEnd == 0 ? "/recordings/2024/01/31/14/20240131_142345_007_02.wav"
                                          : "/recordings/2024/01/31/15/20240131_153201_007_01.wav";
    CardWrites(4000);
    Position(4000);
    CardWrites(96);
    Position(iEnd);
    EXPECT_EQ(Heard(0, 4096), AudioOf(strFile));
    CardWrites(50);
    Position(50);
    EXPECT_EQ(Heard(0, 4146), AudioOf(strFile));
    OnHook();
  }
}

TEST_F(BaseChannelTest, PositionOutsideTheRingIsDropped) {
  Position(1);  // no buffer yet
  StartCall();
  CardWrites(200);
  Position(100);
  for (const int iPos : {4097, 1000000, INT_MAX, -1, INT_MIN}) {
    SCOPED_TRACE(iPos);
    Position(iPos);
    EXPECT_EQ(Heard(0, 100), Audio());
  }
  Position(200);
  EXPECT_EQ(Heard(0, 200), Audio());
  EXPECT_EQ(NOTHING, Log());
}

// -- each second ------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, HeaderIsBroughtUpToDateEveryFifthSecond) {
  StartCall();
  for (int iSecond = 1; iSecond <= 15; iSecond++) {
    CardWrites(10);
    Position(iSecond * 10);
    Seconds(1);
    const int iCounted = iSecond - iSecond % 5;
    EXPECT_EQ(static_cast<char>(iCounted * 10), ReadTestFile(FILE_NAME)[52]) << iSecond;
  }
}

TEST_F(BaseChannelTest, LoudAlarmIsSentOnceACall) {
  InitLines({{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"}, {"LoudnessLen", "1"}});
  for (const int iRow : {1, 3}) {
    OffHook();
    HearWindows(1, /*fLoud=*/true);
    ForgetTraces();
    Seconds(1);
    EXPECT_EQ(NOTHING, Log());
    HearWindows(1, /*fLoud=*/true);
    EXPECT_EQ(NOTHING, Log());  // found, and sent with the next second
    Seconds(1);
    EXPECT_EQ((Texts{"5 [7] Loud audio detected"}), Log());
    EXPECT_EQ((Texts{"UpdateActiveCallCategory " + std::to_string(iRow) + " 1"}), Queries());
    EXPECT_EQ((Texts{"NotifyAdmin 1 " + Active("remoteid")}), Orders());
    HearWindows(4, /*fLoud=*/true);
    Seconds(1);
    EXPECT_EQ(NOTHING, Log());
    EXPECT_EQ(NOTHING, Orders());
    OnHook();
  }
}

TEST_F(BaseChannelTest, DigitsExpireBySecondsToo) {
  Press("1");
  (void)Log();
  Seconds(5);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ((Texts{"5 [7] Previous digits expired"}), Log());
  Press("2");
  EXPECT_EQ((Texts{"5 [7] Digits: 2"}), Log());
}

TEST_F(BaseChannelTest, StepsOfASecondComeInOrder) {
  InitLines({{"LongRecordings", "1"},
             {"LongRecordingsLen", "1"},
             {"LoudVoiceDetect", "1"},
             {"LoudnessThr", "55"},
             {"LoudnessLen", "1"}});
  SetConfig("RecNotOutg", "1");
  OffHook();
  Seconds(30);
  // Three errors make a score that takes thirty seconds to become that of a healthy line.
  for (const DWORD dwState : {139U, 140U, 139U, 0U}) Send(rLine, E_CHG_ChState, dwState);
  Seconds(24);
  Press("1");
  Seconds(5);
  HearWindows(2, /*fLoud=*/true);
  ForgetTraces();
  fHeadersTold = true;
  Seconds(1);
  fHeadersTold = false;
  EXPECT_EQ(
      (Texts{"5 [7] Previous digits expired", "7 header", "5 [7] Loud audio detected", "7 header",
             "5 [7] Recording stopped (60 s)", "5 [7] Outgoing call: not keeping", "7 header",
             "5 [7] Starting recording", "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142445_007_02.wav",
             "5 [7] 1 minutes of recording saved!", "5 [7] Line health: ok"}),
      Log());
}

TEST_F(BaseChannelTest, FileStaysOpenUntilTheRulesOfKeepingHaveBeenAsked) {
  SetConfig("RecNotOutg", "1");
  OffHook();
  (void)Log();
  fHeadersTold = true;
  OnHook();
  fHeadersTold = false;
  // The second header is that of the close.
  EXPECT_EQ((Texts{"5 [7] Call stops", "7 header", "5 [7] Recording stopped (0 s)", "5 [7] Outgoing call: not keeping",
                   "7 header"}),
            Log());
}

// -- long recordings --------------------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, LongCallIsCutIntoPartsOfItsOwn) {
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "2"}});
  SetConfig("RecNotOutg", "1");  // so that no finishing stands in this story
  (void)rLine.ChangeLocalNum("77");
  CallerId("0123456");
  OffHook();
  EXPECT_EQ("20240131_142345_007_01", Active("remoteid"));
  ForgetTraces();

  Seconds(119);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ((Texts{"5 [7] Recording stopped (120 s)", "5 [7] Outgoing call: not keeping", "5 [7] Starting recording",
                   "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142545_007_02.wav",
                   "5 [7] 2 minutes of recording saved!"}),
            Log());
  EXPECT_EQ((Texts{"SsmStopRecToMem(0)", "SsmRecToMem(0,6,4096,0)"}), Cards());
  EXPECT_EQ("20240131_142545_007_02", Active("remoteid"));
  EXPECT_EQ("0123456", Active("remote"));
  EXPECT_EQ("77", Active("local"));

  Seconds(120);
  EXPECT_EQ("20240131_142745_007_03", Active("remoteid"));
  (void)Log();
  OnHook();
  EXPECT_EQ("5 [7] Call stops", Log()[0]);
}

TEST_F(BaseChannelTest, PartLengthOfZeroCutsEverySecond) {
  InitLines({{"LongRecordings", "1"}});
  OffHook();
  for (const char* acId : {"20240131_142346_007_02", "20240131_142347_007_03", "20240131_142348_007_04"}) {
    Seconds(1);
    EXPECT_EQ(acId, Active("remoteid"));
    EXPECT_EQ("5 [7] 0 minutes of recording saved!", Log().back());
  }
}

TEST_F(BaseChannelTest, PartThatMayNotGoOnIsKeptAndLeavesNoSecondsBehind) {
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  OffHook();
  Seconds(59);
  rRecorder.iNumberFilterType = 1;  // lets no number pass
  Seconds(1);
  EXPECT_EQ(0U, ActiveRows());
  EXPECT_EQ("60", Kept("duration"));
  Seconds(10);
  rRecorder.iNumberFilterType = 0;
  CallerId("0170");  // asks again
  ForgetTraces();
  Seconds(59);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ("5 [7] 1 minutes of recording saved!", Log().back());
}

TEST_F(BaseChannelTest, SecondsOfAPartCountOnlyWhileItIsRecorded) {
  InitLines({{"RecOnDmd", "1"}, {"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  OffHook();
  ForgetTraces();
  Seconds(100);
  EXPECT_EQ(NOTHING, Log());
  (void)rLine.RecOnDmdAct(/*fStart=*/true);
  ForgetTraces();
  Seconds(59);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  // The demand ends with its part, so the call waits again.
  EXPECT_EQ(
      (Texts{"5 [7] Recording stopped (60 s)", "5 [7] Recording on demand", "5 [7] 1 minutes of recording saved!"}),
      Log());
}

TEST_F(BaseChannelTest, PartLengthBeyondAllReasonCutsNothing) {
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "2147483647"}});  // in seconds it is no int
  OffHook();
  (void)Log();
  Seconds(100);
  EXPECT_EQ(NOTHING, Log());
}

// -- end of a call's information --------------------------------------------------------------------------------------

TEST_F(BaseChannelTest, EndOfACallForgetsItsNumbers) {
  rLine.BeOneWithConnectedNumbers();
  (void)rLine.ChangeLocalNum("77");
  for (int iCall = 1; iCall <= 2; iCall++) {
    OffHook();
    EXPECT_EQ("", Active("remote"));
    EXPECT_EQ("", Active("connected"));
    EXPECT_EQ("77", Active("local"));  // that of the line
    ForgetTraces();
    CallerId("0170");
    rLine.ConnectedTo("88");
    // News in each call.
    const Texts astrQueries = Queries();
    ASSERT_EQ(4U, astrQueries.size());
    EXPECT_THAT(astrQueries[1], ::testing::HasSubstr("UpdateActiveCallRemoteContact"));
    EXPECT_THAT(astrQueries[3], ::testing::HasSubstr("UpdateActiveCallConnectedNum"));
    OnHook();
    Seconds(30);
    (void)Log();
  }
  OffHook();
  EXPECT_EQ("5 [7] Outgoing call", Log()[1]);  // the age of the number is no matter any longer
}

TEST_F(BaseChannelTest, LineCanForgetItsOwnNumberToo) {
  rLine.BeOneThatForgetsItsOwnNumber();
  (void)rLine.ChangeLocalNum("77");
  OffHook();
  EXPECT_EQ("77", Active("local"));
  OnHook();
  OffHook();
  EXPECT_EQ("", Active("local"));
}

TEST_F(BaseChannelTest, EndOfACallForgetsItsRingAndDirection) {
  InitLines({{"RecOnDmd", "1"}});
  Ring();
  Seconds(5);
  OffHook();
  EXPECT_EQ("5", Active("waittime"));
  OnHook();
  StringMap rCallInfo;  // as for the row of a call that nobody took
  rLine.FillCallInfo(&rCallInfo, &rDatabase, /*fFinal=*/true);
  EXPECT_EQ("-1", rCallInfo.data["waittime"]);
  EXPECT_EQ("0", rCallInfo.data["direction"]);  // stays until the next call
  (void)Log();

  OffHook();  // neither ringing nor has it rung
  EXPECT_EQ("5 [7] Outgoing call", Log()[1]);
  OnHook();

  rLine.DirectionFromSignalling(/*fIncomingCall=*/true);
  (void)Log();
  OffHook();
  EXPECT_EQ("5 [7] Incoming call, ringing time: -1", Log()[1]);
  OnHook();
  (void)Log();
  OffHook();  // nothing was signalled for this one
  EXPECT_EQ("5 [7] Outgoing call", Log()[1]);
}

TEST_F(BaseChannelTest, EndOfACallForgetsItsDigits) {
  OffHook();
  Press("12");
  rLine.IgnoreDigits();
  rLine.EndOfCall();
  (void)Log();
  Press("3");
  EXPECT_EQ((Texts{"5 [7] Digits: 3"}), Log());
  Seconds(6);
  OffHook();
  Press("4");
  OnHook();
  Ring();
  RingStops();
  Seconds(3);
  (void)Log();
  OffHook();  // a digit of this call, that short ago, would make it outgoing
  EXPECT_EQ("5 [7] Incoming, last ring: 3 s. ago", Log()[1]);
}

TEST_F(BaseChannelTest, LoudWindowsCountWithinOneCall) {
  InitLines({{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"}, {"LoudnessLen", "1"}});
  EXPECT_FALSE(AlarmIn({1}));
  EXPECT_FALSE(AlarmIn({1}));  // the window of the call before does not count
  EXPECT_FALSE(AlarmIn({1, -2}));
  EXPECT_TRUE(AlarmIn({1, -1, 1}));  // nor do its quiet ones, which would make a pause of this one
  EXPECT_TRUE(AlarmIn({2}));
  OffHook();
  rLine.CallProgressTone(true);
  OnHook();
  EXPECT_TRUE(AlarmIn({2}));
  OffHook();
  HearWindows(2, /*fLoud=*/true);
  OnHook();
  EXPECT_FALSE(LoudAlarm());  // found, but not yet sent when the call was over
}

// The other information of a call that was too short stays.
TEST_F(BaseChannelTest, LoudAlarmEndsWithItsCallAlsoWhenThatWasTooShort) {
  InitLines({{"LoudVoiceDetect", "1"}, {"LoudnessThr", "55"}, {"LoudnessLen", "1"}});
  SetConfig("RecMinDur", "10");
  OffHook();
  HearWindows(2, /*fLoud=*/true);
  OnHook();
  EXPECT_FALSE(LoudAlarm());  // found, but not yet sent when the call was over
  EXPECT_EQ(NOTHING, Orders());
  EXPECT_TRUE(AlarmIn({2}));
  EXPECT_TRUE(AlarmIn({2}));  // that of the call before is no matter
}

TEST_F(BaseChannelTest, LevelIsThatOfOneCall) {
  rLine.BeOneThatMeasuresLoudness();
  simcards::PlayTone(DRIVER_CH, 1000, -6);
  OffHook();
  Hear(3 * RECORD_REPORT_BYTES);  // one window and a half
  EXPECT_LT(0, rLine.LevelOfStateFile());
  OnHook();
  EXPECT_EQ(NO_LEVEL_DB, rLine.LevelOfStateFile());
  simcards::PlaySilence(DRIVER_CH);
  OffHook();
  Hear(RECORD_REPORT_BYTES);
  EXPECT_EQ(NO_LEVEL_DB, rLine.LevelOfStateFile());  // the half window is gone
  Hear(RECORD_REPORT_BYTES);
  EXPECT_GT(0, rLine.LevelOfStateFile());
}

TEST_F(BaseChannelTest, WhatOutlivesACallStays) {
  InitLines({{"RecOnDmd", "1"}});
  rLine.LinkWith(LINKED_CH);
  for (const char* acId : {"20240131_142345_007_02", "20240131_142345_007_04"}) {
    OffHook();
    EXPECT_EQ("5 [7] Recording on demand", Log().back());
    (void)rLine.RecOnDmdAct(/*fStart=*/true);
    EXPECT_EQ(acId, Active("remoteid"));
    EXPECT_THAT(Orders(), ::testing::Contains("MixIn 0 1"));
    OnHook();
    (void)Log();
  }
}

TEST_F(BaseChannelTest, EndOfAPartForgetsItsMarksOnly) {
  rRecorder.strDTMF[1] = "*1";
  rRecorder.strDTMFact[1] = "email";
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  CallerId("0170");
  OffHook();
  Press("*1");
  rLine.iAlwaysClears = 0;
  Seconds(60);
  EXPECT_EQ(1, rLine.iAlwaysClears);
  EXPECT_THAT(Orders(), ::testing::Contains("EmailRecording 2 1007"));
  OnHook();
  EXPECT_EQ(3, rLine.iAlwaysClears);  // by itself, and with all information of the call
  EXPECT_THAT(Orders(), ::testing::Each(::testing::Not(::testing::HasSubstr("EmailRecording"))));
  EXPECT_EQ("0170", Kept("remote"));
}
