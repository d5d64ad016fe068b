#include "LineBench.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int SUNDAY = 0, MONDAY = 1, WEDNESDAY = 3, SATURDAY = 6;

// -- the weekly schedule as a rule ----------------------------------------------------------------------------------

struct ScheduleRow {
  const char* acLabel;
  StdStringMap rCfg;
  int iWeekday, iHour, iMinute;
  bool fScheduled;
};

void CheckSchedule(const std::vector<ScheduleRow>& rRows) {
  for (const ScheduleRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    struct tm rLocalTime {};
    rLocalTime.tm_wday = rRow.iWeekday;
    rLocalTime.tm_hour = rRow.iHour;
    rLocalTime.tm_min = rRow.iMinute;
    EXPECT_EQ(InSchedule(rRow.rCfg, rLocalTime), rRow.fScheduled);
  }
}

TEST(InSchedule, DaysAreDigitsFromSunday) {
  CheckSchedule({
      {"no schedule", {}, SUNDAY, 12, 0, true},
      {"an empty list of days is no schedule", {{"srWeekdays", ""}}, SUNDAY, 12, 0, true},
      {"windows alone are no schedule", {{"srSundayStart1", "23:59"}}, SUNDAY, 12, 0, true},
      {"Sunday is not in 23", {{"srWeekdays", "23"}}, SUNDAY, 12, 0, false},
      {"Monday is in 23, and without windows wanted whole", {{"srWeekdays", "23"}}, MONDAY, 0, 0, true},
      {"Saturday is 7", {{"srWeekdays", "7"}}, SATURDAY, 23, 59, true},
      {"Sunday is 1", {{"srWeekdays", "1"}}, SUNDAY, 0, 0, true},
      {"separators between the days do not matter", {{"srWeekdays", "1,4"}}, WEDNESDAY, 0, 0, true},
      {"a day that is not listed has no windows",
       {{"srWeekdays", "1"}, {"srWednesdayStart1", "0:00"}},
       WEDNESDAY,
       12,
       0,
       false},
  });
}

TEST(InSchedule, EachDayHasItsOwnWindows) {
  const char* const acDays[] = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
  for (int iDay = 0; iDay < 7; iDay++) {
    SCOPED_TRACE(acDays[iDay]);
    StdStringMap rCfg{{"srWeekdays", "1234567"}};
    for (int i = 0; i < 7; i++) {
      const std::string strDay = std::string("sr") + acDays[i];
      rCfg[strDay + "Start1"] = ToStdString(i) + ":00";
      rCfg[strDay + "Stop1"] = ToStdString(i) + ":30";
      rCfg[strDay + "Start2"] = ToStdString(i + 10) + ":00";
      rCfg[strDay + "Stop2"] = ToStdString(i + 10) + ":30";
    }
    struct tm rLocalTime {};
    rLocalTime.tm_wday = iDay;
    int iHeld = 0;
    for (rLocalTime.tm_hour = 0; rLocalTime.tm_hour < 24; rLocalTime.tm_hour++) {
      if (!InSchedule(rCfg, rLocalTime)) continue;
      iHeld++;
      EXPECT_TRUE(rLocalTime.tm_hour == iDay || rLocalTime.tm_hour == iDay + 10) << rLocalTime.tm_hour;
    }
    EXPECT_EQ(iHeld, 2);
  }
}

TEST(InSchedule, WindowHoldsItsStartMinuteButNotItsStopMinute) {
  const StdStringMap rCfg{{"srWeekdays", "4"}, {"srWednesdayStart1", "8:30"}, {"srWednesdayStop1", "17:00"}};
  CheckSchedule({
      {"before the start", rCfg, WEDNESDAY, 8, 29, false},
      {"the start", rCfg, WEDNESDAY, 8, 30, true},
      {"an earlier minute of a later hour", rCfg, WEDNESDAY, 9, 0, true},
      {"the last minute", rCfg, WEDNESDAY, 16, 59, true},
      {"the stop", rCfg, WEDNESDAY, 17, 0, false},
      {"a later minute of an earlier hour", rCfg, WEDNESDAY, 7, 45, false},
  });
}

TEST(InSchedule, MissingTimesHaveTheirDefaults) {
  const StdStringMap rStartOnly{{"srWeekdays", "4"}, {"srWednesdayStart1", "8:00"}};
  const StdStringMap rStop2Only{
      {"srWeekdays", "4"}, {"srWednesdayStart1", "8:00"}, {"srWednesdayStop1", "9:00"}, {"srWednesdayStop2", "20:00"}};
  const StdStringMap rOpenStart2{
      {"srWeekdays", "4"}, {"srWednesdayStart1", "8:00"}, {"srWednesdayStop1", "9:00"}, {"srWednesdayStart2", "20:00"}};
  const StdStringMap rNoStart1{{"srWeekdays", "4"}, {"srWednesdayStop1", "9:00"}, {"srWednesdayStart2", "20:00"}};
  CheckSchedule({
      {"only a start: not before", rStartOnly, WEDNESDAY, 7, 59, false},
      {"only a start: from then on", rStartOnly, WEDNESDAY, 8, 0, true},
      {"only a start: to midnight", rStartOnly, WEDNESDAY, 23, 59, true},
      {"a second stop without start widens nothing", rStop2Only, WEDNESDAY, 12, 0, false},
      {"a second stop without start narrows nothing", rStop2Only, WEDNESDAY, 8, 30, true},
      {"between the windows", rOpenStart2, WEDNESDAY, 12, 0, false},
      {"a second window without stop ends at midnight", rOpenStart2, WEDNESDAY, 23, 59, true},
      {"without a first start the whole day", rNoStart1, WEDNESDAY, 12, 0, true},
  });
}

TEST(InSchedule, StopBeforeStartHoldsNoTime) {
  const StdStringMap rCfg{{"srWeekdays", "4"}, {"srWednesdayStart1", "22:00"}, {"srWednesdayStop1", "6:00"}};
  CheckSchedule({
      {"late", rCfg, WEDNESDAY, 23, 0, false},
      {"early", rCfg, WEDNESDAY, 5, 0, false},
  });
}

TEST(InSchedule, StartWithoutColonIsHourAndMinute) {
  const StdStringMap rCfg{{"srWeekdays", "4"}, {"srWednesdayStart1", "9"}, {"srWednesdayStop1", "10"}};
  CheckSchedule({
      {"9 is not 9:00", rCfg, WEDNESDAY, 9, 8, false},
      {"9 is 9:09", rCfg, WEDNESDAY, 9, 9, true},
      {"10 is not 10:00", rCfg, WEDNESDAY, 10, 9, true},
      {"10 is 10:10", rCfg, WEDNESDAY, 10, 10, false},
  });
}

// -- the channel ----------------------------------------------------------------------------------------------------

class BaseChannelDecide : public LineBench {
 protected:
  // The real clock's day as the schedule counts it.
  static std::string Today() {
    const time_t rTime = time(nullptr);
    struct tm rLocalTime {};
    localtime_r(&rTime, &rLocalTime);
    return ToStdString(rLocalTime.tm_wday + 1);
  }
  static std::string AllDaysBut(const std::string& strDay) {
    std::string strDays = "1234567";
    strDays.erase(strDays.find(strDay), 1);
    return strDays;
  }
};

TEST_F(BaseChannelDecide, NumberFilter) {
  const char* const acIn = "5 [7] Not recording because in number filter";
  const char* const acNotIn = "5 [7] Not recording because not in number filter";
  const struct {
    const char* acLabel;
    bool fDontRecord;
    int iType;
    const char* acListed;
    bool fMay;
    const char* acLog;  // with fTell
  } rRows[] = {
      {"a barred call is refused silently", true, 0, "0", false, nullptr},
      {"a barred call is refused before the filter", true, 1, "remote", false, nullptr},
      {"no filter", false, 0, "remote", true, nullptr},
      {"type 2 refuses the local number", false, 2, "local", false, acIn},
      {"type 2 refuses the remote number", false, 2, "remote", false, acIn},
      {"type 2 refuses the connected number", false, 2, "connected", false, acIn},
      {"type 2 lets others pass", false, 2, "remot", true, nullptr},
      {"type 1 lets the local number pass", false, 1, "local", true, nullptr},
      {"type 1 lets the remote number pass", false, 1, "remote", true, nullptr},
      {"type 1 lets the connected number pass", false, 1, "connected", true, nullptr},
      {"type 1 refuses others", false, 1, "remote2", false, acNotIn},
      {"any other type is like type 1", false, -3, "remote", true, nullptr},
      {"any other type refuses others", false, 99, "", false, acNotIn},
  };
  rChannel.strLocalNum = "local";
  rChannel.strRemoteNum = "remote";
  rChannel.strConnectedNum = "connected";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.fDontRecord = rRow.fDontRecord;
    rRecorder.iNumberFilterType = rRow.iType;
    rRecorder.astrNumberFilters = {"other", rRow.acListed};
    EXPECT_EQ(rChannel.MayStartRecording(/*fTell=*/false), rRow.fMay);
    EXPECT_THAT(logsink::Take(), IsEmpty());
    EXPECT_EQ(rChannel.MayStartRecording(/*fTell=*/true), rRow.fMay);
    EXPECT_EQ(logsink::TakeTexts(), rRow.acLog ? Texts{rRow.acLog} : Texts{});
  }
}

TEST_F(BaseChannelDecide, EmptyNumberMatchesAnEmptyFilterItem) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {""};
  rChannel.strRemoteNum = "0301234";
  EXPECT_FALSE(rChannel.MayStartRecording(/*fTell=*/false));  // by the empty local number
}

TEST_F(BaseChannelDecide, ScheduleAsksTheRealClock) {
  std::string strToday;
  bool fToday = false, fOtherDays = false;
  do {  // again, should midnight pass between the two
    strToday = Today();
    // The frozen clock stands on another day of the week.
    SetSimTime(time(nullptr) + 3 * 24 * 3600);
    SetConfig("srWeekdays", strToday.c_str());
    fToday = rChannel.RecordingScheduled();
    (void)logsink::Take();
    SetConfig("srWeekdays", AllDaysBut(strToday).c_str());
    fOtherDays = rChannel.RecordingScheduled();
  } while (strToday != Today());
  EXPECT_TRUE(fToday);
  EXPECT_FALSE(fOtherDays);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording not scheduled"));
}

TEST_F(BaseChannelDecide, ScheduleIsReadFromItsPartAtEachDecision) {
  rDatabase.rParts["crec"]["srWeekdays"] = "x";
  rDatabase.fNoteReads = true;
  EXPECT_TRUE(rChannel.RecordingScheduled());
  SetConfig("srWeekdays", "x");
  EXPECT_FALSE(rChannel.RecordingScheduled());
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetConfigsPart o", "GetConfigsPart o"));
}

TEST_F(BaseChannelDecide, UnreachableDatabaseCountsAsNoSchedule) {
  SetConfig("srWeekdays", "x");
  rDatabase.fDown = true;
  EXPECT_TRUE(rChannel.RecordingScheduled());
}

// -- the way into a recording ---------------------------------------------------------------------------------------

TEST_F(BaseChannelDecide, PlainCallIsRecordedAndGetsItsRow) {
  rDatabase.fNoteReads = true;
  rChannel.iPeriodicCounter2 = 12;
  rChannel.iRecordOffset = 99;
  rChannel.iEncoding = 0;
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_01.wav"));
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetConfigsPart o", "GetOrCreateLineContact 7 ''", "GetCustomLocal 1007",
                          "GetOrCreateLineContact 7 ''", "GetCallerIDContact ", "Add ActiveCalls 1"));
  EXPECT_THAT(simcards::TakeCalls(), ElementsAre("SsmRecToMem(0,6,4096,0)"));
  EXPECT_THAT(rRecorder.TakeCalls(), IsEmpty());
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_EQ(rChannel.rStartTime, rNow);
  EXPECT_EQ(rChannel.iPeriodicCounter2, 0);
  EXPECT_EQ(rChannel.iRecordOffset, 0);
  EXPECT_EQ(rChannel.iRecUniqCnt, 1);
  EXPECT_EQ(rChannel.iActiveCallID, 1);
  EXPECT_EQ(rChannel.strDbRemoteId, "20240131_142345_007_01");
  EXPECT_EQ(ActiveRow().at("encoding"), "554");
  EXPECT_EQ(ActiveRow().at("isarchived"), "1");
  EXPECT_TRUE(file_exists("/recordings/2024/01/31/14/20240131_142345_007_01.wav"));
}

TEST_F(BaseChannelDecide, EncodingFollowsTheLawOfTheCall) {
  const struct {
    const char* acLabel;
    ERecEncodings eRecEnc;
    int iEncoding;
    const char* acDriverCall;
  } rRows[] = {
      {"A-law", RECENC_G711A, 554, "SsmRecToMem(0,6,4096,0)"},
      {"mu-law", RECENC_G711U, 555, "SsmRecToMem(0,7,4096,0)"},
      {"GSM is made of A-law later", RECENC_GSM, 554, "SsmRecToMem(0,6,4096,0)"},
      {"MP3 is made of A-law later", RECENC_MP3, 554, "SsmRecToMem(0,6,4096,0)"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    rChannel.TryStartRecording();
    EXPECT_EQ(rChannel.iEncoding, rRow.iEncoding);
    EXPECT_THAT(simcards::TakeCalls(), ElementsAre(rRow.acDriverCall));
    rChannel.FinalizeRecording(/*fClearInfo=*/true);
    ForgetTraces();
  }
}

TEST_F(BaseChannelDecide, RunningRecordingIsNotStartedTwice) {
  rChannel.TryStartRecording();
  ForgetTraces();
  PassSeconds(3);
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Already recording"));
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  EXPECT_EQ(rChannel.rStartTime, rNow - 3);
  EXPECT_EQ(rChannel.iRecUniqCnt, 1);
}

TEST_F(BaseChannelDecide, WaitingCallIsNotStartedTwice) {
  rChannel.fRecOnDmd = true;
  rChannel.TryStartRecording();
  ForgetTraces();
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Call already active"));
  EXPECT_EQ(rChannel.iRecUniqCnt, 1);
}

TEST_F(BaseChannelDecide, FilteredCallLeavesNoTrace) {
  rRecorder.iNumberFilterType = 1;
  rChannel.rStartTime = 5;
  rChannel.iPeriodicCounter2 = 12;
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Not recording because not in number filter"));
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  EXPECT_THAT(simcards::TakeCalls(), IsEmpty());
  EXPECT_EQ(rChannel.rStartTime, 5);
  EXPECT_EQ(rChannel.iPeriodicCounter2, 12);
  EXPECT_EQ(rChannel.iRecUniqCnt, 0);
}

TEST_F(BaseChannelDecide, UnscheduledCallGetsNoRow) {
  SetConfig("srWeekdays", "x");
  rChannel.iPeriodicCounter2 = 12;
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording not scheduled"));
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  EXPECT_EQ(rChannel.rStartTime, rNow);
  EXPECT_EQ(rChannel.iPeriodicCounter2, 0);
  EXPECT_EQ(rChannel.iRecUniqCnt, 0);
  EXPECT_EQ(rChannel.strDbRemoteId, "");
  EXPECT_EQ(rChannel.iActiveCallID, -1);
}

TEST_F(BaseChannelDecide, CallOnDemandWaitsWithARowAndNoAudio) {
  rChannel.fRecOnDmd = true;
  rChannel.iEncoding = 554;  // of the part before
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording on demand"));
  EXPECT_THAT(simcards::TakeCalls(), IsEmpty());
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_EQ(rChannel.strDbRemoteId, "20240131_142345_007_01");
  EXPECT_EQ(ActiveRow().at("encoding"), "0");
  EXPECT_EQ(ActiveRow().at("isarchived"), "0");
  EXPECT_EQ(ActiveRow().at("remoteid"), "20240131_142345_007_01");
}

TEST_F(BaseChannelDecide, SubclassDecidesOnDemandAnewForEachPart) {
  rChannel.fForceRecOnDmd = true;
  rChannel.TryStartRecording();
  EXPECT_TRUE(rChannel.fRecOnDmd);
  EXPECT_FALSE(rChannel.fRecording);
}

TEST_F(BaseChannelDecide, DemandInForceStartsTheRecording) {
  rChannel.fRecOnDmd = true;
  rChannel.fRecOnDmdStart = true;
  rChannel.TryStartRecording();
  EXPECT_TRUE(rChannel.fRecording);
}

TEST_F(BaseChannelDecide, RefusedDriverStartGoesOnWithoutAudio) {
  rChannel.iLinkedCh = LINKED_CH;
  simcards::FailNext("SsmRecToMem", 1, -1, "channel is busy");
  rChannel.TryStartRecording();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Starting recording", "3 Error in SsmRecToMem: channel is busy"));
  EXPECT_THAT(rRecorder.TakeCalls(), IsEmpty());
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_EQ(rChannel.iActiveCallID, 1);
  EXPECT_TRUE(file_exists(rChannel.strFullFilename));
}

TEST_F(BaseChannelDecide, LinkedChannelIsMixedInOnceTheDriverRuns) {
  rChannel.iLinkedCh = LINKED_CH;
  rChannel.TryStartRecording();
  EXPECT_THAT(rRecorder.TakeCalls(), ElementsAre("MixIn 0 1"));
  EXPECT_THAT(simcards::TakeCalls(), ElementsAre("SsmRecToMem(0,6,4096,0)", "SsmRecToMem(1,6,4096,0)"));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Starting recording", "5 {1} Mixing this channel to {0}",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_01.wav"));
}

TEST_F(BaseChannelDecide, CustomIdentityHoldsForAMinute) {
  const struct {
    const char* acLabel;
    int iAge;
    bool fHolds;
    const char* acLog;
  } rRows[] = {
      {"fresh", 0, true, "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:0 (1)"},
      {"a minute old", 60, true, "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:60 (1)"},
      {"a second more", 61, false, "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:61 (0)"},
      {"of the future", -3600, true, "5 CustomLocal CT:63 CID:53 T:Zo\xc3\xab age:-3600 (1)"},
  };
  CallerIdContact& rCustom = rDatabase.rCustomLocals[1007];
  rCustom.fFound = true;
  rCustom.iContactID = 63;
  rCustom.iCallerID = 53;
  rCustom.strText = "Zo\xc3\xab";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    time_t rRealNow = 0;
    do {  // again, should the second turn: the age counts by the real clock
      rChannel.FinalizeRecording(/*fClearInfo=*/true);
      ForgetTraces();
      rRealNow = time(nullptr);
      rCustom.iUpdateTime = rRealNow - rRow.iAge;
      rChannel.TryStartRecording();
    } while (time(nullptr) != rRealNow);
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Starting recording", rRow.acLog,
                                                  "5 [7] Recording to file " + rChannel.strFullFilename));
    EXPECT_EQ(rChannel.rCustomLocal.fFound, rRow.fHolds);
    EXPECT_EQ(ActiveRow().at("local"), rRow.fHolds ? "Zo\xc3\xab" : "");
  }
}

TEST_F(BaseChannelDecide, IdentityThatIsGoneIsForgottenWithTheNextRecording) {
  rChannel.rCustomLocal.fFound = true;
  rChannel.TryStartRecording();
  EXPECT_FALSE(rChannel.rCustomLocal.fFound);
}

// -- on demand ------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelDecide, RecordingOnDemandByNumber) {
  const struct {
    const char* acLabel;
    int iType;
    const char* acListed;
    bool fOnDemand;
  } rRows[] = {
      {"off", 0, "remote", false},
      {"all calls", 1, "", true},
      {"listed local number", 2, "local", true},
      {"listed connected number", 2, "connected", true},
      {"listed remote number", 2, "remote", true},
      {"not listed", 2, "remote2", false},
      {"type 3 is like type 2", 3, "local", true},
      {"type 3, not listed", 3, "", false},
      {"the line is no number here", 2, "#7", false},
      {"any other type is off", 4, "remote", false},
      {"a negative type is off", -1, "remote", false},
  };
  rChannel.strLocalNum = "local";
  rChannel.strRemoteNum = "remote";
  rChannel.strConnectedNum = "connected";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.iRecOnDmdType = rRow.iType;
    rRecorder.astrRecOnDmdList = {"other", rRow.acListed};
    EXPECT_EQ(rChannel.QRecOnDmd(), rRow.fOnDemand);
  }
}

TEST_F(BaseChannelDecide, DeletionOnDemandByNumberOrLine) {
  const char* const acOff = "5 [7] delete on demand is switched off in options";
  const char* const acNotListed = "5 [7] not in delete on demand list";
  const struct {
    const char* acLabel;
    int iType;
    const char* acListed;
    bool fMay;
    const char* acLog;
  } rRows[] = {
      {"off", 0, "remote", false, acOff},
      {"all calls", 1, "", true, nullptr},
      {"listed local number", 2, "local", true, nullptr},
      {"listed connected number", 2, "connected", true, nullptr},
      {"listed remote number", 2, "remote", true, nullptr},
      {"listed line", 2, "#7", true, nullptr},
      {"a line needs its mark", 2, "7", false, acNotListed},
      {"not listed", 2, "remote2", false, acNotListed},
      {"type 3 is like type 2", 3, "#7", true, nullptr},
      {"type 3, not listed", 3, "", false, acNotListed},
      {"any other type is off without a word", 4, "remote", false, nullptr},
      {"a negative type too", -1, "remote", false, nullptr},
  };
  rChannel.strLocalNum = "local";
  rChannel.strRemoteNum = "remote";
  rChannel.strConnectedNum = "connected";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.iDelOnDmdType = rRow.iType;
    rRecorder.astrDelOnDmdList = {"other", rRow.acListed};
    EXPECT_EQ(rChannel.MayDeleteOnDemand(), rRow.fMay);
    EXPECT_EQ(logsink::TakeTexts(), rRow.acLog ? Texts{rRow.acLog} : Texts{});
  }
}

TEST_F(BaseChannelDecide, DeletedCallIsNotRecordedAgain) {
  rRecorder.iDelOnDmdType = 1;
  RecordSeconds(10);
  EXPECT_TRUE(rChannel.DeleteAct());
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording stopped (10 s)"));
  EXPECT_FALSE(file_exists(rChannel.strFullFilename));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  EXPECT_TRUE(rChannel.fDontRecord);
  rChannel.TryStartRecording();
  EXPECT_FALSE(rChannel.fRecording);
  rChannel.ClearInfo();
  rChannel.TryStartRecording();
  EXPECT_TRUE(rChannel.fRecording);
}

TEST_F(BaseChannelDecide, RefusedDeletionChangesNothing) {
  RecordSeconds(10);
  EXPECT_FALSE(rChannel.DeleteAct());
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_FALSE(rChannel.fDontRecord);
  EXPECT_EQ(ActiveRows(), 1u);
}

TEST_F(BaseChannelDecide, DeletionWhileWaitingBarsALaterDemand) {
  rRecorder.iDelOnDmdType = 1;
  rChannel.fRecOnDmd = true;
  rChannel.TryStartRecording();
  EXPECT_TRUE(rChannel.DeleteAct());
  EXPECT_EQ(ActiveRows(), 0u);
  EXPECT_TRUE(rChannel.fDontRecord);
  ForgetTraces();
  EXPECT_TRUE(rChannel.RecOnDmdAct(/*fStart=*/true));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] RecOnDmd: START"));
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_EQ(ActiveRows(), 0u);
}

TEST_F(BaseChannelDecide, DemandWithoutTheOptionIsRefused) {
  for (const bool fStart : {false, true}) {
    EXPECT_FALSE(rChannel.RecOnDmdAct(fStart));
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] RecOnDmd not done, the option is off"));
  }
}

TEST_F(BaseChannelDecide, DemandStartsAndEndsWithNewIdsAndRows) {
  rChannel.fRecOnDmd = true;
  rChannel.TryStartRecording();
  ForgetTraces();

  EXPECT_TRUE(rChannel.RecOnDmdAct(/*fStart=*/true));
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_TRUE(rChannel.fRecOnDmdStart);
  EXPECT_EQ(rChannel.strDbRemoteId, "20240131_142345_007_02");
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] RecOnDmd: START", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_02.wav"));
  EXPECT_EQ(ActiveRows(), 1u);
  PassSeconds(4);

  EXPECT_TRUE(rChannel.RecOnDmdAct(/*fStart=*/false));
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_FALSE(rChannel.fRecOnDmdStart);
  EXPECT_EQ(rChannel.strDbRemoteId, "20240131_142349_007_03");
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] RecOnDmd: STOP", "5 [7] Recording stopped (4 s)", "5 [7] Recording on demand"));
  EXPECT_EQ(KeptRows(), 1u);
  EXPECT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(ActiveRow().at("isarchived"), "0");
}

TEST_F(BaseChannelDecide, RepeatedDemandChangesNothing) {
  rChannel.fRecOnDmd = true;
  rChannel.TryStartRecording();
  ForgetTraces();
  EXPECT_TRUE(rChannel.RecOnDmdAct(/*fStart=*/false));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] RecOnDmd: STOP"));
  EXPECT_EQ(rChannel.iRecUniqCnt, 1);
  EXPECT_TRUE(rChannel.RecOnDmdAct(/*fStart=*/true));
  ForgetTraces();
  EXPECT_TRUE(rChannel.RecOnDmdAct(/*fStart=*/true));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] RecOnDmd: START"));
  EXPECT_EQ(rChannel.iRecUniqCnt, 2);
  EXPECT_TRUE(rChannel.fRecOnDmdStart);
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelDecide, SilencingWithoutTheOptionIsRefused) {
  for (const bool fToSet : {false, true}) {
    EXPECT_FALSE(rChannel.TrySetSilencing(fToSet));
    EXPECT_FALSE(rChannel.fSilencing);
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Silencing not set, silence on demand is off"));
  }
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelDecide, SilencingIsSetAndNotedInTheRow) {
  rRecorder.fSilenceOnDemand = true;
  rChannel.iActiveCallID = 31;
  EXPECT_TRUE(rChannel.TrySetSilencing(true));
  EXPECT_TRUE(rChannel.fSilencing);
  EXPECT_TRUE(rChannel.TrySetSilencing(false));
  EXPECT_FALSE(rChannel.fSilencing);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Silencing set to 1", "5 [7] Silencing set to 0"));
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("SetActiveCallExtra 31 silencing=1", "SetActiveCallExtra 31 silencing=0"));
}

TEST_F(BaseChannelDecide, NextPartIsNotSilenced) {
  rRecorder.fSilenceOnDemand = true;
  RecordSeconds(5);
  EXPECT_TRUE(rChannel.TrySetSilencing(true));
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_TRUE(rChannel.fSilencing);
  rChannel.TryStartRecording();
  EXPECT_FALSE(rChannel.fSilencing);
}

}  // namespace
