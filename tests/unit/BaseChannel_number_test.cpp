#include "LineBench.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class BaseChannelNumber : public LineBench {
 protected:
  // An active row without a recording, as a call that waits for a demand has it.
  void GiveRow() { rChannel.iActiveCallID = 31; }
  // A call that is being recorded, with the start's own lines dropped.
  void Record() {
    SetInCall(true);
    ForgetTraces();
  }
};

// -- the numbers as others see them ---------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, RemoteNumberIsMaskedFromItsEnd) {
  const struct {
    const char* acLabel;
    int iMask;
    const char* acRemote;
    const char* acStored;
  } rRows[] = {
      {"no mask", 0, "12345678", "12345678"},     {"a negative mask masks nothing", -1, "12345678", "12345678"},
      {"one digit", 1, "12345678", "1234567X"},   {"three of eight", 3, "12345678", "12345XXX"},
      {"as long as the number", 3, "123", "XXX"}, {"shorter than the mask", 3, "12", "XX"},
      {"an empty number stays empty", 3, "", ""},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.iMaskLastRemoteDigits = rRow.iMask;
    rChannel.strRemoteNum = rRow.acRemote;
    EXPECT_EQ(rChannel.GetDbRemoteNum(), rRow.acStored);
    EXPECT_EQ(rChannel.strRemoteNum, rRow.acRemote);
  }
}

TEST_F(BaseChannelNumber, LocalNumberIsConvertedButCustomIdentityIsNot) {
  rChannel.strLocalNum = "Caf\xe9";
  rChannel.rCustomLocal.strText = "Caf\xc3\xa9 2";
  EXPECT_EQ(rChannel.GetLocalNum(), "Caf\xc3\xa9");
  rChannel.rCustomLocal.fFound = true;
  EXPECT_EQ(rChannel.GetLocalNum(), "Caf\xc3\xa9 2");
}

TEST_F(BaseChannelNumber, LocalNumberIsUsedForItsOwnSakeOrForTheCustomIdentity) {
  EXPECT_FALSE(rChannel.QUseLocalNum());
  rChannel.fUseLocalNum = true;
  EXPECT_TRUE(rChannel.QUseLocalNum());
  rChannel.rCustomLocal.fFound = true;
  EXPECT_TRUE(rChannel.QUseLocalNum());
  rChannel.fUseLocalNum = false;
  EXPECT_TRUE(rChannel.QUseLocalNum());
}

// -- change of the remote or connected number -----------------------------------------------------------------------

TEST_F(BaseChannelNumber, RemoteNumberOutsideACallIsOnlyKept) {
  PassSeconds(5);
  rChannel.strRemoteNum = "0301234";
  rChannel.strConnectedNum = "17";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Remote: 0301234"));
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  EXPECT_EQ(rChannel.rRemoteNumTime, rNow);
  EXPECT_EQ(rChannel.strPrevRemoteNum, "0301234");
  EXPECT_EQ(rChannel.strPrevConnectedNum, "17");
}

TEST_F(BaseChannelNumber, NewRemoteNumberGoesToTheActiveRowWithItsContact) {
  GiveRow();
  rDatabase.rNumbers["0301234"] = MakeContact(51, 61, true);
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetCallerIDContact 0301234", "UpdateActiveCallRemoteContact 31 51 61 0301234"));
}

TEST_F(BaseChannelNumber, UnknownRemoteNumberClearsTheContactOfTheRow) {
  GiveRow();
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetCallerIDContact 0301234", "UpdateActiveCallRemoteContact 31 NULL NULL 0301234"));
}

TEST_F(BaseChannelNumber, ActiveLookUpTakesTheNumberUnconverted) {
  GiveRow();
  rChannel.strRemoteNum = "Andr\xe9";
  rChannel.strConnectedNum = "Ren\xe9";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetCallerIDContact Andr\xe9", "UpdateActiveCallRemoteContact 31 NULL NULL Andr\xc3\xa9",
                          "GetOrCreateCallerIDContact Ren\xc3\xa9 remote ''",
                          "UpdateActiveCallConnectedNum 31 5000 6000 Ren\xc3\xa9"));
}

TEST_F(BaseChannelNumber, MaskedFormIsStoredAndCompared) {
  GiveRow();
  rRecorder.iMaskLastRemoteDigits = 2;
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_EQ(rChannel.strPrevRemoteNum, "03012XX");
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetCallerIDContact 03012XX", "UpdateActiveCallRemoteContact 31 NULL NULL 03012XX"));
  rChannel.strRemoteNum = "0301299";  // differs only where the mask hides it
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Remote: 0301299"));
}

TEST_F(BaseChannelNumber, ConnectedNumberOfAnIncomingCallIsLocal) {
  GiveRow();
  rChannel.fIncoming = true;
  rChannel.strConnectedNum = "17";
  rDatabase.rNumbers["17"] = MakeContact(52, 62, false);
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetOrCreateCallerIDContact 17 local ''", "UpdateActiveCallConnectedNum 31 52 62 17"));
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelNumber, UnchangedNumberWritesNoRowButAsksTheRulesAgain) {
  rChannel.strRemoteNum = "0301234";
  SetInCall(true);
  rChannel.RemoteNumberChanged();
  ForgetTraces();
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"0301234"};
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Not recording because in number filter",
                                                "5 [7] Recording stopped (0 s)"));
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("DeleteActiveCall 1"));
}

// -- change of the local number -------------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, LocalChangeGoesToTheActiveRow) {
  GiveRow();
  rDatabase.rNumbers["22"] = MakeContact(53, 63, true);
  EXPECT_TRUE(rChannel.ChangeLocalNum("22"));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Local Number Changed: 22."));
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetCallerIDContact 22", "UpdateActiveCallLocalContact 31 53 63 22"));
  EXPECT_TRUE(rChannel.fUseLocalNum);
  EXPECT_EQ(rChannel.strLocalNum, "22");
  EXPECT_EQ(rChannel.strNonMonitoredNum, "");
}

TEST_F(BaseChannelNumber, LocalLookUpTakesTheNumberUnconverted) {
  GiveRow();
  EXPECT_TRUE(rChannel.ChangeLocalNum("Zo\xeb"));
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetCallerIDContact Zo\xeb", "UpdateActiveCallLocalContact 31 NULL NULL Zo\xc3\xab"));
}

TEST_F(BaseChannelNumber, LocalChangeWithoutRowOrToTheSameNumberWritesNothing) {
  EXPECT_TRUE(rChannel.ChangeLocalNum("22"));
  EXPECT_EQ(rChannel.strLocalNum, "22");
  GiveRow();
  EXPECT_TRUE(rChannel.ChangeLocalNum("22"));
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelNumber, FirstLocalNumberIsKeptAsTheLinesOwn) {
  rChannel.strLocalNum = "11";
  EXPECT_TRUE(rChannel.ChangeLocalNum("22"));
  EXPECT_EQ(rChannel.strNonMonitoredNum, "11");
  EXPECT_TRUE(rChannel.ChangeLocalNum("33"));
  EXPECT_EQ(rChannel.strNonMonitoredNum, "11");
  EXPECT_EQ(rChannel.strLocalNum, "33");
}

TEST_F(BaseChannelNumber, CallerMayHandInAFieldOfTheChannel) {
  rChannel.strLocalNum = "11";
  EXPECT_TRUE(rChannel.ChangeLocalNum(rChannel.strNonMonitoredNum));
  EXPECT_EQ(rChannel.strLocalNum, "");
  EXPECT_EQ(rChannel.strNonMonitoredNum, "11");
}

TEST_F(BaseChannelNumber, LocalChangeDuringARecordingGoesOnWithIt) {
  Record();
  EXPECT_TRUE(rChannel.LocalNumberChanged("22", "ignored", /*stopstart=*/false));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] LocalNumberChanged. Change:  to: 22.", "5 [7] Local Number Changed: 22."));
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetCallerIDContact 22", "UpdateActiveCallLocalContact 1 NULL NULL 22"));
  EXPECT_TRUE(rChannel.fRecording);
}

TEST_F(BaseChannelNumber, LocalNumberAlreadyHeldChangesNothing) {
  rChannel.strLocalNum = "22";
  Record();
  for (const bool stopstart : {false, true}) {
    EXPECT_TRUE(rChannel.LocalNumberChanged("22", "", stopstart));
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] LocalNumberChanged. Change: 22 to: 22."));
    EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
    EXPECT_FALSE(rChannel.fUseLocalNum);
    EXPECT_EQ(rChannel.strNonMonitoredNum, "");
  }
}

TEST_F(BaseChannelNumber, TransferToAMonitoredPhoneEndsThisRecordingAndStartsAnother) {
  rChannel.strLocalNum = "11";
  Record();
  PassSeconds(4);
  EXPECT_TRUE(rChannel.LocalNumberChanged("22", "", /*stopstart=*/true));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] LocalNumberChanged. Change: 11 to: 22.", "5 [7] LocalNumberChanged: STOP",
                          "5 [7] Recording stopped (4 s)", "5 [7] LocalNumberChanged: Transfer to monitored phone",
                          "5 [7] LocalNumberChanged: START", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142349_007_02.wav"));
  EXPECT_EQ(rChannel.strLocalNum, "22");
  EXPECT_EQ(rChannel.strNonMonitoredNum, "11");
  EXPECT_TRUE(rChannel.fUseLocalNum);
  EXPECT_EQ(KeptRows(), 1u);
  EXPECT_EQ(ActiveRow().at("local"), "22");
}

TEST_F(BaseChannelNumber, TransferToANonMonitoredPhoneTakesTheLinesOwnNumber) {
  rChannel.strLocalNum = "22";
  rChannel.strNonMonitoredNum = "11";
  Record();
  EXPECT_TRUE(rChannel.LocalNumberChanged("", "", /*stopstart=*/true));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] LocalNumberChanged. Change: 22 to: .", "5 [7] LocalNumberChanged: STOP",
                          "5 [7] Recording stopped (0 s)", "5 [7] LocalNumberChanged: Transfer to non-monitored phone",
                          "5 [7] LocalNumberChanged: START", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_02.wav"));
  EXPECT_EQ(rChannel.strLocalNum, "11");
  EXPECT_EQ(rChannel.strNonMonitoredNum, "11");
  EXPECT_FALSE(rChannel.fUseLocalNum);
}

TEST_F(BaseChannelNumber, TransferNumberSurvivesTheClearingOfTheField) {
  rChannel.fResetLocalNum = true;
  rChannel.strRemoteNum = "0301234";
  Record();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");  // makes the stop clear the call's information
  EXPECT_TRUE(rChannel.LocalNumberChanged(rChannel.strRemoteNum, "", /*stopstart=*/true));
  EXPECT_EQ(rChannel.strRemoteNum, "");
  EXPECT_EQ(rChannel.strLocalNum, "0301234");
}

// -- what a change does to the recording ----------------------------------------------------------------------------

TEST_F(BaseChannelNumber, NumberOutsideACallAsksNoRule) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {""};
  rChannel.PhoneNumberChanged(/*stopIsFinal=*/true);
  EXPECT_THAT(logsink::Take(), IsEmpty());
}

TEST_F(BaseChannelNumber, BarredRemoteNumberBarsTheWholeCall) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"0301234"};
  Record();
  const std::string strFile = rChannel.strFullFilename;
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Not recording because in number filter",
                                                "5 [7] Recording stopped (0 s)"));
  EXPECT_FALSE(file_exists(strFile));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  EXPECT_TRUE(rChannel.fDontRecord);

  rChannel.strRemoteNum = "0305678";  // the next number is not listed, and changes nothing any more
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Remote: 0305678"));
  EXPECT_FALSE(rChannel.fRecording);
}

TEST_F(BaseChannelNumber, BarredLocalNumberBarsOnlyItsPart) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"22"};
  Record();
  const std::string strFile = rChannel.strFullFilename;
  EXPECT_TRUE(rChannel.ChangeLocalNum("22"));
  // The part is stopped first and a new one tried then, so the filter speaks twice.
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Local Number Changed: 22.", "5 [7] Not recording because in number filter",
                          "5 [7] Recording stopped (0 s)", "5 [7] Not recording because in number filter"));
  EXPECT_FALSE(file_exists(strFile));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  EXPECT_FALSE(rChannel.fDontRecord);
  EXPECT_FALSE(rChannel.fDontKeepThisPart);

  EXPECT_TRUE(rChannel.ChangeLocalNum("33"));
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_EQ(rChannel.iRecUniqCnt, 2);
}

TEST_F(BaseChannelNumber, NumberThatEntersTheFilterStartsTheRecording) {
  rRecorder.iNumberFilterType = 1;
  rRecorder.astrNumberFilters = {"0301234"};
  SetInCall(true);
  EXPECT_FALSE(rChannel.fRecording);
  ForgetTraces();
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Remote: 0301234", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_01.wav"));
  EXPECT_EQ(ActiveRow().at("remote"), "0301234");
}

TEST_F(BaseChannelNumber, NumberOfAWaitingCallLeavesItWaiting) {
  rChannel.fRecOnDmd = true;
  Record();
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Call already active"));
  EXPECT_EQ(rChannel.iActiveCallID, 1);
}

TEST_F(BaseChannelNumber, NumberThatTurnsOnRecordingOnDemandDropsWhatWasRecorded) {
  Record();
  const std::string strFile = rChannel.strFullFilename;
  rChannel.fForceRecOnDmd = true;
  rChannel.strRemoteNum = "0301234";
  rChannel.RemoteNumberChanged();
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Remote: 0301234", "5 [7] Phone number change enabled recording on demand",
                          "5 [7] Recording stopped (0 s)", "5 [7] Recording on demand"));
  EXPECT_FALSE(file_exists(strFile));
  EXPECT_EQ(KeptRows(), 0u);
  EXPECT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(ActiveRow().at("isarchived"), "0");
  EXPECT_FALSE(rChannel.fDontKeepThisPart);
  EXPECT_TRUE(rChannel.fRecOnDmd);
}

// -- digits ---------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, DigitsCollectUntilNoneCameForSixSeconds) {
  rChannel.DetectedDigit('1');
  PassSeconds(5);
  rChannel.DetectedDigit('2');
  EXPECT_EQ(rChannel.strDigits, "12");
  PassSeconds(5);
  rChannel.CheckDigitsExpired(/*fForceExpired=*/false);
  EXPECT_EQ(rChannel.strDigits, "12");
  PassSeconds(1);
  rChannel.CheckDigitsExpired(/*fForceExpired=*/false);
  EXPECT_EQ(rChannel.strDigits, "");
  EXPECT_THAT(rChannel.astrExpiring, ElementsAre("12"));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Digits: 1", "5 [7] Digits: 12", "5 [7] Previous digits expired"));
}

TEST_F(BaseChannelNumber, ForcedExpiryJudgesFreshDigits) {
  rChannel.DetectedDigit('1');
  rChannel.CheckDigitsExpired(/*fForceExpired=*/true);
  EXPECT_EQ(rChannel.strDigits, "");
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Digits: 1", "5 [7] Previous digits expired"));
}

TEST_F(BaseChannelNumber, NoDigitsNeverExpire) {
  PassSeconds(100);
  rChannel.CheckDigitsExpired(/*fForceExpired=*/true);
  EXPECT_THAT(rChannel.astrExpiring, IsEmpty());
  EXPECT_THAT(logsink::Take(), IsEmpty());
}

TEST_F(BaseChannelNumber, NextDigitExpiresTheOldOnesFirst) {
  rChannel.DetectedDigit('1');
  PassSeconds(6);
  rChannel.LinkedChannelDigit('2');
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Digits: 1", "5 [7] Previous digits expired", "5 [7] Digits: 2"));
}

TEST_F(BaseChannelNumber, DialledDigitsReplaceWhatIsNoRealNumber) {
  const struct {
    const char* acLabel;
    bool fUseDigits;
    const char* acDigits;
    const char* acRemote;
    const char* acRemoteAfter;
  } rRows[] = {
      {"no number was delivered", true, "0123", "", "0123"},
      {"a number of two characters is no number", true, "0123", "45", "0123"},
      {"a number of three digits wins", true, "0123", "456", "456"},
      {"a text is no number", true, "0123", "private", "0123"},
      {"only the first character counts", true, "0123", "4xyz", "4xyz"},
      {"a plus sign is no digit", true, "0123", "+49301234", "0123"},
      {"two digits are enough", true, "12", "", "12"},
      {"a single digit is dropped", true, "1", "", ""},
      {"the line delivers numbers itself", false, "0123", "", ""},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.fUsePressedDigitsForRemote = rRow.fUseDigits;
    rChannel.strDigits = rRow.acDigits;
    rChannel.strRemoteNum = rRow.acRemote;
    rChannel.rRemoteNumTime = 0;
    rChannel.CheckDigitsExpired(/*fForceExpired=*/true);
    EXPECT_EQ(rChannel.strRemoteNum, rRow.acRemoteAfter);
    EXPECT_EQ(rChannel.strDigits, "");
    Texts astrExpected = {"5 [7] Previous digits expired"};
    const bool fReplaced = std::string(rRow.acRemote) != rRow.acRemoteAfter;
    if (fReplaced) astrExpected.push_back(std::string("5 [7] Remote: ") + rRow.acDigits);
    EXPECT_EQ(logsink::TakeTexts(), astrExpected);
    EXPECT_EQ(rChannel.rRemoteNumTime, fReplaced ? rNow : 0);
  }
}

TEST_F(BaseChannelNumber, ExpiredRemoteNumberGivesWayToDigits) {
  rChannel.fUsePressedDigitsForRemote = true;
  rChannel.strRemoteNum = "0305678";
  rChannel.rRemoteNumTime = rNow;
  rChannel.DetectedDigit('1');
  rChannel.DetectedDigit('2');
  PassSeconds(11);
  rChannel.CheckDigitsExpired(/*fForceExpired=*/false);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Digits: 1", "5 [7] Digits: 12", "5 [7] Previous digits expired",
                                                "5 [7] Remote expired, 11 seconds old", "5 [7] Remote: 12"));
}

TEST_F(BaseChannelNumber, DigitsAreJudgedAtCallStopWhileTheCallCountsAsBusy) {
  rChannel.fUsePressedDigitsForRemote = true;
  Record();
  rChannel.DetectedDigit('1');
  rChannel.DetectedDigit('2');
  PassSeconds(2);
  SetInCall(false);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Digits: 1", "5 [7] Digits: 12", "5 [7] Call stops", "5 [7] Previous digits expired",
                          "5 [7] Remote: 12", "5 [7] Recording stopped (2 s)"));
  const Texts astrCalls = rDatabase.TakeCalls();
  ASSERT_GE(astrCalls.size(), 2u);
  EXPECT_EQ(astrCalls[0], "GetCallerIDContact 12");
  EXPECT_EQ(astrCalls[1], "UpdateActiveCallRemoteContact 1 NULL NULL 12");
  ASSERT_EQ(KeptRows(), 1u);
  EXPECT_EQ(rDatabase.rTables["Calls"].begin()->second["remote"], "12");
  EXPECT_EQ(rChannel.strPrevCallRemoteNum, "12");
}

TEST_F(BaseChannelNumber, DigitAfterAHundredIsIgnoredButTimed) {
  rChannel.strDigits = std::string(99, '5');
  rChannel.rDigitTime = rNow;
  PassSeconds(3);
  rChannel.DetectedDigit('6');
  EXPECT_EQ(rChannel.strDigits, std::string(99, '5') + "6");
  (void)logsink::Take();
  PassSeconds(3);
  rChannel.DetectedDigit('7');
  EXPECT_EQ(rChannel.strDigits, std::string(99, '5') + "6");
  EXPECT_EQ(rChannel.rDigitTime, rNow);
  EXPECT_THAT(logsink::Take(), IsEmpty());
}

TEST_F(BaseChannelNumber, FrozenDigitIsIgnoredButTimed) {
  rChannel.fDigitFreeze = true;
  PassSeconds(3);
  rChannel.DetectedDigit('1');
  EXPECT_EQ(rChannel.strDigits, "");
  EXPECT_EQ(rChannel.rDigitTime, rNow);
  EXPECT_THAT(logsink::Take(), IsEmpty());
}

// -- digit actions --------------------------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, CodeFiresAndItsDigitsStayForALongerCode) {
  GiveRow();
  rRecorder.strDTMF[1] = "*1";
  rRecorder.strDTMFact[1] = "email";
  rRecorder.strDTMF[10] = "*12";
  rRecorder.strDTMFact[10] = "keep";
  rChannel.DetectedDigit('*');
  EXPECT_FALSE(rChannel.fToEmail);
  rChannel.DetectedDigit('1');
  EXPECT_TRUE(rChannel.fToEmail);
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  rChannel.DetectedDigit('2');
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("SetActiveCallExtra 31 to-keep=1"));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Digits: *", "5 [7] Digits: *1", "5 [7] Action to perform: email",
                                                "5 [7] Digits: *12", "5 [7] Action to perform: keep"));
}

TEST_F(BaseChannelNumber, ActionWithoutAnActiveCallIsDropped) {
  rChannel.DtmfAction("email");
  EXPECT_FALSE(rChannel.fToEmail);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Action to perform: email", "5 [7] No active call for this channel"));
}

TEST_F(BaseChannelNumber, UnknownActionDoesNothing) {
  GiveRow();
  rChannel.DtmfAction("Email");
  EXPECT_FALSE(rChannel.fToEmail);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Action to perform: Email"));
  EXPECT_THAT(rRecorder.TakeCalls(), IsEmpty());
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelNumber, EmailMarksThisRecording) {
  GiveRow();
  rChannel.DtmfAction("email");
  EXPECT_TRUE(rChannel.fToEmail);
  EXPECT_THAT(rRecorder.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelNumber, Email2MailsTheCallBeforeOfTheLocalContact) {
  GiveRow();
  rChannel.iActiveContactLocal = 1007;
  rChannel.DtmfAction("email2");
  EXPECT_FALSE(rChannel.fToEmail);
  EXPECT_THAT(rRecorder.TakeCalls(), ElementsAre("EmailBackRecording 1007 1"));
}

TEST_F(BaseChannelNumber, KeepMarksTheActiveRow) {
  GiveRow();
  rChannel.DtmfAction("keep");
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("SetActiveCallExtra 31 to-keep=1"));
}

TEST_F(BaseChannelNumber, SilenceAndSoundSetAndEndTheSilence) {
  GiveRow();
  rRecorder.fSilenceOnDemand = true;
  rChannel.DtmfAction("silence");
  EXPECT_TRUE(rChannel.fSilencing);
  rChannel.DtmfAction("sound");
  EXPECT_FALSE(rChannel.fSilencing);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Action to perform: silence", "5 [7] Silencing set to 1",
                                                "5 [7] Action to perform: sound", "5 [7] Silencing set to 0"));
}

TEST_F(BaseChannelNumber, StartAndStopDriveRecordingOnDemand) {
  rChannel.fRecOnDmd = true;
  Record();
  rChannel.DtmfAction("start");
  EXPECT_TRUE(rChannel.fRecording);
  rChannel.DtmfAction("stop");
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Action to perform: start", "5 [7] RecOnDmd: START", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_02.wav",
                          "5 [7] Action to perform: stop", "5 [7] RecOnDmd: STOP", "5 [7] Recording stopped (0 s)",
                          "5 [7] Recording on demand"));
}

TEST_F(BaseChannelNumber, DeleteEndsTheRecordingWhenAllowed) {
  Record();
  rChannel.DtmfAction("delete");
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_FALSE(rChannel.fDontRecord);
  rRecorder.iDelOnDmdType = 1;
  rChannel.DtmfAction("delete");
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_TRUE(rChannel.fDontRecord);
  EXPECT_FALSE(file_exists(rChannel.strFullFilename));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Action to perform: delete", "5 [7] delete on demand is switched off in options",
                          "5 [7] Action to perform: delete", "5 [7] Recording stopped (0 s)"));
}

}  // namespace
