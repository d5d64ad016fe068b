#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "ctl_settings.h"
#include "settingstable.h"

// What the recorder would take otherwise than it looks.

namespace {

std::string Check(const std::vector<ConfigRow>& vRows) {
  return FindingsToText(CheckSettings(vRows));
}

constexpr const char* NOTHING = "Nothing found.\n";

// What the recorder itself writes at a start with two cards, and during calls.
const std::vector<ConfigRow> WRITTEN = {
    {"CardDriverVersion", "5.0.3.7", "crec"},
    {"CardList", "Syn1001,Syn1002", "crec"},
    {"E2E1-CardList", "Syn1001", "crec"},
    {"Syn1001_Channels", "8", "crec"},
    {"Syn1001_MaxChannels", "8", "crec"},
    {"Syn1001_Model", "ATP8", "crec"},
    {"Syn1001_Present", "1", "crec"},
    {"Syn1001_SN", "1001", "crec"},
    {"Syn1001_StartCh", "0", "crec"},
    {"Syn1001_3_LocalNum", "22", "crec"},
    {"Syn1001_LocalNumTime", "170000", "crec"},
    {"Syn1002_Line", "1", "crec_line"},
    {"Syn1002_MaxChannels", "30", "crec"},
    {"Syn1002_Model", "DTP120", "crec"},
    {"_Present", "0", "crec"},
    {"/var/morvex/conf/serial", "there", ""},
};

}  // namespace

TEST(CtlSettingsCheck, WhatTheRecorderWritesIsNeverComplainedAbout) {
  EXPECT_EQ(Check(WRITTEN), NOTHING);
  EXPECT_EQ(Check({}), NOTHING);
}

TEST(CtlSettingsCheck, KeyInAnotherPartIsToldItsOwn) {
  EXPECT_EQ(Check({{"RecEnc", "mp3", "crec"}, {"SilOnDemand", "1", "crec"}, {"crec", "1", "o"}}),
            "RecEnc: the recorder does not see it in part 'crec'; its part is 'o'\n"
            "SilOnDemand: the recorder does not see it in part 'crec'; its part is 'o'\n"
            "crec: the recorder does not see it in part 'o'; its part is 's'\n");
  EXPECT_EQ(Check({{"Syn1001_Trigger", "2", "o"}}),
            "Syn1001_Trigger: the recorder does not see it in part 'o'; its part is 'crec'\n");
  for (const char* acPart : {"o", "s", "crec", "web", ""}) EXPECT_EQ(Check({{"RecMinDur", "3", acPart}}), NOTHING);
}

TEST(CtlSettingsCheck, UnknownKeyCountsInTheRecordersPartAndNearAKnownOne) {
  struct Row {
    ConfigRow rConfig;
    const char* acText;
  };
  const Row rRows[] = {
      {{"Theirs", "1", "web"}, NOTHING},
      {{"Theirs", "1", "o"}, NOTHING},
      {{"Theirs", "1", "crec"}, "Theirs: the recorder knows no such setting\n"},
      {{"RecEncc", "1", "o"}, "RecEncc: the recorder knows no such setting (is it RecEnc?)\n"},
      {{"recenc", "1", "o"}, "recenc: the recorder knows no such setting (is it RecEnc?)\n"},
      {{"NumbrFilter", "1", "o"}, "NumbrFilter: the recorder knows no such setting (is it NumberFilters?)\n"},
      {{"Recording", "1", "o"}, NOTHING},
      {{"ale", "1", "o"}, "ale: the recorder knows no such setting (is it ALE?)\n"},
      {{"ALT", "1", "o"}, NOTHING},
      {{"Model", "1", "o"}, NOTHING},
      {{"Trigger", "1", "crec"}, "Trigger: the recorder knows no such setting (is it <board>_Trigger?)\n"},
      {{"Syn1001_Tigger", "1", "crec"},
       "Syn1001_Tigger: the recorder knows no such setting (is it Syn1001_Trigger?)\n"},
      {{"Syn1001_RecEnc", "1", "crec"}, "Syn1001_RecEnc: the recorder knows no such setting (is it RecEnc?)\n"},
      {{"Syn1001_Colour", "1", "crec"}, "Syn1001_Colour: the recorder knows no such setting\n"},
      {{"DTMF11", "1", "s"}, NOTHING},
      {{"\x1b[31m", "1", "crec"}, "?[31m: the recorder knows no such setting\n"},
  };
  for (const Row& rRow : rRows) EXPECT_EQ(Check({rRow.rConfig}), rRow.acText) << rRow.rConfig.strParam;
}

TEST(CtlSettingsCheck, KeyInTwoRowsIsToldOnce) {
  EXPECT_EQ(Check({{"RecMinDur", "3", "o"}, {"RecMinDur", "4", "s"}, {"Theirs", "1", "o"}, {"Theirs", "1", "s"}}),
            "RecMinDur: stands in 2 rows; which of them counts is left to chance\n");
  EXPECT_EQ(Check({{"ALE", "1", "o"}, {"ALE", "1", "o"}, {"ALE", "0", "o"}, {"ALE", "0", "s"}}),
            "ALE: stands in 3 rows; which of them counts is left to chance\n"
            "ALE: the recorder does not see it in part 's'; its part is 'o'\n");
}

TEST(CtlSettingsCheck, ValuesAreHeldAgainstTheTable) {
  struct Row {
    const char* acKey;
    const char* acValue;
    const char* acText;
  };
  const Row rRows[] = {
      {"RecStereo", "", ""},
      {"RecStereo", "0", ""},
      {"RecStereo", "1", ""},
      {"RecStereo", "2", ""},
      {"RecStereo", " 1\n", ""},
      {"RecStereo", "yes", "'yes' is no number"},
      {"RecStereo", "1x", "'1x' is no number"},
      {"RecStereo", "-", "'-' is no number"},
      {"crec", "1", ""},
      {"crec", "2", "'2' counts as off: only 1 is on"},
      {"RecMinDur", "3", ""},
      {"RecMinDur", "2147483647", ""},
      {"RecMinDur", "-1", "'-1' is not in the range 0 or more"},
      {"RecMinDur", "2147483648", "'2147483648' is not in the range 0 or more"},
      {"RecMinDur", "1234567890123456", "'1234567890123456' is no number"},
      {"CSTAType", "-5", ""},
      {"TdmStart", "3", ""},
      {"TdmStart", "4", "'4' is not in the range 0 to 3"},
      {"Trigger", "9", "'9' is not in the range 0 to 4"},
      {"RecEnc", "", ""},
      {"RecEnc", "mp3", ""},
      {"RecEnc", "MP3", "'MP3' is none of alaw, ulaw, gsm, mp3; write 'mp3'"},
      {"RecEnc", "mp3 ", "'mp3 ' is none of alaw, ulaw, gsm, mp3; write 'mp3'"},
      {"RecEnc", "opus", "'opus' is none of alaw, ulaw, gsm, mp3"},
      {"CalcChecksum", "sha256", ""},
      {"CalcChecksum", "crc32", "'crc32' is none of md5, sha1, sha256, sha512"},
      {"DTMFact1", "sound", ""},
      {"DTMFact1", "noise", "'noise' is none of email, email2, keep, silence, sound, start, stop, delete"},
      {"PBXType", "", ""},
      {"PBXType", "Siemens Hicom/Hipath", ""},
      {"PBXType", "PANASONIC", ""},
      {"PBXType", "Lucent Definity", ""},
      {"PBXType", "Avaya Definity", ""},
      {"PBXType", "Aastra 4000", ""},
      {"PBXType", "Panasonic", "'Panasonic' is a PBX without rules of its own; write 'PANASONIC'"},
      {"PBXType", "PANASONIC ", "'PANASONIC ' is a PBX without rules of its own; write 'PANASONIC'"},
      {"PBXType", "nec", "'nec' is a PBX without rules of its own; write 'NEC'"},
      {"PBXType", "Belgacon", "'Belgacon' is a PBX without rules of its own; write 'Belgacom'"},
      {"PBXType", "AASTRA5000", "'AASTRA5000' is a PBX without rules of its own; write 'Aastra 5000'"},
      {"PBXType", "SIEMENS Hipath", "'SIEMENS Hipath' is a PBX without rules of its own; write 'Siemens' at its begin"},
      {"PBXType", "Ericson MD110", "'Ericson MD110' is a PBX without rules of its own; write 'Ericsson' at its begin"},
      {"PBXType", "isdn", "'isdn' is a PBX without rules of its own; write 'ISDN' at its begin"},
      {"EmailRecs", "0", ""},
      {"NumberFilters", "22, 23", ""},
      {"StartCndList", "1304, 1100.2,,ABCdef.0", ""},
      {"StartCndList", "1304, 0x1100", "'0x1100' is no code such as 1304 or 1100.2"},
      {"StartCndList", "0", "'0' is no code such as 1304 or 1100.2"},
      {"StartCndList", ".2", "'.2' is no code such as 1304 or 1100.2"},
      {"StartCndList", "1304.", "'1304.' is no code such as 1304 or 1100.2"},
      {"StartCndList", "1304.x", "'1304.x' is no code such as 1304 or 1100.2"},
      {"srWeekdays", "23456", ""},
      {"srWeekdays", "2, 3", ""},
      {"srWeekdays", "0", "'0' names other days than 1, Sunday, to 7, Saturday"},
      {"srMondayStart1", "", ""},
      {"srMondayStart1", "8:30", ""},
      {"srMondayStop1", "24:00", ""},
      {"srMondayStart1", "9", "'9' is no time of day such as 8:30"},
      {"srMondayStart1", "25:00", "'25:00' is no time of day such as 8:30"},
      {"srMondayStart1", "8:60", "'8:60' is no time of day such as 8:30"},
      {"srMondayStart1", "8:", "'8:' is no time of day such as 8:30"},
      {"srMondayStart1", ":30", "':30' is no time of day such as 8:30"},
      {"srMondayStart1", "8:-1", "'8:-1' is no time of day such as 8:30"},
  };
  for (const Row& rRow : rRows) {
    const SettingRow* prRow = FindSetting(rRow.acKey);
    ASSERT_NE(prRow, nullptr) << rRow.acKey;
    EXPECT_EQ(CheckValue(*prRow, rRow.acValue), rRow.acText) << rRow.acKey;
  }
}

TEST(CtlSettingsCheck, ListOfChannelsIsCheckedItemByItem) {
  std::vector<ConfigRow> vRows = {{"Syn1001_Trigger", "1,9,,x\x1b,3", "crec"}};
  EXPECT_EQ(Check(vRows),
            "Syn1001_Trigger: channel 1: '9' is not in the range 0 to 4\n"
            "Syn1001_Trigger: channel 3: 'x?' is no number\n");
  // Five items, while the board is not known, then with 4, 5 and a number of lines that says nothing.
  vRows[0].strValue = "1,1,1,1,1";
  vRows.push_back({"Syn1001_MaxChannels", "4", "crec"});
  EXPECT_EQ(Check(vRows), "Syn1001_Trigger: 5 items, but the board has 4 channels\n");
  vRows[1].strValue = "5";
  EXPECT_EQ(Check(vRows), NOTHING);
  vRows[1].strValue = "none";
  EXPECT_EQ(Check(vRows), NOTHING);
  vRows[0].strValue = "1,1,1,1,";
  vRows[1].strValue = "4";
  EXPECT_EQ(Check(vRows), NOTHING) << "what is behind the last comma is no item";
}

TEST(CtlSettingsCheck, TrunkCardHasTwoChannelsForEachLine) {
  EXPECT_EQ(ChannelsOfBoard("Syn1001", WRITTEN), 8);
  EXPECT_EQ(ChannelsOfBoard("Syn1002", WRITTEN), 60);
  EXPECT_EQ(ChannelsOfBoard("Syn1003", WRITTEN), -1);
}

TEST(CtlSettingsCheck, JsonHasTheSameFacts) {
  EXPECT_EQ(FindingsToJson(CheckSettings({{"RecEnc", "MP3", "crec"}})), nlohmann::json::parse(R"([
    {"param": "RecEnc", "part": "crec", "text": "the recorder does not see it in part 'crec'; its part is 'o'"},
    {"param": "RecEnc", "part": "crec", "text": "'MP3' is none of alaw, ulaw, gsm, mp3; write 'mp3'"}
  ])"));
  EXPECT_EQ(FindingsToJson({}), nlohmann::json::array());
}
