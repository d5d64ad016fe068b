// What becomes of a recording when it stops: the second half of BaseChannel_decide.cpp.
#include <fstream>
#include <sstream>

#include "LineBench.h"
#include "datafile.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

using BaseChannelStop = LineBench;

// -- stop: the driver and the file ----------------------------------------------------------------------------------

TEST_F(BaseChannelStop, StopWithoutRecordingDoesNothing) {
  for (const bool fAsked : {false, true}) {
    bool fClearInfo = fAsked;
    rChannel.StopRecording(fClearInfo);
    EXPECT_EQ(fClearInfo, fAsked);
  }
  EXPECT_THAT(logsink::Take(), IsEmpty());
  EXPECT_THAT(simcards::TakeCalls(), IsEmpty());
  EXPECT_EQ(rChannel.iClearInfos, 0);
}

TEST_F(BaseChannelStop, RefusedDriverStopMakesNoDecision) {
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(5);
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  bool fClearInfo = true;
  rChannel.StopRecording(fClearInfo);
  EXPECT_TRUE(fClearInfo);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("3 Error in SsmStopRecMem: no such channel"));
  EXPECT_THAT(rDatabase.TakeCalls(), IsEmpty());
  EXPECT_FALSE(rChannel.fRecording);
  EXPECT_NE(rChannel.hAudioFile, nullptr);
  EXPECT_TRUE(file_exists(rChannel.strFullFilename));
  EXPECT_EQ(rChannel.iActiveCallID, 1);
  EXPECT_EQ(rChannel.strRemoteNum, "");
  EXPECT_EQ(rChannel.iClearInfos, 1);
}

TEST_F(BaseChannelStop, RefusedDriverStopClearsEvenWhenTheCallGoesOn) {
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(5);
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  bool fClearInfo = false;
  rChannel.StopRecording(fClearInfo);
  EXPECT_FALSE(fClearInfo);
  EXPECT_EQ(rChannel.strRemoteNum, "");
}

TEST_F(BaseChannelStop, MixEndsBeforeTheDriver) {
  rChannel.iLinkedCh = LINKED_CH;
  RecordSeconds(5);
  bool fClearInfo = false;
  rChannel.StopRecording(fClearInfo);
  EXPECT_THAT(simcards::TakeCalls(), ElementsAre("SsmStopRecToMem(1)", "SsmStopRecToMem(0)"));
  const Texts astrCalls = rRecorder.TakeCalls();
  ASSERT_FALSE(astrCalls.empty());
  EXPECT_EQ(astrCalls[0], "StopMixIn 1");
}

TEST_F(BaseChannelStop, BothFilesAreClosed) {
  rRecorder.fMonitoring = true;
  RecordSeconds(5);
  ASSERT_NE(rChannel.hAudioFile, nullptr);
  ASSERT_NE(rChannel.hRawFile, nullptr);
  bool fClearInfo = false;
  rChannel.StopRecording(fClearInfo);
  EXPECT_EQ(rChannel.hAudioFile, nullptr);
  EXPECT_EQ(rChannel.hRawFile, nullptr);
}

// -- stop: the rules of keeping -------------------------------------------------------------------------------------

TEST_F(BaseChannelStop, KeptRecordingMovesItsRowToTheCalls) {
  rChannel.strRemoteNum = "0301234";
  rDatabase.fNoteReads = true;
  RecordSeconds(12);
  bool fClearInfo = true;
  rChannel.StopRecording(fClearInfo);
  EXPECT_FALSE(fClearInfo);
  EXPECT_EQ(rChannel.iClearInfos, 1);
  EXPECT_EQ(rChannel.strRemoteNum, "");
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording stopped (12 s)"));
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetActiveCallExtra 1", "GetConfigInt RecMinDur", "GetOrCreateLineContact 7 ''",
                          "GetOrCreateCallerIDContact 0301234 remote ''", "GetConfigInt RecNotOutg",
                          "GetOrCreateLineContact 7 ''", "GetOrCreateCallerIDContact 0301234 remote ''",
                          "GetActiveCallCarryOver 1", "DeleteActiveCall 1", "Add Calls 2"));
  EXPECT_EQ(rChannel.iActiveCallID, -1);
  EXPECT_EQ(rDatabase.rTables["Calls"][2]["duration"], "12");
  EXPECT_EQ(rDatabase.rTables["Calls"][2]["isarchived"], "1");
  struct stat rStat {};
  ASSERT_EQ(stat(rChannel.strFullFilename.c_str(), &rStat), 0);
  EXPECT_EQ(rStat.st_mode & 07777, 0777u);
}

TEST_F(BaseChannelStop, CallThatGoesOnKeepsItsInformation) {
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(12);
  bool fClearInfo = false;
  rChannel.StopRecording(fClearInfo);
  EXPECT_FALSE(fClearInfo);
  EXPECT_EQ(rChannel.iClearInfos, 0);
  EXPECT_EQ(rChannel.strRemoteNum, "0301234");
  EXPECT_EQ(KeptRows(), 1u);
}

TEST_F(BaseChannelStop, RecordingWithoutARowStaysWhereItIs) {
  RecordSeconds(5);
  rChannel.iActiveCallID = -1;
  bool fClearInfo = true;
  rChannel.StopRecording(fClearInfo);
  EXPECT_FALSE(fClearInfo);
  EXPECT_EQ(rChannel.iClearInfos, 1);
  EXPECT_EQ(KeptRows(), 0u);
  struct stat rStat {};
  ASSERT_EQ(stat(rChannel.strFullFilename.c_str(), &rStat), 0);
  EXPECT_EQ(rStat.st_mode & 07777, 0777u);
}

// One recording of 10 seconds, and what becomes of it.
struct KeepRow {
  const char* acLabel;
  StdStringMap rConfig;
  bool fIncoming;
  const char* acRemote;
  bool fKept;
  Texts astrLog;  // behind "Recording stopped"
};

class BaseChannelKeep : public LineBench {
 protected:
  // The line's own numbers: a known local party "22", a known outside party "0301234", a stranger "0305678".
  void SetUp() override {
    LineBench::SetUp();
    rDatabase.rNumbers["22"] = MakeContact(52, 62, true);
    rDatabase.rNumbers["0301234"] = MakeContact(51, 61, false);
  }
  void Check(const KeepRow& rRow) {
    SCOPED_TRACE(rRow.acLabel);
    rDatabase.rParts["o"] = rRow.rConfig;
    rChannel.fIncoming = rRow.fIncoming;
    rChannel.strRemoteNum = rRow.acRemote;
    RecordSeconds(10);
    const std::size_t iKeptBefore = KeptRows();
    rChannel.FinalizeRecording(/*fClearInfo=*/false);
    Texts astrLog = {"5 [7] Recording stopped (10 s)"};
    astrLog.insert(astrLog.end(), rRow.astrLog.begin(), rRow.astrLog.end());
    EXPECT_EQ(logsink::TakeTexts(), astrLog);
    EXPECT_EQ(file_exists(rChannel.strFullFilename), rRow.fKept);
    EXPECT_EQ(KeptRows() - iKeptBefore, rRow.fKept ? 1u : 0u);
    EXPECT_EQ(ActiveRows(), 0u);
    EXPECT_EQ(rChannel.iActiveCallID, -1);
  }
};

TEST_F(BaseChannelKeep, MinimumDuration) {
  Check({"no minimum", {}, true, "0301234", true, {}});
  Check({"exactly the minimum", {{"RecMinDur", "10"}}, true, "0301234", true, {}});
  Check({"one second below", {{"RecMinDur", "11"}}, true, "0301234", false, {"5 [7] Duration too short (10 < 11)"}});
}

TEST_F(BaseChannelKeep, EmptyNumber) {
  const Texts astrRefused = {"5 [7] Empty remote number: not keeping"};
  Check({"option off", {{"NotRecEmptyNum", "0"}}, true, "", true, {}});
  Check({"option on, with a number", {{"NotRecEmptyNum", "1"}}, true, "0301234", true, {}});
  Check({"option on", {{"NotRecEmptyNum", "1"}}, true, "", false, astrRefused});
  Check({"any value but 0 is on", {{"NotRecEmptyNum", "-1"}}, true, "", false, astrRefused});
  Check({"it refuses before the direction does",
         {{"NotRecEmptyNum", "1"}, {"RecNotInc", "1"}},
         true,
         "",
         false,
         astrRefused});
}

TEST_F(BaseChannelKeep, Direction) {
  const Texts astrInternal = {"5 [7] Internal call: not keeping"};
  const Texts astrOutgoing = {"5 [7] Outgoing call: not keeping"};
  const Texts astrIncoming = {"5 [7] Incoming call: not keeping"};
  Check({"outgoing", {{"RecNotInc", "1"}}, false, "0301234", true, {}});
  Check({"outgoing refused", {{"RecNotOutg", "1"}}, false, "0301234", false, astrOutgoing});
  Check({"2 keeps outgoing calls", {{"RecNotOutg", "2"}}, false, "0301234", true, {}});
  Check({"incoming", {{"RecNotOutg", "1"}}, true, "0301234", true, {}});
  Check({"incoming refused", {{"RecNotInc", "1"}}, true, "0301234", false, astrIncoming});
  Check({"2 keeps incoming calls", {{"RecNotInc", "2"}}, true, "0301234", true, {}});
  Check({"internal, incoming, refused by default", {}, true, "22", false, astrInternal});
  Check({"internal, outgoing, refused by default", {}, false, "22", false, astrInternal});
  const Texts astrKeptInternal = {"5 [7] Other 22 is also local: internal call"};
  const StdStringMap rNeither{{"RecLocal", "1"}, {"RecNotOutg", "1"}, {"RecNotInc", "1"}};
  Check({"internal wanted, whatever the direction: incoming", rNeither, true, "22", true, astrKeptInternal});
  Check({"internal wanted, whatever the direction: outgoing", rNeither, false, "22", true, astrKeptInternal});
  rRecorder.fCardNotInternal = true;
  Check({"no call of a card is internal: incoming", {}, true, "22", true, {}});
  Check({"no call of a card is internal: outgoing refused", {{"RecNotOutg", "1"}}, false, "22", false, astrOutgoing});
}

TEST_F(BaseChannelKeep, OnlyTheOptionOfTheKindOfCallIsRead) {
  const struct {
    const char* acLabel;
    bool fCardNotInternal;
    bool fIncoming;
    const char* acRemote;
    const char* acRead;
  } rRows[] = {
      {"internal", false, true, "22", "GetConfigInt RecLocal"},
      {"not internal by option", true, true, "22", "GetConfigInt RecNotInc"},
      {"outgoing", false, false, "0301234", "GetConfigInt RecNotOutg"},
      {"incoming", false, true, "0301234", "GetConfigInt RecNotInc"},
      {"empty number", false, true, "", "GetConfigInt NotRecEmptyNum,GetConfigInt RecNotInc"},
  };
  rDatabase.fNoteReads = true;
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rRecorder.fCardNotInternal = rRow.fCardNotInternal;
    rChannel.fIncoming = rRow.fIncoming;
    rChannel.strRemoteNum = rRow.acRemote;
    RecordSeconds(10);
    rChannel.FinalizeRecording(/*fClearInfo=*/false);
    std::string strRead;
    for (const std::string& strCall : rDatabase.TakeCalls()) {
      if (strCall.rfind("GetConfigInt ", 0) == 0) strRead += (strRead.empty() ? "" : ",") + strCall;
    }
    EXPECT_EQ(strRead, std::string("GetConfigInt RecMinDur,") + rRow.acRead);
  }
}

TEST_F(BaseChannelKeep, UnknownContactIsNotInternal) {
  rDatabase.rNumbers["22"] = MakeContact(52, -1, true);
  Check({"a contact without an id", {{"RecLocal", "0"}}, true, "22", true, {}});
}

TEST_F(BaseChannelKeep, StoreOnDemand) {
  rRecorder.fStoreOnDemandAnswer = true;
  const Texts astrNotKeeping = {"5 [7] Store on demand: not keeping"};
  Check({"nobody asked", {}, true, "0301234", false, astrNotKeeping});
  rRecorder.fStoreOnDemandAnswer = false;
  Check({"the option is off for these parties", {}, true, "0301234", true, {}});
}

TEST_F(BaseChannelKeep, MarkedCallIsKept) {
  rRecorder.fStoreOnDemandAnswer = true;
  const struct {
    const char* acLabel;
    const char* acMark;
    bool fKept;
  } rRows[] = {
      {"marked", "1", true},        {"any number but 0", "-2", true}, {"mark taken back", "0", false},
      {"an empty mark", "", false}, {"no number", "yes", false},
  };
  for (const auto& rRow : rRows) {
    SCOPED_TRACE(rRow.acLabel);
    rDatabase.rExtra.clear();
    RecordSeconds(10);
    rDatabase.rExtra[rChannel.iActiveCallID]["to-keep"] = rRow.acMark;
    rChannel.FinalizeRecording(/*fClearInfo=*/false);
    EXPECT_EQ(logsink::TakeTexts(),
              (Texts{"5 [7] Recording stopped (10 s)",
                     rRow.fKept ? "5 [7] Store on demand: keeping" : "5 [7] Store on demand: not keeping"}));
    EXPECT_EQ(file_exists(rChannel.strFullFilename), rRow.fKept);
  }
}

TEST_F(BaseChannelKeep, MarkedCallStillMeetsTheOtherRules) {
  rRecorder.fStoreOnDemandAnswer = true;
  SetConfig("RecNotInc", "1");
  rChannel.fIncoming = true;
  RecordSeconds(10);
  rDatabase.rExtra[rChannel.iActiveCallID]["to-keep"] = "1";
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording stopped (10 s)", "5 [7] Store on demand: keeping",
                                                "5 [7] Incoming call: not keeping"));
  EXPECT_FALSE(file_exists(rChannel.strFullFilename));
}

TEST_F(BaseChannelKeep, DelayedDecisionFinishesTheFileAndKeepsTheRowActive) {
  rRecorder.fStoreOnDemandAnswer = true;
  rRecorder.fStoreOnDemandDelay = 1;
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(10);
  const int iRow = rChannel.iActiveCallID;
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording stopped (10 s)", "5 [7] Store on demand: delay"));
  EXPECT_TRUE(file_exists(rChannel.strFullFilename));
  EXPECT_EQ(KeptRows(), 0u);
  ASSERT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(rDatabase.rTables["ActiveCalls"][iRow]["processingstate"], "128");
  EXPECT_EQ(rChannel.iActiveCallID, -1);
}

TEST_F(BaseChannelKeep, DelayedDecisionStillMeetsTheOtherRules) {
  rRecorder.fStoreOnDemandAnswer = true;
  rRecorder.fStoreOnDemandDelay = 1;
  Check({"incoming calls refused",
         {{"RecNotInc", "1"}},
         true,
         "0301234",
         false,
         {"5 [7] Store on demand: delay", "5 [7] Incoming call: not keeping"}});
}

TEST_F(BaseChannelKeep, MarkIsReadOnlyWhenStoreOnDemandHolds) {
  RecordSeconds(10);
  rDatabase.rExtra[rChannel.iActiveCallID]["to-keep"] = "1";
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording stopped (10 s)"));
}

TEST_F(BaseChannelKeep, StoreOnDemandIsAskedForBothParties) {
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(10);
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_THAT(rRecorder.TakeCalls(), ElementsAre("StoreOnDemand 1007 61"));

  rChannel.strLocalNum = "22";
  rChannel.fUseLocalNum = true;
  RecordSeconds(10);
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_THAT(rRecorder.TakeCalls(), ElementsAre("StoreOnDemand 62 61"));
}

TEST_F(BaseChannelKeep, ContactsAreAskedInUtf8AndMasked) {
  rRecorder.iMaskLastRemoteDigits = 1;
  rRecorder.fStoreOnDemandAnswer = true;  // refuses, so that no call row asks for the contacts again
  rChannel.strRemoteNum =
      "Andr\xe9"
      "5";
  rChannel.strLocalNum = "Zo\xeb";
  rChannel.fUseLocalNum = true;
  RecordSeconds(10);
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_THAT(rDatabase.TakeCalls(),
              ElementsAre("GetOrCreateCallerIDContact Zo\xc3\xab local ''",
                          "GetOrCreateCallerIDContact Andr\xc3\xa9X remote ''", "DeleteActiveCall 1"));
}

TEST_F(BaseChannelKeep, CustomIdentityIsTheLocalParty) {
  CallerIdContact& rCustom = rDatabase.rCustomLocals[1007];
  rCustom.fFound = true;
  rCustom.strText = "22";
  rCustom.iUpdateTime = time(nullptr);
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(10);
  rChannel.FinalizeRecording(/*fClearInfo=*/false);
  EXPECT_THAT(rRecorder.TakeCalls(), ElementsAre("StoreOnDemand 62 61"));
}

TEST_F(BaseChannelKeep, TooShortRecordingKeepsTheNumbers) {
  SetConfig("RecMinDur", "11");
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(10);
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_EQ(rChannel.strRemoteNum, "0301234");
  EXPECT_EQ(rChannel.iClearInfos, 0);
  EXPECT_FALSE(file_exists(rChannel.strFullFilename));
  EXPECT_EQ(ActiveRows(), 0u);
  EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("DeleteActiveCall 1"));
}

TEST_F(BaseChannelKeep, TooShortIsToldEvenForACallThatIsDroppedAnyway) {
  SetConfig("RecMinDur", "11");
  RecordSeconds(10);
  rChannel.fDontRecord = true;
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 [7] Recording stopped (10 s)", "5 [7] Duration too short (10 < 11)"));
}

TEST_F(BaseChannelKeep, BarredCallOrPartIsDroppedWithoutAskingForContacts) {
  for (bool BaseChannel::*fFlag : {&BaseChannel::fDontRecord, &BaseChannel::fDontKeepThisPart}) {
    RecordSeconds(10);
    rChannel.*fFlag = true;
    const std::string strRow = ToStdString(rChannel.iActiveCallID);
    rChannel.FinalizeRecording(/*fClearInfo=*/true);
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 [7] Recording stopped (10 s)"));
    EXPECT_THAT(rDatabase.TakeCalls(), ElementsAre("DeleteActiveCall " + strRow));
    EXPECT_THAT(rRecorder.TakeCalls(), IsEmpty());
    EXPECT_FALSE(file_exists(rChannel.strFullFilename));
    EXPECT_FALSE(rChannel.*fFlag);
  }
}

// -- what the finishing is told -------------------------------------------------------------------------------------

// Stand-ins for the appliance's tools, which write their arguments down.
class BaseChannelFinish : public BaseChannelKeep {
 protected:
  void SetUp() override {
    BaseChannelKeep::SetUp();
    strPath = getenv("PATH");
    EnsurePath("/tmp/tools");
    for (const char* acTool : {"sox", "morvex_reccheck", "morvex_crypt", "sha1sum"}) {
      const std::string strFile = std::string("/tmp/tools/") + acTool;
      std::ofstream(strFile) << "#!/bin/sh\necho " << acTool << " \"$@\" >> /tmp/tools/log\necho 1234 x\n";
      ASSERT_EQ(chmod(strFile.c_str(), 0755), 0);
    }
    setenv("PATH", ("/tmp/tools:" + strPath).c_str(), 1);
  }
  void TearDown() override {
    setenv("PATH", strPath.c_str(), 1);
    (void)remove("/tmp/tools/log");
  }
  static std::string ToolLog() {
    std::stringstream rText;
    rText << std::ifstream("/tmp/tools/log").rdbuf();
    return rText.str();
  }
  std::string strPath;
};

class StereoChannel : public BenchLine {
 public:
  bool CanStereo() override { return true; }
};

TEST_F(BaseChannelFinish, ActionCarriesFilesLengthAndChecksumType) {
  rRecorder.eRecEnc = RECENC_MP3;
  rRecorder.fStereo = true;
  rRecorder.fRecCheck = true;
  rRecorder.fALE = true;
  rRecorder.strRecordingRoot = "/tmp/area";
  rRecorder.strArchiveRoot = "/recordings";
  rRecorder.strCheckSumType = "sha1";
  StereoChannel rStereo;
  rStereo.Init(LINE, 0, 0, &rRecorder, DRIVER_CH);
  rStereo.TryStartRecording();
  PassSeconds(10);
  rStereo.FinalizeRecording(/*fClearInfo=*/true);
  const std::string strFile = "2024/01/31/14/20240131_142345_007_01.mp3";
  EXPECT_EQ(ToolLog(), "sox /tmp/area/" + strFile + ".g711 -C 32.4 /tmp/area/" + strFile + "\n" +
                           "morvex_reccheck /tmp/area/" + strFile + " 10\n" + "morvex_crypt -e -i /tmp/area/" +
                           strFile + " -o /recordings/" + strFile + "\n" + "sha1sum -b /recordings/" + strFile + "\n");
  ASSERT_EQ(KeptRows(), 1u);
  StdStringMap& rRow = rDatabase.rTables["Calls"].begin()->second;
  EXPECT_EQ(rRow["encoding"], "801");
  EXPECT_EQ(rRow["flags"], "16");
  EXPECT_EQ(StringToArray(rRow["callextra"]), (StdStringMap{{"chk", "1234"}, {"chktype", "sha1"}}));
}

TEST_F(BaseChannelFinish, MonoRecordingIsConvertedAsMono) {
  rRecorder.eRecEnc = RECENC_MP3;
  RecordSeconds(10);
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_THAT(ToolLog(), HasSubstr(" -C 16.4 "));
}

TEST_F(BaseChannelFinish, MailGoesToTheLocalParty) {
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(10);
  rChannel.fToEmail = true;
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_THAT(rRecorder.TakeCalls(), ElementsAre("StoreOnDemand 1007 61", "EmailRecording 2 1007"));
  EXPECT_FALSE(rChannel.fToEmail);
}

TEST_F(BaseChannelFinish, RowHasTheNumbersAtTheMomentOfTheStop) {
  rChannel.strRemoteNum = "0301234";
  RecordSeconds(10);
  rChannel.strRemoteNum = "0305678";
  rChannel.FinalizeRecording(/*fClearInfo=*/true);
  EXPECT_EQ(rDatabase.rTables["Calls"][2]["remote"], "0305678");
}

}  // namespace
