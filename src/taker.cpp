#include "taker.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iterator>
#include <random>
#include <utility>

#include "g711.h"
#include "mainthread.h"

namespace {

constexpr DWORD EVENT_WAIT_MS = 200;
constexpr int TAKER_NICENESS = -20;
constexpr long long SHARE_OF_MEMORY = 4;
constexpr std::size_t SPARE_BLOCKS = 4096;
// Beside as many for each block: an event is small.
constexpr std::size_t EVENTS_BESIDE_BLOCKS = 100'000;
constexpr std::size_t EVENTS_A_BLOCK = 4;
constexpr int SLEEP_MS = 200;
constexpr int SLEEP_BESIDE_AUDIO_MS = 10;
constexpr double NS_A_SECOND = 1e9;
constexpr std::chrono::milliseconds ERROR_PAUSE{100};  // far below what a ring holds
constexpr std::size_t BLOCKS_BEFORE_GIVEN_BACK = 256;

std::size_t BlocksOf(long long iBytes) {
  return static_cast<std::size_t>(iBytes / TAKEN_BLOCK_BYTES);
}

// The thread comes before all others. Not in real time: a driver that fails in a loop must not take the machine.
// Without the right to it the thread works all the same.
void RaisePriority() {
  (void)setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), TAKER_NICENESS);
}

// A signal to the process is the main thread's, or it would break a wait in the driver.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t rToBlock;
    (void)sigemptyset(&rToBlock);
    for (const int iSignal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2, SIGCHLD, SIGPIPE}) {
      (void)sigaddset(&rToBlock, iSignal);
    }
    (void)pthread_sigmask(SIG_BLOCK, &rToBlock, &rBefore);
  }
  ~SignalsBlocked() { (void)pthread_sigmask(SIG_SETMASK, &rBefore, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t rBefore{};
};

}  // namespace

std::int64_t MonotonicNs() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

long long TakerLimitBytes(int iLines) {
  const long long iWanted = static_cast<long long>(iLines) * TAKEN_S * SAMPLES_PER_S;
  const long long iMemory = static_cast<long long>(sysconf(_SC_PHYS_PAGES)) * sysconf(_SC_PAGESIZE);
  return std::min(iWanted, iMemory / SHARE_OF_MEMORY);
}

Taker::Taker(MainQueue& rWakes, long long iLimitBytes)
    : rMainQueue(rWakes),
      iMostBlocks(BlocksOf(iLimitBytes)),
      iMostEvents(EVENTS_A_BLOCK * iMostBlocks + EVENTS_BESIDE_BLOCKS) {
  std::random_device rRandom;
  for (BYTE& ucOfPattern : acPattern) ucOfPattern = static_cast<BYTE>(rRandom());
}

Taker::~Taker() {
  if (!fStarted) return;
  {
    const MutexLock rLock(rMutex);
    fStopping = true;
    fHold = true;
  }
  rChanged.NotifyAll();
  (void)pthread_join(rThread, nullptr);
}

// -- the thread -------------------------------------------------------------------------------------------------------

bool Taker::Start() {
  const SignalsBlocked rBlocked;
  {
    const MutexLock rLock(rMutex);
    fAtRest = false;
  }
  fStarted = pthread_create(&rThread, nullptr, RunIt, this) == 0;
  return fStarted;
}

void* Taker::RunIt(void* prTaker) {
  (void)pthread_setname_np(pthread_self(), "taker");
  RaisePriority();
  static_cast<Taker*>(prTaker)->Run();
  return nullptr;
}

void Taker::Run() {
  while (!fHold || MayGoOn()) TakeOne();
}

// False: it is to stop.
bool Taker::MayGoOn() {
  MutexLock rLock(rMutex);
  if (fErrorWaits && !fResting && !fStopping) {
    (void)rChanged.WaitUntil(rLock, std::chrono::steady_clock::now() + ERROR_PAUSE);
  }
  while (!fStopping && (fResting || IsFull())) {
    fAtRest = true;
    rChanged.NotifyAll();
    rChanged.Wait(rLock);
  }
  fAtRest = fStopping;
  fHold = fStopping || fErrorWaits;
  return !fStopping;
}

void Taker::Rest() {
  if (!fStarted) return;
  MutexLock rLock(rMutex);
  fResting = true;
  fHold = true;
  while (!fAtRest) rChanged.Wait(rLock);
}

void Taker::GoOn() {
  {
    const MutexLock rLock(rMutex);
    fResting = false;
  }
  rChanged.NotifyAll();
}

void Taker::TakeOne() {
  char acBuffer[EVENT_BUFFER_BYTES];
  acBuffer[0] = 0;
  SSM_EVENT rEvent;
  rEvent.pvBuffer = acBuffer;
  rEvent.dwBufferLength = EVENT_BUFFER_BYTES;
  const int iResult = SsmWaitForEventA(EVENT_WAIT_MS, &rEvent);
  if (iResult == SSM_EVENT_TIMEOUT) return;
  if (iResult != SSM_OK) {
    HandOnError();
  } else if (rEvent.wEventCode == E_PROC_RecordMem) {
    TakeReport(rEvent, MonotonicNs());
    return;  // the loop does not wake for it
  } else {
    HandOn(rEvent, acBuffer, MonotonicNs());
  }
  rMainQueue.Ring();
}

void Taker::HandOn(const SSM_EVENT& rEvent, const char* acBuffer, std::int64_t iNowNs) {
  TakenEvent rTakenEvent;
  rTakenEvent.rEvent = rEvent;
  rTakenEvent.rEvent.pvBuffer = nullptr;
  rTakenEvent.iTakenNs = iNowNs;
  if (rEvent.pvBuffer != nullptr && rEvent.dwDataLength > 0) {
    const std::size_t iRoom = rEvent.pvBuffer == acBuffer ? EVENT_BUFFER_BYTES : TAKEN_BLOCK_BYTES;
    const std::size_t iLength = std::min<std::size_t>(rEvent.dwDataLength, iRoom);
    {
      const MutexLock rLock(rMutex);
      rTakenEvent.prBlock = SpareOrNewBlock();
    }
    memcpy(rTakenEvent.prBlock->acBytes, rEvent.pvBuffer, iLength);
    rTakenEvent.rEvent.pvBuffer = rTakenEvent.prBlock->acBytes;
    rTakenEvent.rEvent.dwDataLength = static_cast<DWORD>(iLength);
  }
  const MutexLock rLock(rMutex);
  rTaken.push_back(std::move(rTakenEvent));
  if (IsFull()) fHold = true;
}

// One failure waits for the main loop at a time, with the number of those that follow: a driver that fails at once
// would fill the memory. It is asked again meanwhile, now and then: see MayGoOn.
void Taker::HandOnError() {
  char acText[SSM_ERR_MSG_BYTES];
  SsmGetLastErrMsg(acText);
  acText[SSM_ERR_MSG_BYTES - 1] = '\0';  // a text that fills the buffer may come without its end
  const MutexLock rLock(rMutex);
  fHold = true;
  if (std::exchange(fErrorWaits, true)) {
    iMoreErrors++;
    return;
  }
  TakenEvent& rError = rTaken.emplace_back();
  rError.eKind = TAKEN_ERROR;
  rError.iTakenNs = MonotonicNs();
  rError.prBlock = SpareOrNewBlock();
  static_assert(SSM_ERR_MSG_BYTES <= TAKEN_BLOCK_BYTES);
  memcpy(rError.prBlock->acBytes, acText, SSM_ERR_MSG_BYTES);
}

// -- out of the ring --------------------------------------------------------------------------------------------------

void Taker::TakeReport(const SSM_EVENT& rEvent, std::int64_t iNowNs) {
  const MutexLock rLock(rMutex);
  const int iDrvCh = rEvent.nReference;
  if (iDrvCh < 0 || static_cast<std::size_t>(iDrvCh) >= vRings.size()) return;
  Ring& rRing = vRings[static_cast<std::size_t>(iDrvCh)];
  const int iPos = static_cast<int>(rEvent.dwParam);
  if (rRing.acBytes == nullptr || iPos < 0 || iPos > rRing.iBytes) return;  // no recording, or no place in its ring
  if (!rRing.fOverrun && IsPainted(rRing, iPos)) return;                    // the recording before
  TakenEvent rReport;
  rReport.eKind = TAKEN_AUDIO;
  rReport.rEvent = rEvent;
  rReport.rEvent.pvBuffer = nullptr;
  rReport.iTakenNs = iNowNs;
  rReport.uiRecording = rRing.uiRecording;
  const std::size_t iBefore = rTaken.size();
  const int iStart = rRing.iOffset;
  const int iStop = iPos < iStart ? rRing.iBytes : iPos;
  TakeRange(rRing, iStart, iStop, rReport);
  if (iPos < iStart) TakeRange(rRing, 0, iPos, rReport);
  int iLength = 0;
  for (std::size_t i = iBefore; i < rTaken.size(); i++) iLength += rTaken[i].iBytes;

  // Only now, as the card may have come round during the copy.
  std::atomic_thread_fence(std::memory_order_seq_cst);
  const bool fOverrun = !IsPainted(rRing, iStart);
  if (fOverrun) {
    for (std::size_t i = iBefore; i < rTaken.size(); i++) rTaken[i].fOverrun = true;
    iOverrunBytes += iLength;
    rRing.fOverrun = true;
  }
  // The end of what was taken tells whether the card comes round to it before the next report. Where it has already, a
  // millisecond of what it has written is painted over.
  const int iEnd = iPos == 0 ? rRing.iBytes : iPos;
  Paint(rRing, std::max(iEnd - static_cast<int>(sizeof acPattern), 0), iEnd);
  rRing.iOffset = iPos;
  rRing.iTaken += iLength;
  rRing.iTakenNs = iNowNs;
  if (IsFull()) fHold = true;
}

void Taker::TakeRange(const Ring& rRing, int iStart, int iStop, const TakenEvent& rReport) {
  while (iStart < iStop) {
    TakenEvent& rPiece = rTaken.emplace_back();
    rPiece.eKind = rReport.eKind;
    rPiece.rEvent = rReport.rEvent;
    rPiece.iTakenNs = rReport.iTakenNs;
    rPiece.uiRecording = rReport.uiRecording;
    rPiece.iBytes = std::min(iStop - iStart, TAKEN_BLOCK_BYTES);
    rPiece.prBlock = NewBlock();
    if (rPiece.prBlock != nullptr) {
      memcpy(rPiece.prBlock->acBytes, rRing.acBytes + iStart, static_cast<std::size_t>(rPiece.iBytes));
    } else {
      iLostBytes += rPiece.iBytes;
    }
    iStart += rPiece.iBytes;
  }
}

// Whether the bytes before a place of the ring are paint.
bool Taker::IsPainted(const Ring& rRing, int iEnd) const {
  constexpr int iPattern = sizeof acPattern;
  for (int i = 1; i <= iPattern; i++) {
    const int iAt = (iEnd - i + rRing.iBytes) % rRing.iBytes;
    if (rRing.acBytes[iAt] != acPattern[iAt % iPattern]) return false;
  }
  return true;
}

void Taker::Paint(const Ring& rRing, int iStart, int iStop) const {
  constexpr int iPattern = sizeof acPattern;
  for (int i = iStart; i < iStop; i++) rRing.acBytes[i] = acPattern[i % iPattern];
}

// -- memory -----------------------------------------------------------------------------------------------------------

// Null when all are in use.
std::unique_ptr<TakenBlock> Taker::NewBlock() {
  return iBlocks < iMostBlocks ? SpareOrNewBlock() : nullptr;
}

// For what a call consists of, also above the limit.
std::unique_ptr<TakenBlock> Taker::SpareOrNewBlock() {
  std::unique_ptr<TakenBlock> prBlock;
  if (vSpare.empty()) {
    prBlock = std::make_unique<TakenBlock>();
  } else {
    prBlock = std::move(vSpare.back());
    vSpare.pop_back();
  }
  iBlocks++;
  return prBlock;
}

void Taker::GiveBackBlocks() {
  iBlocks -= vUsed.size();
  const std::size_t iToKeep = std::min(vUsed.size(), SPARE_BLOCKS - std::min(SPARE_BLOCKS, vSpare.size()));
  std::move(vUsed.begin(), vUsed.begin() + static_cast<std::ptrdiff_t>(iToKeep), std::back_inserter(vSpare));
  vUsed.erase(vUsed.begin(), vUsed.begin() + static_cast<std::ptrdiff_t>(iToKeep));
}

// -- the main thread --------------------------------------------------------------------------------------------------

TakenEvent* Taker::Take() {
  assert(OnMainThread());
  if (rHandled.prBlock != nullptr) vUsed.push_back(std::move(rHandled.prBlock));
  if (rFetched.empty()) {
    Fetch();
  } else if (vUsed.size() >= BLOCKS_BEFORE_GIVEN_BACK) {
    MakeRoom();
  }
  while (!rFetched.empty()) {
    rHandled = std::move(rFetched.front());
    rFetched.pop_front();
    if (!IsOver(rHandled)) {
      iLongestNs = std::max(iLongestNs, MonotonicNs() - rHandled.iTakenNs);
      if (rHandled.eKind == TAKEN_AUDIO) NoteHandled(rHandled);
      return &rHandled;
    }
    if (rHandled.prBlock != nullptr) vUsed.push_back(std::move(rHandled.prBlock));
  }
  return nullptr;
}

int Taker::SleepMs() const {
  return iOpenRings > 0 ? SLEEP_BESIDE_AUDIO_MS : SLEEP_MS;
}

void Taker::Fetch() {
  std::deque<TakenEvent> rNew;
  bool fWaits = false;
  {
    const MutexLock rLock(rMutex);
    GiveBackBlocks();
    rNew.swap(rTaken);
    if (fErrorWaits) CountErrors(rNew);
    fWaits = fErrorWaits || fHold;
    fErrorWaits = false;
    iFetched = rFetched.size() + rNew.size();
  }
  vUsed.clear();
  if (rFetched.empty()) {
    rFetched.swap(rNew);
  } else {
    std::move(rNew.begin(), rNew.end(), std::back_inserter(rFetched));
  }
  if (fWaits) rChanged.NotifyAll();
}

// The failures behind the one that waits are told with it.
void Taker::CountErrors(std::deque<TakenEvent>& rEvents) {
  const auto itError = std::find_if(rEvents.rbegin(), rEvents.rend(),
                                    [](const TakenEvent& rEvent) { return rEvent.eKind == TAKEN_ERROR; });
  if (itError != rEvents.rend()) itError->iMoreErrors = std::exchange(iMoreErrors, 0);
}

// While there is much to be handled still.
void Taker::MakeRoom() {
  {
    const MutexLock rLock(rMutex);
    GiveBackBlocks();
    iFetched = rFetched.size();
  }
  vUsed.clear();
  if (fHold) rChanged.NotifyAll();
}

void Taker::NoteHandled(const TakenEvent& rAudio) {
  Handled& rOfCh = vHandled[static_cast<std::size_t>(rAudio.rEvent.nReference)];
  rOfCh.iBytes += rAudio.iBytes;
  rOfCh.iTakenNs = rAudio.iTakenNs;
}

bool Taker::IsOver(const TakenEvent& rTakenEvent) const {
  if (rTakenEvent.eKind != TAKEN_AUDIO) return false;
  const unsigned uiPresent = vRecordings[static_cast<std::size_t>(rTakenEvent.rEvent.nReference)];
  return rTakenEvent.uiRecording == NO_RECORDING || rTakenEvent.uiRecording != uiPresent;
}

void Taker::BeginRing(int iDrvCh, BYTE* acRing, int iRingBytes) {
  assert(OnMainThread());
  const auto uiCh = static_cast<std::size_t>(iDrvCh);
  if (uiCh >= vRecordings.size()) vRecordings.resize(uiCh + 1, NO_RECORDING);
  if (vRecordings[uiCh] == NO_RECORDING) iOpenRings++;
  if (++uiLastRecording == NO_RECORDING) ++uiLastRecording;
  vRecordings[uiCh] = uiLastRecording;
  vHandled.resize(vRecordings.size());
  vHandled[uiCh] = {0, MonotonicNs()};

  const MutexLock rLock(rMutex);
  if (uiCh >= vRings.size()) vRings.resize(uiCh + 1);
  vRings[uiCh] = Ring();
  vRings[uiCh].acBytes = acRing;
  vRings[uiCh].iBytes = iRingBytes;
  vRings[uiCh].uiRecording = uiLastRecording;
  vRings[uiCh].iTakenNs = MonotonicNs();
  Paint(vRings[uiCh], 0, iRingBytes);
}

void Taker::EndRing(int iDrvCh) {
  assert(OnMainThread());
  const auto uiCh = static_cast<std::size_t>(iDrvCh);
  if (uiCh >= vRecordings.size() || vRecordings[uiCh] == NO_RECORDING) return;
  vRecordings[uiCh] = NO_RECORDING;
  iOpenRings--;
  const MutexLock rLock(rMutex);
  vRings[uiCh] = Ring();
}

long long Taker::SpokenBytes(int iDrvCh) {
  const auto uiCh = static_cast<std::size_t>(iDrvCh);
  const MutexLock rLock(rMutex);
  if (uiCh >= vRings.size()) return 0;
  const Ring& rRing = vRings[uiCh];
  const double dSinceS = static_cast<double>(MonotonicNs() - rRing.iTakenNs) / NS_A_SECOND;
  return rRing.iTaken + std::min<long long>(static_cast<long long>(dSinceS * SAMPLES_PER_S), rRing.iBytes);
}

long long Taker::SpokenBytes(int iDrvCh, std::int64_t iAtNs) const {
  const auto uiCh = static_cast<std::size_t>(iDrvCh);
  if (uiCh >= vHandled.size()) return 0;
  const double dSinceS = static_cast<double>(iAtNs - vHandled[uiCh].iTakenNs) / NS_A_SECOND;
  const auto iSince = static_cast<long long>(dSinceS * SAMPLES_PER_S);
  return vHandled[uiCh].iBytes + std::clamp<long long>(iSince, 0, TAKEN_BLOCK_BYTES);
}

double Taker::BehindS() {
  const MutexLock rLock(rMutex);
  const TakenEvent* prOldest = !rFetched.empty() ? &rFetched.front() : !rTaken.empty() ? &rTaken.front() : nullptr;
  return prOldest == nullptr ? 0 : static_cast<double>(MonotonicNs() - prOldest->iTakenNs) / NS_A_SECOND;
}

TakerFigures Taker::TakeFigures() {
  TakerFigures rFigures;
  rFigures.dBehindS = static_cast<double>(std::exchange(iLongestNs, 0)) / NS_A_SECOND;
  const MutexLock rLock(rMutex);
  rFigures.iWaitingBytes = static_cast<long long>(iBlocks) * TAKEN_BLOCK_BYTES;
  rFigures.iLimitBytes = static_cast<long long>(iMostBlocks) * TAKEN_BLOCK_BYTES;
  rFigures.iLostBytes = iLostBytes;
  rFigures.iOverrunBytes = iOverrunBytes;
  return rFigures;
}
