// The driver's configuration: "ShConfig.ini" is merged, so that what a technician or the card maker's tools put there
// survives; "ShIndex.ini" only has to exist. The driver reads both when it starts.
// Two tables describe the cards as they stand at this start and are replaced whole; of all other sections only the
// named keys are touched. The meaning of the bare numbers is the driver's; they are settled values.
#include "recorder_drvconfig.h"

#include <syslog.h>

#include <utility>

#include "filedir.h"
#include "fstring.h"
#include "iniedit.h"
#include "logging.h"
#include "plainfile.h"
#include "recorder_boot.h"

namespace {

constexpr const char* OS_NAME_FILE = "/etc/issue.net";
constexpr const char* OS_NAME = "Debian GNU/Linux ";
constexpr int OS_VERSION_MIN = 6;
constexpr int OS_VERSION_MAX = 12;
constexpr int LAST_OS_WITH_BOARD_DMA = 9;

constexpr int TRUNK_BLOCK_CHANNELS = 60;  // driver channels of one block: 30 lines in two directions
constexpr int TRUNK_BLOCK_CIRCUITS = 30;
constexpr int ALL_FREQ_SCALES = 24;

std::string Indexed(const char* acKey, int ix) {
  return std::string(acKey) + "[" + ToStdString(ix) + "]";
}
// "<first>,0..<count - 1>", the driver's way to name a run of channels.
std::string ChannelRun(const std::string& strFirst, int iCount) {
  return strFirst + ",0.." + ToStdString(WrappingSum(iCount, -1));
}
std::string BoardSection(const TBoard& rBoard) {
  return "BoardId=" + ToStdString(rBoard.iBoardId);
}

// What is wanted of one section: keys that are forced, keys that only fill a gap, or the section emptied first.
class Section {
 public:
  Section(IniData& rDataToFill, std::string strSectionName) : rData(rDataToFill), strName(std::move(strSectionName)) {}
  void Set(const std::string& strKey, const std::string& strValue) { rData.set(strName, strKey, strValue); }
  void Set(const std::string& strKey, int iValue) { Set(strKey, ToStdString(iValue)); }
  void Default(const std::string& strKey, const std::string& strValue) { rData.setDefault(strName, strKey, strValue); }
  void Default(const std::string& strKey, int iValue) { Default(strKey, ToStdString(iValue)); }
  void Replace() { rData.replaceSection(strName); }

 private:
  IniData& rData;
  std::string strName;
};

// The clock comes from a digital card; of several the last one in the list.
int ClockBoardId(const std::vector<TBoard>& vrBoards) {
  int iClockBoardId = -1;
  for (const TBoard& rBoard : vrBoards) {
    const ECardType eType = rBoard.GetCtType();
    if (rBoard.fPresent && (eType == CT_DTP || eType == CT_DST)) iClockBoardId = rBoard.iBoardId;
  }
  return iClockBoardId;
}

void AddSystem(IniData& rData, const TRecorderBoot& rBoot) {
  Section rSystem(rData, "SystemConfig");
  rSystem.Set("TotalBoards", static_cast<int>(rBoot.vrDetectedBoards.size()));
  rSystem.Set("EventInterfaceType", 1);
  rSystem.Set("WhoSupplySysClock", ClockBoardId(rBoot.vrBoardList));
}

void AddChannelTable(IniData& rData, const TRecorderBoot& rBoot) {
  Section rTable(rData, "AppChToBoardChTable");
  rTable.Replace();
  rTable.Set("TotalAppCh", rBoot.iTotalDrvMaxCh);
  for (const TBoard& rBoard : rBoot.vrBoardList) {
    if (!rBoard.fPresent || rBoard.GetCtType() == CT_UNKNOWN) continue;
    rTable.Set(Indexed("AppCh", rBoard.iStartCh), ChannelRun(ToStdString(rBoard.iBoardId), rBoard.iMaxCh));
  }
}

void AddBoard(IniData& rData, const TBoard& rBoard, int iDebVersion) {
  Section rSection(rData, BoardSection(rBoard));
  rSection.Set("BoardModel", rBoard.strModel);
  rSection.Set("PBXType", rBoard.strPBXType);
  rSection.Set("BoardSerialNumber", rBoard.strSerial);
  rSection.Set("DstRecRawData", 0);
  if (!rBoard.strPhoneType.empty()) rSection.Set("PhoneType", rBoard.strPhoneType);
  if (iDebVersion > LAST_OS_WITH_BOARD_DMA) rSection.Default("EnableDMA", 0);
}

// A trunk card: two PCM links a block in its own section, and in the table of all links, which counts over all cards.
// iDtpBlocks: blocks of the cards before this one.
void AddTrunkBoard(IniData& rData, const TBoard& rBoard, int& iDtpBlocks) {
  const int iBlockCnt = rBoard.iMaxCh / TRUNK_BLOCK_CHANNELS;
  Section rSection(rData, BoardSection(rBoard));
  rSection.Default("UseHdlc", 1);
  rSection.Default("DualAndAllFreqEnScale", 32);
  rSection.Default("PcmNumber", iBlockCnt * 2);
  Section rLinks(rData, "PcmInfo");
  for (int iLink = 0; iLink < 2 * iBlockCnt; iLink++) {
    rSection.Default(Indexed("PcmSSx", iLink), 2);
    rSection.Set(Indexed("PcmClockMode", iLink), iLink == 0 ? 0 : 2);  // the first link of each card takes the clock
    rSection.Default(Indexed("PcmLinkType", iLink), 0);
    rLinks.Set(Indexed("Pcm", 2 * iDtpBlocks + iLink), ToStdString(rBoard.iBoardId) + "," + ToStdString(iLink));
  }
  iDtpBlocks += iBlockCnt;
}

// An analogue card: one comma list a key, with an item for each channel.
void AddAnalogBoard(IniData& rData, TRecorderBoot& rBoot, int iBoardListIx) {
  const TBoard& rBoard = *rBoot.GetBoard(iBoardListIx);
  std::string strOffHook, strIgnore, strAudio;
  for (int iBoardCh = 0; iBoardCh < rBoard.iMaxCh; iBoardCh++) {
    const auto Param = [&](const char* acKey) {
      return rBoot.GetChannelParamInt(iBoardCh, iBoardListIx, acKey, CFG_CACHED_LOAD);
    };
    const char* acComma = iBoardCh > 0 ? "," : "";
    strOffHook += acComma + ToStdString(Param("OffHookThr"));
    strIgnore += acComma + std::string(Param("Trigger") == 1 ? "0" : "1");  // only trigger 1 goes by the line voltage
    strAudio += acComma + ToStdString(Param("AudioThr"));
  }
  Section rSection(rData, BoardSection(rBoard));
  rSection.Default("DualAndAllFreqEnScale", StrRepeat(ALL_FREQ_SCALES, "10", ","));
  rSection.Set("IsHangupDtrmVoltage", strOffHook);
  rSection.Set("IgnoreLineVoltage", strIgnore);
  rSection.Set("BargeInSensitive", strAudio);
}

// Returns the number of trunk blocks over all cards.
int AddBoards(IniData& rData, TRecorderBoot& rBoot, int iDebVersion) {
  int iDtpBlocks = 0;
  for (std::size_t i = 0; i < rBoot.vrBoardList.size(); i++) {
    const TBoard& rBoard = rBoot.vrBoardList[i];
    if (!rBoard.fPresent) continue;
    const ECardType eType = rBoard.GetCtType();
    AddBoard(rData, rBoard, iDebVersion);
    if (eType == CT_DTP) AddTrunkBoard(rData, rBoard, iDtpBlocks);
    if (eType == CT_SHT) Section(rData, "SystemConfig").Default("R2DetectMode", 1);
    if (eType == CT_ATP || eType == CT_SHT) AddAnalogBoard(rData, rBoot, static_cast<int>(i));
  }
  return iDtpBlocks;
}

// Without trunk cards the tables of taps and circuits keep what the file has; the table of links is emptied anyway.
void AddTrunkTables(IniData& rData, int iDtpBlocks) {
  Section rLinks(rData, "PcmInfo");
  rLinks.Replace();
  if (iDtpBlocks <= 0) return;
  rLinks.Set("TotalPcm", iDtpBlocks * 2);
  Section rTaps(rData, "SpyPcm");
  Section rCircuits(rData, "AppSpyCICTable");
  rTaps.Set("TotalSpyPcm", iDtpBlocks);
  rCircuits.Set("TotalAppSpyCIC", iDtpBlocks * TRUNK_BLOCK_CIRCUITS);
  for (int i = 0; i < iDtpBlocks; i++) {
    rTaps.Set(Indexed("SpyPcm", i), Indexed("Pcm", 2 * i) + "," + Indexed("Pcm", 2 * i + 1));
    rCircuits.Set(Indexed("AppSpyCIC", i * TRUNK_BLOCK_CIRCUITS),
                  ChannelRun(Indexed("SpyPcm", i), TRUNK_BLOCK_CIRCUITS));
  }
}

void AddDebugView(IniData& rData, bool fLogApi) {
  Section rDebug(rData, "DebugView");
  rDebug.Set("ApiLogEnable", fLogApi ? 4 : 0);
  rDebug.Set("OutputDTRRawData", fLogApi ? 1158 : 38512);
  rDebug.Set("DSTLogEnable", fLogApi ? 1 : 0);
  rDebug.Set("DSTLogCreateMode", 0);
}

}  // namespace

// The versions are tried upwards as prefixes, so "Debian GNU/Linux 60" is 6, and "Debian GNU/Linux 1" is none.
int GetDebianVersion() {
  const std::string strText = StdGetFileContent(OS_NAME_FILE);
  for (int iVersion = OS_VERSION_MIN; iVersion <= OS_VERSION_MAX; iVersion++) {
    if (beginsWith(strText, OS_NAME + ToStdString(iVersion))) return iVersion;
  }
  return -1;
}

void TRecorderBoot::WriteConfig() {
  if (TextToLong(ValueOf(rConfigs, "NoWriteIni")) == 1) {
    lg(LOG_WARNING, "Not writing ShConfig.ini");
    return;
  }
  IniData rData;
  AddSystem(rData, *this);
  AddChannelTable(rData, *this);
  const int iDtpBlocks = AddBoards(rData, *this, GetDebianVersion());
  AddTrunkTables(rData, iDtpBlocks);
  AddDebugView(rData, TextToLong(GetOSetting("TdmLogApi")) != 0);
  if (!rData.update(DRIVER_INI_FILE)) LogCapiError(("Update of " + std::string(DRIVER_INI_FILE)).c_str());
  (void)OpenAnew(DRIVER_INDEX_FILE);  // one that cannot be made shows when the driver starts
}
