#include "settingstable.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "TestFiles.h"

// The table of all settings, held against the sources that ask for them.

namespace {

const std::string SOURCES = MORVEX_SOURCE_DIR "/src/";

std::string Source(const std::string& strName) {
  return std::regex_replace(ReadTestFile(SOURCES + strName), std::regex("//[^\n]*"), "");
}

// Without the two that hand a key on which others name, and without the table itself.
std::vector<std::string> SourceNames(const std::string& strEnding) {
  const std::set<std::string> rLeftOut = {"recorder_settings.cpp", "database_configs.cpp", "settingstable.cpp",
                                          "settingstable.h"};
  std::vector<std::string> astrNames;
  for (const auto& rEntry : std::filesystem::directory_iterator(SOURCES)) {
    const std::string strName = rEntry.path().filename();
    if (rEntry.path().extension() == strEnding && rLeftOut.count(strName) == 0) astrNames.push_back(strName);
  }
  return astrNames;
}

// -- keys that the sources name ---------------------------------------------------------------------------------------

constexpr int ANY_OF_THEM = -1;

// What opens a call that looks a key up, and what that says about the key's row. What stands in front of the key in
// Configs, where the call itself puts it there, is given for a board "Syn1" and its channel 0.
struct Lookup {
  const char* acOpener;
  const char* acFront;
  int iPart;
  int iScope;
};
const Lookup LOOKUPS[] = {
    {R"(\bGetOSetting\()", "", PART_O, SCOPE_UNIT},
    {R"(\bGetSysSetting\()", "", PART_S, SCOPE_UNIT},
    {R"(\bGetConfig(?:Int)?\()", "", PART_ANY, SCOPE_UNIT},
    {R"(\bGetParamInt\()", "", PART_CREC, SCOPE_UNIT},
    {R"(\bIsSpecial\()", "Special_", PART_CREC, SCOPE_UNIT},
    {R"(\b(?:GetBoardParam(?:Int|Str)|BoardInt|[GS]etBoardDataInt)\((?:iBoardListIx, )?)", "Syn1_", PART_CREC,
     SCOPE_BOARD},
    {R"(\b(?:GetChannelParam(?:Int|Str|IntLive)|ChannelSetting|Param)\((?:iBoardCh, iBoardListIx, )?)", "Syn1_",
     PART_CREC, SCOPE_CHANNEL_LIST},
    {R"(\b[GS]etChannelDataStr\((?:iBoardCh, iBoardListIx, )?)", "Syn1_0_", PART_CREC, SCOPE_CHANNEL},
    {R"(\b[GS]etCrecSetting\()", "", PART_CREC, ANY_OF_THEM},
    {R"(\bValueOf\(r(?:Configs|Cfg)\w*, )", "", ANY_OF_THEM, ANY_OF_THEM},
    {R"(\br(?:New)?Configs\w*\[)", "", ANY_OF_THEM, ANY_OF_THEM},
    {R"(\brOneRow\{\{)", "", ANY_OF_THEM, ANY_OF_THEM},
};

// What stands in a composed key, with an example of each.
const std::map<std::string, std::string> PIECES = {
    {"g_cfgPrefix", ""},
    {"strDay", "srMonday"},
    {"strId", "Syn1"},
    {"strEntry", "Syn1"},
    {"rBoard.getId()", "Syn1"},
    {"ToStdString(i)", "10"},
    {"rList.acKey", "StartCndList"},
};
// Helpers hand a key on under these names; "const" begins the parameters of one.
const std::set<std::string> HANDED_ON = {"acKey", "acParam", "const"};

// The key that the expression at this place makes, of examples; nothing when it is handed on.
std::optional<std::string> KeyAt(const std::string& strText, std::size_t iPos, const std::string& strPlace) {
  static const std::regex rOperand(R"re((?: \+ )?("\w*"|rBoard\.getId\(\)|ToStdString\(i\)|[\w.]+))re");
  std::string strKey;
  std::smatch rMatch;
  auto it = strText.cbegin() + static_cast<std::ptrdiff_t>(iPos);
  bool fFirst = true;
  while (std::regex_search(it, strText.cend(), rMatch, rOperand, std::regex_constants::match_continuous)) {
    if (fFirst != (rMatch.str().find(" + ") != 0)) break;
    const std::string strPiece = rMatch[1];
    if (fFirst && HANDED_ON.count(strPiece) != 0) return std::nullopt;
    if (strPiece.front() == '"') {
      strKey += strPiece.substr(1, strPiece.size() - 2);
    } else if (PIECES.count(strPiece) != 0) {
      strKey += PIECES.at(strPiece);
    } else {
      ADD_FAILURE() << strPlace << ": the test does not know what " << strPiece << " stands for";
    }
    it = rMatch[0].second;
    fFirst = false;
  }
  if (fFirst) ADD_FAILURE() << strPlace << ": the test finds no key";
  return strKey;
}

// The rows of all keys that the sources name; a key without row, or of another part or scope, fails the test.
std::set<const SettingRow*> RowsThatSourcesName() {
  std::set<const SettingRow*> rNamed;
  for (const std::string& strName : SourceNames(".cpp")) {
    const std::string strText = Source(strName);
    for (const Lookup& rLookup : LOOKUPS) {
      const std::regex rOpener(rLookup.acOpener);
      for (std::sregex_iterator it(strText.begin(), strText.end(), rOpener), itEnd; it != itEnd; ++it) {
        const std::string strPlace = strName + ", " + it->str();
        const auto rKey = KeyAt(strText, static_cast<std::size_t>(it->position() + it->length()), strPlace);
        if (!rKey) continue;
        const SettingRow* prRow = ParseSettingName(rLookup.acFront + *rKey).prRow;
        EXPECT_NE(prRow, nullptr) << strPlace << *rKey << ": the table has no such setting";
        if (prRow == nullptr) continue;
        EXPECT_TRUE(rLookup.iPart == ANY_OF_THEM || rLookup.iPart == static_cast<int>(prRow->ePart))
            << strPlace << *rKey << ": part";
        EXPECT_TRUE(rLookup.iScope == ANY_OF_THEM || rLookup.iScope == static_cast<int>(prRow->eScope))
            << strPlace << *rKey << ": scope";
        rNamed.insert(prRow);
      }
    }
  }
  return rNamed;
}

// All that one group of a pattern matches in a source, as a comma list.
std::string AllOf(const std::string& strSource, const std::string& strPattern) {
  const std::string strText = Source(strSource);
  const std::regex rPattern(strPattern);
  std::string strAll;
  for (std::sregex_iterator it(strText.begin(), strText.end(), rPattern), itEnd; it != itEnd; ++it) {
    strAll += (strAll.empty() ? "" : ",") + it->str(1);
  }
  return strAll;
}

const SettingRow& RowOf(const std::string& strParam) {
  const SettingRow* prRow = ParseSettingName(strParam).prRow;
  EXPECT_NE(prRow, nullptr) << strParam;
  return prRow == nullptr ? SETTING_ROWS[0] : *prRow;
}

}  // namespace

TEST(SettingsTable, EachKeyOfTheSourcesHasARowAndEachRowAKeyInTheSources) {
  std::set<const SettingRow*> rNamed = RowsThatSourcesName();
  // Their keys stand in a table of their own.
  const std::string strLists = AllOf("recorder_conditions.cpp", R"re(\{"(\w+)", &TBoard::v\w+Cnds\})re");
  EXPECT_EQ(strLists, "StartCndList,StopCndList,RingOnCndList,RingOffCndList");
  for (const char* acKey : {"StartCndList", "StopCndList", "RingOnCndList", "RingOffCndList"}) {
    rNamed.insert(&RowOf(std::string("Syn1_") + acKey));
  }
  for (const SettingRow& rRow : SETTING_ROWS) {
    if (rRow.eScope == SCOPE_FILE) continue;
    EXPECT_EQ(rNamed.count(&rRow), 1U) << rRow.acKey << ": no source names it";
  }
}

TEST(SettingsTable, EachFileOfTheSourcesHasARowAndEachRowAFileInTheSources) {
  const std::regex rPath("\"" + std::string(SETTING_FILES_DIR) + "(\\w+)\"");
  std::set<std::string> rOfSources, rOfTable;
  for (const char* acEnding : {".cpp", ".h"}) {
    for (const std::string& strName : SourceNames(acEnding)) {
      const std::string strText = Source(strName);
      for (std::sregex_iterator it(strText.begin(), strText.end(), rPath), itEnd; it != itEnd; ++it) {
        rOfSources.insert(it->str(1));
      }
    }
  }
  for (const SettingRow& rRow : SETTING_ROWS) {
    if (rRow.eScope == SCOPE_FILE) rOfTable.insert(rRow.acKey);
  }
  EXPECT_EQ(rOfTable, rOfSources);
}

TEST(SettingsTable, DefaultsAndWordsAreThoseOfTheSources) {
  const std::string strText = Source("recorder_settings.cpp");
  const std::regex rBuiltIn(R"re(\{"(\w+)", (\d+)\})re");
  int iBuiltIns = 0;
  for (std::sregex_iterator it(strText.begin(), strText.end(), rBuiltIn), itEnd; it != itEnd; ++it, ++iBuiltIns) {
    EXPECT_EQ(RowOf("Syn1_" + it->str(1)).acDefault, it->str(2)) << it->str(1);
  }
  EXPECT_EQ(iBuiltIns, 6);
  EXPECT_EQ(RowOf("Syn1_PBXType").acDefault, AllOf("recorder_boards.cpp", R"re(DEFAULT_PBX_TYPE = "([^"]*)")re"));

  const std::string strBegins = "," + AllOf("DstChannel.cpp", R"re(\{PBX_BEGINS, "([^"]*)")re") + ",";
  std::string strPbxWords;
  const std::regex rItem("[^,]+");
  const std::string strAll = AllOf("DstChannel.cpp", R"re(\{PBX_(?:BEGINS|WHOLE), "([^"]*)")re");
  for (std::sregex_iterator it(strAll.begin(), strAll.end(), rItem), itEnd; it != itEnd; ++it) {
    strPbxWords += (strPbxWords.empty() ? "" : ",") + it->str();
    if (strBegins.find("," + it->str() + ",") != std::string::npos) strPbxWords += "*";
  }
  EXPECT_EQ(RowOf("Syn1_PBXType").rValues.acWords, strPbxWords);
  EXPECT_EQ(RowOf("DTMFact1").rValues.acWords,
            AllOf("BaseChannel_number.cpp", R"re(\{"(\w+)",\s*\[\]\(BaseChannel)re"));
  EXPECT_EQ(RowOf("CalcChecksum").rValues.acWords, AllOf("bgact_audioconv.cpp", R"re(\{"(\w+)", "\w+sum"\})re"));
  EXPECT_EQ(RowOf("RecEnc").rValues.acWords, "alaw," + AllOf("recorder_init.cpp", R"re(strText == "(\w+)")re"));
}

// A missing value counts as 0, which is no mistake.
TEST(SettingsTable, RangesHoldZero) {
  for (const SettingRow& rRow : SETTING_ROWS) {
    EXPECT_TRUE(rRow.rValues.iMin <= 0 && rRow.rValues.iMax >= 0) << rRow.acKey;
  }
}

TEST(SettingsTable, NamesAreTakenApart) {
  struct Row {
    const char* acParam;
    const char* acKey;  // empty: no setting
    const char* acBoard;
    int iChannel;
  };
  const Row rRows[] = {
      {"crec", "crec", "", -1},
      {"RecEnc", "RecEnc", "", -1},
      {"recenc", "", "", -1},
      {"RecEnc ", "", "", -1},
      {"", "", "", -1},
      {"DTMF1", "DTMF<n>", "", -1},
      {"DTMF10", "DTMF<n>", "", -1},
      {"DTMF0", "", "", -1},
      {"DTMF11", "", "", -1},
      {"DTMF", "", "", -1},
      {"DTMF<n>", "", "", -1},
      {"DTMFact7", "DTMFact<n>", "", -1},
      {"srSundayStart1", "sr<day>Start1", "", -1},
      {"srSaturdayStop2", "sr<day>Stop2", "", -1},
      {"srSonntagStart1", "", "", -1},
      {"srStart1", "", "", -1},
      {"srWeekdays", "srWeekdays", "", -1},
      {"Special_Pilot", "Special_Pilot", "", -1},
      {"Syn1001_PBXType", "PBXType", "Syn1001", -1},
      {"Syn12AB_Trigger", "Trigger", "Syn12AB", -1},
      {"PBXType", "", "", -1},
      {"_PBXType", "", "", -1},
      {"Syn_PBXType", "", "", -1},
      {"Card1001_PBXType", "", "", -1},
      {"Syn1001_3_PBXType", "", "", -1},
      {"Syn1001_RecEnc", "", "", -1},
      {"Syn1001_3_LocalNum", "LocalNum", "Syn1001", 3},
      {"Syn1001_LocalNum", "", "", -1},
      {"Syn1001_x_LocalNum", "", "", -1},
      {"Syn1001_123456_LocalNum", "", "", -1},
      {"Card1001_3_LocalNum", "", "", -1},
      {"Syn1001_LocalNumTime", "LocalNumTime", "Syn1001", -1},
      {"CardList", "CardList", "", -1},
      {"E2E1-CardList", "CardList", "", -1},
      {"-CardList", "CardList", "", -1},
      {"E2E1CardList", "", "", -1},
      {"Prev_Syn1001_Present", "Prev_<board>_Present", "", -1},
      {"Prev__Present", "", "", -1},
      {"Syn1001_Present", "Present", "Syn1001", -1},
      {"_Present", "Present", "", -1},
      {"Syn1001_Line", "Line", "Syn1001", -1},
      {"/var/morvex/conf/opt_cluster", "opt_cluster", "", -1},
      {"opt_cluster", "", "", -1},
  };
  for (const Row& rRow : rRows) {
    const SettingName rName = ParseSettingName(rRow.acParam);
    EXPECT_STREQ(rName.prRow == nullptr ? "" : rName.prRow->acKey, rRow.acKey) << rRow.acParam;
    EXPECT_EQ(rName.strBoard, rRow.acBoard) << rRow.acParam;
    EXPECT_EQ(rName.iChannel, rRow.iChannel) << rRow.acParam;
  }
}
