#include "AnalogChannel.h"

#include <algorithm>
#include <ctime>

#include "ChannelBench.h"

namespace {

const Texts NOTHING;

class AnalogChannelTest : public ChannelBench {
 protected:
  // Calls are barred from recording unless a test allows them: their start then shows as the refusal.
  AnalogChannelTest() {
    rRecorder.iNumberFilterType = 1;
    rRecorder.strDataDir = "/tmp/";
  }

  void Init(const StdStringMap& rSettings) {
    for (const auto& [strKey, strValue] : rSettings) rRecorder.rChannelParams[strKey] = strValue;
    InitLine(rLine, 5);
  }
  void Event(WORD wEventCode, DWORD dwParam) { Send(rLine, wEventCode, dwParam); }
  void CallerId(const std::string& strCallerId) {
    simcards::SetCallerId(0, strCallerId);
    Event(E_CHG_CIDExBuf, 0);
  }
  void SilentFor(int iSeconds) { rLine.rStartSilence = time(nullptr) - iSeconds; }

  static constexpr const char* REFUSED = "5 [5] Not recording because not in number filter";
  OpenChannel<AnalogChannel> rLine;
};

}  // namespace

// -- construction and settings ---------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, FreshLine) {
  EXPECT_EQ(1, rLine.iRecSource);
  EXPECT_TRUE(rLine.fUsePressedDigitsForRemote);
  EXPECT_EQ(8, rLine.iSilenceTimeOut);
  EXPECT_EQ(2, rLine.iTriggerType);
  EXPECT_EQ(-999, rLine.iVoltage);
  EXPECT_EQ(0, rLine.m_iLastTone);
  EXPECT_EQ(0, rLine.rStartSilence);
  EXPECT_FALSE(rLine.fInCall_Audio || rLine.fAudio || rLine.fIsNumLocked || rLine.fR2NumSplit);
  EXPECT_FALSE(rLine.fRingsUntilPickup || rLine.fKnowIncoming || rLine.CanStereo());
}

TEST_F(AnalogChannelTest, InitReadsSettingsAdjustsTheCardAndTells) {
  struct Row {
    StdStringMap rSettings;
    int iTriggerType;
    const char* acLine;
    Texts astrCalls;
  };
  const Texts PLAIN = {"SsmSetRecVolume(0,0)", "SsmSetRecAGC(0,0)"};
  const Row rRows[] = {
      {{}, 1, "5 [5] Analog settings: Off-hook", PLAIN},
      {{{"Trigger", "2"}}, 2, "5 [5] Analog settings: Voice detect, time-out 15 s", PLAIN},
      {{{"Trigger", "2"}, {"SilenceTimeOut", "40"}}, 2, "5 [5] Analog settings: Voice detect, time-out 40 s", PLAIN},
      {{{"Trigger", "3"}}, 3, "5 [5] Analog settings: OFF", PLAIN},
      {{{"Trigger", "4"}}, 4, "5 [5] Analog settings: Always", PLAIN},
      {{{"Trigger", "5"}}, 5, "5 [5] Analog settings: ", PLAIN},
      {{{"Trigger", "-1"}}, -1, "5 [5] Analog settings: ", PLAIN},
      {{{"AGC", "1"}, {"Amplify", "3"}},
       1,
       "5 [5] Analog settings: Off-hook, AGC",
       {"SsmSetRecVolume(0,3)", "SsmSetRecAGC(0,1)"}},
      {{{"AGC", "2"}, {"Amplify", "-7"}, {"Trigger", "9"}},
       9,
       "5 [5] Analog settings: , AGC",
       {"SsmSetRecVolume(0,-7)", "SsmSetRecAGC(0,1)"}},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLine);
    ForgetTraces();
    rRecorder.rChannelParams = {{"Trigger", "1"}, {"SilenceTimeOut", "15"}};
    for (const auto& [strKey, strValue] : rRow.rSettings) rRecorder.rChannelParams[strKey] = strValue;
    OpenChannel<AnalogChannel> rFresh;
    rFresh.Init(5, 0, 0, &rRecorder, 0);
    EXPECT_EQ(rRow.iTriggerType, rFresh.iTriggerType);
    EXPECT_EQ((Texts{rRow.acLine}), logsink::TakeTexts());
    EXPECT_EQ(rRow.astrCalls, simcards::TakeCalls());
  }
}

TEST_F(AnalogChannelTest, SettingsReplaceTheConstructorsValues) {
  Init({});
  EXPECT_EQ(1, rLine.iTriggerType);
  EXPECT_EQ(15, rLine.iSilenceTimeOut);
  EXPECT_FALSE(rLine.fR2NumSplit);
  rRecorder.rParams["R2NumSplit"] = "1";
  Init({});
  EXPECT_TRUE(rLine.fR2NumSplit);
}

TEST_F(AnalogChannelTest, BaseSettingsAreReadFirst) {
  simcards::SetChState(0, S_CALL_OFFLINE);
  rRecorder.rChannelParams["RecOnDmd"] = "1";
  (void)logsink::Take();
  rLine.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_TRUE(rLine.fRecOnDmd);
  EXPECT_EQ((Texts{"5 [5] Line health: offline", "5 [5] Analog settings: Off-hook"}), logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, CardThatCannotBeAdjustedIsNotReported) {
  simcards::FailNext("SsmSetRecVolume", 1, -1, "no volume");
  simcards::FailNext("SsmSetRecAGC", 1, -1, "no gain");
  (void)logsink::Take();
  rLine.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"5 [5] Analog settings: Off-hook"}), logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, TriggerTypeDecidesWhatMakesACall) {
  struct Row {
    int iTriggerType;
    bool fOnChState, fOnAudio, fAnyway;
  };
  const Row rRows[] = {{1, true, false, false},  {2, false, true, false},  {3, false, false, false},
                       {4, true, true, true},    {0, false, false, false}, {5, false, false, false},
                       {-1, false, false, false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iTriggerType);
    rLine.iTriggerType = rRow.iTriggerType;
    rLine.fInCall_ChState = rLine.fInCall_Audio = false;
    EXPECT_EQ(rRow.fAnyway, rLine.InCall());
    rLine.fInCall_ChState = true;
    EXPECT_EQ(rRow.fOnChState, rLine.InCall());
    rLine.fInCall_ChState = false;
    rLine.fInCall_Audio = true;
    EXPECT_EQ(rRow.fOnAudio, rLine.InCall());
  }
}

// -- channel states --------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, StateMakesOrEndsACall) {
  struct Row {
    DWORD dwState;
    const char* acText;
    bool fInCallAfterHook;  // a line that was off hook
    bool fInCallAfterIdle;  // a line that was idle
  };
  const Row rRows[] = {
      {0, "0 idle", false, false},          {1, "1 off-hook", true, true},       {2, "2 ring", false, false},
      {3, "3 talking", false, false},       {8, "8 offline", false, false},      {9, "9 wait-answer", false, false},
      {11, "11 unusable", false, false},    {128, "128 recording", true, false}, {139, "139 sign-err", false, false},
      {140, "140 frame-err", false, false}, {77, "77 ", false, false},           {0x50001, "1 off-hook", true, true},
  };
  Init({});
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    for (const bool fHook : {true, false}) {
      Event(E_CHG_ChState, fHook ? 1 : 0);
      ASSERT_EQ(fHook, rLine.fCallBusy);
      (void)logsink::Take();
      Event(E_CHG_ChState, rRow.dwState);
      const bool fExpected = fHook ? rRow.fInCallAfterHook : rRow.fInCallAfterIdle;
      EXPECT_EQ(fExpected, rLine.fInCall_ChState);
      EXPECT_EQ(fExpected, rLine.fCallBusy);
      EXPECT_EQ(rRow.dwState == 2 && !fHook, rLine.fRinging);  // see RingEndsACallByHookStateAndGoesWithIt
      const Texts astrLines = logsink::TakeTexts();
      const std::string strStateLine = std::string("5 [5] Analog channel state: ") + rRow.acText;
      EXPECT_EQ(1, std::count(astrLines.begin(), astrLines.end(), strStateLine));
    }
  }
}

TEST_F(AnalogChannelTest, HealthIsKnownBeforeTheCallEnds) {
  Init({});
  Event(E_CHG_ChState, 1);
  (void)logsink::Take();
  Event(E_CHG_ChState, 8);
  EXPECT_EQ((Texts{"5 [5] Line health: offline", "5 [5] Analog channel state: 8 offline", "5 [5] Call stops"}),
            logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, AnsweredCallIsIncoming) {
  Init({});
  Event(E_CHG_ChState, 2);
  EXPECT_TRUE(rLine.fRinging);
  PassSeconds(1);
  Event(E_CHG_ChState, 0);
  EXPECT_FALSE(rLine.fRinging);
  PassSeconds(3);
  Event(E_CHG_ChState, 2);
  PassSeconds(1);
  Event(E_CHG_ChState, 1);  // ends the ring first, so the guess is by the last ring
  EXPECT_TRUE(rLine.fIncoming);
  EXPECT_EQ(5, rLine.iWaitTime);
  EXPECT_EQ((Texts{"5 [5] Analog channel state: 2 ring", "5 [5] Analog channel state: 0 idle",
                   "5 [5] Analog channel state: 2 ring", "5 [5] Analog channel state: 1 off-hook", "5 [5] Call starts",
                   "5 [5] Incoming, last ring: 0 s. ago", REFUSED}),
            logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, RingEndsACallByHookStateAndGoesWithIt) {
  Init({});
  Event(E_CHG_ChState, 1);
  (void)logsink::Take();
  Event(E_CHG_ChState, 2);
  EXPECT_FALSE(rLine.fCallBusy);
  EXPECT_FALSE(rLine.fRinging);  // part of the information that ends with the call
  EXPECT_EQ(0, rLine.rFirstRing);
  EXPECT_EQ((Texts{"5 [5] Analog channel state: 2 ring", "5 [5] Call stops"}), logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, RecordingStateStopsARingAndLeavesTheCallAlone) {
  Init({});
  Event(E_CHG_ChState, 2);
  PassSeconds(1);
  Event(E_CHG_ChState, 128);
  EXPECT_FALSE(rLine.fRinging);
  EXPECT_EQ(rNow, rLine.rLastRing);
  EXPECT_FALSE(rLine.fCallBusy);
  Event(E_CHG_ChState, 1);
  EXPECT_TRUE(rLine.fCallBusy);
  Event(E_CHG_ChState, 128);
  EXPECT_TRUE(rLine.fCallBusy);
  EXPECT_TRUE(rLine.fInCall_ChState);
}

TEST_F(AnalogChannelTest, StateMeansNothingToOtherTriggers) {
  for (const char* const acTrigger : {"2", "3", "5"}) {
    SCOPED_TRACE(acTrigger);
    Init({{"Trigger", acTrigger}});
    Event(E_CHG_ChState, 1);
    EXPECT_TRUE(rLine.fInCall_ChState);
    EXPECT_FALSE(rLine.fCallBusy);
    Event(E_CHG_ChState, 0);
  }
}

// -- digits, flash, no sound, audio ----------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, DigitIsTheLowByte) {
  Init({});
  Event(E_CHG_RcvDTMF, 0xab00 | '5');
  EXPECT_EQ("5", rLine.strDigits);
  EXPECT_EQ((Texts{"5 [5] Analog DTMF detected: 5", "5 [5] Digits: 5"}), logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmClearRxDtmfBuf(0)"}), simcards::TakeCalls());
}

TEST_F(AnalogChannelTest, DialledDigitsBecomeTheRemoteNumber) {
  Init({});
  Event(E_CHG_ChState, 1);
  for (const char ch : std::string("0171")) Event(E_CHG_RcvDTMF, static_cast<DWORD>(ch));
  for (int i = 0; i < 6; i++) Tick(rLine);
  EXPECT_EQ("0171", rLine.strRemoteNum);
}

TEST_F(AnalogChannelTest, FlashAndNoSoundAreOnlyLogged) {
  Init({});
  Event(E_CHG_FlashCount, 1);
  Event(E_SYS_NoSound, 1);
  EXPECT_EQ((Texts{"5 [5] Hook flash detected", "5 [5] Analog No Sound Detected"}), logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
  EXPECT_FALSE(rLine.fCallBusy);
}

TEST_F(AnalogChannelTest, AudioReachesTheFile) {
  Init({});
  rLine.strFullFilename = "/recordings/analog.wav";
  rLine.BasicRecordingPreparation();
  rLine.OpenAudioFile();
  rLine.acRecordBuf[0] = 'x';
  Event(E_PROC_RecordMem, 1);
  rLine.CloseAudioFile();
  EXPECT_EQ("x", FileBytes("/recordings/analog.wav").substr(56));
}

TEST_F(AnalogChannelTest, CodesOfOtherCardsAreIgnored) {
  Init({});
  for (const WORD wCode : std::initializer_list<WORD>{0, 7, 49, 65, 124, 60000}) Event(wCode, 1);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
}

// -- caller id -------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, CallerIdBecomesTheRemoteNumber) {
  struct Row {
    const char* acLabel;
    const char* acCallerId;
    Texts astrLines;
    const char* acRemote;
  };
  const Row rRows[] = {
      {"none", "", {}, "before"},
      {"one character", "7", {"5 [5] Analog caller ID: 7"}, "before"},
      {"two characters", "17", {"5 [5] Analog caller ID: 17", "5 [5] Remote: 17"}, "17"},
      {"text", "private %s", {"5 [5] Analog caller ID: private %s", "5 [5] Remote: private %s"}, "private %s"},
      {"13 characters without R2",
       "1234560987654",
       {"5 [5] Analog caller ID: 1234560987654", "5 [5] Remote: 1234560987654"},
       "1234560987654"},
  };
  Init({});
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rLine.strRemoteNum = "before";
    CallerId(rRow.acCallerId);
    EXPECT_EQ(rRow.astrLines, logsink::TakeTexts());
    EXPECT_EQ(rRow.acRemote, rLine.strRemoteNum);
    EXPECT_FALSE(rLine.fIsNumLocked);
    EXPECT_EQ("", rLine.strLocalNum);
  }
}

TEST_F(AnalogChannelTest, NoCallerIdFromTheCardIsNothing) {
  Init({});
  rLine.iDrvCh = LINES;  // a channel that the library does not know
  Event(E_CHG_CIDExBuf, 0);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ("", rLine.strRemoteNum);
}

TEST_F(AnalogChannelTest, R2CallerIdHoldsBothParties) {
  rRecorder.rParams["R2NumSplit"] = "1";
  Init({});
  CallerId("12345600987654");  // 14 characters
  EXPECT_EQ("12345600987654", rLine.strRemoteNum);
  (void)logsink::Take();
  CallerId("111222*333444");
  EXPECT_EQ("111222", rLine.strRemoteNum);
  EXPECT_EQ("333444", rLine.strLocalNum);
  EXPECT_TRUE(rLine.fUseLocalNum);
  EXPECT_EQ(
      (Texts{"5 [5] Analog caller ID: 111222*333444", "5 [5] Local Number Changed: 333444.", "5 [5] Remote: 111222"}),
      logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, AfterAnR2SplitOnlyTheR2FormChangesTheNumber) {
  rRecorder.rParams["R2NumSplit"] = "1";
  Init({});
  CallerId("111222*333444");
  rLine.ClearInfo();  // the lock holds for the life of the line
  EXPECT_TRUE(rLine.fIsNumLocked);
  (void)logsink::Take();
  CallerId("0170123456");
  EXPECT_EQ("", rLine.strRemoteNum);
  EXPECT_EQ((Texts{"5 [5] Analog caller ID: 0170123456"}), logsink::TakeTexts());
  CallerId("555666*777888");
  EXPECT_EQ("555666", rLine.strRemoteNum);
  EXPECT_EQ("777888", rLine.strLocalNum);
}

// -- tones -----------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, ToneIsToldOnceAndSwitchesTheLoudAlarmOff) {
  struct Row {
    DWORD dwParam;
    const char* acText;
    bool fSwitchedOff;
  };
  const Row rRows[] = {
      {1, "1 dial tone", true},
      {2, "2 busy tone", true},
      {3, "3 ringback tone", true},
      {4, "4 silence after ringback", false},
      {5, "5 no sound", false},
      {6, "6 voice", false},
      {9, "9 ", false},
      {0x101, "1 dial tone", true},
      {0, "0 ", false},
  };
  Init({});
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    rLine.fHighSwitchedOff = !rRow.fSwitchedOff;
    Event(E_CHG_ToneAnalyze, rRow.dwParam);
    EXPECT_EQ(rRow.fSwitchedOff, rLine.fHighSwitchedOff);
    EXPECT_EQ((Texts{std::string("5 [5] Analog ToneAnalyze: ") + rRow.acText}), logsink::TakeTexts());
    rLine.fHighSwitchedOff = !rRow.fSwitchedOff;
    Event(E_CHG_ToneAnalyze, rRow.dwParam);  // the same again
    EXPECT_EQ(!rRow.fSwitchedOff, rLine.fHighSwitchedOff);
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
  }
  EXPECT_FALSE(rLine.fCallBusy);
}

TEST_F(AnalogChannelTest, ToneZeroOnAFreshLineIsNotTold) {
  Init({});
  Event(E_CHG_ToneAnalyze, 0);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, SilentLineStartsACallInTheTestMode) {
  struct Row {
    const char* acLabel;
    bool fDebugRepeatRecord;
    DWORD dwTone;
    bool fInCallBefore;
    bool fStarts;
  };
  const Row rRows[] = {
      {"test mode, no sound", true, 5, false, true},   {"test mode, voice", true, 6, false, false},
      {"test mode, busy tone", true, 2, false, false}, {"test mode, in a call", true, 5, true, false},
      {"no test mode", false, 5, false, false},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    OpenChannel<AnalogChannel> rFresh;
    rRecorder.rChannelParams["Trigger"] = "2";
    InitLine(rFresh, 5);
    rRecorder.fDebugRepeatRecord = rRow.fDebugRepeatRecord;
    rFresh.fInCall_Audio = rFresh.fCallBusy = rRow.fInCallBefore;
    rFresh.fAudio = true;
    const time_t rBefore = time(nullptr);
    Send(rFresh, E_CHG_ToneAnalyze, rRow.dwTone);
    EXPECT_EQ(rRow.fStarts || rRow.fInCallBefore, rFresh.fCallBusy);
    EXPECT_EQ(!rRow.fStarts, rFresh.fAudio);
    EXPECT_EQ(rRow.fStarts, rFresh.rStartSilence >= rBefore);
    EXPECT_EQ(rRow.fStarts ? 4U : 1U, logsink::TakeTexts().size());  // tone; call starts, direction, refusal
  }
}

// -- sound -----------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, SoundStartsACallAndSilenceEndsIt) {
  Init({{"Trigger", "2"}, {"SilenceTimeOut", "10"}});
  Event(E_SYS_BargeIn, 1);
  EXPECT_TRUE(rLine.fInCall_Audio && rLine.fAudio && rLine.fCallBusy);
  EXPECT_EQ((Texts{"5 [5] Call starts", "5 [5] Outgoing call", REFUSED}), logsink::TakeTexts());
  Event(E_SYS_BargeIn, 1);  // again
  EXPECT_EQ(NOTHING, logsink::TakeTexts());

  const time_t rBefore = time(nullptr);
  Event(E_SYS_BargeIn, 0);
  EXPECT_FALSE(rLine.fAudio);
  EXPECT_LE(rBefore, rLine.rStartSilence);
  EXPECT_TRUE(rLine.fInCall_Audio && rLine.fCallBusy);
  SilentFor(7);
  const time_t rSilence = rLine.rStartSilence;
  Event(E_SYS_BargeIn, 2);  // still no sound: the silence goes on
  EXPECT_EQ(rSilence, rLine.rStartSilence);
  Tick(rLine);
  EXPECT_TRUE(rLine.fCallBusy);

  Event(E_SYS_BargeIn, 1);  // a pause was all it was
  SilentFor(1000);
  Tick(rLine);
  EXPECT_TRUE(rLine.fCallBusy);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());

  Event(E_SYS_BargeIn, 0);
  SilentFor(10);
  Tick(rLine);
  EXPECT_FALSE(rLine.fInCall_Audio || rLine.fCallBusy);
  EXPECT_EQ((Texts{"5 [5] Silence time out (10 s)", "5 [5] Call stops"}), logsink::TakeTexts());
  Tick(rLine);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, SilenceShorterThanTheTimeOutEndsNothing) {
  Init({{"Trigger", "2"}, {"SilenceTimeOut", "100"}});
  Event(E_SYS_BargeIn, 1);
  Event(E_SYS_BargeIn, 0);
  SilentFor(90);
  Tick(rLine);
  EXPECT_TRUE(rLine.fCallBusy);
}

TEST_F(AnalogChannelTest, SoundMeansNothingToTheHookTrigger) {
  Init({{"SilenceTimeOut", "10"}});
  Event(E_SYS_BargeIn, 1);
  EXPECT_TRUE(rLine.fInCall_Audio);
  EXPECT_FALSE(rLine.fCallBusy);
  Event(E_SYS_BargeIn, 0);
  SilentFor(10);
  Tick(rLine);
  EXPECT_FALSE(rLine.fInCall_Audio);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(AnalogChannelTest, TestModeRecordsInAnEndlessChain) {
  Init({{"Trigger", "2"}, {"SilenceTimeOut", "10"}});
  rRecorder.fDebugRepeatRecord = true;
  Event(E_SYS_BargeIn, 1);
  for (int i = 0; i < 3; i++) {
    Event(E_SYS_BargeIn, 0);
    SilentFor(10);
    (void)logsink::Take();
    const time_t rBefore = time(nullptr);
    Tick(rLine);
    EXPECT_TRUE(rLine.fCallBusy && rLine.fInCall_Audio);
    EXPECT_FALSE(rLine.fAudio);
    EXPECT_LE(rBefore, rLine.rStartSilence);
    EXPECT_EQ((Texts{"5 [5] Silence time out (10 s)", "5 [5] Call stops", "5 [5] Call starts", "5 [5] Outgoing call",
                     REFUSED}),
              logsink::TakeTexts());
  }
}

TEST_F(AnalogChannelTest, TestModeRecordsOnePartAfterTheOther) {
  rRecorder.iNumberFilterType = 0;
  rRecorder.rDatabase.rParts["crec"]["RecNotOutg"] = "1";
  Init({{"Trigger", "2"}, {"SilenceTimeOut", "10"}});
  rRecorder.fDebugRepeatRecord = true;
  Event(E_CHG_ToneAnalyze, 5);
  EXPECT_TRUE(rLine.fRecording);
  SilentFor(10);
  Tick(rLine);
  EXPECT_TRUE(rLine.fRecording);
  EXPECT_EQ(2, rLine.iRecUniqCnt);
}

// -- each second -----------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, AlwaysStartsItsOneCallInTheFirstSecond) {
  Init({{"Trigger", "4"}});
  simcards::SetVoltage(0, 48);
  EXPECT_FALSE(rLine.fCallBusy);
  Tick(rLine);
  EXPECT_TRUE(rLine.fCallBusy);
  EXPECT_EQ((Texts{"5 [5] Call starts", "5 [5] Outgoing call", REFUSED}), logsink::TakeTexts());
  Event(E_CHG_ChState, 1);
  Event(E_CHG_ChState, 0);
  Event(E_SYS_BargeIn, 1);
  Event(E_SYS_BargeIn, 0);
  SilentFor(1000);
  for (int i = 0; i < 30; i++) Tick(rLine);
  EXPECT_TRUE(rLine.fCallBusy);
  EXPECT_EQ(-999, rLine.iVoltage);
  rLine.EndOfCall();
  EXPECT_FALSE(rLine.fCallBusy);
}

TEST_F(AnalogChannelTest, VoltageIsReadEachSecond) {
  Init({});
  for (const int iVoltage : {48, -52, 0}) {
    simcards::SetVoltage(0, iVoltage);
    Tick(rLine);
    EXPECT_EQ(iVoltage, rLine.iVoltage);
  }
}

TEST_F(AnalogChannelTest, BaseHasItsSecondFirst) {
  Init({{"Trigger", "4"}});
  rLine.iHighNotify = HIGH_NOTIFY_TO_SEND;
  Tick(rLine);
  EXPECT_EQ((Texts{"5 [5] Loud audio detected", "5 [5] Call starts", "5 [5] Outgoing call", REFUSED}),
            logsink::TakeTexts());
}

// -- state file ------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, StateFileHoldsWhatIsKnown) {
  struct Row {
    int iVoltage, iLevel;
    const char* acText;
  };
  const Row rRows[] = {
      {48, 63, "Voltage: 48\r\nAudioLevel: 63\r\n"},
      {-52, -30, "Voltage: -52\r\nAudioLevel: -30\r\n"},
      {0, -999, "Voltage: 0\r\n"},
      {-999, 0, "AudioLevel: 0\r\n"},
      {-999, -999, ""},
  };
  Init({});
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    rLine.iVoltage = rRow.iVoltage;
    rLine.iLast_dB = rRow.iLevel;
    EXPECT_EQ(0, rLine.WriteChState());
    EXPECT_EQ(rRow.acText, FileBytes("/tmp/chstate_5.dat"));
  }
}

TEST_F(AnalogChannelTest, StateFileOfAnAlwaysLineHasNoVoltage) {
  Init({{"Trigger", "4"}});
  simcards::SetVoltage(0, 48);
  Tick(rLine);
  rLine.iLast_dB = 40;
  EXPECT_EQ(0, rLine.WriteChState());
  EXPECT_EQ("AudioLevel: 40\r\n", FileBytes("/tmp/chstate_5.dat"));
}

TEST_F(AnalogChannelTest, StateFileThatCannotBeOpenedIsToldByTheResultAlone) {
  Init({});
  rRecorder.strDataDir = "/tmp/none/";
  EXPECT_EQ(1, rLine.WriteChState());
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}
