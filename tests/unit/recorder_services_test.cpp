// Tests of the services for channels and of the orders that are addressed to a running call.
// This program stands in for time, so that ages are exact. Messages to the service show by their log line.
#include <ctime>

#include "RecorderBench.h"

namespace {
constexpr time_t CLOCK = 1700000000;
}

extern "C" time_t time(time_t* prTime) noexcept {
  if (prTime) *prTime = CLOCK;
  return CLOCK;
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ServicesTest : public RecorderBench {
 protected:
  // Three lines of a card; the second driver channel has no line number.
  void SetUp() override {
    rBoot.vrBoardList = {Present("DST-8", "A", 8, 0), Present("DST-8", "B", 8, 1)};
    simcards::AddBoard(0, 3, CH_DST);
    AddChannel(1);
    AddChannel(-1);
    AddChannel(2);
    Forget();
  }
  OpenChannel<BaseChannel>& Ch(std::size_t i) {
    return static_cast<OpenChannel<BaseChannel>&>(*rRecorder.vChannels[i]);
  }
  void BeginCall(std::size_t i, const std::string& strCallId) {
    Ch(i).fCallBusy = true;
    Ch(i).strDbRemoteId = strCallId;
  }
};

// -- DTMF codes -------------------------------------------------------------------------------------------------------

TEST_F(ServicesTest, FirstCodeThatEndsTheDigitsWins) {
  rRecorder.strDTMF[0] = "9";
  rRecorder.strDTMFact[0] = "never";
  rRecorder.strDTMF[1] = "*";
  rRecorder.strDTMFact[1] = "one";
  rRecorder.strDTMF[2] = "3*";
  rRecorder.strDTMFact[2] = "two";
  rRecorder.strDTMF[4] = "123456";
  rRecorder.strDTMFact[4] = "four";
  rRecorder.strDTMF[10] = "#";
  rRecorder.strDTMFact[10] = "ten";
  struct Row {
    const char* acDigits;
    const char* acAction;
  };
  const Row rRows[] = {
      {"123*", "one"},    {"*", "one"},        {"", ""},      {"*1", ""},    {"9", ""},
      {"123456", "four"}, {"0123456", "four"}, {"23456", ""}, {"1#", "ten"}, {"5", ""},
  };
  for (const Row& rRow : rRows) EXPECT_EQ(rRecorder.GetDtmfAct(rRow.acDigits), rRow.acAction) << rRow.acDigits;
}

TEST_F(ServicesTest, NoDigitsHaveNoActionWhateverTheCodes) {
  rRecorder.strDTMFact[3] = "of an empty code";
  EXPECT_EQ(rRecorder.GetDtmfAct(""), "");
  EXPECT_EQ(rRecorder.GetDtmfAct("1"), "");
}

// -- cached local numbers ---------------------------------------------------------------------------------------------

TEST_F(ServicesTest, CachedNumberLivesForTenMinutes) {
  struct Row {
    int iAge;
    const char* acNumber;
  };
  const Row rRows[] = {{0, "31"}, {599, "31"}, {600, "31"}, {601, ""}, {100000, ""}, {-5, "31"}};
  rBoot.rConfigs["SynA_3_LocalNum"] = "31";
  for (const Row& rRow : rRows) {
    rBoot.rConfigs["SynA_LocalNumTime"] = std::to_string(CLOCK - rRow.iAge);
    EXPECT_EQ(rRecorder.GetCachedLocalNum(3, 0), rRow.acNumber) << rRow.iAge;
  }
}

TEST_F(ServicesTest, StampOfTheBoardCountsForAllItsChannelsAndForNoOther) {
  rBoot.rConfigs = {{"SynA_LocalNumTime", std::to_string(CLOCK)},
                    {"SynA_1_LocalNum", "11"},
                    {"SynA_2_LocalNum", "12"},
                    {"SynB_1_LocalNum", "21"}};
  EXPECT_EQ(rRecorder.GetCachedLocalNum(1, 0), "11");
  EXPECT_EQ(rRecorder.GetCachedLocalNum(2, 0), "12");
  EXPECT_EQ(rRecorder.GetCachedLocalNum(3, 0), "");
  EXPECT_EQ(rRecorder.GetCachedLocalNum(1, 1), "");
  EXPECT_EQ(rRecorder.GetCachedLocalNum(1, -1), "");
}

TEST_F(ServicesTest, StoredNumberIsWrittenWithTheStampAndSeenByTheNextProcess) {
  rRecorder.SetCachedLocalNum(5, 1, "31");
  EXPECT_THAT(prDb->TakeCalls(),
              ElementsAre("SetConfig crec SynB_LocalNumTime=1700000000", "SetConfig crec SynB_5_LocalNum=31"));
  EXPECT_EQ(rRecorder.GetCachedLocalNum(5, 1), "");
  rBoot.rConfigs = prDb->rParts["crec"];
  EXPECT_EQ(rRecorder.GetCachedLocalNum(5, 1), "31");
}

TEST_F(ServicesTest, NumberOfAnUnknownBoardIsNotStored) {
  rRecorder.SetCachedLocalNum(5, -1, "31");
  EXPECT_THAT(prDb->TakeCalls(), IsEmpty());
}

// -- store on demand --------------------------------------------------------------------------------------------------

TEST_F(ServicesTest, LastAccountWithAnOpinionDecidesAboutStoring) {
  struct Row {
    const char* acLabel;
    const char* acDefault;
    std::vector<int> aiLocal, aiRemote;  // "rod" of the accounts
    bool fStore;
  };
  const Row rRows[] = {
      {"default off", "0", {}, {}, false},
      {"default missing", "", {}, {}, false},
      {"default on", "1", {}, {}, true},
      {"default above 1", "5", {}, {}, true},
      {"account stores", "0", {1}, {}, true},
      {"account does not", "1", {2}, {}, false},
      {"later account does not", "0", {1, 2}, {}, false},
      {"later account stores", "0", {2, 1}, {}, true},
      {"account without opinion", "0", {1, 0, 3}, {}, true},
      {"remote accounts come last", "0", {1}, {2}, false},
      {"remote account stores", "0", {2}, {1}, true},
  };
  Contact rLocal, rRemote;
  rLocal.iContactID = 40;
  rRemote.iContactID = 50;
  for (const Row& rRow : rRows) {
    prDb->rParts["o"]["RecOnDemand"] = rRow.acDefault;
    prDb->rUsersOfPhone.clear();
    prDb->rUserFields.clear();
    int iAccId = 100;
    for (const int iRod : rRow.aiLocal) {
      prDb->rUsersOfPhone[40].push_back(++iAccId);
      prDb->rUserFields[iAccId]["rod"] = std::to_string(iRod);
    }
    for (const int iRod : rRow.aiRemote) {
      prDb->rUsersOfPhone[50].push_back(++iAccId);
      prDb->rUserFields[iAccId]["rod"] = std::to_string(iRod);
    }
    EXPECT_EQ(rRecorder.StoreOnDemand(rLocal, rRemote), rRow.fStore) << rRow.acLabel;
    EXPECT_THAT(prDb->TakeCalls(), ElementsAre("GetUsersOfPhone 40", "GetUsersOfPhone 50")) << rRow.acLabel;
  }
}

TEST_F(ServicesTest, WithoutDatabaseNothingIsStoredOnDemand) {
  prDb->rParts["o"]["RecOnDemand"] = "1";
  prDb->fDown = true;
  EXPECT_FALSE(rRecorder.StoreOnDemand(Contact(), Contact()));
}

// -- mails ------------------------------------------------------------------------------------------------------------

TEST_F(ServicesTest, RecordingIsMailedToTheFirstAccount) {
  prDb->rUsersOfPhone[40] = {8, 9};
  rRecorder.EmailRecording(1234, 40);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 signal => email -recid 1234 8"));
}

TEST_F(ServicesTest, PhoneWithoutAccountGetsNoMail) {
  rRecorder.EmailRecording(1234, 40);
  rRecorder.EmailBackRecording(40, 1);
  EXPECT_THAT(prDb->TakeCalls(), ElementsAre("GetUsersOfPhone 40", "GetUsersOfPhone 40"));
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(ServicesTest, EarlierRecordingIsMailedToTheLastEnabledAccount) {
  prDb->rUsersOfPhone[40] = {7, 8, 9};
  prDb->rUserFields = {{7, {{"enabled", "1"}}}, {8, {{"enabled", "1"}}}, {9, {{"enabled", "2"}}}};
  prDb->iCallBack = 55;
  rRecorder.EmailBackRecording(40, 3);
  EXPECT_THAT(prDb->TakeCalls(), ElementsAre("GetUsersOfPhone 40", "GetCallBack 40 3"));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 signal => email -recid 55 8"));
}

TEST_F(ServicesTest, WithoutEnabledAccountTheMailGoesToMinusOne) {
  prDb->rUsersOfPhone[40] = {7};
  prDb->iCallBack = 55;
  rRecorder.EmailBackRecording(40, 1);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 ", "5 signal => email -recid 55 -1"));
}

TEST_F(ServicesTest, WithoutEnabledAccountAndEarlierRecordingAnEmptyLineIsAll) {
  prDb->rUsersOfPhone[40] = {7};
  rRecorder.EmailBackRecording(40, 1);
  EXPECT_THAT(prDb->TakeCalls(), ElementsAre("GetUsersOfPhone 40", "GetCallBack 40 1"));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 "));
}

TEST_F(ServicesTest, WithoutEarlierRecordingNoMail) {
  prDb->rUsersOfPhone[40] = {7};
  prDb->rUserFields[7]["enabled"] = "1";
  rRecorder.EmailBackRecording(40, 1);
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(ServicesTest, OnlyLoudTalkingIsToldToTheAdministrator) {
  rRecorder.NotifyAdmin(LOUD_TALKING, "rec-1");
  rRecorder.NotifyAdmin(static_cast<ENotifyType>(0), "rec-2");
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 signal => email -loud rec-1"));
}

TEST_F(ServicesTest, ChecksumTypeIsAskedAnewEachTime) {
  EXPECT_EQ(rRecorder.GetCheckSumType(), "");
  prDb->rParts["o"]["CalcChecksum"] = "sha256";
  EXPECT_EQ(rRecorder.GetCheckSumType(), "sha256");
  prDb->rParts["o"]["CalcChecksum"] = "md5";
  EXPECT_EQ(rRecorder.GetCheckSumType(), "md5");
}

// -- lists ------------------------------------------------------------------------------------------------------------

TEST_F(ServicesTest, NumberIsInAListOnlyAsAWholeItem) {
  rRecorder.astrNumberFilters = {"123", ""};
  rRecorder.astrDelOnDmdList = {"456"};
  rRecorder.astrRecOnDmdList = {"789", "+1"};
  EXPECT_TRUE(rRecorder.IsInNumberFilter("123"));
  EXPECT_TRUE(rRecorder.IsInNumberFilter(""));
  EXPECT_FALSE(rRecorder.IsInNumberFilter("12"));
  EXPECT_FALSE(rRecorder.IsInNumberFilter("1234"));
  EXPECT_FALSE(rRecorder.IsInNumberFilter("456"));
  EXPECT_TRUE(rRecorder.IsInDelOnDmdList("456"));
  EXPECT_FALSE(rRecorder.IsInDelOnDmdList("789"));
  EXPECT_FALSE(rRecorder.IsInDelOnDmdList(""));
  EXPECT_TRUE(rRecorder.IsInRecOnDmdList("+1"));
  EXPECT_FALSE(rRecorder.IsInRecOnDmdList("1"));
}

// -- from channel to channel ------------------------------------------------------------------------------------------

TEST_F(ServicesTest, MixingIsPassedToTheSource) {
  EXPECT_TRUE(rRecorder.MixIn(0, 2));
  EXPECT_EQ(Ch(2).iBaseRecCh, 0);
  EXPECT_EQ(Ch(0).iBaseRecCh, -1);
  rRecorder.StopMixIn(2);
  EXPECT_EQ(Ch(2).iBaseRecCh, -1);
}

TEST_F(ServicesTest, SourceThatTheDriverRefusesIsToldToTheBase) {
  simcards::FailNext("SsmRecToMem", 1, -1, "channel busy");
  EXPECT_FALSE(rRecorder.MixIn(0, 2));
}

TEST_F(ServicesTest, AudioIsPassedToTheBase) {
  Ch(1).iLinkedCh = 2;
  Ch(1).BasicRecordingPreparation();
  BYTE acAudio[4] = {1, 2, 3, 4};
  rRecorder.MixAudio(1, acAudio, 4);
  EXPECT_EQ(Ch(1).iMixBufIx[1], 4);
}

TEST_F(ServicesTest, BaseIsToldToTheLinkedSide) {
  rRecorder.LinkedChannel(0, 2);
  EXPECT_EQ(Ch(2).iBaseCh, 0);
  rRecorder.LinkedChannel(-1, 2);
  EXPECT_EQ(Ch(2).iBaseCh, -1);
}

TEST_F(ServicesTest, DigitIsPassedToTheBase) {
  rRecorder.ChannelDigit(2, '7');
  EXPECT_EQ(Ch(2).strDigits, "7");
  EXPECT_EQ(Ch(0).strDigits, "");
}

TEST_F(ServicesTest, ChannelOutsideTheTableIsIgnored) {
  BYTE acAudio[1] = {};
  for (const int iOutside : {-1, 3, 1000, -1000}) {
    EXPECT_FALSE(rRecorder.MixIn(0, iOutside));
    rRecorder.StopMixIn(iOutside);
    rRecorder.MixAudio(iOutside, acAudio, 1);
    rRecorder.LinkedChannel(0, iOutside);
    rRecorder.ChannelDigit(iOutside, '1');
  }
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
  EXPECT_THAT(simcards::TakeCalls(), IsEmpty());
  EXPECT_TRUE(rRecorder.MixIn(-1, 1));  // only the source is looked at
  EXPECT_EQ(simcards::TakeCalls().size(), 1U);
}

// -- orders to a call -------------------------------------------------------------------------------------------------

TEST_F(ServicesTest, OrderToAnUnknownCall) {
  for (std::size_t i = 0; i < 3; i++) BeginCall(i, "call-" + std::to_string(i));
  EXPECT_EQ(rRecorder.SilencingAct("call", false), ACT_UNKNOWN_CALL);
  EXPECT_EQ(rRecorder.RecOnDmdAct("call-10", true), ACT_UNKNOWN_CALL);
  EXPECT_EQ(rRecorder.DelOnDmdAct(""), ACT_UNKNOWN_CALL);
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(ServicesTest, OrderThatTheChannelRefuses) {
  BeginCall(2, "call");
  EXPECT_EQ(rRecorder.SilencingAct("call", false), ACT_REFUSED);
  EXPECT_EQ(rRecorder.RecOnDmdAct("call", true), ACT_REFUSED);
  EXPECT_EQ(rRecorder.DelOnDmdAct("call"), ACT_REFUSED);
}

TEST_F(ServicesTest, SilencingIsTheOppositeOfSound) {
  rRecorder.fSilenceOnDemand = true;
  BeginCall(2, "call");
  EXPECT_EQ(rRecorder.SilencingAct("call", /*fSound=*/false), ACT_DONE);
  EXPECT_TRUE(Ch(2).fSilencing);
  EXPECT_EQ(rRecorder.SilencingAct("call", /*fSound=*/true), ACT_DONE);
  EXPECT_FALSE(Ch(2).fSilencing);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [2] Silencing set to 1", "5 [2] Silencing set to 0"));
}

TEST_F(ServicesTest, FirstChannelWithTheIdTakesTheOrderAlsoForTheEmptyId) {
  rRecorder.fSilenceOnDemand = true;
  BeginCall(0, "call-0");
  BeginCall(2, "call-0");
  EXPECT_EQ(rRecorder.SilencingAct("call-0", false), ACT_DONE);
  EXPECT_TRUE(Ch(0).fSilencing);
  EXPECT_FALSE(Ch(2).fSilencing);
  (void)logsink::Take();
  EXPECT_EQ(rRecorder.SilencingAct("", false), ACT_DONE);  // channel 1 has no call
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [-1] Silencing set to 1"));
  EXPECT_FALSE(Ch(1).fSilencing);  // there is nothing to silence
}

TEST_F(ServicesTest, EmptyIdMeansNoLineInACallThatIsNotRecorded) {
  rRecorder.fSilenceOnDemand = true;
  rRecorder.iDelOnDmdType = 1;  // all calls
  for (const bool isAnyFree : {true, false}) {
    const int iExpected = isAnyFree ? ACT_DONE : ACT_UNKNOWN_CALL;
    rRecorder.iNumberFilterType = 1;  // only listed numbers
    rRecorder.astrNumberFilters = {"0301234"};
    for (const std::size_t i : {0U, 1U, 2U}) {
      Ch(i).fRecOnDmd = true;
      if (i == 2 && isAnyFree) continue;
      Ch(i).fInCall_ChState = true;
      Ch(i).InCallMaybeChanged();
      EXPECT_EQ(Ch(i).strDbRemoteId, "");  // refused, as the number is still to come
    }
    EXPECT_EQ(rRecorder.DelOnDmdAct(""), iExpected);
    EXPECT_EQ(rRecorder.RecOnDmdAct("", /*fStart=*/true), iExpected);
    EXPECT_EQ(rRecorder.SilencingAct("", /*fSound=*/false), iExpected);
    EXPECT_FALSE(Ch(0).fDontRecord || Ch(1).fDontRecord || Ch(2).fDontRecord);
    EXPECT_FALSE(Ch(0).fSilencing || Ch(1).fSilencing || Ch(2).fSilencing);
    (void)logsink::Take();
    Ch(0).strRemoteNum = "0301234";
    Ch(0).RemoteNumberChanged();
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [1] Remote: 0301234", "5 [1] Recording on demand"));
    for (const std::size_t i : {0U, 1U, 2U}) {
      Ch(i).fInCall_ChState = false;
      Ch(i).InCallMaybeChanged();
    }
  }
}

TEST_F(ServicesTest, DemandReachesTheCall) {
  BeginCall(2, "call");
  Ch(2).fRecOnDmd = true;
  EXPECT_EQ(rRecorder.RecOnDmdAct("call", /*fStart=*/false), ACT_DONE);  // nothing is recorded: done already
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [2] RecOnDmd: STOP"));
}

TEST_F(ServicesTest, DeletionReachesTheCall) {
  BeginCall(2, "call");
  rRecorder.iDelOnDmdType = 1;  // all calls
  EXPECT_EQ(rRecorder.DelOnDmdAct("call"), ACT_DONE);
  EXPECT_TRUE(Ch(2).fDontRecord);
  EXPECT_FALSE(Ch(0).fDontRecord || Ch(1).fDontRecord);
}

// -- change of the local party ----------------------------------------------------------------------------------------

TEST_F(ServicesTest, LocalPartyOfTheCallWithThisRemoteNumber) {
  struct Row {
    const char* acLabel;
    const char* acOfChannel;
    const char* acGiven;
    bool fFound;
  };
  const Row rRows[] = {
      {"same", "49123", "49123", true},       {"international prefix", "49123", "0049123", true},
      {"one zero", "49123", "049123", false}, {"prefix at the channel", "0049123", "49123", false},
      {"part", "49123", "4912", false},
  };
  for (const Row& rRow : rRows) {
    Ch(0).strRemoteNum = "other";
    Ch(1).strRemoteNum = "another";
    Ch(2).strRemoteNum = rRow.acOfChannel;
    BeginCall(2, "call");
    Ch(2).strLocalNum = "31";
    EXPECT_EQ(rRecorder.ChLocal("31", rRow.acGiven, false), rRow.fFound ? ACT_DONE : ACT_UNKNOWN_CALL) << rRow.acLabel;
    const Texts astrLog = logsink::TakeTexts();
    ASSERT_EQ(astrLog.size(), rRow.fFound ? 2U : 0U) << rRow.acLabel;
    if (!rRow.fFound) continue;
    EXPECT_EQ(astrLog[0], "5 [3] Channel found for RemoteNumber: " + std::string(rRow.acGiven));
    EXPECT_EQ(astrLog[1], "5 [2] LocalNumberChanged. Change: 31 to: 31.");
  }
}

TEST_F(ServicesTest, EmptyRemoteNumberFindsTheFirstChannelWithoutOne) {
  Ch(0).strRemoteNum = "1";
  BeginCall(1, "call");
  EXPECT_EQ(rRecorder.ChLocal("", "", false), ACT_DONE);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [2] Channel found for RemoteNumber: ", "5 [-1] LocalNumberChanged. Change:  to: ."));
  EXPECT_EQ(rRecorder.ChLocal("", "00", false), ACT_DONE);  // "00" in front of nothing
}

TEST_F(ServicesTest, LineWithoutACallKeepsItsLocalNumber) {
  for (const bool fSwapped : {false, true}) {
    rRecorder.fCrecTestSwapLocRem = fSwapped;
    const std::string strFound = fSwapped ? "5 [1] Channel found (second attempt) for RemoteNumber: 49123"
                                          : "5 [1] Channel found for RemoteNumber: 49123";
    for (const bool stopstart : {false, true}) {
      Ch(0).strRemoteNum = "49123";  // of a call before
      EXPECT_EQ(fSwapped ? rRecorder.ChLocal("49123", "31", stopstart) : rRecorder.ChLocal("31", "49123", stopstart),
                ACT_DONE);
      EXPECT_THAT(logsink::TakeTexts(), ElementsAre(strFound, "5 [1] No active call for this channel"));
      EXPECT_EQ(Ch(0).strLocalNum, "");
    }
  }
}

TEST_F(ServicesTest, MaskedRemoteNumberIsComparedAsItIsStored) {
  rRecorder.iMaskLastRemoteDigits = 2;
  for (std::size_t i = 0; i < 3; i++) Ch(i).strRemoteNum = "4912" + std::to_string(i);
  EXPECT_EQ(rRecorder.ChLocal("", "49120", false), ACT_UNKNOWN_CALL);
  EXPECT_EQ(rRecorder.ChLocal("", "491XX", false), ACT_DONE);
}

TEST_F(ServicesTest, SwappedNumbersAreTriedOnlyWithTheTestSwitch) {
  for (std::size_t i = 0; i < 3; i++) Ch(i).strRemoteNum = std::to_string(i) + "00";
  EXPECT_EQ(rRecorder.ChLocal("200", "31", false), ACT_UNKNOWN_CALL);
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
  rRecorder.fCrecTestSwapLocRem = true;
  Ch(2).strLocalNum = "31";
  BeginCall(2, "call");
  EXPECT_EQ(rRecorder.ChLocal("200", "31", false), ACT_DONE);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [3] Channel found (second attempt) for RemoteNumber: 200",
                                                "5 [2] LocalNumberChanged. Change: 31 to: 31."));
  EXPECT_EQ(rRecorder.ChLocal("00200", "31", false), ACT_UNKNOWN_CALL);  // no prefix in the second attempt
}

TEST_F(ServicesTest, EmptyNumbersDoNotMatchSwapped) {
  rRecorder.fCrecTestSwapLocRem = true;
  EXPECT_EQ(rRecorder.ChLocal("", "31", false), ACT_UNKNOWN_CALL);
}

TEST_F(ServicesTest, FirstAttemptComesBeforeTheSwappedOne) {
  rRecorder.fCrecTestSwapLocRem = true;
  Ch(0).strRemoteNum = "31";
  Ch(2).strRemoteNum = "32";
  Ch(2).strLocalNum = "31";
  EXPECT_EQ(rRecorder.ChLocal("31", "32", false), ACT_DONE);
  EXPECT_EQ(logsink::TakeTexts().front(), "5 [3] Channel found for RemoteNumber: 32");
}

}  // namespace
