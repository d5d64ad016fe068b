#include <gtest/gtest.h>

#include "ctl_settings.h"

// What a change of a setting comes to, before it is written.

namespace {

const std::vector<ConfigRow> ROWS = {
    {"RecEnc", "gsm", "crec"},
    {"RecMinDur", "3", "s"},
    {"Syn1001_MaxChannels", "4", "crec"},
    {"Syn1001_Trigger", "1,9,3", "crec"},
};

// The plan as people see it, or its complaint with the exit status.
std::string Plan(const std::string& strKey, const std::string& strValue, const std::string& strBoard = "",
                 int iChannel = -1, const std::string& strPart = "") {
  SettingChange rChange;
  rChange.strKey = strKey;
  rChange.strValue = strValue;
  rChange.strBoard = strBoard;
  rChange.iChannel = iChannel;
  rChange.strPart = strPart;
  const SettingPlan rPlan = PlanChange(rChange, ROWS);
  if (rPlan.strComplaint.empty()) return PlanToText(rPlan);
  return std::to_string(rPlan.eExit) + " " + rPlan.strComplaint;
}

}  // namespace

TEST(CtlSettingsSet, ValueGoesIntoItsPart) {
  EXPECT_EQ(Plan("RecEnc", "mp3"), "RecEnc (part o)\n  before  'gsm'\n  after   'mp3'\n");
  EXPECT_EQ(Plan("ALE", "1", "", -1, "o"), "ALE (part o)\n  before  -\n  after   '1'\n");
  EXPECT_EQ(Plan("RecEnc", ""), "RecEnc (part o)\n  before  'gsm'\n  after   ''\n");
  EXPECT_EQ(Plan("DTMF3", "*3"), "DTMF3 (part s)\n  before  -\n  after   '*3'\n");
  EXPECT_EQ(Plan("NumberFilters", "1\x1b'; DROP"), "NumberFilters (part o)\n  before  -\n  after   '1?'; DROP'\n");
  EXPECT_EQ(Plan("ALE", "1", "", -1, "crec"), "2 ALE: the recorder does not see it in part 'crec'; its part is 'o'");
}

TEST(CtlSettingsSet, ValueThatCountsInAnyPartStaysWhereItIs) {
  EXPECT_EQ(Plan("RecMinDur", "5"), "RecMinDur (part s)\n  before  '3'\n  after   '5'\n");
  EXPECT_EQ(Plan("RecMinDur", "5", "", -1, "o"), "RecMinDur (part o)\n  before  '3'\n  after   '5'\n");
  EXPECT_EQ(Plan("RecLocal", "1"), "RecLocal (part o)\n  before  -\n  after   '1'\n");
  EXPECT_EQ(Plan("RecLocal", "1", "", -1, "web"), "RecLocal (part web)\n  before  -\n  after   '1'\n");
}

TEST(CtlSettingsSet, BoardStandsInTheKeyOrBesideIt) {
  const std::string strPlan = "Syn1001_TdmStart (part crec)\n  before  -\n  after   '1'\n";
  EXPECT_EQ(Plan("TdmStart", "1", "Syn1001"), strPlan);
  EXPECT_EQ(Plan("Syn1001_TdmStart", "1"), strPlan);
  EXPECT_EQ(Plan("Syn1001_TdmStart", "1", "Syn1002"), "2 Syn1001_TdmStart: it names the board already");
  EXPECT_EQ(Plan("TdmStart", "1"), "2 TdmStart: it is a setting of a board: name it by --board");
  EXPECT_EQ(Plan("TdmStart", "1", "1001"), "2 TdmStart: '1001' is no board id such as Syn1001");
  EXPECT_EQ(Plan("RecEnc", "mp3", "Syn1001"), "2 RecEnc: it is a setting of the unit, not of a board");
}

TEST(CtlSettingsSet, ItemOfOneChannelIsChangedAlone) {
  const std::string strBefore = "Syn1001_Trigger (part crec)\n  before  '1,9,3'\n  after   ";
  EXPECT_EQ(Plan("Trigger", "2", "Syn1001", 0), strBefore + "'2,9,3'\n");
  EXPECT_EQ(Plan("Trigger", "2", "Syn1001", 1), strBefore + "'1,2,3'\n");
  EXPECT_EQ(Plan("Syn1001_Trigger", "", "", 2), strBefore + "'1,9,'\n");
  EXPECT_EQ(Plan("Trigger", "2", "Syn1001", 3), strBefore + "'1,9,3,2'\n");
  EXPECT_EQ(Plan("Trigger", "1,2,3,4", "Syn1001"), strBefore + "'1,2,3,4'\n");
  EXPECT_EQ(Plan("AGC", "1", "Syn1001", 2), "Syn1001_AGC (part crec)\n  before  -\n  after   ',,1'\n");
  EXPECT_EQ(Plan("AGC", "1", "Syn7", 9), "Syn7_AGC (part crec)\n  before  -\n  after   ',,,,,,,,,1'\n");
  EXPECT_EQ(Plan("Trigger", "2", "Syn1001", 4), "13 Syn1001_Trigger: the board has 4 channels, counted from 0");
  EXPECT_EQ(Plan("Trigger", "1,2", "Syn1001", 1),
            "2 Trigger: a comma parts the channels, so the value of one has none");
  EXPECT_EQ(Plan("TdmStart", "1", "Syn1001", 1), "2 TdmStart: it is not a setting of channels");
  EXPECT_EQ(Plan("RecEnc", "mp3", "", 1), "2 RecEnc: it is not a setting of channels");
}

TEST(CtlSettingsSet, WrongValueIsRefused) {
  EXPECT_EQ(Plan("RecEnc", "MP3"), "13 RecEnc: 'MP3' is none of alaw, ulaw, gsm, mp3; write 'mp3'");
  EXPECT_EQ(Plan("PBXType", "Panasonic", "Syn1001"),
            "13 Syn1001_PBXType: 'Panasonic' is a PBX without rules of its own; write 'PANASONIC'");
  EXPECT_EQ(Plan("Trigger", "9", "Syn1001", 0), "13 Syn1001_Trigger: '9' is not in the range 0 to 4");
  EXPECT_EQ(Plan("Trigger", "1,9,8", "Syn1001"), "13 Syn1001_Trigger: channel 1: '9' is not in the range 0 to 4");
  EXPECT_EQ(Plan("Trigger", "1,1,1,1,1", "Syn1001"), "13 Syn1001_Trigger: 5 items, but the board has 4 channels");
}

TEST(CtlSettingsSet, WhatIsNoSettingOfAnybodysIsRefused) {
  EXPECT_EQ(Plan("RecEncc", "mp3"), "2 There is no setting RecEncc (is it RecEnc?)");
  EXPECT_EQ(Plan("Theirs", "1"), "2 There is no setting Theirs");
  EXPECT_EQ(Plan("DTMF<n>", "1"), "2 DTMF<n>: put a number, a day or a board in the place of <...>");
  EXPECT_EQ(Plan("CardList", "Syn1"), "2 CardList: the recorder writes it");
  EXPECT_EQ(Plan("Syn1001_Present", "1"), "2 Syn1001_Present: the recorder writes it");
  EXPECT_EQ(Plan("opt_cluster", "1"), "2 opt_cluster: it is a file");
}
