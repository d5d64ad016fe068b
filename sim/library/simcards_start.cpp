// The cards are built under the lock, audio and control start without it, since their threads take it. The end goes the
// other way round: control first, so that no action meets half of the cards, and the state last, when no thread is
// left.

#include "simcards_start.h"

#include "simcards_conf.h"
#include "simcards_control.h"
#include "simcards_pacing.h"
#include "simcards_shconfig.h"
#include "simcards_state.h"
#include "simcards_trace.h"

namespace simcards {
namespace {

// Guarded by the state's mutex.
std::string& ConfPath() {
  static std::string& rPath = *new std::string(CONF_FILE);
  return rPath;
}

int iFailedStarts = 0;  // guarded by the state's mutex

void BuildCards(State& rState, const DriverPlan& rPlan, const SimConf& rConf) {
  std::map<int, const PlannedBoard*> rByStart;  // channels are made in the order of their numbers
  for (const PlannedBoard& rBoard : rPlan.vBoards) rByStart[rBoard.iStartCh] = &rBoard;
  for (const auto& [iStartCh, prBoard] : rByStart) {
    const int iBoardId = static_cast<int>(prBoard - rPlan.vBoards.data());
    rState.AddBoardChannels(iBoardId, prBoard->rCard.iChannels, ChTypeOf(prBoard->eFamily));
    for (int i = 0; i < prBoard->rCard.iChannels; i++) {
      const auto it = rConf.rChTypes.find({prBoard->rCard.strSerial, i});
      if (it != rConf.rChTypes.end()) rState.At(iStartCh + i)->iType = it->second;
    }
  }
  for (std::size_t i = 0; i < rPlan.vCircuits.size(); i++) {
    Circuit& rCircuit = rState.rCircuits[static_cast<int>(i)];
    rCircuit.iFirstCh = rPlan.vCircuits[i].iFirstCh;
    rCircuit.iSecondCh = rPlan.vCircuits[i].iSecondCh;
  }
}

// The cards are running afterwards, without audio and control.
std::string Build(const std::string& strConfigPath, const std::string& strIndexPath, SimConf& rConf) {
  State& rState = TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  if (rState.eMode == MODE_CARDS) return "the driver is started already";
  std::string strError;
  if (!ReadConf(ConfPath(), rConf, strError)) return strError;
  if (iFailedStarts < rConf.iStartFailures) {
    iFailedStarts++;
    return rConf.strStartText;
  }
  DriverPlan rPlan;
  if (!PlanDriver(strConfigPath, strIndexPath, rConf, rPlan, strError)) return strError;
  rState.ForgetCards();
  BuildCards(rState, rPlan, rConf);
  for (const auto& [strOperation, iTimes] : rConf.rFaults)
    rState.rFaults[strOperation] = {iTimes, -1, "simulated failure"};
  rState.eMode = MODE_CARDS;
  return "";
}

}  // namespace

std::string StartCards(const std::string& strConfigPath, const std::string& strIndexPath) {
  SimConf rConf;
  std::string strError = Build(strConfigPath, strIndexPath, rConf);
  if (!strError.empty()) return strError;
  LetPacingSlip(rConf.fSlip);
  StartPacingThread(rConf.dSpeed);
  if (!StartControl(rConf.strSocket, strError)) StopCards();
  return strError;
}

void StopCards() {
  StopControl();
  StopPacingThread();
  StopAllTraces();
  State& rState = TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  rState.ForgetCards();
}

void ResetCards() {
  StopCards();
  LetPacingSlip(true);
  State& rState = TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  rState.Forget();
  rState.eMode = MODE_BENCH;
  iFailedStarts = 0;
  ConfPath() = CONF_FILE;
}

void UseConfFile(const std::string& strPath) {
  State& rState = TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  ConfPath() = strPath;
}

}  // namespace simcards
