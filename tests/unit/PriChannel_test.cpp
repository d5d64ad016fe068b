// Both directions of a tapped trunk circuit, their calls told event by event.
#include "PriChannel.h"

#include <array>
#include <memory>

#include "AudioReference.h"
#include "ChannelBench.h"
#include "TestFiles.h"
#include "TestTime.h"

namespace {

const Texts NOTHING;
constexpr int CIC = 3;
constexpr int IN = 0;       // driver channel of line 5, on which the tests' calls come in
constexpr int OUT = 1;      // driver channel of line 6
constexpr int BAD_CH = 77;  // no such driver channel

// One circuit of a trunk.
class PriChannelTest : public ChannelBench {
 protected:
  // Calls are barred from recording unless a test allows them: their start then shows as the refusal.
  PriChannelTest() {
    BarRecording();
    MakePair();
  }

  // The pair as it is after the start of the daemon.
  void MakePair(const char* acSwapSides = "") {
    rRecorder.rBoardParams["SwapSides"] = acSwapSides;
    rRecorder.rDatabase.rNumbers.clear();
    rRecorder.vChannels.clear();
    for (const int iSide : {IN, OUT}) {
      std::unique_ptr<PRI_Channel>& prLine = aprLines[static_cast<std::size_t>(iSide)];
      prLine = std::make_unique<PRI_Channel>();
      InitLine(*prLine, 5 + iSide, iSide);
      prLine->iCic = CIC;  // as the recorder does
      rRecorder.vChannels.push_back(prLine.get());
    }
    simcards::SetSpyInfo(CIC, {IN, OUT, "0301234", "22", "23"});
  }
  PRI_Channel& Line(int iSide) { return *aprLines[static_cast<std::size_t>(iSide)]; }
  void AllowRecording() {
    ChannelBench::AllowRecording();
    rRecorder.rDatabase.rParts["o"]["RecLocal"] = "1";  // the tests' numbers are on either side in turn
  }

  static void Spy(PRI_Channel& rChannel, int iCur, int iPrev) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_CHG_SpyState, CIC, static_cast<DWORD>(iCur | iPrev << 16));
    rChannel.HandleEvent(&rEvent);
  }
  void Spy(int iSide, int iCur, int iPrev) { Spy(Line(iSide), iCur, iPrev); }
  void Digit(int iSide, char ch) { Send(Line(iSide), E_CHG_RcvDTMF, 0xab00 | static_cast<DWORD>(ch)); }
  // A call from idle to its start, and its end.
  void Talk(int iSide) {
    Spy(iSide, PRI_TALK, PRI_IDLE);
    ForgetTraces();
  }
  void HangUp(int iSide) { Spy(iSide, PRI_IDLE, PRI_TALK); }
  std::string ActiveFile() { return ReadTestFile("/recordings/" + Active("directory") + "/" + Active("filename")); }
  std::string KeptFile() { return ReadTestFile("/recordings/" + Kept("directory") + "/" + Kept("filename")); }

 private:
  std::array<std::unique_ptr<PRI_Channel>, 2> aprLines;
};

}  // namespace

// -- construction and settings ----------------------------------------------------------------------------------------

TEST_F(PriChannelTest, NothingIsToldBeforeTheFirstState) {
  PRI_Channel rFresh;
  rFresh.Init(5, 2, 9, &rRecorder, IN);
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
  EXPECT_EQ(NOTHING, Orders());
}

TEST_F(PriChannelTest, InitTakesTheLineStateOfTheCard) {
  simcards::SetChState(IN, S_CALL_OFFLINE);
  PRI_Channel rFresh;
  rFresh.Init(5, 0, 0, &rRecorder, IN);
  EXPECT_EQ((Texts{"5 [5] Line health: offline"}), Log());
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
  EXPECT_EQ(-1, Line(IN).WriteChState());
  EXPECT_EQ("(no file)", ReadTestFile("/tmp/chstate_5.dat"));
}

// -- states of the circuit --------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, EachStateFromIdleAndFromACall) {
  const Texts RING_NUMBERS = {"5 [5] RING Callee: 22 Caller: 0301234"};
  const Texts NUMBERS = {"5 [5] Channel IN: {0} OUT: {1}", "5 [5] Callee: 22 Caller: 0301234 Connect: 23"};
  struct Row {
    int iCur;
    const char* acText;
    Texts astrNumbers;
    bool fCall;
  };
  const Row rRows[] = {{0, "0 idle", {}, false},          {2, "2 ringing", RING_NUMBERS, false},
                       {3, "3 talking", NUMBERS, true},   {11, "11 unavail", {}, false},
                       {105, "105 numbering", {}, false}, {1, "1 ", {}, false},
                       {65535, "65535 ", {}, false}};
  for (const Row& rRow : rRows) {
    for (const int iPrev : {PRI_IDLE, PRI_TALK}) {
      SCOPED_TRACE(rRow.acText);
      MakePair();
      Spy(IN, iPrev, PRI_IDLE);
      ForgetTraces();
      Spy(IN, rRow.iCur, iPrev);
      Texts astrLines = {"5 [5] PRI was: " + std::to_string(iPrev) + " is: " + rRow.acText};
      astrLines.insert(astrLines.end(), rRow.astrNumbers.begin(), rRow.astrNumbers.end());
      const bool fStarts = iPrev == PRI_IDLE && rRow.fCall;
      const bool fStops = iPrev == PRI_TALK && !rRow.fCall;
      for (const char* const acLine : {"5 [5] Call starts", "5 [5] Incoming call, ringing time: -1", REFUSED}) {
        if (fStarts) astrLines.push_back(acLine);
      }
      if (fStops) astrLines.push_back("5 [5] Call stops");
      EXPECT_EQ(astrLines, Log());
      EXPECT_EQ(fStops ? Texts{"SsmClearCallerId(0)"} : NOTHING, Cards());
    }
  }
}

TEST_F(PriChannelTest, IncomingCallIsToldWhole) {
  Spy(IN, PRI_RING, PRI_IDLE);
  EXPECT_EQ((Texts{"5 [5] PRI was: 0 is: 2 ringing", "5 [5] RING Callee: 22 Caller: 0301234"}), Log());
  Seconds(4);
  Spy(IN, PRI_TALK, PRI_RING);
  EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: 3 talking", "5 [5] Channel IN: {0} OUT: {1}",
                   "5 [5] Callee: 22 Caller: 0301234 Connect: 23", "5 [5] Call starts",
                   "5 [5] Incoming call, ringing time: 4", REFUSED}),
            Log());
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", "LinkedChannel 0 1"}), Orders());
  EXPECT_EQ(NOTHING, Queries());
  Seconds(9);
  Spy(IN, PRI_IDLE, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 0 idle", "5 [5] Call stops"}), Log());
  EXPECT_EQ(NOTHING, Orders());
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), Cards());
}

TEST_F(PriChannelTest, OutgoingCallIsToldWhole) {
  simcards::SetSpyInfo(CIC, {IN, OUT, "22", "0305678", ""});
  AllowRecording();
  Spy(OUT, PRI_NUMB, PRI_IDLE);
  Spy(OUT, PRI_TALK, PRI_NUMB);
  EXPECT_EQ((Texts{"5 [6] PRI was: 0 is: 105 numbering", "5 [6] PRI was: 105 is: 3 talking",
                   "5 [6] Channel IN: {0} OUT: {1}", "5 [6] Callee: 0305678 Caller: 22 Connect: ", "5 [6] Call starts",
                   "5 [6] Outgoing call", "5 [6] Starting recording", "5 {0} Mixing this channel to {1}",
                   "5 [6] Recording to file /recordings/1970/01/12/13/19700112_134640_006_01.wav"}),
            Log());
  EXPECT_EQ((Texts{"NotifyChAvail 0 1 1", "LinkedChannel 1 0", "MixIn 1 0"}), Orders());
  EXPECT_EQ("1", Active("direction"));
  EXPECT_EQ("-1", Active("waittime"));
  EXPECT_EQ("0305678", Active("remote"));
  EXPECT_EQ("22", Active("local"));
  EXPECT_EQ("", Active("connected"));
}

TEST_F(PriChannelTest, WaitTimeRunsFromTheFirstRingByTheMachinesClockInEitherDirection) {
  AllowRecording();
  for (const int iSide : {IN, OUT}) {
    Spy(iSide, PRI_RING, PRI_IDLE);
    Spy(iSide, PRI_RING, PRI_RING);
    testtime::rFrozen = rNow + 6;  // the clock of the calls stands still
    Spy(iSide, PRI_TALK, PRI_RING);
    EXPECT_EQ(iSide == IN ? "0" : "1", Active("direction"));
    EXPECT_EQ("6", Active("waittime"));
    MakePair();
  }
}

TEST_F(PriChannelTest, SwapSidesTurnsTheDirectionAndNotTheLink) {
  struct Row {
    const char* acLabel;
    int iSide;
    const char *acSwap, *acRemote, *acLocal, *acDirection, *acLink;
  };
  const Row rRows[] = {{"in, not set", IN, "", "0301234", "22", "0", "LinkedChannel 0 1"},
                       {"in", IN, "0", "0301234", "22", "0", "LinkedChannel 0 1"},
                       {"out", OUT, "0", "22", "0301234", "1", "LinkedChannel 1 0"},
                       {"in, swapped", IN, "1", "22", "0301234", "1", "LinkedChannel 0 1"},
                       {"out, swapped", OUT, "1", "0301234", "22", "0", "LinkedChannel 1 0"},
                       {"2 swaps too", IN, "2", "22", "0301234", "1", "LinkedChannel 0 1"},
                       {"-1 swaps too", IN, "-1", "22", "0301234", "1", "LinkedChannel 0 1"}};
  AllowRecording();
  rRecorder.rChannelParams["SwapSides"] = "1";  // no setting of a channel
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    MakePair(rRow.acSwap);
    Spy(rRow.iSide, PRI_TALK, PRI_IDLE);
    EXPECT_EQ(rRow.acRemote, Active("remote"));
    EXPECT_EQ(rRow.acLocal, Active("local"));
    EXPECT_EQ("23", Active("connected"));
    EXPECT_EQ(rRow.acDirection, Active("direction"));
    EXPECT_EQ(rRow.acLink, Orders().at(1));
  }
}

TEST_F(PriChannelTest, RingWithoutAnswerIsALostCall) {
  for (const int iCur : {PRI_IDLE, PRI_UNAVAILABLE, PRI_NUMB}) {
    SCOPED_TRACE(iCur);
    MakePair();
    Spy(IN, PRI_RING, PRI_IDLE);
    ForgetTraces();
    Seconds(5);
    Spy(IN, iCur, PRI_RING);
    EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: " + std::to_string(iCur) + " " + GetPriStateDescr(iCur),
                     "5 [5] Ringing stopped, remote num. expired"}),
              Log());
    Seconds(1);
    Spy(IN, PRI_RING, PRI_IDLE);
    Seconds(2);
    Spy(IN, PRI_TALK, PRI_RING);
    EXPECT_EQ("5 [5] Incoming call, ringing time: 2", Log().at(6));  // the lost call's ring does not count
  }
}

TEST_F(PriChannelTest, OnlyAStateThatCameFromARingStopsIt) {
  Spy(IN, PRI_RING, PRI_IDLE);
  Spy(IN, PRI_RING, PRI_RING);  // rings on
  ForgetTraces();
  Spy(IN, PRI_NUMB, PRI_IDLE);  // the card does not speak of the ring
  EXPECT_EQ((Texts{"5 [5] PRI was: 0 is: 105 numbering"}), Log());
  Spy(IN, PRI_IDLE, PRI_RING);
  EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: 0 idle", "5 [5] Ringing stopped, remote num. expired"}), Log());
  Spy(IN, PRI_IDLE, PRI_RING);  // nothing rings
  EXPECT_EQ((Texts{"5 [5] PRI was: 2 is: 0 idle"}), Log());
}

TEST_F(PriChannelTest, RingInACallEndsItAndIsForgottenWithIt) {
  Talk(IN);
  Spy(IN, PRI_RING, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 2 ringing", "5 [5] RING Callee: 22 Caller: 0301234", "5 [5] Call stops"}),
            Log());
  Spy(IN, PRI_TALK, PRI_RING);
  EXPECT_EQ("5 [5] Incoming call, ringing time: -1", Log().at(4));
}

TEST_F(PriChannelTest, TalkingAgainReadsTheNumbersAnew) {
  AllowRecording();
  Talk(IN);
  simcards::SetSpyInfo(CIC, {IN, OUT, "0309999", "24", ""});
  Spy(IN, PRI_TALK, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 3 talking", "5 [5] Channel IN: {0} OUT: {1}",
                   "5 [5] Callee: 24 Caller: 0309999 Connect: "}),
            Log());
  EXPECT_EQ((Texts{"LinkedChannel 0 1"}), Orders());
  HangUp(IN);
  EXPECT_EQ("0309999", Kept("remote"));
  EXPECT_EQ("24", Kept("local"));
  EXPECT_EQ("", Kept("connected"));
}

TEST_F(PriChannelTest, StateOfTheLineAloneMakesNoCall) {
  Send(Line(IN), E_CHG_ChState, S_CALL_TALKING);
  EXPECT_EQ(NOTHING, Log());
  Talk(IN);
  Send(Line(IN), E_CHG_ChState, S_CALL_OFFLINE);
  EXPECT_EQ((Texts{"5 [5] Line health: offline"}), Log());
}

TEST_F(PriChannelTest, CodesOfOtherCardsAreIgnored) {
  for (const WORD wCode : std::initializer_list<WORD>{0, 7, 31, 35, 37, 46, 47, 65, 124, 60000}) {
    Send(Line(IN), wCode, 3);
  }
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Cards());
  EXPECT_EQ(NOTHING, Orders());
}

// -- what the monitor gives -------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, NumbersThatTheMonitorDoesNotGiveAreEmpty) {
  AllowRecording();
  Talk(IN);
  HangUp(IN);
  for (const char* const acOperation : {"SpyGetCallerId", "SpyGetCalleeId", "SpyGetConId"}) {
    simcards::FailNext(acOperation, 2, -1, "no number");
  }
  ForgetTraces();
  Spy(IN, PRI_RING, PRI_IDLE);
  Spy(IN, PRI_TALK, PRI_RING);
  const Texts astrLines = Log();
  EXPECT_EQ("5 [5] RING Callee:  Caller: ", astrLines.at(1));
  EXPECT_EQ("5 [5] Callee:  Caller:  Connect: ", astrLines.at(4));
  EXPECT_EQ("", Active("remote"));
  EXPECT_EQ("", Active("local"));
  EXPECT_EQ("", Active("connected"));
}

TEST_F(PriChannelTest, ChannelWithoutACircuitHasNoNumbersAndNoPartner) {
  AllowRecording();
  PRI_Channel rAlone;
  InitLine(rAlone, 5, IN);
  Spy(rAlone, PRI_TALK, PRI_IDLE);
  EXPECT_EQ((Texts{"5 [5] PRI was: 0 is: 3 talking", "5 [5] Channel IN: {-1} OUT: {-1}",
                   "5 [5] Callee:  Caller:  Connect: ", "5 [5] Call starts", "5 [5] Outgoing call",
                   "5 [5] Starting recording",
                   "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134640_005_01.wav"}),
            Log());
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", "LinkedChannel 0 -1"}), Orders());
  EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)"}), Cards());
}

TEST_F(PriChannelTest, LongNumbersAreTakenUpToTheMonitorsLimit) {
  AllowRecording();
  const std::string strLong(200, '7');
  simcards::SetSpyInfo(CIC, {IN, OUT, strLong, strLong, strLong});
  Talk(IN);
  const std::string strCut(63, '7');
  EXPECT_EQ(strCut, Active("remote"));
  EXPECT_EQ(strCut, Active("local"));
  EXPECT_EQ(strCut, Active("connected"));
}

TEST_F(PriChannelTest, WildPartnersDoNoHarm) {
  struct Row {
    const char* acLabel;
    int iChIn, iChOut;
    const char *acDirection, *acPartner;
  };
  const Row rRows[] = {{"partner outside the table", IN, BAD_CH, "0", "77"},
                       {"negative partner", IN, -5, "0", "-5"},
                       {"neither is this channel", BAD_CH, 99, "1", "77"},
                       {"huge", IN, 2147483647, "0", "2147483647"},
                       {"lowest", -2147483647 - 1, 0, "1", "-2147483648"}};
  AllowRecording();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    MakePair();
    simcards::SetSpyInfo(CIC, {rRow.iChIn, rRow.iChOut, "0301234", "22", ""});
    Spy(IN, PRI_TALK, PRI_IDLE);
    EXPECT_EQ("5 [5] Channel IN: {" + std::to_string(rRow.iChIn) + "} OUT: {" + std::to_string(rRow.iChOut) + "}",
              Log().at(1));
    EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", std::string("LinkedChannel 0 ") + rRow.acPartner,
                     std::string("MixIn 0 ") + rRow.acPartner}),
              Orders());
    EXPECT_EQ(rRow.acDirection, Active("direction"));
    Hear(IN, Noise(2048, 1));
    Spy(OUT, PRI_NUMB, PRI_IDLE);
    EXPECT_EQ((Texts{"5 [6] PRI was: 0 is: 105 numbering"}), Log());  // nobody's linked side
    HangUp(IN);
    ExpectSame(Wav(6, 1, Noise(2048, 1)), KeptFile());  // does not wait for the other side, which never comes
  }
}

TEST_F(PriChannelTest, CircuitOfOneChannelHasOneSideAndEndsItsCalls) {
  AllowRecording();
  simcards::SetSpyInfo(CIC, {IN, IN, "0301234", "22", ""});
  for (const bool fStereo : {false, true}) {
    SCOPED_TRACE(fStereo);
    rRecorder.fStereo = fStereo;
    ForgetTraces();
    Spy(IN, PRI_TALK, PRI_IDLE);
    EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)"}), Cards());
    EXPECT_EQ("LinkedChannel 0 -1", Orders().back());
    (void)Log();
    std::string strAudio;
    for (unsigned uiPiece = 1; uiPiece <= 6; uiPiece++) {
      strAudio += Noise(2048, uiPiece);
      Hear(IN, Noise(2048, uiPiece));
    }
    EXPECT_EQ(NOTHING, Log());
    HangUp(IN);
    EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 0 idle", "5 [5] Call stops", "5 [5] Recording stopped (0 s)"}), Log());
    EXPECT_EQ(Wav(6, 1, strAudio), KeptFile());
    EXPECT_EQ(0U, ActiveRows());
  }
}

TEST_F(PriChannelTest, CircuitWithoutAPartnerIsRecordedInMonoAlsoWhereStereoIsOn) {
  AllowRecording();
  rRecorder.fStereo = true;
  simcards::SetSpyInfo(CIC, {IN, -1, "0301234", "22", ""});
  Spy(IN, PRI_TALK, PRI_IDLE);
  Hear(IN, "audio");
  HangUp(IN);
  EXPECT_EQ(Wav(6, 1, "audio"), KeptFile());
}

// -- availability -----------------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, AvailabilityIsReportedOnceAChange) {
  struct Row {
    int iCur;
    Texts astrReport;
  };
  const Row rRows[] = {
      {11, {"NotifyChAvail 0 0 0"}}, {11, {}}, {0, {"NotifyChAvail 0 0 1"}}, {0, {}}, {2, {}}, {105, {}},
      {11, {"NotifyChAvail 0 0 0"}}, {11, {}}, {2, {"NotifyChAvail 0 0 1"}}};
  for (const Row& rRow : rRows) {
    Spy(IN, rRow.iCur, PRI_IDLE);
    EXPECT_EQ(rRow.astrReport, Orders()) << rRow.iCur;
  }
}

TEST_F(PriChannelTest, FirstStateAlwaysReports) {
  for (const int iCur : {0, 2, 3, 11, 105}) {
    PRI_Channel rFresh;
    for (int i = 0; i < 2; i++) {  // Init forgets what was reported
      rFresh.Init(5, 4, 17, &rRecorder, 2);
      (void)Orders();
      Spy(rFresh, iCur, PRI_IDLE);
      EXPECT_EQ(std::string("NotifyChAvail 4 17 ") + (iCur != 11 ? "1" : "0"), Orders().at(0));
    }
  }
}

// -- base and linked side ---------------------------------------------------------------------------------------------

TEST_F(PriChannelTest, LinkedSideOnlyTellsItsStates) {
  Talk(IN);
  for (const int iCur : {2, 3, 11, 0, 105, 7}) {
    Spy(OUT, iCur, PRI_RING);
    EXPECT_EQ(
        (Texts{"4 [6] (ignored, has base) PRI was: 2 is: " + std::to_string(iCur) + " " + GetPriStateDescr(iCur)}),
        Log());
  }
  EXPECT_EQ(NOTHING, Orders());
  EXPECT_EQ(NOTHING, Cards());
}

TEST_F(PriChannelTest, RolesOutliveTheCall) {
  AllowRecording();
  Talk(IN);
  HangUp(IN);
  ForgetTraces();
  Spy(OUT, PRI_TALK, PRI_IDLE);
  EXPECT_EQ((Texts{"4 [6] (ignored, has base) PRI was: 0 is: 3 talking"}), Log());
  simcards::SetSpyInfo(CIC, {OUT, IN, "22", "0305678", ""});
  Spy(IN, PRI_TALK, PRI_IDLE);  // the next call, which goes out, is found by the same base
  EXPECT_EQ((Texts{"LinkedChannel 0 1", "MixIn 0 1"}), Orders());
  EXPECT_EQ("1", Active("direction"));
  EXPECT_EQ("0305678", Active("remote"));
}

TEST_F(PriChannelTest, DigitsCountFromOneSideOnly) {
  struct Row {
    const char* acLabel;
    bool fPaired;
    int iSide;
    const char* acSwap;
    Texts astrLines, astrOrders;
  };
  const Texts UNLINKED = {"5 {0} PRI DTMF detected: 5 linked to {-1}"};
  const Texts UNLINKED_TAKEN = {"5 {0} PRI DTMF detected: 5 linked to {-1}", "5 [5] Digits: 5"};
  const Texts LINKED = {"5 {1} PRI DTMF detected: 5 linked to {0}"};
  const Texts LINKED_TAKEN = {"5 {1} PRI DTMF detected: 5 linked to {0}", "5 [5] Digits: 5"};
  const Row rRows[] = {{"alone", false, IN, "0", UNLINKED, {}},
                       {"alone, swapped", false, IN, "1", UNLINKED_TAKEN, {}},
                       {"base", true, IN, "0", UNLINKED, {}},
                       {"base, swapped", true, IN, "1", UNLINKED_TAKEN, {}},
                       {"linked", true, OUT, "0", LINKED_TAKEN, {"ChannelDigit 0 5"}},
                       {"linked, swapped", true, OUT, "1", LINKED, {}}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    MakePair(rRow.acSwap);
    if (rRow.fPaired) Talk(IN);
    ForgetTraces();
    Digit(rRow.iSide, '5');
    EXPECT_EQ(rRow.astrLines, Log());
    EXPECT_EQ(rRow.astrOrders, Orders());
    EXPECT_EQ((Texts{"SsmClearRxDtmfBuf(" + std::to_string(rRow.iSide) + ")"}), Cards());
  }
}

TEST_F(PriChannelTest, DigitsDoNotStandInForAMissingNumber) {
  simcards::SetSpyInfo(CIC, {IN, OUT, "", "22", ""});
  Talk(IN);
  for (const char ch : std::string("0171")) Digit(OUT, ch);
  ForgetTraces();
  Seconds(6);
  EXPECT_EQ((Texts{"5 [5] Previous digits expired"}), Log());
}

// -- recording --------------------------------------------------------------------------------------------------------

namespace {

class PriChannelAudio : public PriChannelTest {
 protected:
  PriChannelAudio() { AllowRecording(); }
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
  Spy(IN, PRI_TALK, PRI_IDLE);
  EXPECT_EQ(
      (Texts{"5 [5] PRI was: 0 is: 3 talking", "5 [5] Channel IN: {0} OUT: {1}",
             "5 [5] Callee: 22 Caller: 0301234 Connect: 23", "5 [5] Call starts",
             "5 [5] Incoming call, ringing time: -1", "5 [5] Starting recording", "5 {1} Mixing this channel to {0}",
             "5 [5] Recording to file /recordings/1970/01/12/13/19700112_134640_005_01.wav"}),
      Log());
  EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)", "SsmRecToMem(1,6,4096,0)"}), Cards());
  EXPECT_EQ((Texts{"NotifyChAvail 0 0 1", "LinkedChannel 0 1", "MixIn 0 1"}), Orders());
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
            ActiveRow());
  Seconds(3);
  HangUp(IN);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 0 idle", "5 [5] Call stops", "5 [5] Recording stopped (3 s)"}), Log());
  EXPECT_EQ((Texts{"SsmStopRecToMem(1)", "SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), Cards());
  EXPECT_EQ("StopMixIn 1", Orders().at(0));
  EXPECT_EQ(1U, KeptRows());
}

TEST_F(PriChannelAudio, BothDirectionsAreMixedInBothLawsAndInStereo) {
  struct Row {
    const char* acLabel;
    ERecEncodings eRecEnc;
    bool fStereo;
    int iBase;
    const char* acSwap;
  };
  const Row rRows[] = {{"A-law", RECENC_G711A, false, IN, "0"},
                       {"mu-law", RECENC_G711U, false, IN, "0"},
                       {"A-law in stereo", RECENC_G711A, true, IN, "0"},
                       {"mu-law in stereo", RECENC_G711U, true, IN, "0"},
                       {"outgoing in stereo", RECENC_G711A, true, OUT, "0"},
                       {"swapped in stereo", RECENC_G711A, true, IN, "1"}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    const bool fULaw = rRow.eRecEnc == RECENC_G711U;
    const std::string strEnd = fULaw ? ".ul" : ".al";
    WriteTestFile("/tmp/own" + strEnd, AllPairsOwn());
    WriteTestFile("/tmp/other" + strEnd, AllPairsOther());
    rRecorder.eRecEnc = rRow.eRecEnc;
    rRecorder.fStereo = rRow.fStereo;
    MakePair(rRow.acSwap);
    Talk(rRow.iBase);
    ASSERT_TRUE(simcards::PlayFile(rRow.iBase, "/tmp/own" + strEnd));
    ASSERT_TRUE(simcards::PlayFile(1 - rRow.iBase, "/tmp/other" + strEnd));
    for (int i = 0; i < 32; i++) {
      simcards::Advance(2048);
      TakeCardEvents();
    }
    EXPECT_EQ(0, simcards::Overruns());
    HangUp(rRow.iBase);
    const std::string strAudio =
        rRow.fStereo ? Interleaved(AllPairsOwn(), AllPairsOther()) : Mixed(AllPairsOwn(), AllPairsOther(), fULaw);
    ExpectSame(Wav(fULaw ? 7 : 6, rRow.fStereo ? 2 : 1, strAudio), KeptFile());
  }
}

TEST_F(PriChannelAudio, UnequalPiecesComeLevel) {
  for (const bool fStereo : {false, true}) {
    SCOPED_TRACE(fStereo);
    rRecorder.fStereo = fStereo;
    const std::string strOwn = Noise(8000, 1);
    const std::string strOther = Noise(8000, 2);
    Talk(IN);
    std::size_t uiOwn = 0;
    std::size_t uiOther = 0;
    for (const std::size_t uiPiece : {1U, 4000U, 37U, 2048U, 914U, 1000U}) {
      Hear(IN, strOwn.substr(uiOwn, uiPiece));
      uiOwn += uiPiece;
      while (uiOther < uiOwn) {
        Hear(OUT, strOther.substr(uiOther, 777));
        uiOther += std::min<std::size_t>(777, strOther.size() - uiOther);
      }
    }
    HangUp(IN);
    const std::string strAudio = fStereo ? Interleaved(strOwn, strOther) : Mixed(strOwn, strOther, false);
    ExpectSame(Wav(6, fStereo ? 2 : 1, strAudio), KeptFile());
  }
}

TEST_F(PriChannelAudio, SideThatStallsHoldsTheOtherBack) {
  const std::string strOwn = Noise(8192, 1);
  const std::string strOther = Noise(8192, 2);
  Talk(IN);
  for (std::size_t i = 0; i < 8192; i += 2048) Hear(IN, strOwn.substr(i, 2048));
  EXPECT_EQ(Wav(6, 1, ""), ActiveFile());
  EXPECT_EQ(NOTHING, Log());
  Hear(IN, Noise(2048, 3));  // no room
  EXPECT_EQ((Texts{"4 [5] Mixing buffer too small 8192,0"}), Log());
  for (std::size_t i = 0; i < 8192; i += 2048) Hear(OUT, strOther.substr(i, 2048));
  HangUp(IN);
  ExpectSame(Wav(6, 1, Mixed(strOwn, strOther, false)), KeptFile());
}

TEST_F(PriChannelAudio, AudioWithoutItsOtherSideIsNotWritten) {
  Talk(IN);
  Hear(OUT, Noise(2048, 1));
  Hear(IN, Noise(2047, 2));
  HangUp(IN);
  EXPECT_EQ(Wav(6, 1, ""), KeptFile());
  Talk(IN);  // nor does it get into the next recording
  Hear(OUT, "abc");
  Hear(IN, "ABC");
  HangUp(IN);
  EXPECT_EQ(Wav(6, 1, Mixed("ABC", "abc", false)), KeptFile());
}

TEST_F(PriChannelAudio, RecordingKeepsThePartnerThatItBeganWith) {
  struct Row {
    const char* acLabel;
    int iFirst, iThen;  // partners; IN is the circuit itself
  };
  const Row rRows[] = {
      {"none, then one", IN, OUT}, {"one, then none", OUT, IN}, {"one, then one that does not exist", OUT, BAD_CH}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    MakePair();
    simcards::SetSpyInfo(CIC, {IN, rRow.iFirst, "0301234", "22", ""});
    Talk(IN);
    std::string strOwn;
    std::string strOther;
    for (unsigned uiPiece = 1; uiPiece <= 7; uiPiece++) {
      strOwn += Noise(2048, uiPiece);
      Hear(IN, Noise(2048, uiPiece));
      if (rRow.iFirst == OUT) {
        strOther += Noise(2048, 10 + uiPiece);
        Hear(OUT, Noise(2048, 10 + uiPiece));
      }
      if (uiPiece != 1) continue;
      simcards::SetSpyInfo(CIC, {IN, rRow.iThen, "0301234", "22", ""});
      Spy(IN, PRI_TALK, PRI_TALK);
      (void)Log();
    }
    EXPECT_EQ(NOTHING, Log());
    EXPECT_EQ(NOTHING, Cards());
    EXPECT_TRUE(Line(IN).LocalNumberChanged("33", "", /*stopstart=*/true));  // the next part has the new one
    ExpectSame(Wav(6, 1, rRow.iFirst == IN ? strOwn : Mixed(strOwn, strOther, false)), KeptFile());
    Texts astrCards = {"SsmStopRecToMem(0)", "SsmRecToMem(0,6,4096,0)"};
    if (rRow.iFirst == OUT) astrCards.insert(astrCards.begin(), "SsmStopRecToMem(1)");
    if (rRow.iThen == OUT) astrCards.push_back("SsmRecToMem(1,6,4096,0)");
    EXPECT_EQ(astrCards, Cards());
    HangUp(IN);
    ForgetTraces();
  }
}

TEST_F(PriChannelAudio, SilencingCoversBothDirections) {
  rRecorder.fSilenceOnDemand = true;
  for (const bool fULaw : {false, true}) {
    rRecorder.eRecEnc = fULaw ? RECENC_G711U : RECENC_G711A;
    Talk(IN);
    EXPECT_TRUE(Line(IN).TrySetSilencing(true));
    Hear(IN, Noise(500, 1));
    Hear(OUT, Noise(500, 2));
    HangUp(IN);
    const std::string strSilence(500, fULaw ? '\xff' : '\xd5');
    ExpectSame(Wav(fULaw ? 7 : 6, 1, Mixed(strSilence, strSilence, fULaw)), KeptFile());
  }
}

TEST_F(PriChannelAudio, LinkedSideHasNoCallToSilence) {
  rRecorder.fSilenceOnDemand = true;
  Talk(IN);
  EXPECT_TRUE(Line(OUT).TrySetSilencing(true));  // as an order with an empty id finds it
  EXPECT_EQ((Texts{"5 [6] Silencing set to 1"}), Log());
  Hear(IN, "ABC");
  Hear(OUT, "abc");
  HangUp(IN);
  EXPECT_EQ(Wav(6, 1, Mixed("ABC", "abc", false)), KeptFile());
}

TEST_F(PriChannelAudio, CircuitThatGoesInACallClosesTheRecording) {
  Talk(IN);
  Hear(IN, "ABC");
  Hear(OUT, "abc");
  Spy(IN, PRI_UNAVAILABLE, PRI_TALK);
  EXPECT_EQ((Texts{"5 [5] PRI was: 3 is: 11 unavail", "5 [5] Call stops", "5 [5] Recording stopped (0 s)"}), Log());
  EXPECT_EQ("NotifyChAvail 0 0 0", Orders().at(0));
  EXPECT_EQ((Texts{"SsmStopRecToMem(1)", "SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), Cards());
  EXPECT_EQ(Wav(6, 1, Mixed("ABC", "abc", false)), KeptFile());
}

// -- recording on demand ----------------------------------------------------------------------------------------------

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
    MakePair();
    rRecorder.iRecOnDmdType = rRow.iType;
    rRecorder.astrRecOnDmdList = {rRow.acListed};
    Spy(IN, PRI_TALK, PRI_IDLE);
    EXPECT_EQ(rRow.fWaits ? "5 [5] Recording on demand" : "5 [5] Starting recording", Log().at(5));
    EXPECT_EQ(rRow.fWaits ? "0" : "1", Active("isarchived"));
    HangUp(IN);
    EXPECT_EQ(0U, ActiveRows());
  }
}

TEST_F(PriChannelAudio, NumbersOfTalkingAgainDecideAnewWhetherDemandsCount) {
  rRecorder.iRecOnDmdType = 2;
  rRecorder.astrRecOnDmdList = {"24"};
  Talk(IN);
  EXPECT_FALSE(Line(IN).RecOnDmdAct(/*fStart=*/true));
  simcards::SetSpyInfo(CIC, {IN, OUT, "0309999", "24", ""});
  Spy(IN, PRI_TALK, PRI_TALK);
  EXPECT_TRUE(Line(IN).RecOnDmdAct(/*fStart=*/true));
}

TEST_F(PriChannelAudio, NumberChangeCanTurnARecordingIntoADemand) {
  rRecorder.iRecOnDmdType = 2;
  rRecorder.astrRecOnDmdList = {"33"};
  Talk(IN);
  EXPECT_TRUE(Line(IN).LocalNumberChanged("33", "", /*stopstart=*/false));
  EXPECT_EQ((Texts{"5 [5] LocalNumberChanged. Change: 22 to: 33.", "5 [5] Local Number Changed: 33.",
                   "5 [5] Phone number change enabled recording on demand", "5 [5] Recording stopped (0 s)",
                   "5 [5] Recording on demand"}),
            Log());
  EXPECT_EQ("(no file)", ReadTestFile("/recordings/1970/01/12/13/19700112_134640_005_01.wav"));
  EXPECT_EQ("0", Active("isarchived"));
  EXPECT_EQ(0U, KeptRows());
}
