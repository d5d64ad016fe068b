// What people and programs write for the simulated cards. The first byte of an input says what the rest is: an
// (a)ction, a list of (c)ards, a (s)cenario, the (t)race of a station line (events, a byte 0, displays), a (d)river
// configuration or a (w)av file.
#include <algorithm>
#include <fstream>
#include <set>
#include <vector>

#include "FuzzCheck.h"
#include "replay.h"
#include "scenario.h"
#include "simcards_audio.h"
#include "simcards_conf.h"
#include "simcards_shconfig.h"

using namespace simcards;

namespace {

constexpr const char* INPUT_FILE = "/tmp/input";  // the sandbox has a /tmp of its own
constexpr const char* INDEX_FILE = "/tmp/ShIndex.ini";

void WriteFile(const char* acPath, const std::string& strText) {
  std::ofstream(acPath, std::ios::binary | std::ios::trunc) << strText;
}

bool BeginsWith(const std::string& strText, const std::string& strStart) {
  return strText.compare(0, strStart.size(), strStart) == 0;
}

// An error names its line, which is one of the file.
void CheckPlace(const std::string& strError, const std::string& strName, const std::string& strFile) {
  FuzzCheck(BeginsWith(strError, strName + ":"), "an error begins with the name of the file");
  const int iLine = atoi(strError.c_str() + strName.size() + 1);
  const auto iLines = 1 + std::count(strFile.begin(), strFile.end(), '\n');
  FuzzCheck(iLine >= 1 && iLine <= iLines, "an error names a line of the file");
}

void CheckRange(const Range& rRange) {
  FuzzCheck(rRange.iFirst >= 0 && rRange.iFirst <= rRange.iLast, "a range goes upwards");
}

void CheckAction(const std::string& strLine) {
  Action rAction;
  if (!ParseAction(strLine, rAction).empty()) return;
  if (const auto* prOn = std::get_if<actions::OnChannels>(&rAction)) CheckRange(prOn->rRange);
  if (const auto* prOn = std::get_if<actions::OnCircuits>(&rAction)) CheckRange(prOn->rRange);
  if (const auto* prWait = std::get_if<actions::Wait>(&rAction)) {
    FuzzCheck(prWait->dTimeoutS >= 0, "no wait ends before it begins");
    if (prWait->rChannels) CheckRange(*prWait->rChannels);
  }
  if (const auto* prSpeed = std::get_if<actions::Speed>(&rAction)) FuzzCheck(prSpeed->dFactor > 0, "time goes forward");
  Action rAgain;
  FuzzCheck(ParseAction(strLine, rAgain).empty() && rAgain.index() == rAction.index(), "a line reads alike each time");
}

void CheckConf(const std::string& strFile) {
  WriteFile(INPUT_FILE, strFile);
  SimConf rConf;
  std::string strError;
  if (!ReadConf(INPUT_FILE, rConf, strError)) {
    CheckPlace(strError, INPUT_FILE, strFile);
    return;
  }
  std::set<std::string> astrSerials;
  for (const SimCard& rCard : rConf.vCards) {
    FuzzCheck(rCard.iChannels >= 1 && rCard.iChannels <= 4096, "a card has channels, and not too many");
    FuzzCheck(astrSerials.insert(rCard.strSerial).second, "a serial number stands once");
  }
  for (const auto& [rChannel, iType] : rConf.rChTypes) {
    FuzzCheck(astrSerials.count(rChannel.first) == 1, "a type belongs to a card");
  }
  FuzzCheck(rConf.dSpeed >= 0.01 && rConf.dSpeed <= 1000, "the speed stays in its range");
}

void CheckScenario(const std::string& strFile) {
  std::vector<std::string> astrErrors;
  const std::vector<ScenarioLine> vLines = ParseScenario(strFile, "it", astrErrors);
  for (const std::string& strError : astrErrors) CheckPlace(strError, "it", strFile);
  ScenarioClock rClock;
  double dNow = 0;
  for (const ScenarioLine& rLine : vLines) {
    const double dDue = rClock.Due(rLine);
    FuzzCheck(dDue >= dNow, "a scenario never goes back");
    rClock.Done(rLine, dDue);
    dNow = dDue;
  }
}

void CheckTrace(const std::string& strBoth) {
  const std::size_t iTexts = strBoth.find('\0');
  const TraceFile rEvents{"dch.log", strBoth.substr(0, iTexts)};
  const TraceFile rTexts{"dmsg.log", iTexts == std::string::npos ? "" : strBoth.substr(iTexts + 1)};
  std::vector<std::string> astrErrors;
  const std::string strScenario =
      ReplayScenario(rEvents, iTexts == std::string::npos ? nullptr : &rTexts, CHANNEL_OF_TRACE, astrErrors);
  FuzzCheck(strScenario.empty() != astrErrors.empty(), "a trace gives a scenario or errors");
  for (const std::string& strError : astrErrors) {
    const TraceFile& rFile = BeginsWith(strError, rEvents.strName) ? rEvents : rTexts;
    CheckPlace(strError, rFile.strName, rFile.strText);
  }
  if (strScenario.empty()) return;
  (void)ParseScenario(strScenario, "it", astrErrors);
  FuzzCheck(astrErrors.empty(), "what was made of a trace is a scenario");
}

void CheckDriver(const std::string& strFile) {
  SimConf rConf;
  rConf.vCards = {{"ATP-2A", "1001", 2}, {"DST-3B", "1002", 3}, {"DTP-60C", "1003", 60}};
  WriteFile(INPUT_FILE, strFile);
  WriteFile(INDEX_FILE, "");
  DriverPlan rPlan;
  std::string strError;
  if (!PlanDriver(INPUT_FILE, INDEX_FILE, rConf, rPlan, strError)) {
    FuzzCheck(!strError.empty(), "a configuration is refused with a reason");
    return;
  }
  FuzzCheck(!rPlan.vBoards.empty() && rPlan.vBoards.size() <= rConf.vCards.size(), "a board is a card");
  int iChannels = 0;
  for (const PlannedBoard& rBoard : rPlan.vBoards) iChannels += rBoard.rCard.iChannels;
  for (const PlannedBoard& rBoard : rPlan.vBoards) {
    FuzzCheck(rBoard.iStartCh >= 0 && rBoard.iStartCh + rBoard.rCard.iChannels <= iChannels, "each board has channels");
  }
  std::set<int> aiUsed;
  for (const PlannedCircuit& rCircuit : rPlan.vCircuits) {
    for (const int iCh : {rCircuit.iFirstCh, rCircuit.iSecondCh}) {
      FuzzCheck(iCh >= 0 && iCh < iChannels, "a circuit has channels of a board");
      FuzzCheck(aiUsed.insert(iCh).second, "a channel is one side of one circuit");
    }
  }
}

void CheckWav(const std::string& strFile) {
  WriteFile(INPUT_FILE, strFile);
  std::string strWhy;
  const auto prFile = ReadAudioFile(INPUT_FILE, strWhy);
  FuzzCheck((prFile == nullptr) == !strWhy.empty(), "a file can be used, or it is said why not");
  if (prFile == nullptr) return;
  FuzzCheck(prFile->Length() <= static_cast<long long>(strFile.size()), "there is no more audio than file");
  AudioSource rSource;
  rSource.SetFile(prFile, /*fRepeat=*/true);
  for (const int nFormat : {SSM_FORMAT_ALAW, SSM_FORMAT_ULAW}) {
    const std::vector<BYTE>& acAudio = prFile->In(nFormat);
    FuzzCheck(static_cast<long long>(acAudio.size()) == prFile->Length(), "a file is there in both laws");
    BYTE acHeard[100];
    rSource.Fill(acHeard, sizeof acHeard, nFormat, 0, 0);
    for (std::size_t i = 0; !acAudio.empty() && i < sizeof acHeard; i++) {
      FuzzCheck(acHeard[i] == acAudio[i % acAudio.size()], "what is heard is the file, again and again");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::string strAll = FuzzText(prData, iSize);
  const std::string strText = strAll.empty() ? "" : strAll.substr(1);
  switch (strAll.empty() ? '\0' : strAll[0]) {
    case 'a':
      CheckAction(strText);
      break;
    case 'c':
      CheckConf(strText);
      break;
    case 's':
      CheckScenario(strText);
      break;
    case 't':
      CheckTrace(strText);
      break;
    case 'd':
      CheckDriver(strText);
      break;
    case 'w':
      CheckWav(strText);
      break;
    default:
      return -1;  // of no kind: not kept
  }
  return 0;
}
