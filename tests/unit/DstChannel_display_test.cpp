#include "DstChannel.h"

#include <optional>

#include "ChannelBench.h"

namespace {

const Texts NOTHING;
constexpr const char* LATIN1_WORD = "M\374ller";

// A scan of a line that is idle and has had no ring; nullopt when nothing was found.
std::optional<std::string> Scan(const std::string& strText, const DisplayScanRules& rRules = {},
                                const std::string& strKnown = "") {
  std::string strRemoteNum = strKnown;
  if (ScanDisplay(strText.c_str(), rRules, strRemoteNum)) return strRemoteNum;
  EXPECT_EQ(strKnown, strRemoteNum) << "nothing found, but the number changed";
  return std::nullopt;
}

std::string Told(const std::optional<std::string>& strResult) {
  return strResult ? "'" + *strResult + "'" : "nothing";
}

// One display on an idle line that knows no number; the answer as Told gives it.
struct ScanRow {
  const char* acLabel;
  const char* acText;
  const char* acAnswer;
};

template <std::size_t N>
void CheckRows(const ScanRow (&rRows)[N], const DisplayScanRules& rRules = {}, const std::string& strKnown = "") {
  for (const ScanRow& rRow : rRows) EXPECT_EQ(rRow.acAnswer, Told(Scan(rRow.acText, rRules, strKnown))) << rRow.acLabel;
}

DisplayScanRules Rules(EPbxType ePbxType) {
  DisplayScanRules rRules;
  rRules.iPbxType = ePbxType;
  return rRules;
}

DisplayScanRules InMuteMode() {
  DisplayScanRules rRules;
  rRules.fMuteMode = true;
  return rRules;
}

}  // namespace

// -- the scan: where a number counts ---------------------------------------------------------------------------------

TEST(DisplayScan, NumberCountsByItsPlaceAndLength) {
  const ScanRow rRows[] = {
      {"empty text", "", "nothing"},
      {"no number", "No calls", "nothing"},
      {"alone", "1234", "'1234'"},
      {"at the start of the text", "1234 - x", "'1234'"},
      {"at the start of a line", "abc\n1234- x", "'1234'"},
      {"at the end of the text", "abc 1234", "'1234'"},
      {"at the end of a line", "abc 1234\nx", "'1234'"},
      {"in the middle of a line", "abc 1234 x", "nothing"},
      {"the first one wins", "1234\n56789", "'1234'"},
      {"goes on behind one that is not taken", "abc 1234 x\n5678", "'5678'"},
      {"three digits", "123", "'123'"},
      {"two digits", "12", "nothing"},
      {"one digit", "1", "nothing"},
      {"a long one", "012345678901234567890123456789", "'012345678901234567890123456789'"},
      {"letter right behind at line start", "1234a", "'1234'"},
      {"carriage return is no line end", "a 1234\r\n", "nothing"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, TwoDigitsCountOnlyBeforeIntern) {
  const ScanRow rRows[] = {
      {"internal number", "12 Intern", "'12'"},
      {"marker goes on", "12 Internal", "'12'"},
      {"marker in lower case", "12 intern", "nothing"},
      {"marker cut off", "12 Inter", "nothing"},
      {"no blank", "12Intern", "nothing"},
      {"two blanks", "12  Intern", "nothing"},
      {"one digit", "1 Intern", "nothing"},
      {"introduced", "von: 12 Intern", "'12'"},
      {"not introduced", "von 12 Intern", "nothing"},
      {"free on its line", "  12 Intern", "'12'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, NumberThatStandsFreeIsAccepted) {
  const ScanRow rRows[] = {
      {"blanks around", "   1234  ", "'1234'"},
      {"tabs around", "\t1234\t\nx", "'1234'"},
      {"letter behind a gap", "  1234 Jansen", "'1234'"},
      {"letter behind a tab", "  1234\tJansen", "'1234'"},
      {"letter right behind", "  1234Jansen", "nothing"},
      {"sign right behind", "  1234- x", "nothing"},
      {"sign behind a gap", "  1234 - x", "nothing"},
      {"digit behind a gap", "  1234 1 x", "nothing"},
      {"accented letter behind a gap", "  1234 \344x", "nothing"},
      {"letter before", "a 1234 ", "nothing"},
      {"text on the line before", "abc\n 1234 x", "'1234'"},
      {"text on the line behind", " 1234 \n-", "'1234'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, ColonAndBlankIntroduceANumber) {
  const ScanRow rRows[] = {
      {"two places on", "von: 1234 - x", "'1234'"},
      {"three places on", "von:  1234 - x", "'1234'"},
      {"three places on, with a sign", "von: +1234 - x", "'1234'"},
      {"four places on", "von:   1234 - x", "nothing"},
      {"no blank behind the colon", "von:1234 - x", "nothing"},
      {"tab behind the colon", "von:\t1234 - x", "nothing"},
      {"colon on the line before", "a: \nb 1234 - x", "nothing"},
      {"the last colon counts", "a: b: 1234 - x", "'1234'"},
      {"number ends at colon and blank", "abc 1234: x", "'1234'"},
      {"number ends at a bare colon", "abc 1234:x", "nothing"},
      {"number ends at a colon at the end", "abc 1234:", "nothing"},
      {"short number before the colon still introduces", "abc 12: 3456 - x", "'3456'"},
      {"first position of the text", ": 1234 - x", "'1234'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, WordsIntroduceANumber) {
  const ScanRow rRows[] = {
      {"Conn at the start", "Conn1234 - x", "'1234'"},
      {"Conn in the line", "xxConn1234 - x", "'1234'"},
      {"Conn in lower case", "conn1234 - x", "nothing"},
      {"Conn and blank", "Conn 1234 - x", "nothing"},
      {"Conn cut off", "onn1234 - x", "nothing"},
      {"POSTE at the start", "POSTE 1234 - x", "'1234'"},
      {"POSTE in the line", "xxPOSTE 1234 - x", "'1234'"},
      {"POSTE without blank", "POSTE1234 - x", "nothing"},
      {"POSTE with two blanks", "POSTE  1234 - x", "nothing"},
      {"POSTE in lower case", "Poste 1234 - x", "nothing"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, ExchangeLinePrefixIntroducesANumber) {
  const ScanRow rRows[] = {
      {"0-", "0-1234 - x", "'1234'"},
      {"1-", "1-1234 - x", "'1234'"},
      {"2-", "2-1234 - x", "nothing"},
      {"blank for the hyphen", "0 1234 - x", "nothing"},
      {"two digits", "00-1234 - x", "nothing"},
      {"on the second line", "\n0-1234 - x", "nothing"},
      {"a short number stays short", "0-12", "nothing"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, PrefixCountsAsOneDigitMore) {
  EXPECT_EQ("'1234'", Told(Scan("0-1234 - x", {}, "12345")));
  EXPECT_EQ("nothing", Told(Scan("0-1234 - x", {}, "123456")));
  EXPECT_EQ("nothing", Told(Scan("1234 - x", {}, "12345")));
}

TEST(DisplayScan, NumberAfterHatIsNotTaken) {
  const ScanRow rRows[] = {
      {"at the end", "^1234", "nothing"},
      {"at the end of the line, the next line counts", "^1234\n5678", "'5678'"},
      {"introduced", ": ^1234 - x", "nothing"},
      {"ends at a colon", "^1234: x", "nothing"},
      {"a blank between", "^ 1234", "'1234'"},
      {"hat on the line before", "^\n1234", "'1234'"},
      {"hat behind", "1234^", "'1234'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, YearOfADateIsNotTaken) {
  const ScanRow rRows[] = {
      {"date alone", "12.03.2015", "nothing"},
      {"date and time", "Mon 12.03.2015 14:30", "nothing"},
      {"month in letters", "12Mar 2015", "nothing"},
      {"behind the date", "12.03.2015\n1234", "'1234'"},
      {"year too early", "12.03.2000", "'2000'"},
      {"year too late", "12.03.3000", "'3000'"},
      {"four digits alone", "2015", "'2015'"},
      {"five digits", "12.03.20155", "'20155'"},
      {"year at the start of a line", "12.03.\n2015", "'2015'"},
      {"year that ends at a colon", "12.03.2015: x", "nothing"},
      {"a word that introduces is a part of a date", "12 POSTE 2015 - x", "nothing"},
      {"a word that introduces joins a date", "12Conn2015 - x", "nothing"},
      {"a word that introduces alone", "xConn2015 - x", "'2015'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, NumberBeforeAFullStopMayBeImproved) {
  const ScanRow rRows[] = {
      {"at the start", "1234. x", "'1234'"},
      {"at the start, nothing follows", "1234.", "'1234'"},
      {"introduced", "von: 1234. x", "'1234'"},
      {"in the middle of a line", "abc 1234. x", "nothing"},
      {"free but for the stop", "  1234. x", "nothing"},
      {"longer one follows", "1234.56789", "'56789'"},
      {"one as long follows", "1234.5678", "'5678'"},
      {"shorter one follows", "1234.567", "'1234'"},
      {"the scan ends at the second", "123.4567\n89012", "'4567'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, NumberBeforeAFullStopIsDroppedInMuteModes) {
  const ScanRow rRows[] = {
      {"at the start", "1234. x", "nothing"},
      {"introduced", "von: 1234. x", "nothing"},
      {"the next one counts", "1234.56789", "'56789'"},
      {"no stop", "1234 - x", "'1234'"},
  };
  CheckRows(rRows, InMuteMode());
}

// The place where the text is looked for is the count of lines passed, whatever the lines hold.
TEST(DisplayScan, DtmfTextIsFoundAtLineCountOffset) {
  const ScanRow rRows[] = {
      {"at the start", "DTMF1234", "nothing"},
      {"at the start, with a gap", "DTMF: 1234", "nothing"},
      {"in lower case", "dtmf1234", "'1234'"},
      {"one place on, first line", "xDTMF1234", "'1234'"},
      {"one place on, second line", "xDTMF\n1234", "nothing"},
      {"at the start, second line", "DTMF\n1234", "'1234'"},
      {"start of the second line", "ab\nDTMF1234", "'1234'"},
      {"two places on, third line", "xxDTMF\n\n1234", "nothing"},
      {"line count points at a later line", "\nDTMF\n1234", "'1234'"},
      {"line count points at its own line", "\nDTMF1234", "nothing"},
      {"offset at the end of the text", "\n\n\n", "nothing"},
      {"a dropped number takes its line end with it", "DTMF1234\n5678", "nothing"},
      {"a line end by itself counts", "DTMF1234 \n5678", "'5678'"},
  };
  CheckRows(rRows);
}

TEST(DisplayScan, RefusedNumberLeavesTheRestOfTheText) {
  DisplayScanRules rRules;
  rRules.strLocalNum = "1234";
  EXPECT_EQ("nothing", Told(Scan("1234", rRules)));
  EXPECT_EQ("'5678'", Told(Scan("1234\n5678", rRules)));
  EXPECT_EQ("'12345'", Told(Scan("12345", rRules))) << "equal, not part of";

  rRules = Rules(PBX_BELGACOM);
  rRules.strLocalName = "Desk 12345";
  EXPECT_EQ("'5678'", Told(Scan("234\n5678", rRules))) << "part of the line's name";
  rRules.iPbxType = PBX_UNDEF;
  EXPECT_EQ("'234'", Told(Scan("234\n5678", rRules))) << "the name matters on that PBX only";
}

TEST(DisplayScan, PreviousNumberIsRefusedOnlyOnAnIdleLine) {
  DisplayScanRules rRules;
  rRules.strPrevCallRemoteNum = "1234";
  EXPECT_EQ("'5678'", Told(Scan("1234\n5678", rRules)));
  rRules.fRang = true;
  EXPECT_EQ("'1234'", Told(Scan("1234\n5678", rRules))) << "after a ring";
  rRules.fRang = false;
  rRules.fCallBusy = true;
  EXPECT_EQ("'1234'", Told(Scan("1234\n5678", rRules))) << "in a call";
  rRules.fCallBusy = false;
  rRules.iPbxType = PBX_PANASONIC;
  EXPECT_EQ("'1234'", Told(Scan("1234\n5678", rRules))) << "where the last number is accepted again";
}

TEST(DisplayScan, OnlyALongerNumberReplacesTheKnownOne) {
  struct Row {
    const char* acLabel;
    bool fCallBusy, fAllowEqual, fLateChange;
    int iBusyFor;
    const char* acKnown;
    const char* acText;
    const char* acAnswer;
  };
  const Row rRows[] = {
      {"idle, longer", false, false, true, -1, "123", "4567", "'4567'"},
      {"idle, equal", false, false, true, -1, "123", "456", "'456'"},
      {"idle, the same", false, false, true, -1, "123", "123", "'123'"},
      {"idle, shorter", false, false, true, -1, "1234", "456", "nothing"},
      {"idle, late changes off", false, false, false, -1, "123", "456", "'456'"},
      {"call, longer", true, false, true, 5, "123", "4567", "'4567'"},
      {"call, equal", true, false, true, 5, "123", "456", "nothing"},
      {"call, equal allowed", true, true, true, 5, "123", "456", "'456'"},
      {"call, equal allowed, shorter", true, true, true, 5, "1234", "456", "nothing"},
      {"call, equal allowed, late", true, true, true, 40, "123", "456", "'456'"},
      {"call, late changes off, at 10 s", true, true, false, 10, "123", "456", "'456'"},
      {"call, late changes off, at 11 s", true, true, false, 11, "123", "456", "nothing"},
      {"call, late changes off, longer", true, true, false, 11, "123", "4567", "'4567'"},
      {"call, a name is known", true, false, true, 5, "Jansen", "456", "'456'"},
      {"call, a name with digits is known", true, false, true, 5, "J12345", "456", "'456'"},
      {"call, digits and text are known", true, false, true, 5, "1 Jan", "4567", "nothing"},
      {"call, nothing is known", true, false, true, 5, "", "456", "'456'"},
  };
  for (const Row& rRow : rRows) {
    DisplayScanRules rRules;
    rRules.fCallBusy = rRow.fCallBusy;
    rRules.fAllowEqualRemoteLenChange = rRow.fAllowEqual;
    rRules.fLateChange = rRow.fLateChange;
    rRules.iBusyFor = rRow.iBusyFor;
    EXPECT_EQ(rRow.acAnswer, Told(Scan(rRow.acText, rRules, rRow.acKnown))) << rRow.acLabel;
  }
}

TEST(DisplayScan, NumberThatMayNotBeReplacedStands) {
  DisplayScanRules rRules;
  rRules.fCallBusy = true;
  rRules.fDontOverwriteExistingNumber = true;
  EXPECT_EQ("nothing", Told(Scan("123456\n7890123", rRules, "12")));
  EXPECT_EQ("nothing", Told(Scan("123456", rRules, "Jansen"))) << "a name stands too";
  EXPECT_EQ("'123456'", Told(Scan("123456", rRules, ""))) << "nothing is known";
  rRules.fCheckForMultipleTelNum = true;
  EXPECT_EQ("'1234'", Told(Scan("1234\n567890", rRules, ""))) << "a number just found stands too";
}

// -- the scan: PBX profiles ------------------------------------------------------------------------------------------

TEST(DisplayScan, SiemensEndsAtTheFirstLineEndPastColumn23) {
  const std::string strTo23(23, 'x');
  EXPECT_EQ("'1234'", Told(Scan(strTo23 + "\n1234", Rules(PBX_SIEMENS)))) << "line end at 23";
  EXPECT_EQ("nothing", Told(Scan(strTo23 + "x\n1234", Rules(PBX_SIEMENS)))) << "line end at 24";
  EXPECT_EQ("'1234'", Told(Scan(strTo23 + "x\n1234"))) << "another PBX";
  EXPECT_EQ("'1234'", Told(Scan(strTo23 + " 1234\n567890", Rules(PBX_SIEMENS)))) << "the last number of that line";
  EXPECT_EQ("nothing", Told(Scan("a\n" + strTo23 + "\n1234", Rules(PBX_SIEMENS)))) << "counted from the text's start";
  EXPECT_EQ("'1234'", Told(Scan("1234.xxxxxxxxxxxxxxxxxxxxxxx\n567890", Rules(PBX_SIEMENS)))) << "what was found stays";
}

TEST(DisplayScan, AlcatelLooksAtTheFirstLineOnly) {
  DisplayScanRules rRules = Rules(PBX_ALCATEL);
  EXPECT_EQ("nothing", Told(Scan("abc\n1234", rRules)));
  EXPECT_EQ("'1234'", Told(Scan("abc 1234\n56789", rRules)));
  EXPECT_EQ("nothing", Told(Scan("\n1234", rRules)));
  EXPECT_EQ("nothing", Told(Scan("^1234\n5678", rRules))) << "a number behind a hat ends with its line";
  EXPECT_EQ("nothing", Told(Scan("12.03.2015\n5678", rRules))) << "so does a year";
  rRules.strLocalNum = "1234";
  EXPECT_EQ("nothing", Told(Scan("1234\n5678", rRules)));
  rRules.fMuteMode = true;
  EXPECT_EQ("'5678'", Told(Scan("1234\n5678", rRules))) << "the mute modes look at all lines";
}

TEST(DisplayScan, ScanForSeveralNumbersGoesOnAfterAHit) {
  DisplayScanRules rRules;
  rRules.fCheckForMultipleTelNum = true;
  const ScanRow rRows[] = {
      {"longer one follows", "1234\n56789", "'56789'"},
      {"one as long follows", "1234\n5678", "'5678'"},
      {"shorter one follows", "1234\n567", "'1234'"},
      {"year follows", "1234\n12.03.2015", "'1234'"},
      {"nothing", "12\n34", "nothing"},
  };
  CheckRows(rRows, rRules);
  rRules.fCallBusy = true;
  EXPECT_EQ("'1234'", Told(Scan("1234\n5678", rRules))) << "in a call only a longer one";
}

TEST(DisplayScan, NecShowsWhoIsTalkedTo) {
  DisplayScanRules rRules = Rules(PBX_NEC);
  rRules.strLocalNum = "99";
  const ScanRow rRows[] = {
      {"a name", "x\nTALKING TO Jan P", "'Jan P'"},
      {"up to the line end", "x\nTALKING TO Jan P\nmore", "'Jan P'"},
      {"blanks before are skipped, those behind are not", "\nTALKING TO   Jan  \nx", "'Jan  '"},
      {"a tab is no blank", "\nTALKING TO\tJan", "'\tJan'"},
      {"nothing between", "\nTALKING TOM", "'M'"},
      {"a short number", "\nTALKING TO 12", "'12'"},
      {"the line's own number", "\nTALKING TO 99", "nothing"},
      {"a number of the display comes first", "1234\nTALKING TO Jan", "'1234'"},
      {"no name before the line end", "\nTALKING TO \nJan", "''"},
      {"no name before the end of the text", "\nTALKING TO", "''"},
      {"the first marker counts", "\nTALKING TO A\nTALKING TO B", "'A'"},
      {"marker on the first line", "TALKING TO Jan", "nothing"},
      {"marker in lower case", "\nTalking to Jan", "nothing"},
      {"Latin-1", "\nTALKING TO M\374ller", "'M\374ller'"},
  };
  CheckRows(rRows, rRules);
  EXPECT_EQ("nothing", Told(Scan("\nTALKING TO Jan", rRules, "12"))) << "a number is known";
  EXPECT_EQ("nothing", Told(Scan("\nTALKING TO Jan"))) << "another PBX";
  rRules.strLocalNum.clear();
  EXPECT_EQ("nothing", Told(Scan("\nTALKING TO ", rRules))) << "an empty name equals an empty local number";
}

TEST(DisplayScan, A5000TakesATextOfLettersAsTheName) {
  EXPECT_EQ("'Service Desk'", Told(Scan("Service Desk ", Rules(PBX_A5000))));
  EXPECT_EQ("'Service Desk'", Told(Scan("Service Desk", Rules(PBX_A5000), "Other"))) << "in place of a name";
  EXPECT_EQ("nothing", Told(Scan("Service Desk", Rules(PBX_A5000), "12"))) << "not in place of a number";
  EXPECT_EQ("nothing", Told(Scan("Desk", Rules(PBX_A5000))));
  EXPECT_EQ("nothing", Told(Scan("Service Desk"))) << "another PBX";
}

TEST(DisplayA5000, NameIsAllLettersAndBlanks) {
  struct Row {
    const char* acLabel;
    const char* acText;
    const char* acName;  // null: none
  };
  const Row rRows[] = {
      {"six letters", "Jansen", "Jansen"},
      {"five letters", "Janse", nullptr},
      {"four letters", "Desk", nullptr},
      {"blanks count to the last letter", "a    b", "a    b"},
      {"blanks behind do not count", "Janse  ", nullptr},
      {"blanks behind are cut", "Jansen  ", "Jansen"},
      {"blank before", " Jansen", nullptr},
      {"empty", "", nullptr},
      {"blanks only", "       ", nullptr},
      {"line feed", "Jansen\n", nullptr},
      {"digit", "Jansen1", nullptr},
      {"sign", "Jan-sen", nullptr},
      {"tab", "Jan\tsen", nullptr},
      {"accented letter", "M\374llerin", nullptr},
  };
  for (const Row& rRow : rRows) {
    std::string strName = "kept";
    EXPECT_EQ(rRow.acName != nullptr, ExtractA5000Name(rRow.acText, strName)) << rRow.acLabel;
    EXPECT_EQ(rRow.acName != nullptr ? rRow.acName : "kept", strName) << rRow.acLabel;
  }
}

// -- dates -----------------------------------------------------------------------------------------------------------

TEST(DisplayDate, TwoPartsBeforeTheYear) {
  struct Row {
    const char* acLabel;
    std::string strBefore;
    bool isDate;
  };
  const std::string strLetters20(20, 'a');
  const std::string strDigits20(20, '1');
  const Row rRows[] = {
      {"stops", "12.03.", true},
      {"hyphens", "12-03-", true},
      {"slashes", "12/03/", true},
      {"blanks", "12 03 ", true},
      {"mixed", "12-03/", true},
      {"two separators before the year", "12.03. ", true},
      {"three separators before the year", "12.03.  ", false},
      {"none before the year", "12.Mar", true},
      {"two between the parts", "12. 03.", false},
      {"other sign between the parts", "12,03.", false},
      {"other sign before the year", "12.03,", false},
      {"line feed before the year", "12.03.\n", false},
      {"line feed between the parts", "12\n03.", false},
      {"sign before the first part", "x,12.03.", true},
      {"separator before the first part", "Mon 12.03.", true},
      {"letters and digits join", "12Mar", true},
      {"letters and digits join, with a separator", "12Mar ", true},
      {"digits behind letters do not join", "Mar12 ", false},
      {"letters first", "Mar 12 ", true},
      {"letters only", "Mon Mar ", false},
      {"first part mixed, second letters", "1a.Mar.", false},
      {"first part mixed, second digits", "1a.03.", true},
      {"first part digits, second mixed", "12.a3.", true},
      {"joined, second part mixed", "12a34 ", true},
      {"joined, first part mixed", "a12b ", false},
      {"second part ends in a digit that does not join", "12.M3 ", true},
      {"accented letter in the second part", "12.M\344r.", false},
      {"accented letter ends the first part", "\34412.Mar.", true},
      {"nothing", "", false},
      {"only separators", " .", false},
      {"no first part", "03.", false},
      {"no first part behind a separator", ".03.", false},
      {"first part would be a sign", ":.03.", false},
      {"second part of 20", "1." + strLetters20 + ".", true},
      {"second part of 21", "1." + strLetters20 + "a.", false},
      {"second part of 20, joined", "1" + strLetters20 + ".", true},
      {"second part of 21, joined", "1" + strLetters20 + "a.", false},
      {"first part of 20", strDigits20 + ".Mar.", true},
      {"first part of 21", strDigits20 + "1.Mar.", false},
      {"first part of 20, joined", strDigits20 + "Mar ", true},
      {"first part of 21, joined", strDigits20 + "1Mar ", false},
  };
  for (const Row& rRow : rRows) {
    const std::string strText = rRow.strBefore + "2015";
    EXPECT_EQ(rRow.isDate, IsDateInStrYearPos(strText.c_str(), static_cast<int>(rRow.strBefore.size())))
        << rRow.acLabel;
  }
}

TEST(DisplayDate, YearLiesFrom2001To2999) {
  struct Row {
    const char* acYear;
    bool isDate;
  };
  const Row rRows[] = {{"2000", false},
                       {"2001", true},
                       {"2999", true},
                       {"3000", false},
                       {"02015", true},
                       {"20150", false},
                       {"2015xx", true},
                       {"-2015", false},
                       {"x", false},
                       {"", false},
                       {"99999999999999999999", false}};
  for (const Row& rRow : rRows) {
    EXPECT_EQ(rRow.isDate, IsDateInStrYearPos((std::string("12.03.") + rRow.acYear).c_str(), 6)) << rRow.acYear;
  }
}

// -- verdicts --------------------------------------------------------------------------------------------------------

TEST(DisplayVerdict, EachNumberIsJudgedOnce) {
  class Watcher : public IDisplayScanWatcher {
   public:
    void OnVerdict(const std::string& strNumber, EVerdict eVerdict) override {
      astrVerdicts.push_back(strNumber + ": " + GetVerdictDescr(eVerdict));
    }
    Texts astrVerdicts;
  };
  struct Row {
    const char* acText;
    DisplayScanRules rRules;
    const char* acKnown;
    Texts astrVerdicts;
  };
  DisplayScanRules rOwn;
  rOwn.strLocalNum = "1234";
  rOwn.strPrevCallRemoteNum = "5678";
  DisplayScanRules rNamed = Rules(PBX_BELGACOM);
  rNamed.strLocalName = "1234";
  DisplayScanRules rFixed;
  rFixed.fCallBusy = rFixed.fDontOverwriteExistingNumber = true;
  DisplayScanRules rSeveral;
  rSeveral.fCheckForMultipleTelNum = true;
  const Row rRows[] = {
      {"12.03.2015\na 1234 b\n^1234\n1234",
       {},
       "",
       {"12: too short", "03: too short", "2015: year of a date", "1234: in the middle of a line and not introduced",
        "1234: directly behind a ^", "1234: taken"}},
      {"123\n45678", {}, "1234", {"123: no longer than the known number", "45678: taken"}},
      {"DTMF123", {}, "", {"123: the text shows dialled tones"}},
      {"1234\n5678", rOwn, "", {"1234: the line's own number", "5678: number of the previous call"}},
      {"1234", rNamed, "", {"1234: part of the line's own name"}},
      {"1234", rFixed, "1", {"1234: too late in the call to replace the known number"}},
      {"1234.\n", InMuteMode(), "", {"1234: ends in a full stop"}},
      {"1234.\n", {}, "", {"1234: taken, a better one may follow"}},
      {"1234\n56789", rSeveral, "", {"1234: taken, a better one may follow", "56789: taken, a better one may follow"}},
  };
  for (const Row& rRow : rRows) {
    Watcher rWatcher;
    std::string strRemoteNum = rRow.acKnown;
    (void)ScanDisplay(rRow.acText, rRow.rRules, strRemoteNum, &rWatcher);
    EXPECT_EQ(rRow.astrVerdicts, rWatcher.astrVerdicts) << rRow.acText;
  }
}

// -- on a line -------------------------------------------------------------------------------------------------------

namespace {

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

  DST_Channel rLine;
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
  DST_Channel rOther;
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
