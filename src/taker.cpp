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
#include "shpa3link.h"

namespace {

constexpr int TAKER_NICENESS = -20;
constexpr long long SHARE_OF_MEMORY = 4;
constexpr std::size_t SPARE_EVENTS = 4096;
// Beside as many for each block: an event is small.
constexpr std::size_t EVENTS_BESIDE_BLOCKS = 100'000;
constexpr std::size_t EVENTS_A_BLOCK = 4;
constexpr int SLEEP_MS = 200;
constexpr int SLEEP_BESIDE_AUDIO_MS = 20;
constexpr std::chrono::milliseconds ERROR_PAUSE{100};  // far below what a ring holds
constexpr std::size_t USED_BEFORE_GIVEN_BACK = 256;

std::size_t BlocksOf(long long iBytes) {
  return static_cast<std::size_t>(iBytes / TAKEN_BLOCK_BYTES);
}

// Of one line, in so much time.
long long BytesOf(std::int64_t iNs) {
  return static_cast<long long>(static_cast<double>(iNs) / NS_A_SECOND * SAMPLES_PER_S);
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
  fHold = fStopping;
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
  SSM_EVENT rEvent;
  const int iResult = WaitForCardEvent(rEvent, acBuffer);
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
  const MutexLock rLock(rMutex);
  TakenEvent& rTakenEvent = AddEvent(TAKEN_EVENT, rEvent, iNowNs);
  if (rEvent.pvBuffer != nullptr && rEvent.dwDataLength > 0) {
    const std::size_t iRoom = rEvent.pvBuffer == acBuffer ? EVENT_BUFFER_BYTES : TAKEN_BLOCK_BYTES;
    const std::size_t iLength = std::min<std::size_t>(rEvent.dwDataLength, iRoom);
    GiveBlock(rTakenEvent);
    memcpy(rTakenEvent.acBytes, rEvent.pvBuffer, iLength);
    rTakenEvent.rEvent.pvBuffer = rTakenEvent.acBytes;
    rTakenEvent.rEvent.dwDataLength = static_cast<DWORD>(iLength);
  }
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
  TakenEvent& rError = AddEvent(TAKEN_ERROR, SSM_EVENT(), MonotonicNs());
  GiveBlock(rError);
  static_assert(SSM_ERR_MSG_BYTES <= TAKEN_BLOCK_BYTES);
  memcpy(rError.acBytes, acText, SSM_ERR_MSG_BYTES);
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
  const int iStart = rRing.iOffset;
  const bool fRound = iPos < iStart || (iPos == iStart && rRing.iToCatchUp == 0 && !IsPainted(rRing, iPos));
  const std::size_t iBefore = rTaken.size();
  int iLength = TakeRange(rRing, iStart, fRound ? rRing.iBytes : iPos, rEvent, iNowNs);
  if (fRound) iLength += TakeRange(rRing, 0, iPos, rEvent, iNowNs);

  if (FindOverrun(rRing, iStart, iLength, iNowNs)) {
    std::for_each(rTaken.rbegin(), std::next(rTaken.rbegin(), static_cast<std::ptrdiff_t>(rTaken.size() - iBefore)),
                  [](TakenEvent& rPiece) { rPiece.fOverrun = true; });
    iOverrunBytes += iLength;
  }
  // The end of what was taken tells whether the card comes round to it before the next report.
  if (rRing.iToCatchUp == 0) {
    Paint(rRing, iPos - static_cast<int>(sizeof acPattern) + rRing.iBytes, sizeof acPattern);
  }
  rRing.iOffset = iPos;
  rRing.iTaken += iLength;
  rRing.iTakenNs = iNowNs;
  if (IsFull()) fHold = true;
}

// Whether the card may have overwritten what has just been copied. Where it has come round there are more reports of
// what it has overwritten: all but the last ring of what it has written since the last was taken. Until they are
// through, paint would stand in what is still to be copied.
bool Taker::FindOverrun(Ring& rRing, int iStart, int iLength, std::int64_t iNowNs) {
  std::atomic_thread_fence(std::memory_order_seq_cst);  // the card may have come round during the copy
  const bool fMayTell = !std::exchange(rRing.fGoesOn, false) && rRing.iToCatchUp == 0;
  if (fMayTell && !IsPainted(rRing, iStart)) {
    rRing.fOverrun = true;
    rRing.iOverwritten = std::max<long long>(BytesOf(iNowNs - rRing.iTakenNs) - rRing.iBytes, iLength);
    rRing.iToCatchUp = rRing.iOverwritten + rRing.iBytes;
  }
  const bool fOverrun = rRing.iOverwritten > 0;
  rRing.iOverwritten = std::max(rRing.iOverwritten - iLength, 0LL);
  rRing.iToCatchUp = std::max(rRing.iToCatchUp - iLength, 0LL);
  return fOverrun;
}

// The bytes of it.
int Taker::TakeRange(const Ring& rRing, int iStart, int iStop, const SSM_EVENT& rEvent, std::int64_t iNowNs) {
  for (int iAt = iStart, iPiece = 0; iAt < iStop; iAt += iPiece) {
    iPiece = std::min(iStop - iAt, TAKEN_BLOCK_BYTES);
    TakenEvent& rPiece = AddEvent(TAKEN_AUDIO, rEvent, iNowNs);
    rPiece.uiRecording = rRing.uiRecording;
    rPiece.iBytes = iPiece;
    if (iBlocks < iMostBlocks) {
      GiveBlock(rPiece);
      memcpy(rPiece.acBytes, rRing.acBytes + iAt, static_cast<std::size_t>(iPiece));
    } else {
      iLostBytes += iPiece;
    }
  }
  return iStop - iStart;
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

void Taker::Paint(const Ring& rRing, int iStart, int iLength) const {
  constexpr int iPattern = sizeof acPattern;
  for (int i = iStart; i < iStart + iLength; i++) {
    const int iAt = i % rRing.iBytes;
    rRing.acBytes[iAt] = acPattern[iAt % iPattern];
  }
}

// -- memory -----------------------------------------------------------------------------------------------------------

bool Taker::IsFull() const {
  return rTaken.size() + iFetched >= iMostEvents || iBlocks >= iMostBlocks + EVENTS_BESIDE_BLOCKS;
}

TakenEvent& Taker::AddEvent(ETakenKind eKind, const SSM_EVENT& rEvent, std::int64_t iNowNs) {
  if (rSpare.empty()) {
    rTaken.emplace_back();
  } else {
    rTaken.splice(rTaken.end(), rSpare, rSpare.begin());
  }
  TakenEvent& rAdded = rTaken.back();
  std::unique_ptr<TakenBlock> prBlock = std::move(rAdded.prBlock);
  rAdded = TakenEvent();
  rAdded.eKind = eKind;
  rAdded.rEvent = rEvent;
  rAdded.rEvent.pvBuffer = nullptr;
  rAdded.iTakenNs = iNowNs;
  rAdded.prBlock = std::move(prBlock);
  return rAdded;
}

// Also above the limit, for what a call consists of.
void Taker::GiveBlock(TakenEvent& rTakenEvent) {
  if (rTakenEvent.prBlock == nullptr) rTakenEvent.prBlock = std::make_unique<TakenBlock>();
  rTakenEvent.acBytes = rTakenEvent.prBlock->acBytes;
  iBlocks++;
}

// Where there are spare ones enough they stay in rUsed, to be freed without the lock.
void Taker::GiveBack() {
  iBlocks -= std::exchange(iUsedBlocks, 0);
  if (rSpare.size() + rUsed.size() <= SPARE_EVENTS) rSpare.splice(rSpare.begin(), rUsed);
}

// -- the main thread --------------------------------------------------------------------------------------------------

TakenEvent* Taker::Take(std::int64_t iNowNs) {
  assert(OnMainThread());
  if (!rHandled.empty()) PutToUsed(rHandled);
  if (rFetched.empty()) Fetch();
  while (!rFetched.empty()) {
    if (rUsed.size() >= USED_BEFORE_GIVEN_BACK) MakeRoom();
    TakenEvent& rNext = rFetched.front();
    if (!IsOver(rNext)) {
      rHandled.splice(rHandled.end(), rFetched, rFetched.begin());
      iLongestNs = std::max(iLongestNs, iNowNs - rNext.iTakenNs);
      if (rNext.eKind == TAKEN_AUDIO) NoteHandled(rNext);
      return &rNext;
    }
    PutToUsed(rFetched);
  }
  return nullptr;
}

// The first one of a list.
void Taker::PutToUsed(std::list<TakenEvent>& rFrom) {
  if (rFrom.front().acBytes != nullptr) iUsedBlocks++;
  rUsed.splice(rUsed.end(), rFrom, rFrom.begin());
}

int Taker::SleepMs() const {
  return iOpenRings > 0 ? SLEEP_BESIDE_AUDIO_MS : SLEEP_MS;
}

void Taker::Fetch() {
  bool fWaits = false;
  {
    const MutexLock rLock(rMutex);
    GiveBack();
    if (fErrorWaits) CountErrors();
    rFetched.splice(rFetched.end(), rTaken);
    fWaits = fErrorWaits || fHold;
    fErrorWaits = false;
    iFetched = rFetched.size();
  }
  rUsed.clear();
  if (fWaits) rChanged.NotifyAll();
}

// The failures behind the one that waits are told with it.
void Taker::CountErrors() {
  const auto itError = std::find_if(rTaken.rbegin(), rTaken.rend(),
                                    [](const TakenEvent& rEvent) { return rEvent.eKind == TAKEN_ERROR; });
  if (itError != rTaken.rend()) itError->iMoreErrors = std::exchange(iMoreErrors, 0);
}

// While there is much to be handled still.
void Taker::MakeRoom() {
  {
    const MutexLock rLock(rMutex);
    GiveBack();
    iFetched = rFetched.size();
  }
  rUsed.clear();
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
  const bool fCardMayWrite = vRings[uiCh].acBytes != nullptr;  // it has refused to stop
  vRings[uiCh] = Ring();
  vRings[uiCh].acBytes = acRing;
  vRings[uiCh].iBytes = iRingBytes;
  vRings[uiCh].uiRecording = uiLastRecording;
  vRings[uiCh].iTakenNs = MonotonicNs();
  vRings[uiCh].fGoesOn = fCardMayWrite;
  if (!fCardMayWrite) {
    Paint(vRings[uiCh], 0, iRingBytes);
    return;
  }
  // A report may hold what the card has written before: of that no more becomes paint than is looked at.
  constexpr int iMark = sizeof acPattern;
  for (int iEnd = TAKEN_BLOCK_BYTES; iEnd <= iRingBytes; iEnd += TAKEN_BLOCK_BYTES) {
    Paint(vRings[uiCh], iEnd - iMark, iMark);
  }
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
  return rRing.iTaken + std::min<long long>(BytesOf(MonotonicNs() - rRing.iTakenNs), rRing.iBytes);
}

long long Taker::SpokenBytes(int iDrvCh, std::int64_t iAtNs) const {
  const auto uiCh = static_cast<std::size_t>(iDrvCh);
  if (uiCh >= vHandled.size()) return 0;
  return vHandled[uiCh].iBytes + std::clamp<long long>(BytesOf(iAtNs - vHandled[uiCh].iTakenNs), 0, TAKEN_BLOCK_BYTES);
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
