// Tests of the driver's configuration: whole files as the driver will read them.
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "RecorderBench.h"
#include "TestFiles.h"
#include "recorder_drvconfig.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* DRIVER_INI = "/var/morvex/data/ShConfig.ini";
constexpr const char* DRIVER_INDEX = "/var/morvex/data/ShIndex.ini";
constexpr const char* OS_NAME_FILE = "/etc/issue.net";
constexpr const char* OS_NAME_STAND_IN = "/tmp/issue.net";

const std::string ALL_FREQ = "10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10";
const std::string NO_LOGGING =
    "[DebugView]\nApiLogEnable=0\nDSTLogCreateMode=0\nDSTLogEnable=0\nOutputDTRRawData=38512\n";

// A file of this test lies over the system's own name file, in a mount namespace of the program.
class DrvConfigTest : public RecorderBench {
 protected:
  static void SetUpTestSuite() {
    WriteTestFile(OS_NAME_STAND_IN, "");
    ASSERT_EQ(unshare(CLONE_NEWNS), 0);
    ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    ASSERT_EQ(mount(OS_NAME_STAND_IN, OS_NAME_FILE, nullptr, MS_BIND, nullptr), 0);
  }
  static void TearDownTestSuite() { EXPECT_EQ(umount(OS_NAME_FILE), 0); }

  void SetUp() override {
    WriteTestFile(OS_NAME_STAND_IN, "Debian GNU/Linux 9\n");
    WriteTestFile(DRIVER_INI, "");
    (void)remove(DRIVER_INDEX);
  }
  void TearDown() override { (void)remove(DRIVER_INI); }

  // Writes the configuration of these cards and returns the file.
  std::string Written(const std::vector<TBoard>& vrCards) {
    TakeCards(vrCards);
    rBoot.WriteConfig();
    return ReadTestFile(DRIVER_INI);
  }
  void TakeCards(const std::vector<TBoard>& vrCards) {
    rBoot.vrDetectedBoards = vrCards;
    rBoot.vrBoardList.clear();
    rBoot.CreateBoardList();
    Forget();
  }
};

// -- version of the operating system ----------------------------------------------------------------------------------

TEST_F(DrvConfigTest, VersionOfTheOperatingSystem) {
  struct Row {
    const char* acText;
    int iVersion;
  };
  const Row rRows[] = {
      {"Debian GNU/Linux 6.0\n", 6},  {"Debian GNU/Linux 7\n", 7},   {"Debian GNU/Linux 8\n", 8},
      {"Debian GNU/Linux 9\n", 9},    {"Debian GNU/Linux 10\n", 10}, {"Debian GNU/Linux 11\n", 11},
      {"Debian GNU/Linux 12\n", 12},  {"Debian GNU/Linux 13\n", -1}, {"Debian GNU/Linux 1\n", -1},
      {"Debian GNU/Linux 5\n", -1},   {"Debian GNU/Linux 60\n", 6},  {"Debian GNU/Linux bookworm/sid\n", -1},
      {" Debian GNU/Linux 12\n", -1}, {"Ubuntu 22.04\n", -1},        {"", -1},
  };
  for (const Row& rRow : rRows) {
    WriteTestFile(OS_NAME_STAND_IN, rRow.acText);
    EXPECT_EQ(GetDebianVersion(), rRow.iVersion) << rRow.acText;
  }
}

TEST_F(DrvConfigTest, VersionWithoutTheFileIsUnknown) {
  const pid_t iPid = fork();  // what the file lies over is a file too, so the folder goes, in a namespace of a child
  if (iPid == 0) {
    const bool fGone = unshare(CLONE_NEWNS) == 0 && mount("none", "/etc", "tmpfs", 0, nullptr) == 0;
    _exit(fGone && access(OS_NAME_FILE, F_OK) != 0 && GetDebianVersion() == -1 ? 0 : 1);
  }
  int iStatus = -1;
  ASSERT_EQ(waitpid(iPid, &iStatus, 0), iPid);
  EXPECT_EQ(iStatus, 0);
}

// -- whole files ------------------------------------------------------------------------------------------------------

TEST_F(DrvConfigTest, StationCardAndTrunkCard) {
  EXPECT_EQ(Written({Present("DST-32B", "S1", 32), Present("DTP-60C", "S2", 120)}),
            "[AppChToBoardChTable]\nAppCh[0]=0,0..31\nAppCh[32]=1,0..119\nTotalAppCh=152\n"
            "[AppSpyCICTable]\nAppSpyCIC[0]=SpyPcm[0],0..29\nAppSpyCIC[30]=SpyPcm[1],0..29\nTotalAppSpyCIC=60\n"
            "[BoardId=0]\nBoardModel=DST-32B\nBoardSerialNumber=S1\nDstRecRawData=0\nPBXType=Siemens Hicom/Hipath\n"
            "[BoardId=1]\nBoardModel=DTP-60C\nBoardSerialNumber=S2\nDstRecRawData=0\nPBXType=\n"
            "PcmClockMode[0]=0\nPcmClockMode[1]=2\nPcmClockMode[2]=2\nPcmClockMode[3]=2\n"
            "DualAndAllFreqEnScale=32\n"
            "PcmLinkType[0]=0\nPcmLinkType[1]=0\nPcmLinkType[2]=0\nPcmLinkType[3]=0\n"
            "PcmNumber=4\n"
            "PcmSSx[0]=2\nPcmSSx[1]=2\nPcmSSx[2]=2\nPcmSSx[3]=2\n"
            "UseHdlc=1\n" +
                NO_LOGGING +
                "[PcmInfo]\nPcm[0]=1,0\nPcm[1]=1,1\nPcm[2]=1,2\nPcm[3]=1,3\nTotalPcm=4\n"
                "[SpyPcm]\nSpyPcm[0]=Pcm[0],Pcm[1]\nSpyPcm[1]=Pcm[2],Pcm[3]\nTotalSpyPcm=2\n"
                "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=2\nWhoSupplySysClock=1\n");
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "");
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 Command: cp -p '/var/morvex/data/ShConfig.ini.tmp' '/var/morvex/data/ShConfig.ini'"));
}

TEST_F(DrvConfigTest, AnalogCardHasAnItemForEachChannel) {
  rBoot.rConfigs = {{"SynA_Trigger", "2,1,,3"}, {"SynA_OffHookThr", "0,30"}, {"SynA_AudioThr", ",,7"}};
  EXPECT_EQ(Written({Present("ATP-4", "A", 4)}),
            "[AppChToBoardChTable]\nAppCh[0]=0,0..3\nTotalAppCh=4\n"
            "[BoardId=0]\nBargeInSensitive=12,12,7,12\nBoardModel=ATP-4\nBoardSerialNumber=A\nDstRecRawData=0\n"
            "IgnoreLineVoltage=1,0,0,1\nIsHangupDtrmVoltage=26,30,26,26\nPBXType=\n"
            "DualAndAllFreqEnScale=" +
                ALL_FREQ + "\n" + NO_LOGGING +
                "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=1\nWhoSupplySysClock=-1\n");
}

TEST_F(DrvConfigTest, ShtCardIsLikeAnAnalogOneAndSetsR2Mode) {
  EXPECT_EQ(Written({Present("SHT-2A", "A", 2)}),
            "[AppChToBoardChTable]\nAppCh[0]=0,0..1\nTotalAppCh=2\n"
            "[BoardId=0]\nBargeInSensitive=12,12\nBoardModel=SHT-2A\nBoardSerialNumber=A\nDstRecRawData=0\n"
            "IgnoreLineVoltage=0,0\nIsHangupDtrmVoltage=26,26\nPBXType=\n"
            "DualAndAllFreqEnScale=" +
                ALL_FREQ + "\n" + NO_LOGGING +
                "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=1\nWhoSupplySysClock=-1\nR2DetectMode=1\n");
}

TEST_F(DrvConfigTest, NoCards) {
  const std::string strExpected = "[AppChToBoardChTable]\nTotalAppCh=0\n" + NO_LOGGING +
                                  "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=0\nWhoSupplySysClock=-1\n";
  EXPECT_EQ(Written({}), strExpected);
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "");
  rBoot.WriteConfig();  // again on each try
  EXPECT_EQ(ReadTestFile(DRIVER_INI), strExpected);
}

TEST_F(DrvConfigTest, MissingFileGetsTheForcedValuesAlone) {
  (void)remove(DRIVER_INI);
  EXPECT_EQ(Written({Present("ATP-2", "A", 2)}),
            "[AppChToBoardChTable]\nAppCh[0]=0,0..1\nTotalAppCh=2\n"
            "[BoardId=0]\nBargeInSensitive=12,12\nBoardModel=ATP-2\nBoardSerialNumber=A\nDstRecRawData=0\n"
            "IgnoreLineVoltage=0,0\nIsHangupDtrmVoltage=26,26\nPBXType=\n" +
                NO_LOGGING + "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=1\nWhoSupplySysClock=-1\n");
}

TEST_F(DrvConfigTest, SecondTrunkCardCountsLinksOnAndItsOwnFromZero) {
  const std::string strFile =
      Written({Present("DTP-30", "1", 60), Present("ATP-2", "2", 2), Present("DTP-60", "3", 120)});
  EXPECT_THAT(strFile, HasSubstr("[PcmInfo]\nPcm[0]=0,0\nPcm[1]=0,1\nPcm[2]=2,0\nPcm[3]=2,1\nPcm[4]=2,2\nPcm[5]=2,3\n"
                                 "TotalPcm=6\n"));
  EXPECT_THAT(strFile, HasSubstr("[SpyPcm]\nSpyPcm[0]=Pcm[0],Pcm[1]\nSpyPcm[1]=Pcm[2],Pcm[3]\nSpyPcm[2]=Pcm[4],Pcm[5]\n"
                                 "TotalSpyPcm=3\n"));
  EXPECT_THAT(strFile, HasSubstr("[AppSpyCICTable]\nAppSpyCIC[0]=SpyPcm[0],0..29\nAppSpyCIC[30]=SpyPcm[1],0..29\n"
                                 "AppSpyCIC[60]=SpyPcm[2],0..29\nTotalAppSpyCIC=90\n"));
  EXPECT_THAT(strFile, HasSubstr("[BoardId=2]\nBoardModel=DTP-60\nBoardSerialNumber=3\nDstRecRawData=0\nPBXType=\n"
                                 "PcmClockMode[0]=0\nPcmClockMode[1]=2\nPcmClockMode[2]=2\nPcmClockMode[3]=2\n"));
  EXPECT_THAT(strFile, HasSubstr("AppCh[62]=2,0..119\nTotalAppCh=182\n"));
}

TEST_F(DrvConfigTest, TrunkCardBelowOneBlockHasNoLinks) {
  EXPECT_EQ(Written({Present("DTP-20", "1", 59)}),
            "[AppChToBoardChTable]\nAppCh[0]=0,0..58\nTotalAppCh=59\n"
            "[BoardId=0]\nBoardModel=DTP-20\nBoardSerialNumber=1\nDstRecRawData=0\nPBXType=\n"
            "DualAndAllFreqEnScale=32\nPcmNumber=0\nUseHdlc=1\n" +
                NO_LOGGING + "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=1\nWhoSupplySysClock=0\n");
}

// -- what stands in the file already ----------------------------------------------------------------------------------

TEST_F(DrvConfigTest, HandEditedValuesStayExceptTheForcedOnes) {
  WriteTestFile(DRIVER_INI,
                "; tuned on site\n"
                "[SystemConfig]\n"
                "TotalBoards = 9 \n"
                "Country=49\n"
                "[BoardId=0]\n"
                "DualAndAllFreqEnScale=11\n"
                "IsHangupDtrmVoltage=1,1\n"
                "RelayKind=2\n"
                "[BoardId=5]\n"
                "BoardModel=ATP-OLD\n"
                "[AppChToBoardChTable]\n"
                "; table\n"
                "TotalAppCh=99\n"
                "AppCh[0]=5,0..98\n"
                "[PcmInfo]\n"
                "TotalPcm=2\n"
                "Pcm[0]=5,0\n"
                "[SpyPcm]\n"
                "TotalSpyPcm=1\n");
  EXPECT_EQ(Written({Present("ATP-2", "A", 2)}),
            "; tuned on site\n"
            "[SystemConfig]\n"
            "TotalBoards=1\n"
            "Country=49\n"
            "EventInterfaceType=1\n"
            "WhoSupplySysClock=-1\n"
            "[BoardId=0]\n"
            "DualAndAllFreqEnScale=11\n"
            "IsHangupDtrmVoltage=26,26\n"
            "RelayKind=2\n"
            "BargeInSensitive=12,12\n"
            "BoardModel=ATP-2\n"
            "BoardSerialNumber=A\n"
            "DstRecRawData=0\n"
            "IgnoreLineVoltage=0,0\n"
            "PBXType=\n"
            "[BoardId=5]\n"
            "BoardModel=ATP-OLD\n"
            "[AppChToBoardChTable]\n"
            "; table\n"
            "AppCh[0]=0,0..1\n"
            "TotalAppCh=2\n"
            "[PcmInfo]\n"
            "[SpyPcm]\n"
            "TotalSpyPcm=1\n" +
                NO_LOGGING);
}

TEST_F(DrvConfigTest, AbsentBoardGetsNoSectionAndKeepsAnOldOne) {
  WriteTestFile(DRIVER_INI, "[BoardId=1]\nBoardModel=ATP-OLD\n");
  rBoot.rConfigs = {{"CardList", "SynGONE,SynA"}, {"SynGONE_MaxChannels", "8"}};
  EXPECT_EQ(Written({Present("DST-8", "A", 8)}),
            "[BoardId=1]\nBoardModel=ATP-OLD\n"
            "[AppChToBoardChTable]\nAppCh[0]=0,0..7\nTotalAppCh=8\n"
            "[BoardId=0]\nBoardModel=DST-8\nBoardSerialNumber=A\nDstRecRawData=0\nPBXType=Siemens Hicom/Hipath\n" +
                NO_LOGGING + "[SystemConfig]\nEventInterfaceType=1\nTotalBoards=1\nWhoSupplySysClock=0\n");
}

TEST_F(DrvConfigTest, ChannelValuesComeFromThePlaceInTheBoardList) {
  rBoot.rConfigs = {{"CardList", "SynGONE,SynA"},
                    {"SynGONE_MaxChannels", "8"},
                    {"SynGONE_AudioThr", "1,1"},
                    {"SynA_AudioThr", "2,2"}};
  EXPECT_THAT(Written({Present("ATP-2", "A", 2)}), HasSubstr("[BoardId=0]\nBargeInSensitive=2,2\n"));
}

// -- single values ----------------------------------------------------------------------------------------------------

TEST_F(DrvConfigTest, ClockComesFromTheLastDigitalCard) {
  struct Row {
    const char* acLabel;
    std::vector<TBoard> vrCards;
    int iClock;
  };
  const Row rRows[] = {
      {"none", {Present("ATP-2", "1", 2), Present("SHT-2", "2", 2)}, -1},
      {"station before analog", {Present("DST-8", "1", 8), Present("ATP-2", "2", 2)}, 0},
      {"two", {Present("DTP-30", "1", 60), Present("ATP-2", "2", 2), Present("SHR-16", "3", 16)}, 2},
  };
  for (const Row& rRow : rRows) {
    WriteTestFile(DRIVER_INI, "");
    EXPECT_THAT(Written(rRow.vrCards), HasSubstr("\nWhoSupplySysClock=" + std::to_string(rRow.iClock) + "\n"))
        << rRow.acLabel;
  }
}

TEST_F(DrvConfigTest, PhoneTypeStandsOnlyWhenItIsSet) {
  rBoot.rConfigs = {{"SynB_PhoneType", "Optiset"}};
  const std::string strFile = Written({Present("DST-8", "A", 8), Present("DST-8", "B", 8)});
  EXPECT_THAT(strFile, HasSubstr("BoardSerialNumber=A\nDstRecRawData=0\nPBXType=Siemens Hicom/Hipath\n[BoardId=1]\n"));
  EXPECT_THAT(strFile, HasSubstr("BoardSerialNumber=B\nDstRecRawData=0\nPBXType=Siemens Hicom/Hipath\n"
                                 "PhoneType=Optiset\n"));
}

TEST_F(DrvConfigTest, BoardDmaIsSwitchedOffFromVersion10On) {
  for (const char* acVersion : {"10", "11", "12"}) {
    WriteTestFile(OS_NAME_STAND_IN, std::string("Debian GNU/Linux ") + acVersion + "\n");
    WriteTestFile(DRIVER_INI, "");
    EXPECT_THAT(Written({Present("DST-8", "A", 8)}), HasSubstr("PBXType=Siemens Hicom/Hipath\nEnableDMA=0\n"))
        << acVersion;
  }
  WriteTestFile(DRIVER_INI, "[BoardId=0]\nEnableDMA=1\n");
  EXPECT_THAT(Written({Present("DST-8", "A", 8)}), HasSubstr("[BoardId=0]\nEnableDMA=1\nBoardModel="));
  for (const char* acText : {"Debian GNU/Linux 9\n", "Debian GNU/Linux 13\n"}) {
    WriteTestFile(OS_NAME_STAND_IN, acText);
    WriteTestFile(DRIVER_INI, "");
    EXPECT_THAT(Written({Present("DST-8", "A", 8)}), Not(HasSubstr("EnableDMA"))) << acText;
  }
}

TEST_F(DrvConfigTest, ApiLogChangesTheDebugView) {
  const std::string strLogging =
      "[DebugView]\nApiLogEnable=4\nDSTLogCreateMode=0\nDSTLogEnable=1\nOutputDTRRawData=1158\n";
  for (const char* acValue : {"1", "-1", "2x", "4294967296"}) {
    rBoot.rConfigsO["TdmLogApi"] = acValue;
    WriteTestFile(DRIVER_INI, "");
    EXPECT_THAT(Written({}), HasSubstr(strLogging)) << acValue;
  }
  for (const char* acValue : {"0", "", "yes"}) {
    rBoot.rConfigsO["TdmLogApi"] = acValue;
    WriteTestFile(DRIVER_INI, "");
    EXPECT_THAT(Written({}), HasSubstr(NO_LOGGING)) << acValue;
  }
}

// -- files left alone -------------------------------------------------------------------------------------------------

TEST_F(DrvConfigTest, NoWriteIniLeavesBothFilesAlone) {
  rBoot.rConfigs["NoWriteIni"] = "1";
  WriteTestFile(DRIVER_INI, "mine\n");
  EXPECT_EQ(Written({Present("DST-8", "A", 8)}), "mine\n");
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "(no file)");
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("4 Not writing ShConfig.ini"));
}

TEST_F(DrvConfigTest, NoWriteIniCountsOnlyAsOne) {
  for (const char* acValue : {"0", "2", "", "yes", "4294967297"}) {
    rBoot.rConfigs["NoWriteIni"] = acValue;
    WriteTestFile(DRIVER_INI, "");
    EXPECT_THAT(Written({}), Not(IsEmpty())) << acValue;
  }
}

TEST_F(DrvConfigTest, FileWithoutRoomForTheNewOneStaysAndIsTold) {
  const std::string strTemporary = DRIVER_INI + std::string(".tmp");
  WriteTestFile(DRIVER_INI, "mine\n");
  ASSERT_EQ(mkdir(strTemporary.c_str(), 0700), 0);
  EXPECT_EQ(Written({}), "mine\n");
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("3 C-api error at Update of /var/morvex/data/ShConfig.ini: File exists"));
  ASSERT_EQ(rmdir(strTemporary.c_str()), 0);
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "");  // it is made all the same
}

TEST_F(DrvConfigTest, FileThatCannotBeExchangedStaysAndIsToldBehindTheCommand) {
  WriteTestFile(DRIVER_INI, "mine\n");
  ASSERT_EQ(mount(DRIVER_INI, DRIVER_INI, nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(Written({}), "mine\n");
  ASSERT_EQ(umount(DRIVER_INI), 0);
  EXPECT_THAT(logsink::TakeTexts(),
              ElementsAre("5 Command: cp -p '/var/morvex/data/ShConfig.ini.tmp' '/var/morvex/data/ShConfig.ini'",
                          "3 C-api error at Update of /var/morvex/data/ShConfig.ini: Device or resource busy"));
}

TEST_F(DrvConfigTest, IndexThatExistsIsEmptied) {
  WriteTestFile(DRIVER_INDEX, "[old]\n");
  (void)Written({});
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "");
}

TEST_F(DrvConfigTest, IndexThatCannotBeMadeIsPassedInSilence) {
  WriteTestFile(DRIVER_INDEX, "[old]\n");
  ASSERT_EQ(mount(DRIVER_INDEX, DRIVER_INDEX, nullptr, MS_BIND, nullptr), 0);
  ASSERT_EQ(mount(nullptr, DRIVER_INDEX, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
  EXPECT_THAT(Written({}), Not(IsEmpty()));
  EXPECT_EQ(logsink::TakeTexts().size(), 1U);  // the copy of the merged file
  ASSERT_EQ(umount(DRIVER_INDEX), 0);
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "[old]\n");
}

TEST_F(DrvConfigTest, IndexFollowsNoLink) {
  WriteTestFile("/tmp/foreign", "foreign");
  (void)remove(DRIVER_INDEX);
  ASSERT_EQ(symlink("/tmp/foreign", DRIVER_INDEX), 0);
  (void)Written({});
  EXPECT_EQ(ReadTestFile(DRIVER_INDEX), "");
  EXPECT_EQ(ReadTestFile("/tmp/foreign"), "foreign");
}

}  // namespace
