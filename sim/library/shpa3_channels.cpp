// Entry points of the card library: recording, set-up of a channel, numbers and digits.

#include <cerrno>
#include <cstring>

#include "shpa3api.h"
#include "simcards_call.h"

using simcards::Call;
using simcards::Channel;
using simcards::Circuit;
using simcards::SSM_FAILED;

namespace {

// An operation on a channel that the simulation only notes: the line sounds the same whatever the volume.
int OnlyChecked(Call& rCall, int nCh) {
  if (rCall.Refused()) return rCall.iResult;
  return rCall.ChannelAt(nCh) == nullptr ? SSM_FAILED : SSM_OK;
}

int GiveNumber(Call& rCall, int nCic, std::string simcards::SpyInfo::*prNumber, char* pcCid) {
  if (rCall.Refused()) return rCall.iResult;
  if (pcCid == nullptr) return rCall.Fail("no buffer given");
  const Circuit* prCircuit = rCall.CircuitAt(nCic);
  if (prCircuit == nullptr) return SSM_FAILED;
  const std::string& strNumber = prCircuit->rInfo.*prNumber;
  const std::size_t iLen = std::min(strNumber.size(), SPY_NUMBER_BYTES - 1);
  std::memcpy(pcCid, strNumber.data(), iLen);
  pcCid[iLen] = '\0';
  return SSM_OK;
}

bool IsFormat(int nFormat) {
  return nFormat == SSM_FORMAT_ALAW || nFormat == SSM_FORMAT_ULAW;
}

}  // namespace

// -- recording --------------------------------------------------------------------------------------------------------

int SsmRecToMem(int nCh, int nFormat, LPBYTE pBuf, DWORD dwBufSize, DWORD dwReserved) {
  Call rCall(Call::LISTED, "SsmRecToMem", nCh, nFormat, dwBufSize, dwReserved);
  if (rCall.Refused()) return rCall.iResult;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return SSM_FAILED;
  if (!IsFormat(nFormat)) return rCall.Fail("format " + std::to_string(nFormat) + " is not supported");
  if (pBuf == nullptr || dwBufSize < 2) return rCall.Fail("no buffer given");
  if (prChannel->rMem.fOn) return rCall.Fail("channel " + std::to_string(nCh) + " is being recorded");
  rCall.rState.CatchUp(nCh, *prChannel);
  prChannel->rMem.fOn = true;
  prChannel->rMem.nFormat = nFormat;
  prChannel->rMem.pBuf = pBuf;
  prChannel->rMem.dwSize = dwBufSize;
  rCall.rState.Begin(nCh, *prChannel);
  rCall.rState.Changed();
  return SSM_OK;
}

// Stopping a channel that is not recorded succeeds: a recorder whose start failed stops it all the same.
int SsmStopRecToMem(int nCh) {
  Call rCall(Call::LISTED, "SsmStopRecToMem", nCh);
  if (rCall.Refused()) return rCall.iResult;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return SSM_FAILED;
  rCall.rState.CatchUp(nCh, *prChannel);
  if (prChannel->rMem.iWaiting > 0) rCall.rState.DropReports(nCh);
  prChannel->rMem = simcards::MemRecording();
  rCall.rState.Changed();
  return SSM_OK;
}

int SsmRecToFile(int nCh, LPCSTR pszFileName, int nFormat, DWORD dwStartPos, DWORD dwBytes, DWORD dwTime, int nMask) {
  Call rCall(Call::LISTED, "SsmRecToFile", nCh, pszFileName, nFormat, dwStartPos, dwBytes, dwTime, nMask);
  if (rCall.Refused()) return rCall.iResult;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return SSM_FAILED;
  if (pszFileName == nullptr) return rCall.Fail("no file name given");
  if (!IsFormat(nFormat)) return rCall.Fail("format " + std::to_string(nFormat) + " is not supported");
  if (prChannel->rFile.IsOpen()) return rCall.Fail("channel " + std::to_string(nCh) + " is recorded to a file already");
  rCall.rState.CatchUp(nCh, *prChannel);
  if (!prChannel->rFile.Open(pszFileName, nFormat)) {
    return rCall.Fail(std::string("cannot write ") + pszFileName + ": " + std::strerror(errno));
  }
  rCall.rState.Schedule(nCh, *prChannel);
  return SSM_OK;
}

int SsmStopRecToFile(int nCh) {
  Call rCall(Call::LISTED, "SsmStopRecToFile", nCh);
  if (rCall.Refused()) return rCall.iResult;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return SSM_FAILED;
  rCall.rState.CatchUp(nCh, *prChannel);
  prChannel->rFile.Close();
  return SSM_OK;
}

// -- set-up of a channel ----------------------------------------------------------------------------------------------

int SsmSetRecVolume(int nCh, int nVolume) {
  Call rCall(Call::LISTED, "SsmSetRecVolume", nCh, nVolume);
  return OnlyChecked(rCall, nCh);
}

int SsmSetRecAGC(int nCh, int bEnable) {
  Call rCall(Call::LISTED, "SsmSetRecAGC", nCh, bEnable);
  return OnlyChecked(rCall, nCh);
}

int DTRSetMixerVolume(int nCh, int nGroup, int nVolumeIn, int nVolumeOut) {
  Call rCall(Call::LISTED, "DTRSetMixerVolume", nCh, nGroup, nVolumeIn, nVolumeOut);
  return OnlyChecked(rCall, nCh);
}

int SsmSetBargeInSens(int nCh, int nSensitivity) {
  Call rCall(Call::LISTED, "SsmSetBargeInSens", nCh, nSensitivity);
  return OnlyChecked(rCall, nCh);
}

// -- numbers and digits -----------------------------------------------------------------------------------------------

int SsmClearCallerId(int nCh) {
  Call rCall(Call::LISTED, "SsmClearCallerId", nCh);
  if (rCall.Refused()) return rCall.iResult;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return SSM_FAILED;
  prChannel->strCallerId.clear();
  return SSM_OK;
}

int SsmClearRxDtmfBuf(int nCh) {
  Call rCall(Call::LISTED, "SsmClearRxDtmfBuf", nCh);
  if (rCall.Refused()) return rCall.iResult;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return SSM_FAILED;
  prChannel->iRxDigits = 0;
  return SSM_OK;
}

char* SsmGetCallerIdA(int nCh) {
  Call rCall(Call::UNLISTED, "SsmGetCallerIdA");
  if (rCall.Refused()) return nullptr;
  Channel* prChannel = rCall.ChannelAt(nCh);
  if (prChannel == nullptr) return nullptr;
  prChannel->strCallerIdGiven = prChannel->strCallerId;
  return prChannel->strCallerIdGiven.data();
}

int SpyGetCallInCh(int nCic) {
  Call rCall(Call::UNLISTED, "SpyGetCallInCh");
  if (rCall.Refused()) return rCall.iResult;
  const Circuit* prCircuit = rCall.CircuitAt(nCic);
  return prCircuit == nullptr ? SSM_FAILED : prCircuit->rInfo.iCallInCh;
}

int SpyGetCallOutCh(int nCic) {
  Call rCall(Call::UNLISTED, "SpyGetCallOutCh");
  if (rCall.Refused()) return rCall.iResult;
  const Circuit* prCircuit = rCall.CircuitAt(nCic);
  return prCircuit == nullptr ? SSM_FAILED : prCircuit->rInfo.iCallOutCh;
}

int SpyGetCallerId(int nCic, char* pcCid) {
  Call rCall(Call::UNLISTED, "SpyGetCallerId");
  return GiveNumber(rCall, nCic, &simcards::SpyInfo::strCaller, pcCid);
}

int SpyGetCalleeId(int nCic, char* pcCid) {
  Call rCall(Call::UNLISTED, "SpyGetCalleeId");
  return GiveNumber(rCall, nCic, &simcards::SpyInfo::strCallee, pcCid);
}

int SpyGetConId(int nCic, char* pcCid) {
  Call rCall(Call::UNLISTED, "SpyGetConId");
  return GiveNumber(rCall, nCic, &simcards::SpyInfo::strConnected, pcCid);
}
