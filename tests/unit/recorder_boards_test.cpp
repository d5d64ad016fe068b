// Tests of the cards: what the tool reports, the board list and its numbers, the start of the driver.
// This program stands in for usleep and time: a wait passes at once and moves the clock.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <functional>

#include "RecorderBench.h"
#include "TestFiles.h"
#include "filedir.h"
#include "logging.h"
#include "recorder_cluster.h"

namespace {

constexpr time_t CLOCK_START = 1700000000;

struct Waits {
  long long iMicros = 0;  // waited so far
  int iCalls = 0;
  std::function<void()> OnWait;
};
Waits rWaits;

}  // namespace

extern "C" int usleep(useconds_t iMicros) {
  rWaits.iMicros += iMicros;
  rWaits.iCalls++;
  if (rWaits.OnWait) rWaits.OnWait();
  return 0;
}

extern "C" time_t time(time_t* prTime) noexcept {
  const time_t rNow = CLOCK_START + static_cast<time_t>(rWaits.iMicros / 1000000);
  if (prTime) *prTime = rNow;
  return rNow;
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* TOOL_DIR = "/usr/local/lib/shcti/CurrentVersion/tools/";

class BoardsTest : public RecorderBench {
 protected:
  void SetUp() override {
    rWaits = Waits();
    fAppTerminate = false;
    g_cfgPrefix.clear();
  }
  void TearDown() override {
    rWaits.OnWait = nullptr;
    fAppTerminate = false;
    g_cfgPrefix.clear();
  }

  Texts BoardIds() {
    Texts astrIds;
    for (const TBoard& rBoard : rBoot.vrBoardList) astrIds.push_back(rBoard.getId());
    return astrIds;
  }
};

// -- one board --------------------------------------------------------------------------------------------------------

TEST(BoardTest, IdIsSynAndSerialWhilePresent) {
  TBoard rBoard;
  rBoard.strSerial = "4711";
  rBoard.strId = "SynOLD";
  EXPECT_EQ(rBoard.getId(), "SynOLD");
  rBoard.fPresent = true;
  EXPECT_EQ(rBoard.getId(), "Syn4711");
}

TEST(BoardTest, FamilyIsInTheFirstThreeCharacters) {
  struct Row {
    const char* acModel;
    ECardType eType;
  };
  const Row rRows[] = {
      {"ATP-24A/PCI", CT_ATP}, {"DST-24B", CT_DST},  {"SHR-16", CT_DST},   {"DTP-120C", CT_DTP},
      {"SHT-16B", CT_SHT},     {"ATP", CT_ATP},      {"AT", CT_UNKNOWN},   {"", CT_UNKNOWN},
      {"atp-24", CT_UNKNOWN},  {"XATP", CT_UNKNOWN}, {" ATP", CT_UNKNOWN}, {"DSX-8", CT_UNKNOWN},
  };
  for (const Row& rRow : rRows) {
    TBoard rBoard;
    rBoard.strModel = rRow.acModel;
    EXPECT_EQ(rBoard.GetCtType(), rRow.eType) << rRow.acModel;
  }
}

TEST_F(BoardsTest, LookupsByIndexRefuseWhatIsNotInTheList) {
  rBoot.vrBoardList = {Present("DST-24B", "1", 24, 0), Away("SynX", 8), Present("DTP-30", "2", 60, 1)};
  rBoot.vrBoardList[0].strPBXType = "NEC";
  EXPECT_EQ(rBoot.GetBoard(-1), nullptr);
  EXPECT_EQ(rBoot.GetBoard(3), nullptr);
  EXPECT_EQ(rBoot.GetBoard(2), &rBoot.vrBoardList[2]);
  EXPECT_EQ(rBoot.GetBoardCardType(-1), CT_UNKNOWN);
  EXPECT_EQ(rBoot.GetBoardCardType(3), CT_UNKNOWN);
  EXPECT_EQ(rBoot.GetBoardCardType(1), CT_UNKNOWN);
  EXPECT_EQ(rBoot.GetBoardCardType(2), CT_DTP);
  EXPECT_EQ(rRecorder.GetBoardCardType(0), CT_DST);
  EXPECT_EQ(rRecorder.GetBoardCardType(3), CT_UNKNOWN);
  EXPECT_EQ(rRecorder.GetBoardPbxType(0), "NEC");
  EXPECT_EQ(rRecorder.GetBoardPbxType(-1), "");
  EXPECT_EQ(rRecorder.GetBoardPbxType(3), "");
}

TEST_F(BoardsTest, BoardNumberFindsTheFirstWithIt) {
  rBoot.vrBoardList = {Present("DST-24B", "1", 24, 0), Away("SynX", 8), Away("SynY", 8), Present("DTP-30", "2", 60, 1)};
  EXPECT_EQ(rBoot.GetBoardListIxForBoardId(0), 0);
  EXPECT_EQ(rBoot.GetBoardListIxForBoardId(1), 3);
  EXPECT_EQ(rBoot.GetBoardListIxForBoardId(2), -1);
  EXPECT_EQ(rBoot.GetBoardListIxForBoardId(-1), 1);  // a board that is away carries -1
}

// -- what the tool reports --------------------------------------------------------------------------------------------

struct ToolRow {
  const char* acLabel;
  std::string strFile;
  std::vector<int> aiCounts;
  std::vector<std::string> astrSerials, astrModels;
};

const ToolRow TOOL_ROWS[] = {
    {"two cards",
     "[SystemConfig]\nTotalBoards=2\n"
     "[AppChToBoardChTable]\nTotalAppCh=56\nAppCh[0]=0,0..31\nAppCh[32]=1,0..23\n"
     "[BoardId=0]\nBoardModel=DST-32\nBoardSerialNumber=S1\n"
     "[BoardId=1]\nBoardSerialNumber=S2\nBoardModel=ATP-24\n",
     {32, 24},
     {"S1", "S2"},
     {"DST-32", "ATP-24"}},
    {"other sections do not count",
     "AppCh[0]=0,0..31\nBoardModel=A\n[Other]\nBoardModel=B\nAppCh[0]=0,0..31\n[BoardId=0]\nAppCh[0]=0,0..31\n"
     "[AppChToBoardChTable]\nBoardModel=C\nBoardSerialNumber=D\n",
     {},
     {},
     {}},
    {"the section name is exact", "[AppChToBoardChTable ]\nAppCh[0]=0,0..31\n[XBoardId=0]\nBoardModel=A\n", {}, {}, {}},
    {"keys are exact", "[BoardId=0]\nBoardModel =A\nBoardModels=B\nboardmodel=C\n", {}, {}, {}},
    {"a value without a point has no count", "[AppChToBoardChTable]\nAppCh[0]=0,31\nAppCh[1]=0.7\n", {8}, {}, {}},
    {"the last point counts", "[AppChToBoardChTable]\nAppCh[0]=1.2,0..15\nAppCh[16]=..\n", {16, 1}, {}, {}},
    {"too large a number wraps around", "[AppChToBoardChTable]\nAppCh[0]=0,0..2147483647\n", {INT_MIN}, {}, {}},
    {"keys must begin with AppCh[", "[AppChToBoardChTable]\nTotalAppCh=0..9\nXAppCh[0]=0,0..9\n", {}, {}, {}},
    {"the value runs from the first equal sign", "[BoardId=0]\nBoardModel=A=B\n", {}, {}, {"A=B"}},
    {"empty values count", "[BoardId=0]\nBoardModel=\nBoardSerialNumber=\n", {}, {""}, {""}},
    {"the last character is dropped, newline or not",
     "[BoardId=0]\nBoardModel=ATP\nBoardSerialNumber=123",
     {},
     {"12"},
     {"ATP"}},
    {"a value that ends the file at once", "[BoardId=0]\nBoardModel=", {}, {}, {""}},
    {"a header that ends the file", "[BoardId=0]\n[BoardId=1]", {}, {}, {}},
    {"carriage returns stay in values and break headers",
     "[BoardId=0]\nBoardModel=A\r\n[AppChToBoardChTable]\r\nAppCh[0]=0..1\n",
     {},
     {},
     {"A\r"}},
    {"short lines", "[\n[]\n[BoardId=0]\n\n=\n=x\nB\n[", {}, {}, {}},
    {"a lone bracket ends the section", "[BoardId=0]\n[\nBoardModel=A\n", {}, {}, {}},
    {"empty file", "", {}, {}, {}},
    {"zero byte ends its line",
     std::string("[BoardId=0]\nBoardModel=AB\0CD\nBoardSerialNumber=1\n", 50),
     {},
     {"1"},
     {"A"}},
};

TEST(ToolConfigTest, ReadsThreeLists) {
  const std::string strPath = "/tmp/tool.ini";
  for (const ToolRow& rRow : TOOL_ROWS) {
    WriteTestFile(strPath, rRow.strFile);
    const ToolConfig rConfig = ReadToolConfig(strPath);
    EXPECT_EQ(rConfig.aiChannelCounts, rRow.aiCounts) << rRow.acLabel;
    EXPECT_EQ(rConfig.astrSerials, rRow.astrSerials) << rRow.acLabel;
    EXPECT_EQ(rConfig.astrModels, rRow.astrModels) << rRow.acLabel;
  }
}

TEST(ToolConfigTest, MissingFileGivesEmptyLists) {
  const ToolConfig rConfig = ReadToolConfig("/tmp/no/such/file");
  EXPECT_TRUE(rConfig.aiChannelCounts.empty() && rConfig.astrSerials.empty() && rConfig.astrModels.empty());
}

TEST(ToolConfigTest, LineOfMoreThan500BytesCountsAsSeveral) {
  const std::string strPath = "/tmp/tool.ini";
  const std::string strKey = "BoardModel=";
  const std::string strFits(499 - strKey.size(), 'a');  // with its newline 500 bytes
  const std::string strLong(500 - strKey.size(), 'b');  // the newline comes alone
  WriteTestFile(strPath, "[BoardId=0]\n" + strKey + strFits + "\n" + strKey + strLong + "\n" + strKey + strLong +
                             "xBoardModel=c\n");
  EXPECT_THAT(ReadToolConfig(strPath).astrModels, ElementsAre(strFits, strLong.substr(1), strLong.substr(1)));
}

TEST_F(BoardsTest, DetectedListsArePairedByPosition) {
  rBoot.TakeDetected({{32, 120, 24, 16}, {"S1", "S2", "S3", "S4"}, {"DST-32", "DTP-120", "ATP-24", "SHT-16"}});
  ASSERT_EQ(rBoot.vrDetectedBoards.size(), 4U);
  const TBoard& rTrunk = rBoot.vrDetectedBoards[1];
  EXPECT_TRUE(rTrunk.fPresent);
  EXPECT_EQ(rTrunk.strSerial, "S2");
  EXPECT_EQ(rTrunk.strModel, "DTP-120");
  EXPECT_EQ(rTrunk.iMaxCh, 120);
  EXPECT_EQ(rTrunk.iWebMaxCh, 60);
  EXPECT_EQ(rTrunk.iChannels, 0);
  EXPECT_EQ(rBoot.vrDetectedBoards[0].iWebMaxCh, 32);
  EXPECT_EQ(rBoot.vrDetectedBoards[3].iWebMaxCh, 16);
  EXPECT_EQ(
      rBoot.rNewConfigs,
      (StdStringMap{{"SynS1_Present", "1"}, {"SynS2_Present", "1"}, {"SynS3_Present", "1"}, {"SynS4_Present", "1"}}));
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(BoardsTest, OddNumberOfTrunkChannelsIsHalvedDownwards) {
  rBoot.TakeDetected({{61}, {"S1"}, {"DTP-61"}});
  EXPECT_EQ(rBoot.vrDetectedBoards[0].iWebMaxCh, 30);
}

TEST_F(BoardsTest, CardOfUnknownModelIsDroppedWithoutAWord) {
  rBoot.TakeDetected({{8, 24}, {"S1", "S2"}, {"XYZ-8", "ATP-24"}});
  ASSERT_EQ(rBoot.vrDetectedBoards.size(), 1U);
  EXPECT_EQ(rBoot.vrDetectedBoards[0].strSerial, "S2");
  EXPECT_EQ(rBoot.rNewConfigs, (StdStringMap{{"SynS2_Present", "1"}}));
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(BoardsTest, ListsOfUnequalLengthAreCutToTheShortest) {
  const ToolConfig rRows[] = {
      {{24}, {"S1", "S2"}, {"ATP-24", "ATP-24"}},
      {{24, 24}, {"S1"}, {"ATP-24", "ATP-24"}},
      {{24, 24}, {"S1", "S2"}, {"ATP-24"}},
  };
  for (const ToolConfig& rRow : rRows) {
    rBoot.vrDetectedBoards.clear();
    rBoot.TakeDetected(rRow);
    EXPECT_EQ(rBoot.vrDetectedBoards.size(), 1U);
    EXPECT_THAT(logsink::TakeTexts(), ElementsAre("3 Unequal size in detect boards"));
  }
}

class DetectTest : public BoardsTest {
 protected:
  void SetUp() override {
    BoardsTest::SetUp();
    EnsurePath(TOOL_DIR);
    (void)remove(Tool().c_str());
    (void)remove(Ini().c_str());
  }
  static std::string Tool() { return std::string(TOOL_DIR) + "config"; }
  static std::string Ini() { return std::string(TOOL_DIR) + "ShConfig.ini"; }
  static void InstallTool(const std::string& strScript) {
    WriteTestFile(Tool(), "#!/bin/sh\n" + strScript);
    ASSERT_EQ(chmod(Tool().c_str(), 0755), 0);
  }
};

TEST_F(DetectTest, AsksTheToolAfterTenSecondsAndListsTheCards) {
  WriteTestFile(Ini(), "[BoardId=9]\nBoardModel=ATP-OLD\n");  // of an earlier run
  InstallTool(
      "test -e ShConfig.ini && exit 1\n"
      "cat > ShConfig.ini <<'EOT'\n"
      "[AppChToBoardChTable]\nAppCh[0]=0,0..23\nAppCh[24]=1,0..59\n"
      "[BoardId=0]\nBoardModel=ATP-24A\nBoardSerialNumber=17\n"
      "[BoardId=1]\nBoardModel=DTP-30C\nBoardSerialNumber=18\n"
      "EOT\n");
  rBoot.DetectBoards();
  EXPECT_EQ(rWaits.iCalls, 20);
  EXPECT_EQ(rWaits.iMicros, 10000000);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Waiting to give card time to initialize.", "5 Detected boards:",
                                                "5 0. SN: 17 Model: ATP-24A MaxCh: 24 webMaxCh: 24",
                                                "5 1. SN: 18 Model: DTP-30C MaxCh: 60 webMaxCh: 30"));
  char acDir[200];
  ASSERT_NE(getcwd(acDir, sizeof acDir), nullptr);
  EXPECT_EQ(std::string(acDir) + "/", TOOL_DIR);
}

TEST_F(DetectTest, ToolWithoutFileMeansNoCards) {
  WriteTestFile(Ini(),
                "[BoardId=9]\nBoardModel=ATP-OLD\nBoardSerialNumber=1\n[AppChToBoardChTable]\nAppCh[0]=0,0..7\n");
  InstallTool("exit 3\n");
  rBoot.DetectBoards();
  EXPECT_THAT(rBoot.vrDetectedBoards, IsEmpty());
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Waiting to give card time to initialize.", "5 Detected boards:"));
}

TEST_F(DetectTest, FailedToolThatWroteItsFileIsBelieved) {
  InstallTool(
      "printf '[AppChToBoardChTable]\\nAppCh[0]=0,0..7\\n[BoardId=0]\\nBoardModel=ATP-8\\nBoardSerialNumber=1\\n' "
      "> ShConfig.ini\nexit 3\n");
  rBoot.DetectBoards();
  EXPECT_EQ(rBoot.vrDetectedBoards.size(), 1U);
}

// The command is relative: in any other directory it could be anything.
TEST_F(DetectTest, WithoutTheToolsDirectoryNothingIsRun) {
  const std::string strElsewhere = "/tmp/elsewhere";
  EnsurePath(strElsewhere + "/");
  WriteTestFile(strElsewhere + "/config", "#!/bin/sh\ntouch ran\n");
  ASSERT_EQ(chmod((strElsewhere + "/config").c_str(), 0755), 0);
  ASSERT_EQ(chdir(strElsewhere.c_str()), 0);
  (void)remove(Tool().c_str());
  ASSERT_EQ(rmdir(TOOL_DIR), 0);
  rBoot.DetectBoards();
  EXPECT_FALSE(file_exists((strElsewhere + "/ran").c_str()));
  EXPECT_THAT(rBoot.vrDetectedBoards, IsEmpty());
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Waiting to give card time to initialize.", "5 Detected boards:"));
}

TEST_F(DetectTest, OrderToStopEndsTheWait) {
  rWaits.OnWait = [] { fAppTerminate = rWaits.iCalls == 3; };
  InstallTool("exit 0\n");
  rBoot.DetectBoards();
  EXPECT_EQ(rWaits.iCalls, 3);
}

// -- board list -------------------------------------------------------------------------------------------------------

TEST_F(BoardsTest, EmptyListTakesTheCardsInDetectionOrder) {
  rBoot.vrDetectedBoards = {Present("DST-16", "2", 16), Present("ATP-24", "1", 24)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("Syn2", "Syn1"));
  EXPECT_EQ(rBoot.strCardList, "Syn2,Syn1");
  EXPECT_EQ(rBoot.iTotalDrvMaxCh, 40);
  EXPECT_EQ(rBoot.iTotalWebMaxCh, 40);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 Old card list: ", "5 Board List:", "5 0. SN:2 start:0 cnt:16 PBXType:Siemens Hicom/Hipath",
                          "5 1. SN:1 start:16 cnt:24 PBXType:", "5 New CardList: Syn2,Syn1"));
  EXPECT_EQ(rBoot.rNewConfigs, (StdStringMap{{"_Present", "0"},  // of the one empty entry of an empty list
                                             {"Syn1_MaxChannels", "24"},
                                             {"Syn1_Model", "ATP-24"},
                                             {"Syn1_SN", "1"},
                                             {"Syn2_MaxChannels", "16"},
                                             {"Syn2_Model", "DST-16"},
                                             {"Syn2_SN", "2"}}));
}

TEST_F(BoardsTest, RememberedOrderBeatsDetectionOrderAndNewCardsComeLast) {
  rBoot.rConfigs["CardList"] = "SynB,SynA";
  rBoot.vrDetectedBoards = {Present("ATP-8", "NEW", 8), Present("ATP-8", "A", 8), Present("ATP-8", "B", 8)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("SynB", "SynA", "SynNEW"));
  EXPECT_EQ(rBoot.vrBoardList[2].iStartCh, 16);
  EXPECT_EQ(rBoot.vrBoardList[2].iBoardId, 2);
  EXPECT_FALSE(rBoot.vrDetectedBoards[1].fPresent);  // taken
  EXPECT_TRUE(rBoot.vrBoardList[1].fPresent);        // its copy stays present
  EXPECT_TRUE(rBoot.vrDetectedBoards[0].fPresent);
}

TEST_F(BoardsTest, AbsentCardKeepsItsLinesUnlessItHadNone) {
  rBoot.rConfigs = {{"CardList", "SynA,SynB,SynC"}, {"SynA_MaxChannels", "8"}, {"SynB_MaxChannels", "0"}};
  rBoot.vrDetectedBoards = {Present("ATP-4", "C", 4)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("SynA", "SynC"));
  EXPECT_FALSE(rBoot.vrBoardList[0].fPresent);
  EXPECT_EQ(rBoot.vrBoardList[0].iMaxCh, 0);
  EXPECT_EQ(rBoot.vrBoardList[0].iWebMaxCh, 8);
  EXPECT_EQ(rBoot.vrBoardList[0].iBoardId, -1);
  EXPECT_EQ(rBoot.vrBoardList[1].iWebStartCh, 8);
  EXPECT_EQ(rBoot.vrBoardList[1].iStartCh, 0);
  EXPECT_EQ(rBoot.vrBoardList[1].iBoardId, 0);
  EXPECT_EQ(rBoot.rDrvToWebChMap, (std::map<int, int>{{0, 8}, {1, 9}, {2, 10}, {3, 11}}));
  EXPECT_EQ(rBoot.rWebToDrvChMap, (std::map<int, int>{{8, 0}, {9, 1}, {10, 2}, {11, 3}}));
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 Old card list: SynA,SynB,SynC", "5 Board List:", "5 0. SN: start:0 cnt:0 PBXType:",
                          "5 1. SN:C start:0 cnt:4 PBXType:", "5 New CardList: SynA,SynC"));
  EXPECT_EQ(rBoot.rNewConfigs, (StdStringMap{{"SynA_Present", "0"},
                                             {"SynB_Present", "0"},
                                             {"SynC_MaxChannels", "4"},
                                             {"SynC_Model", "ATP-4"},
                                             {"SynC_SN", "C"}}));
}

TEST_F(BoardsTest, AbsentCardsAtTheEndLeaveTheList) {
  rBoot.rConfigs = {{"CardList", "SynA,SynB,SynC"}, {"SynB_MaxChannels", "8"}, {"SynC_MaxChannels", "8"}};
  rBoot.vrDetectedBoards = {Present("ATP-4", "A", 4)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("SynA"));
  EXPECT_EQ(rBoot.strCardList, "SynA");
  EXPECT_EQ(rBoot.iTotalWebMaxCh, 4);
}

TEST_F(BoardsTest, NewCardDoesNotSaveAbsentOnesAtTheEnd) {
  rBoot.rConfigs = {{"CardList", "SynA,SynB"}, {"SynB_MaxChannels", "8"}};
  rBoot.vrDetectedBoards = {Present("ATP-4", "A", 4), Present("ATP-4", "NEW", 4)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("SynA", "SynNEW"));
  EXPECT_EQ(rBoot.vrBoardList[1].iWebStartCh, 4);
}

TEST_F(BoardsTest, NoCardAtAllForgetsTheList) {
  rBoot.rConfigs = {{"CardList", "SynA"}, {"SynA_MaxChannels", "8"}};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), IsEmpty());
  EXPECT_EQ(rBoot.strCardList, "");
  EXPECT_EQ(rBoot.iTotalDrvMaxCh, 0);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Old card list: SynA", "5 Board List:", "5 New CardList: "));
}

TEST_F(BoardsTest, CardNamedTwiceInTheListIsTakenOnce) {
  rBoot.rConfigs = {{"CardList", "SynA,SynA,SynB"}, {"SynA_MaxChannels", "4"}};
  rBoot.vrDetectedBoards = {Present("ATP-4", "A", 4), Present("ATP-4", "B", 4)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("SynA", "SynA", "SynB"));
  EXPECT_TRUE(rBoot.vrBoardList[0].fPresent);
  EXPECT_FALSE(rBoot.vrBoardList[1].fPresent);
  EXPECT_EQ(rBoot.rNewConfigs["SynA_Present"], "0");
}

TEST_F(BoardsTest, BlankEntryOfTheListTakesNoCardASecondTime) {
  rBoot.rConfigs["CardList"] = "SynA,,SynB";
  rBoot.vrDetectedBoards = {Present("ATP-4", "A", 4), Present("ATP-4", "B", 4)};
  rBoot.CreateBoardList();
  EXPECT_THAT(BoardIds(), ElementsAre("SynA", "SynB"));
  EXPECT_EQ(rBoot.vrBoardList[1].iStartCh, 4);
  EXPECT_EQ(rBoot.vrBoardList[1].iWebStartCh, 4);
}

TEST_F(BoardsTest, ClusterNodeReadsItsOwnList) {
  g_cfgPrefix = "N1-";
  rBoot.rConfigs = {{"CardList", "SynB"}, {"N1-CardList", "SynA,SynB"}};
  rBoot.vrDetectedBoards = {Present("ATP-4", "B", 4), Present("ATP-4", "A", 4)};
  rBoot.CreateBoardList();
  EXPECT_EQ(rBoot.strCardList, "SynA,SynB");
}

TEST_F(BoardsTest, OnlyStationCardsHaveAPbxType) {
  rBoot.rConfigs = {{"Syn1_PBXType", "NEC"},     {"Syn1_PhoneType", "2"}, {"Syn3_PBXType", "NEC"},
                    {"Syn3_PhoneType", "Dterm"}, {"Syn4_PBXType", "NEC"}, {"Syn5_PBXType", "NEC"}};
  rBoot.vrDetectedBoards = {Present("DST-8", "1", 8), Present("SHR-16", "2", 16), Present("ATP-8", "3", 8),
                            Present("DTP-30", "4", 60), Present("SHT-8", "5", 8)};
  rBoot.CreateBoardList();
  Texts astrPbx, astrPhones;
  for (const TBoard& rBoard : rBoot.vrBoardList) {
    astrPbx.push_back(rBoard.strPBXType);
    astrPhones.push_back(rBoard.strPhoneType);
  }
  EXPECT_THAT(astrPbx, ElementsAre("NEC", "Siemens Hicom/Hipath", "", "", ""));
  EXPECT_THAT(astrPhones, ElementsAre("2", "", "Dterm", "", ""));
}

// -- numbers ----------------------------------------------------------------------------------------------------------

// Station card with 32 channels, a card that is away and had 16, trunk card with 120 driver channels.
TEST_F(BoardsTest, NumbersOfStationAbsentAndTrunkCard) {
  rBoot.rConfigs = {{"CardList", "SynDST,SynGONE,SynDTP"}, {"SynGONE_MaxChannels", "16"}};
  rBoot.vrDetectedBoards = {Present("DST-32", "DST", 32), Present("DTP-60", "DTP", 120)};
  rBoot.CreateBoardList();
  struct Row {
    int iStartCh, iWebStartCh, iMaxCh, iWebMaxCh, iBoardId;
  };
  const Row rRows[] = {{0, 0, 32, 32, 0}, {32, 32, 0, 16, -1}, {32, 48, 120, 60, 1}};
  ASSERT_EQ(rBoot.vrBoardList.size(), 3U);
  for (std::size_t i = 0; i < 3; i++) {
    const TBoard& rBoard = rBoot.vrBoardList[i];
    EXPECT_EQ(rBoard.iStartCh, rRows[i].iStartCh) << i;
    EXPECT_EQ(rBoard.iWebStartCh, rRows[i].iWebStartCh) << i;
    EXPECT_EQ(rBoard.iMaxCh, rRows[i].iMaxCh) << i;
    EXPECT_EQ(rBoard.iWebMaxCh, rRows[i].iWebMaxCh) << i;
    EXPECT_EQ(rBoard.iBoardId, rRows[i].iBoardId) << i;
  }
  EXPECT_EQ(rBoot.iTotalDrvMaxCh, 152);
  EXPECT_EQ(rBoot.iTotalWebMaxCh, 108);

  std::map<int, int> rDrvToWeb, rWebToDrv, rDrvToCic, rCicToDrv;
  const auto Run = [](std::map<int, int>& rThere, std::map<int, int>& rBack, int iFrom, int iTo, int iCount) {
    for (int i = 0; i < iCount; i++) {
      rThere[iFrom + i] = iTo + i;
      rBack[iTo + i] = iFrom + i;
    }
  };
  Run(rDrvToWeb, rWebToDrv, 0, 0, 32);
  Run(rDrvToWeb, rWebToDrv, 32, 48, 30);
  Run(rDrvToWeb, rWebToDrv, 92, 78, 30);
  Run(rDrvToCic, rCicToDrv, 32, 0, 30);
  Run(rDrvToCic, rCicToDrv, 92, 30, 30);
  EXPECT_EQ(rBoot.rDrvToWebChMap, rDrvToWeb);
  EXPECT_EQ(rBoot.rWebToDrvChMap, rWebToDrv);
  EXPECT_EQ(rBoot.rAppToCicChMap, rDrvToCic);
  EXPECT_EQ(rBoot.rCicToAppChMap, rCicToDrv);
}

TEST_F(BoardsTest, OppositeDirectionOfATrunkHasNoWebChannel) {
  rBoot.vrDetectedBoards = {Present("DTP-30", "1", 60)};
  rBoot.CreateBoardList();
  EXPECT_EQ(rBoot.rDrvToWebChMap.size(), 30U);
  EXPECT_EQ(rBoot.rDrvToWebChMap.count(29), 1U);
  for (int iDrvCh = 30; iDrvCh < 60; iDrvCh++) EXPECT_EQ(rBoot.rDrvToWebChMap.count(iDrvCh), 0U) << iDrvCh;
}

TEST_F(BoardsTest, CircuitsCountOverAllTrunkCards) {
  rBoot.vrDetectedBoards = {Present("DTP-30", "1", 60), Present("ATP-2", "2", 2), Present("DTP-30", "3", 60)};
  rBoot.CreateBoardList();
  EXPECT_EQ(rBoot.rCicToAppChMap.size(), 60U);
  EXPECT_EQ(rBoot.rCicToAppChMap[29], 29);
  EXPECT_EQ(rBoot.rCicToAppChMap[30], 62);
  EXPECT_EQ(rBoot.rCicToAppChMap[59], 91);
  EXPECT_EQ(rBoot.rAppToCicChMap[62], 30);
  EXPECT_EQ(rBoot.rDrvToWebChMap[62], 32);
}

TEST_F(BoardsTest, TrunkCardsOfOddSizes) {
  rBoot.vrDetectedBoards = {Present("DTP-X", "1", 1), Present("DTP-X", "2", 3), Present("DTP-X", "3", 0)};
  rBoot.CreateBoardList();
  EXPECT_EQ(rBoot.rDrvToWebChMap, (std::map<int, int>{{1, 0}}));
  EXPECT_EQ(rBoot.rAppToCicChMap, (std::map<int, int>{{1, 0}}));
  EXPECT_EQ(rBoot.iTotalDrvMaxCh, 4);
  EXPECT_EQ(rBoot.iTotalWebMaxCh, 1);
}

TEST_F(BoardsTest, SenselessNumbersOfChannelsWrapAround) {
  rBoot.rConfigs = {{"CardList", "SynA,SynB"}, {"SynA_MaxChannels", "2147483647"}};
  rBoot.vrDetectedBoards = {Present("ATP-2", "B", 2)};
  rBoot.CreateBoardList();
  EXPECT_EQ(rBoot.rDrvToWebChMap, (std::map<int, int>{{0, INT_MAX}, {1, INT_MIN}}));
  EXPECT_EQ(rBoot.iTotalWebMaxCh, INT_MIN + 1);
}

// -- start of the driver ----------------------------------------------------------------------------------------------

TEST_F(BoardsTest, DriverThatStartsAtOnceWasGivenHalfASecond) {
  simcards::FailNext("SsmStartCti", 1, 0, "");
  EXPECT_EQ(rBoot.InitBoards(), 0);
  EXPECT_EQ(rWaits.iMicros, 500000);
  EXPECT_THAT(simcards::TakeCalls(),
              ElementsAre("SsmStartCti(\"/var/morvex/data/ShConfig.ini\",\"/var/morvex/data/ShIndex.ini\")"));
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Board init. OK"));
}

TEST_F(BoardsTest, DriverIsTriedAgainWhileBoardsComeUp) {
  rWaits.OnWait = [] { simcards::FailNext("SsmStartCti", 1, rWaits.iCalls < 3 ? -1 : 0, "boards not ready"); };
  EXPECT_EQ(rBoot.InitBoards(), 0);
  EXPECT_EQ(rWaits.iCalls, 3);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 Could not (yet) start: boards not ready", "5 Waiting for board init",
                          "5 Could not (yet) start: boards not ready", "5 Waiting for board init", "5 Board init. OK"));
}

TEST_F(BoardsTest, DriverThatDoesNotStartIsGivenUpAfterMoreThan20Seconds) {
  simcards::FailNext("SsmStartCti", 1000, 5, "no such board");
  EXPECT_EQ(rBoot.InitBoards(), 1);
  EXPECT_EQ(rWaits.iMicros, 21000000);  // at 20 seconds it is still tried
  const Texts astrLog = logsink::TakeTexts();
  ASSERT_EQ(astrLog.size(), 2U * 41 + 1);
  EXPECT_EQ(astrLog[80], "5 Could not (yet) start: no such board");
  EXPECT_EQ(astrLog[81], "5 Waiting for board init");
  EXPECT_EQ(astrLog[82], "3 Error in SsmStartCti: no such board");
}

TEST_F(BoardsTest, DriverIsNotStartedForAProcessThatIsToStop) {
  fAppTerminate = true;
  EXPECT_EQ(rBoot.InitBoards(), 1);
  EXPECT_EQ(rWaits.iCalls, 0);
  EXPECT_THAT(simcards::TakeCalls(), IsEmpty());
  EXPECT_THAT(logsink::TakeTexts(), IsEmpty());
}

TEST_F(BoardsTest, OrderToStopEndsTheTries) {
  simcards::FailNext("SsmStartCti", 1000, -1, "no");
  rWaits.OnWait = [] { fAppTerminate = rWaits.iCalls == 2; };
  EXPECT_EQ(rBoot.InitBoards(), 1);
  EXPECT_EQ(rWaits.iCalls, 2);
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 Could not (yet) start: no", "5 Waiting for board init",
                                                "5 Could not (yet) start: no", "5 Waiting for board init"));
}

// -- what the running driver has --------------------------------------------------------------------------------------

TEST_F(BoardsTest, UsableChannelsAreCountedForEachBoardAndReported) {
  rBoot.vrBoardList = {Present("ATP-4", "1", 4, 0), Away("SynGONE", 8), Present("DTP-2", "2", 4, 1)};
  rBoot.vrBoardList[2].iWebStartCh = 12;
  rBoot.strCardList = "Syn1,SynGONE,Syn2";
  simcards::AddBoard(0, 2, CH_ANALOG);
  simcards::AddBoard(0, 1, CH_UNKNOWN);
  simcards::AddBoard(0, 1, 20);
  simcards::AddBoard(0, 1, 27);
  simcards::AddBoard(0, 1, 99);
  simcards::AddBoard(1, 5, CH_ISDN_USR);
  simcards::AddBoard(7, 2, CH_ANALOG);
  g_cfgPrefix = "N1-";
  rBoot.AnalyseStartedState();
  EXPECT_EQ(rBoot.vrBoardList[0].iChannels, 3);
  EXPECT_EQ(rBoot.vrBoardList[1].iChannels, 0);
  EXPECT_EQ(rBoot.vrBoardList[2].iChannels, 2);  // a pair makes one
  EXPECT_EQ(rBoot.rNewConfigs, (StdStringMap{{"N1-CardList", "Syn1,SynGONE,Syn2"},
                                             {"Syn1_Channels", "3"},
                                             {"Syn1_MaxChannels", "4"},
                                             {"Syn1_Model", "ATP-4"},
                                             {"Syn1_Present", "1"},
                                             {"Syn1_SN", "1"},
                                             {"Syn1_StartCh", "0"},
                                             {"Syn2_Channels", "2"},
                                             {"Syn2_MaxChannels", "2"},
                                             {"Syn2_Model", "DTP-2"},
                                             {"Syn2_Present", "1"},
                                             {"Syn2_SN", "2"},
                                             {"Syn2_StartCh", "12"},
                                             {"SynGONE_Present", "0"}}));
}

TEST_F(BoardsTest, ChannelWithoutBoardCountsForNoAbsentOne) {
  rBoot.vrBoardList = {Away("SynGONE", 8), Present("ATP-4", "1", 4, 0)};
  simcards::AddBoard(0, 2, CH_ANALOG);
  simcards::FailNext("SsmGetChHdInfo", 1, -1, "no");
  rBoot.AnalyseStartedState();
  EXPECT_EQ(rBoot.vrBoardList[0].iChannels, 0);
  EXPECT_EQ(rBoot.vrBoardList[1].iChannels, 1);
}

}  // namespace
