// One setting is written as the recorder writes its own: the rows of this name are taken away and one comes in their
// place, in one statement. What is read before and written then is one serializable transaction, so that two who change
// items of one list at the same time do not lose each other's: the server refuses one of them, who may try again.
#include <algorithm>
#include <iostream>
#include <pqxx/pqxx>
#include <sstream>

#include "ctl_database.h"
#include "ctl_settings.h"
#include "ctl_text.h"
#include "settingstable.h"

namespace {

constexpr const char* REPLACE_ROW =
    "WITH gone AS (DELETE FROM Configs WHERE param = $1) "
    "INSERT INTO Configs (param, value, part) VALUES ($1, $2, $3)";
// Where a setting that counts in any part goes when it stands nowhere: among the options of the installation.
constexpr const char* PART_OF_ANY = "o";

bool IsOfBoard(const SettingRow& rRow) {
  return rRow.eScope == SCOPE_BOARD || rRow.eScope == SCOPE_CHANNEL_LIST;
}

// The list with the item of one channel replaced. Items that are missing in front of it are empty: they count as the
// default, as before.
std::string WithItem(const std::string& strList, int iChannel, const std::string& strItem) {
  std::vector<std::string> astrItems;
  std::istringstream rItems(strList);
  for (std::string strNext; std::getline(rItems, strNext, ',');) astrItems.push_back(strNext);
  const auto iItem = static_cast<std::size_t>(iChannel);
  astrItems.resize(std::max(astrItems.size(), iItem + 1));
  astrItems[iItem] = strItem;
  std::string strNew;
  for (std::size_t i = 0; i < astrItems.size(); i++) strNew += (i == 0 ? "" : ",") + astrItems[i];
  return strNew;
}

SettingPlan Refused(ECtlExit eExit, const std::string& strComplaint) {
  SettingPlan rPlan;
  rPlan.eExit = eExit;
  rPlan.strComplaint = strComplaint;
  return rPlan;
}

// Why nobody sets this; empty: it can be set.
std::string WhyNotSet(const SettingRow& rRow) {
  if (rRow.eHolds == HOLDS_AS_DAEMON_SAYS) return "the recorder writes it";
  if (rRow.eScope == SCOPE_FILE) return "it is a file";
  return "";
}

// What the arguments lack or have too much for this setting; empty: nothing.
std::string CheckArguments(const SettingRow& rRow, const std::string& strBoard, const SettingChange& rChange) {
  if (IsOfBoard(rRow) && strBoard.empty()) return "it is a setting of a board: name it by --board";
  if (!IsOfBoard(rRow) && !strBoard.empty()) return "it is a setting of the unit, not of a board";
  if (IsOfBoard(rRow) && !IsBoardId(strBoard)) return "'" + strBoard + "' is no board id such as Syn1001";
  if (rChange.iChannel != -1 && rRow.eScope != SCOPE_CHANNEL_LIST) return "it is not a setting of channels";
  if (rChange.iChannel != -1 && rChange.strValue.find(',') != std::string::npos) {
    return "a comma parts the channels, so the value of one has none";
  }
  return "";
}

// What is wrong with the new value; empty: nothing.
std::string CheckNewValue(const SettingPlan& rPlan, const std::string& strBoard, const SettingChange& rChange,
                          const std::vector<ConfigRow>& vRows) {
  if (rChange.iChannel == -1) {
    const std::vector<std::string> astrTexts = CheckWholeValue(*rPlan.prRow, strBoard, rChange.strValue, vRows);
    return astrTexts.empty() ? "" : astrTexts.front();
  }
  const int iChannels = ChannelsOfBoard(strBoard, vRows);
  if (iChannels != -1 && rChange.iChannel >= iChannels) {
    return "the board has " + std::to_string(iChannels) + " channels, counted from 0";
  }
  return CheckValue(*rPlan.prRow, rChange.strValue);
}

std::vector<ConfigRow> ReadRows(pqxx::transaction_base& rWork) {
  std::vector<ConfigRow> vRows;
  for (const pqxx::row& rRow : rWork.exec("SELECT param, value, part FROM Configs ORDER BY param, part, value")) {
    vRows.push_back({rRow[0].as<std::string>(""), rRow[1].as<std::string>(""), rRow[2].as<std::string>("")});
  }
  return vRows;
}

SettingPlan PlanAndWrite(const SettingChange& rChange) {
  pqxx::connection rConnection(DAEMON_DATABASE);
  pqxx::transaction<pqxx::serializable> rWork(rConnection);
  SettingPlan rPlan = PlanChange(rChange, ReadRows(rWork));
  if (!rPlan.strComplaint.empty()) return rPlan;
  rWork.exec_params(REPLACE_ROW, rPlan.strParam, rPlan.strAfter, rPlan.strPart);
  rWork.commit();
  return rPlan;
}

// Tells a running recorder, where that helps, and says from when on the change holds.
int TellRecorder(ESettingHolds eHolds) {
  if (eHolds == HOLDS_FROM_START) {
    std::cout << "It holds from the next start of the recorder.\n";
    return CTL_OK;
  }
  if (eHolds == HOLDS_AT_ONCE) {
    std::cout << "It holds at once: the recorder asks for it each time.\n";
    return CTL_OK;
  }
  const CtlReply rReply = SendOrder("reconfig");
  switch (rReply.eExit) {
    case CTL_OK:
      std::cout << "It holds at once: the recorder has read it.\n";
      return CTL_OK;
    case CTL_NOT_RUNNING:
      std::cout << "It holds from the next start: the recorder is not running.\n";
      return CTL_OK;
    default:
      std::cerr << "It is written, but the recorder did not say that it has read it: " << rReply.strText << "\n";
      return rReply.eExit;
  }
}

}  // namespace

SettingPlan PlanChange(const SettingChange& rChange, const std::vector<ConfigRow>& vRows) {
  SettingPlan rPlan;
  rPlan.prRow = FindSetting(rChange.strKey);
  if (rPlan.prRow == nullptr) {
    return Refused(CTL_USAGE, "There is no setting " + rChange.strKey + NearestSettingText(rChange.strKey));
  }
  const SettingRow& rRow = *rPlan.prRow;
  const SettingName rName = ParseSettingName(rChange.strKey);
  const std::string strBoard = rName.strBoard.empty() ? rChange.strBoard : rName.strBoard;
  std::string strWhy = WhyNotSet(rRow);
  if (strWhy.empty() && !rName.strBoard.empty() && !rChange.strBoard.empty()) strWhy = "it names the board already";
  if (strWhy.empty()) strWhy = CheckArguments(rRow, strBoard, rChange);
  rPlan.strParam = IsOfBoard(rRow) ? strBoard + "_" + rRow.acKey : rChange.strKey;
  if (strWhy.empty() && ParseSettingName(rPlan.strParam).prRow != &rRow)
    strWhy = "put a number, a day or a board in the place of <...>";
  rPlan.strPart = PartOf(rRow);
  if (strWhy.empty() && !rChange.strPart.empty() && !rPlan.strPart.empty() && rChange.strPart != rPlan.strPart) {
    strWhy = "the recorder does not see it in part '" + rChange.strPart + "'; its part is '" + rPlan.strPart + "'";
  }
  if (!strWhy.empty()) return Refused(CTL_USAGE, rChange.strKey + ": " + strWhy);

  const auto itNow = std::find_if(vRows.begin(), vRows.end(),
                                  [&](const ConfigRow& rConfig) { return rConfig.strParam == rPlan.strParam; });
  rPlan.fWasSet = itNow != vRows.end();
  if (rPlan.fWasSet) rPlan.strBefore = itNow->strValue;
  if (rPlan.strPart.empty()) rPlan.strPart = rPlan.fWasSet ? itNow->strPart : PART_OF_ANY;
  if (rRow.ePart == PART_ANY && !rChange.strPart.empty()) rPlan.strPart = rChange.strPart;
  strWhy = CheckNewValue(rPlan, strBoard, rChange, vRows);
  if (!strWhy.empty()) return Refused(CTL_BAD_SETTING, rPlan.strParam + ": " + strWhy);
  rPlan.strAfter =
      rChange.iChannel == -1 ? rChange.strValue : WithItem(rPlan.strBefore, rChange.iChannel, rChange.strValue);
  return rPlan;
}

std::string PlanToText(const SettingPlan& rPlan) {
  return Masked(rPlan.strParam + " (part " + rPlan.strPart + ")") + "\n" + "  before  " +
         (rPlan.fWasSet ? Masked("'" + rPlan.strBefore + "'") : "-") + "\n" + "  after   " +
         Masked("'" + rPlan.strAfter + "'") + "\n";
}

int RunSet(const SettingChange& rChange) {
  SettingPlan rPlan;
  try {
    rPlan = PlanAndWrite(rChange);
  } catch (const std::exception& rError) {  // the library reports by exceptions; here they end
    std::cerr << "Nothing was written: " << MaskedLines(rError.what()) << "\n";
    return CTL_NO_DATABASE;
  }
  if (!rPlan.strComplaint.empty()) {
    std::cerr << Masked(rPlan.strComplaint) << "; nothing was written.\n";
    return rPlan.eExit;
  }
  std::cout << PlanToText(rPlan);
  return TellRecorder(rPlan.prRow->eHolds);
}
