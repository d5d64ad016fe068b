#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "CallBench.h"
#include "datafile.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testtools::Exists;

namespace {

Texts astrFoldersMade;

}  // namespace

// Stands in for the C library's.
extern "C" int mkdirat(int iFolder, const char* acName, mode_t iMode) noexcept {
  astrFoldersMade.push_back(acName);
  return static_cast<int>(syscall(SYS_mkdirat, iFolder, acName, iMode));
}

namespace {

class BaseChannelRecord : public CallBench {
 protected:
  BaseChannelRecord() {
    rDatabase.rNumbers["22"] = MakeContact(52, 62, true);  // local parties
    rDatabase.rNumbers["33"] = MakeContact(53, 63, true);
    rDatabase.rNumbers["0301234"] = MakeContact(51, 61, false);  // an outside party
    rDatabase.rNumbers[""] = MakeContact(0, -1, false);          // nobody
    SetConfig("RecLocal", "1");
  }
  static std::string IdOf(int iPart) {
    return (iPart < 10 ? "20240131_142345_007_0" : "20240131_142345_007_") + std::to_string(iPart);
  }
  // The active row of an outgoing call at the bench's first second, while its first part is recorded, and what a test
  // adds or replaces.
  static StdStringMap Row(const StdStringMap& rOwn, int iPart = 1) {
    StdStringMap rRow{{"startdate", "1706711025"},
                      {"duration", "0"},
                      {"filename", IdOf(iPart) + ".wav"},
                      {"isconnected", "1"},
                      {"linenr", "7"},
                      {"waittime", "-1"},
                      {"source", "1"},
                      {"isarchived", "1"},
                      {"encoding", "554"},
                      {"encryption", "0"},
                      {"processingstate", "0"},
                      {"flags", "0"},
                      {"directory", "2024/01/31/14"},
                      {"lineid", "107"},
                      {"remoteid", IdOf(iPart)},
                      {"remote", ""},
                      {"remotefull", ""},
                      {"local", ""},
                      {"localfull", ""},
                      {"localcallerid", "0"},
                      {"localcontact", "1007"},
                      {"direction", "1"},
                      {"recorderid", "7"},
                      {"callextra", ""}};
    for (const auto& [strKey, strValue] : rOwn) rRow[strKey] = strValue;
    return rRow;
  }
  // The same as a lasting row, which has been through the finishing.
  static StdStringMap LastingRow(StdStringMap rOwn, int iPart = 1) {
    rOwn["callextra"] = ArrayToString({{"chk", ""}});
    return Row(rOwn, iPart);
  }
  // A call of these parties that is off hook now; null: the line has no number of its own.
  void Call(const char* acRemote, const char* acLocal = nullptr, bool fIncoming = false) {
    if (acLocal != nullptr) (void)rLine.ChangeLocalNum(acLocal);
    if (*acRemote != '\0') CallerId(acRemote);
    if (fIncoming) Ring();
    ForgetTraces();
    OffHook();
  }
};

// -- id and file names ------------------------------------------------------------------------------------------------

TEST_F(BaseChannelRecord, IdHasTimeLineAndCounter) {
  const struct {
    const char* acLabel;
    int iLine;
    int iCalls;
    const char* acId;
  } rRows[] = {
      {"the counter takes two places", 7, 5, "20240131_142345_007_05"},
      {"the counter starts anew after 99", 7, 142, "20240131_142345_007_42"},
      {"a full hundred", 7, 200, "20240131_142345_007_00"},
      {"a line of four digits takes four places", 1234, 1, "20240131_142345_1234_01"},
      {"a channel without a line", -1, 1, "20240131_142345_-01_01"},
  };
  rRecorder.rChannelParams["RecOnDmd"] = "1";  // which gives a call an id and no file
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    EventLine rFresh;
    InitLine(rFresh, rRow.iLine);
    for (int i = 0; i < rRow.iCalls; i++) {
      Send(rFresh, E_RCV_DSTDChannel, DMSG_ON_HOOK);
      Send(rFresh, E_RCV_DSTDChannel, DMSG_OFF_HOOK);
    }
    EXPECT_EQ(Active("remoteid"), rRow.acId);
    Send(rFresh, E_RCV_DSTDChannel, DMSG_ON_HOOK);
  }
}

TEST_F(BaseChannelRecord, IdAndDirectoryAreInLocalTime) {
  (void)setenv("TZ", "XXX-5:30", 1);  // a zone of half hours, east of Greenwich
  tzset();
  SetClock(1706708760);  // 13:46 in Greenwich
  OffHook();
  EXPECT_EQ(FileToldIn(Log()), "/recordings/2024/01/31/19/20240131_191600_007_01.wav");
  EXPECT_EQ(Active("remoteid"), "20240131_191600_007_01");
  EXPECT_EQ(Active("directory"), "2024/01/31/19");
}

TEST_F(BaseChannelRecord, SmallNumbersOfATimeAreFilledWithZeros) {
  SetClock(1704164706);
  OffHook();
  EXPECT_EQ(FileToldIn(Log()), "/recordings/2024/01/02/03/20240102_030506_007_01.wav");
  EXPECT_EQ(Active("remoteid"), "20240102_030506_007_01");
  EXPECT_EQ(Active("directory"), "2024/01/02/03");
}

TEST_F(BaseChannelRecord, FileNamesByEncoding) {
  const struct {
    const char* acLabel;
    ERecEncodings eRecEnc;
    const char* acFinal;
    const char* acWritten;
  } rRows[] = {
      {"A-law", RECENC_G711A, "_01.wav", "_01.wav"},
      {"mu-law", RECENC_G711U, "_02.wav", "_02.wav"},
      {"GSM is still to be made", RECENC_GSM, "_03.wav", "_03.wav.g711"},
      {"MP3 is still to be made", RECENC_MP3, "_04.mp3", "_04.mp3.g711"},
  };
  // The finishing tells the final name and that of the archive.
  (void)mkdir("/tmp/tools", 0755);
  testtools::WriteScript("/tmp/tools/morvex_crypt", "#!/bin/sh\necho \"$@\" > /tmp/tools/log\n");
  testtools::WriteScript("/tmp/tools/sox", "#!/bin/sh\n");
  const std::string strPath = getenv("PATH");
  (void)setenv("PATH", ("/tmp/tools:" + strPath).c_str(), 1);
  rRecorder.fALE = true;
  rRecorder.strRecordingRoot = "/recordings/area";
  rRecorder.strArchiveRoot = "/recordings/archive";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    (void)Log();
    OffHook();
    const std::string strId = "2024/01/31/14/20240131_142345_007";
    EXPECT_EQ(FileToldIn(Log()), "/recordings/area/" + strId + rRow.acWritten);
    EXPECT_EQ(Active("filename"), std::string("20240131_142345_007") + rRow.acFinal);
    EXPECT_EQ(Active("directory"), "2024/01/31/14");
    EXPECT_TRUE(Exists("/recordings/area/" + strId + rRow.acWritten));
    OnHook();
    EXPECT_EQ(ReadTestFile("/tmp/tools/log"), "-e -i /recordings/area/" + strId + rRow.acFinal +
                                                  " -o /recordings/archive/" + strId + rRow.acFinal + "\n");
  }
  (void)setenv("PATH", strPath.c_str(), 1);
}

TEST_F(BaseChannelRecord, BothFoldersAreMade) {
  rRecorder.strRecordingRoot = "/recordings/w";
  rRecorder.strArchiveRoot = "/recordings/a";
  astrFoldersMade.clear();
  OffHook();
  EXPECT_THAT(astrFoldersMade, ElementsAre("a", "2024", "01", "31", "14", "w", "2024", "01", "31", "14"));
  EXPECT_TRUE(Exists("/recordings/w/2024/01/31/14"));
  EXPECT_TRUE(Exists("/recordings/a/2024/01/31/14"));
}

TEST_F(BaseChannelRecord, LineNameStandsInTheFileNameInASafeForm) {
  rRecorder.fLineNameInFileName = true;
  rDatabase.rContactNames[1007] = "Sales/Dept. 2 \xc3\xa9";
  OffHook();
  EXPECT_EQ(Active("filename"), "20240131_142345_007_01_Sales_Dept._2___.wav");
  EXPECT_EQ(FileToldIn(Log()), "/recordings/2024/01/31/14/20240131_142345_007_01_Sales_Dept._2___.wav");
}

TEST_F(BaseChannelRecord, LineWithoutANameLeavesTheMark) {
  rRecorder.fLineNameInFileName = true;
  OffHook();
  EXPECT_EQ(Active("filename"), "20240131_142345_007_01_.wav");
}

TEST_F(BaseChannelRecord, LongLineNameIsCutToWhatAFileNameHolds) {
  const struct {
    const char* acLabel;
    ERecEncodings eRecEnc;
    bool fMonitoring;
    std::string strName;
    std::size_t uiKept;  // bytes of it
  } rRows[] = {
      {"fits", RECENC_G711A, false, std::string(228, 'x'), 228},
      {"one too many", RECENC_G711A, false, std::string(229, 'x'), 228},
      {"room for .g711", RECENC_GSM, false, std::string(400, 'x'), 223},
      {"the same", RECENC_MP3, false, std::string(400, 'x'), 223},
      {"room for .info", RECENC_G711U, true, std::string(400, 'x'), 223},
      {"one room for both", RECENC_MP3, true, std::string(400, 'x'), 223},
      {"no half character", RECENC_G711A, false, std::string(226, 'x') + "\xe2\x82\xac.", 226},
      {"a whole one at the end", RECENC_G711A, false, std::string(225, 'x') + "\xe2\x82\xac.", 228},
  };
  rRecorder.fLineNameInFileName = true;
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    rRecorder.fMonitoring = rRow.fMonitoring;
    rDatabase.rContactNames[1007] = rRow.strName;
    OffHook();
    const std::string strName = Active("filename");
    EXPECT_EQ(strName.size(), std::string("20240131_142345_007_01_.wav").size() + rRow.uiKept);
    EXPECT_TRUE(Exists(FileToldIn(Log())));
    EXPECT_EQ(Exists("/recordings/2024/01/31/14/" + strName + ".info"), rRow.fMonitoring);
    OnHook();
    ForgetTraces();
  }
}

TEST_F(BaseChannelRecord, LineNameIsNotAskedForUnlessWanted) {
  rDatabase.fNoteReads = true;
  OffHook();
  EXPECT_THAT(Queries(), Not(::testing::Contains(HasSubstr("GetContactName"))));
}

TEST_F(BaseChannelRecord, EachPartOfOneSecondHasItsOwnFile) {
  OffHook();
  EXPECT_EQ(FileToldIn(Log()), "/recordings/2024/01/31/14/20240131_142345_007_01.wav");
  OnHook();
  OffHook();
  EXPECT_EQ(FileToldIn(Log()), "/recordings/2024/01/31/14/20240131_142345_007_02.wav");
}

// -- the row of a call ------------------------------------------------------------------------------------------------

TEST_F(BaseChannelRecord, RowsOfAPlainLine) {
  OffHook();
  EXPECT_EQ(ActiveRow(), Row({}));
  Seconds(34);
  OnHook();
  EXPECT_EQ(KeptRow(), LastingRow({{"duration", "34"}}));
}

TEST_F(BaseChannelRecord, WaitTimeIsThatOfTheFirstRing) {
  Ring();
  Seconds(6);
  OffHook();
  EXPECT_EQ(Active("waittime"), "6");
}

TEST_F(BaseChannelRecord, ArchivedMarkTellsOfAudio) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  EXPECT_EQ(Active("isarchived"), "0");
  (void)rLine.RecOnDmdAct(/*fStart=*/true);
  EXPECT_EQ(Active("isarchived"), "1");
  OnHook();
  EXPECT_EQ(Kept("isarchived"), "1");
}

TEST_F(BaseChannelRecord, EncryptedRecordingIsFlagged) {
  rRecorder.fALE = true;
  OffHook();
  EXPECT_EQ(ActiveRow(), Row({{"flags", "16"}}));
}

// The party columns, whole rows: known or unknown far party, with and without a local number, internal or not, both
// directions, the test switch, the active and the lasting row. Once a line has had a number of its own it keeps one, so
// rows without it come first.
struct PartyRow {
  const char* acLabel;
  const char* acRemote;
  const char* acLocal;  // null: the line has no number of its own
  bool fIncoming;
  bool fSwapSwitch;
  StdStringMap rColumns;
  bool fInternal;
};

TEST_F(BaseChannelRecord, PartiesOfAnActiveRow) {
  const StdStringMap rKnownFar{
      {"remote", "0301234"}, {"remotefull", "0301234"}, {"remotecallerid", "51"}, {"remotecontact", "61"}};
  const StdStringMap rOwnNumber{{"local", "33"}, {"localfull", "33"}, {"localcallerid", "53"}, {"localcontact", "63"}};
  StdStringMap rBoth = rKnownFar;
  rBoth.insert(rOwnNumber.begin(), rOwnNumber.end());
  StdStringMap rBothIncoming = rBoth;
  rBothIncoming["direction"] = rBothIncoming["waittime"] = "0";
  StdStringMap rStranger = rOwnNumber;
  rStranger["remote"] = rStranger["remotefull"] = "099";

  const PartyRow rRows[] = {
      {"known far party", "0301234", nullptr, false, false, rKnownFar, false},
      {"an active row is never internal, as the look-up does not tell",
       "22",
       nullptr,
       true,
       false,
       {{"remote", "22"},
        {"remotefull", "22"},
        {"remotecallerid", "52"},
        {"remotecontact", "62"},
        {"direction", "0"},
        {"waittime", "0"}},
       false},
      {"with an own number, outgoing", "0301234", "33", false, false, rBoth, false},
      {"with an own number, incoming", "0301234", "33", true, false, rBothIncoming, false},
      {"an unknown far party has no contact", "099", "33", false, false, rStranger, false},
  };
  rRecorder.strDTMF[1] = "*2";
  rRecorder.strDTMFact[1] = "email2";
  SetConfig("RecLocal", "0");
  int iPart = 0;
  for (const PartyRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    Call(rRow.acRemote, rRow.acLocal, rRow.fIncoming);
    EXPECT_EQ(ActiveRow(), Row(rRow.rColumns, ++iPart));
    EXPECT_THAT(Log(), ::testing::Each(Not(HasSubstr("internal"))));
    Press("*2");
    EXPECT_THAT(Orders(), ElementsAre(rRow.acLocal ? "EmailBackRecording 63 1" : "EmailBackRecording 1007 1"));
    OnHook();
    rDatabase.rNumbers.erase("099");
  }
}

// Far and own side as they stand in the columns, with and without exchange.
StdStringMap Sides(const std::string& strFarColumn, const std::string& strOwnColumn, const std::string& strFar,
                   const char* acFarCallerID, const char* acFarContact, const std::string& strOwn,
                   const char* acOwnCallerID, const char* acOwnContact, const char* acDirection) {
  return {{strFarColumn, strFar},
          {strFarColumn + "full", strFar},
          {strFarColumn + "callerid", acFarCallerID},
          {strFarColumn + "contact", acFarContact},
          {strOwnColumn, strOwn},
          {strOwnColumn + "full", strOwn},
          {strOwnColumn + "callerid", acOwnCallerID},
          {strOwnColumn + "contact", acOwnContact},
          {"direction", acDirection}};
}

TEST_F(BaseChannelRecord, PartiesOfALastingRow) {
  const auto Plain = [](const char* acFar, const char* acFarCallerID, const char* acFarContact, const char* acOwn,
                        const char* acOwnCallerID, const char* acOwnContact, const char* acDirection) {
    return Sides("remote", "local", acFar, acFarCallerID, acFarContact, acOwn, acOwnCallerID, acOwnContact,
                 acDirection);
  };
  const auto Swapped = [](const char* acFar, const char* acFarCallerID, const char* acFarContact, const char* acOwn,
                          const char* acOwnCallerID, const char* acOwnContact, const char* acDirection) {
    return Sides("local", "remote", acFar, acFarCallerID, acFarContact, acOwn, acOwnCallerID, acOwnContact,
                 acDirection);
  };
  const char* const acOut = "0301234";
  const PartyRow rRows[] = {
      // label, remote, local, incoming, test switch, columns, internal
      {"outgoing, line", acOut, nullptr, false, false, Plain(acOut, "51", "61", "", "0", "1007", "1"), false},
      {"incoming, line", acOut, nullptr, true, false, Plain(acOut, "51", "61", "", "0", "1007", "0"), false},
      {"internal outgoing, line", "22", nullptr, false, false, Plain("22", "52", "62", "", "0", "1007", "2"), true},
      {"internal incoming, line", "22", nullptr, true, false, Swapped("22", "52", "62", "", "0", "1007", "2"), true},
      {"switch, outgoing, line", acOut, nullptr, false, true, Swapped(acOut, "51", "61", "", "0", "1007", "0"), false},
      {"outgoing, number", acOut, "33", false, false, Plain(acOut, "51", "61", "33", "53", "63", "1"), false},
      {"incoming, number", acOut, "33", true, false, Plain(acOut, "51", "61", "33", "53", "63", "0"), false},
      {"internal outgoing, number", "22", "33", false, false, Plain("22", "52", "62", "33", "53", "63", "2"), true},
      {"internal incoming, number", "22", "33", true, false, Swapped("22", "52", "62", "33", "53", "63", "2"), true},
      {"switch, outgoing", acOut, "33", false, true, Swapped(acOut, "51", "61", "33", "53", "63", "0"), false},
      {"switch, incoming", acOut, "33", true, true, Swapped(acOut, "51", "61", "33", "53", "63", "1"), false},
      {"switch, internal outgoing", "22", "33", false, true, Swapped("22", "52", "62", "33", "53", "63", "1"), true},
      {"switch, internal incoming", "22", "33", true, true, Swapped("22", "52", "62", "33", "53", "63", "1"), true},
  };
  int iPart = 0;
  for (const PartyRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.fCrecTestSwapLocRem = rRow.fSwapSwitch;
    Call(rRow.acRemote, rRow.acLocal, rRow.fIncoming);
    (void)Log();
    OnHook();
    StdStringMap rExpected = LastingRow(rRow.rColumns, ++iPart);
    if (rRow.fIncoming) rExpected["waittime"] = "0";
    EXPECT_EQ(KeptRow(), rExpected);
    Texts astrLog = {"5 [7] Call stops", "5 [7] Recording stopped (0 s)"};
    if (rRow.fInternal) astrLog.push_back("5 [7] Other 22 is also local: internal call");
    EXPECT_EQ(Log(), astrLog);
  }
}

TEST_F(BaseChannelRecord, UnknownFarPartyIsAbsentOnEitherSide) {
  Call("099");
  EXPECT_EQ(ActiveRow(), Row({{"remote", "099"}, {"remotefull", "099"}}));
  OnHook();
  rDatabase.rNumbers.erase("099");
  rRecorder.fCrecTestSwapLocRem = true;
  Call("099");
  StdStringMap rExpected = Row(
      {{"local", "099"}, {"localfull", "099"}, {"remotecallerid", "0"}, {"remotecontact", "1007"}, {"direction", "0"}},
      2);
  rExpected.erase("localcallerid");
  rExpected.erase("localcontact");
  EXPECT_EQ(ActiveRow(), rExpected);
}

TEST_F(BaseChannelRecord, FarPartyWithACallerIdButNoContactIsAbsent) {
  rDatabase.rNumbers["099"] = MakeContact(54, -1, true);
  Call("099");
  (void)Log();
  OnHook();
  EXPECT_EQ(KeptRow(), LastingRow({{"remote", "099"}, {"remotefull", "099"}}));
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops",
                                 "5 [7] Recording stopped (0 s)"));  // nor is the call internal
}

TEST_F(BaseChannelRecord, CardsCanBeDeclaredNeverInternal) {
  rRecorder.fCardNotInternal = true;
  Call("22", nullptr, /*fIncoming=*/true);
  (void)Log();
  OnHook();
  StdStringMap rExpected = LastingRow(Sides("remote", "local", "22", "52", "62", "", "0", "1007", "0"));
  rExpected["waittime"] = "0";
  EXPECT_EQ(KeptRow(), rExpected);
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops", "5 [7] Recording stopped (0 s)"));
}

TEST_F(BaseChannelRecord, CustomIdentityStandsForTheLine) {
  rDatabase.fNoteReads = true;
  CallerIdContact& rCustom = rDatabase.rCustomLocals[1007];
  rCustom.fFound = true;
  rCustom.strText = "Zo\xc3\xab";
  rCustom.iUpdateTime = rNow;
  rDatabase.rNumbers["Zo\xc3\xab"] = MakeContact(54, 64, true);
  const StdStringMap rColumns{
      {"local", "Zo\xc3\xab"}, {"localfull", "Zo\xc3\xab"}, {"localcallerid", "54"}, {"localcontact", "64"}};
  Call("");
  EXPECT_EQ(ActiveRow(), Row(rColumns));
  EXPECT_THAT(Queries(), ElementsAre("GetConfigsPart o", "GetOrCreateLineContact 7 ''", "GetCustomLocal 1007",
                                     "GetOrCreateLineContact 7 ''", "GetCallerIDContact ",
                                     "GetOrCreateCallerIDContact Zo\xc3\xab local ''", "GetIdMapEntry Zo\xc3\xab",
                                     "Add ActiveCalls 1"));
  OnHook();
  Call("", "22");  // outranks a number of its own
  EXPECT_EQ(ActiveRow(), Row(rColumns, 2));
}

TEST_F(BaseChannelRecord, ActiveRowLooksUpTheNumberAsUtf8) {
  rRecorder.iMaskLastRemoteDigits = 1;
  Call(
      "Andr\xe9"
      "5",
      "Zo\xeb");
  EXPECT_EQ(Active("remote"), "Andr\xc3\xa9X");
  EXPECT_EQ(Active("remotefull"), "Andr\xc3\xa9X");
  EXPECT_EQ(Active("local"), "Zo\xc3\xab");
  EXPECT_THAT(Queries(), ElementsAre("GetOrCreateLineContact 7 ''", "GetOrCreateLineContact 7 ''",
                                     "GetCallerIDContact Andr\xc3\xa9X",
                                     "GetOrCreateCallerIDContact Zo\xc3\xab local ''", "Add ActiveCalls 1"));
  OnHook();
  EXPECT_EQ(Kept("remote"), "Andr\xc3\xa9X");
  const Texts astrQueries = Queries();
  ASSERT_GE(astrQueries.size(), 3u);
  EXPECT_THAT(Texts(astrQueries.begin(), astrQueries.begin() + 3),
              ElementsAre("GetOrCreateCallerIDContact Zo\xc3\xab local ''",
                          "GetOrCreateCallerIDContact Andr\xc3\xa9X remote ''", "GetOrCreateLineContact 7 ''"));
}

TEST_F(BaseChannelRecord, ConnectedNumberHasItsColumns) {
  rLine.BeOneWithConnectedNumbers();
  rDatabase.rNumbers["Ren\xc3\xa9"] = MakeContact(55, 65, true);
  int iPart = 0;
  for (const bool fIncoming : {false, true}) {
    rLine.ConnectedTo("Ren\xe9");
    Call("", nullptr, fIncoming);
    StdStringMap rExpected =
        Row({{"connected", "Ren\xc3\xa9"}, {"connectedcallerid", "55"}, {"connectedcontact", "65"}}, ++iPart);
    if (fIncoming) rExpected["direction"] = rExpected["waittime"] = "0";
    EXPECT_EQ(ActiveRow(), rExpected);
    EXPECT_THAT(Queries(),
                ElementsAre("GetOrCreateLineContact 7 ''", "GetOrCreateLineContact 7 ''", "GetCallerIDContact ",
                            fIncoming ? "GetOrCreateCallerIDContact Ren\xc3\xa9 local ''"
                                      : "GetOrCreateCallerIDContact Ren\xc3\xa9 remote ''",
                            HasSubstr("Add ActiveCalls")));
    OnHook();
  }
}

TEST_F(BaseChannelRecord, MappedNumberFillsANote) {
  const struct {
    const char* acLabel;
    bool fOwnNumber;
    bool fFound;
    const char* acTarget;
    bool fFilled;
  } rRows[] = {
      {"the line has no number of its own", false, true, "notes", false},
      {"notes", true, true, "notes", true},
      {"notes2", true, true, "notes2", true},
      {"other columns are not for a map", true, true, "notes3", false},
      {"nor is an empty name", true, true, "", false},
      {"no map entry", true, false, "notes", false},
  };
  int iPart = 0;
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    IdMapEntry& rEntry = rDatabase.rIdMap[rRow.fOwnNumber ? "33" : ""];
    rEntry.fFound = rRow.fFound;
    rEntry.strTarget = rRow.acTarget;
    rEntry.strValue = "Zo\xc3\xab";
    Call("", rRow.fOwnNumber ? "33" : nullptr);
    StdStringMap rExpected = Row({}, ++iPart);
    if (rRow.fOwnNumber) {
      rExpected = Row({{"local", "33"}, {"localfull", "33"}, {"localcallerid", "53"}, {"localcontact", "63"}}, iPart);
    }
    if (rRow.fFilled) rExpected[rRow.acTarget] = "Zo\xc3\xab";
    EXPECT_EQ(ActiveRow(), rExpected);
    OnHook();
  }
}

TEST_F(BaseChannelRecord, UnreachableDatabaseLeavesTheIdsUnknown) {
  Call("0301234");
  rDatabase.fDown = true;
  StringMap rCallInfo;  // asked for directly, since nobody can store the row
  rLine.FillCallInfo(&rCallInfo, &rDatabase, /*fFinal=*/true);
  EXPECT_EQ(rCallInfo.data,
            Row({{"remote", "0301234"}, {"remotefull", "0301234"}, {"lineid", "-1"}, {"localcontact", "-1"}}));
}

// -- rows and the end of a part ---------------------------------------------------------------------------------------

TEST_F(BaseChannelRecord, RowOfACallThatOnlyWaitedIsRemovedOnce) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  EXPECT_EQ(ActiveRow(), Row({{"encoding", "0"}, {"isarchived", "0"}, {"filename", ""}, {"directory", ""}}));
  ForgetTraces();
  OnHook();
  EXPECT_THAT(Queries(), ElementsAre("DeleteActiveCall 1"));
  rLine.EndOfCall();
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(BaseChannelRecord, FailedRowLeavesTheCallRecordingWithoutOne) {
  rDatabase.fDown = true;
  OffHook();
  const std::string strFile = FileToldIn(Log());
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops", "5 [7] Recording stopped (0 s)"));
  EXPECT_TRUE(Exists(strFile));
  EXPECT_EQ(KeptRows(), 0u);
}

TEST_F(BaseChannelRecord, WaitingRowHasTheNamesAndLengthOfThePartBefore) {
  InitLines({{"RecOnDmd", "1"}});
  OffHook();
  (void)rLine.RecOnDmdAct(/*fStart=*/true);
  Seconds(4);
  (void)rLine.RecOnDmdAct(/*fStart=*/false);
  EXPECT_EQ(ActiveRow(), Row({{"startdate", "1706711029"},
                              {"remoteid", "20240131_142349_007_03"},
                              {"filename", "20240131_142345_007_02.wav"},
                              {"duration", "4"},
                              {"encoding", "0"},
                              {"isarchived", "0"}}));
}

TEST_F(BaseChannelRecord, EndOfACallForgetsItsInformationWithoutARecordingToo) {
  rRecorder.strDTMF[1] = "*1";
  rRecorder.strDTMFact[1] = "email";
  InitLines({{"RecOnDmd", "1"}});
  Call("0301234");
  Press("*1");
  OnHook();
  Call("");
  EXPECT_EQ(Active("remote"), "");
  (void)rLine.RecOnDmdAct(/*fStart=*/true);
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 1007 -1"));  // and no mail
  (void)Log();
  OffHook();
  EXPECT_EQ(Log().back(), "5 [7] Recording on demand");  // nor is it demanded any longer
}

TEST_F(BaseChannelRecord, EndOfAPartForgetsWhatBelongsToIt) {
  rRecorder.strDTMF[1] = "*1";
  rRecorder.strDTMFact[1] = "email";
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  Call("0301234");
  Press("*1");
  const int iClearInfos = rLine.iClearInfos;
  Seconds(60);  // cuts the call
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 1007 61", "EmailRecording 2 1007"));
  EXPECT_EQ(rLine.iClearInfos, iClearInfos);
  EXPECT_EQ(Active("remote"), "0301234");
  OnHook();
  EXPECT_THAT(Orders(),
              ElementsAre("StoreOnDemand 1007 61"));  // the second part is not mailed
  EXPECT_EQ(Kept("remote"), "0301234");
}

TEST_F(BaseChannelRecord, KeptRecordingIsClearedOnceAndItsRowIsNotRemovedAgain) {
  OffHook();
  ForgetTraces();
  rLine.iClearInfos = 0;
  OnHook();
  EXPECT_EQ(rLine.iClearInfos, 1);
  const Texts astrQueries = Queries();
  EXPECT_EQ(std::count(astrQueries.begin(), astrQueries.end(), "DeleteActiveCall 1"), 1);
  EXPECT_EQ(KeptRows(), 1u);
}

TEST_F(BaseChannelRecord, RefusedDriverStopClearsTwiceAndRemovesTheRow) {
  OffHook();
  const std::string strFile = FileToldIn(Log());
  ForgetTraces();
  rLine.iClearInfos = 0;
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  OnHook();
  EXPECT_EQ(rLine.iClearInfos,
            2);  // once by the refusal, whatever the call does, and once by its end
  EXPECT_THAT(Queries(), ElementsAre("DeleteActiveCall 1"));
  EXPECT_TRUE(Exists(strFile));
}

}  // namespace
