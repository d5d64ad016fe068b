// The command-line tools as a person uses them, on cards in this process.

#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>

#include "CardBench.h"
#include "SimConfigFiles.h"
#include "simcards_control.h"

namespace {

struct Ran {
  int iExit = -1;
  std::string strOutput;  // standard output and error
};

class CardsimTool : public CardBench {
 protected:
  CardsimTool() {
    simcards::AddBoard(0, 2, CH_ANALOG);
    simcards::AddBoard(1, 1, CH_DST);
    std::string strError;
    EXPECT_TRUE(simcards::StartControl(rFiles.Path("socket"), strError)) << strError;
  }

  Ran Run(const std::string& strCommand) {
    Ran rRan;
    std::FILE* prPipe = popen(("cd " + rFiles.Path("") + " && " + strCommand + " 2>&1").c_str(), "r");
    char acPiece[512];
    for (std::size_t iRead; (iRead = std::fread(acPiece, 1, sizeof acPiece, prPipe)) > 0;) {
      rRan.strOutput.append(acPiece, iRead);
    }
    rRan.iExit = WEXITSTATUS(pclose(prPipe));
    return rRan;
  }
  Ran Cardsim(const std::string& strArgs) { return Run(BuildDir() + "/sim/cardsim --socket socket " + strArgs); }

  SimConfigFiles rFiles;
};

TEST_F(CardsimTool, NumberOutOfItsRangeIsToldInPlainWords) {
  const struct {
    const char *acArgs, *acTold;
  } arRows[] = {
      {"run day.sim --speed 0", "--speed: '0' is no number of 0.01 to 1000\n"},
      {"replay dch.log --speed fast", "--speed: 'fast' is no number of 0.01 to 1000\n"},
      {"replay dch.log --channel -1", "--channel: '-1' is no number of 0 or more\n"},
  };
  for (const auto& rRow : arRows) {
    const Ran rRan = Cardsim(rRow.acArgs);
    EXPECT_EQ(2, rRan.iExit) << rRow.acArgs;
    EXPECT_EQ(std::string(rRow.acTold) + "Run with --help for more information.\n", rRan.strOutput);
  }
}

TEST_F(CardsimTool, SingleActionsReachTheCards) {
  const struct {
    const char *acArgs, *acEvents;
  } arRows[] = {
      {"ch 0 ring on", "24 ref 0: 2\n"},
      {"ch 0..1 offhook", "24 ref 0: 1\n24 ref 1: 1\n"},
      {"ch 2 display 'two\\nlines with \"quotes\" and a \\ #'",
       "65 ref 2: 4104 'two\nlines with \"quotes\" and a \\ #'\n"},
      {"ch 2 display ''", "65 ref 2: 4104\n"},
      {"event 7 param 3", "7 ref -1: 3\n"},
  };
  for (const auto& rRow : arRows) {
    const Ran rRan = Cardsim(rRow.acArgs);
    EXPECT_EQ("", rRan.strOutput) << rRow.acArgs;
    EXPECT_EQ(0, rRan.iExit) << rRow.acArgs;
    EXPECT_EQ(rRow.acEvents, Events()) << rRow.acArgs;
  }
}

TEST_F(CardsimTool, SingleActionNeedsNoWorkingDirectory) {
  const std::string strGone = "mkdir gone && cd gone && rmdir ../gone && ";
  Ran rRan = Run(strGone + BuildDir() + "/sim/cardsim --socket " + rFiles.Path("socket") + " ch 0 ring on");
  EXPECT_EQ("", rRan.strOutput);
  EXPECT_EQ(0, rRan.iExit);
  EXPECT_EQ("24 ref 0: 2\n", Events());
}

TEST_F(CardsimTool, EachKindOfErrorHasItsStatus) {
  Ran rRan = Cardsim("ch 7 ring on");
  EXPECT_EQ(1, rRan.iExit);
  EXPECT_EQ("cardsim: channel 7 does not exist\n", rRan.strOutput);
  rRan = Cardsim("ch 0 ring onn");
  EXPECT_EQ(2, rRan.iExit);
  EXPECT_EQ("cardsim: expected \"on\" or \"off\", found \"onn\"\n", rRan.strOutput);
  rRan = Cardsim("");
  EXPECT_EQ(2, rRan.iExit);
  rRan = Run(BuildDir() + "/sim/cardsim --socket nosuch ch 0 ring on");
  EXPECT_EQ(3, rRan.iExit);
  EXPECT_EQ("cardsim: no simulated cards at nosuch: No such file or directory\n", rRan.strOutput);
}

TEST_F(CardsimTool, StatusAsTextAndAsJson) {
  EXPECT_EQ(0, Cardsim("ch 1 offhook").iExit);
  const Ran rText = Cardsim("status");
  EXPECT_EQ(0, rText.iExit);
  EXPECT_NE(std::string::npos, rText.strOutput.find("\nch=1 board=0 board_ch=1 type=analogue state=1 voltage=8 "));
  EXPECT_EQ(0, Cardsim("fail SsmRecToFile 2").iExit);
  const Ran rJson = Cardsim("status --json");
  EXPECT_EQ(0, rJson.iExit);
  const nlohmann::json rStatus = nlohmann::json::parse(rJson.strOutput);
  EXPECT_EQ(2, rStatus["boards"]);
  EXPECT_EQ(3U, rStatus["ch"].size());
  EXPECT_EQ("station", rStatus["ch"][2]["type"]);
  EXPECT_EQ(8, rStatus["ch"][1]["voltage"]);
  EXPECT_EQ(0U, rStatus["cic"].size());
  EXPECT_EQ(nlohmann::json::parse(R"([{"fail": "SsmRecToFile", "times": 2}])"), rStatus["fail"]);
  EXPECT_EQ(0, Cardsim("fail SsmRecToFile 0").iExit);
}

TEST_F(CardsimTool, ScenarioRunsInOrderAndPlaysFilesBesideIt) {
  rFiles.Write("beep.al", "abc");
  rFiles.Write("day.sim", "0 print start of the day\n+0.2 ch 0 ring on\n+0.2 ch 0 play file beep.al\n1 ch 0 offhook\n");
  const Ran rRan = Cardsim("run day.sim --speed 20");
  EXPECT_EQ("start of the day\n", rRan.strOutput);
  EXPECT_EQ(0, rRan.iExit);
  EXPECT_EQ("24 ref 0: 2\n24 ref 0: 1\n", Events());
}

TEST_F(CardsimTool, ScenarioIsCheckedAsAWholeBeforeItsFirstAction) {
  rFiles.Write("day.sim", "0 ch 0 ring on\n1 ch 0 rong off\n2 ch 0 play file x now\n");
  const std::string strErrors =
      "day.sim:2: expected \"ring\", \"offhook\", \"onhook\", \"callerid\", \"dtmf\", \"flash\", \"tone\", \"sound\", "
      "\"nosound\", \"state\", \"voltage\", \"play\", \"display\", \"key\", \"button\", \"audio\", \"mutelight\", "
      "\"bri\", "
      "\"isdn\", \"dchannel\" or \"event\", found \"rong\"\n"
      "day.sim:3: expected the end of the line, found \"now\"\n";
  for (const char* acArgs : {"check day.sim", "run day.sim"}) {
    const Ran rRan = Cardsim(acArgs);
    EXPECT_EQ(2, rRan.iExit) << acArgs;
    EXPECT_EQ(strErrors, rRan.strOutput) << acArgs;
  }
  EXPECT_EQ("", Events());
  rFiles.Write("day.sim", "0 ch 0 ring on\n");
  EXPECT_EQ(0, Run(BuildDir() + "/sim/cardsim check day.sim").iExit) << "without any cards";
  EXPECT_EQ("cardsim: cannot read none.sim: No such file or directory\n", Cardsim("check none.sim").strOutput);
}

TEST_F(CardsimTool, RefusedActionStopsTheScenarioWithItsLine) {
  rFiles.Write("day.sim", "0 ch 0 ring on\n# next\n0 ch 9 ring on\n0 ch 1 ring on\n");
  const Ran rRan = Cardsim("run day.sim");
  EXPECT_EQ(1, rRan.iExit);
  EXPECT_EQ("day.sim:3: channel 9 does not exist\n", rRan.strOutput);
  EXPECT_EQ("24 ref 0: 2\n", Events());
}

TEST_F(CardsimTool, ConfigWritesTheCardsAsTheMakersToolDoes) {
  rFiles.Write("cards", SimConfigFiles::FOUR_CARDS);
  EXPECT_EQ(0, Run(BuildDir() + "/sim/config cards").iExit);
  EXPECT_EQ(
      "[SystemConfig]\nTotalBoards=4\n\n"
      "[AppChToBoardChTable]\nAppCh[0]=0,0..1\nAppCh[2]=1,0..2\nAppCh[5]=2,0..119\nAppCh[125]=3,0..1\nTotalAppCh="
      "127\n\n"
      "[BoardId=0]\nBoardModel=ATP-2A\nBoardSerialNumber=1001\n\n"
      "[BoardId=1]\nBoardModel=DST-3B\nBoardSerialNumber=1002\n\n"
      "[BoardId=2]\nBoardModel=DTP-120C\nBoardSerialNumber=1003\n\n"
      "[BoardId=3]\nBoardModel=SHT-2D\nBoardSerialNumber=1004\n",
      rFiles.Read("ShConfig.ini"));
  const Ran rRan = Run(BuildDir() + "/sim/config nosuch");
  EXPECT_EQ(1, rRan.iExit);
  EXPECT_EQ("config: no simulated cards: cannot read nosuch: No such file or directory\n", rRan.strOutput);
}

}  // namespace
