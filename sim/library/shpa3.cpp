// Entry points of the card library: start and end, channel facts, events.
// Results and failures as shpa3api.h has them; what cannot be done says why in SsmGetLastErrMsg.

#include "shpa3api.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "simcards_call.h"
#include "simcards_cost.h"
#include "simcards_start.h"

using simcards::Call;
using simcards::Channel;
using simcards::QueuedEvent;
using simcards::State;

namespace {

// Fills the caller's record. Its own buffer takes the data when it is large enough, else it is pointed at ours.
void Deliver(State& rState, SSM_EVENT& rEvent) {
  QueuedEvent& rQueued = rState.rQueue.Front();
  void* pvBuffer = rEvent.pvBuffer;
  const DWORD dwBufferLength = rEvent.dwBufferLength;
  rEvent = rQueued.rEvent;
  rEvent.pvBuffer = pvBuffer;
  rEvent.dwBufferLength = dwBufferLength;
  rEvent.dwDataLength = static_cast<DWORD>(rQueued.strData.size());
  if (rQueued.strData.size() > (pvBuffer != nullptr ? dwBufferLength : 0)) {
    rState.strDelivered = std::move(rQueued.strData);
    rEvent.pvBuffer = rState.strDelivered.data();
  } else if (!rQueued.strData.empty()) {
    std::memcpy(pvBuffer, rQueued.strData.data(), rQueued.strData.size());
  }
  Channel* prChannel = rState.At(rEvent.nReference);
  if (rQueued.iRecorded > 0 && prChannel != nullptr) {
    prChannel->rMem.iTaken = rQueued.iRecorded;
    prChannel->rMem.iWaiting--;
  }
  rState.rQueue.Pop();
  rState.fHandling = true;
}

// What SsmSetEvent refuses, as a text; empty when the setting can be had.
std::string WrongSetting(WORD wEvent, BOOL bEnable, const EVENT_SET_INFO* prSetting) {
  if (wEvent >= MAX_EVENT_SIZE && wEvent != simcards::ALL_EVENTS) return "no such event";
  if (bEnable == 0) return "";
  if (prSetting == nullptr) return "no setting given";
  if (prSetting->dwWorkMode != NO_EVENT && prSetting->dwWorkMode != EVENT_POLLING) {
    return "only polled events are simulated";
  }
  if (prSetting->dwOutParamVal > MEM_BYTES) return "no such way of reporting";
  if (prSetting->dwOutParamVal == MEM_BYTES && prSetting->dwOutCondition == 0) return "a report every 0 bytes";
  return "";
}

}  // namespace

// -- start and end ----------------------------------------------------------------------------------------------------

int SsmStartCti(LPCSTR lpSsmCfgFileName, LPCSTR lpIndexCfgFileName) {
  {
    Call rCall(Call::LISTED, "SsmStartCti", lpSsmCfgFileName, lpIndexCfgFileName);
    if (rCall.Refused(/*fNeedsStart=*/false)) return rCall.iResult;
    if (lpSsmCfgFileName == nullptr || lpIndexCfgFileName == nullptr) return rCall.Fail("no file name given");
  }
  const std::string strError = simcards::StartCards(lpSsmCfgFileName, lpIndexCfgFileName);
  if (strError.empty()) return SSM_OK;
  State& rState = simcards::TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  rState.strLastError = "SsmStartCti: " + strError;
  return simcards::SSM_FAILED;
}

int SsmCloseCti() {
  {
    Call rCall(Call::LISTED, "SsmCloseCti");
    if (rCall.Refused()) return rCall.iResult;
  }
  simcards::StopCards();
  return SSM_OK;
}

int SsmGetDllVersion(PSSM_VERSION pDLLVersion) {
  Call rCall(Call::UNLISTED, "SsmGetDllVersion");
  if (rCall.Refused(/*fNeedsStart=*/false)) return rCall.iResult;
  if (pDLLVersion == nullptr) return rCall.Fail("no record given");
  *pDLLVersion = SSM_VERSION();
  pDLLVersion->ucMajor = 5;
  pDLLVersion->ucMinor = 4;
  pDLLVersion->usInternal = 1;
  pDLLVersion->usBuild = 8;
  return SSM_OK;
}

int SsmSetLogAttribute(int nLogCreatePeriod, int nLogMaxKeep, int nLogMaxPeriod, LPCSTR pLogFilePath) {
  Call rCall(Call::LISTED, "SsmSetLogAttribute", nLogCreatePeriod, nLogMaxKeep, nLogMaxPeriod, pLogFilePath);
  return rCall.Refused() ? rCall.iResult : SSM_OK;
}

void SsmGetLastErrMsg(LPSTR szErrMsg) {
  State& rState = simcards::TheState();
  const std::lock_guard<std::mutex> rGuard(rState.rMutex);
  const std::size_t iLen = std::min(rState.strLastError.size(), SSM_ERR_MSG_BYTES - 1);
  std::memcpy(szErrMsg, rState.strLastError.data(), iLen);
  szErrMsg[iLen] = '\0';
}

int SsmGetMaxUsableBoard() {
  Call rCall(Call::UNLISTED, "SsmGetMaxUsableBoard");
  return rCall.Refused() ? rCall.iResult : rCall.rState.iBoards;
}

int SsmGetMaxCh() {
  Call rCall(Call::UNLISTED, "SsmGetMaxCh");
  return rCall.Refused() ? rCall.iResult : static_cast<int>(rCall.rState.vChannels.size());
}

// -- channel facts ----------------------------------------------------------------------------------------------------

int SsmGetChHdInfo(int nCh, int* pnBId, int* pnBCh) {
  Call rCall(Call::UNLISTED, "SsmGetChHdInfo");
  if (rCall.Refused()) return rCall.iResult;
  const Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return simcards::SSM_FAILED;
  if (pnBId != nullptr) *pnBId = prChannel->iBoardId;
  if (pnBCh != nullptr) *pnBCh = prChannel->iBoardCh;
  return SSM_OK;
}

int SsmGetChType(int nCh) {
  Call rCall(Call::UNLISTED, "SsmGetChType");
  if (rCall.Refused()) return rCall.iResult;
  const Channel* prChannel = rCall.ChannelAt(nCh);
  return prChannel == nullptr ? CH_UNKNOWN : prChannel->iType;
}

int SsmGetChState(int nCh) {
  Call rCall(Call::UNLISTED, "SsmGetChState");
  if (rCall.Refused()) return rCall.iResult;
  const Channel* prChannel = rCall.ChannelAt(nCh);
  return prChannel == nullptr ? simcards::SSM_FAILED : prChannel->iState;
}

int SsmGetLineVoltage(int nCh) {
  Call rCall(Call::UNLISTED, "SsmGetLineVoltage");
  if (rCall.Refused()) return rCall.iResult;
  const Channel* prChannel = rCall.ChannelAt(nCh);
  return prChannel == nullptr ? simcards::SSM_FAILED : prChannel->iVoltage;
}

// -- events -----------------------------------------------------------------------------------------------------------

int SsmSetEvent(WORD wEvent, int nReference, BOOL bEnable, PEVENT_SET_INFO pEventSet) {
  Call rCall(Call::LISTED, "SsmSetEvent", wEvent, nReference, bEnable);
  if (rCall.Refused()) return rCall.iResult;
  const std::string strWrong = WrongSetting(wEvent, bEnable, pEventSet);
  if (!strWrong.empty()) return rCall.Fail(strWrong);
  rCall.rState.SetEvent(wEvent, nReference, bEnable != 0 ? *pEventSet : EVENT_SET_INFO());
  return SSM_OK;
}

int SsmWaitForEventA(DWORD dwTimeOut, PSSM_EVENT pEvent) {
  const simcards::TakingCost rCost;
  Call rCall(Call::UNLISTED, "SsmWaitForEventA");
  if (rCall.Refused()) return rCall.iResult;
  if (pEvent == nullptr) return rCall.Fail("no record given");
  State& rState = rCall.rState;
  rState.fHandling = false;
  rState.Changed();
  if (rState.rQueue.IsEmpty()) {
    rState.iTakers++;
    rState.rArrived.wait_for(rCall.rLock, std::chrono::milliseconds(dwTimeOut),
                             [&] { return !rState.rQueue.IsEmpty() || rState.eMode == simcards::MODE_CLOSED; });
    rState.iTakers--;
  }
  if (rState.rQueue.IsEmpty()) return SSM_EVENT_TIMEOUT;
  Deliver(rState, *pEvent);
  rState.Changed();
  return SSM_OK;
}
