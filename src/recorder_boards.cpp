// The cards: ask the card maker's tool what is there, merge that with the list remembered from the last run, number all
// channels, start the driver and report the result.
// A line keeps its number over restarts, also while a card in front of it is away: a card that was seen before keeps
// its place and its web channels as long as a present card stands behind it in the list. Driver channels know only the
// present cards. On a trunk card the driver channels come in blocks of 60: 30 lines, then the opposite direction of the
// same 30, which has neither web channel nor circuit number.
#include "recorder_boards.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdlib>

#include "filedir.h"
#include "fstring.h"
#include "logging.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "recorder_cluster.h"
#include "recorder_drvconfig.h"
#include "shpa3link.h"

namespace {

constexpr const char* TOOL_DIR = "/usr/local/lib/shcti/CurrentVersion/tools/";
constexpr const char* TOOL_INI = "/usr/local/lib/shcti/CurrentVersion/tools/ShConfig.ini";
constexpr std::size_t TOOL_LINE_BYTES = 500;  // a longer line counts as several
constexpr const char* DEFAULT_PBX_TYPE = "Siemens Hicom/Hipath";

constexpr useconds_t HALF_SECOND_US = 500000;
constexpr int CARD_POWER_UP_STEPS = 20;  // half seconds that a card needs after power-on
constexpr time_t DRIVER_START_S = 20;    // boards come up while SsmStartCti is tried again

constexpr int TRUNK_BLOCK_LINES = 30;  // lines in a block of a trunk card, and as many channels of the other direction

// Types of driver channels that carry no line. 20 and 27 have no name here: only the library knows what they are.
constexpr bool IsUnusableChType(int iType) {
  return iType == CH_UNKNOWN || iType == 20 || iType == 27;
}

// Driver channel of line i of a card: on a trunk card the opposite direction of each block is stepped over.
int DrvChannelOfLine(const TBoard& rBoard, int i) {
  const int iBlock = rBoard.GetCtType() == CT_DTP ? i / TRUNK_BLOCK_LINES : 0;
  return rBoard.iStartCh + i + iBlock * TRUNK_BLOCK_LINES;
}

// Reads the tool's INI text line by line. The text is the card maker's, so every cut is bounded by what is there.
class ToolReader {
 public:
  explicit ToolReader(ToolConfig& rConfigToFill) : rConfig(rConfigToFill) {}

  void Line(const std::string& strLine) {
    if (beginsWith(strLine, "[")) {
      strSection = strLine.size() > 3 ? strLine.substr(1, strLine.size() - 3) : "";  // "]" and newline
      return;
    }
    const std::size_t iEqual = strLine.find('=');
    if (iEqual == std::string::npos) return;
    std::string strValue = strLine.substr(iEqual + 1);
    if (!strValue.empty()) strValue.pop_back();  // newline
    KeyLine(strLine.substr(0, iEqual), strValue);
  }

 private:
  void KeyLine(const std::string& strKey, const std::string& strValue) {
    if (strSection == "AppChToBoardChTable") {
      if (beginsWith(strKey, "AppCh[")) ChannelRange(strValue);
    } else if (beginsWith(strSection, "BoardId=")) {
      if (strKey == "BoardSerialNumber") rConfig.astrSerials.push_back(strValue);
      if (strKey == "BoardModel") rConfig.astrModels.push_back(strValue);
    }
  }

  // "0,0..31": the last channel stands behind the last point.
  void ChannelRange(const std::string& strValue) {
    const std::size_t iPoint = strValue.rfind('.');
    if (iPoint == std::string::npos) return;
    rConfig.aiChannelCounts.push_back(WrappingSum(TextToInt(strValue.substr(iPoint + 1)), 1));
  }

  ToolConfig& rConfig;
  std::string strSection;
};

}  // namespace

int WrappingSum(int iA, int iB) {
  return static_cast<int>(static_cast<unsigned int>(iA) + static_cast<unsigned int>(iB));
}

// -- one board --------------------------------------------------------------------------------------------------------

std::string TBoard::getId() const {
  return fPresent ? "Syn" + strSerial : strId;
}

ECardType TBoard::GetCtType() const {
  struct Family {
    const char* acPrefix;
    ECardType eType;
  };
  static constexpr Family FAMILIES[] = {
      {"ATP", CT_ATP}, {"DST", CT_DST}, {"SHR", CT_DST}, {"DTP", CT_DTP}, {"SHT", CT_SHT},
  };
  for (const Family& rFamily : FAMILIES) {
    if (beginsWith(strModel, rFamily.acPrefix)) return rFamily.eType;
  }
  return CT_UNKNOWN;
}

TBoard* TRecorderBoot::GetBoard(int iBoardListIx) {
  if (iBoardListIx < 0 || static_cast<std::size_t>(iBoardListIx) >= vrBoardList.size()) return nullptr;
  return &vrBoardList[static_cast<std::size_t>(iBoardListIx)];
}

int TRecorderBoot::GetBoardListIxForBoardId(int iBoardId) const {
  for (std::size_t i = 0; i < vrBoardList.size(); i++) {
    if (vrBoardList[i].iBoardId == iBoardId) return static_cast<int>(i);
  }
  return -1;
}

ECardType TRecorderBoot::GetBoardCardType(int iBoardListIx) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard ? prBoard->GetCtType() : CT_UNKNOWN;
}

ECardType CRecorder::GetBoardCardType(int iBoardListIx) {
  return prBoot->GetBoardCardType(iBoardListIx);
}

std::string CRecorder::GetBoardPbxType(int iBoardListIx) {
  const TBoard* prBoard = prBoot->GetBoard(iBoardListIx);
  return prBoard ? prBoard->strPBXType : std::string();
}

// -- detection --------------------------------------------------------------------------------------------------------

ToolConfig ReadToolConfig(const std::string& strPath) {
  ToolConfig rConfig;
  const StdFile hFile(fopen(strPath.c_str(), "re"));
  if (!hFile) return rConfig;
  ToolReader rReader(rConfig);
  char acLine[TOOL_LINE_BYTES + 1];
  while (fgets(acLine, sizeof acLine, hFile.get())) rReader.Line(acLine);
  return rConfig;
}

void TRecorderBoot::DetectBoards() {
  lg(LOG_NOTICE, "Waiting to give card time to initialize.");
  for (int i = 0; i < CARD_POWER_UP_STEPS && !fAppTerminate; i++) usleep(HALF_SECOND_US);

  // The file of an earlier run must not pass for the answer of this one.
  DeleteOrTell(TOOL_INI);
  // A tool that is not there or fails leaves no file, which reads as no cards. Run nowhere else, where "./config" may
  // be anything.
  if (chdir(TOOL_DIR) == 0) (void)!system("./config");
  TakeDetected(ReadToolConfig(TOOL_INI));

  lg(LOG_NOTICE, "Detected boards:");
  for (std::size_t i = 0; i < vrDetectedBoards.size(); i++) {
    const TBoard& rBoard = vrDetectedBoards[i];
    lg(LOG_NOTICE, "%d. SN: %s Model: %s MaxCh: %d webMaxCh: %d", static_cast<int>(i), rBoard.strSerial.c_str(),
       rBoard.strModel.c_str(), rBoard.iMaxCh, rBoard.iWebMaxCh);
  }
}

void TRecorderBoot::TakeDetected(const ToolConfig& rFound) {
  const std::size_t iCounts = rFound.aiChannelCounts.size();
  const std::size_t iSerials = rFound.astrSerials.size();
  const std::size_t iModels = rFound.astrModels.size();
  if (iCounts != iSerials || iSerials != iModels) lg(LOG_ERR, "Unequal size in detect boards");
  for (std::size_t i = 0; i < iCounts && i < iSerials && i < iModels; i++) {
    TBoard rBoard;
    rBoard.fPresent = true;
    rBoard.strSerial = rFound.astrSerials[i];
    rBoard.strModel = rFound.astrModels[i];
    rBoard.iMaxCh = rFound.aiChannelCounts[i];
    const ECardType eType = rBoard.GetCtType();
    if (eType == CT_UNKNOWN) continue;
    rBoard.iWebMaxCh = eType == CT_DTP ? rBoard.iMaxCh / 2 : rBoard.iMaxCh;  // two directions make one line
    rNewConfigs[rBoard.getId() + "_Present"] = "1";
    vrDetectedBoards.push_back(rBoard);
  }
}

// -- board list -------------------------------------------------------------------------------------------------------

void TRecorderBoot::CreateBoardList() {
  MergeRememberedBoards();
  DropAbsentTail();
  AppendNewBoards();
  LoadPbxSettings();
  NumberBoards();
  for (const TBoard& rBoard : vrBoardList) {
    if (rBoard.fPresent) ReportBoardFacts(rBoard);
  }
  LogBoardList();
}

// An empty list is one empty entry, as lt_split has it; it leaves the row "_Present", which nobody reads. It must not
// find a card that an entry before it has taken: that one is not present any more, so its id is the remembered one,
// and a detected card has none. Therefore the search asks fPresent before it compares ids; see
// BlankEntryOfTheListTakesNoCardASecondTime.
void TRecorderBoot::MergeRememberedBoards() {
  strCardList = ValueOf(rConfigs, g_cfgPrefix + "CardList");
  lg(LOG_NOTICE, "Old card list: %s", strCardList.c_str());
  std::vector<std::string> astrEntries;
  lt_split(astrEntries, strCardList, ',');
  for (const std::string& strEntry : astrEntries) {
    TBoard* prFound = nullptr;
    for (TBoard& rDetected : vrDetectedBoards) {
      if (!prFound && rDetected.fPresent && rDetected.getId() == strEntry) prFound = &rDetected;
    }
    if (prFound) {
      vrBoardList.push_back(*prFound);
      prFound->fPresent = false;  // taken: not a second time, and not as a new card
      continue;
    }
    TBoard rAway;
    rAway.strId = strEntry;
    rAway.iWebMaxCh = TextToInt(ValueOf(rConfigs, strEntry + "_MaxChannels"));
    rNewConfigs[strEntry + "_Present"] = "0";
    if (rAway.iWebMaxCh != 0) vrBoardList.push_back(rAway);
  }
}

// Cards that are away at the end hold no place for anybody and are forgotten.
void TRecorderBoot::DropAbsentTail() {
  while (!vrBoardList.empty() && !vrBoardList.back().fPresent) vrBoardList.pop_back();
}

void TRecorderBoot::AppendNewBoards() {
  for (const TBoard& rDetected : vrDetectedBoards) {
    if (rDetected.fPresent) vrBoardList.push_back(rDetected);
  }
}

void TRecorderBoot::LoadPbxSettings() {
  for (TBoard& rBoard : vrBoardList) {
    if (!rBoard.fPresent) continue;
    const bool isStation = rBoard.GetCtType() == CT_DST;
    rBoard.strPBXType = isStation ? ValueOf(rConfigs, rBoard.getId() + "_PBXType") : "";
    if (isStation && rBoard.strPBXType.empty()) rBoard.strPBXType = DEFAULT_PBX_TYPE;
    rBoard.strPhoneType = ValueOf(rConfigs, rBoard.getId() + "_PhoneType");
  }
}

void TRecorderBoot::NumberBoards() {
  iTotalDrvMaxCh = iTotalWebMaxCh = 0;
  int iNextBoardId = 0;
  int iCic = 0;
  for (TBoard& rBoard : vrBoardList) {
    rBoard.iStartCh = iTotalDrvMaxCh;
    rBoard.iWebStartCh = iTotalWebMaxCh;
    iTotalDrvMaxCh = WrappingSum(iTotalDrvMaxCh, rBoard.iMaxCh);
    iTotalWebMaxCh = WrappingSum(iTotalWebMaxCh, rBoard.iWebMaxCh);
    rBoard.iBoardId = rBoard.fPresent ? iNextBoardId++ : -1;
    if (!rBoard.fPresent) continue;
    MapLines(rBoard);
    MapCircuits(rBoard, iCic);
  }
}

void TRecorderBoot::MapLines(const TBoard& rBoard) {
  for (int i = 0; i < rBoard.iWebMaxCh; i++) {
    const int iDrvCh = DrvChannelOfLine(rBoard, i);
    const int iWebCh = WrappingSum(rBoard.iWebStartCh, i);
    rDrvToWebChMap[iDrvCh] = iWebCh;
    rWebToDrvChMap[iWebCh] = iDrvCh;
  }
}

void TRecorderBoot::MapCircuits(const TBoard& rBoard, int& iCic) {
  if (rBoard.GetCtType() != CT_DTP || rBoard.iMaxCh <= 1) return;
  for (int i = 0; i < rBoard.iMaxCh / 2; i++, iCic++) {
    const int iDrvCh = DrvChannelOfLine(rBoard, i);
    rCicToAppChMap[iCic] = iDrvCh;
    rAppToCicChMap[iDrvCh] = iCic;
  }
}

void TRecorderBoot::ReportBoardFacts(const TBoard& rBoard) {
  const std::string strId = rBoard.getId();
  rNewConfigs[strId + "_MaxChannels"] = ToStdString(rBoard.iWebMaxCh);
  rNewConfigs[strId + "_Model"] = rBoard.strModel;
  rNewConfigs[strId + "_SN"] = rBoard.strSerial;
}

void TRecorderBoot::LogBoardList() {
  lg(LOG_NOTICE, "Board List:");
  strCardList.clear();
  for (std::size_t i = 0; i < vrBoardList.size(); i++) {
    const TBoard& rBoard = vrBoardList[i];
    lg(LOG_NOTICE, "%d. SN:%s start:%d cnt:%d PBXType:%s", static_cast<int>(i), rBoard.strSerial.c_str(),
       rBoard.iStartCh, rBoard.iMaxCh, rBoard.strPBXType.c_str());
    if (i > 0) strCardList += ',';
    strCardList += rBoard.getId();
  }
  lg(LOG_NOTICE, "New CardList: %s", strCardList.c_str());
}

// -- the running driver -----------------------------------------------------------------------------------------------

int TRecorderBoot::InitBoards() {
  const time_t rStartTime = time(nullptr);
  if (fAppTerminate) return 1;
  while (true) {
    usleep(HALF_SECOND_US);
    if (SsmStartCti(DRIVER_INI_FILE, DRIVER_INDEX_FILE) == SSM_OK) {
      lg(LOG_NOTICE, "Board init. OK");
      return 0;
    }
    if (time(nullptr) - rStartTime > DRIVER_START_S) {
      LogSsmError("SsmStartCti");
      return 1;
    }
    lg(LOG_NOTICE, "Could not (yet) start: %s", LastSsmError());
    lg(LOG_NOTICE, "Waiting for board init");
    if (fAppTerminate) return 1;
  }
}

void TRecorderBoot::AnalyseStartedState() {
  const int iDrvChannels = SsmGetMaxCh();
  for (int iDrvCh = 0; iDrvCh < iDrvChannels; iDrvCh++) {
    int iBoardId = -1;
    int iBoardCh = -1;
    (void)SsmGetChHdInfo(iDrvCh, &iBoardId, &iBoardCh);  // on a failure the presets stay, which match no card
    if (IsUnusableChType(SsmGetChType(iDrvCh))) continue;
    for (TBoard& rBoard : vrBoardList) {
      if (rBoard.fPresent && rBoard.iBoardId == iBoardId) rBoard.iChannels++;
    }
  }
  rNewConfigs[g_cfgPrefix + "CardList"] = strCardList;
  for (TBoard& rBoard : vrBoardList) {
    if (rBoard.GetCtType() == CT_DTP) rBoard.iChannels /= 2;
    const std::string strId = rBoard.getId();
    rNewConfigs[strId + "_Present"] = rBoard.fPresent ? "1" : "0";
    if (!rBoard.fPresent) continue;
    rNewConfigs[strId + "_StartCh"] = ToStdString(rBoard.iWebStartCh);
    rNewConfigs[strId + "_Channels"] = ToStdString(rBoard.iChannels);
    ReportBoardFacts(rBoard);
  }
}
