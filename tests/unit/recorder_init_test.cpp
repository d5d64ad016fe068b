// Tests of the way from settings to a running recorder: fields, channels, events, and reloading.
// This program stands in front of SsmSetEvent, to see the record that goes to the library and to fail a chosen call.
#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <typeinfo>

#include "AnalogChannel.h"
#include "DstChannel.h"
#include "PriChannel.h"
#include "RecorderBench.h"
#include "TestFiles.h"

namespace {

std::vector<std::string> astrSetEvents;  // "<event> <channel> <on>: <mode> <condition> <value>" since the last SetUp
int iFailSetEventCall = 0;               // which of them fails; 0: none

}  // namespace

extern "C" int SsmSetEvent(WORD wEvent, int nReference, BOOL bEnable, PEVENT_SET_INFO pEventSet) {
  char acCall[100];
  (void)snprintf(acCall, sizeof acCall, "%u %d %d: %u %u %u", static_cast<unsigned int>(wEvent), nReference, bEnable,
                 pEventSet->dwWorkMode, pEventSet->dwOutCondition, pEventSet->dwOutParamVal);
  astrSetEvents.push_back(acCall);
  if (static_cast<int>(astrSetEvents.size()) == iFailSetEventCall) {
    simcards::FailNext("SsmSetEvent", 1, -1, "no events");
  }
  return reinterpret_cast<decltype(SsmSetEvent)*>(dlsym(RTLD_NEXT, "SsmSetEvent"))(wEvent, nReference, bEnable,
                                                                                   pEventSet);
}

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Open = OpenChannel<BaseChannel>;

constexpr const char* SERIAL_FILE = "/var/morvex/conf/serial";
constexpr const char* REC_TMP = "/recordings/rectmp";
constexpr const char* LINE_STATUS = "/var/morvex/data/linestatus.dat";

class InitTest : public RecorderBench {
 protected:
  void SetUp() override {
    umask(0);  // as the daemon runs
    astrSetEvents.clear();
    iFailSetEventCall = 0;
    WriteTestFile(SERIAL_FILE, "AB12\n");
  }
  void TearDown() override {
    (void)remove(SERIAL_FILE);
    (void)remove(REC_TMP);
    (void)remove(LINE_STATUS);
  }

  // Numbers the cards and drops what that logs.
  void TakeCards(const std::vector<TBoard>& vrCards) {
    rBoot.vrDetectedBoards = vrCards;
    rBoot.CreateBoardList();
    Forget();
  }
  // One analogue line.
  void OneLine() {
    TakeCards({Present("ATP-1", "A", 1)});
    simcards::AddBoard(0, 1, CH_ANALOG);
  }
};

// -- the whole start --------------------------------------------------------------------------------------------------

TEST_F(InitTest, StartsARecorderWithAllKindsOfLines) {
  rBoot.rConfigs = {{"SynB_AudioDetect", "3"}, {"SynB_AudioSens", "4"}, {"SynC_SilenceT", "20"}};
  rBoot.rConfigsO = {{"RecEnc", "mp3"}, {"SilOnDemand", "1"}, {"CSTAType", "2"}, {"RecOnDmdList", "31"}};
  rBoot.rConfigsSys = {{"DTMF1", "*1"}, {"DTMFact1", "keep"}, {"DTMFact2", "no code"}, {"DTMF10", "#"}};
  TakeCards({Present("ATP-1", "A", 1), Present("DST-2", "B", 2), Present("DST-1", "C", 1), Present("DTP-X", "D", 4),
             Present("SHT-1", "E", 1), Present("DTP-X", "F", 2)});
  simcards::AddBoard(0, 1, CH_ANALOG);
  simcards::AddBoard(1, 2, CH_DST);
  simcards::AddBoard(2, 1, CH_DST);
  simcards::AddBoard(3, 4, CH_ISDN_USR);
  simcards::AddBoard(4, 1, 26);
  simcards::AddBoard(5, 2, CH_ISDN_NTW);

  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_FALSE(rRecorder.fInitializing);
  EXPECT_THAT(
      logsink::TakeTexts(),
      ElementsAre("5 DTMF *1 act keep", "5 DTMF # act ", "5 Encoding: mp3", "5 Silence-On-Demand: 1", "5 CSTAType: 2",
                  "5 NumberFilterType: 0", "5 CSTAFilterType: 0", "5 DelOnDmdType: 0", "5 RecOnDmdType: 0",
                  "5 RecOnDmd item: 31", "5 Boards: 6", "5 Phys. channels: 11", "5 Serial number AB12",
                  "5 Total Drv. Max. Ch.: 11", "5 Channel [1] {0} <0,0> Type: 3", "5 [1] Analog settings: Off-hook",
                  "5 Channel [2] {1} <1,0> Type: 12", "5 Board audio detect 1 Sensitivity 4 Silence time-out 15",
                  "5 Channel [3] {2} <1,1> Type: 12", "5 Channel [4] {3} <2,0> Type: 12",
                  "5 Board audio detect 0 Sensitivity 6 Silence time-out 20", "5 Channel [5] {4} <3,0> Type: 7",
                  "5 Channel [6] {5} <3,1> Type: 7", "5 Channel [-1] {6} <3,2> Type: 7",
                  "5 Channel [-1] {7} <3,3> Type: 7", "5 Channel [7] {8} <4,0> Type: 26",
                  "5 Channel [8] {9} <5,0> Type: 8", "5 Channel [-1] {10} <5,1> Type: 8", "5 signal => sysinfo",
                  "5 ** STARTED **"));
  EXPECT_EQ(ReadTestFile(LINE_STATUS),
            "Line_1: ok\nLine_2: ok\nLine_3: ok\nLine_4: ok\nLine_5: ok\nLine_6: ok\nLine_7: ok\nLine_8: ok\n");

  ASSERT_EQ(rRecorder.vChannels.size(), 11U);
  const auto IsKind = [this](std::size_t i, const std::type_info& rKind) {
    const BaseChannel& rChannel = *rRecorder.vChannels[i];
    return typeid(rChannel) == rKind;
  };
  EXPECT_TRUE(IsKind(0, typeid(AnalogChannel)));
  EXPECT_TRUE(IsKind(1, typeid(DST_Channel)) && IsKind(2, typeid(DST_Channel)) && IsKind(3, typeid(DST_Channel)));
  for (std::size_t i = 4; i < 8; i++) EXPECT_TRUE(IsKind(i, typeid(PRI_Channel))) << i;
  EXPECT_TRUE(IsKind(8, typeid(BaseChannel)));
  EXPECT_TRUE(IsKind(9, typeid(PRI_Channel)) && IsKind(10, typeid(PRI_Channel)));
  const int iBoardListIx[] = {0, 1, 1, 2, 3, 3, 3, 3, 4, 5, 5};
  for (std::size_t i = 0; i < 11; i++) {
    const BaseChannel& rChannel = *rRecorder.vChannels[i];
    EXPECT_EQ(rChannel.*&Open::iDrvCh, static_cast<int>(i));
    EXPECT_EQ(rChannel.*&Open::iBoardListIx, iBoardListIx[i]) << i;
    EXPECT_EQ(rChannel.*&Open::prRecorder, &rRecorder);
  }
  EXPECT_EQ(rRecorder.vChannels[7]->*&Open::iBoardCh, 3);
  const auto Cic = [this](std::size_t i) { return static_cast<PRI_Channel*>(rRecorder.vChannels[i])->iCic; };
  EXPECT_EQ(Cic(4), 0);
  EXPECT_EQ(Cic(5), 1);
  EXPECT_EQ(Cic(6), -1);
  EXPECT_EQ(Cic(7), -1);
  EXPECT_EQ(Cic(9), 2);
  EXPECT_EQ(Cic(10), -1);

  EXPECT_THAT(prDb->TakeCalls(), ElementsAre("InitRecorder AB12 MorvexAB12", "GetOrCreateLineContact 1 '1@AB12'",
                                             "GetOrCreateLineContact 2 '2@AB12'", "GetOrCreateLineContact 2 ''",
                                             "GetOrCreateLineContact 3 '3@AB12'", "GetOrCreateLineContact 3 ''",
                                             "GetOrCreateLineContact 4 '4@AB12'", "GetOrCreateLineContact 4 ''",
                                             "GetOrCreateLineContact 5 '5@AB12'", "GetOrCreateLineContact 6 '6@AB12'",
                                             "GetOrCreateLineContact 7 '7@AB12'", "GetOrCreateLineContact 8 '8@AB12'"));
}

TEST_F(InitTest, EventsAreSetUpLast) {
  OneLine();
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_THAT(simcards::TakeCalls(), ElementsAre("SsmSetRecVolume(0,0)", "SsmSetRecAGC(0,0)", "SsmSetEvent(65535,-1,1)",
                                                 "SsmSetEvent(21,-1,1)"));
  EXPECT_THAT(astrSetEvents, ElementsAre("65535 -1 1: 1 0 0", "21 -1 1: 1 2048 3"));
}

TEST_F(InitTest, FailedEventSetUpEndsTheStart) {
  OneLine();
  iFailSetEventCall = 1;
  EXPECT_EQ(rRecorder.InitRecorder(), 1);
  EXPECT_EQ(logsink::TakeTexts().back(), "3 Error in SsmSetEvent: no events");
  EXPECT_EQ(astrSetEvents.size(), 1U);
  EXPECT_EQ(rRecorder.vChannels.size(), 1U);
  EXPECT_TRUE(rRecorder.fInitializing);
}

TEST_F(InitTest, FailedSetUpOfRecordingReportsEndsTheStart) {
  OneLine();
  iFailSetEventCall = 2;
  EXPECT_EQ(rRecorder.InitRecorder(), 1);
  EXPECT_EQ(logsink::TakeTexts().back(), "3 Error in SsmSetEvent2: no events");
  EXPECT_TRUE(rRecorder.fInitializing);
}

TEST_F(InitTest, HealthIsSilentWhileChannelsAreMade) {
  OneLine();
  simcards::SetChState(0, S_CALL_OFFLINE);
  rBoot.rConfigs["SynA_CheckLineStatus"] = "1";
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_EQ(ReadTestFile(LINE_STATUS), "Line_1: offline\n");
  int iSysinfo = 0;
  for (const std::string& strLine : logsink::TakeTexts()) iSysinfo += strLine == "5 signal => sysinfo";
  EXPECT_EQ(iSysinfo, 1);  // the one at the end of the start
}

TEST_F(InitTest, NumbersOfLinesKeepRoomForAbsentCards) {
  rBoot.rConfigs = {{"CardList", "SynGONE,SynA"}, {"SynGONE_MaxChannels", "8"}};
  OneLine();
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_THAT(logsink::TakeTexts(), Contains("5 Channel [9] {0} <0,0> Type: 3"));
  EXPECT_EQ(rRecorder.vChannels[0]->*&Open::iBoardListIx, 1);
}

TEST_F(InitTest, SecondHalfOfATrunkBlockHasNoLineContact) {
  TakeCards({Present("DTP-30", "D", 60)});
  simcards::AddBoard(0, 60, CH_ISDN_USR);
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_EQ(prDb->TakeCalls().size(), 1U + 30);
  for (std::size_t i = 0; i < 60; i++) {
    EXPECT_EQ(rRecorder.vChannels[i]->iChannel, i < 30 ? static_cast<int>(i) + 1 : -1) << i;
  }
}

using InitDeathTest = InitTest;

// Such a line would be recorded with the settings of nobody.
TEST_F(InitDeathTest, ChannelOfABoardThatIsNotListedEndsTheProcess) {
  TakeCards({Present("ATP-1", "A", 1)});
  simcards::AddBoard(7, 1, CH_ANALOG);
  EXPECT_EXIT((void)rRecorder.InitRecorder(), testing::KilledBySignal(SIGABRT), "");
}

// -- identifier of the unit -------------------------------------------------------------------------------------------

TEST_F(InitTest, SerialIsLettersAndDigitsAtTheStart) {
  const std::string str49(49, 'x');
  struct Row {
    const char* acLabel;
    std::string strFile, strSerial;
  };
  const Row rRows[] = {
      {"with newline", "aB3\n", "aB3"},
      {"without", "aB3", "aB3"},
      {"ends at a dash", "a-b", "a"},
      {"blank in front", " ab", ""},
      {"empty", "", ""},
      {"49 characters", str49, str49},
      {"more", str49 + "yz", str49},
      {"beyond ASCII", "a\xe9z", "a"},
      {"zero byte", std::string("a\0b", 3), "a"},
  };
  for (const Row& rRow : rRows) {
    WriteTestFile(SERIAL_FILE, rRow.strFile);
    Forget();
    EXPECT_EQ(rRecorder.InitRecorder(), 0);
    EXPECT_EQ(rRecorder.strSerial, rRow.strSerial) << rRow.acLabel;
    EXPECT_THAT(logsink::TakeTexts(), Contains("5 Serial number " + rRow.strSerial)) << rRow.acLabel;
    EXPECT_THAT(prDb->TakeCalls(), ElementsAre("InitRecorder " + rRow.strSerial + " Morvex" + rRow.strSerial))
        << rRow.acLabel;
  }
}

TEST_F(InitTest, MissingSerialFileGivesAnEmptySerial) {
  (void)remove(SERIAL_FILE);
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_EQ(rRecorder.strSerial, "");
}

// -- fields -----------------------------------------------------------------------------------------------------------

TEST_F(InitTest, WithoutSettingsFieldsHaveTheirDefaults) {
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  for (int i = 0; i <= DTMF_CODES; i++) EXPECT_EQ(rRecorder.strDTMF[i] + rRecorder.strDTMFact[i], "") << i;
  EXPECT_EQ(rRecorder.eRecEnc, RECENC_G711A);
  EXPECT_FALSE(rRecorder.fStereo || rRecorder.fMonitoring || rRecorder.fSilenceOnDemand || rRecorder.fRecCheck);
  EXPECT_FALSE(rRecorder.fALE || rRecorder.fLineNameInFileName || rRecorder.fCardNotInternal);
  EXPECT_FALSE(rRecorder.fDebugRepeatRecord || rRecorder.fCrecTestSwapLocRem || rRecorder.fNeedCallPost);
  EXPECT_EQ(rRecorder.iMaskLastRemoteDigits, 0);
  EXPECT_EQ(rRecorder.fStoreOnDemandDelay, 0);
  EXPECT_EQ(rRecorder.iCstaType, 0);
  EXPECT_EQ(rRecorder.strArchiveRoot, "/recordings");
  EXPECT_EQ(rRecorder.strRecordingRoot, "/recordings");
  EXPECT_THAT(rRecorder.vChannels, IsEmpty());
}

// Each switch is found in its own map and under its own key.
TEST_F(InitTest, SwitchesComeFromTheirMaps) {
  struct Row {
    const char* acKey;
    StdStringMap TRecorderBoot::*rMap;
    bool ICRecorder::*fField;
  };
  const Row rRows[] = {
      {"DebugRepeatRecord", &TRecorderBoot::rConfigs, &ICRecorder::fDebugRepeatRecord},
      {"CrecTestSwapLocRem", &TRecorderBoot::rConfigs, &ICRecorder::fCrecTestSwapLocRem},
      {"LineNameInFileName", &TRecorderBoot::rConfigs, &ICRecorder::fLineNameInFileName},
      {"Monitoring", &TRecorderBoot::rConfigsO, &ICRecorder::fMonitoring},
      {"SilOnDemand", &TRecorderBoot::rConfigsO, &ICRecorder::fSilenceOnDemand},
      {"CardNotInternal", &TRecorderBoot::rConfigsO, &ICRecorder::fCardNotInternal},
      {"RecCheck", &TRecorderBoot::rConfigsO, &ICRecorder::fRecCheck},
      {"ALE", &TRecorderBoot::rConfigsO, &ICRecorder::fALE},
      {"RecStereo", &TRecorderBoot::rConfigsO, &ICRecorder::fStereo},
  };
  StdStringMap TRecorderBoot::*const rMaps[] = {&TRecorderBoot::rConfigs, &TRecorderBoot::rConfigsO,
                                                &TRecorderBoot::rConfigsSys};
  struct Value {
    const char* acText;
    bool fOn;
  };
  const Value rValues[] = {{"1", true}, {"-1", true}, {"2", true}, {"0", false}, {"", false}, {"on", false}};
  for (const Row& rRow : rRows) {
    for (const auto rMap : rMaps) {
      for (const Value& rValue : rValues) {
        for (const auto rAny : rMaps) (rBoot.*rAny).clear();
        (rBoot.*rMap)[rRow.acKey] = rValue.acText;
        EXPECT_EQ(rRecorder.InitRecorder(), 0);
        EXPECT_EQ(rRecorder.*rRow.fField, rValue.fOn && rMap == rRow.rMap) << rRow.acKey << "=" << rValue.acText;
      }
    }
  }
}

TEST_F(InitTest, NumbersComeFromTheirMaps) {
  rBoot.rConfigsSys = {{"MaskLastRemoteDigits", "3"}};
  rBoot.rConfigsO = {{"MaskLastRemoteDigits", "9"}, {"CSTAType", "4"}};
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_EQ(rRecorder.iMaskLastRemoteDigits, 3);
  EXPECT_EQ(rRecorder.iCstaType, 4);
}

TEST_F(InitTest, StoreOnDemandDelayIsOneAboveZero) {
  struct Row {
    const char* acValue;
    int iField;
  };
  const Row rRows[] = {{"0", 0}, {"", 0}, {"1", 1}, {"30", 1}, {"-1", 0}};
  for (const Row& rRow : rRows) {
    rBoot.rConfigsO["StoreOnDemandDelay"] = rRow.acValue;
    EXPECT_EQ(rRecorder.InitRecorder(), 0);
    EXPECT_EQ(rRecorder.fStoreOnDemandDelay, rRow.iField) << rRow.acValue;
  }
}

TEST_F(InitTest, EncodingTextIsExact) {
  struct Row {
    const char* acText;
    ERecEncodings eRecEnc;
  };
  const Row rRows[] = {
      {"ulaw", RECENC_G711U}, {"gsm", RECENC_GSM},    {"mp3", RECENC_MP3},    {"", RECENC_G711A},
      {"alaw", RECENC_G711A}, {"ULAW", RECENC_G711A}, {"mp3 ", RECENC_G711A}, {"3", RECENC_G711A},
  };
  for (const Row& rRow : rRows) {
    rRecorder.eRecEnc = RECENC_GSM;  // of nothing that counts
    rBoot.rConfigsO["RecEnc"] = rRow.acText;
    Forget();
    EXPECT_EQ(rRecorder.InitRecorder(), 0);
    EXPECT_EQ(rRecorder.eRecEnc, rRow.eRecEnc) << rRow.acText;
    EXPECT_THAT(logsink::TakeTexts(), Contains("5 Encoding: " + std::string(rRow.acText)));
  }
}

TEST_F(InitTest, DtmfCodesRunFromOneToTen) {
  rBoot.rConfigsSys = {{"DTMF0", "0"}, {"DTMF11", "11"}};
  for (int i = 1; i <= 10; i++) {
    rBoot.rConfigsSys["DTMF" + std::to_string(i)] = "c" + std::to_string(i);
    rBoot.rConfigsSys["DTMFact" + std::to_string(i)] = "a" + std::to_string(i);
  }
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_EQ(rRecorder.strDTMF[0], "");
  for (int i = 1; i <= 10; i++) {
    EXPECT_EQ(rRecorder.strDTMF[i], "c" + std::to_string(i));
    EXPECT_EQ(rRecorder.strDTMFact[i], "a" + std::to_string(i));
  }
}

// -- working area -----------------------------------------------------------------------------------------------------

TEST_F(InitTest, WorkingAreaFollowsTwoOptions) {
  struct Row {
    const char* acAle;
    const char* acAleDisk;
    const char* acRoot;
    bool fMade;
  };
  const Row rRows[] = {
      {"0", "0", "/caller", false},        {"0", "1", "/caller", false},           {"1", "0", "/dev/shm/morvex", false},
      {"1", "", "/dev/shm/morvex", false}, {"1", "1", "/recordings/rectmp", true},
  };
  for (const Row& rRow : rRows) {
    rRecorder.strRecordingRoot = "/caller";
    rBoot.rConfigsO = {{"ALE", rRow.acAle}, {"AleDisk", rRow.acAleDisk}};
    EXPECT_EQ(rRecorder.InitRecorder(), 0);
    EXPECT_EQ(rRecorder.strRecordingRoot, rRow.acRoot) << rRow.acAle << rRow.acAleDisk;
    EXPECT_EQ(rRecorder.strArchiveRoot, "/recordings");
    EXPECT_EQ(file_exists(REC_TMP), rRow.fMade) << rRow.acAle << rRow.acAleDisk;
    EXPECT_FALSE(file_exists("/dev/shm/morvex"));
  }
  struct stat rStat;
  ASSERT_EQ(stat(REC_TMP, &rStat), 0);
  EXPECT_EQ(rStat.st_mode & 07777U, 0700U);
}

TEST_F(InitTest, WorkingAreaThatCannotBeMadeStopsNothing) {
  WriteTestFile(REC_TMP, "");
  ASSERT_EQ(mount(REC_TMP, REC_TMP, nullptr, MS_BIND, nullptr), 0);  // such a name cannot be taken away
  rBoot.rConfigsO = {{"ALE", "1"}, {"AleDisk", "1"}};
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  EXPECT_EQ(rRecorder.strRecordingRoot, REC_TMP);
  ASSERT_EQ(umount(REC_TMP), 0);
}

TEST_F(InitTest, WorkingAreaIsNoLinksTarget) {
  ASSERT_EQ(mkdir("/tmp/foreign", 0755), 0);
  ASSERT_EQ(symlink("/tmp/foreign", REC_TMP), 0);
  rBoot.rConfigsO = {{"ALE", "1"}, {"AleDisk", "1"}};
  EXPECT_EQ(rRecorder.InitRecorder(), 0);
  struct stat rStat;
  ASSERT_EQ(lstat(REC_TMP, &rStat), 0);
  EXPECT_EQ(rStat.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
  ASSERT_EQ(stat("/tmp/foreign", &rStat), 0);
  EXPECT_EQ(rStat.st_mode, static_cast<mode_t>(S_IFDIR | 0755));
}

// -- reloadable settings ----------------------------------------------------------------------------------------------

TEST_F(InitTest, ReloadableSettingsInOrder) {
  rBoot.rConfigsO = {{"NumberFilterType", "1"}, {"NumberFilters", " 1 ,2"},
                     {"CSTATelIPType", "2"},    {"CSTATelIPFilter", "123;abc,456, 7 ;x"},
                     {"DelOnDmdType", "3"},     {"DelOnDmdList", "3, 4"},
                     {"RecOnDmdType", "4"},     {"RecOnDmdList", "5 , 6"}};
  rRecorder.LoadReloadableSettings();
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 NumberFilterType: 1", "5 CSTAFilterType: 2", "5 DelOnDmdType: 3",
                                                "5 RecOnDmdType: 4", "5 RecOnDmd item: 5", "5 RecOnDmd item: 6"));
  EXPECT_EQ(rRecorder.iNumberFilterType, 1);
  EXPECT_EQ(rRecorder.iCstaMonitors, 2);
  EXPECT_EQ(rRecorder.iDelOnDmdType, 3);
  EXPECT_EQ(rRecorder.iRecOnDmdType, 4);
  EXPECT_THAT(rRecorder.astrNumberFilters, ElementsAre("1", "2"));
  EXPECT_THAT(rRecorder.astrCstaNumberFilters, ElementsAre("123", "456", " 7 "));
  EXPECT_THAT(rRecorder.astrDelOnDmdList, ElementsAre("3", "4"));
  EXPECT_THAT(rRecorder.astrRecOnDmdList, ElementsAre("5", "6"));
}

TEST_F(InitTest, EmptyNumberFilterIsNoFilter) {
  rRecorder.astrNumberFilters = {"old"};
  rRecorder.LoadReloadableSettings();
  EXPECT_THAT(rRecorder.astrNumberFilters, IsEmpty());
  rBoot.rConfigsO["NumberFilters"] = ",";
  rRecorder.LoadReloadableSettings();
  EXPECT_THAT(rRecorder.astrNumberFilters, ElementsAre("", ""));
  rBoot.rConfigsO["NumberFilters"] = " ";  // trim leaves a text of blanks as it is
  rRecorder.LoadReloadableSettings();
  EXPECT_THAT(rRecorder.astrNumberFilters, ElementsAre(" "));
}

TEST_F(InitTest, EmptyListSettingsLeaveOneEmptyItem) {
  rRecorder.LoadReloadableSettings();
  EXPECT_THAT(rRecorder.astrDelOnDmdList, ElementsAre(""));
  EXPECT_THAT(rRecorder.astrRecOnDmdList, ElementsAre(""));
  EXPECT_THAT(rRecorder.astrCstaNumberFilters, ElementsAre(""));
  EXPECT_THAT(logsink::TakeTexts(), Contains("5 RecOnDmd item: "));
}

TEST_F(InitTest, PostCallWorkFollowsMailsOrForceLink) {
  struct Row {
    const char* acLabel;
    const char* acEmailRecs;
    const char* acForceLink;
    bool fNeeded;
  };
  const Row rRows[] = {
      {"none", "", "", false}, {"mails", "all", "", true}, {"mails 0", "0", "0", true},
      {"link", "", "1", true}, {"link 0", "", "0", false}, {"link below 0", "", "-1", false},
  };
  for (const Row& rRow : rRows) {
    rBoot.rConfigsSys["EmailRecs"] = rRow.acEmailRecs;
    rBoot.rConfigsO["SforceLink"] = rRow.acForceLink;
    rRecorder.LoadReloadableSettings();
    EXPECT_EQ(rRecorder.fNeedCallPost, rRow.fNeeded) << rRow.acLabel;
  }
}

TEST_F(InitTest, ReconfigureReadsOptionsAgainAndTouchesNothingElse) {
  rBoot.rConfigsO = {{"NumberFilters", "1"}, {"Monitoring", "1"}};
  rBoot.rConfigsSys = {{"EmailRecs", ""}};
  OneLine();
  ASSERT_EQ(rRecorder.InitRecorder(), 0);
  const std::vector<BaseChannel*> vChannels = rRecorder.vChannels;
  Forget();
  prDb->rParts["o"] = {{"NumberFilters", "2,3"}, {"Monitoring", "0"}, {"RecEnc", "gsm"}, {"ALE", "1"}};
  prDb->rParts["s"] = {{"EmailRecs", "all"}};
  rRecorder.Reconfigure();
  EXPECT_THAT(rRecorder.astrNumberFilters, ElementsAre("2", "3"));
  EXPECT_TRUE(rRecorder.fMonitoring);
  EXPECT_EQ(rRecorder.eRecEnc, RECENC_G711A);
  EXPECT_FALSE(rRecorder.fALE || rRecorder.fNeedCallPost);
  EXPECT_EQ(rRecorder.vChannels, vChannels);
  EXPECT_THAT(simcards::TakeCalls(), IsEmpty());
  EXPECT_THAT(logsink::TakeTexts(), ElementsAre("5 NumberFilterType: 0", "5 CSTAFilterType: 0", "5 DelOnDmdType: 0",
                                                "5 RecOnDmdType: 0", "5 RecOnDmd item: "));
}

TEST_F(InitTest, ReconfigureWithoutDatabaseEmptiesTheOptions) {
  rBoot.rConfigsO = {{"NumberFilters", "1"}};
  rRecorder.LoadReloadableSettings();
  prDb->fDown = true;
  rRecorder.Reconfigure();
  EXPECT_THAT(rRecorder.astrNumberFilters, IsEmpty());
}

}  // namespace
