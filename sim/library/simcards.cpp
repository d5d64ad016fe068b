// The interface for tests in the same process.

#include "simcards.h"

#include "simcards_pacing.h"
#include "simcards_start.h"
#include "simcards_state.h"

namespace simcards {
namespace {

struct Locked {
  State& rState = TheState();
  std::lock_guard<std::mutex> rGuard{rState.rMutex};
};

// Runs fnSet on the source of a channel; does nothing for a channel that does not exist.
template <typename F>
void SetSource(int nCh, F fnSet) {
  Locked rLocked;
  Channel* prChannel = rLocked.rState.At(nCh);
  if (prChannel != nullptr) rLocked.rState.SetSource(nCh, *prChannel, fnSet);
}

}  // namespace

void Reset() {
  ResetCards();
}

void SetConfFile(const std::string& strPath) {
  UseConfFile(strPath);
}

void AddBoard(int iBoardId, int iCount, int iChType) {
  Locked rLocked;
  if (rLocked.rState.eMode == MODE_CLOSED) rLocked.rState.eMode = MODE_BENCH;
  rLocked.rState.AddBoardChannels(iBoardId, iCount, iChType);
}

void SetChState(int nCh, int iState) {
  Locked rLocked;
  if (Channel* prChannel = rLocked.rState.At(nCh)) prChannel->iState = iState;
}

void SetVoltage(int nCh, int iVoltage) {
  Locked rLocked;
  if (Channel* prChannel = rLocked.rState.At(nCh)) prChannel->iVoltage = iVoltage;
}

void SetCallerId(int nCh, const std::string& strCallerId) {
  Locked rLocked;
  if (Channel* prChannel = rLocked.rState.At(nCh)) prChannel->strCallerId = strCallerId;
}

void SetSpyInfo(int nCic, const SpyInfo& rInfo) {
  Locked rLocked;
  rLocked.rState.rCircuits[nCic].rInfo = rInfo;
}

void PushEvent(WORD wEventCode, int nReference, DWORD dwParam, DWORD dwSubReason, DWORD dwXtraInfo,
               const std::string& strData) {
  QueuedEvent rQueued;
  rQueued.rEvent.wEventCode = wEventCode;
  rQueued.rEvent.nReference = nReference;
  rQueued.rEvent.dwParam = dwParam;
  rQueued.rEvent.dwSubReason = dwSubReason;
  rQueued.rEvent.dwXtraInfo = dwXtraInfo;
  rQueued.strData = strData;
  Locked rLocked;
  rLocked.rState.Queue(std::move(rQueued));
}

SSM_EVENT MakeEvent(WORD wEventCode, int nReference, DWORD dwParam, DWORD dwSubReason, std::string* prData) {
  SSM_EVENT rEvent;
  rEvent.wEventCode = wEventCode;
  rEvent.nReference = nReference;
  rEvent.dwParam = dwParam;
  rEvent.dwSubReason = dwSubReason;
  if (prData != nullptr) {
    rEvent.pvBuffer = prData->data();
    rEvent.dwBufferLength = static_cast<DWORD>(prData->size());
    rEvent.dwDataLength = static_cast<DWORD>(prData->size());
  }
  return rEvent;
}

void FailNext(const std::string& strOperation, int iTimes, int iResult, const std::string& strText) {
  Locked rLocked;
  rLocked.rState.rFaults.erase(strOperation);
  if (iTimes > 0) rLocked.rState.rFaults[strOperation] = {iTimes, iResult, strText};
}

std::vector<std::string> TakeCalls() {
  Locked rLocked;
  std::vector<std::string> astrTaken(rLocked.rState.astrCalls.begin(), rLocked.rState.astrCalls.end());
  rLocked.rState.astrCalls.clear();
  return astrTaken;
}

void PlaySilence(int nCh) {
  SetSource(nCh, [](AudioSource& rSource) { rSource.SetSilence(); });
}

void PlayTone(int nCh, double dHz, double dLevelDb) {
  SetSource(nCh, [=](AudioSource& rSource) { rSource.SetTone(dHz, dLevelDb); });
}

void PlayCounting(int nCh) {
  SetSource(nCh, [](AudioSource& rSource) { rSource.SetCounting(); });
}

bool PlayFile(int nCh, const std::string& strPath, bool fLoop) {
  std::string strWhy;
  const std::shared_ptr<const AudioFile> prFile = ReadAudioFile(strPath, strWhy);
  if (prFile == nullptr) return false;
  SetSource(nCh, [&](AudioSource& rSource) { rSource.SetFile(prFile, fLoop); });
  return true;
}

void StartPacing(double dSpeed) {
  StartPacingThread(dSpeed);
}

void StopPacing() {
  StopPacingThread();
}

void Advance(int iBytes) {
  Locked rLocked;
  rLocked.rState.Advance(iBytes);
}

void Hear(int nCh, const std::string& strBytes) {
  Locked rLocked;
  rLocked.rState.Hear(nCh, strBytes);
}

long long Overruns() {
  Locked rLocked;
  return rLocked.rState.iOverruns;
}

}  // namespace simcards
