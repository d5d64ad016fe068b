#include "DstChannel.h"

#include "ChannelBench.h"

namespace {

const Texts NOTHING;
constexpr const char* LATIN1_WORD = "M\374ller";

class DisplayTest : public ChannelBench {
 protected:
  // The line's calls are barred: nothing is recorded, and the log holds what the display did.
  void Init(const char* acPbxType = "", const char* acTdmStart = "0") {
    rRecorder.strPbxType = acPbxType;
    rRecorder.rBoardParams["TdmStart"] = acTdmStart;
    InitLine(rLine, 5);
    rLine.fDontRecord = true;
  }
  // In a call for so many seconds.
  void InCallFor(int iSeconds) {
    rLine.fInCall_DChannel = rLine.fCallBusy = true;
    rLine.rStartTime = rNow - iSeconds;
  }
  void KnownNumber(const std::string& strNum, int iAge = 0) {
    rLine.strRemoteNum = strNum;
    rLine.rRemoteNumTime = rNow - iAge;
  }
  // A display message as the card sends it; the log lines of it.
  Texts Show(std::string strText) {
    (void)logsink::Take();
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, DMSG_DISPLAY, 0, &strText);
    rLine.HandleEvent(&rEvent);
    return logsink::TakeTexts();
  }
  // The same without the line that shows the message itself.
  Texts After(const std::string& strText) {
    Texts astrLines = Show(strText);
    EXPECT_EQ("5 [5] Message change:" + strText, astrLines.empty() ? "" : astrLines.front());
    if (!astrLines.empty()) astrLines.erase(astrLines.begin());
    return astrLines;
  }
  bool Named(const std::string& strText, const std::string& strKnown, std::string& strName) {
    snprintf(rLine.acPhoneDisp, sizeof rLine.acPhoneDisp, "%s", strText.c_str());
    strName = strKnown;
    return rLine.CheckForName(strName);
  }

  OpenChannel<DST_Channel> rLine;
};

}  // namespace

TEST_F(DisplayTest, NumberInACallBecomesTheRemoteNumber) {
  Init();
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Remote: 1234"}), After("Von 1234\nx"));
  EXPECT_EQ("1234", rLine.strRemoteNum);
  EXPECT_EQ(rNow, rLine.rRemoteNumTime);
}

TEST_F(DisplayTest, TextIsCutAt300Bytes) {
  Init();
  InCallFor(0);
  const std::string strBlanks(297, '-');
  EXPECT_EQ((Texts{"5 [5] Message change:" + strBlanks + "123", "5 [5] Remote: 123"}), Show(strBlanks + "12345"));
  EXPECT_EQ("123", rLine.strRemoteNum);
  EXPECT_EQ((Texts{"5 [5] Message change:12"}), Show(std::string("12\0"
                                                                 "34567",
                                                                 8)))
      << "a NUL ends the text";
}

TEST_F(DisplayTest, WholeAnalysisOnlyInOrNearACall) {
  struct Row {
    const char* acLabel;
    const char* acPbxType;
    const char* acTdmStart;
    bool fCallBusy, fRinging;
    int iSinceRing;  // -1: no ring
    bool fWhole;
  };
  const Row rRows[] = {
      {"idle", "", "0", false, false, -1, false},
      {"in a call", "", "0", true, false, -1, true},
      {"ringing", "", "0", false, true, 4, true},
      {"ring in this second", "", "0", false, false, 0, true},
      {"ring in the second before", "", "0", false, false, 1, false},
      {"Panasonic", "PANASONIC", "0", false, false, -1, true},
      {"Belgacom", "Belgacom", "0", false, false, -1, true},
      {"Siemens", "Siemens Hicom", "0", false, false, -1, false},
      {"mute light", "", "1", false, false, -1, true},
      {"audio change", "", "2", false, false, -1, false},
      {"mute light and tone", "", "3", false, false, -1, true},
  };
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    Init(rRow.acPbxType, rRow.acTdmStart);
    if (rRow.acPbxType[0] == '\0') rLine.iPbxType = PBX_UNDEF;
    rLine.strRemoteNum.clear();
    rLine.rRemoteNumTime = 0;
    rLine.fInCall_DChannel = rLine.fCallBusy = false;
    if (rRow.fCallBusy) InCallFor(0);
    rLine.fRinging = rRow.fRinging;
    rLine.rFirstRing = rLine.rLastRing = rRow.iSinceRing < 0 ? 0 : rNow - rRow.iSinceRing;
    EXPECT_EQ(rRow.fWhole ? (Texts{"5 [5] Remote: 1234"}) : (Texts{"5 [5] Remote: "}), After("1234"));
    EXPECT_EQ(rRow.fWhole ? "1234" : "", rLine.strRemoteNum);
  }
}

TEST_F(DisplayTest, IdleDisplayDropsANumberThatIsNoLongerShown) {
  Init();
  KnownNumber("1234", 5);
  EXPECT_EQ(NOTHING, After("1234")) << "still shown";
  EXPECT_EQ(NOTHING, After("Welcome")) << "shows no number";
  EXPECT_EQ("1234", rLine.strRemoteNum);
  PassSeconds(100);
  EXPECT_EQ((Texts{"5 [5] Remote: "}), After("5678")) << "and an idle display lets no number expire";
  EXPECT_EQ("", rLine.strRemoteNum);
  EXPECT_EQ(rNow, rLine.rRemoteNumTime);
}

TEST_F(DisplayTest, IdleDisplayOfTheLastCallDropsNothing) {
  Init();
  rLine.strPrevCallRemoteNum = "5678";
  KnownNumber("1234");
  EXPECT_EQ(NOTHING, After("5678"));
  EXPECT_EQ("1234", rLine.strRemoteNum);
}

TEST_F(DisplayTest, IdleDisplayWithAnEmptyNameDropsNothing) {
  Init("NEC");
  rLine.strLocalNum = "99";
  KnownNumber("1234");
  EXPECT_EQ(NOTHING, After("\nTALKING TO "));
  EXPECT_EQ("1234", rLine.strRemoteNum);
}

TEST_F(DisplayTest, OldNumberExpiresBeforeTheDisplayIsRead) {
  Init("PANASONIC");
  KnownNumber("123456", 11);
  EXPECT_EQ((Texts{"5 [5] Remote expired, 11 seconds old", "5 [5] Remote: 789"}), After("789"));
  KnownNumber("123456", 10);
  EXPECT_EQ(NOTHING, After("789"));
  EXPECT_EQ("123456", rLine.strRemoteNum);
}

TEST_F(DisplayTest, NumberThatStaysOnTheDisplayIsRefreshed) {
  Init("PANASONIC");
  InCallFor(0);
  KnownNumber("1234", 5);
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), After("1234"));
  EXPECT_EQ(rNow, rLine.rRemoteNumTime);
  KnownNumber("1234", 5);
  EXPECT_EQ(NOTHING, After("123")) << "another number, too short to win";
  EXPECT_EQ(rNow - 5, rLine.rRemoteNumTime);
}

TEST_F(DisplayTest, NumberOfEqualLengthIsTakenAgainOutsideACall) {
  Init("PANASONIC");
  KnownNumber("1234", 5);
  EXPECT_EQ((Texts{"5 [5] Remote: 1234"}), After("1234"));
}

TEST_F(DisplayTest, RefreshIsSilentWhenTheNumberIsNotShownForItself) {
  Init();
  InCallFor(50);
  KnownNumber("5678", 3);
  EXPECT_EQ(NOTHING, After("1234\n5678")) << "the scan of an empty number ends at the first";
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
    InCallFor(rRow.iBusyFor);
    KnownNumber("123");
    EXPECT_EQ(rRow.fReplaced ? (Texts{"5 [5] Remote: 123456"}) : NOTHING, After(rRow.acText));
    rLine.strRemoteNum.clear();
    EXPECT_EQ((Texts{"5 [5] Remote: 123456"}), After(rRow.acText)) << "with no number known";
  }
}

TEST_F(DisplayTest, ForwardTextOutsideACallMeansNothing) {
  Init("PANASONIC");
  KnownNumber("123");
  EXPECT_EQ((Texts{"5 [5] Remote: 123456"}), After("Ruf bei Jan\n123456"));
}

TEST_F(DisplayTest, OwnPreviousAndRungNumbersComeFromTheLine) {
  Init("PANASONIC");
  rLine.iPbxType = PBX_BELGACOM;
  rLine.strLocalNum = "1111";
  rLine.strLocalName = "Desk 2222";
  rLine.strPrevCallRemoteNum = "3333";
  EXPECT_EQ(NOTHING, After("1111\n2222\n3333"));
  rLine.rFirstRing = rNow - 3;
  EXPECT_EQ((Texts{"5 [5] Remote: 3333"}), After("1111\n2222\n3333")) << "a ring makes the number news";
}

TEST_F(DisplayTest, EricssonTakesTheLastAndNoEqualOneAfterTenSeconds) {
  Init("Ericsson MD110");
  InCallFor(10);
  EXPECT_EQ((Texts{"5 [5] Remote: 5678"}), After("1234\n5678"));
  PassSeconds(1);
  EXPECT_EQ(NOTHING, After("4321"));
  EXPECT_EQ("5678", rLine.strRemoteNum);
}

TEST_F(DisplayTest, NecCallingFreezesTheDigits) {
  Init("NEC");
  InCallFor(0);
  EXPECT_EQ(NOTHING, After("CALLING"));
  EXPECT_FALSE(rLine.fDigitFreeze) << "on the first line";
  EXPECT_EQ(NOTHING, After("x\nCALLINGS"));
  EXPECT_TRUE(rLine.fDigitFreeze);
  OpenChannel<DST_Channel> rOther;
  InitLine(rOther, 6);
  rOther.iPbxType = PBX_SIEMENS;
  snprintf(rOther.acPhoneDisp, sizeof rOther.acPhoneDisp, "x\nCALLING");
  rOther.AnalyseCID();
  EXPECT_FALSE(rOther.fDigitFreeze) << "another PBX";
}

TEST_F(DisplayTest, NecTalkingToIsANewRemoteNumber) {
  Init("NEC");
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Remote: Jansen"}), After("LINE 2\nTALKING TO  Jansen\n"));
  rLine.strLocalNum = "99";
  rLine.strRemoteNum.clear();
  EXPECT_EQ((Texts{"5 [5] Remote: "}), After("\nTALKING TO\n")) << "an empty name too";
}

// -- names -----------------------------------------------------------------------------------------------------------

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
  Init();
  for (const Row& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    std::string strName;
    EXPECT_EQ(rRow.acName != nullptr, Named(rRow.acText, "kept", strName));
    EXPECT_EQ(rRow.acName != nullptr ? rRow.acName : "kept", strName);
    EXPECT_EQ(rRow.acName != nullptr ? (Texts{std::string("5 [5] Detected name: '") + rRow.acName + "'"}) : NOTHING,
              logsink::TakeTexts());
  }
}

TEST_F(DisplayTest, NameIsNewOnlyOnceAndOnlyAtSitesThatAskForIt) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  std::string strName;
  EXPECT_FALSE(Named("12345 Jansen", "Jansen", strName));
  EXPECT_TRUE(Named("12345 Jansen", "Jansens", strName));
  rLine.fSpecial_Pilot = false;
  EXPECT_FALSE(Named("12345 Jansen", "", strName));
}

TEST_F(DisplayTest, NameAndNumberAreTakenTogether) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  EXPECT_EQ((Texts{"5 [5] Detected name: 'Jansen'", "5 [5] Remote: 12345"}), After("12345 Jansen"));
  EXPECT_EQ("Jansen", rLine.strConnectedNum);
  EXPECT_EQ("Jansen", rLine.strPrevConnectedNum);
  EXPECT_TRUE(rLine.fHasConnectedNum);
  EXPECT_EQ((Texts{"5 [5] Remote number refreshed"}), After("12345 Jansen")) << "neither is new";
}

TEST_F(DisplayTest, NewNameAloneIsAChangeTooAndTheNumberIsRefreshed) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  KnownNumber("12345");
  EXPECT_EQ((Texts{"5 [5] Detected name: 'Jan Lee'", "5 [5] Remote: 12345", "5 [5] Remote number refreshed"}),
            After("12345 Jan Lee"));
  EXPECT_TRUE(rLine.fHasConnectedNum);
}

TEST_F(DisplayTest, NoNameLeavesTheConnectedNumberAlone) {
  rRecorder.rSpecials = {"Pilot"};
  Init();
  InCallFor(0);
  rLine.strConnectedNum = "77";
  EXPECT_EQ((Texts{"5 [5] Remote: 12345"}), After(std::string("12345 ") + LATIN1_WORD));
  EXPECT_EQ("77", rLine.strConnectedNum);
  EXPECT_FALSE(rLine.fHasConnectedNum);
}

// -- logins ----------------------------------------------------------------------------------------------------------

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
      Init("", acTdmStart);
      rLine.strDigits = rRow.acDigits;
      rLine.iLocalNumSize = rRow.iLocalNumSize;
      rLine.rAlmostLocalNum = 0;
      EXPECT_EQ(rRow.astrLines, After(rRow.acText));
      EXPECT_EQ(rRow.acDigitsAfter, rLine.strDigits);
      const bool fAlmost = !rRow.astrLines.empty() && rRow.astrLines.back() == ALMOST;
      EXPECT_EQ(fAlmost ? rNow : 0, rLine.rAlmostLocalNum);
      EXPECT_EQ("", rLine.strRemoteNum);
    }
  }
}

TEST_F(DisplayTest, LoginPromptOutsideTheMuteModesIsAnOrdinaryText) {
  Init("PANASONIC");
  rLine.strDigits = "123";
  EXPECT_EQ((Texts{"5 [5] Remote: 123"}), After("Identifikation:123\n"));
  EXPECT_EQ(0, rLine.rAlmostLocalNum);
}

TEST_F(DisplayTest, LoginPromptComesAfterTheExpiry) {
  Init("", "1");
  KnownNumber("1234", 11);
  EXPECT_EQ((Texts{"5 [5] Remote expired, 11 seconds old"}), After("Identifikation:"));
}

TEST_F(DisplayTest, LastDigitOfALoginIsTheLocalId) {
  Init("", "1");
  const auto Key = [this](char ch) {
    SSM_EVENT rEvent = simcards::MakeEvent(E_RCV_DSTDChannel, 0, DMSG_KEY_DIGIT, static_cast<DWORD>(ch));
    rLine.HandleEvent(&rEvent);
  };
  for (const char ch : {'7', '1', '2', '3'}) Key(ch);
  EXPECT_EQ((Texts{"5 [5] Correcting digits for local ID", "5 [5] Local ID almost complete"}),
            After("Identifikation:123\n"));
  PassSeconds(4);
  Key('4');
  EXPECT_EQ((Texts{"5 [5] Digits: 1234", "5 [5] Local ID: 1234"}), logsink::TakeTexts());
  EXPECT_EQ("1234", rLine.strLocalNum);
}

TEST_F(DisplayTest, LoginTextAtTheStartIsRemembered) {
  Init("PANASONIC");
  EXPECT_EQ((Texts{"5 [5] Login busy"}), After("Ihre Rufnummer :\nx"));
  EXPECT_EQ(rNow, rLine.rLoginBusy);
  rLine.rLoginBusy = 0;
  EXPECT_EQ(NOTHING, After("\nIhre Rufnummer :")) << "not at the start";
  EXPECT_EQ(NOTHING, After("Ihre Rufnummer:")) << "no blank";
  EXPECT_EQ(0, rLine.rLoginBusy);
  EXPECT_EQ((Texts{"5 [5] Login busy", "5 [5] Remote: 1234"}), After("Ihre Rufnummer : 1234")) << "the scan goes on";
  Init("", "0");
  rLine.iPbxType = PBX_UNDEF;
  rLine.rLoginBusy = 0;
  rLine.strRemoteNum.clear();
  EXPECT_EQ(NOTHING, After("Ihre Rufnummer :")) << "an idle line looks for stale numbers only";
  EXPECT_EQ(0, rLine.rLoginBusy);
}
