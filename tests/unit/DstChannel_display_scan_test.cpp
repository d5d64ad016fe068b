// The scan of a text by itself, dates and verdicts; what a line does with them stands in DstChannel_display_test.cpp.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "DstChannel.h"
#include "Texts.h"

namespace {

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

// What became of each number of a display, as people are told it.
Texts Verdicts(const std::string& strText, const DisplayScanRules& rRules = {}, const std::string& strKnown = "") {
  std::vector<JudgedNumber> vJudged;
  std::string strRemoteNum = strKnown;
  (void)ScanDisplay(strText.c_str(), rRules, strRemoteNum, &vJudged);
  Texts astrVerdicts;
  for (const auto& [strNumber, eVerdict] : vJudged) {
    astrVerdicts.push_back(strNumber + ": " + GetVerdictDescr(eVerdict));
  }
  return astrVerdicts;
}

}  // namespace

// -- the scan: where a number counts ----------------------------------------------------------------------------------

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
      {"first part on the line before", "Mo\n 03.2015\n", "nothing"},
      {"name on a line of its own, with a blank before", "Mo\n Anna 2015\n", "'2015'"},
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

// -- the scan: PBX profiles -------------------------------------------------------------------------------------------

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

// -- dates ------------------------------------------------------------------------------------------------------------

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
      {"no first part and a second separator", "..03.", false},
      {"first part empty behind a line feed", "Mo\n 03.", true},
      {"first part empty behind a sign", "(.03.", true},
      {"first part empty, blanks", "* 12 ", true},
      {"first part empty behind an accented letter", "M\344 12 ", true},
      {"first part empty, second letters", "* Mar ", false},
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

// -- verdicts ---------------------------------------------------------------------------------------------------------

TEST(DisplayVerdict, EachNumberIsJudgedOnce) {
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
      {"1234", rFixed, "1", {"1234: the known number stands, late in the call or while it is forwarded"}},
      {"1234.\n", InMuteMode(), "", {"1234: ends in a full stop"}},
      {"1234.\n", {}, "", {"1234: taken, a better one may follow"}},
      {"1234\n56789", rSeveral, "", {"1234: taken, a better one may follow", "56789: taken, a better one may follow"}},
  };
  for (const Row& rRow : rRows) {
    EXPECT_EQ(rRow.astrVerdicts, Verdicts(rRow.acText, rRow.rRules, rRow.acKnown)) << rRow.acText;
  }
}

// Whether a number ended its line shows in the next one: behind one line the text "DTMF" is looked for at offset 1.
TEST(DisplayVerdict, OnlyDialledTonesAndANumberThatStandsTakeTheLineEndWithThem) {
  struct Row {
    const char* acFirst;
    const char* acText;
    DisplayScanRules rRules;
    const char* acKnown;
    bool fEndsLine;
  };
  DisplayScanRules rOwn;
  rOwn.strLocalNum = "1234";
  DisplayScanRules rPrevious;
  rPrevious.strPrevCallRemoteNum = "1234";
  DisplayScanRules rNamed = Rules(PBX_BELGACOM);
  rNamed.strLocalName = "1234";
  DisplayScanRules rFixed;
  rFixed.fCallBusy = rFixed.fDontOverwriteExistingNumber = true;
  DisplayScanRules rSeveral;
  rSeveral.fCheckForMultipleTelNum = true;
  const Row rRows[] = {
      {"taken, a better one may follow", "xDTMF 1234\n5678", rSeveral, "", true},
      {"the known number stands, late in the call or while it is forwarded", "xDTMF 1234\n5678", rFixed, "1", false},
      {"too short", "xDTMF 12\n5678", {}, "", true},
      {"no longer than the known number", "xDTMF 1234\n5678", {}, "123456", true},
      {"directly behind a ^", "xDTMF ^1234\n5678", {}, "", true},
      {"year of a date", "xDTMF 12.03.2015\n5678", {}, "", true},
      {"the line's own number", "xDTMF 1234\n5678", rOwn, "", true},
      {"part of the line's own name", "xDTMF 1234\n5678", rNamed, "", true},
      {"number of the previous call", "xDTMF 1234\n5678", rPrevious, "", true},
  };
  for (const Row& rRow : rRows) {
    const Texts astrVerdicts = Verdicts(rRow.acText, rRow.rRules, rRow.acKnown);
    ASSERT_LE(2U, astrVerdicts.size()) << rRow.acFirst;
    const std::string& strFirst = astrVerdicts[astrVerdicts.size() - 2];
    EXPECT_EQ(rRow.acFirst, strFirst.substr(strFirst.find(' ') + 1)) << rRow.acText;
    EXPECT_EQ(rRow.fEndsLine, astrVerdicts.back() == "5678: the text shows dialled tones") << rRow.acFirst;
  }
  EXPECT_EQ(Texts(2, "1234: the text shows dialled tones"), Verdicts("DTMF 1234\n1234"));
}
