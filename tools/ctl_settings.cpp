// What is there: the table of all settings beside the rows of Configs. A file that switches something stands among the
// rows with its path as name, and without a part.
#include "ctl_settings.h"

#include <filesystem>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <pqxx/pqxx>
#include <utility>

#include "ctl_database.h"
#include "ctl_status.h"
#include "ctl_text.h"
#include "settingstable.h"

namespace {

// What the recorder cannot have but another schema may, it reads as empty.
constexpr const char* READ_CONFIGS =
    "SELECT param, COALESCE(value, ''), COALESCE(part, '') FROM Configs ORDER BY param, part, value";
constexpr const char* FILE_IS_THERE = "there";
constexpr const char* NOTHING = "-";

const char* PartText(const SettingRow& rRow) {
  if (rRow.ePart == PART_ANY) return "any";
  return rRow.ePart == PART_NONE ? NOTHING : PartOf(rRow);
}

const char* ScopeText(ESettingScope eScope) {
  switch (eScope) {
    case SCOPE_UNIT:
      return "unit";
    case SCOPE_NODE:
      return "node";
    case SCOPE_BOARD:
      return "board";
    case SCOPE_CHANNEL_LIST:
      return "channels";
    case SCOPE_CHANNEL:
      return "channel";
    case SCOPE_FILE:
      break;
  }
  return "file";
}

const char* TypeText(ESettingType eType) {
  switch (eType) {
    case TYPE_FLAG:
    case TYPE_ONE:
      return "switch";
    case TYPE_NUMBER:
      return "number";
    case TYPE_WORD:
      return "word";
    case TYPE_PBX:
    case TYPE_TEXT:
      return "text";
    case TYPE_LIST:
    case TYPE_CONDITIONS:
      return "list";
    case TYPE_WEEKDAYS:
      return "days";
    case TYPE_TIME:
      return "time";
    case TYPE_PRESENCE:
      break;
  }
  return "presence";
}

const char* HoldsText(ESettingHolds eHolds) {
  switch (eHolds) {
    case HOLDS_FROM_START:
      return "from the next start";
    case HOLDS_FROM_RECONFIG:
      return "from reconfig";
    case HOLDS_AT_ONCE:
      return "at once";
    case HOLDS_AS_DAEMON_SAYS:
      break;
  }
  return "written by the recorder";
}

std::string DefaultText(const SettingRow& rRow) {
  return *rRow.acDefault == '\0' ? NOTHING : rRow.acDefault;
}

std::string NumberText(const SettingValues& rValues) {
  if (rValues.iMin == INT_MIN) return "any number";
  if (rValues.iMax == INT_MAX) return std::to_string(rValues.iMin) + " or more";
  return std::to_string(rValues.iMin) + " to " + std::to_string(rValues.iMax);
}

// "Siemens*,NEC" as "Siemens..., NEC"
std::string WordsText(const std::string& strWords) {
  std::string strText;
  for (const char ch : strWords) {
    if (ch == '*') {
      strText += "...";
    } else {
      strText += ch;
      if (ch == ',') strText += ' ';
    }
  }
  return strText;
}

std::string Quoted(const std::string& strText) {
  return "'" + strText + "'";
}

// The rows of Configs by setting, those of one in their order.
using RowsBySetting = std::multimap<const SettingRow*, const ConfigRow*>;

RowsBySetting SortRows(const std::vector<ConfigRow>& vRows) {
  RowsBySetting rSorted;
  for (const ConfigRow& rConfig : vRows) rSorted.emplace(ParseSettingName(rConfig.strParam).prRow, &rConfig);
  return rSorted;
}

std::vector<ConfigRow> RowsOf(const SettingRow& rRow, const RowsBySetting& rSorted) {
  std::vector<ConfigRow> vOwn;
  const auto [itBegin, itEnd] = rSorted.equal_range(&rRow);
  for (auto it = itBegin; it != itEnd; ++it) vOwn.push_back(*it->second);
  return vOwn;
}

std::string PartOf(const ConfigRow& rConfig) {
  return rConfig.strPart.empty() ? NOTHING : rConfig.strPart;
}

// -- the document -----------------------------------------------------------------------------------------------------

constexpr const char* MARKDOWN_HEAD = R"(# Settings

<!-- made by script/settings --write from src/settingstable.h -->

Everything that the daemon reads besides its cards. A setting is a row of the table `Configs`: a name, a value, and the part that
it belongs to. In another part than its own it is not seen, except where the part is "any". Names and words count to the letter,
capitals too. Of a text that should be a number the digits in front count; what is missing, empty or without digits counts as 0,
and where 0 makes no sense as the default.

`morvex_ctl settings` lists them with their present values.
`morvex_ctl settings --check` tells what the daemon would take otherwise than it looks.
`morvex_ctl set` writes one, after the same checks.

A change holds at once where the daemon asks anew each time, from the order `reconfig` where that is said, and else from the next
start.

A board id is "Syn" and the serial number of the card. Of `DTMF<n>` and `DTMFact<n>` there are ten, with 1 to 10 for the n; of
`sr<day>Start1` and the like there are seven, with the English name of the day, such as `srMondayStart1`. How lines of each kind use
the settings of boards and channels stands in [lines.md](lines.md).
)";

// The title of the chapter that a row stands in.
std::string ChapterOf(const SettingRow& rRow) {
  if (rRow.eHolds == HOLDS_AS_DAEMON_SAYS) return "Written by the daemon";
  switch (rRow.eScope) {
    case SCOPE_BOARD:
      return "Of a board, in part \"crec\"";
    case SCOPE_CHANNEL_LIST:
      return "Of a channel, in part \"crec\"";
    case SCOPE_FILE:
      return "Files";
    default:  // a chapter for each part; the other scopes are those of what the daemon writes
      break;
  }
  if (rRow.ePart == PART_ANY) return "Of the unit, in any part";
  return std::string("Of the unit, in part \"") + PartText(rRow) + "\"";
}

const char* ChapterText(const SettingRow& rRow) {
  if (rRow.eHolds == HOLDS_AS_DAEMON_SAYS)
    return "Nobody else has reason to. `Line` stands in part \"crec_line\", the others in \"crec\".";
  switch (rRow.eScope) {
    case SCOPE_BOARD:
      return "The name is `<board>_` and the key.";
    case SCOPE_CHANNEL_LIST:
      return "The name is `<board>_` and the key, the value a comma list: one item for each channel of the board, from "
             "channel 0 on.";
    case SCOPE_FILE:
      return "In `/var/morvex/conf`.";
    default:
      return "";
  }
}

// What stands in angle brackets would be taken for a tag.
std::string MarkdownText(const std::string& strText) {
  std::string strMarkdown;
  for (const char ch : strText) strMarkdown += ch == '<' ? std::string("&lt;") : std::string(1, ch);
  return strMarkdown;
}

std::string MarkdownRow(const SettingRow& rRow) {
  return std::string("| `") + rRow.acKey + "` | " + TypeText(rRow.rValues.eType) + " | " + ValuesText(rRow) + " | " +
         DefaultText(rRow) + " | " + HoldsText(rRow.eHolds) + " | " + MarkdownText(rRow.acMeaning) + " |\n";
}

int PrintSetting(const SettingsView& rView, const std::vector<ConfigRow>& vRows) {
  const SettingRow* prRow = FindSetting(rView.strKey);
  if (prRow == nullptr) {
    std::cerr << Masked("There is no setting " + rView.strKey + NearestSettingText(rView.strKey)) << ".\n";
    return CTL_USAGE;
  }
  if (rView.fJson) {
    std::cout << JsonToText(SettingsToJson(vRows, prRow), /*iIndent=*/2) << "\n";
  } else {
    std::cout << SettingToText(*prRow, vRows);
  }
  return CTL_OK;
}

int PrintFindings(const SettingsView& rView, const std::vector<ConfigRow>& vRows) {
  const std::vector<SettingFinding> vFindings = CheckSettings(vRows);
  if (rView.fJson) {
    std::cout << JsonToText(FindingsToJson(vFindings), /*iIndent=*/2) << "\n";
  } else {
    std::cout << FindingsToText(vFindings);
  }
  return vFindings.empty() ? CTL_OK : CTL_BAD_SETTING;
}

}  // namespace

bool ReadConfigs(std::vector<ConfigRow>& vRows, std::string& strError, const std::string& strConnection) {
  vRows.clear();
  try {
    pqxx::connection rConnection(strConnection.empty() ? DAEMON_DATABASE : strConnection);
    pqxx::work rWork(rConnection);
    for (const pqxx::row& rRow : rWork.exec(READ_CONFIGS)) {
      vRows.push_back({rRow[0].as<std::string>(), rRow[1].as<std::string>(), rRow[2].as<std::string>()});
    }
  } catch (const std::exception& rError) {  // the library reports by exceptions; here they end
    vRows.clear();
    strError = rError.what();
    return false;
  }
  for (const SettingRow& rRow : SETTING_ROWS) {
    std::error_code rIgnored;  // what cannot be looked at is not there
    if (rRow.eScope == SCOPE_FILE && std::filesystem::exists(KeyText(rRow), rIgnored)) {
      vRows.push_back({KeyText(rRow), FILE_IS_THERE, ""});
    }
  }
  return true;
}

std::string KeyText(const SettingRow& rRow) {
  switch (rRow.eScope) {
    case SCOPE_BOARD:
    case SCOPE_CHANNEL_LIST:
      return std::string("<board>_") + rRow.acKey;
    case SCOPE_CHANNEL:
      return std::string("<board>_<channel>_") + rRow.acKey;
    case SCOPE_FILE:
      return std::string(SETTING_FILES_DIR) + rRow.acKey;
    case SCOPE_UNIT:
    case SCOPE_NODE:
      break;
  }
  return rRow.acKey;
}

std::string ValuesText(const SettingRow& rRow) {
  switch (rRow.rValues.eType) {
    case TYPE_FLAG:
      return "0 off, 1 on";
    case TYPE_ONE:
      return "1 on, all else off";
    case TYPE_NUMBER:
      return NumberText(rRow.rValues);
    case TYPE_WORD:
      return WordsText(rRow.rValues.acWords);
    case TYPE_PBX:
      return WordsText(rRow.rValues.acWords) + ", others";
    case TYPE_TEXT:
      return "any";
    case TYPE_LIST:
      return "comma list";
    case TYPE_CONDITIONS:
      return "comma list of codes in hexadecimal, with a sub-reason behind a point if one counts";
    case TYPE_WEEKDAYS:
      return "digits, 1 Sunday to 7 Saturday";
    case TYPE_TIME:
      return "hour:minute";
    case TYPE_PRESENCE:
      break;
  }
  return "there or not";
}

const char* PartOf(const SettingRow& rRow) {
  switch (rRow.ePart) {
    case PART_S:
      return "s";
    case PART_O:
      return "o";
    case PART_CREC:
      return "crec";
    case PART_CREC_LINE:
      return "crec_line";
    case PART_ANY:
    case PART_NONE:
      break;
  }
  return "";
}

const SettingRow* FindSetting(const std::string& strKey) {
  for (const SettingRow& rRow : SETTING_ROWS) {
    if (strKey == rRow.acKey || FitsKey(rRow.acKey, strKey)) return &rRow;
  }
  return ParseSettingName(strKey).prRow;
}

std::string SettingsToText(const std::vector<ConfigRow>& vRows) {
  std::vector<std::vector<std::string>> vTable = {{"KEY", "PART", "SCOPE", "DEFAULT", "PRESENT", "A CHANGE HOLDS"}};
  const RowsBySetting rSorted = SortRows(vRows);
  for (const SettingRow& rRow : SETTING_ROWS) {
    const std::vector<ConfigRow> vOwn = RowsOf(rRow, rSorted);
    const std::string strScope = ScopeText(rRow.eScope);
    if (vOwn.empty()) {
      vTable.push_back({KeyText(rRow), PartText(rRow), strScope, DefaultText(rRow), NOTHING, HoldsText(rRow.eHolds)});
    }
    for (const ConfigRow& rConfig : vOwn) {
      vTable.push_back({rConfig.strParam, PartOf(rConfig), strScope, DefaultText(rRow), Quoted(rConfig.strValue),
                        HoldsText(rRow.eHolds)});
    }
  }
  return Table(std::move(vTable));
}

std::string SettingToText(const SettingRow& rRow, const std::vector<ConfigRow>& vRows) {
  std::string strText = KeyText(rRow) + "\n  " + rRow.acMeaning + "\n";
  const std::pair<const char*, std::string> rFacts[] = {
      {"part           ", PartText(rRow)},         {"scope          ", ScopeText(rRow.eScope)},
      {"values         ", ValuesText(rRow)},       {"default        ", DefaultText(rRow)},
      {"a change holds ", HoldsText(rRow.eHolds)},
  };
  for (const auto& [acName, strFact] : rFacts) strText.append("  ").append(acName).append(strFact).append("\n");
  const std::vector<ConfigRow> vOwn = RowsOf(rRow, SortRows(vRows));
  if (vOwn.empty()) return strText + "It is not set.\n";
  std::vector<std::vector<std::string>> vTable = {{"KEY", "PART", "PRESENT"}};
  for (const ConfigRow& rConfig : vOwn) vTable.push_back({rConfig.strParam, PartOf(rConfig), Quoted(rConfig.strValue)});
  return strText + Table(std::move(vTable));
}

nlohmann::json SettingsToJson(const std::vector<ConfigRow>& vRows, const SettingRow* prOnly) {
  nlohmann::json rSettings = nlohmann::json::array();
  const RowsBySetting rSorted = SortRows(vRows);
  for (const SettingRow& rRow : SETTING_ROWS) {
    if (prOnly != nullptr && prOnly != &rRow) continue;
    nlohmann::json rPresent = nlohmann::json::array();
    for (const ConfigRow& rConfig : RowsOf(rRow, rSorted)) {
      rPresent.push_back({{"param", rConfig.strParam}, {"part", rConfig.strPart}, {"value", rConfig.strValue}});
    }
    rSettings.push_back({{"key", KeyText(rRow)},
                         {"part", PartText(rRow)},
                         {"scope", ScopeText(rRow.eScope)},
                         {"type", TypeText(rRow.rValues.eType)},
                         {"values", ValuesText(rRow)},
                         {"default", rRow.acDefault},
                         {"holds", HoldsText(rRow.eHolds)},
                         {"meaning", rRow.acMeaning},
                         {"present", rPresent}});
  }
  return rSettings;
}

std::string SettingsToMarkdown() {
  std::string strText = MARKDOWN_HEAD;
  std::string strChapter;
  for (const SettingRow& rRow : SETTING_ROWS) {
    if (ChapterOf(rRow) != strChapter) {
      strChapter = ChapterOf(rRow);
      strText += "\n## " + strChapter + "\n\n";
      if (*ChapterText(rRow) != '\0') strText.append(ChapterText(rRow)).append("\n\n");
      strText += "| Key | Type | Values | Default | A change holds | Meaning |\n|---|---|---|---|---|---|\n";
    }
    strText += MarkdownRow(rRow);
  }
  return strText;
}

int RunSettings(const SettingsView& rView) {
  if (rView.fMarkdown) {
    std::cout << SettingsToMarkdown();
    return CTL_OK;
  }
  std::vector<ConfigRow> vRows;
  std::string strError;
  if (!ReadConfigs(vRows, strError)) {
    std::cerr << "The database cannot be read: " << MaskedLines(strError) << "\n";
    return CTL_NO_DATABASE;
  }
  if (rView.fCheck) return PrintFindings(rView, vRows);
  if (!rView.strKey.empty()) return PrintSetting(rView, vRows);
  if (rView.fJson) {
    std::cout << JsonToText(SettingsToJson(vRows), /*iIndent=*/2) << "\n";
  } else {
    std::cout << SettingsToText(vRows);
  }
  return CTL_OK;
}
