// A telephone that shows displays and keys, its calls told event by event.
#include "DstChannel.h"

#include <algorithm>

#include "DstBench.h"
#include "OpenTelephone.h"

namespace {

const Texts NOTHING;

class DstChannelTest : public DstBench {
 protected:
  // A source of evidence that there is a call, each with a flag of its own. InitSources has to be called before.
  enum ESource { BY_HOOK, BY_AUDIO, BY_VOICE, BY_CONDITION };
  static constexpr ESource SOURCES[] = {BY_HOOK, BY_AUDIO, BY_VOICE, BY_CONDITION};
  void InitSources(const char* acPbxType = "") {
    rRecorder.rStartCnds = {{START_CODE, 1}};
    Init(acPbxType, {{"AudioDetect", "1"}});
  }
  void Begin(ESource eSource) {
    if (eSource == BY_HOOK) OffHook();
    if (eSource == BY_AUDIO) DMsg(DMSG_AUDIO_CHANGE, 1);
    if (eSource == BY_VOICE) Event(E_SYS_BargeIn, BARGE_IN_SOUND);
    if (eSource == BY_CONDITION) DMsg(START_CODE, 1);
  }
  static bool Holds(const Texts& astrLines, const std::string& strLine) {
    return std::find(astrLines.begin(), astrLines.end(), strLine) != astrLines.end();
  }

  static constexpr DWORD START_CODE = 0x1001;
};

}  // namespace

// -- settings ---------------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, FreshLineIsInNoCall) {
  OpenTelephone rFresh;
  EXPECT_EQ(15, rFresh.iSilenceTimeOut);
  EXPECT_FALSE(rFresh.InCall() || rFresh.fOnHold || rFresh.CanStereo());
  rFresh.fInCall_ChState = true;
  EXPECT_TRUE(rFresh.InCall());
  rFresh.CallIsFinished();
  EXPECT_FALSE(rFresh.InCall());
}

namespace {

// What sets a PBX apart, found by trying it on a telephone of it.
class PbxTraits : public DstChannelTest {
 protected:
  struct Pbx {
    const char* acType;
    int iPhoneType;
    int iTdmStart;
  };
  std::string TraitsOf(const Pbx& rPbx) {
    std::string strTraits;
    const auto Trait = [&](const char* acName, bool fHas) {
      if (fHas) strTraits += (strTraits.empty() ? "" : ", ") + std::string(acName);
    };
    const auto Fresh = [&](bool fCall) {
      Init(rPbx.acType, {{"TdmStart", std::to_string(rPbx.iTdmStart)}}, rPbx.iPhoneType);
      if (fCall) OffHook();
    };
    const auto Takes = [&](const std::string& strText, const std::string& strNumber) {
      return Holds(Shown(strText), "5 [5] Remote: " + strNumber);
    };
    const auto TakesInCall = [&](const std::string& strText, const std::string& strNumber) {
      Fresh(/*fCall=*/true);
      return Takes(strText, strNumber);
    };
    const std::string strWide(24, 'x');
    rRecorder.rDatabase.rContactNames[1005] = "Desk 7777";
    AllowRecording();

    const bool fEqual = TakesInCall("1234", "1234") && Takes("5678", "5678");
    PassSeconds(11);
    Trait(Takes("4321", "4321") ? "equal length" : "equal length early", fEqual);
    Trait("several numbers", TakesInCall("1234\n56789", "56789"));
    const bool fFirstLine = !TakesInCall("abc\n1234", "1234");
    Trait("first line", fFirstLine);
    Trait("23 columns", !fFirstLine && !TakesInCall(strWide + "\n1234", "1234"));
    Trait("names of letters", TakesInCall("Service Desk", "Service Desk"));
    Trait("talking to", TakesInCall("x\nTALKING TO Jan", "Jan"));
    Trait("line's name", !TakesInCall("7777", "7777"));
    Fresh(/*fCall=*/false);
    const bool fIdle = Takes("1234", "1234");
    Trait("idle displays", fIdle);
    rRecorder.iNumberFilterType = 1;  // a call without a recording to finish
    (void)TakesInCall("1234", "1234");
    OnHook();
    AllowRecording();
    Trait("previous number again", fIdle && Takes("1234", "1234"));
    Fresh(/*fCall=*/false);
    DMsg(DMSG_AUDIO_CHANGE, 8);
    Trait("audio 8", !Holds(Log(), "5 [5] Call starts") && rPbx.iTdmStart == 0);
    Fresh(/*fCall=*/true);
    Keys("0171");
    Seconds(6);
    Trait("pressed digits", Holds(Log(), "5 [5] Remote: 0171"));
    Fresh(/*fCall=*/false);
    DText(DMSG_BRI_ALERTING, "Ext 0301\n22", 1);
    Trait("text without its head", Holds(Log(), "5 [5] Remote: 0301"));
    Fresh(/*fCall=*/false);
    DText(DMSG_BRI_CONNECTED, "0301\n22", 1);
    Trait("local number", Active("local") == "22");
    return strTraits;
  }
};

}  // namespace

TEST_F(PbxTraits, FollowTheTypeOfThePbx) {
  struct Row {
    Pbx rPbx;
    const char* acTraits;
  };
  const char* const PLAIN = "";
  const char* const ERICSSON = "equal length early, several numbers";
  const char* const SIEMENS = "equal length, 23 columns";
  const char* const MUTE = "idle displays";
  const Row rRows[] = {
      {{"", 0, 0}, PLAIN},
      {{"Siemens", 0, 0}, SIEMENS},
      {{"Siemens Hicom", 0, 0}, SIEMENS},
      {{"siemens", 0, 0}, PLAIN},
      {{"A Siemens", 0, 0}, PLAIN},
      {{"Ericsson MD110", 0, 0}, ERICSSON},
      {{"Belgacom", 0, 0}, "line's name, idle displays"},
      {{"Belgacom 2", 0, 0}, PLAIN},
      {{"ISDN", 0, 0}, "local number"},
      {{"ISDN BRI", 0, 0}, "local number"},
      {{"Alcatel", 0, 0}, "first line"},
      {{"Alcatel 4400", 0, 0}, "first line"},
      {{"Aastra 5000", 0, 0}, "names of letters"},
      {{"Aastra 5000 X", 0, 0}, PLAIN},
      {{"Avaya Merlin", 1, 0}, "text without its head"},
      {{"Avaya Mer", 1, 0}, "text without its head"},
      {{"Avaya Merlin", 0, 0}, PLAIN},
      {{"Avaya Merlin", 2, 0}, PLAIN},
      {{"Avaya", 1, 0}, PLAIN},
      {{"PANASONIC", 0, 0}, "idle displays, previous number again"},
      {{"PANASONIC 2", 0, 0}, PLAIN},
      {{"Panasonic", 0, 0}, PLAIN},
      {{"NEC", 0, 0}, "talking to, audio 8, pressed digits"},
      {{"NEC 2", 0, 0}, PLAIN},
      {{"", 0, 1}, MUTE},
      {{"", 0, 2}, PLAIN},
      {{"", 0, 3}, MUTE},
      {{"Alcatel", 0, 1}, MUTE},
      {{"NEC", 0, 3}, "talking to, idle displays, pressed digits"},
  };
  for (const Row& rRow : rRows) {
    EXPECT_EQ(rRow.acTraits, TraitsOf(rRow.rPbx))
        << rRow.rPbx.acType << " " << rRow.rPbx.iPhoneType << " " << rRow.rPbx.iTdmStart;
  }
}

// The number comes from the recorder in UTF-8, and a line has it in Latin-1.
TEST_F(DstChannelTest, LocalNumberIsKeptOverARestartWhereItIsReadBack) {
  struct Row {
    const char* acPbxType;
    int iTdmStart;
    bool fKept;
  };
  rRecorder.strCachedLocalNum = "47\xc3\xa9";
  for (const Row& rRow : {Row{"", 0, false}, Row{"Siemens", 2, false}, Row{"Alcatel", 0, true},
                          Row{"Alcatel 4400", 0, true}, Row{"Aastra 5000", 0, false}, Row{"ISDN", 0, false},
                          Row{"", 1, true}, Row{"", 2, false}, Row{"NEC", 3, true}}) {
    SCOPED_TRACE(rRow.acPbxType);
    rRecorder.strPbxType = rRow.acPbxType;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rRow.iTdmStart);
    DST_Channel rFresh;
    rFresh.Init(5, 2, 9, &rRecorder, 0);
    EXPECT_EQ(rRow.fKept ? Texts{"5 [5] Cached local number: 47\xe9"} : NOTHING, Log());
    EXPECT_EQ(rRow.fKept ? Texts{"GetCachedLocalNum 9 2"} : NOTHING, Orders());
    rFresh.Finalize();
    EXPECT_EQ(rRow.fKept ? Texts{"SetCachedLocalNum 9 2 47\xc3\xa9"} : NOTHING, Orders());
    EXPECT_EQ(NOTHING, Log());
  }
}

TEST_F(DstChannelTest, CachedNumberIdentifiesTheLineAndAnEmptyOneNobody) {
  AllowRecording();
  for (const char* const acCached : {"47", ""}) {
    rRecorder.strCachedLocalNum = acCached;
    Init("Alcatel");
    OffHook();
    EXPECT_EQ(acCached, Active("local"));
    EXPECT_EQ(*acCached != '\0', Active("localcontact") != "1005");
    OnHook();
  }
}

TEST_F(DstChannelTest, InitAdjustsTheCardAndAsksForTheLinesName) {
  rRecorder.rDatabase.fNoteReads = true;
  rRecorder.rBoardParams = {{"AudioSens", "9"}, {"InboundGain", "-4"}, {"OutboundGain", "7"}, {"SilenceT", "40"}};
  DST_Channel rFresh;
  rFresh.Init(5, 2, 9, &rRecorder, 1);
  EXPECT_EQ((Texts{"DTRSetMixerVolume(1,0,-4,7)", "SsmSetBargeInSens(1,9)"}), Cards());
  EXPECT_EQ((Texts{"GetOrCreateLineContact 5 ''", "GetContactName 1005"}), Queries());
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(DstChannelTest, MissingSettingsCountAsZero) {
  rRecorder.rBoardParams = {{"AudioDetect", "2"}};  // any value but 0
  TakeLine(std::make_unique<DST_Channel>());
  prLine->Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"DTRSetMixerVolume(0,0,0,0)", "SsmSetBargeInSens(0,0)"}), Cards());
  Event(E_SYS_BargeIn, BARGE_IN_SOUND);
  Event(E_SYS_BargeIn, 0);
  EXPECT_EQ(STARTS, Log());
  prLine->Periodic();  // silence of no length
  EXPECT_EQ(Join({"5 [5] Silence time-out"}, STOPS), Log());
}

TEST_F(DstChannelTest, CardThatCannotMixIsReportedAndInitGoesOn) {
  simcards::FailNext("DTRSetMixerVolume", 1, 5, "no mixer");
  rRecorder.strPbxType = "Alcatel";
  rRecorder.strCachedLocalNum = "47";
  DST_Channel rFresh;
  rFresh.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"3 Error in DTRSetMixerVolume: no mixer", "5 [5] Cached local number: 47"}), Log());
  EXPECT_EQ("SsmSetBargeInSens(0,0)", Cards().at(1));
}

// -- what makes a call ------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, EachSourceMakesACallByItself) {
  for (const ESource eSource : SOURCES) {
    SCOPED_TRACE(eSource);
    InitSources();
    Begin(eSource);
    const Texts astrLines = Log();
    EXPECT_EQ(1, std::count(astrLines.begin(), astrLines.end(), STARTS[0]));
    Begin(eSource);
    EXPECT_FALSE(Holds(Log(), STARTS[0]));
    OnHook();
    EXPECT_EQ(Join({"5 [5] On hook"}, STOPS), Log());
  }
}

TEST_F(DstChannelTest, MessagesThatEndACallEndItWhateverHoldsItAndDropTheDigits) {
  struct Row {
    DWORD dwCode;
    const char* acLine;
  };
  for (const Row& rRow :
       {Row{DMSG_ON_HOOK, "5 [5] On hook"}, Row{DMSG_RELEASE_BUTTON, "5 [5] Release button"},
        Row{DMSG_BRI_RELEASED, "5 [5] BRI released"}, Row{DMSG_BRI_ABANDONED, "5 [5] BRI call abandoned"},
        Row{DMSG_BRI_REJECTED, "5 [5] BRI call rejected"}}) {
    SCOPED_TRACE(rRow.acLine);
    InitSources();
    for (const ESource eSource : SOURCES) Begin(eSource);
    Keys("12");
    ForgetTraces();
    DMsg(rRow.dwCode);
    EXPECT_EQ(Join({rRow.acLine}, STOPS), Log()) << "no digits are left to expire";
    Seconds(20);
    EXPECT_EQ(NOTHING, Log());
  }
}

// What telephone and card tell of the call that ended goes with it; the telephone's own number stays.
TEST_F(DstChannelTest, EndOfACallForgetsTheOtherParty) {
  AllowRecording();
  rRecorder.strCachedLocalNum = "47";
  InitMode(TDM_START_MUTELT);
  OffHook();
  Display("0301234");
  EXPECT_EQ("47", Active("local"));
  OnHook();
  EXPECT_EQ("0301234", Kept("remote"));
  OffHook();
  EXPECT_EQ("", Active("remote"));
  EXPECT_EQ("47", Active("local"));
  OnHook();
}

TEST_F(DstChannelTest, NewRingForgetsANumberThatIsNotFresh) {
  AllowRecording();
  struct Row {
    int iAge;
    bool fExpires;
  };
  for (const Row& rRow : {Row{0, false}, Row{2, false}, Row{3, true}, Row{500, true}}) {
    SCOPED_TRACE(rRow.iAge);
    Init("PANASONIC");
    Display("0301234");
    PassSeconds(rRow.iAge);
    (void)Log();
    DMsg(DMSG_RING_ON);
    EXPECT_EQ(rRow.fExpires ? Texts({"5 [5] Ring on (101f)", NEW_RING}) : Texts{"5 [5] Ring on (101f)"}, Log());
    OffHook();
    EXPECT_EQ(rRow.fExpires ? "" : "0301234", Active("remote"));
    OnHook();
  }
}

TEST_F(DstChannelTest, RingDuringACallForgetsNoNumber) {
  Init();
  OffHook();
  Display("0301234");
  PassSeconds(40);
  (void)Log();
  DMsg(DMSG_RING_ON);
  EXPECT_EQ((Texts{"5 [5] Ring on (101f)"}), Log());
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), Shown("0301234"));
}

// The digits are judged six seconds behind the last.
TEST_F(DstChannelTest, DigitsAfterALoginBecomeTheLocalNumber) {
  struct Row {
    const char *acLabel, *acDigits;
    int iAge;  // of the login text when they are judged; -1: none
    bool fTaken;
  };
  for (const Row& rRow :
       {Row{"no login", "1234", -1, false}, Row{"at once", "1234", 6, true}, Row{"45 seconds", "1234", 45, true},
        Row{"46 seconds", "1234", 46, false}, Row{"two digits", "12", 7, false}, Row{"three digits", "123", 7, true},
        Row{"five digits", "12345", 7, true}, Row{"six digits", "123456", 7, false}}) {
    SCOPED_TRACE(rRow.acLabel);
    InitMode(TDM_START_MUTELT);
    if (rRow.iAge >= 0) Display("Ihre Rufnummer :");
    PassSeconds(rRow.iAge < 0 ? 0 : rRow.iAge - 6);
    Keys(rRow.acDigits);
    ForgetTraces();
    Seconds(6);
    const std::string strTaken = std::string("5 [5] Local ID: ") + rRow.acDigits;
    const char* const acExpired = "5 [5] Previous digits expired";
    EXPECT_EQ(rRow.fTaken ? Texts({strTaken, acExpired}) : Texts{acExpired}, Log());
    EXPECT_EQ(rRow.fTaken ? rRow.acDigits : "", KeptLocalNum());
    Keys("777");
    ForgetTraces();
    Seconds(6);
    EXPECT_EQ((Texts{acExpired}), Log()) << "a login is over with its digits";
  }
}

TEST_F(DstChannelTest, LocalNumberOfALoginIdentifiesTheLine) {
  AllowRecording();
  Init("PANASONIC");
  Display("Ihre Rufnummer :");
  Keys("1234");
  Seconds(6);
  OffHook();
  EXPECT_EQ("1234", Active("local"));
  OnHook();
}

TEST_F(DstChannelTest, StateFileHoldsTheAudioLevel) {
  AllowRecording();
  rRecorder.rChannelParams["LoudVoiceDetect"] = "1";
  Init();
  const auto StateFile = [this] {
    EXPECT_EQ(0, prLine->WriteChState());
    return ReadTestFile("/tmp/chstate_5.dat");
  };
  OffHook();
  EXPECT_EQ("", StateFile());
  Hear(0, LOUD);
  EXPECT_EQ("AudioLevel: 70\r\n", StateFile());
  Hear(0, QUIET);
  EXPECT_EQ("AudioLevel: -1\r\n", StateFile());
  OnHook();
  EXPECT_EQ("", StateFile());
  rRecorder.strDataDir = "/tmp/none/";
  (void)Log();
  EXPECT_EQ(1, prLine->WriteChState());
  EXPECT_EQ(NOTHING, Log());
}

// -- events other than D-channel messages -----------------------------------------------------------------------------

TEST_F(DstChannelTest, VoiceByToneStartsACall) {
  struct Row {
    const char* acLabel;
    int iTdmStart;
    DWORD dwLight;  // message of the mute light; 0: none
    DWORD dwTone;
    bool fStarts;
  };
  const Row rRows[] = {
      {"voice", 3, DMSG_MUTE_LIGHT_OFF, 6, true},         {"light unknown", 3, 0, 6, false},
      {"light on", 3, DMSG_MUTE_LIGHT_ON, 6, false},      {"light blinks", 3, DMSG_MUTE_LIGHT_BLINK, 6, false},
      {"another tone", 3, DMSG_MUTE_LIGHT_OFF, 1, false}, {"whole value counts", 3, DMSG_MUTE_LIGHT_OFF, 0x106, false},
      {"mode 0", 0, DMSG_MUTE_LIGHT_OFF, 6, false},       {"mode 1", 1, DMSG_MUTE_LIGHT_OFF, 6, false},
      {"mode 2", 2, DMSG_MUTE_LIGHT_OFF, 6, false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    InitMode(rRow.iTdmStart);
    if (rRow.dwLight != 0) DMsg(rRow.dwLight);
    ForgetTraces();
    Event(E_CHG_ToneAnalyze, rRow.dwTone);
    EXPECT_EQ(rRow.fStarts ? Join({"5 [5] Voice detected"}, STARTS) : NOTHING, Log());
  }
}

TEST_F(DstChannelTest, VoiceByToneCountsOnceUntilTheCallIsFinished) {
  rRecorder.rStopCnds = {{0x1002, 1}};
  InitMode(TDM_START_MUTELT_AND_TONE);
  DMsg(DMSG_MUTE_LIGHT_OFF);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  ForgetTraces();
  DMsg(0x1002, 1);
  EXPECT_EQ(Join({"5 [5] Soft stop condition"}, STOPS), Log());
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  EXPECT_EQ(NOTHING, Log()) << "found before";
  OnHook();
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  EXPECT_EQ(Join({"5 [5] On hook", "5 [5] Voice detected"}, STARTS), Log());
}

TEST_F(DstChannelTest, DtmfFromTheAudioCountsOnlyWhenAskedFor) {
  for (const bool fDetect : {false, true}) {
    SCOPED_TRACE(fDetect);
    Init("", {{"DetectDtmf", fDetect ? "1" : "0"}});
    Event(E_CHG_RcvDTMF, 0xab00 | '7');
    EXPECT_EQ(fDetect ? Texts({"5 [5] TDM DTMF detected: 7", "5 [5] Digits: 7"}) : Texts{"5 [5] TDM DTMF detected: 7"},
              Log());
    EXPECT_EQ((Texts{"SsmClearRxDtmfBuf(0)"}), Cards());
  }
}

TEST_F(DstChannelTest, LostLineEndsTheCallAndItsInformation) {
  struct Row {
    DWORD dwState;
    const char* acText;
    bool fLost;
  };
  const Row rRows[] = {{0, "0 idle", false},          {1, "1 off-hook", false},    {2, "2 ring", false},
                       {3, "3 talking", false},       {9, "9 wait-answer", false}, {139, "139 sign-err", false},
                       {140, "140 frame-err", false}, {77, "77 ", false},          {8, "8 offline", true},
                       {11, "11 unusable", true},     {0x50008, "8 offline", true}};
  for (const Row& rRow : rRows) {
    for (const bool fCall : {false, true}) {
      SCOPED_TRACE(rRow.acText);
      Init("PANASONIC");
      if (fCall) OffHook();
      Display("0301234");
      ForgetTraces();
      Event(E_CHG_ChState, rRow.dwState);
      Texts astrWanted;
      if (rRow.fLost) astrWanted.push_back("5 [5] Line health: offline");
      astrWanted.push_back(std::string("5 [5] Channel state: ") + rRow.acText);
      if (rRow.fLost && fCall) astrWanted.push_back("5 [5] Call stops");
      EXPECT_EQ(astrWanted, Log());
      OffHook();
      const bool isKnown = !rRow.fLost;
      EXPECT_EQ(fCall && isKnown, !Holds(Log(), STARTS[0]));
      EXPECT_EQ(isKnown, Holds(Shown("0301234"), "5 [5] Remote number refreshed"));
    }
  }
}

TEST_F(DstChannelTest, VoiceOutsideACallIsNoticedNowAndThen) {
  const Texts NOTICE = {"5 [5] Voice detected outside of call"};
  Init();
  OffHook();
  OnHook();
  PassSeconds(1);
  ForgetTraces();
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTHING, Log()) << "the call has just ended";
  PassSeconds(1);
  Event(E_SYS_BargeIn, 0);
  EXPECT_EQ(NOTHING, Log());
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTICE, Log());
  PassSeconds(4);
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTHING, Log());
  PassSeconds(1);
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTICE, Log());
  OffHook();
  PassSeconds(10);
  ForgetTraces();
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTHING, Log()) << "voice in a call is no news";
  OnHook();
  EXPECT_EQ(Join({"5 [5] On hook"}, STOPS), Log());
}

TEST_F(DstChannelTest, VoiceMakesACallUntilSilenceHasLasted) {
  Init("", {{"AudioDetect", "1"}});
  Event(E_SYS_BargeIn, 0);
  Seconds(20);
  EXPECT_EQ(NOTHING, Log());
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(STARTS, Log());
  Event(E_SYS_BargeIn, 1);
  Seconds(20);
  Event(E_SYS_BargeIn, 2);  // any value but 1 is silence
  PassSeconds(1);
  Event(E_SYS_BargeIn, 0);  // silent already
  Seconds(13);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ(Join({"5 [5] Silence time-out"}, STOPS), Log());
  Seconds(1);
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(DstChannelTest, SecondExpiresDigitsThenLooksForSilenceThenForAudio) {
  Init("", {{"AudioDetect", "1"}, {"TdmStart", "1"}});
  Event(E_SYS_BargeIn, 1);
  Event(E_SYS_BargeIn, 0);
  Seconds(9);
  Keys("12");
  Seconds(5);
  DMsg(DMSG_AUDIO_CHANGE, 4);
  ForgetTraces();
  Seconds(1);
  const Texts ENDS = Join({"5 [5] Previous digits expired", "5 [5] Silence time-out"}, STOPS);
  EXPECT_EQ(Join(Join(ENDS, {"5 [5] Delay-start on audio"}), STARTS), Log());
}

TEST_F(DstChannelTest, VoiceThatComesBackBeginsTheSilenceAnew) {
  Init("", {{"AudioDetect", "1"}});
  Event(E_SYS_BargeIn, 1);
  Event(E_SYS_BargeIn, 0);
  Seconds(14);
  Event(E_SYS_BargeIn, 1);
  Seconds(20);
  ForgetTraces();
  Event(E_SYS_BargeIn, 0);
  Seconds(14);
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  EXPECT_EQ(Join({"5 [5] Silence time-out"}, STOPS), Log());
}

TEST_F(DstChannelTest, HoldStretchesTheSilenceTimeOut) {
  struct Row {
    const char* acLabel;
    int iTimeOut;
    bool fOnHold;
    int iLimit;
  };
  for (const Row& rRow :
       {Row{"plain", 15, false, 15}, Row{"held", 15, true, 600}, Row{"longer than hold", 700, true, 700},
        Row{"equal", 600, true, 600}, Row{"long", 700, false, 700}}) {
    SCOPED_TRACE(rRow.acLabel);
    Init("", {{"AudioDetect", "1"}, {"SilenceT", std::to_string(rRow.iTimeOut)}});
    auto prOpen = std::make_unique<OpenTelephone>();
    OpenTelephone& rOpen = *prOpen;
    TakeLine(std::move(prOpen));
    InitLine(*prLine, 5);
    Event(E_SYS_BargeIn, 1);
    rOpen.fOnHold = rRow.fOnHold;  // no message sets it
    Event(E_SYS_BargeIn, 0);
    ForgetTraces();
    PassSeconds(rRow.iLimit - 1);
    prLine->Periodic();
    EXPECT_EQ(NOTHING, Log());
    Seconds(1);
    EXPECT_EQ(Join({"5 [5] Silence time-out"}, STOPS), Log());
    EXPECT_FALSE(rOpen.fOnHold) << "goes with the call";
  }
}

TEST_F(DstChannelTest, SilenceEndsNoCallThatSomethingElseHolds) {
  InitSources();
  for (const ESource eOther : {BY_HOOK, BY_AUDIO, BY_CONDITION}) {
    SCOPED_TRACE(eOther);
    Begin(BY_VOICE);
    Begin(eOther);
    Event(E_SYS_BargeIn, 0);
    ForgetTraces();
    Seconds(15);
    EXPECT_EQ((Texts{"5 [5] Silence time-out"}), Log());
    OnHook();
    EXPECT_EQ(Join({"5 [5] On hook"}, STOPS), Log());
  }
}

TEST_F(DstChannelTest, CallLeavesItsAudioAndARow) {
  AllowRecording();
  Init();
  OffHook();
  Hear(0, "audio");
  PassSeconds(2);
  OnHook();
  EXPECT_EQ("audio", ReadTestFile(FIRST_FILE).substr(56));
  EXPECT_EQ("5", Kept("source"));
  EXPECT_EQ("5", Kept("linenr"));
  EXPECT_EQ("2", Kept("duration"));
}

TEST_F(DstChannelTest, CodesOfOtherCardsAreIgnored) {
  Init();
  for (const WORD wCode : std::initializer_list<WORD>{0, 7, 31, 35, 47, 49, 124, 60000}) Event(wCode, 3);
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
}

// -- D-channel messages -----------------------------------------------------------------------------------------------

namespace {

// What a message tells on an idle line of no special kind, and what an off-hook a second later says of its ring. The
// value is 0x12305 throughout, so that masks show.
constexpr DWORD VALUE = 0x12305;
const Texts RANG = {"5 [5] Off hook", "5 [5] Call starts", "5 [5] Incoming call, ringing time: 1", REFUSED};
const Texts SILENT = {"5 [5] Off hook", STARTS[0], STARTS[1], STARTS[2]};
const Texts IN_CALL = {"5 [5] Off hook"};
struct MessageRow {
  DWORD dwCode;
  Texts astrLines;
  DWORD dwFiltered;  // what the conditions compare
  const Texts& astrOffHook = SILENT;
};
const MessageRow MESSAGES[] = {
    {0x0008, {"5 [5] Off hook", STARTS[0], STARTS[1], STARTS[2]}, 0x2305, IN_CALL},
    {0x000E, {"5 [5] On hook"}, 0x2305},
    {0x006B, {"5 [5] BRI in progress  74501"}, 0x2305},
    {0x006E, {"5 [5] BRI alerting  74501", "5 [5] A new ring and expire remote"}, 0x2305},
    {0x006F, {"5 [5] BRI connected '' 74501", STARTS[0], STARTS[1], STARTS[2]}, 0x2305, IN_CALL},
    {0x0070, {"5 [5] BRI released"}, 0x2305},
    {0x0075, {"5 [5] BRI call abandoned"}, 0x2305},
    {0x0076, {"5 [5] BRI call rejected"}, 0x2305},
    {0x1001, {}, 0x2305},
    {0x1002, {}, 0x2305},
    {0x1003, {}, 0x2305},
    {0x100B, {}, 0x2305},
    {0x100F, {}, 0x2305},
    {0x1025, {}, 0x2305},
    {0x1028, {}, 0x2305},
    {0x102A, {}, 0x2305},
    {0x1033, {}, 0x2305},
    {0x1006, {"5 [5] Digits: \x05"}, 0x05},
    {0x1008, {"5 [5] Message change:"}, 0x2305},
    {0x100E, {"5 [5] Function button 5 (100e.5)"}, 0x05},
    {0x1012, {"5 [5] Release button"}, 0x2305},
    {0x101A, {"5 [5] Feature button (101a.12305)"}, 0x2305},
    {0x101E, {"5 [5] Soft button 5 (101e.5)"}, 0x05},
    {0x101F, {"5 [5] Ring on (101f)", "5 [5] A new ring and expire remote"}, 0x2305, RANG},
    {0x10BA, {"5 [5] Ring on (10ba)", "5 [5] A new ring and expire remote"}, 0x2305, RANG},
    {0x10BB, {"5 [5] Ring on (10bb)", "5 [5] A new ring and expire remote"}, 0x2305, RANG},
    {0x10BC, {"5 [5] Ring on (10bc)", "5 [5] A new ring and expire remote"}, 0x2305, RANG},
    {0x1307, {"5 [5] Ring on (1307)", "5 [5] A new ring and expire remote"}, 0x2305, RANG},
    {0x1020, {"5 [5] Ring off (1020)"}, 0x2305},
    {0x10B8, {"5 [5] Ring off (10b8)"}, 0x2305},
    {0x1304, {"5 [5] Ring off (1304)"}, 0x2305},
    {0x1306, {"5 [5] Ring off (1306)"}, 0x2305},
    {0x1308, {"5 [5] Ring off (1308)"}, 0x2305},
    {0x1309, {"5 [5] Ring off (1309)"}, 0x2305},
    {0x130A, {"5 [5] Ring off (130a)"}, 0x2305},
    {0x130B, {"5 [5] Ring off (130b)"}, 0x2305},
    {0x130C, {"5 [5] Ring off (130c)"}, 0x2305},
    {0x1021, {"5 [5] Line button"}, 0x2305},
    {0x104A, {"5 [5] Audio change 74501", STARTS[0], STARTS[1], STARTS[2]}, 0x2305, IN_CALL},
    {0x111E, {"5 [5] MuteLight off"}, 0x2305},
    {0x111F, {"5 [5] MuteLight ON"}, 0x2305},
    {0x1120, {"5 [5] MuteLight ON"}, 0x2305},
    {0x8001, {"5 [5] Change Local Number: ", "5 [5] LocalNumberChanged. Change:  to: ."}, 0x2305},
    // All else, also what lies between known codes.
    {0x1305, {"5 [5] Other D-channel event 1305.12305"}, 0x2305},
    {0x1303, {"5 [5] Other D-channel event 1303.12305"}, 0x2305},
    {0x130D, {"5 [5] Other D-channel event 130d.12305"}, 0x2305},
    {0x0000, {"5 [5] Other D-channel event 0.12305"}, 0x2305},
    {0x1007, {"5 [5] Other D-channel event 1007.12305"}, 0x2305},
    {0x10B9, {"5 [5] Other D-channel event 10b9.12305"}, 0x2305},
    {0x11006, {"5 [5] Other D-channel event 11006.12305"}, 0x2305},
    {0xFFFFFFFF, {"5 [5] Other D-channel event ffffffff.12305"}, 0x2305},
};

}  // namespace

TEST_F(DstChannelTest, EachMessageTellsItselfAndOnlySomeRingOrStartACall) {
  for (const MessageRow& rRow : MESSAGES) {
    SCOPED_TRACE(rRow.dwCode);
    Init();
    DText(rRow.dwCode, "", VALUE);
    EXPECT_EQ(rRow.astrLines, Log());
    PassSeconds(1);
    OffHook();
    EXPECT_EQ(rRow.astrOffHook, Log());
  }
}

TEST_F(DstChannelTest, EachMessageReachesTheConditionsWithItsMask) {
  for (const MessageRow& rRow : MESSAGES) {
    SCOPED_TRACE(rRow.dwCode);
    Init();
    for (const bool fFits : {true, false}) {
      rRecorder.rRingOffCnds = {{rRow.dwCode, fFits ? rRow.dwFiltered : VALUE}, {rRow.dwCode + 1, rRow.dwFiltered}};
      ForgetTraces();
      DText(rRow.dwCode, "", VALUE);
      EXPECT_EQ(fFits, Holds(Log(), "5 [5] Ring OFF condition"));
    }
  }
}

TEST_F(DstChannelTest, HookStoryOfAnIncomingCall) {
  AllowRecording();
  Init();
  DMsg(DMSG_RING_ON);
  PassSeconds(4);
  DMsg(DMSG_RING_OFF);
  PassSeconds(1);
  OffHook();
  EXPECT_EQ((Texts{"5 [5] Ring on (101f)", NEW_RING, "5 [5] Ring off (1020)", "5 [5] Off hook", "5 [5] Call starts",
                   "5 [5] Incoming, last ring: 1 s. ago", "5 [5] Starting recording",
                   "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134645_005_01.wav"}),
            Log());
  OffHook();
  EXPECT_EQ((Texts{"5 [5] Off hook"}), Log());
  PassSeconds(3);
  OnHook();
  EXPECT_EQ((Texts{"5 [5] On hook", "5 [5] Call stops", "5 [5] Recording stopped (3 s)"}), Log());
  EXPECT_EQ("0", Kept("direction"));
  EXPECT_EQ("5", Kept("waittime"));
  OnHook();
  EXPECT_EQ((Texts{"5 [5] On hook"}), Log());
}

TEST_F(DstChannelTest, KeysBecomeDigitsByTheirLowByte) {
  Init();
  for (const char ch : std::string("017")) DMsg(DMSG_KEY_DIGIT, 0xff00U | static_cast<DWORD>(ch));
  EXPECT_EQ((Texts{"5 [5] Digits: 0", "5 [5] Digits: 01", "5 [5] Digits: 017"}), Log());
}

TEST_F(DstChannelTest, DialledDigitsOnNecBecomeTheRemoteNumber) {
  Init("NEC");
  OffHook();
  Keys("0171");
  ForgetTraces();
  Seconds(6);
  EXPECT_EQ((Texts{"5 [5] Previous digits expired", "5 [5] Remote: 0171", REFUSED}), Log());
}

// -- local id ---------------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, LastDigitOfALocalIdCompletesIt) {
  struct Row {
    const char* acLabel;
    int iTdmStart, iAge;  // of the display that shows it one digit short
    bool fTaken;
  };
  for (const Row& rRow : {Row{"mode 1", 1, 0, true}, Row{"mode 3", 3, 4, true}, Row{"too late", 1, 5, false},
                          Row{"mode 0", 0, 0, false}, Row{"mode 2", 2, 0, false}}) {
    SCOPED_TRACE(rRow.acLabel);
    InitMode(rRow.iTdmStart);
    Keys("123");
    Display("Identifikation:123\n");
    PassSeconds(rRow.iAge);
    ForgetTraces();
    Keys("9");
    EXPECT_EQ(rRow.fTaken ? Texts({"5 [5] Digits: 1239", "5 [5] Local ID: 1239"}) : Texts{"5 [5] Digits: 1239"}, Log());
    if (rRow.iTdmStart != 1) continue;
    EXPECT_EQ(rRow.fTaken ? "1239" : "", KeptLocalNum());
  }
}

TEST_F(DstChannelTest, LocalIdNeedsItsPromptAndItsLength) {
  InitMode(TDM_START_MUTELT);
  Keys("1239");
  EXPECT_FALSE(Holds(Log(), "5 [5] Local ID: 1239")) << "no prompt";

  Init("", {{"TdmStart", "1"}, {"DetectDtmf", "1"}});
  Keys("123");
  Display("Identifikation:123\n");
  ForgetTraces();
  Event(E_CHG_RcvDTMF, '8');
  EXPECT_EQ((Texts{"5 [5] TDM DTMF detected: 8", "5 [5] Digits: 1238"}), Log()) << "a tone is no key";
  Keys("9");
  EXPECT_EQ((Texts{"5 [5] Digits: 12389"}), Log()) << "too long";

  InitMode(TDM_START_MUTELT);
  Keys("123");
  Display("Identifikation:123\n");
  OnHook();  // drops the digits
  ForgetTraces();
  Keys("9");
  EXPECT_EQ((Texts{"5 [5] Digits: 9"}), Log()) << "too short";
}

TEST_F(DstChannelTest, LocalIdIsCompletedOnce) {
  InitMode(TDM_START_MUTELT);
  Keys("123");
  Display("Identifikation:123\n");
  Keys("9");
  OnHook();
  ForgetTraces();
  Keys("4567");
  EXPECT_EQ((Texts{"5 [5] Digits: 4", "5 [5] Digits: 45", "5 [5] Digits: 456", "5 [5] Digits: 4567"}), Log());
  EXPECT_EQ("1239", KeptLocalNum());
}

TEST_F(DstChannelTest, LoginOfAnAgentIsFollowedByPromptAndKeys) {
  AllowRecording();
  InitMode(TDM_START_MUTELT);
  Keys("471");
  Display("Identifikation:471\n");
  Keys("1");
  EXPECT_EQ(
      (Texts{"5 [5] Digits: 4", "5 [5] Digits: 47", "5 [5] Digits: 471", "5 [5] Message change:Identifikation:471\n",
             "5 [5] Local ID almost complete", "5 [5] Digits: 4711", "5 [5] Local ID: 4711"}),
      Log());
  EXPECT_EQ("4711", KeptLocalNum());
  OffHook();
  EXPECT_EQ("4711", Active("local")) << "the line is known by it";
  OnHook();
}

// -- display text -----------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, DisplayIsReadNearACallAndElseOnlyForAReset) {
  struct Row {
    const char* acLabel;
    const char* acPbxType;
    int iTdmStart;
    bool fBusy, fRings;
    int iRingAge;  // of a ring that has stopped; -1: none
    bool fRead;
  };
  const Row rRows[] = {{"idle", "", 0, false, false, -1, false},
                       {"mode 2", "", 2, false, false, -1, false},
                       {"mode 1", "", 1, false, false, -1, true},
                       {"mode 3", "", 3, false, false, -1, true},
                       {"Panasonic", "PANASONIC", 0, false, false, -1, true},
                       {"Belgacom", "Belgacom", 0, false, false, -1, true},
                       {"Siemens", "Siemens Hicom", 0, false, false, -1, false},
                       {"NEC", "NEC", 0, false, false, -1, false},
                       {"in a call", "", 0, true, false, -1, true},
                       {"ringing", "", 0, false, true, 5, true},
                       {"rang in this second", "", 0, false, false, 0, true},
                       {"rang a second ago", "", 0, false, false, 1, false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    InitMode(rRow.iTdmStart, rRow.acPbxType);
    if (rRow.fBusy) OffHook();
    if (rRow.iRingAge >= 0) {
      DMsg(DMSG_RING_ON);
      if (!rRow.fRings) DMsg(DMSG_RING_OFF);
      PassSeconds(rRow.iRingAge);
    }
    Texts astrWanted = {rRow.fRead ? "5 [5] Remote: 0301234" : "5 [5] Remote: "};
    if (rRow.fBusy) astrWanted.push_back(REFUSED);
    EXPECT_EQ(astrWanted, Shown("0301234\n"));
  }
}

TEST_F(DstChannelTest, DisplayIsCutAt300Bytes) {
  Init();
  const std::string strLong(1000, 'a');
  for (const std::size_t uiLen : {0U, 1U, 299U, 300U, 301U, 1000U}) {
    SCOPED_TRACE(uiLen);
    Display(strLong.substr(0, uiLen));
    EXPECT_EQ((Texts{"5 [5] Message change:" + strLong.substr(0, std::min<std::size_t>(uiLen, 300))}), Log());
  }
}

TEST_F(DstChannelTest, DisplayEndsAtItsFirstNul) {
  Init();
  Display(std::string("ab\0cd", 5));
  EXPECT_EQ((Texts{"5 [5] Message change:ab"}), Log());
}

TEST_F(DstChannelTest, PercentSignsInTextsAreText) {
  Init();
  Display("%s %n");
  DText(DMSG_CHANGE_LOCAL, "%s%n");
  EXPECT_EQ((Texts{"5 [5] Message change:%s %n", "5 [5] Change Local Number: %s%n",
                   "5 [5] LocalNumberChanged. Change:  to: %s%n.", "5 [5] Local Number Changed: %s%n."}),
            Log());
}

TEST_F(DstChannelTest, BadBuffersDoNoHarm) {
  Init();
  for (const DWORD dwCode :
       {DMSG_DISPLAY, DMSG_CHANGE_LOCAL, DMSG_BRI_PROGRESS, DMSG_BRI_ALERTING, DMSG_BRI_CONNECTED, DMSG_BRI_RELEASED}) {
    for (const DWORD dwLength : {0U, 1U, 204U, 236U, 301U, 1024U, 100000U, 0xFFFFFFFFU}) {
      SCOPED_TRACE(dwCode);
      SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, 1);
      rEvent.dwDataLength = dwLength;
      rEvent.pvBuffer = nullptr;
      prLine->HandleEvent(&rEvent);
      std::vector<char> acData(EVENT_BUFFER_BYTES, 'x');  // the main loop's buffer, all of it
      rEvent.pvBuffer = acData.data();
      rEvent.dwBufferLength = EVENT_BUFFER_BYTES;
      prLine->HandleEvent(&rEvent);
      OnHook();
    }
  }
  ForgetTraces();
  OnHook();
  EXPECT_EQ((Texts{"5 [5] On hook"}), Log()) << "no call is left";
}

// -- audio change -----------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, AudioChangeInTheDefaultMode) {
  Init();
  DMsg(DMSG_AUDIO_CHANGE, 8);
  EXPECT_EQ(Join({"5 [5] Audio change 8"}, STARTS), Log());
  DMsg(DMSG_AUDIO_CHANGE, 1);
  EXPECT_EQ((Texts{"5 [5] Audio change 1"}), Log());
  DMsg(DMSG_AUDIO_CHANGE, 0);
  EXPECT_EQ(Join({"5 [5] Audio change 0"}, STOPS), Log());
  OffHook();
  DMsg(DMSG_AUDIO_CHANGE, 3);
  ForgetTraces();
  DMsg(DMSG_AUDIO_CHANGE, 0);
  Seconds(3);
  EXPECT_EQ((Texts{"5 [5] Audio change 0"}), Log()) << "the receiver is still up";
  OnHook();
  EXPECT_EQ(Join({"5 [5] On hook"}, STOPS), Log());
}

TEST_F(DstChannelTest, AudioChange8OnNecMeansNothing) {
  Init("NEC");
  rRecorder.rRingOnCnds = {{0x104A, 8}};
  DMsg(DMSG_AUDIO_CHANGE, 8);
  EXPECT_EQ((Texts{"5 [5] Audio change 8", "5 [5] Ring ON condition", NEW_RING}), Log());
  rRecorder.rRingOnCnds.clear();
  PassSeconds(20);
  DMsg(DMSG_AUDIO_CHANGE, 1);
  EXPECT_TRUE(Holds(Log(), "5 [5] Call starts"));
  DMsg(DMSG_AUDIO_CHANGE, 8);
  DMsg(DMSG_AUDIO_CHANGE, 0x108);  // not 8
  EXPECT_EQ((Texts{"5 [5] Audio change 8", "5 [5] Audio change 264"}), Log());
  DMsg(DMSG_AUDIO_CHANGE, 0);
  EXPECT_EQ(Join({"5 [5] Audio change 0"}, STOPS), Log());
  InitMode(TDM_START_AUCH, "NEC");  // the exception holds in the default mode only
  DMsg(DMSG_AUDIO_CHANGE, 8);
  EXPECT_EQ(Join({"5 [5] Audio change 8"}, STARTS), Log());
}

TEST_F(DstChannelTest, AudioChangeModeEndsEverythingAtOnce) {
  rRecorder.rStartCnds = {{START_CODE, 1}};
  InitMode(TDM_START_AUCH);
  OffHook();
  DMsg(DMSG_AUDIO_CHANGE, 2);
  DMsg(START_CODE, 1);
  ForgetTraces();
  DMsg(DMSG_AUDIO_CHANGE, 0);
  EXPECT_EQ(Join({"5 [5] Audio change 0"}, STOPS), Log());
}

TEST_F(DstChannelTest, AudioInAModeThatDoesNotExistSaysNothing) {
  InitMode(4);
  DMsg(DMSG_AUDIO_CHANGE, 1);
  Seconds(3);
  EXPECT_EQ((Texts{"5 [5] Audio change 1"}), Log());
}

TEST_F(DstChannelTest, AudioEndInTheMuteModesByLightAndAge) {
  struct Row {
    const char* acLabel;
    DWORD dwLight;  // message of the mute light; 0: none
    int iAge;
    bool fEnds;
  };
  for (const int iMode : {1, 3}) {
    for (const Row& rRow :
         {Row{"light off, long audio", DMSG_MUTE_LIGHT_OFF, 3, true},
          Row{"light off, 2 s", DMSG_MUTE_LIGHT_OFF, 2, false}, Row{"light off, burst", DMSG_MUTE_LIGHT_OFF, 0, false},
          Row{"light on, burst", DMSG_MUTE_LIGHT_ON, 0, true}, Row{"light unknown, burst", 0, 0, true}}) {
      SCOPED_TRACE(rRow.acLabel);
      InitMode(iMode);
      if (rRow.dwLight != 0) DMsg(rRow.dwLight);
      OffHook();
      DMsg(DMSG_AUDIO_CHANGE, 4);
      PassSeconds(rRow.iAge);
      ForgetTraces();
      DMsg(DMSG_AUDIO_CHANGE, 0);
      EXPECT_EQ(rRow.fEnds ? Join({"5 [5] Audio change 0"}, STOPS) : Texts{"5 [5] Audio change 0"}, Log());
    }
  }
}

TEST_F(DstChannelTest, AudioThatBeginsAgainHasItsAgeAnew) {
  InitMode(TDM_START_MUTELT_AND_TONE);
  DMsg(DMSG_MUTE_LIGHT_OFF);
  OffHook();
  DMsg(DMSG_AUDIO_CHANGE, 4);
  PassSeconds(2);
  DMsg(DMSG_AUDIO_CHANGE, 0);
  DMsg(DMSG_AUDIO_CHANGE, 4);
  PassSeconds(2);
  DMsg(DMSG_AUDIO_CHANGE, 5);  // goes on
  ForgetTraces();
  DMsg(DMSG_AUDIO_CHANGE, 0);
  EXPECT_EQ((Texts{"5 [5] Audio change 0"}), Log());
}

TEST_F(DstChannelTest, AudioThatOutlastsItsSecondStartsACall) {
  for (const int iMode : {1, 3}) {
    InitMode(iMode);
    DMsg(DMSG_AUDIO_CHANGE, 4);
    prLine->Periodic();  // still in that second
    EXPECT_EQ((Texts{"5 [5] Audio change 4"}), Log());
    PassSeconds(1);
    DMsg(DMSG_AUDIO_CHANGE, 4);  // goes on
    (void)Log();
    prLine->Periodic();
    EXPECT_EQ(Join({"5 [5] Delay-start on audio"}, STARTS), Log());
    Seconds(3);
    EXPECT_EQ(NOTHING, Log());
    OnHook();
    (void)Log();
    Seconds(3);
    EXPECT_EQ(NOTHING, Log()) << "it has started its call";
  }
}

TEST_F(DstChannelTest, BurstOfAudioStartsNoCall) {
  InitMode(TDM_START_MUTELT);
  DMsg(DMSG_AUDIO_CHANGE, 4);
  DMsg(DMSG_AUDIO_CHANGE, 0);
  (void)Log();
  Seconds(1);
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(DstChannelTest, AudioInACallDoesNotDelayStart) {
  InitMode(TDM_START_MUTELT);
  OffHook();
  DMsg(DMSG_AUDIO_CHANGE, 4);
  (void)Log();
  Seconds(1);
  EXPECT_EQ(NOTHING, Log());
  OnHook();
  (void)Log();
  Seconds(1);
  EXPECT_EQ(NOTHING, Log()) << "nor behind that call";
}

// -- mute light -------------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, MuteLightByMode) {
  struct Row {
    int iMode;
    DWORD dwCode;
    bool fCallBefore, fCallAfter;
  };
  const Row rRows[] = {
      {0, 0x111E, false, false}, {1, 0x111E, false, true},  {2, 0x111E, false, false}, {3, 0x111E, false, false},
      {0, 0x111E, true, true},   {1, 0x111E, true, true},   {2, 0x111E, true, true},   {3, 0x111E, true, true},
      {0, 0x111F, true, true},   {1, 0x111F, true, false},  {2, 0x111F, true, true},   {3, 0x111F, true, false},
      {0, 0x1120, true, true},   {1, 0x1120, true, false},  {2, 0x1120, true, true},   {3, 0x1120, true, false},
      {0, 0x111F, false, false}, {1, 0x1120, false, false}, {2, 0x1120, false, false}, {3, 0x111F, false, false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(std::to_string(rRow.iMode) + " " + std::to_string(rRow.dwCode) +
                 (rRow.fCallBefore ? " call" : " idle"));
    InitMode(rRow.iMode);
    if (rRow.fCallBefore) OffHook();
    ForgetTraces();
    DMsg(rRow.dwCode);
    Texts astrWanted = {rRow.dwCode == 0x111E ? "5 [5] MuteLight off" : "5 [5] MuteLight ON"};
    if (!rRow.fCallBefore && rRow.fCallAfter) astrWanted = Join({"5 [5] MuteLight off"}, STARTS);
    if (rRow.fCallBefore && !rRow.fCallAfter) astrWanted.push_back("5 [5] Call stops");
    EXPECT_EQ(astrWanted, Log());
  }
}

TEST_F(DstChannelTest, LightThatGoesOffHoldsACallThatHasBegunOtherwise) {
  rRecorder.rStopCnds = {{0x1002, 1}};
  InitMode(TDM_START_MUTELT);
  OffHook();
  DMsg(DMSG_MUTE_LIGHT_OFF);
  ForgetTraces();
  DMsg(0x1002, 1);
  EXPECT_EQ((Texts{"5 [5] Soft stop condition"}), Log()) << "the light's flag goes, the hook's stays";
}

TEST_F(DstChannelTest, ToneModeNeedsTheDarkLight) {
  InitMode(TDM_START_MUTELT_AND_TONE);
  DMsg(DMSG_MUTE_LIGHT_ON);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  EXPECT_EQ((Texts{"5 [5] MuteLight ON"}), Log());
  DMsg(DMSG_MUTE_LIGHT_OFF);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  EXPECT_EQ(Join({"5 [5] MuteLight off", "5 [5] Voice detected"}, STARTS), Log());
  DMsg(DMSG_MUTE_LIGHT_ON);
  DMsg(DMSG_MUTE_LIGHT_OFF);
  (void)Log();
  Event(E_CHG_ToneAnalyze, TONE_VOICE);  // the next call
  EXPECT_EQ(Join({"5 [5] Voice detected"}, STARTS), Log());
}

// -- change of the local number ---------------------------------------------------------------------------------------

// The number of a telephone may come outside a call; a recording does not.
constexpr const char* NO_CALL = "5 [5] No active call for this channel";

TEST_F(DstChannelTest, ChangeLocalMessageIsTakenApart) {
  struct Row {
    const char* acText;
    bool fStopStart;
  };
  const Row rRows[] = {{"33|0301234|0", false}, {"33|0301234|1", true}, {"33|0301234|", true}, {"33||00", true},
                       {"33||2|9", true},       {"33|0301234", false},  {"33|", false},        {"33", false}};
  rRecorder.strCachedLocalNum = "22";
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    InitMode(TDM_START_MUTELT);
    DText(DMSG_CHANGE_LOCAL, rRow.acText);
    const std::string strLine = std::string("5 [5] Change Local Number: ") + rRow.acText;
    const char* const acChange = "5 [5] LocalNumberChanged. Change: 22 to: 33.";
    EXPECT_EQ(rRow.fStopStart ? Texts({strLine, acChange, "5 [5] LocalNumberChanged: STOP",
                                       "5 [5] LocalNumberChanged: Transfer to monitored phone",
                                       "5 [5] LocalNumberChanged: START", NO_CALL})
                              : Texts({strLine, acChange, "5 [5] Local Number Changed: 33."}),
              Log());
    EXPECT_EQ("33", KeptLocalNum());
    DText(DMSG_CHANGE_LOCAL, "||1");
    EXPECT_EQ("22", KeptLocalNum()) << "the number kept aside";
  }
}

TEST_F(DstChannelTest, ChangeLocalMessageChangesTheLocalSideOfACallAndNoOther) {
  AllowRecording();
  Init();
  OffHook();
  Display("0305678");
  EXPECT_EQ("1005", Active("localcontact")) << "the line's own";
  DText(DMSG_CHANGE_LOCAL, "33|0301234|0");
  OnHook();
  EXPECT_EQ("33", Kept("local"));
  EXPECT_EQ("6000", Kept("localcontact"));
  EXPECT_EQ("0305678", Kept("remote"));
}

TEST_F(DstChannelTest, ChangeLocalMessageWithoutANumber) {
  rRecorder.strCachedLocalNum = "11";
  InitMode(TDM_START_MUTELT);
  DText(DMSG_CHANGE_LOCAL, "22");
  ForgetTraces();
  DText(DMSG_CHANGE_LOCAL, "");
  EXPECT_EQ((Texts{"5 [5] Change Local Number: ", "5 [5] LocalNumberChanged. Change: 22 to: .",
                   "5 [5] Local Number Changed: ."}),
            Log());
  EXPECT_EQ("", KeptLocalNum());
  DText(DMSG_CHANGE_LOCAL, "22");
  ForgetTraces();
  DText(DMSG_CHANGE_LOCAL, "||1");
  EXPECT_EQ((Texts{"5 [5] Change Local Number: ||1", "5 [5] LocalNumberChanged. Change: 22 to: .",
                   "5 [5] LocalNumberChanged: STOP", "5 [5] LocalNumberChanged: Transfer to non-monitored phone",
                   "5 [5] LocalNumberChanged: START", NO_CALL}),
            Log());
  EXPECT_EQ("11", KeptLocalNum());
}

TEST_F(DstChannelTest, ChangeLocalMessageWithTheNumberAlreadyHeldChangesNothing) {
  AllowRecording();
  Init();
  DText(DMSG_BRI_ALERTING, "0301\n22", 1);  // tells the local number, by which the line is not known
  ForgetTraces();
  DText(DMSG_CHANGE_LOCAL, "22||1");
  EXPECT_EQ((Texts{"5 [5] Change Local Number: 22||1", "5 [5] LocalNumberChanged. Change: 22 to: 22."}), Log());
  OffHook();
  EXPECT_EQ("1005", Active("localcontact")) << "nor is it now";
  OnHook();
}

TEST_F(DstChannelTest, ChangeLocalMessageIsCutAt300Bytes) {
  InitMode(TDM_START_MUTELT);
  DText(DMSG_CHANGE_LOCAL, std::string(1000, '3'));
  EXPECT_EQ(std::string(300, '3'), KeptLocalNum());
}

// -- conditions from settings -----------------------------------------------------------------------------------------

TEST_F(DstChannelTest, StartAndStopConditions) {
  Init();
  rRecorder.rStartCnds = {{0x1001, 1}, {0x1002, 1}};
  rRecorder.rStopCnds = {{0x1001, 2}, {0x1002, 1}};
  DMsg(0x1001, 2);
  EXPECT_EQ(NOTHING, Log());  // nothing to stop
  DMsg(0x1001, 1);
  EXPECT_EQ(Join({"5 [5] Start condition"}, STARTS), Log());
  DMsg(0x1001, 1);
  EXPECT_EQ((Texts{"5 [5] Start condition"}), Log());
  DMsg(0x1001, 2);
  EXPECT_EQ(Join({"5 [5] Soft stop condition"}, STOPS), Log());
  // One message for both.
  DMsg(0x1002, 1);
  EXPECT_EQ(Join({"5 [5] Start condition"}, STARTS), Log());
  DMsg(0x1002, 1);
  EXPECT_EQ(Join({"5 [5] Soft stop condition"}, STOPS), Log());
}

TEST_F(DstChannelTest, StopConditionEndsNoCallThatSomethingElseHolds) {
  rRecorder.rStopCnds = {{0x1002, 2}};
  InitSources();
  for (const ESource eOther : {BY_HOOK, BY_AUDIO, BY_VOICE}) {
    SCOPED_TRACE(eOther);
    Begin(eOther);
    Begin(BY_CONDITION);
    ForgetTraces();
    DMsg(0x1002, 2);
    EXPECT_EQ((Texts{"5 [5] Soft stop condition"}), Log());
    OnHook();
    EXPECT_EQ(Join({"5 [5] On hook"}, STOPS), Log());
    Event(E_SYS_BargeIn, 0);
  }
}

TEST_F(DstChannelTest, RingConditionsComeAfterTheOthersAndOnBeforeOff) {
  Init();
  rRecorder.rStartCnds = rRecorder.rRingOnCnds = rRecorder.rRingOffCnds = {{0x1001, 1}};
  DMsg(0x1001, 1);
  EXPECT_EQ(Join(Join({"5 [5] Start condition"}, STARTS), {"5 [5] Ring ON condition", "5 [5] Ring OFF condition"}),
            Log());
  rRecorder.rStopCnds = {{0x1001, 1}};
  rRecorder.rRingOffCnds = {};
  DMsg(0x1001, 1);
  EXPECT_EQ((Texts{"5 [5] Soft stop condition", "5 [5] Call stops", "5 [5] Ring ON condition", NEW_RING}), Log());
  PassSeconds(3);
  OffHook();
  EXPECT_EQ((Texts{"5 [5] Off hook", "5 [5] Call starts", "5 [5] Incoming call, ringing time: 3", REFUSED}), Log());
}

TEST_F(DstChannelTest, RingThatConditionsEndIsARingThatWas) {
  Init();
  rRecorder.rRingOnCnds = {{0x1001, 1}};
  rRecorder.rRingOffCnds = {{0x1001, 2}};
  DMsg(0x1001, 1);
  DMsg(0x1001, 2);
  PassSeconds(3);
  ForgetTraces();
  OffHook();
  EXPECT_EQ((Texts{"5 [5] Off hook", "5 [5] Call starts", "5 [5] Incoming, last ring: 3 s. ago", REFUSED}), Log());
}

TEST_F(DstChannelTest, ConditionsSeeTheStateAfterTheMessage) {
  Init();
  rRecorder.rStopCnds = {{0x0008, 0}};
  rRecorder.rStartCnds = {{0x000E, 0}};
  OffHook();
  EXPECT_EQ(Join(Join({"5 [5] Off hook"}, STARTS), {"5 [5] Soft stop condition"}), Log());
  OnHook();
  EXPECT_EQ(Join({"5 [5] On hook", "5 [5] Call stops", "5 [5] Start condition"}, STARTS), Log());
}

TEST_F(DstChannelTest, KeyConditionsCompareTheLowByte) {
  Init();
  rRecorder.rStartCnds = {{0x1006, '5'}};
  DMsg(DMSG_KEY_DIGIT, 0x4400U | '5');
  EXPECT_EQ(Join({"5 [5] Digits: 5", "5 [5] Start condition"}, STARTS), Log());
}

// -- soak test --------------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, SoakTestTogglesTheCallByChance) {
  Init();
  rRecorder.fDebugRepeatRecord = true;
  constexpr int SECONDS = 300;
  constexpr unsigned SEED = 17;
  std::vector<bool> vWanted;
  srand(SEED);
  for (int i = 0; i < SECONDS; i++) vWanted.push_back(rand() % 15 == 0);
  ASSERT_GT(std::count(vWanted.begin(), vWanted.end(), true), 5);
  srand(SEED);
  bool fBusy = false;
  for (int i = 0; i < SECONDS; i++) {
    Texts astrWanted;
    if (vWanted[static_cast<std::size_t>(i)]) {
      astrWanted = fBusy ? STOPS : STARTS;
      fBusy = !fBusy;
    }
    Seconds(1);
    ASSERT_EQ(astrWanted, Log()) << i;
  }
}

TEST_F(DstChannelTest, SoakTestEndsACallOfAnyKind) {
  for (const ESource eSource : SOURCES) {
    rRecorder.fDebugRepeatRecord = false;
    InitSources();
    Begin(eSource);
    (void)Log();
    rRecorder.fDebugRepeatRecord = true;
    Texts astrLines;
    for (int i = 0; i < 1000 && astrLines.empty(); i++) {
      Seconds(1);
      astrLines = Log();
    }
    EXPECT_EQ(STOPS, astrLines);
  }
}
