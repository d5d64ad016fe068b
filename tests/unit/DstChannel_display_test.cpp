// What a line does with the numbers, names and logins on its display; the scan of a text by itself stands in
// DstChannel_display_scan_test.cpp.
#include "DstBench.h"
#include "DstChannel.h"
#include "OpenTelephone.h"

namespace {

const Texts NOTHING;
constexpr const char* LATIN1_WORD = "M\374ller";

// In a call the numbers of displays are taken, and late in it they are not, so the calls here are recorded.
class DisplayTest : public DstBench {
 protected:
  DisplayTest() { AllowRecording(); }
  // In a call that has lasted so long.
  void InCallFor(int iSeconds) {
    OffHook();
    PassSeconds(iSeconds);
  }
  // What a call that starts now would have as its remote number.
  std::string RemoteOfACall() {
    OffHook();
    const std::string strRemote = Active("remote");
    OnHook();
    return strRemote;
  }
  std::string DigitsNow() {
    ForgetTraces();
    Keys("0");
    const Texts astrLines = Log();
    const std::string strHead = "5 [5] Digits: ";
    return astrLines.at(0).substr(strHead.size(), astrLines.at(0).size() - strHead.size() - 1);
  }
};

}  // namespace

TEST_F(DisplayTest, NumberInACallBecomesTheRemoteNumber) {
  Init();
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Remote: 1234"}), Shown("Von 1234\nx"));
  OnHook();
  EXPECT_EQ("1234", Kept("remote"));
}

TEST_F(DisplayTest, TextIsCutAt300Bytes) {
  Init();
  InCallFor(0);
  ForgetTraces();
  const std::string strBlanks(297, '-');
  Display(strBlanks + "12345");
  EXPECT_EQ((Texts{"5 [5] Message change:" + strBlanks + "123", "5 [5] Remote: 123"}), Log());
  Display(
      std::string("12\0"
                  "34567",
                  8));
  EXPECT_EQ((Texts{"5 [5] Message change:12"}), Log()) << "a NUL ends the text";
}

TEST_F(DisplayTest, IdleDisplayDropsANumberThatIsNoLongerShown) {
  Init();
  DMsg(DMSG_RING_ON);
  Display("1234");
  DMsg(DMSG_RING_OFF);
  PassSeconds(5);
  EXPECT_EQ(NOTHING, Shown("1234")) << "still shown";
  EXPECT_EQ(NOTHING, Shown("Welcome")) << "shows no number";
  PassSeconds(100);
  EXPECT_EQ((Texts{"5 [5] Remote: "}), Shown("5678")) << "and an idle display lets no number expire";
  EXPECT_EQ("", RemoteOfACall());
}

TEST_F(DisplayTest, IdleDisplayThatShowsTheNumberKeepsIt) {
  Init();
  DMsg(DMSG_RING_ON);
  Display("1234");
  DMsg(DMSG_RING_OFF);
  PassSeconds(5);
  Display("1234");
  Display("Welcome");
  EXPECT_EQ("1234", RemoteOfACall());
}

TEST_F(DisplayTest, IdleDisplayOfTheLastCallDropsNothing) {
  Init();
  InCallFor(0);
  Display("5678");
  OnHook();
  ISDN_CALL_INFO rInfo;  // tells a number without a ring
  rInfo.CallSource = 1;
  (void)snprintf(rInfo.CallerNumber, sizeof rInfo.CallerNumber, "1234");
  DText(DMSG_BRI_PROGRESS, std::string(reinterpret_cast<const char*>(&rInfo), sizeof rInfo));
  EXPECT_EQ(NOTHING, Shown("5678"));
  EXPECT_EQ((Texts{"5 [5] Remote: "}), Shown("9999")) << "any other does";
}

TEST_F(DisplayTest, IdleDisplayWithAnEmptyNameDropsNothing) {
  Init("NEC");
  DText(DMSG_CHANGE_LOCAL, "99");
  DMsg(DMSG_RING_ON);
  Display("1234");
  DMsg(DMSG_RING_OFF);
  PassSeconds(1);
  EXPECT_EQ(NOTHING, Shown("\nTALKING TO "));
  EXPECT_EQ("1234", RemoteOfACall());
}

TEST_F(DisplayTest, OldNumberExpiresBeforeTheDisplayIsRead) {
  Init("PANASONIC");
  Display("123456");
  PassSeconds(10);
  EXPECT_EQ(NOTHING, Shown("789"));
  PassSeconds(1);
  EXPECT_EQ((Texts{"5 [5] Remote expired, 11 seconds old", "5 [5] Remote: 789"}), Shown("789"));
}

TEST_F(DisplayTest, NumberThatStaysOnTheDisplayIsRefreshed) {
  Init("PANASONIC");
  InCallFor(0);
  Display("1234");
  PassSeconds(5);
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), Shown("1234"));
  EXPECT_EQ(NOTHING, Shown("123")) << "another number, too short to win";
}

// A known number that is shown again at its age of eight seconds does not expire at eleven.
TEST_F(DisplayTest, RefreshedNumberIsAsYoungAsItsRefresh) {
  for (const bool fRefresh : {false, true}) {
    Init("PANASONIC");
    Display("123456");
    PassSeconds(8);
    if (fRefresh) Display("123456");
    PassSeconds(4);
    EXPECT_EQ(fRefresh ? "123456" : "", RemoteOfACall());
  }
}

TEST_F(DisplayTest, NumberOfEqualLengthIsTakenAgainOutsideACall) {
  Init("PANASONIC");
  Display("1234");
  PassSeconds(5);
  EXPECT_EQ((Texts{"5 [5] Remote: 1234"}), Shown("1234"));
}

TEST_F(DisplayTest, RefreshIsSilentWhenTheNumberIsNotShownForItself) {
  Init();
  InCallFor(0);
  Display("5678");
  PassSeconds(50);
  EXPECT_EQ(NOTHING, Shown("1234\n5678")) << "the scan of an empty number ends at the first";
}

TEST_F(DisplayTest, KnownNumberStandsLateInACall) {
  struct Row {
    const char* acLabel;
    int iBusyFor;
    const char* acText;
    bool fReplaced;
  };
  const Row rRows[] = {
      {"at 20 s", 20, "123456", true},
      {"at 45 s", 45, "123456", true},
      {"at 46 s", 46, "123456", false},
      {"at 50 s", 50, "123456", false},
      {"forwarded, at 20 s", 20, "Ruf bei Jan\n123456", false},
      {"forwarded, at 0 s", 0, "Oproep voor Jan\n123456", false},
      {"forwarded, in English", 0, "Call for Jan\n123456", false},
      {"forwarded, in capitals", 0, "xRUF BEI\n123456", false},
      {"forwarded, in mixed case", 0, "oProEp vOOr\n123456", false},
      {"forwarded, in lower case behind the number", 0, "123456\ncall for", false},
      {"two blanks", 0, "Call  for\n123456", true},
      {"words over two lines", 0, "Ruf\nbei\n123456", true},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    Init();
    InCallFor(0);
    Display("123");
    PassSeconds(rRow.iBusyFor);
    EXPECT_EQ(rRow.fReplaced ? (Texts{"5 [5] Remote: 123456"}) : NOTHING, Shown(rRow.acText));
    Init();
    InCallFor(rRow.iBusyFor);
    EXPECT_EQ((Texts{"5 [5] Remote: 123456"}), Shown(rRow.acText)) << "with no number known";
  }
}

TEST_F(DisplayTest, KnownNumberStandsLateInARecordingPartAndNotInItsCall) {
  rRecorder.rChannelParams["LongRecordings"] = "1";
  rRecorder.rChannelParams["LongRecordingsLen"] = "1";
  AllowRecording();
  Init();
  OffHook();
  Display("123");
  Seconds(50);
  EXPECT_EQ(NOTHING, Shown("123456"));
  Seconds(10);  // the next part begins
  EXPECT_EQ((Texts{"5 [5] Remote: 123456"}), Shown("123456"));
}

TEST_F(DisplayTest, ForwardTextOutsideACallMeansNothing) {
  Init("PANASONIC");
  Display("123");
  EXPECT_EQ((Texts{"5 [5] Remote: 123456"}), Shown("Ruf bei Jan\n123456"));
}

TEST_F(DisplayTest, OwnNamedAndPreviousNumbersComeFromTheLine) {
  rRecorder.rDatabase.rContactNames[1005] = "Desk 2222";
  Init("Belgacom");
  InCallFor(0);
  Display("3333");
  OnHook();
  DText(DMSG_CHANGE_LOCAL, "1111");
  EXPECT_EQ(NOTHING, Shown("1111\n2222\n3333"));
  DMsg(DMSG_RING_ON);
  EXPECT_EQ((Texts{"5 [5] Remote: 3333"}), Shown("1111\n2222\n3333")) << "a ring makes the number news";
}

TEST_F(DisplayTest, EricssonTakesTheLastAndNoEqualOneAfterTenSeconds) {
  Init("Ericsson MD110");
  InCallFor(10);
  EXPECT_EQ((Texts{"5 [5] Remote: 5678"}), Shown("1234\n5678"));
  PassSeconds(1);
  EXPECT_EQ(NOTHING, Shown("4321"));
  OnHook();
  EXPECT_EQ("5678", Kept("remote"));
}

TEST_F(DisplayTest, NecCallingFreezesTheDigits) {
  Init("NEC");
  InCallFor(0);
  EXPECT_EQ(NOTHING, Shown("CALLING"));
  Keys("1");
  EXPECT_EQ((Texts{"5 [5] Digits: 1"}), Log()) << "on the first line it means nothing";
  EXPECT_EQ(NOTHING, Shown("x\nCALLINGS"));
  Keys("2");
  EXPECT_EQ(NOTHING, Log());
  Init("Siemens Hicom");
  InCallFor(0);
  Display("x\nCALLING");
  ForgetTraces();
  Keys("3");
  EXPECT_EQ((Texts{"5 [5] Digits: 3"}), Log()) << "another PBX";
}

TEST_F(DisplayTest, NecTalkingToIsANewRemoteNumber) {
  Init("NEC");
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Remote: Jansen"}), Shown("LINE 2\nTALKING TO  Jansen\n"));
  OnHook();
  DText(DMSG_CHANGE_LOCAL, "99");
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Remote: "}), Shown("\nTALKING TO\n")) << "an empty name too";
}

// -- names ------------------------------------------------------------------------------------------------------------

// No number that the text may have as well is taken: the line knows a longer one.
TEST_F(DisplayTest, NameFollowsANumber) {
  struct Row {
    const char* acLabel;
    const char* acText;
    const char* acName;  // null: none
  };
  const Row rRows[] = {
      {"five digits", "12345 Jansen", "Jansen"},
      {"four digits", "1234 Jansen", nullptr},
      {"a shorter run is forgotten", "1234 12345 Jansen", "Jansen"},
      {"a shorter run that ends in another sign", "12:34567 Jansen", nullptr},
      {"ended by another sign", "12345:Jansen", nullptr},
      {"ended by a tab", "12345\tJansen", nullptr},
      {"ended by a line feed", "12345\nJansen", nullptr},
      {"text before", "von 12345 Jansen", "Jansen"},
      {"second line", "abc\n12345 Jansen", "Jansen"},
      {"no digits", "Jansen", nullptr},
      {"empty", "", nullptr},
      {"number only", "12345", nullptr},
      {"number and blank", "12345 ", nullptr},
      {"two blanks", "12345  Jansen", nullptr},
      {"begins with a digit", "12345 9Jansen", nullptr},
      {"begins with an accented letter", "12345 \304rzte", nullptr},
      {"Amt", "Amt Jansen", "Jansen"},
      {"Amt and two blanks", "Amt  Jansen", nullptr},
      {"Amt in lower case", "amt Jansen", nullptr},
      {"Amt not at the start", " Amt Jansen", nullptr},
      {"Amt and a number", "Amt 12345 Jansen", nullptr},
      {"Amt alone", "Amt ", nullptr},
      {"two words", "12345 Jan Lee", "Jan Lee"},
      {"two blanks end it", "12345 Jan  Lee", "Jan"},
      {"blank at the end", "12345 Jan ", "Jan"},
      {"blank and line feed", "12345 Jan \nLee", "Jan"},
      {"line feed", "12345 Jan\nLee", "Jan"},
      {"another sign", "12345 Jan-Lee", "Jan"},
      {"blank and another sign", "12345 Jan (2)", "Jan"},
      {"digits", "12345 Jan2 3", "Jan2 3"},
      {"slash", "12345 A/B Lee", "A/B Lee"},
      {"a full stop ends it behind itself", "12345 Dr. Lee", "Dr."},
      {"a full stop ends it before a letter", "12345 Dr.Lee", "Dr."},
      {"two full stops", "12345 Dr..Lee", "Dr."},
      {"full stop behind a blank", "12345 Jan .Lee", "Jan ."},
      {"full stop at the end", "12345 Lee.", "Lee."},
      {"too short with its full stop", "12345 J. Lee", nullptr},
      {"two letters", "12345 Jo", nullptr},
      {"three letters", "12345 Joe", "Joe"},
      {"bracket", "12345 Jan[2]", nullptr},
      {"bracket behind a blank", "12345 Jan [2]", nullptr},
      {"bracket behind two blanks", "12345 Jan  [2]", "Jan"},
      {"bracket behind a full stop", "12345 Dr.[2]", nullptr},
      {"bracket on the next line", "12345 Jan\n[2]", "Jan"},
      {"accented letter ends it", "12345 Andr\351 x", "Andr"},
      {"accented letter leaves too little", "12345 M\374ller", nullptr},
  };
  rRecorder.rSpecials = {"Pilot"};
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    Init();
    InCallFor(0);
    Display("99999999999999");
    const Texts astrName = {std::string("5 [5] Detected name: '") + (rRow.acName != nullptr ? rRow.acName : "") + "'",
                            "5 [5] Remote: 99999999999999"};
    EXPECT_EQ(rRow.acName != nullptr ? astrName : NOTHING, Shown(rRow.acText));
  }
}

TEST_F(DisplayTest, NameIsNewOnlyOnceAndOnlyAtSitesThatAskForIt) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  const Texts astrFirst = {"5 [5] Detected name: 'Jansen'", "5 [5] Remote: 12345"};
  EXPECT_EQ(astrFirst, Shown("12345 Jansen"));
  const Texts astrSecond = {"5 [5] Detected name: 'Jansens'", "5 [5] Remote: 12345", "5 [5] Remote number refreshed"};
  EXPECT_EQ(astrSecond, Shown("12345 Jansens"));
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), Shown("12345 Jansens"));
  rRecorder.rSpecials.clear();
  Init();
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Remote: 12345"}), Shown("12345 Jansen"));
}

TEST_F(DisplayTest, NameAndNumberAreTakenTogether) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Detected name: 'Jansen'", "5 [5] Remote: 12345"}), Shown("12345 Jansen"));
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), Shown("12345 Jansen")) << "neither is new";
  OnHook();
  EXPECT_EQ("12345", Kept("remote"));
  EXPECT_EQ("Jansen", Kept("connected"));
}

TEST_F(DisplayTest, RefreshedNumberOfTheCallBeforeAnnouncesAnother) {
  AllowRecording();
  rRecorder.rDatabase.rParts["o"]["RecMinDur"] = "10";
  Init("NEC");
  InCallFor(0);
  Display("\nTALKING TO MEIER");
  OnHook();  // too soon for the number to be forgotten
  DMsg(DMSG_RING_ON);
  ForgetTraces();
  EXPECT_TRUE(prLine->ChangeLocalOrder("22", "MEIER", /*stopstart=*/false));
  EXPECT_EQ((Texts{"5 [5] No active call for this channel"}), Log());
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), Shown("\nTALKING TO MEIER"));
  EXPECT_TRUE(prLine->ChangeLocalOrder("22", "MEIER", /*stopstart=*/false));
  EXPECT_EQ((Texts{"5 [5] LocalNumberChanged. Change:  to: 22."}), Log());
}

TEST_F(DisplayTest, NewNameAloneIsAChangeTooAndTheNumberIsRefreshed) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  Display("12345");
  EXPECT_EQ((Texts{"5 [5] Detected name: 'Jan Lee'", "5 [5] Remote: 12345", "5 [5] Remote number refreshed"}),
            Shown("12345 Jan Lee"));
  OnHook();
  EXPECT_EQ("Jan Lee", Kept("connected"));
}

TEST_F(DisplayTest, TextWithoutANameLeavesTheOneBefore) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  Display("12345 Jansen");
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), Shown(std::string("12345 ") + LATIN1_WORD));
  OnHook();
  EXPECT_EQ("Jansen", Kept("connected"));
}

// -- logins -----------------------------------------------------------------------------------------------------------

TEST_F(DisplayTest, LoginPromptComparesTheDigits) {
  const char* const ALMOST = "5 [5] Local ID almost complete";
  const char* const CORRECTING = "5 [5] Correcting digits for local ID";
  const char* const NOT_WORKING = "5 [5] Local ID almost complete, but digits not working";
  struct Row {
    const char* acLabel;
    const char* acText;
    const char* acDigits;
    int iLocalNumSize;
    Texts astrLines;
    const char* acDigitsAfter;
  };
  const Row rRows[] = {
      {"the same digits", "Identifikation:123\n", "123", 4, {ALMOST}, "123"},
      {"marker anywhere", "Bitte\nIdentifikation:123\nx", "123", 4, {ALMOST}, "123"},
      {"more digits that end in them", "Identifikation:123\n", "99123", 4, {CORRECTING, ALMOST}, "123"},
      {"other digits", "Identifikation:123\n", "124", 4, {NOT_WORKING}, "124"},
      {"more digits that begin with them", "Identifikation:123\n", "1234", 4, {NOT_WORKING}, "1234"},
      {"fewer digits", "Identifikation:123\n", "23", 4, {NOT_WORKING}, "23"},
      {"no digits", "Identifikation:123\n", "", 4, {NOT_WORKING}, ""},
      {"line feeds before and between", "Identifikation:\n1\n23\n", "123", 4, {ALMOST}, "123"},
      {"many line feeds tell it once", "Identifikation:123\n\n\n", "123", 4, {ALMOST}, "123"},
      {"no line feed", "Identifikation:123", "123", 4, {}, "123"},
      {"a blank ends it", "Identifikation: 123\n", "123", 4, {}, "123"},
      {"a blank before the line feed", "Identifikation:123 \n", "123", 4, {}, "123"},
      {"two digits", "Identifikation:12\n", "12", 4, {}, "12"},
      {"four digits", "Identifikation:1234\n", "1234", 4, {}, "1234"},
      {"shorter local id", "Identifikation:12\n", "12", 3, {ALMOST}, "12"},
      {"longer local id is never reached", "Identifikation:1234\n", "1234", 5, {}, "1234"},
      {"local id of one digit", "Identifikation:\n1", "77", 1, {CORRECTING, ALMOST}, ""},
      {"a number on the display is not looked at", "12345\nIdentifikation:", "1", 4, {}, "1"},
      {"the first marker counts", "Identifikation:\nIdentifikation:123\n", "123", 4, {}, "123"},
  };
  for (const char* acTdmStart : {"1", "3"}) {
    for (const Row& rRow : rRows) {
      SCOPED_TRACE(std::string(rRow.acLabel) + ", start mode " + acTdmStart);
      Init("", {{"TdmStart", acTdmStart}});
      auto prOpen = std::make_unique<OpenTelephone>();
      prOpen->iLocalNumSize = rRow.iLocalNumSize;
      TakeLine(std::move(prOpen));
      InitLine(*prLine, 5);
      Keys(rRow.acDigits);
      EXPECT_EQ(rRow.astrLines, Shown(rRow.acText));
      EXPECT_EQ(rRow.acDigitsAfter, DigitsNow());
    }
  }
}

TEST_F(DisplayTest, LoginPromptHasNoRemoteNumber) {
  InitMode(TDM_START_MUTELT);
  Display("12345\nIdentifikation:");
  EXPECT_EQ("", RemoteOfACall());
}

TEST_F(DisplayTest, LoginPromptOutsideTheMuteModesIsAnOrdinaryText) {
  Init("PANASONIC");
  Keys("123");
  EXPECT_EQ((Texts{"5 [5] Remote: 123"}), Shown("Identifikation:123\n"));
  Keys("4");
  EXPECT_EQ((Texts{"5 [5] Digits: 1234"}), Log()) << "no local id";
}

TEST_F(DisplayTest, LoginPromptComesBehindTheExpiry) {
  InitMode(TDM_START_MUTELT);
  Display("1234");
  PassSeconds(11);
  EXPECT_EQ((Texts{"5 [5] Remote expired, 11 seconds old"}), Shown("Identifikation:"));
}

TEST_F(DisplayTest, LastDigitOfALoginIsTheLocalId) {
  InitMode(TDM_START_MUTELT);
  Keys("7123");
  EXPECT_EQ((Texts{"5 [5] Correcting digits for local ID", "5 [5] Local ID almost complete"}),
            Shown("Identifikation:123\n"));
  PassSeconds(4);
  Keys("4");
  EXPECT_EQ((Texts{"5 [5] Digits: 1234", "5 [5] Local ID: 1234"}), Log());
  EXPECT_EQ("1234", KeptLocalNum());
}

TEST_F(DisplayTest, LoginTextCountsAtTheStartOfADisplayThatIsRead) {
  Init("PANASONIC");
  EXPECT_EQ((Texts{"5 [5] Login busy"}), Shown("Ihre Rufnummer :\nx"));
  EXPECT_EQ(NOTHING, Shown("\nIhre Rufnummer :")) << "not at the start";
  EXPECT_EQ(NOTHING, Shown("Ihre Rufnummer:")) << "no blank";
  EXPECT_EQ((Texts{"5 [5] Login busy", "5 [5] Remote: 1234"}), Shown("Ihre Rufnummer : 1234")) << "the scan goes on";
  Init();
  EXPECT_EQ(NOTHING, Shown("Ihre Rufnummer :")) << "an idle line looks for stale numbers only";
}
