// Whether a call is recorded: filter, schedule, demand, and the orders of a running call.
#include "CallBench.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testtools::Exists;

namespace {

class BaseChannelDecide : public CallBench {
 protected:
  static constexpr const char* FIRST_PART = "/recordings/2024/01/31/14/20240131_142345_007_01.wav";

  // The line has all three numbers: "local", "remote", "connected".
  void GiveNumbers() {
    (void)rLine.ChangeLocalNum("local");
    CallerId("remote");
    rLine.ConnectedTo("connected");
    ForgetTraces();
  }
  // The log of a call that starts from here and is not, or is, recorded.
  static Texts Started(const Texts& astrRest) {
    Texts astrLog = {"5 [7] Call starts", "5 [7] Outgoing call"};
    astrLog.insert(astrLog.end(), astrRest.begin(), astrRest.end());
    return astrLog;
  }
  static Texts Recorded(const char* acFile = FIRST_PART) {
    return Started({"5 [7] Starting recording", std::string("5 [7] Recording to file ") + acFile});
  }
};

TEST_F(BaseChannelDecide, NumberFilter) {
  const char* const acIn = "5 [7] Not recording because in number filter";
  const char* const acNotIn = "5 [7] Not recording because not in number filter";
  const char* const acPassed = "5 [7] Recording on demand";
  const struct {
    const char* acLabel;
    int iType;
    const char* acListed;
    const char* acLog;
  } rRows[] = {
      {"no filter", 0, "remote", acPassed},
      {"type 2 refuses the local number", 2, "local", acIn},
      {"type 2 refuses the remote number", 2, "remote", acIn},
      {"type 2 refuses the connected number", 2, "connected", acIn},
      {"type 2 lets others pass", 2, "remot", acPassed},
      {"type 1 lets the local number pass", 1, "local", acPassed},
      {"type 1 lets the remote number pass", 1, "remote", acPassed},
      {"type 1 lets the connected number pass", 1, "connected", acPassed},
      {"type 1 refuses others", 1, "remote2", acNotIn},
      {"any other type is like type 1", -3, "remote", acPassed},
      {"any other type refuses others", 99, "", acNotIn},
      {"so does a negative one", -3, "", acNotIn},
  };
  InitLines({{"RecOnDmd", "1"}});
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.iNumberFilterType = rRow.iType;
    rRecorder.astrNumberFilters = {"other", rRow.acListed};
    GiveNumbers();
    const bool fMay = rRow.acLog == acPassed;
    EXPECT_EQ(rLine.MayStartRecording(/*fTell=*/false), fMay);
    EXPECT_THAT(Log(), IsEmpty());
    OffHook();
    EXPECT_EQ(Log(), Started({rRow.acLog}));
    EXPECT_EQ(ActiveRows(), fMay ? 1u : 0u);
    OnHook();
  }
}

TEST_F(BaseChannelDecide, EmptyNumberMatchesAnEmptyFilterItem) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {""};
  CallerId("0301234");
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Not recording because in number filter"}));  // by the empty local number
}

TEST_F(BaseChannelDecide, ScheduleAsksTheRealClock) {
  SetSimTime(CALL_START + 3L * 24 * 3600);  // a Saturday, on the frozen clock alone
  SetConfig("srWeekdays", "7");
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Recording not scheduled"}));
  OnHook();
  (void)Log();
  SetConfig("srWeekdays", "4");
  OffHook();
  EXPECT_EQ(Log(), Recorded("/recordings/2024/02/03/14/20240203_142345_007_01.wav"));
}

TEST_F(BaseChannelDecide, ScheduleIsReadFromItsPartAtEachDecision) {
  rDatabase.rParts["crec"]["srWeekdays"] = "x";
  OffHook();
  EXPECT_EQ(Log(), Recorded());
  OnHook();
  (void)Log();
  SetConfig("srWeekdays", "x");
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Recording not scheduled"}));
}

TEST_F(BaseChannelDecide, UnreachableDatabaseCountsAsNoSchedule) {
  SetConfig("srWeekdays", "x");
  rDatabase.fDown = true;
  OffHook();
  EXPECT_EQ(Log(), Recorded());
}

// -- the way into a recording -----------------------------------------------------------------------------------------

TEST_F(BaseChannelDecide, PlainCallIsRecordedAndGetsItsRow) {
  rDatabase.fNoteReads = true;
  OffHook();
  EXPECT_EQ(Log(), Recorded());
  EXPECT_THAT(Queries(), ElementsAre("GetConfigsPart o", "GetOrCreateLineContact 7 ''", "GetCustomLocal 1007",
                                     "GetOrCreateLineContact 7 ''", "GetCallerIDContact ", "Add ActiveCalls 1"));
  EXPECT_THAT(Cards(), ElementsAre("SsmRecToMem(0,6,4096,0)"));
  EXPECT_THAT(Orders(), IsEmpty());
  EXPECT_EQ(Active("remoteid"), "20240131_142345_007_01");
  EXPECT_EQ(Active("startdate"), "1706711025");
  EXPECT_EQ(Active("encoding"), "554");
  EXPECT_EQ(Active("isarchived"), "1");
  EXPECT_TRUE(Exists(FIRST_PART));
}

TEST_F(BaseChannelDecide, EachRecordingIsReadFromTheStartOfTheRing) {
  simcards::PlayCounting(DRIVER_CH);
  for (const char* acPart : {FIRST_PART, "/recordings/2024/01/31/14/20240131_142345_007_02.wav"}) {
    OffHook();
    Hear(2048);
    OnHook();
    const std::string strAudio = AudioOf(acPart);
    ASSERT_EQ(strAudio.size(), 2048u);
    for (int k = 0; k < 2048; k++) {
      ASSERT_EQ(strAudio[static_cast<std::size_t>(k)], static_cast<char>(simcards::CountingByte(k))) << k;
    }
  }
}

TEST_F(BaseChannelDecide, EncodingFollowsTheLawOfTheCall) {
  const struct {
    const char* acLabel;
    ERecEncodings eRecEnc;
    const char* acEncoding;
    const char* acDriverCall;
  } rRows[] = {
      {"A-law", RECENC_G711A, "554", "SsmRecToMem(0,6,4096,0)"},
      {"mu-law", RECENC_G711U, "555", "SsmRecToMem(0,7,4096,0)"},
      {"GSM is made of A-law later", RECENC_GSM, "554", "SsmRecToMem(0,6,4096,0)"},
      {"MP3 is made of A-law later", RECENC_MP3, "554", "SsmRecToMem(0,6,4096,0)"},
  };
  SetConfig("RecMinDur", "1");  // nothing is kept, so nothing is made later
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    ForgetTraces();
    OffHook();
    EXPECT_EQ(Active("encoding"), rRow.acEncoding);
    EXPECT_THAT(Cards(), ElementsAre(rRow.acDriverCall));
    OnHook();
  }
}

TEST_F(BaseChannelDecide, RunningRecordingIsNotStartedTwice) {
  OffHook();
  ForgetTraces();
  Seconds(3);
  rLine.TryStartRecording();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Already recording"));
  EXPECT_THAT(Queries(), IsEmpty());
  Seconds(4);
  OnHook();
  EXPECT_EQ(Kept("duration"), "7");
  EXPECT_EQ(Kept("remoteid"), "20240131_142345_007_01");
}

TEST_F(BaseChannelDecide, NothingRecordsWithoutACall) {
  const char* const acNoCall = "5 [7] No active call for this channel";
  InitLines({{"RecOnDmd", "1"}});
  for (const bool fAfterACall : {false, true}) {
    SCOPED_TRACE(fAfterACall);
    if (fAfterACall) {
      OffHook();
      OnHook();
    }
    ForgetTraces();
    rLine.TryStartRecording();
    EXPECT_THAT(Log(), ElementsAre(acNoCall));
    EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));
    EXPECT_THAT(Log(), ElementsAre("5 [7] RecOnDmd: START", acNoCall));
    EXPECT_TRUE(rLine.LocalNumberChanged(fAfterACall ? "23" : "22", "", /*stopstart=*/true));
    EXPECT_EQ(Log().back(), acNoCall);
    EXPECT_THAT(Cards(), IsEmpty());
    EXPECT_THAT(Queries(), IsEmpty());
    EXPECT_FALSE(Exists(FIRST_PART));
  }
}

TEST_F(BaseChannelDecide, WaitingCallIsNotStartedTwice) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  ForgetTraces();
  CallerId("0301234");  // asks for the recording again
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Call already active"));
  EXPECT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(Active("remoteid"), "20240131_142345_007_01");
}

TEST_F(BaseChannelDecide, FilteredCallLeavesNoTrace) {
  rRecorder.iNumberFilterType = 1;
  SetConfig("srWeekdays", "x");  // is not asked
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Not recording because not in number filter"}));
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(Cards(), IsEmpty());
  EXPECT_EQ(rLine.rStartTime, 0);  // station lines read it
  OnHook();
  rRecorder.iNumberFilterType = 0;
  SetConfig("srWeekdays", "");
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Recorded());  // the first of this line
}

TEST_F(BaseChannelDecide, UnscheduledCallGetsNoRow) {
  SetConfig("srWeekdays", "x");
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Recording not scheduled"}));
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(Cards(), IsEmpty());
  EXPECT_EQ(rLine.rStartTime, rNow);   // station lines read it
  EXPECT_EQ(rLine.strDbRemoteId, "");  // no order finds a call here
  OnHook();
  SetConfig("srWeekdays", "");
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Recorded());  // the first of this line
}

TEST_F(BaseChannelDecide, IdEndsWithTheCall) {
  const struct {
    const char* acLabel;
    void (*Bar)(FakeRecorder& rTheRecorder);
  } rRows[] = {
      {"kept", [](FakeRecorder& /*rTheRecorder*/) {}},
      {"too short, so that its numbers stay",
       [](FakeRecorder& rTheRecorder) { rTheRecorder.rDatabase.rParts["o"]["RecMinDur"] = "10"; }},
      {"the card refuses to stop",
       [](FakeRecorder& /*rTheRecorder*/) { simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel"); }},
  };
  for (const auto& rRow : rRows) {
    for (const bool fShutdown : {false, true}) {
      SCOPED_TRACE(rRow.acLabel);
      OffHook();
      const std::string strId = rLine.strDbRemoteId;
      EXPECT_EQ(strId, Active("remoteid"));
      rRow.Bar(rRecorder);
      if (fShutdown) {
        rLine.EndOfCall();
      } else {
        OnHook();
      }
      EXPECT_EQ(rLine.strDbRemoteId, "");
      OnHook();
    }
  }
  EXPECT_EQ(Kept("remoteid"), "20240131_142345_007_02");  // with the row it had gone before
}

TEST_F(BaseChannelDecide, CallThatIsNotRecordedHasNoId) {
  OffHook();
  OnHook();
  rRecorder.iNumberFilterType = 1;
  OffHook();
  EXPECT_EQ(rLine.strDbRemoteId, "");
}

TEST_F(BaseChannelDecide, EachRecordingCountsItsSecondsFromTheStart) {
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  OffHook();
  Seconds(30);
  OnHook();
  OffHook();
  (void)Log();
  Seconds(59);
  EXPECT_THAT(Log(), IsEmpty());
  Seconds(1);
  EXPECT_EQ(Log().back(), "5 [7] 1 minutes of recording saved!");
}

TEST_F(BaseChannelDecide, CallOnDemandWaitsWithARowAndNoAudio) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Recording on demand"}));
  EXPECT_THAT(Cards(), IsEmpty());
  EXPECT_FALSE(Exists(FIRST_PART));
  EXPECT_EQ(Active("encoding"), "0");
  EXPECT_EQ(Active("isarchived"), "0");
  EXPECT_EQ(Active("remoteid"), "20240131_142345_007_01");
}

TEST_F(BaseChannelDecide, RefusedDriverStartGoesOnWithoutAudio) {
  rLine.LinkWith(LINKED_CH);
  simcards::FailNext("SsmRecToMem", 1, -1, "channel is busy");
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Starting recording", "3 Error in SsmRecToMem: channel is busy"}));
  EXPECT_THAT(Orders(), IsEmpty());
  EXPECT_TRUE(Exists(FIRST_PART));
  EXPECT_EQ(Active("isarchived"), "1");
  Seconds(5);
  OnHook();
  EXPECT_EQ(Kept("duration"), "5");
}

TEST_F(BaseChannelDecide, LinkedChannelIsMixedInOnceTheDriverRuns) {
  rLine.LinkWith(LINKED_CH);
  OffHook();
  EXPECT_THAT(Orders(), ElementsAre("MixIn 0 1"));
  EXPECT_THAT(Cards(), ElementsAre("SsmRecToMem(0,6,4096,0)", "SsmRecToMem(1,6,4096,0)"));
  EXPECT_EQ(Log(), Started({"5 [7] Starting recording", "5 {1} Mixing this channel to {0}",
                            std::string("5 [7] Recording to file ") + FIRST_PART}));
}

TEST_F(BaseChannelDecide, CustomIdentityHoldsForAMinute) {
  const struct {
    const char* acLabel;
    int iAge;
    const char* acLocal;
    const char* acLog;
  } rRows[] = {
      {"fresh", 0, "Zo\xc3\xab", "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:0 (1)"},
      {"a minute old", 60, "Zo\xc3\xab", "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:60 (1)"},
      {"a second more", 61, "", "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:61 (0)"},
      {"of the future", -3600, "Zo\xc3\xab", "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:-3600 (1)"},
  };
  SetSimTime(CALL_START + 3600);  // the age counts by the real clock
  CallerIdContact& rCustom = rDatabase.rCustomLocals[1007];
  rCustom.fFound = true;
  rCustom.iContactID = 63;
  rCustom.iCallerID = 53;
  rCustom.strText = "Zo\xc3\xab";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rCustom.iUpdateTime = CALL_START - rRow.iAge;
    OffHook();
    const Texts astrLog = Log();
    ASSERT_EQ(astrLog.size(), 5u);
    EXPECT_EQ(astrLog[2], "5 [7] Starting recording");
    EXPECT_EQ(astrLog[3], rRow.acLog);
    EXPECT_EQ(Active("local"), rRow.acLocal);
    OnHook();
    (void)Log();
  }
}

TEST_F(BaseChannelDecide, IdentityThatIsGoneIsForgottenWithTheNextRecording) {
  CallerIdContact& rCustom = rDatabase.rCustomLocals[1007];
  rCustom.fFound = true;
  rCustom.strText = "22";
  rCustom.iUpdateTime = CALL_START;
  OffHook();
  EXPECT_EQ(Active("local"), "22");
  OnHook();
  rDatabase.rCustomLocals.clear();
  OffHook();
  EXPECT_EQ(Active("local"), "");
}

// -- on demand --------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelDecide, RecordingOnDemandByNumber) {
  const char* const acOnDemand = "5 [7] Recording on demand";
  const char* const acRecorded = "5 [7] Starting recording";
  const struct {
    const char* acLabel;
    int iType;
    const char* acListed;
    const char* acLog;
  } rRows[] = {
      {"off", 0, "remote", acRecorded},
      {"all calls", 1, "", acOnDemand},
      {"listed local number", 2, "local", acOnDemand},
      {"listed connected number", 2, "connected", acOnDemand},
      {"listed remote number", 2, "remote", acOnDemand},
      {"not listed", 2, "remote2", acRecorded},
      {"type 3 is like type 2", 3, "local", acOnDemand},
      {"type 3, not listed", 3, "", acRecorded},
      {"the line is no number here", 2, "#7", acRecorded},
      {"any other type is off", 4, "remote", acRecorded},
      {"a negative type is off", -1, "remote", acRecorded},
  };
  rLine.BeOnDemandByNumber();
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.iRecOnDmdType = rRow.iType;
    rRecorder.astrRecOnDmdList = {"other", rRow.acListed};
    GiveNumbers();
    OffHook();
    EXPECT_EQ(Log()[2], rRow.acLog);
    OnHook();
  }
}

TEST_F(BaseChannelDecide, DeletionOnDemandByNumberOrLine) {
  const char* const acOff = "5 [7] delete on demand is switched off in options";
  const char* const acNotListed = "5 [7] not in delete on demand list";
  const char* const acDone = "5 [7] Recording stopped (0 s)";
  const struct {
    const char* acLabel;
    int iType;
    const char* acListed;
    bool fMay;
    const char* acLog;
  } rRows[] = {
      {"off", 0, "remote", false, acOff},
      {"all calls", 1, "", true, acDone},
      {"listed local number", 2, "local", true, acDone},
      {"listed connected number", 2, "connected", true, acDone},
      {"listed remote number", 2, "remote", true, acDone},
      {"listed line", 2, "#7", true, acDone},
      {"a line needs its mark", 2, "7", false, acNotListed},
      {"not listed", 2, "remote2", false, acNotListed},
      {"type 3 is like type 2", 3, "#7", true, acDone},
      {"type 3, not listed", 3, "", false, acNotListed},
      {"any other type is off without a word", 4, "remote", false, nullptr},
      {"a negative type too", -1, "remote", false, nullptr},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.iDelOnDmdType = rRow.iType;
    rRecorder.astrDelOnDmdList = {"other", rRow.acListed};
    GiveNumbers();
    OffHook();
    (void)Log();
    EXPECT_EQ(rLine.DeleteAct(), rRow.fMay);
    EXPECT_EQ(Log(), rRow.acLog ? Texts{rRow.acLog} : Texts{});
    EXPECT_EQ(ActiveRows(), rRow.fMay ? 0u : 1u);
    OnHook();
  }
}

TEST_F(BaseChannelDecide, DeletedCallIsNotRecordedAgain) {
  rRecorder.iDelOnDmdType = 1;
  OffHook();
  Seconds(10);
  (void)Log();
  EXPECT_TRUE(rLine.DeleteAct());
  EXPECT_THAT(Log(), ElementsAre("5 [7] Recording stopped (10 s)"));
  EXPECT_FALSE(Exists(FIRST_PART));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  for (const int iFilterType : {0, 1}) {
    rRecorder.iNumberFilterType = iFilterType;
    CallerId("0301234");  // asks for a recording again, and the filter not even that
    EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234"));
  }
  rRecorder.iNumberFilterType = 0;
  OnHook();
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Recorded("/recordings/2024/01/31/14/20240131_142355_007_02.wav"));
}

TEST_F(BaseChannelDecide, RefusedDeletionChangesNothing) {
  OffHook();
  Seconds(10);
  EXPECT_FALSE(rLine.DeleteAct());
  EXPECT_EQ(ActiveRows(), 1u);
  OnHook();
  EXPECT_EQ(Kept("duration"), "10");
}

TEST_F(BaseChannelDecide, DeletionWhileWaitingBarsALaterDemand) {
  rRecorder.iDelOnDmdType = 1;
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  EXPECT_TRUE(rLine.DeleteAct());
  EXPECT_EQ(ActiveRows(), 0u);
  ForgetTraces();
  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));
  EXPECT_THAT(Log(), ElementsAre("5 [7] RecOnDmd: START"));
  EXPECT_EQ(ActiveRows(), 0u);
}

TEST_F(BaseChannelDecide, DemandWithoutTheOptionIsRefused) {
  OffHook();
  ForgetTraces();
  for (const bool fStart : {false, true}) {
    EXPECT_FALSE(rLine.RecOnDmdAct(fStart));
    EXPECT_THAT(Log(), ElementsAre("5 [7] RecOnDmd not done, the option is off"));
  }
  EXPECT_THAT(Cards(), IsEmpty());
}

TEST_F(BaseChannelDecide, DemandStartsAndEndsWithNewIdsAndRows) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  ForgetTraces();

  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));
  EXPECT_THAT(Log(), ElementsAre("5 [7] RecOnDmd: START", "5 [7] Starting recording",
                                 "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_02.wav"));
  EXPECT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(Active("remoteid"), "20240131_142345_007_02");
  EXPECT_EQ(Active("encoding"), "554");
  Seconds(4);

  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/false));
  EXPECT_THAT(Log(), ElementsAre("5 [7] RecOnDmd: STOP", "5 [7] Recording stopped (4 s)", "5 [7] Recording on demand"));
  EXPECT_EQ(KeptRows(), 1u);
  EXPECT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(Active("remoteid"), "20240131_142349_007_03");
  EXPECT_EQ(Active("encoding"), "0");
  EXPECT_EQ(Active("isarchived"), "0");
}

TEST_F(BaseChannelDecide, DemandHoldsForOnePart) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));
  OnHook();
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Recording on demand"}));
}

TEST_F(BaseChannelDecide, DemandWithoutACallIsForgotten) {
  InitLines({{"RecOnDmd", "1"}});
  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Started({"5 [7] Recording on demand"}));
}

TEST_F(BaseChannelDecide, DeletionWithoutACallBarsNone) {
  rRecorder.iDelOnDmdType = 1;
  EXPECT_TRUE(rLine.DeleteAct());
  (void)Log();
  OffHook();
  EXPECT_EQ(Log(), Recorded());
}

TEST_F(BaseChannelDecide, RepeatedDemandChangesNothing) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  for (const bool fStart : {false, true}) {
    (void)rLine.RecOnDmdAct(fStart);
    const StdStringMap rRow = ActiveRow();
    ForgetTraces();
    EXPECT_TRUE(rLine.RecOnDmdAct(fStart));
    EXPECT_THAT(Log(), ElementsAre(fStart ? "5 [7] RecOnDmd: START" : "5 [7] RecOnDmd: STOP"));
    EXPECT_THAT(Queries(), IsEmpty());
    EXPECT_THAT(Cards(), IsEmpty());
    EXPECT_EQ(ActiveRow(), rRow);
  }
}

// -- silencing --------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelDecide, SilencingWithoutTheOptionIsRefused) {
  simcards::PlayCounting(DRIVER_CH);
  OffHook();
  ForgetTraces();
  for (const bool fToSet : {false, true}) {
    EXPECT_FALSE(rLine.TrySetSilencing(fToSet));
    EXPECT_THAT(Log(), ElementsAre("5 [7] Silencing not set, silence on demand is off"));
  }
  EXPECT_THAT(Queries(), IsEmpty());
  Hear(2048);
  EXPECT_EQ(AudioOf(FIRST_PART).substr(0, 1), std::string(1, static_cast<char>(simcards::CountingByte(0))));
}

TEST_F(BaseChannelDecide, SilencingIsHeardAndNotedInTheRow) {
  rRecorder.fSilenceOnDemand = true;
  simcards::PlayCounting(DRIVER_CH);
  OffHook();
  ForgetTraces();
  EXPECT_TRUE(rLine.TrySetSilencing(true));
  Hear(2048);
  EXPECT_TRUE(rLine.TrySetSilencing(false));
  Hear(2048);
  EXPECT_THAT(Log(), ElementsAre("5 [7] Silencing set to 1", "5 [7] Silencing set to 0"));
  EXPECT_THAT(Queries(), ElementsAre("SetActiveCallExtra 1 silencing=1", "SetActiveCallExtra 1 silencing=0"));
  EXPECT_EQ(AudioOf(FIRST_PART).substr(0, 2048), std::string(2048, '\xd5'));
  EXPECT_EQ(AudioOf(FIRST_PART).substr(2048, 1), std::string(1, static_cast<char>(simcards::CountingByte(2048))));
}

TEST_F(BaseChannelDecide, SilencedPartStaysSilencedAndTheNextIsNot) {
  rRecorder.fSilenceOnDemand = true;
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  simcards::PlayCounting(DRIVER_CH);
  OffHook();
  EXPECT_TRUE(rLine.TrySetSilencing(true));
  Seconds(60);  // cuts the call
  Hear(2048);
  EXPECT_EQ(AudioOf("/recordings/2024/01/31/14/20240131_142445_007_02.wav").substr(0, 1),
            std::string(1, static_cast<char>(simcards::CountingByte(0))));
}

}  // namespace
