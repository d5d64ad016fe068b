#include "PriChannel.h"

#include <cstdlib>

#include "AudioReference.h"
#include "ChannelBench.h"
#include "TestFiles.h"
#include "TestTime.h"

namespace {

const Texts NOTHING;
constexpr int CIC = 3;
constexpr int BAD_CH = 77;  // no such driver channel

// One circuit of a trunk: driver channel 0 is line 5, driver channel 1 is line 6; calls come in on channel 0.
class PriChannelTest : public ChannelBench {
 protected:
  // Calls are barred from recording unless a test allows them: their start then shows as the refusal.
  PriChannelTest() {
    setenv("TZ", "UTC", 1);
    tzset();
    rRecorder.iNumberFilterType = 1;
    testtime::rFrozen = rNow;
  }
  ~PriChannelTest() override { testtime::rFrozen = 0; }

  void SetUp() override { InitPair(); }
  void InitPair(const char* acSwapSides = "") {
    rRecorder.rBoardParams["SwapSides"] = acSwapSides;
    InitLine(rIn, 5, 0);
    InitLine(rOut, 6, 1);
    rIn.iCic = rOut.iCic = CIC;
    rRecorder.vChannels = {&rIn, &rOut};
    simcards::SetSpyInfo(CIC, {0, 1, "0301234", "22", "23"});
  }

  static void Spy(OpenChannel<PRI_Channel>& rChannel, int iCur, int iPrev) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_CHG_SpyState, CIC, static_cast<DWORD>(iCur | iPrev << 16));
    rChannel.HandleEvent(&rEvent);
  }
  void AllowRecording() { rRecorder.iNumberFilterType = 0; }

  static constexpr const char* REFUSED = "5 [5] Not recording because not in number filter";
  OpenChannel<PRI_Channel> rIn;
  OpenChannel<PRI_Channel> rOut;
};

}  // namespace

// -- construction and settings ---------------------------------------------------------------------------------------

TEST_F(PriChannelTest, FreshChannel) {
  OpenChannel<PRI_Channel> rFresh;
  EXPECT_EQ(6, rFresh.iRecSource);
  EXPECT_EQ(-1, rFresh.iCic);
  EXPECT_TRUE(rFresh.fUseLocalNum && rFresh.fHasConnectedNum && rFresh.fRingsUntilPickup);
  EXPECT_TRUE(rFresh.CanStereo());
  EXPECT_FALSE(rFresh.fKnowIncoming || rFresh.fIncoming || rFresh.InCall());
  EXPECT_FALSE(rFresh.fUsePressedDigitsForRemote);
}

TEST_F(PriChannelTest, InitReadsSwapSidesOfTheBoard) {
  struct Row {
    const char* acSetting;
    bool fSwapSides;
  };
  for (const Row& rRow : {Row{"", false}, Row{"0", false}, Row{"1", true}, Row{"2", true}, Row{"-1", true}}) {
    SCOPED_TRACE(rRow.acSetting);
    rRecorder.rBoardParams["SwapSides"] = rRow.acSetting;
    rRecorder.rChannelParams["SwapSides"] = "1";  // no setting of a channel
    OpenChannel<PRI_Channel> rFresh;
    rFresh.fChAvail = true;
    rFresh.fChAvailUnknown = false;
    rFresh.Init(5, 2, 9, &rRecorder, 0);
    EXPECT_EQ(rRow.fSwapSides, rFresh.fSwapSides);
    EXPECT_FALSE(rFresh.fChAvail);
    EXPECT_TRUE(rFresh.fChAvailUnknown);
    EXPECT_EQ(5, rFresh.iChannel);
    EXPECT_EQ(2, rFresh.iBoardListIx);
    EXPECT_EQ(9, rFresh.iBoardCh);
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
    EXPECT_EQ(NOTHING, simcards::TakeCalls());
    EXPECT_EQ(NOTHING, rRecorder.TakeCalls());  // nothing is reported before the first state
  }
}

TEST_F(PriChannelTest, InitTakesTheLineStateOfTheCard) {
  simcards::SetChState(0, S_CALL_OFFLINE);
  OpenChannel<PRI_Channel> rFresh;
  rFresh.Init(5, 0, 0, &rRecorder, 0);
  EXPECT_EQ((Texts{"5 [5] Line health: offline"}), logsink::TakeTexts());
}

TEST_F(PriChannelTest, TextsOfStates) {
  struct Row {
    int iState;
    const char* acText;
  };
  const Row rRows[] = {{0, "idle"}, {2, "ringing"}, {3, "talking"}, {11, "unavail"}, {105, "numbering"},
                       {1, ""},     {4, ""},        {-1, ""},       {8, ""},         {65535, ""}};
  for (const Row& rRow : rRows) EXPECT_STREQ(rRow.acText, GetPriStateDescr(rRow.iState)) << rRow.iState;
}

TEST_F(PriChannelTest, NoStateFileIsWritten) {
  rRecorder.strDataDir = "/tmp/";
  EXPECT_EQ(-1, rIn.WriteChState());
  EXPECT_EQ("(no file)", ReadTestFile("/tmp/chstate_5.dat"));
}

TEST_F(PriChannelTest, WaitTimeCountsFromTheFirstRingInEitherDirection) {
  testtime::rFrozen = 500;  // the machine's clock, whatever the clock of the calls says
  for (const bool fIncoming : {false, true}) {
    rIn.fIncoming = fIncoming;
    rIn.rFirstRing = 0;
    EXPECT_EQ(-1, rIn.GetWaitTime());
    rIn.rFirstRing = 493;
    EXPECT_EQ(7, rIn.GetWaitTime());
  }
}

// -- states of the circuit -------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, EachStateFromIdleAndFromACall) {
  struct Row {
    int iCur;
    const char* acText;
    bool fInCall, fRings;
  };
  const Row rRows[] = {{0, "0 idle", false, false},          {2, "2 ringing", false, true},
                       {3, "3 talking", true, false},        {11, "11 unavail", false, false},
                       {105, "105 numbering", false, false}, {1, "1 ", false, false},
                       {65535, "65535 ", false, false}};
  for (const Row& rRow : rRows) {
    for (const int iPrev : {0, 3}) {
      SCOPED_TRACE(rRow.acText);
      Spy(rIn, iPrev, 0);
      ASSERT_EQ(iPrev == 3, rIn.fCallBusy);
      ForgetTraces();
      Spy(rIn, rRow.iCur, iPrev);
      EXPECT_EQ(rRow.fInCall, rIn.fInCall_ChState);
      EXPECT_EQ(rRow.fInCall, rIn.fCallBusy);
      // A ring that ends a call goes with the information of that call.
      EXPECT_EQ(rRow.fRings && iPrev == 0, rIn.fRinging);
      const Texts astrLines = logsink::TakeTexts();
      ASSERT_FALSE(astrLines.empty());
      EXPECT_EQ("5 [5] PRI was: " + std::to_string(iPrev) + " is: " + rRow.acText, astrLines[0]);
      const Texts astrStop = {"SsmClearCallerId(0)"};
      EXPECT_EQ(iPrev == 3 && !rRow.fInCall ? astrStop : NOTHING, simcards::TakeCalls());
      Spy(rIn, 0, rRow.iCur);
    }
  }
}

TEST_F(PriChannelTest, IncomingCallIsToldWhole) {
  Spy(rIn, PRI_RING, PRI_IDLE);
  EXPECT_EQ((Texts{"5 [5] PRI was: 0 is: 2 ringing", "5 [5] RING Callee: 22 Caller: 0301234"}), logsink::TakeTexts());
  EXPECT_EQ("", rIn.strRemoteNum);  // the numbers of a ring are not kept
  EXPECT_EQ("", rIn.strLocalNum);
  PassSeconds(4);
  testtime::rFrozen = rNow;
  Spy(rIn, PRI_TALK, PRI_RING);
  EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: 3 talking", "5 [5] Channel IN: {0} OUT: {1}",
                   "5 [5] Callee: 22 Caller: 0301234 Connect: 23", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: 4", REFUSED}),
            logsink::TakeTexts());
  EXPECT_EQ(4, rIn.iWaitTime);
  EXPECT_TRUE(rIn.fKnowIncoming && rIn.fIncoming);
  EXPECT_FALSE(rIn.fRinging);
  EXPECT_EQ(rNow, rIn.rLastRing);
  EXPECT_EQ("0301234", rIn.strRemoteNum);
  EXPECT_EQ("22", rIn.strLocalNum);
  EXPECT_EQ("23", rIn.strConnectedNum);
  EXPECT_EQ(1, rIn.iLinkedCh);
  EXPECT_EQ(-1, rIn.iBaseCh);
  EXPECT_EQ(0, rOut.iBaseCh);
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", "LinkedChannel 0 1"}), rRecorder.TakeCalls());
  EXPECT_EQ(NOTHING, rRecorder.rDatabase.TakeCalls());
  PassSeconds(9);
  Spy(rIn, PRI_IDLE, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 0 idle", "5 [5] Call stops"}), logsink::TakeTexts());
  EXPECT_EQ("", rIn.strRemoteNum);
  EXPECT_EQ("22", rIn.strLocalNum);
  EXPECT_EQ(NOTHING, rRecorder.TakeCalls());
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), simcards::TakeCalls());
}

TEST_F(PriChannelTest, OutgoingCallIsToldWhole) {
  simcards::SetSpyInfo(CIC, {0, 1, "22", "0305678", ""});
  Spy(rOut, PRI_NUMB, PRI_IDLE);
  Spy(rOut, PRI_TALK, PRI_NUMB);
  EXPECT_EQ((Texts{"5 [6] PRI was: 0 is: 105 numbering", "5 [6] PRI was: 105 is: 3 talking",
                   "5 [6] Channel IN: {0} OUT: {1}", "5 [6] Callee: 0305678 Caller: 22 Connect: ", "5 [6] Call starts",
                   "5 [6] Outgoing call", "5 [6] Not recording because not in number filter"}),
            logsink::TakeTexts());
  EXPECT_TRUE(rOut.fKnowIncoming);
  EXPECT_FALSE(rOut.fIncoming);
  EXPECT_EQ(-1, rOut.iWaitTime);
  EXPECT_EQ("0305678", rOut.strRemoteNum);
  EXPECT_EQ("22", rOut.strLocalNum);
  EXPECT_EQ("", rOut.strConnectedNum);
  EXPECT_EQ(0, rOut.iLinkedCh);
  EXPECT_EQ(1, rIn.iBaseCh);
  EXPECT_EQ((Texts{"NotifyChAvail 0 1 1", "LinkedChannel 1 0"}), rRecorder.TakeCalls());
}

TEST_F(PriChannelTest, OutgoingCallThatRangHasAWaitTime) {
  Spy(rOut, PRI_RING, PRI_IDLE);
  PassSeconds(6);
  testtime::rFrozen = rNow;
  (void)logsink::Take();
  Spy(rOut, PRI_TALK, PRI_RING);
  EXPECT_FALSE(rOut.fIncoming);
  EXPECT_EQ(6, rOut.iWaitTime);
  EXPECT_EQ("5 [6] Outgoing call", logsink::TakeTexts()[4]);
}

TEST_F(PriChannelTest, SwapSidesTurnsTheDirectionAndNotTheLink) {
  struct Row {
    const char* acLabel;
    bool fOnIn;
    const char *acSwap, *acRemote, *acLocal;
    bool fIncoming;
    int iLinkedCh;
  };
  const Row rRows[] = {{"in", true, "0", "0301234", "22", true, 1},
                       {"out", false, "0", "22", "0301234", false, 0},
                       {"in, swapped", true, "1", "22", "0301234", false, 1},
                       {"out, swapped", false, "1", "0301234", "22", true, 0}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rIn.iBaseCh = rOut.iBaseCh = -1;
    InitPair(rRow.acSwap);
    OpenChannel<PRI_Channel>& rBase = rRow.fOnIn ? rIn : rOut;
    Spy(rBase, PRI_TALK, PRI_IDLE);
    EXPECT_EQ(rRow.acRemote, rBase.strRemoteNum);
    EXPECT_EQ(rRow.acLocal, rBase.strLocalNum);
    EXPECT_EQ("23", rBase.strConnectedNum);
    EXPECT_EQ(rRow.fIncoming, rBase.fIncoming);
    EXPECT_EQ(rRow.iLinkedCh, rBase.iLinkedCh);
    EXPECT_EQ(rBase.iChIx, (rRow.fOnIn ? rOut : rIn).iBaseCh);
    Spy(rBase, PRI_IDLE, PRI_TALK);
  }
}

TEST_F(PriChannelTest, RingWithoutAnswerIsALostCall) {
  for (const int iCur : {0, 11, 105}) {
    SCOPED_TRACE(iCur);
    Spy(rIn, PRI_RING, PRI_IDLE);
    rIn.strRemoteNum = rIn.strPrevRemoteNum = "0301234";
    rIn.rRemoteNumTime = rNow;
    (void)logsink::Take();
    PassSeconds(5);
    Spy(rIn, iCur, PRI_RING);
    const std::string strText = GetPriStateDescr(iCur);
    EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: " + std::to_string(iCur) + " " + strText,
                     "5 [5] Ringing stopped, remote num. expired"}),
              logsink::TakeTexts());
    EXPECT_EQ(0, rIn.rFirstRing);
    EXPECT_EQ(rNow, rIn.rLastRing);
    EXPECT_EQ("", rIn.strRemoteNum);
    EXPECT_EQ("", rIn.strPrevRemoteNum);
    EXPECT_EQ(0, rIn.rRemoteNumTime);
  }
}

TEST_F(PriChannelTest, OnlyAStateThatCameFromARingStopsIt) {
  Spy(rIn, PRI_RING, PRI_IDLE);
  Spy(rIn, PRI_RING, PRI_RING);  // rings on
  EXPECT_TRUE(rIn.fRinging);
  Spy(rIn, PRI_NUMB, PRI_IDLE);  // the card does not speak of the ring
  EXPECT_TRUE(rIn.fRinging);
  Spy(rIn, PRI_IDLE, PRI_RING);
  EXPECT_FALSE(rIn.fRinging);
  (void)logsink::Take();
  Spy(rIn, PRI_IDLE, PRI_RING);  // nothing rings
  EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: 0 idle"}), logsink::TakeTexts());
}

TEST_F(PriChannelTest, RingInACallEndsIt) {
  Spy(rIn, PRI_TALK, PRI_IDLE);
  (void)logsink::Take();
  Spy(rIn, PRI_RING, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 2 ringing", "5 [5] RING Callee: 22 Caller: 0301234", "5 [5] Call stops"}),
            logsink::TakeTexts());
  EXPECT_FALSE(rIn.fRinging);
  EXPECT_EQ(0, rIn.rFirstRing);
}

TEST_F(PriChannelTest, TalkingAgainReadsTheNumbersAnew) {
  rRecorder.iRecOnDmdType = 2;
  rRecorder.astrRecOnDmdList = {"24"};
  Spy(rIn, PRI_TALK, PRI_IDLE);
  EXPECT_FALSE(rIn.fRecOnDmd);
  simcards::SetSpyInfo(CIC, {0, 1, "0309999", "24", ""});
  ForgetTraces();
  Spy(rIn, PRI_TALK, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 3 talking", "5 [5] Channel IN: {0} OUT: {1}",
                   "5 [5] Callee: 24 Caller: 0309999 Connect: "}),
            logsink::TakeTexts());
  EXPECT_EQ("0309999", rIn.strRemoteNum);
  EXPECT_EQ("24", rIn.strLocalNum);
  EXPECT_EQ("", rIn.strConnectedNum);
  EXPECT_TRUE(rIn.fRecOnDmd);
  EXPECT_EQ((Texts{"LinkedChannel 0 1"}), rRecorder.TakeCalls());
}

TEST_F(PriChannelTest, StateOfTheLineAloneMakesNoCall) {
  Send(rIn, E_CHG_ChState, S_CALL_TALKING);
  EXPECT_FALSE(rIn.fCallBusy);
  EXPECT_EQ(S_CALL_TALKING, rIn.iLastChannelState);
  Spy(rIn, PRI_TALK, PRI_IDLE);
  (void)logsink::Take();
  Send(rIn, E_CHG_ChState, S_CALL_OFFLINE);
  EXPECT_TRUE(rIn.fCallBusy);
  EXPECT_EQ((Texts{"5 [5] Line health: offline"}), logsink::TakeTexts());
}

TEST_F(PriChannelTest, CodesOfOtherCardsAreIgnored) {
  for (const WORD wCode : std::initializer_list<WORD>{0, 7, 31, 35, 37, 46, 47, 65, 124, 60000}) Send(rIn, wCode, 3);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
  EXPECT_EQ(NOTHING, rRecorder.TakeCalls());
  EXPECT_FALSE(rIn.fCallBusy);
}

// -- what the monitor gives ------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, NumbersThatTheMonitorDoesNotGiveAreEmpty) {
  Spy(rIn, PRI_TALK, PRI_IDLE);
  Spy(rIn, PRI_IDLE, PRI_TALK);
  for (const char* const acOperation : {"SpyGetCallerId", "SpyGetCalleeId", "SpyGetConId"}) {
    simcards::FailNext(acOperation, 2, -1, "no number");
  }
  (void)logsink::Take();
  Spy(rIn, PRI_RING, PRI_IDLE);
  Spy(rIn, PRI_TALK, PRI_RING);
  EXPECT_EQ((Texts{"5 [5] PRI was: 0 is: 2 ringing", "5 [5] RING Callee:  Caller: ", "5 [5] PRI was: 2 is: 3 talking",
                   "5 [5] Channel IN: {0} OUT: {1}", "5 [5] Callee:  Caller:  Connect: ", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: 0", REFUSED}),
            logsink::TakeTexts());
  EXPECT_EQ("", rIn.strRemoteNum);
  EXPECT_EQ("", rIn.strLocalNum);
  EXPECT_EQ("", rIn.strConnectedNum);
}

TEST_F(PriChannelTest, ChannelWithoutACircuitHasNoNumbersAndNoPartner) {
  rIn.iCic = -1;
  AllowRecording();
  Spy(rIn, PRI_TALK, PRI_IDLE);
  Texts astrLines = logsink::TakeTexts();
  astrLines.resize(3);
  EXPECT_EQ((Texts{"5 [5] PRI was: 0 is: 3 talking", "5 [5] Channel IN: {-1} OUT: {-1}",
                   "5 [5] Callee:  Caller:  Connect: "}),
            astrLines);
  EXPECT_FALSE(rIn.fIncoming);
  EXPECT_EQ(-1, rIn.iLinkedCh);
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", "LinkedChannel 0 -1"}), rRecorder.TakeCalls());
  EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)"}), simcards::TakeCalls());
  Spy(rIn, PRI_IDLE, PRI_TALK);
}

TEST_F(PriChannelTest, LongNumbersAreTakenUpToTheMonitorsLimit) {
  const std::string strLong(200, '7');
  simcards::SetSpyInfo(CIC, {0, 1, strLong, strLong, strLong});
  Spy(rIn, PRI_TALK, PRI_IDLE);
  const std::string strCut(63, '7');
  EXPECT_EQ(strCut, rIn.strRemoteNum);
  EXPECT_EQ(strCut, rIn.strLocalNum);
  EXPECT_EQ(strCut, rIn.strConnectedNum);
}

TEST_F(PriChannelTest, WildPartnersDoNoHarm) {
  struct Row {
    const char* acLabel;
    int iChIn, iChOut;
    bool fIncoming;
    int iLinkedCh;
  };
  const Row rRows[] = {{"partner outside the table", 0, BAD_CH, true, BAD_CH},
                       {"negative partner", 0, -5, true, -5},
                       {"neither is this channel", BAD_CH, 99, false, BAD_CH},
                       {"huge", 0, 2147483647, true, 2147483647},
                       {"lowest", -2147483647 - 1, 0, false, -2147483647 - 1}};
  AllowRecording();
  rRecorder.rDatabase.rParts["o"]["RecLocal"] = "1";
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    simcards::SetSpyInfo(CIC, {rRow.iChIn, rRow.iChOut, "0301234", "22", ""});
    Spy(rIn, PRI_TALK, PRI_IDLE);
    EXPECT_EQ("5 [5] Channel IN: {" + std::to_string(rRow.iChIn) + "} OUT: {" + std::to_string(rRow.iChOut) + "}",
              logsink::TakeTexts()[1]);
    EXPECT_EQ(rRow.fIncoming, rIn.fIncoming);
    EXPECT_EQ(rRow.iLinkedCh, rIn.iLinkedCh);
    EXPECT_EQ(-1, rIn.iBaseCh);
    EXPECT_EQ(-1, rOut.iBaseCh);
    Send(rIn, E_PROC_RecordMem, 2048);  // waits for the other side, which never comes
    EXPECT_TRUE(rIn.fCallBusy);
    Spy(rIn, PRI_IDLE, PRI_TALK);
    EXPECT_FALSE(rIn.fCallBusy);
    (void)logsink::Take();
    EXPECT_EQ(static_cast<std::size_t>(WAV_HEADER), FileBytes(rIn.strFullFilename).size());
  }
}

TEST_F(PriChannelTest, CircuitOfOneChannelDoesNoHarm) {
  AllowRecording();
  simcards::SetSpyInfo(CIC, {0, 0, "0301234", "22", ""});
  Spy(rIn, PRI_TALK, PRI_IDLE);
  EXPECT_EQ(0, rIn.iBaseCh);  // its own base: from here on it follows no state
  for (int i = 0; i < 8; i++) Send(rIn, E_PROC_RecordMem, i % 2 == 0 ? 2048 : 0);
  Send(rIn, E_CHG_RcvDTMF, '5');
  EXPECT_EQ("5", rIn.strDigits);
  rIn.EndOfCall();  // as the recorder does when it shuts down
  EXPECT_FALSE(rIn.fCallBusy || rIn.fRecording);
  EXPECT_EQ(-1, rIn.iBaseRecCh);
}

// -- availability ----------------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, AvailabilityIsReportedOnceAChange) {
  struct Row {
    int iCur;
    Texts astrReport;
  };
  const Row rRows[] = {
      {11, {"NotifyChAvail 0 0 0"}}, {11, {}}, {0, {"NotifyChAvail 0 0 1"}}, {0, {}}, {2, {}}, {105, {}},
      {11, {"NotifyChAvail 0 0 0"}}, {11, {}}, {2, {"NotifyChAvail 0 0 1"}}};
  for (const Row& rRow : rRows) {
    Spy(rIn, rRow.iCur, 0);
    EXPECT_EQ(rRow.astrReport, rRecorder.TakeCalls()) << rRow.iCur;
    EXPECT_EQ(rRow.iCur != 11, rIn.fChAvail);
    EXPECT_FALSE(rIn.fChAvailUnknown);
  }
}

TEST_F(PriChannelTest, FirstStateAlwaysReports) {
  for (const int iCur : {0, 2, 3, 11, 105}) {
    OpenChannel<PRI_Channel> rFresh;
    rFresh.Init(5, 4, 17, &rRecorder, 2);
    (void)rRecorder.TakeCalls();
    Spy(rFresh, iCur, 0);
    EXPECT_EQ(std::string("NotifyChAvail 4 17 ") + (iCur != 11 ? "1" : "0"), rRecorder.TakeCalls().at(0));
  }
}

TEST_F(PriChannelTest, CircuitThatGoesInACallEndsIt) {
  Spy(rIn, PRI_TALK, PRI_IDLE);
  ForgetTraces();
  Spy(rIn, 11, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 11 unavail", "5 [5] Call stops"}), logsink::TakeTexts());
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 0"}), rRecorder.TakeCalls());
  EXPECT_FALSE(rIn.fCallBusy);
}

// -- base and linked side --------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, LinkedSideOnlyTellsItsStates) {
  Spy(rIn, PRI_TALK, PRI_IDLE);
  ForgetTraces();
  for (const int iCur : {2, 3, 11, 0, 105, 7}) {
    Spy(rOut, iCur, PRI_RING);
    EXPECT_EQ(
        (Texts{"4 [6] (ignored, has base) PRI was: 2 is: " + std::to_string(iCur) + " " + GetPriStateDescr(iCur)}),
        logsink::TakeTexts());
  }
  EXPECT_FALSE(rOut.fCallBusy || rOut.fRinging || rOut.fInCall_ChState || rOut.fChAvail);
  EXPECT_TRUE(rOut.fChAvailUnknown);
  EXPECT_EQ("", rOut.strRemoteNum);
  EXPECT_EQ(NOTHING, rRecorder.TakeCalls());
  EXPECT_EQ(NOTHING, simcards::TakeCalls());
}

TEST_F(PriChannelTest, RolesOutliveTheCall) {
  Spy(rIn, PRI_TALK, PRI_IDLE);
  Spy(rIn, PRI_IDLE, PRI_TALK);
  EXPECT_EQ(1, rIn.iLinkedCh);
  EXPECT_EQ(0, rOut.iBaseCh);
  Spy(rOut, PRI_TALK, PRI_IDLE);
  EXPECT_FALSE(rOut.fCallBusy);
  // The next call, which goes out, is found by the same base.
  simcards::SetSpyInfo(CIC, {1, 0, "22", "0305678", ""});
  Spy(rIn, PRI_TALK, PRI_IDLE);
  EXPECT_TRUE(rIn.fCallBusy);
  EXPECT_FALSE(rIn.fIncoming);
  EXPECT_EQ("0305678", rIn.strRemoteNum);
  EXPECT_EQ(1, rIn.iLinkedCh);
}

TEST_F(PriChannelTest, DigitsCountFromOneSideOnly) {
  struct Row {
    const char* acLabel;
    bool fPaired, fOnLinked;
    const char* acSwap;
    const char* acBaseDigits;
    Texts astrLines, astrCalls;
  };
  const Row rRows[] = {
      {"alone", false, false, "0", "", {"5 {0} PRI DTMF detected: 5 linked to {-1}"}, {}},
      {"alone, swapped", false, false, "1", "5", {"5 {0} PRI DTMF detected: 5 linked to {-1}", "5 [5] Digits: 5"}, {}},
      {"base", true, false, "0", "", {"5 {0} PRI DTMF detected: 5 linked to {-1}"}, {}},
      {"base, swapped", true, false, "1", "5", {"5 {0} PRI DTMF detected: 5 linked to {-1}", "5 [5] Digits: 5"}, {}},
      {"linked",
       true,
       true,
       "0",
       "5",
       {"5 {1} PRI DTMF detected: 5 linked to {0}", "5 [5] Digits: 5"},
       {"ChannelDigit 0 5"}},
      {"linked, swapped", true, true, "1", "", {"5 {1} PRI DTMF detected: 5 linked to {0}"}, {}},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rIn.strDigits = rOut.strDigits = "";
    rOut.iBaseCh = -1;
    InitPair(rRow.acSwap);
    if (rRow.fPaired) Spy(rIn, PRI_TALK, PRI_IDLE);
    ForgetTraces();
    OpenChannel<PRI_Channel>& rHeard = rRow.fOnLinked ? rOut : rIn;
    Send(rHeard, E_CHG_RcvDTMF, 0xab00 | '5');
    EXPECT_EQ(rRow.astrLines, logsink::TakeTexts());
    EXPECT_EQ(rRow.astrCalls, rRecorder.TakeCalls());
    EXPECT_EQ((Texts{"SsmClearRxDtmfBuf(" + std::to_string(rHeard.iDrvCh) + ")"}), simcards::TakeCalls());
    EXPECT_EQ(rRow.acBaseDigits, rIn.strDigits);
    EXPECT_EQ("", rOut.strDigits);
    Spy(rIn, PRI_IDLE, PRI_TALK);
  }
}

// -- recording -------------------------------------------------------------------------------------------------------

namespace {

class PriChannelAudio : public PriChannelTest {
 protected:
  PriChannelAudio() {
    AllowRecording();
    rRecorder.rDatabase.rParts["o"]["RecLocal"] = "1";  // the tests' numbers are on either side in turn
  }

  // Hands the events of the cards to the channels until none is left.
  void Pump() {
    BYTE acData[1024];
    for (;;) {
      SSM_EVENT rEvent;
      rEvent.pvBuffer = acData;
      rEvent.dwBufferLength = sizeof acData;
      if (SsmWaitForEventA(0, &rEvent) != 0) return;
      rRecorder.HandleEvent(&rEvent);
    }
  }
  void Talk(OpenChannel<PRI_Channel>& rBase) {
    Spy(rBase, PRI_TALK, PRI_IDLE);
    ForgetTraces();
  }
  // Ends the call and gives the finished file.
  std::string HangUp(OpenChannel<PRI_Channel>& rBase) {
    Spy(rBase, PRI_IDLE, PRI_TALK);
    return FileBytes(rBase.strFullFilename);
  }
  // What the card does with one side: writes behind the last position, around the ring, and reports the new one.
  static void Deliver(OpenChannel<PRI_Channel>& rChannel, const std::string& strBytes) {
    int iPos = rChannel.iRecordOffset;
    for (const char ch : strBytes) rChannel.acRecordBuf[iPos++ % RING] = static_cast<BYTE>(ch);
    Send(rChannel, E_PROC_RecordMem, static_cast<DWORD>(iPos % RING));
  }

  static constexpr int RING = 4096;
};

// Every pair of codes once.
std::string AllPairsOwn() {
  std::string strBytes;
  for (int i = 0; i < 65536; i++) strBytes += static_cast<char>(i >> 8);
  return strBytes;
}
std::string AllPairsOther() {
  std::string strBytes;
  for (int i = 0; i < 65536; i++) strBytes += static_cast<char>(i & 0xff);
  return strBytes;
}

}  // namespace

TEST_F(PriChannelAudio, RecordedCallIsToldWhole) {
  Spy(rIn, PRI_TALK, PRI_IDLE);
  EXPECT_EQ(
      (Texts{"5 [5] PRI was: 0 is: 3 talking", "5 [5] Channel IN: {0} OUT: {1}",
             "5 [5] Callee: 22 Caller: 0301234 Connect: 23", "5 [5] Call starts",
             "5 [5] Incoming call, ringing time: -1", "5 [5] Starting recording", "5 {1} Mixing this channel to {0}",
             "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134640_005_01.wav"}),
      logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)", "SsmRecToMem(1,6,4096,0)"}), simcards::TakeCalls());
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", "LinkedChannel 0 1", "MixIn 0 1"}), rRecorder.TakeCalls());
  EXPECT_EQ(0, rOut.iBaseRecCh);
  EXPECT_EQ((StdStringMap{{"startdate", "1000000"},
                          {"duration", "0"},
                          {"filename", "19700112_134640_005_01.wav"},
                          {"isconnected", "1"},
                          {"linenr", "5"},
                          {"waittime", "-1"},
                          {"source", "6"},
                          {"isarchived", "1"},
                          {"encoding", "554"},
                          {"encryption", "0"},
                          {"processingstate", "0"},
                          {"flags", "0"},
                          {"directory", "1970/01/12/13"},
                          {"lineid", "105"},
                          {"remoteid", "19700112_134640_005_01"},
                          {"remote", "0301234"},
                          {"remotefull", "0301234"},
                          {"local", "22"},
                          {"localfull", "22"},
                          {"localcallerid", "5000"},
                          {"localcontact", "6000"},
                          {"connected", "23"},
                          {"connectedcallerid", "5001"},
                          {"connectedcontact", "6001"},
                          {"direction", "0"},
                          {"recorderid", "7"},
                          {"callextra", ""}}),
            rRecorder.rDatabase.rTables["ActiveCalls"][rIn.iActiveCallID]);
  PassSeconds(3);
  Spy(rIn, PRI_IDLE, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 0 idle", "5 [5] Call stops", "5 [5] Recording stopped (3 s)"}),
            logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmStopRecToMem(1)", "SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), simcards::TakeCalls());
  EXPECT_EQ("StopMixIn 1", rRecorder.TakeCalls().at(0));
  EXPECT_EQ(-1, rOut.iBaseRecCh);
  EXPECT_EQ(1u, rRecorder.rDatabase.rTables["Calls"].size());
}

TEST_F(PriChannelAudio, BothDirectionsAreMixedInBothLawsAndInStereo) {
  struct Row {
    const char* acLabel;
    ERecEncodings eRecEnc;
    bool fStereo, fOnIn;
    const char* acSwap;
  };
  const Row rRows[] = {{"A-law", RECENC_G711A, false, true, "0"},
                       {"mu-law", RECENC_G711U, false, true, "0"},
                       {"A-law in stereo", RECENC_G711A, true, true, "0"},
                       {"mu-law in stereo", RECENC_G711U, true, true, "0"},
                       {"outgoing in stereo", RECENC_G711A, true, false, "0"},
                       {"swapped in stereo", RECENC_G711A, true, true, "1"}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    const bool fULaw = rRow.eRecEnc == RECENC_G711U;
    const std::string strEnd = fULaw ? ".ul" : ".al";
    WriteTestFile("/tmp/own" + strEnd, AllPairsOwn());
    WriteTestFile("/tmp/other" + strEnd, AllPairsOther());
    rRecorder.eRecEnc = rRow.eRecEnc;
    rRecorder.fStereo = rRow.fStereo;
    rIn.iBaseCh = rOut.iBaseCh = -1;
    InitPair(rRow.acSwap);
    OpenChannel<PRI_Channel>& rBase = rRow.fOnIn ? rIn : rOut;
    OpenChannel<PRI_Channel>& rLinked = rRow.fOnIn ? rOut : rIn;
    Talk(rBase);
    ASSERT_TRUE(simcards::PlayFile(rBase.iDrvCh, "/tmp/own" + strEnd));
    ASSERT_TRUE(simcards::PlayFile(rLinked.iDrvCh, "/tmp/other" + strEnd));
    for (int i = 0; i < 32; i++) {
      simcards::Advance(2048);
      Pump();
    }
    EXPECT_EQ(0, simcards::Overruns());
    const std::string strAudio =
        rRow.fStereo ? Interleaved(AllPairsOwn(), AllPairsOther()) : Mixed(AllPairsOwn(), AllPairsOther(), fULaw);
    ExpectSame(Wav(fULaw ? 7 : 6, rRow.fStereo ? 2 : 1, strAudio), HangUp(rBase));
  }
}

TEST_F(PriChannelAudio, UnequalPiecesComeLevel) {
  for (const bool fStereo : {false, true}) {
    SCOPED_TRACE(fStereo);
    rRecorder.fStereo = fStereo;
    const std::string strOwn = Noise(8000, 1);
    const std::string strOther = Noise(8000, 2);
    Talk(rIn);
    std::size_t uiOwn = 0;
    std::size_t uiOther = 0;
    for (const std::size_t uiPiece : {1U, 4000U, 37U, 2048U, 914U, 1000U}) {
      Deliver(rIn, strOwn.substr(uiOwn, uiPiece));
      uiOwn += uiPiece;
      while (uiOther < uiOwn) {
        Deliver(rOut, strOther.substr(uiOther, 777));
        uiOther += std::min<std::size_t>(777, strOther.size() - uiOther);
      }
    }
    ASSERT_EQ(8000U, uiOwn);
    ASSERT_EQ(8000U, uiOther);
    const std::string strAudio = fStereo ? Interleaved(strOwn, strOther) : Mixed(strOwn, strOther, false);
    ExpectSame(Wav(6, fStereo ? 2 : 1, strAudio), HangUp(rIn));
  }
}

TEST_F(PriChannelAudio, SideThatStallsHoldsTheOtherBack) {
  const std::string strOwn = Noise(8192, 1);
  const std::string strOther = Noise(8192, 2);
  Talk(rIn);
  for (std::size_t i = 0; i < 8192; i += 2048) Deliver(rIn, strOwn.substr(i, 2048));
  EXPECT_EQ(0, rIn.iRecordByteCnt);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  Deliver(rIn, Noise(2048, 3));  // no room
  EXPECT_EQ((Texts{"4 [5] Mixing buffer too small 8192,0"}), logsink::TakeTexts());
  for (std::size_t i = 0; i < 8192; i += 2048) Deliver(rOut, strOther.substr(i, 2048));
  ExpectSame(Wav(6, 1, Mixed(strOwn, strOther, false)), HangUp(rIn));
}

TEST_F(PriChannelAudio, AudioWithoutItsOtherSideIsNotWritten) {
  Talk(rIn);
  Deliver(rOut, Noise(2048, 1));
  Deliver(rIn, Noise(2047, 2));
  EXPECT_EQ(Wav(6, 1, ""), HangUp(rIn));
  // Nor does it get into the next recording.
  Talk(rIn);
  Deliver(rOut, "abc");
  Deliver(rIn, "ABC");
  EXPECT_EQ(Wav(6, 1, Mixed("ABC", "abc", false)), HangUp(rIn));
}

TEST_F(PriChannelAudio, SilencingCoversBothDirections) {
  rRecorder.fSilenceOnDemand = true;
  for (const bool fULaw : {false, true}) {
    rRecorder.eRecEnc = fULaw ? RECENC_G711U : RECENC_G711A;
    Talk(rIn);
    EXPECT_TRUE(rIn.TrySetSilencing(true));
    Deliver(rIn, Noise(500, 1));
    Deliver(rOut, Noise(500, 2));
    const std::string strSilence(500, fULaw ? '\xff' : '\xd5');
    ExpectSame(Wav(fULaw ? 7 : 6, 1, Mixed(strSilence, strSilence, fULaw)), HangUp(rIn));
  }
}

TEST_F(PriChannelAudio, CircuitThatGoesInACallClosesTheRecording) {
  Talk(rIn);
  Deliver(rIn, "ABC");
  Deliver(rOut, "abc");
  Spy(rIn, 11, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 11 unavail", "5 [5] Call stops", "5 [5] Recording stopped (0 s)"}),
            logsink::TakeTexts());
  EXPECT_EQ("NotifyChAvail 0 0 0", rRecorder.TakeCalls().at(0));
  EXPECT_EQ(Wav(6, 1, Mixed("ABC", "abc", false)), FileBytes(rIn.strFullFilename));
  EXPECT_FALSE(rIn.fRecording);
  EXPECT_EQ(-1, rOut.iBaseRecCh);
}

// -- recording on demand ---------------------------------------------------------------------------------------------

TEST_F(PriChannelAudio, NumbersDecideWhetherACallWaitsForADemand) {
  struct Row {
    const char* acLabel;
    int iType;
    const char* acListed;
    bool fWaits;
  };
  const Row rRows[] = {{"off", 0, "22", false},         {"all", 1, "", true},         {"local", 2, "22", true},
                       {"remote", 2, "0301234", true},  {"connected", 3, "23", true}, {"other", 2, "99", false},
                       {"unknown type", 4, "22", false}};
  rRecorder.rChannelParams["RecOnDmd"] = "1";  // of no effect on trunks
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    InitPair();
    rRecorder.iRecOnDmdType = rRow.iType;
    rRecorder.astrRecOnDmdList = {rRow.acListed};
    Talk(rIn);
    EXPECT_EQ(rRow.fWaits, rIn.fRecOnDmd);
    EXPECT_EQ(rRow.fWaits, rIn.GetNewRecOnDmd());
    EXPECT_EQ(!rRow.fWaits, rIn.fRecording);
    EXPECT_NE(-1, rIn.iActiveCallID);
    Spy(rIn, PRI_IDLE, PRI_TALK);
  }
}

TEST_F(PriChannelAudio, NumberChangeCanTurnARecordingIntoADemand) {
  rRecorder.iRecOnDmdType = 2;
  rRecorder.astrRecOnDmdList = {"33"};
  Talk(rIn);
  ASSERT_TRUE(rIn.fRecording);
  const std::string strFile = rIn.strFullFilename;
  EXPECT_TRUE(rIn.LocalNumberChanged("33", "", /*stopstart=*/false));
  EXPECT_EQ((Texts{"5 [5] LocalNumberChanged. Change: 22 to: 33.", "5 [5] Local Number Changed: 33.",
                   "5 [5] Phone number change enabled recording on demand", "5 [5] Recording stopped (0 s)",
                   "5 [5] Recording on demand"}),
            logsink::TakeTexts());
  EXPECT_TRUE(rIn.fRecOnDmd);
  EXPECT_FALSE(rIn.fRecording);
  EXPECT_EQ("(no file)", ReadTestFile(strFile));
  EXPECT_NE(-1, rIn.iActiveCallID);
}
