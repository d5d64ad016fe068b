// An analogue line of each trigger, its calls told event by event.
#include "AnalogChannel.h"

#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "AudioReference.h"
#include "ChannelBench.h"

namespace {

const Texts NOTHING;
// Settings that nothing shows before Init has read them.
class OpenAnalog : public AnalogChannel {
 public:
  using AnalogChannel::iSilenceTimeOut;
  using AnalogChannel::iTriggerType;
};

// Line 5 on driver channel 0.
class AnalogChannelTest : public ChannelBench {
 protected:
  // Calls are barred from recording unless a test allows them: their start then shows as the refusal.
  AnalogChannelTest() {
    BarRecording();
    rRecorder.strDataDir = "/tmp/";
    MakeLine({});
  }

  // A line as it is after the start of the daemon with these settings.
  void MakeLine(const StdStringMap& rSettings, int iDrvCh = 0) {
    rRecorder.rChannelParams = {{"Trigger", "1"}, {"SilenceTimeOut", "15"}};
    for (const auto& [strKey, strValue] : rSettings) rRecorder.rChannelParams[strKey] = strValue;
    prLine = std::make_unique<AnalogChannel>();
    rRecorder.vChannels = {prLine.get()};
    InitLine(*prLine, 5, iDrvCh);
  }

  void Event(WORD wEventCode, DWORD dwParam) { Send(*prLine, wEventCode, dwParam); }
  void State(DWORD dwState) { Event(E_CHG_ChState, dwState); }
  void OnHook() { State(S_CALL_STANDBY); }
  void OffHook() { State(S_CALL_PICKUPED); }
  void Ring() { State(S_CALL_RINGING); }
  void Sound() { Event(E_SYS_BargeIn, 1); }
  void Silence() { Event(E_SYS_BargeIn, 0); }
  void Tone(DWORD dwTone) { Event(E_CHG_ToneAnalyze, dwTone); }
  void Press(const std::string& strDigits) {
    for (const char ch : strDigits) Event(E_CHG_RcvDTMF, static_cast<DWORD>(ch));
  }
  void CallerId(const std::string& strCallerId) {
    simcards::SetCallerId(0, strCallerId);
    Event(E_CHG_CIDExBuf, 0);
  }
  std::string StateFile() {
    EXPECT_EQ(0, prLine->WriteChState());
    return ReadTestFile("/tmp/chstate_5.dat");
  }

  std::unique_ptr<AnalogChannel> prLine;
};

}  // namespace

// -- settings ---------------------------------------------------------------------------------------------------------

// No event shows these: Init replaces them, and nothing happens on a line before it.
TEST_F(AnalogChannelTest, LineBeforeInitWaitsForVoice) {
  const OpenAnalog rFresh;
  EXPECT_EQ(2, rFresh.iTriggerType);
  EXPECT_EQ(8, rFresh.iSilenceTimeOut);
}

TEST_F(AnalogChannelTest, SettingsAdjustTheCardAndAreTold) {
  struct Row {
    StdStringMap rSettings;
    const char* acLine;
    int iVolume, iAGC;
  };
  const Row rRows[] = {
      {{}, "5 [5] Analog settings: Off-hook", 0, 0},
      {{{"Trigger", "2"}}, "5 [5] Analog settings: Voice detect, time-out 15 s", 0, 0},
      {{{"Trigger", "2"}, {"SilenceTimeOut", "40"}}, "5 [5] Analog settings: Voice detect, time-out 40 s", 0, 0},
      {{{"Trigger", "3"}}, "5 [5] Analog settings: OFF", 0, 0},
      {{{"Trigger", "4"}}, "5 [5] Analog settings: Always", 0, 0},
      {{{"Trigger", "5"}}, "5 [5] Analog settings: ", 0, 0},
      {{{"Trigger", "-1"}}, "5 [5] Analog settings: ", 0, 0},
      {{{"AGC", "1"}, {"Amplify", "3"}}, "5 [5] Analog settings: Off-hook, AGC", 3, 1},
      {{{"AGC", "2"}, {"Amplify", "-7"}, {"Trigger", "9"}}, "5 [5] Analog settings: , AGC", -7, 1},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLine);
    MakeLine(rRow.rSettings);
    AnalogChannel rFresh;
    rFresh.Init(5, 0, 0, &rRecorder, 0);
    EXPECT_EQ((Texts{rRow.acLine}), Log());
    EXPECT_EQ((Texts{"SsmSetRecVolume(0," + std::to_string(rRow.iVolume) + ")",
                     "SsmSetRecAGC(0," + std::to_string(rRow.iAGC) + ")"}),
              Cards());
  }
}

TEST_F(AnalogChannelTest, HealthAtStartIsToldBeforeTheSettings) {
  simcards::SetChState(0, S_CALL_OFFLINE);
  AnalogChannel rFresh;
  rFresh.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"5 [5] Line health: offline", "5 [5] Analog settings: Off-hook"}), Log());
}

TEST_F(AnalogChannelTest, SettingsOfEveryLineHoldToo) {
  MakeLine({{"RecOnDmd", "1"}});
  AllowRecording();
  OffHook();
  EXPECT_EQ("5 [5] Recording on demand", Log().back());
}

TEST_F(AnalogChannelTest, CardThatCannotBeAdjustedIsNotReported) {
  simcards::FailNext("SsmSetRecVolume", 1, -1, "no volume");
  simcards::FailNext("SsmSetRecAGC", 1, -1, "no gain");
  AnalogChannel rFresh;
  rFresh.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"5 [5] Analog settings: Off-hook"}), Log());
}

TEST_F(AnalogChannelTest, TriggerDecidesWhatMakesACall) {
  struct Row {
    const char* acTrigger;
    Texts astrOffHook, astrOnHook, astrSound, astrSecond;
  };
  const Texts STATE_1 = {"5 [5] Analog channel state: 1 off-hook"};
  const Texts STATE_0 = {"5 [5] Analog channel state: 0 idle"};
  const Row rRows[] = {
      {"1", Join(STATE_1, STARTS), Join(STATE_0, STOPS), NOTHING, NOTHING},
      {"2", STATE_1, STATE_0, STARTS, NOTHING},
      {"3", STATE_1, STATE_0, NOTHING, NOTHING},
      {"4", Join(STATE_1, STARTS), STATE_0, NOTHING, NOTHING},  // any event starts the one call
      {"0", STATE_1, STATE_0, NOTHING, NOTHING},
      {"5", STATE_1, STATE_0, NOTHING, NOTHING},
      {"-1", STATE_1, STATE_0, NOTHING, NOTHING},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acTrigger);
    MakeLine({{"Trigger", rRow.acTrigger}});
    OffHook();
    EXPECT_EQ(rRow.astrOffHook, Log());
    OnHook();
    EXPECT_EQ(rRow.astrOnHook, Log());
    Sound();
    EXPECT_EQ(rRow.astrSound, Log());
    Seconds(1);
    EXPECT_EQ(rRow.astrSecond, Log());
  }
}

// -- channel states ---------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, StateMakesOrEndsACall) {
  struct Row {
    DWORD dwState;
    Texts astrLines;
    Texts astrFromHook, astrFromIdle;  // what follows on a line that was off hook, and on one that was idle
  };
  const Row rRows[] = {
      {0, {"5 [5] Analog channel state: 0 idle"}, STOPS, NOTHING},
      {1, {"5 [5] Analog channel state: 1 off-hook"}, NOTHING, STARTS},
      {2, {"5 [5] Analog channel state: 2 ring"}, STOPS, NOTHING},
      {3, {"5 [5] Analog channel state: 3 talking"}, STOPS, NOTHING},
      {8, {"5 [5] Line health: offline", "5 [5] Analog channel state: 8 offline"}, STOPS, NOTHING},
      {9, {"5 [5] Analog channel state: 9 wait-answer"}, STOPS, NOTHING},
      {11, {"5 [5] Line health: offline", "5 [5] Analog channel state: 11 unusable"}, STOPS, NOTHING},
      {128, {"5 [5] Analog channel state: 128 recording"}, NOTHING, NOTHING},
      {139, {"5 [5] Analog channel state: 139 sign-err"}, STOPS, NOTHING},
      {140, {"5 [5] Analog channel state: 140 frame-err"}, STOPS, NOTHING},
      {77, {"5 [5] Analog channel state: 77 "}, STOPS, NOTHING},
      {0x50001, {"5 [5] Analog channel state: 1 off-hook"}, NOTHING, STARTS},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.dwState);
    MakeLine({});
    OffHook();
    ForgetTraces();
    State(rRow.dwState);
    EXPECT_EQ(Join(rRow.astrLines, rRow.astrFromHook), Log());
    MakeLine({});
    State(rRow.dwState);
    EXPECT_EQ(Join(rRow.astrLines, rRow.astrFromIdle), Log());
  }
}

TEST_F(AnalogChannelTest, AnsweredCallIsIncoming) {
  AllowRecording();
  Ring();
  Seconds(1);
  OnHook();
  Seconds(3);
  Ring();
  Seconds(1);
  OffHook();  // ends the ring first, so the guess is by the last ring
  EXPECT_EQ((Texts{"5 [5] Analog channel state: 2 ring", "5 [5] Analog channel state: 0 idle",
                   "5 [5] Analog channel state: 2 ring", "5 [5] Analog channel state: 1 off-hook", "5 [5] Call starts",
                   "5 [5] Incoming, last ring: 0 s. ago", "5 [5] Starting recording",
                   "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134645_005_01.wav"}),
            Log());
  EXPECT_EQ("0", Active("direction"));
  EXPECT_EQ("5", Active("waittime"));
}

TEST_F(AnalogChannelTest, RingThatEndsACallIsForgottenWithIt) {
  OffHook();
  Ring();
  ForgetTraces();
  OffHook();
  EXPECT_EQ(Join({"5 [5] Analog channel state: 1 off-hook"}, STARTS), Log());  // an outgoing one
}

TEST_F(AnalogChannelTest, RecordingStateStopsARingAndLeavesTheCallAlone) {
  Ring();
  Seconds(1);
  State(S_DTRC_ACTIVE);
  Seconds(5);
  OffHook();
  EXPECT_EQ("5 [5] Incoming, last ring: 5 s. ago", Log()[4]);
  State(S_DTRC_ACTIVE);
  OnHook();
  EXPECT_EQ(Join({"5 [5] Analog channel state: 128 recording", "5 [5] Analog channel state: 0 idle"}, STOPS), Log());
}

TEST_F(AnalogChannelTest, EveryOtherStateStopsARing) {
  for (const DWORD dwState : {0U, 3U, 8U, 9U, 11U, 77U, 128U, 139U, 140U, 255U}) {
    SCOPED_TRACE(dwState);
    MakeLine({});
    Ring();
    Seconds(1);
    State(dwState);
    Seconds(5);
    OffHook();
    const Texts astrLog = Log();
    ASSERT_GE(astrLog.size(), 2U);
    EXPECT_EQ("5 [5] Incoming, last ring: 5 s. ago", astrLog[astrLog.size() - 2]);
  }
}

// -- digits, flash, no sound, audio -----------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, DigitIsTheLowByte) {
  Event(E_CHG_RcvDTMF, 0xab00 | '5');
  EXPECT_EQ((Texts{"5 [5] Analog DTMF detected: 5", "5 [5] Digits: 5"}), Log());
  EXPECT_EQ((Texts{"SsmClearRxDtmfBuf(0)"}), Cards());
}

TEST_F(AnalogChannelTest, DialledDigitsBecomeTheRemoteNumber) {
  AllowRecording();
  OffHook();
  Press("0171");
  ForgetTraces();
  Seconds(6);
  EXPECT_EQ((Texts{"5 [5] Previous digits expired", "5 [5] Remote: 0171"}), Log());
  OnHook();
  EXPECT_EQ("0171", Kept("remote"));
}

TEST_F(AnalogChannelTest, FlashAndNoSoundAreOnlyLogged) {
  Event(E_CHG_FlashCount, 1);
  Event(E_SYS_NoSound, 1);
  EXPECT_EQ((Texts{"5 [5] Hook flash detected", "5 [5] Analog No Sound Detected"}), Log());
  EXPECT_EQ(NOTHING, Cards());
}

TEST_F(AnalogChannelTest, CallLeavesItsAudioAndARow) {
  AllowRecording();
  OffHook();
  Hear(0, "audio");
  Seconds(2);
  OnHook();
  EXPECT_EQ(Wav(6, 1, "audio"), ReadTestFile("/recordings/1970/01/12/13/19700112_134640_005_01.wav"));
  EXPECT_EQ("1", Kept("source"));
  EXPECT_EQ("5", Kept("linenr"));
  EXPECT_EQ("2", Kept("duration"));
}

TEST_F(AnalogChannelTest, NoLineCanRecordInStereo) {
  rRecorder.fStereo = true;
  AllowRecording();
  OffHook();
  Hear(0, "audio");
  OnHook();
  EXPECT_EQ(Wav(6, 1, "audio"), ReadTestFile("/recordings/1970/01/12/13/19700112_134640_005_01.wav"));
}

TEST_F(AnalogChannelTest, CodesOfOtherCardsAreIgnored) {
  for (const WORD wCode : std::initializer_list<WORD>{0, 7, 49, 65, 124, 60000}) Event(wCode, 1);
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
}

// -- caller id --------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, CallerIdBecomesTheRemoteNumber) {
  struct Row {
    const char *acLabel, *acR2Split, *acCallerId;
    Texts astrLines;
    const char *acRemote, *acLocal;
  };
  const Row rRows[] = {
      {"none", "0", "", {}, "0301234", ""},
      {"one character", "0", "7", {"5 [5] Analog caller ID: 7"}, "0301234", ""},
      {"two characters", "0", "17", {"5 [5] Analog caller ID: 17", "5 [5] Remote: 17"}, "17", ""},
      {"text", "0", "private %s", {"5 [5] Analog caller ID: private %s", "5 [5] Remote: private %s"}, "private %s", ""},
      {"R2 form without R2",
       "0",
       "111222*333444",
       {"5 [5] Analog caller ID: 111222*333444", "5 [5] Remote: 111222*333444"},
       "111222*333444",
       ""},
      {"R2 form holds both parties",
       "1",
       "111222*333444",
       {"5 [5] Analog caller ID: 111222*333444", "5 [5] Local Number Changed: 333444.", "5 [5] Remote: 111222"},
       "111222",
       "333444"},
      {"one character more",
       "1",
       "111222*3334445",
       {"5 [5] Analog caller ID: 111222*3334445", "5 [5] Remote: 111222*3334445"},
       "111222*3334445",
       ""},
  };
  AllowRecording();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.rParams["R2NumSplit"] = rRow.acR2Split;
    MakeLine({});
    CallerId("0301234");
    ForgetTraces();
    CallerId(rRow.acCallerId);
    EXPECT_EQ(rRow.astrLines, Log());
    OffHook();
    EXPECT_EQ(rRow.acRemote, Active("remote"));
    EXPECT_EQ(rRow.acLocal, Active("local"));
  }
}

TEST_F(AnalogChannelTest, NoCallerIdFromTheCardIsNothing) {
  MakeLine({}, /*iDrvCh=*/LINES);  // a channel that the library does not know
  Event(E_CHG_CIDExBuf, 0);
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(AnalogChannelTest, AfterAnR2SplitOnlyTheR2FormChangesTheNumber) {
  rRecorder.rParams["R2NumSplit"] = "1";
  MakeLine({});
  CallerId("111222*333444");
  OffHook();
  OnHook();  // the lock outlives the call
  ForgetTraces();
  CallerId("0170123456");
  EXPECT_EQ((Texts{"5 [5] Analog caller ID: 0170123456"}), Log());
  CallerId("555666*777888");
  EXPECT_EQ(
      (Texts{"5 [5] Analog caller ID: 555666*777888", "5 [5] Local Number Changed: 777888.", "5 [5] Remote: 555666"}),
      Log());
}

// -- tones ------------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, ToneIsToldOnceAndACallProgressToneSwitchesTheLoudAlarmOff) {
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
      {0x103, "3 ringback tone", true},
  };
  AllowRecording();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    MakeLine({{"LoudVoiceDetect", "1"}, {"LoudnessThr", "60"}, {"LoudnessLen", "1"}});
    OffHook();
    Tone(rRow.fSwitchedOff ? 6 : 2);
    ForgetTraces();
    Tone(rRow.dwParam);
    EXPECT_EQ((Texts{std::string("5 [5] Analog ToneAnalyze: ") + rRow.acText}), Log());
    Tone(rRow.dwParam);
    EXPECT_EQ(NOTHING, Log());
    Hear(0, LOUD);
    Hear(0, LOUD);
    Seconds(1);
    EXPECT_EQ(rRow.fSwitchedOff ? NOTHING : Texts{"5 [5] Loud audio detected"}, Log());
    OnHook();
  }
}

TEST_F(AnalogChannelTest, ToneThatLastsIntoTheNextCallDoesNotSwitchItsAlarmOff) {
  AllowRecording();
  MakeLine({{"LoudVoiceDetect", "1"}, {"LoudnessThr", "60"}, {"LoudnessLen", "1"}});
  OffHook();
  Tone(TONE_BUSY);
  OnHook();
  OffHook();
  Tone(TONE_BUSY);
  ForgetTraces();
  Hear(0, LOUD);
  Hear(0, LOUD);
  Seconds(1);
  EXPECT_EQ((Texts{"5 [5] Loud audio detected"}), Log());
}

TEST_F(AnalogChannelTest, ToneZeroIsToldOnlyAfterAnother) {
  Tone(0);
  EXPECT_EQ(NOTHING, Log());
  Tone(6);
  Tone(0);
  EXPECT_EQ((Texts{"5 [5] Analog ToneAnalyze: 6 voice", "5 [5] Analog ToneAnalyze: 0 "}), Log());
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
    MakeLine({{"Trigger", "2"}});
    rRecorder.fDebugRepeatRecord = rRow.fDebugRepeatRecord;
    if (rRow.fInCallBefore) Sound();
    ForgetTraces();
    Tone(rRow.dwTone);
    const Texts TOLD = {"5 [5] Analog ToneAnalyze: " + std::to_string(rRow.dwTone) + " " +
                        GetToneDescr(static_cast<int>(rRow.dwTone))};
    EXPECT_EQ(rRow.fStarts ? Join(TOLD, STARTS) : TOLD, Log());
    Seconds(14);
    EXPECT_EQ(NOTHING, Log());
    Seconds(1);  // the silence that times out began with the tone
    EXPECT_EQ(rRow.fStarts ? Join(Join({"5 [5] Silence time out (15 s)"}, STOPS), STARTS) : NOTHING, Log());
  }
}

// -- sound ------------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, SoundStartsACallAndSilenceEndsIt) {
  MakeLine({{"Trigger", "2"}, {"SilenceTimeOut", "10"}});
  Sound();
  EXPECT_EQ(STARTS, Log());
  Sound();
  Seconds(30);
  Silence();
  Seconds(9);
  Sound();  // a pause was all it was
  Seconds(1000);
  EXPECT_EQ(NOTHING, Log());
  Silence();
  Seconds(7);
  Event(E_SYS_BargeIn, 2);  // still no sound: the silence goes on
  Seconds(2);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ(Join({"5 [5] Silence time out (10 s)"}, STOPS), Log());
  Seconds(30);
  EXPECT_EQ(NOTHING, Log());
  Sound();
  EXPECT_EQ(STARTS, Log());

  // The wall clock goes on where the other stands, and stands where the other goes on.
  testtime::rFrozen = 5000;
  SetSimTime(7000);
  Silence();
  SetSimTime(9000);
  testtime::rFrozen = 5009;
  prLine->Periodic();
  EXPECT_EQ(NOTHING, Log());
  SetSimTime(1);
  testtime::rFrozen = 5010;
  prLine->Periodic();
  EXPECT_EQ(Join({"5 [5] Silence time out (10 s)"}, STOPS), Log());
}

TEST_F(AnalogChannelTest, SoundMeansNothingToTheHookTrigger) {
  MakeLine({{"SilenceTimeOut", "10"}});
  Sound();
  Silence();
  Seconds(11);
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(AnalogChannelTest, TestModeRecordsInAnEndlessChain) {
  AllowRecording();
  MakeLine({{"Trigger", "2"}, {"SilenceTimeOut", "10"}});
  rRecorder.fDebugRepeatRecord = true;
  Tone(TONE_NO_SOUND);
  for (const std::string strNext : {"134650_005_02", "134700_005_03", "134710_005_04"}) {
    ForgetTraces();
    Seconds(10);
    EXPECT_EQ((Texts{"5 [5] Silence time out (10 s)", "5 [5] Call stops", "5 [5] Recording stopped (10 s)",
                     "5 [5] Call starts", "5 [5] Outgoing call", "5 [5] Starting recording",
                     "5 [5] Recording to file /recordings/1970/01/12/13/19700112_" + strNext + ".wav"}),
              Log());
  }
}

TEST_F(AnalogChannelTest, TestModeStartsNothingWithAnotherTrigger) {
  for (const char* acTrigger : {"1", "3", "4", "5"}) {
    SCOPED_TRACE(acTrigger);
    MakeLine({{"Trigger", acTrigger}, {"SilenceTimeOut", "10"}});
    rRecorder.fDebugRepeatRecord = true;
    Seconds(1);  // the one call of a line that is always recorded begins
    ForgetTraces();
    Tone(TONE_NO_SOUND);
    Seconds(25);
    EXPECT_EQ((Texts{"5 [5] Analog ToneAnalyze: 5 no sound"}), Log());
  }
}

// -- each second ------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, AlwaysStartsItsOneCallInTheFirstSecond) {
  MakeLine({{"Trigger", "4"}});
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ(STARTS, Log());
  OffHook();
  OnHook();
  Sound();
  Silence();
  Seconds(1000);
  EXPECT_EQ((Texts{"5 [5] Analog channel state: 1 off-hook", "5 [5] Analog channel state: 0 idle"}), Log());
  EXPECT_EQ(NOTHING, Cards());
  prLine->EndOfCall();  // as the recorder does when it shuts down
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), Cards());
}

TEST_F(AnalogChannelTest, DigitsExpireBeforeTheSilenceOfTheSameSecond) {
  MakeLine({{"Trigger", "2"}, {"SilenceTimeOut", "10"}});
  Sound();
  Silence();
  Seconds(4);
  Press("12");
  ForgetTraces();
  Seconds(6);
  EXPECT_EQ(
      Join({"5 [5] Previous digits expired", "5 [5] Remote: 12", REFUSED, "5 [5] Silence time out (10 s)"}, STOPS),
      Log());
}

// -- state file -------------------------------------------------------------------------------------------------------

TEST_F(AnalogChannelTest, StateFileHasTheVoltageOfTheLastSecond) {
  EXPECT_EQ("", StateFile());
  for (const int iVoltage : {48, -52, 0}) {
    simcards::SetVoltage(0, iVoltage);
    Seconds(1);
    EXPECT_EQ("Voltage: " + std::to_string(iVoltage) + "\r\n", StateFile());
  }
}

TEST_F(AnalogChannelTest, StateFileHasTheLevelOfTheCall) {
  AllowRecording();
  MakeLine({{"LoudVoiceDetect", "1"}});
  simcards::SetVoltage(0, 6);
  OffHook();
  Seconds(1);
  EXPECT_EQ("Voltage: 6\r\n", StateFile());
  Hear(0, LOUD);
  EXPECT_EQ("Voltage: 6\r\nAudioLevel: 70\r\n", StateFile());
  Hear(0, QUIET);
  EXPECT_EQ("Voltage: 6\r\nAudioLevel: -1\r\n", StateFile());
  OnHook();
  EXPECT_EQ("Voltage: 6\r\n", StateFile());
}

TEST_F(AnalogChannelTest, StateFileOfAnAlwaysLineHasNoVoltage) {
  AllowRecording();
  MakeLine({{"Trigger", "4"}, {"LoudVoiceDetect", "1"}});
  simcards::SetVoltage(0, 48);
  Seconds(1);
  EXPECT_EQ("", StateFile());
  Hear(0, LOUD);
  EXPECT_EQ("AudioLevel: 70\r\n", StateFile());
}

TEST_F(AnalogChannelTest, StateFileWaitsForNobodyAndFollowsNoLink) {
  ASSERT_EQ(0, mkdir("/tmp/neighbour", 0777));
  ASSERT_EQ(0, mkfifo("/tmp/neighbour/chstate_5.dat", 0666));
  rRecorder.strDataDir = "/tmp/neighbour/";
  EXPECT_EQ(0, prLine->WriteChState());
  EXPECT_EQ("", ReadTestFile("/tmp/neighbour/chstate_5.dat"));
  WriteTestFile("/tmp/foreign", "foreign");
  ASSERT_EQ(0, unlink("/tmp/neighbour/chstate_5.dat"));
  ASSERT_EQ(0, symlink("/tmp/foreign", "/tmp/neighbour/chstate_5.dat"));
  EXPECT_EQ(0, prLine->WriteChState());
  EXPECT_EQ("foreign", ReadTestFile("/tmp/foreign"));
}

TEST_F(AnalogChannelTest, StateFileThatCannotBeOpenedIsToldByTheResultAlone) {
  rRecorder.strDataDir = "/tmp/none/";
  EXPECT_EQ(1, prLine->WriteChState());
  EXPECT_EQ(NOTHING, Log());
}
