#include "BaseChannel.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>

#include "ChannelBench.h"
#include "shpa3link.h"

namespace {

const Texts NOTHING;
Texts astrR2Calls;  // of the optional function

int ClearR2Tones(int nCh) {
  astrR2Calls.push_back("SsmClearR2callToneBuf(" + std::to_string(nCh) + ")");
  return 0;
}

class BaseChannelCall : public ChannelBench {
 protected:
  BaseChannelCall() {
    (void)setenv("TZ", "UTC", 1);
    tzset();
    InitLine(rChannel, 7);
  }
  ~BaseChannelCall() override { SsmClearR2callToneBuf_FP = nullptr; }

  // The filter refuses all calls: what a call does then is this file's business alone.
  void RecordNothing() {
    rRecorder.iNumberFilterType = 2;
    rRecorder.astrNumberFilters = {"", "0170"};
  }
  void InCall(bool fInCall) {
    rChannel.fInCall_ChState = fInCall;
    rChannel.InCallMaybeChanged();
  }

  static constexpr const char* REFUSED = "5 [7] Not recording because in number filter";
  TestChannel rChannel;
};

}  // namespace

// -- ringing ---------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, FirstRingOpensACall) {
  rChannel.RingingStarted();
  EXPECT_TRUE(rChannel.fRinging);
  EXPECT_EQ(rNow, rChannel.rFirstRing);
  EXPECT_EQ(rNow, rChannel.rLastRing);
  EXPECT_EQ(1, rChannel.iNewRings);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelCall, PauseBetweenRingsSortsThemIntoCalls) {
  struct Row {
    int iPause;
    bool fNewCall;
  };
  const Row rRows[] = {{0, false}, {9, false}, {10, false}, {11, true}, {3600, true}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.iPause);
    rChannel.ClearInfo();
    rChannel.iNewRings = 0;
    rChannel.RingingStarted();
    const time_t rFirst = rNow;
    PassSeconds(2);
    rChannel.RingingStopped();
    EXPECT_FALSE(rChannel.fRinging);
    EXPECT_EQ(rNow, rChannel.rLastRing);
    PassSeconds(rRow.iPause);
    rChannel.RingingStarted();
    EXPECT_EQ(rRow.fNewCall ? rNow : rFirst, rChannel.rFirstRing);
    EXPECT_EQ(rRow.fNewCall ? 2 : 1, rChannel.iNewRings);
    EXPECT_EQ(rNow, rChannel.rLastRing);
  }
}

TEST_F(BaseChannelCall, FirstRingIsSetAnewWhenItIsMissing) {
  rChannel.rLastRing = rNow - 1;
  rChannel.RingingStarted();
  EXPECT_EQ(rNow, rChannel.rFirstRing);
  EXPECT_EQ(1, rChannel.iNewRings);
}

TEST_F(BaseChannelCall, FirstRingWithoutALastOneIsTheSameCall) {
  rChannel.rFirstRing = rNow - 30;
  rChannel.RingingStarted();
  EXPECT_EQ(rNow - 30, rChannel.rFirstRing);
  EXPECT_EQ(0, rChannel.iNewRings);
}

TEST_F(BaseChannelCall, StopWithoutRingDoesNothing) {
  rChannel.fRingsUntilPickup = true;
  rChannel.rFirstRing = 5;
  rChannel.strRemoteNum = "0170";
  rChannel.RingingStopped();
  EXPECT_EQ(0, rChannel.rLastRing);
  EXPECT_EQ(5, rChannel.rFirstRing);
  EXPECT_EQ("0170", rChannel.strRemoteNum);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelCall, CallerWhoGaveUpIsForgottenOnALineThatRingsUntilPickup) {
  rChannel.fRingsUntilPickup = true;
  rChannel.RingingStarted();
  rChannel.strRemoteNum = rChannel.strPrevRemoteNum = "0170";
  rChannel.rRemoteNumTime = rNow;
  PassSeconds(3);
  rChannel.RingingStopped();
  EXPECT_EQ((Texts{"5 [7] Ringing stopped, remote num. expired"}), logsink::TakeTexts());
  EXPECT_EQ(0, rChannel.rFirstRing);
  EXPECT_EQ(rNow, rChannel.rLastRing);
  EXPECT_EQ("", rChannel.strRemoteNum);
  EXPECT_EQ("", rChannel.strPrevRemoteNum);
  EXPECT_EQ(0, rChannel.rRemoteNumTime);
}

TEST_F(BaseChannelCall, EndOfRingInACallOrOnOtherLinesKeepsTheCaller) {
  struct Row {
    const char* acLabel;
    bool fRingsUntilPickup, fCallBusy;
  };
  const Row rRows[] = {{"line that stops ringing before pick-up", false, false},
                       {"the same in a call", false, true},
                       {"line that rings until pick-up, in a call", true, true}};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.fRingsUntilPickup = rRow.fRingsUntilPickup;
    rChannel.fCallBusy = rRow.fCallBusy;
    rChannel.fRinging = true;
    rChannel.rFirstRing = 5;
    rChannel.strRemoteNum = "0170";
    rChannel.RingingStopped();
    EXPECT_EQ(5, rChannel.rFirstRing);
    EXPECT_EQ("0170", rChannel.strRemoteNum);
    EXPECT_EQ(NOTHING, logsink::TakeTexts());
  }
}

TEST_F(BaseChannelCall, RingDuringACallMovesTheRingTimesOnly) {
  RecordNothing();
  rChannel.strRemoteNum = "0170";
  rChannel.rRemoteNumTime = rNow;
  InCall(true);
  (void)logsink::Take();
  PassSeconds(100);
  rChannel.RingingStarted();
  EXPECT_EQ("0170", rChannel.strRemoteNum);
  EXPECT_TRUE(rChannel.fCallBusy);
  EXPECT_EQ(rNow, rChannel.rFirstRing);
  EXPECT_EQ(rNow, rChannel.rLastRing);
  rChannel.RingingStopped();
  EXPECT_EQ("0170", rChannel.strRemoteNum);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

// -- age of the remote number ----------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, RemoteNumberOfElevenSecondsIsExpired) {
  struct Row {
    const char* acLabel;
    int iAge;
    bool fRinging, fCallBusy, fKept;
  };
  const Row rRows[] = {
      {"10 s", 10, false, false, true},
      {"11 s", 11, false, false, false},
      {"an hour while ringing", 3600, true, false, true},
      {"an hour in a call", 3600, false, true, true},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.fRinging = rRow.fRinging;
    rChannel.fCallBusy = rRow.fCallBusy;
    rChannel.strRemoteNum = rChannel.strPrevRemoteNum = "0170";
    rChannel.rRemoteNumTime = rNow;
    PassSeconds(rRow.iAge);
    EXPECT_EQ(rRow.fRinging ? rNow : rNow - rRow.iAge, rChannel.GetRemoteNumTime());
    rChannel.CheckRemoteExpired();
    EXPECT_EQ(rRow.fKept ? "0170" : "", rChannel.strRemoteNum);
    EXPECT_EQ(rRow.fKept ? "0170" : "", rChannel.strPrevRemoteNum);
    EXPECT_EQ(rRow.fKept ? rNow - rRow.iAge : 0, rChannel.rRemoteNumTime);
    EXPECT_EQ(rRow.fKept ? NOTHING : Texts{"5 [7] Remote expired, 11 seconds old"}, logsink::TakeTexts());
  }
}

TEST_F(BaseChannelCall, RingDropsNoNumberByItself) {
  rChannel.strRemoteNum = "0170";
  rChannel.rRemoteNumTime = rNow;
  PassSeconds(3600);
  rChannel.RingingStarted();
  EXPECT_EQ("0170", rChannel.strRemoteNum);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelCall, NumberWithoutTimeDoesNotExpire) {
  rChannel.strRemoteNum = "0170";
  rChannel.CheckRemoteExpired();
  EXPECT_EQ("0170", rChannel.strRemoteNum);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelCall, OldNumberIsNotTakenForTheCallThatStarts) {
  for (const int iAge : {10, 11}) {
    SCOPED_TRACE(iAge);
    RecordNothing();
    rChannel.strRemoteNum = "0170";
    rChannel.rRemoteNumTime = rNow;
    PassSeconds(iAge);
    InCall(true);
    EXPECT_EQ(iAge == 10 ? "0170" : "", rChannel.strRemoteNum);
    EXPECT_EQ(iAge == 10 ? (Texts{"5 [7] Call starts", "5 [7] Outgoing call", REFUSED})
                         : (Texts{"5 [7] Call starts", "5 [7] Remote expired, 11 seconds old", "5 [7] Outgoing call",
                                  REFUSED}),
              logsink::TakeTexts());
    InCall(false);
    (void)logsink::Take();
  }
}

TEST_F(BaseChannelCall, NumberThatCameWhileRingingIsKeptAtAnyAge) {
  RecordNothing();
  rChannel.RingingStarted();
  rChannel.strRemoteNum = "0170";
  rChannel.rRemoteNumTime = rNow;
  PassSeconds(90);
  InCall(true);
  EXPECT_EQ("0170", rChannel.strRemoteNum);
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Incoming call, ringing time: 90", REFUSED}), logsink::TakeTexts());
}

// -- direction -------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, DirectionIsGuessedFromRingsAndDigits) {
  struct Row {
    const char* acLabel;
    bool fRinging, fRingsUntilPickup;
    int iLastRingAgo, iDigitAgo;  // -1: never
    bool fIncoming;
    const char* acLine;
    int iWaitTime;
  };
  const Row rRows[] = {
      {"nothing rang", false, false, -1, -1, false, "5 [7] Outgoing call", -1},
      {"ringing now", true, false, 2, -1, true, "5 [7] Incoming call, ringing time: 20", 20},
      {"ringing now, with a digit", true, false, 2, 1, true, "5 [7] Incoming call, ringing time: 20", 20},
      {"rang 3 s ago", false, false, 3, -1, true, "5 [7] Incoming, last ring: 3 s. ago", 20},
      {"rang 5 s ago", false, false, 5, -1, true, "5 [7] Incoming, last ring: 5 s. ago", 20},
      {"rang 6 s ago", false, false, 6, -1, false, "5 [7] Outgoing call", -1},
      {"rang 3 s ago, digit 5 s ago", false, false, 3, 5, false, "5 [7] Outgoing call", -1},
      {"rang 3 s ago, digit 10 s ago", false, false, 3, 10, false, "5 [7] Outgoing call", -1},
      {"rang 3 s ago, digit 11 s ago", false, false, 3, 11, true, "5 [7] Incoming, last ring: 3 s. ago", 20},
      {"rings until pick-up, rang 3 s ago", false, true, 3, -1, false, "5 [7] Outgoing call", -1},
      {"rings until pick-up, ringing now", true, true, 0, -1, true, "5 [7] Incoming call, ringing time: 20", 20},
  };
  RecordNothing();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.ClearInfo();
    rChannel.fIncoming = !rRow.fIncoming;  // of the call before
    rChannel.fDigitFreeze = true;
    rChannel.fRinging = rRow.fRinging;
    rChannel.fRingsUntilPickup = rRow.fRingsUntilPickup;
    rChannel.rFirstRing = rRow.iLastRingAgo < 0 ? 0 : rNow - 20;
    rChannel.rLastRing = rRow.iLastRingAgo < 0 ? 0 : rNow - rRow.iLastRingAgo;
    rChannel.rDigitTime = rRow.iDigitAgo < 0 ? 0 : rNow - rRow.iDigitAgo;
    rChannel.WhenCallStarts();
    EXPECT_EQ(rRow.fIncoming, rChannel.fIncoming);
    EXPECT_EQ(rRow.iWaitTime, rChannel.iWaitTime);
    EXPECT_EQ((Texts{rRow.acLine, REFUSED}), logsink::TakeTexts());
    EXPECT_FALSE(rChannel.fDigitFreeze);
  }
}

TEST_F(BaseChannelCall, KnownDirectionIsNotGuessed) {
  RecordNothing();
  rChannel.fKnowIncoming = true;
  rChannel.fIncoming = false;
  rChannel.fRinging = true;
  rChannel.WhenCallStarts();
  EXPECT_FALSE(rChannel.fIncoming);
  EXPECT_EQ((Texts{"5 [7] Outgoing call", REFUSED}), logsink::TakeTexts());
  rChannel.fIncoming = true;
  rChannel.fRinging = false;
  rChannel.WhenCallStarts();
  EXPECT_TRUE(rChannel.fIncoming);
  EXPECT_EQ((Texts{"5 [7] Incoming call, ringing time: -1", REFUSED}), logsink::TakeTexts());
}

TEST_F(BaseChannelCall, WaitTimeCountsFromTheFirstRingOfAnIncomingCall) {
  rChannel.rFirstRing = rNow - 12;
  rChannel.fIncoming = true;
  EXPECT_EQ(12, rChannel.GetWaitTime());
  rChannel.rFirstRing = 0;
  EXPECT_EQ(-1, rChannel.GetWaitTime());
  rChannel.fIncoming = false;
  rChannel.rFirstRing = rNow - 12;
  EXPECT_EQ(-1, rChannel.GetWaitTime());
}

// -- start and stop --------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, UnchangedAnswerDoesNothing) {
  RecordNothing();
  InCall(false);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  InCall(true);
  EXPECT_EQ((Texts{"5 [7] Call starts", "5 [7] Outgoing call", REFUSED}), logsink::TakeTexts());
  InCall(true);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  InCall(false);
  EXPECT_EQ((Texts{"5 [7] Call stops"}), logsink::TakeTexts());
  InCall(false);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelCall, CallThatIsNotRecordedFollowsTheLineAllTheSame) {
  RecordNothing();
  rChannel.RingingStarted();
  PassSeconds(4);
  rChannel.strRemoteNum = "0170";
  InCall(true);
  EXPECT_TRUE(rChannel.fCallBusy);
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_EQ(-1, rChannel.iActiveCallID);
  EXPECT_EQ(4, rChannel.iWaitTime);
  PassSeconds(30);
  InCall(false);
  EXPECT_FALSE(rChannel.fCallBusy);
  EXPECT_EQ(rNow, rChannel.rCallStopTime);
  EXPECT_EQ("0170", rChannel.strPrevCallRemoteNum);
  EXPECT_EQ("", rChannel.strRemoteNum);
  EXPECT_EQ(0, rChannel.rFirstRing);
  EXPECT_EQ(0, rChannel.rLastRing);
  EXPECT_FALSE(rChannel.fRinging);
  EXPECT_EQ(-1, rChannel.iWaitTime);
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), simcards::TakeCalls());
  EXPECT_EQ(NOTHING, rRecorder.rDatabase.TakeCalls());
}

TEST_F(BaseChannelCall, LostCallLeavesItsRingTimes) {
  rChannel.RingingStarted();
  PassSeconds(2);
  rChannel.RingingStopped();
  PassSeconds(60);
  EXPECT_EQ(rNow - 62, rChannel.rFirstRing);
  EXPECT_EQ(rNow - 60, rChannel.rLastRing);
}

TEST_F(BaseChannelCall, DigitsAreJudgedWhileTheCallIsStillBusy) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"987"};
  InCall(true);
  rChannel.fUsePressedDigitsForRemote = true;
  for (const char ch : std::string("987")) rChannel.DetectedDigit(ch);
  ForgetTraces();
  InCall(false);
  // The number reaches the row of this call, and bars its recording.
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Previous digits expired", "5 [7] Remote: 987", REFUSED,
                   "5 [7] Recording stopped (0 s)"}),
            logsink::TakeTexts());
  EXPECT_EQ("UpdateActiveCallRemoteContact 1 NULL NULL 987", rRecorder.rDatabase.TakeCalls()[1]);
  EXPECT_EQ("987", rChannel.strPrevCallRemoteNum);
}

TEST_F(BaseChannelCall, OptionalFunctionIsCalledAfterTheCallerIdWhenTheLibraryHasIt) {
  astrR2Calls.clear();
  rChannel.WhenCallStops();
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), simcards::TakeCalls());
  EXPECT_EQ(NOTHING, astrR2Calls);
  SsmClearR2callToneBuf_FP = ClearR2Tones;
  rChannel.WhenCallStops();
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), simcards::TakeCalls());
  EXPECT_EQ((Texts{"SsmClearR2callToneBuf(0)"}), astrR2Calls);
}

TEST_F(BaseChannelCall, FailedClearOfTheCallerIdIsNotReported) {
  simcards::FailNext("SsmClearCallerId", 1, -1, "no such channel");
  rChannel.WhenCallStops();
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
}

TEST_F(BaseChannelCall, ShutdownEndsTheCallWithoutJudgingDigits) {
  RecordNothing();
  InCall(true);
  rChannel.strPrevCallRemoteNum = "of the call before";
  rChannel.strRemoteNum = "0170";
  rChannel.strDigits = "12";
  rChannel.fUsePressedDigitsForRemote = true;
  ForgetTraces();
  PassSeconds(5);
  rChannel.EndOfCall();
  EXPECT_FALSE(rChannel.fCallBusy);
  EXPECT_EQ(rNow, rChannel.rCallStopTime);
  EXPECT_EQ("of the call before", rChannel.strPrevCallRemoteNum);
  EXPECT_EQ("", rChannel.strRemoteNum);
  EXPECT_EQ("", rChannel.strDigits);
  EXPECT_EQ(NOTHING, logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmClearCallerId(0)"}), simcards::TakeCalls());
}

// -- the whole road --------------------------------------------------------------------------------------------------

TEST_F(BaseChannelCall, KeptCallGoesFromTheFirstRingToTheFinishedRow) {
  rChannel.RingingStarted();
  PassSeconds(2);
  rChannel.strRemoteNum = "0170";
  rChannel.RemoteNumberChanged();
  PassSeconds(3);
  InCall(true);
  EXPECT_EQ((Texts{"5 [7] Remote: 0170", "5 [7] Call starts", "5 [7] Incoming call, ringing time: 5",
                   "5 [7] Starting recording",
                   "5 [7] Recording to file /recordings/1970/01/12/13/19700112_134645_007_01.wav"}),
            logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmRecToMem(0,6,4096,0)"}), simcards::TakeCalls());
  EXPECT_EQ(1, rChannel.iActiveCallID);
  EXPECT_EQ(1U, rRecorder.rDatabase.rTables["ActiveCalls"].count(1));

  simcards::PlayCounting(0);
  std::string strAudio;
  for (int i = 0; i < 6; i++) {
    simcards::Advance(2048);
    SSM_EVENT rEvent;
    char acBuffer[1024];
    rEvent.pvBuffer = acBuffer;
    rEvent.dwBufferLength = sizeof acBuffer;
    while (SsmWaitForEventA(0, &rEvent) == SSM_OK) rChannel.DefaultEventHandle(&rEvent);
  }
  for (int k = 0; k < 6 * 2048; k++) strAudio += static_cast<char>(simcards::CountingByte(k));
  for (int i = 0; i < 5; i++) Tick(rChannel);
  const std::string strName = rChannel.strFullFilename;
  EXPECT_EQ(std::string("\0\x30\0\0", 4), FileBytes(strName).substr(52, 4));
  ForgetTraces();

  PassSeconds(30);
  InCall(false);
  EXPECT_EQ((Texts{"5 [7] Call stops", "5 [7] Recording stopped (35 s)"}), logsink::TakeTexts());
  EXPECT_EQ((Texts{"SsmStopRecToMem(0)", "SsmClearCallerId(0)"}), simcards::TakeCalls());
  EXPECT_EQ(-1, rChannel.iActiveCallID);
  EXPECT_EQ("", rChannel.strRemoteNum);
  EXPECT_EQ(0U, rRecorder.rDatabase.rTables["ActiveCalls"].size());
  ASSERT_EQ(1U, rRecorder.rDatabase.rTables["Calls"].size());
  const StdStringMap& rRow = rRecorder.rDatabase.rTables["Calls"].begin()->second;
  EXPECT_EQ("19700112_134645_007_01", rRow.at("remoteid"));
  EXPECT_EQ("0170", rRow.at("remote"));
  EXPECT_EQ("5", rRow.at("waittime"));
  EXPECT_EQ("35", rRow.at("duration"));
  EXPECT_EQ("0", rRow.at("direction"));

  const std::string strFile = FileBytes("/recordings/1970/01/12/13/19700112_134645_007_01.wav");
  EXPECT_EQ("RIFF" + std::string("\x30\x30\0\0", 4), strFile.substr(0, 8));
  EXPECT_EQ(strAudio, strFile.substr(56));
  struct stat rStat = {};
  ASSERT_EQ(0, stat(strName.c_str(), &rStat));
  EXPECT_EQ(0777U, rStat.st_mode & 07777U);
}
