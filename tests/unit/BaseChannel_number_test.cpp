#include "BaseChannel.h"

#include <functional>

#include "CallBench.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class BaseChannelNumber : public CallBench {
 protected:
  // A call that is recorded, or that waits for a demand and so has a row without a recording; its start is dropped.
  void Record() {
    OffHook();
    ForgetTraces();
  }
  void Wait() {
    InitLines({{"RecOnDmd", "1"}});
    Record();
  }
  void Bar(const char* acNumber) {
    rRecorder.iNumberFilterType = 2;
    rRecorder.astrNumberFilters = {acNumber};
  }
  void Change(const std::string& strLocalNum) { EXPECT_TRUE(rLine.ChangeLocalNum(strLocalNum)); }
  void Transfer(const std::string& strLocalNum) {
    EXPECT_TRUE(rLine.LocalNumberChanged(strLocalNum, "ignored", /*stopstart=*/true));
  }
  void SetCustomLocal(const char* acText) {
    CallerIdContact& rCustom = rDatabase.rCustomLocals[1000 + LINE];
    rCustom.fFound = true;
    rCustom.strText = acText;
    rCustom.iUpdateTime = rNow;
  }

  const Texts END_OF_A_RECORDING = {"StoreOnDemand 1007 6000"};  // a question rather than an order
  const std::string FILE_1 = "/recordings/2024/01/31/14/20240131_142345_007_01.wav";
};

// -- the numbers as others see them -----------------------------------------------------------------------------------

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
    CallerId(rRow.acRemote);
    EXPECT_THAT(Log(), ElementsAre(std::string("5 [7] Remote: ") + rRow.acRemote));
    OffHook();
    EXPECT_EQ(Active("remote"), rRow.acStored);
    OnHook();
    EXPECT_EQ(Kept("remote"), rRow.acStored);
    ForgetTraces();
  }
}

TEST_F(BaseChannelNumber, LocalSideIsTheCustomIdentityElseTheNumberThatWasSetElseTheLine) {
  const struct {
    const char* acLabel;
    const char *acChanged, *acCustom, *acLocal;
  } rRows[] = {
      {"a number that no change has set", nullptr, nullptr, ""},
      {"a changed number, converted", "Caf\xe9", nullptr, "Caf\xc3\xa9"},
      {"both", "Caf\xe9", "Caf\xc3\xa9 2", "Caf\xc3\xa9 2"},
      {"a custom identity, as it stands", nullptr, "Caf\xc3\xa9 2", "Caf\xc3\xa9 2"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    EventLine rFresh;
    InitLine(rFresh, LINE, DRIVER_CH);
    rFresh.OwnNumber("11");
    rDatabase.rCustomLocals.clear();
    if (rRow.acCustom != nullptr) SetCustomLocal(rRow.acCustom);
    if (rRow.acChanged != nullptr) (void)rFresh.ChangeLocalNum(rRow.acChanged);
    Send(rFresh, E_RCV_DSTDChannel, DMSG_OFF_HOOK);
    EXPECT_EQ(Active("local"), rRow.acLocal);
    Send(rFresh, E_RCV_DSTDChannel, DMSG_ON_HOOK);
    EXPECT_EQ(Kept("local"), rRow.acLocal);
  }
}

// -- change of the remote or connected number -------------------------------------------------------------------------

TEST_F(BaseChannelNumber, RemoteNumberOutsideACallIsKeptForTenSeconds) {
  for (const bool fExpired : {false, true}) {
    CallerId("0301234");
    EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234"));
    EXPECT_THAT(Queries(), IsEmpty());
    Seconds(fExpired ? 11 : 10);
    OffHook();
    EXPECT_EQ(Active("remote"), fExpired ? "" : "0301234");
    OnHook();
    ForgetTraces();
  }
}

TEST_F(BaseChannelNumber, NewRemoteNumberGoesToTheActiveRowWithItsContact) {
  Wait();
  rDatabase.rNumbers["0301234"] = MakeContact(51, 61, true);
  CallerId("0301234");
  EXPECT_THAT(Queries(), ElementsAre("GetCallerIDContact 0301234", "UpdateActiveCallRemoteContact 1 51 61 0301234"));
  CallerId("0301234");
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(BaseChannelNumber, UnknownRemoteNumberClearsTheContactOfTheRow) {
  Wait();
  CallerId("0301234");
  EXPECT_THAT(Queries(),
              ElementsAre("GetCallerIDContact 0301234", "UpdateActiveCallRemoteContact 1 NULL NULL 0301234"));
}

TEST_F(BaseChannelNumber, ActiveLookUpTakesTheNumberAsUtf8) {
  Wait();
  rLine.NumberFromSignalling("Andr\xe9");
  rLine.ConnectedTo("Ren\xe9");
  EXPECT_THAT(Queries(),
              ElementsAre("GetCallerIDContact Andr\xc3\xa9", "UpdateActiveCallRemoteContact 1 NULL NULL Andr\xc3\xa9",
                          "GetOrCreateCallerIDContact Ren\xc3\xa9 remote ''",
                          "UpdateActiveCallConnectedNum 1 5000 6000 Ren\xc3\xa9"));
}

TEST_F(BaseChannelNumber, MaskedFormIsStoredAndCompared) {
  Wait();
  rRecorder.iMaskLastRemoteDigits = 2;
  CallerId("0301234");
  EXPECT_THAT(Queries(),
              ElementsAre("GetCallerIDContact 03012XX", "UpdateActiveCallRemoteContact 1 NULL NULL 03012XX"));
  CallerId("0301299");  // differs only where the mask hides it
  EXPECT_THAT(Queries(), IsEmpty());
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Call already active", "5 [7] Remote: 0301299",
                                 "5 [7] Call already active"));
}

TEST_F(BaseChannelNumber, ConnectedNumberOfAnIncomingCallIsLocal) {
  Ring();
  Wait();
  rDatabase.rNumbers["17"] = MakeContact(52, 62, false);
  rLine.ConnectedTo("17");
  EXPECT_THAT(Queries(),
              ElementsAre("GetOrCreateCallerIDContact 17 local ''", "UpdateActiveCallConnectedNum 1 52 62 17"));
  rLine.ConnectedTo("17");
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(BaseChannelNumber, UnchangedNumberWritesNoRowButAsksTheRulesAgain) {
  CallerId("0301234");
  Record();
  Bar("0301234");
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Not recording because in number filter",
                                 "5 [7] Recording stopped (0 s)"));
  EXPECT_THAT(Queries(), ElementsAre("DeleteActiveCall 1"));
}

// -- change of the local number ---------------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, LocalChangeGoesToTheActiveRow) {
  Wait();
  rDatabase.rNumbers["22"] = MakeContact(53, 63, true);
  Change("22");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Local Number Changed: 22.", "5 [7] Call already active"));
  EXPECT_THAT(Queries(), ElementsAre("GetCallerIDContact 22", "UpdateActiveCallLocalContact 1 53 63 22"));
  Change("22");
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(BaseChannelNumber, LocalLookUpTakesTheNumberAsUtf8) {
  Wait();
  Change("Zo\xeb");
  EXPECT_THAT(Queries(),
              ElementsAre("GetCallerIDContact Zo\xc3\xab", "UpdateActiveCallLocalContact 1 NULL NULL Zo\xc3\xab"));
}

TEST_F(BaseChannelNumber, LocalChangeOutsideACallHoldsForTheNext) {
  Change("22");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Local Number Changed: 22."));
  EXPECT_THAT(Queries(), IsEmpty());
  OffHook();
  EXPECT_EQ(Active("local"), "22");
}

TEST_F(BaseChannelNumber, FirstLocalNumberIsKeptAsTheLinesOwn) {
  rLine.OwnNumber("11");
  Record();
  Change("22");
  Change("33");
  ForgetTraces();
  Transfer("");
  EXPECT_EQ(Active("local"), "11");
}

TEST_F(BaseChannelNumber, CallerMayHandInAFieldOfTheChannel) {
  rLine.OwnNumber("11");
  EXPECT_TRUE(rLine.ChangeLocalNum(rLine.OwnField()));  // empty up to here
  ForgetTraces();
  EXPECT_TRUE(rLine.LocalNumberChanged("22", "", /*stopstart=*/false));
  EXPECT_THAT(Log(), ElementsAre("5 [7] LocalNumberChanged. Change:  to: 22.", "5 [7] Local Number Changed: 22."));
}

TEST_F(BaseChannelNumber, LocalChangeDuringARecordingGoesOnWithIt) {
  Record();
  EXPECT_TRUE(rLine.LocalNumberChanged("22", "ignored", /*stopstart=*/false));
  EXPECT_THAT(Log(), ElementsAre("5 [7] LocalNumberChanged. Change:  to: 22.", "5 [7] Local Number Changed: 22."));
  EXPECT_THAT(Queries(), ElementsAre("GetCallerIDContact 22", "UpdateActiveCallLocalContact 1 NULL NULL 22"));
  OnHook();
  EXPECT_EQ(Kept("local"), "22");
  EXPECT_EQ(KeptRows(), 1u);
}

TEST_F(BaseChannelNumber, LocalNumberAlreadyHeldChangesNothing) {
  rLine.OwnNumber("22");
  Record();
  for (const bool stopstart : {false, true}) {
    EXPECT_TRUE(rLine.LocalNumberChanged("22", "", stopstart));
    EXPECT_THAT(Log(), ElementsAre("5 [7] LocalNumberChanged. Change: 22 to: 22."));
    EXPECT_THAT(Queries(), IsEmpty());
  }
  OnHook();
  EXPECT_EQ(Kept("local"), "");  // it still does not stand for the line
}

TEST_F(BaseChannelNumber, TransferToAMonitoredPhoneEndsThisRecordingAndStartsAnother) {
  rLine.OwnNumber("11");
  rLine.NumberFromSignalling("0301234");
  Record();
  Seconds(4);
  Transfer("22");
  EXPECT_THAT(Log(),
              ElementsAre("5 [7] LocalNumberChanged. Change: 11 to: 22.", "5 [7] LocalNumberChanged: STOP",
                          "5 [7] Recording stopped (4 s)", "5 [7] LocalNumberChanged: Transfer to monitored phone",
                          "5 [7] LocalNumberChanged: START", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142349_007_02.wav"));
  EXPECT_EQ(KeptRows(), 1u);
  EXPECT_EQ(Kept("local"), "");
  EXPECT_EQ(Active("local"), "22");
  EXPECT_EQ(Active("remote"), "0301234");
  Transfer("");
  EXPECT_EQ(Active("local"), "11");
}

TEST_F(BaseChannelNumber, OrderedLocalNumberWantsACallOrOneOnItsWay) {
  const struct {
    const char* acLabel;
    std::function<void()> Before;
    bool fTaken;
  } rRows[] = {
      {"an idle line", [] {}, false},
      {"a call", [this] { OffHook(); }, true},
      {"a number", [this] { CallerId("0301234"); }, true},
      {"no number", [this] { CallerId(""); }, false},
      {"a number that is just young enough for its call",
       [this] {
         CallerId("0301234");
         PassSeconds(10);
       },
       true},
      {"one that is too old",
       [this] {
         CallerId("0301234");
         PassSeconds(11);
       },
       false},
      {"one that does not age, as it rings",
       [this] {
         CallerId("0301234");
         Ring();
         PassSeconds(60);
       },
       true},
      {"the number of a call that is over, which was too short to forget it",
       [this] {
         SetConfig("RecMinDur", "10");
         CallerId("0301234");
         OffHook();
         PassSeconds(5);
         OnHook();
       },
       false},
      {"a number in the second in which the call before ended",
       [this] {
         OffHook();
         OnHook();
         CallerId("0301234");
       },
       true},
      {"the number of that call once more",
       [this] {
         SetConfig("RecMinDur", "10");
         CallerId("0301234");
         OffHook();
         OnHook();
         CallerId("0301234");
       },
       true},
      {"a number after the clock was set back",
       [this] {
         OffHook();
         OnHook();
         SetClock(rNow - 3600);
         CallerId("0301234");
       },
       true},
      {"the number of a call before that",
       [this] {
         SetConfig("RecMinDur", "10");
         CallerId("0301234");
         OffHook();
         OnHook();
         SetClock(rNow - 3600);
       },
       false},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rLine.EndOfCall();  // of the row before
    rLine.OwnNumber("11");
    PassSeconds(60);
    rRow.Before();
    ForgetTraces();
    EXPECT_TRUE(rLine.ChangeLocalOrder("22", "0301234", /*stopstart=*/false));
    EXPECT_EQ(Log().front(),
              rRow.fTaken ? "5 [7] LocalNumberChanged. Change: 11 to: 22." : "5 [7] No active call for this channel");
    OffHook();
    EXPECT_EQ(rLine.strLocalNum, rRow.fTaken ? "22" : "11");
    OnHook();
  }
}

TEST_F(BaseChannelNumber, CallThatComesStartsWithTheOrderedLocalNumber) {
  const struct {
    const char* acLabel;
    const char* acLocal;
    bool stopstart;
    Texts astrTaken;
    const char* acExpected;
  } rRows[] = {
      {"a change", "22", false, {"5 [7] Local Number Changed: 22."}, "22"},
      {"a transfer", "22", true, {"5 [7] LocalNumberChanged: Transfer to monitored phone"}, "22"},
      {"a transfer to no number", "", true, {"5 [7] LocalNumberChanged: Transfer to non-monitored phone"}, "own"},
      {"the number already held", "11", true, {}, "11"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rLine.OwnNumber("own");
    Change("11");
    PassSeconds(60);
    CallerId("0301234");
    ForgetTraces();
    EXPECT_TRUE(rLine.ChangeLocalOrder("33", "0301234", /*stopstart=*/false));  // the later order counts
    EXPECT_TRUE(rLine.ChangeLocalOrder(rRow.acLocal, "0301234", rRow.stopstart));
    EXPECT_EQ(Log(), Texts({"5 [7] LocalNumberChanged. Change: 11 to: 33.",
                            std::string("5 [7] LocalNumberChanged. Change: 11 to: ") + rRow.acLocal + "."}));
    EXPECT_EQ(rLine.strLocalNum, "11");
    PassSeconds(9);
    CallerId("0301234");  // told again
    ForgetTraces();
    OffHook();
    Texts astrLog = Log();
    Texts astrStart = {"5 [7] Call starts"};
    astrStart.insert(astrStart.end(), rRow.astrTaken.begin(), rRow.astrTaken.end());
    astrStart.emplace_back("5 [7] Outgoing call");
    astrLog.resize(astrStart.size());
    EXPECT_EQ(astrLog, astrStart);
    EXPECT_EQ(Active("local"), rRow.acExpected);
    EXPECT_EQ(Active("remote"), "0301234");
    OnHook();
    EXPECT_EQ(rLine.strLocalNum, rRow.acExpected);  // a local number outlives its call
  }
}

TEST_F(BaseChannelNumber, OrderForACallThatDoesNotComeLeavesNothingBehind) {
  const struct {
    const char* acLabel;
    std::function<void()> InTheCallsPlace;
  } rRows[] = {
      {"its number expires", [this] { PassSeconds(11); }},
      {"another number comes", [this] { CallerId("0309999"); }},
      {"another number comes late",
       [this] {
         PassSeconds(60);
         CallerId("0309999");
       }},
      {"the same number comes late",
       [this] {
         PassSeconds(11);
         CallerId("0301234");
       }},
      {"the number is taken back", [this] { CallerId(""); }},
      {"a late ring",
       [this] {
         PassSeconds(60);
         Ring();
       }},
      {"a late ring and another number",
       [this] {
         PassSeconds(60);
         Ring();
         CallerId("0309999");
       }},
      {"the caller gives up",
       [this] {
         rLine.BeOneThatRingsUntilPickup();
         Ring();
         PassSeconds(20);
         RingStops();
       }},
      {"the line goes", [this] { rLine.ClearInfo(); }},
      {"the line goes and comes back",
       [this] {
         rLine.ClearInfo();
         CallerId("0301234");
       }},
  };
  for (const auto& rRow : rRows) {
    for (const bool stopstart : {false, true}) {
      SCOPED_TRACE(rRow.acLabel);
      rLine.OwnNumber("11");
      CallerId("0301234");
      EXPECT_TRUE(rLine.ChangeLocalOrder("22", "0301234", stopstart));
      rRow.InTheCallsPlace();
      OffHook();
      EXPECT_EQ(Active("local"), "");  // the line
      OnHook();
      EXPECT_EQ(rLine.strLocalNum, "11");
      EXPECT_EQ(rLine.OwnField(), "");
      rLine.EndOfCall();
      PassSeconds(60);
    }
  }
}

TEST_F(BaseChannelNumber, TransferToANonMonitoredPhoneTakesTheLinesOwnNumber) {
  rLine.OwnNumber("11");
  Change("22");
  Record();
  Transfer("");
  EXPECT_THAT(Log(),
              ElementsAre("5 [7] LocalNumberChanged. Change: 22 to: .", "5 [7] LocalNumberChanged: STOP",
                          "5 [7] Recording stopped (0 s)", "5 [7] LocalNumberChanged: Transfer to non-monitored phone",
                          "5 [7] LocalNumberChanged: START", "5 [7] Starting recording",
                          "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_02.wav"));
  EXPECT_EQ(Kept("local"), "22");
  EXPECT_EQ(Active("local"), "11");
}

TEST_F(BaseChannelNumber, TransferToANonMonitoredPhoneLeavesTheLineToSpeakForItself) {
  rLine.OwnNumber("11");
  Record();
  Transfer("");  // no monitored number came before
  EXPECT_EQ(Active("local"), "");
  EXPECT_EQ(Active("localcontact"), "1007");
}

TEST_F(BaseChannelNumber, TransferNumberSurvivesTheClearingOfTheField) {
  CallerId("0301234");
  Record();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");  // makes the stop clear the call's information
  EXPECT_TRUE(rLine.LocalNumberChanged(rLine.RemoteField(), "", /*stopstart=*/true));
  EXPECT_EQ(Active("remote"), "");
  EXPECT_EQ(Active("local"), "0301234");
}

// -- what a change does to the recording ------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, NumberOutsideACallAsksNoRule) {
  Bar("0301234");
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234"));
  rLine.PhoneNumberChanged(/*stopIsFinal=*/true);
  EXPECT_THAT(Log(), IsEmpty());
}

TEST_F(BaseChannelNumber, BarredRemoteNumberBarsTheWholeCall) {
  Bar("0301234");
  Record();
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Not recording because in number filter",
                                 "5 [7] Recording stopped (0 s)"));
  EXPECT_FALSE(testtools::Exists(FILE_1));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  CallerId("0305678");  // the next number is not listed, and changes nothing any more
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0305678"));
  EXPECT_EQ(ActiveRows(), 0u);
}

TEST_F(BaseChannelNumber, BarredLocalNumberBarsOnlyItsPart) {
  Bar("22");
  Record();
  Change("22");
  // The part is stopped first and a new one tried then, so the filter speaks twice.
  EXPECT_THAT(Log(), ElementsAre("5 [7] Local Number Changed: 22.", "5 [7] Not recording because in number filter",
                                 "5 [7] Recording stopped (0 s)", "5 [7] Not recording because in number filter"));
  EXPECT_FALSE(testtools::Exists(FILE_1));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  Change("33");
  EXPECT_EQ(Active("filename"), "20240131_142345_007_02.wav");
  OnHook();
  EXPECT_EQ(KeptRows(), 1u);
}

TEST_F(BaseChannelNumber, NumberThatEntersTheFilterStartsTheRecording) {
  rRecorder.iNumberFilterType = 1;
  rRecorder.astrNumberFilters = {"0301234"};
  OffHook();
  EXPECT_EQ(ActiveRows(), 0u);
  ForgetTraces();
  CallerId("0301234");
  EXPECT_THAT(Log(),
              ElementsAre("5 [7] Remote: 0301234", "5 [7] Starting recording", "5 [7] Recording to file " + FILE_1));
  EXPECT_EQ(Active("remote"), "0301234");
}

TEST_F(BaseChannelNumber, NumberOfAWaitingCallLeavesItWaiting) {
  Wait();
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Call already active"));
  EXPECT_EQ(ActiveRows(), 1u);
}

TEST_F(BaseChannelNumber, NumberThatTurnsOnRecordingOnDemandDropsWhatWasRecorded) {
  rLine.BeOnDemandByNumber();
  rRecorder.iRecOnDmdType = 2;
  rRecorder.astrRecOnDmdList = {"0301234"};
  Record();
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Phone number change enabled recording on demand",
                                 "5 [7] Recording stopped (0 s)", "5 [7] Recording on demand"));
  EXPECT_FALSE(testtools::Exists(FILE_1));
  EXPECT_EQ(KeptRows(), 0u);
  EXPECT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(Active("isarchived"), "0");
  EXPECT_TRUE(rLine.RecOnDmdAct(/*fStart=*/true));  // a demand counts now, and its part is kept
  OnHook();
  EXPECT_EQ(KeptRows(), 1u);
}

// -- digits -----------------------------------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, DigitsCollectUntilNoneCameForSixSeconds) {
  Press("1");
  Seconds(5);
  Press("2");
  Seconds(5);
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: 1", "5 [7] Digits: 12"));
  Seconds(1);
  EXPECT_THAT(Log(), ElementsAre("5 [7] Previous digits expired"));
  Seconds(100);
  EXPECT_THAT(Log(), IsEmpty());
  Press("3");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: 3"));
}

TEST_F(BaseChannelNumber, ExpiringDigitsAreShownToTheKindOfLine) {
  class WatchingLine : public EventLine {
   public:
    void WhenDigitExpiring() override { astrExpiring.push_back(strDigits); }
    Texts astrExpiring;
  };
  WatchingLine rWatching;
  InitLine(rWatching, LINE, DRIVER_CH);
  Send(rWatching, E_CHG_RcvDTMF, '1');
  PassSeconds(6);
  Send(rWatching, E_CHG_RcvDTMF, '2');
  rWatching.CheckDigitsExpired(/*fForceExpired=*/true);
  rWatching.CheckDigitsExpired(/*fForceExpired=*/true);  // none are left
  EXPECT_THAT(rWatching.astrExpiring, ElementsAre("1", "2"));
}

TEST_F(BaseChannelNumber, EndOfACallJudgesFreshDigits) {
  Record();
  Press("1");
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: 1", "5 [7] Call stops", "5 [7] Previous digits expired",
                                 "5 [7] Recording stopped (0 s)"));
}

TEST_F(BaseChannelNumber, NextDigitExpiresTheOldOnesFirst) {
  Press("1");
  SetClock(rNow + 6);  // a second that is late
  rRecorder.ChannelDigit(DRIVER_CH, '2');
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: 1", "5 [7] Previous digits expired", "5 [7] Digits: 2"));
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
    EventLine rFresh;
    InitLine(rFresh, LINE, DRIVER_CH);
    if (rRow.fUseDigits) rFresh.BeOneThatIsDialledOn();
    rFresh.NumberFromSignalling(rRow.acRemote);
    for (const char* pcDigit = rRow.acDigits; *pcDigit != '\0'; pcDigit++) {
      Send(rFresh, E_CHG_RcvDTMF, static_cast<DWORD>(*pcDigit));
    }
    ForgetTraces();
    SetClock(rNow + 6);
    rFresh.Periodic();
    Texts astrExpected = {"5 [7] Previous digits expired"};
    const bool fReplaced = std::string(rRow.acRemote) != rRow.acRemoteAfter;
    if (fReplaced) astrExpected.push_back(std::string("5 [7] Remote: ") + rRow.acDigits);
    EXPECT_EQ(Log(), astrExpected);
    Send(rFresh, E_RCV_DSTDChannel, DMSG_OFF_HOOK);
    EXPECT_EQ(Active("remote"), rRow.acRemoteAfter);
    Send(rFresh, E_RCV_DSTDChannel, DMSG_ON_HOOK);
  }
}

TEST_F(BaseChannelNumber, ExpiredRemoteNumberGivesWayToDigits) {
  rLine.BeOneThatIsDialledOn();
  CallerId("0305678");
  Seconds(5);
  Press("12");
  ForgetTraces();
  Seconds(6);
  EXPECT_THAT(Log(),
              ElementsAre("5 [7] Previous digits expired", "5 [7] Remote expired, 11 seconds old", "5 [7] Remote: 12"));
}

TEST_F(BaseChannelNumber, DigitsAreJudgedAtCallStopWhileTheCallCountsAsBusy) {
  rLine.BeOneThatIsDialledOn();
  Record();
  Press("12");
  Seconds(2);
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: 1", "5 [7] Digits: 12", "5 [7] Call stops",
                                 "5 [7] Previous digits expired", "5 [7] Remote: 12", "5 [7] Recording stopped (2 s)"));
  const Texts astrQueries = Queries();
  EXPECT_EQ(astrQueries.at(0), "GetCallerIDContact 12");
  EXPECT_EQ(astrQueries.at(1), "UpdateActiveCallRemoteContact 1 NULL NULL 12");
  EXPECT_EQ(Kept("remote"), "12");
}

TEST_F(BaseChannelNumber, DigitAfterAHundredIsIgnoredButTimed) {
  Press(std::string(100, '5'));
  EXPECT_EQ(Log().back(), "5 [7] Digits: " + std::string(100, '5'));
  Seconds(3);
  Press("7");
  Seconds(5);
  EXPECT_THAT(Log(), IsEmpty());
  Seconds(1);
  EXPECT_THAT(Log(), ElementsAre("5 [7] Previous digits expired"));
}

TEST_F(BaseChannelNumber, DigitThatIsIgnoredTellsThatSomeoneDials) {
  Ring();
  RingStops();
  rLine.IgnoreDigits();
  Press("1");
  EXPECT_THAT(Log(), IsEmpty());
  Seconds(5);
  OffHook();
  EXPECT_EQ(Log().at(1), "5 [7] Outgoing call");  // not the answer to that ring
}

// -- digit actions ----------------------------------------------------------------------------------------------------

TEST_F(BaseChannelNumber, CodeFiresAndItsDigitsStayForALongerCode) {
  Wait();
  rRecorder.strDTMF[1] = "*1";
  rRecorder.strDTMFact[1] = "email2";
  rRecorder.strDTMF[10] = "*12";
  rRecorder.strDTMFact[10] = "keep";
  Press("*");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: *"));
  Press("1");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: *1", "5 [7] Action to perform: email2"));
  EXPECT_THAT(Queries(), IsEmpty());
  Press("2");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Digits: *12", "5 [7] Action to perform: keep"));
  EXPECT_THAT(Queries(), ElementsAre("SetActiveCallExtra 1 to-keep=1"));
  EXPECT_THAT(Orders(), ElementsAre("EmailBackRecording 1007 1"));
}

TEST_F(BaseChannelNumber, ActionWithoutAnActiveCallIsDropped) {
  rLine.DtmfAction("email");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Action to perform: email", "5 [7] No active call for this channel"));
  OffHook();
  OnHook();
  EXPECT_EQ(Orders(), END_OF_A_RECORDING);  // the next one is not mailed
}

TEST_F(BaseChannelNumber, UnknownActionDoesNothing) {
  Record();
  rLine.DtmfAction("Email");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Action to perform: Email"));
  EXPECT_THAT(Queries(), IsEmpty());
  OnHook();
  EXPECT_EQ(Orders(), END_OF_A_RECORDING);
}

TEST_F(BaseChannelNumber, EmailMailsThisRecordingWhenItIsFinished) {
  Record();
  rLine.DtmfAction("email");
  EXPECT_THAT(Orders(), IsEmpty());
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 1007 6000", "EmailRecording 2 1007"));
  Record();
  OnHook();
  EXPECT_EQ(Orders(), END_OF_A_RECORDING);
}

TEST_F(BaseChannelNumber, Email2MailsTheCallBeforeOfTheLocalContact) {
  Record();
  rLine.DtmfAction("email2");
  EXPECT_THAT(Orders(), ElementsAre("EmailBackRecording 1007 1"));
  OnHook();
  EXPECT_EQ(Orders(), END_OF_A_RECORDING);
}

TEST_F(BaseChannelNumber, KeepMarksTheActiveRow) {
  Record();
  rLine.DtmfAction("keep");
  EXPECT_THAT(Queries(), ElementsAre("SetActiveCallExtra 1 to-keep=1"));
}

TEST_F(BaseChannelNumber, SilenceAndSoundSetAndEndTheSilence) {
  rRecorder.fSilenceOnDemand = true;
  Record();
  rLine.DtmfAction("silence");
  Hear(DRIVER_CH, "abc");
  rLine.DtmfAction("sound");
  Hear(DRIVER_CH, "def");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Action to perform: silence", "5 [7] Silencing set to 1",
                                 "5 [7] Action to perform: sound", "5 [7] Silencing set to 0"));
  EXPECT_EQ(AudioOf(FILE_1),
            "\xd5\xd5\xd5"
            "def");
}

TEST_F(BaseChannelNumber, StartAndStopDriveRecordingOnDemand) {
  Wait();
  rLine.DtmfAction("start");
  EXPECT_EQ(Active("isarchived"), "1");
  rLine.DtmfAction("stop");
  EXPECT_EQ(Active("isarchived"), "0");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Action to perform: start", "5 [7] RecOnDmd: START", "5 [7] Starting recording",
                                 "5 [7] Recording to file /recordings/2024/01/31/14/20240131_142345_007_02.wav",
                                 "5 [7] Action to perform: stop", "5 [7] RecOnDmd: STOP",
                                 "5 [7] Recording stopped (0 s)", "5 [7] Recording on demand"));
}

TEST_F(BaseChannelNumber, DeleteEndsTheRecordingWhenAllowed) {
  Record();
  rLine.DtmfAction("delete");
  EXPECT_EQ(ActiveRows(), 1u);
  rRecorder.iDelOnDmdType = 1;
  rLine.DtmfAction("delete");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Action to perform: delete", "5 [7] delete on demand is switched off in options",
                                 "5 [7] Action to perform: delete", "5 [7] Recording stopped (0 s)"));
  EXPECT_FALSE(testtools::Exists(FILE_1));
  EXPECT_EQ(ActiveRows() + KeptRows(), 0u);
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234"));  // the rest of the call is barred
}

}  // namespace
