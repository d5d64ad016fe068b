// How a line rings, and how a call starts and stops, told event by event.
#include "CallBench.h"
#include "shpa3link.h"

namespace {

const Texts NOTHING;
Texts astrCallsAtR2;  // calls to the card up to the optional function, and its own

int ClearR2Tones(int nCh) {
  for (const std::string& strCall : simcards::TakeCalls()) astrCallsAtR2.push_back(strCall);
  astrCallsAtR2.push_back("SsmClearR2callToneBuf(" + std::to_string(nCh) + ")");
  return 0;
}

// Calls wait for a demand, which gives them a row and nothing more, unless a test wants audio.
class BaseChannelCall : public CallBench {
 protected:
  BaseChannelCall() { InitLines({{"RecOnDmd", "1"}}); }
  ~BaseChannelCall() override { SsmClearR2callToneBuf_FP = nullptr; }

  static Texts Started(const std::string& strDirection) {
    return {"5 [7] Call starts", "5 [7] " + strDirection, "5 [7] Recording on demand"};
  }
  // A call that is over at once; the ring, when there was one, makes it incoming.
  void PastCall(bool fIncoming) {
    if (fIncoming) Ring();
    OffHook();
    OnHook();
    Seconds(100);
    ForgetTraces();
  }
};

}  // namespace

// -- ringing ----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, RingAloneTellsNothing) {
  Ring();
  Seconds(3);
  RingStops();
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(NOTHING, Queries());
  EXPECT_EQ(NOTHING, Cards());
}

TEST_F(BaseChannelCall, PauseBetweenRingsSortsThemIntoCalls) {
  struct Row {
    int iPause;
    int iRingingTime;
    int iCalls;
  };
  const Row rRows[] = {{0, 3, 1}, {9, 12, 1}, {10, 13, 1}, {11, 1, 2}, {3600, 1, 2}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iPause);
    rLine.iNewRings = 0;
    Ring();
    Seconds(2);
    RingStops();
    Seconds(rRow.iPause);
    Ring();
    Seconds(1);
    OffHook();
    EXPECT_EQ(Started("Incoming call, ringing time: " + std::to_string(rRow.iRingingTime)), Log());
    EXPECT_EQ(std::to_string(rRow.iRingingTime), Active("waittime"));
    EXPECT_EQ(rRow.iCalls, rLine.iNewRings);
    OnHook();
    (void)Log();
  }
}

TEST_F(BaseChannelCall, PauseCountsFromTheLastEdgeOfARing) {
  Ring();
  Seconds(30);  // one long ring
  Ring();       // told twice
  Seconds(9);
  RingStops();
  Seconds(10);
  Ring();
  OffHook();
  EXPECT_EQ(Started("Incoming call, ringing time: 19"), Log());  // the second telling came too late for the first ring
  EXPECT_EQ(2, rLine.iNewRings);
}

TEST_F(BaseChannelCall, RingAfterALostCallIsANewCallAtOnce) {
  rLine.BeOneThatRingsUntilPickup();
  Ring();
  Seconds(5);
  RingStops();
  Seconds(1);
  Ring();
  Seconds(2);
  (void)Log();
  OffHook();
  EXPECT_EQ(Started("Incoming call, ringing time: 2"), Log());
  EXPECT_EQ(2, rLine.iNewRings);
}

TEST_F(BaseChannelCall, FirstRingWithoutALastOneIsTheSameCall) {
  rLine.rFirstRing = rNow - 30;  // no event leaves one without the other
  Ring();
  OffHook();
  EXPECT_EQ(Started("Incoming call, ringing time: 30"), Log());
  EXPECT_EQ(0, rLine.iNewRings);
}

TEST_F(BaseChannelCall, StopWithoutRingDoesNothing) {
  for (const bool fRingsUntilPickup : {false, true}) {
    if (fRingsUntilPickup) rLine.BeOneThatRingsUntilPickup();
    CallerId("0170");
    (void)Log();
    RingStops();
    EXPECT_EQ(NOTHING, Log());
    OffHook();
    EXPECT_EQ(Started("Outgoing call"), Log());  // a ring that has just stopped would make it incoming
    EXPECT_EQ("0170", Active("remote"));
    OnHook();
    (void)Log();
  }
}

TEST_F(BaseChannelCall, RingStopsOnlyOnce) {
  Ring();
  RingStops();
  Seconds(6);
  RingStops();
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());
}

TEST_F(BaseChannelCall, CallerWhoGaveUpIsForgottenOnALineThatRingsUntilPickup) {
  rLine.BeOneThatRingsUntilPickup();
  Ring();
  CallerId("0170");
  Seconds(3);
  (void)Log();
  RingStops();
  EXPECT_EQ((Texts{"5 [7] Ringing stopped, remote num. expired"}), Log());
  Seconds(20);
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());  // nor does the age of the number count any longer
  EXPECT_EQ("", Active("remote"));
  (void)Queries();
  CallerId("0170");  // the same number is news again
  EXPECT_THAT(Queries(), ::testing::Contains("UpdateActiveCallRemoteContact 1 NULL NULL 0170"));
}

TEST_F(BaseChannelCall, EndOfRingOnOtherLinesKeepsTheCaller) {
  Ring();
  CallerId("0170");
  Seconds(3);
  (void)Log();
  RingStops();
  EXPECT_EQ(NOTHING, Log());
  Seconds(1);
  OffHook();
  EXPECT_EQ(Started("Incoming, last ring: 1 s. ago"), Log());
  EXPECT_EQ("0170", Active("remote"));
  EXPECT_EQ("4", Active("waittime"));
}

TEST_F(BaseChannelCall, EndOfRingInACallKeepsTheCaller) {
  InitLines({});
  for (const bool fRingsUntilPickup : {false, true}) {
    if (fRingsUntilPickup) rLine.BeOneThatRingsUntilPickup();
    Ring();
    CallerId("0170");
    OffHook();
    (void)Log();
    RingStops();
    EXPECT_EQ(NOTHING, Log());
    OnHook();
    EXPECT_EQ("0170", Kept("remote"));
  }
}

TEST_F(BaseChannelCall, RingDuringACallMovesTheRingTimesOnly) {
  InitLines({});
  SetConfig("RecMinDur", "1000");  // a call that was too short leaves its ring times to be seen in the next
  CallerId("0170");
  OffHook();
  Seconds(100);
  (void)Log();
  Ring();
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ(1, rLine.iNewRings);
  Seconds(2);
  RingStops();
  EXPECT_EQ(NOTHING, Log());
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (102 s)", "5 [7] Duration too short (102 < 1000)"}),
            Log());
  CallerId("0170");
  Seconds(3);
  (void)Log();
  OffHook();
  EXPECT_EQ("5 [7] Incoming, last ring: 3 s. ago", Log()[1]);
  EXPECT_EQ("5", Active("waittime"));
}

// -- age of the remote number -----------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, RemoteNumberOfElevenSecondsIsNotTakenForTheCallThatStarts) {
  CallerId("0170");
  Seconds(10);
  (void)Log();
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());
  EXPECT_EQ("0170", Active("remote"));
  OnHook();

  CallerId("0170");
  Seconds(11);
  (void)Log();
  OffHook();
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Remote expired, 11 seconds old", "5 [7] Outgoing call",
                   "5 [7] Recording on demand"}),
            Log());
  EXPECT_EQ("", Active("remote"));
}

TEST_F(BaseChannelCall, ExpiredNumberIsNewsAgainAndExpiresOnce) {
  CallerId("0170");
  Seconds(11);
  OffHook();
  ForgetTraces();
  CallerId("0170");
  EXPECT_THAT(Queries(), ::testing::Contains("UpdateActiveCallRemoteContact 1 NULL NULL 0170"));
  OnHook();
  Seconds(30);
  (void)Log();
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());
}

TEST_F(BaseChannelCall, NumberDoesNotAgeWhileTheLineRings) {
  Ring();
  CallerId("0170");
  Seconds(90);
  (void)Log();
  OffHook();
  EXPECT_EQ(Started("Incoming call, ringing time: 90"), Log());
  EXPECT_EQ("0170", Active("remote"));
}

TEST_F(BaseChannelCall, RingDropsNoNumberByItself) {
  CallerId("0170");
  Seconds(3600);
  (void)Log();
  Ring();
  EXPECT_EQ(NOTHING, Log());
  OffHook();
  EXPECT_EQ("0170", Active("remote"));
}

TEST_F(BaseChannelCall, NumberDoesNotAgeInACall) {
  rLine.BeOneThatIsDialledOn();
  CallerId("0170");
  OffHook();
  Seconds(3600);
  Press("12");  // once they are judged, the age of the number is asked
  (void)Log();
  Seconds(6);
  EXPECT_EQ((Texts{"5 [7] Previous digits expired"}), Log());
}

TEST_F(BaseChannelCall, OldNumberGivesWayToWhatIsDialled) {
  rLine.BeOneThatIsDialledOn();
  CallerId("0170");
  Seconds(5);
  Press("12");
  (void)Log();
  Seconds(6);
  EXPECT_EQ((Texts{"5 [7] Previous digits expired", "5 [7] Remote expired, 11 seconds old", "5 [7] Remote: 12"}),
            Log());
}

TEST_F(BaseChannelCall, NumberWithoutTimeDoesNotExpire) {
  rLine.NumberFromSignalling("0170");
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());
  EXPECT_EQ("0170", Active("remote"));
}

// -- direction --------------------------------------------------------------------------------------------------------

// A ring that began 20 seconds before the call, and what else is known when it starts.
TEST_F(BaseChannelCall, DirectionIsGuessedFromRingsAndDigits) {
  constexpr int NEVER = -1, STILL = 0;
  struct Row {
    const char* acLabel;
    bool fRingsUntilPickup;
    int iRingStopped, iDigit;  // seconds before the call
    const char* acLine;
    const char* acDirection;
    const char* acWaitTime;
  };
  const Row rRows[] = {
      {"nothing rang", false, NEVER, NEVER, "Outgoing call", "1", "-1"},
      {"ringing now", false, STILL, NEVER, "Incoming call, ringing time: 20", "0", "20"},
      {"ringing now, with a digit", false, STILL, 1, "Incoming call, ringing time: 20", "0", "20"},
      {"rang 3 s ago", false, 3, NEVER, "Incoming, last ring: 3 s. ago", "0", "20"},
      {"rang 5 s ago", false, 5, NEVER, "Incoming, last ring: 5 s. ago", "0", "20"},
      {"rang 6 s ago", false, 6, NEVER, "Outgoing call", "1", "-1"},
      {"rang 3 s ago, digit 5 s ago", false, 3, 5, "Outgoing call", "1", "-1"},
      {"rang 3 s ago, digit 10 s ago", false, 3, 10, "Outgoing call", "1", "-1"},
      {"rang 3 s ago, digit 11 s ago", false, 3, 11, "Incoming, last ring: 3 s. ago", "0", "20"},
      {"rings until pick-up, rang 3 s ago", true, 3, NEVER, "Outgoing call", "1", "-1"},
      {"rings until pick-up, ringing now", true, STILL, NEVER, "Incoming call, ringing time: 20", "0", "20"},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    if (rRow.fRingsUntilPickup) rLine.BeOneThatRingsUntilPickup();
    PastCall(/*fIncoming=*/rRow.acDirection[0] == '1');  // the other direction, which says nothing of this call
    if (rRow.iRingStopped != NEVER) Ring();
    for (int iAgo = 20; iAgo > 0; iAgo--) {
      if (iAgo == rRow.iRingStopped) RingStops();
      if (iAgo == rRow.iDigit) Press("5");
      Seconds(1);
    }
    (void)Log();
    OffHook();
    EXPECT_EQ(Started(rRow.acLine), Log());
    EXPECT_EQ(rRow.acDirection, Active("direction"));
    EXPECT_EQ(rRow.acWaitTime, Active("waittime"));
    OnHook();
  }
}

TEST_F(BaseChannelCall, KnownDirectionIsNotGuessed) {
  Ring();
  rLine.DirectionFromSignalling(/*fIncomingCall=*/false);
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());
  EXPECT_EQ("1", Active("direction"));
  EXPECT_EQ("-1", Active("waittime"));
  OnHook();
  (void)Log();

  rLine.DirectionFromSignalling(/*fIncomingCall=*/true);
  OffHook();
  EXPECT_EQ(Started("Incoming call, ringing time: -1"), Log());
  EXPECT_EQ("0", Active("direction"));
  EXPECT_EQ("-1", Active("waittime"));
}

TEST_F(BaseChannelCall, LostCallLeavesItsFirstRingOnLinesThatStopRingingBeforePickup) {
  Ring();
  Seconds(2);
  RingStops();
  Seconds(60);
  rLine.DirectionFromSignalling(/*fIncomingCall=*/true);
  OffHook();
  EXPECT_EQ(Started("Incoming call, ringing time: 62"), Log());
}

TEST_F(BaseChannelCall, StartOfACallTakesDigitsAgain) {
  rLine.IgnoreDigits();
  Press("1");
  EXPECT_EQ(NOTHING, Log());
  OffHook();
  (void)Log();
  Press("2");
  EXPECT_EQ((Texts{"5 [7] Digits: 2"}), Log());
}

// -- start and stop ---------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, UnchangedAnswerDoesNothing) {
  OnHook();
  EXPECT_EQ(NOTHING, Log());
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());
  OffHook();
  EXPECT_EQ(NOTHING, Log());
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops"}), Log());
  OnHook();
  EXPECT_EQ(NOTHING, Log());
}

TEST_F(BaseChannelCall, CallThatIsNotRecordedFollowsTheLineAllTheSame) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"0170"};
  Ring();
  CallerId("0170");
  Seconds(4);
  OffHook();
  EXPECT_EQ((Texts{"5 [7] Remote: 0170", "5 [7] Call starts", "5 [7] Incoming call, ringing time: 4",
                   "5 [7] Not recording because in number filter"}),
            Log());
  EXPECT_EQ(0U, ActiveRows());
  Seconds(30);
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops"}), Log());
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), Cards());
  EXPECT_EQ(NOTHING, Queries());
  EXPECT_EQ(rNow, rLine.rCallStopTime);  // for subclasses, as is the next
  EXPECT_EQ("0170", rLine.strPrevCallRemoteNum);
  OffHook();  // neither number nor ring belong to the next call
  EXPECT_EQ(Started("Outgoing call"), Log());
}

TEST_F(BaseChannelCall, DigitsAreJudgedWhileTheCallIsStillBusy) {
  InitLines({});
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"987"};
  rLine.BeOneThatIsDialledOn();
  OffHook();
  Press("987");
  ForgetTraces();
  OnHook();
  // The number reaches the row of this call, and bars its recording.
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Previous digits expired", "5 [7] Remote: 987",
                   "5 [7] Not recording because in number filter", "5 [7] Recording stopped (0 s)"}),
            Log());
  EXPECT_EQ("UpdateActiveCallRemoteContact 1 NULL NULL 987", Queries()[1]);
  EXPECT_EQ("987", rLine.strPrevCallRemoteNum);  // for subclasses
}

TEST_F(BaseChannelCall, OptionalFunctionIsCalledAfterTheCallerIdWhenTheLibraryHasIt) {
  SsmClearR2callToneBuf_FP = ClearR2Tones;
  astrCallsAtR2.clear();
  OffHook();
  EXPECT_EQ(NOTHING, astrCallsAtR2);
  OnHook();
  EXPECT_EQ((Texts{"SsmClearCallerId(0)", "SsmClearR2callToneBuf(0)"}), astrCallsAtR2);
}

TEST_F(BaseChannelCall, FailedClearOfTheCallerIdIsNotReported) {
  simcards::FailNext("SsmClearCallerId", 1, -1, "no such channel");
  OffHook();
  (void)Log();
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops"}), Log());
}

TEST_F(BaseChannelCall, ShutdownEndsTheCallWithoutJudgingDigits) {
  rLine.BeOneThatIsDialledOn();
  CallerId("0180");
  PastCall(/*fIncoming=*/false);
  OffHook();
  CallerId("0170");
  Press("12");
  ForgetTraces();
  Seconds(5);
  rLine.EndOfCall();
  EXPECT_EQ(NOTHING, Log());
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), Cards());
  EXPECT_EQ((Texts{"DeleteActiveCall 2"}), Queries());
  EXPECT_EQ(rNow, rLine.rCallStopTime);           // for subclasses, as is the next
  EXPECT_EQ("0180", rLine.strPrevCallRemoteNum);  // no call comes that could ask for it
  Seconds(10);
  EXPECT_EQ(NOTHING, Log());  // no digits are left
  OffHook();
  EXPECT_EQ(Started("Outgoing call"), Log());  // the line was told to be free
  EXPECT_EQ("", Active("remote"));
}

// -- the whole road ---------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, KeptCallGoesFromTheFirstRingToTheFinishedRow) {
  const std::string strName = "/recordings/2024/01/31/14/20240131_142350_007_01.wav";
  InitLines({});
  Ring();
  Seconds(2);
  CallerId("0170");
  Seconds(3);
  OffHook();
  EXPECT_EQ((Texts{"5 [7] Remote: 0170", "5 [7] Call starts", "5 [7] Incoming call, ringing time: 5",
                   "5 [7] Starting recording", "5 [7] Recording to file " + strName}),
            Log());
  EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)"}), Cards());
  EXPECT_EQ(1U, ActiveRows());

  simcards::PlayCounting(DRIVER_CH);
  std::string strAudio;
  for (int k = 0; k < 6 * 2048; k++) strAudio += static_cast<char>(simcards::CountingByte(k));
  for (int i = 0; i < 6; i++) Hear(2048);
  Seconds(5);
  EXPECT_EQ(std::string("\0\x30\0\0", 4), ReadTestFile(strName).substr(52, 4));  // the header follows the call
  ForgetTraces();

  Seconds(30);
  OnHook();
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (35 s)"}), Log());
  EXPECT_EQ((Texts{"SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), Cards());
  EXPECT_EQ(0U, ActiveRows());
  ASSERT_EQ(1U, KeptRows());
  EXPECT_EQ("20240131_142350_007_01", Kept("remoteid"));
  EXPECT_EQ("0170", Kept("remote"));
  EXPECT_EQ("5", Kept("waittime"));
  EXPECT_EQ("35", Kept("duration"));
  EXPECT_EQ("0", Kept("direction"));
  EXPECT_EQ("RIFF" + std::string("\x30\x30\0\0", 4), ReadTestFile(strName).substr(0, 8));
  EXPECT_EQ(strAudio, AudioOf(strName));
  struct stat rStat = {};
  ASSERT_EQ(0, stat(strName.c_str(), &rStat));
  EXPECT_EQ(0777U, rStat.st_mode & 07777U);
}
