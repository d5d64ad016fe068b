// The settings: one map in memory for each part of the table Configs, and the lookups that compose a key for a board or
// for a channel of a board and turn text into numbers.
// The maps are a snapshot of the start, apart from rConfigsO. What is written goes to the database alone, so a value
// written here is read back only by the process after this one, or by a live lookup.
#include "recorder_boot.h"

#include <cstdlib>

#include "fstring.h"
#include "recorder.h"

namespace {

// What takes the place of 0, so that an explicit 0 cannot be stored for these keys.
struct BuiltIn {
  const char* acParam;
  int iValue;
};
constexpr BuiltIn CHANNEL_BUILT_INS[] = {
    {"Trigger", 1},
    {"SilenceTimeOut", 15},
    {"OffHookThr", 26},
    {"AudioThr", 12},
};
constexpr BuiltIn BOARD_BUILT_INS[] = {
    {"SilenceT", 15},
    {"AudioSens", 6},
};

template <std::size_t N>
int BuiltInInsteadOfZero(int iValue, const std::string& strParam, const BuiltIn (&rBuiltIns)[N]) {
  if (iValue != 0) return iValue;
  for (const BuiltIn& rBuiltIn : rBuiltIns) {
    if (strParam == rBuiltIn.acParam) return rBuiltIn.iValue;
  }
  return 0;
}

// Item ix of a comma list, counted from 0: "a,b,,d" has "d" as item 3. Empty for an item that is not there.
std::string ListItem(const std::string& strList, int ix) {
  std::string strItem;
  int iItem = 0;
  for (const char ch : strList) {
    if (ch == ',') {
      iItem++;
    } else if (iItem == ix) {
      strItem += ch;
    }
  }
  return strItem;
}

std::string BoardKey(const TBoard& rBoard, const std::string& strParam) {
  return rBoard.getId() + "_" + strParam;
}

std::string ChannelKey(const TBoard& rBoard, int iBoardCh, const std::string& strParam) {
  return rBoard.getId() + "_" + ToStdString(iBoardCh) + "_" + strParam;
}

}  // namespace

// -- settings ---------------------------------------------------------------------------------------------------------

std::string TRecorderBoot::GetCrecSetting(const std::string& strParam, ECfgLoadMethod cfgLoadMethod) {
  return cfgLoadMethod == CFG_CACHED_LOAD ? ValueOf(rConfigs, strParam) : prDatabase->GetConfig(strParam);
}

void TRecorderBoot::SetCrecSetting(const std::string& strParam, const std::string& strValue) {
  StdStringMap rOneRow{{strParam, strValue}};
  prDatabase->SetConfigsPart(rOneRow, "crec");
}

std::string TRecorderBoot::GetSysSetting(const std::string& strParam) {
  return ValueOf(rConfigsSys, strParam);
}

std::string TRecorderBoot::GetOSetting(const std::string& strParam) {
  return ValueOf(rConfigsO, strParam);
}

const TBoard& TRecorderBoot::NeedBoard(int iBoardListIx) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  // The caller mixed up its indexes, or works on a line of a board that is not in the list. Going on would record it
  // with the settings of nobody; the crash log names the caller.
  if (!prBoard) std::abort();
  return *prBoard;
}

std::string TRecorderBoot::GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam,
                                              ECfgLoadMethod cfgLoadMethod) {
  return ListItem(GetCrecSetting(BoardKey(NeedBoard(iBoardListIx), strParam), cfgLoadMethod), iBoardCh);
}

int TRecorderBoot::GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam,
                                      ECfgLoadMethod cfgLoadMethod) {
  const int iValue = TextToInt(GetChannelParamStr(iBoardCh, iBoardListIx, strParam, cfgLoadMethod));
  return BuiltInInsteadOfZero(iValue, strParam, CHANNEL_BUILT_INS);
}

std::string TRecorderBoot::GetBoardParamStr(int iBoardListIx, const std::string& strParam) {
  return ValueOf(rConfigs, BoardKey(NeedBoard(iBoardListIx), strParam));
}

int TRecorderBoot::GetBoardParamInt(int iBoardListIx, const std::string& strParam) {
  return BuiltInInsteadOfZero(TextToInt(GetBoardParamStr(iBoardListIx, strParam)), strParam, BOARD_BUILT_INS);
}

int TRecorderBoot::GetBoardDataInt(int iBoardListIx, const std::string& strParam) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard ? TextToInt(ValueOf(rConfigs, BoardKey(*prBoard, strParam))) : 0;
}

void TRecorderBoot::SetBoardDataInt(int iBoardListIx, const std::string& strParam, int iValue) {
  if (const TBoard* prBoard = GetBoard(iBoardListIx)) {
    SetCrecSetting(BoardKey(*prBoard, strParam), ToStdString(iValue));
  }
}

std::string TRecorderBoot::GetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam) {
  const TBoard* prBoard = GetBoard(iBoardListIx);
  return prBoard ? ValueOf(rConfigs, ChannelKey(*prBoard, iBoardCh, strParam)) : std::string();
}

void TRecorderBoot::SetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam,
                                      const std::string& strValue) {
  if (const TBoard* prBoard = GetBoard(iBoardListIx))
    SetCrecSetting(ChannelKey(*prBoard, iBoardCh, strParam), strValue);
}

void TRecorderBoot::ReloadDbConfig() {
  rConfigsO.clear();
  prDatabase->GetConfigsPart(rConfigsO, "o");
}

void TRecorderBoot::WriteNewConfigsToDB() {
  prDatabase->SetConfigsPart(rNewConfigs, "crec");
}

// -- settings as channels ask for them --------------------------------------------------------------------------------

std::string CRecorder::GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam) {
  return prBoot->GetChannelParamStr(iBoardCh, iBoardListIx, strParam, CFG_CACHED_LOAD);
}

int CRecorder::GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam) {
  return prBoot->GetChannelParamInt(iBoardCh, iBoardListIx, strParam, CFG_CACHED_LOAD);
}

int CRecorder::GetChannelParamIntLive(int iBoardCh, int iBoardListIx, const std::string& strParam) {
  return prBoot->GetChannelParamInt(iBoardCh, iBoardListIx, strParam, CFG_LIVE_LOAD);
}

std::string CRecorder::GetBoardParamStr(int iBoardListIx, const std::string& strParam) {
  return prBoot->GetBoardParamStr(iBoardListIx, strParam);
}

int CRecorder::GetBoardParamInt(int iBoardListIx, const std::string& strParam) {
  return prBoot->GetBoardParamInt(iBoardListIx, strParam);
}

int CRecorder::GetParamInt(const std::string& strParam) {
  return TextToInt(ValueOf(prBoot->rConfigs, strParam));
}

bool CRecorder::IsSpecial(const std::string& strSpecialName) {
  return TextToLong(ValueOf(prBoot->rConfigs, "Special_" + strSpecialName)) != 0;
}
