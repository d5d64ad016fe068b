// Names in Configs are composed, so they are taken apart here by the same rules: the scope of a row tells what stands
// around its key. No name fits two rows, so their order does not matter.
#include "settingstable.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr const char* BOARD_ID_START = "Syn";
constexpr std::size_t BOARD_ID_START_CHARS = 3;
constexpr const char* const DAY_NAMES[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                           "Thursday", "Friday", "Saturday"};
constexpr const char* const CODE_NUMBERS[] = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"};

template <std::size_t N>
bool Holds(const char* const (&aacTexts)[N], const std::string& strText) {
  return std::any_of(std::begin(aacTexts), std::end(aacTexts), [&](const char* acText) { return strText == acText; });
}

bool EndsWith(const std::string& strText, const std::string& strEnd) {
  return strText.size() >= strEnd.size() && strText.compare(strText.size() - strEnd.size(), strEnd.size(), strEnd) == 0;
}

bool IsDigits(const std::string& strText) {
  return !strText.empty() && strText.size() <= 5 &&
         std::all_of(strText.begin(), strText.end(), [](unsigned char ch) { return isdigit(ch) != 0; });
}

bool FitsPlaceholder(const std::string& strWord, const std::string& strText) {
  if (strWord == "n") return Holds(CODE_NUMBERS, strText);
  if (strWord == "day") return Holds(DAY_NAMES, strText);
  return IsBoardId(strText);
}

// What stands in front of "_<key>"; empty when the text ends otherwise.
std::string InFrontOfKey(const std::string& strText, const SettingRow& rRow) {
  const std::string strEnd = std::string("_") + rRow.acKey;
  return EndsWith(strText, strEnd) ? strText.substr(0, strText.size() - strEnd.size()) : "";
}

// An empty list of cards is one empty entry to the daemon, which leaves a row "_Present" of it.
bool IsOfEmptyEntry(const SettingRow& rRow, const std::string& strParam) {
  return rRow.eHolds == HOLDS_AS_DAEMON_SAYS && strParam == std::string("_") + rRow.acKey;
}

// Fills rName when the row's name may be this.
bool FitsRow(const SettingRow& rRow, const std::string& strParam, SettingName& rName) {
  std::string strFront;
  std::size_t iCut = 0;
  switch (rRow.eScope) {
    case SCOPE_UNIT:
      return FitsKey(rRow.acKey, strParam);
    case SCOPE_NODE:
      return strParam == rRow.acKey || EndsWith(strParam, std::string("-") + rRow.acKey);
    case SCOPE_BOARD:
    case SCOPE_CHANNEL_LIST:
      rName.strBoard = InFrontOfKey(strParam, rRow);
      return IsBoardId(rName.strBoard) || IsOfEmptyEntry(rRow, strParam);
    case SCOPE_CHANNEL:
      strFront = InFrontOfKey(strParam, rRow);
      iCut = strFront.rfind('_');
      if (iCut == std::string::npos || !IsDigits(strFront.substr(iCut + 1))) return false;
      rName.strBoard = strFront.substr(0, iCut);
      rName.iChannel = std::stoi(strFront.substr(iCut + 1));
      return IsBoardId(rName.strBoard);
    case SCOPE_FILE:
      break;
  }
  return strParam == std::string(SETTING_FILES_DIR) + rRow.acKey;
}

}  // namespace

bool IsBoardId(const std::string& strText) {
  return strText.size() > BOARD_ID_START_CHARS && strText.compare(0, BOARD_ID_START_CHARS, BOARD_ID_START) == 0 &&
         std::all_of(strText.begin(), strText.end(), [](unsigned char ch) { return isalnum(ch) != 0; });
}

bool FitsKey(const std::string& strKey, const std::string& strText) {
  const std::size_t iOpen = strKey.find('<');
  if (iOpen == std::string::npos) return strText == strKey;
  const std::size_t iClose = strKey.find('>');
  const std::size_t iAround = iOpen + strKey.size() - iClose - 1;
  if (strText.size() <= iAround || strText.compare(0, iOpen, strKey, 0, iOpen) != 0) return false;
  if (iClose + 1 < strKey.size() && !EndsWith(strText, strKey.substr(iClose + 1))) return false;
  return FitsPlaceholder(strKey.substr(iOpen + 1, iClose - iOpen - 1), strText.substr(iOpen, strText.size() - iAround));
}

SettingName ParseSettingName(const std::string& strParam) {
  for (const SettingRow& rRow : SETTING_ROWS) {
    SettingName rName;
    if (!FitsRow(rRow, strParam, rName)) continue;
    rName.prRow = &rRow;
    return rName;
  }
  return {};
}
