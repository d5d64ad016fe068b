// Audio into the rings of SsmRecToMem and the files of SsmRecToFile, and the reports that go with it.

#include <algorithm>

#include "simcards_state.h"

namespace simcards {
namespace {

constexpr int STEP_BYTES = 512;  // audio is made in pieces of at most this

// The next report after iWritten bytes; a value that is never reached when nothing is to be reported.
long long NextReport(const MemRecording& rMem, const EVENT_SET_INFO& rSetting) {
  const long long iSize = rMem.dwSize;
  switch (rSetting.dwOutParamVal) {
    case MEM_BYTES:
      return (rMem.iWritten / rSetting.dwOutCondition + 1) * rSetting.dwOutCondition;
    case END_BUFFER:
      return (rMem.iWritten / iSize + 1) * iSize;
    case MEM_OFFSET: {
      const long long iOffset = rSetting.dwOutCondition % iSize;
      return (rMem.iWritten + iSize - iOffset) / iSize * iSize + iOffset;
    }
    default: {  // END_HALF_BUFFER; an odd ring has a shorter first half
      const long long iRound = rMem.iWritten / iSize * iSize;
      return rMem.iWritten < iRound + iSize / 2 ? iRound + iSize / 2 : iRound + iSize;
    }
  }
}

// Bytes of the ring that the next iBytes bytes overwrite though no report of them was taken.
long long LostBytes(const MemRecording& rMem, int iBytes) {
  const long long iOldEnd = rMem.iWritten + iBytes - rMem.dwSize;  // old bytes before this one are overwritten
  const long long iOldStart = std::max(rMem.iWritten - static_cast<long long>(rMem.dwSize), rMem.iTaken);
  return std::max(0LL, iOldEnd - std::max(iOldStart, 0LL));
}

void QueueReport(State& rState, int nCh, MemRecording& rMem) {
  if (rState.SettingOf(E_PROC_RecordMem, nCh) == nullptr) return;
  QueuedEvent rQueued;
  rQueued.rEvent.wEventCode = E_PROC_RecordMem;
  rQueued.rEvent.nReference = nCh;
  rQueued.rEvent.dwParam = static_cast<DWORD>(rMem.iWritten % rMem.dwSize);
  rQueued.iRecorded = rMem.iWritten;
  rMem.iWaiting++;
  rState.Queue(std::move(rQueued));
}

void AdvanceMem(State& rState, int nCh, Channel& rChannel, int iBytes) {
  MemRecording& rMem = rChannel.rMem;
  const EVENT_SET_INFO* prSetting = rState.SettingOf(E_PROC_RecordMem, nCh);
  for (int iMade = 0, iPiece = 0; iMade < iBytes; iMade += iPiece) {
    const auto iAt = static_cast<int>(rMem.iWritten % rMem.dwSize);
    iPiece = std::min(iBytes - iMade, static_cast<int>(rMem.dwSize) - iAt);
    const long long iReport = prSetting != nullptr ? NextReport(rMem, *prSetting) : -1;
    if (iReport > 0) iPiece = static_cast<int>(std::min<long long>(iPiece, iReport - rMem.iWritten));
    rState.iOverruns += LostBytes(rMem, iPiece);
    rChannel.rSource.Fill(rMem.pBuf + iAt, iPiece, rMem.nFormat, rMem.iWritten, iMade);
    rMem.iWritten += iPiece;
    if (rMem.iWritten == iReport) QueueReport(rState, nCh, rMem);
  }
}

void AdvanceFile(Channel& rChannel, int iBytes) {
  BYTE acPiece[STEP_BYTES];
  for (int iMade = 0, iPiece = 0; iMade < iBytes; iMade += iPiece) {
    iPiece = std::min(iBytes - iMade, STEP_BYTES);
    rChannel.rSource.Fill(acPiece, iPiece, rChannel.rFile.Format(), rChannel.rFile.Written(), iMade);
    rChannel.rFile.Write(acPiece, iPiece);
  }
}

}  // namespace

void State::AdvanceAll(int iBytes) {
  bool fEnded = false;
  for (std::size_t i = 0; i < vChannels.size(); i++) {
    Channel& rChannel = *vChannels[i];
    if (rChannel.rMem.fOn) AdvanceMem(*this, static_cast<int>(i), rChannel, iBytes);
    if (rChannel.rFile.IsOpen()) AdvanceFile(rChannel, iBytes);
    const bool fPlaying = rChannel.rSource.Playing();
    rChannel.rSource.Skip(iBytes);
    fEnded = fEnded || (fPlaying && !rChannel.rSource.Playing());
  }
  if (fEnded) Changed();  // somebody may wait for a file to be played
}

void State::Hear(int nCh, const std::string& strBytes) {
  Channel* const prChannel = At(nCh);
  if (prChannel == nullptr || !prChannel->rMem.fOn) return;
  MemRecording& rMem = prChannel->rMem;
  iOverruns += LostBytes(rMem, static_cast<int>(strBytes.size()));
  for (const char ch : strBytes) rMem.pBuf[rMem.iWritten++ % rMem.dwSize] = static_cast<BYTE>(ch);
  QueueReport(*this, nCh, rMem);
}

}  // namespace simcards
