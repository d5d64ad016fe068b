// Audio into the rings of SsmRecToMem and the files of SsmRecToFile, and the reports that go with it.

#include <algorithm>
#include <limits>

#include "simcards_state.h"

namespace simcards {
namespace {

constexpr int STEP_BYTES = 512;  // audio is made in pieces of at most this

constexpr long long NEVER = std::numeric_limits<long long>::max();

long long ReportBehind(const MemRecording& rMem, const EVENT_SET_INFO& rSetting) {
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

// llDueNs: when the bytes were there; 0: no clock tells.
void QueueReport(State& rState, int nCh, MemRecording& rMem, LONGLONG llDueNs) {
  QueuedEvent rQueued;
  rQueued.rEvent.wEventCode = E_PROC_RecordMem;
  rQueued.rEvent.nReference = nCh;
  rQueued.rEvent.dwParam = static_cast<DWORD>(rMem.iWritten % rMem.dwSize);
  rQueued.rEvent.llReserved2 = llDueNs;
  rQueued.iRecorded = rMem.iWritten;
  if (rState.Queue(std::move(rQueued))) rMem.iWaiting++;
}

void AdvanceMem(State& rState, int nCh, Channel& rChannel, int iBytes) {
  MemRecording& rMem = rChannel.rMem;
  for (int iMade = 0, iPiece = 0; iMade < iBytes; iMade += iPiece) {
    const auto iAt = static_cast<int>(rMem.iWritten % rMem.dwSize);
    iPiece = std::min(iBytes - iMade, static_cast<int>(rMem.dwSize) - iAt);
    const long long iReport = rState.NextReport(nCh, rMem);
    iPiece = static_cast<int>(std::min<long long>(iPiece, iReport - rMem.iWritten));
    rState.iOverruns += LostBytes(rMem, iPiece);
    rChannel.rSource.Fill(rMem.pBuf + iAt, iPiece, rMem.nFormat, rMem.iWritten, iMade);
    rMem.iWritten += iPiece;
    if (rMem.iWritten == iReport) {
      QueueReport(rState, nCh, rMem, rState.rTime.NsOf(rChannel.iClock + iMade + iPiece));
    }
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

long long State::NextReport(int nCh, MemRecording& rMem) const {
  if (rMem.iSettings != iSettings || rMem.iReport <= rMem.iWritten) {
    const EVENT_SET_INFO* prSetting = SettingOf(E_PROC_RecordMem, nCh);
    rMem.iReport = prSetting != nullptr ? ReportBehind(rMem, *prSetting) : NEVER;
    rMem.iSettings = iSettings;
  }
  return rMem.iReport;
}

void State::CatchUp(int nCh, Channel& rChannel) {
  const long long iBehind = iClock - rChannel.iClock;
  if (iBehind <= 0) return;  // a recording that has just begun may be ahead
  if (rChannel.rMem.fOn) AdvanceMem(*this, nCh, rChannel, static_cast<int>(iBehind));
  if (rChannel.rFile.IsOpen()) AdvanceFile(rChannel, static_cast<int>(iBehind));
  const bool fPlaying = rChannel.rSource.Playing();
  rChannel.rSource.Skip(iBehind);
  rChannel.iClock = iClock;
  if (fPlaying && !rChannel.rSource.Playing()) Changed();  // somebody may wait for the file to be played
}

void State::Hear(int nCh, const std::string& strBytes) {
  Channel* const prChannel = At(nCh);
  if (prChannel == nullptr || !prChannel->rMem.fOn) return;
  MemRecording& rMem = prChannel->rMem;
  iOverruns += LostBytes(rMem, static_cast<int>(strBytes.size()));
  for (const char ch : strBytes) rMem.pBuf[rMem.iWritten++ % rMem.dwSize] = static_cast<BYTE>(ch);
  QueueReport(*this, nCh, rMem, 0);
}

}  // namespace simcards
