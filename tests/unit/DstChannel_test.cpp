#include "DstChannel.h"

#include <algorithm>
#include <cstdlib>

#include "ChannelBench.h"
#include "TestFiles.h"

namespace {

const Texts NOTHING;

// A telephone on driver channel 0, line 5.
class DstChannelTest : public ChannelBench {
 protected:
  // Calls are barred from recording unless a test allows them: their start then shows as the refusal.
  DstChannelTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    rRecorder.iNumberFilterType = 1;
    rRecorder.strDataDir = "/tmp/";
    rRecorder.rBoardParams = {{"SilenceT", "15"}, {"AudioSens", "6"}};  // what the recorder gives when none is set
  }

  void Init(const char* acPbxType = "", const StdStringMap& rSettings = {}) {
    rRecorder.strPbxType = acPbxType;
    for (const auto& [strKey, strValue] : rSettings) rRecorder.rBoardParams[strKey] = strValue;
    InitLine(rLine, 5);
  }
  void InitMode(int iTdmStart, const char* acPbxType = "") {
    Init(acPbxType, {{"TdmStart", std::to_string(iTdmStart)}});
  }
  void Event(WORD wEventCode, DWORD dwParam) { Send(rLine, wEventCode, dwParam); }
  void DMsg(DWORD dwCode, DWORD dwValue = 0) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, dwValue);
    rLine.HandleEvent(&rEvent);
  }
  void DText(DWORD dwCode, std::string strText, DWORD dwValue = 0) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, dwValue, &strText);
    rLine.HandleEvent(&rEvent);
  }
  // A call with only one flag set, so that a test sees which messages end it.
  void StartCall(bool DST_Channel::*prFlag) {
    rLine.CallIsFinished();
    rLine.InCallMaybeChanged();
    rLine.*prFlag = true;
    rLine.InCallMaybeChanged();
    ForgetTraces();
  }
  static bool Holds(const Texts& astrLines, const std::string& strLine) {
    return std::find(astrLines.begin(), astrLines.end(), strLine) != astrLines.end();
  }

  static constexpr const char* REFUSED = "5 [5] Not recording because not in number filter";
  const Texts STARTS = {"5 [5] Call starts", "5 [5] Outgoing call", REFUSED};
  static Texts After(const char* acLine, const Texts& astrMore) {
    Texts astrAll = {acLine};
    astrAll.insert(astrAll.end(), astrMore.begin(), astrMore.end());
    return astrAll;
  }
  DST_Channel rLine;
};

}  // namespace

// -- construction and settings ---------------------------------------------------------------------------------------

TEST_F(DstChannelTest, FreshLine) {
  EXPECT_EQ(5, rLine.iRecSource);
  EXPECT_EQ(15, rLine.iSilenceTimeOut);
  EXPECT_EQ(4, rLine.iLocalNumSize);
  EXPECT_EQ(-1, rLine.iMuteLightState);
  EXPECT_EQ(PBX_UNDEF, rLine.iPbxType);
  EXPECT_TRUE(rLine.fLateChange);
  EXPECT_FALSE(rLine.InCall() || rLine.fAudio || rLine.fUseAudioDetection || rLine.fInCall_ToneAnalyze);
  EXPECT_FALSE(rLine.fOnHold || rLine.fAudioState || rLine.fAudioMaybeDelayStart || rLine.fLocalIdDetect);
  EXPECT_FALSE(rLine.fSpecial_Pilot || rLine.fAllowEqualRemoteLenChange || rLine.fCheckForMultipleTelNum);
  EXPECT_EQ(0, rLine.rAudioStartTime + rLine.rAlmostLocalNum + rLine.rLoginBusy + rLine.rAudioNotice);
  EXPECT_STREQ("", rLine.acPhoneDisp);
  EXPECT_STREQ("", rLine.strChangeLocalNum);
  EXPECT_TRUE(rLine.vBusyCalls.empty());
  EXPECT_FALSE(rLine.CanStereo());
}

TEST_F(DstChannelTest, ProfileFollowsTheTypeOfThePbx) {
  struct Row {
    const char *acPbxType, *acPhoneType;
    int iTdmStart, iPbxType;
    bool fEqual, fLate, fMultiple, fUseLocal, fPressed, fCached;
  };
  const Row rRows[] = {
      // type, phone, mode, profile, equal, late, multiple, local, pressed, cached
      {"", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"Siemens", "0", 0, PBX_SIEMENS, true, true, false, false, false, false},
      {"Siemens Hicom", "0", 0, PBX_SIEMENS, true, true, false, false, false, false},
      {"siemens", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"A Siemens", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"Ericsson MD110", "0", 0, PBX_UNDEF, true, false, true, false, false, false},
      {"Belgacom", "0", 0, PBX_BELGACOM, false, true, false, false, false, false},
      {"Belgacom 2", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"ISDN", "0", 0, PBX_UNDEF, false, true, false, true, false, false},
      {"ISDN BRI", "0", 0, PBX_UNDEF, false, true, false, true, false, false},
      {"Alcatel", "0", 0, PBX_ALCATEL, false, true, false, true, false, true},
      {"Alcatel 4400", "0", 0, PBX_ALCATEL, false, true, false, true, false, true},
      {"Aastra 5000", "0", 0, PBX_A5000, false, true, false, false, false, false},
      {"Aastra 5000 X", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"Avaya Merlin", "1", 0, PBX_TENOVIS, false, true, false, false, false, false},
      {"Avaya Mer", "1", 0, PBX_TENOVIS, false, true, false, false, false, false},
      {"Avaya Merlin", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"Avaya Merlin", "2", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"Avaya", "1", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"PANASONIC", "0", 0, PBX_PANASONIC, false, true, false, false, false, false},
      {"PANASONIC 2", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"Panasonic", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"NEC", "0", 0, PBX_NEC, false, true, false, false, true, false},
      {"NEC 2", "0", 0, PBX_UNDEF, false, true, false, false, false, false},
      {"", "0", 1, PBX_UNDEF, false, true, false, true, false, true},
      {"", "0", 2, PBX_UNDEF, false, true, false, false, false, false},
      {"", "0", 3, PBX_UNDEF, false, true, false, true, false, true},
      {"NEC", "0", 3, PBX_NEC, false, true, false, true, true, true},
  };
  rRecorder.strCachedLocalNum = "47\xc3\xa9";  // UTF-8
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(std::string(rRow.acPbxType) + " " + rRow.acPhoneType + " " + std::to_string(rRow.iTdmStart));
    rRecorder.strPbxType = rRow.acPbxType;
    rRecorder.rChannelParams["PhoneType"] = rRow.acPhoneType;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rRow.iTdmStart);
    DST_Channel rFresh;
    ForgetTraces();
    rFresh.Init(5, 0, 0, &rRecorder, 0);
    EXPECT_EQ(rRow.acPbxType, rFresh.strPbxType);
    EXPECT_EQ(rRow.iPbxType, rFresh.iPbxType);
    EXPECT_EQ(rRow.fEqual, rFresh.fAllowEqualRemoteLenChange);
    EXPECT_EQ(rRow.fLate, rFresh.fLateChange);
    EXPECT_EQ(rRow.fMultiple, rFresh.fCheckForMultipleTelNum);
    EXPECT_EQ(rRow.fUseLocal, rFresh.fUseLocalNum);
    EXPECT_EQ(rRow.fPressed, rFresh.fUsePressedDigitsForRemote);
    EXPECT_EQ(rRow.iTdmStart == 1 || rRow.iTdmStart == 3, rFresh.fLocalIdDetect);
    EXPECT_EQ(rRow.fCached ? "47\xe9" : "", rFresh.strLocalNum);  // Latin-1
    EXPECT_EQ(rRow.fCached ? Texts{"5 [5] Cached local number: 47\xe9"} : NOTHING, logsink::TakeTexts());
    EXPECT_FALSE(rFresh.fRingsUntilPickup);
  }
}

TEST_F(DstChannelTest, EmptyCachedNumberIdentifiesNobody) {
  Init("Alcatel");
  EXPECT_FALSE(rLine.fUseLocalNum);
  EXPECT_EQ("", rLine.strLocalNum);
}

TEST_F(DstChannelTest, InitReadsSettingsAndAdjustsTheCard) {
  rRecorder.rDatabase.rContactNames[1005] = "Desk 5";
  rRecorder.rDatabase.fNoteReads = true;
  rRecorder.rSpecials = {"Pilot"};
  rRecorder.rBoardParams = {{"AudioDetect", "2"},  {"SilenceT", "40"},    {"AudioSens", "9"},
                            {"TdmStart", "2"},     {"DetectDtmf", "1"},   {"MissedCalls", "3"},
                            {"InboundGain", "-4"}, {"OutboundGain", "7"}, {"SilenceTimeOut", "99"}};
  rLine.Init(5, 2, 9, &rRecorder, 1);
  EXPECT_TRUE(rLine.fUseAudioDetection && rLine.fDetectDtmf && rLine.fMissedCalls && rLine.fSpecial_Pilot);
  EXPECT_EQ(40, rLine.iSilenceTimeOut);
  EXPECT_EQ(TDM_START_AUCH, rLine.iTdmStart);
  EXPECT_EQ("Desk 5", rLine.strLocalName);
  EXPECT_EQ((Texts{"DTRSetMixerVolume(1,0,-4,7)", "SsmSetBargeInSens(1,9)"}), simcards::TakeCalls());
  EXPECT_EQ((Texts{"GetOrCreateLineContact 5 ''", "GetContactName 1005"}), rRecorder.rDatabase.TakeCalls());
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(9, rLine.iBoardCh);
  EXPECT_EQ(2, rLine.iBoardListIx);
}

TEST_F(DstChannelTest, SettingsReplaceTheConstructorsValues) {
  rRecorder.rBoardParams = {};
  rLine.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ(0, rLine.iSilenceTimeOut);
  EXPECT_FALSE(rLine.fUseAudioDetection || rLine.fDetectDtmf || rLine.fMissedCalls || rLine.fSpecial_Pilot);
  EXPECT_EQ((Texts{"DTRSetMixerVolume(0,0,0,0)", "SsmSetBargeInSens(0,0)"}), simcards::TakeCalls());
}

TEST_F(DstChannelTest, CardThatCannotMixIsReportedAndInitGoesOn) {
  simcards::FailNext("DTRSetMixerVolume", 1, 5, "no mixer");
  rRecorder.strPbxType = "NEC";
  rLine.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"3 Error in DTRSetMixerVolume: no mixer"}), logsink::TakeTexts());
  EXPECT_EQ("SsmSetBargeInSens(0,6)", simcards::TakeCalls().at(1));
  EXPECT_EQ(PBX_NEC, rLine.iPbxType);
}

// -- flags and the small operations ----------------------------------------------------------------------------------

namespace {
constexpr bool DST_Channel::*OWN_FLAGS[] = {&DST_Channel::fInCall_DChannel, &DST_Channel::fInCall_Audio,
                                            &DST_Channel::fInCall_Extra, &DST_Channel::fInCall_Offhook};
}  // namespace

TEST_F(DstChannelTest, AnyFlagMakesACallAndFinishingClearsAll) {
  Init();
  EXPECT_FALSE(rLine.InCall());
  rLine.fInCall_ToneAnalyze = true;  // marks only how the call was found
  EXPECT_FALSE(rLine.InCall());
  for (bool DST_Channel::*prFlag : OWN_FLAGS) {
    rLine.*prFlag = true;
    EXPECT_TRUE(rLine.InCall());
    rLine.*prFlag = false;
  }
  rLine.fInCall_ChState = true;
  EXPECT_TRUE(rLine.InCall());
  for (bool DST_Channel::*prFlag : OWN_FLAGS) rLine.*prFlag = true;
  rLine.InCallMaybeChanged();
  rLine.strDigits = "12";
  rLine.CallIsFinished();
  EXPECT_FALSE(rLine.InCall() || rLine.fInCall_ToneAnalyze);
  EXPECT_EQ("", rLine.strDigits);
  EXPECT_TRUE(rLine.fCallBusy);  // the caller decides when to look
}

TEST_F(DstChannelTest, ClearInfoForgetsHoldAndTheRest) {
  Init();
  rLine.fOnHold = true;
  rLine.strRemoteNum = "0301234";
  rLine.strLocalNum = "22";
  rLine.ClearInfo();
  EXPECT_FALSE(rLine.fOnHold);
  EXPECT_EQ("", rLine.strRemoteNum);
  EXPECT_EQ("22", rLine.strLocalNum);
}

TEST_F(DstChannelTest, NewRingForgetsANumberThatIsNotFresh) {
  struct Row {
    const char* acLabel;
    bool fBusy;
    int iAge;
    bool fExpires;
  };
  for (const Row& rRow :
       {Row{"in the same second", false, 0, false}, Row{"2 seconds", false, 2, false}, Row{"3 seconds", false, 3, true},
        Row{"old", false, 500, true}, Row{"during a call", true, 500, false}}) {
    SCOPED_TRACE(rRow.acLabel);
    Init();
    rLine.fCallBusy = rRow.fBusy;
    rLine.strRemoteNum = "0301234";
    rLine.rRemoteNumTime = rNow - rRow.iAge;
    rLine.WhenNewRing();
    EXPECT_EQ(rRow.fExpires ? Texts{"5 [5] A new ring and expire remote"} : NOTHING, logsink::TakeTexts());
    EXPECT_EQ(rRow.fExpires ? "" : "0301234", rLine.strRemoteNum);
    EXPECT_EQ(rRow.fExpires ? 0 : rNow - rRow.iAge, rLine.rRemoteNumTime);
    rLine.fCallBusy = false;
  }
}

TEST_F(DstChannelTest, DigitsAfterALoginBecomeTheLocalNumber) {
  struct Row {
    const char *acLabel, *acDigits;
    int iAge;  // of the login text; -1: none
    bool fTaken;
  };
  for (const Row& rRow :
       {Row{"no login", "1234", -1, false}, Row{"at once", "1234", 0, true}, Row{"45 seconds", "1234", 45, true},
        Row{"46 seconds", "1234", 46, false}, Row{"two digits", "12", 1, false}, Row{"three digits", "123", 1, true},
        Row{"five digits", "12345", 1, true}, Row{"six digits", "123456", 1, false}}) {
    SCOPED_TRACE(rRow.acLabel);
    Init();
    rLine.strLocalNum = "";
    rLine.fUseLocalNum = false;
    rLine.rLoginBusy = rRow.iAge < 0 ? 0 : rNow - rRow.iAge;
    rLine.strDigits = rRow.acDigits;
    rLine.CheckDigitsExpired(/*fForceExpired=*/true);
    const std::string strTaken = std::string("5 [5] Local ID: ") + rRow.acDigits;
    EXPECT_EQ(rRow.fTaken ? Texts({strTaken, "5 [5] Previous digits expired"}) : Texts{"5 [5] Previous digits expired"},
              logsink::TakeTexts());
    EXPECT_EQ(rRow.fTaken ? rRow.acDigits : "", rLine.strLocalNum);
    EXPECT_EQ(rRow.fTaken, rLine.fUseLocalNum);
    EXPECT_EQ(0, rLine.rLoginBusy);
  }
}

TEST_F(DstChannelTest, LocalNumberIsKeptOverARestartWhereItIsReadBack) {
  struct Row {
    const char* acPbxType;
    int iTdmStart;
    bool fKept;
  };
  for (const Row& rRow : {Row{"", 0, false}, Row{"Siemens", 2, false}, Row{"Alcatel 4400", 0, true},
                          Row{"Aastra 5000", 0, false}, Row{"", 1, true}, Row{"NEC", 3, true}}) {
    SCOPED_TRACE(rRow.acPbxType);
    rRecorder.strPbxType = rRow.acPbxType;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rRow.iTdmStart);
    DST_Channel rFresh;
    rFresh.Init(5, 2, 9, &rRecorder, 0);
    rFresh.strLocalNum = "47\xe9";
    ForgetTraces();
    rFresh.Finalize();
    EXPECT_EQ(rRow.fKept ? Texts{"SetCachedLocalNum 9 2 47\xc3\xa9"} : NOTHING, rRecorder.TakeCalls());
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
  }
}

TEST_F(DstChannelTest, StateFileHoldsTheAudioLevel) {
  Init();
  EXPECT_EQ(0, rLine.WriteChState());
  EXPECT_EQ("", ReadTestFile("/tmp/chstate_5.dat"));
  rLine.iLast_dB = -30;
  EXPECT_EQ(0, rLine.WriteChState());
  EXPECT_EQ("AudioLevel: -30\r\n", ReadTestFile("/tmp/chstate_5.dat"));
  rLine.iLast_dB = -999;
  EXPECT_EQ(0, rLine.WriteChState());
  EXPECT_EQ("", ReadTestFile("/tmp/chstate_5.dat"));
  rRecorder.strDataDir = "/tmp/none/";
  EXPECT_EQ(1, rLine.WriteChState());
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

// -- events other than D-channel messages ----------------------------------------------------------------------------

TEST_F(DstChannelTest, VoiceByToneStartsACallOnce) {
  struct Row {
    const char* acLabel;
    int iTdmStart, iMuteLight;
    DWORD dwTone;
    bool fFound, fStarts;
  };
  const Row rRows[] = {{"voice", 3, 0, 6, false, true},         {"light unknown", 3, -1, 6, false, false},
                       {"light on", 3, 1, 6, false, false},     {"found before", 3, 0, 6, true, false},
                       {"another tone", 3, 0, 1, false, false}, {"whole value counts", 3, 0, 0x106, false, false},
                       {"mode 0", 0, 0, 6, false, false},       {"mode 1", 1, 0, 6, false, false},
                       {"mode 2", 2, 0, 6, false, false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    InitMode(rRow.iTdmStart);
    rLine.iMuteLightState = rRow.iMuteLight;
    rLine.fInCall_ToneAnalyze = rRow.fFound;
    Event(E_CHG_ToneAnalyze, rRow.dwTone);
    EXPECT_EQ(rRow.fStarts ? After("5 [5] Voice detected", STARTS) : NOTHING, logsink::TakeTexts());
    EXPECT_EQ(rRow.fStarts, rLine.fInCall_Extra);
    EXPECT_EQ(rRow.fStarts || rRow.fFound, rLine.fInCall_ToneAnalyze);
    rLine.CallIsFinished();
    rLine.InCallMaybeChanged();
  }
}

TEST_F(DstChannelTest, DtmfFromTheAudioCountsOnlyWhenAskedFor) {
  for (const bool fDetect : {false, true}) {
    SCOPED_TRACE(fDetect);
    Init("", {{"DetectDtmf", fDetect ? "1" : "0"}});
    Event(E_CHG_RcvDTMF, 0xab00 | '7');
    EXPECT_EQ(fDetect ? Texts({"5 [5] TDM DTMF detected: 7", "5 [5] Digits: 7"}) : Texts{"5 [5] TDM DTMF detected: 7"},
              logsink::TakeTexts());
    EXPECT_EQ((Texts{"SsmClearRxDtmfBuf(0)"}), simcards::TakeCalls());
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
      DST_Channel rFresh;
      InitLine(rFresh, 5);
      rFresh.fInCall_Offhook = fCall;
      rFresh.InCallMaybeChanged();
      rFresh.strRemoteNum = "0301234";
      rFresh.iLineErrCalc = rFresh.iLineOfflineCalc = 0;
      ForgetTraces();
      Send(rFresh, E_CHG_ChState, rRow.dwState);
      Texts astrWanted;
      if (rRow.fLost) astrWanted.push_back("5 [5] Line health: offline");
      astrWanted.push_back(std::string("5 [5] Channel state: ") + rRow.acText);
      if (rRow.fLost && fCall) astrWanted.push_back("5 [5] Call stops");
      EXPECT_EQ(astrWanted, logsink::TakeTexts());
      EXPECT_EQ(fCall && !rRow.fLost, rFresh.fCallBusy);
      EXPECT_EQ(rRow.fLost ? "" : "0301234", rFresh.strRemoteNum);
    }
  }
}

TEST_F(DstChannelTest, VoiceOutsideACallIsNoticedNowAndThen) {
  Init();
  rLine.rCallStopTime = rNow - 1;
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());  // the call has just ended
  PassSeconds(1);
  Event(E_SYS_BargeIn, 0);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ((Texts{"5 [5] Voice detected outside of call"}), logsink::TakeTexts());
  EXPECT_EQ(rNow, rLine.rAudioNotice);
  PassSeconds(4);
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  PassSeconds(1);
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ((Texts{"5 [5] Voice detected outside of call"}), logsink::TakeTexts());
  EXPECT_FALSE(rLine.fAudio || rLine.fInCall_Audio);
  StartCall(&DST_Channel::fInCall_Offhook);
  PassSeconds(10);
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(DstChannelTest, VoiceMakesACallUntilSilenceHasLasted) {
  Init("", {{"AudioDetect", "1"}});
  Event(E_SYS_BargeIn, 0);
  EXPECT_EQ(0, rLine.rStartSilence);  // there was no voice
  Event(E_SYS_BargeIn, 1);
  EXPECT_EQ(STARTS, logsink::TakeTexts());
  Event(E_SYS_BargeIn, 1);
  for (int i = 0; i < 20; i++) Tick(rLine);
  EXPECT_TRUE(rLine.fCallBusy);
  Event(E_SYS_BargeIn, 2);  // any value but 1 is silence
  const time_t rSilence = rNow;
  EXPECT_EQ(rSilence, rLine.rStartSilence);
  PassSeconds(1);
  Event(E_SYS_BargeIn, 0);
  EXPECT_EQ(rSilence, rLine.rStartSilence);  // silent already
  for (int i = 0; i < 13; i++) Tick(rLine);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  Tick(rLine);
  EXPECT_EQ((Texts{"5 [5] Silence time-out", "5 [5] Call stops"}), logsink::TakeTexts());
  EXPECT_FALSE(rLine.fInCall_Audio || rLine.fCallBusy);
  Tick(rLine);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
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
    StartCall(&DST_Channel::fInCall_Audio);
    rLine.fOnHold = rRow.fOnHold;
    rLine.rStartSilence = rNow;
    PassSeconds(rRow.iLimit - 1);
    rLine.Periodic();
    EXPECT_TRUE(rLine.fCallBusy);
    Tick(rLine);
    EXPECT_FALSE(rLine.fCallBusy);
    EXPECT_FALSE(rLine.fOnHold);  // goes with the call
  }
}

TEST_F(DstChannelTest, SilenceClearsItsOwnFlagOnly) {
  Init("", {{"AudioDetect", "1"}});
  StartCall(&DST_Channel::fInCall_Audio);
  rLine.fInCall_Offhook = true;
  rLine.rStartSilence = rNow;
  PassSeconds(14);
  Tick(rLine);
  EXPECT_EQ((Texts{"5 [5] Silence time-out"}), logsink::TakeTexts());
  EXPECT_TRUE(rLine.fCallBusy);
}

TEST_F(DstChannelTest, AudioReachesTheFile) {
  Init();
  rLine.strFullFilename = "/recordings/dst.wav";
  rLine.BasicRecordingPreparation();
  rLine.OpenAudioFile();
  rLine.acRecordBuf[0] = 'x';
  Event(E_PROC_RecordMem, 1);
  rLine.CloseAudioFile();
  EXPECT_EQ("x", FileBytes("/recordings/dst.wav").substr(56));
}

TEST_F(DstChannelTest, CodesOfOtherCardsAreIgnored) {
  Init();
  for (const WORD wCode : std::initializer_list<WORD>{0, 7, 31, 35, 47, 49, 124, 60000}) Event(wCode, 3);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
  EXPECT_FALSE(rLine.InCall() || rLine.fRinging);
}

// -- D-channel messages ----------------------------------------------------------------------------------------------

namespace {

// What a message tells on an idle line of no special kind. The value is 0x12305 throughout, so that masks show.
struct MessageRow {
  DWORD dwCode;
  const char* acLine;  // first line; empty: none
  DWORD dwFiltered;    // what the conditions compare
};
constexpr DWORD VALUE = 0x12305;
const MessageRow MESSAGES[] = {
    {0x0008, "5 [5] Off hook", 0x2305},
    {0x000E, "5 [5] On hook", 0x2305},
    {0x006B, "5 [5] BRI in progress  74501", 0x2305},
    {0x006E, "5 [5] BRI alerting  74501", 0x2305},
    {0x006F, "5 [5] BRI connected '' 74501", 0x2305},
    {0x0070, "5 [5] BRI released", 0x2305},
    {0x0075, "5 [5] BRI call abandoned", 0x2305},
    {0x0076, "5 [5] BRI call rejected", 0x2305},
    {0x1001, "", 0x2305},
    {0x1002, "", 0x2305},
    {0x1003, "", 0x2305},
    {0x100B, "", 0x2305},
    {0x100F, "", 0x2305},
    {0x1025, "", 0x2305},
    {0x1028, "", 0x2305},
    {0x102A, "", 0x2305},
    {0x1033, "", 0x2305},
    {0x1006, "5 [5] Digits: \x05", 0x05},
    {0x1008, "5 [5] Message change:", 0x2305},
    {0x100E, "5 [5] Function button 5 (100e.5)", 0x05},
    {0x1012, "5 [5] Release button", 0x2305},
    {0x101A, "5 [5] Feature button (101a.12305)", 0x2305},
    {0x101E, "5 [5] Soft button 5 (101e.5)", 0x05},
    {0x101F, "5 [5] Ring on (101f)", 0x2305},
    {0x10BA, "5 [5] Ring on (10ba)", 0x2305},
    {0x10BB, "5 [5] Ring on (10bb)", 0x2305},
    {0x10BC, "5 [5] Ring on (10bc)", 0x2305},
    {0x1307, "5 [5] Ring on (1307)", 0x2305},
    {0x1020, "5 [5] Ring off (1020)", 0x2305},
    {0x10B8, "5 [5] Ring off (10b8)", 0x2305},
    {0x1304, "5 [5] Ring off (1304)", 0x2305},
    {0x1306, "5 [5] Ring off (1306)", 0x2305},
    {0x1308, "5 [5] Ring off (1308)", 0x2305},
    {0x1309, "5 [5] Ring off (1309)", 0x2305},
    {0x130A, "5 [5] Ring off (130a)", 0x2305},
    {0x130B, "5 [5] Ring off (130b)", 0x2305},
    {0x130C, "5 [5] Ring off (130c)", 0x2305},
    {0x1021, "5 [5] Line button", 0x2305},
    {0x104A, "5 [5] Audio change 74501", 0x2305},
    {0x111E, "5 [5] MuteLight off", 0x2305},
    {0x111F, "5 [5] MuteLight ON", 0x2305},
    {0x1120, "5 [5] MuteLight ON", 0x2305},
    {0x8001, "5 [5] Change Local Number: ", 0x2305},
    // All else, also what lies between known codes.
    {0x1305, "5 [5] Other D-channel event 1305.12305", 0x2305},
    {0x1303, "5 [5] Other D-channel event 1303.12305", 0x2305},
    {0x130D, "5 [5] Other D-channel event 130d.12305", 0x2305},
    {0x0000, "5 [5] Other D-channel event 0.12305", 0x2305},
    {0x1007, "5 [5] Other D-channel event 1007.12305", 0x2305},
    {0x10B9, "5 [5] Other D-channel event 10b9.12305", 0x2305},
    {0x11006, "5 [5] Other D-channel event 11006.12305", 0x2305},
    {0xFFFFFFFF, "5 [5] Other D-channel event ffffffff.12305", 0x2305},
};

}  // namespace

TEST_F(DstChannelTest, EachMessageTellsItself) {
  for (const MessageRow& rRow : MESSAGES) {
    SCOPED_TRACE(rRow.dwCode);
    DST_Channel rFresh;
    InitLine(rFresh, 5);
    std::string strText;
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, rRow.dwCode, VALUE, &strText);
    rFresh.HandleEvent(&rEvent);
    const Texts astrLines = logsink::TakeTexts();
    if (*rRow.acLine == '\0') {
      EXPECT_EQ(NOTHING, astrLines);
    } else {
      // The parties of a call phase are told before the phase.
      EXPECT_TRUE(Holds(astrLines, rRow.acLine)) << ::testing::PrintToString(astrLines);
    }
    EXPECT_EQ(rRow.dwCode == 0x0008 || rRow.dwCode == 0x006F || rRow.dwCode == 0x104A, rFresh.fCallBusy);
    const bool fRings = std::string(rRow.acLine).find("Ring on") != std::string::npos;
    EXPECT_EQ(fRings, rFresh.fRinging);
    EXPECT_EQ(fRings || rRow.dwCode == 0x006E ? rNow : 0, rFresh.rLastRing);
  }
}

TEST_F(DstChannelTest, EachMessageReachesTheConditionsWithItsMask) {
  for (const MessageRow& rRow : MESSAGES) {
    SCOPED_TRACE(rRow.dwCode);
    DST_Channel rFresh;
    InitLine(rFresh, 5);
    for (const bool fFits : {true, false}) {
      rRecorder.rRingOffCnds = {{rRow.dwCode, fFits ? rRow.dwFiltered : VALUE}, {rRow.dwCode + 1, rRow.dwFiltered}};
      (void)logsink::Take();
      std::string strText;
      SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, rRow.dwCode, VALUE, &strText);
      rFresh.HandleEvent(&rEvent);
      EXPECT_EQ(fFits, Holds(logsink::TakeTexts(), "5 [5] Ring OFF condition"));
    }
  }
}

TEST_F(DstChannelTest, MessagesThatEndACallClearEveryFlag) {
  for (const DWORD dwCode : {0x000EU, 0x1012U, 0x0070U, 0x0075U, 0x0076U}) {
    SCOPED_TRACE(dwCode);
    Init();
    StartCall(&DST_Channel::fInCall_Offhook);
    for (bool DST_Channel::*prFlag : OWN_FLAGS) rLine.*prFlag = true;
    DMsg(dwCode);
    EXPECT_FALSE(rLine.InCall());
    const Texts astrLines = logsink::TakeTexts();
    ASSERT_EQ(2U, astrLines.size());
    EXPECT_EQ("5 [5] Call stops", astrLines[1]);
  }
}

TEST_F(DstChannelTest, HookStoryOfAnIncomingCall) {
  Init();
  DMsg(0x101F);
  PassSeconds(4);
  DMsg(0x1020);
  PassSeconds(1);
  DMsg(0x0008);
  EXPECT_EQ((Texts{"5 [5] Ring on (101f)", "5 [5] A new ring and expire remote", "5 [5] Ring off (1020)",
                   "5 [5] Off hook", "5 [5] Call starts", "5 [5] Incoming, last ring: 1 s. ago", REFUSED}),
            logsink::TakeTexts());
  EXPECT_TRUE(rLine.fIncoming);
  EXPECT_EQ(5, rLine.iWaitTime);
  DMsg(0x0008);
  EXPECT_EQ((Texts{"5 [5] Off hook"}), logsink::TakeTexts());
  DMsg(0x000E);
  EXPECT_EQ((Texts{"5 [5] On hook", "5 [5] Call stops"}), logsink::TakeTexts());
  DMsg(0x000E);
  EXPECT_EQ((Texts{"5 [5] On hook"}), logsink::TakeTexts());
}

TEST_F(DstChannelTest, KeysBecomeDigitsByTheirLowByte) {
  Init();
  for (const char ch : std::string("017")) DMsg(0x1006, 0xff00U | static_cast<DWORD>(ch));
  EXPECT_EQ((Texts{"5 [5] Digits: 0", "5 [5] Digits: 01", "5 [5] Digits: 017"}), logsink::TakeTexts());
}

TEST_F(DstChannelTest, DialledDigitsOnNecBecomeTheRemoteNumber) {
  Init("NEC");
  DMsg(0x0008);
  for (const char ch : std::string("0171")) DMsg(0x1006, static_cast<DWORD>(ch));
  for (int i = 0; i < 6; i++) Tick(rLine);
  EXPECT_EQ("0171", rLine.strRemoteNum);
}

// -- local id --------------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, LastDigitOfALocalIdCompletesIt) {
  struct Row {
    const char* acLabel;
    int iTdmStart;
    const char* acBefore;
    int iAge;  // of the almost complete id; -1: none seen
    bool fTaken;
  };
  for (const Row& rRow :
       {Row{"mode 1", 1, "123", 0, true}, Row{"mode 3", 3, "123", 4, true}, Row{"too late", 1, "123", 5, false},
        Row{"no prompt", 1, "123", -1, false}, Row{"too short", 1, "12", 0, false},
        Row{"too long", 1, "1234", 0, false}, Row{"mode 0", 0, "123", 0, false}, Row{"mode 2", 2, "123", 0, false}}) {
    SCOPED_TRACE(rRow.acLabel);
    DST_Channel rFresh;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rRow.iTdmStart);
    InitLine(rFresh, 5);
    const time_t rAlmost = rRow.iAge < 0 ? 0 : rNow - rRow.iAge;
    rFresh.rAlmostLocalNum = rAlmost;
    rFresh.strDigits = rRow.acBefore;
    rFresh.rDigitTime = rNow;
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, 0x1006, '9');
    rFresh.HandleEvent(&rEvent);
    const std::string strDigits = std::string(rRow.acBefore) + "9";
    EXPECT_EQ(rRow.fTaken ? Texts({"5 [5] Digits: " + strDigits, "5 [5] Local ID: " + strDigits})
                          : Texts{"5 [5] Digits: " + strDigits},
              logsink::TakeTexts());
    EXPECT_EQ(rRow.fTaken ? strDigits : "", rFresh.strLocalNum);
    EXPECT_EQ(rRow.fTaken, rFresh.fUseLocalNum);
    EXPECT_EQ(rRow.fTaken ? 0 : rAlmost, rFresh.rAlmostLocalNum);
  }
}

TEST_F(DstChannelTest, LoginOfAnAgentIsFollowedByPromptAndKeys) {
  InitMode(TDM_START_MUTELT);
  for (const char ch : std::string("471")) DMsg(0x1006, static_cast<DWORD>(ch));
  DText(0x1008, "Identifikation:471\n");
  DMsg(0x1006, '1');
  EXPECT_EQ(
      (Texts{"5 [5] Digits: 4", "5 [5] Digits: 47", "5 [5] Digits: 471", "5 [5] Message change:Identifikation:471\n",
             "5 [5] Local ID almost complete", "5 [5] Digits: 4711", "5 [5] Local ID: 4711"}),
      logsink::TakeTexts());
  rLine.Finalize();
  EXPECT_EQ((Texts{"SetCachedLocalNum 0 0 4711"}), rRecorder.TakeCalls());
}

// -- display text ----------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, DisplayIsReadNearACallAndElseOnlyForAReset) {
  struct Row {
    const char* acLabel;
    const char* acPbxType;
    int iTdmStart;
    bool fBusy, fRinging;
    int iRingAge;  // -1: no ring
    bool fRead;
  };
  const Row rRows[] = {{"idle", "", 0, false, false, -1, false},
                       {"mode 2", "", 2, false, false, -1, false},
                       {"mode 1", "", 1, false, false, -1, true},
                       {"mode 3", "", 3, false, false, -1, true},
                       {"Panasonic", "PANASONIC", 0, false, false, -1, true},
                       {"Belgacom", "Belgacom", 0, false, false, -1, true},
                       {"NEC", "NEC", 0, false, false, -1, false},
                       {"in a call", "", 0, true, false, -1, true},
                       {"ringing", "", 0, false, true, 5, true},
                       {"rang in this second", "", 0, false, false, 0, true},
                       {"rang a second ago", "", 0, false, false, 1, false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.strPbxType = rRow.acPbxType;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rRow.iTdmStart);
    DST_Channel rFresh;
    InitLine(rFresh, 5);
    rFresh.fCallBusy = rRow.fBusy;
    rFresh.fRinging = rRow.fRinging;
    rFresh.rLastRing = rRow.iRingAge < 0 ? 0 : rNow - rRow.iRingAge;
    std::string strText = "0301234\n";
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, 0x1008, 0, &strText);
    rFresh.HandleEvent(&rEvent);
    EXPECT_EQ(rRow.fRead ? "0301234" : "", rFresh.strRemoteNum);
    Texts astrWanted = {"5 [5] Message change:0301234\n", rRow.fRead ? "5 [5] Remote: 0301234" : "5 [5] Remote: "};
    if (rRow.fBusy) astrWanted.push_back(REFUSED);
    EXPECT_EQ(astrWanted, logsink::TakeTexts());
  }
}

TEST_F(DstChannelTest, DisplayIsCutAt300Bytes) {
  Init();
  const std::string strLong(1000, 'a');
  for (const std::size_t uiLen : {0U, 1U, 299U, 300U, 301U, 1000U}) {
    SCOPED_TRACE(uiLen);
    DText(0x1008, strLong.substr(0, uiLen));
    const std::string strKept = strLong.substr(0, std::min<std::size_t>(uiLen, 300));
    EXPECT_EQ(strKept, rLine.acPhoneDisp);
    EXPECT_EQ((Texts{"5 [5] Message change:" + strKept}), logsink::TakeTexts());
  }
}

TEST_F(DstChannelTest, DisplayEndsAtItsFirstNul) {
  Init();
  DText(0x1008, std::string("ab\0cd", 5));
  EXPECT_EQ((Texts{"5 [5] Message change:ab"}), logsink::TakeTexts());
}

TEST_F(DstChannelTest, PercentSignsInTextsAreText) {
  Init();
  DText(0x1008, "%s %n");
  DText(0x8001, "%s%n");
  EXPECT_EQ((Texts{"5 [5] Message change:%s %n", "5 [5] Change Local Number: %s%n",
                   "5 [5] LocalNumberChanged. Change:  to: %s%n.", "5 [5] Local Number Changed: %s%n."}),
            logsink::TakeTexts());
}

TEST_F(DstChannelTest, BadBuffersDoNoHarm) {
  Init();
  for (const DWORD dwCode : {0x1008U, 0x8001U, 0x006BU, 0x006EU, 0x006FU, 0x0070U}) {
    for (const DWORD dwLength : {0U, 1U, 204U, 236U, 301U, 1024U, 100000U, 0xFFFFFFFFU}) {
      SCOPED_TRACE(dwCode);
      SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, dwCode, 1);
      rEvent.dwDataLength = dwLength;
      rEvent.pvBuffer = nullptr;
      rLine.HandleEvent(&rEvent);
      std::vector<char> acData(1024, 'x');  // the main loop's buffer, all of it
      rEvent.pvBuffer = acData.data();
      rEvent.dwBufferLength = 1024;
      rLine.HandleEvent(&rEvent);
      DMsg(0x000E);
    }
  }
  EXPECT_FALSE(rLine.fCallBusy);
}

// -- audio change ----------------------------------------------------------------------------------------------------

TEST_F(DstChannelTest, AudioChangeInTheDefaultMode) {
  Init();
  DMsg(0x104A, 8);
  EXPECT_EQ(After("5 [5] Audio change 8", STARTS), logsink::TakeTexts());
  DMsg(0x104A, 1);
  EXPECT_EQ((Texts{"5 [5] Audio change 1"}), logsink::TakeTexts());
  DMsg(0x104A, 0);
  EXPECT_EQ((Texts{"5 [5] Audio change 0", "5 [5] Call stops"}), logsink::TakeTexts());
  DMsg(0x0008);
  DMsg(0x104A, 3);
  (void)logsink::Take();
  DMsg(0x104A, 0);  // the receiver is still up
  EXPECT_EQ((Texts{"5 [5] Audio change 0"}), logsink::TakeTexts());
  EXPECT_TRUE(rLine.fCallBusy);
  EXPECT_FALSE(rLine.fInCall_DChannel || rLine.fAudioMaybeDelayStart);
}

TEST_F(DstChannelTest, AudioChange8OnNecMeansNothing) {
  Init("NEC");
  rRecorder.rRingOnCnds = {{0x104A, 8}};
  DMsg(0x104A, 8);
  EXPECT_EQ((Texts{"5 [5] Audio change 8", "5 [5] Ring ON condition", "5 [5] A new ring and expire remote"}),
            logsink::TakeTexts());
  EXPECT_FALSE(rLine.fCallBusy);
  DMsg(0x104A, 1);
  EXPECT_TRUE(rLine.fCallBusy);
  DMsg(0x104A, 8);
  EXPECT_TRUE(rLine.fInCall_DChannel);
  DMsg(0x104A, 0x108);  // not 8
  EXPECT_TRUE(rLine.fCallBusy);
  DMsg(0x104A, 0);
  EXPECT_FALSE(rLine.fCallBusy);
  InitMode(TDM_START_AUCH, "NEC");  // the exception holds in the default mode only
  DMsg(0x104A, 8);
  EXPECT_TRUE(rLine.fCallBusy);
}

TEST_F(DstChannelTest, AudioChangeModeEndsEverythingAtOnce) {
  InitMode(TDM_START_AUCH);
  DMsg(0x0008);
  DMsg(0x104A, 2);
  rLine.fInCall_Extra = true;
  ForgetTraces();
  DMsg(0x104A, 0);
  EXPECT_EQ((Texts{"5 [5] Audio change 0", "5 [5] Call stops"}), logsink::TakeTexts());
  EXPECT_FALSE(rLine.InCall());
}

TEST_F(DstChannelTest, AudioEndInTheMuteModesByLightAndAge) {
  struct Row {
    const char* acLabel;
    int iMuteLight, iAge;
    bool fEnds;
  };
  for (const int iMode : {1, 3}) {
    for (const Row& rRow : {Row{"light off, long audio", 0, 3, true}, Row{"light off, 2 s", 0, 2, false},
                            Row{"light off, burst", 0, 0, false}, Row{"light on, burst", 1, 0, true},
                            Row{"light unknown, burst", -1, 0, true}}) {
      SCOPED_TRACE(rRow.acLabel);
      InitMode(iMode);
      StartCall(&DST_Channel::fInCall_Offhook);
      rLine.iMuteLightState = rRow.iMuteLight;
      rLine.rAudioStartTime = rNow - rRow.iAge;
      rLine.fAudioState = true;
      DMsg(0x104A, 0);
      EXPECT_EQ(rRow.fEnds ? Texts({"5 [5] Audio change 0", "5 [5] Call stops"}) : Texts{"5 [5] Audio change 0"},
                logsink::TakeTexts());
      EXPECT_EQ(!rRow.fEnds, rLine.fCallBusy);
      EXPECT_FALSE(rLine.fAudioState);
    }
  }
}

TEST_F(DstChannelTest, AudioThatOutlastsItsSecondStartsACall) {
  for (const int iMode : {1, 3}) {
    DST_Channel rFresh;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(iMode);
    InitLine(rFresh, 5);
    SSM_EVENT rOn = simcards::MakeEvent(E_RCV_DSTDChannel, 0, 0x104A, 4);
    rFresh.HandleEvent(&rOn);
    EXPECT_EQ((Texts{"5 [5] Audio change 4"}), logsink::TakeTexts());
    EXPECT_EQ(rNow, rFresh.rAudioStartTime);
    rFresh.Periodic();  // still in that second
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
    EXPECT_TRUE(rFresh.fAudioMaybeDelayStart);
    const time_t rBegin = rNow;
    PassSeconds(1);
    rFresh.HandleEvent(&rOn);
    EXPECT_EQ(rBegin, rFresh.rAudioStartTime);  // goes on
    (void)logsink::Take();
    rFresh.Periodic();
    EXPECT_EQ(After("5 [5] Delay-start on audio", STARTS), logsink::TakeTexts());
    EXPECT_TRUE(rFresh.fInCall_DChannel);
    EXPECT_FALSE(rFresh.fAudioMaybeDelayStart);
    Tick(rFresh);
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
  }
}

TEST_F(DstChannelTest, BurstOfAudioStartsNoCall) {
  InitMode(TDM_START_MUTELT);
  DMsg(0x104A, 4);
  DMsg(0x104A, 0);
  (void)logsink::Take();
  Tick(rLine);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_FALSE(rLine.fAudioMaybeDelayStart || rLine.fCallBusy);
}

TEST_F(DstChannelTest, AudioInACallDoesNotDelayStart) {
  InitMode(TDM_START_MUTELT);
  StartCall(&DST_Channel::fInCall_Offhook);
  DMsg(0x104A, 4);
  (void)logsink::Take();
  Tick(rLine);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_FALSE(rLine.fInCall_DChannel || rLine.fAudioMaybeDelayStart);
}

// -- mute light ------------------------------------------------------------------------------------------------------

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
    DST_Channel rFresh;
    rRecorder.rBoardParams["TdmStart"] = std::to_string(rRow.iMode);
    InitLine(rFresh, 5);
    rFresh.fInCall_Offhook = rRow.fCallBefore;
    rFresh.InCallMaybeChanged();
    ForgetTraces();
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, rRow.dwCode, 0);
    rFresh.HandleEvent(&rEvent);
    Texts astrWanted = {rRow.dwCode == 0x111E ? "5 [5] MuteLight off" : "5 [5] MuteLight ON"};
    if (!rRow.fCallBefore && rRow.fCallAfter) astrWanted = After("5 [5] MuteLight off", STARTS);
    if (rRow.fCallBefore && !rRow.fCallAfter) astrWanted.push_back("5 [5] Call stops");
    EXPECT_EQ(astrWanted, logsink::TakeTexts());
    EXPECT_EQ(rRow.fCallAfter, rFresh.fCallBusy);
    EXPECT_EQ(rRow.dwCode == 0x111E ? 0 : 1, rFresh.iMuteLightState);
    EXPECT_EQ(rRow.dwCode == 0x111E && rRow.iMode == 1, rFresh.fInCall_Extra);
  }
}

TEST_F(DstChannelTest, ToneModeNeedsTheDarkLight) {
  InitMode(TDM_START_MUTELT_AND_TONE);
  DMsg(0x111F);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  EXPECT_EQ((Texts{"5 [5] MuteLight ON"}), logsink::TakeTexts());
  DMsg(0x111E);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  Event(E_CHG_ToneAnalyze, TONE_VOICE);
  EXPECT_EQ((Texts{"5 [5] MuteLight off", "5 [5] Voice detected", STARTS[0], STARTS[1], STARTS[2]}),
            logsink::TakeTexts());
  DMsg(0x111F);
  DMsg(0x111E);
  (void)logsink::Take();
  Event(E_CHG_ToneAnalyze, TONE_VOICE);  // the next call
  EXPECT_EQ(After("5 [5] Voice detected", STARTS), logsink::TakeTexts());
}

// -- change of the local number --------------------------------------------------------------------------------------

TEST_F(DstChannelTest, ChangeLocalMessageIsTakenApart) {
  struct Row {
    const char *acText, *acLocal;
    bool fStopStart;
  };
  const Row rRows[] = {{"33|0301234|0", "33", false}, {"33|0301234|1", "33", true}, {"33|0301234|", "33", true},
                       {"33||00", "33", true},        {"33||2|9", "33", true},      {"33|0301234", "33", false},
                       {"33|", "33", false},          {"33", "33", false}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acText);
    Init();
    rLine.strLocalNum = "22";
    rLine.strNonMonitoredNum = "";
    rLine.fUseLocalNum = false;
    rLine.strRemoteNum = "0305678";
    DText(0x8001, rRow.acText);
    const std::string strLine = std::string("5 [5] Change Local Number: ") + rRow.acText;
    const char* const acChange = "5 [5] LocalNumberChanged. Change: 22 to: 33.";
    EXPECT_EQ(rRow.fStopStart ? Texts({strLine, acChange, "5 [5] LocalNumberChanged: STOP",
                                       "5 [5] LocalNumberChanged: Transfer to monitored phone",
                                       "5 [5] LocalNumberChanged: START", REFUSED})
                              : Texts({strLine, acChange, "5 [5] Local Number Changed: 33."}),
              logsink::TakeTexts());
    EXPECT_EQ(rRow.acLocal, rLine.strLocalNum);
    EXPECT_EQ("22", rLine.strNonMonitoredNum);
    EXPECT_TRUE(rLine.fUseLocalNum);
    EXPECT_EQ("0305678", rLine.strRemoteNum);
    EXPECT_STREQ(rRow.acText, rLine.strChangeLocalNum);
  }
}

TEST_F(DstChannelTest, ChangeLocalMessageWithoutANumber) {
  Init();
  rLine.strLocalNum = "22";
  rLine.strNonMonitoredNum = "11";
  DText(0x8001, "");
  EXPECT_EQ((Texts{"5 [5] Change Local Number: ", "5 [5] LocalNumberChanged. Change: 22 to: .",
                   "5 [5] Local Number Changed: ."}),
            logsink::TakeTexts());
  EXPECT_EQ("", rLine.strLocalNum);
  rLine.strLocalNum = "22";
  DText(0x8001, "||1");
  EXPECT_EQ((Texts{"5 [5] Change Local Number: ||1", "5 [5] LocalNumberChanged. Change: 22 to: .",
                   "5 [5] LocalNumberChanged: STOP", "5 [5] LocalNumberChanged: Transfer to non-monitored phone",
                   "5 [5] LocalNumberChanged: START", REFUSED}),
            logsink::TakeTexts());
  EXPECT_EQ("11", rLine.strLocalNum);
}

TEST_F(DstChannelTest, ChangeLocalMessageWithTheNumberAlreadyHeldChangesNothing) {
  Init();
  rLine.strLocalNum = "22";
  DText(0x8001, "22||1");
  EXPECT_EQ((Texts{"5 [5] Change Local Number: 22||1", "5 [5] LocalNumberChanged. Change: 22 to: 22."}),
            logsink::TakeTexts());
  EXPECT_FALSE(rLine.fUseLocalNum);
}

TEST_F(DstChannelTest, ChangeLocalMessageIsCutAt300Bytes) {
  Init();
  const std::string strLong(1000, '3');
  DText(0x8001, strLong);
  EXPECT_EQ(strLong.substr(0, 300), rLine.strChangeLocalNum);
  EXPECT_EQ(strLong.substr(0, 300), rLine.strLocalNum);
}

// -- conditions from settings ----------------------------------------------------------------------------------------

TEST_F(DstChannelTest, StartAndStopConditions) {
  Init();
  rRecorder.rStartCnds = {{0x1001, 1}, {0x1002, 1}};
  rRecorder.rStopCnds = {{0x1001, 2}, {0x1002, 1}};
  DMsg(0x1001, 2);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());  // nothing to stop
  DMsg(0x1001, 1);
  EXPECT_EQ(After("5 [5] Start condition", STARTS), logsink::TakeTexts());
  EXPECT_TRUE(rLine.fInCall_Extra);
  DMsg(0x1001, 1);
  EXPECT_EQ((Texts{"5 [5] Start condition"}), logsink::TakeTexts());
  DMsg(0x1001, 2);
  EXPECT_EQ((Texts{"5 [5] Soft stop condition", "5 [5] Call stops"}), logsink::TakeTexts());
  // One message for both.
  DMsg(0x1002, 1);
  EXPECT_EQ(After("5 [5] Start condition", STARTS), logsink::TakeTexts());
  DMsg(0x1002, 1);
  EXPECT_EQ((Texts{"5 [5] Soft stop condition", "5 [5] Call stops"}), logsink::TakeTexts());
}

TEST_F(DstChannelTest, StopConditionClearsItsOwnFlagOnly) {
  Init();
  rRecorder.rStopCnds = {{0x1001, 2}};
  for (bool DST_Channel::*prFlag :
       {&DST_Channel::fInCall_DChannel, &DST_Channel::fInCall_Audio, &DST_Channel::fInCall_Offhook}) {
    StartCall(prFlag);
    rLine.fInCall_Extra = true;
    DMsg(0x1001, 2);
    EXPECT_EQ((Texts{"5 [5] Soft stop condition"}), logsink::TakeTexts());
    EXPECT_FALSE(rLine.fInCall_Extra);
    EXPECT_TRUE(rLine.fCallBusy);
  }
}

TEST_F(DstChannelTest, RingConditionsComeAfterTheOthersAndOnBeforeOff) {
  Init();
  rRecorder.rStartCnds = rRecorder.rRingOnCnds = rRecorder.rRingOffCnds = {{0x1001, 1}};
  DMsg(0x1001, 1);
  EXPECT_EQ((Texts{"5 [5] Start condition", STARTS[0], STARTS[1], STARTS[2], "5 [5] Ring ON condition",
                   "5 [5] Ring OFF condition"}),
            logsink::TakeTexts());
  EXPECT_FALSE(rLine.fRinging);
  EXPECT_EQ(rNow, rLine.rLastRing);
  rRecorder.rStopCnds = {{0x1001, 1}};
  rRecorder.rRingOffCnds = {};
  DMsg(0x1001, 1);
  EXPECT_EQ((Texts{"5 [5] Soft stop condition", "5 [5] Call stops", "5 [5] Ring ON condition",
                   "5 [5] A new ring and expire remote"}),
            logsink::TakeTexts());
  EXPECT_TRUE(rLine.fRinging);
}

TEST_F(DstChannelTest, ConditionsSeeTheStateAfterTheMessage) {
  Init();
  rRecorder.rStopCnds = {{0x0008, 0}};
  rRecorder.rStartCnds = {{0x000E, 0}};
  DMsg(0x0008);
  EXPECT_EQ((Texts{"5 [5] Off hook", STARTS[0], STARTS[1], STARTS[2], "5 [5] Soft stop condition"}),
            logsink::TakeTexts());
  DMsg(0x000E);
  EXPECT_EQ((Texts{"5 [5] On hook", "5 [5] Call stops", "5 [5] Start condition", STARTS[0], STARTS[1], STARTS[2]}),
            logsink::TakeTexts());
}

TEST_F(DstChannelTest, KeyConditionsCompareTheLowByte) {
  Init();
  rRecorder.rStartCnds = {{0x1006, '5'}};
  DMsg(0x1006, 0x4400U | '5');
  EXPECT_EQ((Texts{"5 [5] Digits: 5", "5 [5] Start condition", STARTS[0], STARTS[1], STARTS[2]}), logsink::TakeTexts());
}

// -- soak test -------------------------------------------------------------------------------------------------------

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
    if (vWanted[static_cast<std::size_t>(i)]) fBusy = !fBusy;
    Tick(rLine);
    ASSERT_EQ(fBusy, rLine.fCallBusy) << i;
    EXPECT_EQ(fBusy, rLine.fInCall_DChannel);
  }
}

TEST_F(DstChannelTest, SoakTestEndsACallOfAnyKind) {
  Init();
  rRecorder.fDebugRepeatRecord = true;
  StartCall(&DST_Channel::fInCall_Offhook);
  for (int i = 0; i < 1000 && rLine.fInCall_Offhook; i++) Tick(rLine);
  EXPECT_FALSE(rLine.fCallBusy || rLine.fInCall_Offhook);
}
