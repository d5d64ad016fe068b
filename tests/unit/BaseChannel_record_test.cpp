#include "LineBench.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class BaseChannelRecord : public LineBench {
 protected:
  // A part with values of its own in every field that goes into a row.
  void SetUp() override {
    LineBench::SetUp();
    rChannel.rStartTime = rNow;
    rChannel.iDuration = 34;
    rChannel.strFilename = "part.wav";
    rChannel.strDirectory = "2024/01/31/14";
    rChannel.strDbRemoteId = "id";
    rChannel.iWaitTime = 6;
    rChannel.iRecSource = 1;
    rChannel.iEncoding = 554;
    rDatabase.rNumbers["22"] = MakeContact(52, 62, true);        // a local party
    rDatabase.rNumbers["0301234"] = MakeContact(51, 61, false);  // an outside party
  }
  StdStringMap Fill(bool fFinal) {
    StringMap rCallInfo;
    rChannel.FillCallInfo(&rCallInfo, &rDatabase, fFinal);
    return rCallInfo.data;
  }
  // The columns of SetUp's part in an active row without recording, and what a test adds or replaces.
  static StdStringMap Row(const StdStringMap& rOwn) {
    StdStringMap rRow{{"startdate", "1706711025"},
                      {"duration", "34"},
                      {"filename", "part.wav"},
                      {"isconnected", "1"},
                      {"linenr", "7"},
                      {"waittime", "6"},
                      {"source", "1"},
                      {"isarchived", "0"},
                      {"encoding", "554"},
                      {"encryption", "0"},
                      {"processingstate", "0"},
                      {"flags", "0"},
                      {"directory", "2024/01/31/14"},
                      {"lineid", "107"},
                      {"remoteid", "id"},
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
  static StdStringMap Without(StdStringMap rRow, const Texts& astrKeys) {
    for (const std::string& strKey : astrKeys) rRow.erase(strKey);
    return rRow;
  }
};

// -- id and file names ----------------------------------------------------------------------------------------------

TEST_F(BaseChannelRecord, IdHasTimeLineAndCounter) {
  const struct {
    const char* acLabel;
    int iLine;
    int iCnt;
    const char* acId;
  } rRows[] = {
      {"the counter takes two places", 7, 5, "20240131_142345_007_05"},
      {"the counter starts anew after 99", 7, 142, "20240131_142345_007_42"},
      {"a full hundred", 7, 200, "20240131_142345_007_00"},
      {"a line of four digits takes four places", 1234, 1, "20240131_142345_1234_01"},
      {"a channel without a line", -1, 1, "20240131_142345_-01_01"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.iChannel = rRow.iLine;
    rChannel.iRecUniqCnt = rRow.iCnt;
    rChannel.DetermineDbRemoteId();
    EXPECT_EQ(rChannel.strDbRemoteId, rRow.acId);
  }
}

TEST_F(BaseChannelRecord, IdAndDirectoryAreInLocalTime) {
  setenv("TZ", "XXX-5:30", 1);  // a zone of half hours, east of Greenwich
  tzset();
  rChannel.rStartTime = 1706708760;  // 13:46 in Greenwich
  rChannel.DetermineDbRemoteId();
  rChannel.DetermineFilename();
  EXPECT_EQ(rChannel.strDbRemoteId, "20240131_191600_007_00");
  EXPECT_EQ(rChannel.strDirectory, "2024/01/31/19");
}

TEST_F(BaseChannelRecord, SmallNumbersOfATimeAreFilledWithZeros) {
  rChannel.rStartTime = 1704164706;
  rChannel.DetermineDbRemoteId();
  rChannel.DetermineFilename();
  EXPECT_EQ(rChannel.strDbRemoteId, "20240102_030506_007_00");
  EXPECT_EQ(rChannel.strDirectory, "2024/01/02/03");
}

TEST_F(BaseChannelRecord, FileNamesByEncoding) {
  const struct {
    const char* acLabel;
    ERecEncodings eRecEnc;
    const char* acFinal;
    const char* acWritten;
  } rRows[] = {
      {"A-law", RECENC_G711A, "id.wav", "id.wav"},
      {"mu-law", RECENC_G711U, "id.wav", "id.wav"},
      {"GSM is still to be made", RECENC_GSM, "id.wav", "id.wav.g711"},
      {"MP3 is still to be made", RECENC_MP3, "id.mp3", "id.mp3.g711"},
  };
  rRecorder.strRecordingRoot = "/recordings/area";
  rRecorder.strArchiveRoot = "/recordings/archive";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.eRecEnc = rRow.eRecEnc;
    rChannel.DetermineFilename();
    const std::string strFinal = rRow.acFinal;
    EXPECT_EQ(rChannel.strFilename, strFinal);
    EXPECT_EQ(rChannel.strDirectory, "2024/01/31/14");
    EXPECT_EQ(rChannel.strFullFilenameFinal, "/recordings/area/2024/01/31/14/" + strFinal);
    EXPECT_EQ(rChannel.strArchiveFilename, "/recordings/archive/2024/01/31/14/" + strFinal);
    EXPECT_EQ(rChannel.strFullFilename, std::string("/recordings/area/2024/01/31/14/") + rRow.acWritten);
  }
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
}

TEST_F(BaseChannelRecord, BothFoldersAreMade) {
  rRecorder.strRecordingRoot = "/recordings/w";
  rRecorder.strArchiveRoot = "/recordings/a";
  rChannel.DetermineFilename();
  EXPECT_TRUE(file_exists("/recordings/w/2024/01/31/14"));
  EXPECT_TRUE(file_exists("/recordings/a/2024/01/31/14"));
}

TEST_F(BaseChannelRecord, LineNameStandsInTheFileNameInASafeForm) {
  rRecorder.fLineNameInFileName = true;
  rDatabase.rContactNames[1007] = "Sales/Dept. 2 \xc3\xa9";
  rDatabase.fNoteReads = true;
  rChannel.DetermineFilename();
  EXPECT_EQ(rChannel.strFilename, "id_Sales_Dept._2___.wav");
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetOrCreateLineContact 7 ''", "GetContactName 1007"));
}

TEST_F(BaseChannelRecord, LineWithoutANameLeavesTheMark) {
  rRecorder.fLineNameInFileName = true;
  rChannel.DetermineFilename();
  EXPECT_EQ(rChannel.strFilename, "id_.wav");
}

TEST_F(BaseChannelRecord, EachPartOfOneSecondHasItsOwnFile) {
  rChannel.TryStartRecording();
  const std::string strFirst = rChannel.strFullFilename;
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  rChannel.TryStartRecording();
  EXPECT_EQ(strFirst, "/recordings/2024/01/31/14/20240131_142345_007_01.wav");
  EXPECT_EQ(rChannel.strFullFilename, "/recordings/2024/01/31/14/20240131_142345_007_02.wav");
}

// -- the row of a call ----------------------------------------------------------------------------------------------

TEST_F(BaseChannelRecord, RowOfAPlainLine) {
  rDatabase.fNoteReads = true;
  EXPECT_EQ(Fill(/*fFinal=*/false), Row({}));
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetOrCreateLineContact 7 ''", "GetCallerIDContact "));
  EXPECT_EQ(rChannel.iActiveContactLocal, 1007);
  EXPECT_THAT(logsink::Take(), IsEmpty());
}

TEST_F(BaseChannelRecord, ArchivedMarkTellsOfAudio) {
  const struct {
    const char* acLabel;
    bool fFinal;
    bool fRecording;
    const char* acArchived;
  } rRows[] = {
      {"waiting", false, false, "0"},
      {"being recorded", false, true, "1"},
      {"finished", true, false, "1"},
      {"finished while the next part runs", true, true, "1"},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.fRecording = rRow.fRecording;
    EXPECT_EQ(Fill(rRow.fFinal).at("isarchived"), rRow.acArchived);
  }
}

TEST_F(BaseChannelRecord, EncryptedRecordingIsFlagged) {
  rRecorder.fALE = true;
  EXPECT_EQ(Fill(/*fFinal=*/false), Row({{"flags", "16"}}));
}

TEST_F(BaseChannelRecord, UnknownWaitTimeIsMinusOne) {
  rChannel.iWaitTime = -1;
  EXPECT_EQ(Fill(/*fFinal=*/false), Row({{"waittime", "-1"}}));
}

// The party columns, whole rows: known or unknown far party, with and without a local number, internal or not, both
// directions, the test switch, the active and the lasting row.
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
  const StdStringMap rOwnNumber{{"local", "22"}, {"localfull", "22"}, {"localcallerid", "52"}, {"localcontact", "62"}};
  StdStringMap rBoth = rKnownFar;
  rBoth.insert(rOwnNumber.begin(), rOwnNumber.end());
  StdStringMap rBothIncoming = rBoth;
  rBothIncoming["direction"] = "0";
  StdStringMap rStranger = rOwnNumber;
  rStranger["remote"] = rStranger["remotefull"] = "099";

  const PartyRow rRows[] = {
      {"known far party", "0301234", nullptr, false, false, rKnownFar, false},
      {"with an own number, outgoing", "0301234", "22", false, false, rBoth, false},
      {"with an own number, incoming", "0301234", "22", true, false, rBothIncoming, false},
      {"an unknown far party has no contact", "099", "22", false, false, rStranger, false},
      {"an active row is never internal, as the look-up does not tell",
       "22",
       nullptr,
       true,
       false,
       {{"remote", "22"}, {"remotefull", "22"}, {"remotecallerid", "52"}, {"remotecontact", "62"}, {"direction", "0"}},
       false},
  };
  for (const PartyRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.strRemoteNum = rRow.acRemote;
    rChannel.fUseLocalNum = rRow.acLocal != nullptr;
    rChannel.strLocalNum = rRow.acLocal ? rRow.acLocal : "";
    rChannel.fIncoming = rRow.fIncoming;
    EXPECT_EQ(Fill(/*fFinal=*/false), Row(rRow.rColumns));
    EXPECT_THAT(logsink::Take(), IsEmpty());
  }
}

// Far and own side as they stand in the columns, with and without exchange.
StdStringMap Sides(const std::string& strFarColumn, const std::string& strOwnColumn, const std::string& strFar,
                   const char* acFarCallerID, const char* acFarContact, const std::string& strOwn,
                   const char* acOwnCallerID, const char* acOwnContact, const char* acDirection) {
  StdStringMap rSides{{strFarColumn, strFar},
                      {strFarColumn + "full", strFar},
                      {strOwnColumn, strOwn},
                      {strOwnColumn + "full", strOwn},
                      {strOwnColumn + "callerid", acOwnCallerID},
                      {strOwnColumn + "contact", acOwnContact},
                      {"direction", acDirection},
                      {"isarchived", "1"}};
  if (acFarContact != nullptr) {
    rSides[strFarColumn + "callerid"] = acFarCallerID;
    rSides[strFarColumn + "contact"] = acFarContact;
  }
  return rSides;
}

TEST_F(BaseChannelRecord, PartiesOfALastingRow) {
  rDatabase.rNumbers["33"] = MakeContact(53, 63, true);
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
      {"outgoing, number", acOut, "33", false, false, Plain(acOut, "51", "61", "33", "53", "63", "1"), false},
      {"incoming, line", acOut, nullptr, true, false, Plain(acOut, "51", "61", "", "0", "1007", "0"), false},
      {"incoming, number", acOut, "33", true, false, Plain(acOut, "51", "61", "33", "53", "63", "0"), false},
      {"internal outgoing, line", "22", nullptr, false, false, Plain("22", "52", "62", "", "0", "1007", "2"), true},
      {"internal outgoing, number", "22", "33", false, false, Plain("22", "52", "62", "33", "53", "63", "2"), true},
      {"internal incoming, line", "22", nullptr, true, false, Swapped("22", "52", "62", "", "0", "1007", "2"), true},
      {"internal incoming, number", "22", "33", true, false, Swapped("22", "52", "62", "33", "53", "63", "2"), true},
      {"switch, outgoing", acOut, "33", false, true, Swapped(acOut, "51", "61", "33", "53", "63", "0"), false},
      {"switch, outgoing, line", acOut, nullptr, false, true, Swapped(acOut, "51", "61", "", "0", "1007", "0"), false},
      {"switch, incoming", acOut, "33", true, true, Swapped(acOut, "51", "61", "33", "53", "63", "1"), false},
      {"switch, internal outgoing", "22", "33", false, true, Swapped("22", "52", "62", "33", "53", "63", "1"), true},
      {"switch, internal incoming", "22", "33", true, true, Swapped("22", "52", "62", "33", "53", "63", "1"), true},
  };
  for (const PartyRow& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.strRemoteNum = rRow.acRemote;
    rChannel.fUseLocalNum = rRow.acLocal != nullptr;
    rChannel.strLocalNum = rRow.acLocal ? rRow.acLocal : "";
    rChannel.fIncoming = rRow.fIncoming;
    rRecorder.fCrecTestSwapLocRem = rRow.fSwapSwitch;
    const Texts astrKeys = {"local", "localfull", "localcallerid", "localcontact"};
    StdStringMap rExpected = Without(Row({}), astrKeys);
    for (const auto& [strKey, strValue] : rRow.rColumns) rExpected[strKey] = strValue;
    EXPECT_EQ(Fill(/*fFinal=*/true), rExpected);
    EXPECT_EQ(logsink::TakeTexts(), rRow.fInternal ? Texts{"5 [7] Other 22 is also local: internal call"} : Texts{});
    EXPECT_EQ(rChannel.iActiveContactLocal, rRow.acLocal ? 63 : 1007);
  }
}

TEST_F(BaseChannelRecord, UnknownFarPartyIsAbsentOnEitherSide) {
  rChannel.strRemoteNum = "099";
  EXPECT_EQ(Fill(/*fFinal=*/false), Row({{"remote", "099"}, {"remotefull", "099"}}));
  rRecorder.fCrecTestSwapLocRem = true;
  StdStringMap rExpected = Without(Row({}), {"localcallerid", "localcontact"});
  for (const auto& [strKey, strValue] : Sides("local", "remote", "099", nullptr, nullptr, "", "0", "1007", "0")) {
    rExpected[strKey] = strValue;
  }
  rExpected["isarchived"] = "0";
  EXPECT_EQ(Fill(/*fFinal=*/false), rExpected);
}

TEST_F(BaseChannelRecord, FarPartyWithACallerIdButNoContactIsAbsent) {
  rDatabase.rNumbers["099"] = MakeContact(54, -1, true);
  rChannel.strRemoteNum = "099";
  EXPECT_EQ(Fill(/*fFinal=*/true), Row({{"remote", "099"}, {"remotefull", "099"}, {"isarchived", "1"}}));
  EXPECT_THAT(logsink::Take(), IsEmpty());  // nor does it make the call internal
}

TEST_F(BaseChannelRecord, CardsCanBeDeclaredNeverInternal) {
  rRecorder.fCardNotInternal = true;
  rChannel.fIncoming = true;
  rChannel.strRemoteNum = "22";
  EXPECT_EQ(Fill(/*fFinal=*/true), Row(Sides("remote", "local", "22", "52", "62", "", "0", "1007", "0")));
  EXPECT_THAT(logsink::Take(), IsEmpty());
}

TEST_F(BaseChannelRecord, CustomIdentityStandsForTheLine) {
  rChannel.strLocalNum = "not used";
  rChannel.rCustomLocal.fFound = true;
  rChannel.rCustomLocal.strText = "Zo\xc3\xab";
  rDatabase.rNumbers["Zo\xc3\xab"] = MakeContact(54, 64, true);
  EXPECT_EQ(
      Fill(/*fFinal=*/false),
      Row({{"local", "Zo\xc3\xab"}, {"localfull", "Zo\xc3\xab"}, {"localcallerid", "54"}, {"localcontact", "64"}}));
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetOrCreateLineContact 7 ''", "GetCallerIDContact ",
                                                 "GetOrCreateCallerIDContact Zo\xc3\xab local ''"));
}

TEST_F(BaseChannelRecord, ActiveRowLooksUpTheNumberUnconverted) {
  rRecorder.iMaskLastRemoteDigits = 1;
  rChannel.strRemoteNum =
      "Andr\xe9"
      "5";
  rChannel.strLocalNum = "Zo\xeb";
  rChannel.fUseLocalNum = true;
  StdStringMap rRow = Fill(/*fFinal=*/false);
  EXPECT_EQ(rRow["remote"], "Andr\xc3\xa9X");
  EXPECT_EQ(rRow["remotefull"], "Andr\xc3\xa9X");
  EXPECT_EQ(rRow["local"], "Zo\xc3\xab");
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetOrCreateLineContact 7 ''", "GetCallerIDContact Andr\xe9X",
                                                 "GetOrCreateCallerIDContact Zo\xc3\xab local ''"));
  rRow = Fill(/*fFinal=*/true);
  EXPECT_EQ(rRow["remote"], "Andr\xc3\xa9X");
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetOrCreateLineContact 7 ''", "GetOrCreateCallerIDContact Andr\xc3\xa9X remote ''",
                          "GetOrCreateCallerIDContact Zo\xc3\xab local ''"));
}

TEST_F(BaseChannelRecord, ConnectedNumberHasItsColumns) {
  rChannel.fHasConnectedNum = true;
  rChannel.strConnectedNum = "Ren\xe9";
  rDatabase.rNumbers["Ren\xc3\xa9"] = MakeContact(55, 65, true);
  const StdStringMap rColumns{{"connected", "Ren\xc3\xa9"}, {"connectedcallerid", "55"}, {"connectedcontact", "65"}};
  EXPECT_EQ(Fill(/*fFinal=*/false), Row(rColumns));
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetOrCreateLineContact 7 ''", "GetCallerIDContact ",
                                                 "GetOrCreateCallerIDContact Ren\xc3\xa9 remote ''"));
  rChannel.fIncoming = true;
  StdStringMap rIncoming = rColumns;
  rIncoming["direction"] = "0";
  EXPECT_EQ(Fill(/*fFinal=*/false), Row(rIncoming));
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("GetOrCreateLineContact 7 ''", "GetCallerIDContact ",
                                                 "GetOrCreateCallerIDContact Ren\xc3\xa9 local ''"));
}

TEST_F(BaseChannelRecord, MappedNumberFillsANote) {
  const struct {
    const char* acLabel;
    bool fUseLocalNum;
    bool fFound;
    const char* acTarget;
    bool fFilled;
  } rRows[] = {
      {"notes", true, true, "notes", true},
      {"notes2", true, true, "notes2", true},
      {"other columns are not for a map", true, true, "notes3", false},
      {"nor is an empty name", true, true, "", false},
      {"no map entry", true, false, "notes", false},
      {"the line has no number of its own", false, true, "notes", false},
  };
  rChannel.strLocalNum = "22";
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rChannel.fUseLocalNum = rRow.fUseLocalNum;
    IdMapEntry& rEntry = rDatabase.rIdMap["22"];
    rEntry.fFound = rRow.fFound;
    rEntry.strTarget = rRow.acTarget;
    rEntry.strValue = "Zo\xc3\xab";
    StdStringMap rExpected =
        rRow.fUseLocalNum ? Row({{"local", "22"}, {"localfull", "22"}, {"localcallerid", "52"}, {"localcontact", "62"}})
                          : Row({});
    if (rRow.fFilled) rExpected[rRow.acTarget] = "Zo\xc3\xab";
    EXPECT_EQ(Fill(/*fFinal=*/false), rExpected);
  }
}

TEST_F(BaseChannelRecord, NoteIsLookedUpByTheNumberInTheRow) {
  rChannel.rCustomLocal.fFound = true;
  rChannel.rCustomLocal.strText = "Zo\xc3\xab";
  rDatabase.fNoteReads = true;
  (void)Fill(/*fFinal=*/false);
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetOrCreateLineContact 7 ''", "GetCallerIDContact ",
                          "GetOrCreateCallerIDContact Zo\xc3\xab local ''", "GetIdMapEntry Zo\xc3\xab"));
}

TEST_F(BaseChannelRecord, UnreachableDatabaseLeavesTheIdsUnknown) {
  rDatabase.fDown = true;
  rChannel.strRemoteNum = "0301234";
  EXPECT_EQ(Fill(/*fFinal=*/true), Row({{"isarchived", "1"},
                                        {"remote", "0301234"},
                                        {"remotefull", "0301234"},
                                        {"lineid", "-1"},
                                        {"localcontact", "-1"}}));
}

// -- rows and the end of a part -------------------------------------------------------------------------------------

TEST_F(BaseChannelRecord, ActiveRowIsMadeAndRemoved) {
  rChannel.AddActive();
  EXPECT_EQ(rChannel.iActiveCallID, 1);
  EXPECT_EQ(ActiveRow(), Row({}));
  ForgetTraces();
  rChannel.RemoveActive();
  rChannel.RemoveActive();
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("DeleteActiveCall 1"));
  EXPECT_EQ(rChannel.iActiveCallID, -1);
}

TEST_F(BaseChannelRecord, FailedRowLeavesTheCallRecordingWithoutOne) {
  rDatabase.fDown = true;
  rChannel.TryStartRecording();
  EXPECT_TRUE(rChannel.fRecording);
  EXPECT_EQ(rChannel.iActiveCallID, -1);
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_TRUE(file_exists(rChannel.strFullFilename));
  EXPECT_EQ(KeptRows(), 0u);
}

TEST_F(BaseChannelRecord, WaitingRowHasTheNamesAndLengthOfThePartBefore) {
  rChannel.fRecOnDmd = true;
  rChannel.TryStartRecording();
  EXPECT_EQ(ActiveRow(), Row({{"encoding", "0"}, {"remoteid", "20240131_142345_007_01"}}));
}

TEST_F(BaseChannelRecord, FinalizeWithoutRecordingClearsAndRemovesTheRow) {
  rChannel.iActiveCallID = 31;
  rChannel.strRemoteNum = "0301234";
  rChannel.fRecOnDmdStart = true;
  rChannel.fToEmail = true;
  rChannel.fDontKeepThisPart = true;
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_FALSE(rChannel.fRecOnDmdStart);
  EXPECT_FALSE(rChannel.fToEmail);
  EXPECT_FALSE(rChannel.fDontKeepThisPart);
  EXPECT_EQ(rChannel.strRemoteNum, "");
  EXPECT_EQ(rChannel.iClearInfos, 1);
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("DeleteActiveCall 31"));
}

TEST_F(BaseChannelRecord, FinalizeOfAPartLeavesTheCallsInformation) {
  rChannel.iActiveCallID = 31;
  rChannel.strRemoteNum = "0301234";
  rChannel.fToEmail = true;
  rChannel.fDontRecord = true;
  rChannel.fDontKeepThisPart = true;
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_EQ(rChannel.strRemoteNum, "0301234");
  EXPECT_EQ(rChannel.iClearInfos, 0);
  EXPECT_TRUE(rChannel.fDontRecord);
  EXPECT_FALSE(rChannel.fToEmail);
  EXPECT_FALSE(rChannel.fDontKeepThisPart);
}

TEST_F(BaseChannelRecord, KeptRecordingIsClearedOnceAndItsRowIsNotRemovedHere) {
  rChannel.TryStartRecording();
  ForgetTraces();
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_EQ(rChannel.iClearInfos, 1);
  EXPECT_EQ(rChannel.iActiveCallID, -1);
  EXPECT_EQ(KeptRows(), 1u);
}

TEST_F(BaseChannelRecord, RefusedDriverStopClearsTwiceAndRemovesTheRow) {
  rChannel.TryStartRecording();
  ForgetTraces();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_EQ(rChannel.iClearInfos, 2);
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("DeleteActiveCall 1"));
  EXPECT_TRUE(file_exists(rChannel.strFullFilename));
}

}  // namespace
