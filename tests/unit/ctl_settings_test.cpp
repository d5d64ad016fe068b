#include "ctl_settings.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "TestFiles.h"
#include "settingstable.h"

// The settings as people and scripts see them.

namespace {

const std::vector<ConfigRow> ROWS = {
    {"RecEnc", "mp3\x1b[31m", "o"},
    {"Syn1001_Trigger", "1,2", "crec"},
    {"Syn1002_Trigger", "", "crec"},
    {"Theirs", "7", "web"},
};

const SettingRow& Setting(const std::string& strKey) {
  const SettingRow* prRow = FindSetting(strKey);
  EXPECT_NE(prRow, nullptr) << strKey;
  return prRow == nullptr ? SETTING_ROWS[0] : *prRow;
}

// Of a table, its heading and the lines that begin with one of these.
std::string LinesOf(const std::string& strTable, const std::vector<std::string>& astrStarts) {
  std::istringstream rLines(strTable);
  std::string strText;
  for (std::string strLine; std::getline(rLines, strLine);) {
    for (const std::string& strStart : astrStarts) {
      if (strLine.rfind(strStart, 0) == 0) strText += strLine + "\n";
    }
  }
  return strText;
}

}  // namespace

TEST(CtlSettings, ListHasALineForEachRowAndForWhatIsNotSet) {
  EXPECT_EQ(
      LinesOf(SettingsToText(ROWS), {"KEY", "crec ", "RecEnc", "RecMinDur", "Syn", "<board>_Trigger", "Theirs",
                                     "<board>_SwapSides", "<board>_<channel>", "/var/morvex/conf/serial"}),
      "KEY                                 PART       SCOPE     DEFAULT               PRESENT     A CHANGE HOLDS\n"
      "crec                                s          unit      0                     -           from the next start\n"
      "RecEnc                              o          unit      alaw                  'mp3?[31m'  from the next start\n"
      "RecMinDur                           any        unit      0                     -           at once\n"
      "<board>_SwapSides                   crec       board     0                     -           from the next start\n"
      "Syn1001_Trigger                     crec       channels  1                     '1,2'       from the next start\n"
      "Syn1002_Trigger                     crec       channels  1                     ''          from the next start\n"
      "<board>_<channel>_LocalNum          crec       channel   -                     -           written by the "
      "recorder\n"
      "/var/morvex/conf/serial             -          file      -                     -           from the next "
      "start\n");
}

TEST(CtlSettings, OneSettingIsToldWhole) {
  EXPECT_EQ(SettingToText(Setting("Trigger"), ROWS),
            "<board>_Trigger\n"
            "  Analogue lines: what a call is: 1 off hook, 2 sound, 3 nothing, 4 all the time.\n"
            "  part           crec\n"
            "  scope          channels\n"
            "  values         0 to 4\n"
            "  default        1\n"
            "  a change holds from the next start\n"
            "KEY              PART  PRESENT\n"
            "Syn1001_Trigger  crec  '1,2'\n"
            "Syn1002_Trigger  crec  ''\n");
  EXPECT_EQ(
      SettingToText(Setting("DTMF3"), ROWS),
      "DTMF<n>\n"
      "  A code of digits: once they are dialled in a call, what DTMFact<n> says is done. The first code that ends "
      "the digits wins.\n"
      "  part           s\n"
      "  scope          unit\n"
      "  values         any\n"
      "  default        -\n"
      "  a change holds from the next start\n"
      "It is not set.\n");
}

TEST(CtlSettings, SettingIsFoundWithAndWithoutItsBoard) {
  EXPECT_EQ(&Setting("Syn1001_Trigger"), &Setting("Trigger"));
  EXPECT_EQ(&Setting("/var/morvex/conf/opt_cluster"), &Setting("opt_cluster"));
  EXPECT_EQ(&Setting("srMondayStart1"), &Setting("sr<day>Start1"));
  EXPECT_EQ(FindSetting("trigger"), nullptr);
  EXPECT_EQ(FindSetting("Syn1001_RecEnc"), nullptr);
}

TEST(CtlSettings, ValuesAreToldInWords) {
  const std::pair<const char*, const char*> rRows[] = {
      {"RecStereo", "0 off, 1 on"},
      {"crec", "1 on, all else off"},
      {"CSTAType", "any number"},
      {"RecMinDur", "0 or more"},
      {"TdmStart", "0 to 3"},
      {"RecEnc", "alaw, ulaw, gsm, mp3"},
      {"PBXType",
       "Siemens..., Ericsson..., Belgacom, Alcatel..., Aastra 5000, Avaya Mer..., PANASONIC, NEC, ISDN..., others"},
      {"EmailRecs", "any"},
      {"NumberFilters", "comma list"},
      {"StartCndList", "comma list of codes in hexadecimal, with a sub-reason behind a point if one counts"},
      {"srWeekdays", "digits, 1 Sunday to 7 Saturday"},
      {"srMondayStop1", "hour:minute"},
      {"opt_cluster", "there or not"},
  };
  for (const auto& [acKey, acValues] : rRows) EXPECT_EQ(ValuesText(Setting(acKey)), acValues) << acKey;
}

TEST(CtlSettings, JsonHasTheSameFacts) {
  EXPECT_EQ(SettingsToJson(ROWS, FindSetting("Trigger")), nlohmann::json::parse(R"([{
    "key": "<board>_Trigger", "part": "crec", "scope": "channels", "type": "number", "values": "0 to 4", "default": "1",
    "holds": "from the next start",
    "meaning": "Analogue lines: what a call is: 1 off hook, 2 sound, 3 nothing, 4 all the time.",
    "present": [{"param": "Syn1001_Trigger", "part": "crec", "value": "1,2"},
                {"param": "Syn1002_Trigger", "part": "crec", "value": ""}]
  }])"));
  const nlohmann::json rAll = SettingsToJson(ROWS);
  EXPECT_EQ(rAll.size(), std::size(SETTING_ROWS));
  EXPECT_EQ(rAll[0]["key"], "crec");
  EXPECT_EQ(rAll[0]["present"], nlohmann::json::array());
}

TEST(CtlSettings, DocumentIsThatOfTheTable) {
  EXPECT_EQ(ReadTestFile(MORVEX_SOURCE_DIR "/docs/settings.md"), SettingsToMarkdown())
      << "script/settings --write makes it anew";
}

TEST(CtlSettings, DatabaseThatCannotBeReachedIsTold) {
  std::vector<ConfigRow> vRows = ROWS;
  std::string strError;
  EXPECT_FALSE(ReadConfigs(vRows, strError, "host=/tmp/nowhere dbname=morvex"));
  EXPECT_TRUE(vRows.empty());
  EXPECT_NE(strError.find("/tmp/nowhere"), std::string::npos);
}
