// What the recorder would take otherwise than it looks. It takes any text: what is no number counts as the digits in
// front, a word that is written differently as none, and a key in another part as not there, all without a message.
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <utility>

#include "ctl_settings.h"
#include "ctl_text.h"
#include "settingstable.h"

namespace {

// Two directions of 30 lines each are the channels of a trunk card; the rows count its lines.
constexpr const char* TRUNK_MODEL_START = "DTP";
constexpr int TRUNK_CHANNELS_OF_LINE = 2;

// Keys so short are another's when they differ in more than capitals, and longer ones when two letters differ.
constexpr std::size_t ONE_SLIP_CHARS = 5;
constexpr std::size_t TWO_SLIPS_CHARS = 9;

std::string Lower(std::string strText) {
  for (char& ch : strText) ch = static_cast<char>(tolower(static_cast<unsigned char>(ch)));
  return strText;
}

bool Begins(const std::string& strText, const std::string& strStart) {
  return strText.compare(0, strStart.size(), strStart) == 0;
}

// In how many letters two texts differ: those to add, to leave out and to exchange.
std::size_t EditDistance(const std::string& strA, const std::string& strB) {
  std::vector<std::size_t> vRow(strB.size() + 1);
  for (std::size_t i = 0; i < vRow.size(); i++) vRow[i] = i;
  for (std::size_t iA = 1; iA <= strA.size(); iA++) {
    std::size_t iDiagonal = vRow[0];
    vRow[0] = iA;
    for (std::size_t iB = 1; iB <= strB.size(); iB++) {
      const std::size_t iExchanged = iDiagonal + (strA[iA - 1] == strB[iB - 1] ? 0 : 1);
      iDiagonal = vRow[iB];
      vRow[iB] = std::min({vRow[iB - 1] + 1, vRow[iB] + 1, iExchanged});
    }
  }
  return vRow[strB.size()];
}

// Whether one may have been meant where the other stands. Capitals alone always are a slip.
bool IsLike(const std::string& strText, const std::string& strKnown) {
  const std::size_t iSlips = EditDistance(Lower(strText), Lower(strKnown));
  if (strKnown.size() < ONE_SLIP_CHARS) return iSlips == 0;
  return iSlips <= (strKnown.size() < TWO_SLIPS_CHARS ? 1 : 2);
}

std::vector<std::string> SplitAt(const std::string& strText, char chAt) {
  std::vector<std::string> astrItems;
  std::istringstream rItems(strText);
  for (std::string strItem; std::getline(rItems, strItem, chAt);) astrItems.push_back(strItem);
  return astrItems;
}

std::string Trimmed(const std::string& strText) {
  const std::size_t iStart = strText.find_first_not_of(" \t\r\n");
  if (iStart == std::string::npos) return "";
  return strText.substr(iStart, strText.find_last_not_of(" \t\r\n") - iStart + 1);
}

std::string Quoted(const std::string& strText) {
  return "'" + strText + "'";
}

// -- values -----------------------------------------------------------------------------------------------------------

// A decimal number and nothing else. Empty counts as 0, as with the recorder.
std::optional<long long> WholeNumber(const std::string& strText) {
  constexpr std::size_t MOST_DIGITS = 15;
  if (strText.empty()) return 0;
  const std::size_t iSign = strText[0] == '-' || strText[0] == '+' ? 1 : 0;
  if (strText.size() == iSign || strText.size() > MOST_DIGITS) return std::nullopt;
  if (strText.find_first_not_of("0123456789", iSign) != std::string::npos) return std::nullopt;
  return std::stoll(strText);
}

std::string CheckNumber(const SettingRow& rRow, const std::string& strValue) {
  const std::optional<long long> rNumber = WholeNumber(strValue);
  if (!rNumber) return Quoted(strValue) + " is no number";
  const SettingValues& rValues = rRow.rValues;
  switch (rValues.eType) {
    case TYPE_FLAG:
      return "";
    case TYPE_ONE:
      return *rNumber == 0 || *rNumber == 1 ? "" : Quoted(strValue) + " counts as off: only 1 is on";
    default:
      break;
  }
  if (*rNumber >= rValues.iMin && *rNumber <= rValues.iMax) return "";
  return Quoted(strValue) + " is not in the range " + ValuesText(rRow);
}

std::string CheckWord(const SettingRow& rRow, const std::string& strValue) {
  if (strValue.empty()) return "";
  const std::vector<std::string> astrWords = SplitAt(rRow.rValues.acWords, ',');
  if (std::find(astrWords.begin(), astrWords.end(), strValue) != astrWords.end()) return "";
  std::string strText = Quoted(strValue) + " is none of " + ValuesText(rRow);
  for (const std::string& strWord : astrWords) {
    if (Lower(Trimmed(strValue)) == Lower(strWord)) strText += "; write " + Quoted(strWord);
  }
  return strText;
}

// The begin of a text that may have been meant for these letters: one letter more or less is tried too.
bool BeginsLike(const std::string& strText, const std::string& strStart) {
  const std::string strSmall = Lower(strText);
  const std::string strWanted = Lower(strStart);
  if (strWanted.size() < ONE_SLIP_CHARS) return Begins(strSmall, strWanted);
  for (const std::size_t iChars : {strWanted.size() - 1, strWanted.size(), strWanted.size() + 1}) {
    if (EditDistance(strSmall.substr(0, iChars), strWanted) <= 1) return true;
  }
  return false;
}

// Capitals and blanks, or one letter. Digits are another model.
bool IsLikePbx(const std::string& strText, const std::string& strKnown) {
  const auto Kept = [](const std::string& strFrom, int (*pKeep)(int)) {
    std::string strKept;
    for (const char ch : Lower(strFrom)) {
      if (pKeep(static_cast<unsigned char>(ch)) != 0) strKept += ch;
    }
    return strKept;
  };
  return Kept(strText, isdigit) == Kept(strKnown, isdigit) && IsLike(Kept(strText, isalpha), Kept(strKnown, isalpha));
}

// Any text is a PBX; one that is nearly a known one was meant for that.
std::string CheckPbx(const SettingRow& rRow, const std::string& strValue) {
  std::string strMeant;
  for (const std::string& strWord : SplitAt(rRow.rValues.acWords, ',')) {
    const bool fAnyEnd = strWord.back() == '*';
    const std::string strName = strWord.substr(0, strWord.size() - (fAnyEnd ? 1 : 0));
    if (fAnyEnd ? Begins(strValue, strName) : strValue == strName) return "";
    if (fAnyEnd ? BeginsLike(strValue, strName) : IsLikePbx(strValue, strName)) {
      strMeant = "; write " + Quoted(strName) + (fAnyEnd ? " at its begin" : "");
    }
  }
  return strMeant.empty() ? "" : Quoted(strValue) + " is a PBX without rules of its own" + strMeant;
}

// "1304" or "1100.2"
bool IsCondition(const std::string& strText) {
  constexpr const char* HEX_DIGITS = "0123456789abcdefABCDEF";
  const std::size_t iPoint = strText.find('.');
  const std::string strCode = strText.substr(0, iPoint);
  if (strCode.empty() || strCode.find_first_not_of(HEX_DIGITS) != std::string::npos) return false;
  if (strCode.find_first_not_of('0') == std::string::npos) return false;  // the recorder skips 0
  if (iPoint == std::string::npos) return true;
  const std::string strReason = strText.substr(iPoint + 1);
  return !strReason.empty() && strReason.find_first_not_of(HEX_DIGITS) == std::string::npos;
}

std::string CheckConditions(const std::string& strValue) {
  for (const std::string& strItem : SplitAt(strValue, ',')) {
    const std::string strCode = Trimmed(strItem);
    if (!strCode.empty() && !IsCondition(strCode)) return Quoted(strCode) + " is no code such as 1304 or 1100.2";
  }
  return "";
}

bool IsPartOfTime(const std::string& strText, int iMax) {
  const std::optional<long long> rNumber = WholeNumber(strText);
  return !strText.empty() && rNumber && *rNumber >= 0 && *rNumber <= iMax;
}

std::string CheckTime(const std::string& strValue) {
  if (strValue.empty()) return "";
  const std::size_t iColon = strValue.find(':');
  if (iColon != std::string::npos && IsPartOfTime(strValue.substr(0, iColon), 24) &&
      IsPartOfTime(strValue.substr(iColon + 1), 59)) {
    return "";
  }
  return Quoted(strValue) + " is no time of day such as 8:30";
}

std::string CheckWeekdays(const std::string& strValue) {
  if (strValue.find_first_not_of("1234567, ") == std::string::npos) return "";
  return Quoted(strValue) + " names other days than 1, Sunday, to 7, Saturday";
}

// -- keys -------------------------------------------------------------------------------------------------------------

bool IsWritten(const SettingRow& rRow) {
  return rRow.eHolds == HOLDS_AS_DAEMON_SAYS;
}

// The key behind a board id and a channel number, where they are in front.
std::string KeyBehindBoard(const std::string& strParam) {
  const std::size_t iCut = strParam.find('_');
  return iCut != std::string::npos && IsBoardId(strParam.substr(0, iCut)) ? strParam.substr(iCut + 1) : "";
}

// How the name of a setting is to be written, when this key was meant for it.
std::string MeantName(const SettingRow& rRow, const std::string& strParam) {
  const bool fOfBoard = rRow.eScope == SCOPE_BOARD || rRow.eScope == SCOPE_CHANNEL_LIST;
  const std::string strBoard = strParam.substr(0, strParam.find('_'));
  return fOfBoard && IsBoardId(strBoard) ? strBoard + "_" + rRow.acKey : KeyText(rRow);
}

// In how many more rows a setting stands where the recorder looks for it; 0 for all of them but the first.
int RivalsBehind(const ConfigRow& rConfig, const SettingRow& rRow, const std::vector<ConfigRow>& vRows) {
  int iRivals = 0;
  for (const ConfigRow& rOther : vRows) {
    if (rOther.strParam != rConfig.strParam) continue;
    if (rRow.ePart != PART_ANY && rOther.strPart != rConfig.strPart) continue;
    if (&rOther < &rConfig) return 0;
    if (&rOther != &rConfig) iRivals++;
  }
  return iRivals;
}

void AddValueFindings(const ConfigRow& rConfig, const SettingName& rName, const std::vector<ConfigRow>& vRows,
                      std::vector<SettingFinding>& vFindings) {
  for (const std::string& strText : CheckWholeValue(*rName.prRow, rName.strBoard, rConfig.strValue, vRows)) {
    vFindings.push_back({rConfig.strParam, rConfig.strPart, strText});
  }
}

}  // namespace

std::string CheckValue(const SettingRow& rRow, const std::string& strValue) {
  switch (rRow.rValues.eType) {
    case TYPE_FLAG:
    case TYPE_ONE:
    case TYPE_NUMBER:
      return CheckNumber(rRow, Trimmed(strValue));
    case TYPE_WORD:
      return CheckWord(rRow, strValue);
    case TYPE_PBX:
      return CheckPbx(rRow, strValue);
    case TYPE_CONDITIONS:
      return CheckConditions(strValue);
    case TYPE_WEEKDAYS:
      return CheckWeekdays(strValue);
    case TYPE_TIME:
      return CheckTime(strValue);
    case TYPE_TEXT:
    case TYPE_LIST:
    case TYPE_PRESENCE:
      break;
  }
  return "";
}

int ChannelsOfBoard(const std::string& strBoard, const std::vector<ConfigRow>& vRows) {
  int iChannels = -1;
  int iOfLine = 1;
  for (const ConfigRow& rConfig : vRows) {
    if (rConfig.strParam == strBoard + "_MaxChannels") {
      const long long iLines = WholeNumber(rConfig.strValue).value_or(0);
      if (iLines > 0 && iLines <= INT_MAX / TRUNK_CHANNELS_OF_LINE) iChannels = static_cast<int>(iLines);
    }
    if (rConfig.strParam == strBoard + "_Model" && Begins(rConfig.strValue, TRUNK_MODEL_START)) {
      iOfLine = TRUNK_CHANNELS_OF_LINE;
    }
  }
  return iChannels == -1 ? -1 : iChannels * iOfLine;
}

std::vector<std::string> CheckWholeValue(const SettingRow& rRow, const std::string& strBoard,
                                         const std::string& strValue, const std::vector<ConfigRow>& vRows) {
  std::vector<std::string> astrTexts;
  const auto Add = [&](const std::string& strBefore, const std::string& strText) {
    if (!strText.empty()) astrTexts.push_back(strBefore + strText);
  };
  if (rRow.eScope != SCOPE_CHANNEL_LIST) {
    Add("", CheckValue(rRow, strValue));
    return astrTexts;
  }
  const std::vector<std::string> astrItems = SplitAt(strValue, ',');
  for (std::size_t i = 0; i < astrItems.size(); i++) {
    Add("channel " + std::to_string(i) + ": ", CheckValue(rRow, astrItems[i]));
  }
  const int iChannels = ChannelsOfBoard(strBoard, vRows);
  if (iChannels != -1 && astrItems.size() > static_cast<std::size_t>(iChannels)) {
    Add("", std::to_string(astrItems.size()) + " items, but the board has " + std::to_string(iChannels) + " channels");
  }
  return astrTexts;
}

std::string NearestSettingText(const std::string& strKey) {
  const std::string strBehind = KeyBehindBoard(strKey);
  std::size_t iBest = std::string::npos;
  std::string strMeant;
  for (const SettingRow& rRow : SETTING_ROWS) {
    if (IsWritten(rRow) || rRow.eScope == SCOPE_FILE) continue;
    for (const std::string& strText : {strKey, strBehind}) {
      if (strText.empty() || !IsLike(strText, rRow.acKey)) continue;
      const std::size_t iSlips = EditDistance(strText, rRow.acKey);
      if (iSlips >= iBest) continue;
      iBest = iSlips;
      strMeant = MeantName(rRow, strKey);
    }
  }
  return strMeant.empty() ? "" : " (is it " + strMeant + "?)";
}

std::vector<SettingFinding> CheckSettings(const std::vector<ConfigRow>& vRows) {
  std::vector<SettingFinding> vFindings;
  for (const ConfigRow& rConfig : vRows) {
    const auto Find = [&](const std::string& strText) {
      vFindings.push_back({rConfig.strParam, rConfig.strPart, strText});
    };
    const SettingName rName = ParseSettingName(rConfig.strParam);
    if (rName.prRow == nullptr) {
      const std::string strNearest = NearestSettingText(rConfig.strParam);
      if (rConfig.strPart == "crec" || !strNearest.empty()) Find("the recorder knows no such setting" + strNearest);
      continue;
    }
    const int iRivals = RivalsBehind(rConfig, *rName.prRow, vRows);
    if (iRivals > 0) {
      Find("stands in " + std::to_string(iRivals + 1) + " rows; which of them counts is left to chance");
    }
    const std::string strWanted = PartOf(*rName.prRow);
    if (!strWanted.empty() && rConfig.strPart != strWanted) {
      Find("the recorder does not see it in part '" + rConfig.strPart + "'; its part is '" + strWanted + "'");
    }
    if (!IsWritten(*rName.prRow)) AddValueFindings(rConfig, rName, vRows, vFindings);
  }
  return vFindings;
}

std::string FindingsToText(const std::vector<SettingFinding>& vFindings) {
  if (vFindings.empty()) return "Nothing found.\n";
  std::string strText;
  for (const SettingFinding& rFinding : vFindings)
    strText += Masked(rFinding.strParam + ": " + rFinding.strText) + "\n";
  return strText;
}

nlohmann::json FindingsToJson(const std::vector<SettingFinding>& vFindings) {
  nlohmann::json rJson = nlohmann::json::array();
  for (const SettingFinding& rFinding : vFindings) {
    rJson.push_back({{"param", rFinding.strParam}, {"part", rFinding.strPart}, {"text", rFinding.strText}});
  }
  return rJson;
}
