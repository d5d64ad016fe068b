// Starting from the daemon's own configuration, start failures, and the end.

#include "simcards_start.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "CardBench.h"
#include "SimConfigFiles.h"
#include "recorder_boot.h"
#include "simcards_pacing.h"
#include "simcards_state.h"

namespace {

constexpr const char* DRIVER_DIR = "/usr/local/lib/shcti";
constexpr const char* DATA_DIR = "/var/morvex/data";

class SimStart : public CardBench {
 protected:
  void Conf(const std::string& strExtra = "") {
    rFiles.Write("simcards.conf",
                 std::string(SimConfigFiles::FOUR_CARDS) + "socket " + rFiles.Path("socket") + "\n" + strExtra);
    rFiles.Write("ShConfig.ini", SimConfigFiles::FourCardsConfig());
    simcards::SetConfFile(rFiles.Path("simcards.conf"));
  }
  int Start() { return SsmStartCti(rFiles.Path("ShConfig.ini").c_str(), rFiles.Path("ShIndex.ini").c_str()); }

  // Makes the tool's file of these cards, the daemon's files of that one, and starts with those.
  void StartAsTheDaemonDoes(const std::string& strCards, TRecorderBoot& rBoot) {
    std::filesystem::create_directories(DRIVER_DIR);
    std::filesystem::create_directories(DATA_DIR);
    std::filesystem::remove(DATA_DIR + std::string("/ShConfig.ini"));  // of another test
    rFiles.Write("simcards.conf", strCards);
    ASSERT_EQ(0, std::system(("cd " + rFiles.Path("") + " && " + BuildDir() + "/sim/config simcards.conf").c_str()));
    rBoot.TakeDetected(ReadToolConfig(rFiles.Path("ShConfig.ini")));
    rBoot.CreateBoardList();
    rBoot.WriteConfig();
    rFiles.Write("simcards.conf", strCards + "socket " + rFiles.Path("socket") + "\n");
    simcards::SetConfFile(rFiles.Path("simcards.conf"));
    ASSERT_EQ(SSM_OK, SsmStartCti("/var/morvex/data/ShConfig.ini", "/var/morvex/data/ShIndex.ini")) << LastError();
  }

  SimConfigFiles rFiles;
};

TEST_F(SimStart, BoardsChannelsAndCircuitsComeOfTheConfiguration) {
  Conf("channel 1002 1 type 20\n");
  ASSERT_EQ(SSM_OK, Start()) << LastError();
  EXPECT_EQ(4, SsmGetMaxUsableBoard());
  EXPECT_EQ(127, SsmGetMaxCh());
  const struct {
    int nCh, iBoard, iBoardCh, iType;
  } arRows[] = {{0, 0, 0, 3}, {2, 1, 0, 12}, {3, 1, 1, 20}, {5, 2, 0, 7}, {124, 2, 119, 7}, {125, 3, 0, 3}};
  for (const auto& rRow : arRows) {
    int iBoard = -1, iBoardCh = -1;
    EXPECT_EQ(SSM_OK, SsmGetChHdInfo(rRow.nCh, &iBoard, &iBoardCh));
    EXPECT_EQ(rRow.iBoard, iBoard) << rRow.nCh;
    EXPECT_EQ(rRow.iBoardCh, iBoardCh) << rRow.nCh;
    EXPECT_EQ(rRow.iType, SsmGetChType(rRow.nCh)) << rRow.nCh;
  }
}

TEST_F(SimStart, FailsAsOftenAsOrderedAndThenStarts) {
  Conf("start_failures 2 Board 1 does not answer\n");
  EXPECT_EQ(-1, Start());
  EXPECT_EQ("SsmStartCti: Board 1 does not answer", LastError());
  EXPECT_EQ(-1, Start());
  EXPECT_EQ(0, SsmGetMaxCh()) << "nothing is there after a failure";
  EXPECT_EQ(SSM_OK, Start()) << LastError();
  EXPECT_EQ(-1, Start());
  EXPECT_EQ("SsmStartCti: the driver is started already", LastError());
}

TEST_F(SimStart, OperationsFailFromTheStartOnAsOrdered) {
  Conf("fail SsmSetEvent 1\n");
  ASSERT_EQ(SSM_OK, Start()) << LastError();
  EVENT_SET_INFO rSetting;
  rSetting.dwWorkMode = EVENT_POLLING;
  EXPECT_EQ(-1, SsmSetEvent(0xFFFF, -1, 1, &rSetting));
  EXPECT_EQ("simulated failure", LastError());
  EXPECT_EQ(SSM_OK, SsmSetEvent(0xFFFF, -1, 1, &rSetting));
}

TEST_F(SimStart, WrongConfigurationIsNamed) {
  Conf();
  rFiles.Write("ShConfig.ini", "[SystemConfig]\nTotalBoards=1\n");
  EXPECT_EQ(-1, Start());
  EXPECT_EQ("SsmStartCti: [SystemConfig] lacks EventInterfaceType", LastError());
  simcards::SetConfFile("/nowhere/simcards.conf");
  EXPECT_EQ(-1, Start());
  EXPECT_EQ("SsmStartCti: no simulated cards: cannot read /nowhere/simcards.conf: No such file or directory",
            LastError());
}

TEST_F(SimStart, EventsFlowOnlyAfterTheyWereAskedFor) {
  Conf();
  ASSERT_EQ(SSM_OK, Start());
  simcards::PushEvent(E_CHG_ChState, 0, 1);
  EXPECT_EQ("", Events());
  EVENT_SET_INFO rSetting;
  rSetting.dwWorkMode = EVENT_POLLING;
  EXPECT_EQ(SSM_OK, SsmSetEvent(0xFFFF, -1, 1, &rSetting));
  simcards::PushEvent(E_CHG_ChState, 0, 1);
  EXPECT_EQ("24 ref 0: 1\n", Events());
}

TEST_F(SimStart, AudioFlowsByItselfAtTheSpeedOfTheSettings) {
  Conf("speed 50\n");
  ASSERT_EQ(SSM_OK, Start());
  EVENT_SET_INFO rSetting;
  rSetting.dwWorkMode = EVENT_POLLING;
  rSetting.dwOutParamVal = MEM_BYTES;
  rSetting.dwOutCondition = 2048;
  ASSERT_EQ(SSM_OK, SsmSetEvent(E_PROC_RecordMem, -1, 1, &rSetting));
  std::vector<BYTE> vRing(4096);
  ASSERT_EQ(SSM_OK, SsmRecToMem(2, SSM_FORMAT_ALAW, vRing.data(), 4096, 0));
  SSM_EVENT rEvent;
  for (const DWORD dwPosition : {2048U, 0U, 2048U}) {
    ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
    EXPECT_EQ(dwPosition, rEvent.dwParam);
  }
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(2));
}

// At this speed a ring is full twice in a millisecond, which is more than the audio thread can keep up with.
TEST_F(SimStart, CardsSlipUnlessTheSettingsForbidIt) {
  for (const bool fSlip : {true, false}) {
    SCOPED_TRACE(fSlip);
    Conf(std::string("speed 1000\n") + (fSlip ? "" : "slip off\n"));
    ASSERT_EQ(SSM_OK, Start());
    EVENT_SET_INFO rSetting;
    rSetting.dwWorkMode = EVENT_POLLING;
    ASSERT_EQ(SSM_OK, SsmSetEvent(E_PROC_RecordMem, -1, 1, &rSetting));
    std::vector<BYTE> vRing(4096);
    ASSERT_EQ(SSM_OK, SsmRecToMem(2, SSM_FORMAT_ALAW, vRing.data(), 4096, 0));
    SSM_EVENT rEvent;
    for (int i = 0; i < 100; i++) ASSERT_EQ(SSM_OK, SsmWaitForEventA(20000, &rEvent));
    EXPECT_EQ(fSlip, simcards::PacingSlipped() > 0);
    EXPECT_EQ(SSM_OK, SsmCloseCti());
  }
}

TEST_F(SimStart, CloseForgetsTheCardsAndTheNextStartMakesThemAnew) {
  Conf();
  for (int i = 0; i < 3; i++) {
    ASSERT_EQ(SSM_OK, Start()) << LastError();
    simcards::SetVoltage(0, 1);
    EXPECT_TRUE(std::filesystem::exists(rFiles.Path("socket")));
    EXPECT_EQ(SSM_OK, SsmCloseCti());
    EXPECT_FALSE(std::filesystem::exists(rFiles.Path("socket")));
    EXPECT_EQ(-1, SsmGetMaxCh());
  }
  ASSERT_EQ(SSM_OK, Start());
  EXPECT_EQ(48, SsmGetLineVoltage(0));
}

TEST_F(SimStart, StartReplacesABench) {
  Conf();
  simcards::AddBoard(0, 3, CH_DST);
  ASSERT_EQ(SSM_OK, Start());
  EXPECT_EQ(127, SsmGetMaxCh());
  simcards::Reset();
  EXPECT_EQ(0, SsmGetMaxCh());
}

TEST_F(SimStart, SocketThatCannotBeMadeFailsTheStart) {
  rFiles.Write("ShConfig.ini", SimConfigFiles::FourCardsConfig());
  rFiles.Write("simcards.conf", std::string(SimConfigFiles::FOUR_CARDS) + "socket /nowhere/socket\n");
  simcards::SetConfFile(rFiles.Path("simcards.conf"));
  EXPECT_EQ(-1, Start());
  EXPECT_EQ("SsmStartCti: control socket /nowhere/socket: No such file or directory", LastError());
  EXPECT_EQ(-1, SsmGetMaxCh());
}

// From the tool's file through the daemon's board list and configuration to running cards.
TEST_F(SimStart, TakesWhatTheDaemonMakesOfTheToolsFile) {
  TRecorderBoot rBoot;
  StartAsTheDaemonDoes(std::string(SimConfigFiles::FOUR_CARDS) + "card XYZ-1 1005 4\ncard DTP-30 1006 60\n", rBoot);
  EXPECT_EQ(5U, rBoot.vrDetectedBoards.size()) << "the unknown model is left out";
  EXPECT_EQ(rBoot.iTotalDrvMaxCh, SsmGetMaxCh());
  const simcards::State& rState = simcards::TheState();
  ASSERT_EQ(90U, rState.rCircuits.size());
  for (const auto& [iCic, rCircuit] : rState.rCircuits) {
    EXPECT_EQ(rBoot.rCicToAppChMap[iCic], rCircuit.iFirstCh) << "circuit " << iCic;
    EXPECT_EQ(rCircuit.iFirstCh + 30, rCircuit.iSecondCh) << "circuit " << iCic;
  }
}

TEST_F(SimStart, TakesAChassisOfManyThousandLines) {
  std::string strCards;
  for (int i = 0; i < 40; i++) strCards += "card ATP-500 " + std::to_string(2000 + i) + " 500\n";
  for (int i = 0; i < 42; i++) strCards += "card DTP-480 " + std::to_string(3000 + i) + " 480\n";
  for (int i = 0; i < 20; i++) strCards += "card DST-500 " + std::to_string(4000 + i) + " 500\n";
  TRecorderBoot rBoot;
  StartAsTheDaemonDoes(strCards, rBoot);
  EXPECT_EQ(20000 + 20160 + 10000, SsmGetMaxCh());
  EXPECT_EQ(10080U, simcards::TheState().rCircuits.size());
}

}  // namespace
