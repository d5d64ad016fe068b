#include "display_line.h"

#include <syslog.h>

#include "DstChannel.h"
#include "display_input.h"
#include "ftime.h"
#include "logging.h"
#include "plaintext.h"
#include "recorder.h"
#include "recorder_boot.h"

namespace {

constexpr time_t START_TIME = 1000000000;  // any time will do: only differences matter

// No database, but the name of the line is known.
class LineNameAlone : public AbsentDatabase {
 public:
  explicit LineNameAlone(std::string strName) : strLineName(std::move(strName)) {}
  std::string GetContactName(int) override { return strLineName; }

 private:
  std::string strLineName;
};

// A line that is put into a state without the events that would lead there.
class ShownLine : public DST_Channel {
 public:
  void Assume(const DisplayLineState& rState) {
    fDontRecord = true;
    strPrevCallRemoteNum = rState.strPrevCallRemoteNum;
    if (!rState.strLocalNum.empty()) strLocalNum = rState.strLocalNum;
    if (!rState.strRemoteNum.empty()) {
      strRemoteNum = rState.strRemoteNum;
      rRemoteNumTime = START_TIME;
    }
    if (rState.fRinging) RingingStarted();
    if (rState.iBusyFor >= 0) {
      fInCall_DChannel = true;
      fCallBusy = true;
      rStartTime = START_TIME - rState.iBusyFor;
    }
  }

  using DST_Channel::pvJudgedNums;
  using DST_Channel::strConnectedNum;
  using DST_Channel::strLocalNum;
  using DST_Channel::strRemoteNum;
};

}  // namespace

struct DisplayLine::Parts {
  TRecorderBoot rBoot;
  CRecorder rRecorder;
  std::vector<JudgedNumber> vJudged;
  ShownLine* prLine = nullptr;  // owned by rRecorder
};

DisplayLine::DisplayLine(const DisplayLineState& rState) : prParts(std::make_unique<Parts>()) {
  g_fErrorFile = false;                   // the daemon's error file is left alone
  (void)setlogmask(LOG_MASK(LOG_EMERG));  // and so is the system's log: without a card there is much to complain of
  SetSimTime(START_TIME);

  TBoard rBoard;
  rBoard.fPresent = true;
  rBoard.strSerial = "0";
  rBoard.strPBXType = rState.strPbxType;
  TRecorderBoot& rBoot = prParts->rBoot;
  for (const auto& [strParam, strValue] : rState.rSettings) rBoot.rConfigs[rBoard.getId() + "_" + strParam] = strValue;
  if (rState.fPilot) rBoot.rConfigs["Special_Pilot"] = "1";
  rBoot.vrBoardList.push_back(rBoard);
  rBoot.prDatabase = std::make_unique<LineNameAlone>(rState.strLineName);

  CRecorder& rRecorder = prParts->rRecorder;
  rRecorder.prBoot = &rBoot;
  rRecorder.prDatabase = rBoot.prDatabase.get();
  prParts->prLine = new ShownLine;
  rRecorder.vChannels.push_back(prParts->prLine);

  ShownLine& rLine = *prParts->prLine;
  rLine.pvJudgedNums = &prParts->vJudged;
  rLine.Init(/*iChannel=*/1, /*iBoardListIx=*/0, /*iBoardCh=*/0, &rRecorder, /*iDrvCh=*/0);
  rLine.Assume(rState);
  g_DebugMode = 1;  // from here on the daemon's log lines go to standard output
}

DisplayLine::~DisplayLine() = default;

std::string DisplayLine::Show(const DisplayText& rDisplay) {
  ShownLine& rLine = *prParts->prLine;
  const std::string strRemote = rLine.strRemoteNum;
  const std::string strName = rLine.strConnectedNum;
  const std::string strLocal = rLine.strLocalNum;

  SetSimTime(START_TIME + rDisplay.iSecond);
  std::string strData = rDisplay.strText;
  SSM_EVENT rEvent;
  rEvent.wEventCode = E_RCV_DSTDChannel;
  rEvent.dwParam = DMSG_DISPLAY;
  rEvent.pvBuffer = strData.data();
  rEvent.dwDataLength = static_cast<DWORD>(strData.size());
  prParts->vJudged.clear();
  rLine.HandleEvent(&rEvent);

  std::string strResult;
  for (const auto& [strNumber, eVerdict] : prParts->vJudged) {
    strResult += strNumber + ": " + GetVerdictDescr(eVerdict) + "\n";
  }
  const auto Tell = [&](const char* acWhat, const std::string& strBefore, const std::string& strAfter) {
    if (strAfter == strBefore) return;
    std::string strShown = strAfter.empty() ? "(none)" : strAfter;
    MaskControls(strShown.data(), strShown.size());
    strResult += std::string(acWhat) + ": " + strShown + "\n";
  };
  Tell("=> remote number", strRemote, rLine.strRemoteNum);
  Tell("=> name", strName, rLine.strConnectedNum);
  Tell("=> local id", strLocal, rLine.strLocalNum);
  return strResult;
}
