// Tests of the settings: maps, lookups for boards and channels, and what is written back.
#include <csignal>

#include "RecorderBench.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// -- lookups ----------------------------------------------------------------------------------------------------------

// Two boards: a present analogue card "Syn100" and one that is away, "SynOLD".
class SettingsTest : public RecorderBench {
 protected:
  void SetUp() override { rBoot.vrBoardList = {Present("ATP-24A", "100", 24, 0), Away("SynOLD", 8)}; }
};
using SettingsDeathTest = SettingsTest;

TEST_F(SettingsTest, CachedReadAsksTheMapAndLiveReadTheDatabase) {
  rBoot.rConfigs["NoWriteIni"] = "cached";
  prDb->rParts["crec"]["NoWriteIni"] = "live";
  EXPECT_EQ(rBoot.GetCrecSetting("NoWriteIni", CFG_CACHED_LOAD), "cached");
  EXPECT_EQ(rBoot.GetCrecSetting("NoWriteIni", CFG_LIVE_LOAD), "live");
}

TEST_F(SettingsTest, EachReaderNamesItsMap) {
  rBoot.rConfigs["k"] = "crec";
  rBoot.rConfigsO["k"] = "o";
  rBoot.rConfigsSys["k"] = "s";
  EXPECT_EQ(rBoot.GetCrecSetting("k", CFG_CACHED_LOAD), "crec");
  EXPECT_EQ(rBoot.GetOSetting("k"), "o");
  EXPECT_EQ(rBoot.GetSysSetting("k"), "s");
  EXPECT_EQ(rBoot.GetOSetting("other"), "");
}

TEST_F(SettingsTest, WrittenSettingReachesTheDatabaseButNotTheCache) {
  rBoot.SetCrecSetting("Syn100_3_LocalNum", "31");
  EXPECT_THAT(prDb->TakeCalls(), ElementsAre("SetConfig crec Syn100_3_LocalNum=31"));
  EXPECT_EQ(rBoot.GetCrecSetting("Syn100_3_LocalNum", CFG_CACHED_LOAD), "");
  EXPECT_EQ(rBoot.GetCrecSetting("Syn100_3_LocalNum", CFG_LIVE_LOAD), "31");
}

TEST_F(SettingsTest, ChannelParamIsTheItemOfTheChannel) {
  struct Row {
    const char* acLabel;
    const char* acList;
    int iBoardCh;
    const char* acItem;
  };
  const Row rRows[] = {
      {"first", "a,b,,d", 0, "a"},         {"last", "a,b,,d", 3, "d"},         {"empty item", "a,b,,d", 2, ""},
      {"behind the end", "a,b,,d", 9, ""}, {"before the start", "a", -1, ""},  {"empty list", "", 0, ""},
      {"no comma", "abc", 0, "abc"},       {"blanks stay", "a, b ", 1, " b "},
  };
  for (const Row& rRow : rRows) {
    rBoot.rConfigs["Syn100_P"] = rRow.acList;
    EXPECT_EQ(rBoot.GetChannelParamStr(rRow.iBoardCh, 0, "P", CFG_CACHED_LOAD), rRow.acItem) << rRow.acLabel;
  }
}

TEST_F(SettingsTest, BoardIdOfAnAbsentBoardIsTheRememberedOne) {
  rBoot.rConfigs["SynOLD_P"] = "x,y";
  EXPECT_EQ(rBoot.GetChannelParamStr(1, 1, "P", CFG_CACHED_LOAD), "y");
  EXPECT_EQ(rBoot.GetBoardParamStr(1, "P"), "x,y");
}

TEST_F(SettingsTest, BuiltInValueTakesThePlaceOfZero) {
  struct Row {
    const char* acParam;
    const char* acList;
    int iValue;
  };
  const Row rRows[] = {
      {"Trigger", "0", 1},     {"SilenceTimeOut", "0", 15}, {"OffHookThr", "0", 26}, {"AudioThr", "0", 12},
      {"Trigger", "", 1},      {"SilenceTimeOut", "", 15},  {"OffHookThr", "", 26},  {"AudioThr", "", 12},
      {"Trigger", "4", 4},     {"SilenceTimeOut", "7", 7},  {"OffHookThr", "5", 5},  {"AudioThr", "3", 3},
      {"OffHookThr", "x", 26}, {"Amplify", "0", 0},         {"Amplify", "", 0},      {"Amplify", "-2", -2},
      {"SilenceT", "0", 0},    {"AudioSens", "0", 0},
  };
  for (const Row& rRow : rRows) {
    rBoot.rConfigs["Syn100_" + std::string(rRow.acParam)] = rRow.acList;
    EXPECT_EQ(rBoot.GetChannelParamInt(0, 0, rRow.acParam, CFG_CACHED_LOAD), rRow.iValue)
        << rRow.acParam << " '" << rRow.acList << "'";
  }
}

TEST_F(SettingsTest, BuiltInValueOfABoardTakesThePlaceOfZero) {
  struct Row {
    const char* acParam;
    const char* acValue;
    int iValue;
  };
  const Row rRows[] = {
      {"SilenceT", "0", 15}, {"SilenceT", "", 15},   {"SilenceT", "20", 20},
      {"AudioSens", "0", 6}, {"AudioSens", "", 6},   {"AudioSens", "9", 9},
      {"Trigger", "0", 0},   {"AudioDetect", "", 0}, {"AudioDetect", "1", 1},
  };
  for (const Row& rRow : rRows) {
    rBoot.rConfigs["Syn100_" + std::string(rRow.acParam)] = rRow.acValue;
    EXPECT_EQ(rBoot.GetBoardParamInt(0, rRow.acParam), rRow.iValue) << rRow.acParam << " '" << rRow.acValue << "'";
  }
}

TEST_F(SettingsTest, ChannelsReadTheCacheExceptByTheLiveSlot) {
  rBoot.rConfigs["Syn100_CheckLineStatus"] = "0,0";
  prDb->rParts["crec"]["Syn100_CheckLineStatus"] = "0,1";
  EXPECT_EQ(rRecorder.GetChannelParamStr(1, 0, "CheckLineStatus"), "0");
  EXPECT_EQ(rRecorder.GetChannelParamInt(1, 0, "CheckLineStatus"), 0);
  EXPECT_EQ(rRecorder.GetChannelParamIntLive(1, 0, "CheckLineStatus"), 1);
  EXPECT_EQ(rRecorder.GetChannelParamIntLive(0, 0, "OffHookThr"), 26);
}

TEST_F(SettingsTest, RecorderAndBoardSettingsOfChannels) {
  rBoot.rConfigs = {{"R2NumSplit", "1"},
                    {"Syn100_SwapSides", "2x"},
                    {"Special_Pilot", "1"},
                    {"Special_Off", "0"},
                    {"Special_High", "4294967296"}};
  EXPECT_EQ(rRecorder.GetParamInt("R2NumSplit"), 1);
  EXPECT_EQ(rRecorder.GetParamInt("OffHookThr"), 0);
  EXPECT_EQ(rRecorder.GetBoardParamStr(0, "SwapSides"), "2x");
  EXPECT_EQ(rRecorder.GetBoardParamInt(0, "SwapSides"), 2);
  EXPECT_EQ(rRecorder.GetBoardParamInt(0, "AudioSens"), 6);
  EXPECT_TRUE(rRecorder.IsSpecial("Pilot"));
  EXPECT_FALSE(rRecorder.IsSpecial("Off"));
  EXPECT_TRUE(rRecorder.IsSpecial("High"));
  EXPECT_FALSE(rRecorder.IsSpecial("Other"));
}

TEST_F(SettingsDeathTest, ParamOfABoardThatIsNotListedEndsTheProcess) {
  for (const int iBoardListIx : {-1, 2}) {
    EXPECT_EXIT(rBoot.GetChannelParamStr(0, iBoardListIx, "P", CFG_CACHED_LOAD), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(rBoot.GetChannelParamStr(0, iBoardListIx, "P", CFG_LIVE_LOAD), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(rBoot.GetChannelParamInt(0, iBoardListIx, "P", CFG_CACHED_LOAD), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(rBoot.GetBoardParamStr(iBoardListIx, "P"), testing::KilledBySignal(SIGABRT), "");
    EXPECT_EXIT(rBoot.GetBoardParamInt(iBoardListIx, "P"), testing::KilledBySignal(SIGABRT), "");
  }
}

TEST_F(SettingsTest, DataOfABoardThatIsNotListedIsEmptyAndTouchesNoDatabase) {
  rBoot.rConfigs = {{"_N", "5"}, {"_0_S", "x"}, {"Syn_N", "5"}};
  rBoot.prDatabase.reset();  // any use would crash
  for (const int iBoardListIx : {-1, 2}) {
    EXPECT_EQ(rBoot.GetBoardDataInt(iBoardListIx, "N"), 0);
    EXPECT_EQ(rBoot.GetChannelDataStr(0, iBoardListIx, "S"), "");
    rBoot.SetBoardDataInt(iBoardListIx, "N", 1);
    rBoot.SetChannelDataStr(0, iBoardListIx, "S", "x");
  }
}

TEST_F(SettingsTest, DataAreReadFromTheCacheAndWrittenAtOnce) {
  rBoot.rConfigs = {{"Syn100_LocalNumTime", "1700000000"}, {"Syn100_3_LocalNum", "31"}, {"SynOLD_2_LocalNum", "32"}};
  EXPECT_EQ(rBoot.GetBoardDataInt(0, "LocalNumTime"), 1700000000);
  EXPECT_EQ(rBoot.GetBoardDataInt(1, "LocalNumTime"), 0);
  EXPECT_EQ(rBoot.GetChannelDataStr(3, 0, "LocalNum"), "31");
  EXPECT_EQ(rBoot.GetChannelDataStr(2, 1, "LocalNum"), "32");
  rBoot.SetBoardDataInt(0, "LocalNumTime", -7);
  rBoot.SetChannelDataStr(12, 1, "LocalNum", "33");
  EXPECT_THAT(prDb->TakeCalls(),
              ElementsAre("SetConfig crec Syn100_LocalNumTime=-7", "SetConfig crec SynOLD_12_LocalNum=33"));
  EXPECT_EQ(rBoot.GetBoardDataInt(0, "LocalNumTime"), 1700000000);
}

// -- reloading and writing back ---------------------------------------------------------------------------------------

TEST_F(SettingsTest, ReloadChangesTheOptionsAlone) {
  rBoot.rConfigs = {{"a", "1"}};
  rBoot.rConfigsSys = {{"b", "2"}};
  rBoot.rConfigsO = {{"gone", "3"}, {"kept", "4"}};
  prDb->rParts = {{"crec", {{"a", "9"}}}, {"s", {{"b", "9"}}}, {"o", {{"kept", "5"}, {"new", "6"}}}};
  rBoot.ReloadDbConfig();
  EXPECT_EQ(rBoot.rConfigs, (StdStringMap{{"a", "1"}}));
  EXPECT_EQ(rBoot.rConfigsSys, (StdStringMap{{"b", "2"}}));
  EXPECT_EQ(rBoot.rConfigsO, (StdStringMap{{"kept", "5"}, {"new", "6"}}));
}

TEST_F(SettingsTest, WhatIsReportedGoesToTheDatabaseEachTime) {
  rBoot.rNewConfigs = {{"CardList", "Syn100"}, {"CardDriverVersion", "5.4.1.8"}};
  const Texts astrRows = {"SetConfig crec CardDriverVersion=5.4.1.8", "SetConfig crec CardList=Syn100"};
  rBoot.WriteNewConfigsToDB();
  EXPECT_EQ(prDb->TakeCalls(), astrRows);
  rBoot.WriteNewConfigsToDB();
  EXPECT_EQ(prDb->TakeCalls(), astrRows);
  EXPECT_THAT(rBoot.rConfigs, IsEmpty());
}

}  // namespace
