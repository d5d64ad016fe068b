// What becomes of a recording when it stops: the second half of BaseChannel_decide.cpp.
#include "CallBench.h"
#include "datafile.h"
#include "filedir.h"

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testtools::Exists;

namespace {

class BaseChannelStop : public CallBench {
 protected:
  // Off hook for so long; gives the file of it, and forgets the traces.
  std::string Talk(int iSeconds) {
    (void)Log();
    OffHook();
    std::string strFile = FileToldIn(Log());
    Seconds(iSeconds);
    ForgetTraces();
    return strFile;
  }
  // What the database holds for a coming call, as its row tells.
  std::string RemoteOfTheNextCall() {
    OffHook();
    return Active("remote");
  }
  // To the marks that the web side makes on the running call.
  StdStringMap& Marks() { return rDatabase.rExtra[rDatabase.rTables["ActiveCalls"].rbegin()->first]; }
  static unsigned int ModeOf(const std::string& strFile) {
    struct stat rStat {};
    return stat(strFile.c_str(), &rStat) == 0 ? rStat.st_mode & 07777 : 0;
  }
};

// -- stop: the driver and the file ------------------------------------------------------------------------------------

TEST_F(BaseChannelStop, CallThatOnlyWaitedHasNothingToStop) {
  InitLines({{"RecOnDmd", "1"}});
  CallerId("0301234");
  OffHook();
  ForgetTraces();
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops"));
  EXPECT_THAT(Cards(), ElementsAre("SsmClearCallerId(0)"));
  EXPECT_THAT(Queries(), ElementsAre("DeleteActiveCall 1"));
  EXPECT_EQ(RemoteOfTheNextCall(), "");
}

TEST_F(BaseChannelStop, RefusedDriverStopMakesNoDecision) {
  CallerId("0301234");
  const std::string strFile = Talk(5);
  const int iOpen = OpenDescriptors();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops", "3 Error in SsmStopRecMem: no such channel"));
  EXPECT_THAT(Queries(), ElementsAre("DeleteActiveCall 1"));
  EXPECT_THAT(Orders(), IsEmpty());
  EXPECT_EQ(OpenDescriptors(), iOpen);  // the card may still be writing
  EXPECT_TRUE(Exists(strFile));
  EXPECT_EQ(RemoteOfTheNextCall(), "");
}

TEST_F(BaseChannelStop, RefusedDriverStopForgetsTheNumberEvenWhenTheCallGoesOn) {
  InitLines({{"LongRecordings", "1"}, {"LongRecordingsLen", "1"}});
  CallerId("0301234");
  OffHook();
  simcards::FailNext("SsmStopRecToMem", 1, -1, "no such channel");
  Seconds(60);  // cuts the call
  EXPECT_EQ(Active("remoteid"), "20240131_142445_007_02");
  EXPECT_EQ(Active("remote"), "");
}

TEST_F(BaseChannelStop, MixEndsBeforeTheDriver) {
  rLine.LinkWith(LINKED_CH);
  (void)Talk(5);
  OnHook();
  EXPECT_THAT(Cards(), ElementsAre("SsmStopRecToMem(1)", "SsmStopRecToMem(0)", "SsmClearCallerId(0)"));
  EXPECT_THAT(Orders(), ElementsAre("StopMixIn 1", "StoreOnDemand 1007 6000"));
}

TEST_F(BaseChannelStop, BothFilesAreClosed) {
  rRecorder.fMonitoring = true;
  const int iBefore = OpenDescriptors();
  OffHook();
  ASSERT_EQ(OpenDescriptors(), iBefore + 2);
  OnHook();
  EXPECT_EQ(OpenDescriptors(), iBefore);
}

// -- stop: the rules of keeping ---------------------------------------------------------------------------------------

TEST_F(BaseChannelStop, KeptRecordingMovesItsRowToTheCalls) {
  rDatabase.fNoteReads = true;
  CallerId("0301234");
  const std::string strFile = Talk(12);
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops", "5 [7] Recording stopped (12 s)"));
  EXPECT_THAT(Queries(), ElementsAre("GetActiveCallExtra 1", "GetConfigInt RecMinDur", "GetOrCreateLineContact 7 ''",
                                     "GetOrCreateCallerIDContact 0301234 remote ''", "GetConfigInt RecNotOutg",
                                     "GetActiveCallCarryOver 1", "DeleteActiveCall 1", "Add Calls 2"));
  EXPECT_EQ(Kept("duration"), "12");
  EXPECT_EQ(Kept("isarchived"), "1");
  EXPECT_EQ(ModeOf(strFile), 0777u);
  EXPECT_EQ(RemoteOfTheNextCall(), "");
}

TEST_F(BaseChannelStop, KeptRecordingOfALocalNumberAsksForItsLineBesides) {
  (void)rLine.ChangeLocalNum("22");
  CallerId("0301234");
  (void)Talk(12);
  OnHook();
  EXPECT_THAT(Queries(), ElementsAre("GetOrCreateCallerIDContact 22 local ''",
                                     "GetOrCreateCallerIDContact 0301234 remote ''", "GetOrCreateLineContact 7 ''",
                                     "GetActiveCallCarryOver 1", "DeleteActiveCall 1", "Add Calls 2"));
}

TEST_F(BaseChannelStop, ContactWithoutItsNumberIsAskedForAgain) {
  (void)rLine.ChangeLocalNum("22");
  CallerId("0301234");
  (void)Talk(12);
  rDatabase.rNumbers["22"].iCallerID = -1;
  rDatabase.rNumbers["0301234"].iCallerID = -1;
  OnHook();
  EXPECT_THAT(Queries(),
              ElementsAre("GetOrCreateCallerIDContact 22 local ''", "GetOrCreateCallerIDContact 0301234 remote ''",
                          "GetOrCreateLineContact 7 ''", "GetOrCreateCallerIDContact 0301234 remote ''",
                          "GetOrCreateCallerIDContact 22 local ''", "GetActiveCallCarryOver 1", "DeleteActiveCall 1",
                          "Add Calls 2"));
}

TEST_F(BaseChannelStop, ModeOfAKeptRecordingReachesNoFileThatTookItsName) {
  WriteTestFile("/tmp/foreign", "foreign");
  ASSERT_EQ(chmod("/tmp/foreign", 0600), 0);
  rDatabase.fDown = true;  // without a row the recording stays as it is
  const std::string strFile = Talk(5);
  rDatabase.fDown = false;
  std::filesystem::rename(strFile, "/recordings/moved");
  std::filesystem::create_symlink("/tmp/foreign", strFile);
  OnHook();
  EXPECT_EQ(ModeOf("/tmp/foreign"), 0600u);
  EXPECT_EQ(ModeOf("/recordings/moved"), 0777u);
}

TEST_F(BaseChannelStop, CallThatGoesOnKeepsItsInformation) {
  InitLines({{"RecOnDmd", "1"}});
  CallerId("0301234");
  OffHook();
  for (const bool fStart : {true, false}) {
    (void)rLine.RecOnDmdAct(fStart);
    EXPECT_EQ(Active("remote"), "0301234");
  }
  EXPECT_EQ(KeptRows(), 1u);
}

TEST_F(BaseChannelStop, RecordingWithoutARowStaysWhereItIs) {
  rDatabase.fDown = true;
  CallerId("0301234");
  const std::string strFile = Talk(5);
  rDatabase.fDown = false;
  OnHook();
  EXPECT_EQ(KeptRows(), 0u);
  EXPECT_EQ(ModeOf(strFile), 0777u);
  EXPECT_EQ(RemoteOfTheNextCall(), "");
}

TEST_F(BaseChannelStop, DeletedRecordingTakesItsLiveCopyWithIt) {
  rRecorder.fMonitoring = true;
  rRecorder.iDelOnDmdType = 1;
  SetConfig("RecMinDur", "10");
  for (const ERecEncodings eRecEnc : {RECENC_G711A, RECENC_MP3}) {
    rRecorder.eRecEnc = eRecEnc;
    for (const bool fOrder : {true, false}) {
      const std::string strFile = Talk(5);
      Hear(DRIVER_CH, "spoken");
      const std::string strFinal = "/recordings/" + Active("directory") + "/" + Active("filename");
      ASSERT_EQ(ReadTestFile(strFinal + ".raw"), "spoken");
      EXPECT_EQ(fOrder && rLine.DeleteAct(), fOrder);
      OnHook();
      for (const std::string& strGone : {strFile, strFinal, strFinal + ".raw", strFinal + ".info"}) {
        EXPECT_FALSE(Exists(strGone)) << strGone;
      }
    }
  }
  EXPECT_TRUE(std::filesystem::is_empty("/recordings/2024/01/31/14"));
}

TEST_F(BaseChannelStop, LiveCopyOfADeletedRecordingIsOverwrittenToo) {
  WriteTestFile("/var/morvex/conf/opt_secure_delete", "");
  rRecorder.fMonitoring = true;
  SetConfig("RecMinDur", "10");
  const std::string strFile = Talk(5);
  OnHook();
  const Texts astrLog = Log();
  for (const char* const acEnding : {"", ".raw", ".info"}) {
    EXPECT_THAT(astrLog, ::testing::Contains("5 Exec: shred -u '" + strFile + acEnding + "'"));
  }
  EXPECT_FALSE(Exists(strFile + ".raw"));
  EXPECT_TRUE(std::filesystem::remove("/var/morvex/conf/opt_secure_delete"));
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

class BaseChannelKeep : public BaseChannelStop {
 protected:
  // A known local party "22", a known outside party "0301234", a stranger "0305678".
  BaseChannelKeep() {
    rDatabase.rNumbers["22"] = MakeContact(52, 62, true);
    rDatabase.rNumbers["0301234"] = MakeContact(51, 61, false);
  }
  void Check(const KeepRow& rRow) {
    SCOPED_TRACE(rRow.acLabel);
    rDatabase.rParts["o"] = rRow.rConfig;
    if (rRow.fIncoming) Ring();
    if (*rRow.acRemote != '\0') CallerId(rRow.acRemote);
    const std::string strFile = Talk(10);
    const std::size_t iKeptBefore = KeptRows();
    OnHook();
    CheckLog(rRow.astrLog);
    EXPECT_EQ(Exists(strFile), rRow.fKept);
    EXPECT_EQ(KeptRows() - iKeptBefore, rRow.fKept ? 1u : 0u);
    EXPECT_EQ(ActiveRows(), 0u);
  }
  static void CheckLog(const Texts& astrRest) {
    Texts astrLog = {"5 [7] Call stops", "5 [7] Recording stopped (10 s)"};
    astrLog.insert(astrLog.end(), astrRest.begin(), astrRest.end());
    EXPECT_EQ(Log(), astrLog);
  }
};

TEST_F(BaseChannelKeep, MinimumDuration) {
  Check({"no minimum", {}, true, "0301234", true, {}});
  Check({"exactly the minimum", {{"RecMinDur", "10"}}, true, "0301234", true, {}});
  Check({"one second below", {{"RecMinDur", "11"}}, true, "0301234", false, {"5 [7] Duration too short (10 < 11)"}});
}

TEST_F(BaseChannelKeep, ClockThatIsSetBackMakesNoCallTooShort) {
  SetConfig("RecMinDur", "11");
  const std::string strFile = Talk(20);
  PassSeconds(-3600);
  OnHook();
  EXPECT_THAT(Log(), ElementsAre("5 [7] Call stops", "5 [7] Recording stopped (-3580 s)"));
  EXPECT_TRUE(Exists(strFile));
  EXPECT_EQ(KeptRows(), 1u);
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
    if (rRow.fIncoming) Ring();
    if (*rRow.acRemote != '\0') CallerId(rRow.acRemote);
    (void)Talk(10);
    OnHook();
    std::string strRead;
    for (const std::string& strCall : Queries()) {
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
    const std::string strFile = Talk(10);
    Marks()["to-keep"] = rRow.acMark;
    OnHook();
    CheckLog({rRow.fKept ? "5 [7] Store on demand: keeping" : "5 [7] Store on demand: not keeping"});
    EXPECT_EQ(Exists(strFile), rRow.fKept);
  }
}

TEST_F(BaseChannelKeep, MarkedCallStillMeetsTheOtherRules) {
  rRecorder.fStoreOnDemandAnswer = true;
  SetConfig("RecNotInc", "1");
  Ring();
  const std::string strFile = Talk(10);
  Marks()["to-keep"] = "1";
  OnHook();
  CheckLog({"5 [7] Store on demand: keeping", "5 [7] Incoming call: not keeping"});
  EXPECT_FALSE(Exists(strFile));
}

TEST_F(BaseChannelKeep, MarkIsReadOnlyWhenStoreOnDemandHolds) {
  (void)Talk(10);
  Marks()["to-keep"] = "1";
  OnHook();
  CheckLog({});
}

TEST_F(BaseChannelKeep, DelayedDecisionFinishesTheFileAndKeepsTheRowActive) {
  rRecorder.fStoreOnDemandAnswer = true;
  rRecorder.fStoreOnDemandDelay = 1;
  CallerId("0301234");
  const std::string strFile = Talk(10);
  OnHook();
  CheckLog({"5 [7] Store on demand: delay"});
  EXPECT_TRUE(Exists(strFile));
  EXPECT_EQ(KeptRows(), 0u);
  ASSERT_EQ(ActiveRows(), 1u);
  EXPECT_EQ(Active("processingstate"), "128");
  EXPECT_EQ(Active("duration"), "10");
  OffHook();  // the line has let go of that row
  EXPECT_EQ(ActiveRows(), 2u);
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

TEST_F(BaseChannelKeep, StoreOnDemandIsAskedForBothParties) {
  CallerId("0301234");
  (void)Talk(10);
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 1007 61"));

  (void)rLine.ChangeLocalNum("22");
  CallerId("0301234");
  (void)Talk(10);
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 62 61"));
}

TEST_F(BaseChannelKeep, ContactsAreAskedInUtf8AndMasked) {
  rRecorder.iMaskLastRemoteDigits = 1;
  rRecorder.fStoreOnDemandAnswer = true;  // refuses, so that no call row asks for more
  (void)rLine.ChangeLocalNum("Zo\xeb");
  CallerId(
      "Andr\xe9"
      "5");
  (void)Talk(10);
  OnHook();
  EXPECT_THAT(Queries(), ElementsAre("GetOrCreateCallerIDContact Zo\xc3\xab local ''",
                                     "GetOrCreateCallerIDContact Andr\xc3\xa9X remote ''", "DeleteActiveCall 1"));
}

TEST_F(BaseChannelKeep, CustomIdentityIsTheLocalParty) {
  CallerIdContact& rCustom = rDatabase.rCustomLocals[1007];
  rCustom.fFound = true;
  rCustom.strText = "22";
  rCustom.iUpdateTime = CALL_START;
  CallerId("0301234");
  (void)Talk(10);
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 62 61"));
}

TEST_F(BaseChannelKeep, LocalNumberOfACallStaysKnownThoughTheCallWasTooShort) {
  SetConfig("RecMinDur", "11");
  (void)rLine.ChangeLocalNum("27");
  CallerId("099");
  (void)Talk(10);
  EXPECT_EQ(rDatabase.rNumbers.count("27"), 1u);  // with the active row
  OnHook();
  EXPECT_EQ(rDatabase.rNumbers.count("27"), 1u);
  EXPECT_EQ(rDatabase.rNumbers.count("099"), 0u);
}

TEST_F(BaseChannelKeep, LocalNumberTakenInMidCallStaysKnownUnlessTheCallWasTooShort) {
  SetConfig("RecMinDur", "11");
  (void)Talk(10);
  (void)rLine.ChangeLocalNum("27");
  OnHook();
  EXPECT_EQ(rDatabase.rNumbers.count("27"), 0u);

  SetConfig("RecMinDur", "10");
  SetConfig("RecNotOutg", "1");
  const std::string strFile = Talk(10);
  (void)rLine.ChangeLocalNum("28");
  EXPECT_EQ(rDatabase.rNumbers.count("28"), 0u);
  OnHook();
  EXPECT_EQ(rDatabase.rNumbers.count("28"), 1u);
  EXPECT_FALSE(Exists(strFile));
}

TEST_F(BaseChannelKeep, TooShortRecordingKeepsTheNumbers) {
  SetConfig("RecMinDur", "11");
  CallerId("0301234");
  const std::string strFile = Talk(10);
  OnHook();
  EXPECT_THAT(Queries(), ElementsAre("DeleteActiveCall 1"));
  EXPECT_FALSE(Exists(strFile));
  EXPECT_EQ(RemoteOfTheNextCall(), "0301234");
}

TEST_F(BaseChannelKeep, TooShortIsToldEvenForACallThatIsDroppedAnyway) {
  SetConfig("RecMinDur", "11");
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"0301234"};
  (void)Talk(10);
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Not recording because in number filter",
                                 "5 [7] Recording stopped (10 s)", "5 [7] Duration too short (10 < 11)"));
}

TEST_F(BaseChannelKeep, BarredCallIsDroppedWithoutAskingForContacts) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"0301234"};
  const std::string strFile = Talk(10);
  CallerId("0301234");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Remote: 0301234", "5 [7] Not recording because in number filter",
                                 "5 [7] Recording stopped (10 s)"));
  EXPECT_THAT(Queries(), ElementsAre("GetCallerIDContact 0301234", "UpdateActiveCallRemoteContact 1 51 61 0301234",
                                     "DeleteActiveCall 1"));
  EXPECT_THAT(Orders(), IsEmpty());
  EXPECT_FALSE(Exists(strFile));
  CallerId("0305678");  // bars the call whatever comes
  OnHook();
  EXPECT_EQ(KeptRows(), 0u);
  EXPECT_EQ(Talk(10), "/recordings/2024/01/31/14/20240131_142355_007_02.wav");  // and no other call
}

TEST_F(BaseChannelKeep, BarredPartIsDroppedWithoutAskingForContacts) {
  rRecorder.iNumberFilterType = 2;
  rRecorder.astrNumberFilters = {"22"};
  const std::string strFile = Talk(10);
  (void)rLine.ChangeLocalNum("22");
  EXPECT_THAT(Log(), ElementsAre("5 [7] Local Number Changed: 22.", "5 [7] Not recording because in number filter",
                                 "5 [7] Recording stopped (10 s)", "5 [7] Not recording because in number filter"));
  EXPECT_THAT(Queries(),
              ElementsAre("GetCallerIDContact 22", "UpdateActiveCallLocalContact 1 52 62 22", "DeleteActiveCall 1"));
  EXPECT_THAT(Orders(), IsEmpty());
  EXPECT_FALSE(Exists(strFile));
  (void)rLine.ChangeLocalNum("23");  // another part of the same call, which is kept
  OnHook();
  EXPECT_EQ(Kept("local"), "23");
}

// -- what the finishing is told ---------------------------------------------------------------------------------------

// Stand-ins for the appliance's tools, which write their arguments down.
class BaseChannelFinish : public BaseChannelKeep {
 protected:
  BaseChannelFinish() {
    EnsurePath("/tmp/tools");
    for (const char* acTool : {"sox", "morvex_reccheck", "morvex_crypt", "sha1sum"}) {
      const std::string strFile = std::string("/tmp/tools/") + acTool;
      WriteTestFile(strFile, std::string("#!/bin/sh\necho ") + acTool + " \"$@\" >> /tmp/tools/log\necho 1234 x\n");
      EXPECT_EQ(chmod(strFile.c_str(), 0755), 0);
    }
    setenv("PATH", ("/tmp/tools:" + strPath).c_str(), 1);
  }
  ~BaseChannelFinish() override {
    setenv("PATH", strPath.c_str(), 1);
    (void)remove("/tmp/tools/log");
  }
  static std::string ToolLog() { return ReadTestFile("/tmp/tools/log"); }

  const std::string strPath = getenv("PATH");
};

TEST_F(BaseChannelFinish, ActionCarriesFilesLengthAndChecksumType) {
  rRecorder.eRecEnc = RECENC_MP3;
  rRecorder.fStereo = true;
  rRecorder.fRecCheck = true;
  rRecorder.fALE = true;
  rRecorder.strRecordingRoot = "/tmp/area";
  rRecorder.strArchiveRoot = "/recordings";
  rRecorder.strCheckSumType = "sha1";
  rLine.fStereoLine = true;
  (void)Talk(10);
  OnHook();
  const std::string strFile = "2024/01/31/14/20240131_142345_007_01.mp3";
  EXPECT_EQ(ToolLog(), "sox /tmp/area/" + strFile + ".g711 -C 32.4 /tmp/area/" + strFile + "\n" +
                           "morvex_reccheck /tmp/area/" + strFile + " 10\n" + "morvex_crypt -e -i /tmp/area/" +
                           strFile + " -o /recordings/" + strFile + "\n" + "sha1sum -b /recordings/" + strFile + "\n");
  EXPECT_EQ(Kept("encoding"), "801");
  EXPECT_EQ(Kept("flags"), "16");
  EXPECT_EQ(StringToArray(Kept("callextra")), (StdStringMap{{"chk", "1234"}, {"chktype", "sha1"}}));
}

TEST_F(BaseChannelFinish, MonoRecordingIsConvertedAsMono) {
  rRecorder.eRecEnc = RECENC_MP3;
  (void)Talk(10);
  OnHook();
  EXPECT_THAT(ToolLog(), HasSubstr(" -C 16.4 "));
}

TEST_F(BaseChannelFinish, MailGoesToTheLocalPartyOfTheCallThatWantsIt) {
  rRecorder.strDTMF[1] = "*1";
  rRecorder.strDTMFact[1] = "email";
  CallerId("0301234");
  (void)Talk(5);
  Press("*1");
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 1007 61", "EmailRecording 2 1007"));
  CallerId("0301234");
  (void)Talk(5);
  OnHook();
  EXPECT_THAT(Orders(), ElementsAre("StoreOnDemand 1007 61"));
}

TEST_F(BaseChannelFinish, RowHasTheNumbersAtTheMomentOfTheStop) {
  CallerId("0301234");
  (void)Talk(10);
  CallerId("0305678");
  OnHook();
  EXPECT_EQ(Kept("remote"), "0305678");
}

}  // namespace
