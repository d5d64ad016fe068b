// The driver configuration as the daemon writes it, and each way in which it can be wrong.

#include "simcards_shconfig.h"

#include <gtest/gtest.h>

#include <sstream>

#include "SimConfigFiles.h"

namespace simcards {
namespace {

class SimDriverConfig : public testing::Test {
 protected:
  SimDriverConfig() {
    rFiles.Write("simcards.conf", SimConfigFiles::FOUR_CARDS);
    std::string strError;
    EXPECT_TRUE(ReadConf(rFiles.Path("simcards.conf"), rConf, strError)) << strError;
  }

  std::string Plan(const std::string& strConfig) {
    rFiles.Write("ShConfig.ini", strConfig);
    rPlan = DriverPlan();
    std::string strError;
    (void)PlanDriver(rFiles.Path("ShConfig.ini"), rFiles.Path("ShIndex.ini"), rConf, rPlan, strError);
    return strError;
  }

  SimConfigFiles rFiles;
  SimConf rConf;
  DriverPlan rPlan;
};

TEST_F(SimDriverConfig, GivesBoardsAndCircuits) {
  EXPECT_EQ("", Plan(SimConfigFiles::FourCardsConfig()));
  ASSERT_EQ(4U, rPlan.vBoards.size());
  EXPECT_EQ(0, rPlan.vBoards[0].iStartCh);
  EXPECT_EQ(2, rPlan.vBoards[1].iStartCh);
  EXPECT_EQ(5, rPlan.vBoards[2].iStartCh);
  EXPECT_EQ(125, rPlan.vBoards[3].iStartCh);
  EXPECT_EQ("1003", rPlan.vBoards[2].rCard.strSerial);
  ASSERT_EQ(60U, rPlan.vCircuits.size());
  const struct {
    std::size_t iCic;
    int iFirstCh, iSecondCh;
  } arRows[] = {{0, 5, 35}, {29, 34, 64}, {30, 65, 95}, {59, 94, 124}};
  for (const auto& rRow : arRows) {
    EXPECT_EQ(rRow.iFirstCh, rPlan.vCircuits[rRow.iCic].iFirstCh) << "circuit " << rRow.iCic;
    EXPECT_EQ(rRow.iSecondCh, rPlan.vCircuits[rRow.iCic].iSecondCh) << "circuit " << rRow.iCic;
  }
}

// A text of the good configuration, what stands in its place, and what the library says of it.
TEST_F(SimDriverConfig, NamesWhatIsWrong) {
  const struct {
    const char *acGood, *acWrong, *acError;
  } arRows[] = {
      {"[SystemConfig]\n", "[SystemConfig\n", "the section line \"[SystemConfig\" has no end"},
      {"[SystemConfig]\n", "[PcmInfo]\n", "the section [PcmInfo] stands twice"},
      {"TotalBoards=4", "TotalBoards", "the line \"TotalBoards\" is neither section nor key"},
      {"TotalBoards=4", "TotalBoards=4\nTotalBoards=4", "[SystemConfig] has TotalBoards twice"},
      {"TotalBoards=4\n", "", "[SystemConfig] lacks TotalBoards"},
      {"TotalBoards=4", "TotalBoards=x", "[SystemConfig] TotalBoards=x is no number that can be"},
      {"TotalBoards=4", "TotalBoards=0", "[SystemConfig] TotalBoards=0: no board to start"},
      {"TotalBoards=4", "TotalBoards=5", "[BoardId=4] lacks BoardSerialNumber"},
      {"TotalBoards=4", "TotalBoards=3", "[AppChToBoardChTable] AppCh[125]=3,0..1: there is no board 3"},
      {"EventInterfaceType=1", "EventInterfaceType=0", "[SystemConfig] EventInterfaceType=0 should be 1"},
      {"BoardSerialNumber=1004", "BoardSerialNumber=9", "[BoardId=3] no card in the machine has the serial number 9"},
      {"BoardSerialNumber=1004", "BoardSerialNumber=1001", "[BoardId=3] BoardModel=SHT-2D, but card 1001 is ATP-2A"},
      {"SHT-2D\nBoardSerialNumber=1004", "ATP-2A\nBoardSerialNumber=1001", "[BoardId=3] card 1001 has a board already"},
      {"TotalAppCh=127", "TotalAppCh=128", "[AppChToBoardChTable] TotalAppCh=128, but the boards have 127 channels"},
      {"AppCh[125]", "AppCh[126]", "[AppChToBoardChTable] channel 125 has no board"},
      {"AppCh[125]", "AppCh[125", "[AppChToBoardChTable] has the unknown key AppCh[125"},
      {"AppCh[125]=3,0..1\n", "", "[AppChToBoardChTable] board 3 has no channels"},
      {"=3,0..1", "=1,0..1", "[AppChToBoardChTable] AppCh[125]=1,0..1: board 1 has channels already"},
      {"=3,0..1", "=3,0..2", "[AppChToBoardChTable] AppCh[125]=3,0..2: card 1004 has 2 channels"},
      {"=3,0..1", "=3,1..1", "[AppChToBoardChTable] AppCh[125]=3,1..1 should read <board>,0..<last channel>"},
      {"PBXType=NEC", "PBXType=", "[BoardId=1] PBXType is empty on a station card"},
      {"DstRecRawData=0\nPBXType=NEC", "DstRecRawData=1\nPBXType=NEC", "[BoardId=1] DstRecRawData=1 should be 0"},
      {"BargeInSensitive=12,12", "BargeInSensitive=12", "[BoardId=0] BargeInSensitive has 1 values for 2"},
      {"BargeInSensitive=12,12", "BargeInSensitive=12,", "[BoardId=0] BargeInSensitive=12, is no list of numbers"},
      {"DualAndAllFreqEnScale=10,", "DualAndAllFreqEnScale=", "[BoardId=0] DualAndAllFreqEnScale has 23 values for 24"},
      {"IgnoreLineVoltage=0,1\n", "", "[BoardId=0] lacks IgnoreLineVoltage"},
      {"IsHangupDtrmVoltage=26,26\n", "", "[BoardId=0] lacks IsHangupDtrmVoltage"},
      {"R2DetectMode=1", "R2DetectMode=on", "[SystemConfig] R2DetectMode=on is no number that can be"},
      {"UseHdlc=1", "UseHdlc=", "[BoardId=2] UseHdlc= is no number that can be"},
      {"PcmSSx[3]=2", "PcmSSx[3]=x", "[BoardId=2] PcmSSx[3]=x is no number that can be"},
      {"PcmClockMode[3]=2\n", "", "[BoardId=2] lacks PcmClockMode[3]"},
      {"PcmNumber=4", "PcmNumber=2", "[BoardId=2] PcmNumber=2 should be 4"},
      {"PcmClockMode[2]=2", "PcmClockMode[2]=0", "[BoardId=2] PcmClockMode[2]=0 should be 2"},
      {"PcmClockMode[0]=0", "PcmClockMode[0]=2", "[BoardId=2] PcmClockMode[0]=2 should be 0"},
      {"WhoSupplySysClock=2", "WhoSupplySysClock=0", "[SystemConfig] WhoSupplySysClock=0 names no board with a clock"},
      {"WhoSupplySysClock=2", "WhoSupplySysClock=-1",
       "[SystemConfig] WhoSupplySysClock=-1 names no board with a clock"},
      {"TotalPcm=4", "TotalPcm=2", "[PcmInfo] TotalPcm=2 should be 4"},
      {"TotalSpyPcm=2", "TotalSpyPcm=4", "[SpyPcm] TotalSpyPcm=4 should be 2"},
      {"TotalAppSpyCIC=60", "TotalAppSpyCIC=30", "[AppSpyCICTable] TotalAppSpyCIC=30 should be 60"},
      {"Pcm[3]=2,3", "Pcm[3]=2,4", "[PcmInfo] Pcm[3]=2,4 names no link of a trunk card"},
      {"Pcm[3]=2,3", "Pcm[3]=1,0", "[PcmInfo] Pcm[3]=1,0 names no link of a trunk card"},
      {"Pcm[3]=2,3", "Pcm[3]=2,2", "[PcmInfo] Pcm[3]=2,2 is used twice"},
      {"Pcm[3]=2,3\n", "", "[PcmInfo] lacks Pcm[3]"},
      {"Pcm[2],Pcm[3]", "Pcm[2]", "[SpyPcm] SpyPcm[1]=Pcm[2] names no pair of links"},
      {"SpyPcm[1],0..29", "SpyPcm[2],0..29", "[AppSpyCICTable] AppSpyCIC[30]=SpyPcm[2],0..29 names no pair of links"},
      {"SpyPcm[1],0..29", "SpyPcm[1],0..28", "[AppSpyCICTable] AppSpyCIC[30]=SpyPcm[1],0..28 names no pair of links"},
      {"AppSpyCIC[30]", "AppSpyCIC[29]", "[AppSpyCICTable] lacks AppSpyCIC[30]"},
  };
  for (const auto& rRow : arRows) {
    std::string strConfig = SimConfigFiles::FourCardsConfig();
    const std::size_t iAt = strConfig.find(rRow.acGood);
    ASSERT_NE(std::string::npos, iAt) << rRow.acGood;
    EXPECT_EQ(rRow.acError, Plan(strConfig.replace(iAt, std::string(rRow.acGood).size(), rRow.acWrong)));
  }
}

TEST_F(SimDriverConfig, HandEditedTuningIsTaken) {
  std::string strConfig = SimConfigFiles::FourCardsConfig();
  const struct {
    const char *acGood, *acEdited;
  } arRows[] = {{"UseHdlc=1", "UseHdlc=0"},
                {"PcmSSx[1]=2", "PcmSSx[1]=1"},
                {"[DebugView]", "; by hand\n# too\n\n[MySection]\nKey=Value\n[DebugView]"},
                {"PcmLinkType[0]=0", "  PcmLinkType[0] = 3 "}};
  for (const auto& rRow : arRows) {
    strConfig.replace(strConfig.find(rRow.acGood), std::string(rRow.acGood).size(), rRow.acEdited);
  }
  EXPECT_EQ("", Plan(strConfig));
}

// The daemon leaves its defaults out of a file that it writes from nothing.
TEST_F(SimDriverConfig, DefaultsMayBeMissing) {
  std::string strConfig;
  std::istringstream rLines(SimConfigFiles::FourCardsConfig());
  int iLeftOut = 0;
  for (std::string strLine; std::getline(rLines, strLine);) {
    bool fDefault = false;
    for (const char* acKey : {"DualAndAllFreqEnScale=", "EnableDMA=", "PcmLinkType[", "PcmNumber=", "PcmSSx[",
                              "R2DetectMode=", "UseHdlc="}) {
      fDefault = fDefault || strLine.rfind(acKey, 0) == 0;
    }
    iLeftOut += fDefault ? 1 : 0;
    if (!fDefault) strConfig += strLine + "\n";
  }
  EXPECT_EQ(15, iLeftOut);
  EXPECT_EQ("", Plan(strConfig));
}

TEST_F(SimDriverConfig, WithoutTrunksOldTrunkSectionsAreNoMatter) {
  rConf.vCards = {{"ATP-1A", "1", 1}};
  const std::string strScales = "DualAndAllFreqEnScale=1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1,1\n";
  const std::string strConfig =
      "[SystemConfig]\nTotalBoards=1\nEventInterfaceType=1\nWhoSupplySysClock=-1\n"
      "[AppChToBoardChTable]\nTotalAppCh=1\nAppCh[0]=0,0..0\n"
      "[SpyPcm]\nTotalSpyPcm=1\nSpyPcm[0]=Pcm[0],Pcm[1]\n"
      "[BoardId=0]\nBoardModel=ATP-1A\nBoardSerialNumber=1\nPBXType=\nDstRecRawData=0\n" +
      strScales + "IsHangupDtrmVoltage=26\nIgnoreLineVoltage=0\nBargeInSensitive=12\n";
  EXPECT_EQ("", Plan(strConfig));
  EXPECT_TRUE(rPlan.vCircuits.empty());
  EXPECT_EQ("[PcmInfo] is not empty, but there is no trunk", Plan(strConfig + "[PcmInfo]\nTotalPcm=0\n"));
}

TEST_F(SimDriverConfig, MissingFilesAreNamed) {
  std::string strError;
  EXPECT_FALSE(PlanDriver(rFiles.Path("none.ini"), rFiles.Path("ShIndex.ini"), rConf, rPlan, strError));
  EXPECT_EQ("cannot read " + rFiles.Path("none.ini") + ": No such file or directory", strError);
  rFiles.Write("ShConfig.ini", SimConfigFiles::FourCardsConfig());
  EXPECT_FALSE(PlanDriver(rFiles.Path("ShConfig.ini"), rFiles.Path("none.ini"), rConf, rPlan, strError));
  EXPECT_EQ("cannot read " + rFiles.Path("none.ini") + ": No such file or directory", strError);
}

}  // namespace
}  // namespace simcards
